// Route events in a network namespace: kernel link changes and events raised
// through the event socket reach a route socket as the platform's messages.
#include <gtest/gtest.h>
#include <net/if.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

#include "lt_netns.h"
#include "platform/ifdb.h"
#include "platform/linux/cmd_proto.h"
#include "platform/socket.h"
#include "platform/types.h"

namespace {

uint32_t be32(const std::vector<uint8_t>& m, size_t off) {
    if (off + 4 > m.size()) return 0;
    return (uint32_t(m[off]) << 24) | (uint32_t(m[off + 1]) << 16) | (uint32_t(m[off + 2]) << 8) | m[off + 3];
}
uint16_t be16(const std::vector<uint8_t>& m, size_t off) {
    if (off + 2 > m.size()) return 0;
    return static_cast<uint16_t>((m[off] << 8) | m[off + 1]);
}

constexpr uint16_t NEWLINK = 0x20;
constexpr uint16_t DELLINK = 0x21;
constexpr uint16_t RESETPORT = 0x144;
constexpr uint16_t RESETPROTO = 0x168;

// Attribute types and first value words from offset 48, as the daemon walks them.
std::vector<std::pair<uint16_t, uint32_t>> attrs(const std::vector<uint8_t>& m) {
    std::vector<std::pair<uint16_t, uint32_t>> out;
    size_t off = 48;
    while (off + 4 <= m.size()) {
        uint16_t len = be16(m, off);
        if (len < 4 || off + len > m.size()) break;
        out.emplace_back(be16(m, off + 2), len >= 8 ? be32(m, off + 4) : 0);
        off += (len + 3u) & ~3u;
    }
    return out;
}

bool hasAttr(const std::vector<uint8_t>& m, uint16_t type, uint32_t value) {
    for (auto [t, v] : attrs(m))
        if (t == type && v == value) return true;
    return false;
}

// Reads route messages until one satisfies `want`, within `ms`.
bool waitMsg(int32_t fd, const std::function<bool(const std::vector<uint8_t>&)>& want, int ms = 3000) {
    for (int waited = 0; waited < ms; waited += 100) {
        zel_fd_set set;
        ZEL_FD_ZERO(&set);
        ZEL_FD_SET(fd, &set);
        zel_timeval tv = {0, 100000};
        if (zel_select(fd + 1, &set, nullptr, nullptr, &tv) < 1) continue;
        uint8_t buf[3840] = {};
        int32_t n = zel_recv(fd, buf, sizeof(buf), 0);
        if (n <= 0) continue;
        std::vector<uint8_t> m(buf, buf + n);
        // Every message is whole: its length field is what was read.
        if (be32(m, 0) != static_cast<uint32_t>(n) || n < 24) {
            lt::childFail(__FILE__, __LINE__, "route message with length field " + std::to_string(be32(m, 0)) +
                                                  " read as " + std::to_string(n) + " bytes");
            continue;
        }
        if (want(m)) return true;
    }
    return false;
}

int32_t openRouteSocket() {
    int32_t fd = zel_socket(ZEL_AF_ROUTE, ZEL_SOCK_DGRAM, 0);
    CHECK_TRUE(fd > 0);
    zel_sockaddr_rt addr;
    std::memset(&addr, 0, sizeof(addr));
    addr.rt_family = ZEL_AF_ROUTE;
    CHECK_EQ(0, zel_bind(fd, &addr, sizeof(addr)));
    int32_t group = 1;
    CHECK_EQ(0, zel_setsockopt(fd, ZEL_SOL_ROUTE, ZEL_ADD_MEMBERSHIP, &group, 4));
    int32_t name = ZEL_PROTO_PPPOEPLUS;
    CHECK_EQ(0, zel_setsockopt(fd, ZEL_SOL_SOCKET, ZEL_SO_NAME, &name, 4));
    return fd;
}

class RouteEventsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LT_NEED_NETNS();
        ns_ = std::make_unique<lt::Netns>();
        ASSERT_TRUE(ns_->ok());
        conf_ = dir_.file("pppoeplus.conf", "port.agg1 = kind=ethagg port=1\nplatform.exclude = mgmt*\n");
    }
    std::vector<std::string> env() const {
        return {"PPPOEPLUS_CONF=" + conf_, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir_.path()};
    }
    std::unique_ptr<lt::Netns> ns_;
    lt::TempDir dir_;
    std::string conf_;
};

