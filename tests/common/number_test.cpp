// Reading numbers from text (platform/number.h).
#include "platform/number.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

TEST(NumberParse, DecimalAndHexWholeText) {
    EXPECT_EQ(std::optional<uint32_t>(0), numberParseU32("0"));
    EXPECT_EQ(std::optional<uint32_t>(3561), numberParseU32("3561"));
    EXPECT_EQ(std::optional<uint32_t>(0xDE9), numberParseU32("0xde9"));
    EXPECT_EQ(std::optional<uint32_t>(0xDE9), numberParseU32("0XDE9"));
    EXPECT_EQ(std::optional<uint32_t>(0xFFFFFFFFu), numberParseU32("4294967295"));
    EXPECT_EQ(std::optional<uint32_t>(0xFFFFFFFFu), numberParseU32("0xffffffff"));
    EXPECT_EQ(std::optional<uint32_t>(8), numberParseU32("008"));
}

TEST(NumberParse, RefusesAnythingButDigits) {
    for (const char* text : {"", "0x", "0X", "x1", "12a", "0x1g", " 1", "1 ", "+1", "-1", "0x-1", "0x+1", "1.5",
                             "00x5", "4294967296", "0x100000000", "99999999999999999999999"})
        EXPECT_EQ(std::nullopt, numberParseU32(text)) << '"' << text << '"';
}

TEST(NumberParse, UnsignedWithinItsMaximum) {
    EXPECT_EQ(std::optional<uint64_t>(255), numberParseUnsigned("255", 255));
    EXPECT_EQ(std::nullopt, numberParseUnsigned("256", 255));
    EXPECT_EQ(std::optional<uint64_t>(UINT64_MAX), numberParseUnsigned("0xffffffffffffffff", UINT64_MAX));
    EXPECT_EQ(std::nullopt, numberParseUnsigned("0x10000000000000000", UINT64_MAX));
}

TEST(NumberParse, SignedSixtyFourBits) {
    EXPECT_EQ(std::optional<int64_t>(-5), numberParseI64("-5"));
    EXPECT_EQ(std::optional<int64_t>(5), numberParseI64("+5"));
    EXPECT_EQ(std::optional<int64_t>(-16), numberParseI64("-0x10"));
    EXPECT_EQ(std::optional<int64_t>(INT64_MAX), numberParseI64("9223372036854775807"));
    EXPECT_EQ(std::optional<int64_t>(INT64_MIN), numberParseI64("-9223372036854775808"));
    EXPECT_EQ(std::nullopt, numberParseI64("9223372036854775808"));
    EXPECT_EQ(std::nullopt, numberParseI64("-9223372036854775809"));
    EXPECT_EQ(std::nullopt, numberParseI64("-"));
    EXPECT_EQ(std::nullopt, numberParseI64("--1"));
    EXPECT_EQ(std::nullopt, numberParseI64("+-1"));
}

TEST(NumberParse, LeadingDecimalStopsAtTheFirstOtherCharacterAndSaturates) {
    EXPECT_EQ(12u, numberLeadingDecimal("12abc"));
    EXPECT_EQ(0u, numberLeadingDecimal("abc"));
    EXPECT_EQ(0u, numberLeadingDecimal(""));
    EXPECT_EQ(0u, numberLeadingDecimal("-5"));
    EXPECT_EQ(7u, numberLeadingDecimal("0007 8"));
    EXPECT_EQ(UINT64_MAX, numberLeadingDecimal("18446744073709551616"));
    EXPECT_EQ(UINT64_MAX, numberLeadingDecimal(std::string(200, '9')));
}
