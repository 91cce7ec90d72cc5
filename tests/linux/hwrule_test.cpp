// The hardware rule: nftables bridge rules that stop discovery frames from a
// port being bridged, while the packet socket still sees them.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "lt_netns.h"
#include "platform/ifdb.h"
#include "platform/linux/hwrule.h"
#include "platform/linux/internal.h"
#include "platform/socket.h"
#include "platform/types.h"

namespace {

TEST(HwRuleScript, TableAndElements) {
    std::string t = linuxplat::hwruleTableScript("pppoeplus");
    EXPECT_NE(std::string::npos, t.find("table bridge pppoeplus {"));
    EXPECT_NE(std::string::npos, t.find("set ports { type ifname; }"));
    EXPECT_NE(std::string::npos, t.find("type filter hook forward"));
    EXPECT_NE(std::string::npos, t.find("iifname @ports ether type 0x8863 drop"));
    EXPECT_NE(std::string::npos, t.find("@ll,128,16 0x8863 drop"));
    EXPECT_NE(std::string::npos, t.find("@ll,160,16 0x8863 drop"));
    EXPECT_EQ("add element bridge pppoeplus ports { \"eth1\" }\n",
              linuxplat::hwruleElementScript("pppoeplus", "eth1", true));
    EXPECT_EQ("delete element bridge lab ports { \"eth1\" }\n", linuxplat::hwruleElementScript("lab", "eth1", false));
}

const uint8_t CLIENT[6] = {0x02, 0x00, 0x00, 0x00, 0x0c, 0x01};
const uint8_t SERVER[6] = {0x02, 0x00, 0x00, 0x00, 0x05, 0x01};
const uint8_t BCAST[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

std::vector<uint8_t> frame(const uint8_t dst[6], const uint8_t src[6],
                           const std::vector<std::pair<uint16_t, uint16_t>>& tags, uint16_t type, uint8_t code) {
    std::vector<uint8_t> f(dst, dst + 6);
    f.insert(f.end(), src, src + 6);
    for (auto [tpid, tci] : tags) {
        f.push_back(tpid >> 8);
        f.push_back(tpid & 0xff);
        f.push_back(tci >> 8);
        f.push_back(tci & 0xff);
    }
    f.push_back(type >> 8);
    f.push_back(type & 0xff);
    const uint8_t pppoe[] = {0x11, code, 0x00, 0x00, 0x00, 0x00};
    f.insert(f.end(), pppoe, pppoe + sizeof(pppoe));
    f.resize(60, 0);
    return f;
}

int raw(const char* ifName) {
    int fd = ::socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL));
    struct sockaddr_ll a;
    std::memset(&a, 0, sizeof(a));
    a.sll_family = AF_PACKET;
    a.sll_protocol = htons(ETH_P_ALL);
    a.sll_ifindex = static_cast<int>(if_nametoindex(ifName));
    if (fd < 0 || ::bind(fd, reinterpret_cast<struct sockaddr*>(&a), sizeof(a)) != 0) return -1;
    return fd;
}

// Sends `f` on `out` and says whether a frame from the same source arrives
// on `in` within a short wait.
bool crosses(int out, int in, const std::vector<uint8_t>& f) {
    uint8_t buf[2048];
    while (::recv(in, buf, sizeof(buf), MSG_DONTWAIT) > 0) {
    }
    if (::send(out, f.data(), f.size(), 0) != static_cast<ssize_t>(f.size())) return false;
    for (;;) {
        struct pollfd p = {in, POLLIN, 0};
        if (::poll(&p, 1, 300) <= 0) return false;
        struct sockaddr_ll from;
        socklen_t len = sizeof(from);
        ssize_t n = ::recvfrom(in, buf, sizeof(buf), 0, reinterpret_cast<struct sockaddr*>(&from), &len);
        if (n >= 12 && from.sll_pkttype != PACKET_OUTGOING && std::memcmp(buf + 6, f.data() + 6, 6) == 0) return true;
    }
}

void hwRule(uint32_t unit, bool on) {
    tZelIfProto p{};
    p.protoId = ZEL_PROTO_PPPOEPLUS_HW;
    CHECK_EQ(0u, zelIfSetApi(unit, on ? ZEL_IF_ATTR_PROTO_ON : ZEL_IF_ATTR_PROTO_OFF, &p));
}

class HwRuleTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LT_NEED_NETNS();
        if (lt::sh("command -v nft >/dev/null 2>&1") != 0) GTEST_SKIP() << "the nft tool is not installed (apt-get install nftables)";
        ns_ = std::make_unique<lt::Netns>();
        ASSERT_TRUE(ns_->ok());
        // client c1 -- p1 [bridge br0] p2 -- s2 server
        ASSERT_EQ(0, ns_->sh("ip link add c1 type veth peer name p1 && ip link add s2 type veth peer name p2 && "
                             "ip link add br0 type bridge && ip link set p1 master br0 && ip link set p2 master br0 && "
                             "for i in c1 p1 s2 p2 br0; do ip link set $i up; done"));
    }
    std::unique_ptr<lt::Netns> ns_;
    lt::TempDir dir_;
};

TEST_F(HwRuleTest, DiscoveryFramesFromTheRuledPortAreNotBridged) {
    std::string conf = dir_.file("c.conf", "platform.hwrule = nft\n");
    std::string nsName = ns_->name();
    auto r = lt::runChild(nsName, {"PPPOEPLUS_CONF=" + conf, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir_.path()},
                          [] {
        uint32_t p1 = if_nametoindex("p1");
        int c1 = raw("c1");
        int s2 = raw("s2");
        CHECK_TRUE(c1 >= 0 && s2 >= 0);
        const std::vector<std::vector<std::pair<uint16_t, uint16_t>>> tagSets = {
            {}, {{0x8100, 10}}, {{0x88a8, 20}}, {{0x88a8, 20}, {0x8100, 10}}, {{0x8100, 20}, {0x8100, 10}}};

        // Without the rule everything is bridged.
        for (const auto& tags : tagSets) CHECK_TRUE(crosses(c1, s2, frame(BCAST, CLIENT, tags, 0x8863, 0x09)));

        // The platform's packet socket, trapping p1.
        int32_t fd = zel_socket(ZEL_AF_PACKET, ZEL_SOCK_DGRAM, ZEL_ETH_P_PPPOE_DISC);
        int32_t one = 1;
        CHECK_EQ(0, zel_setsockopt(fd, ZEL_SOL_PACKET, ZEL_RX_PKTINFO, &one, 4));
        tZelIfProto trap{};
        trap.protoId = ZEL_PROTO_PPPOEPLUS;
        CHECK_EQ(0u, zelIfSetApi(p1, ZEL_IF_ATTR_PROTO_ON, &trap));

        hwRule(p1, true);
        CHECK_TRUE(lt::shOut("nft list set bridge pppoeplus ports").find("\"p1\"") != std::string::npos);
        for (const auto& tags : tagSets) {
            CHECK_TRUE(!crosses(c1, s2, frame(BCAST, CLIENT, tags, 0x8863, 0x09)));
            // ... but the agent sees it.
            zel_fd_set set;
            ZEL_FD_ZERO(&set);
            ZEL_FD_SET(fd, &set);
            zel_timeval tv = {1, 0};
            CHECK_EQ(1, zel_select(fd + 1, &set, nullptr, nullptr, &tv));
            uint8_t buf[1400];
            zel_iovec iov = {buf, sizeof(buf)};
            zel_msghdr m{};
            m.msg_iov = &iov;
            m.msg_iovlen = 1;
            CHECK_TRUE(zel_recvmsg(fd, &m, 0) > 0);
        }
        // Session frames and other traffic go through; so do the server's replies.
        CHECK_TRUE(crosses(c1, s2, frame(SERVER, CLIENT, {}, 0x8864, 0x00)));
        CHECK_TRUE(crosses(c1, s2, frame(SERVER, CLIENT, {{0x8100, 10}}, 0x8864, 0x00)));
        CHECK_TRUE(crosses(s2, c1, frame(CLIENT, SERVER, {}, 0x8863, 0x07)));
        CHECK_TRUE(crosses(s2, c1, frame(CLIENT, SERVER, {{0x8100, 10}}, 0x8863, 0x65)));

        // Switching it on twice is harmless; off lets discovery through again.
        hwRule(p1, true);
        hwRule(p1, false);
        hwRule(p1, false);
        for (const auto& tags : tagSets) CHECK_TRUE(crosses(c1, s2, frame(BCAST, CLIENT, tags, 0x8863, 0x09)));
        CHECK_TRUE(lt::shOut("nft list set bridge pppoeplus ports").find("\"p1\"") == std::string::npos);

        // The process's end leaves the rule in place, and rules switched
        // after it change nothing.
        hwRule(p1, true);
        linuxplat::platformCleanup();
        hwRule(p1, false);
        CHECK_TRUE(lt::shOut("nft list set bridge pppoeplus ports").find("\"p1\"") != std::string::npos);
        CHECK_TRUE(!crosses(c1, s2, frame(BCAST, CLIENT, {}, 0x8863, 0x09)));
    });
    EXPECT_TRUE(r.ok()) << r.failures;
    EXPECT_NE("", ns_->out("nft list table bridge pppoeplus"));
}

