// Global (scalar) management commands: every code through set, sync and get,
// the control record and value the hardware layer receives, the lock, the
// messages and every result code.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "agent/global.h"
#include "format/default_formats.h"
#include "iftable/if_entry.h"
#include "mgmt/mgmt_test_util.h"
#include "mgmt/scalar_api.h"
#include "platform/types.h"
#include "support/fixture.h"

namespace {

using namespace mgmt_test;

constexpr int32_t kHwErr = ZEL_ERR_GENERAL;

// set or sync by mode.
int32_t setOrSync(uint32_t mode, uint32_t code, void* value) {
    return mode == kSet ? pppoeplusScalarSetApi(0, code, value) : pppoeplusScalarSyncApi(0, code, value);
}

std::string modeName(uint32_t mode) { return mode == kSet ? "set" : "sync"; }

// A snapshot of the whole global record.
std::unique_ptr<tPppoeplusGlobal> snapshot() {
    auto s = std::make_unique<tPppoeplusGlobal>();
    std::memcpy(s.get(), &gPppoeplus, sizeof(gPppoeplus));
    return s;
}

bool unchanged(const tPppoeplusGlobal& before) { return std::memcmp(&before, &gPppoeplus, sizeof(gPppoeplus)) == 0; }

// The one command the hardware layer received.
void expectOneHwil(uint32_t code, const std::vector<uint8_t>& ctrl, const std::vector<uint8_t>& value) {
    ASSERT_EQ(1u, sim::g.hwilCalls.size());
    const sim::HwilCall& c = sim::g.hwilCalls[0];
    EXPECT_EQ(0u, c.key);
    EXPECT_EQ(0x154000u + code, c.cmdId);
    EXPECT_EQ(ctrl, c.ctrl);
    EXPECT_EQ(value, c.value);
}

tPppoeplusFormat* slotOf(uint32_t code) {
    switch (code) {
        case PPPOEPLUS_SCALAR_CIRCUITID_FORMAT: return &gPppoeplus.circuitIdFormat;
        case PPPOEPLUS_SCALAR_REMOTEID_FORMAT: return &gPppoeplus.remoteIdFormat;
        default: return &gPppoeplus.ponCircuitIdFormat;
    }
}

uint32_t* typeOf(uint32_t formatCode) {
    switch (formatCode) {
        case PPPOEPLUS_SCALAR_CIRCUITID_FORMAT: return &gPppoeplus.circuitIdFormatType;
        case PPPOEPLUS_SCALAR_REMOTEID_FORMAT: return &gPppoeplus.remoteIdFormatType;
        default: return &gPppoeplus.ponCircuitIdFormatType;
    }
}

class ScalarApiTest : public SimTest {
  protected:
    void start(uint32_t enable = 0, uint32_t allPort = 0) {
        pppoeplusTestStart(enable, allPort);
        clearRecord();
    }
};

// ---- the records -----------------------------------------------------------------

TEST(ScalarApiRecords, ControlRecordLayout) {
    EXPECT_EQ(64u, sizeof(tPppoeplusSyncCtrl));
    EXPECT_EQ(0u, offsetof(tPppoeplusSyncCtrl, mode));
    EXPECT_EQ(4u, offsetof(tPppoeplusSyncCtrl, keyLen));
    EXPECT_EQ(16u, offsetof(tPppoeplusSyncCtrl, valueLen));
    EXPECT_EQ(12u, sizeof(tPppoeplusNsrInfo));
    EXPECT_EQ(0x154000u, PPPOEPLUS_HWIL_SCALAR_BASE);
    EXPECT_EQ(0x40D0000u, PPPOEPLUS_HWIL_IF_BASE);
    EXPECT_EQ(0x80000000u, PPPOEPLUS_SYNC_MODE_STR_VALUE);
    EXPECT_EQ(0x10000000u, PPPOEPLUS_SYNC_MODE_IF);
}

TEST(ScalarApiRecords, CodeNumbers) {
    const uint32_t codes[] = {PPPOEPLUS_SCALAR_DEBUG,
                              PPPOEPLUS_SCALAR_POLICY,
                              PPPOEPLUS_SCALAR_ENABLE,
                              PPPOEPLUS_SCALAR_VENDORID,
                              PPPOEPLUS_SCALAR_CIRCUITID_TYPE,
                              PPPOEPLUS_SCALAR_CIRCUITID_FORMAT,
                              PPPOEPLUS_SCALAR_REMOTEID_TYPE,
                              PPPOEPLUS_SCALAR_REMOTEID_FORMAT,
                              PPPOEPLUS_SCALAR_VERSION,
                              PPPOEPLUS_SCALAR_DFLT_VENDORID,
                              PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE,
                              PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT,
                              PPPOEPLUS_SCALAR_ALLPORT_ENABLE_SUPPORT,
                              PPPOEPLUS_SCALAR_ETHIF_ENABLE,
                              PPPOEPLUS_SCALAR_ETHAGGIF_ENABLE,
                              PPPOEPLUS_SCALAR_GPONIF_ENABLE,
                              PPPOEPLUS_SCALAR_PONAGGIF_ENABLE,
                              PPPOEPLUS_SCALAR_NSRINFO};
    for (uint32_t i = 0; i < sizeof(codes) / sizeof(codes[0]); i++) EXPECT_EQ(i + 1, codes[i]);
}

// ---- integer codes ------------------------------------------------------------------

struct IntCase {
    uint32_t code;
    uint32_t value;
    uint32_t stored;  // what the global record holds afterwards
};

uint32_t storedOf(uint32_t code) {
    switch (code) {
        case PPPOEPLUS_SCALAR_DEBUG: return pppoeplusDebugSwitch();
        case PPPOEPLUS_SCALAR_POLICY: return pppoeplusPolicy();
        default: return gPppoeplus.vendorId;
    }
}

TEST_F(ScalarApiTest, IntegerCodesThroughSetSyncAndGet) {
    const IntCase cases[] = {
        {PPPOEPLUS_SCALAR_DEBUG, 0x1D, 0xD},        // low 4 bits kept
        {PPPOEPLUS_SCALAR_DEBUG, 0x0, 0x0},
        {PPPOEPLUS_SCALAR_POLICY, 0x12, 0x2},       // low 4 bits kept, no range check
        {PPPOEPLUS_SCALAR_POLICY, 0x7, 0x7},
        {PPPOEPLUS_SCALAR_POLICY, 0x0, 0x0},
        {PPPOEPLUS_SCALAR_VENDORID, 0xCAFEF00D, 0xCAFEF00D},  // unchecked
        {PPPOEPLUS_SCALAR_VENDORID, 0, 0},
    };
    start();
    for (uint32_t mode : {kSet, kSync}) {
        for (const IntCase& c : cases) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(c.code) + " value " + std::to_string(c.value));
            clearRecord();
            uint32_t v = c.value;
            EXPECT_EQ(0, setOrSync(mode, c.code, &v));
            EXPECT_EQ(c.stored, storedOf(c.code));
            EXPECT_EQ(c.value, v) << "the caller's value is not written";
            expectOneHwil(c.code, ctrlBytes(mode, 0, 4), u32Bytes(c.value));
            expectLockBalanced(1);
            EXPECT_EQ((std::vector<std::string>{"silTakeSem(1,-1)",
                                                "zelHwilCmdSyncApi(0," + std::to_string(0x154000 + c.code) + ")",
                                                "silGiveSem(1)"}),
                      sim::g.calls);

            clearRecord();
            uint32_t out = 0xA5A5A5A5;
            EXPECT_EQ(0, pppoeplusScalarGetApi(0, c.code, &out));
            EXPECT_EQ(c.stored, out);
            expectLockBalanced(1);
            EXPECT_TRUE(sim::g.hwilCalls.empty());
        }
    }
}

