// Format building: the choice of format, every keyword in ASCII and hex form
// with its platform source, widths, pads, stop rules, the segment bound, the
// worked examples byte for byte, and typed formats taken through
// simplification, checking and building.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "agent/global.h"
#include "format/default_formats.h"
#include "format/format_check.h"
#include "format/format_simplify.h"
#include "iftable/if_entry.h"
#include "packet/id_build.h"
#include "packet/pkt_parse.h"
#include "platform/sim/sim.h"
#include "platform/types.h"
#include "support/fixture.h"

using namespace std::string_literals;

namespace {

const std::vector<uint8_t> kPortMac = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
const std::vector<uint8_t> kSysMac = {0x00, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE};
const uint8_t kClientMac[6] = {0x00, 0x0C, 0x29, 0xAB, 0xCD, 0xEF};

// Writes `text` (any bytes, up to 256) as the stored form of `f`.
void setFormat(tPppoeplusFormat* f, const std::string& text) {
    std::memset(f->format, 0, sizeof(f->format));
    std::memcpy(f->format, text.data(), std::min<size_t>(text.size(), sizeof(f->format)));
    f->formatLen = static_cast<uint16_t>(text.size());
}

std::string hex(const std::string& bytes) {
    std::string out;
    char b[4];
    for (unsigned char c : bytes) {
        std::snprintf(b, sizeof(b), "%02X ", c);
        out += b;
    }
    if (!out.empty()) out.pop_back();
    return out;
}

std::string onuBlock(uint32_t onu, const std::string& sn, uint8_t snLen) {
    std::string b(16, '\0');
    uint32_t word = ((onu & 0xFFF) << 8) | snLen;
    std::memcpy(b.data() + 4, &word, 4);
    std::memcpy(b.data() + 8, sn.data(), std::min<size_t>(sn.size(), 8));
    return b;
}

class FormatBuildTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        pppoeplusTestStart();
        sim::Interface& itf = sim::addInterface(1, "eth0/1", ZEL_OND_ETH, ZEL_IFTYPE_ETHERNET);
        std::memcpy(itf.mac, kPortMac.data(), 6);
        itf.phyInfo.sysNo = 3;
        itf.phyInfo.slotNo = 4;
        itf.phyInfo.portNo = 1;
        itf.phyInfo.aggNo = 9;
        entry = pppoeplusIfEntryAdd(1, 1);
        ASSERT_NE(nullptr, entry);
        sim::setScalarBytes(ZEL_SCALAR_SYS_MAC, kSysMac);
        sim::setScalarText(ZEL_SCALAR_DEVICE_NAME, "dev-50");
        sim::setScalarText(ZEL_SCALAR_SYS_NAME, "lab-olt");
        std::memset(&pkt, 0, sizeof(pkt));
        pkt.outerVid = 100;
        pkt.innerVid = 200;
        std::memcpy(pkt.srcMac, kClientMac, 6);
        pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT | PPPOEPLUS_DEBUG_ERROR);
        sim::g.logs.clear();
        sim::g.calls.clear();
    }

    std::string build(uint32_t which = PPPOEPLUS_BUILD_CIRCUIT_ID, uint32_t capacity = 512) {
        std::vector<uint8_t> buf(capacity + 16, 0xEE);
        uint32_t n = pppoeplusBuildFormat(entry, &pkt, buf.data(), capacity, which);
        EXPECT_LE(n, capacity);
        for (size_t i = capacity; i < buf.size(); i++) EXPECT_EQ(0xEE, buf[i]) << "written past the capacity";
        return std::string(reinterpret_cast<const char*>(buf.data()), n);
    }

    // Builds `text` as the port's own USERDEFINE Circuit-ID.
    std::string circuit(const std::string& text, uint32_t capacity = 512) {
        entry->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
        setFormat(&entry->circuitIdFormat, text);
        return build(PPPOEPLUS_BUILD_CIRCUIT_ID, capacity);
    }

    // The port becomes kind `kind` at `slot`/`port` (word 2) in the platform.
    void placePort(uint32_t kind, uint32_t slot, uint32_t port) {
        sim::Interface& itf = sim::g.interfaces[1];
        itf.phyInfo.ondType = kind;
        itf.phyInfo.slotNo = slot;
        itf.phyInfo.portNo = port;
    }

    void withOnu(uint32_t onu, const std::string& sn = "WUPO\x1b\xd8\x0a\x9a", uint8_t snLen = 8) {
        onu_ = onuBlock(onu, sn, snLen);
        pkt.onuInfo = reinterpret_cast<const uint8_t*>(onu_.data());
    }

    std::vector<std::string> errors() {
        std::vector<std::string> out;
        for (const sim::LogRecord& r : sim::g.logs) {
            EXPECT_EQ(0x45D0004u, r.module);
            EXPECT_EQ(gPppoeplus.logLevel[4], r.level);
            out.push_back(r.text);
        }
        return out;
    }

    tPppoePlusIfEntry* entry = nullptr;
    tPppoePlusPkt pkt{};
    std::string onu_;
};

