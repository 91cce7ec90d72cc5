// What the discovery filter costs per frame: the kernel runs the loaded
// program over one frame many times (BPF_PROG_TEST_RUN) and reports the
// mean time of a run; an empty program's time, measured in the same run, is
// the harness's own and is taken off. Run as root (loading needs CAP_BPF).
//
//   police_cost [repeat]
#include <bpf/bpf.h>
#include <linux/bpf.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/linux/police.h"

namespace {

// The mean nanoseconds of one run of `prog` over `frame`; -1 on failure.
double runNs(int prog, const std::vector<uint8_t>& frame, uint32_t repeat, uint32_t& retval) {
    LIBBPF_OPTS(bpf_test_run_opts, opts, .data_in = frame.data(), .data_size_in = static_cast<uint32_t>(frame.size()),
                .repeat = static_cast<int>(repeat));
    if (bpf_prog_test_run_opts(prog, &opts) != 0) return -1;
    retval = opts.retval;
    return opts.duration;
}

// A frame as the program reads it under the test harness, which hands
// socket filters the data from the network header on: the type field the
// filter reads at offset 12 is the frame's bytes 26 and 27.
std::vector<uint8_t> frame(uint16_t type) {
    std::vector<uint8_t> f(64, 0);
    std::memset(f.data(), 0xff, 6);
    f[6] = 0x02;
    f[11] = 0x01;
    f[12] = 0x88;
    f[13] = 0x63;
    f[26] = static_cast<uint8_t>(type >> 8);
    f[27] = static_cast<uint8_t>(type);
    return f;
}

}  // namespace

int main(int argc, char** argv) {
    uint32_t repeat = argc > 1 ? static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10)) : 2000000;
    if (!linuxplat::policeLoad()) return 1;
    int prog = linuxplat::policeProgramFd();
    struct bpf_insn empty[] = {
        {BPF_ALU64 | BPF_MOV | BPF_K, BPF_REG_0, 0, 0, 0},
        {BPF_JMP | BPF_EXIT, 0, 0, 0, 0},
    };
    int base = bpf_prog_load(BPF_PROG_TYPE_SOCKET_FILTER, "empty", "GPL", empty, 2, nullptr);
    if (base < 0) {
        std::perror("empty program");
        return 1;
    }
    struct Case {
        const char* what;
        uint32_t rate, burst;
        uint16_t type;
    };
    const Case cases[] = {
        {"not discovery (IPv4): dropped by the type test", 100, 1000, 0x0800},
        {"discovery, policing off: passed", 0, 1000, 0x8863},
        {"discovery, under the limit: passed", linuxplat::POLICE_RATE_MAX, linuxplat::POLICE_BURST_MAX, 0x8863},
        {"discovery, flood over the limit: dropped", 100, 1000, 0x8863},
    };
    uint32_t rv = 0;
    std::printf("%u runs per case\n", repeat);
    for (const Case& c : cases) {
        if (!linuxplat::policeSetRate(0, c.rate).empty() || !linuxplat::policeSetBurst(0, c.burst).empty()) return 1;
        // Under the limit: no more runs than the burst, all passed.
        uint32_t runs = c.rate == linuxplat::POLICE_RATE_MAX ? std::min(repeat, c.burst / 2) : repeat;
        double e = runNs(base, frame(c.type), runs, rv);
        double p = runNs(prog, frame(c.type), runs, rv);
        if (e < 0 || p < 0) {
            std::perror("test run");
            return 1;
        }
        std::printf("%-50s %6.1f ns (harness %5.1f ns, program %5.1f ns), last verdict %s\n", c.what, p, e, p - e,
                    rv != 0 ? "pass" : "drop");
    }
    return 0;
}
