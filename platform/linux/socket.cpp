// Socket wrappers. The platform's packet socket (domain 17) is a raw
// AF_PACKET socket for every protocol behind a kernel filter that keeps
// discovery frames; it hands the daemon each frame from the PPPoE header on
// with its receive information, and builds the Ethernet header and VLAN tags
// of each frame it is given to send, out of a socket of its own bound to the
// uplink. While the daemon asks for a receive
// buffer of some size, the packet socket receives through a memory-mapped ring
// of twice that size (what the kernel would grant a buffer), read in place
// without a system call per frame; platform.rxring = no keeps the socket's
// receive queue. The platform's route socket (domain 16) is route_sock.cpp's,
// the records of both kinds sock_table.cpp's, the wait over them
// select.cpp's.
#include <dlfcn.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <vector>

#include "platform/linux/config.h"
#include "platform/linux/internal.h"
#include "platform/linux/notify.h"
#include "platform/linux/pkt.h"
#include "platform/linux/police.h"
#include "platform/linux/plat_log.h"
#include "platform/linux/route_sock.h"
#include "platform/linux/rx_ring.h"
#include "platform/linux/sock_table.h"
#include "platform/linux/tx_sockets.h"
#include "platform/socket.h"

namespace linuxplat {

namespace {

// Largest frame read or built; discovery frames are far smaller.
constexpr size_t FRAME_MAX = 16 * 1024;
// A block of the ring takes the largest frame whole, after the block's own
// header and the frame's header and address.
static_assert(RxRing::BLOCK_SIZE >= sizeof(struct tpacket_block_desc) + 128 + FRAME_MAX);
// Frames stepped over (the trap of their port is off) in one receive call.
constexpr int RECV_SKIP_MAX = 64;
TxTpids txTpids() {
    static const TxTpids tpids = [] {
        TxTpids t;
        t.single = static_cast<uint16_t>(configGetU32("platform.tpid.single", t.single));
        t.outer = static_cast<uint16_t>(configGetU32("platform.tpid.outer", t.outer));
        t.inner = static_cast<uint16_t>(configGetU32("platform.tpid.inner", t.inner));
        return t;
    }();
    return tpids;
}

bool rxRingWanted() {
    static const bool on = configParseBool(configGetOr("platform.rxring", "yes")).value_or(true);
    return on;
}

// The test ONU record a diagnostic command may fill: a frame received on
// its unit is reported as coming from that ONU.
const uint8_t* testOnuInfo() {
    static const uint8_t* p = static_cast<const uint8_t*>(::dlsym(RTLD_DEFAULT, "gTestOnuInfo"));
    return p;
}

int32_t packetSocket() {
    // Interface names, MACs and trap states come from the interface cache.
    ifdbStart();
    int fd = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);  // receives nothing until bound
    if (fd < 0) {
        int err = errno;
        platLog(PLAT_LOG_ERR, "packet socket: %s%s", std::strerror(err),
                err == EPERM ? " (pppoeplusd needs root or CAP_NET_RAW)" : "");
        return fail(err);
    }
    // The eBPF filter keeps the same frames and polices them per port; the
    // classic one when it cannot be had (policing is then unavailable).
    std::vector<struct sock_filter> prog = pktFilterProgram();
    struct sock_fprog fprog = {static_cast<unsigned short>(prog.size()), prog.data()};
    if (!policeAttach(fd) && ::setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &fprog, sizeof(fprog)) != 0) {
        int err = errno;
        platLog(PLAT_LOG_ERR, "packet socket: cannot attach the filter: %s", std::strerror(err));
        ::close(fd);
        return fail(err);
    }
    int one = 1;
    (void)::setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &one, sizeof(one));
    struct sockaddr_ll addr;
    std::memset(&addr, 0, sizeof(addr));
    addr.sll_family = AF_PACKET;
    addr.sll_protocol = htons(ETH_P_ALL);
    if (::bind(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0) {
        int err = errno;
        platLog(PLAT_LOG_ERR, "packet socket: bind: %s", std::strerror(err));
        ::close(fd);
        return fail(err);
    }
    SockInfo info;
    info.kind = SockKind::Packet;
    if (rxRingWanted()) info.ring = std::make_shared<RingBox>();
    std::unique_lock<std::shared_mutex> lock(gSockMutex);
    gSocks[fd] = info;
    socksChanged();
    return fd;
}

