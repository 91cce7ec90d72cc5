// Interface entries: layout, order, look-up, add, enable, disable, delete and
// reset, with every platform failure, its roll-back and its message.
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "agent/global.h"
#include "daemon/startup.h"
#include "format/keywords.h"
#include "iftable/if_entry.h"
#include "iftable/trust_list.h"
#include "platform/avl.h"
#include "platform/types.h"
#include "support/fixture.h"

namespace {

constexpr int64_t kErr = ZEL_ERR_GENERAL;

// One captured log record: operator log?, module, level, part, text.
using Log = std::tuple<bool, uint32_t, uint32_t, uint32_t, std::string>;

std::vector<Log> logs() {
    std::vector<Log> out;
    for (const sim::LogRecord& r : sim::g.logs) out.emplace_back(r.oper, r.module, r.level, r.part, r.text);
    return out;
}

Log enableErr(const std::string& ifName, const std::string& proto, const std::string& type) {
    return Log{true, 0x45D0006, 7, 0,
               "The interface enable protocol error.(ifName=[" + ifName + "], proto=[" + proto + "], type=[" + type +
                   "])\r\n"};
}

Log disableErr(const std::string& ifName, const std::string& proto, const std::string& type) {
    return Log{true, 0x45D0007, 7, 0,
               "The interface disable protocol error.(ifName=[" + ifName + "], proto=[" + proto + "], type=[" +
                   type + "])\r\n"};
}

const Log kAllocErr{false, 0x45D0004, 5, 0, "Failed to add interface entry; alloc if entry failed!\r\n"};
const Log kAclErr{false, 0x45D0004, 5, 0, "Failed to add acl on hardware!\r\n"};

std::string portName(uint32_t unit) { return "eth0/" + std::to_string(unit); }

std::string set(uint32_t unit, uint32_t attr, uint32_t proto) {
    return "zelIfSetApi(" + std::to_string(unit) + "," + std::to_string(attr) + "," + std::to_string(proto) + ")";
}

const std::string kAlloc = "silMemPoolAlloc(pppoeplus_if)";
const std::string kFree = "silMemPoolFree(pppoeplus_if)";

std::string macRead(uint32_t unit) { return "zelIfGetApi(" + std::to_string(unit) + ",33)"; }
std::string phyRead(uint32_t unit) { return "zelIndexTrans(" + std::to_string(unit) + ",5)"; }

// Units in tree order.
std::vector<uint32_t> treeUnits() {
    std::vector<uint32_t> out;
    for (auto* e = static_cast<tPppoePlusIfEntry*>(avl_first(&gPppoeplus.ifTree)); e != nullptr;
         e = static_cast<tPppoePlusIfEntry*>(avl_walk(&gPppoeplus.ifTree, e, AVL_AFTER)))
        out.push_back(e->ifUnit);
    return out;
}

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

uint32_t poolUsed() { return gPppoeplus.ifPool.used; }

// What zelIfSetApi left for `proto` on `unit`.
sim::ProtoState& ps(uint32_t unit, uint32_t proto) { return sim::g.protoStates[std::make_pair(unit, proto)]; }

// Makes an entry trusted as the interface trust command does.
void trust(tPppoePlusIfEntry* e) {
    pppoeplusIfTrustSet(e, ZEL_TRUE);
    pppoeplusTrustIfEntryAttach(e);
}

void clearRecord() {
    sim::g.calls.clear();
    sim::g.logs.clear();
    sim::g.callCounts.clear();
}

class IfEntryTest : public SimTest {
  protected:
    // Starts the daemon, with every port served by default when `allPort`,
    // and creates ports 1 to 12 and 0x80000001.
    void start(bool allPort = false) {
        pppoeplusTestStart(0, allPort ? 1 : 0);
        for (uint32_t u = 1; u <= 12; u++) sim::addInterface(u, portName(u), ZEL_OND_ETH);
        sim::addInterface(0x80000001u, "eth9/1", ZEL_OND_ETH);
    }
    static void errorTrace(bool on) {
        pppoeplusDebugSwitchSet(on ? (PPPOEPLUS_DEBUG_STARTUP | PPPOEPLUS_DEBUG_ERROR) : PPPOEPLUS_DEBUG_STARTUP);
    }
    // Entries 2 (trusted) and 9 around the one under test.
    void neighbours() {
        tPppoePlusIfEntry* two = pppoeplusIfEntryAdd(2, 1);
        ASSERT_NE(nullptr, two);
        trust(two);
        ASSERT_NE(nullptr, pppoeplusIfEntryAdd(9, 1));
        clearRecord();
    }
};

// ---- layout -------------------------------------------------------------------

TEST(IfEntryLayout, SixTwoBitFieldsInOneWordEnableOnTop) {
    auto e = std::make_unique<tPppoePlusIfEntry>();
    std::memset(e.get(), 0, sizeof(*e));
    pppoeplusIfEnableSet(e.get(), 1);
    EXPECT_EQ(0x4000u, e->bits);
    pppoeplusIfTrustSet(e.get(), 2);
    EXPECT_EQ(0x6000u, e->bits);
    pppoeplusIfPolicySet(e.get(), 3);
    EXPECT_EQ(0x6C00u, e->bits);
    pppoeplusIfIgnorePktSet(e.get(), 1);
    EXPECT_EQ(0x6D00u, e->bits);
    pppoeplusIfProtoEnableSet(e.get(), 2);
    EXPECT_EQ(0x6D80u, e->bits);
    pppoeplusIfProtoDfltEnableSet(e.get(), 3);
    EXPECT_EQ(0x6DB0u, e->bits);
    EXPECT_EQ(0u, e->bits & PPPOEPLUS_IFBIT_SPARE_MASK);

    // Each field reads back on its own and a write touches only its field.
    EXPECT_EQ(1u, pppoeplusIfEnableGet(e.get()));
    EXPECT_EQ(2u, pppoeplusIfTrustGet(e.get()));
    EXPECT_EQ(3u, pppoeplusIfPolicyGet(e.get()));
    EXPECT_EQ(1u, pppoeplusIfIgnorePktGet(e.get()));
    EXPECT_EQ(2u, pppoeplusIfProtoEnableGet(e.get()));
    EXPECT_EQ(3u, pppoeplusIfProtoDfltEnableGet(e.get()));
    pppoeplusIfTrustSet(e.get(), 0);
    EXPECT_EQ(0x4DB0u, e->bits);
    pppoeplusIfEnableSet(e.get(), 7);  // only two bits are kept
    EXPECT_EQ(0xCDB0u, e->bits);
}

TEST(IfEntryLayout, FieldOrder) {
    EXPECT_EQ(0u, offsetof(tPppoePlusIfEntry, treeNode));
    EXPECT_EQ(sizeof(avl_node_t), offsetof(tPppoePlusIfEntry, trustNode));
    EXPECT_LT(offsetof(tPppoePlusIfEntry, trustNode), offsetof(tPppoePlusIfEntry, ifUnit));
    EXPECT_EQ(offsetof(tPppoePlusIfEntry, ifUnit) + 4, offsetof(tPppoePlusIfEntry, errorRcv));
    EXPECT_EQ(offsetof(tPppoePlusIfEntry, totalSend) + 4, offsetof(tPppoePlusIfEntry, circuitIdFormatType));
    EXPECT_LT(offsetof(tPppoePlusIfEntry, remoteIdFormatType), offsetof(tPppoePlusIfEntry, circuitIdFormat));
    EXPECT_LT(offsetof(tPppoePlusIfEntry, circuitIdFormat), offsetof(tPppoePlusIfEntry, remoteIdFormat));
    EXPECT_LT(offsetof(tPppoePlusIfEntry, remoteIdFormat), offsetof(tPppoePlusIfEntry, mac));
    EXPECT_EQ(offsetof(tPppoePlusIfEntry, mac) + 6, offsetof(tPppoePlusIfEntry, bits));
    EXPECT_EQ(offsetof(tPppoePlusIfEntry, bits) + 2, offsetof(tPppoePlusIfEntry, phyInfo));
    EXPECT_EQ(32u, sizeof(tZelPhyInfo));
}

TEST(IfEntryLayout, CountersClearZeroesExactlyTheEightCounters) {
    auto e = std::make_unique<tPppoePlusIfEntry>();
    std::memset(e.get(), 0x5A, sizeof(*e));
    pppoeplusIfEntryCountersClear(e.get());
    const uint32_t* counters = &e->errorRcv;
    for (uint32_t i = 0; i < PPPOEPLUS_IF_COUNTER_NUM; i++) EXPECT_EQ(0u, counters[i]) << i;
    EXPECT_EQ(0x5A5A5A5Au, e->ifUnit);
    EXPECT_EQ(0x5A5A5A5Au, e->circuitIdFormatType);
}

// ---- order and look-up ------------------------------------------------------------

TEST(IfEntryCmp, NullArguments) {
    tPppoePlusIfEntry e{};
    EXPECT_EQ(-1, pppoeplusIfCmp(nullptr, nullptr));
    EXPECT_EQ(-1, pppoeplusIfCmp(nullptr, &e));
    EXPECT_EQ(1, pppoeplusIfCmp(&e, nullptr));
}

TEST(IfEntryCmp, UnsignedUnits) {
    tPppoePlusIfEntry a{};
    tPppoePlusIfEntry b{};
    a.ifUnit = 0x80000000u;
    b.ifUnit = 1;
    EXPECT_EQ(1, pppoeplusIfCmp(&a, &b)) << "the top bit is not a sign";
    EXPECT_EQ(-1, pppoeplusIfCmp(&b, &a));
    b.ifUnit = 0x80000000u;
    EXPECT_EQ(0, pppoeplusIfCmp(&a, &b));
    a.ifUnit = 0xFFFFFFFFu;
    EXPECT_EQ(1, pppoeplusIfCmp(&a, &b));
    EXPECT_EQ(-1, pppoeplusIfCmp(&b, &a));
}

TEST_F(IfEntryTest, TreeWalkIsAscendingUnsigned) {
    start();
    ASSERT_NE(nullptr, pppoeplusIfEntryAdd(0x80000001u, 2));
    ASSERT_NE(nullptr, pppoeplusIfEntryAdd(7, 2));
    ASSERT_NE(nullptr, pppoeplusIfEntryAdd(3, 2));
    EXPECT_EQ((std::vector<uint32_t>{3, 7, 0x80000001u}), treeUnits());
}

TEST_F(IfEntryTest, GetOfAbsentUnitIsNull) {
    start();
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(5));
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 2);
    ASSERT_NE(nullptr, e);
    EXPECT_EQ(e, pppoeplusIfEntryGet(5));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(6));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(0x80000005u));
}

