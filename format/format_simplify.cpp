// Simplification of typed format texts into the stored one-character form,
// and recovery of the typed text.
//
// Bounds: the walks read only inside [segment, segment + length); the next
// character is looked at only when there is one. Every write goes through
// tPppoeplusSimplifyOut, which refuses a byte beyond the room it was given;
// the room is never more than a format's 256-byte text area. The splitter
// simplifies into a 256-byte area of its own and hands each segment the room
// left in it, so a long or growing segment (a lone '%' is written as three
// bytes) fails instead of writing past the area.
#include "format/format_simplify.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <string_view>

#include "agent/log.h"
#include "format/format_check.h"
#include "format/format_scan.h"

namespace {

// Codes of keywords whose values are text: they have no numeric form and are
// refused in a hex segment.
constexpr std::string_view PPPOEPLUS_HEX_REFUSED_CODES = "NdDUbGnh";

constexpr bool pppoeplusIsDigit(char c) { return pppoeplusFormatIsDigit(c); }

// A bounded output area.
struct tPppoeplusSimplifyOut {
    std::span<char> area;
    uint32_t pos = 0;

    bool put(char c) {
        if (pos >= area.size()) return false;
        area[pos++] = c;
        return true;
    }
    bool put(std::span<const char> text) {
        if (text.size() > area.size() - pos) return false;
        std::copy(text.begin(), text.end(), area.begin() + pos);
        pos += static_cast<uint32_t>(text.size());
        return true;
    }
};

tPppoeplusSimplifyOut pppoeplusSimplifyOutMake(char* out, uint32_t room) {
    return tPppoeplusSimplifyOut{std::span<char>(out, std::min(room, PPPOEPLUS_FORMAT_LEN)), 0};
}

// Looks up the keyword run of a '%' item (width digits and name, without the
// '%'). Returns the code, or -1 ("Keyword does not match anyone!" is logged by
// the lookup).
int32_t pppoeplusSimplifyItemCode(const tPppoeplusKeyword* keywords, std::span<const char> seg,
                                  const tPppoeplusFormatItem& item) {
    const std::span<const char> run = seg.subspan(item.percent + 1, item.runEnd - item.percent - 1);
    int32_t code = pppoeplusKeywordToChar(keywords, run.data(), static_cast<uint32_t>(run.size()));
    return code < 1 ? -1 : code;
}

// Writes a '%' item in its short form: "%", its width digits (a leading "0"
// kept), the code. False when it does not fit.
bool pppoeplusSimplifyItemWrite(tPppoeplusSimplifyOut& out, std::span<const char> seg,
                                const tPppoeplusFormatItem& item, int32_t code) {
    const std::span<const char> digits = seg.subspan(item.percent + 1, item.digitsEnd - item.percent - 1);
    return out.put('%') && out.put(digits) && out.put(static_cast<char>(code));
}

int32_t pppoeplusSimplifyAsciiFail() {
    PPPOEPLUS_ERROR_LOG("Failed to simplify the ascii format!\r\n");
    return -1;
}

int32_t pppoeplusSimplifyHexFail() {
    PPPOEPLUS_ERROR_LOG("Failed to simplify the hex format!\r\n");
    return -1;
}

int32_t pppoeplusSimplifyFormatFail() {
    PPPOEPLUS_ERROR_LOG("Failed to simplify the format!\r\n");
    return -1;
}

}  // namespace

