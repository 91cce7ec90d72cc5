// Format simplification and recovery: typed texts to stored texts, segment by
// segment, with their messages; recovery of the typed text; bounds of the
// 256-byte areas.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "agent/global.h"
#include "format/default_formats.h"
#include "format/format_check.h"
#include "format/format_simplify.h"
#include "support/fixture.h"

using namespace std::string_literals;

namespace {

enum class Lv { Event, Error };

struct Msg {
    Lv level;
    std::string text;  // without "\r\n"
};

Msg ev(const std::string& text) { return Msg{Lv::Event, text}; }
Msg er(const std::string& text) { return Msg{Lv::Error, text}; }

const Msg kNoMatch = er("Keyword does not match anyone!");
const Msg kAsciiFail = er("Failed to simplify the ascii format!");
const Msg kHexFail = er("Failed to simplify the hex format!");
const Msg kFormatFail = er("Failed to simplify the format!");

Msg asciiOk(const std::string& out) {
    return ev("Simplified ascii format to " + out + ", length " + std::to_string(out.size()) + ".");
}
Msg hexOk(const std::string& out) {
    return ev("Simplified hex format to " + out + ", length " + std::to_string(out.size()) + ".");
}
Msg formatOk(const std::string& out) {
    return ev("Simplified format to " + out + ", length " + std::to_string(out.size()) + ".");
}

// Compares the captured logs with `expected`: event messages go to module
// 0x45D0005 at logLevel[5], error messages to 0x45D0004 at logLevel[4].
void expectLogs(const std::vector<Msg>& expected, const std::string& input) {
    SCOPED_TRACE("input: \"" + input + "\"");
    ASSERT_EQ(expected.size(), sim::g.logs.size()) << ::testing::PrintToString(sim::logTexts());
    for (size_t i = 0; i < expected.size(); i++) {
        const sim::LogRecord& log = sim::g.logs[i];
        uint32_t sub = expected[i].level == Lv::Event ? PPPOEPLUS_SUB_EVENT : PPPOEPLUS_SUB_ERROR;
        EXPECT_FALSE(log.oper);
        EXPECT_EQ(PPPOEPLUS_MODULE_BASE + sub, log.module) << expected[i].text;
        EXPECT_EQ(gPppoeplus.logLevel[sub], log.level) << expected[i].text;
        EXPECT_EQ(0u, log.part);
        EXPECT_EQ(expected[i].text + "\r\n", log.text);
    }
}

std::vector<Msg> only(const std::vector<Msg>& msgs, Lv level) {
    std::vector<Msg> out;
    for (const Msg& m : msgs)
        if (m.level == level) out.push_back(m);
    return out;
}

std::string repeat(const std::string& s, int n) {
    std::string out;
    for (int i = 0; i < n; i++) out += s;
    return out;
}

class FormatSimplifyTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        pppoeplusTestStart();
        pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT | PPPOEPLUS_DEBUG_ERROR);
        sim::g.logs.clear();
        pppoeplusKeywordsInit(&record_);
    }

    // Simplifies `input` into record_.
    int32_t simplify(const std::string& input) {
        std::string copy = input;
        tPppoeplusStrValue value{copy.data(), static_cast<uint32_t>(copy.size())};
        return pppoeplusSimplifyFormat(record_.keywords, &value, &record_);
    }

    std::string stored() const { return std::string(record_.format, record_.formatLen); }
    std::string typed() const { return std::string(record_.origFormat, record_.origFormatLen); }

    tPppoeplusFormat record_{};
};

struct SimplifyCase {
    std::string input;
    int32_t result;
    std::string output;         // the stored text on success
    std::vector<Msg> messages;  // in order
    int32_t check;              // what the checker then says of `output`
};