// ---- add --------------------------------------------------------------------------

TEST_F(IfEntryTest, AddEnabled) {
    start();
    sim::Interface& itf = sim::g.interfaces[5];
    const uint8_t mac[6] = {0x02, 0xAB, 0xCD, 0xEF, 0x01, 0x23};
    std::memcpy(itf.mac, mac, 6);
    itf.phyInfo.slotNo = 3;
    itf.phyInfo.portNo = 17;
    itf.phyInfo.onuNo = 9;

    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
    ASSERT_NE(nullptr, e);
    EXPECT_EQ((std::vector<std::string>{kAlloc, set(5, 56, 141), set(5, 56, 19), macRead(5), phyRead(5)}),
              sim::g.calls);
    EXPECT_TRUE(logs().empty()) << "no message while the event trace is off";
    EXPECT_TRUE(ps(5, 141).on);
    EXPECT_TRUE(ps(5, 19).on);
    EXPECT_FALSE(ps(5, 141).dflt);

    EXPECT_EQ(5u, e->ifUnit);
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfEnableGet(e));
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfTrustGet(e));
    EXPECT_EQ(0u, pppoeplusIfPolicyGet(e));
    EXPECT_EQ(0u, pppoeplusIfIgnorePktGet(e));
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfProtoEnableGet(e));
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfProtoDfltEnableGet(e));
    EXPECT_EQ(0x6060u, e->bits);
    EXPECT_EQ(nullptr, e->trustNode.next);
    EXPECT_EQ(nullptr, e->trustNode.prev);
    EXPECT_EQ(0, std::memcmp(mac, e->mac, 6));
    EXPECT_EQ(0, std::memcmp(&itf.phyInfo, &e->phyInfo, sizeof(tZelPhyInfo)));
    EXPECT_EQ(0u, e->circuitIdFormatType);
    EXPECT_EQ(0u, e->remoteIdFormatType);
    for (uint32_t i = 0; i < PPPOEPLUS_KEYWORD_NUM; i++) {
        EXPECT_STREQ(gPppoeplusKeywordTable[i].keyword, e->circuitIdFormat.keywords[i].keyword);
        EXPECT_EQ(static_cast<uint8_t>(gPppoeplusKeywordTable[i].keywordChar),
                  e->remoteIdFormat.keywords[i].keywordChar);
    }
    EXPECT_EQ(0u, e->circuitIdFormat.formatLen);
    EXPECT_EQ(0u, e->remoteIdFormat.origFormatLen);
    EXPECT_EQ(e, pppoeplusIfEntryGet(5));
    EXPECT_EQ(1u, poolUsed());
}

