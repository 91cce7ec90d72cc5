// Interface management commands: iteration, every code through set, sync and
// get, the control record and value the hardware layer receives, the lock,
// the messages, the trust and enable transitions and every result code.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "agent/global.h"
#include "format/default_formats.h"
#include "iftable/if_entry.h"
#include "iftable/trust_list.h"
#include "mgmt/if_api.h"
#include "mgmt/mgmt_test_util.h"
#include "platform/types.h"
#include "support/fixture.h"

namespace {

using namespace mgmt_test;

constexpr int32_t kErr = ZEL_ERR_GENERAL;
constexpr uint32_t kIfMode = 0x10000000;
constexpr uint32_t kStrMode = 0x80000000;

int32_t setOrSync(uint32_t mode, uint32_t unit, uint32_t code, void* value) {
    return mode == kSet ? pppoeplusIfSetApi(unit, code, value) : pppoeplusIfSyncApi(unit, code, value);
}

std::string modeName(uint32_t mode) { return mode == kSet ? "set" : "sync"; }

std::string portName(uint32_t unit) { return "eth0/" + std::to_string(unit); }

std::string ifSet(uint32_t unit, uint32_t attr, uint32_t proto) {
    return "zelIfSetApi(" + std::to_string(unit) + "," + std::to_string(attr) + "," + std::to_string(proto) + ")";
}

std::string hwil(uint32_t unit, uint32_t code) {
    return "zelHwilCmdSyncApi(" + std::to_string(unit) + "," + std::to_string(0x40D0000 + code) + ")";
}

sim::ProtoState& ps(uint32_t unit, uint32_t proto) { return sim::g.protoStates[std::make_pair(unit, proto)]; }

// The one command the hardware layer received.
void expectOneHwil(uint32_t unit, uint32_t code, const std::vector<uint8_t>& ctrl,
                   const std::vector<uint8_t>& value) {
    ASSERT_EQ(1u, sim::g.hwilCalls.size());
    const sim::HwilCall& c = sim::g.hwilCalls[0];
    EXPECT_EQ(unit, c.key);
    EXPECT_EQ(0x40D0000u + code, c.cmdId);
    EXPECT_EQ(ctrl, c.ctrl);
    EXPECT_EQ(value, c.value);
}

// The control record of an integer interface command.
std::vector<uint8_t> ifCtrl(uint32_t mode) { return ctrlBytes(mode | kIfMode, 4, 4); }

// Units on the trusted list, checking every link both ways.
std::vector<uint32_t> listUnits() {
    std::vector<uint32_t> out;
    tPppoeplusListNode* head = &gPppoeplus.trustIfList;
    tPppoeplusListNode* node = head;
    do {
        EXPECT_EQ(node, node->next->prev);
        EXPECT_EQ(node, node->prev->next);
        node = node->next;
        if (node != head) out.push_back(pppoeplusTrustIfEntryOf(node)->ifUnit);
    } while (node != head && out.size() <= 1000);
    return out;
}

std::vector<uint32_t> treeUnits() {
    std::vector<uint32_t> out;
    for (auto* e = static_cast<tPppoePlusIfEntry*>(avl_first(&gPppoeplus.ifTree)); e != nullptr;
         e = static_cast<tPppoePlusIfEntry*>(avl_walk(&gPppoeplus.ifTree, e, AVL_AFTER)))
        out.push_back(e->ifUnit);
    return out;
}

void setCounters(tPppoePlusIfEntry* e) {
    e->errorRcv = 101;
    e->errorSend = 102;
    e->padiRcv = 103;
    e->padrRcv = 104;
    e->padtRcv = 105;
    e->padoRcv = 106;
    e->padsRcv = 107;
    e->totalSend = 108;
}

bool countersZero(const tPppoePlusIfEntry* e) {
    return e->errorRcv == 0 && e->errorSend == 0 && e->padiRcv == 0 && e->padrRcv == 0 && e->padtRcv == 0 &&
           e->padoRcv == 0 && e->padsRcv == 0 && e->totalSend == 0;
}

std::unique_ptr<tPppoePlusIfEntry> copyOf(const tPppoePlusIfEntry* e) {
    auto c = std::make_unique<tPppoePlusIfEntry>();
    std::memcpy(c.get(), e, sizeof(*e));
    return c;
}

bool same(const tPppoePlusIfEntry& a, const tPppoePlusIfEntry* b) { return std::memcmp(&a, b, sizeof(a)) == 0; }

class IfApiTest : public SimTest {
  protected:
    // Starts the daemon (agent on), every port served by default when
    // `allPort`, with Ethernet ports 1 to 12, PON ports 20 (EPON), 21 (GPON),
    // 22 (PON aggregate), an aggregate 30 and port 0x80000001.
    void start(bool allPort = false) {
        pppoeplusTestStart(1, allPort ? 1 : 0);
        for (uint32_t u = 1; u <= 12; u++) sim::addInterface(u, portName(u), ZEL_OND_ETH);
        sim::addInterface(20, "epon0/20", ZEL_OND_EPON);
        sim::addInterface(21, "gpon0/21", ZEL_OND_GPON, ZEL_IFTYPE_GPON);
        sim::addInterface(22, "ponagg22", ZEL_OND_PON_AGG);
        sim::addInterface(30, "agg30", ZEL_OND_ETH_AGG);
        sim::addInterface(0x80000001u, "eth9/1", ZEL_OND_ETH);
        clearRecord();
    }
    // An enabled entry of `unit`, made without the management commands.
    tPppoePlusIfEntry* entry(uint32_t unit, uint32_t enable = 1) {
        tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(unit, enable);
        EXPECT_NE(nullptr, e);
        clearRecord();
        return e;
    }
};

// ---- codes ------------------------------------------------------------------------------

TEST(IfApiCodes, Numbers) {
    const uint32_t codes[] = {PPPOEPLUS_IF_TRUST,           PPPOEPLUS_IF_ENABLE,          PPPOEPLUS_IF_POLICY,
                              PPPOEPLUS_IF_IGNORE_PKT,      PPPOEPLUS_IF_CIRCUITID_TYPE,  PPPOEPLUS_IF_CIRCUITID_FORMAT,
                              PPPOEPLUS_IF_REMOTEID_TYPE,   PPPOEPLUS_IF_REMOTEID_FORMAT, PPPOEPLUS_IF_ERROR_RCV,
                              PPPOEPLUS_IF_ERROR_SEND,      PPPOEPLUS_IF_PADI_RCV,        PPPOEPLUS_IF_PADR_RCV,
                              PPPOEPLUS_IF_PADO_RCV,        PPPOEPLUS_IF_PADS_RCV,        PPPOEPLUS_IF_PADT_RCV,
                              PPPOEPLUS_IF_TOTAL_SEND,      PPPOEPLUS_IF_STAT_CLEAR};
    for (uint32_t i = 0; i < sizeof(codes) / sizeof(codes[0]); i++) EXPECT_EQ(i + 1, codes[i]);
}

// ---- iteration ------------------------------------------------------------------------------

class IfApiIterTest : public IfApiTest {};

TEST_F(IfApiIterTest, EmptyTable) {
    start();
    uint32_t out = 0xA5A5A5A5;
    EXPECT_EQ(-1, pppoeplusIfGetFirst(&out));
    EXPECT_EQ(0xA5A5A5A5u, out);
    EXPECT_EQ(-1, pppoeplusIfGetNext(0, &out));
    EXPECT_EQ(-1, pppoeplusIfGetNext(0xFFFFFFFFu, &out));
    EXPECT_EQ(0xA5A5A5A5u, out);
    expectLockBalanced(3);
}

TEST_F(IfApiIterTest, OneEntry) {
    start();
    entry(7);
    uint32_t out = 0;
    EXPECT_EQ(0, pppoeplusIfGetFirst(&out));
    EXPECT_EQ(7u, out);
    expectLockBalanced(1);
    EXPECT_EQ(-1, pppoeplusIfGetNext(7, &out)) << "the last unit";
    EXPECT_EQ(7u, out);
    EXPECT_EQ(0, pppoeplusIfGetNext(6, &out)) << "a unit below the first";
    EXPECT_EQ(7u, out);
    out = 0;
    EXPECT_EQ(0, pppoeplusIfGetNext(0, &out));
    EXPECT_EQ(7u, out);
    EXPECT_EQ(-1, pppoeplusIfGetNext(8, &out));
    expectLockBalanced(5);
}

TEST_F(IfApiIterTest, SeveralEntriesWithTheTopBitSet) {
    start();
    for (uint32_t u : {0xFFFFFFFFu, 5u, 0x80000001u, 3u, 100u}) {
        sim::addInterface(u, portName(u), ZEL_OND_ETH);
        entry(u);
    }
    std::vector<uint32_t> walked;
    uint32_t unit = 0;
    ASSERT_EQ(0, pppoeplusIfGetFirst(&unit));
    walked.push_back(unit);
    while (pppoeplusIfGetNext(unit, &unit) == 0) walked.push_back(unit);
    EXPECT_EQ((std::vector<uint32_t>{3, 5, 100, 0x80000001u, 0xFFFFFFFFu}), walked);
    EXPECT_EQ(0xFFFFFFFFu, unit);
    expectLockBalanced(6);
}

TEST_F(IfApiIterTest, UnitBetweenEntries) {
    start();
    for (uint32_t u : {3u, 100u, 0x80000001u}) {
        sim::addInterface(u, portName(u), ZEL_OND_ETH);
        entry(u);
    }
    uint32_t out = 0;
    EXPECT_EQ(0, pppoeplusIfGetNext(50, &out));
    EXPECT_EQ(100u, out);
    EXPECT_EQ(0, pppoeplusIfGetNext(4, &out));
    EXPECT_EQ(100u, out);
    EXPECT_EQ(0, pppoeplusIfGetNext(0x7FFFFFFFu, &out)) << "unsigned: the top bit is no sign";
    EXPECT_EQ(0x80000001u, out);
    EXPECT_EQ(0, pppoeplusIfGetNext(0, &out));
    EXPECT_EQ(3u, out);
    EXPECT_EQ(-1, pppoeplusIfGetNext(0x80000001u, &out));
    EXPECT_EQ(-1, pppoeplusIfGetNext(0x90000000u, &out));
}

TEST_F(IfApiIterTest, NullOutputTakesNoLock) {
    start();
    entry(1);
    EXPECT_EQ(ZEL_ERR_NULL_POINTER, pppoeplusIfGetFirst(nullptr));
    EXPECT_EQ(ZEL_ERR_NULL_POINTER, pppoeplusIfGetNext(0, nullptr));
    expectLockUntouched();
}

// ---- argument and code checks -----------------------------------------------------------

TEST_F(IfApiTest, UnknownInterfaceIsNotFoundForEveryCodeButEnable) {
    start();
    entry(2);
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT);
    for (uint32_t mode : {kSet, kSync}) {
        for (uint32_t code : {0u, 1u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 16u, 17u, 18u, 99u}) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(code));
            clearRecord();
            char buf[16] = "'x'";
            tPppoeplusStrValue sv{buf, 3};
            uint32_t v = 1;
            void* value = (code == 6 || code == 8) ? static_cast<void*>(&sv) : static_cast<void*>(&v);
            EXPECT_EQ(ZEL_ERR_NOT_FOUND, setOrSync(mode, 1, code, value));
            EXPECT_TRUE(sim::g.hwilCalls.empty());
            expectLockBalanced(1);
            // No end message.
            EXPECT_EQ((std::vector<Msg>{eventMsg("Set interface parameter: cmd " + std::to_string(code) + ".")}),
                      msgs());
            EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
        }
    }
    for (uint32_t code : {0u, 1u, 6u, 9u, 17u, 99u}) {
        clearRecord();
        uint32_t v = 0xA5;
        EXPECT_EQ(ZEL_ERR_NOT_FOUND, pppoeplusIfGetApi(1, code, &v));
        EXPECT_EQ(0xA5u, v);
        expectLockBalanced(1);
    }
}

