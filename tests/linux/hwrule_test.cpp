// The hardware rule: nftables bridge rules that stop discovery frames from a
// port being bridged, while the packet socket still sees them.
#include <arpa/inet.h>
#include <cap-ng.h>
#include <libmnl/libmnl.h>
#include <linux/capability.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "agent_lab.h"
#include "lt_netns.h"
#include "platform/ifdb.h"
#include "platform/linux/hwrule.h"
#include "platform/linux/internal.h"
#include "platform/os.h"
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
    EXPECT_EQ("add element bridge lab ports { \"p1\", \"p2\", \"p3\" }\n",
              linuxplat::hwruleElementsScript("lab", {"p1", "p2", "p3"}, true));
    EXPECT_EQ("delete element bridge lab ports { \"p1\", \"p2\" }\n",
              linuxplat::hwruleElementsScript("lab", {"p1", "p2"}, false));
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

// The ruleset generation of this network namespace (NFT_MSG_GETGEN): every
// committed nftables transaction advances it by one. 0 when it cannot be read.
uint32_t nftGeneration() {
    struct mnl_socket* nl = mnl_socket_open(NETLINK_NETFILTER);
    if (nl == nullptr) return 0;
    uint32_t gen = 0;
    if (mnl_socket_bind(nl, 0, MNL_SOCKET_AUTOPID) == 0) {
        std::vector<uint8_t> buf(MNL_SOCKET_BUFFER_SIZE);
        struct nlmsghdr* nlh = mnl_nlmsg_put_header(buf.data());
        nlh->nlmsg_type = (NFNL_SUBSYS_NFTABLES << 8) | NFT_MSG_GETGEN;
        nlh->nlmsg_flags = NLM_F_REQUEST;
        nlh->nlmsg_seq = 1;
        auto* nfg = static_cast<struct nfgenmsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(struct nfgenmsg)));
        nfg->nfgen_family = AF_UNSPEC;
        nfg->version = NFNETLINK_V0;
        if (mnl_socket_sendto(nl, nlh, nlh->nlmsg_len) >= 0) {
            ssize_t n = mnl_socket_recvfrom(nl, buf.data(), buf.size());
            if (n > 0) {
                mnl_cb_run(
                    buf.data(), static_cast<size_t>(n), 1, mnl_socket_get_portid(nl),
                    [](const struct nlmsghdr* m, void* data) -> int {
                        return mnl_attr_parse(
                            m, sizeof(struct nfgenmsg),
                            [](const struct nlattr* a, void* d) -> int {
                                if (mnl_attr_get_type(a) == NFTA_GEN_ID && mnl_attr_validate(a, MNL_TYPE_U32) == 0)
                                    *static_cast<uint32_t*>(d) = ntohl(mnl_attr_get_u32(a));
                                return MNL_CB_OK;
                            },
                            data);
                    },
                    &gen);
            }
        }
    }
    mnl_socket_close(nl);
    return gen;
}

// The names in the hardware rule's set, as the nft tool lists them.
std::vector<std::string> setNames() {
    std::string out = lt::shOut("nft list set bridge pppoeplus ports 2>/dev/null");
    std::vector<std::string> names;
    for (size_t at = out.find('"'); at != std::string::npos; at = out.find('"', at)) {
        size_t end = out.find('"', at + 1);
        if (end == std::string::npos) break;
        names.push_back(out.substr(at + 1, end - at - 1));
        at = end + 1;
    }
    return names;
}

std::vector<std::string> portNames(int from, int to) {
    std::vector<std::string> names;
    for (int i = from; i <= to; i++) names.push_back("p" + std::to_string(i));
    return names;
}