TEST_F(IfEntryTest, AddDisabledLeavesTrappingOffButInsertsTheEntry) {
    start();
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 2);
    ASSERT_NE(nullptr, e);
    EXPECT_EQ((std::vector<std::string>{kAlloc, macRead(5), phyRead(5)}), sim::g.calls);
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfProtoEnableGet(e));
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfProtoDfltEnableGet(e));
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfEnableGet(e));
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfTrustGet(e));
    EXPECT_EQ(e, pppoeplusIfEntryGet(5));
    EXPECT_EQ(1u, poolUsed());
}

TEST_F(IfEntryTest, AddDisabledWithAllPortSwitchesDefaultStatesOn) {
    start(true);
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 2);
    ASSERT_NE(nullptr, e);
    EXPECT_EQ((std::vector<std::string>{kAlloc, set(5, 53, 141), set(5, 53, 19), macRead(5), phyRead(5)}),
              sim::g.calls);
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfProtoEnableGet(e));
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfProtoDfltEnableGet(e));
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfEnableGet(e));
    EXPECT_TRUE(ps(5, 141).dflt);
    EXPECT_TRUE(ps(5, 19).dflt);
    EXPECT_FALSE(ps(5, 141).on);
    EXPECT_EQ(e, pppoeplusIfEntryGet(5));
}

TEST_F(IfEntryTest, AddEnabledWithAllPort) {
    start(true);
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
    ASSERT_NE(nullptr, e);
    EXPECT_EQ((std::vector<std::string>{kAlloc, set(5, 53, 141), set(5, 53, 19), set(5, 56, 141), set(5, 56, 19),
                                        macRead(5), phyRead(5)}),
              sim::g.calls);
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfProtoEnableGet(e));
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfProtoDfltEnableGet(e));
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfEnableGet(e));
}

TEST_F(IfEntryTest, AddWithAnyOtherEnableValueAddsDisabled) {
    start();
    for (uint32_t unit : {4u, 5u, 6u}) {
        tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(unit, unit == 4 ? 0 : unit == 5 ? 3 : 0xFFFFFFFFu);
        ASSERT_NE(nullptr, e);
        EXPECT_EQ(ZEL_FALSE, pppoeplusIfEnableGet(e));
        EXPECT_EQ(ZEL_FALSE, pppoeplusIfProtoEnableGet(e));
    }
    EXPECT_TRUE(sim::callsStartingWith("zelIfSetApi").empty());
}

TEST_F(IfEntryTest, AddTracesWhenEventTraceIsOn) {
    start();
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT);
    ASSERT_NE(nullptr, pppoeplusIfEntryAdd(5, 1));
    ASSERT_NE(nullptr, pppoeplusIfEntryAdd(6, 2));
    EXPECT_EQ((std::vector<Log>{{false, 0x45D0005, 7, 0, "Add and enable an interface eth0/5.\r\n"},
                                {false, 0x45D0005, 7, 0, "Add and enable an interface eth0/6.\r\n"}}),
              logs())
        << "the same words whether or not it was enabled";
}

TEST_F(IfEntryTest, AddIgnoresMacAndPositionFailures) {
    start();
    sim::g.interfaces[5].macOk = false;
    sim::g.interfaces[5].phyOk = false;
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
    ASSERT_NE(nullptr, e);
    const uint8_t zero[32] = {};
    EXPECT_EQ(0, std::memcmp(zero, e->mac, 6));
    EXPECT_EQ(0, std::memcmp(zero, &e->phyInfo, 32));
    EXPECT_EQ(e, pppoeplusIfEntryGet(5));
    EXPECT_STREQ("svlan", e->circuitIdFormat.keywords[0].keyword) << "formats are initialised all the same";
    EXPECT_TRUE(logs().empty());
}

TEST_F(IfEntryTest, AddZeroesWhatThePoolHandsOut) {
    start();
    sim::g.allocFill = 0xA5;
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 2);
    ASSERT_NE(nullptr, e);
    EXPECT_EQ(nullptr, e->trustNode.next);
    EXPECT_EQ(nullptr, e->trustNode.prev);
    EXPECT_EQ(0u, e->errorRcv);
    EXPECT_EQ(0u, e->errorSend);
    EXPECT_EQ(0u, e->padiRcv);
    EXPECT_EQ(0u, e->padrRcv);
    EXPECT_EQ(0u, e->padtRcv);
    EXPECT_EQ(0u, e->padoRcv);
    EXPECT_EQ(0u, e->padsRcv);
    EXPECT_EQ(0u, e->totalSend);
    EXPECT_EQ(0u, e->circuitIdFormat.formatLen);
    EXPECT_EQ(0u, e->circuitIdFormat.origFormatLen);
    EXPECT_EQ('\0', e->circuitIdFormat.format[0]);
    EXPECT_EQ('\0', e->remoteIdFormat.origFormat[255]);
    EXPECT_EQ(0xA0A0u, e->bits) << "enable and trust ZEL_FALSE, policy and ignorePkt 0, protocol fields ZEL_FALSE";
    EXPECT_EQ(0u, pppoeplusIfIgnorePktGet(e));
    EXPECT_EQ(0u, e->bits & PPPOEPLUS_IFBIT_SPARE_MASK);
    // Detaching a fresh entry must not follow garbage pointers.
    pppoeplusTrustIfEntryDetach(e);
    EXPECT_TRUE(listUnits().empty());
}

