// pppoeplusd itself in a network namespace: it starts from a configuration
// file, serves its command service and shell, puts its hardware rules in
// place, and leaves only those behind when it is stopped; a start-up that fails
// ends with status -1 and says why.
#include <arpa/inet.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "lt_netns.h"
#include "platform/linux/cmd_proto.h"
#include "platform/types.h"

#ifndef PPPOEPLUSD_PATH
#error "PPPOEPLUSD_PATH names the daemon binary"
#endif

namespace {

using lt::contains;

using lt::eventually;

class DaemonTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LT_NEED_NETNS();
        ns_ = std::make_unique<lt::Netns>();
        ASSERT_TRUE(ns_->ok());
        ASSERT_EQ(0, ns_->sh("ip link add d1 type veth peer name d2 && ip link set d1 up && ip link set d2 up"));
        log_ = dir_.path() + "/stderr.txt";
    }
    void TearDown() override {
        if (daemon_.pid > 0 && lt::waitFor(daemon_.pid, 0) == -1) {
            ::kill(daemon_.pid, SIGKILL);
            lt::waitFor(daemon_.pid, 5000);
        }
    }

    void start(const std::string& conf) {
        daemon_ = lt::spawn({"ip", "netns", "exec", ns_->name(), PPPOEPLUSD_PATH},
                            {"PPPOEPLUS_CONF=" + conf, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir_.path()}, log_);
    }

    // client c1 -- p1 [bridge br0] p2 -- s2 server side; the agent serves p1
    // and p2 and trusts p2, the uplink. `cmd` is the command socket.
    void bridgeLab(const std::string& extraConf, std::string& cmd) {
        ASSERT_EQ(0, ns_->sh("ip link add c1 type veth peer name p1 && ip link add s2 type veth peer name p2 && "
                             "ip link add br0 type bridge && ip link set p1 master br0 && ip link set p2 master br0 && "
                             "for i in c1 p1 s2 p2 br0; do ip link set $i up; done"));
        std::string conf = dir_.file("pppoeplus.conf",
                                     "pppoeplus.defaultenable = true\n"
                                     "pppoeplus.defaultportenable = true\n"
                                     "platform.exclude = c1 s2 d1 d2\n" +
                                         extraConf);
        start(conf);
        cmd = dir_.path() + "/pppoeplusNm.socket";
        ASSERT_TRUE(lt::waitForPath(cmd, 10000)) << lt::readFile(log_);
        ASSERT_TRUE(eventually([&] {
            std::string set = ns_->out("nft list set bridge pppoeplus ports 2>/dev/null");
            return contains(set, "\"p1\"") && contains(set, "\"p2\"");
        })) << lt::readFile(log_);

        uint32_t p2 = static_cast<uint32_t>(std::stoul(ns_->out("cat /sys/class/net/p2/ifindex")));
        cmdp::CallRequest trust;
        trust.code = 7;  // interface set
        trust.unit = p2;
        trust.cmd = 1;  // trust
        trust.valueKind = cmdp::VALUE_U32;
        trust.lenWord = 1;  // true
        cmdp::CallReply reply;
        std::string error;
        ASSERT_EQ(0, cmdp::call(cmd, trust, reply, error)) << error;
        ASSERT_EQ(0, reply.result);
        // A trusted port loses its hardware rule: server replies pass the bridge.
        EXPECT_TRUE(eventually([&] {
            return !contains(ns_->out("nft list set bridge pppoeplus ports 2>/dev/null"), "\"p2\"");
        }));
    }

    std::unique_ptr<lt::Netns> ns_;
    lt::TempDir dir_;
    std::string log_;
    lt::Process daemon_;
};