int32_t pppoeplusSimplifyAsciiFormat(const tPppoeplusKeyword* keywords, const char* segment, uint32_t length,
                                     char* out, uint32_t room) {
    if (keywords == nullptr || segment == nullptr || out == nullptr) return pppoeplusSimplifyAsciiFail();

    const std::span<const char> seg(segment, length);
    tPppoeplusSimplifyOut w = pppoeplusSimplifyOutMake(out, room);

    uint32_t i = 0;
    while (i < length) {
        char c = seg[i];
        if (c != '%') {
            if (!w.put(c)) return pppoeplusSimplifyAsciiFail();
            i++;
            continue;
        }

        // A '%' item: the run of keyword characters after it is its width
        // and name; the character after the run is then read like any other.
        const tPppoeplusFormatItem item = pppoeplusFormatItemScan(segment, length, i);
        if (item.runEnd > i + 1) {
            int32_t code = pppoeplusSimplifyItemCode(keywords, seg, item);
            if (code < 1) return pppoeplusSimplifyAsciiFail();
            if (!pppoeplusSimplifyItemWrite(w, seg, item, code)) return pppoeplusSimplifyAsciiFail();
            i = item.runEnd;
            continue;
        }

        // A '%' without a keyword: "%" and the character after it are
        // written, and the walk goes on at that character, so it is copied a
        // second time (or, being a '%', starts an item of its own). The
        // checker refuses such a text later. A '%' ending the segment is
        // written alone.
        if (!w.put('%')) return pppoeplusSimplifyAsciiFail();
        if (i + 1 < length && !w.put(seg[i + 1])) return pppoeplusSimplifyAsciiFail();
        i++;
    }

    const int32_t n = static_cast<int32_t>(w.pos);
    PPPOEPLUS_EVENT_LOG("Simplified ascii format to %.*s, length %d.\r\n", n, out, n);
    return n;
}

int32_t pppoeplusSimplifyHexFormat(const tPppoeplusKeyword* keywords, const char* segment, uint32_t length,
                                   char* out, uint32_t room) {
    if (keywords == nullptr || segment == nullptr || out == nullptr) return pppoeplusSimplifyHexFail();

    const std::span<const char> seg(segment, length);
    tPppoeplusSimplifyOut w = pppoeplusSimplifyOutMake(out, room);
    bool inHex = false;
    uint32_t runStart = 0;  // first digit after "0x"

    uint32_t i = 0;
    while (i < length) {
        char c = seg[i];

        if (!inHex && c == '%') {
            const tPppoeplusFormatItem item = pppoeplusFormatItemScan(segment, length, i);
            // A '%' with no keyword character after it has no meaning here.
            if (item.runEnd == i + 1) return pppoeplusSimplifyHexFail();
            int32_t code = pppoeplusSimplifyItemCode(keywords, seg, item);
            if (code < 1) return pppoeplusSimplifyHexFail();
            if (PPPOEPLUS_HEX_REFUSED_CODES.find(static_cast<char>(code)) != std::string_view::npos)
                return pppoeplusSimplifyHexFail();
            if (!pppoeplusSimplifyItemWrite(w, seg, item, code)) return pppoeplusSimplifyHexFail();
            i = item.runEnd;
            continue;
        }

        if (inHex) {
            if (pppoeplusHexCharCheck(c) == 0) {
                i++;
                continue;
            }
            if (c != '%' && c != ' ') return pppoeplusSimplifyHexFail();
            // A '%' or a space closes the number: its digits are written and
            // the character is read on.
            if (!w.put(seg.subspan(runStart, i - runStart))) return pppoeplusSimplifyHexFail();
            inHex = false;
            continue;
        }

        if (c == ' ') {
            // A run of spaces is written as one.
            if (!w.put(' ')) return pppoeplusSimplifyHexFail();
            while (i < length && seg[i] == ' ') i++;
            continue;
        }
        if (pppoeplusIsDigit(c)) {
            if (!w.put(c)) return pppoeplusSimplifyHexFail();
            i++;
            continue;
        }
        if (c == 'x' && i > 0 && seg[i - 1] == '0') {
            if (!w.put(c)) return pppoeplusSimplifyHexFail();
            inHex = true;
            runStart = i + 1;
            i++;
            continue;
        }
        return pppoeplusSimplifyHexFail();
    }
    // The end of the segment closes an open number.
    if (inHex && !w.put(seg.subspan(runStart, length - runStart))) return pppoeplusSimplifyHexFail();

    const int32_t n = static_cast<int32_t>(w.pos);
    PPPOEPLUS_EVENT_LOG("Simplified hex format to %.*s, length %d.\r\n", n, out, n);
    return n;
}

