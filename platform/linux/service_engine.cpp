// The service engine of the Linux platform: a local stream socket per
// service, its peers checked when they connect, and one thread per service
// that serves every connection in turn, so that a call made through a
// service always runs on that service's thread. The protocol is
// cmd_proto.h's; what a request does is the handler's business.
#include "platform/linux/service_engine.h"

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/internal.h"
#include "platform/linux/os_linux.h"
#include "platform/linux/plat_log.h"
#include "platform/types.h"

namespace linuxplat {

namespace {

constexpr size_t MAX_CONNECTIONS = 16;
constexpr int64_t PARTIAL_TIMEOUT_MS = 10000;  // a request begun must be complete by then
constexpr int64_t IDLE_TIMEOUT_MS = 300000;    // a connection with nothing to say is closed
constexpr int64_t WRITE_TIMEOUT_MS = 5000;

int64_t nowMs() {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// ---- socket files ----------------------------------------------------------------------

std::mutex gFilesMutex;
auto& gFiles = *new std::vector<std::pair<std::string, ino_t>>;

void makeParent(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0) return;
    std::string dir = path.substr(0, slash);
    struct stat st;
    if (::stat(dir.c_str(), &st) == 0) return;
    makeParent(dir);
    if (::mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST)
        platLog(PLAT_LOG_ERR, "cannot create %s: %s", dir.c_str(), std::strerror(errno));
}

// A listening socket at `path` with `mode`, owned by root and `gid`.
int listenAt(const std::string& path, mode_t mode, gid_t gid) {
    struct sockaddr_un addr;
    std::memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof(addr.sun_path)) {
        platLog(PLAT_LOG_ERR, "socket path too long: %s", path.c_str());
        return -1;
    }
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    makeParent(path);
    struct stat st;
    if (::lstat(path.c_str(), &st) == 0) {
        if (!S_ISSOCK(st.st_mode)) {
            platLog(PLAT_LOG_ERR, "%s exists and is not a socket; not replaced", path.c_str());
            return -1;
        }
        ::unlink(path.c_str());  // left behind by an earlier run
    }
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return -1;
    // Created with no access at all, opened up once owner and mode are right.
    mode_t old = ::umask(0777);
    int rc = ::bind(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr));
    ::umask(old);
    if (rc != 0) {
        platLog(PLAT_LOG_ERR, "%s: bind: %s", path.c_str(), std::strerror(errno));
        ::close(fd);
        return -1;
    }
    if (::chown(path.c_str(), 0, gid) != 0)
        platLog(PLAT_LOG_WARNING, "%s: chown: %s", path.c_str(), std::strerror(errno));
    if (::chmod(path.c_str(), mode) != 0) platLog(PLAT_LOG_WARNING, "%s: chmod: %s", path.c_str(), std::strerror(errno));
    if (::listen(fd, 16) != 0) {
        ::close(fd);
        return -1;
    }
    if (::lstat(path.c_str(), &st) == 0) {
        std::lock_guard<std::mutex> lock(gFilesMutex);
        gFiles.emplace_back(path, st.st_ino);
    }
    return fd;
}

// ---- the service engine ----------------------------------------------------------------

struct Conn {
    int fd = -1;
    std::vector<uint8_t> buf;
    int64_t last = 0;
};

bool sendReply(int fd, const std::vector<uint8_t>& bytes) {
    size_t off = 0;
    int64_t deadline = nowMs() + WRITE_TIMEOUT_MS;
    while (off < bytes.size()) {
        ssize_t n = ::send(fd, bytes.data() + off, bytes.size() - off, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            off += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno != EAGAIN) return false;
        int64_t left = deadline - nowMs();
        if (left <= 0) return false;
        struct pollfd p = {fd, POLLOUT, 0};
        (void)::poll(&p, 1, static_cast<int>(left));
    }
    return true;
}

