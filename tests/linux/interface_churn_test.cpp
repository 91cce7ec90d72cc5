// Interfaces that come and go leave nothing behind in the interface
// database: the protocol states and hardware rules of a port go with it,
// including those the daemon switches off after it heard the port is gone
// (found by the soak test: every port that came and went left two states).
#include <gtest/gtest.h>
#include <net/if.h>
#include <unistd.h>

#include <string>

#include "lt_netns.h"
#include "platform/ifdb.h"
#include "platform/linux/internal.h"
#include "platform/socket.h"
#include "platform/types.h"

namespace {

TEST(InterfaceChurnTest, PortsThatComeAndGoLeaveNoStateBehind) {
    LT_NEED_NETNS();
    lt::Netns ns;
    ASSERT_TRUE(ns.ok());
    lt::TempDir dir;
    std::string conf = dir.file("c.conf", "platform.hwrule = none\nplatform.announce = no\n");
    const std::string nsName = ns.name();
    auto r = lt::runChild(nsName, {"PPPOEPLUS_CONF=" + conf, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir.path()}, [&] {
        int32_t rt = zel_socket(ZEL_AF_ROUTE, ZEL_SOCK_DGRAM, 0);  // starts the interface database
        CHECK_TRUE(rt > 0);
        const size_t before = linuxplat::ifdbProtoStates();
        for (int i = 0; i < 40; i++) {
            CHECK_EQ(0, lt::sh("ip link add x1 type veth peer name y1 && ip link set x1 up"));
            uint32_t unit = 0;
            for (int w = 0; w < 200 && unit == 0; w++) {
                unit = linuxplat::ifdbUnitByName("x1");
                if (unit == 0) ::usleep(10000);
            }
            CHECK_TRUE(unit != 0);
            // As the daemon does for a port it serves: default on, trap on,
            // hardware rule on.
            for (uint32_t proto : {static_cast<uint32_t>(ZEL_PROTO_PPPOEPLUS), static_cast<uint32_t>(ZEL_PROTO_PPPOEPLUS_HW)}) {
                tZelIfProto p{};
                p.protoId = proto;
                CHECK_EQ(0u, zelIfSetApi(unit, ZEL_IF_ATTR_PROTO_DFLT_ON, &p));
                CHECK_EQ(0u, zelIfSetApi(unit, ZEL_IF_ATTR_PROTO_ON, &p));
            }
            CHECK_EQ(0, lt::sh("ip link del x1"));
            for (int w = 0; w < 200 && linuxplat::ifdbUnitByName("x1") != 0; w++) ::usleep(10000);
            CHECK_EQ(0u, linuxplat::ifdbUnitByName("x1"));
            // Then, having heard of it, as the daemon does for an entry it
            // deletes: everything off. No error, and nothing is kept.
            for (uint32_t proto : {static_cast<uint32_t>(ZEL_PROTO_PPPOEPLUS), static_cast<uint32_t>(ZEL_PROTO_PPPOEPLUS_HW)}) {
                tZelIfProto p{};
                p.protoId = proto;
                CHECK_EQ(0u, zelIfSetApi(unit, ZEL_IF_ATTR_PROTO_OFF, &p));
                CHECK_EQ(0u, zelIfSetApi(unit, ZEL_IF_ATTR_PROTO_DFLT_OFF, &p));
                CHECK_EQ(static_cast<uint32_t>(ZEL_ERR_NOT_FOUND), zelIfSetApi(unit, ZEL_IF_ATTR_PROTO_ON, &p));
            }
            CHECK_TRUE(!linuxplat::ifdbTrapOn(static_cast<int32_t>(unit)));
        }
        CHECK_EQ(before, linuxplat::ifdbProtoStates());
    }, 120);
    EXPECT_TRUE(r.ok()) << r.failures;
}

}  // namespace
