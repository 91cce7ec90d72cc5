// Value words of the settings: on/off, policies, format types, debug
// switches, numbers, and the non-stop-routing record.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vocab/settings.h"

namespace vocab {

// Reads the value word of a command of `type` into the word the daemon takes.
// An error text (what is accepted) when it cannot.
struct ParsedWord {
    bool ok = false;
    uint32_t value = 0;
    std::string error;
};
ParsedWord parseValue(ValueType type, const std::string& text);

// The word shown for a number of `type` ("on", "keep", "userdefine", "0x5 (startup,trace)").
std::string valueWord(ValueType type, uint32_t value);
// What `parseValue` accepts for `type`, for help and error texts.
std::string acceptedWords(ValueType type);

// The non-stop-routing record as the daemon writes it (host order).
struct NsrInfo {
    uint32_t switchover = 0;
    uint32_t incompleteOp = 0;
    uint32_t allOp = 0;
};
std::optional<NsrInfo> nsrFromBytes(const std::vector<uint8_t>& bytes);

}  // namespace vocab
