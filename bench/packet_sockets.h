// Packet sockets the benchmark's forwarders and send measurement set up
// alike.
#pragma once

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/linux/pkt.h"

namespace bench {

// A raw socket of protocol 0 (it receives nothing) bound to `ifindex`, to
// send on; -1 with errno set.
inline int boundSendSocket(int ifindex) {
    int fd = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    struct sockaddr_ll a;
    std::memset(&a, 0, sizeof(a));
    a.sll_family = AF_PACKET;
    a.sll_ifindex = ifindex;
    if (::bind(fd, reinterpret_cast<struct sockaddr*>(&a), sizeof(a)) != 0) {
        int err = errno;
        ::close(fd);
        errno = err;
        return -1;
    }
    return fd;
}

// A raw socket behind the platform's classic filter (discovery frames only)
// that ignores the host's own frames, not bound yet; -1 with errno set.
inline int discoverySocket() {
    int fd = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    std::vector<struct sock_filter> prog = linuxplat::pktFilterProgram();
    struct sock_fprog fprog = {static_cast<unsigned short>(prog.size()), prog.data()};
    int one = 1;
    if (::setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &fprog, sizeof(fprog)) != 0 ||
        ::setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &one, sizeof(one)) != 0) {
        int err = errno;
        ::close(fd);
        errno = err;
        return -1;
    }
    return fd;
}

// Binds `fd` to every interface and protocol; false with errno set.
inline bool bindAll(int fd) {
    struct sockaddr_ll a;
    std::memset(&a, 0, sizeof(a));
    a.sll_family = AF_PACKET;
    a.sll_protocol = htons(ETH_P_ALL);
    return ::bind(fd, reinterpret_cast<struct sockaddr*>(&a), sizeof(a)) == 0;
}

}  // namespace bench
