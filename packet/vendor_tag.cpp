// Building, inserting and dropping the Vendor-Specific tag.
//
// Insertion and removal rewrite the frame in place. Both work on offsets from
// the start of the frame and check, before anything is changed, that every
// byte they read, move or write lies inside what the buffer holds (for a
// record the parser filled this always holds; the checks keep an inconsistent
// record from reaching outside the buffer).
#include "packet/vendor_tag.h"

#include <cstring>

#include "agent/global.h"
#include "packet/id_build.h"
#include "packet/pkt_log.h"

namespace {

void pppoeplusPut16(uint8_t* p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
}

void pppoeplusPut32(uint8_t* p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v >> 24);
    p[1] = static_cast<uint8_t>(v >> 16);
    p[2] = static_cast<uint8_t>(v >> 8);
    p[3] = static_cast<uint8_t>(v);
}

// Offset of `p` in the frame buffer of `pkt`, or -1 when it is not inside
// the held bytes (the end included).
int64_t pppoeplusPktOffset(const tPppoePlusPkt* pkt, const uint8_t* p) {
    const auto base = reinterpret_cast<uintptr_t>(pkt->data);
    const auto at = reinterpret_cast<uintptr_t>(p);
    if (at < base || at - base > pppoeplusPktHeld(pkt)) return -1;
    return static_cast<int64_t>(at - base);
}

}  // namespace

uint32_t pppoePlusVendorSpecTagBuild(tPppoePlusIfEntry* entry, tPppoePlusPkt* pkt, uint8_t* buf, uint32_t capacity) {
    if (entry == nullptr || pkt == nullptr || buf == nullptr || capacity < 10) return 0;

    pppoeplusPut16(buf, PPPOEPLUS_TAG_VENDOR_SPEC);
    pppoeplusPut32(buf + 4, gPppoeplus.vendorId);
    buf[8] = PPPOEPLUS_SUBOPT_CIRCUIT_ID;
    buf[9] = 0;

    // Only the low 16 bits of a built length are used.
    const uint32_t circuitIdLen = pppoeplusBuildFormat(entry, pkt, buf + 10, capacity - 10, PPPOEPLUS_BUILD_CIRCUIT_ID) & 0xFFFFu;
    if (circuitIdLen == 0) {
        // The tag length covers the vendor id only, while the 10 bytes
        // returned hold the empty Circuit-ID sub-option header too.
        pppoeplusPut16(buf + 2, 4);
        return 10;
    }
    buf[9] = static_cast<uint8_t>(circuitIdLen);
    uint32_t size = circuitIdLen + 10;

    // The port kind is the one the format engine has just refreshed.
    if (!pppoeplusOndTypeIsPon(entry->phyInfo.ondType)) {
        const uint32_t remoteIdAt = circuitIdLen + 12;
        // No room for the Remote-ID sub-option header: report the size the
        // tag would need, which its user refuses.
        if (remoteIdAt > capacity) return remoteIdAt;
        buf[size] = PPPOEPLUS_SUBOPT_REMOTE_ID;
        buf[size + 1] = 0;
        const uint32_t remoteIdLen =
            pppoeplusBuildFormat(entry, pkt, buf + remoteIdAt, capacity - remoteIdAt, PPPOEPLUS_BUILD_REMOTE_ID) & 0xFFFFu;
        // An empty Remote-ID returns at once and leaves the tag length
        // field zero, as the zeroed buffer has it.
        if (remoteIdLen == 0) return remoteIdAt;
        buf[circuitIdLen + 11] = static_cast<uint8_t>(remoteIdLen);
        size = remoteIdAt + remoteIdLen;
    }

    pppoeplusPut16(buf + 2, size - 4);
    return size;
}

