// Building Circuit-ID and Remote-ID bytes from a stored (simplified) format.
//
// Every walk below reads only inside the segment it was given (up to its
// length or its first NUL), every write is checked against the room left
// before it is made, and every keyword value is rendered into a scratch area
// of its own with an explicit length, so that no format text, stored or not
// checked, can make the builder read or write outside its buffers.
#include "packet/id_build.h"

#include <algorithm>
#include <cstring>

#include "agent/global.h"
#include "agent/log.h"
#include "format/format_scan.h"
#include "platform/ifdb.h"
#include "platform/types.h"

namespace {

// A hex number takes at most 4 bytes.
constexpr uint32_t PPPOEPLUS_BUILD_NUMBER_MAX_BYTES = 4;
constexpr uint32_t PPPOEPLUS_MAC_LEN = 6;

constexpr bool pppoeplusIsDigit(char c) { return pppoeplusFormatIsDigit(c); }
constexpr bool pppoeplusIsAlnum(char c) { return pppoeplusFormatIsKeywordChar(c); }

// A keyword value rendered for the ASCII form.
struct tPppoeplusValue {
    char text[PPPOEPLUS_BUILD_SEGMENT_LIMIT];
    uint32_t len;
};

// Values are rendered by hand rather than through printf: the builder runs
// for every frame forwarded, and these few shapes (decimal numbers, hex
// bytes, fixed words) are all it needs. Like snprintf into the scratch area,
// an append keeps what fits and drops the rest, always leaving room for a NUL.
constexpr uint32_t PPPOEPLUS_VALUE_ROOM = sizeof(tPppoeplusValue::text) - 1;
constexpr char PPPOEPLUS_HEX_UPPER[] = "0123456789ABCDEF";

void pppoeplusValueAppend(tPppoeplusValue* v, const char* text, size_t len) {
    const size_t take = std::min<size_t>(len, PPPOEPLUS_VALUE_ROOM - v->len);
    std::memcpy(v->text + v->len, text, take);
    v->len += static_cast<uint32_t>(take);
}

void pppoeplusValueAppendUnsigned(tPppoeplusValue* v, uint32_t value) {
    char digits[10];
    size_t n = 0;
    do {
        digits[sizeof(digits) - 1 - n] = static_cast<char>('0' + value % 10);
        value /= 10;
        n++;
    } while (value != 0);
    pppoeplusValueAppend(v, digits + sizeof(digits) - n, n);
}

void pppoeplusValueAppendHexByte(tPppoeplusValue* v, uint8_t byte) {
    const char hex[2] = {PPPOEPLUS_HEX_UPPER[byte >> 4], PPPOEPLUS_HEX_UPPER[byte & 0x0F]};
    pppoeplusValueAppend(v, hex, sizeof(hex));
}

// The value is exactly `word` (a literal).
template <size_t N>
void pppoeplusValueWord(tPppoeplusValue* v, const char (&word)[N]) {
    static_assert(N - 1 <= PPPOEPLUS_VALUE_ROOM);
    v->len = 0;
    pppoeplusValueAppend(v, word, N - 1);
}

void pppoeplusValueUnsigned(tPppoeplusValue* v, uint32_t value) {
    v->len = 0;
    pppoeplusValueAppendUnsigned(v, value);
}

// A MAC as six upper-case hex pairs, with colons between them or without.
void pppoeplusValueAppendMac(tPppoeplusValue* v, const uint8_t* mac, bool colons) {
    for (uint32_t i = 0; i < PPPOEPLUS_MAC_LEN; i++) {
        if (colons && i != 0) pppoeplusValueAppend(v, ":", 1);
        pppoeplusValueAppendHexByte(v, mac[i]);
    }
}

void pppoeplusValueMac(tPppoeplusValue* v, const uint8_t* mac) {
    v->len = 0;
    pppoeplusValueAppendMac(v, mac, true);
}

// Port number of the port-index record by port kind: word 2 for Ethernet,
// EPON and GPON ports, word 4 for aggregates, 0 for any other kind.
uint32_t pppoeplusPortNumber(const tZelPhyInfo* portIndex) {
    switch (portIndex->ondType) {
        case ZEL_OND_ETH:
        case ZEL_OND_EPON:
        case ZEL_OND_GPON:
            return portIndex->portNo;
        case ZEL_OND_ETH_AGG:
        case ZEL_OND_PON_AGG:
            return portIndex->aggNo;
        default:
            return 0;
    }
}

// Reads the system MAC (scalar 6) into the global sysMac. False when the
// platform does not give it; sysMac then keeps what it had.
bool pppoeplusSysMacGet() {
    uint8_t value[ZEL_SCALAR_TEXT_LEN] = {};
    if (zelScalarGetApi(0, ZEL_SCALAR_SYS_MAC, value) != 0) return false;
    std::memcpy(gPppoeplus.sysMac, value, sizeof(gPppoeplus.sysMac));
    return true;
}

// A text scalar (device name, system name), empty when the platform does not
// give it.
void pppoeplusScalarText(tPppoeplusValue* v, uint32_t scalar) {
    char value[ZEL_SCALAR_TEXT_LEN] = {};
    v->len = 0;
    if (zelScalarGetApi(0, scalar, value) != 0) return;
    v->len = static_cast<uint32_t>(strnlen(value, sizeof(value)));
    std::memcpy(v->text, value, v->len);
}

// The interface type number (interface attribute 5), 0 when unknown.
uint32_t pppoeplusIfType(uint32_t ifUnit) {
    uint32_t type = 0;
    if (zelIfGetApi(ifUnit, ZEL_IF_ATTR_TYPE, &type) != 0) return 0;
    return type;
}

// Renders the ASCII value of keyword code `code`.
void pppoeplusAsciiValue(tPppoePlusIfEntry* ifEntry, const tPppoePlusPkt* pkt, const tZelPhyInfo* portIndex,
                         uint32_t formatType, char code, tPppoeplusValue* v) {
    v->len = 0;
    switch (code) {
        case 's': pppoeplusValueUnsigned(v, pkt->outerVid); break;
        case 'c': pppoeplusValueUnsigned(v, pkt->innerVid); break;
        case 'a':  // accessnode
        case 'R':  // oltonlymac
            if (pppoeplusSysMacGet())
                pppoeplusValueMac(v, gPppoeplus.sysMac);
            else
                pppoeplusValueWord(v, "0");
            break;
        case 'Z':  // oltmac
            if (pppoeplusSysMacGet()) {
                pppoeplusValueWord(v, "000000000000");
                pppoeplusValueAppendMac(v, gPppoeplus.sysMac, false);
            } else {
                pppoeplusValueWord(v, "0");
            }
            break;
        case 'r':  // rack
        case 'f':  // frame
        case 'n':  // onutype
        case 'G':  // onuloid
        case 'h':  // onuauthinfo
            pppoeplusValueWord(v, "0");
            break;
        case 'S': pppoeplusValueUnsigned(v, portIndex->slotNo); break;
        case 'p': pppoeplusValueUnsigned(v, pppoeplusPortNumber(portIndex)); break;
        case 'H': pppoeplusValueUnsigned(v, portIndex->sysNo); break;
        case 'm':  // onuid
            if (pkt->onuInfo == nullptr) {
                pppoeplusValueWord(v, "0");
            } else {
                const uint32_t onu = pppoeplusOnuNumber(pkt->onuInfo);
                const size_t lineIdLen = strnlen(pkt->ponLineId, sizeof(pkt->ponLineId));
                pppoeplusValueUnsigned(v, onu);
                if (formatType == PPPOEPLUS_FORMAT_TYPE_DEFAULT && gPppoeplus.ponDefaultType == PPPOEPLUS_PON_TYPE_OLT &&
                    lineIdLen != 0) {
                    pppoeplusValueAppend(v, " ", 1);
                    pppoeplusValueAppend(v, pkt->ponLineId, lineIdLen);
                }
            }
            break;
        case 'U':  // onusn: the 8 identifier bytes as they stand
            if (pkt->onuInfo != nullptr && pppoeplusOnuSnLen(pkt->onuInfo) == PPPOEPLUS_ONU_SN_LEN) {
                std::memcpy(v->text, pkt->onuInfo + PPPOEPLUS_ONU_SN_OFFSET, PPPOEPLUS_ONU_SN_LEN);
                v->len = PPPOEPLUS_ONU_SN_LEN;
            } else {
                pppoeplusValueWord(v, "0");
            }
            break;
        case 'b':  // accesstype
            if (portIndex->ondType == ZEL_OND_GPON)
                pppoeplusValueWord(v, "GP");
            else if (portIndex->ondType == ZEL_OND_EPON)
                pppoeplusValueWord(v, "EP");
            else
                pppoeplusValueWord(v, "0");
            break;
        case 'N': {  // portname
            char name[ZEL_IF_NAME_LEN] = {};
            if (zelIfGetApi(ifEntry->ifUnit, ZEL_IF_ATTR_NAME, name) == 0) {
                v->len = static_cast<uint32_t>(strnlen(name, sizeof(name)));
                std::memcpy(v->text, name, v->len);
            }
            break;
        }
        case 'Y': {  // porttype
            const uint32_t type = pppoeplusIfType(ifEntry->ifUnit);
            if (type == ZEL_IFTYPE_ETHERNET)
                pppoeplusValueWord(v, "ethernet");
            else if (type == ZEL_IFTYPE_GPON)
                pppoeplusValueWord(v, "G-PON");
            else
                pppoeplusValueWord(v, "unknown");
            break;
        }
        case 'C': pppoeplusValueMac(v, ifEntry->mac); break;
        case 'd': pppoeplusScalarText(v, ZEL_SCALAR_DEVICE_NAME); break;
        case 'D': pppoeplusScalarText(v, ZEL_SCALAR_SYS_NAME); break;
        case 'J': pppoeplusValueMac(v, pkt->srcMac); break;
        // Reserved keywords: accepted everywhere, rendered empty.
        case 'u': case 'L': case 'O': case 'o': case 'T': case 'M': case 'P':
        case 't': case 'X': case 'x': case 'I': case 'A': case 'B':
            break;
        default:  // not a code: the item as it stands
            v->text[0] = '%';
            v->text[1] = code;
            v->len = 2;
            break;
    }
}

// Writes the low-order `bytes` bytes of `value` big-endian.
void pppoeplusPutNumber(uint8_t* out, uint32_t value, uint32_t bytes) {
    for (uint32_t k = 0; k < bytes; k++) out[k] = static_cast<uint8_t>(value >> (8 * (bytes - 1 - k)));
}

// Bytes a number literal takes in the hex form.
constexpr uint32_t pppoeplusNumberBytes(uint32_t value) { return value < 0x100 ? 1 : value < 0x10000 ? 2 : 4; }

}  // namespace

