// Validation of received discovery frames, the code names and the hex dump.
//
// Every read of the frame goes through pppoeplusPktByte, which gives 0 for a
// byte at or past what the buffer holds, exactly as the zeroed receive buffer
// reads behind the received bytes. So the tag walk may look at a 4-byte tag
// header that starts in the last bytes of the payload, and the PON line-id
// scan may follow a sub-option length past the frame, without ever leaving
// the buffer; and a pointer into the frame is recorded only for a tag whose
// header lies inside it.
#include "packet/pkt_parse.h"

#include <cstring>

#include "agent/global.h"
#include "agent/log.h"
#include "packet/pkt_log.h"
#include "platform/logging.h"

namespace {

constexpr char PPPOEPLUS_PKT_SHOW_RULE[] = "=================================================";

// Takes the line identifier that an ONU's own agent wrote into the client's
// Circuit-ID (the first sub-option of the Vendor-Specific tag at `vsAt`), so
// that the OLT can repeat it: the blank-separated word that holds ":eth" or
// ":atm". Only on a PON port of a pon-olt device whose Circuit-ID format is
// DEFAULT. Never rejects the frame.
void pppoeplusPonLineIdGet(const tPppoePlusIfEntry* entry, tPppoePlusPkt* pkt, uint32_t vsAt) {
    if (entry == nullptr) return;
    const bool pon = pppoeplusOndTypeIsPon(entry->phyInfo.ondType);
    uint32_t formatType;
    if (entry->circuitIdFormatType == PPPOEPLUS_FORMAT_TYPE_DEFAULT && !pon)
        formatType = gPppoeplus.circuitIdFormatType;
    else if (entry->circuitIdFormatType != PPPOEPLUS_FORMAT_TYPE_DEFAULT)
        formatType = entry->circuitIdFormatType;
    else
        formatType = gPppoeplus.ponCircuitIdFormatType;
    if (formatType != PPPOEPLUS_FORMAT_TYPE_DEFAULT || !pon || gPppoeplus.ponDefaultType != PPPOEPLUS_PON_TYPE_OLT)
        return;

    // Sub-option: code at vsAt + 8, length at vsAt + 9, value from vsAt + 10.
    const uint32_t n = pppoeplusPktByte(pkt, vsAt + 9);
    if (n == 0) return;
    const uint32_t value = vsAt + 10;

    uint32_t wordStart = 0;
    bool hasWord = true;
    uint32_t wordLen = 0;
    bool found = false;
    for (uint32_t i = 0; i < n; i++) {
        const uint8_t c = pppoeplusPktByte(pkt, value + i);
        if (c == ' ') {
            if (found) break;
            hasWord = i + 1 < n;
            wordStart = i + 1;
            wordLen = 0;
            continue;
        }
        wordLen++;
        if (c == ':' && i + 3 < n) {
            const uint8_t a = pppoeplusPktByte(pkt, value + i + 1);
            const uint8_t b = pppoeplusPktByte(pkt, value + i + 2);
            const uint8_t d = pppoeplusPktByte(pkt, value + i + 3);
            if ((a == 'e' && b == 't' && d == 'h') || (a == 'a' && b == 't' && d == 'm')) found = true;
        }
    }
    if (!found || !hasWord || wordLen >= PPPOEPLUS_PON_LINE_ID_LEN) return;

    // The record was zeroed, so the copy stays terminated.
    for (uint32_t i = 0; i < wordLen; i++)
        pkt->ponLineId[i] = static_cast<char>(pppoeplusPktByte(pkt, value + wordStart + i));
    PPPOEPLUS_RECV_LOG(PPPOEPLUS_DEBUG_EVENT, "copy pon string4:%s.\r\n", pkt->ponLineId);
}

}  // namespace

const char* pppoeplusPktTypeStr(uint8_t code) {
    switch (code) {
        case PPPOEPLUS_CODE_PADI: return "PADI";
        case PPPOEPLUS_CODE_PADO: return "PADO";
        case PPPOEPLUS_CODE_PADR: return "PADR";
        case PPPOEPLUS_CODE_PADS: return "PADS";
        case PPPOEPLUS_CODE_PADT: return "PADT";
        default: return "INVALID";
    }
}