TEST_F(IfApiTest, UnsupportedCodesOnAnEntry) {
    start();
    tPppoePlusIfEntry* e = entry(2);
    setCounters(e);
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT);
    for (uint32_t mode : {kSet, kSync}) {
        for (uint32_t code : {0u, 9u, 10u, 11u, 12u, 13u, 14u, 15u, 16u, 18u, 99u, 0xFFFFFFFFu}) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(code));
            clearRecord();
            auto before = copyOf(e);
            uint32_t v = 0;
            EXPECT_EQ(ZEL_ERR_UNSUPPORTED, setOrSync(mode, 2, code, &v));
            EXPECT_TRUE(same(*before, e));
            EXPECT_TRUE(sim::g.hwilCalls.empty());
            expectLockBalanced(1);
            EXPECT_EQ((std::vector<Msg>{eventMsg("Set interface parameter: cmd " +
                                                 std::to_string(static_cast<int>(code)) + "."),
                                        eventMsg("Set interface parameter end: return " +
                                                 std::to_string(ZEL_ERR_UNSUPPORTED) + ".")}),
                      msgs());
        }
    }
    for (uint32_t code : {0u, 17u, 18u, 99u}) {
        clearRecord();
        uint32_t v = 0xA5;
        EXPECT_EQ(ZEL_ERR_UNSUPPORTED, pppoeplusIfGetApi(2, code, &v)) << code;
        EXPECT_EQ(0xA5u, v);
        expectLockBalanced(1);
    }
}

TEST_F(IfApiTest, NullValueTakesNoLock) {
    start();
    entry(2);
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT);
    for (uint32_t mode : {kSet, kSync}) {
        for (uint32_t code : {1u, 2u, 6u, 17u, 0u, 99u}) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(code));
            clearRecord();
            EXPECT_EQ(ZEL_ERR_NULL_POINTER, setOrSync(mode, 2, code, nullptr));
            EXPECT_EQ(ZEL_ERR_NULL_POINTER, setOrSync(mode, 5, code, nullptr)) << "before the look-up";
            expectLockUntouched();
            EXPECT_TRUE(sim::g.hwilCalls.empty());
            EXPECT_EQ((std::vector<Msg>{eventMsg("Set interface parameter: cmd " + std::to_string(code) + "."),
                                        eventMsg("Set interface parameter: cmd " + std::to_string(code) + ".")}),
                      msgs());
        }
    }
    clearRecord();
    EXPECT_EQ(ZEL_ERR_NULL_POINTER, pppoeplusIfGetApi(2, 1, nullptr));
    EXPECT_EQ(ZEL_ERR_NULL_POINTER, pppoeplusIfGetApi(5, 1, nullptr));
    expectLockUntouched();
}

