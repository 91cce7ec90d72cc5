// Fuzz target of the packet path: frame parsing, the Vendor-Specific tag
// (build, insert, drop, with format texts taken from the input) and the whole
// receive path on the simulated device.
//
// An input is three configuration bytes, a format text and a frame:
//   byte 0  bits 0-1 global tag policy, bits 2-3 the port's policy,
//           bit 4 the frame comes in on the GPON port (else the Ethernet one),
//           bit 5 the device is a pon-onu (else a pon-olt),
//           bit 6 every debug switch on, bit 7 the test-forward switch on
//   byte 1  bits 0-1 the port's Circuit-ID format type, bits 2-3 its
//           Remote-ID format type (0 DEFAULT, 1 USERDEFINE, 2 ASCII, 3 an
//           unknown type), bit 4 an ONU identity block comes with the frame,
//           bit 5 outer VLAN 100, bit 6 inner VLAN 200, bit 7 the global
//           Circuit-ID formats are the input's text too
//   byte 2  L, the length of the format text that follows
//   then    L bytes of format text (both formats of the port), then the
//           frame from the PPPoE header on.
// Shorter inputs are a frame alone.
//
// Each input is run three ways:
//   1. parsed and handled in a heap buffer of exactly its size, so that the
//      sanitizers see any read or write past it;
//   2. received through the packet socket like a trapped frame;
//   3. for a frame whose tags tile its payload, in the receive buffer's
//      layout: the agent's tag is inserted, the frame parsed again and the
//      tag dropped, which must give back the frame.
// pppoeplusFuzzPacketOne returns what went wrong, empty when nothing did.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "agent/global.h"
#include "daemon/startup.h"
#include "iftable/if_entry.h"
#include "iftable/trust_list.h"
#include "packet/pkt_parse.h"
#include "packet/pkt_recv.h"
#include "packet/vendor_tag.h"
#include "platform/common/mem_pool.h"
#include "platform/sim/sim.h"
#include "platform/types.h"