int32_t pppoeplusPktParse(tPppoePlusIfEntry* entry, tPppoePlusPkt* pkt) {
    if (pkt == nullptr || pkt->data == nullptr) return -1;

    const uint8_t verType = pppoeplusPktByte(pkt, 0);
    const uint8_t code = pppoeplusPktByte(pkt, 1);
    const uint16_t sessionId = pppoeplusPktGet16(pkt, 2);
    const uint16_t payloadLen = pppoeplusPktPayloadLen(pkt);

    PPPOEPLUS_RECV_LOG(PPPOEPLUS_DEBUG_EVENT, "Received a %s packet.\r\n", pppoeplusPktTypeStr(code));

    if ((verType >> 4) != 1) {
        PPPOEPLUS_ERROR_LOG("Version must be set to 0x1!\r\n");
        return -1;
    }
    if ((verType & 0x0F) != 1) {
        PPPOEPLUS_ERROR_LOG("Type must be set to 0x1!\r\n");
        return -1;
    }
    PPPOEPLUS_ERROR_LOG("Packet length %d, version&Type 0x%0x, Payload length %d, Session-ID %d.\r\n",
                        payloadLen + static_cast<int>(PPPOEPLUS_HDR_LEN), verType, payloadLen, sessionId);

    // The header and payload must fit in what was received; the sum is a
    // 16-bit one, as the length field is.
    const uint16_t pppoeLen = static_cast<uint16_t>(payloadLen + PPPOEPLUS_HDR_LEN);
    if (pppoeLen > pkt->len) {
        PPPOEPLUS_ERROR_LOG("Payload length is ERROR!\r\n");
        return -1;
    }
    pkt->pppoeLen = pppoeLen;

    // Only a warning: the PADT is processed all the same.
    if (code == PPPOEPLUS_CODE_PADT && payloadLen != 0) PPPOEPLUS_ERROR_LOG("No TAGs are required in PADT!\r\n");

    if (sessionId == PPPOEPLUS_SESSION_ID_INVALID) {
        PPPOEPLUS_ERROR_LOG("Session-id must not be 0xffff!\r\n");
        return -1;
    }
    if (sessionId != 0 &&
        (code == PPPOEPLUS_CODE_PADI || code == PPPOEPLUS_CODE_PADO || code == PPPOEPLUS_CODE_PADR)) {
        PPPOEPLUS_ERROR_LOG("Session-id must be zero in PADI, PADO and PADR!\r\n");
        return -1;
    }

    // The tag walk. The offset is 16-bit, so a huge tag length wraps it back
    // into the payload; the next offset depends only on the current one, and
    // every offset that does not end the walk has its tag header starting
    // inside the buffer, so more steps than the buffer has bytes means the
    // walk has entered a cycle it would never leave: a length error.
    const uint32_t held = pppoeplusPktHeld(pkt);
    const uint32_t maxSteps = held + 1;
    uint32_t steps = 0;
    uint16_t offset = 0;
    uint8_t vsCount = 0;
    while (offset < payloadLen) {
        if (++steps > maxSteps) {
            PPPOEPLUS_ERROR_LOG("Packet length is ERROR!\r\n");
            return -1;
        }
        const uint32_t at = PPPOEPLUS_HDR_LEN + offset;
        const uint16_t tagType = pppoeplusPktGet16(pkt, at);
        const uint16_t tagLen = pppoeplusPktGet16(pkt, at + 2);
        if (tagType == PPPOEPLUS_TAG_EOL) {
            if (tagLen != 0) {
                PPPOEPLUS_ERROR_LOG("Length of the End-of-List TAG must be 0!\r\n");
                return -1;
            }
            if (static_cast<uint32_t>(offset) + PPPOEPLUS_TAG_HDR_LEN != payloadLen) {
                PPPOEPLUS_ERROR_LOG("End-of-List must be the last TAG!\r\n");
                return -1;
            }
            if (pkt->eolTag == nullptr) {
                // Only a payload length whose sum with the header wrapped
                // past 65535 can put the last tag outside the buffer.
                if (at + PPPOEPLUS_TAG_HDR_LEN > held) {
                    PPPOEPLUS_ERROR_LOG("Packet length is ERROR!\r\n");
                    return -1;
                }
                pkt->eolTag = pkt->data + at;
            }
        } else if (tagType == PPPOEPLUS_TAG_VENDOR_SPEC) {
            vsCount++;
            // A non-zero type lies inside the buffer, so does the pointer.
            if (pkt->vsTag == nullptr) {
                pkt->vsTag = pkt->data + at;
                if (tagLen >= 7 && pppoeplusPktByte(pkt, at + 8) == 1) pppoeplusPonLineIdGet(entry, pkt, at);
            }
        }
        offset = static_cast<uint16_t>(offset + tagLen + PPPOEPLUS_TAG_HDR_LEN);
    }

    if (vsCount >= 2) {
        PPPOEPLUS_ERROR_LOG("Pcaket cann't include multiple Vendor-specific tags!\r\n");
        return -1;
    }
    if (offset != payloadLen) {
        PPPOEPLUS_ERROR_LOG("Packet length is ERROR!\r\n");
        return -1;
    }
    return 0;
}

void pppoeplusPktShow(const uint8_t* buf, uint32_t len, uint32_t direction) {
    if (buf == nullptr || len == 0) return;
    const uint32_t level = direction < PPPOEPLUS_SUB_NUM ? gPppoeplus.logLevel[direction] : 0;
    loggingDebugOutput(PPPOEPLUS_MODULE_BASE + direction, level, LOG_PART_FIRST, "%s\r\n", PPPOEPLUS_PKT_SHOW_RULE);
    for (uint32_t i = 0; i < len; i++) {
        if (i != 0 && i % 16 == 0)
            loggingDebugOutput(PPPOEPLUS_MODULE_BASE, 0, LOG_PART_MIDDLE, "\r\n%02x ", buf[i]);
        else
            loggingDebugOutput(PPPOEPLUS_MODULE_BASE, 0, LOG_PART_MIDDLE, "%02x ", buf[i]);
    }
    loggingDebugOutput(PPPOEPLUS_MODULE_BASE, 0, LOG_PART_LAST, "\r\n%s\r\n", PPPOEPLUS_PKT_SHOW_RULE);
}