TEST_F(IfApiTest, BeginAndEndMessagesFollowSwitch4) {
    start();
    entry(2);
    uint32_t v = 1;
    for (uint32_t sw : {0u, 0x1u, 0x2u, 0x8u}) {
        clearRecord();
        pppoeplusDebugSwitchSet(sw);
        EXPECT_EQ(0, pppoeplusIfSetApi(2, PPPOEPLUS_IF_POLICY, &v));
        EXPECT_TRUE(msgs().empty()) << sw;
    }
    clearRecord();
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT);
    EXPECT_EQ(0, pppoeplusIfSyncApi(2, PPPOEPLUS_IF_POLICY, &v));
    EXPECT_EQ((std::vector<Msg>{eventMsg("Set interface parameter: cmd 3."),
                                eventMsg("Set interface parameter end: return 0.")}),
              msgs());
    // A get writes nothing.
    clearRecord();
    traceAll();
    for (uint32_t code = 0; code <= 18; code++) {
        char buf[256] = {};
        tPppoeplusStrValue sv{buf, sizeof(buf)};
        void* value = (code == 6 || code == 8) ? static_cast<void*>(&sv) : static_cast<void*>(&v);
        (void)pppoeplusIfGetApi(2, code, value);
    }
    std::vector<Msg> ev = eventMsgs();
    for (const Msg& m : ev) EXPECT_EQ(std::string::npos, std::get<3>(m).find("parameter")) << std::get<3>(m);
}

// Every code on an entry, through set and sync: the begin message names the
// code, the end message the result, each forwarded command carries the unit as
// key and its own control record, and the lock is taken and given once.
TEST_F(IfApiTest, EveryCodeThroughSetAndSyncWritesBeginAndEnd) {
    start();
    tPppoePlusIfEntry* e = entry(7);
    for (uint32_t mode : {kSet, kSync}) {
        for (uint32_t code = 0; code <= 18; code++) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(code));
            clearRecord();
            traceAll();
            std::string text = "'%portmac'";
            tPppoeplusStrValue sv = strValue(text);
            // Values that leave the entry as it was: trusted back and forth,
            // enable to its current value.
            uint32_t v = code == PPPOEPLUS_IF_TRUST ? (mode == kSet ? ZEL_TRUE : ZEL_FALSE) : 1;
            const bool isText = code == 6 || code == 8;
            void* value = isText ? static_cast<void*>(&sv) : static_cast<void*>(&v);
            const bool settable = (code >= 1 && code <= 8) || code == 17;
            int32_t rc = setOrSync(mode, 7, code, value);
            EXPECT_EQ(settable ? 0 : ZEL_ERR_UNSUPPORTED, rc);
            EXPECT_EQ(e, pppoeplusIfEntryGet(7));
            std::vector<Msg> ev = eventMsgs();
            ASSERT_GE(ev.size(), 2u);
            EXPECT_EQ(eventMsg("Set interface parameter: cmd " + std::to_string(code) + "."), ev.front());
            EXPECT_EQ(eventMsg("Set interface parameter end: return " + std::to_string(rc) + "."), ev.back());
            EXPECT_TRUE(errorMsgs().empty());
            expectLockBalanced(1);
            if (!settable || code == PPPOEPLUS_IF_STAT_CLEAR) {
                EXPECT_TRUE(sim::g.hwilCalls.empty());
                continue;
            }
            ASSERT_EQ(1u, sim::g.hwilCalls.size());
            const sim::HwilCall& c = sim::g.hwilCalls[0];
            EXPECT_EQ(7u, c.key);
            EXPECT_EQ(0x40D0000u + code, c.cmdId);
            if (isText) {
                EXPECT_EQ(ctrlBytes(mode | kIfMode | kStrMode, 4, 10), c.ctrl);
                EXPECT_EQ(textBytes(text), c.value);
            } else {
                EXPECT_EQ(ifCtrl(mode), c.ctrl);
                EXPECT_EQ(u32Bytes(v), c.value);
            }
        }
    }
}

// ---- hardware layer first ----------------------------------------------------------------

TEST_F(IfApiTest, HardwareFailureIsPassedThroughAndChangesNothing) {
    for (bool allPort : {false, true}) {
        pppoeplusTestReset();
        start(allPort);
        tPppoePlusIfEntry* e = entry(2);
        std::string text = "'%portmac'";
        for (uint32_t mode : {kSet, kSync}) {
            for (uint32_t code : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u}) {
                SCOPED_TRACE(modeName(mode) + " code " + std::to_string(code) + " allPort " + std::to_string(allPort));
                clearRecord();
                auto before = copyOf(e);
                sim::failWhen(hwil(2, code), 0x3E80042, 1);
                uint32_t v = code == 2 ? ZEL_FALSE : 1;
                tPppoeplusStrValue sv = strValue(text);
                void* value = (code == 6 || code == 8) ? static_cast<void*>(&sv) : static_cast<void*>(&v);
                EXPECT_EQ(0x3E80042, setOrSync(mode, 2, code, value));
                EXPECT_TRUE(same(*before, e));
                EXPECT_EQ(e, pppoeplusIfEntryGet(2));
                EXPECT_EQ(1u, sim::g.hwilCalls.size());
                EXPECT_TRUE(sim::callsStartingWith("zelIfSetApi").empty());
                expectLockBalanced(1);
            }
        }
        // No entry is created when the hardware layer refuses.
        clearRecord();
        sim::failWhen(hwil(3, 2), 0x3E80042, 1);
        uint32_t v = ZEL_TRUE;
        EXPECT_EQ(0x3E80042, pppoeplusIfSetApi(3, PPPOEPLUS_IF_ENABLE, &v));
        EXPECT_EQ(nullptr, pppoeplusIfEntryGet(3));
    }
}

// ---- trust ---------------------------------------------------------------------------------

TEST_F(IfApiTest, TrustTakesTheHardwareRuleOffAndListsTheEntry) {
    start();
    for (uint32_t mode : {kSet, kSync}) {
        SCOPED_TRACE(modeName(mode));
        tPppoePlusIfEntry* e = entry(4);
        EXPECT_TRUE(ps(4, 19).on);

        uint32_t v = ZEL_TRUE;
        EXPECT_EQ(0, setOrSync(mode, 4, PPPOEPLUS_IF_TRUST, &v));
        expectOneHwil(4, PPPOEPLUS_IF_TRUST, ifCtrl(mode), u32Bytes(ZEL_TRUE));
        EXPECT_EQ((std::vector<std::string>{"silTakeSem(1,-1)", hwil(4, 1), ifSet(4, 57, 19), "silGiveSem(1)"}),
                  sim::g.calls);
        EXPECT_EQ(ZEL_TRUE, pppoeplusIfTrustGet(e));
        EXPECT_FALSE(ps(4, 19).on);
        EXPECT_TRUE(ps(4, 141).on) << "the software trap stays";
        EXPECT_EQ(std::vector<uint32_t>{4}, listUnits());
        expectLockBalanced(1);

        clearRecord();
        uint32_t out = 0;
        EXPECT_EQ(0, pppoeplusIfGetApi(4, PPPOEPLUS_IF_TRUST, &out));
        EXPECT_EQ(ZEL_TRUE, out);
        expectLockBalanced(1);

        clearRecord();
        v = ZEL_FALSE;
        EXPECT_EQ(0, setOrSync(mode, 4, PPPOEPLUS_IF_TRUST, &v));
        expectOneHwil(4, PPPOEPLUS_IF_TRUST, ifCtrl(mode), u32Bytes(ZEL_FALSE));
        EXPECT_EQ((std::vector<std::string>{"silTakeSem(1,-1)", hwil(4, 1), ifSet(4, 56, 19), "silGiveSem(1)"}),
                  sim::g.calls);
        EXPECT_EQ(ZEL_FALSE, pppoeplusIfTrustGet(e));
        EXPECT_TRUE(ps(4, 19).on);
        EXPECT_TRUE(listUnits().empty());
        EXPECT_EQ(0, pppoeplusIfGetApi(4, PPPOEPLUS_IF_TRUST, &out));
        EXPECT_EQ(ZEL_FALSE, out);

        pppoeplusIfEntryDelete(e);
    }
}