// Whole texts through pppoeplusSimplifyFormat.
const std::vector<SimplifyCase>& simplifyCases() {
    static const std::vector<SimplifyCase> cases = {
        // The default formats, typed, come out in their stored forms.
        {"'%portname:%svlan.%cvlan'", 0, "'%N:%s.%c'",
         {asciiOk("'%N:%s.%c'"), formatOk("'%N:%s.%c'")}, 0},
        {"'%portmac'", 0, "'%C'", {asciiOk("'%C'"), formatOk("'%C'")}, 0},
        {"'0 0/0/0:0.0 %accessnode/%rack/%frame/%slot/0/%port/%onuid %accesstype'", 0,
         "'0 0/0/0:0.0 %a/%r/%f/%S/0/%p/%m %b'",
         {asciiOk("'0 0/0/0:0.0 %a/%r/%f/%S/0/%p/%m %b'"), formatOk("'0 0/0/0:0.0 %a/%r/%f/%S/0/%p/%m %b'")}, 0},
        {"'0/0/0:0.0 0/0/0/0/0/0/0 %onuslot/%onusubslot/%onuport 0'", 0, "'0/0/0:0.0 0/0/0/0/0/0/0 %T/%M/%P 0'",
         {asciiOk("'0/0/0:0.0 0/0/0/0/0/0/0 %T/%M/%P 0'"), formatOk("'0/0/0:0.0 0/0/0/0/0/0/0 %T/%M/%P 0'")}, 0},
        // Whole-word matching.
        {"'%sys/%sysname'", 0, "'%H/%D'", {asciiOk("'%H/%D'"), formatOk("'%H/%D'")}, 0},
        {"'%onuid.%onuauthid'", 0, "'%m.%o'", {asciiOk("'%m.%o'"), formatOk("'%m.%o'")}, 0},
        {"'%svlan1'", -1, "", {kNoMatch, kAsciiFail, kFormatFail}, 0},
        {"'%portnam'", -1, "", {kNoMatch, kAsciiFail, kFormatFail}, 0},
        {"'%foo'", -1, "", {kNoMatch, kAsciiFail, kFormatFail}, 0},
        {"'%12'", -1, "", {kNoMatch, kAsciiFail, kFormatFail}, 0},  // digits only match nothing
        // Widths stay, a leading "0" included.
        {"'%10portname'", 0, "'%10N'", {asciiOk("'%10N'"), formatOk("'%10N'")}, 0},
        {"'%010svlan|%3portname'", 0, "'%010s|%3N'", {asciiOk("'%010s|%3N'"), formatOk("'%010s|%3N'")}, 0},
        {"'%256portname'", 0, "'%256N'", {asciiOk("'%256N'"), formatOk("'%256N'")}, -1},
        // Literal text, quotes and backslashes are copied.
        {"'abc'", 0, "'abc'", {asciiOk("'abc'"), formatOk("'abc'")}, 0},
        {"'a\\'b'", 0, "'a\\'b'", {asciiOk("'a\\'b'"), formatOk("'a\\'b'")}, 0},
        {"'a\0b'"s, 0, "'a\0b'"s,  // the logged text stops at the NUL
         {ev("Simplified ascii format to 'a, length 5."), ev("Simplified format to 'a, length 5.")}, 0},
        // Keywords that touch simplify, and are refused by the checker.
        {"'%portname%svlan'", 0, "'%N%s'", {asciiOk("'%N%s'"), formatOk("'%N%s'")}, -1},
        {"'%portnamex'", -1, "", {kNoMatch, kAsciiFail, kFormatFail}, 0},
        // A '%' without a keyword is written with the character after it, and
        // that character is copied again.
        {"'%:'", 0, "'%::'", {asciiOk("'%::'"), formatOk("'%::'")}, -1},
        {"'abc%'", 0, "'abc%''", {asciiOk("'abc%''"), formatOk("'abc%''")}, -1},
        {"'%%portname'", 0, "'%%%N'", {asciiOk("'%%%N'"), formatOk("'%%%N'")}, -1},
        // Quotes.
        {"''", -1, "", {kFormatFail}, 0},
        {"'", -1, "", {kFormatFail}, 0},
        {"'abc", -1, "", {kFormatFail}, 0},
        {"'abc\\'", -1, "", {kFormatFail}, 0},
        {"'''abc'", 0, "'abc'", {asciiOk("'abc'"), formatOk("'abc'")}, 0},
        // Hex segments.
        {"%16svlan 0x01", 0, "%16s 0x01", {hexOk("%16s 0x01"), formatOk("%16s 0x01")}, 0},
        {"%8frame  %16port", 0, "%8f %16p", {hexOk("%8f %16p"), formatOk("%8f %16p")}, 0},
        {"%8portname", -1, "", {kHexFail, kFormatFail}, 0},
        {"%8sysname", -1, "", {kHexFail, kFormatFail}, 0},
        {"%8foo", -1, "", {kNoMatch, kHexFail, kFormatFail}, 0},
        {"0x01 %16svlan %cvlan 0x0a0b 300", 0, "0x01 %16s %c 0x0a0b 300",
         {hexOk("0x01 %16s %c 0x0a0b 300"), formatOk("0x01 %16s %c 0x0a0b 300")}, 0},
        {"0x12%8svlan", 0, "0x12%8s", {hexOk("0x12%8s"), formatOk("0x12%8s")}, 0},
        {"%svlan 0x", 0, "%s 0x", {hexOk("%s 0x"), formatOk("%s 0x")}, 0},
        {"0xAbC", 0, "0xAbC", {hexOk("0xAbC"), formatOk("0xAbC")}, 0},
        {"10x2", 0, "10x2", {hexOk("10x2"), formatOk("10x2")}, -1},
        {"4294967296", 0, "4294967296", {hexOk("4294967296"), formatOk("4294967296")}, -1},
        {"%12svlan", 0, "%12s", {hexOk("%12s"), formatOk("%12s")}, -1},
        {"0xfg", -1, "", {kHexFail, kFormatFail}, 0},
        {"0x0x", -1, "", {kHexFail, kFormatFail}, 0},
        {"%", -1, "", {kHexFail, kFormatFail}, 0},
        {"% 8", -1, "", {kHexFail, kFormatFail}, 0},
        {"%%8svlan", -1, "", {kHexFail, kFormatFail}, 0},
        {"x1", -1, "", {kHexFail, kFormatFail}, 0},
        {"1a", -1, "", {kHexFail, kFormatFail}, 0},
        {"8:", -1, "", {kHexFail, kFormatFail}, 0},
        {"1\0 2"s, -1, "", {hexOk("1"), kHexFail, kFormatFail}, 0},  // NUL ends the segment, then fails
        {"   1  2   ", 0, " 1 2 ", {hexOk(" 1 2 "), formatOk(" 1 2 ")}, 0},
        // Mixed.
        {"'%portname'   '%portmac'", 0, "'%N' '%C'",
         {asciiOk("'%N'"), hexOk(" "), asciiOk("'%C'"), formatOk("'%N' '%C'")}, 0},
        {"'%portname' 0x01 %16svlan '%portmac'", 0, "'%N' 0x01 %16s '%C'",
         {asciiOk("'%N'"), hexOk(" 0x01 %16s "), asciiOk("'%C'"), formatOk("'%N' 0x01 %16s '%C'")}, 0},
        {"%8svlan'%portname'", 0, "%8s'%N'", {hexOk("%8s"), asciiOk("'%N'"), formatOk("%8s'%N'")}, 0},
        {"'%portname' %8portname", -1, "", {asciiOk("'%N'"), kHexFail, kFormatFail}, 0},
        {"'%portname' '%bar'", -1, "", {asciiOk("'%N'"), hexOk(" "), kNoMatch, kAsciiFail, kFormatFail}, 0},
        // An empty text is simplified to an empty text.
        {"", 0, "", {formatOk("")}, 0},
    };
    return cases;
}

}  // namespace

