// Keyword table, long form <-> code mapping.
#include <cstring>
#include <string>

#include "agent/global.h"
#include "format/keywords.h"
#include "support/fixture.h"

namespace {

class KeywordsTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        pppoeplusTestStart();
        pppoeplusKeywordsInit(&fmt);
    }
    int32_t toChar(const std::string& text) {
        return pppoeplusKeywordToChar(fmt.keywords, text.data(), static_cast<uint32_t>(text.size()));
    }
    tPppoeplusFormat fmt{};
};

const char* const kNoMatch = "Keyword does not match anyone!\r\n";

TEST_F(KeywordsTest, InitFillsTheTableInOrder) {
    const char* expected[PPPOEPLUS_KEYWORD_NUM][2] = {
        {"svlan", "s"},        {"cvlan", "c"},      {"accessnode", "a"}, {"rack", "r"},         {"frame", "f"},
        {"slot", "S"},         {"port", "p"},       {"onuid", "m"},      {"uplinktype", "u"},   {"slottype", "L"},
        {"managevlanip", "O"}, {"onuauthid", "o"},  {"onutype", "n"},    {"onuslot", "T"},      {"onusubslot", "M"},
        {"onuport", "P"},      {"userporttype", "t"}, {"xpi", "X"},      {"xci", "x"},          {"iadip", "I"},
        {"iadmac", "A"},       {"nodetype", "B"},   {"accesstype", "b"}, {"portname", "N"},     {"porttype", "Y"},
        {"portmac", "C"},      {"devicename", "d"}, {"sysname", "D"},    {"onusn", "U"},        {"oltonlymac", "R"},
        {"oltmac", "Z"},       {"sys", "H"},        {"clientmac", "J"},  {"onuloid", "G"},      {"onuauthinfo", "h"},
    };
    for (uint32_t i = 0; i < PPPOEPLUS_KEYWORD_NUM; i++) {
        SCOPED_TRACE(i);
        EXPECT_STREQ(expected[i][0], fmt.keywords[i].keyword);
        EXPECT_EQ(std::strlen(expected[i][0]), fmt.keywords[i].keywordLen);
        EXPECT_EQ(expected[i][1][0], fmt.keywords[i].keywordChar);
    }
}

TEST_F(KeywordsTest, InitToleratesNull) { pppoeplusKeywordsInit(nullptr); }

TEST_F(KeywordsTest, WidthDigitsAreSkipped) {
    EXPECT_EQ('N', toChar("10portname"));
    EXPECT_EQ('s', toChar("010svlan"));
    EXPECT_EQ('N', toChar("portname"));
    EXPECT_TRUE(sim::g.logs.empty());
}

TEST_F(KeywordsTest, PrefixOrLongerTextDoesNotMatch) {
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_ERROR);
    EXPECT_EQ(-1, toChar("portnam"));
    EXPECT_EQ(-1, toChar("portnames"));
    ASSERT_EQ(2u, sim::g.logs.size());
    for (const sim::LogRecord& r : sim::g.logs) {
        EXPECT_FALSE(r.oper);
        EXPECT_EQ(0x45D0004u, r.module);
        EXPECT_EQ(5u, r.level);
        EXPECT_EQ(0u, r.part);
        EXPECT_EQ(kNoMatch, r.text);
    }
}

TEST_F(KeywordsTest, NoMessageWhileTheErrorSwitchIsOff) {
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_STARTUP | PPPOEPLUS_DEBUG_EVENT);
    EXPECT_EQ(-1, toChar("portnam"));
    EXPECT_TRUE(sim::g.logs.empty());
}

TEST_F(KeywordsTest, WholeWordMatching) {
    EXPECT_EQ('H', toChar("sys"));
    EXPECT_EQ('D', toChar("sysname"));
    EXPECT_EQ('m', toChar("onuid"));
    EXPECT_EQ('o', toChar("onuauthid"));
    EXPECT_EQ('C', toChar("portmac"));
    EXPECT_EQ('Y', toChar("porttype"));
    EXPECT_EQ('p', toChar("port"));
}