TEST_F(DaemonTest, StartsFromItsConfigurationServesAndStopsCleanly) {
    bool nft = lt::sh("command -v nft >/dev/null 2>&1") == 0;
    std::string conf = dir_.file("pppoeplus.conf",
                                 "# lab\n"
                                 "pppoeplus.defaultenable = true\n"
                                 "pppoeplus.defaultportenable = true\n"
                                 "port.d2 = kind=eth slot=1 port=2\n"
                                 "this line is wrong\n");
    start(conf);
    std::string cmd = dir_.path() + "/pppoeplusNm.socket";
    std::string shell = dir_.path() + "/pppoeplusShell.socket";
    ASSERT_TRUE(lt::waitForPath(cmd, 10000)) << lt::readFile(log_);
    ASSERT_TRUE(lt::waitForPath(shell, 1000));
    ASSERT_TRUE(eventually([&] { return contains(lt::readFile(log_), "pppoeplusd running"); })) << lt::readFile(log_);
    std::string log = lt::readFile(log_);
    EXPECT_TRUE(contains(log, "pppoeplusd starting")) << log;
    EXPECT_TRUE(contains(log, "configuration: " + conf)) << log;
    EXPECT_TRUE(contains(log, conf + ":5: expected 'key = value', ignored")) << log;

    // Every port of the namespace was announced and, all ports being on by
    // default, got its hardware rule.
    if (nft) {
        EXPECT_TRUE(eventually([&] {
            std::string set = ns_->out("nft list set bridge pppoeplus ports 2>/dev/null");
            return contains(set, "\"d1\"") && contains(set, "\"d2\"");
        })) << ns_->out("nft list ruleset");
    }

    // The command service answers with a reply of the call's kind.
    cmdp::CallRequest req;
    req.code = 1;
    req.cmd = 10;  // the default vendor id
    req.valueKind = cmdp::VALUE_U32;
    cmdp::CallReply reply;
    std::string error;
    ASSERT_EQ(0, cmdp::call(cmd, req, reply, error)) << error;
    if (reply.result == 0) EXPECT_EQ(3561u, reply.lenWord);
    else EXPECT_EQ(cmdp::ERR_UNSUPPORTED, reply.result) << "a row without its entry point yet";

    // A request that lies about its length is refused; the daemon goes on serving.
    int fd = cmdp::connectTo(cmd);
    ASSERT_GE(fd, 0);
    std::vector<uint8_t> lie = cmdp::callRequestEncode(req, 2);
    lie[4] = 0x7F;
    ASSERT_TRUE(cmdp::writeAll(fd, lie));
    cmdp::Frame f;
    ASSERT_EQ(0, cmdp::readFrame(fd, cmdp::MAX_REPLY_BODY, 5000, f));
    EXPECT_EQ(cmdp::KIND_ERROR, f.header.kind);
    ::close(fd);
    cmdp::CallReply again;
    ASSERT_EQ(0, cmdp::call(cmd, req, again, error)) << error;
    EXPECT_EQ(reply.result, again.result);

    // The shell reaches the daemon's own test switch and refuses the rest.
    cmdp::ShellRequest sreq;
    sreq.name = "gPppoeplusTestForward";
    cmdp::ShellReply sreply;
    ASSERT_EQ(0, cmdp::shell(shell, sreq, sreply, error)) << error;
    EXPECT_EQ(0, sreply.status) << sreply.output;
    EXPECT_EQ(0, sreply.result);
    sreq.name = "system";
    ASSERT_EQ(0, cmdp::shell(shell, sreq, sreply, error));
    EXPECT_EQ(cmdp::ERR_DENIED, sreply.status);
    sreq.name = "pppoeplusShow";
    ASSERT_EQ(0, cmdp::shell(shell, sreq, sreply, error));
    EXPECT_TRUE(sreply.status == 0 || sreply.status == cmdp::ERR_NOT_FOUND) << sreply.status;

    // Interfaces created now are followed.
    ASSERT_EQ(0, ns_->sh("ip link add d3 type veth peer name d4 && ip link set d3 up"));
    if (nft) {
        EXPECT_TRUE(eventually([&] {
            return contains(ns_->out("nft list set bridge pppoeplus ports 2>/dev/null"), "\"d3\"");
        }));
    }

    ASSERT_EQ(0, ::kill(daemon_.pid, SIGTERM));
    int status = lt::waitFor(daemon_.pid, 5000);
    ASSERT_NE(-1, status) << "did not stop";
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
    daemon_.pid = -1;
    EXPECT_TRUE(contains(lt::readFile(log_), "stopping on signal 15"));
    // The rules stay with the agent stopped (fail closed).
    if (nft) {
        EXPECT_TRUE(contains(ns_->out("nft list set bridge pppoeplus ports 2>/dev/null"), "\"d2\""));
    }
    struct stat st;
    EXPECT_NE(0, ::stat(cmd.c_str(), &st)) << "command socket left behind";
    EXPECT_NE(0, ::stat(shell.c_str(), &st)) << "shell socket left behind";
}

