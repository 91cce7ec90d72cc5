// Helpers of the management tests: expected control records, the lock's
// record, the captured hardware commands and messages.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "agent/global.h"
#include "format/format_simplify.h"
#include "mgmt/mgmt_types.h"
#include "support/fixture.h"

namespace mgmt_test {

// Modes as the hardware layer sees them.
constexpr uint32_t kSet = 3;
constexpr uint32_t kSync = 1;

// The 64 bytes of a control record: mode at 0, key length at 4, value length
// at 16, zero elsewhere.
inline std::vector<uint8_t> ctrlBytes(uint32_t mode, uint32_t keyLen, uint32_t valueLen) {
    std::vector<uint8_t> b(64, 0);
    std::memcpy(&b[0], &mode, 4);
    std::memcpy(&b[4], &keyLen, 4);
    std::memcpy(&b[16], &valueLen, 4);
    return b;
}

inline std::vector<uint8_t> u32Bytes(uint32_t v) {
    std::vector<uint8_t> b(4);
    std::memcpy(b.data(), &v, 4);
    return b;
}

inline std::vector<uint8_t> textBytes(const std::string& s) { return std::vector<uint8_t>(s.begin(), s.end()); }

inline uint32_t ctrlWord(const std::vector<uint8_t>& ctrl, size_t offset) {
    uint32_t v = 0;
    std::memcpy(&v, &ctrl.at(offset), 4);
    return v;
}

// A text value that points into `text` (not NUL-terminated as far as the
// daemon is concerned: only `len` counts).
inline tPppoeplusStrValue strValue(std::string& text) {
    return tPppoeplusStrValue{text.data(), static_cast<uint32_t>(text.size())};
}

// The daemon lock's record.
inline const sim::Sem& lockRecord() { return sim::g.sems[gPppoeplus.semId]; }

// Taken `n` times and given back as often, and the calls made accordingly.
inline void expectLockBalanced(uint32_t n) {
    const sim::Sem& s = lockRecord();
    EXPECT_EQ(n, s.takes);
    EXPECT_EQ(n, s.gives);
    EXPECT_EQ(0, s.depth);
    EXPECT_EQ(n, sim::callsStartingWith("silTakeSem(" + std::to_string(gPppoeplus.semId) + ",-1)").size());
    EXPECT_EQ(n, sim::callsStartingWith("silGiveSem(" + std::to_string(gPppoeplus.semId) + ")").size());
}

// The lock was never touched.
inline void expectLockUntouched() {
    const sim::Sem& s = lockRecord();
    EXPECT_EQ(0u, s.takes);
    EXPECT_EQ(0u, s.gives);
    EXPECT_EQ(0, s.depth);
    EXPECT_TRUE(sim::callsStartingWith("silTakeSem").empty());
}

// One captured message: operator log?, module, level, text.
using Msg = std::tuple<bool, uint32_t, uint32_t, std::string>;

inline std::vector<Msg> msgs() {
    std::vector<Msg> out;
    for (const sim::LogRecord& r : sim::g.logs) out.emplace_back(r.oper, r.module, r.level, r.text);
    return out;
}

// Messages of one module only.
inline std::vector<Msg> msgsOf(uint32_t module) {
    std::vector<Msg> out;
    for (const sim::LogRecord& r : sim::g.logs)
        if (r.module == module) out.emplace_back(r.oper, r.module, r.level, r.text);
    return out;
}

inline Msg eventMsg(const std::string& text) { return Msg{false, 0x45D0005, 7, text + "\r\n"}; }
inline Msg errorMsg(const std::string& text) { return Msg{false, 0x45D0004, 5, text + "\r\n"}; }

// The trace messages (sub-module 5) and the error messages (sub-module 4).
inline std::vector<Msg> eventMsgs() { return msgsOf(0x45D0005); }
inline std::vector<Msg> errorMsgs() { return msgsOf(0x45D0004); }

inline bool hasMsg(const Msg& m) {
    for (const Msg& x : msgs())
        if (x == m) return true;
    return false;
}

inline void clearRecord() {
    sim::g.calls.clear();
    sim::g.logs.clear();
    sim::g.callCounts.clear();
    sim::g.hwilCalls.clear();
    sim::Sem& s = sim::g.sems[gPppoeplus.semId];
    s.takes = 0;
    s.gives = 0;
}

// Both the traces and the errors written.
inline void traceAll() { pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT | PPPOEPLUS_DEBUG_ERROR); }

inline std::string fmtText(const tPppoeplusFormat& f) { return std::string(f.format, f.formatLen); }
inline std::string origText(const tPppoeplusFormat& f) { return std::string(f.origFormat, f.origFormatLen); }

}  // namespace mgmt_test