TEST_F(IfApiTest, TrustToTheSameValueOnlySyncs) {
    start();
    tPppoePlusIfEntry* e = entry(4);
    for (uint32_t value : {ZEL_FALSE, ZEL_TRUE, ZEL_TRUE}) {
        uint32_t v = value;
        ASSERT_EQ(0, pppoeplusIfSetApi(4, PPPOEPLUS_IF_TRUST, &v));
    }
    clearRecord();
    uint32_t v = ZEL_TRUE;
    EXPECT_EQ(0, pppoeplusIfSyncApi(4, PPPOEPLUS_IF_TRUST, &v));
    EXPECT_EQ(1u, sim::g.hwilCalls.size());
    EXPECT_TRUE(sim::callsStartingWith("zelIfSetApi").empty());
    EXPECT_EQ(std::vector<uint32_t>{4}, listUnits());
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfTrustGet(e));
}

TEST_F(IfApiTest, TrustedListIsInUnitOrder) {
    start();
    for (uint32_t u : {9u, 3u, 0x80000001u, 5u}) entry(u);
    uint32_t v = ZEL_TRUE;
    for (uint32_t u : {9u, 0x80000001u, 3u, 5u}) ASSERT_EQ(0, pppoeplusIfSetApi(u, PPPOEPLUS_IF_TRUST, &v));
    EXPECT_EQ((std::vector<uint32_t>{3, 5, 9, 0x80000001u}), listUnits());
    v = ZEL_FALSE;
    ASSERT_EQ(0, pppoeplusIfSetApi(5, PPPOEPLUS_IF_TRUST, &v));
    EXPECT_EQ((std::vector<uint32_t>{3, 9, 0x80000001u}), listUnits());
}

TEST_F(IfApiTest, TrustFailureOfTheHardwareRule) {
    start();
    tPppoePlusIfEntry* e = entry(4);
    pppoeplusDebugSwitchSet(0);  // the operator log is written whatever the switch
    sim::failWhen(ifSet(4, 57, 19), kErr, 1);
    uint32_t v = ZEL_TRUE;
    EXPECT_EQ(kErr, pppoeplusIfSetApi(4, PPPOEPLUS_IF_TRUST, &v));
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfTrustGet(e));
    EXPECT_TRUE(listUnits().empty());
    EXPECT_EQ((std::vector<Msg>{Msg{true, 0x45D0007, 7,
                                    "The interface disable protocol error.(ifName=[eth0/4], proto=[pppoe+hw], "
                                    "type=[state])\r\n"}}),
              msgs());
    expectLockBalanced(1);

    ASSERT_EQ(0, pppoeplusIfSetApi(4, PPPOEPLUS_IF_TRUST, &v));
    clearRecord();
    sim::failWhen(ifSet(4, 56, 19), kErr, 1);
    v = ZEL_FALSE;
    EXPECT_EQ(kErr, pppoeplusIfSyncApi(4, PPPOEPLUS_IF_TRUST, &v));
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfTrustGet(e));
    EXPECT_EQ(std::vector<uint32_t>{4}, listUnits());
    EXPECT_EQ((std::vector<Msg>{Msg{true, 0x45D0006, 7,
                                    "The interface enable protocol error.(ifName=[eth0/4], proto=[pppoe+hw], "
                                    "type=[state])\r\n"}}),
              msgs());
    expectLockBalanced(1);
}

TEST_F(IfApiTest, TrustFailureEndMessageCarriesThePlatformResult) {
    start();
    entry(4);
    traceAll();
    sim::failWhen(ifSet(4, 57, 19), 0x3E80077, 1);
    uint32_t v = ZEL_TRUE;
    EXPECT_EQ(0x3E80077, pppoeplusIfSetApi(4, PPPOEPLUS_IF_TRUST, &v));
    EXPECT_EQ(eventMsg("Set interface parameter end: return " + std::to_string(0x3E80077) + "."), eventMsgs().back());
}

// Any value but 2 takes the rule off; only the low 2 bits are stored, and an
// entry that stays trusted is not listed twice.
TEST_F(IfApiTest, TrustValuesOtherThan1And2) {
    start();
    tPppoePlusIfEntry* e = entry(4);
    entry(6);
    uint32_t v = 5;  // low bits 1
    EXPECT_EQ(0, pppoeplusIfSetApi(4, PPPOEPLUS_IF_TRUST, &v));
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfTrustGet(e));
    EXPECT_EQ(std::vector<uint32_t>{4}, listUnits());
    clearRecord();
    EXPECT_EQ(0, pppoeplusIfSetApi(4, PPPOEPLUS_IF_TRUST, &v));  // 5 differs from the stored 1
    EXPECT_EQ(std::vector<std::string>{ifSet(4, 57, 19)}, sim::callsStartingWith("zelIfSetApi"));
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfTrustGet(e));
    EXPECT_EQ(std::vector<uint32_t>{4}, listUnits());

    // 6: low bits 2, yet the rule is taken off, since the value is not 2.
    clearRecord();
    v = 6;
    EXPECT_EQ(0, pppoeplusIfSetApi(4, PPPOEPLUS_IF_TRUST, &v));
    EXPECT_EQ(std::vector<std::string>{ifSet(4, 57, 19)}, sim::callsStartingWith("zelIfSetApi"));
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfTrustGet(e));
    EXPECT_TRUE(listUnits().empty());
}

// ---- enable --------------------------------------------------------------------------------

TEST_F(IfApiTest, EnableOnAnUnknownInterfaceCreatesAnEnabledEntry) {
    for (bool allPort : {false, true}) {
        for (uint32_t mode : {kSet, kSync}) {
            SCOPED_TRACE(modeName(mode) + " allPort " + std::to_string(allPort));
            pppoeplusTestReset();
            start(allPort);
            uint32_t v = ZEL_TRUE;
            EXPECT_EQ(0, setOrSync(mode, 7, PPPOEPLUS_IF_ENABLE, &v));
            expectOneHwil(7, PPPOEPLUS_IF_ENABLE, ifCtrl(mode), u32Bytes(ZEL_TRUE));
            tPppoePlusIfEntry* e = pppoeplusIfEntryGet(7);
            ASSERT_NE(nullptr, e);
            EXPECT_EQ(ZEL_TRUE, pppoeplusIfEnableGet(e));
            EXPECT_EQ(ZEL_TRUE, pppoeplusIfProtoEnableGet(e));
            EXPECT_TRUE(ps(7, 141).on);
            EXPECT_TRUE(ps(7, 19).on);
            EXPECT_EQ(allPort, ps(7, 141).dflt);
            expectLockBalanced(1);
            // The hardware layer first.
            EXPECT_LT(sim::findCall(hwil(7, 2)), sim::findCall("silMemPoolAlloc(pppoeplus_if)"));

            uint32_t out = 0;
            EXPECT_EQ(0, pppoeplusIfGetApi(7, PPPOEPLUS_IF_ENABLE, &out));
            EXPECT_EQ(ZEL_TRUE, out);
        }
    }
}

TEST_F(IfApiTest, DisableOnAnUnknownInterface) {
    // Every port served by default: a disabled entry is created.
    start(true);
    uint32_t v = ZEL_FALSE;
    EXPECT_EQ(0, pppoeplusIfSetApi(7, PPPOEPLUS_IF_ENABLE, &v));
    tPppoePlusIfEntry* e = pppoeplusIfEntryGet(7);
    ASSERT_NE(nullptr, e);
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfEnableGet(e));
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfProtoEnableGet(e));
    EXPECT_TRUE(ps(7, 141).dflt);
    EXPECT_FALSE(ps(7, 141).on);

    // Otherwise nothing happens.
    pppoeplusTestReset();
    start(false);
    EXPECT_EQ(0, pppoeplusIfSyncApi(7, PPPOEPLUS_IF_ENABLE, &v));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(7));
    expectOneHwil(7, PPPOEPLUS_IF_ENABLE, ifCtrl(kSync), u32Bytes(ZEL_FALSE));
    EXPECT_TRUE(sim::callsStartingWith("silMemPoolAlloc").empty());
    expectLockBalanced(1);
}

