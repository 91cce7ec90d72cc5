// The kernel's links over rtnetlink (nl_links.h).
#include "platform/linux/nl_links.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <vector>

namespace linuxplat {

namespace {

std::atomic<uint32_t> gDumpSeq{1};

// One dump of every link; its messages carry the request's sequence number
// and the socket's port id, and libmnl takes only the kernel's.
enum class Dump { Ok, Failed, Interrupted };
Dump nlDumpOnce(std::map<int32_t, LinkInfo>& out) {
    NlSocket nl = nlOpen(0);
    if (!nl) return Dump::Failed;
    uint32_t seq = gDumpSeq.fetch_add(1, std::memory_order_relaxed);
    std::vector<uint8_t> req = rtnlDumpRequest(seq);
    if (mnl_socket_sendto(nl.get(), req.data(), req.size()) < 0) return Dump::Failed;
    uint32_t portid = mnl_socket_get_portid(nl.get());
    std::vector<uint8_t> buf(NL_BUF_LEN);
    for (;;) {
        ssize_t n = mnl_socket_recvfrom(nl.get(), buf.data(), buf.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return Dump::Failed;
        NlWalk w = rtnlWalk(
            buf.data(), static_cast<size_t>(n),
            [&](LinkEvent ev, const LinkInfo& link) {
                if (ev == LinkEvent::New) out[link.ifindex] = link;
            },
            seq, portid);
        if (w.interrupted) return Dump::Interrupted;
        if (w.malformed || w.error != 0) return Dump::Failed;
        if (w.done) return Dump::Ok;
    }
}

}  // namespace

NlSocket nlOpen(unsigned groups) {
    NlSocket nl(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
    if (!nl) return nl;
    if (mnl_socket_bind(nl.get(), groups, MNL_SOCKET_AUTOPID) < 0) {
        int e = errno;
        nl.reset();
        errno = e;
    }
    return nl;
}

bool nlDump(std::map<int32_t, LinkInfo>& out) {
    for (int attempt = 0; attempt < 5; attempt++) {
        std::map<int32_t, LinkInfo> links;
        Dump d = nlDumpOnce(links);
        if (d == Dump::Ok) {
            out = std::move(links);
            return true;
        }
        if (d == Dump::Failed) return false;
    }
    return false;
}

}  // namespace linuxplat
