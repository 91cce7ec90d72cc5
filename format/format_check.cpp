// Checking of stored format texts: splitting into segments and the rules of
// ASCII and hex segments.
//
// Every walk below reads only inside [segment, segment + length): a look at
// the next character is made only when the current one is not the last (the
// last character has rules of its own), and a look back only when there is a
// character before.
#include "format/format_check.h"

#include <cstdint>
#include <limits>

#include "agent/log.h"
#include "format/format_scan.h"

namespace {

// Widths and totals of the ASCII form are counted in bytes and must stay
// below a format's text area.
constexpr uint32_t PPPOEPLUS_ASCII_WIDTH_LIMIT = 256;
constexpr uint64_t PPPOEPLUS_ASCII_TOTAL_LIMIT = 256;
// Widths of the hex form are counted in bits; a value takes at most 4 bytes.
constexpr uint32_t PPPOEPLUS_HEX_WIDTH_MAX = 32;
constexpr uint64_t PPPOEPLUS_HEX_TOTAL_LIMIT = 256;
constexpr uint64_t PPPOEPLUS_HEX_NUMBER_MAX = 0xFFFFFFFFull;

constexpr bool pppoeplusIsDigit(char c) { return pppoeplusFormatIsDigit(c); }

// Finds the closing quote of the ASCII segment opened at text[start]; a
// backslash carries the character after it. Returns the index of the closing
// quote, or `length` when the text ends first.
uint32_t pppoeplusAsciiSegmentEnd(const char* text, uint32_t start, uint32_t length) {
    uint32_t j = start + 1;
    while (j < length) {
        if (text[j] == '\\') {
            // The escaped character belongs to the segment whatever it is;
            // a backslash as the last byte leaves the segment open.
            if (length - j < 2) return length;
            j += 2;
            continue;
        }
        if (text[j] == '\'') return j;
        j++;
    }
    return length;
}

// The code of a '%' item read up to `end`: a character must follow the width
// digits, and be a keyword character. False after the message when not.
bool pppoeplusItemCodeCheck(const char* segment, uint32_t end, const tPppoeplusFormatItem& item) {
    if (!pppoeplusFormatItemHasCode(item, end)) {
        // A '%' or width digits at the end leave the item without a code.
        if (item.digitsEnd == item.percent + 1) {
            PPPOEPLUS_ERROR_LOG("Last character can't be percent.\r\n");
        } else {
            PPPOEPLUS_ERROR_LOG("There is no keyword after percent.\r\n");
        }
        return false;
    }
    if (pppoeplusKeywordCharCheck(segment[item.digitsEnd]) != 0) {
        PPPOEPLUS_ERROR_LOG("Keyword after percent is invalid.\r\n");
        return false;
    }
    return true;
}

}  // namespace

int32_t pppoeplusFormatCheck(const char* text, uint32_t length) {
    if (text == nullptr) return -1;

    uint32_t i = 0;
    while (i < length) {
        char c = text[i];
        if (c == ' ') {
            i++;
            continue;
        }
        if (c == '\'') {
            // "''": the first quote is dropped and the second one opens the
            // segment.
            if (i + 1 < length && text[i + 1] == '\'') {
                i++;
                continue;
            }
            uint32_t end = pppoeplusAsciiSegmentEnd(text, i, length);
            if (end >= length) return -1;  // unterminated: refused without a message
            uint32_t segLen = end - i + 1;
            if (segLen > 0 && pppoeplusAsciiFormatCheck(text + i, segLen) != 0) {
                PPPOEPLUS_ERROR_LOG("Ascii format check return ERROR.\r\n");
                return -1;
            }
            i = end + 1;
            continue;
        }
        // A hex segment: up to the next quote or the end; spaces inside it
        // belong to it.
        uint32_t end = i + 1;
        while (end < length && text[end] != '\'') end++;
        uint32_t segLen = end - i;
        if (segLen > 0 && pppoeplusHexFormatCheck(text + i, segLen) != 0) {
            PPPOEPLUS_ERROR_LOG("Hex format check return ERROR.\r\n");
            return -1;
        }
        i = end;
    }
    return 0;
}

int32_t pppoeplusAsciiFormatCheck(const char* segment, uint32_t length) {
    if (segment == nullptr) return -1;
    if (length < 3) {
        PPPOEPLUS_ERROR_LOG("Ascii format length is too short.\r\n");
        return -1;
    }

    // The inner characters lie between the quotes: 1 .. last.
    const uint32_t last = length - 2;
    const uint32_t inner = last + 1;  // items are read up to the closing quote
    uint64_t total = 0;  // sum of the widths

    for (uint32_t i = 1; i <= last; i++) {
        if (segment[i] != '%') continue;  // literal text

        const tPppoeplusFormatItem item = pppoeplusFormatItemScan(segment, inner, i);
        if (item.widthWrapped) {
            PPPOEPLUS_ERROR_LOG("Width is reverse.\r\n");
            return -1;
        }
        if (!pppoeplusItemCodeCheck(segment, inner, item)) return -1;
        // Whether the code names a keyword was settled when the text was
        // simplified.
        const uint32_t code = item.digitsEnd;
        if (item.width >= PPPOEPLUS_ASCII_WIDTH_LIMIT) {
            PPPOEPLUS_ERROR_LOG("Width is too long.\r\n");
            return -1;
        }
        total += item.width;
        if (code == last) break;
        if (pppoeplusDelimiterCheck(segment[code + 1]) != 0) {
            PPPOEPLUS_ERROR_LOG("Delimeter between keywords is invalid.\r\n");
            return -1;
        }
        i = code;  // the code is read again as literal text, then the walk goes on
    }

    if (total >= PPPOEPLUS_ASCII_TOTAL_LIMIT) {
        PPPOEPLUS_ERROR_LOG("Total width is too long.\r\n");
        return -1;
    }
    return 0;
}