// ---- worked examples ---------------------------------------------------------------------

TEST_F(FormatBuildTest, DefaultCommonCircuitId) {
    EXPECT_EQ("eth0/1:100.200", build());
    EXPECT_EQ(14u, build().size());
}

TEST_F(FormatBuildTest, DefaultCommonRemoteId) { EXPECT_EQ("00:11:22:33:44:55", build(PPPOEPLUS_BUILD_REMOTE_ID)); }

TEST_F(FormatBuildTest, WidthPadsWithBlanks) { EXPECT_EQ("    eth0/1", circuit("'%10N'")); }

TEST_F(FormatBuildTest, ZeroPadPersistsAndValuesAreCut) { EXPECT_EQ("0000000100|eth", circuit("'%010s|%3N'")); }

TEST_F(FormatBuildTest, PonOltLineId) {
    placePort(ZEL_OND_GPON, 2, 5);
    withOnu(7);
    EXPECT_EQ("0 0/0/0:0.0 00:AA:BB:CC:DD:EE/0/0/2/0/5/7 GP", build());
}

TEST_F(FormatBuildTest, PonOnuLineId) {
    placePort(ZEL_OND_GPON, 2, 5);
    pppoeplusPonCircuitIdFormatInstallDefault(&gPppoeplus.ponCircuitIdFormat, PPPOEPLUS_PON_TYPE_ONU);
    gPppoeplus.ponDefaultType = PPPOEPLUS_PON_TYPE_ONU;
    EXPECT_EQ("0/0/0:0.0 0/0/0/0/0/0/0 // 0", build());
}

TEST_F(FormatBuildTest, HexNumbersAndKeywords) {
    EXPECT_EQ("01 00 64 00 C8 0A 0B 01 2C", hex(circuit("0x01 %16s %c 0x0a0b 300")));
}

// ---- which format ---------------------------------------------------------------------------

TEST_F(FormatBuildTest, PortFormatWinsOverTheGlobalOne) {
    entry->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
    setFormat(&entry->circuitIdFormat, "'port-%s'");
    entry->remoteIdFormatType = PPPOEPLUS_FORMAT_TYPE_ASCII;
    setFormat(&entry->remoteIdFormat, "'%N'");
    EXPECT_EQ("port-100", build(1));
    EXPECT_EQ("'%N'", build(2)) << "an ASCII format is copied as it stands";
}

TEST_F(FormatBuildTest, GlobalFormatsAndTheirTypes) {
    gPppoeplus.circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_ASCII;
    setFormat(&gPppoeplus.circuitIdFormat, "circuit %s");
    gPppoeplus.remoteIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
    setFormat(&gPppoeplus.remoteIdFormat, "'r:%c'");
    EXPECT_EQ("circuit %s", build(1));
    EXPECT_EQ("r:200", build(2));
    // A type the engine does not know is interpreted like USERDEFINE.
    gPppoeplus.circuitIdFormatType = 7;
    setFormat(&gPppoeplus.circuitIdFormat, "'c%s'");
    EXPECT_EQ("c100", build(1));
}

TEST_F(FormatBuildTest, PonPortsTakeTheGlobalPonCircuitIdButTheCommonRemoteId) {
    for (uint32_t kind : {ZEL_OND_EPON, ZEL_OND_GPON, ZEL_OND_PON_AGG}) {
        placePort(kind, 1, 1);
        gPppoeplus.ponCircuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
        setFormat(&gPppoeplus.ponCircuitIdFormat, "'pon'");
        EXPECT_EQ("pon", build(1)) << kind;
        EXPECT_EQ("00:11:22:33:44:55", build(2)) << kind;
    }
    for (uint32_t kind : {ZEL_OND_ETH, ZEL_OND_ETH_AGG, 0u, 13u}) {
        placePort(kind, 1, 1);
        EXPECT_EQ("eth0/1:100.200", build(1)) << kind;
    }
}

TEST_F(FormatBuildTest, PortIndexIsRefreshedAndCachedOnFailure) {
    placePort(ZEL_OND_GPON, 6, 8);
    EXPECT_EQ("6/8", circuit("'%S/%p'"));
    EXPECT_EQ(ZEL_OND_GPON, entry->phyInfo.ondType);
    EXPECT_GE(sim::findCall("zelIndexTrans(1,5)"), 0);

    placePort(ZEL_OND_ETH, 1, 1);
    sim::failWhen("zelIndexTrans(1,5)", ZEL_ERR_GENERAL);
    EXPECT_EQ("6/8", circuit("'%S/%p'")) << "the cached copy";
    EXPECT_EQ(6u, entry->phyInfo.slotNo);
}

TEST_F(FormatBuildTest, EmptyFormatIsRefused) {
    entry->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
    setFormat(&entry->circuitIdFormat, "");
    EXPECT_EQ("", build());
    EXPECT_EQ((std::vector<std::string>{"Format length is zero!\r\n"}), errors());
}