// An agent switched on with 180 ports: their rules go in with one call, in
// one transaction, and go out the same way; bad input changes nothing.
TEST(HwRuleBatch, ManyPortsInOneTransaction) {
    LT_NEED_NETNS();
    if (lt::sh("command -v nft >/dev/null 2>&1") != 0) GTEST_SKIP() << "the nft tool is not installed (apt-get install nftables)";
    constexpr int PORTS = 180;
    lt::Netns ns;
    ASSERT_TRUE(ns.ok());
    lt::TempDir dir;
    std::string batch = dir.file("links.batch", [] {
        std::string b;
        for (int i = 1; i <= PORTS; i++) b += "link add c" + std::to_string(i) + " type veth peer name p" + std::to_string(i) + "\n";
        return b;
    }());
    ASSERT_EQ(0, ns.sh("ip -batch " + batch));
    {
        std::istringstream links(ns.out("ip -o link show type veth"));
        int ports = 0;
        for (std::string line; std::getline(links, line);)
            if (line.find(": p") != std::string::npos && line.find(": p") < line.find('@')) ports++;
        ASSERT_EQ(PORTS, ports);
    }
    std::string conf = dir.file("c.conf", "platform.hwrule = nft\n");
    std::string figures = dir.path() + "/figures";
    auto r = lt::runChild(ns.name(), {"PPPOEPLUS_CONF=" + conf, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir.path()},
                          [figures] {
        using Clock = std::chrono::steady_clock;
        auto us = [](Clock::duration d) { return static_cast<long>(std::chrono::duration_cast<std::chrono::microseconds>(d).count()); };
        const std::vector<std::string> all = portNames(1, PORTS);
        uint32_t g0 = nftGeneration();
        CHECK_TRUE(g0 != 0);

        // Bad input refuses the call before anything changes.
        CHECK_EQ(int(ZEL_ERR_INVALID_ARG), linuxplat::hwruleSetMany({"p1", "bad\"name"}, true));
        CHECK_EQ(int(ZEL_ERR_INVALID_ARG), linuxplat::hwruleSetMany({"p1", "sixteen-chars-xx"}, true));
        CHECK_EQ(int(ZEL_ERR_INVALID_ARG), linuxplat::hwruleSetMany({"p1", ""}, true));
        CHECK_EQ(0, linuxplat::hwruleSetMany({}, true));
        CHECK_EQ(g0, nftGeneration());

        // First use: the table and every port in one transaction.
        auto t0 = Clock::now();
        CHECK_EQ(0, linuxplat::hwruleSetMany(all, true));
        auto t1 = Clock::now();
        CHECK_EQ(g0 + 1, nftGeneration());
        CHECK_EQ(size_t(PORTS), setNames().size());
        std::vector<std::string> listed = setNames();
        for (const auto& n : all) CHECK_TRUE(std::find(listed.begin(), listed.end(), n) != listed.end());

        // Off for all of them: one transaction again.
        auto t2 = Clock::now();
        CHECK_EQ(0, linuxplat::hwruleSetMany(all, false));
        auto t3 = Clock::now();
        CHECK_EQ(g0 + 2, nftGeneration());
        CHECK_EQ(size_t(0), setNames().size());

        // On again, the table being there; duplicates count once.
        std::vector<std::string> twice = all;
        twice.insert(twice.end(), all.begin(), all.begin() + 10);
        auto t4 = Clock::now();
        CHECK_EQ(0, linuxplat::hwruleSetMany(twice, true));
        auto t5 = Clock::now();
        CHECK_EQ(g0 + 3, nftGeneration());
        CHECK_EQ(size_t(PORTS), setNames().size());

        // Switching off a list with a name not in the set fails as a whole:
        // nothing is removed.
        CHECK_EQ(0, linuxplat::hwruleSet("p1", false));
        uint32_t g1 = nftGeneration();
        CHECK_EQ(int(ZEL_ERR_GENERAL), linuxplat::hwruleSetMany(portNames(1, 20), false));
        CHECK_EQ(g1, nftGeneration());
        CHECK_EQ(size_t(PORTS - 1), setNames().size());

        // The same ports one call each, for comparison: one transaction per port.
        CHECK_EQ(0, linuxplat::hwruleSetMany(portNames(2, PORTS), false));
        uint32_t g2 = nftGeneration();
        auto t6 = Clock::now();
        for (const auto& n : all) CHECK_EQ(0, linuxplat::hwruleSet(n, true));
        auto t7 = Clock::now();
        CHECK_EQ(g2 + PORTS, nftGeneration());
        CHECK_EQ(size_t(PORTS), setNames().size());

        std::ofstream(figures) << us(t1 - t0) << " " << us(t3 - t2) << " " << us(t5 - t4) << " " << us(t7 - t6) << "\n";
        linuxplat::platformCleanup();
    }, 120);
    EXPECT_TRUE(r.ok()) << r.failures;
    long first = 0, off = 0, on = 0, single = 0;
    std::ifstream(figures) >> first >> off >> on >> single;
    EXPECT_GT(first, 0);
    std::printf("hardware rule, %d ports in one call: %ld us on with the table's load, %ld us off, %ld us on again; "
                "one call per port: %ld us\n",
                PORTS, first, off, on, single);
}