TEST_F(ScalarApiTest, UnitArgumentIsIgnored) {
    start();
    uint32_t v = 77;
    EXPECT_EQ(0, pppoeplusScalarSetApi(12345, PPPOEPLUS_SCALAR_VENDORID, &v));
    expectOneHwil(PPPOEPLUS_SCALAR_VENDORID, ctrlBytes(kSet, 0, 4), u32Bytes(77));
    uint32_t out = 0;
    EXPECT_EQ(0, pppoeplusScalarGetApi(999, PPPOEPLUS_SCALAR_VENDORID, &out));
    EXPECT_EQ(77u, out);
}

// ---- messages ----------------------------------------------------------------------------

TEST_F(ScalarApiTest, BeginAndEndMessagesUnderSwitch4) {
    start();
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT);
    uint32_t v = 5;
    EXPECT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_VENDORID, &v));
    EXPECT_EQ((std::vector<Msg>{eventMsg("Set global parameter: cmd 4."), eventMsg("Set global parameter end: return 0.")}),
              msgs());

    clearRecord();
    EXPECT_EQ(0, pppoeplusScalarSyncApi(0, PPPOEPLUS_SCALAR_POLICY, &v));
    EXPECT_EQ((std::vector<Msg>{eventMsg("Set global parameter: cmd 2."), eventMsg("Set global parameter end: return 0.")}),
              msgs());

    // A failure result is written as a signed number.
    clearRecord();
    sim::failWhen("zelHwilCmdSyncApi(*", kHwErr, 1);
    EXPECT_EQ(kHwErr, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_VENDORID, &v));
    EXPECT_EQ((std::vector<Msg>{eventMsg("Set global parameter: cmd 4."),
                                eventMsg("Set global parameter end: return " + std::to_string(kHwErr) + ".")}),
              msgs());

    // Without the switch nothing is written, the error switch included.
    for (uint32_t sw : {0u, 0x1u, 0x2u, 0x8u}) {
        clearRecord();
        pppoeplusDebugSwitchSet(sw);
        EXPECT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_VENDORID, &v));
        EXPECT_TRUE(msgs().empty()) << sw;
    }
}

// Every code, through set and sync: the begin message names the code, the end
// message the result, each command reaches the hardware layer with its own
// control record, and the lock is taken and given once.
TEST_F(ScalarApiTest, EveryCodeThroughSetAndSyncWritesBeginAndEnd) {
    start();
    for (uint32_t mode : {kSet, kSync}) {
        for (uint32_t code = 0; code <= 19; code++) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(code));
            clearRecord();
            traceAll();
            std::string text = "'%portmac'";
            tPppoeplusStrValue sv = strValue(text);
            // The debug switch keeps both message switches on.
            uint32_t v = code == PPPOEPLUS_SCALAR_DEBUG ? (PPPOEPLUS_DEBUG_EVENT | PPPOEPLUS_DEBUG_ERROR) : 1;
            if (code == PPPOEPLUS_SCALAR_ENABLE) pppoeplusEnableSet(ZEL_FALSE);
            const bool isText = code == 6 || code == 8 || code == 9 || code == 12 || code == 18;
            void* value = isText ? static_cast<void*>(&sv) : static_cast<void*>(&v);
            const bool settable = (code >= 1 && code <= 8) || code == 11 || code == 12;
            int32_t rc = setOrSync(mode, code, value);
            EXPECT_EQ(settable ? 0 : ZEL_ERR_UNSUPPORTED, rc);
            std::vector<Msg> ev = eventMsgs();
            ASSERT_GE(ev.size(), 2u);
            EXPECT_EQ(eventMsg("Set global parameter: cmd " + std::to_string(code) + "."), ev.front());
            EXPECT_EQ(eventMsg("Set global parameter end: return " + std::to_string(rc) + "."), ev.back());
            EXPECT_TRUE(errorMsgs().empty());
            expectLockBalanced(1);
            if (!settable) {
                EXPECT_TRUE(sim::g.hwilCalls.empty());
                continue;
            }
            ASSERT_EQ(1u, sim::g.hwilCalls.size());
            const sim::HwilCall& c = sim::g.hwilCalls[0];
            EXPECT_EQ(0u, c.key);
            EXPECT_EQ(0x154000u + code, c.cmdId);
            if (code == 6 || code == 8 || code == 12) {
                EXPECT_EQ(ctrlBytes(mode | 0x80000000u, 0, 10), c.ctrl);
                EXPECT_EQ(textBytes(text), c.value);
            } else {
                EXPECT_EQ(ctrlBytes(mode, 0, 4), c.ctrl);
                EXPECT_EQ(u32Bytes(v), c.value);
            }
        }
    }
}

TEST_F(ScalarApiTest, BeginMessageIsWrittenBeforeTheSwitchChanges) {
    start();
    pppoeplusDebugSwitchSet(0);
    uint32_t v = PPPOEPLUS_DEBUG_EVENT;
    EXPECT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_DEBUG, &v));
    EXPECT_EQ((std::vector<Msg>{eventMsg("Set global parameter end: return 0.")}), msgs());
    clearRecord();
    v = 0;
    EXPECT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_DEBUG, &v));
    EXPECT_EQ((std::vector<Msg>{eventMsg("Set global parameter: cmd 1.")}), msgs());
}

TEST_F(ScalarApiTest, GetWritesNoMessage) {
    start();
    traceAll();
    uint32_t out = 0;
    for (uint32_t code : {1u, 2u, 3u, 4u, 5u, 7u, 10u, 11u, 13u, 14u, 15u, 16u, 17u, 0u, 19u})
        (void)pppoeplusScalarGetApi(0, code, &out);
    EXPECT_TRUE(msgs().empty());
}

// ---- argument and code checks --------------------------------------------------------

