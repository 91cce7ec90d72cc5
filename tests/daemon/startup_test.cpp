// Start-up: options, the global record, every failure and its clean-up.
#include <cstring>
#include <string>
#include <vector>

#include "agent/global.h"
#include "daemon/main_loop.h"
#include "daemon/startup.h"
#include "format/default_formats.h"
#include "iftable/if_entry.h"
#include "mgmt/func_map.h"
#include "platform/types.h"
#include "support/fixture.h"

namespace {

constexpr uint32_t kFail = 0xFFFFFFFF;
const std::string kEntrySize = std::to_string(sizeof(tPppoePlusIfEntry));

const std::vector<std::string> kOptionReads = {
    "silOptRead(pppoeplus.enable)",         "silOptRead(pppoeplus.maxifnum)",
    "silOptRead(pppoeplus.maxsubsysnum)",   "silOptRead(pppoeplus.poncommontype)",
    "silOptRead(pppoeplus.defaultenable)",  "silOptRead(pppoeplus.defaultportenable)",
    "silOptRead(pppoeplus.ethifenable)",    "silOptRead(pppoeplus.ethaggifenable)",
    "silOptRead(pppoeplus.gponifenable)",   "silOptRead(pppoeplus.ponaggifenable)",
};

std::string formatText(const tPppoeplusFormat& f) { return std::string(f.format, f.formatLen); }
std::string origText(const tPppoeplusFormat& f) { return std::string(f.origFormat, f.origFormatLen); }

using StartupTest = SimTest;

TEST_F(StartupTest, NoOptionsAtAll) {
    ASSERT_EQ(0u, pppoeplusOptInit());
    EXPECT_EQ(1u, gPppoeplusInit);
    EXPECT_EQ(ZEL_FALSE, pppoeplusEnableGet());
    EXPECT_EQ(ZEL_FALSE, pppoeplusAllPortEnableGet());
    EXPECT_EQ(3u, pppoeplusPolicy());
    EXPECT_EQ(0x1u, pppoeplusDebugSwitch());
    EXPECT_EQ(0x1322u, gPppoeplus.flags) << "debug 1, policy 3, enable false, all-port false";
    EXPECT_EQ(1u, gPppoeplus.ponDefaultType);
    EXPECT_EQ(9u, gPppoeplus.maxSubSysNum);
    EXPECT_EQ(180u, gPppoeplus.ifMaxNum);
    EXPECT_EQ(3561u, gPppoeplus.vendorId) << "the vendor-id scalar is absent";
    EXPECT_EQ(3561u, gPppoeplus.dfltVendorId);
    EXPECT_EQ(ZEL_TRUE, gPppoeplus.ethIfEnable);
    EXPECT_EQ(ZEL_TRUE, gPppoeplus.ethAggIfEnable);
    EXPECT_EQ(ZEL_FALSE, gPppoeplus.gponIfEnable);
    EXPECT_EQ(ZEL_FALSE, gPppoeplus.ponAggIfEnable);
    const uint32_t levels[8] = {7, 7, 7, 7, 5, 7, 7, 7};
    EXPECT_EQ(0, std::memcmp(levels, gPppoeplus.logLevel, sizeof(levels)));
    EXPECT_EQ(0, std::memcmp(gPppoeplus.sysMac, "\0\0\0\0\0\0", 6));

    EXPECT_EQ(0u, gPppoeplus.circuitIdFormatType);
    EXPECT_EQ(0u, gPppoeplus.remoteIdFormatType);
    EXPECT_EQ(0u, gPppoeplus.ponCircuitIdFormatType);
    EXPECT_EQ("'%N:%s.%c'", formatText(gPppoeplus.circuitIdFormat));
    EXPECT_EQ(10u, gPppoeplus.circuitIdFormat.formatLen);
    EXPECT_EQ("'%portname:%svlan.%cvlan'", origText(gPppoeplus.circuitIdFormat));
    EXPECT_EQ(25u, gPppoeplus.circuitIdFormat.origFormatLen);
    EXPECT_EQ("'%C'", formatText(gPppoeplus.remoteIdFormat));
    EXPECT_EQ("'%portmac'", origText(gPppoeplus.remoteIdFormat));
    EXPECT_EQ("'0 0/0/0:0.0 %a/%r/%f/%S/0/%p/%m %b'", formatText(gPppoeplus.ponCircuitIdFormat));
    EXPECT_EQ(36u, gPppoeplus.ponCircuitIdFormat.formatLen);
    EXPECT_EQ("'0 0/0/0:0.0 %accessnode/%rack/%frame/%slot/0/%port/%onuid %accesstype'",
              origText(gPppoeplus.ponCircuitIdFormat));
    EXPECT_EQ(71u, gPppoeplus.ponCircuitIdFormat.origFormatLen);
    for (const tPppoeplusFormat* f :
         {&gPppoeplus.circuitIdFormat, &gPppoeplus.remoteIdFormat, &gPppoeplus.ponCircuitIdFormat}) {
        EXPECT_STREQ("svlan", f->keywords[0].keyword);
        EXPECT_STREQ("onuauthinfo", f->keywords[34].keyword);
    }

    EXPECT_EQ(0u, avl_numnodes(&gPppoeplus.ifTree));
    EXPECT_EQ(nullptr, avl_first(&gPppoeplus.ifTree));
    EXPECT_EQ(&gPppoeplus.trustIfList, gPppoeplus.trustIfList.next);
    EXPECT_EQ(&gPppoeplus.trustIfList, gPppoeplus.trustIfList.prev);
    EXPECT_EQ(180u, gPppoeplus.ifPool.count);
    EXPECT_EQ(0u, gPppoeplus.ifPool.used);
    EXPECT_STREQ("pppoeplus_if", gPppoeplus.ifPool.name);
    EXPECT_EQ(sizeof(tPppoePlusIfEntry), gPppoeplus.ifPool.size);
    EXPECT_NE(0u, gPppoeplus.semId);
    EXPECT_EQ(3, gPppoeplus.pktFd);
    EXPECT_EQ(4, gPppoeplus.rtSockFd);
    EXPECT_TRUE(sim::g.logs.empty());

    std::vector<std::string> expected = kOptionReads;
    const std::vector<std::string> rest = {
        "zelScalarGetApi(0,38)",
        "silMemPoolInit(pppoeplus_if,180," + kEntrySize + ",0)",
        "silCreateMSem(13)",
        "zel_socket(17,2,34915)",
        "zel_setsockopt(3,65535,4121,141)",
        "zel_setsockopt(3,263,20,1)",
        "zel_socket(16,2,0)",
        "zel_bind(4,12)",
        "zel_setsockopt(4,270,1,1)",
        "zel_setsockopt(4,65535,4121,141)",
        "icmProcCallSpecInit(pppoeplusCmd,74)",
        "icmProcTcpInit(pppoeplusCmd,/tmp/pppoeplusNm.socket,9)",
        "silCreateTask(pppoeplus,50,32768)",
        "zelHwilScalarSet(0,499,141,0)",
    };
    expected.insert(expected.end(), rest.begin(), rest.end());
    EXPECT_EQ(expected, sim::g.calls);

    // The socket options stand on the sockets; the receive buffer keeps the
    // platform's default while the agent is off.
    EXPECT_EQ(141, sim::sockOpt(3, 0xFFFF, 0x1019));
    EXPECT_EQ(1, sim::sockOpt(3, 263, 20));
    EXPECT_FALSE(sim::sockOpt(3, 0xFFFF, 0x1002).has_value());
    ASSERT_EQ(1u, sim::g.tasks.size());
    EXPECT_EQ("pppoeplus", sim::g.tasks[0].name);
    EXPECT_EQ(50u, sim::g.tasks[0].priority);
    EXPECT_EQ(32768u, sim::g.tasks[0].stackSize);
    EXPECT_EQ(&pppoeplusMain, sim::g.tasks[0].entry);
    EXPECT_EQ(gPppoeplusFuncMap, sim::g.cmdMap);
    EXPECT_EQ(9u, sim::g.cmdRows);
    EXPECT_EQ(13u, sim::g.sems[gPppoeplus.semId].options);
}

TEST_F(StartupTest, RouteSocketAddress) {
    ASSERT_EQ(0u, pppoeplusOptInit());
    const std::vector<uint8_t> addr = {0, 16, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(addr, sim::g.sockets[4].boundAddr);
    EXPECT_EQ(1, sim::sockOpt(4, 270, 1));
    EXPECT_EQ(141, sim::sockOpt(4, 0xFFFF, 0x1019));
}

TEST_F(StartupTest, VendorIdFromThePlatform) {
    sim::setScalarU32(38, 1234);
    ASSERT_EQ(0u, pppoeplusOptInit());
    EXPECT_EQ(1234u, gPppoeplus.vendorId);
    EXPECT_EQ(1234u, gPppoeplus.dfltVendorId);
}

TEST_F(StartupTest, VendorIdScalarZeroOrFailingGivesTheDefault) {
    sim::setScalarU32(38, 0);
    ASSERT_EQ(0u, pppoeplusOptInit());
    EXPECT_EQ(0x00000DE9u, gPppoeplus.vendorId);

    pppoeplusTestReset();
    sim::setScalarU32(38, 77);
    sim::failWhen("zelScalarGetApi(0,38)", ZEL_ERR_GENERAL);
    ASSERT_EQ(0u, pppoeplusOptInit());
    EXPECT_EQ(3561u, gPppoeplus.vendorId);
}

TEST_F(StartupTest, EnabledAtStartSetsTheReceiveBuffer) {
    sim::setOption("pppoeplus.defaultenable", "true");
    ASSERT_EQ(0u, pppoeplusOptInit());
    EXPECT_EQ(ZEL_TRUE, pppoeplusEnableGet());
    EXPECT_EQ(0x100000, sim::sockOpt(3, 0xFFFF, 0x1002));
    int rx = sim::findCall("zel_setsockopt(3,263,20,1)");
    ASSERT_GE(rx, 0);
    EXPECT_EQ("zel_setsockopt(3,65535,4098,1048576)", sim::g.calls[rx + 1]);
    EXPECT_EQ("zel_socket(16,2,0)", sim::g.calls[rx + 2]);
}

// ---- the option table ---------------------------------------------------------

struct OptCase {
    const char* key;
    const char* value;
    bool starts;
};

TEST_F(StartupTest, EnableOption) {
    const OptCase cases[] = {
        {"pppoeplus.enable", "false", false}, {"pppoeplus.enable", "F", false},
        {"pppoeplus.enable", "f", false},     {"pppoeplus.enable", "Fine", false},
        {"pppoeplus.enable", "0", true},      {"pppoeplus.enable", "no", true},
        {"pppoeplus.enable", "true", true},   {"pppoeplus.enable", " false", true},
    };
    for (const OptCase& c : cases) {
        SCOPED_TRACE(std::string(c.key) + "=" + c.value);
        pppoeplusTestReset();
        sim::setOption(c.key, c.value);
        if (c.starts) {
            EXPECT_EQ(0u, pppoeplusOptInit());
            EXPECT_EQ(1u, gPppoeplusInit);
        } else {
            EXPECT_EQ(kFail, pppoeplusOptInit());
            EXPECT_EQ(0u, gPppoeplusInit);
            // Refused at once: no further option read, nothing created.
            EXPECT_EQ(std::vector<std::string>{"silOptRead(pppoeplus.enable)"}, sim::g.calls);
        }
    }
}

TEST_F(StartupTest, MaxIfNumOption) {
    const struct {
        const char* value;
        uint32_t ifMaxNum;
    } cases[] = {{"10", 90}, {"0", 180}, {"abc", 180}, {"7x", 63}, {" 3", 27}, {"+2", 18}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        pppoeplusTestReset();
        sim::setOption("pppoeplus.maxifnum", c.value);
        ASSERT_EQ(0u, pppoeplusOptInit());
        EXPECT_EQ(c.ifMaxNum, gPppoeplus.ifMaxNum);
        EXPECT_EQ(c.ifMaxNum, gPppoeplus.ifPool.count);
    }
}

TEST_F(StartupTest, MaxSubSysNumOption) {
    sim::setOption("pppoeplus.maxsubsysnum", "2");
    sim::setOption("pppoeplus.maxifnum", "10");
    ASSERT_EQ(0u, pppoeplusOptInit());
    EXPECT_EQ(2u, gPppoeplus.maxSubSysNum);
    EXPECT_EQ(20u, gPppoeplus.ifMaxNum);

    pppoeplusTestReset();
    sim::setOption("pppoeplus.maxsubsysnum", "none");
    ASSERT_EQ(0u, pppoeplusOptInit());
    EXPECT_EQ(9u, gPppoeplus.maxSubSysNum);
}

TEST_F(StartupTest, HugeCountsFailThePoolInsteadOfOverflowing) {
    // A value beyond an int is read as the largest int, not as undefined
    // behaviour; the pool then cannot be had and start-up fails cleanly.
    sim::setOption("pppoeplus.maxifnum", "99999999999999999999");
    sim::setOption("pppoeplus.maxsubsysnum", "1");
    EXPECT_EQ(kFail, pppoeplusOptInit());
    EXPECT_EQ(0x7FFFFFFFu, gPppoeplus.ifMaxNum);
}

TEST_F(StartupTest, PonCommonTypeOption) {
    const struct {
        const char* value;
        bool starts;
        uint32_t type;
    } cases[] = {
        // The first character and the fifth decide: "ponolt" and "pononu".
        {"ponolt", true, 1},  {"PONOLT", true, 1},  {"pxxxl", true, 1},  {"pononu", true, 2},
        {"PONONU", true, 2},  {"PxxxN", true, 2},   {"pon-olt", false, 0}, {"pon", false, 0},
        {"olt", false, 0},    {"ponox", false, 0},  {"xonolt", false, 0},  {"pon-", false, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        pppoeplusTestReset();
        sim::setOption("pppoeplus.poncommontype", c.value);
        sim::setOption("pppoeplus.defaultenable", "true");
        if (c.starts) {
            ASSERT_EQ(0u, pppoeplusOptInit());
            EXPECT_EQ(c.type, gPppoeplus.ponDefaultType);
        } else {
            EXPECT_EQ(kFail, pppoeplusOptInit());
            std::vector<std::string> expected(kOptionReads.begin(), kOptionReads.begin() + 4);
            EXPECT_EQ(expected, sim::g.calls) << "the keys after the refused one are not read";
        }
    }
}

TEST_F(StartupTest, OnuDeviceGetsTheOnuLineIdFormat) {
    sim::setOption("pppoeplus.poncommontype", "pononu");
    ASSERT_EQ(0u, pppoeplusOptInit());
    EXPECT_EQ("'0/0/0:0.0 0/0/0/0/0/0/0 %T/%M/%P 0'", formatText(gPppoeplus.ponCircuitIdFormat));
    EXPECT_EQ(36u, gPppoeplus.ponCircuitIdFormat.formatLen);
    EXPECT_EQ("'0/0/0:0.0 0/0/0/0/0/0/0 %onuslot/%onusubslot/%onuport 0'", origText(gPppoeplus.ponCircuitIdFormat));
    EXPECT_EQ(57u, gPppoeplus.ponCircuitIdFormat.origFormatLen);
}

TEST_F(StartupTest, BooleanOptions) {
    struct Case {
        const char* key;
        const char* value;
        uint32_t expected;
    };
    auto fieldOf = [](const std::string& key) -> uint32_t {
        if (key == "pppoeplus.defaultenable") return pppoeplusEnableGet();
        if (key == "pppoeplus.defaultportenable") return pppoeplusAllPortEnableGet();
        if (key == "pppoeplus.ethifenable") return gPppoeplus.ethIfEnable;
        if (key == "pppoeplus.ethaggifenable") return gPppoeplus.ethAggIfEnable;
        if (key == "pppoeplus.gponifenable") return gPppoeplus.gponIfEnable;
        return gPppoeplus.ponAggIfEnable;
    };
    const Case cases[] = {
        {"pppoeplus.defaultenable", "y", ZEL_FALSE},       {"pppoeplus.defaultenable", "yes", ZEL_FALSE},
        {"pppoeplus.defaultenable", "true", ZEL_TRUE},     {"pppoeplus.defaultenable", "T", ZEL_TRUE},
        {"pppoeplus.defaultenable", "false", ZEL_FALSE},   {"pppoeplus.defaultenable", "1", ZEL_FALSE},
        {"pppoeplus.defaultportenable", "t", ZEL_TRUE},    {"pppoeplus.defaultportenable", "on", ZEL_FALSE},
        {"pppoeplus.ethifenable", "false", ZEL_FALSE},     {"pppoeplus.ethifenable", "no", ZEL_TRUE},
        {"pppoeplus.ethaggifenable", "F", ZEL_FALSE},      {"pppoeplus.ethaggifenable", "0", ZEL_TRUE},
        {"pppoeplus.gponifenable", "true", ZEL_TRUE},      {"pppoeplus.gponifenable", "x", ZEL_FALSE},
        {"pppoeplus.ponaggifenable", "Tt", ZEL_TRUE},      {"pppoeplus.ponaggifenable", "f", ZEL_FALSE},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.key) + "=" + c.value);
        pppoeplusTestReset();
        sim::setOption(c.key, c.value);
        ASSERT_EQ(0u, pppoeplusOptInit());
        EXPECT_EQ(c.expected, fieldOf(c.key));
    }
}

TEST_F(StartupTest, AnEmptyValueCountsAsAbsent) {
    sim::setOption("pppoeplus.enable", "");
    sim::setOption("pppoeplus.poncommontype", "");
    ASSERT_EQ(0u, pppoeplusOptInit());
    EXPECT_EQ(1u, gPppoeplus.ponDefaultType);
}

TEST_F(StartupTest, ValuesAreReadUpTo63Characters) {
    // 61 zeros and "12": 63 characters, read whole.
    sim::setOption("pppoeplus.maxifnum", std::string(61, '0') + "12");
    ASSERT_EQ(0u, pppoeplusOptInit());
    EXPECT_EQ(9u * 12u, gPppoeplus.ifMaxNum);

    // 62 zeros and "12": the 64th character is never seen.
    pppoeplusTestReset();
    sim::setOption("pppoeplus.maxifnum", std::string(62, '0') + "12");
    ASSERT_EQ(0u, pppoeplusOptInit());
    EXPECT_EQ(9u * 1u, gPppoeplus.ifMaxNum);

    // A poncommontype that is long but right in its first and fifth characters.
    pppoeplusTestReset();
    sim::setOption("pppoeplus.poncommontype", "pononu" + std::string(57, 'z'));
    ASSERT_EQ(0u, pppoeplusOptInit());
    EXPECT_EQ(2u, gPppoeplus.ponDefaultType);
}

TEST_F(StartupTest, SecondInitChangesNothing) {
    ASSERT_EQ(0u, pppoeplusOptInit());
    std::vector<uint8_t> before(sizeof(gPppoeplus));
    std::memcpy(before.data(), &gPppoeplus, sizeof(gPppoeplus));
    size_t calls = sim::g.calls.size();

    EXPECT_EQ(0u, pppoeplusInit(5, 1, 99, 2, 3, 1, 0, 0, 1, 1));
    EXPECT_EQ(0, std::memcmp(before.data(), &gPppoeplus, sizeof(gPppoeplus)));
    EXPECT_EQ(calls, sim::g.calls.size());
    EXPECT_EQ(1u, gPppoeplusInit);
}

TEST_F(StartupTest, InitArgumentsAreBooleansAndDefaults) {
    ASSERT_EQ(0u, pppoeplusInit(0, 7, 0, 1, 0, 9, 0, 5, 3, 0));
    EXPECT_EQ(ZEL_TRUE, pppoeplusEnableGet());
    EXPECT_EQ(ZEL_TRUE, pppoeplusAllPortEnableGet());
    EXPECT_EQ(ZEL_FALSE, gPppoeplus.ethIfEnable);
    EXPECT_EQ(ZEL_TRUE, gPppoeplus.ethAggIfEnable);
    EXPECT_EQ(ZEL_TRUE, gPppoeplus.gponIfEnable);
    EXPECT_EQ(ZEL_FALSE, gPppoeplus.ponAggIfEnable);
    EXPECT_EQ(180u, gPppoeplus.ifMaxNum);
    EXPECT_EQ(3561u, gPppoeplus.vendorId);
}

TEST_F(StartupTest, UndetectedFailuresOfTheServiceAndTheHardwareAnnouncement) {
    sim::failWhen("icmProcTcpInit*", ZEL_ERR_GENERAL);
    sim::failWhen("zelHwilScalarSet*", ZEL_ERR_GENERAL);
    EXPECT_EQ(0u, pppoeplusOptInit());
    EXPECT_EQ(1u, gPppoeplusInit);
}

// ---- start-up failures ----------------------------------------------------------

struct FailCase {
    const char* name;
    std::string failing;               // call made to fail
    int64_t result;                    // what it returns
    const char* message;               // start-up message, "" for none
    std::vector<std::string> cleanup;  // calls after the failing one
};

// Names the case in test output instead of dumping its bytes.
void PrintTo(const FailCase& c, std::ostream* os) { *os << c.name; }

class StartupFailureTest : public SimTest, public ::testing::WithParamInterface<FailCase> {};

TEST_P(StartupFailureTest, CleansUpAndFails) {
    const FailCase& c = GetParam();
    sim::setOption("pppoeplus.defaultenable", "true");
    sim::failWhen(c.failing, c.result, 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(kFail, pppoeplusOptInit());
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(0u, gPppoeplusInit);

    int at = sim::findCall(c.failing);
    ASSERT_GE(at, 0);
    std::vector<std::string> after(sim::g.calls.begin() + at + 1, sim::g.calls.end());
    EXPECT_EQ(c.cleanup, after);

    if (std::string(c.message).empty()) {
        EXPECT_TRUE(sim::g.logs.empty());
    } else {
        ASSERT_EQ(1u, sim::g.logs.size());
        const sim::LogRecord& r = sim::g.logs[0];
        EXPECT_FALSE(r.oper);
        EXPECT_EQ(0x45D0004u, r.module);
        EXPECT_EQ(5u, r.level);
        EXPECT_EQ(0u, r.part);
        EXPECT_EQ(std::string(c.message), r.text);
    }
    EXPECT_EQ(-1, gPppoeplus.pktFd);
    EXPECT_EQ(-1, gPppoeplus.rtSockFd);
    EXPECT_EQ(nullptr, gPppoeplus.ifPool.block) << "the pool is destroyed";
    for (const auto& [id, sem] : sim::g.sems) EXPECT_FALSE(sem.alive) << "semaphore " << id << " is deleted";
    for (const auto& [fd, s] : sim::g.sockets) EXPECT_FALSE(s.open) << "socket " << fd << " is closed";
}

const std::string kDestroy = "silMemPoolDestroy(pppoeplus_if)";

INSTANTIATE_TEST_SUITE_P(
    EveryStep, StartupFailureTest,
    ::testing::Values(
        FailCase{"Pool", "silMemPoolInit(pppoeplus_if,180," + kEntrySize + ",0)", 0x3E8000E,
                 "interface memory pool init error(err#65536014).\r\n",
                 {"silMemPoolDestroy()", "zel_close(0)", "zel_close(0)"}},
        FailCase{"Semaphore", "silCreateMSem(13)", 0, "Failed to create semaphore for pppoeplus.\r\n",
                 {kDestroy, "zel_close(0)", "zel_close(0)"}},
        FailCase{"PacketSocket", "zel_socket(17,2,34915)", -1, "Failed to create socket!\r\n",
                 {"silDeleteSem(1)", kDestroy, "zel_close(0)"}},
        FailCase{"SoName", "zel_setsockopt(3,65535,4121,141)", -1, "Failed to set SO_NAME option!\r\n",
                 {"silDeleteSem(1)", kDestroy, "zel_close(3)", "zel_close(0)"}},
        FailCase{"RxPktInfo", "zel_setsockopt(3,263,20,1)", -1, "Failed to set RX_PKTINFO option!\r\n",
                 {"silDeleteSem(1)", kDestroy, "zel_close(3)", "zel_close(0)"}},
        FailCase{"RcvBuf", "zel_setsockopt(3,65535,4098,1048576)", -1, "Failed to set SO_RCVBUF option!\r\n",
                 {"silDeleteSem(1)", kDestroy, "zel_close(3)", "zel_close(0)"}},
        FailCase{"RouteSocket", "zel_socket(16,2,0)", -1, "Failed to create socket!\r\n",
                 {"silDeleteSem(1)", kDestroy, "zel_close(3)"}},
        FailCase{"RouteBind", "zel_bind(4,12)", -1, "Failed to create socket!\r\n",
                 {"zel_close(4)", "silDeleteSem(1)", kDestroy, "zel_close(3)"}},
        FailCase{"RouteMembership", "zel_setsockopt(4,270,1,1)", -1, "Failed to create socket!\r\n",
                 {"zel_close(4)", "silDeleteSem(1)", kDestroy, "zel_close(3)"}},
        FailCase{"RouteName", "zel_setsockopt(4,65535,4121,141)", -1, "Failed to create socket!\r\n",
                 {"zel_close(4)", "silDeleteSem(1)", kDestroy, "zel_close(3)"}},
        FailCase{"Task", "silCreateTask(pppoeplus,50,32768)", 1, "Failed to create pppoeplus task!\r\n",
                 {"silDeleteSem(1)", kDestroy, "zel_close(3)", "zel_close(4)"}}),
    [](const ::testing::TestParamInfo<FailCase>& info) { return std::string(info.param.name); });

TEST_F(StartupTest, UnknownPonTypeFailsAfterThePool) {
    EXPECT_EQ(kFail, pppoeplusInit(0, 0, 0, 3, 0, 0, 1, 1, 0, 0));
    const std::vector<std::string> expected = {
        "silMemPoolInit(pppoeplus_if,180," + kEntrySize + ",0)", kDestroy, "zel_close(0)", "zel_close(0)"};
    EXPECT_EQ(expected, sim::g.calls);
    ASSERT_EQ(1u, sim::g.logs.size());
    EXPECT_EQ("Failed to init pon common!\r\n", sim::g.logs[0].text);
    EXPECT_EQ(0x45D0004u, sim::g.logs[0].module);
    EXPECT_EQ(5u, sim::g.logs[0].level);
    EXPECT_EQ(0u, gPppoeplusInit);

    pppoeplusTestReset();
    EXPECT_EQ(kFail, pppoeplusInit(0, 0, 0, 0, 0, 0, 1, 1, 0, 0)) << "a switch has no PON default format";
}

TEST_F(StartupTest, ANegativePacketDescriptorOtherThanMinusOneIsClosed) {
    // Only -1 marks a closed descriptor.
    sim::failWhen("zel_socket(17,2,34915)", -5, 1);
    EXPECT_EQ(kFail, pppoeplusInit(0, 0, 0, 1, 0, 0, 1, 1, 0, 0));
    const std::vector<std::string> tail = {"silDeleteSem(1)", kDestroy, "zel_close(-5)", "zel_close(0)"};
    EXPECT_EQ(tail, std::vector<std::string>(sim::g.calls.end() - 4, sim::g.calls.end()));
}

TEST_F(StartupTest, RouteSocketFailuresArePrintedWithTheSystemError) {
    const struct {
        const char* failing;
        const char* text;
    } cases[] = {
        {"zel_socket(16,2,0)", "Failed to create route socket for pppoe+!"},
        {"zel_bind(4,12)", "Failed to bind route socket address!"},
        {"zel_setsockopt(4,270,1,1)", "Failed to set ADD_MEMBERSHIP option!"},
        {"zel_setsockopt(4,65535,4121,141)", "Failed to set name option!"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.failing);
        pppoeplusTestReset();
        sim::failWhen(c.failing, -1, 1);
        testing::internal::CaptureStderr();
        EXPECT_EQ(kFail, pppoeplusOptInit());
        std::string err = testing::internal::GetCapturedStderr();
        EXPECT_EQ(0u, err.find(std::string(c.text) + ": ")) << err;
    }
}

}  // namespace
