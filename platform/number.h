// Reading numbers from text, one way for every reader of them: the daemon's
// start-up options, the platform's configuration file, the operator's tool.
// Built on std::from_chars: no locale, no errno, no allocation.
#pragma once

#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>

// The whole of `text` as an unsigned number no larger than `max`: decimal
// digits, or hex digits after "0x" or "0X". No sign, no space, nothing after
// the digits; an empty text or a bare "0x" is not a number.
inline std::optional<uint64_t> numberParseUnsigned(std::string_view text, uint64_t max) {
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    // from_chars takes a leading '-' for signed types only; the value is
    // unsigned, so a sign fails like any other character.
    uint64_t value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, ec] = std::from_chars(text.data(), end, value, base);
    if (ec != std::errc() || stop != end || value > max) return std::nullopt;
    return value;
}

inline std::optional<uint32_t> numberParseU32(std::string_view text) {
    const auto value = numberParseUnsigned(text, std::numeric_limits<uint32_t>::max());
    if (!value) return std::nullopt;
    return static_cast<uint32_t>(*value);
}

// As numberParseUnsigned, after an optional '+' or '-', within int64_t.
inline std::optional<int64_t> numberParseI64(std::string_view text) {
    bool negative = false;
    if (!text.empty() && (text[0] == '+' || text[0] == '-')) {
        negative = text[0] == '-';
        text.remove_prefix(1);
    }
    constexpr uint64_t maxPositive = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    const auto magnitude = numberParseUnsigned(text, negative ? maxPositive + 1 : maxPositive);
    if (!magnitude) return std::nullopt;
    return negative ? static_cast<int64_t>(0 - *magnitude) : static_cast<int64_t>(*magnitude);
}

// The decimal digits at the start of `text`, up to the first other character
// (0 when there are none), held at UINT64_MAX when they go beyond it.
inline uint64_t numberLeadingDecimal(std::string_view text) {
    uint64_t value = 0;
    const auto [stop, ec] = std::from_chars(text.data(), text.data() + text.size(), value, 10);
    (void)stop;
    if (ec == std::errc::result_out_of_range) return std::numeric_limits<uint64_t>::max();
    return ec == std::errc() ? value : 0;
}
