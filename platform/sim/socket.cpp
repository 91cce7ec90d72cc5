// Simulated sockets: descriptors from 3 up; a packet socket hands out queued
// frames with their receive information, every send is captured; other
// sockets hand out queued reads. zel_select never waits: with nothing queued
// it reports a time-out at once.
#include <algorithm>
#include <cstring>
#include <string>

#include "platform/sim/sim.h"
#include "platform/socket.h"
#include "platform/types.h"

using sim::g;

static constexpr int32_t SIM_EBADF = 9;
static constexpr int32_t SIM_EAGAIN = 11;

static sim::Socket* simSocket(int32_t fd) {
    auto s = g.sockets.find(fd);
    if (s == g.sockets.end() || !s->second.open) {
        g.lastErrno = SIM_EBADF;
        return nullptr;
    }
    return &s->second;
}

int32_t zel_socket(int32_t domain, int32_t type, int32_t protocol) {
    auto f = sim::enter("zel_socket", "zel_socket(" + std::to_string(domain) + "," + std::to_string(type) + "," +
                                          std::to_string(protocol) + ")");
    if (f) return static_cast<int32_t>(*f);
    int32_t fd = g.nextFd++;
    sim::Socket& s = g.sockets[fd];
    s.domain = domain;
    s.type = type;
    s.protocol = protocol;
    s.open = true;
    return fd;
}

int32_t zel_bind(int32_t fd, const void* addr, uint32_t addrLen) {
    auto f = sim::enter("zel_bind", "zel_bind(" + std::to_string(fd) + "," + std::to_string(addrLen) + ")");
    if (f) return static_cast<int32_t>(*f);
    sim::Socket* s = simSocket(fd);
    if (s == nullptr || addr == nullptr) return -1;
    s->bound = true;
    const auto* p = static_cast<const uint8_t*>(addr);
    s->boundAddr.assign(p, p + addrLen);
    return 0;
}

int32_t zel_setsockopt(int32_t fd, int32_t level, int32_t option, const void* value, uint32_t valueLen) {
    int32_t v = 0;
    if (value != nullptr && valueLen == 4) std::memcpy(&v, value, 4);
    auto f = sim::enter("zel_setsockopt", "zel_setsockopt(" + std::to_string(fd) + "," + std::to_string(level) + "," +
                                              std::to_string(option) + "," + std::to_string(v) + ")");
    if (f) return static_cast<int32_t>(*f);
    sim::Socket* s = simSocket(fd);
    if (s == nullptr || value == nullptr || valueLen != 4) return -1;
    s->options[{level, option}] = v;
    return 0;
}

static bool simReadable(int32_t fd) {
    auto s = g.sockets.find(fd);
    if (s == g.sockets.end() || !s->second.open) return false;
    return !s->second.frames.empty() || !s->second.reads.empty();
}

int32_t zel_select(int32_t nfds, zel_fd_set* readSet, zel_fd_set* writeSet, zel_fd_set* exceptSet,
                   zel_timeval* timeout) {
    sim::Select sel{nfds, {}, timeout != nullptr, timeout ? *timeout : zel_timeval{0, 0}};
    for (int32_t fd = 0; readSet != nullptr && fd < nfds && fd < ZEL_FD_SETSIZE; fd++)
        if (ZEL_FD_ISSET(fd, readSet)) sel.watched.push_back(fd);
    g.selects.push_back(sel);
    auto f = sim::enter("zel_select", "zel_select(" + std::to_string(nfds) + ")");
    if (f) return static_cast<int32_t>(*f);

    int32_t ready = 0;
    zel_fd_set out;
    ZEL_FD_ZERO(&out);
    for (int32_t fd : sel.watched) {
        if (simReadable(fd)) {
            ZEL_FD_SET(fd, &out);
            ready++;
        }
    }
    if (readSet != nullptr) *readSet = out;
    if (writeSet != nullptr) ZEL_FD_ZERO(writeSet);
    if (exceptSet != nullptr) ZEL_FD_ZERO(exceptSet);
    return ready;
}

int32_t zel_recv(int32_t fd, void* buf, uint32_t len, int32_t) {
    auto f = sim::enter("zel_recv", "zel_recv(" + std::to_string(fd) + "," + std::to_string(len) + ")");
    if (f) return static_cast<int32_t>(*f);
    sim::Socket* s = simSocket(fd);
    if (s == nullptr) return -1;
    if (s->reads.empty()) {
        g.lastErrno = SIM_EAGAIN;
        return -1;
    }
    std::vector<uint8_t> bytes = std::move(s->reads.front());
    s->reads.pop_front();
    // A datagram longer than the buffer is cut to it.
    uint32_t n = std::min<uint32_t>(len, static_cast<uint32_t>(bytes.size()));
    if (n > 0 && buf != nullptr) std::memcpy(buf, bytes.data(), n);
    return static_cast<int32_t>(n);
}