// The receive buffer the daemon asked for: the kernel grants twice the
// bytes asked, and the ring gets as much. Below two blocks the socket keeps
// its receive queue, so that a tiny buffer still means few frames queued.
void ringResize(int fd, const SockInfo& info, int32_t asked) {
    if (!info.ring) return;
    uint32_t blocks = asked > 0 ? RxRing::blocksFor(2 * static_cast<uint64_t>(asked)) : 0;
    std::lock_guard<std::mutex> lock(info.ring->mutex);
    RxRing& ring = info.ring->ring;
    if (ring.active() && ring.blocks() == blocks) return;
    ring.close();
    if (blocks == 0) return;
    if (!ring.open(fd, blocks))
        platLog(PLAT_LOG_WARNING, "packet socket: no receive ring of %u KiB (%s); using the receive queue",
                blocks * (RxRing::BLOCK_SIZE / 1024), std::strerror(errno));
}

// A frame as the kernel handed it over, from either the ring or the queue.
struct RawFrame {
    const uint8_t* data;
    size_t len;  // bytes of the frame held at data
    int32_t ifindex;
    uint16_t hatype;
    uint8_t pkttype;
    AuxTag aux;
};

// Hands one frame to the daemon: the data from the PPPoE header on, cut to
// the caller's buffers, the address and the receive information. False
// when the frame is not one for the daemon (it is then stepped over).
bool deliver(const SockInfo& info, const RawFrame& f, zel_msghdr* msg, int32_t& copiedOut) {
    if (f.pkttype == PACKET_OUTGOING) return false;  // the host's own frames
    if (!ifdbTrapOn(f.ifindex)) return false;        // the port's trap is off
    RxFrame rx;
    if (!pktParseRx(f.data, f.len, f.aux, rx)) return false;

    size_t avail = f.len - rx.payloadOffset;
    size_t copied = 0;
    for (uint32_t i = 0; msg->msg_iov != nullptr && i < msg->msg_iovlen && copied < avail; i++) {
        size_t take = std::min(msg->msg_iov[i].iov_len, avail - copied);
        if (take > 0 && msg->msg_iov[i].iov_base != nullptr) {
            std::memcpy(msg->msg_iov[i].iov_base, f.data + rx.payloadOffset + copied, take);
            copied += take;
        }
    }

    if (msg->msg_name != nullptr && msg->msg_namelen >= sizeof(zel_sockaddr_ll)) {
        zel_sockaddr_ll addr;
        std::memset(&addr, 0, sizeof(addr));
        addr.sll_family = ZEL_AF_PACKET;
        addr.sll_protocol = htons(ETH_TYPE_PPPOE_DISC);
        addr.sll_ifindex = f.ifindex;
        addr.sll_hatype = f.hatype;
        addr.sll_pkttype = f.pkttype;
        addr.sll_halen = 6;
        std::memcpy(addr.sll_addr, rx.src, 6);
        std::memcpy(msg->msg_name, &addr, sizeof(addr));
        msg->msg_namelen = sizeof(addr);
    } else {
        msg->msg_namelen = 0;
    }

    uint32_t controlLen = 0;
    constexpr uint32_t needed = ZEL_CMSG_LEN(sizeof(zel_pkt_rxinfo));
    if (info.rxInfo && msg->msg_control != nullptr && msg->msg_controllen >= needed) {
        zel_pkt_rxinfo rxinfo;
        pktFillRxInfo(rx, static_cast<uint32_t>(f.ifindex), rxinfo);
        const uint8_t* onu = testOnuInfo();
        if (onu != nullptr) {
            uint32_t onuUnit;
            std::memcpy(&onuUnit, onu, 4);
            if (onuUnit != 0 && onuUnit == static_cast<uint32_t>(f.ifindex)) {
                rxinfo.onuPresent = 1;
                std::memcpy(rxinfo.onuInfo, onu, sizeof(rxinfo.onuInfo));
                rxinfo.flags |= ZEL_RXINFO_ONU_VALID;
            }
        }
        zel_cmsghdr c{needed, ZEL_SOL_PACKET, ZEL_RX_PKTINFO};
        std::memcpy(msg->msg_control, &c, sizeof(c));
        std::memcpy(static_cast<uint8_t*>(msg->msg_control) + ZEL_CMSG_HDRLEN, &rxinfo, sizeof(rxinfo));
        controlLen = ZEL_CMSG_ALIGN(needed);
    }
    msg->msg_controllen = controlLen;
    msg->msg_flags = 0;
    copiedOut = static_cast<int32_t>(copied);
    return true;
}