TEST_F(IfEntryTest, AddOfAUnitThatHasAnEntryChangesNothing) {
    start();
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
    ASSERT_NE(nullptr, e);
    clearRecord();
    EXPECT_EQ(nullptr, pppoeplusIfEntryAdd(5, 1));
    EXPECT_TRUE(sim::g.calls.empty());
    EXPECT_EQ(e, pppoeplusIfEntryGet(5));
    EXPECT_EQ(1u, poolUsed());
}

TEST_F(IfEntryTest, NamesInMessagesComeFromThePlatformAndAreBounded) {
    start();
    const std::string longName(80, 'x');
    sim::addInterface(20, longName, ZEL_OND_ETH);
    sim::failWhen(set(20, 56, 141), kErr, 1);
    EXPECT_EQ(nullptr, pppoeplusIfEntryAdd(20, 1));
    // A unit the platform does not know: its calls fail and the name is empty.
    EXPECT_EQ(nullptr, pppoeplusIfEntryAdd(40, 1));
    EXPECT_EQ((std::vector<Log>{enableErr(std::string(63, 'x'), "pppoe+", "state"), enableErr("", "pppoe+", "state")}),
              logs());
    EXPECT_EQ(0u, poolUsed());
}

// ---- add: every failure -------------------------------------------------------------

TEST_F(IfEntryTest, AddFailsWhenThePoolIsExhausted) {
    start();
    neighbours();
    errorTrace(true);
    sim::failNth("silMemPoolAlloc", 1, 0);
    EXPECT_EQ(nullptr, pppoeplusIfEntryAdd(5, 1));
    EXPECT_EQ((std::vector<std::string>{kAlloc}), sim::g.calls);
    EXPECT_EQ((std::vector<Log>{kAllocErr}), logs());
    EXPECT_EQ((std::vector<uint32_t>{2, 9}), treeUnits());
    EXPECT_EQ((std::vector<uint32_t>{2}), listUnits());
    EXPECT_EQ(2u, poolUsed());

    errorTrace(false);
    sim::g.logs.clear();
    sim::failNth("silMemPoolAlloc", 2, 0);
    EXPECT_EQ(nullptr, pppoeplusIfEntryAdd(5, 1));
    EXPECT_TRUE(logs().empty()) << "written only while the error trace is on";
}

struct AddFailCase {
    const char* name;
    bool allPort;
    uint32_t enable;
    std::string fail;                 // the zelIfSetApi call that fails
    std::vector<std::string> calls;   // every call of the add, in order
    std::vector<Log> logsErrorOn;     // messages with the error trace on
    std::vector<Log> logsErrorOff;    // and off
    bool dflt141, dflt19, on141, on19;  // protocol states left on unit 5
};

std::vector<AddFailCase> addFailCases() {
    const Log dflt141 = enableErr("eth0/5", "pppoe+", "defaultstate");
    const Log dflt19 = enableErr("eth0/5", "pppoe+hw", "defaultstate");
    const Log state141 = enableErr("eth0/5", "pppoe+", "state");
    const Log state19 = enableErr("eth0/5", "pppoe+hw", "state");
    return {
        {"State141", false, 1, set(5, 56, 141), {kAlloc, set(5, 56, 141), kFree}, {state141}, {state141},
         false, false, false, false},
        {"State19", false, 1, set(5, 56, 19), {kAlloc, set(5, 56, 141), set(5, 56, 19), set(5, 57, 141), kFree},
         {state19, kAclErr}, {state19}, false, false, false, false},
        {"Dflt141Disabled", true, 2, set(5, 53, 141), {kAlloc, set(5, 53, 141), kFree}, {dflt141}, {dflt141},
         false, false, false, false},
        {"Dflt19Disabled", true, 2, set(5, 53, 19), {kAlloc, set(5, 53, 141), set(5, 53, 19), set(5, 54, 141), kFree},
         {dflt19}, {dflt19}, false, false, false, false},
        {"Dflt141Enabled", true, 1, set(5, 53, 141), {kAlloc, set(5, 53, 141), kFree}, {dflt141}, {dflt141},
         false, false, false, false},
        {"Dflt19Enabled", true, 1, set(5, 53, 19), {kAlloc, set(5, 53, 141), set(5, 53, 19), set(5, 54, 141), kFree},
         {dflt19}, {dflt19}, false, false, false, false},
        // The default states stay on: nothing before the failing step is undone here.
        {"State141AllPort", true, 1, set(5, 56, 141),
         {kAlloc, set(5, 53, 141), set(5, 53, 19), set(5, 56, 141), kFree}, {state141}, {state141},
         true, true, false, false},
        {"State19AllPort", true, 1, set(5, 56, 19),
         {kAlloc, set(5, 53, 141), set(5, 53, 19), set(5, 56, 141), set(5, 56, 19), set(5, 57, 141), set(5, 54, 141),
          set(5, 54, 19), kFree},
         {state19, kAclErr}, {state19}, false, false, false, false},
    };
}

TEST_F(IfEntryTest, AddRollsBackEveryPlatformFailure) {
    for (const AddFailCase& c : addFailCases()) {
        for (bool errorOn : {true, false}) {
            SCOPED_TRACE(std::string(c.name) + (errorOn ? " error trace on" : " error trace off"));
            pppoeplusTestReset();
            start(c.allPort);
            neighbours();
            errorTrace(errorOn);
            sim::failWhen(c.fail, kErr, 1);

            EXPECT_EQ(nullptr, pppoeplusIfEntryAdd(5, c.enable));
            EXPECT_EQ(c.calls, sim::g.calls);
            EXPECT_EQ(errorOn ? c.logsErrorOn : c.logsErrorOff, logs());
            EXPECT_EQ(nullptr, pppoeplusIfEntryGet(5));
            EXPECT_EQ((std::vector<uint32_t>{2, 9}), treeUnits());
            EXPECT_EQ((std::vector<uint32_t>{2}), listUnits());
            EXPECT_EQ(2u, poolUsed()) << "the record went back to the pool";
            EXPECT_EQ(c.dflt141, ps(5, 141).dflt);
            EXPECT_EQ(c.dflt19, ps(5, 19).dflt);
            EXPECT_EQ(c.on141, ps(5, 141).on);
            EXPECT_EQ(c.on19, ps(5, 19).on);

            // The unit can be added again once the platform answers.
            clearRecord();
            tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, c.enable);
            ASSERT_NE(nullptr, e);
            EXPECT_EQ((std::vector<uint32_t>{2, 5, 9}), treeUnits());
            EXPECT_EQ(3u, poolUsed());
        }
    }
}

