// Every management entry point given values out of range: codes that do not
// exist or cannot be set, null values, numbers past their field, format
// texts that are too long or wrong, units that have no entry. Each row gives
// its defined result, leaves the daemon lock as it found it (but for the one
// call that is built to leave it held), and changes nothing but what the row
// names: the global record and every interface entry are compared byte for
// byte with the field the row may change put back.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "agent/global.h"
#include "agent/lock.h"
#include "iftable/if_entry.h"
#include "iftable/trust_list.h"
#include "mgmt/if_api.h"
#include "mgmt/mgmt_test_util.h"
#include "mgmt/mgmt_types.h"
#include "mgmt/scalar_api.h"
#include "platform/types.h"
#include "support/fixture.h"

using namespace mgmt_test;

namespace {

constexpr int32_t OK = 0;
constexpr int32_t INVALID = 22;
constexpr int32_t FAIL = -1;

struct State {
    tPppoeplusGlobal global;
    std::map<uint32_t, tPppoePlusIfEntry> entries;
};

State state() {
    State s;
    std::memcpy(&s.global, &gPppoeplus, sizeof(s.global));
    for (auto* e = static_cast<tPppoePlusIfEntry*>(avl_first(&gPppoeplus.ifTree)); e != nullptr;
         e = static_cast<tPppoePlusIfEntry*>(avl_walk(&gPppoeplus.ifTree, e, AVL_AFTER)))
        std::memcpy(&s.entries[e->ifUnit], e, sizeof(*e));
    return s;
}

bool same(const State& a, const State& b, std::string& what) {
    if (std::memcmp(&a.global, &b.global, sizeof(a.global)) != 0) {
        what = "the global record";
        return false;
    }
    if (a.entries.size() != b.entries.size()) {
        what = "the number of entries";
        return false;
    }
    for (const auto& [unit, e] : a.entries) {
        auto it = b.entries.find(unit);
        if (it == b.entries.end() || std::memcmp(&e, &it->second, sizeof(e)) != 0) {
            what = "entry " + std::to_string(unit);
            return false;
        }
    }
    return true;
}

constexpr uint32_t PORT = 1, PON = 3, UPLINK = 10, NONE = 99;

struct Row {
    std::string name;
    std::function<int32_t()> call;
    int32_t result;
    // Checks what the row defines, and copies the fields it may change from
    // the state after into the state before. Null: nothing may change.
    std::function<void(State& before, const State& after)> allow = nullptr;
};


int32_t scalarSet(uint32_t code, uint32_t value) { return pppoeplusScalarSetApi(0, code, &value); }
int32_t scalarSync(uint32_t code, uint32_t value) { return pppoeplusScalarSyncApi(0, code, &value); }
int32_t scalarText(uint32_t code, std::string text, uint32_t len) {
    text.resize(std::max<size_t>(text.size(), len), 'x');
    tPppoeplusStrValue v{text.data(), len};
    return pppoeplusScalarSetApi(0, code, &v);
}
int32_t ifSet(uint32_t unit, uint32_t code, uint32_t value) { return pppoeplusIfSetApi(unit, code, &value); }
int32_t ifSync(uint32_t unit, uint32_t code, uint32_t value) { return pppoeplusIfSyncApi(unit, code, &value); }
int32_t ifText(uint32_t unit, uint32_t code, std::string text, uint32_t len) {
    text.resize(std::max<size_t>(text.size(), len), 'x');
    tPppoeplusStrValue v{text.data(), len};
    return pppoeplusIfSetApi(unit, code, &v);
}

// The fields a row may change, copied over.
void takeFlags(State& b, const State& a) { b.global.flags = a.global.flags; }
void takeBits(State& b, const State& a, uint32_t unit) { b.entries[unit].bits = a.entries.at(unit).bits; }
// A detached entry's list node may read as zero or as pointing at itself.
void takeTrustNode(State& b, const State& a, uint32_t unit) {
    b.entries[unit].trustNode = a.entries.at(unit).trustNode;
    const tPppoeplusListNode& n = a.entries.at(unit).trustNode;
    const tPppoePlusIfEntry* e = pppoeplusIfEntryGet(unit);
    const void* self = e != nullptr ? &e->trustNode : nullptr;
    EXPECT_TRUE((n.next == nullptr && n.prev == nullptr) || (n.next == self && n.prev == self));
}

std::vector<Row> rows() {
    const std::string tooLong(256, 'a');
    std::vector<Row> r;
    // ---- global set and sync ----
    for (uint32_t code : {0u, 9u, 10u, 13u, 14u, 15u, 16u, 17u, 18u, 19u, 100u, 0xFFFFFFFFu}) {
        r.push_back({"global set of code " + std::to_string(code), [code] { return scalarSet(code, 1); },
                     ZEL_ERR_UNSUPPORTED});
        r.push_back({"global sync of code " + std::to_string(code), [code] { return scalarSync(code, 1); },
                     ZEL_ERR_UNSUPPORTED});
    }
    for (uint32_t code = 1; code <= 18; code++)
        r.push_back({"global set of code " + std::to_string(code) + " without a value",
                     [code] { return pppoeplusScalarSetApi(0, code, nullptr); }, ZEL_ERR_NULL_POINTER});
    r.push_back({"debug switch 0xFFFFFFF0 keeps its low 4 bits", [] { return scalarSet(1, 0xFFFFFFF0u); }, OK,
                 [](State& b, const State& a) {
                     EXPECT_EQ(0u, pppoeplusDebugSwitch());
                     takeFlags(b, a);
                 }});
    r.push_back({"policy 4 is stored unchecked", [] { return scalarSet(2, 4); }, OK, [](State& b, const State& a) {
                     EXPECT_EQ(4u, pppoeplusPolicy());
                     takeFlags(b, a);
                 }});
    r.push_back({"policy 0xFFFFFFFF keeps its low 4 bits", [] { return scalarSet(2, 0xFFFFFFFFu); }, OK,
                 [](State& b, const State& a) {
                     EXPECT_EQ(0xFu, pppoeplusPolicy());
                     takeFlags(b, a);
                 }});
    for (uint32_t v : {0u, 7u, 0xFFFFFFFFu})
        r.push_back({"enable " + std::to_string(v) + " enables (already on: nothing)", [v] { return scalarSet(3, v); },
                     OK, [](State&, const State&) { EXPECT_EQ(static_cast<uint32_t>(ZEL_TRUE), pppoeplusEnableGet()); }});
    r.push_back({"vendor id 0xFFFFFFFF is stored unchecked", [] { return scalarSet(4, 0xFFFFFFFFu); }, OK,
                 [](State& b, const State& a) {
                     EXPECT_EQ(0xFFFFFFFFu, gPppoeplus.vendorId);
                     b.global.vendorId = a.global.vendorId;
                 }});
    for (uint32_t code : {5u, 7u, 11u})
        for (uint32_t v : {3u, 4u, 0x80000000u, 0xFFFFFFFFu})
            r.push_back({"global type " + std::to_string(code) + " of " + std::to_string(v),
                         [code, v] { return scalarSet(code, v); }, INVALID});
    for (uint32_t code : {6u, 8u, 12u}) {
        const std::string c = std::to_string(code);
        r.push_back({"global format " + c + " of 256 bytes", [code, tooLong] { return scalarText(code, tooLong, 256); },
                     ZEL_ERR_TOO_LONG});
        r.push_back({"global format " + c + " of 65536 bytes", [code] { return scalarText(code, "'a'", 65536); },
                     ZEL_ERR_TOO_LONG});
        r.push_back({"global format " + c + " with an unknown keyword",
                     [code] { return scalarText(code, "'%nosuchword'", 13); }, INVALID});
        r.push_back({"global format " + c + " with an open quote", [code] { return scalarText(code, "'%port", 6); },
                     INVALID});
        r.push_back({"global format " + c + " with a bad hex digit", [code] { return scalarText(code, "0xZZ", 4); },
                     INVALID});
        r.push_back({"global format " + c + " with a width of 300",
                     [code] { return scalarText(code, "'%300portname'", 14); }, INVALID});
        r.push_back({"global format " + c + " with a 40-bit hex field",
                     [code] { return scalarText(code, "0x01 %40port", 12); }, INVALID});
        r.push_back({"global format " + c + " with two keywords touching",
                     [code] { return scalarText(code, "'%svlan%cvlan'", 14); }, INVALID});
        r.push_back({"global format " + c + " without a text",
                     [code] { return pppoeplusScalarSetApi(0, code, nullptr); }, ZEL_ERR_NULL_POINTER});
    }
    // ---- global get ----
    for (uint32_t code : {0u, 19u, 100u, 0xFFFFFFFFu})
        r.push_back({"global get of code " + std::to_string(code),
                     [code] {
                         uint32_t v = 0;
                         return pppoeplusScalarGetApi(0, code, &v);
                     },
                     ZEL_ERR_UNSUPPORTED});
    for (uint32_t code = 1; code <= 18; code++)
        r.push_back({"global get of code " + std::to_string(code) + " without a value",
                     [code] { return pppoeplusScalarGetApi(0, code, nullptr); }, ZEL_ERR_NULL_POINTER});
    r.push_back({"version into 20 bytes",
                 [] {
                     char buf[20];
                     tPppoeplusStrValue v{buf, sizeof(buf)};
                     return pppoeplusScalarGetApi(0, 9, &v);
                 },
                 ZEL_ERR_TOO_LONG});
    // ---- interface set and sync ----
    for (uint32_t code : {0u, 1u, 3u, 6u, 17u, 18u, 0xFFFFFFFFu})
        r.push_back({"interface set of code " + std::to_string(code) + " on a unit without an entry",
                     [code] { return ifSet(NONE, code, 1); }, ZEL_ERR_NOT_FOUND});
    for (uint32_t code : {0u, 9u, 10u, 11u, 12u, 13u, 14u, 15u, 16u, 18u, 100u, 0xFFFFFFFFu}) {
        r.push_back({"interface set of code " + std::to_string(code), [code] { return ifSet(PORT, code, 1); },
                     ZEL_ERR_UNSUPPORTED});
        r.push_back({"interface sync of code " + std::to_string(code), [code] { return ifSync(PORT, code, 1); },
                     ZEL_ERR_UNSUPPORTED});
    }
    for (uint32_t code = 1; code <= 17; code++)
        r.push_back({"interface set of code " + std::to_string(code) + " without a value",
                     [code] { return pppoeplusIfSetApi(PORT, code, nullptr); }, ZEL_ERR_NULL_POINTER});
    r.push_back({"trust 0 is stored as not set, not on the list", [] { return ifSet(PORT, 1, 0); }, OK,
                 [](State& b, const State& a) {
                     tPppoePlusIfEntry* e = pppoeplusIfEntryGet(PORT);
                     EXPECT_EQ(0u, pppoeplusIfTrustGet(e));
                     for (auto* t = pppoeplusTrustIfEntryFirst(); t != nullptr; t = pppoeplusTrustIfEntryNext(t))
                         EXPECT_NE(PORT, t->ifUnit);
                     takeBits(b, a, PORT);
                     takeTrustNode(b, a, PORT);
                 }});
    r.push_back({"trust 3 is stored, not on the list", [] { return ifSet(PORT, 1, 3); }, OK,
                 [](State& b, const State& a) {
                     EXPECT_EQ(3u, pppoeplusIfTrustGet(pppoeplusIfEntryGet(PORT)));
                     EXPECT_EQ(UPLINK, pppoeplusTrustIfEntryFirst()->ifUnit);
                     EXPECT_EQ(nullptr, pppoeplusTrustIfEntryNext(pppoeplusTrustIfEntryFirst()));
                     takeBits(b, a, PORT);
                     takeTrustNode(b, a, PORT);
                 }});
    for (uint32_t v : {0u, 3u, 7u, 0xFFFFFFFFu})
        r.push_back({"interface enable " + std::to_string(v) + " does nothing", [v] { return ifSet(PORT, 2, v); }, OK});
    r.push_back({"interface enable 0 on a unit without an entry does nothing", [] { return ifSet(NONE, 2, 0); }, OK});
    r.push_back({"interface enable 2 on a unit without an entry does nothing (all-port off)",
                 [] { return ifSet(NONE, 2, 2); }, OK});
    r.push_back({"port policy 6 keeps its low 2 bits", [] { return ifSet(PORT, 3, 6); }, OK,
                 [](State& b, const State& a) {
                     EXPECT_EQ(2u, pppoeplusIfPolicyGet(pppoeplusIfEntryGet(PORT)));
                     takeBits(b, a, PORT);
                 }});
    r.push_back({"port policy 0xFFFFFFFF keeps its low 2 bits", [] { return ifSet(PORT, 3, 0xFFFFFFFFu); }, OK,
                 [](State& b, const State& a) {
                     EXPECT_EQ(3u, pppoeplusIfPolicyGet(pppoeplusIfEntryGet(PORT)));
                     takeBits(b, a, PORT);
                 }});
    r.push_back({"ignore 0xFFFFFFFC keeps its low 2 bits", [] { return ifSet(PORT, 4, 0xFFFFFFFCu); }, OK,
                 [](State& b, const State& a) {
                     EXPECT_EQ(0u, pppoeplusIfIgnorePktGet(pppoeplusIfEntryGet(PORT)));
                     takeBits(b, a, PORT);
                 }});
    for (uint32_t code : {5u, 7u})
        for (uint32_t v : {3u, 0x80000000u, 0xFFFFFFFFu})
            r.push_back({"interface type " + std::to_string(code) + " of " + std::to_string(v),
                         [code, v] { return ifSet(PORT, code, v); }, INVALID});
    for (uint32_t code : {6u, 8u}) {
        const std::string c = std::to_string(code);
        r.push_back({"interface format " + c + " of 256 bytes",
                     [code, tooLong] { return ifText(PORT, code, tooLong, 256); }, ZEL_ERR_TOO_LONG});
        r.push_back({"interface format " + c + " of 65536 bytes", [code] { return ifText(PORT, code, "'a'", 65536); },
                     ZEL_ERR_TOO_LONG});
        r.push_back({"interface format " + c + " with an unknown keyword",
                     [code] { return ifText(PORT, code, "'%nosuchword'", 13); }, INVALID});
        r.push_back({"interface format " + c + " with an open quote", [code] { return ifText(PORT, code, "'abc", 4); },
                     INVALID});
        r.push_back({"interface format " + c + " with a bad hex number",
                     [code] { return ifText(PORT, code, "0x1G", 4); }, INVALID});
        r.push_back({"interface format " + c + " on a PON port with a width of 256",
                     [code] { return ifText(PON, code, "'%256portname'", 14); }, INVALID});
    }
    // ---- interface get ----
    for (uint32_t code : {0u, 17u, 18u, 100u, 0xFFFFFFFFu})
        r.push_back({"interface get of code " + std::to_string(code),
                     [code] {
                         uint32_t v = 0;
                         return pppoeplusIfGetApi(PORT, code, &v);
                     },
                     ZEL_ERR_UNSUPPORTED});
    r.push_back({"interface get on a unit without an entry",
                 [] {
                     uint32_t v = 0;
                     return pppoeplusIfGetApi(NONE, 3, &v);
                 },
                 ZEL_ERR_NOT_FOUND});
    for (uint32_t code = 1; code <= 16; code++)
        r.push_back({"interface get of code " + std::to_string(code) + " without a value",
                     [code] { return pppoeplusIfGetApi(PORT, code, nullptr); }, ZEL_ERR_NULL_POINTER});
    // ---- iterators ----
    r.push_back({"first unit without a place for it", [] { return pppoeplusIfGetFirst(nullptr); },
                 ZEL_ERR_NULL_POINTER});
    r.push_back({"next unit without a place for it", [] { return pppoeplusIfGetNext(PORT, nullptr); },
                 ZEL_ERR_NULL_POINTER});
    r.push_back({"next unit after the largest",
                 [] {
                     uint32_t u = 0;
                     return pppoeplusIfGetNext(0xFFFFFFFFu, &u);
                 },
                 FAIL});
    return r;
}

class BadValueTest : public SimTest {
  protected:
    // A device with an Ethernet port, a GPON port and an uplink, the agent
    // on, USERDEFINE formats everywhere so that keywords are read.
    void start() {
        pppoeplusTestReset();
        pppoeplusTestStart(1, 0);
        sim::addInterface(PORT, "eth0/1", ZEL_OND_ETH);
        sim::addInterface(PON, "gpon0/3", ZEL_OND_GPON, ZEL_IFTYPE_GPON);
        sim::addInterface(UPLINK, "eth0/10", ZEL_OND_ETH);
        ASSERT_NE(nullptr, pppoeplusIfEntryAdd(PORT, 1));
        ASSERT_NE(nullptr, pppoeplusIfEntryAdd(PON, 1));
        tPppoePlusIfEntry* up = pppoeplusIfEntryAdd(UPLINK, 1);
        ASSERT_NE(nullptr, up);
        pppoeplusIfTrustSet(up, ZEL_TRUE);
        pppoeplusTrustIfEntryAttach(up);
        pppoeplusIfTrustSet(pppoeplusIfEntryGet(PORT), ZEL_FALSE);
        gPppoeplus.circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
        gPppoeplus.remoteIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
        gPppoeplus.ponCircuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
        for (uint32_t unit : {PORT, PON}) {
            tPppoePlusIfEntry* e = pppoeplusIfEntryGet(unit);
            e->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
            e->remoteIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
            e->padiRcv = 7;  // counters that must survive
        }
        pppoeplusDebugSwitchSet(0x8);
        sim::g.logs.clear();
        sim::g.calls.clear();
        sim::g.hwilCalls.clear();
        sim::g.sems[gPppoeplus.semId].takes = 0;
        sim::g.sems[gPppoeplus.semId].gives = 0;
    }
};

TEST_F(BadValueTest, EveryValueOutOfRangeGivesItsDefinedResultAndChangesNothingElse) {
    int n = 0;
    for (const Row& row : rows()) {
        SCOPED_TRACE(row.name);
        start();
        if (HasFatalFailure()) return;
        State before = state();
        const int32_t got = row.call();
        EXPECT_EQ(row.result, got);
        State after = state();
        if (row.allow) row.allow(before, after);
        std::string what;
        EXPECT_TRUE(same(before, after, what)) << what << " changed";
        const sim::Sem& lock = lockRecord();
        EXPECT_EQ(lock.takes, lock.gives) << "the daemon lock was left held";
        EXPECT_EQ(0, lock.depth);
        // A refused value is said on the error channel when it is the
        // daemon's own check that refused it.
        if (got == INVALID) {
            bool said = false;
            for (const sim::LogRecord& l : sim::g.logs) said = said || l.module == 0x45D0004;
            EXPECT_TRUE(said) << "no message for a refused value";
        }
        n++;
    }
    EXPECT_GT(n, 150);
}

// The one call built to leave the lock held: a malformed request for the
// non-stop-routing status. Its result is -1, nothing changes, and the lock
// stays taken once more than it was given.
TEST_F(BadValueTest, AMalformedStatusRequestLeavesTheLockHeld) {
    for (uint32_t size : {0u, 11u}) {
        SCOPED_TRACE(size);
        start();
        State before = state();
        char buf[12];
        tPppoeplusStrValue v{buf, size};
        EXPECT_EQ(FAIL, pppoeplusScalarGetApi(0, 18, &v));
        std::string what;
        EXPECT_TRUE(same(before, state(), what)) << what;
        const sim::Sem& lock = lockRecord();
        EXPECT_EQ(lock.gives + 1, lock.takes);
        pppoeplusUnlock();
    }
    start();
    tPppoeplusStrValue nullBuffer{nullptr, 12};
    EXPECT_EQ(FAIL, pppoeplusScalarGetApi(0, 18, &nullBuffer));
    pppoeplusUnlock();
}

}  // namespace
