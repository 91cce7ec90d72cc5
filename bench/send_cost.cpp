// What one send of a discovery frame costs, by the way it is sent: the
// process's CPU time per frame over many sends out of one interface, in a
// process with a second (idle) thread as the daemon is. Each way is run in
// turn, `rounds` times, so that their figures are taken side by side.
//
//   send_cost IFNAME [SENDS] [ROUNDS]
//
// The ways:
//   address   one socket for all interfaces, sendto with the interface's
//             address (the platform's send before it had a socket per uplink)
//   bound     a socket bound to the interface, send() without an address
//   syscall   the same through the system call itself, no cancellation point
//             (the platform's send now)
//   bypass    bound, PACKET_QDISC_BYPASS on
//   sendmmsg  bound, 32 frames per call (what batching would give; the
//             daemon cannot use it and keep its counters exact)
// A send that fails is counted; on a down or missing interface every one
// fails. Try it on an ifb device without a queue (a NIC's cost to the host)
// and on a veth pair (the far end's receive runs on the sender's CPU).
#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "bench/packet_sockets.h"

namespace {

double cpuNow() {
    struct timespec ts;
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

enum class Way { Address, Bound, Syscall, Bypass, Sendmmsg };
constexpr std::array<const char*, 5> WAY_NAMES = {"address", "bound", "syscall", "bypass", "sendmmsg"};

int openSocket(Way way, int ifindex) {
    if (way == Way::Address) return ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    int fd = bench::boundSendSocket(ifindex);
    if (fd < 0) return -1;
    int one = 1;
    if (way == Way::Bypass) (void)::setsockopt(fd, SOL_PACKET, PACKET_QDISC_BYPASS, &one, sizeof(one));
    return fd;
}

// CPU nanoseconds per frame of `sends` sends; failed sends in `errors`.
double measure(Way way, int ifindex, uint64_t sends, uint64_t& errors) {
    // A PADI to the broadcast address, 60 bytes.
    uint8_t frame[60] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x02, 0x00, 0x00, 0x00, 0x00, 0x01,
                         0x88, 0x63, 0x11, 0x09, 0x00, 0x00, 0x00, 0x04, 0x01, 0x01, 0x00, 0x00};
    int fd = openSocket(way, ifindex);
    if (fd < 0) {
        std::perror("send_cost: socket");
        std::exit(1);
    }
    struct sockaddr_ll to;
    std::memset(&to, 0, sizeof(to));
    to.sll_family = AF_PACKET;
    to.sll_ifindex = ifindex;
    to.sll_halen = 6;
    to.sll_protocol = htons(0x8863);
    std::memset(to.sll_addr, 0xff, 6);
    constexpr unsigned BATCH = 32;
    struct iovec iov[BATCH];
    struct mmsghdr msgs[BATCH];
    for (unsigned i = 0; i < BATCH; i++) {
        iov[i] = {frame, sizeof(frame)};
        std::memset(&msgs[i], 0, sizeof(msgs[i]));
        msgs[i].msg_hdr.msg_iov = &iov[i];
        msgs[i].msg_hdr.msg_iovlen = 1;
    }
    errors = 0;
    const double start = cpuNow();
    switch (way) {
        case Way::Address:
            for (uint64_t i = 0; i < sends; i++)
                if (::sendto(fd, frame, sizeof(frame), MSG_DONTWAIT, reinterpret_cast<struct sockaddr*>(&to),
                             sizeof(to)) < 0)
                    errors++;
            break;
        case Way::Bound:
        case Way::Bypass:
            for (uint64_t i = 0; i < sends; i++)
                if (::send(fd, frame, sizeof(frame), MSG_DONTWAIT) < 0) errors++;
            break;
        case Way::Syscall:
            for (uint64_t i = 0; i < sends; i++)
                if (::syscall(SYS_sendto, fd, frame, sizeof(frame), MSG_DONTWAIT, nullptr, 0) < 0) errors++;
            break;
        case Way::Sendmmsg:
            for (uint64_t i = 0; i < sends; i += BATCH) {
                int n = ::sendmmsg(fd, msgs, BATCH, MSG_DONTWAIT);
                if (n < static_cast<int>(BATCH)) errors += BATCH - static_cast<unsigned>(n < 0 ? 0 : n);
            }
            break;
    }
    const double spent = cpuNow() - start;
    ::close(fd);
    return spent * 1e9 / static_cast<double>(sends);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: send_cost IFNAME [SENDS] [ROUNDS]\n");
        return 2;
    }
    const int ifindex = static_cast<int>(if_nametoindex(argv[1]));
    if (ifindex == 0) {
        std::fprintf(stderr, "send_cost: no interface %s\n", argv[1]);
        return 1;
    }
    const uint64_t sends = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1000000;
    const int rounds = argc > 3 ? std::atoi(argv[3]) : 3;
    // A second thread, as in the daemon: the kernel and the C library take
    // the slower paths of a process with threads.
    std::thread idle([] { ::pause(); });
    idle.detach();
    std::array<double, WAY_NAMES.size()> sum{};
    for (int r = 0; r < rounds; r++) {
        for (size_t w = 0; w < WAY_NAMES.size(); w++) {
            uint64_t errors = 0;
            double ns = measure(static_cast<Way>(w), ifindex, sends, errors);
            sum[w] += ns;
            std::printf("round %d %-8s %6.1f ns CPU per frame, %llu failed\n", r + 1, WAY_NAMES[w], ns,
                        static_cast<unsigned long long>(errors));
        }
    }
    for (size_t w = 0; w < WAY_NAMES.size(); w++)
        std::printf("mean %-8s %6.1f ns CPU per frame\n", WAY_NAMES[w], sum[w] / rounds);
    return 0;
}
