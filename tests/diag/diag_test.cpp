// Diagnostic commands: golden outputs and the edge cases of each command.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "agent/global.h"
#include "diag/diag.h"
#include "diag/shell_table.h"
#include "format/format_simplify.h"
#include "format/keywords.h"
#include "iftable/if_entry.h"
#include "iftable/trust_list.h"
#include "mgmt/if_api.h"
#include "mgmt/scalar_api.h"
#include "packet/pkt_recv.h"
#include "platform/types.h"
#include "support/fixture.h"

namespace {

// Runs `fn` with standard output captured; stores its result in `ret`.
std::string captured(const std::function<int32_t()>& fn, int32_t* ret = nullptr) {
    fflush(stdout);
    testing::internal::CaptureStdout();
    int32_t r = fn();
    fflush(stdout);
    std::string out = testing::internal::GetCapturedStdout();
    if (ret != nullptr) *ret = r;
    return out;
}

std::string normalized(const std::string& out) {
    static const std::regex address("pIf:0x[0-9a-f]+,");
    return std::regex_replace(out, address, "pIf:<entry>,");
}

// Compares `actual` with the golden file `name`, or writes the file when
// PPPOEPLUS_REGEN_GOLDEN is set.
void expectGolden(const std::string& name, const std::string& actual) {
    const std::string path = std::string(PPPOEPLUS_TEST_DIR) + "/diag/golden/" + name + ".txt";
    const std::string text = normalized(actual);
    if (std::getenv("PPPOEPLUS_REGEN_GOLDEN") != nullptr) {
        std::ofstream(path, std::ios::binary) << text;
        return;
    }
    std::ifstream in(path, std::ios::binary);
    ASSERT_TRUE(in.good()) << "missing golden file " << path << " (see tests/diag/golden/README.md)";
    std::stringstream expected;
    expected << in.rdbuf();
    EXPECT_EQ(expected.str(), text) << "golden file " << path;
}

class DiagTest : public SimTest {
  protected:
    void TearDown() override {
        gPppoeplusTestForward = 0;
        SimTest::TearDown();
    }

    int32_t ifSet(uint32_t unit, uint32_t code, uint32_t value) { return pppoeplusIfSetApi(unit, code, &value); }
    int32_t ifSetText(uint32_t unit, uint32_t code, const std::string& text) {
        std::string copy = text;
        tPppoeplusStrValue v = {copy.data(), static_cast<uint32_t>(copy.size())};
        return pppoeplusIfSetApi(unit, code, &v);
    }
    int32_t scalarSet(uint32_t code, uint32_t value) { return pppoeplusScalarSetApi(0, code, &value); }
    int32_t scalarSetText(uint32_t code, const std::string& text) {
        std::string copy = text;
        tPppoeplusStrValue v = {copy.data(), static_cast<uint32_t>(copy.size())};
        return pppoeplusScalarSetApi(0, code, &v);
    }

