#include "lt_frames.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstring>

#include "lt_netns.h"
#include "platform/ifdb.h"

namespace lt {

const uint8_t BROADCAST[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

std::vector<uint8_t> discoveryFrame(const uint8_t dst[6], const uint8_t src[6],
                                    const std::vector<std::pair<uint16_t, uint16_t>>& tags, uint16_t type,
                                    size_t size) {
    std::vector<uint8_t> f(dst, dst + 6);
    f.insert(f.end(), src, src + 6);
    for (auto [tpid, tci] : tags) {
        f.push_back(static_cast<uint8_t>(tpid >> 8));
        f.push_back(static_cast<uint8_t>(tpid));
        f.push_back(static_cast<uint8_t>(tci >> 8));
        f.push_back(static_cast<uint8_t>(tci));
    }
    f.push_back(static_cast<uint8_t>(type >> 8));
    f.push_back(static_cast<uint8_t>(type));
    const uint8_t body[] = {0x11, 0x09, 0x00, 0x00, 0x00, 0x04, 0x01, 0x01, 0x00, 0x00};
    f.insert(f.end(), body, body + sizeof(body));
    f.resize(size > 60 ? size : 60, 0);
    return f;
}

int rawSocket(const char* ifName) {
    int fd = ::socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL));
    if (fd < 0) return -1;
    struct sockaddr_ll a;
    std::memset(&a, 0, sizeof(a));
    a.sll_family = AF_PACKET;
    a.sll_protocol = htons(ETH_P_ALL);
    a.sll_ifindex = static_cast<int>(if_nametoindex(ifName));
    if (::bind(fd, reinterpret_cast<struct sockaddr*>(&a), sizeof(a)) != 0) return -1;
    int one = 1;
    ::setsockopt(fd, SOL_PACKET, PACKET_AUXDATA, &one, sizeof(one));
    int buf = 8 << 20;
    ::setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &buf, sizeof(buf));
    return fd;
}

bool rawSend(int fd, const std::vector<uint8_t>& frame) {
    return ::send(fd, frame.data(), frame.size(), 0) == static_cast<ssize_t>(frame.size());
}

PlatformFrame platformRecv(int32_t fd, int ms) {
    PlatformFrame g;
    zel_fd_set set;
    ZEL_FD_ZERO(&set);
    ZEL_FD_SET(fd, &set);
    zel_timeval tv = {ms / 1000, (ms % 1000) * 1000};
    if (zel_select(fd + 1, &set, nullptr, nullptr, &tv) < 1) return g;
    uint8_t buf[1400] = {};
    alignas(4) uint8_t control[128] = {};
    zel_iovec iov = {buf, sizeof(buf)};
    zel_msghdr m;
    std::memset(&m, 0, sizeof(m));
    m.msg_name = &g.addr;
    m.msg_namelen = sizeof(g.addr);
    m.msg_iov = &iov;
    m.msg_iovlen = 1;
    m.msg_control = control;
    m.msg_controllen = sizeof(control);
    g.len = zel_recvmsg(fd, &m, 0);
    if (g.len > 0) g.data.assign(buf, buf + g.len);
    g.controlLen = m.msg_controllen;
    if (m.msg_controllen >= ZEL_CMSG_LEN(sizeof(zel_pkt_rxinfo))) {
        zel_cmsghdr c;
        std::memcpy(&c, control, sizeof(c));
        if (c.cmsg_level == ZEL_SOL_PACKET && c.cmsg_type == ZEL_RX_PKTINFO) {
            std::memcpy(&g.info, control + ZEL_CMSG_HDRLEN, sizeof(g.info));
            g.hasInfo = true;
        }
    }
    return g;
}

int32_t openPacketSocket(int32_t rcvbuf) {
    int32_t fd = zel_socket(ZEL_AF_PACKET, ZEL_SOCK_DGRAM, ZEL_ETH_P_PPPOE_DISC);
    int32_t one = 1;
    CHECK_TRUE(fd > 0);
    CHECK_EQ(0, zel_setsockopt(fd, ZEL_SOL_PACKET, ZEL_RX_PKTINFO, &one, 4));
    if (rcvbuf != 0) CHECK_EQ(0, zel_setsockopt(fd, ZEL_SOL_SOCKET, ZEL_SO_RCVBUF, &rcvbuf, 4));
    return fd;
}

void trap(uint32_t unit, bool on) {
    tZelIfProto p{};
    p.protoId = ZEL_PROTO_PPPOEPLUS;
    CHECK_EQ(0u, zelIfSetApi(unit, on ? ZEL_IF_ATTR_PROTO_ON : ZEL_IF_ATTR_PROTO_OFF, &p));
}

std::vector<std::vector<uint8_t>> recvDiscoveryFrom(int fd, const uint8_t src[6], int idleMs) {
    std::vector<std::vector<uint8_t>> got;
    for (;;) {
        struct pollfd p = {fd, POLLIN, 0};
        if (::poll(&p, 1, idleMs) <= 0) break;
        uint8_t buf[2048];
        struct sockaddr_ll from;
        socklen_t len = sizeof(from);
        ssize_t n = ::recvfrom(fd, buf, sizeof(buf), 0, reinterpret_cast<struct sockaddr*>(&from), &len);
        if (n < 20 || from.sll_pkttype == PACKET_OUTGOING || std::memcmp(buf + 6, src, 6) != 0) continue;
        if (buf[12] != 0x88 || buf[13] != 0x63) continue;
        got.emplace_back(buf, buf + n);
    }
    return got;
}

}  // namespace lt