TEST_F(IfEntryTest, AddFailureOfEachSetCallLeavesThePoolAsItWas) {
    // Whichever zelIfSetApi call of an enabled add on an all-port device
    // fails, the pool is back where it was.
    for (int nth = 1; nth <= 4; nth++) {
        SCOPED_TRACE("failing call " + std::to_string(nth));
        pppoeplusTestReset();
        start(true);
        neighbours();
        sim::failNth("zelIfSetApi", nth, kErr);
        EXPECT_EQ(nullptr, pppoeplusIfEntryAdd(5, 1));
        EXPECT_EQ(2u, poolUsed());
        EXPECT_EQ(1u, sim::callsStartingWith(kFree).size());
        EXPECT_EQ(1u, logs().size());
        EXPECT_EQ((std::vector<uint32_t>{2, 9}), treeUnits());
        EXPECT_EQ((std::vector<uint32_t>{2}), listUnits());
    }
}

TEST_F(IfEntryTest, FailedUndoIsNotLoggedAndTheRollBackGoesOn) {
    start(true);
    errorTrace(true);
    sim::failWhen(set(5, 56, 19), kErr, 1);
    sim::failWhen(set(5, 57, 141), kErr, 1);
    sim::failWhen(set(5, 54, 141), kErr, 1);
    EXPECT_EQ(nullptr, pppoeplusIfEntryAdd(5, 1));
    EXPECT_EQ((std::vector<std::string>{kAlloc, set(5, 53, 141), set(5, 53, 19), set(5, 56, 141), set(5, 56, 19),
                                        set(5, 57, 141), set(5, 54, 141), set(5, 54, 19), kFree}),
              sim::g.calls);
    EXPECT_EQ((std::vector<Log>{enableErr("eth0/5", "pppoe+hw", "state"), kAclErr}), logs());
    EXPECT_EQ(0u, poolUsed());
}

// ---- capacity --------------------------------------------------------------------------

TEST_F(IfEntryTest, AddUpToCapacityThenOneMoreFails) {
    ASSERT_EQ(0u, pppoeplusInit(2, 0, 0, 1, 1, 0, 1, 1, 0, 0));
    ASSERT_EQ(2u, gPppoeplus.ifMaxNum);
    for (uint32_t u = 1; u <= 3; u++) sim::addInterface(u, portName(u), ZEL_OND_ETH);
    errorTrace(true);
    clearRecord();

    tPppoePlusIfEntry* one = pppoeplusIfEntryAdd(1, 1);
    tPppoePlusIfEntry* two = pppoeplusIfEntryAdd(2, 2);
    ASSERT_NE(nullptr, one);
    ASSERT_NE(nullptr, two);
    EXPECT_EQ(2u, poolUsed());
    clearRecord();
    EXPECT_EQ(nullptr, pppoeplusIfEntryAdd(3, 1));
    EXPECT_EQ((std::vector<std::string>{kAlloc}), sim::g.calls) << "nothing is switched for an entry that has no room";
    EXPECT_EQ((std::vector<Log>{kAllocErr}), logs());
    EXPECT_EQ((std::vector<uint32_t>{1, 2}), treeUnits());

    EXPECT_EQ(0, pppoeplusIfEntryDelete(one));
    EXPECT_EQ(0, pppoeplusIfEntryDelete(two));
    EXPECT_EQ(0u, poolUsed());
    EXPECT_EQ(2u, gPppoeplus.ifPool.count);
    EXPECT_TRUE(treeUnits().empty());
    // The whole pool can be used again.
    EXPECT_NE(nullptr, pppoeplusIfEntryAdd(3, 1));
    EXPECT_NE(nullptr, pppoeplusIfEntryAdd(1, 1));
    EXPECT_EQ(2u, poolUsed());
}

TEST_F(IfEntryTest, DefaultCapacityIs180) {
    start();
    for (uint32_t u = 100; u < 281; u++) sim::addInterface(u, portName(u), ZEL_OND_ETH);
    errorTrace(true);
    for (uint32_t u = 100; u < 280; u++) ASSERT_NE(nullptr, pppoeplusIfEntryAdd(u, 1)) << u;
    EXPECT_EQ(180u, poolUsed());
    sim::g.logs.clear();
    EXPECT_EQ(nullptr, pppoeplusIfEntryAdd(280, 1));
    EXPECT_EQ((std::vector<Log>{kAllocErr}), logs());
    for (uint32_t u = 100; u < 280; u++) EXPECT_EQ(0, pppoeplusIfEntryDelete(pppoeplusIfEntryGet(u)));
    EXPECT_EQ(0u, poolUsed());
    EXPECT_TRUE(treeUnits().empty());
}

// ---- enable -------------------------------------------------------------------------------

TEST_F(IfEntryTest, EnableOfAnExistingDisabledEntry) {
    start(true);
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 2);
    ASSERT_NE(nullptr, e);
    clearRecord();
    EXPECT_EQ(0, pppoeplusIfEntryEnable(e));
    EXPECT_EQ((std::vector<std::string>{set(5, 56, 141), set(5, 56, 19)}), sim::g.calls);
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfProtoEnableGet(e));
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfEnableGet(e)) << "the configured state is the caller's business";
    EXPECT_TRUE(logs().empty());
}

struct EnableFailCase {
    const char* name;
    bool allPort;
    bool trusted;
    std::string fail;
    std::vector<std::string> calls;
    std::vector<Log> logs;  // error trace on
};