// The rules load in process: with the nft tool out of reach (hidden in a
// mount namespace of this child) they still go in.
TEST(HwRuleInProcess, NoNftToolIsRun) {
    LT_NEED_NETNS();
    if (lt::sh("command -v nft >/dev/null 2>&1") != 0) GTEST_SKIP() << "the nft tool is not installed (apt-get install nftables)";
    lt::Netns ns;
    ASSERT_TRUE(ns.ok());
    ASSERT_EQ(0, ns.sh("ip link add c1 type veth peer name p1"));
    lt::TempDir dir;
    std::string conf = dir.file("c.conf", "");
    auto r = lt::runChild(ns.name(), {"PPPOEPLUS_CONF=" + conf, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir.path(), "PATH=/nonexistent"},
                          [] {
        CHECK_EQ(0, ::unshare(CLONE_NEWNS));
        CHECK_EQ(0, ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr));
        for (const char* tool : {"/usr/sbin/nft", "/sbin/nft", "/usr/bin/nft"})
            if (::access(tool, F_OK) == 0) CHECK_EQ(0, ::mount("/dev/null", tool, nullptr, MS_BIND, nullptr));
        CHECK_TRUE(linuxplat::hwruleEnabled());
        CHECK_EQ(0, linuxplat::hwruleSet("p1", true));
        CHECK_EQ(0, linuxplat::hwruleSetMany({"p2", "p3"}, true));
        linuxplat::platformCleanup();
    });
    EXPECT_TRUE(r.ok()) << r.failures;
    std::string set = ns.out("nft list set bridge pppoeplus ports");
    for (const char* n : {"\"p1\"", "\"p2\"", "\"p3\""}) EXPECT_NE(std::string::npos, set.find(n)) << set;
}

// platform.hwrule = auto means "where nftables works": without CAP_NET_ADMIN
// it does not, and the platform runs without rules; nft requires them, and
// every attempt fails and says so.
TEST(HwRuleInProcess, AutoIsOffWhereNftablesDoesNotWork) {
    LT_NEED_NETNS();
    lt::Netns ns;
    ASSERT_TRUE(ns.ok());
    lt::TempDir dir;
    for (const char* mode : {"auto", "nft"}) {
        std::string conf = dir.file(std::string(mode) + ".conf", std::string("platform.hwrule = ") + mode + "\n");
        bool required = std::string(mode) == "nft";
        auto r = lt::runChild(ns.name(), {"PPPOEPLUS_CONF=" + conf, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir.path()},
                              [required] {
            CHECK_EQ(0, capng_get_caps_process());
            CHECK_EQ(0, capng_update(CAPNG_DROP, static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED),
                                     CAP_NET_ADMIN));
            CHECK_EQ(0, capng_apply(CAPNG_SELECT_CAPS));
            CHECK_EQ(required, linuxplat::hwruleEnabled());
            CHECK_EQ(required ? int(ZEL_ERR_UNSUPPORTED) : 0, linuxplat::hwruleSet("p1", true));
            CHECK_EQ(required ? int(ZEL_ERR_UNSUPPORTED) : 0, linuxplat::hwruleSetMany({"p1", "p2"}, true));
            linuxplat::platformCleanup();
        });
        EXPECT_TRUE(r.ok()) << mode << ": " << r.failures;
    }
    EXPECT_EQ("", ns.out("nft list tables 2>/dev/null"));
}

}  // namespace

