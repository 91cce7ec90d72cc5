// Helpers of the packet-path tests: discovery frames and tags built byte by
// byte, receive information records, frame buffers laid out like the receive
// buffer, interface set-up and a look at what was sent.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "agent/global.h"
#include "iftable/if_entry.h"
#include "iftable/trust_list.h"
#include "packet/pkt_parse.h"
#include "packet/pkt_recv.h"
#include "platform/sim/sim.h"
#include "platform/socket.h"
#include "platform/types.h"
#include "support/fixture.h"

namespace pkttest {

using Bytes = std::vector<uint8_t>;

inline Bytes str(const std::string& s) { return Bytes(s.begin(), s.end()); }

inline Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

inline void put16(Bytes& b, uint16_t v) {
    b.push_back(static_cast<uint8_t>(v >> 8));
    b.push_back(static_cast<uint8_t>(v));
}

inline void put32(Bytes& b, uint32_t v) {
    put16(b, static_cast<uint16_t>(v >> 16));
    put16(b, static_cast<uint16_t>(v));
}

// A tag whose length field says `len`, followed by `value` as it stands.
inline Bytes tagRaw(uint16_t type, uint16_t len, const Bytes& value) {
    Bytes b;
    put16(b, type);
    put16(b, len);
    b.insert(b.end(), value.begin(), value.end());
    return b;
}

// A well-formed tag.
inline Bytes tag(uint16_t type, const Bytes& value) {
    return tagRaw(type, static_cast<uint16_t>(value.size()), value);
}

inline Bytes eol() { return tag(0x0000, {}); }
inline Bytes serviceName(const std::string& name) { return tag(0x0101, str(name)); }
inline Bytes hostUniq(const Bytes& v) { return tag(0x0103, v); }

// The value of a Vendor-Specific tag: vendor id and sub-options.
inline Bytes vsValue(uint32_t vendorId, const std::vector<std::pair<uint8_t, std::string>>& subOptions) {
    Bytes b;
    put32(b, vendorId);
    for (const auto& [code, text] : subOptions) {
        b.push_back(code);
        b.push_back(static_cast<uint8_t>(text.size()));
        b.insert(b.end(), text.begin(), text.end());
    }
    return b;
}

inline Bytes vsTag(uint32_t vendorId, const std::vector<std::pair<uint8_t, std::string>>& subOptions) {
    return tag(0x0105, vsValue(vendorId, subOptions));
}

// A discovery frame with a payload length field of `payloadLen`.
inline Bytes frameLen(uint8_t code, uint16_t session, uint16_t payloadLen, const Bytes& payload,
                      uint8_t verType = 0x11) {
    Bytes b{verType, code};
    put16(b, session);
    put16(b, payloadLen);
    b.insert(b.end(), payload.begin(), payload.end());
    return b;
}

// A discovery frame whose payload length is that of `payload`.
inline Bytes frame(uint8_t code, uint16_t session, const Bytes& payload) {
    return frameLen(code, session, static_cast<uint16_t>(payload.size()), payload);
}

// A frame in a buffer laid out like the receive buffer: 1400 bytes and the
// zeroed slack behind them, all zero past the frame.
struct FrameBuf {
    std::array<uint8_t, PPPOEPLUS_PKT_BUF_LEN + PPPOEPLUS_PKT_BUF_SLACK> buf{};
    tPppoePlusPkt pkt{};