std::vector<EnableFailCase> enableFailCases() {
    const Log state141 = enableErr("eth0/5", "pppoe+", "state");
    const Log state19 = enableErr("eth0/5", "pppoe+hw", "state");
    std::vector<EnableFailCase> out;
    for (bool trusted : {false, true}) {
        out.push_back({"State141", false, trusted, set(5, 56, 141), {set(5, 56, 141), kFree}, {state141}});
        out.push_back({"State19", false, trusted, set(5, 56, 19),
                       {set(5, 56, 141), set(5, 56, 19), set(5, 57, 141), kFree}, {state19, kAclErr}});
        out.push_back({"State141AllPort", true, trusted, set(5, 56, 141), {set(5, 56, 141), kFree}, {state141}});
        out.push_back({"State19AllPort", true, trusted, set(5, 56, 19),
                       {set(5, 56, 141), set(5, 56, 19), set(5, 57, 141), set(5, 54, 141), set(5, 54, 19), kFree},
                       {state19, kAclErr}});
    }
    return out;
}

// An enable that fails on an entry that is already in the tree frees it; the
// tree and the trusted list must not keep it (under ASan any later walk that
// reached the freed record would be reported).
TEST_F(IfEntryTest, EnableFailureOnAnEntryInTheTreeRemovesIt) {
    for (const EnableFailCase& c : enableFailCases()) {
        SCOPED_TRACE(std::string(c.name) + (c.trusted ? " trusted" : " untrusted"));
        pppoeplusTestReset();
        start(c.allPort);
        neighbours();
        tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 2);
        ASSERT_NE(nullptr, e);
        if (c.trusted) trust(e);
        tPppoePlusIfEntry* eleven = pppoeplusIfEntryAdd(11, 1);
        ASSERT_NE(nullptr, eleven);
        trust(eleven);
        errorTrace(true);
        clearRecord();
        ASSERT_EQ(4u, poolUsed());

        sim::failWhen(c.fail, kErr, 1);
        EXPECT_EQ(-1, pppoeplusIfEntryEnable(e));
        EXPECT_EQ(c.calls, sim::g.calls);
        EXPECT_EQ(c.logs, logs());
        EXPECT_EQ(nullptr, pppoeplusIfEntryGet(5));
        EXPECT_EQ((std::vector<uint32_t>{2, 9, 11}), treeUnits());
        EXPECT_EQ((std::vector<uint32_t>{2, 11}), listUnits());
        EXPECT_EQ(3u, poolUsed()) << "pool usage down by one";
        EXPECT_FALSE(ps(5, 141).on);
        EXPECT_FALSE(ps(5, 19).on);

        // The table goes on working around the hole.
        EXPECT_NE(nullptr, pppoeplusIfEntryAdd(5, 1));
        EXPECT_EQ((std::vector<uint32_t>{2, 5, 9, 11}), treeUnits());
        EXPECT_EQ(0, pppoeplusIfEntryDelete(eleven));
        EXPECT_EQ((std::vector<uint32_t>{2}), listUnits());
    }
}

TEST_F(IfEntryTest, EnableFailureWithErrorTraceOffWritesOnlyTheOperatorLog) {
    start();
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 2);
    ASSERT_NE(nullptr, e);
    clearRecord();
    sim::failWhen(set(5, 56, 19), kErr, 1);
    EXPECT_EQ(-1, pppoeplusIfEntryEnable(e));
    EXPECT_EQ((std::vector<Log>{enableErr("eth0/5", "pppoe+hw", "state")}), logs());
    EXPECT_EQ(0u, poolUsed());
}

// ---- disable -------------------------------------------------------------------------------

TEST_F(IfEntryTest, DisableOfAnEntryNotTrappingMakesNoCall) {
    start();
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 2);
    ASSERT_NE(nullptr, e);
    clearRecord();
    EXPECT_EQ(0, pppoeplusIfEntryDisable(e));
    pppoeplusIfProtoEnableSet(e, 0);  // not set at all
    EXPECT_EQ(0, pppoeplusIfEntryDisable(e));
    EXPECT_TRUE(sim::g.calls.empty());
    EXPECT_TRUE(logs().empty());
}

TEST_F(IfEntryTest, DisableSwitchesBothProtocolsOff) {
    start();
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
    ASSERT_NE(nullptr, e);
    clearRecord();
    EXPECT_EQ(0, pppoeplusIfEntryDisable(e));
    EXPECT_EQ((std::vector<std::string>{set(5, 57, 141), set(5, 57, 19)}), sim::g.calls);
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfProtoEnableGet(e));
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfEnableGet(e));
    EXPECT_FALSE(ps(5, 141).on);
    EXPECT_FALSE(ps(5, 19).on);
    EXPECT_EQ(e, pppoeplusIfEntryGet(5));
    clearRecord();
    EXPECT_EQ(0, pppoeplusIfEntryDisable(e));
    EXPECT_TRUE(sim::g.calls.empty()) << "a second disable does nothing";
}

TEST_F(IfEntryTest, DisableOfATrustedEntrySwitchesOffOnlyPppoePlus) {
    start();
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
    ASSERT_NE(nullptr, e);
    trust(e);
    clearRecord();
    EXPECT_EQ(0, pppoeplusIfEntryDisable(e));
    EXPECT_EQ((std::vector<std::string>{set(5, 57, 141)}), sim::g.calls);
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfProtoEnableGet(e));
    EXPECT_EQ((std::vector<uint32_t>{5}), listUnits()) << "still trusted";

    // Only ZEL_FALSE counts as untrusted: an unset trust leaves the hardware rule alone.
    pppoeplusIfProtoEnableSet(e, ZEL_TRUE);
    pppoeplusTrustIfEntryDetach(e);
    pppoeplusIfTrustSet(e, 0);
    clearRecord();
    EXPECT_EQ(0, pppoeplusIfEntryDisable(e));
    EXPECT_EQ((std::vector<std::string>{set(5, 57, 141)}), sim::g.calls);
}