int32_t pppoeplusBuildAsciiFormat(tPppoePlusIfEntry* ifEntry, const tPppoePlusPkt* pkt, const tZelPhyInfo* portIndex,
                                  uint32_t formatType, const char* segment, uint32_t segmentLen, uint8_t* out,
                                  uint32_t room) {
    if (ifEntry == nullptr || pkt == nullptr || portIndex == nullptr || segment == nullptr || out == nullptr) return -1;

    // Once a "%0" item is met, the pad stays "0" for the rest of the segment.
    char pad = ' ';
    uint32_t written = 0;
    uint32_t i = 0;
    const uint32_t length = static_cast<uint32_t>(strnlen(segment, segmentLen));  // up to a NUL

    while (i < length) {
        const char c = segment[i];
        if (c != '%') {
            if (written >= room) return -1;
            // Quotes and backslashes are the segment's syntax, not its text.
            if (c != '\\' && c != '\'') out[written++] = static_cast<uint8_t>(c);
            i++;
            continue;
        }

        const tPppoeplusFormatItem item = pppoeplusFormatItemScan(segment, length, i);
        if (item.zeroPad) pad = '0';
        const uint32_t width = item.widthCapped;
        if (!pppoeplusFormatItemHasCode(item, length)) break;
        const char code = segment[item.digitsEnd];
        i = item.digitsEnd + 1;
        // An item without a code letter goes, together with the character
        // that stands in the letter's place.
        if (!pppoeplusIsAlnum(code)) continue;

        tPppoeplusValue value;
        pppoeplusAsciiValue(ifEntry, pkt, portIndex, formatType, code, &value);
        const uint32_t left = room - written;
        if (width == 0) {
            if (value.len > left || written + value.len >= PPPOEPLUS_BUILD_SEGMENT_LIMIT) break;
            std::memcpy(out + written, value.text, value.len);
            written += value.len;
        } else {
            if (width >= PPPOEPLUS_BUILD_SEGMENT_LIMIT || width > left) break;
            const uint32_t valueLen = std::min(value.len, width);
            const uint32_t padLen = width - valueLen;
            if (written + padLen + valueLen >= PPPOEPLUS_BUILD_SEGMENT_LIMIT) break;
            std::memset(out + written, pad, padLen);
            std::memcpy(out + written + padLen, value.text, valueLen);
            written += width;
        }
    }
    return static_cast<int32_t>(written);
}

