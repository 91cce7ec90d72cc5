// Discovery storm generator: sends PADI frames out of one interface through
// a raw packet socket, many per system call (sendmmsg, past the queueing
// discipline), untagged and 802.1Q-tagged, from several client MACs.
//
//   storm_gen IFNAME [--rate FPS] [--seconds S | --count N] [--macs N]
//                    [--mac-base AA:BB:CC] [--tagged PERCENT] [--batch N]
//
// --rate 0 (the default) sends as fast as the kernel takes them. Without
// --seconds and --count it runs until SIGINT or SIGTERM. Prints one line:
//   sent=N seconds=T fps=R errors=E
#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <signal.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

volatile sig_atomic_t gStop = 0;

void onSignal(int) { gStop = 1; }

double now() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

[[noreturn]] void usage() {
    std::fprintf(stderr,
                 "usage: storm_gen IFNAME [--rate FPS] [--seconds S | --count N] [--macs N]\n"
                 "                 [--mac-base AA:BB:CC] [--tagged PERCENT] [--batch N]\n");
    std::exit(2);
}

// A PADI from `mac`, behind one 802.1Q tag when `vid` is not 0: a
// Service-Name tag (any service) and a Host-Uniq of 8 bytes.
std::vector<uint8_t> padi(const uint8_t mac[6], uint16_t vid, uint8_t pri, uint64_t uniq) {
    std::vector<uint8_t> f = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    f.insert(f.end(), mac, mac + 6);
    if (vid != 0) {
        uint16_t tci = static_cast<uint16_t>((pri << 13) | (vid & 0x0fff));
        f.insert(f.end(), {0x81, 0x00, static_cast<uint8_t>(tci >> 8), static_cast<uint8_t>(tci)});
    }
    f.insert(f.end(), {0x88, 0x63, 0x11, 0x09, 0x00, 0x00, 0x00, 0x10});  // 16 bytes of tags
    f.insert(f.end(), {0x01, 0x01, 0x00, 0x00});                          // Service-Name, empty
    f.insert(f.end(), {0x01, 0x03, 0x00, 0x08});                          // Host-Uniq, 8 bytes
    for (int i = 7; i >= 0; i--) f.push_back(static_cast<uint8_t>(uniq >> (i * 8)));
    if (f.size() < 60) f.resize(60, 0);
    return f;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) usage();
    const char* ifName = argv[1];
    double rate = 0;
    double seconds = 0;
    uint64_t count = 0;
    unsigned macs = 16;
    unsigned tagged = 50;
    unsigned batch = 64;
    uint8_t base[3] = {0x02, 0xcc, 0x00};
    for (int i = 2; i < argc; i++) {
        std::string a = argv[i];
        auto val = [&]() -> const char* {
            if (i + 1 >= argc) usage();
            return argv[++i];
        };
        if (a == "--rate") rate = std::atof(val());
        else if (a == "--seconds") seconds = std::atof(val());
        else if (a == "--count") count = std::strtoull(val(), nullptr, 10);
        else if (a == "--macs") macs = static_cast<unsigned>(std::atoi(val()));
        else if (a == "--tagged") tagged = static_cast<unsigned>(std::atoi(val()));
        else if (a == "--batch") batch = static_cast<unsigned>(std::atoi(val()));
        else if (a == "--mac-base") {
            unsigned b0, b1, b2;
            if (std::sscanf(val(), "%x:%x:%x", &b0, &b1, &b2) != 3) usage();
            base[0] = static_cast<uint8_t>(b0);
            base[1] = static_cast<uint8_t>(b1);
            base[2] = static_cast<uint8_t>(b2);
        } else usage();
    }
    if (macs == 0 || macs > 65536 || batch == 0 || batch > 1024 || tagged > 100) usage();

    int fd = ::socket(AF_PACKET, SOCK_RAW, 0);  // protocol 0: receives nothing
    if (fd < 0) {
        std::perror("storm_gen: socket");
        return 1;
    }
    struct sockaddr_ll addr;
    std::memset(&addr, 0, sizeof(addr));
    addr.sll_family = AF_PACKET;
    addr.sll_ifindex = static_cast<int>(if_nametoindex(ifName));
    if (addr.sll_ifindex == 0 || ::bind(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0) {
        std::fprintf(stderr, "storm_gen: %s: %s\n", ifName, std::strerror(errno));
        return 1;
    }
    int one = 1;
    (void)::setsockopt(fd, SOL_PACKET, PACKET_QDISC_BYPASS, &one, sizeof(one));
    int sndbuf = 4 << 20;
    (void)::setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &sndbuf, sizeof(sndbuf));

    // Frames, cycled through: every MAC, `tagged` percent of them tagged.
    std::vector<std::vector<uint8_t>> frames;
    for (unsigned m = 0; m < macs; m++) {
        const uint8_t mac[6] = {base[0], base[1], base[2], static_cast<uint8_t>(m >> 8), static_cast<uint8_t>(m), 0x01};
        bool tag = (m * 100 / macs) < tagged;
        frames.push_back(padi(mac, tag ? static_cast<uint16_t>(100 + m % 16) : 0, static_cast<uint8_t>(m % 8), m));
    }
    std::vector<struct iovec> iov(batch);
    std::vector<struct mmsghdr> msgs(batch);

    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);
    uint64_t sent = 0, errors = 0;
    size_t next = 0;
    const double start = now();
    double t = start;
    while (!gStop) {
        if (count != 0 && sent >= count) break;
        t = now();
        if (seconds > 0 && t - start >= seconds) break;
        unsigned n = batch;
        if (count != 0 && count - sent < n) n = static_cast<unsigned>(count - sent);
        if (rate > 0) {
            // Paced: never ahead of the schedule.
            double due = start + static_cast<double>(sent + n) / rate;
            if (due > t) {
                double wait = due - t;
                if (wait > 100e-6) {
                    struct timespec ts = {static_cast<time_t>(wait), static_cast<long>((wait - static_cast<double>(static_cast<time_t>(wait))) * 1e9)};
                    nanosleep(&ts, nullptr);
                }
                continue;
            }
        }
        for (unsigned i = 0; i < n; i++) {
            std::vector<uint8_t>& f = frames[next];
            next = (next + 1) % frames.size();
            iov[i] = {f.data(), f.size()};
            std::memset(&msgs[i], 0, sizeof(msgs[i]));
            msgs[i].msg_hdr.msg_iov = &iov[i];
            msgs[i].msg_hdr.msg_iovlen = 1;
        }
        int r = ::sendmmsg(fd, msgs.data(), n, 0);
        if (r < 0) {
            if (errno == EINTR) continue;
            errors++;
            if (errno == ENOBUFS || errno == EAGAIN) continue;
            std::perror("storm_gen: sendmmsg");
            break;
        }
        sent += static_cast<uint64_t>(r);
    }
    double elapsed = now() - start;
    std::printf("sent=%llu seconds=%.3f fps=%.0f errors=%llu\n", static_cast<unsigned long long>(sent), elapsed,
                elapsed > 0 ? static_cast<double>(sent) / elapsed : 0.0, static_cast<unsigned long long>(errors));
    return 0;
}