// One received frame from the receive queue. Returns the bytes copied, or -1.
int32_t queueRecv(int fd, const SockInfo& info, zel_msghdr* msg) {
    alignas(8) static thread_local uint8_t frame[FRAME_MAX];
    alignas(8) uint8_t control[CMSG_SPACE(sizeof(struct tpacket_auxdata))];
    // The first read waits as the socket does (the caller has seen it
    // readable); frames stepped over must not make it wait again.
    const int osFlags = MSG_TRUNC;

    for (int attempt = 0; attempt < RECV_SKIP_MAX; attempt++) {
        struct sockaddr_ll from;
        std::memset(&from, 0, sizeof(from));
        struct iovec iov = {frame, sizeof(frame)};
        struct msghdr km;
        std::memset(&km, 0, sizeof(km));
        km.msg_name = &from;
        km.msg_namelen = sizeof(from);
        km.msg_iov = &iov;
        km.msg_iovlen = 1;
        km.msg_control = control;
        km.msg_controllen = sizeof(control);
        ssize_t n = ::recvmsg(fd, &km, attempt == 0 ? osFlags : (osFlags | MSG_DONTWAIT));
        if (n < 0) return fail(errno);
        if (static_cast<size_t>(n) > sizeof(frame)) continue;  // cut: not a discovery frame

        RawFrame f{frame, static_cast<size_t>(n), from.sll_ifindex, from.sll_hatype, from.sll_pkttype, AuxTag{}};
        for (struct cmsghdr* c = CMSG_FIRSTHDR(&km); c != nullptr; c = CMSG_NXTHDR(&km, c)) {
            if (c->cmsg_level != SOL_PACKET || c->cmsg_type != PACKET_AUXDATA ||
                c->cmsg_len < CMSG_LEN(sizeof(struct tpacket_auxdata)))
                continue;
            struct tpacket_auxdata a;
            std::memcpy(&a, CMSG_DATA(c), sizeof(a));
            if ((a.tp_status & TP_STATUS_VLAN_VALID) != 0) {
                f.aux.valid = true;
                f.aux.tci = a.tp_vlan_tci;
                f.aux.tpid = (a.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0 ? a.tp_vlan_tpid : ETH_TYPE_8021Q;
            }
        }
        int32_t copied = 0;
        if (deliver(info, f, msg, copied)) return copied;
    }
    return fail(EAGAIN);
}

// One received frame from the ring, read in place. Returns the bytes
// copied, or -1 (EAGAIN when the ring has nothing: the caller waits on the
// socket before reading, and a ring read never blocks).
int32_t ringRecv(RxRing& ring, const SockInfo& info, zel_msghdr* msg) {
    for (int attempt = 0; attempt < RECV_SKIP_MAX; attempt++) {
        const struct tpacket3_hdr* h = ring.next();
        if (h == nullptr) return fail(EAGAIN);
        if (h->tp_len > FRAME_MAX || h->tp_snaplen < h->tp_len) continue;  // cut: not a discovery frame
        const struct sockaddr_ll* from = RxRing::address(h);
        RawFrame f{RxRing::frame(h), h->tp_snaplen, from->sll_ifindex, from->sll_hatype, from->sll_pkttype, AuxTag{}};
        if ((h->tp_status & TP_STATUS_VLAN_VALID) != 0) {
            f.aux.valid = true;
            f.aux.tci = h->hv1.tp_vlan_tci;
            f.aux.tpid = (h->tp_status & TP_STATUS_VLAN_TPID_VALID) != 0 ? h->hv1.tp_vlan_tpid : ETH_TYPE_8021Q;
        }
        int32_t copied = 0;
        if (deliver(info, f, msg, copied)) return copied;
    }
    return fail(EAGAIN);
}

// One received frame for the daemon. Returns the bytes copied, or -1.
int32_t packetRecv(int fd, const SockInfo& info, zel_msghdr* msg) {
    if (info.ring) {
        std::unique_lock<std::mutex> lock(info.ring->mutex);
        if (info.ring->ring.active()) return ringRecv(info.ring->ring, info, msg);
    }
    return queueRecv(fd, info, msg);
}

int32_t packetSend(int fd, const zel_msghdr* msg) {
    (void)fd;  // the frame goes out of the uplink's own socket
    if (msg->msg_name == nullptr || msg->msg_namelen < sizeof(zel_sockaddr_ll)) return fail(EDESTADDRREQ);
    zel_sockaddr_ll to;
    std::memcpy(&to, msg->msg_name, sizeof(to));
    if (to.sll_family != ZEL_AF_PACKET || to.sll_ifindex <= 0 || to.sll_halen != 6) return fail(EINVAL);

    zel_pkt_txinfo tx;
    bool hasTx = pktFindTxInfo(msg->msg_control, msg->msg_control != nullptr ? msg->msg_controllen : 0, tx);
    uint8_t ifMac[6] = {0, 0, 0, 0, 0, 0};
    if (!(hasTx && (tx.flags & ZEL_TXINFO_SRC_MAC) != 0) && !ifdbMac(to.sll_ifindex, ifMac)) return fail(ENXIO);

    uint8_t buf[FRAME_MAX];
    uint16_t etherType = ntohs(to.sll_protocol) != 0 ? ntohs(to.sll_protocol) : ETH_TYPE_PPPOE_DISC;
    size_t off = pktBuildTxHeader(to.sll_addr, ifMac, hasTx ? &tx : nullptr, etherType, txTpids(), buf);
    size_t dataLen = 0;
    for (uint32_t i = 0; msg->msg_iov != nullptr && i < msg->msg_iovlen; i++) {
        size_t n = msg->msg_iov[i].iov_len;
        if (n == 0) continue;
        if (msg->msg_iov[i].iov_base == nullptr) return fail(EFAULT);
        if (n > sizeof(buf) - off - dataLen) return fail(EMSGSIZE);
        std::memcpy(buf + off + dataLen, msg->msg_iov[i].iov_base, n);
        dataLen += n;
    }

    // The kernel takes the frame's type from its header.
    ssize_t n = txSocketSend(to.sll_ifindex, buf, off + dataLen);
    if (n < 0) return fail(errno);
    return static_cast<int32_t>(dataLen);
}

}  // namespace

}  // namespace linuxplat