int32_t zel_recvmsg(int32_t fd, zel_msghdr* msg, int32_t) {
    auto f = sim::enter("zel_recvmsg", "zel_recvmsg(" + std::to_string(fd) + ")");
    if (f) return static_cast<int32_t>(*f);
    sim::Socket* s = simSocket(fd);
    if (s == nullptr || msg == nullptr) return -1;
    if (s->frames.empty()) {
        g.lastErrno = SIM_EAGAIN;
        return -1;
    }
    sim::Frame frame = std::move(s->frames.front());
    s->frames.pop_front();

    // Data, cut to the buffers given.
    uint32_t copied = 0;
    for (uint32_t i = 0; i < msg->msg_iovlen && msg->msg_iov != nullptr; i++) {
        zel_iovec& iov = msg->msg_iov[i];
        size_t n = std::min<size_t>(iov.iov_len, frame.bytes.size() - copied);
        if (n > 0 && iov.iov_base != nullptr) std::memcpy(iov.iov_base, frame.bytes.data() + copied, n);
        copied += static_cast<uint32_t>(n);
    }

    // Source address: the receiving interface.
    if (msg->msg_name != nullptr && msg->msg_namelen >= sizeof(zel_sockaddr_ll)) {
        zel_sockaddr_ll addr;
        std::memset(&addr, 0, sizeof(addr));
        addr.sll_family = ZEL_AF_PACKET;
        addr.sll_protocol = static_cast<uint16_t>((ZEL_ETH_P_PPPOE_DISC >> 8) | ((ZEL_ETH_P_PPPOE_DISC & 0xFF) << 8));
        addr.sll_ifindex = static_cast<int32_t>(frame.ifUnit);
        addr.sll_halen = 6;
        std::memcpy(addr.sll_addr, frame.info.srcMac, 6);
        std::memcpy(msg->msg_name, &addr, sizeof(addr));
        msg->msg_namelen = sizeof(addr);
    }

    // Control information: one receive information record, when it fits.
    uint32_t controlLen = 0;
    const uint32_t needed = ZEL_CMSG_LEN(sizeof(zel_pkt_rxinfo));
    if (!frame.rawControl.empty() && msg->msg_control != nullptr) {
        controlLen = std::min<uint32_t>(msg->msg_controllen, static_cast<uint32_t>(frame.rawControl.size()));
        std::memcpy(msg->msg_control, frame.rawControl.data(), controlLen);
    } else if (frame.withInfo && msg->msg_control != nullptr && msg->msg_controllen >= needed) {
        auto* c = static_cast<zel_cmsghdr*>(msg->msg_control);
        c->cmsg_len = needed;
        c->cmsg_level = ZEL_SOL_PACKET;
        c->cmsg_type = ZEL_RX_PKTINFO;
        std::memcpy(ZEL_CMSG_DATA(c), &frame.info, sizeof(frame.info));
        controlLen = ZEL_CMSG_ALIGN(needed);
    }
    msg->msg_controllen = controlLen;
    msg->msg_flags = 0;
    return static_cast<int32_t>(copied);
}

int32_t zel_sendmsg(int32_t fd, const zel_msghdr* msg, int32_t flags) {
    int32_t ifindex = -1;
    if (msg != nullptr && msg->msg_name != nullptr && msg->msg_namelen >= sizeof(zel_sockaddr_ll))
        ifindex = static_cast<const zel_sockaddr_ll*>(msg->msg_name)->sll_ifindex;
    auto f = sim::enter("zel_sendmsg", "zel_sendmsg(" + std::to_string(fd) + "," + std::to_string(ifindex) + ")");
    if (f) return static_cast<int32_t>(*f);
    sim::Socket* s = simSocket(fd);
    if (s == nullptr || msg == nullptr) return -1;

    sim::Sent sent{};
    sent.fd = fd;
    sent.flags = flags;
    if (ifindex >= 0) {
        std::memcpy(&sent.addr, msg->msg_name, sizeof(sent.addr));
        sent.hasAddr = true;
    }
    if (msg->msg_control != nullptr) {
        const auto* c = static_cast<const uint8_t*>(msg->msg_control);
        sent.control.assign(c, c + msg->msg_controllen);
    }
    for (uint32_t i = 0; i < msg->msg_iovlen && msg->msg_iov != nullptr; i++) {
        const auto* p = static_cast<const uint8_t*>(msg->msg_iov[i].iov_base);
        if (p != nullptr) sent.bytes.insert(sent.bytes.end(), p, p + msg->msg_iov[i].iov_len);
    }
    g.sent.push_back(sent);
    return static_cast<int32_t>(sent.bytes.size());
}

int32_t zel_close(int32_t fd) {
    auto f = sim::enter("zel_close", "zel_close(" + std::to_string(fd) + ")");
    if (f) return static_cast<int32_t>(*f);
    sim::Socket* s = simSocket(fd);
    if (s == nullptr) return -1;
    s->open = false;
    return 0;
}

int32_t errnoGet(void) { return g.lastErrno; }