TEST_F(ScalarApiTest, NullValueTakesNoLock) {
    start();
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT);
    for (uint32_t mode : {kSet, kSync}) {
        for (uint32_t code : {0u, 1u, 3u, 6u, 9u, 18u, 19u}) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(code));
            clearRecord();
            EXPECT_EQ(ZEL_ERR_NULL_POINTER, setOrSync(mode, code, nullptr));
            expectLockUntouched();
            EXPECT_TRUE(sim::g.hwilCalls.empty());
            // The begin message, and no end message.
            EXPECT_EQ((std::vector<Msg>{eventMsg("Set global parameter: cmd " + std::to_string(code) + ".")}), msgs());
        }
    }
    for (uint32_t code : {0u, 1u, 9u, 18u, 19u}) {
        clearRecord();
        EXPECT_EQ(ZEL_ERR_NULL_POINTER, pppoeplusScalarGetApi(0, code, nullptr));
        expectLockUntouched();
        EXPECT_TRUE(msgs().empty());
    }
}

TEST_F(ScalarApiTest, UnsupportedSetCodes) {
    start();
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT);
    // 0, the get-only codes and codes beyond the table.
    for (uint32_t mode : {kSet, kSync}) {
        for (uint32_t code : {0u, 9u, 10u, 13u, 14u, 15u, 16u, 17u, 18u, 19u, 20u, 1000u, 0xFFFFFFFFu}) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(code));
            clearRecord();
            auto before = snapshot();
            char buf[64] = {};
            tPppoeplusStrValue sv{buf, sizeof(buf)};
            uint32_t v = 1;
            void* value = (code == 9 || code == 18) ? static_cast<void*>(&sv) : static_cast<void*>(&v);
            EXPECT_EQ(ZEL_ERR_UNSUPPORTED, setOrSync(mode, code, value));
            EXPECT_TRUE(sim::g.hwilCalls.empty());
            expectLockBalanced(1);
            EXPECT_TRUE(unchanged(*before));
            EXPECT_EQ((std::vector<Msg>{eventMsg("Set global parameter: cmd " + std::to_string(static_cast<int>(code)) + "."),
                                        eventMsg("Set global parameter end: return " +
                                                 std::to_string(ZEL_ERR_UNSUPPORTED) + ".")}),
                      msgs());
        }
    }
}

TEST_F(ScalarApiTest, UnsupportedGetCodes) {
    start();
    for (uint32_t code : {0u, 19u, 20u, 1000u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(code);
        clearRecord();
        uint32_t out = 0xA5A5A5A5;
        EXPECT_EQ(ZEL_ERR_UNSUPPORTED, pppoeplusScalarGetApi(0, code, &out));
        EXPECT_EQ(0xA5A5A5A5u, out);
        expectLockBalanced(1);
    }
}

// ---- hardware layer first ----------------------------------------------------------------

TEST_F(ScalarApiTest, HardwareFailureIsPassedThroughAndChangesNothing) {
    start();
    std::string text = "'%portmac'";
    for (uint32_t mode : {kSet, kSync}) {
        for (uint32_t code : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 11u, 12u}) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(code));
            clearRecord();
            auto before = snapshot();
            sim::failWhen("zelHwilCmdSyncApi(0," + std::to_string(0x154000 + code) + ")", 0x3E80042, 1);
            uint32_t v = code == 3 ? ZEL_TRUE : 0;  // the agent is off: enable is a change
            tPppoeplusStrValue sv = strValue(text);
            void* value = (code == 6 || code == 8 || code == 12) ? static_cast<void*>(&sv) : static_cast<void*>(&v);
            EXPECT_EQ(0x3E80042, setOrSync(mode, code, value));
            EXPECT_EQ(1u, sim::g.hwilCalls.size());
            EXPECT_TRUE(unchanged(*before));
            expectLockBalanced(1);
            EXPECT_TRUE(sim::callsStartingWith("zel_setsockopt").empty());
        }
    }
}

// ---- enable --------------------------------------------------------------------------------

TEST_F(ScalarApiTest, EnableToTheCurrentValueDoesNotCallTheHardware) {
    start(0);
    uint32_t v = ZEL_FALSE;
    for (uint32_t mode : {kSet, kSync}) {
        clearRecord();
        EXPECT_EQ(0, setOrSync(mode, PPPOEPLUS_SCALAR_ENABLE, &v));
        EXPECT_TRUE(sim::g.hwilCalls.empty());
        expectLockBalanced(1);
        EXPECT_EQ(ZEL_FALSE, pppoeplusEnableGet());
    }
    pppoeplusTestReset();
    start(1);
    v = ZEL_TRUE;
    EXPECT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_ENABLE, &v));
    EXPECT_TRUE(sim::g.hwilCalls.empty());
    EXPECT_TRUE(sim::callsStartingWith("zel_setsockopt").empty());
}

TEST_F(ScalarApiTest, EnableAndDisableThroughSetAndSync) {
    for (uint32_t mode : {kSet, kSync}) {
        SCOPED_TRACE(modeName(mode));
        pppoeplusTestReset();
        start(0, 1);
        sim::addInterface(1, "eth1", ZEL_OND_ETH);
        sim::addInterface(2, "eth2", ZEL_OND_ETH);

        uint32_t v = ZEL_TRUE;
        EXPECT_EQ(0, setOrSync(mode, PPPOEPLUS_SCALAR_ENABLE, &v));
        expectOneHwil(PPPOEPLUS_SCALAR_ENABLE, ctrlBytes(mode, 0, 4), u32Bytes(ZEL_TRUE));
        EXPECT_EQ(ZEL_TRUE, pppoeplusEnableGet());
        EXPECT_EQ(0x100000, sim::sockOpt(3, 0xFFFF, 0x1002));
        EXPECT_NE(nullptr, pppoeplusIfEntryGet(1));
        EXPECT_NE(nullptr, pppoeplusIfEntryGet(2));
        expectLockBalanced(1);
        // The hardware layer first, then the agent, all under the lock.
        int hw = sim::findCall("zelHwilCmdSyncApi(0,1392643)");
        int sock = sim::findCall("zel_setsockopt(3,65535,4098,1048576)");
        ASSERT_GE(hw, 0);
        EXPECT_GT(sock, hw);
        EXPECT_EQ("silTakeSem(1,-1)", sim::g.calls.front());
        EXPECT_EQ("silGiveSem(1)", sim::g.calls.back());

        uint32_t out = 0;
        EXPECT_EQ(0, pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_ENABLE, &out));
        EXPECT_EQ(ZEL_TRUE, out);

        clearRecord();
        v = ZEL_FALSE;
        EXPECT_EQ(0, setOrSync(mode, PPPOEPLUS_SCALAR_ENABLE, &v));
        expectOneHwil(PPPOEPLUS_SCALAR_ENABLE, ctrlBytes(mode, 0, 4), u32Bytes(ZEL_FALSE));
        EXPECT_EQ(ZEL_FALSE, pppoeplusEnableGet());
        EXPECT_EQ(1, sim::sockOpt(3, 0xFFFF, 0x1002));
        EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
        EXPECT_EQ(nullptr, pppoeplusIfEntryGet(2));
        expectLockBalanced(1);
        EXPECT_EQ(0, pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_ENABLE, &out));
        EXPECT_EQ(ZEL_FALSE, out);
    }
}

