// Format checking: character classes, splitting, ASCII and hex segment rules,
// messages with their module, level and switch bit, and bounds.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "agent/global.h"
#include "format/default_formats.h"
#include "format/format_check.h"
#include "support/fixture.h"

using namespace std::string_literals;

namespace {

constexpr uint32_t kErrorModule = PPPOEPLUS_MODULE_BASE + PPPOEPLUS_SUB_ERROR;  // 0x45D0004

// Every message of the checker is an error-level debug message; the texts
// are listed here without their "\r\n".
void expectErrorLogs(const std::vector<std::string>& texts, const std::string& input) {
    SCOPED_TRACE("input: \"" + input + "\"");
    ASSERT_EQ(texts.size(), sim::g.logs.size()) << ::testing::PrintToString(sim::logTexts());
    for (size_t i = 0; i < texts.size(); i++) {
        const sim::LogRecord& log = sim::g.logs[i];
        EXPECT_FALSE(log.oper);
        EXPECT_EQ(kErrorModule, log.module);
        EXPECT_EQ(gPppoeplus.logLevel[PPPOEPLUS_SUB_ERROR], log.level);
        EXPECT_EQ(0u, log.part);
        EXPECT_EQ(texts[i] + "\r\n", log.text);
    }
}

std::string repeat(const std::string& s, int n) {
    std::string out;
    for (int i = 0; i < n; i++) out += s;
    return out;
}

class FormatCheckTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        pppoeplusTestStart();
        pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT | PPPOEPLUS_DEBUG_ERROR);
        sim::g.logs.clear();
    }
};

struct CheckCase {
    std::string input;
    int32_t result;
    std::vector<std::string> messages;  // in order, without "\r\n"
};

const char* const kAsciiError = "Ascii format check return ERROR.";
const char* const kHexError = "Hex format check return ERROR.";

