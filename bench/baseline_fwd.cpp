// The benchmark's yardstick: the smallest forwarder with the agent's loop
// shape, built from the same primitives as the platform's packet socket (a
// raw socket for every interface behind the same kernel filter, the 1 MiB
// receive buffer, receive information on) and none of the agent's work.
// Each pass: one select, then under a mutex one receive and one send per
// uplink. No parsing, no tag.
//
//   baseline_fwd UPLINK [UPLINK...]
//
// Runs until SIGINT or SIGTERM, then prints: received=N sent=M errors=E
#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <signal.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

#include "bench/packet_sockets.h"
#include "platform/linux/pkt.h"

namespace {

volatile sig_atomic_t gStop = 0;
void onSignal(int) { gStop = 1; }

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: baseline_fwd UPLINK [UPLINK...]\n");
        return 2;
    }
    std::vector<int> uplinks;
    for (int i = 1; i < argc; i++) {
        int idx = static_cast<int>(if_nametoindex(argv[i]));
        if (idx == 0) {
            std::fprintf(stderr, "baseline_fwd: no interface %s\n", argv[i]);
            return 1;
        }
        uplinks.push_back(idx);
    }

    int fd = bench::discoverySocket();
    if (fd < 0) {
        std::perror("baseline_fwd: socket");
        return 1;
    }
    int one = 1;
    int rcvbuf = 1 << 20;
    if (::setsockopt(fd, SOL_PACKET, PACKET_AUXDATA, &one, sizeof(one)) != 0 ||
        ::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &rcvbuf, sizeof(rcvbuf)) != 0) {
        std::perror("baseline_fwd: setsockopt");
        return 1;
    }
    if (!bench::bindAll(fd)) {
        std::perror("baseline_fwd: bind");
        return 1;
    }

    struct sigaction sa;
    std::memset(&sa, 0, sizeof(sa));
    sa.sa_handler = onSignal;  // no SA_RESTART: select returns
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);

    std::mutex lock;
    uint64_t received = 0, sent = 0, errors = 0;
    uint8_t buf[1400];
    alignas(8) uint8_t control[128];
    std::fprintf(stderr, "baseline_fwd running\n");
    while (!gStop) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd, &set);
        struct timeval tv = {5, 0};
        if (::select(fd + 1, &set, nullptr, nullptr, &tv) < 1) continue;
        std::lock_guard<std::mutex> guard(lock);
        struct sockaddr_ll from;
        struct iovec iov = {buf, sizeof(buf)};
        struct msghdr m;
        std::memset(&m, 0, sizeof(m));
        m.msg_name = &from;
        m.msg_namelen = sizeof(from);
        m.msg_iov = &iov;
        m.msg_iovlen = 1;
        m.msg_control = control;
        m.msg_controllen = sizeof(control);
        ssize_t n = ::recvmsg(fd, &m, 0);
        if (n <= 0) continue;
        received++;
        for (int idx : uplinks) {
            struct sockaddr_ll to;
            std::memset(&to, 0, sizeof(to));
            to.sll_family = AF_PACKET;
            to.sll_ifindex = idx;
            to.sll_halen = 6;
            std::memcpy(to.sll_addr, buf, 6);
            std::memcpy(&to.sll_protocol, buf + 12, 2);
            if (::sendto(fd, buf, static_cast<size_t>(n), MSG_DONTWAIT, reinterpret_cast<struct sockaddr*>(&to),
                         sizeof(to)) < 0)
                errors++;
            else sent++;
        }
    }
    std::printf("received=%llu sent=%llu errors=%llu\n", static_cast<unsigned long long>(received),
                static_cast<unsigned long long>(sent), static_cast<unsigned long long>(errors));
    return 0;
}