TEST_F(IfEntryTest, DisableLogsEveryFailureAndGoesOn) {
    struct Case {
        std::vector<std::string> fail;
        std::vector<Log> logs;
    };
    const Log off141 = disableErr("eth0/5", "pppoe+", "state");
    const Log off19 = disableErr("eth0/5", "pppoe+hw", "state");
    for (const Case& c : std::vector<Case>{{{set(5, 57, 141)}, {off141}},
                                           {{set(5, 57, 19)}, {off19}},
                                           {{set(5, 57, 141), set(5, 57, 19)}, {off141, off19}}}) {
        SCOPED_TRACE(c.fail.back());
        pppoeplusTestReset();
        start();
        neighbours();
        tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
        ASSERT_NE(nullptr, e);
        errorTrace(true);
        clearRecord();
        for (const std::string& f : c.fail) sim::failWhen(f, kErr, 1);
        EXPECT_EQ(0, pppoeplusIfEntryDisable(e));
        EXPECT_EQ((std::vector<std::string>{set(5, 57, 141), set(5, 57, 19)}), sim::g.calls);
        EXPECT_EQ(c.logs, logs());
        EXPECT_EQ(ZEL_FALSE, pppoeplusIfProtoEnableGet(e));
        EXPECT_EQ((std::vector<uint32_t>{2, 5, 9}), treeUnits());
        EXPECT_EQ((std::vector<uint32_t>{2}), listUnits());
        EXPECT_EQ(3u, poolUsed());
    }
}

TEST_F(IfEntryTest, DisableOfATrustedEntryLogsItsFailure) {
    start();
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
    ASSERT_NE(nullptr, e);
    trust(e);
    clearRecord();
    sim::failWhen(set(5, 57, 141), kErr, 1);
    EXPECT_EQ(0, pppoeplusIfEntryDisable(e));
    EXPECT_EQ((std::vector<std::string>{set(5, 57, 141)}), sim::g.calls);
    EXPECT_EQ((std::vector<Log>{disableErr("eth0/5", "pppoe+", "state")}), logs());
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfProtoEnableGet(e));
    EXPECT_EQ((std::vector<uint32_t>{5}), listUnits());
}

// ---- delete ---------------------------------------------------------------------------------

TEST_F(IfEntryTest, DeleteSwitchesEverythingOffAndFreesTheEntry) {
    start(true);
    neighbours();
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
    ASSERT_NE(nullptr, e);
    clearRecord();
    EXPECT_EQ(0, pppoeplusIfEntryDelete(e));
    EXPECT_EQ((std::vector<std::string>{set(5, 54, 141), set(5, 54, 19), set(5, 57, 141), set(5, 57, 19), kFree}),
              sim::g.calls);
    EXPECT_TRUE(logs().empty());
    for (uint32_t proto : {141u, 19u}) {
        EXPECT_FALSE(ps(5, proto).dflt);
        EXPECT_FALSE(ps(5, proto).on);
    }
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(5));
    EXPECT_EQ((std::vector<uint32_t>{2, 9}), treeUnits());
    EXPECT_EQ((std::vector<uint32_t>{2}), listUnits());
    EXPECT_EQ(2u, poolUsed());
}

TEST_F(IfEntryTest, DeleteOfADisabledEntryWithoutDefaultsMakesNoSetCall) {
    start();
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 2);
    ASSERT_NE(nullptr, e);
    clearRecord();
    EXPECT_EQ(0, pppoeplusIfEntryDelete(e));
    EXPECT_EQ((std::vector<std::string>{kFree}), sim::g.calls);
    EXPECT_EQ(0u, poolUsed());
}

TEST_F(IfEntryTest, DeleteOfATrustedEntry) {
    start(true);
    neighbours();
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
    ASSERT_NE(nullptr, e);
    trust(e);
    ASSERT_EQ((std::vector<uint32_t>{2, 5}), listUnits());
    clearRecord();
    EXPECT_EQ(0, pppoeplusIfEntryDelete(e));
    EXPECT_EQ((std::vector<std::string>{set(5, 54, 141), set(5, 54, 19), set(5, 57, 141), kFree}), sim::g.calls);
    EXPECT_EQ((std::vector<uint32_t>{2}), listUnits());
    EXPECT_EQ((std::vector<uint32_t>{2, 9}), treeUnits());
    EXPECT_EQ(2u, poolUsed());
}

TEST_F(IfEntryTest, DeleteLogsEveryFailureAndGoesOn) {
    const std::vector<std::pair<std::string, Log>> cases = {
        {set(5, 54, 141), disableErr("eth0/5", "pppoe+", "defaultstate")},
        {set(5, 54, 19), disableErr("eth0/5", "pppoe+hw", "defaultstate")},
        {set(5, 57, 141), disableErr("eth0/5", "pppoe+", "state")},
        {set(5, 57, 19), disableErr("eth0/5", "pppoe+hw", "state")},
    };
    for (bool trusted : {false, true}) {
        for (const auto& [fail, log] : cases) {
            if (trusted && fail == set(5, 57, 19)) continue;  // not made for a trusted entry
            SCOPED_TRACE(fail + (trusted ? " trusted" : ""));
            pppoeplusTestReset();
            start(true);
            neighbours();
            tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
            ASSERT_NE(nullptr, e);
            if (trusted) trust(e);
            errorTrace(true);
            clearRecord();
            sim::failWhen(fail, kErr, 1);
            EXPECT_EQ(0, pppoeplusIfEntryDelete(e));
            std::vector<std::string> calls = {set(5, 54, 141), set(5, 54, 19), set(5, 57, 141)};
            if (!trusted) calls.push_back(set(5, 57, 19));
            calls.push_back(kFree);
            EXPECT_EQ(calls, sim::g.calls);
            EXPECT_EQ((std::vector<Log>{log}), logs());
            EXPECT_EQ(nullptr, pppoeplusIfEntryGet(5));
            EXPECT_EQ((std::vector<uint32_t>{2, 9}), treeUnits());
            EXPECT_EQ((std::vector<uint32_t>{2}), listUnits());
            EXPECT_EQ(2u, poolUsed());
        }
    }
}

