// The benchmark's upper yardstick: about the fastest forwarder this machine
// runs on packet sockets. It receives through a memory-mapped TPACKET_V3
// ring (the platform's RxRing, 2 MiB), so a busy socket costs no system call
// per frame to receive, inserts a fixed Vendor-Specific tag into each
// discovery frame (the agent's job, without its decisions) and sends every
// frame read in one pass to each uplink with one sendmmsg per uplink, on a
// socket bound to that uplink. Send errors are only counted. No locks, no
// per-port state, no counters per uplink.
//
// With --each it sends every frame with a call of its own, uplink after
// uplink, and looks at each call's result as it returns: the fastest a
// forwarder can be that must know, when a send returns, whether that frame
// went out (as the agent does, which counts every send and every failure
// on its uplink at the call).
//
//   ring_fwd [--each] UPLINK [UPLINK...]
//
// Runs until SIGINT or SIGTERM, then prints: received=N sent=M errors=E
#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "bench/packet_sockets.h"
#include "platform/linux/pkt.h"
#include "platform/linux/rx_ring.h"

namespace {

volatile sig_atomic_t gStop = 0;
void onSignal(int) { gStop = 1; }

// Frames taken from the ring before they are sent: one send call per uplink
// for up to this many.
constexpr size_t BATCH = 64;
constexpr size_t OUT_MAX = 1536;
// The tag inserted: Vendor-Specific (0x0105), a vendor number and a
// Circuit-ID and a Remote-ID sub-option of fixed text, 32 bytes in all as the
// agent's default tag is of a similar size.
constexpr std::array<uint8_t, 32> TAG = {0x01, 0x05, 0x00, 0x1c, 0x00, 0x00, 0x0d, 0xe9, 0x01, 0x0a, 'e',
                                         't',  'h',  ' ',  '0',  '/',  '0',  '/',  '1',  '0',  0x02, 0x0a,
                                         'r',  'i',  'n',  'g',  '-',  'f',  'w',  'd',  '0',  '1'};

// Writes the frame `in` (Ethernet header on) with the kernel's VLAN tag, if
// any, back in place and TAG added to the PPPoE payload into `out`. Returns
// its length, 0 when it is not a discovery frame that can take the tag.
size_t rebuild(const uint8_t* in, size_t len, const linuxplat::AuxTag& aux, uint8_t* out) {
    if (len < linuxplat::ETH_HDR_LEN) return 0;
    size_t o = 12, i = 12;
    std::memcpy(out, in, 12);
    if (aux.valid) {
        uint16_t tpid = htons(aux.tpid), tci = htons(aux.tci);
        std::memcpy(out + o, &tpid, 2);
        std::memcpy(out + o + 2, &tci, 2);
        o += 4;
    }
    // Tags still in the data.
    while (i + 4 <= len && linuxplat::pktIsVlanTpid(static_cast<uint16_t>(in[i] << 8 | in[i + 1]))) {
        std::memcpy(out + o, in + i, 4);
        o += 4;
        i += 4;
    }
    if (i + 2 + 6 > len || static_cast<uint16_t>(in[i] << 8 | in[i + 1]) != linuxplat::ETH_TYPE_PPPOE_DISC) return 0;
    const uint8_t* pppoe = in + i + 2;
    size_t payload = static_cast<size_t>(pppoe[4] << 8 | pppoe[5]);
    if (i + 2 + 6 + payload > len || o + 2 + 6 + payload + TAG.size() > OUT_MAX) return 0;
    std::memcpy(out + o, in + i, 2 + 6 + payload);
    o += 2 + 6 + payload;
    std::memcpy(out + o, TAG.data(), TAG.size());
    o += TAG.size();
    size_t newPayload = payload + TAG.size();
    uint8_t* hdr = out + o - TAG.size() - payload - 6;
    hdr[4] = static_cast<uint8_t>(newPayload >> 8);
    hdr[5] = static_cast<uint8_t>(newPayload);
    return o;
}

}  // namespace