TEST_F(ScalarApiTest, EnableWithValue0Or7EnablesTheDaemon) {
    for (uint32_t value : {0u, 7u, 3u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(value);
        pppoeplusTestReset();
        start(0);
        uint32_t v = value;
        EXPECT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_ENABLE, &v));
        EXPECT_EQ(ZEL_TRUE, pppoeplusEnableGet());
        expectOneHwil(PPPOEPLUS_SCALAR_ENABLE, ctrlBytes(kSet, 0, 4), u32Bytes(value));
    }
}

TEST_F(ScalarApiTest, EnableFailureIsPassedThrough) {
    start(0);
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT);
    sim::failWhen("zel_setsockopt(3,65535,4098,1048576)", -1, 1);
    uint32_t v = ZEL_TRUE;
    EXPECT_EQ(ZEL_ERR_SET_SOCKOPT, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_ENABLE, &v));
    EXPECT_EQ(ZEL_FALSE, pppoeplusEnableGet());
    // The hardware layer was told before the agent failed to switch on.
    EXPECT_EQ(1u, sim::g.hwilCalls.size());
    expectLockBalanced(1);
    EXPECT_TRUE(hasMsg(eventMsg("Set global parameter end: return " + std::to_string(ZEL_ERR_SET_SOCKOPT) + ".")));
}

TEST_F(ScalarApiTest, DisableResultIsIgnoredAndSucceeds) {
    start(1);
    // The shrinking of the receive buffer may fail; disable goes on.
    sim::failWhen("zel_setsockopt(3,65535,4098,1)", -1, 1);
    uint32_t v = ZEL_FALSE;
    EXPECT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_ENABLE, &v));
    EXPECT_EQ(ZEL_FALSE, pppoeplusEnableGet());
}

// ---- format types ---------------------------------------------------------------------------

struct TypeCase {
    uint32_t code;
    uint32_t formatCode;
    const char* failMsg;
};

const TypeCase kTypeCases[] = {
    {PPPOEPLUS_SCALAR_CIRCUITID_TYPE, PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, "Failed to set circuit-id type!"},
    {PPPOEPLUS_SCALAR_REMOTEID_TYPE, PPPOEPLUS_SCALAR_REMOTEID_FORMAT, "Failed to set remote-id type!"},
    {PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE, PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT, "Failed to set pon circuit-id type!"},
};

TEST_F(ScalarApiTest, TypeCodesStoreAndKeepTheText) {
    start();
    for (uint32_t mode : {kSet, kSync}) {
        for (const TypeCase& t : kTypeCases) {
            for (uint32_t value : {1u, 2u}) {
                SCOPED_TRACE(modeName(mode) + " code " + std::to_string(t.code) + " value " + std::to_string(value));
                clearRecord();
                pppoeplusFormatInstall(slotOf(t.formatCode), "'x'", "'typed'");
                uint32_t v = value;
                EXPECT_EQ(0, setOrSync(mode, t.code, &v));
                EXPECT_EQ(value, *typeOf(t.formatCode));
                EXPECT_EQ("'x'", fmtText(*slotOf(t.formatCode)));
                EXPECT_EQ("'typed'", origText(*slotOf(t.formatCode)));
                expectOneHwil(t.code, ctrlBytes(mode, 0, 4), u32Bytes(value));
                expectLockBalanced(1);

                clearRecord();
                uint32_t out = 0xFF;
                EXPECT_EQ(0, pppoeplusScalarGetApi(0, t.code, &out));
                EXPECT_EQ(value, out);
                expectLockBalanced(1);
            }
        }
    }
}

TEST_F(ScalarApiTest, TypeZeroInstallsTheDefaultText) {
    start();
    const std::string junk(200, 'j');
    for (uint32_t mode : {kSet, kSync}) {
        for (const TypeCase& t : kTypeCases) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(t.code));
            clearRecord();
            *typeOf(t.formatCode) = 1;
            pppoeplusFormatInstall(slotOf(t.formatCode), junk.c_str(), junk.c_str());
            uint32_t v = 0;
            EXPECT_EQ(0, setOrSync(mode, t.code, &v));
            EXPECT_EQ(0u, *typeOf(t.formatCode));
            expectOneHwil(t.code, ctrlBytes(mode, 0, 4), u32Bytes(0));
            expectLockBalanced(1);
            const tPppoeplusFormat& f = *slotOf(t.formatCode);
            // The slot was cleared first: nothing of the longer text is left.
            for (uint32_t i = f.formatLen; i < PPPOEPLUS_FORMAT_LEN; i++) ASSERT_EQ(0, f.format[i]) << i;
            for (uint32_t i = f.origFormatLen; i < PPPOEPLUS_FORMAT_LEN; i++) ASSERT_EQ(0, f.origFormat[i]) << i;
            switch (t.code) {
                case PPPOEPLUS_SCALAR_CIRCUITID_TYPE:
                    EXPECT_EQ("'%N:%s.%c'", fmtText(f));
                    EXPECT_EQ("'%portname:%svlan.%cvlan'", origText(f));
                    break;
                case PPPOEPLUS_SCALAR_REMOTEID_TYPE:
                    EXPECT_EQ("'%C'", fmtText(f));
                    EXPECT_EQ("'%portmac'", origText(f));
                    break;
                default:  // the test device is an OLT
                    EXPECT_EQ("'0 0/0/0:0.0 %a/%r/%f/%S/0/%p/%m %b'", fmtText(f));
                    EXPECT_EQ("'0 0/0/0:0.0 %accessnode/%rack/%frame/%slot/0/%port/%onuid %accesstype'", origText(f));
                    break;
            }
        }
    }
}

TEST_F(ScalarApiTest, CircuitIdTypeZeroThenGetFormatGivesTheDefault) {
    start();
    std::string text = "'%svlan'";
    uint32_t v = 1;
    ASSERT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_CIRCUITID_TYPE, &v));
    tPppoeplusStrValue sv = strValue(text);
    ASSERT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, &sv));
    v = 0;
    ASSERT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_CIRCUITID_TYPE, &v));
    char buf[256] = {};
    tPppoeplusStrValue out{buf, sizeof(buf)};
    EXPECT_EQ(0, pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, &out));
    EXPECT_EQ("'%portname:%svlan.%cvlan'", std::string(buf, out.len));
    EXPECT_EQ(25u, out.len);
}