// A shell call to the daemon and its reply; the status is -1 when none came.
cmdp::ShellReply shellCall(const std::string& socket, const std::string& name, const std::vector<int64_t>& args = {}) {
    cmdp::ShellRequest req;
    req.name = name;
    req.args = args;
    cmdp::ShellReply reply;
    std::string error;
    if (cmdp::shell(socket, req, reply, error) != 0) {
        reply.status = -1;
        reply.output = error;
    }
    return reply;
}

TEST_F(DaemonTest, TheShellCallsOnlyTheDiagnosticFunctionsOfItsTable) {
    std::string conf = dir_.file("pppoeplus.conf",
                                 "pppoeplus.defaultenable = true\n"
                                 "pppoeplus.defaultportenable = true\n"
                                 "platform.hwrule = none\n");
    start(conf);
    const std::string shell = dir_.path() + "/pppoeplusShell.socket";
    ASSERT_TRUE(lt::waitForPath(shell, 10000)) << lt::readFile(log_);
    ASSERT_TRUE(eventually([&] { return contains(lt::readFile(log_), "pppoeplusd running"); })) << lt::readFile(log_);
    // Numbers that look like the address of an entry are never used as one:
    // a unit no interface has, or no unit at all.
    cmdp::ShellReply reply = shellCall(shell, "pppoeplusIfEntryShow", {0x10});
    EXPECT_EQ(cmdp::ERR_NOT_FOUND, reply.status) << reply.output;
    EXPECT_EQ("'pppoeplusIfEntryShow': argument 1 (ifUnit): no interface has unit 16\n", reply.output);
    reply = shellCall(shell, "pppoeplusIfEntryShow", {0x7ffd12345678LL});
    EXPECT_EQ(cmdp::ERR_DENIED, reply.status) << reply.output;
    ASSERT_EQ(-1, lt::waitFor(daemon_.pid, 0)) << "the daemon ended: " << lt::readFile(log_);

    // d2 is served: every port is on by default.
    const int64_t d2 = std::stoll(ns_->out("cat /sys/class/net/d2/ifindex"));
    ASSERT_TRUE(eventually([&] { return shellCall(shell, "pppoeplusIfEntryShow", {d2}).status == 0; }))
        << lt::readFile(log_);

    // The entry of a unit, through the name operators know.
    reply = shellCall(shell, "pppoeplusIfEntryShow", {d2});
    EXPECT_EQ(0, reply.status);
    EXPECT_EQ(0, reply.result);
    EXPECT_TRUE(contains(reply.output, "ifUnit:" + std::to_string(d2) + " d2, trust:2 ZEL_FALSE, enable:1 ZEL_TRUE"))
        << reply.output;
    // lo is not served: it has no entry.
    reply = shellCall(shell, "pppoeplusIfEntryShow", {1});
    EXPECT_EQ(0, reply.status);
    EXPECT_EQ(ZEL_ERR_NOT_FOUND, reply.result);
    EXPECT_EQ("ifUnit:1 lo has no pppoeplus entry\r\n", reply.output);

    // Functions of the daemon outside the table, and wrong arguments.
    for (const char* name : {"pppoeplusIfEntryAdd", "pppoeplusEnable", "pppoeplusDisable", "pppoeplusInit", "system"}) {
        reply = shellCall(shell, name, {0x10});
        EXPECT_EQ(cmdp::ERR_DENIED, reply.status) << name;
        EXPECT_TRUE(contains(reply.output, "' is not a diagnostic function of this process\n")) << reply.output;
        EXPECT_TRUE(contains(reply.output, "  pppoeplusPonTest(interface ifUnit, u32 onuId)\n")) << reply.output;
    }
    EXPECT_EQ(cmdp::ERR_DENIED, shellCall(shell, "pppoeplusIfEntryShow").status);
    EXPECT_EQ(cmdp::ERR_DENIED, shellCall(shell, "pppoeplusShow", {1}).status);
    EXPECT_EQ(cmdp::ERR_DENIED, shellCall(shell, "pppoeplusTestForwardSet", {-1}).status);
    EXPECT_EQ(cmdp::ERR_DENIED, shellCall(shell, "pppoeplusSetPktFdRecvBufLen", {0x80000000LL}).status);
    EXPECT_EQ(cmdp::ERR_DENIED, shellCall(shell, "pppoeplusPonTest", {d2, 0x100000000LL}).status);
    EXPECT_EQ(cmdp::ERR_NOT_FOUND, shellCall(shell, "pppoeplusLogTest", {99999}).status);

    // Every function of the table, with good arguments.
    struct Call {
        const char* name;
        std::vector<int64_t> args;
        const char* golden;  // the fixed output, or null
    };
    const Call calls[] = {
        {"pppoeplusKeywordsShow", {}, "keywords_show"},
        {"pppoeplusCommonFormatShow", {}, "common_format_show"},
        {"pppoeplusIfEntryShow", {d2}, nullptr},
        {"pppoeplusIfShowAll", {}, nullptr},
        {"pppoeplusTrustIfShowAll", {}, nullptr},
        {"pppoeplusShow", {}, nullptr},
        {"pppoeplusSetPktFdRecvBufLen", {1048576}, nullptr},
        {"pppoeplusTestForwardSet", {0}, "test_forward_set_0"},
        {"pppoeplusHelp", {}, "help"},
        {"pppoeplusTest", {}, nullptr},
        {"pppoeplusLogTest", {d2}, nullptr},
        {"pppoeplusPonTest", {d2, 7}, nullptr},
    };
    for (const Call& c : calls) {
        reply = shellCall(shell, c.name, c.args);
        EXPECT_EQ(0, reply.status) << c.name << ": " << reply.output;
        EXPECT_EQ(0, reply.result) << c.name;
        if (c.golden == nullptr) continue;
        const std::string expected = std::string(c.golden) == "test_forward_set_0"
                                         ? "\r\n gPppoeplusTestForward change to 0\r\n"
                                         : lt::readFile(std::string(PPPOEPLUS_SOURCE_DIR) + "/tests/diag/golden/" +
                                                        c.golden + ".txt");
        EXPECT_EQ(expected, reply.output) << c.name;
    }
    EXPECT_TRUE(contains(shellCall(shell, "pppoeplusShow").output, "\r\n pppoeplus Interface:\r\npIf:0x"));
    EXPECT_TRUE(contains(shellCall(shell, "pppoeplusSetPktFdRecvBufLen", {1048576}).output, " recv bufLen:1048576\r\n"));
    // The test variables are read: pppoeplusPonTest wrote d2's unit first.
    reply = shellCall(shell, "gTestOnuInfo");
    EXPECT_EQ(0, reply.status);
    EXPECT_EQ(d2, reply.result);
    EXPECT_EQ(-1, lt::waitFor(daemon_.pid, 0)) << "the daemon ended: " << lt::readFile(log_);
}