int main(int argc, char** argv) {
    const bool each = argc > 1 && std::strcmp(argv[1], "--each") == 0;
    const int first = each ? 2 : 1;
    if (argc <= first) {
        std::fprintf(stderr, "usage: ring_fwd [--each] UPLINK [UPLINK...]\n");
        return 2;
    }
    std::vector<int> upIndex, upFd;
    for (int i = first; i < argc; i++) {
        int idx = static_cast<int>(if_nametoindex(argv[i]));
        int fd = idx > 0 ? bench::boundSendSocket(idx) : -1;
        if (fd < 0) {
            std::fprintf(stderr, "ring_fwd: no uplink %s\n", argv[i]);
            return 1;
        }
        upIndex.push_back(idx);
        upFd.push_back(fd);
    }

    int fd = bench::discoverySocket();
    if (fd < 0) {
        std::perror("ring_fwd: socket");
        return 1;
    }
    if (!bench::bindAll(fd)) {
        std::perror("ring_fwd: bind");
        return 1;
    }
    linuxplat::RxRing ring;
    if (!ring.open(fd, 64)) {  // 2 MiB, as the agent's ring
        std::perror("ring_fwd: receive ring");
        return 1;
    }

    struct sigaction sa;
    std::memset(&sa, 0, sizeof(sa));
    sa.sa_handler = onSignal;  // no SA_RESTART: poll returns
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);

    static uint8_t out[BATCH][OUT_MAX];
    struct iovec iov[BATCH];
    struct mmsghdr msgs[BATCH];
    uint64_t received = 0, sent = 0, errors = 0;
    std::fprintf(stderr, "ring_fwd running\n");
    while (!gStop) {
        if (!ring.ready()) {
            struct pollfd p = {fd, POLLIN, 0};
            (void)::poll(&p, 1, 1000);
            continue;
        }
        size_t n = 0;
        while (n < BATCH) {
            const struct tpacket3_hdr* h = ring.next();
            if (h == nullptr) break;
            const struct sockaddr_ll* from = linuxplat::RxRing::address(h);
            if (from->sll_pkttype == PACKET_OUTGOING || h->tp_snaplen < h->tp_len) continue;
            bool fromUplink = false;
            for (int idx : upIndex) fromUplink = fromUplink || idx == from->sll_ifindex;
            if (fromUplink) continue;
            linuxplat::AuxTag aux;
            if ((h->tp_status & TP_STATUS_VLAN_VALID) != 0) {
                aux.valid = true;
                aux.tci = h->hv1.tp_vlan_tci;
                aux.tpid = (h->tp_status & TP_STATUS_VLAN_TPID_VALID) != 0 ? h->hv1.tp_vlan_tpid
                                                                             : linuxplat::ETH_TYPE_8021Q;
            }
            received++;
            size_t len = rebuild(linuxplat::RxRing::frame(h), h->tp_snaplen, aux, out[n]);
            if (len == 0) continue;
            iov[n] = {out[n], len};
            std::memset(&msgs[n], 0, sizeof(msgs[n]));
            msgs[n].msg_hdr.msg_iov = &iov[n];
            msgs[n].msg_hdr.msg_iovlen = 1;
            n++;
        }
        if (each) {  // frame after frame, to every uplink in turn, each result taken at once
            for (size_t i = 0; i < n; i++) {
                for (int up : upFd) {
                    if (::send(up, iov[i].iov_base, iov[i].iov_len, MSG_DONTWAIT) < 0) {
                        errors++;
                    } else {
                        sent++;
                    }
                }
            }
            continue;
        }
        for (int up : upFd) {
            size_t done = 0;
            while (done < n) {
                int r = ::sendmmsg(up, msgs + done, static_cast<unsigned>(n - done), MSG_DONTWAIT);
                if (r <= 0) {  // the first frame left failed: counted, the rest go on
                    errors++;
                    done++;
                    continue;
                }
                sent += static_cast<uint64_t>(r);
                done += static_cast<size_t>(r);
            }
        }
    }
    std::printf("received=%llu sent=%llu errors=%llu\n", static_cast<unsigned long long>(received),
                static_cast<unsigned long long>(sent), static_cast<unsigned long long>(errors));
    return 0;
}