TEST_F(FormatBuildTest, UnknownTextOrNullArgumentsBuildNothing) {
    uint8_t buf[64];
    EXPECT_EQ(0u, pppoeplusBuildFormat(entry, &pkt, buf, sizeof(buf), 0));
    EXPECT_EQ(0u, pppoeplusBuildFormat(entry, &pkt, buf, sizeof(buf), 3));
    EXPECT_TRUE(sim::g.calls.empty()) << "nothing asked of the platform";
    EXPECT_EQ(0u, pppoeplusBuildFormat(nullptr, &pkt, buf, sizeof(buf), 1));
    EXPECT_EQ(0u, pppoeplusBuildFormat(entry, nullptr, buf, sizeof(buf), 1));
    EXPECT_EQ(0u, pppoeplusBuildFormat(entry, &pkt, nullptr, sizeof(buf), 1));
    tZelPhyInfo phy{};
    EXPECT_EQ(-1, pppoeplusBuildAsciiFormat(nullptr, &pkt, &phy, 1, "'a'", 3, buf, 64));
    EXPECT_EQ(-1, pppoeplusBuildAsciiFormat(entry, &pkt, nullptr, 1, "'a'", 3, buf, 64));
    EXPECT_EQ(-1, pppoeplusBuildAsciiFormat(entry, &pkt, &phy, 1, nullptr, 3, buf, 64));
    EXPECT_EQ(-1, pppoeplusBuildAsciiFormat(entry, &pkt, &phy, 1, "'a'", 3, nullptr, 64));
    EXPECT_EQ(-1, pppoeplusBuildHexFormat(entry, nullptr, &phy, "1", 1, buf, 64));
    EXPECT_EQ(-1, pppoeplusBuildHexFormat(entry, &pkt, &phy, "1", 1, nullptr, 64));
}

// ---- ASCII form type ("type 2") ------------------------------------------------------------------

TEST_F(FormatBuildTest, AsciiTypeOf255BytesIsCopiedOneByteShortIsRefused) {
    entry->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_ASCII;
    std::string text(255, 'q');
    text[0] = '%';
    setFormat(&entry->circuitIdFormat, text);
    EXPECT_EQ(text, build(1, 255));
    EXPECT_TRUE(sim::g.logs.empty());
    EXPECT_EQ("", build(1, 254));
    EXPECT_EQ((std::vector<std::string>{"Circuit-id/remote-id is too long!\r\n"}), errors());
}

TEST_F(FormatBuildTest, AsciiTypeOf256BytesIsRefused) {
    entry->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_ASCII;
    setFormat(&entry->circuitIdFormat, std::string(256, 'q'));
    EXPECT_EQ("", build(1, 512));
    EXPECT_EQ((std::vector<std::string>{"Circuit-id/remote-id is too long!\r\n"}), errors());
}

// ---- every keyword in ASCII form ---------------------------------------------------------------

struct AsciiKeyword {
    char code;
    std::string value;
};

TEST_F(FormatBuildTest, EveryKeywordInAsciiForm) {
    const std::vector<AsciiKeyword> cases = {
        {'s', "100"},
        {'c', "200"},
        {'a', "00:AA:BB:CC:DD:EE"},
        {'r', "0"},
        {'f', "0"},
        {'S', "4"},
        {'p', "1"},
        {'m', "0"},
        {'u', ""},
        {'L', ""},
        {'O', ""},
        {'o', ""},
        {'n', "0"},
        {'T', ""},
        {'M', ""},
        {'P', ""},
        {'t', ""},
        {'X', ""},
        {'x', ""},
        {'I', ""},
        {'A', ""},
        {'B', ""},
        {'b', "0"},
        {'N', "eth0/1"},
        {'Y', "ethernet"},
        {'C', "00:11:22:33:44:55"},
        {'d', "dev-50"},
        {'D', "lab-olt"},
        {'U', "0"},
        {'R', "00:AA:BB:CC:DD:EE"},
        {'Z', "00000000000000AABBCCDDEE"},
        {'H', "3"},
        {'J', "00:0C:29:AB:CD:EF"},
        {'G', "0"},
        {'h', "0"},
    };
    ASSERT_EQ(PPPOEPLUS_KEYWORD_NUM, cases.size());
    for (const AsciiKeyword& k : cases) {
        const std::string text = "'<%"s + k.code + ">'";
        EXPECT_EQ("<" + k.value + ">", circuit(text)) << text;
    }
    EXPECT_TRUE(sim::g.logs.empty());
}

TEST_F(FormatBuildTest, LettersThatAreNoCodeStandAsTheyAre) {
    for (char c : std::string("EFKQVWegijklqvwyz")) {
        const std::string text = "'<%"s + c + ">'";
        EXPECT_EQ("<%"s + c + ">", circuit(text)) << text;
    }
}

