// What the command service may build for each call of gPppoeplusFuncMap: one
// row per (map row, command code) that an entry point serves, with the value
// record it takes and the size of that record's buffer. The service builds
// the value from this table and never from what a request claims, so a
// caller in another process can neither hand the daemon a pointer nor reach
// an entry point with a record it does not expect.
#pragma once

#include <array>
#include <cstdint>

#include "platform/services.h"

// Rows of gPppoeplusCallSpecs.
constexpr uint32_t PPPOEPLUS_CALL_SPEC_ROWS = 74;

extern const std::array<tIcmCallSpec, PPPOEPLUS_CALL_SPEC_ROWS> gPppoeplusCallSpecs;