// A raw socket of the test on `ifName`.
int rawOn(const char* ifName) {
    int fd = ::socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL));
    struct sockaddr_ll a;
    std::memset(&a, 0, sizeof(a));
    a.sll_family = AF_PACKET;
    a.sll_protocol = htons(ETH_P_ALL);
    a.sll_ifindex = static_cast<int>(if_nametoindex(ifName));
    if (fd < 0 || ::bind(fd, reinterpret_cast<struct sockaddr*>(&a), sizeof(a)) != 0) return -1;
    int one = 1;
    ::setsockopt(fd, SOL_PACKET, PACKET_AUXDATA, &one, sizeof(one));
    return fd;
}

// Discovery frames from `src` entering on `fd` within `ms`, each with the
// VLAN id the kernel took out of it (0: none).
std::vector<std::pair<std::vector<uint8_t>, int>> discoveryFrom(int fd, const uint8_t src[6], int ms) {
    std::vector<std::pair<std::vector<uint8_t>, int>> out;
    for (;;) {
        struct pollfd p = {fd, POLLIN, 0};
        if (::poll(&p, 1, ms) <= 0) return out;
        uint8_t buf[2048];
        alignas(8) uint8_t control[256];
        struct sockaddr_ll from;
        struct iovec iov = {buf, sizeof(buf)};
        struct msghdr m;
        std::memset(&m, 0, sizeof(m));
        m.msg_name = &from;
        m.msg_namelen = sizeof(from);
        m.msg_iov = &iov;
        m.msg_iovlen = 1;
        m.msg_control = control;
        m.msg_controllen = sizeof(control);
        ssize_t n = ::recvmsg(fd, &m, 0);
        if (n < 20 || from.sll_pkttype == PACKET_OUTGOING || std::memcmp(buf + 6, src, 6) != 0) continue;
        if (buf[12] != 0x88 || buf[13] != 0x63) continue;
        int vid = 0;
        for (struct cmsghdr* c = CMSG_FIRSTHDR(&m); c != nullptr; c = CMSG_NXTHDR(&m, c)) {
            struct tpacket_auxdata a;
            if (c->cmsg_level != SOL_PACKET || c->cmsg_type != PACKET_AUXDATA) continue;
            std::memcpy(&a, CMSG_DATA(c), sizeof(a));
            if (a.tp_status & TP_STATUS_VLAN_VALID) vid = a.tp_vlan_tci & 0xfff;
        }
        out.emplace_back(std::vector<uint8_t>(buf, buf + n), vid);
    }
}