uint32_t pppoeplusVendorSpecTagInsert(tPppoePlusIfEntry* entry, tPppoePlusPkt* pkt) {
    if (pkt == nullptr || pkt->data == nullptr) return PPPOEPLUS_VS_TAG_FAIL;

    uint8_t tag[PPPOEPLUS_VS_TAG_BUF_LEN] = {};
    const uint32_t size = pppoePlusVendorSpecTagBuild(entry, pkt, tag, sizeof(tag));
    if (size == 0 || size > PPPOEPLUS_VS_TAG_BUF_LEN || pkt->len + size > PPPOEPLUS_PKT_MAX_LEN)
        return PPPOEPLUS_VS_TAG_FAIL;

    // Where the tag goes and how many bytes are written there: before the
    // End-of-List tag, which is written again behind it, or at the end of
    // the validated payload.
    const uint32_t held = pppoeplusPktHeld(pkt);
    const int64_t at = pkt->eolTag != nullptr ? pppoeplusPktOffset(pkt, pkt->eolTag) : pkt->pppoeLen;
    const uint32_t span = size + (pkt->eolTag != nullptr ? PPPOEPLUS_TAG_HDR_LEN : 0);
    if (held < PPPOEPLUS_HDR_LEN || pkt->len + size > held || at < 0 || static_cast<uint64_t>(at) + span > held)
        return PPPOEPLUS_VS_TAG_FAIL;

    uint8_t* dst = pkt->data + at;
    if (pkt->eolTag != nullptr) {
        PPPOEPLUS_RECV_LOG(PPPOEPLUS_DEBUG_EVENT, "End-Of-List Tag is already exist, insert the tag before it.\r\n");
        std::memcpy(dst, tag, size);
        std::memset(dst + size, 0, PPPOEPLUS_TAG_HDR_LEN);
    } else {
        PPPOEPLUS_RECV_LOG(PPPOEPLUS_DEBUG_EVENT,
                           "End-Of-List Tag is not exist, insert the tag to the end of the packet.\r\n");
        std::memcpy(dst, tag, size);
    }

    pkt->len = static_cast<uint16_t>(pkt->len + size);
    pppoeplusPut16(pkt->data + 4, static_cast<uint16_t>(pppoeplusPktPayloadLen(pkt) + size));
    return size;
}

uint32_t pppoeplusVendorSpecTagDrop(tPppoePlusIfEntry* entry, tPppoePlusPkt* pkt) {
    (void)entry;
    if (pkt == nullptr || pkt->data == nullptr || pkt->vsTag == nullptr) return PPPOEPLUS_VS_TAG_FAIL;

    const uint32_t held = pppoeplusPktHeld(pkt);
    const int64_t vsAt = pppoeplusPktOffset(pkt, pkt->vsTag);
    if (held < PPPOEPLUS_HDR_LEN || pkt->len > held || vsAt < 0) return PPPOEPLUS_VS_TAG_FAIL;

    // Size of the recorded tag, modulo 65536 as its length field is 16-bit.
    const uint32_t size = (pppoeplusPktGet16(pkt, static_cast<uint32_t>(vsAt) + 2) + PPPOEPLUS_TAG_HDR_LEN) & 0xFFFFu;
    const int64_t behind = static_cast<int64_t>(pkt->len) - vsAt - size;
    if (behind < 0) return PPPOEPLUS_VS_TAG_FAIL;

    // The End-of-List tag moves back by the tag's size; it cannot move in
    // front of the frame.
    int64_t eolAt = -1;
    if (pkt->eolTag != nullptr) {
        eolAt = pppoeplusPktOffset(pkt, pkt->eolTag);
        if (eolAt < static_cast<int64_t>(size)) return PPPOEPLUS_VS_TAG_FAIL;
    }

    std::memmove(pkt->vsTag, pkt->vsTag + size, static_cast<size_t>(behind));
    pkt->len = static_cast<uint16_t>(pkt->len - size);
    pkt->pppoeLen = static_cast<uint16_t>(pkt->pppoeLen - size);
    pppoeplusPut16(pkt->data + 4, static_cast<uint16_t>(pppoeplusPktPayloadLen(pkt) - size));
    if (eolAt >= 0) pkt->eolTag = pkt->data + (eolAt - size);
    return 0;
}