TEST_F(FormatBuildTest, KeywordSourcesOnThePlatform) {
    circuit("'%N'");
    EXPECT_EQ((std::vector<std::string>{"zelIndexTrans(1,5)", "zelIfGetApi(1,3)"}), sim::g.calls);
    sim::g.calls.clear();
    circuit("'%Y'");
    EXPECT_EQ((std::vector<std::string>{"zelIndexTrans(1,5)", "zelIfGetApi(1,5)"}), sim::g.calls);
    sim::g.calls.clear();
    circuit("'%d%D'");
    EXPECT_EQ((std::vector<std::string>{"zelIndexTrans(1,5)", "zelScalarGetApi(0,50)", "zelScalarGetApi(0,58)"}),
              sim::g.calls);
    sim::g.calls.clear();
    circuit("'%a%R%Z'");
    EXPECT_EQ((std::vector<std::string>{"zelIndexTrans(1,5)", "zelScalarGetApi(0,6)", "zelScalarGetApi(0,6)",
                                        "zelScalarGetApi(0,6)"}),
              sim::g.calls);
    sim::g.calls.clear();
    circuit("'%s%c%r%f%S%p%m%n%b%C%U%H%J%G%h%u%T'");
    EXPECT_EQ((std::vector<std::string>{"zelIndexTrans(1,5)"}), sim::g.calls) << "the rest need no platform call";
}

TEST_F(FormatBuildTest, SystemMacIsKeptInTheGlobalRecord) {
    std::memset(gPppoeplus.sysMac, 0, 6);
    circuit("'%a'");
    EXPECT_EQ(kSysMac, std::vector<uint8_t>(gPppoeplus.sysMac, gPppoeplus.sysMac + 6));
}

TEST_F(FormatBuildTest, PlatformFailuresGiveTheirFallbacks) {
    sim::failWhen("zelScalarGetApi(0,6)", ZEL_ERR_GENERAL);
    sim::failWhen("zelScalarGetApi(0,50)", ZEL_ERR_GENERAL);
    sim::failWhen("zelScalarGetApi(0,58)", ZEL_ERR_GENERAL);
    sim::failWhen("zelIfGetApi(1,3)", ZEL_ERR_GENERAL);
    sim::failWhen("zelIfGetApi(1,5)", ZEL_ERR_GENERAL);
    EXPECT_EQ("<0|0|0||||unknown>", circuit("'<%a|%R|%Z|%d|%D|%N|%Y>'"));
}

TEST_F(FormatBuildTest, PortTypeNames) {
    sim::g.interfaces[1].type = ZEL_IFTYPE_GPON;
    EXPECT_EQ("G-PON", circuit("'%Y'"));
    sim::g.interfaces[1].type = 7;
    EXPECT_EQ("unknown", circuit("'%Y'"));
}

TEST_F(FormatBuildTest, TextScalarsOfFullLength) {
    sim::setScalarText(ZEL_SCALAR_SYS_NAME, std::string(255, 'n'));
    EXPECT_EQ(std::string(255, 'n'), circuit("'%D'"));
}

TEST_F(FormatBuildTest, PortNumberByPortKind) {
    sim::g.interfaces[1].phyInfo.portNo = 5;
    sim::g.interfaces[1].phyInfo.aggNo = 9;
    const std::vector<std::pair<uint32_t, std::string>> cases = {
        {ZEL_OND_ETH, "5"}, {ZEL_OND_EPON, "5"}, {ZEL_OND_GPON, "5"}, {ZEL_OND_ETH_AGG, "9"},
        {ZEL_OND_PON_AGG, "9"}, {0, "0"}, {3, "0"}};
    for (const auto& [kind, port] : cases) {
        sim::g.interfaces[1].phyInfo.ondType = kind;
        EXPECT_EQ(port, circuit("'%p'")) << kind;
    }
}

TEST_F(FormatBuildTest, AccessTypeByPortKind) {
    const std::vector<std::pair<uint32_t, std::string>> cases = {
        {ZEL_OND_GPON, "GP"}, {ZEL_OND_EPON, "EP"}, {ZEL_OND_PON_AGG, "0"}, {ZEL_OND_ETH, "0"}};
    for (const auto& [kind, text] : cases) {
        sim::g.interfaces[1].phyInfo.ondType = kind;
        EXPECT_EQ(text, circuit("'%b'")) << kind;
    }
}

TEST_F(FormatBuildTest, OnuKeywords) {
    EXPECT_EQ("0|0", circuit("'%m|%U'"));
    withOnu(0xABC);
    EXPECT_EQ("2748|WUPO\x1b\xd8\x0a\x9a", circuit("'%m|%U'"));
    withOnu(7, "ABCDEFGH", 7);
    EXPECT_EQ("7|0", circuit("'%m|%U'")) << "an identifier length other than 8";
    withOnu(7, "AB\0\0EFGH"s, 8);
    EXPECT_EQ("7|AB\0\0EFGH"s, circuit("'%m|%U'")) << "the 8 bytes as they stand";
}