TEST_F(HwRuleTest, ADeletedPortTakesItsRuleAlongAndAStaleTableIsReplaced) {
    // A table left by an earlier run, with a port in it.
    ASSERT_EQ(0, ns_->sh("nft add table bridge pppoeplus && nft add set bridge pppoeplus ports \"{ type ifname; }\" && "
                         "nft add element bridge pppoeplus ports \"{ \\\"old1\\\" }\""));
    std::string conf = dir_.file("c.conf", "");
    auto r = lt::runChild(ns_->name(), {"PPPOEPLUS_CONF=" + conf, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir_.path()},
                          [] {
        CHECK_TRUE(linuxplat::hwruleEnabled());
        uint32_t p1 = if_nametoindex("p1");
        hwRule(p1, true);
        std::string set = lt::shOut("nft list set bridge pppoeplus ports");
        CHECK_TRUE(set.find("\"p1\"") != std::string::npos);
        CHECK_TRUE(set.find("old1") == std::string::npos);
        // The route socket's thread follows the deletion.
        int32_t rt = zel_socket(ZEL_AF_ROUTE, ZEL_SOCK_DGRAM, 0);
        CHECK_TRUE(rt > 0);
        CHECK_EQ(0, lt::sh("ip link del c1"));
        bool gone = false;
        for (int i = 0; i < 50 && !gone; i++) {
            ::usleep(50000);
            gone = lt::shOut("nft list set bridge pppoeplus ports").find("\"p1\"") == std::string::npos;
        }
        CHECK_TRUE(gone);
        // Switching off what vanished is no error.
        hwRule(p1, false);
        linuxplat::platformCleanup();
    });
    EXPECT_TRUE(r.ok()) << r.failures;
    // The table stays after the process, without the stale port.
    std::string table = ns_->out("nft list table bridge pppoeplus");
    EXPECT_NE(std::string::npos, table.find("set ports")) << table;
    EXPECT_EQ(std::string::npos, table.find("old1")) << table;
}

// Ports in a namespace, their rules switched one by one: all of them reach
// the set and leave it again, and what one change costs is printed.
TEST(HwRuleCost, PerPortSwitching) {
    LT_NEED_NETNS();
    if (lt::sh("command -v nft >/dev/null 2>&1") != 0) GTEST_SKIP() << "the nft tool is not installed (apt-get install nftables)";
    constexpr int PORTS = 20;
    lt::Netns ns;
    ASSERT_TRUE(ns.ok());
    ASSERT_EQ(0, ns.sh("for i in $(seq 1 " + std::to_string(PORTS) + "); do ip link add c$i type veth peer name p$i; done"));
    lt::TempDir dir;
    std::string conf = dir.file("c.conf", "platform.hwrule = nft\n");
    std::string figures = dir.path() + "/figures";
    auto r = lt::runChild(ns.name(), {"PPPOEPLUS_CONF=" + conf, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir.path()},
                          [figures] {
        using Clock = std::chrono::steady_clock;
        auto t0 = Clock::now();
        for (int i = 1; i <= PORTS; i++) CHECK_EQ(0, linuxplat::hwruleSet("p" + std::to_string(i), true));
        auto t1 = Clock::now();
        std::string set = lt::shOut("nft list set bridge pppoeplus ports");
        for (int i = 1; i <= PORTS; i++) CHECK_TRUE(set.find("\"p" + std::to_string(i) + "\"") != std::string::npos);
        auto t2 = Clock::now();
        for (int i = 1; i <= PORTS; i++) CHECK_EQ(0, linuxplat::hwruleSet("p" + std::to_string(i), false));
        auto t3 = Clock::now();
        CHECK_TRUE(lt::shOut("nft list set bridge pppoeplus ports").find("\"p") == std::string::npos);
        auto us = [](Clock::duration d) { return std::chrono::duration_cast<std::chrono::microseconds>(d).count(); };
        std::ofstream(figures) << us(t1 - t0) / PORTS << " " << us(t3 - t2) / PORTS << "\n";
        linuxplat::platformCleanup();
    }, 120);
    EXPECT_TRUE(r.ok()) << r.failures;
    long on = 0;
    long off = 0;
    std::ifstream(figures) >> on >> off;
    EXPECT_GT(on, 0);
    std::printf("hardware rule, %d ports one by one: %ld us per port on, %ld us per port off\n", PORTS, on, off);
}

}  // namespace