TEST_F(IfEntryTest, DeleteWithEveryCallFailing) {
    start(true);
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
    ASSERT_NE(nullptr, e);
    clearRecord();
    sim::failWhen("zelIfSetApi(5,*", kErr);
    EXPECT_EQ(0, pppoeplusIfEntryDelete(e));
    EXPECT_EQ((std::vector<Log>{disableErr("eth0/5", "pppoe+", "defaultstate"),
                                disableErr("eth0/5", "pppoe+hw", "defaultstate"),
                                disableErr("eth0/5", "pppoe+", "state"), disableErr("eth0/5", "pppoe+hw", "state")}),
              logs());
    EXPECT_EQ(0u, poolUsed());
    EXPECT_TRUE(treeUnits().empty());
}

// ---- reset -----------------------------------------------------------------------------------

// Fills an entry's configuration and counters with values a reset must
// clear or keep.
void configure(tPppoePlusIfEntry* e) {
    pppoeplusIfPolicySet(e, PPPOEPLUS_POLICY_DROP);
    e->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
    e->remoteIdFormatType = PPPOEPLUS_FORMAT_TYPE_ASCII;
    for (tPppoeplusFormat* f : {&e->circuitIdFormat, &e->remoteIdFormat}) {
        std::memset(f->format, 'a', sizeof(f->format));
        std::memset(f->origFormat, 'b', sizeof(f->origFormat));
        f->formatLen = 256;
        f->origFormatLen = 256;
    }
    e->errorRcv = 1;
    e->padiRcv = 2;
    e->totalSend = 3;
}

void expectReset(const tPppoePlusIfEntry* e) {
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfTrustGet(e));
    EXPECT_EQ(0u, pppoeplusIfPolicyGet(e));
    EXPECT_EQ(0u, e->circuitIdFormatType);
    EXPECT_EQ(0u, e->remoteIdFormatType);
    const char zero[256] = {};
    for (const tPppoeplusFormat* f : {&e->circuitIdFormat, &e->remoteIdFormat}) {
        EXPECT_EQ(0u, f->formatLen);
        EXPECT_EQ(0u, f->origFormatLen);
        EXPECT_EQ(0, std::memcmp(zero, f->format, 256));
        EXPECT_EQ(0, std::memcmp(zero, f->origFormat, 256));
        EXPECT_STREQ("svlan", f->keywords[0].keyword) << "the keyword table stays";
        EXPECT_STREQ("onuauthinfo", f->keywords[PPPOEPLUS_KEYWORD_NUM - 1].keyword);
    }
    // Kept: counters, MAC, position.
    EXPECT_EQ(1u, e->errorRcv);
    EXPECT_EQ(2u, e->padiRcv);
    EXPECT_EQ(3u, e->totalSend);
    EXPECT_EQ(0x05, e->mac[5]);
    EXPECT_EQ(ZEL_OND_ETH, e->phyInfo.ondType);
}

TEST_F(IfEntryTest, ResetOfATrustedEnabledEntryBringsTheHardwareRuleBack) {
    start();
    neighbours();
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
    ASSERT_NE(nullptr, e);
    trust(e);
    configure(e);
    pppoeplusIfIgnorePktSet(e, ZEL_TRUE);
    ps(5, 19).on = false;  // as the trust command left it
    clearRecord();

    EXPECT_EQ(0, pppoeplusIfEntryResetConfig(e));
    EXPECT_EQ((std::vector<std::string>{set(5, 56, 19)}), sim::g.calls);
    EXPECT_TRUE(ps(5, 19).on);
    EXPECT_TRUE(logs().empty());
    expectReset(e);
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfEnableGet(e));
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfProtoEnableGet(e));
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfIgnorePktGet(e));
    EXPECT_EQ((std::vector<uint32_t>{2}), listUnits());
    EXPECT_EQ((std::vector<uint32_t>{2, 5, 9}), treeUnits());
    EXPECT_EQ(3u, poolUsed());
}

TEST_F(IfEntryTest, ResetOfATrustedDisabledEntryMakesNoCall) {
    start();
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 2);
    ASSERT_NE(nullptr, e);
    trust(e);
    configure(e);
    clearRecord();
    EXPECT_EQ(0, pppoeplusIfEntryResetConfig(e));
    EXPECT_TRUE(sim::g.calls.empty());
    expectReset(e);
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfEnableGet(e));
    EXPECT_TRUE(listUnits().empty());
}

TEST_F(IfEntryTest, ResetOfATrustedEntryWithEnableUnsetSetsTheRule) {
    start();
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
    ASSERT_NE(nullptr, e);
    trust(e);
    pppoeplusIfEnableSet(e, 0);
    clearRecord();
    EXPECT_EQ(0, pppoeplusIfEntryResetConfig(e));
    EXPECT_EQ((std::vector<std::string>{set(5, 56, 19)}), sim::g.calls);
    EXPECT_TRUE(listUnits().empty());
}

TEST_F(IfEntryTest, ResetOfAnUntrustedEntryMakesNoCall) {
    start();
    neighbours();
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
    ASSERT_NE(nullptr, e);
    configure(e);
    clearRecord();
    EXPECT_EQ(0, pppoeplusIfEntryResetConfig(e));
    EXPECT_TRUE(sim::g.calls.empty());
    expectReset(e);
    EXPECT_EQ((std::vector<uint32_t>{2}), listUnits());
    EXPECT_EQ((std::vector<uint32_t>{2, 5, 9}), treeUnits());
}

TEST_F(IfEntryTest, ResetReturnsAndLogsTheFailureAndStillResets) {
    start();
    neighbours();
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(5, 1);
    ASSERT_NE(nullptr, e);
    trust(e);
    configure(e);
    errorTrace(true);
    clearRecord();
    sim::failWhen(set(5, 56, 19), ZEL_ERR_UNSUPPORTED, 1);
    EXPECT_EQ(ZEL_ERR_UNSUPPORTED, pppoeplusIfEntryResetConfig(e));
    EXPECT_EQ((std::vector<std::string>{set(5, 56, 19)}), sim::g.calls);
    EXPECT_EQ((std::vector<Log>{enableErr("eth0/5", "pppoe+hw", "state")}), logs());
    expectReset(e);
    EXPECT_EQ((std::vector<uint32_t>{2}), listUnits());
    EXPECT_EQ((std::vector<uint32_t>{2, 5, 9}), treeUnits());
    EXPECT_EQ(3u, poolUsed());
}

}  // namespace