using namespace linuxplat;

int32_t zel_socket(int32_t domain, int32_t type, int32_t protocol) {
    platformStart();
    if (type != ZEL_SOCK_DGRAM) return fail(EPROTOTYPE);
    if (domain == ZEL_AF_PACKET) {
        if (protocol != ZEL_ETH_P_PPPOE_DISC) return fail(EPROTONOSUPPORT);
        return packetSocket();
    }
    if (domain == ZEL_AF_ROUTE) {
        if (protocol != 0) return fail(EPROTONOSUPPORT);
        return routeSocket();
    }
    return fail(EAFNOSUPPORT);
}

int32_t zel_bind(int32_t fd, const void* addr, uint32_t addrLen) {
    SockInfo info;
    if (!lookup(fd, info)) return fail(EBADF);
    if (addr == nullptr) return fail(EFAULT);
    if (info.kind == SockKind::Route) {
        zel_sockaddr_rt rt;
        if (addrLen < sizeof(rt)) return fail(EINVAL);
        std::memcpy(&rt, addr, sizeof(rt));
        if (rt.rt_family != ZEL_AF_ROUTE) return fail(EAFNOSUPPORT);
        return 0;
    }
    // A packet socket bound to one interface.
    zel_sockaddr_ll ll;
    if (addrLen < sizeof(ll)) return fail(EINVAL);
    std::memcpy(&ll, addr, sizeof(ll));
    if (ll.sll_family != ZEL_AF_PACKET) return fail(EAFNOSUPPORT);
    struct sockaddr_ll k;
    std::memset(&k, 0, sizeof(k));
    k.sll_family = AF_PACKET;
    k.sll_protocol = htons(ETH_P_ALL);
    k.sll_ifindex = ll.sll_ifindex;
    if (::bind(fd, reinterpret_cast<struct sockaddr*>(&k), sizeof(k)) != 0) return fail(errno);
    return 0;
}

