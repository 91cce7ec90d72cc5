// The shape every fuzz target of fuzz/ shares besides the packet-path one:
// a set-up run once, and one input run through the code under test, which
// returns what went wrong (empty when nothing did). fuzz_main.cpp makes a
// libFuzzer binary of a target, fuzz_replay.cpp a runner of files and
// folders for any compiler and sanitizer (the corpus tests of ctest).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace pppoeplusfuzz {

extern const char* const kTargetName;
void targetSetUp();
std::string targetOne(const uint8_t* data, size_t size);

}  // namespace pppoeplusfuzz
