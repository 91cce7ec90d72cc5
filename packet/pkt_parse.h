// PPPoE discovery frames as the daemon reads them: the parsed-packet record
// that travels with a received frame through the packet path and the format
// engine, the validation of a frame, the code names and the hex dump.
//
// The frame buffer starts at the PPPoE header (the Ethernet addresses and
// VLAN tags come with the frame as control information):
//   byte 0      version (high nibble, 1) and type (low nibble, 1)
//   byte 1      code: PADI 0x09, PADO 0x07, PADR 0x19, PADS 0x65, PADT 0xA7
//   bytes 2-3   session id
//   bytes 4-5   payload length
//   bytes 6 on  tags: type (2 bytes), length (2 bytes), value
// All multi-byte fields are big-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "iftable/if_entry.h"
#include "platform/types.h"

// PPPoE discovery codes.
constexpr uint8_t PPPOEPLUS_CODE_PADI = 0x09;
constexpr uint8_t PPPOEPLUS_CODE_PADO = 0x07;
constexpr uint8_t PPPOEPLUS_CODE_PADR = 0x19;
constexpr uint8_t PPPOEPLUS_CODE_PADS = 0x65;
constexpr uint8_t PPPOEPLUS_CODE_PADT = 0xA7;

// Header and tag layout.
constexpr uint32_t PPPOEPLUS_HDR_LEN = 6;
constexpr uint32_t PPPOEPLUS_TAG_HDR_LEN = 4;
constexpr uint16_t PPPOEPLUS_TAG_EOL = 0x0000;
constexpr uint16_t PPPOEPLUS_TAG_VENDOR_SPEC = 0x0105;
constexpr uint16_t PPPOEPLUS_SESSION_ID_INVALID = 0xFFFF;

// The PON line id taken from a client's own Circuit-ID: at most 27 bytes and
// a terminator.
constexpr uint32_t PPPOEPLUS_PON_LINE_ID_LEN = 28;

// The platform's ONU identity block (16 bytes): word 0 the interface unit,
// word 1 (host order) the ONU number in bits 8-19 and the identifier length in
// bits 0-7 (byte 7 on the big-endian target), bytes 8-15 the identifier.
constexpr uint32_t PPPOEPLUS_ONU_INFO_LEN = 16;
constexpr uint32_t PPPOEPLUS_ONU_SN_OFFSET = 8;
constexpr uint32_t PPPOEPLUS_ONU_SN_LEN = 8;

inline uint32_t pppoeplusOnuWord(const uint8_t* onuInfo) {
    uint32_t word = 0;
    std::memcpy(&word, onuInfo + 4, sizeof(word));
    return word;
}
inline uint32_t pppoeplusOnuNumber(const uint8_t* onuInfo) { return (pppoeplusOnuWord(onuInfo) >> 8) & 0xFFFu; }
inline uint32_t pppoeplusOnuSnLen(const uint8_t* onuInfo) { return pppoeplusOnuWord(onuInfo) & 0xFFu; }

// One received frame, zeroed and filled per frame by the receive path.
struct tPppoePlusPkt {
    uint8_t* data;               // start of the PPPoE header in the frame buffer
    uint16_t len;                // bytes of the frame held in the buffer
    uint16_t pppoeLen;           // 6 + payload length, as validated
    tPppoePlusIfEntry* pIf;      // the receiving interface's entry
    uint8_t* eolTag;             // the End-of-List tag, null if none
    uint8_t* vsTag;              // the first Vendor-Specific tag, null if none
    uint8_t srcMac[6];           // Ethernet source (the client)
    uint8_t dstMac[6];           // Ethernet destination
    uint16_t innerVid;           // customer VLAN id, 0 if none
    uint16_t outerVid;           // service VLAN id, 0 if none
    uint8_t innerPri;
    uint8_t outerPri;
    char ponLineId[PPPOEPLUS_PON_LINE_ID_LEN];  // NUL-terminated, empty if none
    const uint8_t* onuInfo;      // copy of the ONU identity block, null if none
    // Bytes the buffer at `data` really holds (at least `len`); 0 means
    // exactly `len`. Every read of the packet path stays below it, a byte at
    // or past it reading as 0 as it would in a zeroed buffer, and every write
    // stays below it.
    uint32_t bufSize;
};

// Bytes the buffer of `pkt` holds.
inline uint32_t pppoeplusPktHeld(const tPppoePlusPkt* pkt) { return pkt->bufSize != 0 ? pkt->bufSize : pkt->len; }

// Byte `offset` of the frame buffer; 0 at or past what the buffer holds.
inline uint8_t pppoeplusPktByte(const tPppoePlusPkt* pkt, uint32_t offset) {
    return offset < pppoeplusPktHeld(pkt) ? pkt->data[offset] : 0;
}

// Big-endian 16-bit value at `offset`, read as above.
inline uint16_t pppoeplusPktGet16(const tPppoePlusPkt* pkt, uint32_t offset) {
    return static_cast<uint16_t>((pppoeplusPktByte(pkt, offset) << 8) | pppoeplusPktByte(pkt, offset + 1));
}

// The payload length of the PPPoE header.
inline uint16_t pppoeplusPktPayloadLen(const tPppoePlusPkt* pkt) { return pppoeplusPktGet16(pkt, 4); }

// Validates the frame of `pkt` (data and len set, all else zero) received on
// `entry`. 0 when it is acceptable, with pppoeLen, eolTag, vsTag and possibly
// ponLineId filled; -1 otherwise, after its message. The frame is not changed.
int32_t pppoeplusPktParse(tPppoePlusIfEntry* entry, tPppoePlusPkt* pkt);

// "PADI", "PADO", "PADR", "PADS", "PADT" or "INVALID".
const char* pppoeplusPktTypeStr(uint8_t code);

// Hex dump of `len` bytes to the debug log as one block of 16-byte lines;
// `direction` 0 for a received frame, 1 for a sent one.
void pppoeplusPktShow(const uint8_t* buf, uint32_t len, uint32_t direction);