int32_t pppoeplusBuildHexFormat(tPppoePlusIfEntry* ifEntry, const tPppoePlusPkt* pkt, const tZelPhyInfo* portIndex,
                                const char* segment, uint32_t segmentLen, uint8_t* out, uint32_t room) {
    if (ifEntry == nullptr || pkt == nullptr || portIndex == nullptr || segment == nullptr || out == nullptr) return -1;

    uint32_t written = 0;
    uint32_t i = 0;
    const uint32_t length = static_cast<uint32_t>(strnlen(segment, segmentLen));  // up to a NUL
    auto atEnd = [&](uint32_t k) { return k >= length; };
    auto startsHex = [&](uint32_t k) { return !atEnd(k) && segment[k] == '0' && !atEnd(k + 1) && segment[k + 1] == 'x'; };
    // A value of `bytes` bytes fits when the room holds it and the segment
    // stays below its bound.
    auto fits = [&](uint32_t bytes) {
        return bytes <= room - written && written + bytes < PPPOEPLUS_BUILD_SEGMENT_LIMIT;
    };

    while (!atEnd(i)) {
        const char c = segment[i];

        if (c == '%') {
            const tPppoeplusFormatItem item = pppoeplusFormatItemScan(segment, length, i);
            const uint32_t width = item.widthCapped;
            if (!pppoeplusFormatItemHasCode(item, length)) break;
            const char code = segment[item.digitsEnd];
            i = item.digitsEnd + 1;
            if (!pppoeplusIsAlnum(code)) continue;

            // Six-byte addresses ignore the width.
            const uint8_t* mac = nullptr;
            uint32_t value = 0;
            uint32_t defaultWidth = 0;
            switch (code) {
                case 's': value = pkt->outerVid; defaultWidth = 16; break;
                case 'c': value = pkt->innerVid; defaultWidth = 16; break;
                case 'H': value = portIndex->sysNo; defaultWidth = 16; break;
                case 'S': value = portIndex->slotNo; defaultWidth = 16; break;
                case 'p': value = pppoeplusPortNumber(portIndex); defaultWidth = 16; break;
                case 'Y': value = pppoeplusIfType(ifEntry->ifUnit); defaultWidth = 16; break;
                case 'm':
                    value = pkt->onuInfo != nullptr ? pppoeplusOnuNumber(pkt->onuInfo) : 0;
                    defaultWidth = 16;
                    break;
                case 'f':
                case 'r':
                    defaultWidth = 8;
                    break;
                case 'C': mac = ifEntry->mac; break;
                case 'J': mac = pkt->srcMac; break;
                case 'a':
                case 'R':
                case 'Z':
                    if (!pppoeplusSysMacGet()) continue;  // nothing without a system MAC
                    mac = gPppoeplus.sysMac;
                    break;
                default:
                    break;
            }
            if (mac != nullptr) {
                if (!fits(PPPOEPLUS_MAC_LEN)) break;
                std::memcpy(out + written, mac, PPPOEPLUS_MAC_LEN);
                written += PPPOEPLUS_MAC_LEN;
                continue;
            }
            const uint32_t bits = width != 0 ? width : defaultWidth;
            if (bits == 0) continue;
            const uint32_t bytes = (bits + 7) / 8;
            if (bytes > PPPOEPLUS_BUILD_NUMBER_MAX_BYTES || !fits(bytes)) break;
            pppoeplusPutNumber(out + written, value, bytes);
            written += bytes;
            continue;
        }

        if (startsHex(i)) {
            // Hex digits up to a space, a '%', the next "0x" or the end; any
            // other character among them is passed over. Only the low 32
            // bits of a longer number are kept.
            i += 2;
            uint32_t value = 0;
            uint32_t digits = 0;
            while (!atEnd(i) && segment[i] != ' ' && segment[i] != '%' && !startsHex(i)) {
                const int32_t d = pppoeplusFormatHexValue(segment[i]);
                if (d >= 0) {
                    value = (value << 4) | static_cast<uint32_t>(d);
                    digits++;
                }
                i++;
            }
            if (digits == 0) continue;
            const uint32_t bytes = pppoeplusNumberBytes(value);
            if (!fits(bytes)) break;
            pppoeplusPutNumber(out + written, value, bytes);
            written += bytes;
            continue;
        }

        if (pppoeplusIsDigit(c)) {
            // Every character up to a space, a '%' or the end counts as a
            // decimal digit (the checker lets only digits through); the sum
            // is taken modulo 2^32.
            uint32_t value = 0;
            while (!atEnd(i) && segment[i] != ' ' && segment[i] != '%') {
                value = value * 10u + static_cast<uint32_t>(static_cast<uint8_t>(segment[i])) - static_cast<uint32_t>('0');
                i++;
            }
            const uint32_t bytes = pppoeplusNumberBytes(value);
            if (!fits(bytes)) break;
            pppoeplusPutNumber(out + written, value, bytes);
            written += bytes;
            continue;
        }

        // A space, or a character that starts nothing, is passed over.
        i++;
    }
    return static_cast<int32_t>(written);
}