TEST_F(FormatSimplifyTest, TableOfTexts) {
    for (const SimplifyCase& c : simplifyCases()) {
        SCOPED_TRACE("input: \"" + c.input + "\"");
        record_ = tPppoeplusFormat{};
        pppoeplusKeywordsInit(&record_);
        sim::g.logs.clear();
        ASSERT_EQ(c.result, simplify(c.input));
        expectLogs(c.messages, c.input);
        if (c.result != 0) {
            EXPECT_EQ(0u, record_.formatLen);
            EXPECT_EQ(0u, record_.origFormatLen);
            continue;
        }
        EXPECT_EQ(c.output, stored());
        EXPECT_EQ(c.input, typed());
        // Simplify, then check: the stored text is what the checker judges.
        sim::g.logs.clear();
        EXPECT_EQ(c.check, pppoeplusFormatCheck(record_.format, record_.formatLen));
    }
}

TEST_F(FormatSimplifyTest, EachSwitchBitGatesItsOwnLevel) {
    for (uint32_t bits : {0u, PPPOEPLUS_DEBUG_EVENT, PPPOEPLUS_DEBUG_ERROR,
                          PPPOEPLUS_DEBUG_STARTUP | PPPOEPLUS_DEBUG_PKT_DUMP}) {
        pppoeplusDebugSwitchSet(bits);
        for (const SimplifyCase& c : simplifyCases()) {
            SCOPED_TRACE("switch " + std::to_string(bits));
            sim::g.logs.clear();
            EXPECT_EQ(c.result, simplify(c.input));
            std::vector<Msg> expected;
            if (bits & PPPOEPLUS_DEBUG_EVENT) expected = only(c.messages, Lv::Event);
            if (bits & PPPOEPLUS_DEBUG_ERROR) expected = only(c.messages, Lv::Error);
            expectLogs(expected, c.input);
        }
    }
}