int32_t pppoeplusHexFormatCheck(const char* segment, uint32_t length) {
    if (segment == nullptr) return -1;

    uint64_t bytes = 0;     // bytes the keywords take
    uint64_t running = 0;   // value of the last number read; 0 after a reset
    uint64_t hexValue = 0;  // value of the open hex number (saturating)
    bool inHex = false;

    for (uint32_t i = 0; i < length; i++) {
        char c = segment[i];

        if (!inHex) {
            // "0x" opens a hex number; the "0" must start the segment or
            // follow a space. This also catches a "%0x" item: its width "0"
            // and code "x" read as the start of a number.
            if (c == 'x' && i > 0 && segment[i - 1] == '0') {
                if (i - 1 > 0 && segment[i - 2] != ' ') {
                    PPPOEPLUS_ERROR_LOG("Character before 0x is not space.\r\n");
                    return -1;
                }
                inHex = true;
                hexValue = 0;
                running = 0;
                continue;
            }
            // A decimal number is read whole, and only while the running
            // value is 0: after a non-zero number, further decimal numbers
            // are passed over digit by digit until a '%' item or "0x" resets
            // the running value.
            if (pppoeplusIsDigit(c)) {
                if (running != 0) continue;
                uint64_t value = 0;
                bool overflow = false;
                uint32_t j = i;
                while (j < length && pppoeplusIsDigit(segment[j])) {
                    uint64_t digit = static_cast<uint64_t>(segment[j] - '0');
                    if (value > (std::numeric_limits<uint64_t>::max() - digit) / 10u) overflow = true;
                    if (!overflow) value = value * 10u + digit;
                    j++;
                }
                if (overflow) {
                    PPPOEPLUS_ERROR_LOG("Number is too big, longVar is reverse.\r\n");
                    return -1;
                }
                if (value > PPPOEPLUS_HEX_NUMBER_MAX) {
                    PPPOEPLUS_ERROR_LOG("Number bigger than 0xffffffff.\r\n");
                    return -1;
                }
                running = value;
                i = j - 1;  // on to the number's last digit
                continue;
            }
            if (c != '%') continue;  // anything else passes without comment

            // A '%' item. Its width digits are judged one by one as they are
            // read, so a width above 32 bits is named before anything that
            // follows it.
            running = 0;
            const tPppoeplusFormatItem item = pppoeplusFormatItemScan(segment, length, i);
            if (item.widthCapped > PPPOEPLUS_HEX_WIDTH_MAX) {
                PPPOEPLUS_ERROR_LOG("Width is more than 32bits.\r\n");
                return -1;
            }
            if (!pppoeplusItemCodeCheck(segment, length, item)) return -1;
            // No delimiter is needed between hex items; the code is looked at
            // again as an ordinary character.
            if (item.width % 8u != 0) {
                PPPOEPLUS_ERROR_LOG("Width:%u is not multiples of 8.\r\n", item.width);
                return -1;
            }
            bytes += (item.width + 7u) / 8u;
            i = item.digitsEnd - 1;
            continue;
        }

        // A character of an open hex number.
        if (i == length - 1) {
            if (c == 'x') {
                PPPOEPLUS_ERROR_LOG("Last 2 character can't be 0x.\r\n");
                return -1;
            }
            if (pppoeplusHexCharCheck(c) != 0) {
                PPPOEPLUS_ERROR_LOG("Number after 0x is invalid.\r\n");
                return -1;
            }
            running = hexValue;  // the number ends with the segment
            inHex = false;
            break;
        }

        char next = segment[i + 1];
        if (pppoeplusHexCharCheck(c) != 0) {
            PPPOEPLUS_ERROR_LOG("Number after 0x is invalid.\r\n");
            return -1;
        }
        hexValue = hexValue > (std::numeric_limits<uint64_t>::max() >> 4)
                       ? std::numeric_limits<uint64_t>::max()
                       : (hexValue << 4) | static_cast<uint64_t>(pppoeplusFormatHexValue(c));
        if (next == '%' || next == ' ' || next == '\0') {
            running = hexValue;
            inHex = false;
        }
    }

    if (bytes >= PPPOEPLUS_HEX_TOTAL_LIMIT) {
        PPPOEPLUS_ERROR_LOG("Total bytes is too long.\r\n");
        return -1;
    }
    return 0;
}