TEST_F(IfApiTest, EnableOfAnEnabledEntryDoesNothing) {
    for (bool allPort : {false, true}) {
        pppoeplusTestReset();
        start(allPort);
        tPppoePlusIfEntry* e = entry(7);
        auto before = copyOf(e);
        uint32_t v = ZEL_TRUE;
        EXPECT_EQ(0, pppoeplusIfSetApi(7, PPPOEPLUS_IF_ENABLE, &v));
        EXPECT_TRUE(same(*before, e));
        EXPECT_EQ((std::vector<std::string>{"silTakeSem(1,-1)", hwil(7, 2), "silGiveSem(1)"}), sim::g.calls);
    }
}

TEST_F(IfApiTest, EnableOfADisabledEntry) {
    // Every port served by default: trapping is switched on.
    start(true);
    tPppoePlusIfEntry* e = entry(7, 2);
    uint32_t v = ZEL_TRUE;
    EXPECT_EQ(0, pppoeplusIfSetApi(7, PPPOEPLUS_IF_ENABLE, &v));
    EXPECT_EQ(e, pppoeplusIfEntryGet(7));
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfEnableGet(e));
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfProtoEnableGet(e));
    EXPECT_EQ((std::vector<std::string>{ifSet(7, 56, 141), ifSet(7, 56, 19)}), sim::callsStartingWith("zelIfSetApi"));

    // Otherwise the entry is left as it is.
    pppoeplusTestReset();
    start(false);
    e = entry(7, 2);
    auto before = copyOf(e);
    EXPECT_EQ(0, pppoeplusIfSetApi(7, PPPOEPLUS_IF_ENABLE, &v));
    EXPECT_TRUE(same(*before, e));
    EXPECT_TRUE(sim::callsStartingWith("zelIfSetApi").empty());
}

TEST_F(IfApiTest, EnableFailureOfTheEntryIsPassedThrough) {
    start(true);
    entry(7, 2);
    sim::failWhen(ifSet(7, 56, 19), kErr, 1);
    uint32_t v = ZEL_TRUE;
    EXPECT_EQ(-1, pppoeplusIfSetApi(7, PPPOEPLUS_IF_ENABLE, &v));
    // The failed enable took the entry away.
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(7));
    EXPECT_TRUE(treeUnits().empty());
    expectLockBalanced(1);
}

TEST_F(IfApiTest, FailedCreationIsNoResource) {
    for (bool allPort : {false, true}) {
        for (uint32_t value : {ZEL_TRUE, ZEL_FALSE}) {
            if (!allPort && value == ZEL_FALSE) continue;  // nothing is created then
            SCOPED_TRACE("allPort " + std::to_string(allPort) + " value " + std::to_string(value));
            pppoeplusTestReset();
            start(allPort);
            traceAll();
            sim::failNth("silMemPoolAlloc", 1, 0);
            uint32_t v = value;
            EXPECT_EQ(ZEL_ERR_NO_RESOURCE, pppoeplusIfSetApi(7, PPPOEPLUS_IF_ENABLE, &v));
            EXPECT_EQ(nullptr, pppoeplusIfEntryGet(7));
            expectLockBalanced(1);
            EXPECT_EQ(eventMsg("Set interface parameter end: return " + std::to_string(ZEL_ERR_NO_RESOURCE) + "."),
                      eventMsgs().back());
        }
    }
    // A platform refusal while the entry is made counts the same.
    pppoeplusTestReset();
    start(false);
    sim::failWhen(ifSet(7, 56, 141), kErr, 1);
    uint32_t v = ZEL_TRUE;
    EXPECT_EQ(ZEL_ERR_NO_RESOURCE, pppoeplusIfSetApi(7, PPPOEPLUS_IF_ENABLE, &v));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(7));
}

TEST_F(IfApiTest, DisableWithoutAllPortDeletesTheEntry) {
    start(false);
    entry(3);
    tPppoePlusIfEntry* e = entry(7);
    uint32_t v = ZEL_TRUE;
    ASSERT_EQ(0, pppoeplusIfSetApi(7, PPPOEPLUS_IF_TRUST, &v));
    setCounters(e);
    clearRecord();
    uint32_t used = gPppoeplus.ifPool.used;
    v = ZEL_FALSE;
    EXPECT_EQ(0, pppoeplusIfSyncApi(7, PPPOEPLUS_IF_ENABLE, &v));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(7));
    EXPECT_EQ(std::vector<uint32_t>{3}, treeUnits());
    EXPECT_TRUE(listUnits().empty());
    EXPECT_EQ(used - 1, gPppoeplus.ifPool.used);
    EXPECT_FALSE(ps(7, 141).on);
    expectOneHwil(7, PPPOEPLUS_IF_ENABLE, ifCtrl(kSync), u32Bytes(ZEL_FALSE));
    expectLockBalanced(1);
    uint32_t out = 0;
    EXPECT_EQ(ZEL_ERR_NOT_FOUND, pppoeplusIfGetApi(7, PPPOEPLUS_IF_ENABLE, &out));
}

TEST_F(IfApiTest, DisableWithAllPortKeepsTheEntryAtFactorySettings) {
    start(true);
    tPppoePlusIfEntry* e = entry(7);
    uint32_t v = ZEL_TRUE;
    ASSERT_EQ(0, pppoeplusIfSetApi(7, PPPOEPLUS_IF_TRUST, &v));
    v = 2;
    ASSERT_EQ(0, pppoeplusIfSetApi(7, PPPOEPLUS_IF_POLICY, &v));
    v = 1;
    ASSERT_EQ(0, pppoeplusIfSetApi(7, PPPOEPLUS_IF_CIRCUITID_TYPE, &v));
    ASSERT_EQ(0, pppoeplusIfSetApi(7, PPPOEPLUS_IF_REMOTEID_TYPE, &v));
    std::string text = "'%svlan'";
    tPppoeplusStrValue sv = strValue(text);
    ASSERT_EQ(0, pppoeplusIfSetApi(7, PPPOEPLUS_IF_CIRCUITID_FORMAT, &sv));
    ASSERT_EQ(0, pppoeplusIfSetApi(7, PPPOEPLUS_IF_REMOTEID_FORMAT, &sv));
    setCounters(e);
    clearRecord();

    for (uint32_t mode : {kSet, kSync}) {
        SCOPED_TRACE(modeName(mode));
        v = ZEL_FALSE;
        EXPECT_EQ(0, setOrSync(mode, 7, PPPOEPLUS_IF_ENABLE, &v));
        EXPECT_EQ(e, pppoeplusIfEntryGet(7));
        EXPECT_EQ(ZEL_FALSE, pppoeplusIfEnableGet(e));
        EXPECT_EQ(ZEL_FALSE, pppoeplusIfProtoEnableGet(e));
        EXPECT_EQ(ZEL_FALSE, pppoeplusIfTrustGet(e));
        EXPECT_EQ(0u, pppoeplusIfPolicyGet(e));
        EXPECT_EQ(0u, e->circuitIdFormatType);
        EXPECT_EQ(0u, e->remoteIdFormatType);
        EXPECT_EQ(0u, e->circuitIdFormat.formatLen);
        EXPECT_EQ(0u, e->remoteIdFormat.origFormatLen);
        EXPECT_TRUE(countersZero(e));
        EXPECT_TRUE(listUnits().empty());
        EXPECT_FALSE(ps(7, 141).on);
        EXPECT_FALSE(ps(7, 19).on) << "the hardware rule of a port configured off stays off";
        EXPECT_TRUE(ps(7, 141).dflt);
        expectLockBalanced(1);
        clearRecord();
    }
    // The trusted port had its rule off already: only the trap is switched off.
    pppoeplusTestReset();
    start(true);
    entry(7);
    v = ZEL_TRUE;
    ASSERT_EQ(0, pppoeplusIfSetApi(7, PPPOEPLUS_IF_TRUST, &v));
    clearRecord();
    v = ZEL_FALSE;
    EXPECT_EQ(0, pppoeplusIfSetApi(7, PPPOEPLUS_IF_ENABLE, &v));
    EXPECT_EQ(std::vector<std::string>{ifSet(7, 57, 141)}, sim::callsStartingWith("zelIfSetApi"));
}