TEST_F(ScalarApiTest, PonTypeZeroFollowsTheDeviceKind) {
    start();
    gPppoeplus.ponDefaultType = PPPOEPLUS_PON_TYPE_ONU;
    uint32_t v = 0;
    EXPECT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE, &v));
    EXPECT_EQ("'0/0/0:0.0 0/0/0/0/0/0/0 %T/%M/%P 0'", fmtText(gPppoeplus.ponCircuitIdFormat));
    EXPECT_EQ("'0/0/0:0.0 0/0/0/0/0/0/0 %onuslot/%onusubslot/%onuport 0'", origText(gPppoeplus.ponCircuitIdFormat));
}

// A switch has no PON default: the type is stored and the slot left empty.
TEST_F(ScalarApiTest, PonTypeZeroOnASwitchLeavesAnEmptySlot) {
    for (uint32_t mode : {kSet, kSync}) {
        SCOPED_TRACE(modeName(mode));
        pppoeplusTestReset();
        start();
        traceAll();
        gPppoeplus.ponDefaultType = PPPOEPLUS_PON_TYPE_SWITCH;
        gPppoeplus.ponCircuitIdFormatType = 2;
        uint32_t v = 0;
        EXPECT_EQ(-1, setOrSync(mode, PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE, &v));
        EXPECT_EQ(0u, gPppoeplus.ponCircuitIdFormatType);
        EXPECT_EQ(0u, gPppoeplus.ponCircuitIdFormat.formatLen);
        EXPECT_EQ(0u, gPppoeplus.ponCircuitIdFormat.origFormatLen);
        for (uint32_t i = 0; i < PPPOEPLUS_FORMAT_LEN; i++) {
            ASSERT_EQ(0, gPppoeplus.ponCircuitIdFormat.format[i]);
            ASSERT_EQ(0, gPppoeplus.ponCircuitIdFormat.origFormat[i]);
        }
        EXPECT_EQ((std::vector<Msg>{errorMsg("Failed to set pon common circuit-id format!")}), errorMsgs());
        EXPECT_EQ((std::vector<Msg>{eventMsg("Set global parameter: cmd 11."),
                                    eventMsg("Set global parameter end: return -1.")}),
                  eventMsgs());
        expectLockBalanced(1);
        expectOneHwil(PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE, ctrlBytes(mode, 0, 4), u32Bytes(0));

        // Read back: the type is 0 and there is no text.
        uint32_t out = 9;
        EXPECT_EQ(0, pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE, &out));
        EXPECT_EQ(0u, out);
        char buf[256];
        std::memset(buf, 0x5A, sizeof(buf));
        tPppoeplusStrValue sv{buf, sizeof(buf)};
        EXPECT_EQ(ZEL_EINVAL, pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT, &sv));
        EXPECT_EQ(0u, sv.len);
    }
}

// How a caller gets out of the empty slot: it sets a type other than 0 and
// then a text.
TEST_F(ScalarApiTest, EmptyPonSlotIsFilledByATypeAndAText) {
    start();
    gPppoeplus.ponDefaultType = PPPOEPLUS_PON_TYPE_SWITCH;
    uint32_t v = 0;
    ASSERT_EQ(-1, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE, &v));
    v = 1;
    EXPECT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE, &v));
    std::string text = "'%slot/%port'";
    tPppoeplusStrValue sv = strValue(text);
    EXPECT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT, &sv));
    char buf[256] = {};
    tPppoeplusStrValue out{buf, sizeof(buf)};
    EXPECT_EQ(0, pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT, &out));
    EXPECT_EQ(text, std::string(buf, out.len));
}

TEST_F(ScalarApiTest, TypeOutOfRangeIsRefused) {
    start();
    for (uint32_t mode : {kSet, kSync}) {
        for (const TypeCase& t : kTypeCases) {
            for (uint32_t value : {3u, 4u, 0xFFFFFFFFu}) {
                SCOPED_TRACE(modeName(mode) + " code " + std::to_string(t.code) + " value " + std::to_string(value));
                clearRecord();
                traceAll();
                auto before = snapshot();
                uint32_t v = value;
                EXPECT_EQ(ZEL_EINVAL, setOrSync(mode, t.code, &v));
                EXPECT_TRUE(unchanged(*before));
                // The hardware layer saw the value before it was refused.
                expectOneHwil(t.code, ctrlBytes(mode, 0, 4), u32Bytes(value));
                expectLockBalanced(1);
                EXPECT_EQ((std::vector<Msg>{errorMsg(t.failMsg)}), errorMsgs());
                EXPECT_EQ((std::vector<Msg>{eventMsg("Set global parameter: cmd " + std::to_string(t.code) + "."),
                                            eventMsg("Set global parameter end: return 22.")}),
                          eventMsgs());

                // The error message follows switch 0x8 only.
                clearRecord();
                pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT);
                EXPECT_EQ(ZEL_EINVAL, setOrSync(mode, t.code, &v));
                EXPECT_TRUE(errorMsgs().empty());
            }
        }
    }
}

// ---- formats ----------------------------------------------------------------------------------

struct FormatCase {
    uint32_t code;
    const char* keywordMsg;  // with %s for the text
};

const FormatCase kFormatCases[] = {
    {PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, "Keyword incorrect %s, Please check it!"},
    {PPPOEPLUS_SCALAR_REMOTEID_FORMAT, "Keyword incorrect %s, please check it!"},
    {PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT, "Keyword incorrect %s, Please check it!"},
};

std::string withText(const char* pattern, const std::string& text) {
    std::string p(pattern);
    size_t at = p.find("%s");
    return p.substr(0, at) + text + p.substr(at + 2);
}