TEST_F(FormatSimplifyTest, DefaultFormatsSimplifyToTheirStoredFormsAndRecoverTheirTypedForms) {
    struct Pair {
        const char* storedForm;
        const char* typedForm;
    };
    const Pair defaults[] = {
        {PPPOEPLUS_SWITCH_FORMAT_COMMON_CIRCUITID, PPPOEPLUS_SWITCH_FORMAT_ORIG_COMMON_CIRCUITID},
        {PPPOEPLUS_SWITCH_FORMAT_COMMON_REMOTEID, PPPOEPLUS_SWITCH_FORMAT_ORIG_COMMON_REMOTEID},
        {PPPOEPLUS_OLTPORT_FORMAT_COMMON_LINEID, PPPOEPLUS_OLTPORT_FORMAT_ORIG_COMMON_LINEID},
        {PPPOEPLUS_ONUPORT_FORMAT_COMMON_LINEID, PPPOEPLUS_ONUPORT_FORMAT_ORIG_COMMON_LINEID},
    };
    for (const Pair& p : defaults) {
        SCOPED_TRACE(p.typedForm);
        ASSERT_EQ(0, simplify(p.typedForm));
        EXPECT_EQ(p.storedForm, stored());
        EXPECT_EQ(p.typedForm, typed());
        EXPECT_EQ(0, pppoeplusFormatCheck(record_.format, record_.formatLen));

        // The same record as start-up installs it recovers the typed form.
        tPppoeplusFormat installed{};
        pppoeplusFormatInstall(&installed, p.storedForm, p.typedForm);
        char buffer[PPPOEPLUS_FORMAT_LEN];
        tPppoeplusStrValue out{buffer, 0};
        sim::g.logs.clear();
        ASSERT_EQ(0, pppoeplusRecoverFormat(&installed, &out));
        std::string recovered(buffer, out.len);
        EXPECT_EQ(p.typedForm, recovered);
        expectLogs({ev("Recover format to " + recovered + ", length " + std::to_string(out.len) + ".")},
                   p.typedForm);
    }
    // The common Circuit-ID: 10 bytes stored, 25 typed.
    ASSERT_EQ(0, simplify("'%portname:%svlan.%cvlan'"));
    EXPECT_EQ(10u, record_.formatLen);
    EXPECT_EQ(25u, record_.origFormatLen);
}

TEST_F(FormatSimplifyTest, EveryKeywordIsSimplifiedAndOnlyNumericOnesInHex) {
    const std::string textCodes = "NdDUbGnh";
    for (const tPppoeplusKeywordDef& k : gPppoeplusKeywordTable) {
        SCOPED_TRACE(k.keyword);
        const std::string code(1, k.keywordChar);
        ASSERT_EQ(0, simplify("'%" + std::string(k.keyword) + "'"));
        EXPECT_EQ("'%" + code + "'", stored());
        ASSERT_EQ(0, simplify("'%12" + std::string(k.keyword) + "'"));
        EXPECT_EQ("'%12" + code + "'", stored());

        const bool refused = textCodes.find(k.keywordChar) != std::string::npos;
        sim::g.logs.clear();
        EXPECT_EQ(refused ? -1 : 0, simplify("%8" + std::string(k.keyword)));
        if (refused) {
            expectLogs({kHexFail, kFormatFail}, k.keyword);
        } else {
            EXPECT_EQ("%8" + code, stored());
        }
    }
}

TEST_F(FormatSimplifyTest, FailureLeavesTheRecordAsItWas) {
    pppoeplusCircuitIdFormatInstallDefault(&record_);
    tPppoeplusFormat before;
    std::memcpy(&before, &record_, sizeof(before));
    for (const std::string& bad : {"'%foo'"s, "''"s, "%8portname"s, "'abc"s, std::string(256, 'a')}) {
        EXPECT_EQ(-1, simplify(bad));
        EXPECT_EQ(0, std::memcmp(&before, &record_, sizeof(record_))) << bad;
    }
}

