// The management entry-point table: its rows in order, and calls made through
// it as the command service makes them.
#include <cstring>
#include <string>

#include "agent/global.h"
#include "iftable/if_entry.h"
#include "mgmt/func_map.h"
#include "mgmt/if_api.h"
#include "mgmt/mgmt_types.h"
#include "mgmt/scalar_api.h"
#include "platform/types.h"
#include "support/fixture.h"

namespace {

template <typename F>
tIcmEntry entryOf(F f) {
    return reinterpret_cast<tIcmEntry>(f);
}

TEST(FuncMapTest, NineRowsInOrder) {
    ASSERT_EQ(9u, PPPOEPLUS_FUNC_MAP_SIZE);
    ASSERT_EQ(9u * sizeof(tIcmFuncMap), sizeof(gPppoeplusFuncMap));
    for (uint32_t i = 0; i < PPPOEPLUS_FUNC_MAP_SIZE; i++) EXPECT_EQ(i, gPppoeplusFuncMap[i].code) << i;
    EXPECT_EQ(nullptr, gPppoeplusFuncMap[0].func);
    EXPECT_EQ(entryOf(&pppoeplusScalarGetApi), gPppoeplusFuncMap[1].func);
    EXPECT_EQ(entryOf(&pppoeplusScalarSetApi), gPppoeplusFuncMap[2].func);
    EXPECT_EQ(entryOf(&pppoeplusScalarSyncApi), gPppoeplusFuncMap[3].func);
    EXPECT_EQ(entryOf(&pppoeplusIfGetFirst), gPppoeplusFuncMap[4].func);
    EXPECT_EQ(entryOf(&pppoeplusIfGetNext), gPppoeplusFuncMap[5].func);
    EXPECT_EQ(entryOf(&pppoeplusIfGetApi), gPppoeplusFuncMap[6].func);
    EXPECT_EQ(entryOf(&pppoeplusIfSetApi), gPppoeplusFuncMap[7].func);
    EXPECT_EQ(entryOf(&pppoeplusIfSyncApi), gPppoeplusFuncMap[8].func);
}

class FuncMapCallTest : public SimTest {};

// Every row called back through the signature its code stands for.
TEST_F(FuncMapCallTest, CallsThroughTheTable) {
    pppoeplusTestStart(1, 0);
    sim::addInterface(7, "eth7", ZEL_OND_ETH);
    sim::addInterface(9, "eth9", ZEL_OND_ETH);

    auto scalarGet = reinterpret_cast<tPppoeplusCmdApi>(gPppoeplusFuncMap[PPPOEPLUS_FUNC_SCALAR_GET].func);
    auto scalarSet = reinterpret_cast<tPppoeplusCmdApi>(gPppoeplusFuncMap[PPPOEPLUS_FUNC_SCALAR_SET].func);
    auto scalarSync = reinterpret_cast<tPppoeplusCmdApi>(gPppoeplusFuncMap[PPPOEPLUS_FUNC_SCALAR_SYNC].func);
    auto ifFirst = reinterpret_cast<tPppoeplusIfGetFirstApi>(gPppoeplusFuncMap[PPPOEPLUS_FUNC_IF_GET_FIRST].func);
    auto ifNext = reinterpret_cast<tPppoeplusIfGetNextApi>(gPppoeplusFuncMap[PPPOEPLUS_FUNC_IF_GET_NEXT].func);
    auto ifGet = reinterpret_cast<tPppoeplusCmdApi>(gPppoeplusFuncMap[PPPOEPLUS_FUNC_IF_GET].func);
    auto ifSet = reinterpret_cast<tPppoeplusCmdApi>(gPppoeplusFuncMap[PPPOEPLUS_FUNC_IF_SET].func);
    auto ifSync = reinterpret_cast<tPppoeplusCmdApi>(gPppoeplusFuncMap[PPPOEPLUS_FUNC_IF_SYNC].func);

    char buf[64] = {};
    tPppoeplusStrValue version{buf, sizeof(buf)};
    EXPECT_EQ(0, scalarGet(0, PPPOEPLUS_SCALAR_VERSION, &version));
    EXPECT_EQ("PPPOEPLUS_V7.00.00.00", std::string(buf, version.len));

    uint32_t v = 0x1234;
    EXPECT_EQ(0, scalarSet(0, PPPOEPLUS_SCALAR_VENDORID, &v));
    EXPECT_EQ(0x1234u, gPppoeplus.vendorId);
    v = 0x5678;
    EXPECT_EQ(0, scalarSync(0, PPPOEPLUS_SCALAR_VENDORID, &v));
    EXPECT_EQ(0x5678u, gPppoeplus.vendorId);
    ASSERT_EQ(2u, sim::g.hwilCalls.size());
    EXPECT_EQ(3u, sim::g.hwilCalls[0].ctrl[0]);
    EXPECT_EQ(1u, sim::g.hwilCalls[1].ctrl[0]);

    v = ZEL_TRUE;
    EXPECT_EQ(0, ifSet(9, PPPOEPLUS_IF_ENABLE, &v));
    EXPECT_EQ(0, ifSync(7, PPPOEPLUS_IF_ENABLE, &v));
    uint32_t unit = 0;
    EXPECT_EQ(0, ifFirst(&unit));
    EXPECT_EQ(7u, unit);
    EXPECT_EQ(0, ifNext(unit, &unit));
    EXPECT_EQ(9u, unit);
    EXPECT_EQ(-1, ifNext(unit, &unit));
    v = 0;
    EXPECT_EQ(0, ifGet(9, PPPOEPLUS_IF_ENABLE, &v));
    EXPECT_EQ(ZEL_TRUE, v);
}

}  // namespace