TEST_F(IfApiTest, EnableWithOtherValuesDoesNothing) {
    for (bool allPort : {false, true}) {
        pppoeplusTestReset();
        start(allPort);
        tPppoePlusIfEntry* e = entry(7);
        auto before = copyOf(e);
        for (uint32_t value : {0u, 3u, 5u, 0xFFFFFFFFu}) {
            uint32_t v = value;
            clearRecord();
            EXPECT_EQ(0, pppoeplusIfSetApi(7, PPPOEPLUS_IF_ENABLE, &v));
            EXPECT_TRUE(same(*before, e));
            EXPECT_EQ(0, pppoeplusIfSetApi(8, PPPOEPLUS_IF_ENABLE, &v));
            EXPECT_EQ(nullptr, pppoeplusIfEntryGet(8));
            EXPECT_EQ(2u, sim::g.hwilCalls.size());
            EXPECT_TRUE(sim::callsStartingWith("zelIfSetApi").empty());
        }
    }
}

// ---- policy and ignorePkt -------------------------------------------------------------------

TEST_F(IfApiTest, PolicyAndIgnorePktKeepTheLowTwoBits) {
    start();
    tPppoePlusIfEntry* e = entry(7);
    const std::pair<uint32_t, uint32_t> values[] = {{0, 0}, {1, 1}, {2, 2}, {3, 3}, {6, 2}, {5, 1}, {0xFFFFFFFC, 0}};
    for (uint32_t mode : {kSet, kSync}) {
        for (uint32_t code : {PPPOEPLUS_IF_POLICY, PPPOEPLUS_IF_IGNORE_PKT}) {
            for (const auto& [value, stored] : values) {
                SCOPED_TRACE(modeName(mode) + " code " + std::to_string(code) + " value " + std::to_string(value));
                clearRecord();
                uint32_t v = value;
                EXPECT_EQ(0, setOrSync(mode, 7, code, &v));
                EXPECT_EQ(stored, code == PPPOEPLUS_IF_POLICY ? pppoeplusIfPolicyGet(e) : pppoeplusIfIgnorePktGet(e));
                EXPECT_EQ(ZEL_TRUE, pppoeplusIfEnableGet(e)) << "the neighbouring fields are untouched";
                EXPECT_EQ(ZEL_FALSE, pppoeplusIfTrustGet(e));
                EXPECT_EQ(ZEL_TRUE, pppoeplusIfProtoEnableGet(e));
                expectOneHwil(7, code, ifCtrl(mode), u32Bytes(value));
                expectLockBalanced(1);
                EXPECT_EQ((std::vector<std::string>{"silTakeSem(1,-1)", hwil(7, code), "silGiveSem(1)"}), sim::g.calls);

                uint32_t out = 0xA5;
                EXPECT_EQ(0, pppoeplusIfGetApi(7, code, &out));
                EXPECT_EQ(stored, out);
            }
        }
    }
}

// ---- format types ---------------------------------------------------------------------------

TEST_F(IfApiTest, TypeCodes) {
    start();
    tPppoePlusIfEntry* e = entry(7);
    for (uint32_t mode : {kSet, kSync}) {
        for (uint32_t code : {PPPOEPLUS_IF_CIRCUITID_TYPE, PPPOEPLUS_IF_REMOTEID_TYPE}) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(code));
            tPppoeplusFormat& f = code == PPPOEPLUS_IF_CIRCUITID_TYPE ? e->circuitIdFormat : e->remoteIdFormat;
            uint32_t& type = code == PPPOEPLUS_IF_CIRCUITID_TYPE ? e->circuitIdFormatType : e->remoteIdFormatType;
            for (uint32_t value : {1u, 2u}) {
                clearRecord();
                pppoeplusFormatInstall(&f, "'x'", "'typed'");
                uint32_t v = value;
                EXPECT_EQ(0, setOrSync(mode, 7, code, &v));
                EXPECT_EQ(value, type);
                EXPECT_EQ("'typed'", origText(f)) << "the text is kept";
                expectOneHwil(7, code, ifCtrl(mode), u32Bytes(value));
                expectLockBalanced(1);
                uint32_t out = 0;
                EXPECT_EQ(0, pppoeplusIfGetApi(7, code, &out));
                EXPECT_EQ(value, out);
            }
            // 0: the entry's own text is emptied, no default is installed.
            clearRecord();
            pppoeplusFormatInstall(&f, "'x'", "'typed'");
            uint32_t v = 0;
            EXPECT_EQ(0, setOrSync(mode, 7, code, &v));
            EXPECT_EQ(0u, type);
            EXPECT_EQ(0u, f.formatLen);
            EXPECT_EQ(0u, f.origFormatLen);
            for (uint32_t i = 0; i < PPPOEPLUS_FORMAT_LEN; i++) {
                ASSERT_EQ(0, f.format[i]);
                ASSERT_EQ(0, f.origFormat[i]);
            }
            EXPECT_EQ(static_cast<uint8_t>('s'), f.keywords[0].keywordChar) << "the keyword table stays";
        }
    }
}

TEST_F(IfApiTest, TypeOutOfRangeIsRefused) {
    start();
    tPppoePlusIfEntry* e = entry(7);
    const std::pair<uint32_t, const char*> cases[] = {
        {PPPOEPLUS_IF_CIRCUITID_TYPE, "Failed to set circuit-id type!"},
        {PPPOEPLUS_IF_REMOTEID_TYPE, "Failed to set remote-id type!"},
    };
    for (uint32_t mode : {kSet, kSync}) {
        for (const auto& [code, failMsg] : cases) {
            for (uint32_t value : {3u, 0xFFFFFFFFu}) {
                SCOPED_TRACE(modeName(mode) + " code " + std::to_string(code) + " value " + std::to_string(value));
                clearRecord();
                traceAll();
                auto before = copyOf(e);
                uint32_t v = value;
                EXPECT_EQ(ZEL_EINVAL, setOrSync(mode, 7, code, &v));
                EXPECT_TRUE(same(*before, e));
                expectOneHwil(7, code, ifCtrl(mode), u32Bytes(value));
                expectLockBalanced(1);
                EXPECT_EQ((std::vector<Msg>{errorMsg(failMsg)}), errorMsgs());
                EXPECT_EQ((std::vector<Msg>{eventMsg("Set interface parameter: cmd " + std::to_string(code) + "."),
                                            eventMsg("Set interface parameter end: return 22.")}),
                          eventMsgs());
                clearRecord();
                pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT);
                EXPECT_EQ(ZEL_EINVAL, setOrSync(mode, 7, code, &v));
                EXPECT_TRUE(errorMsgs().empty());
            }
        }
    }
}

// ---- formats ---------------------------------------------------------------------------------

struct IfFormatCase {
    uint32_t code;
    uint32_t typeCode;
    const char* formatMsg;  // with %s
};

const IfFormatCase kIfFormatCases[] = {
    {PPPOEPLUS_IF_CIRCUITID_FORMAT, PPPOEPLUS_IF_CIRCUITID_TYPE, "Format %s incorrect, Please check!"},
    {PPPOEPLUS_IF_REMOTEID_FORMAT, PPPOEPLUS_IF_REMOTEID_TYPE, "Format %s incorrect, please check!"},
};