// Whole texts through pppoeplusFormatCheck.
const std::vector<CheckCase>& formatCheckCases() {
    static const std::vector<CheckCase> cases = {
        // The default formats in their stored forms.
        {PPPOEPLUS_SWITCH_FORMAT_COMMON_CIRCUITID, 0, {}},
        {PPPOEPLUS_SWITCH_FORMAT_COMMON_REMOTEID, 0, {}},
        {PPPOEPLUS_OLTPORT_FORMAT_COMMON_LINEID, 0, {}},
        {PPPOEPLUS_ONUPORT_FORMAT_COMMON_LINEID, 0, {}},
        // Splitting.
        {"", 0, {}},
        {"   ", 0, {}},
        {"''", -1, {}},
        {"'", -1, {}},
        {"'abc", -1, {}},
        {"'a\\'", -1, {}},     // the escaped quote does not close
        {"'a\\", -1, {}},      // a backslash as the last byte
        {"'a\\'b'", 0, {}},    // an escaped quote inside a segment
        {"'''a'", 0, {}},      // "''" drops one quote, then "'a'"
        {"'a'''b'", 0, {}},    // "'a'", "''" drops one, "'b'"
        {" 'a'  'b' ", 0, {}},
        {"'%N' 0x01 %16s '%C'", 0, {}},
        {"'%N' '%N%s'", -1, {"Delimeter between keywords is invalid.", kAsciiError}},
        {"'%N' %12s '%C'", -1, {"Width:12 is not multiples of 8.", kHexError}},
        {"%8s'%N%s'", -1, {"Delimeter between keywords is invalid.", kAsciiError}},
        {"%12s'%N%s'", -1, {"Width:12 is not multiples of 8.", kHexError}},
        {"'%N%s' %12s", -1, {"Delimeter between keywords is invalid.", kAsciiError}},
        // ASCII segments.
        {"'a'", 0, {}},
        {"'%N'", 0, {}},
        {"'%N%s'", -1, {"Delimeter between keywords is invalid.", kAsciiError}},
        {"'%Nx'", -1, {"Delimeter between keywords is invalid.", kAsciiError}},
        {"'%N.x%s'", 0, {}},
        {"'%N\0%s'"s, 0, {}},  // NUL is a delimiter
        {"'%N %s/%c:%p;%S[%m]%a{%r}%f<%H>%J(%C)%Y!%Z@%R#%u$%L^%O&%o*%T_%M+%P|%t-%X=%x,%I?%A'", 0, {}},
        {"'%'", -1, {"Last character can't be percent.", kAsciiError}},
        {"'abc%'", -1, {"Last character can't be percent.", kAsciiError}},
        {"'%12'", -1, {"There is no keyword after percent.", kAsciiError}},
        {"'%1'", -1, {"There is no keyword after percent.", kAsciiError}},
        {"'%%N'", -1, {"Keyword after percent is invalid.", kAsciiError}},
        {"'%:'", -1, {"Keyword after percent is invalid.", kAsciiError}},
        {"'%1:'", -1, {"Keyword after percent is invalid.", kAsciiError}},
        {"'%4294967296N'", -1, {"Width is reverse.", kAsciiError}},
        {"'%255N'", 0, {}},
        {"'%0255N'", 0, {}},
        {"'%256N'", -1, {"Width is too long.", kAsciiError}},
        {"'%200N.%100s'", -1, {"Total width is too long.", kAsciiError}},
        {"'%128N.%127s'", 0, {}},
        {"'%128N.%128s'", -1, {"Total width is too long.", kAsciiError}},
        {"'%200N.%56s'", -1, {"Total width is too long.", kAsciiError}},
        {"'%200N%100s'", -1, {"Delimeter between keywords is invalid.", kAsciiError}},
        {"'%q'", 0, {}},  // unknown codes are the simplifier's business
        // Hex segments.
        {"0x01 %16s", 0, {}},
        {"%12s", -1, {"Width:12 is not multiples of 8.", kHexError}},
        {"%40s", -1, {"Width is more than 32bits.", kHexError}},
        {"%33s", -1, {"Width is more than 32bits.", kHexError}},
        {"%32s", 0, {}},
        {"%0s", 0, {}},
        {"%8s%8c%16p", 0, {}},  // no delimiter between hex items
        {"1 0x2", 0, {}},
        {"10x2", -1, {"Character before 0x is not space.", kHexError}},
        {"0x0x", -1, {"Last 2 character can't be 0x.", kHexError}},
        {"0x1x", -1, {"Last 2 character can't be 0x.", kHexError}},
        {"%s 0x", 0, {}},
        {"0x", 0, {}},
        {"0xfg", -1, {"Number after 0x is invalid.", kHexError}},
        {"0xg1", -1, {"Number after 0x is invalid.", kHexError}},
        {"0x0x1", -1, {"Number after 0x is invalid.", kHexError}},
        {"0x %8s", -1, {"Number after 0x is invalid.", kHexError}},  // "0x" then a space inside the number
        {"0x12%8s 0xAbCdEf", 0, {}},
        {"4294967296", -1, {"Number bigger than 0xffffffff.", kHexError}},
        {"4294967295", 0, {}},
        {"18446744073709551615", -1, {"Number bigger than 0xffffffff.", kHexError}},
        {"18446744073709551616", -1, {"Number is too big, longVar is reverse.", kHexError}},
        {"1 4294967296", 0, {}},              // not read after a non-zero number
        {"0 4294967296", -1, {"Number bigger than 0xffffffff.", kHexError}},
        {"5 %8s 4294967296", -1, {"Number bigger than 0xffffffff.", kHexError}},  // '%' resets
        {"5 0x1 4294967296", 0, {}},          // the hex number's value is not 0
        {"5 0x0 4294967296", -1, {"Number bigger than 0xffffffff.", kHexError}},
        {"%0x", -1, {"Character before 0x is not space.", kHexError}},
        {"%8s0x1", -1, {"Character before 0x is not space.", kHexError}},
        {"1 %", -1, {"Last character can't be percent.", kHexError}},
        {"%", -1, {"Last character can't be percent.", kHexError}},
        {"%8", -1, {"There is no keyword after percent.", kHexError}},
        {"%:", -1, {"Keyword after percent is invalid.", kHexError}},
        {"%8:", -1, {"Keyword after percent is invalid.", kHexError}},
        {"%%8s", -1, {"Keyword after percent is invalid.", kHexError}},
        {"%99999999999s", -1, {"Width is more than 32bits.", kHexError}},
        {"x1 abc", 0, {}},  // other characters pass without comment
        {"0x1\0 2"s, 0, {}},
        {repeat("%32s", 32), 0, {}},
        {repeat("%32s", 63) + "%24s", 0, {}},
        {repeat("%32s", 64), -1, {"Total bytes is too long.", kHexError}},
        {repeat("%32s", 63) + "%32s %8s", -1, {"Total bytes is too long.", kHexError}},
    };
    return cases;
}

struct SegmentCase {
    std::string segment;
    int32_t result;
    std::vector<std::string> messages;
};

}  // namespace

// ---- character classes ------------------------------------------------------------

static_assert(pppoeplusKeywordCharCheck('0') == 0 && pppoeplusKeywordCharCheck('z') == 0);
static_assert(pppoeplusKeywordCharCheck('%') == -1 && pppoeplusKeywordCharCheck('\0') == -1);
static_assert(pppoeplusHexCharCheck('F') == 0 && pppoeplusHexCharCheck('g') == -1);
static_assert(pppoeplusDelimiterCheck('\0') == 0 && pppoeplusDelimiterCheck('%') == -1);