TEST_F(KeywordsTest, DigitsOnlyAreComparedWhole) {
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_ERROR);
    EXPECT_EQ(-1, toChar("12"));
    EXPECT_EQ(-1, toChar(""));
    EXPECT_EQ(2u, sim::g.logs.size());
}

TEST_F(KeywordsTest, EveryKeywordMapsToItsCodeAndBack) {
    for (uint32_t i = 0; i < PPPOEPLUS_KEYWORD_NUM; i++) {
        const tPppoeplusKeyword& k = fmt.keywords[i];
        EXPECT_EQ(k.keywordChar, toChar(k.keyword));
        std::string withWidth = "8";
        withWidth += k.keyword;
        EXPECT_EQ(k.keywordChar, toChar(withWidth));
        char buf[64] = {};
        uint32_t len = 0;
        ASSERT_EQ(0, pppoeplusCharToKeyword(fmt.keywords, k.keywordChar, buf, sizeof(buf), &len));
        EXPECT_EQ(std::string(k.keyword), std::string(buf, len));
    }
}

TEST_F(KeywordsTest, CodesAreCaseSensitive) {
    char buf[32] = {};
    uint32_t len = 0;
    ASSERT_EQ(0, pppoeplusCharToKeyword(fmt.keywords, 's', buf, sizeof(buf), &len));
    EXPECT_EQ("svlan", std::string(buf, len));
    ASSERT_EQ(0, pppoeplusCharToKeyword(fmt.keywords, 'S', buf, sizeof(buf), &len));
    EXPECT_EQ("slot", std::string(buf, len));
    ASSERT_EQ(0, pppoeplusCharToKeyword(fmt.keywords, 'c', buf, sizeof(buf), &len));
    EXPECT_EQ("cvlan", std::string(buf, len));
    ASSERT_EQ(0, pppoeplusCharToKeyword(fmt.keywords, 'C', buf, sizeof(buf), &len));
    EXPECT_EQ("portmac", std::string(buf, len));
    EXPECT_EQ('s', toChar("svlan"));
    EXPECT_EQ('S', toChar("slot"));
}

TEST_F(KeywordsTest, CharToKeywordCopiesAtMostTheCapacity) {
    char buf[8];
    std::memset(buf, '#', sizeof(buf));
    uint32_t len = 99;
    ASSERT_EQ(0, pppoeplusCharToKeyword(fmt.keywords, 'N', buf, 3, &len));
    EXPECT_EQ(3u, len);
    EXPECT_EQ("por", std::string(buf, 3));
    EXPECT_EQ('#', buf[3]) << "no terminator is written";
}

TEST_F(KeywordsTest, CharToKeywordRefusals) {
    char buf[8] = {};
    uint32_t len = 7;
    EXPECT_EQ(-1, pppoeplusCharToKeyword(nullptr, 'N', buf, sizeof(buf), &len));
    EXPECT_EQ(-1, pppoeplusCharToKeyword(fmt.keywords, 'q', buf, sizeof(buf), &len));
    EXPECT_EQ(-1, pppoeplusCharToKeyword(fmt.keywords, 'W', buf, sizeof(buf), &len));
    EXPECT_EQ(7u, len);
    EXPECT_EQ('\0', buf[0]);
}

TEST_F(KeywordsTest, KeywordToCharRefusesANullTable) {
    EXPECT_EQ(-1, pppoeplusKeywordToChar(nullptr, "svlan", 5));
}

TEST_F(KeywordsTest, LengthBoundsTheComparison) {
    // Only the given length counts, whatever follows it.
    EXPECT_EQ('H', pppoeplusKeywordToChar(fmt.keywords, "sysname", 3));
    EXPECT_EQ('p', pppoeplusKeywordToChar(fmt.keywords, "portname", 4));
}

TEST_F(KeywordsTest, FormatTypeTexts) {
    EXPECT_STREQ("DEFAULT", pppoeplusFormatTypeStr(0));
    EXPECT_STREQ("USERDEFINE", pppoeplusFormatTypeStr(1));
    EXPECT_STREQ("ASCII", pppoeplusFormatTypeStr(2));
    EXPECT_STREQ("unknown", pppoeplusFormatTypeStr(3));
}

}  // namespace