TEST_F(FormatSimplifyTest, SuccessZeroFillsBothTextsAndKeepsTheKeywords) {
    std::memset(record_.format, 'Z', sizeof(record_.format));
    std::memset(record_.origFormat, 'Z', sizeof(record_.origFormat));
    record_.formatLen = 200;
    record_.origFormatLen = 200;
    tPppoeplusKeyword keywords[PPPOEPLUS_KEYWORD_NUM];
    std::memcpy(keywords, record_.keywords, sizeof(keywords));

    ASSERT_EQ(0, simplify("'%portmac'"));
    EXPECT_EQ("'%C'", stored());
    EXPECT_EQ("'%portmac'", typed());
    for (uint32_t i = record_.formatLen; i < PPPOEPLUS_FORMAT_LEN; i++) EXPECT_EQ('\0', record_.format[i]) << i;
    for (uint32_t i = record_.origFormatLen; i < PPPOEPLUS_FORMAT_LEN; i++)
        EXPECT_EQ('\0', record_.origFormat[i]) << i;
    EXPECT_EQ(0, std::memcmp(keywords, record_.keywords, sizeof(keywords)));
}

TEST_F(FormatSimplifyTest, InputInTheRecordItself) {
    pppoeplusRemoteIdFormatInstallDefault(&record_);
    tPppoeplusStrValue value{record_.origFormat, record_.origFormatLen};
    ASSERT_EQ(0, pppoeplusSimplifyFormat(record_.keywords, &value, &record_));
    EXPECT_EQ("'%C'", stored());
    EXPECT_EQ("'%portmac'", typed());
}

TEST_F(FormatSimplifyTest, TheKeywordTableGivenIsTheOneUsed) {
    tPppoeplusFormat other{};
    pppoeplusKeywordsInit(&other);
    other.keywords[23].keywordChar = 'Q';  // portname
    std::string text = "'%portname'";
    tPppoeplusStrValue value{text.data(), static_cast<uint32_t>(text.size())};
    ASSERT_EQ(0, pppoeplusSimplifyFormat(other.keywords, &value, &record_));
    EXPECT_EQ("'%Q'", stored());
}

TEST_F(FormatSimplifyTest, BadArgumentsFail) {
    std::string text = "'%portname'";
    tPppoeplusStrValue value{text.data(), static_cast<uint32_t>(text.size())};
    tPppoeplusStrValue noText{nullptr, 3};
    EXPECT_EQ(-1, pppoeplusSimplifyFormat(nullptr, &value, &record_));
    EXPECT_EQ(-1, pppoeplusSimplifyFormat(record_.keywords, nullptr, &record_));
    EXPECT_EQ(-1, pppoeplusSimplifyFormat(record_.keywords, &noText, &record_));
    EXPECT_EQ(-1, pppoeplusSimplifyFormat(record_.keywords, &value, nullptr));
    expectLogs({kFormatFail, kFormatFail, kFormatFail, kFormatFail}, text);

    char out[PPPOEPLUS_FORMAT_LEN];
    sim::g.logs.clear();
    EXPECT_EQ(-1, pppoeplusSimplifyAsciiFormat(nullptr, "'a'", 3, out));
    EXPECT_EQ(-1, pppoeplusSimplifyAsciiFormat(record_.keywords, nullptr, 3, out));
    EXPECT_EQ(-1, pppoeplusSimplifyAsciiFormat(record_.keywords, "'a'", 3, nullptr));
    EXPECT_EQ(-1, pppoeplusSimplifyHexFormat(nullptr, "1", 1, out));
    EXPECT_EQ(-1, pppoeplusSimplifyHexFormat(record_.keywords, nullptr, 1, out));
    EXPECT_EQ(-1, pppoeplusSimplifyHexFormat(record_.keywords, "1", 1, nullptr));
    expectLogs({kAsciiFail, kAsciiFail, kAsciiFail, kHexFail, kHexFail, kHexFail}, "null");
}

// ---- lengths and the 256-byte area --------------------------------------------------------

TEST_F(FormatSimplifyTest, TypedTextMustBeBelow256) {
    const std::string longest = "'" + std::string(253, 'a') + "'";
    ASSERT_EQ(255u, longest.size());
    EXPECT_EQ(0, simplify(longest));
    EXPECT_EQ(longest, stored());
    EXPECT_EQ(255u, record_.origFormatLen);

    sim::g.logs.clear();
    EXPECT_EQ(-1, simplify("'" + std::string(254, 'a') + "'"));
    expectLogs({kFormatFail}, "256 bytes");
}