TEST(FormatCharClassTest, KeywordCharactersAreDigitsAndLetters) {
    for (int v = 0; v < 256; v++) {
        char c = static_cast<char>(v);
        bool member = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        EXPECT_EQ(member ? 0 : -1, pppoeplusKeywordCharCheck(c)) << v;
    }
}

TEST(FormatCharClassTest, HexDigits) {
    for (int v = 0; v < 256; v++) {
        char c = static_cast<char>(v);
        bool member = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
        EXPECT_EQ(member ? 0 : -1, pppoeplusHexCharCheck(c)) << v;
    }
}

TEST(FormatCharClassTest, DelimitersAreTheListedOnesAndNul) {
    const std::string delimiters = " ./:;[]{}<>()!@#$^&*_+|-=,?"s + '\0';
    EXPECT_EQ(28u, delimiters.size());
    for (int v = 0; v < 256; v++) {
        char c = static_cast<char>(v);
        bool member = delimiters.find(c) != std::string::npos;
        EXPECT_EQ(member ? 0 : -1, pppoeplusDelimiterCheck(c)) << v;
    }
    EXPECT_EQ(-1, pppoeplusDelimiterCheck('%'));
    EXPECT_EQ(-1, pppoeplusDelimiterCheck('\''));
    EXPECT_EQ(-1, pppoeplusDelimiterCheck('\\'));
    EXPECT_EQ(-1, pppoeplusDelimiterCheck('x'));
}

// ---- whole texts ----------------------------------------------------------------------

TEST_F(FormatCheckTest, TableOfTexts) {
    for (const CheckCase& c : formatCheckCases()) {
        sim::g.logs.clear();
        EXPECT_EQ(c.result, pppoeplusFormatCheck(c.input.data(), static_cast<uint32_t>(c.input.size())))
            << "input: \"" << c.input << "\"";
        expectErrorLogs(c.messages, c.input);
    }
}

TEST_F(FormatCheckTest, NothingIsLoggedWithTheErrorBitOff) {
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_STARTUP | PPPOEPLUS_DEBUG_PKT_DUMP | PPPOEPLUS_DEBUG_EVENT);
    for (const CheckCase& c : formatCheckCases()) {
        EXPECT_EQ(c.result, pppoeplusFormatCheck(c.input.data(), static_cast<uint32_t>(c.input.size())))
            << "input: \"" << c.input << "\"";
    }
    EXPECT_TRUE(sim::g.logs.empty()) << ::testing::PrintToString(sim::logTexts());
}

TEST_F(FormatCheckTest, ErrorBitAloneIsEnough) {
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_ERROR);
    EXPECT_EQ(-1, pppoeplusFormatCheck("'%N%s'", 6));
    expectErrorLogs({"Delimeter between keywords is invalid.", kAsciiError}, "'%N%s'");
}

TEST_F(FormatCheckTest, LengthRulesTheText) {
    // Only the given length is read: what stands behind it does not count.
    EXPECT_EQ(0, pppoeplusFormatCheck("'%N'%s%", 4));
    EXPECT_EQ(0, pppoeplusFormatCheck("0x1x", 3));
    EXPECT_EQ(-1, pppoeplusFormatCheck("'%N'", 3));  // the closing quote is cut off
    EXPECT_TRUE(sim::g.logs.empty());
    EXPECT_EQ(0, pppoeplusFormatCheck("'%N'", 0));
}

TEST_F(FormatCheckTest, NullTextFails) {
    EXPECT_EQ(-1, pppoeplusFormatCheck(nullptr, 4));
    EXPECT_EQ(-1, pppoeplusFormatCheck(nullptr, 0));
    EXPECT_EQ(-1, pppoeplusAsciiFormatCheck(nullptr, 4));
    EXPECT_EQ(-1, pppoeplusHexFormatCheck(nullptr, 4));
    EXPECT_TRUE(sim::g.logs.empty());
}

// ---- single segments ---------------------------------------------------------------------

TEST_F(FormatCheckTest, AsciiSegments) {
    const std::vector<SegmentCase> cases = {
        {"", -1, {"Ascii format length is too short."}},
        {"'", -1, {"Ascii format length is too short."}},
        {"''", -1, {"Ascii format length is too short."}},
        {"'a'", 0, {}},
        {"'%'", -1, {"Last character can't be percent."}},
        {"'%N:%s.%c'", 0, {}},
        {"'%N%s'", -1, {"Delimeter between keywords is invalid."}},
        {"'%12'", -1, {"There is no keyword after percent."}},
        {"'%%N'", -1, {"Keyword after percent is invalid."}},
        {"'%4294967296N'", -1, {"Width is reverse."}},
        {"'%256N'", -1, {"Width is too long."}},
        {"'%200N.%100s'", -1, {"Total width is too long."}},
        // The first and last bytes are taken as the quotes, whatever they are.
        {"x%Nx", 0, {}},
        // The closing quote is not looked at as a delimiter.
        {"'%N'", 0, {}},
        // A keyword text of the long form fails the delimiter rule.
        {"'%portname'", -1, {"Delimeter between keywords is invalid."}},
    };
    for (const SegmentCase& c : cases) {
        sim::g.logs.clear();
        EXPECT_EQ(c.result, pppoeplusAsciiFormatCheck(c.segment.data(), static_cast<uint32_t>(c.segment.size())))
            << "segment: \"" << c.segment << "\"";
        expectErrorLogs(c.messages, c.segment);
    }
}

