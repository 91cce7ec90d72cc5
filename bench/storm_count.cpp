// Counts, on the far side of an uplink, the discovery frames whose source
// MAC starts with a given prefix, and how many of them carry a
// Vendor-Specific tag (0x0105). Reads through a large TPACKET_V3 ring behind
// a kernel filter on the prefix, so that other traffic costs next to nothing.
//
//   storm_count IFNAME AA:BB:CC [--seconds S] [--idle-ms MS] [--ready FILE]
//
// Stops after S seconds (default 30), or once MS milliseconds (default
// 1000) passed without a frame after the first one, or on SIGINT/SIGTERM.
// Touches FILE once it is receiving. Prints: count=N tagged=M
#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

volatile sig_atomic_t gStop = 0;
void onSignal(int) { gStop = 1; }

int64_t nowMs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

uint16_t be16(const uint8_t* p) { return static_cast<uint16_t>((p[0] << 8) | p[1]); }

// True when the discovery frame (from its Ethernet header) holds tag 0x0105.
bool hasVendorTag(const uint8_t* f, size_t len) {
    size_t off = 12;
    while (off + 2 <= len && (be16(f + off) == 0x8100 || be16(f + off) == 0x88a8)) off += 4;
    if (off + 2 > len || be16(f + off) != 0x8863) return false;
    off += 2;
    if (off + 6 > len) return false;
    size_t end = off + 6 + be16(f + off + 4);
    if (end > len) end = len;
    for (size_t t = off + 6; t + 4 <= end;) {
        if (be16(f + t) == 0x0105) return true;
        t += 4 + be16(f + t + 2);
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: storm_count IFNAME AA:BB:CC [--seconds S] [--idle-ms MS] [--ready FILE]\n");
        return 2;
    }
    unsigned b0, b1, b2;
    if (std::sscanf(argv[2], "%x:%x:%x", &b0, &b1, &b2) != 3) return 2;
    double seconds = 30;
    int64_t idleMs = 1000;
    std::string ready;
    for (int i = 3; i + 1 < argc; i += 2) {
        std::string a = argv[i];
        if (a == "--seconds") seconds = std::atof(argv[i + 1]);
        else if (a == "--idle-ms") idleMs = std::atoll(argv[i + 1]);
        else if (a == "--ready") ready = argv[i + 1];
        else return 2;
    }

    int fd = ::socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL));
    if (fd < 0) {
        std::perror("storm_count: socket");
        return 1;
    }
    // Source MAC bytes 6-8 equal to the prefix: word at 6 (bytes 6-9) masked.
    const uint32_t want = (b0 << 24) | (b1 << 16) | (b2 << 8);
    struct sock_filter prog[] = {
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, 6},
        {BPF_ALU | BPF_AND | BPF_K, 0, 0, 0xffffff00},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, want},
        {BPF_RET | BPF_K, 0, 0, 0x40000},
        {BPF_RET | BPF_K, 0, 0, 0},
    };
    struct sock_fprog fprog = {sizeof(prog) / sizeof(prog[0]), prog};
    if (::setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &fprog, sizeof(fprog)) != 0) {
        std::perror("storm_count: filter");
        return 1;
    }
    int version = TPACKET_V3;
    ::setsockopt(fd, SOL_PACKET, PACKET_VERSION, &version, sizeof(version));
    const unsigned blockSize = 1 << 20, blockNr = 32;
    struct tpacket_req3 req;
    std::memset(&req, 0, sizeof(req));
    req.tp_block_size = blockSize;
    req.tp_block_nr = blockNr;
    req.tp_frame_size = 2048;
    req.tp_frame_nr = blockSize / 2048 * blockNr;
    req.tp_retire_blk_tov = 10;
    if (::setsockopt(fd, SOL_PACKET, PACKET_RX_RING, &req, sizeof(req)) != 0) {
        std::perror("storm_count: ring");
        return 1;
    }
    auto* map = static_cast<uint8_t*>(
        ::mmap(nullptr, static_cast<size_t>(blockSize) * blockNr, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    if (map == MAP_FAILED) {
        std::perror("storm_count: mmap");
        return 1;
    }
    struct sockaddr_ll addr;
    std::memset(&addr, 0, sizeof(addr));
    addr.sll_family = AF_PACKET;
    addr.sll_protocol = htons(ETH_P_ALL);
    addr.sll_ifindex = static_cast<int>(if_nametoindex(argv[1]));
    if (addr.sll_ifindex == 0 || ::bind(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0) {
        std::fprintf(stderr, "storm_count: %s: %s\n", argv[1], std::strerror(errno));
        return 1;
    }
    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);
    if (!ready.empty()) {
        FILE* f = std::fopen(ready.c_str(), "w");
        if (f != nullptr) std::fclose(f);
    }

    uint64_t count = 0, tagged = 0;
    const int64_t start = nowMs();
    int64_t last = 0;
    unsigned cur = 0;
    while (!gStop) {
        int64_t t = nowMs();
        if (t - start >= static_cast<int64_t>(seconds * 1000)) break;
        if (last != 0 && t - last >= idleMs) break;
        auto* b = reinterpret_cast<struct tpacket_block_desc*>(map + static_cast<size_t>(cur) * blockSize);
        if ((__atomic_load_n(&b->hdr.bh1.block_status, __ATOMIC_ACQUIRE) & TP_STATUS_USER) == 0) {
            struct pollfd p = {fd, POLLIN, 0};
            ::poll(&p, 1, 20);
            continue;
        }
        uint32_t n = b->hdr.bh1.num_pkts;
        auto* h = reinterpret_cast<struct tpacket3_hdr*>(reinterpret_cast<uint8_t*>(b) + b->hdr.bh1.offset_to_first_pkt);
        for (uint32_t i = 0; i < n; i++) {
            const uint8_t* f = reinterpret_cast<const uint8_t*>(h) + h->tp_mac;
            // The kernel filter let only the prefix through; an outer tag
            // the kernel took out of the data is not in the way.
            count++;
            if (hasVendorTag(f, h->tp_snaplen)) tagged++;
            h = reinterpret_cast<struct tpacket3_hdr*>(reinterpret_cast<uint8_t*>(h) + h->tp_next_offset);
        }
        if (n > 0) last = nowMs();
        __atomic_store_n(&b->hdr.bh1.block_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
        cur = (cur + 1) % blockNr;
    }
    struct tpacket_stats_v3 st;
    socklen_t sl = sizeof(st);
    std::memset(&st, 0, sizeof(st));
    ::getsockopt(fd, SOL_PACKET, PACKET_STATISTICS, &st, &sl);
    std::printf("count=%llu tagged=%llu ring_drops=%u\n", static_cast<unsigned long long>(count),
                static_cast<unsigned long long>(tagged), st.tp_drops);
    return 0;
}