TEST_F(FormatBuildTest, OnuIdCarriesTheLineIdOnlyForDefaultFormatsOfAPonOlt) {
    placePort(ZEL_OND_GPON, 2, 5);
    withOnu(7);
    std::strcpy(pkt.ponLineId, "cd/1:eth");
    EXPECT_EQ("0 0/0/0:0.0 00:AA:BB:CC:DD:EE/0/0/2/0/5/7 cd/1:eth GP", build());
    gPppoeplus.ponCircuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
    EXPECT_EQ("0 0/0/0:0.0 00:AA:BB:CC:DD:EE/0/0/2/0/5/7 GP", build()) << "format type 1";
    gPppoeplus.ponCircuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_DEFAULT;
    gPppoeplus.ponDefaultType = PPPOEPLUS_PON_TYPE_ONU;
    EXPECT_EQ("0 0/0/0:0.0 00:AA:BB:CC:DD:EE/0/0/2/0/5/7 GP", build()) << "pon-onu";
}

// ---- ASCII segments: literals, widths, pads, stops --------------------------------------------

TEST_F(FormatBuildTest, QuotesAndBackslashesAreDropped) {
    // The escaped quote belongs to the segment, and is dropped with the
    // backslash all the same.
    EXPECT_EQ("its", circuit("'it\\'s'"));
    EXPECT_EQ("ab", circuit("'a\\\\b'"));
}

TEST_F(FormatBuildTest, PercentWithoutCodeIsDroppedWithTheNextCharacter) {
    EXPECT_EQ("ab", circuit("'a%:b'"));
    EXPECT_EQ("ab", circuit("'a%12.b'"));
    EXPECT_EQ("", circuit("'%:'")) << "a segment that yields nothing fails the build";
}

TEST_F(FormatBuildTest, PadIsBlankUntilAZeroItemThenZero) {
    EXPECT_EQ(" 100.00200.0100", circuit("'%4s.%05c.%4s'"));
    EXPECT_EQ("100", circuit("'%0s'")) << "no width: no padding";
    // The pad starts as a blank in every segment.
    EXPECT_EQ("00100 200", circuit("'%05s' '%4c'"));
}

TEST_F(FormatBuildTest, WidthCutsTheValue) { EXPECT_EQ("et", circuit("'%2N'")); }

TEST_F(FormatBuildTest, WidthOf255FitsOf256StopsTheSegment) {
    EXPECT_EQ(std::string(252, ' ') + "100", circuit("'%255s'"));
    EXPECT_EQ("a", circuit("'a%256sb'"));
    EXPECT_EQ("a", circuit("'a%300Nb'"));
    EXPECT_EQ("x", circuit("'x%255s'")) << "1 + 255 reaches 256";
}

TEST_F(FormatBuildTest, ValueThatWouldReach256StopsTheSegment) {
    sim::setScalarText(ZEL_SCALAR_SYS_NAME, std::string(250, 'n'));
    EXPECT_EQ("abcde" + std::string(250, 'n') + "f", circuit("'abcde%Df'"));
    EXPECT_EQ("abcdef", circuit("'abcdef%Dg'"));
    // Each segment counts from 0.
    EXPECT_EQ("abcdef" + std::string(250, 'n'), circuit("'abcdef''%D'"));
}

TEST_F(FormatBuildTest, KeywordValueOverflowingTheRoomEndsTheSegmentEarly) {
    EXPECT_EQ("ab", circuit("'ab%Nc'", 4));
    EXPECT_EQ("ab", circuit("'ab%8Nc'", 9));
    EXPECT_EQ("ab    eth0/1", circuit("'ab%10N'", 13));
    EXPECT_EQ("", circuit("'ab%10N'", 12)) << "the closing quote needs a byte of room";
}

TEST_F(FormatBuildTest, LiteralOverflowingTheRoomFailsTheWholeBuild) {
    EXPECT_EQ("", circuit("'abcdef'", 5));
    EXPECT_EQ("", circuit("'abcde'", 5)) << "the closing quote needs a byte of room too";
    EXPECT_EQ("abcde", circuit("'abcde'", 6));
    EXPECT_EQ("", circuit("'%N' 'x'", 7)) << "a later segment without room";
}

TEST_F(FormatBuildTest, SegmentsAreJoined) {
    EXPECT_EQ("eth0/1\x2f" "100"s, circuit("'%N' 0x2f '%s'"));
    EXPECT_EQ("ab", circuit("  'a'  'b'  "));
}

TEST_F(FormatBuildTest, UnterminatedSegmentRunsToTheEnd) { EXPECT_EQ("ab100", circuit("'ab%s")); }

TEST_F(FormatBuildTest, NulEndsASegment) { EXPECT_EQ("ab", circuit("'ab\0cd'"s)); }

// ---- hex segments -------------------------------------------------------------------------------

