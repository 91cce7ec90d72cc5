// Protocol names of the platform table.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "platform/ifdb.h"
#include "platform/types.h"

namespace {

TEST(ProtoName, DaemonProtocols) {
    EXPECT_STREQ(zelProtoName(ZEL_PROTO_PPPOEPLUS), "pppoe+");
    EXPECT_STREQ(zelProtoName(ZEL_PROTO_PPPOEPLUS_HW), "pppoe+hw");
    EXPECT_STREQ(zelProtoName(141), "pppoe+");
    EXPECT_STREQ(zelProtoName(19), "pppoe+hw");
}

TEST(ProtoName, EveryIdInRangeHasAName) {
    for (uint32_t id = 0; id <= ZEL_PROTO_MAX; ++id) {
        const char* name = zelProtoName(id);
        ASSERT_NE(name, nullptr) << id;
        EXPECT_STRNE(name, "") << id;
        EXPECT_STRNE(name, "unknown") << id;
    }
    EXPECT_STREQ(zelProtoName(0), "none");
}

TEST(ProtoName, GeneratedNames) {
    EXPECT_STREQ(zelProtoName(200), "proto200");
    EXPECT_STREQ(zelProtoName(384), "proto384");
    EXPECT_STREQ(zelProtoName(100), "proto100");
    EXPECT_STREQ(zelProtoName(20), "proto20");
}

TEST(ProtoName, OutOfRangeIsUnknown) {
    EXPECT_STREQ(zelProtoName(ZEL_PROTO_MAX + 1), "unknown");
    EXPECT_STREQ(zelProtoName(385), "unknown");
    EXPECT_STREQ(zelProtoName(1000), "unknown");
    EXPECT_STREQ(zelProtoName(0xFFFFFFFFu), "unknown");
}

TEST(ProtoName, StablePointers) {
    // The table is static: repeated lookups give the same storage.
    EXPECT_EQ(zelProtoName(141), zelProtoName(141));
    EXPECT_EQ(std::string(zelProtoName(77)), "proto77");
}

}  // namespace