    // An OLT with an Ethernet port, a trusted uplink, an aggregate and a GPON
    // port, configured away from the defaults.
    void populate() {
        pppoeplusTestStart(1, 0);
        sim::addInterface(1, "eth0/1", ZEL_OND_ETH);
        sim::addInterface(2, "eth0/2", ZEL_OND_ETH);
        sim::addInterface(10, "ethagg1", ZEL_OND_ETH_AGG);
        sim::addInterface(20, "gpon0/1", ZEL_OND_GPON, ZEL_IFTYPE_GPON);
        for (uint32_t u : {1u, 2u, 10u, 20u}) ASSERT_EQ(0, ifSet(u, PPPOEPLUS_IF_ENABLE, 1));
        ASSERT_EQ(0, ifSet(2, PPPOEPLUS_IF_TRUST, 1));
        ASSERT_EQ(0, ifSet(1, PPPOEPLUS_IF_CIRCUITID_TYPE, 1));
        ASSERT_EQ(0, ifSetText(1, PPPOEPLUS_IF_CIRCUITID_FORMAT, "'%portname/%svlan'"));
        ASSERT_EQ(0, ifSet(1, PPPOEPLUS_IF_REMOTEID_TYPE, 2));
        ASSERT_EQ(0, ifSetText(1, PPPOEPLUS_IF_REMOTEID_FORMAT, "'line-1'"));
        ASSERT_EQ(0, ifSet(10, PPPOEPLUS_IF_POLICY, 2));
        ASSERT_EQ(0, ifSet(20, PPPOEPLUS_IF_POLICY, 1));
        tPppoePlusIfEntry* e = pppoeplusIfEntryGet(1);
        e->errorRcv = 1;
        e->errorSend = 2;
        e->padiRcv = 30;
        e->padrRcv = 29;
        e->padtRcv = 4;
        e->padoRcv = 5;
        e->padsRcv = 6;
        e->totalSend = 7;
        pppoeplusIfEntryGet(2)->totalSend = 63;
        ASSERT_EQ(0, scalarSet(PPPOEPLUS_SCALAR_POLICY, 1));
        ASSERT_EQ(0, scalarSet(PPPOEPLUS_SCALAR_VENDORID, 9999));
        ASSERT_EQ(0, scalarSet(PPPOEPLUS_SCALAR_CIRCUITID_TYPE, 1));
        ASSERT_EQ(0, scalarSetText(PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, "'%portname %cvlan'"));
        const uint8_t mac[6] = {0x00, 0xaa, 0xbb, 0xcc, 0xdd, 0xee};
        std::memcpy(gPppoeplus.sysMac, mac, 6);
    }
};

// ---- golden outputs -----------------------------------------------------------

TEST_F(DiagTest, GoldenEmptyTable) {
    pppoeplusTestStart();
    expectGolden("empty_show", captured(pppoeplusShow));
    expectGolden("empty_if_show_all", captured(pppoeplusIfShowAll));
    expectGolden("empty_trust_show_all", captured(pppoeplusTrustIfShowAll));
}

TEST_F(DiagTest, GoldenPopulatedTable) {
    populate();
    expectGolden("populated_show", captured(pppoeplusShow));
    expectGolden("populated_if_show_all", captured(pppoeplusIfShowAll));
    expectGolden("populated_trust_show_all", captured(pppoeplusTrustIfShowAll));
    expectGolden("populated_if_entry_show_1", captured([] { return pppoeplusIfEntryShow(pppoeplusIfEntryGet(1)); }));
    expectGolden("populated_if_entry_show_20",
                 captured([] { return pppoeplusIfEntryShow(pppoeplusIfEntryGet(20)); }));
}

TEST_F(DiagTest, GoldenOddValues) {
    // Truth fields holding 0 and 3, a device kind of 5, formats of length 0.
    pppoeplusTestStart();
    sim::addInterface(3, "eth0/3", ZEL_OND_ETH);
    ASSERT_EQ(0, ifSet(3, PPPOEPLUS_IF_ENABLE, 1));
    tPppoePlusIfEntry* e = pppoeplusIfEntryGet(3);
    pppoeplusIfTrustSet(e, 0);
    pppoeplusIfEnableSet(e, 3);
    pppoeplusIfProtoEnableSet(e, 0);
    pppoeplusIfProtoDfltEnableSet(e, 3);
    e->phyInfo.ondType = 7;
    e->circuitIdFormatType = 9;
    pppoeplusEnableSet(0);
    pppoeplusAllPortEnableSet(3);
    gPppoeplus.ethIfEnable = 0;
    gPppoeplus.gponIfEnable = 3;
    gPppoeplus.ponDefaultType = 5;
    pppoeplusPolicySet(7);
    gPppoeplus.remoteIdFormatType = 4;
    gPppoeplus.circuitIdFormat.formatLen = 0;
    gPppoeplus.remoteIdFormat.formatLen = 0;
    std::string show = captured(pppoeplusShow);
    expectGolden("odd_show", show);
    EXPECT_NE(std::string::npos, show.find("enable:0 unknown, isAllPortEnableSupport:3 unknown,"));
    EXPECT_NE(std::string::npos, show.find("ponDefaultType:5 other,"));
    EXPECT_NE(std::string::npos, show.find("ethIfEnable:0 unknown,"));
    EXPECT_NE(std::string::npos, show.find("gponIfEnable:3 unknown,"));
    EXPECT_NE(std::string::npos, show.find("policy:7 unknown\r\n"));
    EXPECT_NE(std::string::npos, show.find("remoteIdFormatType:4 unknown\r\n"));
    EXPECT_NE(std::string::npos, show.find("\r\ncircuitIdFormat.formatLen:0, circuitIdFormat.format:\r\n"));
    EXPECT_NE(std::string::npos, show.find("trust:0 unknown, enable:3 unknown, protoEnable:0 unknown, "
                                           "protoDfltEnable:3 unknown\r\n"));
    EXPECT_NE(std::string::npos, show.find("phyInfo.ondType:7 other\r\n"));
    EXPECT_NE(std::string::npos, show.find("circuitIdFormatType:9 unknown\r\n"));
}

TEST_F(DiagTest, GoldenFixedTexts) {
    pppoeplusTestStart();
    expectGolden("keywords_show", captured(pppoeplusKeywordsShow));
    expectGolden("common_format_show", captured(pppoeplusCommonFormatShow));
    expectGolden("help", captured(pppoeplusHelp));
    expectGolden("test", captured(pppoeplusTest));
    expectGolden("test_forward_set", captured([] { return pppoeplusTestForwardSet(3); }));
    expectGolden("set_pkt_fd_recv_buf_len", captured([] { return pppoeplusSetPktFdRecvBufLen(65536); }));
}

// ---- each command ---------------------------------------------------------------

TEST_F(DiagTest, EntryShowOfNullPrintsNothing) {
    pppoeplusTestStart();
    int32_t ret = -1;
    EXPECT_EQ("", captured([] { return pppoeplusIfEntryShow(nullptr); }, &ret));
    EXPECT_EQ(0, ret);
}

TEST_F(DiagTest, EmptyTableShow) {
    pppoeplusTestStart();
    const std::string dots(48, '.');
    const std::string expectedTail = dots + "\r\n\r\n pppoeplus Interface:\r\nmem pool pppoeplus_if: size " +
                                     std::to_string(sizeof(tPppoePlusIfEntry)) +
                                     ", total 180, used 0, free 180, peak 0\r\n" + dots + "\r\n\r\n" +
                                     std::string(67, '-') + "\r\n";
    std::string out = captured(pppoeplusShow);
    EXPECT_EQ(0u, out.find("\r\n------------------------PPPOEPLUS INFOMATION-----------------------\r\n"
                           "enable:2 ZEL_FALSE, isAllPortEnableSupport:2 ZEL_FALSE, maxSubSysNum:9, ifMaxNum:180, "
                           "ponDefaultType:1 pon-olt, vendorId:3561\r\n"
                           "ethIfEnable:1 ZEL_TRUE, ethAggIfEnable:1 ZEL_TRUE, gponIfEnable:2 ZEL_FALSE, "
                           "ponAggIfEnable:2 ZEL_FALSE\r\n"
                           "sys mac:00:00:00:00:00:00\r\n"
                           "dfltVendorId:3561, policy:3 replace\r\n"
                           "circuitIdFormatType:0 DEFAULT\r\n"
                           "remoteIdFormatType:0 DEFAULT\r\n"
                           "ponCircuitIdFormatType:0 DEFAULT\r\n"
                           "circuitIdFormat.formatLen:10, circuitIdFormat.format:'%N:%s.%c'\r\n"
                           "ponCircuitIdFormat.formatLen:36, ponCircuitIdFormat.format:'0 0/0/0:0.0 "
                           "%a/%r/%f/%S/0/%p/%m %b'\r\n"
                           "remoteIdFormat.formatLen:4, remoteIdFormat.format:'%C'\r\n"));
    ASSERT_GE(out.size(), expectedTail.size());
    EXPECT_EQ(expectedTail, out.substr(out.size() - expectedTail.size()));
}

TEST_F(DiagTest, FormatsOfFullLengthPrintWhole) {
    pppoeplusTestStart();
    gPppoeplus.remoteIdFormat.formatLen = 255;
    std::memset(gPppoeplus.remoteIdFormat.format, 'x', 256);
    std::string out = captured(pppoeplusShow);
    EXPECT_NE(std::string::npos, out.find("remoteIdFormat.formatLen:255, remoteIdFormat.format:" +
                                          std::string(255, 'x') + "\r\n"));
}

TEST_F(DiagTest, TrustedListInListOrder) {
    populate();
    ASSERT_EQ(0, ifSet(20, PPPOEPLUS_IF_TRUST, 1));
    ASSERT_EQ(0, ifSet(1, PPPOEPLUS_IF_TRUST, 1));
    std::string out = captured(pppoeplusTrustIfShowAll);
    size_t a = out.find("ifUnit:1 eth0/1");
    size_t b = out.find("ifUnit:2 eth0/2");
    size_t c = out.find("ifUnit:20 gpon0/1");
    ASSERT_NE(std::string::npos, a);
    ASSERT_NE(std::string::npos, b);
    ASSERT_NE(std::string::npos, c);
    EXPECT_LT(a, b);
    EXPECT_LT(b, c);
    EXPECT_EQ(std::string::npos, out.find("ifUnit:10 ")) << "only trusted entries";
}

TEST_F(DiagTest, KeywordsShowAgreesWithTheKeywordTable) {
    pppoeplusTestStart();
    tPppoeplusFormat fmt{};
    pppoeplusKeywordsInit(&fmt);
    std::vector<std::string> shown;
    for (const tPppoeplusKeywordShowLine& line : gPppoeplusKeywordShowLines) {
        std::string format(line.format);
        ASSERT_EQ(format.size() - 7, format.find(" - %c\r\n")) << format;
        std::string name = format.substr(0, format.size() - 7);
        EXPECT_EQ(line.code, pppoeplusKeywordToChar(fmt.keywords, name.data(), static_cast<uint32_t>(name.size())))
            << name;
        shown.push_back(name);
    }
    std::vector<std::string> table;
    for (const tPppoeplusKeyword& k : fmt.keywords) table.emplace_back(k.keyword, k.keywordLen);
    std::sort(shown.begin(), shown.end());
    std::sort(table.begin(), table.end());
    EXPECT_EQ(table, shown) << "every keyword shown once";
    std::string out = captured(pppoeplusKeywordsShow);
    EXPECT_EQ(0u, out.find("\r\nsvlan - s\r\ncvlan - c\r\naccessnode - a\r\nrack - r\r\nframe - f\r\nsys - H\r\n"));
    EXPECT_EQ(2u + 35u, static_cast<size_t>(std::count(out.begin(), out.end(), '\n')) + 1u);
}

TEST_F(DiagTest, SetPktFdRecvBufLen) {
    pppoeplusTestStart();
    int32_t ret = -1;
    EXPECT_EQ("\r\nset pktFd:3 recv bufLen:4096\r\n", captured([] { return pppoeplusSetPktFdRecvBufLen(4096); }, &ret));
    EXPECT_EQ(0, ret);
    EXPECT_EQ(4096, sim::sockOpt(3, 0xFFFF, 0x1002));
    EXPECT_EQ("zel_setsockopt(3,65535,4098,4096)", sim::g.calls.back());
}

TEST_F(DiagTest, SetPktFdRecvBufLenOnAClosedSocketReturnsTwoSilently) {
    pppoeplusTestStart();
    gPppoeplus.pktFd = -1;
    int32_t ret = -1;
    EXPECT_EQ("", captured([] { return pppoeplusSetPktFdRecvBufLen(4096); }, &ret));
    EXPECT_EQ(2, ret);
}

TEST_F(DiagTest, TestForwardSetStoresAndPrints) {
    pppoeplusTestStart();
    EXPECT_EQ("\r\n gPppoeplusTestForward change to 7\r\n", captured([] { return pppoeplusTestForwardSet(7); }));
    EXPECT_EQ(7u, gPppoeplusTestForward);
    EXPECT_EQ("\r\n gPppoeplusTestForward change to 0\r\n", captured([] { return pppoeplusTestForwardSet(0); }));
    EXPECT_EQ(0u, gPppoeplusTestForward);
}

TEST_F(DiagTest, HelpListsTheCommandsButNotTheTests) {
    pppoeplusTestStart();
    EXPECT_EQ("\r\npppoeplusKeywordsShow()\r\npppoeplusCommonFormatShow()\r\n"
              "pppoeplusIfEntryShow(tPppoePlusIfEntry *pIf)\r\npppoeplusIfShowAll()\r\npppoeplusTrustIfShowAll()\r\n"
              "pppoeplusShow()\r\npppoeplusSetPktFdRecvBufLen(int32_t bufLen)\r\n"
              "pppoeplusTestForwardSet(uint32_t enable)\r\n\r\n",
              captured(pppoeplusHelp));
}

TEST_F(DiagTest, TestRightAfterStart) {
    pppoeplusTestStart();
    std::string out = captured(pppoeplusTest);
    EXPECT_EQ("\r\npppoeplusScalarGetApi ret:0, deftVendorId:3561\r\n\r\n"
              "pppoeplusScalarGetApi PPPOEPLUS_SCALAR_NSRINFO return OK\r\n"
              "pNsrInfo->switchover:1 ZEL_TRUE\r\npNsrInfo->incompleteOp:0\r\npNsrInfo->allOp:0\r\n",
              out);
    EXPECT_EQ(0, sim::g.sems[gPppoeplus.semId].depth) << "the management calls released the lock";
}

TEST_F(DiagTest, LogTestWritesTheFourProtocolMessages) {
    pppoeplusTestStart();
    sim::addInterface(4, std::string(70, 'n'), ZEL_OND_ETH);
    EXPECT_EQ("", captured([] { return pppoeplusLogTest(4); }));
    const std::string name(62, 'n');  // the name is read with a limit of 63
    ASSERT_EQ(4u, sim::g.logs.size());
    const char* texts[4] = {"The interface enable protocol error.(ifName=[%s], proto=[pppoe+], type=[state])\r\n",
                            "The interface enable protocol error.(ifName=[%s], proto=[pppoe+hw], type=[state])\r\n",
                            "The interface disable protocol error.(ifName=[%s], proto=[pppoe+], type=[state])\r\n",
                            "The interface disable protocol error.(ifName=[%s], proto=[pppoe+hw], type=[state])\r\n"};
    for (int i = 0; i < 4; i++) {
        std::string expected = texts[i];
        expected.replace(expected.find("%s"), 2, name);
        EXPECT_EQ(expected, sim::g.logs[i].text);
        EXPECT_TRUE(sim::g.logs[i].oper);
        EXPECT_EQ(i < 2 ? 0x45D0006u : 0x45D0007u, sim::g.logs[i].module);
        EXPECT_EQ(7u, sim::g.logs[i].level);
    }

    sim::g.logs.clear();
    pppoeplusAllPortEnableSet(ZEL_TRUE);
    pppoeplusLogTest(99);
    ASSERT_EQ(4u, sim::g.logs.size());
    EXPECT_EQ("The interface enable protocol error.(ifName=[], proto=[pppoe+], type=[defaultstate])\r\n",
              sim::g.logs[0].text);
}

TEST_F(DiagTest, PonTestFillsTheTestOnuRecord) {
    pppoeplusTestStart();
    sim::addInterface(7, "eth0/7", ZEL_OND_ETH);
    ASSERT_EQ(0, ifSet(7, PPPOEPLUS_IF_ENABLE, 1));
    std::memset(&gTestOnuInfo, 0xFF, sizeof(gTestOnuInfo));
    EXPECT_EQ(0, pppoeplusPonTest(7, 0x1123));
    uint8_t bytes[16];
    std::memcpy(bytes, &gTestOnuInfo, 16);
    uint32_t unit = 0;
    uint32_t word = 0;
    std::memcpy(&unit, bytes, 4);
    std::memcpy(&word, bytes + 4, 4);
    EXPECT_EQ(7u, unit);
    EXPECT_EQ(0x123u, (word >> 8) & 0xFFF) << "12 bits of the ONU number";
    EXPECT_EQ(8u, word & 0xFF) << "the serial number's length";
    EXPECT_EQ(0u, word >> 20);
    const uint8_t sn[8] = {'W', 'U', 'P', 'O', 0x1B, 0xD8, 0x0A, 0x9A};
    EXPECT_EQ(0, std::memcmp(sn, bytes + 8, 8));
    EXPECT_EQ(ZEL_OND_GPON, pppoeplusIfEntryGet(7)->phyInfo.ondType);

    // Without an entry only the record is written.
    EXPECT_EQ(0, pppoeplusPonTest(8, 1));
    EXPECT_EQ(8u, gTestOnuInfo.ifUnit);
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(8));
}

}  // namespace