TEST_F(FormatBuildTest, EveryHexKeywordWithItsDefaultWidth) {
    withOnu(0x123);
    sim::g.interfaces[1].phyInfo.sysNo = 0x0102;
    sim::g.interfaces[1].phyInfo.slotNo = 0x0304;
    sim::g.interfaces[1].phyInfo.portNo = 0x0506;
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"%s", "00 64"},
        {"%c", "00 C8"},
        {"%H", "01 02"},
        {"%S", "03 04"},
        {"%p", "05 06"},
        {"%Y", "00 06"},
        {"%m", "01 23"},
        {"%f", "00"},
        {"%r", "00"},
        {"%C", "00 11 22 33 44 55"},
        {"%J", "00 0C 29 AB CD EF"},
        {"%a", "00 AA BB CC DD EE"},
        {"%R", "00 AA BB CC DD EE"},
        {"%Z", "00 AA BB CC DD EE"},
    };
    for (const auto& [item, bytes] : cases) EXPECT_EQ(bytes, hex(circuit("1 " + item)).substr(3)) << item;
    // Letters without a default width take nothing.
    for (const char* item : {"%u", "%N", "%b", "%U", "%n", "%x", "%y"})
        EXPECT_EQ("01", hex(circuit("1 "s + item))) << item;
}

TEST_F(FormatBuildTest, HexWidthsInBits) {
    EXPECT_EQ("64", hex(circuit("%8s")));
    EXPECT_EQ("00 00 64", hex(circuit("%24s")));
    EXPECT_EQ("00 00 00 64", hex(circuit("%32s")));
    EXPECT_EQ("64 00 00", hex(circuit("%8s%16u")));
    EXPECT_EQ("00 64", hex(circuit("%0s"))) << "a width of 0 is none";
    EXPECT_EQ("00 00", hex(circuit("%12f"))) << "(12 + 7) / 8 bytes";
    EXPECT_EQ("00 11 22 33 44 55", hex(circuit("%8C"))) << "addresses ignore the width";
}

TEST_F(FormatBuildTest, HexItemOfMoreThanFourBytesEndsTheSegment) {
    EXPECT_EQ("64", hex(circuit("%8s %40s %8c")));
    EXPECT_EQ("64 78", hex(circuit("%8s %40s %8c'x'"))) << "the next segment goes on";
}

TEST_F(FormatBuildTest, HexItemWithoutCodeIsDropped) {
    EXPECT_EQ("01 02", hex(circuit("1 %: 2")));
    EXPECT_EQ("01", hex(circuit("1 %8")));
}

TEST_F(FormatBuildTest, SystemMacMissingWritesNothing) {
    sim::failWhen("zelScalarGetApi(0,6)", ZEL_ERR_GENERAL);
    EXPECT_EQ("01 02", hex(circuit("1 %a %R %Z 2")));
}

TEST_F(FormatBuildTest, HexNumberLiterals) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"0x1", "01"},
        {"0xff", "FF"},
        {"0x100", "01 00"},
        {"0xFFFF", "FF FF"},
        {"0x10000", "00 01 00 00"},
        {"0xdeadbeef", "DE AD BE EF"},
        {"0x123456789", "23 45 67 89"},   // the low 32 bits
        {"0xfg1", "F1"},                  // other characters are passed over
        {"0x010x02", "01 02"},            // the next "0x" starts a number
        {"0x12%8s", "12 64"},             // a '%' ends the number
        {"0x1 0x2", "01 02"},
        {"1 0x", "01"},                   // no digits, nothing
        {"0x0", "00"},
    };
    for (const auto& [text, bytes] : cases) EXPECT_EQ(bytes, hex(circuit(text))) << text;
}

TEST_F(FormatBuildTest, DecimalNumberLiterals) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"0", "00"},
        {"255", "FF"},
        {"256", "01 00"},
        {"65535", "FF FF"},
        {"65536", "00 01 00 00"},
        {"4294967295", "FF FF FF FF"},
        {"300%8s", "01 2C 64"},
        {"1 2 3", "01 02 03"},
        {"1a", "3B"},           // every character up to a blank counts as a digit: 1 * 10 + ('a' - '0')
        {"!1", "01"},           // a character that starts nothing is passed over
        {"x1", "01"},
    };
    for (const auto& [text, bytes] : cases) EXPECT_EQ(bytes, hex(circuit(text))) << text;
}

TEST_F(FormatBuildTest, HexSegmentThatYieldsNothingFailsTheBuild) {
    EXPECT_EQ("", circuit("%u"));
    EXPECT_EQ("", circuit("0x"));
    EXPECT_EQ("", circuit("'a' %u"));
}