// Closes a connection. What the peer sent and was not read is taken first
// (a little of it at most), so that the peer sees an orderly end after the
// last reply rather than a reset.
void connClose(int fd) {
    uint8_t sink[4096];
    for (int i = 0; i < 16; i++)
        if (::recv(fd, sink, sizeof(sink), MSG_DONTWAIT) <= 0) break;
    ::close(fd);
}

bool peerAllowed(const Service& svc, int fd, std::string& who) {
    struct ucred cred;
    socklen_t len = sizeof(cred);
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0) {
        who = "unknown peer";
        return false;
    }
    who = "pid " + std::to_string(cred.pid) + " uid " + std::to_string(cred.uid);
    if (cred.uid == 0) return true;
    if (!svc.groupAllowed) return false;
    if (cred.gid == svc.gid) return true;
    gid_t groups[256];
    socklen_t glen = sizeof(groups);
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups, &glen) == 0) {
        for (size_t i = 0; i < glen / sizeof(gid_t); i++)
            if (groups[i] == svc.gid) return true;
    }
    return false;
}

// Reads what the connection has and handles every complete request in it.
// False when the connection is to be closed.
bool connReadable(Service& svc, Conn& c) {
    // Never more than the frame in hand needs: a header, then its body.
    size_t want;
    cmdp::Header h;
    if (c.buf.size() < cmdp::HEADER_LEN) {
        want = cmdp::HEADER_LEN - c.buf.size();
    } else {
        (void)cmdp::headerDecode(c.buf.data(), cmdp::MAX_REQUEST_BODY, h);
        want = cmdp::HEADER_LEN + h.length - c.buf.size();
    }
    size_t at = c.buf.size();
    c.buf.resize(at + want);
    ssize_t n = ::recv(c.fd, c.buf.data() + at, want, MSG_DONTWAIT);
    if (n < 0) {
        c.buf.resize(at);
        return errno == EAGAIN || errno == EINTR;
    }
    c.buf.resize(at + static_cast<size_t>(n));
    if (n == 0) {
        // The peer stopped sending. A request cut short still gets its answer.
        if (!c.buf.empty())
            (void)sendReply(c.fd, errorAnswer(cmdp::ERR_MALFORMED, "request cut short", 0).reply);
        return false;
    }
    c.last = nowMs();

    if (c.buf.size() < cmdp::HEADER_LEN) return true;
    int32_t rc = cmdp::headerDecode(c.buf.data(), cmdp::MAX_REQUEST_BODY, h);
    if (rc != 0) {
        const char* text = rc == cmdp::ERR_TOO_LONG      ? "request too long"
                           : rc == cmdp::ERR_UNSUPPORTED ? "protocol version not supported"
                                                         : "not a request of this protocol";
        (void)sendReply(c.fd, errorAnswer(rc, text, h.seq).reply);
        return false;
    }
    if (c.buf.size() < cmdp::HEADER_LEN + h.length) return true;

    cmdp::Frame frame;
    frame.header = h;
    frame.body.assign(c.buf.begin() + cmdp::HEADER_LEN, c.buf.end());
    c.buf.clear();
    Answer a = h.kind == svc.kind ? svc.handle(frame)
                                  : errorAnswer(cmdp::ERR_UNSUPPORTED, "request kind not served here", h.seq);
    if (!sendReply(c.fd, a.reply)) return false;
    return !a.close;
}

