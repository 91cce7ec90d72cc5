// The platform's route sockets (domain 16): each is one end of a local
// socket pair whose other end the interface database and the event service
// write the platform's route messages to.
#include "platform/linux/route_sock.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <vector>

#include "platform/linux/config.h"
#include "platform/linux/internal.h"
#include "platform/linux/plat_log.h"
#include "platform/linux/sock_table.h"

namespace linuxplat {

int32_t routeSocket() {
    ifdbStart();
    eventServiceStart();
    int sv[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sv) != 0) return fail(errno);
    int size = 4 << 20;
    if (::setsockopt(sv[1], SOL_SOCKET, SO_SNDBUFFORCE, &size, sizeof(size)) != 0)
        (void)::setsockopt(sv[1], SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));
    ::shutdown(sv[0], SHUT_WR);
    {
        std::unique_lock<std::shared_mutex> lock(gSockMutex);
        SockInfo info;
        info.kind = SockKind::Route;
        info.platformEnd = sv[1];
        gSocks[sv[0]] = info;
        socksChanged();
    }
    return sv[0];
}

void routeJoin(int daemonFd) {
    int platformEnd = -1;
    {
        std::unique_lock<std::shared_mutex> lock(gSockMutex);
        auto it = gSocks.find(daemonFd);
        if (it == gSocks.end() || it->second.kind != SockKind::Route || it->second.joined) return;
        it->second.joined = true;
        socksChanged();
        platformEnd = it->second.platformEnd;
    }
    // As at boot, when the device's interfaces appear after its processes:
    // every interface there is now is announced to the newcomer as new.
    auto announce = configParseBool(configGetOr("platform.announce", "yes"));
    if (announce.value_or(true) && platformEnd >= 0) {
        uint32_t sent = 0;
        for (const auto& m : ifdbAnnouncements())
            if (::send(platformEnd, m.data(), m.size(), MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(m.size()))
                sent++;
        platLog(PLAT_LOG_INFO, "route socket %d: %u interface(s) announced", daemonFd, sent);
    }
}

void routeUnregister(int daemonFd) {
    std::unique_lock<std::shared_mutex> lock(gSockMutex);
    auto it = gSocks.find(daemonFd);
    if (it == gSocks.end()) return;
    if (it->second.platformEnd >= 0) ::close(it->second.platformEnd);
    gSocks.erase(it);
    socksChanged();
}

uint32_t routeDeliver(const std::vector<uint8_t>& msg) {
    uint32_t delivered = 0;
    std::shared_lock<std::shared_mutex> lock(gSockMutex);
    for (const auto& [fd, info] : gSocks) {
        if (info.kind != SockKind::Route || !info.joined || info.platformEnd < 0) continue;
        ssize_t n = ::send(info.platformEnd, msg.data(), msg.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (n == static_cast<ssize_t>(msg.size())) delivered++;
        else platLog(PLAT_LOG_WARNING, "route socket %d: message lost: %s", fd, std::strerror(errno));
    }
    return delivered;
}

}  // namespace linuxplat
