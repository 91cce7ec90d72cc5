// Fuzz target of the format engine: simplification of a typed text, checking
// (of the raw text and of its simplified form), building the Circuit-ID or
// Remote-ID of a frame from it, and recovery of the typed text.
//
// An input is two configuration bytes and the typed text:
//   byte 0  bits 0-1 the record whose keyword table is used and which is
//           built from: 0 the port's Circuit-ID, 1 the port's Remote-ID,
//           2 the global Circuit-ID, 3 the global PON Circuit-ID;
//           bit 2 the frame comes in on the GPON port; bit 3 the device is a
//           pon-onu; bit 4 the format is stored as ASCII (copied) rather than
//           USERDEFINE; bit 5 the frame carries VLAN ids 100/200 and an ONU
//           block; bit 6 every debug switch on
//   byte 1  the room given to the segment simplifiers and to the builder
//           (0 means 256)
//   then    the typed text (at most 300 bytes are used).
// Every buffer handed to the code under test is a heap block of exactly the
// room it is said to have, so that the sanitizers see a write past it.
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "format/format_check.h"
#include "format/format_simplify.h"
#include "fuzz/fuzz_target.h"
#include "fuzz/pkt_fuzz_target.h"
#include "packet/id_build.h"

namespace pppoeplusfuzz {

const char* const kTargetName = "format_fuzz";

void targetSetUp() { pppoeplusFuzzSetUp(); }

namespace {

std::unique_ptr<char[]> exactCopy(const uint8_t* p, size_t n) {
    std::unique_ptr<char[]> out(new char[n == 0 ? 1 : n]);
    if (n > 0) std::memcpy(out.get(), p, n);
    return out;
}

}  // namespace

std::string targetOne(const uint8_t* data, size_t size) {
    std::string problems;
    if (size < 2) return problems;
    const uint8_t flags = data[0];
    const uint32_t room = data[1] == 0 ? 256 : data[1];
    const uint8_t* text = data + 2;
    const size_t textLen = std::min<size_t>(size - 2, 300);

    sim::g.logs.clear();
    sim::g.calls.clear();
    sim::g.callCounts.clear();
    sim::g.hwilCalls.clear();
    pppoeplusDebugSwitchSet((flags & 0x40) ? 0xF : 0);
    gPppoeplus.ponDefaultType = (flags & 0x08) ? PPPOEPLUS_PON_TYPE_ONU : PPPOEPLUS_PON_TYPE_OLT;
    tPppoePlusIfEntry* entry = pppoeplusIfEntryGet((flags & 0x04) ? kPonUnit : kEthUnit);
    if (entry == nullptr) return "no interface entry";

    // The record the text goes to, and which text is built from it.
    tPppoeplusFormat* target = nullptr;
    uint32_t* targetType = nullptr;
    uint32_t which = PPPOEPLUS_BUILD_CIRCUIT_ID;
    switch (flags & 0x3) {
        case 0: target = &entry->circuitIdFormat; targetType = &entry->circuitIdFormatType; break;
        case 1:
            target = &entry->remoteIdFormat;
            targetType = &entry->remoteIdFormatType;
            which = PPPOEPLUS_BUILD_REMOTE_ID;
            break;
        case 2: target = &gPppoeplus.circuitIdFormat; targetType = &gPppoeplus.circuitIdFormatType; break;
        default: target = &gPppoeplus.ponCircuitIdFormat; targetType = &gPppoeplus.ponCircuitIdFormatType; break;
    }

    // ---- checking the raw text ----
    {
        auto raw = exactCopy(text, textLen);
        (void)pppoeplusFormatCheck(raw.get(), static_cast<uint32_t>(textLen));
    }

    // ---- the segment simplifiers, with the room given ----
    {
        auto seg = exactCopy(text, textLen);
        std::unique_ptr<char[]> out(new char[room]);
        int32_t n = pppoeplusSimplifyAsciiFormat(target->keywords, seg.get(), static_cast<uint32_t>(textLen), out.get(), room);
        if (n > static_cast<int32_t>(room)) problems += "ASCII segment simplified past its room; ";
        n = pppoeplusSimplifyHexFormat(target->keywords, seg.get(), static_cast<uint32_t>(textLen), out.get(), room);
        if (n > static_cast<int32_t>(room)) problems += "hex segment simplified past its room; ";
    }

    // ---- simplifying into a record ----
    auto record = std::make_unique<tPppoeplusFormat>();
    std::memcpy(record.get(), target, sizeof(tPppoeplusFormat));
    auto before = std::make_unique<tPppoeplusFormat>();
    std::memcpy(before.get(), record.get(), sizeof(tPppoeplusFormat));
    auto typed = exactCopy(text, textLen);
    tPppoeplusStrValue in{typed.get(), static_cast<uint32_t>(textLen)};
    if (pppoeplusSimplifyFormat(record->keywords, &in, record.get()) != 0) {
        if (std::memcmp(record.get(), before.get(), sizeof(tPppoeplusFormat)) != 0)
            problems += "a refused text changed the record; ";
        return problems;
    }
    if (record->formatLen >= PPPOEPLUS_FORMAT_LEN) problems += "simplified text of 256 bytes or more; ";
    if (record->origFormatLen != textLen || std::memcmp(record->origFormat, text, textLen) != 0)
        problems += "typed text not kept as typed; ";
    for (size_t i = record->formatLen; i < PPPOEPLUS_FORMAT_LEN; i++)
        if (record->format[i] != 0) {
            problems += "simplified area not zero past the text; ";
            break;
        }
    if (std::memcmp(record->keywords, before->keywords, sizeof(record->keywords)) != 0)
        problems += "keyword table touched; ";

    // ---- recovering the typed text ----
    {
        std::unique_ptr<char[]> buf(new char[PPPOEPLUS_FORMAT_LEN]);
        tPppoeplusStrValue out{buf.get(), 0};
        if (pppoeplusRecoverFormat(record.get(), &out) == 0) {
            if (out.len != textLen || std::memcmp(buf.get(), text, textLen) != 0) problems += "recovered text differs; ";
        } else if (textLen > 0) {
            problems += "typed text not recovered; ";
        }
    }

    // ---- checking the simplified text, then building from it ----
    auto simplified = exactCopy(reinterpret_cast<const uint8_t*>(record->format), record->formatLen);
    if (pppoeplusFormatCheck(simplified.get(), record->formatLen) != 0) return problems;

    // Stored as management stores it, then built for a frame.
    tPppoeplusFormat saved;
    std::memcpy(&saved, target, sizeof(saved));
    const uint32_t savedType = *targetType;
    std::memcpy(target, record.get(), sizeof(tPppoeplusFormat));
    *targetType = (flags & 0x10) ? PPPOEPLUS_FORMAT_TYPE_ASCII : PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
    // A global format applies to a port whose own is the default one.
    const uint32_t entryCircuit = entry->circuitIdFormatType;
    const uint32_t entryRemote = entry->remoteIdFormatType;
    if ((flags & 0x3) >= 2) entry->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_DEFAULT;

    std::vector<uint8_t> frame = {0x11, 0x09, 0x00, 0x00, 0x00, 0x00};
    frame.resize(PPPOEPLUS_PKT_BUF_LEN, 0);
    tPppoePlusPkt pkt{};
    pkt.data = frame.data();
    pkt.len = 6;
    pkt.pppoeLen = 6;
    pkt.pIf = entry;
    const uint8_t src[6] = {0x00, 0x0C, 0x29, 0xAB, 0xCD, 0xEF};
    std::memcpy(pkt.srcMac, src, 6);
    std::memset(pkt.dstMac, 0xFF, 6);
    std::array<uint8_t, PPPOEPLUS_ONU_INFO_LEN> onu{};
    if (flags & 0x20) {
        pkt.outerVid = 100;
        pkt.innerVid = 200;
        pkt.outerPri = 5;
        pkt.innerPri = 3;
        const uint32_t onuWord = (0x7u << 8) | 8u;
        std::memcpy(onu.data() + 4, &onuWord, 4);
        std::memcpy(onu.data() + 8, "FUZZ\x01\x02\x03\x04", 8);
        pkt.onuInfo = onu.data();
        std::strcpy(pkt.ponLineId, "0/1/2:3.4");
    }
    std::unique_ptr<uint8_t[]> out(new uint8_t[room]);
    const uint32_t built = pppoeplusBuildFormat(entry, &pkt, out.get(), room, which);
    if (built > room) problems += "built past the capacity; ";
    std::unique_ptr<uint8_t[]> full(new uint8_t[256]);
    if (pppoeplusBuildFormat(entry, &pkt, full.get(), 256, which) > 256) problems += "built past 256 bytes; ";

    std::memcpy(target, &saved, sizeof(saved));
    *targetType = savedType;
    entry->circuitIdFormatType = entryCircuit;
    entry->remoteIdFormatType = entryRemote;
    return problems;
}

}  // namespace pppoeplusfuzz
