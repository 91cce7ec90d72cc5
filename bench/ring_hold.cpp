// How many frames of a burst a TPACKET_V3 receive ring holds while nobody
// reads it, for a given block size, retire period and arrival rate. The
// kernel hands a block over when it is full or when the retire timer fires,
// however little it holds, so the ring's real capacity depends on how fast
// the frames come. Used to choose the platform ring's block size and period
// (bench/RESULTS.md).
//
//   ring_hold BLOCK_KIB PERIOD_MS RATE [--frames N] [--ring-kib K] [--in IF] [--out IF]
//
// Sets a ring of K KiB (default 2048) of BLOCK_KIB blocks on a packet socket
// bound to IF (default a0), sends N (default 10,000) 60-byte PADIs out of
// the other end OUT (default a1) at RATE frames/s (0: as fast as possible),
// waits 300 ms and counts the frames in the handed-over blocks. Run it as
// root in a network namespace with a veth pair:
//
//   ip netns add rh && ip -n rh link add a0 type veth peer name a1 &&
//   ip -n rh link set a0 up && ip -n rh link set a1 up &&
//   ip netns exec rh build/bench/bench/ring_hold 32 16 30000
//
// Prints: block=32KiB period=16ms rate=30000 sent_in=333.3ms held=10000 blocks=45/64 drops=0
#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

double now() {
    struct timespec t;
    ::clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

bool number(const char* s, unsigned long& out) {
    char* end = nullptr;
    out = std::strtoul(s, &end, 10);
    return end != s && *end == '\0';
}

int usage() {
    std::fprintf(stderr,
                 "usage: ring_hold BLOCK_KIB PERIOD_MS RATE [--frames N] [--ring-kib K] [--in IF] [--out IF]\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    unsigned long blockKib = 0, periodMs = 0, rate = 0, frames = 10000, ringKib = 2048;
    std::string in = "a0", out = "a1";
    if (argc < 4 || !number(argv[1], blockKib) || !number(argv[2], periodMs) || !number(argv[3], rate)) return usage();
    for (int i = 4; i + 1 < argc; i += 2) {
        std::string opt = argv[i];
        if (opt == "--frames" && number(argv[i + 1], frames)) continue;
        if (opt == "--ring-kib" && number(argv[i + 1], ringKib)) continue;
        if (opt == "--in") {
            in = argv[i + 1];
            continue;
        }
        if (opt == "--out") {
            out = argv[i + 1];
            continue;
        }
        return usage();
    }
    if ((argc - 4) % 2 != 0 || blockKib == 0 || blockKib > 4096 || ringKib < 2 * blockKib || ringKib > (1 << 20) ||
        periodMs == 0 || periodMs > 10000 || frames == 0 || frames > (1 << 24))
        return usage();

    const uint32_t blockSize = static_cast<uint32_t>(blockKib * 1024);
    const uint32_t blocks = static_cast<uint32_t>(ringKib / blockKib);
    const size_t ringLen = static_cast<size_t>(blocks) * blockSize;

    int fd = ::socket(AF_PACKET, SOCK_DGRAM, htons(0x8863));
    if (fd < 0) {
        std::perror("socket");
        return 1;
    }
    struct sockaddr_ll a;
    std::memset(&a, 0, sizeof(a));
    a.sll_family = AF_PACKET;
    a.sll_protocol = htons(0x8863);
    a.sll_ifindex = static_cast<int>(if_nametoindex(in.c_str()));
    if (a.sll_ifindex == 0 || ::bind(fd, reinterpret_cast<struct sockaddr*>(&a), sizeof(a)) != 0) {
        std::fprintf(stderr, "ring_hold: cannot bind to %s\n", in.c_str());
        return 1;
    }
    int version = TPACKET_V3;
    struct tpacket_req3 req;
    std::memset(&req, 0, sizeof(req));
    req.tp_block_size = blockSize;
    req.tp_block_nr = blocks;
    req.tp_frame_size = 2048;
    req.tp_frame_nr = blocks * (blockSize / 2048);
    req.tp_retire_blk_tov = static_cast<uint32_t>(periodMs);
    if (::setsockopt(fd, SOL_PACKET, PACKET_VERSION, &version, sizeof(version)) != 0 ||
        ::setsockopt(fd, SOL_PACKET, PACKET_RX_RING, &req, sizeof(req)) != 0) {
        std::perror("PACKET_RX_RING");
        return 1;
    }
    void* map = ::mmap(nullptr, ringLen, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, fd, 0);
    if (map == MAP_FAILED) {
        std::perror("mmap");
        return 1;
    }
    const auto* ring = static_cast<const uint8_t*>(map);

    int tx = ::socket(AF_PACKET, SOCK_RAW, 0);
    struct sockaddr_ll b;
    std::memset(&b, 0, sizeof(b));
    b.sll_family = AF_PACKET;
    b.sll_ifindex = static_cast<int>(if_nametoindex(out.c_str()));
    if (tx < 0 || b.sll_ifindex == 0 || ::bind(tx, reinterpret_cast<struct sockaddr*>(&b), sizeof(b)) != 0) {
        std::fprintf(stderr, "ring_hold: cannot send on %s\n", out.c_str());
        return 1;
    }
    // A PADI with an empty Service-Name, from 02:00:00:00:hi:lo.
    uint8_t f[60] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x02, 0, 0, 0, 0, 0, 0x88, 0x63,
                     0x11, 0x09, 0,    0,    0,    4,    0x01, 0x01, 0, 0};
    const double t0 = now();
    for (unsigned long i = 0; i < frames; i++) {
        if (rate != 0)
            while (now() < t0 + static_cast<double>(i) / static_cast<double>(rate)) {
            }
        f[9] = static_cast<uint8_t>(i >> 16);
        f[10] = static_cast<uint8_t>(i >> 8);
        f[11] = static_cast<uint8_t>(i);
        if (::send(tx, f, sizeof(f), 0) != static_cast<ssize_t>(sizeof(f))) {
            std::perror("send");
            return 1;
        }
    }
    const double took = now() - t0;
    ::usleep(300000);  // past the retire period: every block with a frame is handed over

    unsigned long held = 0;
    uint32_t handed = 0;
    for (uint32_t i = 0; i < blocks; i++) {
        const auto* d = reinterpret_cast<const struct tpacket_block_desc*>(ring + static_cast<size_t>(i) * blockSize);
        if ((__atomic_load_n(&d->hdr.bh1.block_status, __ATOMIC_ACQUIRE) & TP_STATUS_USER) == 0) continue;
        handed++;
        held += d->hdr.bh1.num_pkts;
    }
    struct tpacket_stats_v3 st;
    std::memset(&st, 0, sizeof(st));
    socklen_t len = sizeof(st);
    (void)::getsockopt(fd, SOL_PACKET, PACKET_STATISTICS, &st, &len);
    std::printf("block=%luKiB period=%lums rate=%lu sent_in=%.1fms held=%lu blocks=%u/%u drops=%u\n", blockKib,
                periodMs, rate, took * 1000, held, handed, blocks, st.tp_drops);
    return 0;
}