TEST_F(FormatBuildTest, HexRoomAndSegmentBound) {
    EXPECT_EQ("00 64", hex(circuit("%16s %16c", 3)));
    EXPECT_EQ("", circuit("%16s", 1));

    // Directly on a long segment: bytes so far plus the next value must stay
    // below 256.
    tZelPhyInfo phy{};
    std::vector<uint8_t> out(1024, 0xEE);
    std::string seg;
    for (int i = 0; i < 63; i++) seg += "%32s";  // 252 bytes
    std::string s1 = seg + "%16s%8s";            // 255
    EXPECT_EQ(255, pppoeplusBuildHexFormat(entry, &pkt, &phy, s1.data(), uint32_t(s1.size()), out.data(), 1024));
    std::string s2 = s1 + "%8s";
    EXPECT_EQ(255, pppoeplusBuildHexFormat(entry, &pkt, &phy, s2.data(), uint32_t(s2.size()), out.data(), 1024));
    std::string s3 = seg + "%16s%C";
    EXPECT_EQ(254, pppoeplusBuildHexFormat(entry, &pkt, &phy, s3.data(), uint32_t(s3.size()), out.data(), 1024));
    std::string s4 = seg + "0x1ff";
    EXPECT_EQ(254, pppoeplusBuildHexFormat(entry, &pkt, &phy, s4.data(), uint32_t(s4.size()), out.data(), 1024));
    std::string s5 = seg + "%16s 70000";
    EXPECT_EQ(254, pppoeplusBuildHexFormat(entry, &pkt, &phy, s5.data(), uint32_t(s5.size()), out.data(), 1024));
    EXPECT_EQ(0xEE, out[255]);
}

TEST_F(FormatBuildTest, AsciiSegmentBoundDirectly) {
    tZelPhyInfo phy{};
    std::vector<uint8_t> out(2048, 0xEE);
    // Literal text is bounded by the room only.
    std::string lit = "'" + std::string(600, 'l') + "'";
    EXPECT_EQ(600, pppoeplusBuildAsciiFormat(entry, &pkt, &phy, 1, lit.data(), uint32_t(lit.size()), out.data(), 601));
    EXPECT_EQ(-1, pppoeplusBuildAsciiFormat(entry, &pkt, &phy, 1, lit.data(), uint32_t(lit.size()), out.data(), 600));
    // A keyword value may not take the segment to 256.
    std::string kw = "'" + std::string(253, 'l') + "%s'";
    EXPECT_EQ(253, pppoeplusBuildAsciiFormat(entry, &pkt, &phy, 1, kw.data(), uint32_t(kw.size()), out.data(), 2048));
    std::string kw2 = "'" + std::string(252, 'l') + "%s'";
    EXPECT_EQ(255, pppoeplusBuildAsciiFormat(entry, &pkt, &phy, 1, kw2.data(), uint32_t(kw2.size()), out.data(), 2048));
}

// ---- multi-segment results beyond 255 bytes ------------------------------------------------------

TEST_F(FormatBuildTest, SeveralSegmentsMayTogetherExceed255Bytes) {
    sim::setScalarText(ZEL_SCALAR_SYS_NAME, std::string(200, 'n'));
    EXPECT_EQ(400u, circuit("'%D' '%D'").size());
    EXPECT_EQ("", circuit("'%D' '%D'", 300)) << "the second segment's value does not fit: it yields nothing";
}

// ---- the bit copier ---------------------------------------------------------------------------

TEST(FormatCopyDataByBits, CopiesMostSignificantFirst) {
    uint8_t src[2] = {0xA5, 0x3C};
    uint8_t dst[2] = {0x00, 0x00};
    pppoeplusCopyDataByBits(dst, 8, src, 8, 16);
    EXPECT_EQ(0xA5, dst[0]);
    EXPECT_EQ(0x3C, dst[1]);

    // The low nibble of 0xA5 into the high nibble of 0xFF.
    uint8_t d1 = 0xFF;
    pppoeplusCopyDataByBits(&d1, 8, src, 4, 4);
    EXPECT_EQ(0x5F, d1);

    // Across bytes: bits 4..1 of 0x0F and 8..5 of 0xF0, into bit 6 on.
    uint8_t s2[2] = {0x0F, 0xF0};
    uint8_t d2[2] = {0x00, 0x00};
    pppoeplusCopyDataByBits(d2, 6, s2, 4, 8);
    EXPECT_EQ(0x3F, d2[0]);
    EXPECT_EQ(0xC0, d2[1]);

    // Cleared bits are cleared.
    uint8_t z = 0x00;
    uint8_t d3 = 0xFF;
    pppoeplusCopyDataByBits(&d3, 3, &z, 2, 2);
    EXPECT_EQ(0xF9, d3);
}

TEST(FormatCopyDataByBits, RefusesBadArguments) {
    uint8_t src = 0xFF;
    uint8_t dst = 0x00;
    pppoeplusCopyDataByBits(nullptr, 8, &src, 8, 8);
    pppoeplusCopyDataByBits(&dst, 8, nullptr, 8, 8);
    pppoeplusCopyDataByBits(&dst, 9, &src, 8, 8);
    pppoeplusCopyDataByBits(&dst, 8, &src, 9, 8);
    pppoeplusCopyDataByBits(&dst, 0, &src, 8, 8);
    pppoeplusCopyDataByBits(&dst, 8, &src, 0, 8);
    EXPECT_EQ(0x00, dst);
    pppoeplusCopyDataByBits(&dst, 8, &src, 8, 0);
    EXPECT_EQ(0x00, dst);
}

// ---- typed formats: simplify, check, build ---------------------------------------------------------