TEST_F(RouteEventsTest, ExistingInterfacesAreAnnouncedWhenTheSocketJoins) {
    ASSERT_EQ(0, ns_->sh("ip link add x1 type veth peer name x2"));
    auto r = lt::runChild(ns_->name(), env(), [] {
        int32_t fd = openRouteSocket();
        uint32_t x1 = if_nametoindex("x1");
        uint32_t lo = if_nametoindex("lo");
        CHECK_TRUE(waitMsg(fd, [&](const auto& m) {
            return be16(m, 4) == NEWLINK && be32(m, 28) == lo && be32(m, 36) == 0xFFFFFFFF;
        }));
        CHECK_TRUE(waitMsg(fd, [&](const auto& m) {
            return be16(m, 4) == NEWLINK && be32(m, 28) == x1 && be32(m, 36) == 0xFFFFFFFF;
        }));
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

TEST_F(RouteEventsTest, CreatedAndDeletedLinks) {
    auto r = lt::runChild(ns_->name(), env(), [] {
        int32_t fd = openRouteSocket();
        CHECK_EQ(0, lt::sh("ip link add r1 type veth peer name r2"));
        uint32_t r1 = if_nametoindex("r1");
        uint32_t r2 = if_nametoindex("r2");
        CHECK_TRUE(r1 != 0 && r2 != 0);
        CHECK_TRUE(waitMsg(fd, [&](const auto& m) {
            return be16(m, 4) == NEWLINK && be32(m, 28) == r1 && be32(m, 36) == 0xFFFFFFFF;
        }));
        // By the time the message is read the database knows the interface.
        tZelPhyInfo phy{};
        CHECK_EQ(0u, zelIndexTrans(r1, ZEL_INDEX_TRANS_PHYINFO, &phy));
        CHECK_EQ(ZEL_OND_ETH, phy.ondType);
        CHECK_EQ(1u, phy.portNo);
        char name[64] = {};
        CHECK_EQ(std::string("r1"), std::string(zelIfUnit2Name(r1, name, sizeof(name))));
        char attrName[ZEL_IF_NAME_LEN] = {};
        CHECK_EQ(0u, zelIfGetApi(r1, ZEL_IF_ATTR_NAME, attrName));
        CHECK_EQ(std::string("r1"), std::string(attrName));

        // A rename is seen once the kernel's event is in, though the answers
        // about the port were asked for (and kept) just before.
        CHECK_EQ(0, lt::sh("ip link set r1 name r3"));
        for (int i = 0; i < 200; i++) {
            CHECK_EQ(0u, zelIfGetApi(r1, ZEL_IF_ATTR_NAME, attrName));
            if (std::string(attrName) == "r3") break;
            ::usleep(10000);
        }
        CHECK_EQ(std::string("r3"), std::string(attrName));
        uint32_t type = 0;
        CHECK_EQ(0u, zelIfGetApi(r1, ZEL_IF_ATTR_TYPE, &type));
        CHECK_EQ(0u, zelIndexTrans(r1, ZEL_INDEX_TRANS_PHYINFO, &phy));
        CHECK_EQ(ZEL_OND_ETH, phy.ondType);

        CHECK_EQ(0, lt::sh("ip link del r3"));
        CHECK_TRUE(waitMsg(fd, [&](const auto& m) { return be16(m, 4) == DELLINK && be32(m, 28) == r1; }));
        CHECK_TRUE(zelIndexTrans(r1, ZEL_INDEX_TRANS_PHYINFO, &phy) != 0);
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

TEST_F(RouteEventsTest, JoiningAndLeavingAnAggregate) {
    auto r = lt::runChild(ns_->name(), env(), [] {
        int32_t fd = openRouteSocket();
        // No bonding here: a bridge configured as an Ethernet aggregate stands in.
        CHECK_EQ(0, lt::sh("ip link add agg1 type bridge && ip link add m1 type veth peer name m2"));
        uint32_t agg = if_nametoindex("agg1");
        uint32_t m1 = if_nametoindex("m1");
        CHECK_TRUE(waitMsg(fd, [&](const auto& m) { return be16(m, 4) == NEWLINK && be32(m, 28) == m1; }));
        uint32_t flags = 0;
        CHECK_EQ(0u, zelIfGetApi(agg, ZEL_IF_ATTR_FLAGS, &flags));
        CHECK_EQ(ZEL_IF_FLAG_AGG_EMPTY, flags);

        CHECK_EQ(0, lt::sh("ip link set m1 master agg1"));
        CHECK_TRUE(waitMsg(fd, [&](const auto& m) {
            return be16(m, 4) == NEWLINK && be32(m, 28) == m1 && be32(m, 36) != 0xFFFFFFFF &&
                   hasAttr(m, 0x34, agg);
        }));
        CHECK_EQ(0u, zelIfGetApi(m1, ZEL_IF_ATTR_FLAGS, &flags));
        CHECK_EQ(ZEL_IF_FLAG_AGG_MEMBER, flags);
        CHECK_EQ(0u, zelIfGetApi(agg, ZEL_IF_ATTR_FLAGS, &flags));
        CHECK_EQ(0u, flags);
        tZelPhyInfo phy{};
        CHECK_EQ(0u, zelIndexTrans(agg, ZEL_INDEX_TRANS_PHYINFO, &phy));
        CHECK_EQ(ZEL_OND_ETH_AGG, phy.ondType);
        CHECK_EQ(1u, phy.aggNo);

        CHECK_EQ(0, lt::sh("ip link set m1 nomaster"));
        CHECK_TRUE(waitMsg(fd, [&](const auto& m) {
            return be16(m, 4) == NEWLINK && be32(m, 28) == m1 && hasAttr(m, 0x35, agg);
        }));
        CHECK_EQ(0u, zelIfGetApi(m1, ZEL_IF_ATTR_FLAGS, &flags));
        CHECK_EQ(0u, flags);

        // A plain bridge is no aggregate: joining it says nothing.
        CHECK_EQ(0, lt::sh("ip link add br9 type bridge && ip link set m1 master br9 && ip link add mgmt0 type veth peer name mgmt0p"));
        uint32_t mgmt = if_nametoindex("mgmt0");
        CHECK_TRUE(waitMsg(fd, [&](const auto& m) { return be16(m, 4) == NEWLINK && be32(m, 28) == mgmt; }));
        CHECK_EQ(0u, zelIfGetApi(mgmt, ZEL_IF_ATTR_FLAGS, &flags));
        CHECK_EQ(ZEL_IF_FLAG_NOT_SUBSCRIBER, flags);  // excluded by platform.exclude
        CHECK_EQ(0u, zelIfGetApi(if_nametoindex("br9"), ZEL_IF_ATTR_FLAGS, &flags));
        CHECK_EQ(ZEL_IF_FLAG_NOT_SUBSCRIBER, flags);
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

TEST_F(RouteEventsTest, InjectedResetEvents) {
    ASSERT_EQ(0, ns_->sh("ip link add e1 type veth peer name e2"));
    std::string root = dir_.path();
    auto r = lt::runChild(ns_->name(), env(), [root] {
        int32_t fd = openRouteSocket();
        uint32_t e1 = if_nametoindex("e1");
        std::string path = root + "/zelRouteEvent.socket";
        CHECK_EQ(path, cmdp::runtimePath(cmdp::EVENT_SOCKET));

        cmdp::EventRequest port;
        port.event = cmdp::EVENT_RESET_PORT;
        port.ifName = "e1";
        cmdp::EventReply reply;
        std::string error;
        CHECK_EQ(0, cmdp::event(path, port, reply, error));
        CHECK_EQ(0, reply.result);
        CHECK_EQ(1u, reply.delivered);
        CHECK_TRUE(waitMsg(fd, [&](const auto& m) { return be16(m, 4) == RESETPORT && be32(m, 28) == e1; }));

        port.ifName.clear();
        port.unit = e1;
        CHECK_EQ(0, cmdp::event(path, port, reply, error));
        CHECK_TRUE(waitMsg(fd, [&](const auto& m) { return be16(m, 4) == RESETPORT && be32(m, 28) == e1; }));

        port.unit = 0;
        port.ifName = "nosuch0";
        CHECK_EQ(0, cmdp::event(path, port, reply, error));
        CHECK_EQ(cmdp::ERR_NOT_FOUND, reply.result);

        cmdp::EventRequest proto;
        proto.event = cmdp::EVENT_RESET_PROTO;
        proto.protos = {141};
        CHECK_EQ(0, cmdp::event(path, proto, reply, error));
        CHECK_EQ(1u, reply.delivered);
        CHECK_TRUE(waitMsg(fd, [&](const auto& m) {
            // Bit 141: byte 36 + 17, mask 0x80 >> 5; nothing else set.
            if (be16(m, 4) != RESETPROTO || m.size() < 36 + 49) return false;
            for (size_t i = 36; i < m.size(); i++)
                if (m[i] != (i == 36 + 17 ? 0x04 : 0)) return false;
            return true;
        }));
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

}  // namespace
