// The packet-path target (see pkt_fuzz_target.h) in the shape every target
// of fuzz/ shares, for fuzz_main.cpp (libFuzzer) and fuzz_replay.cpp (the
// corpus replay of ctest).
#include "fuzz/fuzz_target.h"
#include "fuzz/pkt_fuzz_target.h"

namespace pppoeplusfuzz {

const char* const kTargetName = "pkt_fuzz";

void targetSetUp() { pppoeplusFuzzSetUp(); }

std::string targetOne(const uint8_t* data, size_t size) { return pppoeplusFuzzPacketOne(data, size); }

}  // namespace pppoeplusfuzz