struct TypedCase {
    std::string typed;
    std::string stored;   // after simplification ("" when it fails)
    int32_t check;        // what the checker says of the stored form
    std::string built;    // the bytes built when the check passes
};

class FormatPipelineTest : public FormatBuildTest {};

TEST_F(FormatPipelineTest, SimplifyThenCheckThenBuild) {
    placePort(ZEL_OND_ETH, 4, 1);
    const std::vector<TypedCase> cases = {
        {"'%portname:%svlan.%cvlan'", "'%N:%s.%c'", 0, "eth0/1:100.200"},
        {"'%portmac'", "'%C'", 0, "00:11:22:33:44:55"},
        {"'%10portname'", "'%10N'", 0, "    eth0/1"},
        {"'%010svlan|%3portname'", "'%010s|%3N'", 0, "0000000100|eth"},
        {"'0 0/0/0:0.0 %accessnode/%rack/%frame/%slot/0/%port/%onuid %accesstype'",
         "'0 0/0/0:0.0 %a/%r/%f/%S/0/%p/%m %b'", 0, "0 0/0/0:0.0 00:AA:BB:CC:DD:EE/0/0/4/0/1/0 0"},
        {"'0/0/0:0.0 0/0/0/0/0/0/0 %onuslot/%onusubslot/%onuport 0'", "'0/0/0:0.0 0/0/0/0/0/0/0 %T/%M/%P 0'", 0,
         "0/0/0:0.0 0/0/0/0/0/0/0 // 0"},
        {"'%sys/%sysname'", "'%H/%D'", 0, "3/lab-olt"},
        {"'%onuid.%onuauthid'", "'%m.%o'", 0, "0."},
        {"'%clientmac %devicename %porttype'", "'%J %d %Y'", 0, "00:0C:29:AB:CD:EF dev-50 ethernet"},
        {"'%oltmac-%oltonlymac'", "'%Z-%R'", 0, "00000000000000AABBCCDDEE-00:AA:BB:CC:DD:EE"},
        {"0x01 %16svlan %cvlan 0x0a0b 300", "0x01 %16s %c 0x0a0b 300", 0,
         "\x01\x00\x64\x00\xC8\x0A\x0B\x01\x2C"s},
        {"%8frame  %16port", "%8f %16p", 0, "\x00\x00\x01"s},
        {"'%portname' 0x2f %8slot", "'%N' 0x2f %8S", 0, "eth0/1\x2f\x04"s},
        {"%32sys %accessnode", "%32H %a", 0, "\x00\x00\x00\x03\x00\xAA\xBB\xCC\xDD\xEE"s},
        // Refused on the way: nothing to build.
        {"'%portname%svlan'", "'%N%s'", -1, ""},
        {"%12svlan", "%12s", -1, ""},
        {"%8portname", "", -1, ""},
        {"'%foo'", "", -1, ""},
    };
    for (const TypedCase& c : cases) {
        SCOPED_TRACE(c.typed);
        tPppoeplusFormat record{};
        pppoeplusKeywordsInit(&record);
        std::string copy = c.typed;
        tPppoeplusStrValue value{copy.data(), static_cast<uint32_t>(copy.size())};
        const int32_t simplified = pppoeplusSimplifyFormat(record.keywords, &value, &record);
        if (c.stored.empty()) {
            EXPECT_EQ(-1, simplified);
            continue;
        }
        ASSERT_EQ(0, simplified);
        EXPECT_EQ(c.stored, std::string(record.format, record.formatLen));
        EXPECT_EQ(c.check, pppoeplusFormatCheck(record.format, record.formatLen));
        if (c.check != 0) continue;
        entry->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
        entry->circuitIdFormat = record;
        EXPECT_EQ(hex(c.built), hex(build()));
        EXPECT_EQ(c.built, build());
    }
}

TEST_F(FormatPipelineTest, DefaultFormatsPassTheCheckAndBuild) {
    const std::vector<std::pair<const char*, std::string>> defaults = {
        {PPPOEPLUS_SWITCH_FORMAT_COMMON_CIRCUITID, "eth0/1:100.200"},
        {PPPOEPLUS_SWITCH_FORMAT_COMMON_REMOTEID, "00:11:22:33:44:55"},
        {PPPOEPLUS_OLTPORT_FORMAT_COMMON_LINEID, "0 0/0/0:0.0 00:AA:BB:CC:DD:EE/0/0/4/0/1/0 0"},
        {PPPOEPLUS_ONUPORT_FORMAT_COMMON_LINEID, "0/0/0:0.0 0/0/0/0/0/0/0 // 0"},
    };
    for (const auto& [stored, built] : defaults) {
        SCOPED_TRACE(stored);
        EXPECT_EQ(0, pppoeplusFormatCheck(stored, static_cast<uint32_t>(std::strlen(stored))));
        entry->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
        setFormat(&entry->circuitIdFormat, stored);
        EXPECT_EQ(built, build());
    }
}

}  // namespace