namespace pppoeplusfuzz {

constexpr uint32_t kEthUnit = 1;
constexpr uint32_t kPonUnit = 3;
constexpr uint32_t kUplinks[2] = {10, 11};

inline uint8_t gDefaultCircuitId[sizeof(tPppoeplusFormat)];
inline uint8_t gDefaultPonCircuitId[sizeof(tPppoeplusFormat)];

// A simulated device with an Ethernet port, a GPON port and two uplinks, and
// a started agent. Call once before the inputs.
inline void pppoeplusFuzzSetUp() {
    memPoolDestroy(&gPppoeplus.ifPool);
    std::memset(&gPppoeplus, 0, sizeof(gPppoeplus));
    gPppoeplusInit = 0;
    gPppoeplusTestForward = 0;
    sim::reset();

    sim::addInterface(kEthUnit, "eth0/1", ZEL_OND_ETH, ZEL_IFTYPE_ETHERNET);
    sim::Interface& pon = sim::addInterface(kPonUnit, "gpon0/3", ZEL_OND_GPON, ZEL_IFTYPE_GPON);
    pon.phyInfo.slotNo = 2;
    pon.phyInfo.portNo = 5;
    for (uint32_t unit : kUplinks) sim::addInterface(unit, "eth0/" + std::to_string(unit), ZEL_OND_ETH);
    sim::setScalarBytes(ZEL_SCALAR_SYS_MAC, {0x00, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE});
    sim::setScalarText(ZEL_SCALAR_DEVICE_NAME, "fuzz-device");
    sim::setScalarText(ZEL_SCALAR_SYS_NAME, "fuzz-system");

    pppoeplusInit(0, 1, 0, PPPOEPLUS_PON_TYPE_OLT, 0, 0, 1, 1, 0, 0);
    pppoeplusIfEntryAdd(kEthUnit, 1);
    pppoeplusIfEntryAdd(kPonUnit, 1);
    for (uint32_t unit : kUplinks) {
        tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(unit, 1);
        if (e == nullptr) continue;
        pppoeplusIfTrustSet(e, ZEL_TRUE);
        pppoeplusTrustIfEntryAttach(e);
    }
    std::memcpy(gDefaultCircuitId, &gPppoeplus.circuitIdFormat, sizeof(tPppoeplusFormat));
    std::memcpy(gDefaultPonCircuitId, &gPppoeplus.ponCircuitIdFormat, sizeof(tPppoeplusFormat));
}

inline uint32_t pppoeplusFuzzFormatType(uint32_t bits) { return bits == 3 ? 7 : bits; }

inline void pppoeplusFuzzSetFormat(tPppoeplusFormat* f, const uint8_t* text, size_t len) {
    std::memset(f->format, 0, sizeof(f->format));
    if (len > 0) std::memcpy(f->format, text, len);
    f->formatLen = static_cast<uint16_t>(len);
}

// True when the tags tile the payload one after another, as the walk reads
// them without any 16-bit wrap.
inline bool pppoeplusFuzzPlainTags(const uint8_t* frame, size_t len) {
    if (len < 6) return false;
    const size_t payload = (static_cast<size_t>(frame[4]) << 8) | frame[5];
    if (payload + 6 > len) return false;
    size_t off = 0;
    while (off + 4 <= payload) {
        const size_t tagLen = (static_cast<size_t>(frame[6 + off + 2]) << 8) | frame[6 + off + 3];
        off += 4 + tagLen;
    }
    return off == payload;
}

// True when `p` is null or a 4-byte tag header at `p` starts inside the
// `held` bytes of the frame buffer and ends at most `over` bytes past them.
inline bool pppoeplusFuzzInside(const tPppoePlusPkt* pkt, const uint8_t* p, size_t held, size_t over) {
    if (p == nullptr) return true;
    const auto base = reinterpret_cast<uintptr_t>(pkt->data);
    const auto at = reinterpret_cast<uintptr_t>(p);
    return at >= base && at - base < held && at - base + 4 <= held + over;
}

inline std::string pppoeplusFuzzPacketOne(const uint8_t* input, size_t size) {
    std::string problems;

    // ---- configuration ----
    uint8_t flags = 0;
    uint8_t formats = 0;
    const uint8_t* text = nullptr;
    size_t textLen = 0;
    const uint8_t* frame = input;
    size_t frameLen = size;
    if (size >= 3) {
        flags = input[0];
        formats = input[1];
        textLen = std::min<size_t>({input[2], size - 3, 255});
        text = input + 3;
        frame = input + 3 + textLen;
        frameLen = size - 3 - textLen;
    }
    frameLen = std::min<size_t>(frameLen, 2000);

    tPppoePlusIfEntry* entry = pppoeplusIfEntryGet((flags & 0x10) ? kPonUnit : kEthUnit);
    if (entry == nullptr) return "no interface entry";
    for (uint32_t unit : {kEthUnit, kPonUnit}) {
        tPppoePlusIfEntry* e = pppoeplusIfEntryGet(unit);
        if (e != nullptr) {
            pppoeplusIfPolicySet(e, 0);
            e->circuitIdFormatType = 0;
            e->remoteIdFormatType = 0;
        }
    }
    pppoeplusPolicySet(flags & 0x3);
    pppoeplusIfPolicySet(entry, (flags >> 2) & 0x3);
    gPppoeplus.ponDefaultType = (flags & 0x20) ? PPPOEPLUS_PON_TYPE_ONU : PPPOEPLUS_PON_TYPE_OLT;
    pppoeplusDebugSwitchSet((flags & 0x40) ? 0xF : 0);
    gPppoeplusTestForward = (flags & 0x80) ? 1 : 0;
    entry->circuitIdFormatType = pppoeplusFuzzFormatType(formats & 0x3);
    entry->remoteIdFormatType = pppoeplusFuzzFormatType((formats >> 2) & 0x3);
    pppoeplusFuzzSetFormat(&entry->circuitIdFormat, text, textLen);
    pppoeplusFuzzSetFormat(&entry->remoteIdFormat, text, textLen);
    std::memcpy(&gPppoeplus.circuitIdFormat, gDefaultCircuitId, sizeof(tPppoeplusFormat));
    std::memcpy(&gPppoeplus.ponCircuitIdFormat, gDefaultPonCircuitId, sizeof(tPppoeplusFormat));
    gPppoeplus.circuitIdFormatType = 0;
    gPppoeplus.ponCircuitIdFormatType = 0;
    if (formats & 0x80) {
        pppoeplusFuzzSetFormat(&gPppoeplus.circuitIdFormat, text, textLen);
        pppoeplusFuzzSetFormat(&gPppoeplus.ponCircuitIdFormat, text, textLen);
        gPppoeplus.circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
        gPppoeplus.ponCircuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
    }
    std::array<uint8_t, PPPOEPLUS_ONU_INFO_LEN> onu{};
    const uint32_t onuWord = (0x7u << 8) | 8u;
    std::memcpy(onu.data() + 4, &onuWord, 4);
    std::memcpy(onu.data() + 8, "FUZZ\x01\x02\x03\x04", 8);
    const uint16_t outerVid = (formats & 0x20) ? 100 : 0;
    const uint16_t innerVid = (formats & 0x40) ? 200 : 0;

    sim::g.logs.clear();
    sim::g.calls.clear();
    sim::g.callCounts.clear();
    sim::g.sent.clear();

    // ---- 1. an exact heap buffer ----
    {
        const size_t heldLen = std::min<size_t>(frameLen, PPPOEPLUS_PKT_BUF_LEN);
        std::unique_ptr<uint8_t[]> buf(new uint8_t[heldLen == 0 ? 1 : heldLen]);
        if (heldLen > 0) std::memcpy(buf.get(), frame, heldLen);
        tPppoePlusPkt pkt{};
        pkt.data = buf.get();
        pkt.len = static_cast<uint16_t>(heldLen);
        pkt.bufSize = static_cast<uint32_t>(heldLen);
        pkt.pIf = entry;
        pkt.outerVid = outerVid;
        pkt.innerVid = innerVid;
        if (formats & 0x10) pkt.onuInfo = onu.data();
        if (pppoeplusPktParse(entry, &pkt) == 0) {
            // A Vendor-Specific type lies inside the buffer, its length field
            // may not; an End-of-List tag lies inside as a whole.
            if (!pppoeplusFuzzInside(&pkt, pkt.vsTag, heldLen, 2) || !pppoeplusFuzzInside(&pkt, pkt.eolTag, heldLen, 0))
                problems += "tag recorded outside the frame; ";
            if (pkt.pppoeLen > pkt.len) problems += "pppoeLen beyond len; ";
            if (strnlen(pkt.ponLineId, sizeof(pkt.ponLineId)) == sizeof(pkt.ponLineId)) problems += "line id unterminated; ";
            pppoeplusClientPktRecv(entry, &pkt);
            if (pkt.len > heldLen) problems += "frame grew past its buffer; ";
        }
    }

    // ---- 2. the receive path ----
    {
        sim::Frame f{};
        f.bytes.assign(frame, frame + frameLen);
        f.ifUnit = entry->ifUnit;
        f.withInfo = true;
        std::memset(&f.info, 0, sizeof(f.info));
        const uint8_t src[6] = {0x00, 0x0C, 0x29, 0x00, 0x00, 0x01};
        std::memcpy(f.info.srcMac, src, 6);
        std::memset(f.info.dstMac, 0xFF, 6);
        f.info.outerVid = outerVid;
        f.info.innerVid = innerVid;
        if (formats & 0x10) {
            f.info.onuPresent = 1;
            f.info.flags = ZEL_RXINFO_ONU_VALID;
            std::memcpy(f.info.onuInfo, onu.data(), onu.size());
        }
        sim::g.sent.clear();
        sim::pushFrame(gPppoeplus.pktFd, f);
        pppoeplusPktRecv();
        for (const sim::Sent& s : sim::g.sent)
            if (s.bytes.size() > PPPOEPLUS_PKT_BUF_LEN) problems += "sent more than 1400 bytes; ";
        sim::g.sockets[gPppoeplus.pktFd].frames.clear();
    }

    // ---- 3. insert, parse again, drop ----
    if (frameLen <= PPPOEPLUS_PKT_BUF_LEN && pppoeplusFuzzPlainTags(frame, frameLen) &&
        (static_cast<size_t>(frame[4]) << 8 | frame[5]) + 6 == frameLen) {
        std::vector<uint8_t> buf(PPPOEPLUS_PKT_BUF_LEN + PPPOEPLUS_PKT_BUF_SLACK, 0);
        std::memcpy(buf.data(), frame, frameLen);
        tPppoePlusPkt pkt{};
        pkt.data = buf.data();
        pkt.len = static_cast<uint16_t>(frameLen);
        pkt.bufSize = static_cast<uint32_t>(buf.size());
        pkt.pIf = entry;
        pkt.outerVid = outerVid;
        pkt.innerVid = innerVid;
        if (formats & 0x10) pkt.onuInfo = onu.data();
        if (pppoeplusPktParse(entry, &pkt) == 0 && pkt.vsTag == nullptr) {
            const uint8_t* tagAt = pkt.eolTag != nullptr ? pkt.eolTag : pkt.data + pkt.pppoeLen;
            const size_t tagOffset = static_cast<size_t>(tagAt - pkt.data);
            const uint32_t size = pppoeplusVendorSpecTagInsert(entry, &pkt);
            // Only a tag whose length field covers it reads back as one tag.
            if (size != PPPOEPLUS_VS_TAG_FAIL &&
                ((static_cast<uint32_t>(buf[tagOffset + 2]) << 8) | buf[tagOffset + 3]) + 4 == size) {
                tPppoePlusPkt again{};
                again.data = buf.data();
                again.len = pkt.len;
                again.bufSize = pkt.bufSize;
                if (pppoeplusPktParse(entry, &again) != 0) {
                    problems += "frame with the agent's tag refused; ";
                } else if (again.vsTag != buf.data() + tagOffset) {
                    problems += "agent's tag not found where inserted; ";
                } else if (pppoeplusVendorSpecTagDrop(entry, &again) != 0) {
                    problems += "agent's tag not dropped; ";
                } else if (again.len != frameLen || std::memcmp(buf.data(), frame, frameLen) != 0) {
                    problems += "insert then drop changed the frame; ";
                }
            }
        }
    }
    return problems;
}

}  // namespace pppoeplusfuzz