// The generation of the ruleset of namespace `ns`, read from a child in it.
uint32_t nsGeneration(const lt::Netns& ns, const std::string& dir) {
    std::string file = dir + "/generation";
    auto r = lt::runChild(ns.name(), {}, [file] { std::ofstream(file) << nftGeneration() << "\n"; });
    uint32_t gen = 0;
    std::ifstream(file) >> gen;
    return r.ok() ? gen : 0;
}

std::vector<std::string> nsSetNames(const lt::Netns& ns) {
    std::string out = ns.out("nft list set bridge pppoeplus ports 2>/dev/null");
    std::vector<std::string> names;
    for (size_t at = out.find('"'); at != std::string::npos; at = out.find('"', at)) {
        size_t end = out.find('"', at + 1);
        if (end == std::string::npos) break;
        names.push_back(out.substr(at + 1, end - at - 1));
        at = end + 1;
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Switching the agent on with 180 served ports, through the daemon's command
// service: their rules go in in ONE transaction, not one per port while the
// daemon holds its lock; switching it off takes them all out, again in one,
// and leaves the table.
TEST(HwRuleGather, EnableRulesAllPortsInOneTransaction) {
    LT_NEED_NETNS();
    if (lt::sh("command -v nft >/dev/null 2>&1") != 0) GTEST_SKIP() << "the nft tool is not installed (apt-get install nftables)";
    constexpr int PORTS = 180;
    lt::AgentLab lab(PORTS, 0, "platform.hwrule = nft\npppoeplus.defaultenable = false\n");
    ASSERT_TRUE(lab.ok()) << lab.why();
    lt::TempDir dir;
    std::vector<std::string> clients;
    for (int i = 1; i <= PORTS; i++) clients.push_back("c" + std::to_string(i));
    std::sort(clients.begin(), clients.end());

    for (int round = 1; round <= 2; round++) {
        SCOPED_TRACE("round " + std::to_string(round));
        // On: every port's rule in one transaction.
        uint32_t g0 = nsGeneration(lab.ns(), dir.path());
        ASSERT_NE(0u, g0);
        auto t0 = std::chrono::steady_clock::now();
        ASSERT_EQ(0, lab.scalarSet(3, 1));
        auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
        uint32_t g1 = nsGeneration(lab.ns(), dir.path());
        EXPECT_EQ(g0 + 1, g1) << "one transaction for " << PORTS << " ports";
        EXPECT_EQ(clients, nsSetNames(lab.ns()));
        EXPECT_EQ(uint32_t(PORTS), lab.entries());
        std::printf("set enable on with %d ports: %lld ms, %u transaction(s)\n", PORTS, static_cast<long long>(ms),
                    g1 - g0);

        // Off: every rule goes, in one transaction; the table stays.
        ASSERT_EQ(0, lab.scalarSet(3, 2));
        EXPECT_EQ(g1 + 1, nsGeneration(lab.ns(), dir.path()));
        EXPECT_TRUE(nsSetNames(lab.ns()).empty());
        EXPECT_NE("", lab.ns().out("nft list table bridge pppoeplus 2>/dev/null"));
        EXPECT_EQ(0u, lab.entries());
    }

    // A port made trusted (an uplink) loses its rule; the others keep theirs.
    ASSERT_EQ(0, lab.scalarSet(3, 1));
    EXPECT_EQ(0, lab.ifSet(lab.unit("c7"), 1, 1));
    std::vector<std::string> rest = clients;
    rest.erase(std::find(rest.begin(), rest.end(), "c7"));
    EXPECT_EQ(rest, nsSetNames(lab.ns()));
    EXPECT_TRUE(lab.alive());
    EXPECT_EQ("", lab.sanitizerReports());
}

// Rules switched while a thread holds a semaphore of the platform (the
// daemon's lock) are gathered and go in in one transaction when it lets go;
// when that transaction fails, they go in one by one, and a port whose rule
// cannot go in at all is marked as without it, never counted as ruled.
TEST(HwRuleGather, AFailedTransactionFailsClosed) {
    LT_NEED_NETNS();
    if (lt::sh("command -v nft >/dev/null 2>&1") != 0) GTEST_SKIP() << "the nft tool is not installed (apt-get install nftables)";
    lt::Netns ns;
    ASSERT_TRUE(ns.ok());
    ASSERT_EQ(0, ns.sh("for i in $(seq 1 20); do ip link add c$i type veth peer name p$i; done"));
    lt::TempDir dir;
    std::string conf = dir.file("c.conf", "platform.hwrule = nft\n");
    auto r = lt::runChild(ns.name(), {"PPPOEPLUS_CONF=" + conf, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir.path()},
                          [] {
        auto unit = [](int i) { return static_cast<uint32_t>(if_nametoindex(("p" + std::to_string(i)).c_str())); };
        auto has = [](int i) {
            std::vector<std::string> names = setNames();
            return std::find(names.begin(), names.end(), "p" + std::to_string(i)) != names.end();
        };
        uint32_t sem = silCreateMSem(SIL_SEM_INVERSION_SAFE);
        CHECK_TRUE(sem != 0);
        uint32_t g0 = nftGeneration();
        CHECK_TRUE(g0 != 0);

        // Gathered under the lock, taken twice (it is recursive): nothing
        // goes in before the last give, then all in one transaction.
        CHECK_EQ(0u, silTakeSem(sem, SIL_WAIT_FOREVER));
        CHECK_EQ(0u, silTakeSem(sem, SIL_WAIT_FOREVER));
        for (int i = 1; i <= 10; i++) hwRule(unit(i), true);
        CHECK_EQ(g0, nftGeneration());
        CHECK_EQ(0u, silGiveSem(sem));
        CHECK_EQ(g0, nftGeneration());
        CHECK_EQ(0u, silGiveSem(sem));
        CHECK_EQ(g0 + 1, nftGeneration());
        CHECK_EQ(size_t(10), setNames().size());
        // Letting go of a semaphore not held is refused and loads nothing.
        CHECK_EQ(uint32_t(ZEL_ERR_GENERAL), silGiveSem(sem));

        // p3's name taken out behind the daemon's back: the batch that
        // removes it fails as a whole, and its adds still go in one by one.
        CHECK_EQ(0, lt::sh("nft delete element bridge pppoeplus ports '{ \"p3\" }'"));
        CHECK_EQ(0u, silTakeSem(sem, SIL_WAIT_FOREVER));
        hwRule(unit(3), false);
        for (int i = 11; i <= 15; i++) hwRule(unit(i), true);
        CHECK_EQ(0u, silGiveSem(sem));
        for (int i = 1; i <= 15; i++) CHECK_EQ(i != 3, has(i));

        // The table gone behind its back: nothing can go in. The ports are
        // served (trapped) and marked as without their rule, not as ruled.
        size_t served = 0, unruled = 0;
        linuxplat::ifdbServedCounts(served, unruled);
        CHECK_EQ(size_t(0), unruled);
        CHECK_EQ(0, lt::sh("nft delete table bridge pppoeplus"));
        CHECK_EQ(0u, silTakeSem(sem, SIL_WAIT_FOREVER));
        for (int i = 16; i <= 20; i++) {
            tZelIfProto trap{};
            trap.protoId = ZEL_PROTO_PPPOEPLUS;
            CHECK_EQ(0u, zelIfSetApi(unit(i), ZEL_IF_ATTR_PROTO_ON, &trap));
            hwRule(unit(i), true);
        }
        CHECK_EQ(0u, silGiveSem(sem));
        linuxplat::ifdbServedCounts(served, unruled);
        CHECK_EQ(size_t(5), served);
        CHECK_EQ(size_t(5), unruled);

        // Outside any lock a change goes in at once, as before: p16 once
        // the set is back.
        CHECK_EQ(0, lt::sh("nft add table bridge pppoeplus && nft add set bridge pppoeplus ports '{ type ifname; }'"));
        uint32_t g1 = nftGeneration();
        hwRule(unit(16), true);
        CHECK_EQ(g1 + 1, nftGeneration());
        CHECK_TRUE(has(16));
        linuxplat::ifdbServedCounts(served, unruled);
        CHECK_EQ(size_t(4), unruled);
        linuxplat::platformCleanup();
    }, 120);
    EXPECT_TRUE(r.ok()) << r.failures;
}