std::string withText(const char* pattern, const std::string& text) {
    std::string p(pattern);
    size_t at = p.find("%s");
    return p.substr(0, at) + text + p.substr(at + 2);
}

tPppoeplusFormat& ownFormat(tPppoePlusIfEntry* e, uint32_t code) {
    return code == PPPOEPLUS_IF_CIRCUITID_FORMAT ? e->circuitIdFormat : e->remoteIdFormat;
}

TEST_F(IfApiTest, UserDefineFormatIsSimplifiedIntoTheEntry) {
    start();
    tPppoePlusIfEntry* e = entry(7);
    for (uint32_t mode : {kSet, kSync}) {
        for (const IfFormatCase& fc : kIfFormatCases) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(fc.code));
            uint32_t v = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
            ASSERT_EQ(0, pppoeplusIfSetApi(7, fc.typeCode, &v));
            clearRecord();
            auto globalBefore = std::make_unique<tPppoeplusGlobal>();
            std::memcpy(globalBefore.get(), &gPppoeplus, sizeof(gPppoeplus));
            std::string text = "'%portname/%svlan' %16cvlan";
            tPppoeplusStrValue sv = strValue(text);
            EXPECT_EQ(0, setOrSync(mode, 7, fc.code, &sv));
            EXPECT_EQ("'%N/%s' %16c", fmtText(ownFormat(e, fc.code)));
            EXPECT_EQ(text, origText(ownFormat(e, fc.code)));
            EXPECT_EQ(0, std::memcmp(globalBefore.get(), &gPppoeplus, sizeof(gPppoeplus))) << "global untouched";
            expectOneHwil(7, fc.code, ctrlBytes(mode | kIfMode | kStrMode, 4, static_cast<uint32_t>(text.size())),
                          textBytes(text));
            EXPECT_EQ(mode | 0x90000000u, ctrlWord(sim::g.hwilCalls[0].ctrl, 0));
            EXPECT_EQ(4u, ctrlWord(sim::g.hwilCalls[0].ctrl, 4));
            EXPECT_EQ(text.size(), ctrlWord(sim::g.hwilCalls[0].ctrl, 16));
            expectLockBalanced(1);

            clearRecord();
            char buf[256] = {};
            tPppoeplusStrValue out{buf, sizeof(buf)};
            EXPECT_EQ(0, pppoeplusIfGetApi(7, fc.code, &out));
            EXPECT_EQ(text, std::string(buf, out.len));
            EXPECT_TRUE(sim::g.hwilCalls.empty());
            expectLockBalanced(1);
        }
    }
}

TEST_F(IfApiTest, DefaultAndAsciiFormatsAreStoredAsTheyStand) {
    start();
    tPppoePlusIfEntry* e = entry(7);
    for (uint32_t type : {PPPOEPLUS_FORMAT_TYPE_DEFAULT, PPPOEPLUS_FORMAT_TYPE_ASCII}) {
        for (const IfFormatCase& fc : kIfFormatCases) {
            SCOPED_TRACE("type " + std::to_string(type) + " code " + std::to_string(fc.code));
            (fc.code == PPPOEPLUS_IF_CIRCUITID_FORMAT ? e->circuitIdFormatType : e->remoteIdFormatType) = type;
            std::string text = "'%N-%C'";
            tPppoeplusStrValue sv = strValue(text);
            EXPECT_EQ(0, pppoeplusIfSetApi(7, fc.code, &sv));
            EXPECT_EQ(text, fmtText(ownFormat(e, fc.code)));
            EXPECT_EQ(text, origText(ownFormat(e, fc.code)));
        }
    }
}

TEST_F(IfApiTest, FormatMessages) {
    start();
    tPppoePlusIfEntry* e = entry(7);
    for (uint32_t mode : {kSet, kSync}) {
        for (const IfFormatCase& fc : kIfFormatCases) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(fc.code));
            uint32_t v = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
            ASSERT_EQ(0, pppoeplusIfSetApi(7, fc.typeCode, &v));

            // A keyword that matches nothing: the same words for both codes.
            clearRecord();
            traceAll();
            auto before = copyOf(e);
            std::string text = "'%portnam'";
            tPppoeplusStrValue sv = strValue(text);
            EXPECT_EQ(ZEL_EINVAL, setOrSync(mode, 7, fc.code, &sv));
            EXPECT_TRUE(same(*before, e));
            EXPECT_EQ(errorMsg("Keyword incorrect '%portnam', Please check!"), errorMsgs().back());
            EXPECT_EQ(eventMsg("Set interface parameter end: return 22."), eventMsgs().back());
            expectOneHwil(7, fc.code, ctrlBytes(mode | kIfMode | kStrMode, 4, 10), textBytes(text));
            expectLockBalanced(1);

            // A refused format: the two codes differ in one letter; the text
            // named is the simplified one.
            clearRecord();
            text = "'%portname%svlan'";
            sv = strValue(text);
            EXPECT_EQ(ZEL_EINVAL, setOrSync(mode, 7, fc.code, &sv));
            EXPECT_TRUE(same(*before, e));
            EXPECT_EQ(errorMsg(withText(fc.formatMsg, "'%N%s'")), errorMsgs().back());

            clearRecord();
            pppoeplusDebugSwitchSet(0);
            EXPECT_EQ(ZEL_EINVAL, setOrSync(mode, 7, fc.code, &sv));
            EXPECT_TRUE(msgs().empty());
        }
    }
}

TEST_F(IfApiTest, FormatOf256BytesIsTooLongAfterTheHardwareLayerHasIt) {
    start();
    tPppoePlusIfEntry* e = entry(7);
    for (uint32_t mode : {kSet, kSync}) {
        for (const IfFormatCase& fc : kIfFormatCases) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(fc.code));
            clearRecord();
            auto before = copyOf(e);
            std::string text = "'" + std::string(254, 'q') + "'";
            tPppoeplusStrValue sv = strValue(text);
            EXPECT_EQ(ZEL_ERR_TOO_LONG, setOrSync(mode, 7, fc.code, &sv));
            EXPECT_TRUE(same(*before, e));
            expectOneHwil(7, fc.code, ctrlBytes(mode | kIfMode | kStrMode, 4, 256), textBytes(text));
            expectLockBalanced(1);

            clearRecord();
            text.resize(255);
            text.back() = '\'';
            sv = strValue(text);
            EXPECT_EQ(0, setOrSync(mode, 7, fc.code, &sv));
            EXPECT_EQ(text, origText(ownFormat(e, fc.code)));
            // Back to no text of its own.
            pppoeplusFormatClear(&ownFormat(e, fc.code));
        }
    }
}

TEST_F(IfApiTest, FormatWithoutTextPointer) {
    start();
    entry(7);
    tPppoeplusStrValue sv{nullptr, 4};
    EXPECT_EQ(ZEL_ERR_NULL_POINTER, pppoeplusIfSetApi(7, PPPOEPLUS_IF_CIRCUITID_FORMAT, &sv));
    EXPECT_EQ(1u, sim::g.hwilCalls.size());
    expectLockBalanced(1);
}

// ---- counters ------------------------------------------------------------------------------

