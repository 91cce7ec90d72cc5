// libFuzzer entry of a target of fuzz_target.h: a problem report aborts, so
// that libFuzzer keeps the input.
#include <cstdio>
#include <cstdlib>

#include "fuzz/fuzz_target.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    pppoeplusfuzz::targetSetUp();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string problems = pppoeplusfuzz::targetOne(data, size);
    if (!problems.empty()) {
        std::fprintf(stderr, "%s: %s\n", pppoeplusfuzz::kTargetName, problems.c_str());
        std::abort();
    }
    return 0;
}