TEST_F(FormatCheckTest, HexSegments) {
    const std::vector<SegmentCase> cases = {
        {"", 0, {}},
        {"0x01 %16s", 0, {}},
        {" 0x01", 0, {}},  // a space before "0x"
        {"'0x01'", -1, {"Character before 0x is not space."}},
        {"%12s", -1, {"Width:12 is not multiples of 8."}},
        {"%40s", -1, {"Width is more than 32bits."}},
        {"10x2", -1, {"Character before 0x is not space."}},
        {"0x0x", -1, {"Last 2 character can't be 0x."}},
        {"0xfg", -1, {"Number after 0x is invalid."}},
        {"4294967296", -1, {"Number bigger than 0xffffffff."}},
        {"18446744073709551616", -1, {"Number is too big, longVar is reverse."}},
        {"%0x", -1, {"Character before 0x is not space."}},
        {"1 %", -1, {"Last character can't be percent."}},
        {"%8", -1, {"There is no keyword after percent."}},
        {"%:", -1, {"Keyword after percent is invalid."}},
        {repeat("%32s", 64), -1, {"Total bytes is too long."}},
        // Widths above 32 are refused while they are read, so neither a
        // wrapped nor a 256-bit width ever reaches its own rule.
        {"%256s", -1, {"Width is more than 32bits."}},
        {"%4294967296s", -1, {"Width is more than 32bits."}},
    };
    for (const SegmentCase& c : cases) {
        sim::g.logs.clear();
        EXPECT_EQ(c.result, pppoeplusHexFormatCheck(c.segment.data(), static_cast<uint32_t>(c.segment.size())))
            << "segment: \"" << c.segment << "\"";
        expectErrorLogs(c.messages, c.segment);
    }
}

// ---- bounds -----------------------------------------------------------------------------------

namespace {

// Random texts made mostly of the characters the rules care about, in a heap
// block exactly as long as the text, so that a read past the end is caught.
std::unique_ptr<char[]> fuzzText(std::mt19937& rng, uint32_t length) {
    static const std::string alphabet = "'''%%%%0000xx123456789sNCpfgAF  \\:.;/-_"s + '\0';
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

TEST_F(FormatCheckTest, FuzzStaysInsideTheGivenLength) {
    std::mt19937 rng(20240605u);
    for (int round = 0; round < 4000; round++) {
        uint32_t length = rng() % 301;
        std::unique_ptr<char[]> text = fuzzText(rng, length);
        int32_t r = pppoeplusFormatCheck(text.get(), length);
        EXPECT_TRUE(r == 0 || r == -1);
        r = pppoeplusAsciiFormatCheck(text.get(), length);
        EXPECT_TRUE(r == 0 || r == -1);
        r = pppoeplusHexFormatCheck(text.get(), length);
        EXPECT_TRUE(r == 0 || r == -1);
        // At most one message per failing check, plus the segment kind.
        EXPECT_LE(sim::g.logs.size(), 4u);
        sim::g.logs.clear();
    }
}

TEST_F(FormatCheckTest, AdversarialTextsStayInsideTheGivenLength) {
    const std::vector<std::string> texts = {
        "'" + std::string(299, '%'),
        "'" + std::string(298, '%') + "'",
        "'%" + std::string(297, '9') + "'",
        "'%" + std::string(298, '9'),
        std::string(300, '%'),
        "%" + std::string(299, '8'),
        "0x" + std::string(298, 'f'),
        "0x" + std::string(297, 'f') + "x",
        std::string(300, '9'),
        std::string(300, '0'),
        repeat("0x", 150),
        repeat("%8s", 100),
        "'" + std::string(298, '\\') + "'",
        std::string(300, '\''),
    };
    for (const std::string& s : texts) {
        // Every prefix, each in a block of its own length.
        for (uint32_t length = 0; length <= s.size(); length++) {
            std::unique_ptr<char[]> text(new char[length]);
            std::copy(s.begin(), s.begin() + length, text.get());
            pppoeplusFormatCheck(text.get(), length);
            pppoeplusAsciiFormatCheck(text.get(), length);
            pppoeplusHexFormatCheck(text.get(), length);
            sim::g.logs.clear();
        }
    }
}