// The offset of tag `type` in the PPPoE payload of an untagged discovery
// frame, or 0.
size_t findTag(const std::vector<uint8_t>& f, uint16_t type) {
    if (f.size() < 20) return 0;
    size_t end = 20 + ((f[18] << 8) | f[19]);
    for (size_t off = 20; off + 4 <= end && off + 4 <= f.size();) {
        uint16_t t = static_cast<uint16_t>((f[off] << 8) | f[off + 1]);
        uint16_t len = static_cast<uint16_t>((f[off + 2] << 8) | f[off + 3]);
        if (t == type) return off;
        off += 4 + len;
    }
    return 0;
}

TEST_F(DaemonTest, ADiscoveryFrameCrossesTheAgentTaggedAndOnlyOnce) {
    if (lt::sh("command -v nft >/dev/null 2>&1") != 0) GTEST_SKIP() << "the nft tool is not installed";
    std::string cmd;
    bridgeLab("", cmd);
    if (HasFatalFailure() || IsSkipped()) return;

    auto r = lt::runChild(ns_->name(), {}, [] {
        const uint8_t client[6] = {0x02, 0x00, 0x00, 0x00, 0x0c, 0x01};
        int c1 = rawOn("c1");
        int s2 = rawOn("s2");
        CHECK_TRUE(c1 >= 0 && s2 >= 0);
        for (int vid : {0, 100}) {
            std::vector<uint8_t> padi = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x02, 0x00, 0x00, 0x00, 0x0c, 0x01};
            if (vid != 0) {
                const uint8_t tag[4] = {0x81, 0x00, 0x00, static_cast<uint8_t>(vid)};
                padi.insert(padi.end(), tag, tag + 4);
            }
            // PADI with a Service-Name tag.
            const uint8_t rest[] = {0x88, 0x63, 0x11, 0x09, 0x00, 0x00, 0x00, 0x04, 0x01, 0x01, 0x00, 0x00};
            padi.insert(padi.end(), rest, rest + sizeof(rest));
            CHECK_TRUE(::send(c1, padi.data(), padi.size(), 0) == static_cast<ssize_t>(padi.size()));
            auto got = discoveryFrom(s2, client, 600);
            // Exactly one copy: the agent's, with its Vendor-Specific tag and the
            // client's VLAN id; the bridge forwarded nothing.
            CHECK_EQ(static_cast<size_t>(1), got.size());
            if (got.size() != 1) continue;
            const auto& f = got[0].first;
            CHECK_EQ(vid, got[0].second);
            CHECK_EQ(0x09, static_cast<int>(f[15]));
            size_t vs = findTag(f, 0x0105);
            CHECK_TRUE(vs != 0);
            if (vs != 0 && vs + 8 <= f.size()) {
                uint32_t vendor = (uint32_t(f[vs + 4]) << 24) | (f[vs + 5] << 16) | (f[vs + 6] << 8) | f[vs + 7];
                CHECK_EQ(3561u, vendor);
            }
            CHECK_TRUE(findTag(f, 0x0101) != 0);  // the client's own tag is still there
        }
    });
    EXPECT_TRUE(r.ok()) << r.failures << lt::readFile(log_);

    ASSERT_EQ(0, ::kill(daemon_.pid, SIGTERM));
    ASSERT_NE(-1, lt::waitFor(daemon_.pid, 5000));
    daemon_.pid = -1;
    // Stopped, the agent leaves its rules: the client's frames stay off the uplink.
    EXPECT_TRUE(contains(ns_->out("nft list set bridge pppoeplus ports 2>/dev/null"), "\"p1\""));
}