TEST_F(ScalarApiTest, UserDefineFormatIsSimplifiedAndStored) {
    start();
    for (uint32_t mode : {kSet, kSync}) {
        for (const FormatCase& fc : kFormatCases) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(fc.code));
            clearRecord();
            traceAll();
            *typeOf(fc.code) = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
            pppoeplusFormatInstall(slotOf(fc.code), std::string(100, 'z').c_str(), std::string(120, 'y').c_str());
            std::string text = "'%portname:%svlan.%cvlan'";
            tPppoeplusStrValue sv = strValue(text);
            EXPECT_EQ(0, setOrSync(mode, fc.code, &sv));
            const tPppoeplusFormat& f = *slotOf(fc.code);
            EXPECT_EQ("'%N:%s.%c'", fmtText(f));
            EXPECT_EQ(text, origText(f));
            for (uint32_t i = f.formatLen; i < PPPOEPLUS_FORMAT_LEN; i++) ASSERT_EQ(0, f.format[i]) << i;
            for (uint32_t i = f.origFormatLen; i < PPPOEPLUS_FORMAT_LEN; i++) ASSERT_EQ(0, f.origFormat[i]) << i;
            // Bit 31 in the mode word, the text's length as value length, the
            // text itself as the value.
            expectOneHwil(fc.code, ctrlBytes(mode | 0x80000000u, 0, 25), textBytes(text));
            EXPECT_EQ(mode | 0x80000000u, ctrlWord(sim::g.hwilCalls[0].ctrl, 0));
            EXPECT_EQ(0u, ctrlWord(sim::g.hwilCalls[0].ctrl, 4));
            EXPECT_EQ(25u, ctrlWord(sim::g.hwilCalls[0].ctrl, 16));
            expectLockBalanced(1);
            EXPECT_TRUE(errorMsgs().empty());
            std::vector<Msg> ev = eventMsgs();
            ASSERT_GE(ev.size(), 2u);
            EXPECT_EQ(eventMsg("Set global parameter: cmd " + std::to_string(fc.code) + "."), ev.front());
            EXPECT_EQ(eventMsg("Set global parameter end: return 0."), ev.back());

            clearRecord();
            char buf[256];
            std::memset(buf, 0, sizeof(buf));
            tPppoeplusStrValue out{buf, sizeof(buf)};
            EXPECT_EQ(0, pppoeplusScalarGetApi(0, fc.code, &out));
            EXPECT_EQ(text, std::string(buf, out.len));
            expectLockBalanced(1);
            EXPECT_TRUE(sim::g.hwilCalls.empty());
        }
    }
}

TEST_F(ScalarApiTest, DefaultAndAsciiFormatsAreStoredAsTheyStand) {
    start();
    for (uint32_t type : {PPPOEPLUS_FORMAT_TYPE_DEFAULT, PPPOEPLUS_FORMAT_TYPE_ASCII}) {
        for (const FormatCase& fc : kFormatCases) {
            SCOPED_TRACE("type " + std::to_string(type) + " code " + std::to_string(fc.code));
            clearRecord();
            *typeOf(fc.code) = type;
            // A long keyword is not simplified here; the checker still takes
            // the ASCII segment.
            std::string text = "'%N:%s' 0x01";
            tPppoeplusStrValue sv = strValue(text);
            EXPECT_EQ(0, pppoeplusScalarSetApi(0, fc.code, &sv));
            EXPECT_EQ(text, fmtText(*slotOf(fc.code)));
            EXPECT_EQ(text, origText(*slotOf(fc.code)));
            EXPECT_EQ(type, *typeOf(fc.code));
        }
    }
}

TEST_F(ScalarApiTest, TypeChangeKeepsTheEarlierText) {
    start();
    uint32_t v = 1;
    ASSERT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_REMOTEID_TYPE, &v));
    std::string text = "'%portmac/%clientmac'";
    tPppoeplusStrValue sv = strValue(text);
    ASSERT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_REMOTEID_FORMAT, &sv));
    for (uint32_t type : {2u, 1u}) {
        v = type;
        ASSERT_EQ(0, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_REMOTEID_TYPE, &v));
        char buf[256] = {};
        tPppoeplusStrValue out{buf, sizeof(buf)};
        EXPECT_EQ(0, pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_REMOTEID_FORMAT, &out));
        EXPECT_EQ(text, std::string(buf, out.len));
        EXPECT_EQ("'%C/%J'", fmtText(gPppoeplus.remoteIdFormat));
    }
}

TEST_F(ScalarApiTest, KeywordFailureMessages) {
    start();
    for (uint32_t mode : {kSet, kSync}) {
        for (const FormatCase& fc : kFormatCases) {
            SCOPED_TRACE(modeName(mode) + " code " + std::to_string(fc.code));
            clearRecord();
            traceAll();
            *typeOf(fc.code) = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
            auto before = snapshot();
            std::string text = "'%foo'";
            tPppoeplusStrValue sv = strValue(text);
            EXPECT_EQ(ZEL_EINVAL, setOrSync(mode, fc.code, &sv));
            EXPECT_TRUE(unchanged(*before));
            expectOneHwil(fc.code, ctrlBytes(mode | 0x80000000u, 0, 6), textBytes(text));
            expectLockBalanced(1);
            std::vector<Msg> err = errorMsgs();
            ASSERT_FALSE(err.empty());
            EXPECT_EQ(errorMsg(withText(fc.keywordMsg, text)), err.back());
            EXPECT_EQ(eventMsg("Set global parameter end: return 22."), eventMsgs().back());
        }
    }
}

TEST_F(ScalarApiTest, FormatCheckFailureNamesTheCheckedText) {
    start();
    for (const FormatCase& fc : kFormatCases) {
        SCOPED_TRACE(fc.code);
        // USERDEFINE: the message shows the simplified text, not the typed one.
        clearRecord();
        traceAll();
        *typeOf(fc.code) = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
        auto before = snapshot();
        std::string text = "'%portname%svlan'";
        tPppoeplusStrValue sv = strValue(text);
        EXPECT_EQ(ZEL_EINVAL, pppoeplusScalarSetApi(0, fc.code, &sv));
        EXPECT_TRUE(unchanged(*before));
        std::vector<Msg> err = errorMsgs();
        ASSERT_FALSE(err.empty());
        EXPECT_EQ(errorMsg("Format '%N%s' incorrect, Please check it!"), err.back());
        EXPECT_TRUE(hasMsg(errorMsg("Delimeter between keywords is invalid.")));

        // ASCII: the text as given.
        clearRecord();
        *typeOf(fc.code) = PPPOEPLUS_FORMAT_TYPE_ASCII;
        before = snapshot();
        text = "'abc%'";
        sv = strValue(text);
        EXPECT_EQ(ZEL_EINVAL, pppoeplusScalarSetApi(0, fc.code, &sv));
        EXPECT_TRUE(unchanged(*before));
        EXPECT_EQ(errorMsg("Format 'abc%' incorrect, Please check it!"), errorMsgs().back());

        // Without switch 0x8 the refusal is silent.
        clearRecord();
        pppoeplusDebugSwitchSet(0);
        EXPECT_EQ(ZEL_EINVAL, pppoeplusScalarSetApi(0, fc.code, &sv));
        EXPECT_TRUE(msgs().empty());
    }
}