TEST_F(FormatSimplifyTest, StoredTextMustStayBelow256) {
    // Each "%:" grows by one byte. 2 + 3 * 10 + 223 = 255 bytes fit ...
    const std::string fits = "'" + repeat("%:", 10) + std::string(223, 'a') + "'";
    ASSERT_EQ(245u, fits.size());
    ASSERT_EQ(0, simplify(fits));
    EXPECT_EQ(255u, record_.formatLen);

    // ... 256 bytes at the end of the input do not ...
    const std::string full = "'" + repeat("%:", 10) + std::string(224, 'a') + "'";
    const std::string fullOut = "'" + repeat("%::", 10) + std::string(224, 'a') + "'";
    sim::g.logs.clear();
    EXPECT_EQ(-1, simplify(full));
    expectLogs({asciiOk(fullOut), kFormatFail}, full);

    // ... nor 256 bytes with input left over ...
    sim::g.logs.clear();
    EXPECT_EQ(-1, simplify(full + " 1"));
    expectLogs({asciiOk(fullOut), kFormatFail}, full + " 1");

    // ... and a segment that outgrows the room left fails by itself.
    const std::string grows = "'" + repeat("%:", 126) + "a'";
    ASSERT_EQ(255u, grows.size());
    sim::g.logs.clear();
    EXPECT_EQ(-1, simplify(grows));
    expectLogs({kAsciiFail, kFormatFail}, grows);

    // 182 bytes from 122, then a hex segment of 81 bytes in the 74 left.
    const std::string second = "'" + repeat("%:", 60) + "' " + std::string(80, '1');
    ASSERT_EQ(203u, second.size());
    sim::g.logs.clear();
    EXPECT_EQ(-1, simplify(second));
    expectLogs({asciiOk("'" + repeat("%::", 60) + "'"), kHexFail, kFormatFail}, second);
}

TEST_F(FormatSimplifyTest, SegmentsWriteOnlyInsideTheirRoom) {
    struct RoomCase {
        bool ascii;
        std::string segment;
        std::string output;
    };
    const std::vector<RoomCase> cases = {
        {true, "'%portname:%svlan.%cvlan'", "'%N:%s.%c'"},
        {true, "'%10portname'", "'%10N'"},
        {true, "'%:'", "'%::'"},
        {true, "'abc%'", "'abc%''"},
        {false, "%16svlan  0x0a0b 300", "%16s 0x0a0b 300"},
        {false, "0x12%8svlan", "0x12%8s"},
        {false, "  0xAbC", " 0xAbC"},
    };
    for (const RoomCase& c : cases) {
        SCOPED_TRACE(c.segment);
        const uint32_t len = static_cast<uint32_t>(c.segment.size());
        for (uint32_t room = 0; room <= c.output.size() + 1; room++) {
            // A heap area of exactly `room` bytes: a write past it is caught.
            std::unique_ptr<char[]> out(new char[room]);
            int32_t n = c.ascii ? pppoeplusSimplifyAsciiFormat(record_.keywords, c.segment.data(), len, out.get(), room)
                                : pppoeplusSimplifyHexFormat(record_.keywords, c.segment.data(), len, out.get(), room);
            if (room < c.output.size()) {
                EXPECT_EQ(-1, n) << room;
            } else {
                ASSERT_EQ(static_cast<int32_t>(c.output.size()), n) << room;
                EXPECT_EQ(c.output, std::string(out.get(), static_cast<size_t>(n)));
            }
        }
    }
}

TEST_F(FormatSimplifyTest, SegmentsNeverWriteMoreThan256) {
    // A room above 256 is still one format's text area.
    std::unique_ptr<char[]> out(new char[PPPOEPLUS_FORMAT_LEN]);
    const std::string ascii = "'" + repeat("%:", 200) + "'";
    sim::g.logs.clear();
    EXPECT_EQ(-1, pppoeplusSimplifyAsciiFormat(record_.keywords, ascii.data(), static_cast<uint32_t>(ascii.size()),
                                               out.get(), 100000));
    expectLogs({kAsciiFail}, ascii);

    const std::string hex = repeat("1", 300);
    sim::g.logs.clear();
    EXPECT_EQ(-1, pppoeplusSimplifyHexFormat(record_.keywords, hex.data(), static_cast<uint32_t>(hex.size()),
                                             out.get(), 100000));
    expectLogs({kHexFail}, hex);

    const std::string exact = std::string(256, '7');
    EXPECT_EQ(256, pppoeplusSimplifyHexFormat(record_.keywords, exact.data(), 256, out.get(), 100000));
}