uint32_t pppoeplusBuildFormat(tPppoePlusIfEntry* ifEntry, const tPppoePlusPkt* pkt, uint8_t* buf, uint32_t capacity,
                              uint32_t which) {
    if (ifEntry == nullptr || pkt == nullptr || buf == nullptr) return 0;
    if (which != PPPOEPLUS_BUILD_CIRCUIT_ID && which != PPPOEPLUS_BUILD_REMOTE_ID) return 0;

    // The port-index record: fresh from the platform when it answers, else
    // the copy cached in the entry.
    tZelPhyInfo phyInfo{};
    if (zelIndexTrans(ifEntry->ifUnit, ZEL_INDEX_TRANS_PHYINFO, &phyInfo) == 0) ifEntry->phyInfo = phyInfo;
    const tZelPhyInfo* portIndex = &ifEntry->phyInfo;

    uint32_t formatType = PPPOEPLUS_FORMAT_TYPE_DEFAULT;
    const tPppoeplusFormat* format =
        pppoeplusIfFormatApplied(ifEntry, which == PPPOEPLUS_BUILD_CIRCUIT_ID, &formatType);

    if (format->formatLen == 0) {
        PPPOEPLUS_ERROR_LOG("Format length is zero!\r\n");
        return 0;
    }

    if (formatType == PPPOEPLUS_FORMAT_TYPE_ASCII) {
        if (capacity < format->formatLen || format->formatLen >= PPPOEPLUS_FORMAT_LEN) {
            PPPOEPLUS_ERROR_LOG("Circuit-id/remote-id is too long!\r\n");
            return 0;
        }
        std::memcpy(buf, format->format, format->formatLen);
        return format->formatLen;
    }

    // The text area holds 256 bytes whatever the stored length says.
    const uint32_t textLen = std::min<uint32_t>(format->formatLen, PPPOEPLUS_FORMAT_LEN);
    const char* text = format->format;
    uint32_t written = 0;
    uint32_t i = 0;
    while (i < textLen) {
        if (text[i] == ' ') {
            i++;
            continue;
        }
        const bool ascii = text[i] == '\'';
        uint32_t end;
        if (ascii) {
            // To the next unescaped quote, both quotes included; an
            // unterminated segment runs to the end of the text.
            uint32_t j = i + 1;
            while (j < textLen && text[j] != '\'') j += text[j] == '\\' ? 2 : 1;
            end = std::min(j + 1, textLen);
        } else {
            uint32_t j = i;
            while (j < textLen && text[j] != '\'') j++;
            end = j;
        }

        // A zero-filled copy of the segment, so that its end reads as NUL.
        char scratch[PPPOEPLUS_BUILD_SEGMENT_LIMIT + 1] = {};
        const uint32_t segmentLen = end - i;
        std::memcpy(scratch, text + i, segmentLen);
        const int32_t n = ascii ? pppoeplusBuildAsciiFormat(ifEntry, pkt, portIndex, formatType, scratch, segmentLen,
                                                            buf + written, capacity - written)
                                : pppoeplusBuildHexFormat(ifEntry, pkt, portIndex, scratch, segmentLen, buf + written,
                                                          capacity - written);
        if (n < 1) return 0;
        written += static_cast<uint32_t>(n);
        i = end;
    }
    return written;
}

void pppoeplusCopyDataByBits(uint8_t* dst, uint32_t dstBit, const uint8_t* src, uint32_t srcBit, uint32_t count) {
    if (dst == nullptr || src == nullptr || dstBit == 0 || dstBit > 8 || srcBit == 0 || srcBit > 8) return;
    for (uint32_t k = 0; k < count; k++) {
        const uint8_t dstMask = static_cast<uint8_t>(1u << (dstBit - 1));
        *dst = static_cast<uint8_t>(*dst & ~dstMask);
        if ((*src & (1u << (srcBit - 1))) != 0) *dst = static_cast<uint8_t>(*dst | dstMask);
        if (--dstBit == 0) {
            dst++;
            dstBit = 8;
        }
        if (--srcBit == 0) {
            src++;
            srcBit = 8;
        }
    }
}