int32_t pppoeplusSimplifyFormat(const tPppoeplusKeyword* keywords, const tPppoeplusStrValue* input,
                                tPppoeplusFormat* record) {
    if (keywords == nullptr || input == nullptr || input->str == nullptr || record == nullptr ||
        input->len >= PPPOEPLUS_FORMAT_LEN)
        return pppoeplusSimplifyFormatFail();

    // Work on copies, so that a failure leaves the record as it was even
    // when the input lies in the record itself.
    std::array<char, PPPOEPLUS_FORMAT_LEN> typed{};
    const uint32_t length = input->len;
    std::memcpy(typed.data(), input->str, length);
    std::array<char, PPPOEPLUS_FORMAT_LEN> simplified{};
    uint32_t pos = 0;

    uint32_t i = 0;
    while (i < length) {
        int32_t n = 0;
        if (typed[i] == '\'') {
            // "''": the first quote is dropped, the second opens a segment.
            if (i + 1 < length && typed[i + 1] == '\'') {
                i++;
                continue;
            }
            // An ASCII segment up to the closing quote; a backslash carries
            // the character after it.
            uint32_t end = i + 1;
            bool closed = false;
            while (end < length) {
                if (typed[end] == '\\') {
                    end += 2;
                    continue;
                }
                if (typed[end] == '\'') {
                    closed = true;
                    break;
                }
                end++;
            }
            if (!closed) return pppoeplusSimplifyFormatFail();
            n = pppoeplusSimplifyAsciiFormat(keywords, typed.data() + i, end - i + 1, simplified.data() + pos,
                                             PPPOEPLUS_FORMAT_LEN - pos);
            i = end + 1;
        } else {
            // A hex segment, led by any other character (a space too), up to
            // the next quote or NUL.
            uint32_t end = i + 1;
            while (end < length && typed[end] != '\'' && typed[end] != '\0') end++;
            n = pppoeplusSimplifyHexFormat(keywords, typed.data() + i, end - i, simplified.data() + pos,
                                           PPPOEPLUS_FORMAT_LEN - pos);
            i = end;
        }
        if (n < 1) return pppoeplusSimplifyFormatFail();
        pos += static_cast<uint32_t>(n);
        // The stored text must stay below the size of its area: reaching 256
        // fails, whether or not the input goes on.
        if (pos >= PPPOEPLUS_FORMAT_LEN) return pppoeplusSimplifyFormatFail();
    }

    std::memset(record->format, 0, sizeof(record->format));
    std::memcpy(record->format, simplified.data(), pos);
    record->formatLen = static_cast<uint16_t>(pos);
    std::memset(record->origFormat, 0, sizeof(record->origFormat));
    std::memcpy(record->origFormat, typed.data(), length);
    record->origFormatLen = static_cast<uint16_t>(length);

    PPPOEPLUS_EVENT_LOG("Simplified format to %.*s, length %d.\r\n", static_cast<int>(pos), record->format,
                        static_cast<int>(pos));
    return 0;
}

int32_t pppoeplusRecoverFormat(const tPppoeplusFormat* record, tPppoeplusStrValue* output) {
    if (record == nullptr || record->origFormatLen == 0) return -1;
    const uint32_t length = record->origFormatLen;
    if (output == nullptr || output->str == nullptr || length >= PPPOEPLUS_FORMAT_LEN) {
        PPPOEPLUS_ERROR_LOG("Failed to recover the format!\r\n");
        return -1;
    }
    std::memcpy(output->str, record->origFormat, length);
    output->len = length;
    PPPOEPLUS_EVENT_LOG("Recover format to %.*s, length %d.\r\n", static_cast<int>(length), output->str,
                        static_cast<int>(length));
    return 0;
}