TEST_F(FormatSimplifyTest, SegmentEdges) {
    char out[PPPOEPLUS_FORMAT_LEN];
    // A '%' ending a segment that has no closing quote is written alone.
    EXPECT_EQ(2, pppoeplusSimplifyAsciiFormat(record_.keywords, "'%", 2, out));
    EXPECT_EQ("'%", std::string(out, 2));
    // A keyword ending such a segment is closed by the end.
    EXPECT_EQ(3, pppoeplusSimplifyAsciiFormat(record_.keywords, "'%svlan", 7, out));
    EXPECT_EQ("'%s", std::string(out, 3));
    // Only `length` bytes are read.
    EXPECT_EQ(3, pppoeplusSimplifyHexFormat(record_.keywords, "0x1:", 3, out));
    EXPECT_EQ("0x1", std::string(out, 3));
    EXPECT_EQ(0, pppoeplusSimplifyHexFormat(record_.keywords, "", 0, out));
    // The end of the segment closes an open hex number and an open keyword.
    EXPECT_EQ(2, pppoeplusSimplifyHexFormat(record_.keywords, "0x", 2, out));
    EXPECT_EQ(3, pppoeplusSimplifyHexFormat(record_.keywords, "%8svlan", 7, out));
    EXPECT_EQ("%8s", std::string(out, 3));
}

// ---- recovery ------------------------------------------------------------------------------------

TEST_F(FormatSimplifyTest, RecoverCopiesTheTypedText) {
    ASSERT_EQ(0, simplify("'%portname:%svlan.%cvlan'"));
    char buffer[PPPOEPLUS_FORMAT_LEN];
    std::memset(buffer, 'Z', sizeof(buffer));
    tPppoeplusStrValue out{buffer, 7};
    sim::g.logs.clear();
    ASSERT_EQ(0, pppoeplusRecoverFormat(&record_, &out));
    EXPECT_EQ(25u, out.len);
    EXPECT_EQ("'%portname:%svlan.%cvlan'", std::string(buffer, out.len));
    EXPECT_EQ('Z', buffer[25]);  // nothing written beyond the text
    expectLogs({ev("Recover format to '%portname:%svlan.%cvlan', length 25.")}, "recover");

    // Recovery is a copy: a hand-made record gives back its own typed text.
    tPppoeplusFormat handMade{};
    pppoeplusFormatInstall(&handMade, "'%N'", "'%portname as typed'");
    ASSERT_EQ(0, pppoeplusRecoverFormat(&handMade, &out));
    EXPECT_EQ("'%portname as typed'", std::string(buffer, out.len));
}

TEST_F(FormatSimplifyTest, RecoverFailures) {
    char buffer[PPPOEPLUS_FORMAT_LEN];
    tPppoeplusStrValue out{buffer, 99};

    // No record, or no typed text: refused without a message.
    EXPECT_EQ(-1, pppoeplusRecoverFormat(nullptr, &out));
    tPppoeplusFormat empty{};
    EXPECT_EQ(-1, pppoeplusRecoverFormat(&empty, &out));
    EXPECT_EQ(99u, out.len);
    expectLogs({}, "no text");

    // The copy cannot be made.
    pppoeplusRemoteIdFormatInstallDefault(&record_);
    tPppoeplusStrValue noBuffer{nullptr, 0};
    EXPECT_EQ(-1, pppoeplusRecoverFormat(&record_, nullptr));
    EXPECT_EQ(-1, pppoeplusRecoverFormat(&record_, &noBuffer));
    tPppoeplusFormat corrupt = record_;
    corrupt.origFormatLen = PPPOEPLUS_FORMAT_LEN;
    EXPECT_EQ(-1, pppoeplusRecoverFormat(&corrupt, &out));
    corrupt.origFormatLen = 0xFFFF;
    EXPECT_EQ(-1, pppoeplusRecoverFormat(&corrupt, &out));
    EXPECT_EQ(99u, out.len);
    const Msg failed = er("Failed to recover the format!");
    expectLogs({failed, failed, failed, failed}, "no copy");

    // Both messages are gated by their switch bits.
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_ERROR);
    sim::g.logs.clear();
    EXPECT_EQ(0, pppoeplusRecoverFormat(&record_, &out));
    EXPECT_EQ(-1, pppoeplusRecoverFormat(&record_, nullptr));
    expectLogs({failed}, "error bit");
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT);
    sim::g.logs.clear();
    EXPECT_EQ(0, pppoeplusRecoverFormat(&record_, &out));
    EXPECT_EQ(-1, pppoeplusRecoverFormat(&record_, nullptr));
    expectLogs({ev("Recover format to '%portmac', length 10.")}, "event bit");
}

// ---- bounds ----------------------------------------------------------------------------------------