namespace {

// A PADI received on `unit` after pppoeplusPonTest, carrying the test ONU
// record as its ONU identity block, the way the platform reports it.
std::vector<uint8_t> ponTestPadiCircuitId(bool platformKnowsPosition) {
    pppoeplusTestStart(1, 0);
    sim::Interface& client = sim::addInterface(7, "eth0/7", ZEL_OND_ETH);
    sim::addInterface(9, "uplink", ZEL_OND_ETH);
    const uint8_t sysMac[6] = {0x00, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE};
    sim::setScalarBytes(ZEL_SCALAR_SYS_MAC, std::vector<uint8_t>(sysMac, sysMac + 6));
    uint32_t one = 1;
    EXPECT_EQ(0, pppoeplusIfSetApi(7, PPPOEPLUS_IF_ENABLE, &one));
    EXPECT_EQ(0, pppoeplusIfSetApi(9, PPPOEPLUS_IF_ENABLE, &one));
    EXPECT_EQ(0, pppoeplusIfSetApi(9, PPPOEPLUS_IF_TRUST, &one));

    EXPECT_EQ(0, pppoeplusPonTest(7, 5));
    if (!platformKnowsPosition) {
        client.phyOk = false;  // the entry's own record, now a GPON port, is used
    } else {
        client.phyInfo.ondType = ZEL_OND_GPON;
    }

    sim::Frame f{};
    f.bytes = {0x11, 0x09, 0x00, 0x00, 0x00, 0x04, 0x01, 0x01, 0x00, 0x00};
    f.ifUnit = 7;
    f.withInfo = true;
    const uint8_t src[6] = {0x00, 0x0c, 0x29, 0xaa, 0xbb, 0x01};
    std::memcpy(f.info.srcMac, src, 6);
    std::memset(f.info.dstMac, 0xFF, 6);
    f.info.onuPresent = 1;
    f.info.flags = ZEL_RXINFO_ONU_VALID;
    std::memcpy(f.info.onuInfo, &gTestOnuInfo, sizeof(gTestOnuInfo));
    sim::pushFrame(gPppoeplus.pktFd, f);
    pppoeplusPktRecv();

    EXPECT_EQ(1u, sim::g.sent.size());
    if (sim::g.sent.empty()) return {};
    const std::vector<uint8_t>& out = sim::g.sent[0].bytes;
    // Header, the Service-Name tag, then the agent's tag: type, length,
    // vendor id, Circuit-ID sub-option.
    EXPECT_GE(out.size(), 20u);
    if (out.size() < 20) return {};
    EXPECT_EQ(0x01, out[10]);
    EXPECT_EQ(0x05, out[11]);
    EXPECT_EQ(0x01, out[18]);
    uint8_t len = out[19];
    EXPECT_EQ(out.size(), 20u + len) << "a PON port's tag carries no Remote-ID";
    return std::vector<uint8_t>(out.begin() + 20, out.begin() + 20 + std::min<size_t>(len, out.size() - 20));
}

TEST_F(DiagTest, PonTestThenAPadiGetsThePonLineId) {
    std::vector<uint8_t> id = ponTestPadiCircuitId(false);
    EXPECT_EQ("0 0/0/0:0.0 00:AA:BB:CC:DD:EE/0/0/0/0/7/5 GP", std::string(id.begin(), id.end()));
}

TEST_F(DiagTest, PonTestOnAPonPortGivesTheOnuNumber) {
    std::vector<uint8_t> id = ponTestPadiCircuitId(true);
    EXPECT_EQ("0 0/0/0:0.0 00:AA:BB:CC:DD:EE/0/0/0/0/7/5 GP", std::string(id.begin(), id.end()));
}

// ---- the process shell's table ---------------------------------------------------

template <typename... Params>
constexpr uint32_t arityOf(int32_t (*)(Params...)) {
    return sizeof...(Params);
}

// The shell's row called `name`, or null.
const tProcShellFunc* shellRow(const std::string& name) {
    for (const tProcShellFunc& f : gPppoeplusShellFuncs)
        if (name == f.name) return &f;
    return nullptr;
}

// Runs the shell's row `name` with `args`, as the shell does once the
// arguments are checked.
int32_t shellRun(const std::string& name, std::vector<int64_t> args) {
    const tProcShellFunc* row = shellRow(name);
    EXPECT_NE(nullptr, row) << name;
    if (row == nullptr) return -1;
    EXPECT_EQ(row->argCount, args.size()) << name;
    args.resize(PROC_SHELL_MAX_ARGS);
    return row->entry(args.data());
}

TEST_F(DiagTest, TheShellTableListsEveryDiagnosticFunctionWithItsArguments) {
    struct Expected {
        const char* name;
        uint32_t arity;  // of the function operators know by that name
        std::vector<uint8_t> kinds;
    };
    const uint8_t U32 = PROC_SHELL_ARG_U32, I32 = PROC_SHELL_ARG_I32, UNIT = PROC_SHELL_ARG_IFUNIT;
    const Expected expected[] = {
        {"pppoeplusKeywordsShow", arityOf(pppoeplusKeywordsShow), {}},
        {"pppoeplusCommonFormatShow", arityOf(pppoeplusCommonFormatShow), {}},
        // The entry's address is given as its interface unit.
        {"pppoeplusIfEntryShow", arityOf(pppoeplusIfEntryShow), {UNIT}},
        {"pppoeplusIfShowAll", arityOf(pppoeplusIfShowAll), {}},
        {"pppoeplusTrustIfShowAll", arityOf(pppoeplusTrustIfShowAll), {}},
        {"pppoeplusShow", arityOf(pppoeplusShow), {}},
        {"pppoeplusSetPktFdRecvBufLen", arityOf(pppoeplusSetPktFdRecvBufLen), {I32}},
        {"pppoeplusTestForwardSet", arityOf(pppoeplusTestForwardSet), {U32}},
        {"pppoeplusHelp", arityOf(pppoeplusHelp), {}},
        {"pppoeplusTest", arityOf(pppoeplusTest), {}},
        {"pppoeplusLogTest", arityOf(pppoeplusLogTest), {UNIT}},
        {"pppoeplusPonTest", arityOf(pppoeplusPonTest), {UNIT, U32}},
    };
    ASSERT_EQ(std::size(expected), PPPOEPLUS_SHELL_FUNC_NUM);
    for (uint32_t i = 0; i < PPPOEPLUS_SHELL_FUNC_NUM; i++) {
        const tProcShellFunc& row = gPppoeplusShellFuncs[i];
        const Expected& e = expected[i];
        ASSERT_NE(nullptr, row.name) << i;
        EXPECT_STREQ(e.name, row.name);
        EXPECT_NE(nullptr, row.entry) << e.name;
        EXPECT_EQ(e.arity, row.argCount) << e.name;
        ASSERT_EQ(e.kinds.size(), row.argCount) << e.name;
        for (uint32_t a = 0; a < row.argCount; a++) {
            EXPECT_EQ(e.kinds[a], row.argKinds[a]) << e.name << " argument " << a;
            ASSERT_NE(nullptr, row.argNames[a]) << e.name;
            EXPECT_NE("", std::string(row.argNames[a])) << e.name;
        }
        for (uint32_t j = 0; j < i; j++) EXPECT_STRNE(row.name, gPppoeplusShellFuncs[j].name);
    }
    // Every function pppoeplusHelp lists can be called.
    std::istringstream help(captured(pppoeplusHelp));
    int listed = 0;
    for (std::string line; std::getline(help, line);) {
        if (line.find('(') == std::string::npos) continue;
        listed++;
        EXPECT_NE(nullptr, shellRow(line.substr(0, line.find('(')))) << line;
    }
    EXPECT_EQ(8, listed);
}

TEST_F(DiagTest, EveryShellRowPrintsWhatTheDirectCallPrints) {
    populate();
    sim::addInterface(30, "eth0/30", ZEL_OND_ETH);  // an interface without an entry
    struct Case {
        const char* name;
        std::vector<int64_t> args;
        std::function<int32_t()> direct;
        const char* golden;  // the golden file the output matches, if any
    };
    const Case cases[] = {
        {"pppoeplusKeywordsShow", {}, pppoeplusKeywordsShow, "keywords_show"},
        {"pppoeplusCommonFormatShow", {}, pppoeplusCommonFormatShow, "common_format_show"},
        {"pppoeplusIfEntryShow", {1}, [] { return pppoeplusIfEntryShow(pppoeplusIfEntryGet(1)); },
         "populated_if_entry_show_1"},
        {"pppoeplusIfEntryShow", {20}, [] { return pppoeplusIfEntryShow(pppoeplusIfEntryGet(20)); },
         "populated_if_entry_show_20"},
        {"pppoeplusIfShowAll", {}, pppoeplusIfShowAll, "populated_if_show_all"},
        {"pppoeplusTrustIfShowAll", {}, pppoeplusTrustIfShowAll, "populated_trust_show_all"},
        {"pppoeplusShow", {}, pppoeplusShow, "populated_show"},
        {"pppoeplusSetPktFdRecvBufLen", {65536}, [] { return pppoeplusSetPktFdRecvBufLen(65536); },
         "set_pkt_fd_recv_buf_len"},
        {"pppoeplusSetPktFdRecvBufLen", {-2147483648LL}, [] { return pppoeplusSetPktFdRecvBufLen(INT32_MIN); },
         nullptr},
        {"pppoeplusTestForwardSet", {3}, [] { return pppoeplusTestForwardSet(3); }, "test_forward_set"},
        {"pppoeplusTestForwardSet", {4294967295LL}, [] { return pppoeplusTestForwardSet(UINT32_MAX); }, nullptr},
        {"pppoeplusHelp", {}, pppoeplusHelp, "help"},
        {"pppoeplusTest", {}, pppoeplusTest, nullptr},
        {"pppoeplusLogTest", {1}, [] { return pppoeplusLogTest(1); }, nullptr},
        {"pppoeplusPonTest", {20, 4095}, [] { return pppoeplusPonTest(20, 4095); }, nullptr},
    };
    for (const Case& c : cases) {
        sim::g.logs.clear();
        int32_t rowResult = -1;
        std::string rowOut = captured([&c] { return shellRun(c.name, c.args); }, &rowResult);
        std::vector<std::string> rowLogs = sim::logTexts();
        tPppoeplusTestOnuInfo rowOnu = gTestOnuInfo;

        sim::g.logs.clear();
        std::memset(&gTestOnuInfo, 0, sizeof(gTestOnuInfo));
        int32_t directResult = -2;
        std::string directOut = captured(c.direct, &directResult);
        EXPECT_EQ(directOut, rowOut) << c.name;
        EXPECT_EQ(directResult, rowResult) << c.name;
        EXPECT_EQ(sim::logTexts(), rowLogs) << c.name;
        EXPECT_EQ(0, std::memcmp(&gTestOnuInfo, &rowOnu, sizeof(rowOnu))) << c.name;
        if (c.golden != nullptr) expectGolden(c.golden, rowOut);
        if (std::string(c.name) == "pppoeplusLogTest") {
            EXPECT_EQ(4u, rowLogs.size()) << "the messages were written";
        }
    }
    EXPECT_EQ(20u, gTestOnuInfo.ifUnit);
}

TEST_F(DiagTest, TheShellShowsTheEntryOfAUnitOrSaysThatThereIsNone) {
    populate();
    sim::addInterface(30, "eth0/30", ZEL_OND_ETH);
    int32_t ret = 0;
    EXPECT_EQ("ifUnit:30 eth0/30 has no pppoeplus entry\r\n",
              captured([] { return shellRun("pppoeplusIfEntryShow", {30}); }, &ret));
    EXPECT_EQ(ZEL_ERR_NOT_FOUND, ret);
    // An interface gone meanwhile has no name either.
    EXPECT_EQ("ifUnit:31 has no pppoeplus entry\r\n", captured([] { return pppoeplusIfEntryShowByUnit(31); }, &ret));
    EXPECT_EQ(ZEL_ERR_NOT_FOUND, ret);
    EXPECT_TRUE(captured([] { return shellRun("pppoeplusIfEntryShow", {10}); }, &ret).find("ifUnit:10 ethagg1,") !=
                std::string::npos);
    EXPECT_EQ(0, ret);
}

}  // namespace