void* serviceThread(void* arg) {
    std::unique_ptr<Service> svc(static_cast<Service*>(arg));
    blockAsyncSignals();
    std::vector<Conn> conns;
    for (;;) {
        std::vector<struct pollfd> fds;
        fds.push_back(pollfd{svc->listenFd, POLLIN, 0});
        for (const Conn& c : conns) fds.push_back(pollfd{c.fd, POLLIN, 0});
        int rc = ::poll(fds.data(), fds.size(), 1000);
        if (rc < 0 && errno != EINTR) {
            platLog(PLAT_LOG_ERR, "%s: poll: %s", svc->name.c_str(), std::strerror(errno));
            ::sleep(1);
            continue;
        }
        int64_t now = nowMs();
        std::vector<Conn> keep;
        for (size_t i = 0; i < conns.size(); i++) {
            Conn& c = conns[i];
            bool open = true;
            if (rc > 0 && (fds[i + 1].revents & (POLLIN | POLLHUP | POLLERR)) != 0) open = connReadable(*svc, c);
            if (open && !c.buf.empty() && now - c.last > PARTIAL_TIMEOUT_MS) {
                (void)sendReply(c.fd, errorAnswer(cmdp::ERR_MALFORMED, "request incomplete", 0).reply);
                open = false;
            }
            if (open && c.buf.empty() && now - c.last > IDLE_TIMEOUT_MS) open = false;
            if (open) keep.push_back(std::move(c));
            else connClose(c.fd);
        }
        conns = std::move(keep);

        if (rc > 0 && (fds[0].revents & POLLIN) != 0) {
            for (;;) {
                int fd = ::accept4(svc->listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
                if (fd < 0) break;
                std::string who;
                if (!peerAllowed(*svc, fd, who)) {
                    platLog(PLAT_LOG_WARNING, "%s: %s refused", svc->name.c_str(), who.c_str());
                    (void)sendReply(fd, errorAnswer(cmdp::ERR_DENIED, "permission denied", 0).reply);
                    connClose(fd);
                    continue;
                }
                if (conns.size() >= MAX_CONNECTIONS) {
                    (void)sendReply(fd, errorAnswer(cmdp::ERR_UNSUPPORTED, "too many connections", 0).reply);
                    connClose(fd);
                    continue;
                }
                conns.push_back(Conn{fd, {}, nowMs()});
            }
        }
    }
    return nullptr;
}

}  // namespace

int32_t serviceStart(std::unique_ptr<Service> svc, mode_t mode) {
    svc->listenFd = listenAt(svc->path, mode, svc->gid);
    // The daemon's start-up goes on whatever a service start returns; a
    // daemon that cannot be managed ends here instead.
    if (svc->listenFd < 0 && isDaemonProcess()) platformFailClosed(svc->name + " cannot listen at " + svc->path);
    if (svc->listenFd < 0) return ZEL_ERR_GENERAL;
    std::string name = svc->name;
    std::string path = svc->path;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attr, 1u << 20);
    pthread_t tid;
    Service* raw = svc.release();
    int rc = pthread_create(&tid, &attr, serviceThread, raw);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        ::close(raw->listenFd);
        delete raw;
        platLog(PLAT_LOG_ERR, "%s: cannot start its thread: %s", name.c_str(), std::strerror(rc));
        return ZEL_ERR_NO_RESOURCE;
    }
    pthread_setname_np(tid, name.substr(0, 15).c_str());
    platLog(PLAT_LOG_INFO, "%s listening at %s", name.c_str(), path.c_str());
    return 0;
}

Answer errorAnswer(int32_t code, const std::string& text, uint32_t seq) {
    return Answer{cmdp::errorReplyEncode(cmdp::ErrorReply{code, text}, seq), true};
}

bool serviceNameOk(const char* name) {
    if (name == nullptr || name[0] == '\0' || std::strlen(name) > 32) return false;
    for (const char* p = name; *p != '\0'; p++)
        if (!((*p >= 'a' && *p <= 'z') || (*p >= 'A' && *p <= 'Z') || (*p >= '0' && *p <= '9') || *p == '_'))
            return false;
    return true;
}
void servicesCleanup() {
    std::lock_guard<std::mutex> lock(gFilesMutex);
    for (const auto& [path, ino] : gFiles) {
        struct stat st;
        if (::lstat(path.c_str(), &st) == 0 && st.st_ino == ino) ::unlink(path.c_str());
    }
    gFiles.clear();
}
}  // namespace linuxplat