TEST_F(ScalarApiTest, FormatOf255BytesIsCheckedAnd256IsTooLong) {
    start();
    for (uint32_t type : {PPPOEPLUS_FORMAT_TYPE_USERDEFINE, PPPOEPLUS_FORMAT_TYPE_ASCII}) {
        for (uint32_t mode : {kSet, kSync}) {
            SCOPED_TRACE(modeName(mode) + " type " + std::to_string(type));
            gPppoeplus.circuitIdFormatType = type;
            clearRecord();
            std::string text = "'" + std::string(253, 'a') + "'";
            ASSERT_EQ(255u, text.size());
            tPppoeplusStrValue sv = strValue(text);
            EXPECT_EQ(0, setOrSync(mode, PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, &sv));
            EXPECT_EQ(text, fmtText(gPppoeplus.circuitIdFormat));
            EXPECT_EQ(text, origText(gPppoeplus.circuitIdFormat));
            expectOneHwil(PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, ctrlBytes(mode | 0x80000000u, 0, 255), textBytes(text));

            // 256 bytes: the hardware layer has the text, the daemon refuses it.
            clearRecord();
            auto before = snapshot();
            std::string longText = "'" + std::string(254, 'b') + "'";
            sv = strValue(longText);
            EXPECT_EQ(ZEL_ERR_TOO_LONG, setOrSync(mode, PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, &sv));
            EXPECT_TRUE(unchanged(*before));
            expectOneHwil(PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, ctrlBytes(mode | 0x80000000u, 0, 256),
                          textBytes(longText));
            expectLockBalanced(1);

            clearRecord();
            std::string longer(1000, 'c');
            sv = strValue(longer);
            EXPECT_EQ(ZEL_ERR_TOO_LONG, setOrSync(mode, PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, &sv));
            EXPECT_EQ(1000u, sim::g.hwilCalls.at(0).value.size());
        }
    }
}

TEST_F(ScalarApiTest, HardwareFailureComesBeforeTheLengthCheck) {
    start();
    traceAll();
    sim::failWhen("zelHwilCmdSyncApi(0,1392648)", 0x3E80042, 1);
    std::string text(300, 'x');
    tPppoeplusStrValue sv = strValue(text);
    EXPECT_EQ(0x3E80042, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_REMOTEID_FORMAT, &sv));
    EXPECT_TRUE(errorMsgs().empty());
}

// A refused text has already reached the hardware layer. The caller puts the
// hardware layer back in step by syncing the text the daemon still holds.
TEST_F(ScalarApiTest, RefusedFormatIsAlreadyWithTheHardwareLayer) {
    start();
    std::string bad = "'%N%s'";
    gPppoeplus.circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_ASCII;
    tPppoeplusStrValue sv = strValue(bad);
    EXPECT_EQ(ZEL_EINVAL, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, &sv));
    ASSERT_EQ(1u, sim::g.hwilCalls.size());
    EXPECT_EQ(textBytes(bad), sim::g.hwilCalls[0].value);
    EXPECT_EQ("'%N:%s.%c'", fmtText(gPppoeplus.circuitIdFormat));

    char buf[256] = {};
    tPppoeplusStrValue held{buf, sizeof(buf)};
    ASSERT_EQ(0, pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, &held));
    gPppoeplus.circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;  // the held text is a typed one
    EXPECT_EQ(0, pppoeplusScalarSyncApi(0, PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, &held));
    ASSERT_EQ(2u, sim::g.hwilCalls.size());
    EXPECT_EQ(textBytes("'%portname:%svlan.%cvlan'"), sim::g.hwilCalls[1].value);
    EXPECT_EQ(1u, sim::g.hwilCalls[1].ctrl[0]);
    EXPECT_EQ(0x80u, sim::g.hwilCalls[1].ctrl[3]);
}

TEST_F(ScalarApiTest, FormatWithoutTextPointer) {
    start();
    tPppoeplusStrValue sv{nullptr, 5};
    EXPECT_EQ(ZEL_ERR_NULL_POINTER, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, &sv));
    EXPECT_EQ(1u, sim::g.hwilCalls.size());
    expectLockBalanced(1);
    EXPECT_EQ("'%N:%s.%c'", fmtText(gPppoeplus.circuitIdFormat));
}

TEST_F(ScalarApiTest, FormatGetOfAnEmptySlot) {
    start();
    pppoeplusFormatClear(&gPppoeplus.remoteIdFormat);
    char buf[256];
    tPppoeplusStrValue out{buf, sizeof(buf)};
    EXPECT_EQ(ZEL_EINVAL, pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_REMOTEID_FORMAT, &out));
    EXPECT_EQ(0u, out.len);
    expectLockBalanced(1);
}

TEST_F(ScalarApiTest, DefaultFormatsReadBack) {
    start();
    const std::pair<uint32_t, std::string> cases[] = {
        {PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, "'%portname:%svlan.%cvlan'"},
        {PPPOEPLUS_SCALAR_REMOTEID_FORMAT, "'%portmac'"},
        {PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT,
         "'0 0/0/0:0.0 %accessnode/%rack/%frame/%slot/0/%port/%onuid %accesstype'"},
    };
    for (const auto& [code, text] : cases) {
        char buf[256] = {};
        tPppoeplusStrValue out{buf, sizeof(buf)};
        EXPECT_EQ(0, pppoeplusScalarGetApi(0, code, &out));
        EXPECT_EQ(text, std::string(buf, out.len));
    }
}

// ---- gets of the read-only codes ---------------------------------------------------------------

TEST_F(ScalarApiTest, GetOfEveryIntegerCode) {
    start(1, 1);
    pppoeplusDebugSwitchSet(0xA);
    pppoeplusPolicySet(1);
    gPppoeplus.vendorId = 0x11111111;
    gPppoeplus.dfltVendorId = 0x22222222;
    gPppoeplus.circuitIdFormatType = 1;
    gPppoeplus.remoteIdFormatType = 2;
    gPppoeplus.ponCircuitIdFormatType = 2;
    gPppoeplus.ethIfEnable = ZEL_FALSE;
    gPppoeplus.ethAggIfEnable = ZEL_TRUE;
    gPppoeplus.gponIfEnable = ZEL_TRUE;
    gPppoeplus.ponAggIfEnable = 0;
    const std::pair<uint32_t, uint32_t> cases[] = {
        {PPPOEPLUS_SCALAR_DEBUG, 0xA},
        {PPPOEPLUS_SCALAR_POLICY, 1},
        {PPPOEPLUS_SCALAR_ENABLE, ZEL_TRUE},
        {PPPOEPLUS_SCALAR_VENDORID, 0x11111111},
        {PPPOEPLUS_SCALAR_CIRCUITID_TYPE, 1},
        {PPPOEPLUS_SCALAR_REMOTEID_TYPE, 2},
        {PPPOEPLUS_SCALAR_DFLT_VENDORID, 0x22222222},
        {PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE, 2},
        {PPPOEPLUS_SCALAR_ALLPORT_ENABLE_SUPPORT, ZEL_TRUE},
        {PPPOEPLUS_SCALAR_ETHIF_ENABLE, ZEL_FALSE},
        {PPPOEPLUS_SCALAR_ETHAGGIF_ENABLE, ZEL_TRUE},
        {PPPOEPLUS_SCALAR_GPONIF_ENABLE, ZEL_TRUE},
        {PPPOEPLUS_SCALAR_PONAGGIF_ENABLE, 0},
    };
    for (const auto& [code, expected] : cases) {
        SCOPED_TRACE(code);
        clearRecord();
        uint32_t out = 0xA5A5A5A5;
        EXPECT_EQ(0, pppoeplusScalarGetApi(0, code, &out));
        EXPECT_EQ(expected, out);
        expectLockBalanced(1);
        EXPECT_TRUE(sim::g.hwilCalls.empty());
    }
    // The start-up values of the switches.
    pppoeplusTestReset();
    start(0, 0);
    const std::pair<uint32_t, uint32_t> startup[] = {
        {PPPOEPLUS_SCALAR_ENABLE, ZEL_FALSE},         {PPPOEPLUS_SCALAR_ALLPORT_ENABLE_SUPPORT, ZEL_FALSE},
        {PPPOEPLUS_SCALAR_ETHIF_ENABLE, ZEL_TRUE},    {PPPOEPLUS_SCALAR_ETHAGGIF_ENABLE, ZEL_TRUE},
        {PPPOEPLUS_SCALAR_GPONIF_ENABLE, ZEL_FALSE},  {PPPOEPLUS_SCALAR_PONAGGIF_ENABLE, ZEL_FALSE},
        {PPPOEPLUS_SCALAR_POLICY, 3},                 {PPPOEPLUS_SCALAR_DEBUG, 1},
        {PPPOEPLUS_SCALAR_DFLT_VENDORID, PPPOEPLUS_DEFAULT_VENDOR_ID},
    };
    for (const auto& [code, expected] : startup) {
        uint32_t out = 0xA5A5A5A5;
        EXPECT_EQ(0, pppoeplusScalarGetApi(0, code, &out)) << code;
        EXPECT_EQ(expected, out) << code;
    }
}

