// libFuzzer entry of the packet-path target (see pkt_fuzz_target.h).
#include <cstdio>
#include <cstdlib>

#include "fuzz/pkt_fuzz_target.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    pppoeplusfuzz::pppoeplusFuzzSetUp();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string problems = pppoeplusfuzz::pppoeplusFuzzPacketOne(data, size);
    if (!problems.empty()) {
        std::fprintf(stderr, "pkt_fuzz: %s\n", problems.c_str());
        std::abort();
    }
    return 0;
}