TEST_F(IfApiTest, CountersAreReadByName) {
    start();
    tPppoePlusIfEntry* e = entry(7);
    setCounters(e);
    const std::pair<uint32_t, uint32_t> cases[] = {
        {PPPOEPLUS_IF_ERROR_RCV, 101}, {PPPOEPLUS_IF_ERROR_SEND, 102}, {PPPOEPLUS_IF_PADI_RCV, 103},
        {PPPOEPLUS_IF_PADR_RCV, 104},  {PPPOEPLUS_IF_PADO_RCV, 106},   {PPPOEPLUS_IF_PADS_RCV, 107},
        {PPPOEPLUS_IF_PADT_RCV, 105},  {PPPOEPLUS_IF_TOTAL_SEND, 108},
    };
    for (const auto& [code, expected] : cases) {
        SCOPED_TRACE(code);
        clearRecord();
        uint32_t out = 0;
        EXPECT_EQ(0, pppoeplusIfGetApi(7, code, &out));
        EXPECT_EQ(expected, out);
        expectLockBalanced(1);
    }
}

TEST_F(IfApiTest, ClearZeroesTheCountersWithoutTheHardwareLayer) {
    start();
    tPppoePlusIfEntry* e = entry(7);
    tPppoePlusIfEntry* other = entry(8);
    setCounters(other);
    for (uint32_t mode : {kSet, kSync}) {
        SCOPED_TRACE(modeName(mode));
        setCounters(e);
        clearRecord();
        pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT);
        uint32_t v = 0xDEAD;  // ignored
        EXPECT_EQ(0, setOrSync(mode, 7, PPPOEPLUS_IF_STAT_CLEAR, &v));
        EXPECT_TRUE(countersZero(e));
        EXPECT_EQ(101u, other->errorRcv);
        EXPECT_TRUE(sim::g.hwilCalls.empty());
        expectLockBalanced(1);
        EXPECT_EQ((std::vector<Msg>{eventMsg("Set interface parameter: cmd 17."),
                                    eventMsg("Set interface parameter end: return 0.")}),
                  msgs());
        EXPECT_EQ(ZEL_ERR_NULL_POINTER, setOrSync(mode, 7, PPPOEPLUS_IF_STAT_CLEAR, nullptr));
    }
}

// ---- gets --------------------------------------------------------------------------------------

TEST_F(IfApiTest, GetOfTheFlagFieldsAndTypes) {
    start();
    tPppoePlusIfEntry* e = entry(7, 2);
    pppoeplusIfTrustSet(e, ZEL_TRUE);
    pppoeplusIfPolicySet(e, 3);
    pppoeplusIfIgnorePktSet(e, ZEL_TRUE);
    e->circuitIdFormatType = 2;
    e->remoteIdFormatType = 1;
    const std::pair<uint32_t, uint32_t> cases[] = {
        {PPPOEPLUS_IF_TRUST, ZEL_TRUE},         {PPPOEPLUS_IF_ENABLE, ZEL_FALSE},
        {PPPOEPLUS_IF_POLICY, 3},               {PPPOEPLUS_IF_IGNORE_PKT, ZEL_TRUE},
        {PPPOEPLUS_IF_CIRCUITID_TYPE, 2},       {PPPOEPLUS_IF_REMOTEID_TYPE, 1},
    };
    for (const auto& [code, expected] : cases) {
        uint32_t out = 0xA5;
        EXPECT_EQ(0, pppoeplusIfGetApi(7, code, &out)) << code;
        EXPECT_EQ(expected, out) << code;
    }
}

TEST_F(IfApiTest, CircuitIdOfAnEntryWithoutItsOwnFormat) {
    start();
    pppoeplusFormatInstall(&gPppoeplus.circuitIdFormat, "'c'", "'common'");
    pppoeplusFormatInstall(&gPppoeplus.ponCircuitIdFormat, "'p'", "'pon line'");
    const std::pair<uint32_t, std::string> cases[] = {
        {1, "'common'"},       // Ethernet port
        {30, "'common'"},      // Ethernet aggregate
        {20, "'pon line'"},    // EPON port
        {21, "'pon line'"},    // GPON port
        {22, "'pon line'"},    // PON aggregate
    };
    for (const auto& [unit, text] : cases) {
        SCOPED_TRACE(unit);
        entry(unit);
        clearRecord();
        char buf[256] = {};
        tPppoeplusStrValue out{buf, sizeof(buf)};
        EXPECT_EQ(0, pppoeplusIfGetApi(unit, PPPOEPLUS_IF_CIRCUITID_FORMAT, &out));
        EXPECT_EQ(text, std::string(buf, out.len));
        expectLockBalanced(1);
    }
    // A kind the platform does not name reads the common one.
    sim::addInterface(40, "other40", 7);
    entry(40);
    char buf[256] = {};
    tPppoeplusStrValue out{buf, sizeof(buf)};
    EXPECT_EQ(0, pppoeplusIfGetApi(40, PPPOEPLUS_IF_CIRCUITID_FORMAT, &out));
    EXPECT_EQ("'common'", std::string(buf, out.len));
}

TEST_F(IfApiTest, FormatsOfAnEntryWithItsOwn) {
    start();
    tPppoePlusIfEntry* e = entry(21);
    pppoeplusFormatInstall(&e->circuitIdFormat, "'o'", "'own circuit'");
    pppoeplusFormatInstall(&e->remoteIdFormat, "'r'", "'own remote'");
    for (uint32_t type : {1u, 2u, 7u}) {
        SCOPED_TRACE(type);
        e->circuitIdFormatType = type;
        e->remoteIdFormatType = type;
        char buf[256] = {};
        tPppoeplusStrValue out{buf, sizeof(buf)};
        EXPECT_EQ(0, pppoeplusIfGetApi(21, PPPOEPLUS_IF_CIRCUITID_FORMAT, &out));
        EXPECT_EQ("'own circuit'", std::string(buf, out.len));
        out.len = sizeof(buf);
        EXPECT_EQ(0, pppoeplusIfGetApi(21, PPPOEPLUS_IF_REMOTEID_FORMAT, &out));
        EXPECT_EQ("'own remote'", std::string(buf, out.len));
    }
    // Type 0: the global Remote-ID.
    e->remoteIdFormatType = 0;
    char buf[256] = {};
    tPppoeplusStrValue out{buf, sizeof(buf)};
    EXPECT_EQ(0, pppoeplusIfGetApi(21, PPPOEPLUS_IF_REMOTEID_FORMAT, &out));
    EXPECT_EQ("'%portmac'", std::string(buf, out.len));
}

// A PON entry with type 0 reads the global PON format; a set type with no
// text of its own yet reads nothing.
TEST_F(IfApiTest, GetOfAMissingFormatText) {
    start();
    tPppoePlusIfEntry* e = entry(21);
    char buf[256] = {};
    tPppoeplusStrValue out{buf, sizeof(buf)};
    EXPECT_EQ(0, pppoeplusIfGetApi(21, PPPOEPLUS_IF_CIRCUITID_FORMAT, &out));
    EXPECT_EQ("'0 0/0/0:0.0 %accessnode/%rack/%frame/%slot/0/%port/%onuid %accesstype'", std::string(buf, out.len));

    e->circuitIdFormatType = 1;
    e->remoteIdFormatType = 2;
    for (uint32_t code : {PPPOEPLUS_IF_CIRCUITID_FORMAT, PPPOEPLUS_IF_REMOTEID_FORMAT}) {
        clearRecord();
        out.len = sizeof(buf);
        EXPECT_EQ(ZEL_EINVAL, pppoeplusIfGetApi(21, code, &out)) << code;
        EXPECT_EQ(0u, out.len);
        expectLockBalanced(1);
    }
    // Likewise when the global text is missing.
    e->remoteIdFormatType = 0;
    pppoeplusFormatClear(&gPppoeplus.remoteIdFormat);
    out.len = sizeof(buf);
    EXPECT_EQ(ZEL_EINVAL, pppoeplusIfGetApi(21, PPPOEPLUS_IF_REMOTEID_FORMAT, &out));
    EXPECT_EQ(0u, out.len);
}

}  // namespace