TEST_F(DaemonTest, ARefusedOptionEndsTheStartWithMinusOne) {
    start(dir_.file("bad.conf", "pppoeplus.poncommontype = olt\n"));
    int status = lt::waitFor(daemon_.pid, 10000);
    ASSERT_NE(-1, status);
    daemon_.pid = -1;
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(255, WEXITSTATUS(status));
    std::string log = lt::readFile(log_);
    EXPECT_TRUE(contains(log, "start-up failed, exiting with status -1")) << log;
    EXPECT_TRUE(contains(log, "pppoeplus.poncommontype = 'olt'")) << log;
    EXPECT_EQ("", ns_->out("nft list ruleset"));
}

TEST_F(DaemonTest, WithoutPermissionForThePacketSocketTheStartFails) {
    // Not root: the packet socket is refused. No namespace is needed for that.
    ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 0777));
    std::string conf = dir_.file("c.conf", "pppoeplus.defaultenable = true\n");
    ASSERT_EQ(0, ::chmod(conf.c_str(), 0644));
    daemon_ = lt::spawn({PPPOEPLUSD_PATH},
                        {"PPPOEPLUS_CONF=" + conf, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir_.path()}, log_,
                        65534);
    int status = lt::waitFor(daemon_.pid, 10000);
    ASSERT_NE(-1, status);
    daemon_.pid = -1;
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(255, WEXITSTATUS(status));
    std::string log = lt::readFile(log_);
    EXPECT_TRUE(contains(log, "packet socket: Operation not permitted")) << log;
    EXPECT_TRUE(contains(log, "start-up failed, exiting with status -1")) << log;
}

// Sends one untagged PADI from the client port c1 and says whether exactly
// one copy, with the agent's Vendor-Specific tag, reached the uplink's far
// end s2 within a second.
void expectOnePadiTaggedAtTheUplink(const std::string& ns) {
    auto r = lt::runChild(ns, {}, [] {
        const uint8_t client[6] = {0x02, 0x00, 0x00, 0x00, 0x0c, 0x02};
        int c1 = rawOn("c1");
        int s2 = rawOn("s2");
        CHECK_TRUE(c1 >= 0 && s2 >= 0);
        std::vector<uint8_t> padi = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x02, 0x00, 0x00, 0x00, 0x0c, 0x02,
                                     0x88, 0x63, 0x11, 0x09, 0x00, 0x00, 0x00, 0x04, 0x01, 0x01, 0x00, 0x00};
        CHECK_TRUE(::send(c1, padi.data(), padi.size(), 0) == static_cast<ssize_t>(padi.size()));
        auto got = discoveryFrom(s2, client, 1000);
        CHECK_EQ(static_cast<size_t>(1), got.size());
        if (got.size() == 1) CHECK_TRUE(findTag(got[0].first, 0x0105) != 0);
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

// A member of platform.group, not root, and then root send what used to
// take the daemon over or stop it: a call whose value kind said "raw", with a made-up
// {pointer, length} record for a format, and a get of the NSR information
// with less room than its 12-byte record. The agent keeps running,
// forwarding and answering, root and the member alike.
TEST_F(DaemonTest, AGroupMembersMalformedCallsLeaveTheAgentRunningForwardingAndManageable) {
    if (lt::sh("command -v nft >/dev/null 2>&1") != 0) GTEST_SKIP() << "the nft tool is not installed";
    std::string cmd;
    bridgeLab("platform.group = 65534\n", cmd);
    if (HasFatalFailure()) return;
    ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 0755));
    expectOnePadiTaggedAtTheUplink(ns_->name());

    // As a member of the group first, then as root.
    for (bool asRoot : {false, true}) {
        auto caller = lt::runChild(ns_->name(), {}, [&cmd, asRoot] {
            if (!asRoot) CHECK_TRUE(::setgroups(0, nullptr) == 0 && ::setgid(65534) == 0 && ::setuid(65534) == 0);
            cmdp::CallReply reply;
            std::string error;

            cmdp::CallRequest raw;
            raw.code = 2;  // global set
            raw.cmd = 6;   // Circuit-ID format
            raw.valueKind = cmdp::VALUE_RAW;
            raw.capacity = 16;
            raw.data.assign(16, 0);
            raw.data[1] = 0x10;  // a pointer the caller made up: 0x1000
            raw.data[8] = 4;     // and a length
            CHECK_EQ(cmdp::ERR_MALFORMED, cmdp::call(cmd, raw, reply, error));

            cmdp::CallRequest nsr;
            nsr.code = 1;  // global get
            nsr.cmd = 18;  // NSR information
            nsr.valueKind = cmdp::VALUE_STR;
            nsr.lenWord = nsr.capacity = 4;
            CHECK_EQ(cmdp::ERR_MALFORMED, cmdp::call(cmd, nsr, reply, error));
            CHECK_TRUE(error.find("at least 12 bytes") != std::string::npos);

            cmdp::CallRequest get;
            get.code = 1;
            get.cmd = 3;  // enable
            get.valueKind = cmdp::VALUE_U32;
            CHECK_EQ(0, cmdp::call(cmd, get, reply, error, 1000));
            CHECK_EQ(0, reply.result);
            CHECK_EQ(1u, reply.lenWord);
        });
        EXPECT_TRUE(caller.ok()) << (asRoot ? "root: " : "member: ") << caller.failures << lt::readFile(log_);
        ASSERT_EQ(-1, lt::waitFor(daemon_.pid, 0)) << "the daemon ended: " << lt::readFile(log_);

        // Still forwarding: the worker was never locked out.
        expectOnePadiTaggedAtTheUplink(ns_->name());
    }
    // And root still manages.
    cmdp::CallRequest get;
    get.code = 1;
    get.cmd = 4;  // vendor id
    get.valueKind = cmdp::VALUE_U32;
    cmdp::CallReply reply;
    std::string error;
    ASSERT_EQ(0, cmdp::call(cmd, get, reply, error, 1000)) << error;
    EXPECT_EQ(0, reply.result);
}