int32_t zel_setsockopt(int32_t fd, int32_t level, int32_t option, const void* value, uint32_t valueLen) {
    SockInfo info;
    if (!lookup(fd, info)) return fail(EBADF);
    if (value == nullptr) return fail(EFAULT);
    if (valueLen != 4) return fail(EINVAL);
    int32_t v;
    std::memcpy(&v, value, 4);

    if (level == ZEL_SOL_SOCKET && option == ZEL_SO_RCVBUF) {
        int size = v;
        // Root may go past net.core.rmem_max; anyone else gets what the cap allows.
        if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0 &&
            ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size)) != 0)
            return fail(errno);
        if (info.kind == SockKind::Packet) ringResize(fd, info, v);
        return 0;
    }
    if (level == ZEL_SOL_SOCKET && option == ZEL_SO_NAME) {
        std::unique_lock<std::shared_mutex> lock(gSockMutex);
        auto it = gSocks.find(fd);
        if (it == gSocks.end()) return fail(EBADF);
        it->second.name = v;
        socksChanged();
        return 0;
    }
    if (level == ZEL_SOL_PACKET && option == ZEL_RX_PKTINFO && info.kind == SockKind::Packet) {
        int on = v != 0 ? 1 : 0;
        if (::setsockopt(fd, SOL_PACKET, PACKET_AUXDATA, &on, sizeof(on)) != 0) return fail(errno);
        std::unique_lock<std::shared_mutex> lock(gSockMutex);
        auto it = gSocks.find(fd);
        if (it == gSocks.end()) return fail(EBADF);
        it->second.rxInfo = on != 0;
        socksChanged();
        return 0;
    }
    if (level == ZEL_SOL_ROUTE && option == ZEL_ADD_MEMBERSHIP && info.kind == SockKind::Route) {
        if (v != 1) return fail(EINVAL);  // the platform has one group: interface events
        routeJoin(fd);
        return 0;
    }
    return fail(ENOPROTOOPT);
}

int32_t zel_recv(int32_t fd, void* buf, uint32_t len, int32_t) {
    SockInfo info;
    if (!lookup(fd, info)) return fail(EBADF);
    if (buf == nullptr && len > 0) return fail(EFAULT);
    if (info.kind == SockKind::Packet) {
        zel_iovec iov{buf, len};
        zel_msghdr msg{nullptr, 0, &iov, 1, nullptr, 0, 0};
        return packetRecv(fd, info, &msg);
    }
    ssize_t n = ::recv(fd, buf, len, 0);
    if (n < 0) return fail(errno);
    return static_cast<int32_t>(n);
}

int32_t zel_recvmsg(int32_t fd, zel_msghdr* msg, int32_t) {
    const SockInfo* info = lookupRef(fd);
    if (info == nullptr) return fail(EBADF);
    if (msg == nullptr) return fail(EFAULT);
    if (info->kind == SockKind::Packet) return packetRecv(fd, *info, msg);
    // A route socket: data only.
    std::vector<struct iovec> iov;
    for (uint32_t i = 0; msg->msg_iov != nullptr && i < msg->msg_iovlen && i < 64; i++)
        iov.push_back(iovec{msg->msg_iov[i].iov_base, msg->msg_iov[i].iov_len});
    struct msghdr km;
    std::memset(&km, 0, sizeof(km));
    km.msg_iov = iov.data();
    km.msg_iovlen = iov.size();
    ssize_t n = ::recvmsg(fd, &km, 0);
    if (n < 0) return fail(errno);
    msg->msg_namelen = 0;
    msg->msg_controllen = 0;
    msg->msg_flags = 0;
    return static_cast<int32_t>(n);
}

int32_t zel_sendmsg(int32_t fd, const zel_msghdr* msg, int32_t) {
    const SockInfo* info = lookupRef(fd);
    if (info == nullptr) return fail(EBADF);
    if (msg == nullptr) return fail(EFAULT);
    if (info->kind != SockKind::Packet) return fail(EOPNOTSUPP);
    return packetSend(fd, msg);
}

int32_t zel_close(int32_t fd) {
    SockInfo info;
    if (!lookup(fd, info)) return fail(EBADF);  // never a descriptor the platform did not open
    if (info.kind == SockKind::Route) routeUnregister(fd);
    else {
        if (info.ring) {
            std::lock_guard<std::mutex> ringLock(info.ring->mutex);
            info.ring->ring.close();
        }
        txSocketsCloseAll();  // the next packet socket opens its own
        std::unique_lock<std::shared_mutex> lock(gSockMutex);
        gSocks.erase(fd);
        socksChanged();
    }
    if (::close(fd) != 0) return fail(errno);
    return 0;
}

int32_t errnoGet(void) { return sockLastErrno(); }