TEST_F(ScalarApiTest, DefaultVendorIdIsNotSettable) {
    start();
    uint32_t v = 5;
    EXPECT_EQ(ZEL_ERR_UNSUPPORTED, pppoeplusScalarSetApi(0, PPPOEPLUS_SCALAR_DFLT_VENDORID, &v));
    EXPECT_EQ(ZEL_ERR_UNSUPPORTED, pppoeplusScalarSyncApi(0, PPPOEPLUS_SCALAR_DFLT_VENDORID, &v));
    EXPECT_EQ(PPPOEPLUS_DEFAULT_VENDOR_ID, gPppoeplus.dfltVendorId);
}

TEST_F(ScalarApiTest, VersionIsRefusedIntoATooSmallBuffer) {
    start();
    char buf[64];
    std::memset(buf, 0x5A, sizeof(buf));
    tPppoeplusStrValue sv{buf, 20};
    EXPECT_EQ(ZEL_ERR_TOO_LONG, pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_VERSION, &sv));
    EXPECT_EQ(20u, sv.len);
    for (char c : buf) EXPECT_EQ(0x5A, c);
    expectLockBalanced(1);
}

TEST_F(ScalarApiTest, VersionIs21BytesWithoutTerminator) {
    start();
    for (uint32_t size : {64u, 21u}) {
        SCOPED_TRACE(size);
        clearRecord();
        char buf[64];
        std::memset(buf, 0x5A, sizeof(buf));
        tPppoeplusStrValue sv{buf, size};
        EXPECT_EQ(0, pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_VERSION, &sv));
        EXPECT_EQ(21u, sv.len);
        EXPECT_EQ("PPPOEPLUS_V7.00.00.00", std::string(buf, 21));
        EXPECT_EQ(0x5A, buf[21]) << "no NUL is written";
        expectLockBalanced(1);
    }
}

TEST_F(ScalarApiTest, VersionWithoutBuffer) {
    start();
    tPppoeplusStrValue sv{nullptr, 64};
    EXPECT_EQ(ZEL_ERR_NULL_POINTER, pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_VERSION, &sv));
    expectLockBalanced(1);
}

TEST_F(ScalarApiTest, VersionAndNsrAreNotSettable) {
    start();
    char buf[64] = {};
    tPppoeplusStrValue sv{buf, sizeof(buf)};
    for (uint32_t code : {PPPOEPLUS_SCALAR_VERSION, PPPOEPLUS_SCALAR_NSRINFO}) {
        EXPECT_EQ(ZEL_ERR_UNSUPPORTED, pppoeplusScalarSetApi(0, code, &sv));
        EXPECT_EQ(ZEL_ERR_UNSUPPORTED, pppoeplusScalarSyncApi(0, code, &sv));
    }
    EXPECT_TRUE(sim::g.hwilCalls.empty());
}

TEST_F(ScalarApiTest, NsrInfoIsClampedTo12Bytes) {
    start();
    for (uint32_t size : {16u, 12u}) {
        SCOPED_TRACE(size);
        clearRecord();
        uint8_t buf[16];
        std::memset(buf, 0xEE, sizeof(buf));
        tPppoeplusStrValue sv{reinterpret_cast<char*>(buf), size};
        EXPECT_EQ(0, pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_NSRINFO, &sv));
        EXPECT_EQ(12u, sv.len);
        tPppoeplusNsrInfo nsr{};
        std::memcpy(&nsr, buf, sizeof(nsr));
        EXPECT_EQ(ZEL_TRUE, nsr.switchover);
        EXPECT_EQ(0u, nsr.incompleteOp);
        EXPECT_EQ(0u, nsr.allOp);
        for (int i = 12; i < 16; i++) EXPECT_EQ(0xEE, buf[i]);
        expectLockBalanced(1);
    }
}

// A malformed request returns -1 with the lock still held. The daemon lock is
// not recursive: on the device the next entry point, or the worker task,
// would wait for it for ever, so a caller must never send one.
TEST_F(ScalarApiTest, MalformedNsrRequestReturnsWithTheLockHeld) {
    start();
    uint8_t buf[16] = {};
    const tPppoeplusStrValue requests[] = {
        {reinterpret_cast<char*>(buf), 11},
        {reinterpret_cast<char*>(buf), 0},
        {nullptr, 16},
    };
    int32_t depth = 0;
    for (const tPppoeplusStrValue& r : requests) {
        tPppoeplusStrValue sv = r;
        EXPECT_EQ(-1, pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_NSRINFO, &sv));
        EXPECT_EQ(r.len, sv.len) << "nothing is written";
        depth++;
        EXPECT_EQ(depth, lockRecord().depth);
        EXPECT_EQ(0u, lockRecord().gives);
    }
    EXPECT_EQ(3u, sim::callsStartingWith("silTakeSem(1,-1)").size());
    EXPECT_TRUE(sim::callsStartingWith("silGiveSem").empty());
    for (uint8_t b : buf) EXPECT_EQ(0, b);
}

}  // namespace