    explicit FrameBuf(const Bytes& bytes, tPppoePlusIfEntry* entry = nullptr) {
        size_t n = std::min(bytes.size(), static_cast<size_t>(PPPOEPLUS_PKT_BUF_LEN));
        std::memcpy(buf.data(), bytes.data(), n);
        std::memset(&pkt, 0, sizeof(pkt));
        pkt.data = buf.data();
        pkt.len = static_cast<uint16_t>(n);
        pkt.bufSize = static_cast<uint32_t>(buf.size());
        pkt.pIf = entry;
    }
    Bytes held() const { return Bytes(buf.begin(), buf.begin() + pkt.len); }
    size_t offsetOf(const uint8_t* p) const { return static_cast<size_t>(p - buf.data()); }
};

inline zel_pkt_rxinfo rxInfo(const Bytes& src, const Bytes& dst, uint16_t outerVid = 0, uint16_t innerVid = 0,
                             uint8_t outerPri = 0, uint8_t innerPri = 0) {
    zel_pkt_rxinfo info;
    std::memset(&info, 0, sizeof(info));
    std::memcpy(info.srcMac, src.data(), 6);
    std::memcpy(info.dstMac, dst.data(), 6);
    info.etherType = 0x8863;
    info.outerVid = outerVid;
    info.innerVid = innerVid;
    info.outerPri = outerPri;
    info.innerPri = innerPri;
    info.vlanCount = static_cast<uint8_t>((outerVid != 0) + (innerVid != 0));
    return info;
}

// Fills the ONU identity block of `info` and marks it present and valid.
inline void rxInfoOnu(zel_pkt_rxinfo& info, uint32_t onuNumber, const Bytes& sn, uint8_t snLen) {
    info.onuPresent = 1;
    info.flags |= ZEL_RXINFO_ONU_VALID;
    uint32_t word = ((onuNumber & 0xFFF) << 8) | snLen;
    std::memcpy(info.onuInfo + 4, &word, 4);
    if (!sn.empty()) std::memcpy(info.onuInfo + 8, sn.data(), std::min<size_t>(sn.size(), 8));
}

// A 16-byte ONU identity block.
inline std::array<uint8_t, 16> onuBlock(uint32_t onuNumber, const Bytes& sn, uint8_t snLen) {
    std::array<uint8_t, 16> b{};
    uint32_t word = ((onuNumber & 0xFFF) << 8) | snLen;
    std::memcpy(b.data() + 4, &word, 4);
    if (!sn.empty()) std::memcpy(b.data() + 8, sn.data(), std::min<size_t>(sn.size(), 8));
    return b;
}

const Bytes kClient = {0x00, 0x0c, 0x29, 0xaa, 0xbb, 0x01};
const Bytes kBroadcast = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
const Bytes kSysMac = {0x00, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE};
const Bytes kPortMac = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};

// Adds interface `unit` to the device and gives it an enabled entry.
inline tPppoePlusIfEntry* addPort(uint32_t unit, const std::string& name, uint32_t ondType = ZEL_OND_ETH,
                                  uint32_t type = ZEL_IFTYPE_ETHERNET) {
    sim::addInterface(unit, name, ondType, type);
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(unit, 1);
    EXPECT_NE(nullptr, e) << name;
    return e;
}

// Makes `entry` an uplink.
inline void trust(tPppoePlusIfEntry* entry) {
    pppoeplusIfTrustSet(entry, ZEL_TRUE);
    pppoeplusTrustIfEntryAttach(entry);
}

inline uint32_t get32(const std::vector<uint8_t>& b, size_t at) {
    uint32_t v;
    std::memcpy(&v, b.data() + at, 4);
    return v;
}

// The send information record of a captured send.
inline zel_pkt_txinfo txInfoOf(const sim::Sent& s) {
    zel_pkt_txinfo info;
    std::memset(&info, 0, sizeof(info));
    EXPECT_GE(s.control.size(), ZEL_CMSG_LEN(sizeof(zel_pkt_txinfo)));
    if (s.control.size() >= ZEL_CMSG_LEN(sizeof(zel_pkt_txinfo)))
        std::memcpy(&info, s.control.data() + ZEL_CMSG_HDRLEN, sizeof(info));
    return info;
}

// Texts of the captured logs of `module`, in order.
inline std::vector<std::string> logsOf(uint32_t module) {
    std::vector<std::string> out;
    for (const sim::LogRecord& r : sim::g.logs)
        if (r.module == module) out.push_back(r.text);
    return out;
}

constexpr uint32_t kRecvModule = 0x45D0000;
constexpr uint32_t kSendModule = 0x45D0001;
constexpr uint32_t kErrorModule = 0x45D0004;

}  // namespace pkttest