// The configuration file an operator named is the one the daemon runs on:
// missing or unreadable, it ends the start with a clear message instead of
// a start on the built-in defaults with the agent off.
TEST(DaemonCommandLine, ANamedConfigurationThatCannotBeReadEndsTheStart) {
    lt::TempDir dir;
    std::string log = dir.path() + "/stderr.txt";
    for (const std::string& conf : {dir.path() + "/missing.conf", dir.path()}) {
        lt::Process p = lt::spawn({PPPOEPLUSD_PATH},
                                  {"PPPOEPLUS_CONF=" + conf, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir.path()}, log);
        int status = lt::waitFor(p.pid, 10000);
        ASSERT_NE(-1, status) << lt::readFile(log);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(1, WEXITSTATUS(status));
        EXPECT_TRUE(contains(lt::readFile(log), "the configuration named by PPPOEPLUS_CONF cannot be read (" + conf))
            << lt::readFile(log);
        struct stat st;
        EXPECT_NE(0, ::stat((dir.path() + "/pppoeplusNm.socket").c_str(), &st)) << "nothing was started";
    }
}

// --check-config reads a file as the daemon would and prints every line it
// would ignore or not read as written, without starting anything.
TEST(DaemonCommandLine, CheckConfigNamesEveryBadLineAndStartsNothing) {
    lt::TempDir dir;
    std::string good = dir.file("good.conf", "pppoeplus.defaultenable = true\nplatform.exclude = eth0\n");
    std::string bad = dir.file("bad.conf",
                               "pppoeplus.defaultenable = on\n# fine\nplatform.colour = red\nport.eth1 = kind=eth\n");
    auto run = [&](const std::string& file, std::string& out) {
        lt::Process p = lt::spawn({"sh", "-c", std::string(PPPOEPLUSD_PATH) + " --check-config " + file + " >" +
                                                   dir.path() + "/out.txt"},
                                  {}, dir.path() + "/err.txt");
        int status = lt::waitFor(p.pid, 10000);
        out = lt::readFile(dir.path() + "/out.txt") + lt::readFile(dir.path() + "/err.txt");
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    std::string out;
    EXPECT_EQ(0, run(good, out)) << out;
    EXPECT_TRUE(contains(out, good + ": no errors")) << out;
    EXPECT_EQ(1, run(bad, out)) << out;
    EXPECT_TRUE(contains(out, bad + ":1: pppoeplus.defaultenable takes true or false; 'on'")) << out;
    EXPECT_TRUE(contains(out, bad + ":3: unknown setting 'platform.colour', ignored")) << out;
    EXPECT_FALSE(contains(out, bad + ":4:")) << out;
    EXPECT_EQ(1, run(dir.path() + "/none.conf", out)) << out;
    EXPECT_TRUE(contains(out, "none.conf: No such file or directory")) << out;
}

}  // namespace