namespace {

std::unique_ptr<char[]> fuzzText(std::mt19937& rng, uint32_t length) {
    static const std::string alphabet =
        "''%%%%%0000xx12345689 \\:.svlanportnamecvlansysframeNCpf"s + '\0';
    std::unique_ptr<char[]> text(new char[length]);
    for (uint32_t i = 0; i < length; i++) {
        if (rng() % 8 == 0)
            text[i] = static_cast<char>(rng() & 0xFF);
        else
            text[i] = alphabet[rng() % alphabet.size()];
    }
    return text;
}

}  // namespace

TEST_F(FormatSimplifyTest, FuzzStaysInsideItsAreas) {
    std::mt19937 rng(5150u);
    for (int round = 0; round < 3000; round++) {
        const uint32_t length = rng() % 301;
        std::unique_ptr<char[]> text = fuzzText(rng, length);

        // Segments into heap areas of a random room up to 256.
        const uint32_t room = rng() % (PPPOEPLUS_FORMAT_LEN + 1);
        std::unique_ptr<char[]> out(new char[room]);
        int32_t n = pppoeplusSimplifyAsciiFormat(record_.keywords, text.get(), length, out.get(), room);
        EXPECT_LE(n, static_cast<int32_t>(room));
        n = pppoeplusSimplifyHexFormat(record_.keywords, text.get(), length, out.get(), room);
        EXPECT_LE(n, static_cast<int32_t>(room));

        // Whole texts into a record, then checked.
        tPppoeplusStrValue value{text.get(), length};
        int32_t r = pppoeplusSimplifyFormat(record_.keywords, &value, &record_);
        if (length >= PPPOEPLUS_FORMAT_LEN) {
            EXPECT_EQ(-1, r);
        }
        if (r == 0) {
            EXPECT_LT(record_.formatLen, PPPOEPLUS_FORMAT_LEN);
            EXPECT_EQ(length, record_.origFormatLen);
            std::unique_ptr<char[]> storedText(new char[record_.formatLen]);
            std::memcpy(storedText.get(), record_.format, record_.formatLen);
            pppoeplusFormatCheck(storedText.get(), record_.formatLen);
        }
        sim::g.logs.clear();
    }
}

TEST_F(FormatSimplifyTest, AdversarialTextsStayInsideTheirAreas) {
    const std::vector<std::string> texts = {
        "'" + std::string(299, '%'),
        "'" + repeat("%:", 149) + "'",
        "'" + repeat("%%", 149) + "'",
        "'%" + std::string(298, '9') + "'",
        "'%" + std::string(298, 'a') + "'",
        "'%" + std::string(290, '1') + "svlan'",
        std::string(300, '1'),
        "0x" + std::string(298, 'f'),
        std::string(300, ' '),
        repeat("%8svlan", 40),
        repeat("'%portname'", 27),
        "'" + std::string(298, '\\') + "'",
    };
    for (const std::string& s : texts) {
        SCOPED_TRACE(s);
        for (uint32_t length = 0; length <= s.size(); length++) {
            std::unique_ptr<char[]> text(new char[length]);
            std::copy(s.begin(), s.begin() + length, text.get());
            std::unique_ptr<char[]> out(new char[PPPOEPLUS_FORMAT_LEN]);
            EXPECT_LE(pppoeplusSimplifyAsciiFormat(record_.keywords, text.get(), length, out.get()),
                      static_cast<int32_t>(PPPOEPLUS_FORMAT_LEN));
            EXPECT_LE(pppoeplusSimplifyHexFormat(record_.keywords, text.get(), length, out.get()),
                      static_cast<int32_t>(PPPOEPLUS_FORMAT_LEN));
            tPppoeplusStrValue value{text.get(), length};
            if (pppoeplusSimplifyFormat(record_.keywords, &value, &record_) == 0) {
                EXPECT_LT(record_.formatLen, PPPOEPLUS_FORMAT_LEN);
            }
            sim::g.logs.clear();
        }
    }
}

TEST_F(FormatSimplifyTest, RecoverFuzzStaysInsideItsAreas) {
    std::mt19937 rng(77u);
    std::unique_ptr<char[]> buffer(new char[PPPOEPLUS_FORMAT_LEN]);
    for (int round = 0; round < 2000; round++) {
        tPppoeplusFormat rec{};
        rec.origFormatLen = static_cast<uint16_t>(round < 600 ? round : rng());
        tPppoeplusStrValue out{buffer.get(), 0};
        int32_t r = pppoeplusRecoverFormat(&rec, &out);
        if (r == 0) {
            EXPECT_LT(out.len, PPPOEPLUS_FORMAT_LEN);
        } else {
            EXPECT_EQ(-1, r);
        }
        sim::g.logs.clear();
    }
}
