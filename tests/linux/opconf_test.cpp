// The operational configuration on a real daemon: the file's agent. and if.
// lines applied at start, to a port created again, and at a reload that is
// checked whole before anything changes.
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "lt_frames.h"
#include "lt_netns.h"
#include "platform/linux/cmd_proto.h"

#ifndef PPPOEPLUSD_PATH
#error "PPPOEPLUSD_PATH names the daemon binary"
#endif

namespace {

using lt::contains;
using Json = nlohmann::json;

// Command codes of the interface table (the management protocol's numbers).
constexpr uint32_t IF_TRUST = 1, IF_ENABLE = 2, IF_POLICY = 3, IF_CID_TYPE = 5, IF_CID_FORMAT = 6,
                   IF_PADI_RCV = 11, IF_TOTAL_SEND = 16;
constexpr uint32_t ROW_IF_GET = 6, ROW_IF_SET = 7;

const uint8_t CLIENT[6] = {0x02, 0x00, 0x00, 0x00, 0x0d, 0x01};

// The Circuit-ID of a frame's Vendor-Specific tag, or "-" without one.
std::string circuitIdOf(const uint8_t* f, size_t n) {
    if (n < 20) return "-";
    const size_t end = std::min(n, static_cast<size_t>(20 + ((f[18] << 8) | f[19])));
    for (size_t off = 20; off + 4 <= end;) {
        const uint16_t type = static_cast<uint16_t>((f[off] << 8) | f[off + 1]);
        const size_t len = static_cast<size_t>((f[off + 2] << 8) | f[off + 3]);
        if (type == 0x0105 && off + 4 + len <= end && len >= 4) {
            for (size_t s = off + 8; s + 2 <= off + 4 + len;) {
                const size_t sl = f[s + 1];
                if (f[s] == 1 && s + 2 + sl <= off + 4 + len) return std::string(reinterpret_cast<const char*>(f + s + 2), sl);
                s += 2 + sl;
            }
            return "";
        }
        off += 4 + len;
    }
    return "-";
}

class OpconfTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LT_NEED_NETNS();
        if (lt::sh("command -v nft >/dev/null 2>&1") != 0) GTEST_SKIP() << "nft is not installed";
        ns_ = std::make_unique<lt::Netns>();
        ASSERT_TRUE(ns_->ok());
        // client c1 -- p1 [bridge br0] p2 -- s2; the agent serves p1 and p2.
        ASSERT_EQ(0, ns_->sh("ip link add c1 type veth peer name p1 && ip link add s2 type veth peer name p2 && "
                             "ip link add br0 type bridge && ip link set p1 master br0 && ip link set p2 master br0 && "
                             "for i in c1 p1 s2 p2 br0; do ip link set $i up; done"));
        conf_ = dir_.path() + "/pppoeplus.conf";
    }
    void TearDown() override {
        if (daemon_.pid > 0 && lt::waitFor(daemon_.pid, 0) == -1) {
            ::kill(daemon_.pid, SIGKILL);
            lt::waitFor(daemon_.pid, 5000);
        }
    }

    static constexpr const char* STARTUP =
        "pppoeplus.defaultenable = true\n"
        "pppoeplus.defaultportenable = true\n"
        "platform.exclude = c1 s2\n"
        "platform.hwrule = nft\n";

    void writeConf(const std::string& text) {
        std::ofstream f(conf_, std::ios::trunc);
        f << text;
    }
    bool start() {
        const std::string log = dir_.path() + "/stderr" + std::to_string(++starts_) + ".txt";
        daemon_ = lt::spawn({"ip", "netns", "exec", ns_->name(), PPPOEPLUSD_PATH},
                            {"PPPOEPLUS_CONF=" + conf_, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir_.path()}, log);
        // Running, and the file's lines applied.
        return lt::eventually([&] { return contains(log_(), "operational line(s) of"); }, 15000);
    }
    int stop() {
        ::kill(daemon_.pid, SIGTERM);
        int status = lt::waitFor(daemon_.pid, 10000);
        daemon_.pid = -1;
        return status;
    }
    std::string log_() const { return lt::readFile(daemon_.errFile); }
    uint32_t unit(const char* ifName) const {
        return static_cast<uint32_t>(std::stoul(ns_->out(std::string("cat /sys/class/net/") + ifName + "/ifindex")));
    }
    std::string cmdSocket() const { return dir_.path() + "/pppoeplusNm.socket"; }
    std::string controlSocket() const { return dir_.path() + "/pppoeplusControl.socket"; }

    // An interface setting: its value, or ~0u when it cannot be read.
    uint32_t ifGet(const char* ifName, uint32_t code) const {
        cmdp::CallRequest req;
        req.code = ROW_IF_GET;
        req.unit = unit(ifName);
        req.cmd = code;
        req.valueKind = cmdp::VALUE_U32;
        cmdp::CallReply reply;
        std::string error;
        if (cmdp::call(cmdSocket(), req, reply, error) != 0 || reply.result != 0) return ~0u;
        return reply.lenWord;
    }
    std::string ifGetText(const char* ifName, uint32_t code) const {
        cmdp::CallRequest req;
        req.code = ROW_IF_GET;
        req.unit = unit(ifName);
        req.cmd = code;
        req.valueKind = cmdp::VALUE_STR;
        req.capacity = 256;
        req.lenWord = 256;
        cmdp::CallReply reply;
        std::string error;
        if (cmdp::call(cmdSocket(), req, reply, error) != 0 || reply.result != 0) return "?";
        return std::string(reply.data.begin(), reply.data.end());
    }
    int32_t ifSet(const char* ifName, uint32_t code, uint32_t value) const {
        cmdp::CallRequest req;
        req.code = ROW_IF_SET;
        req.unit = unit(ifName);
        req.cmd = code;
        req.valueKind = cmdp::VALUE_U32;
        req.lenWord = value;
        cmdp::CallReply reply;
        std::string error;
        int32_t rc = cmdp::call(cmdSocket(), req, reply, error);
        return rc != 0 ? rc : reply.result;
    }
    Json control(const Json& req) const {
        std::string reply, error;
        if (cmdp::control(controlSocket(), req.dump(), reply, error) != 0) return Json{{"ok", false}, {"error", error}};
        return Json::parse(reply, nullptr, false);
    }
    // Every setting of both ports that a file can write, as text.
    std::string state() const {
        std::string s;
        for (const char* p : {"p1", "p2"})
            for (uint32_t code : {IF_ENABLE, IF_TRUST, IF_POLICY, IF_CID_TYPE})
                s += std::string(p) + "." + std::to_string(code) + "=" + std::to_string(ifGet(p, code)) + " ";
        return s + "p1.format=" + ifGetText("p1", IF_CID_FORMAT);
    }
    // One PADI out of c1: the Circuit-ID of what reaches s2 within 700 ms
    // ("none" when nothing does).
    std::string crossing() const {
        const std::string out = dir_.path() + "/crossing.txt";
        auto r = lt::runChild(ns_->name(), {}, [out] {
            int c1 = lt::rawSocket("c1");
            int s2 = lt::rawSocket("s2");
            CHECK_TRUE(c1 >= 0 && s2 >= 0);
            CHECK_TRUE(lt::rawSend(c1, lt::discoveryFrame(lt::BROADCAST, CLIENT, {})));
            std::string seen = "none";
            for (const std::vector<uint8_t>& f : lt::recvDiscoveryFrom(s2, CLIENT)) seen = circuitIdOf(f.data(), f.size());
            std::ofstream(out) << seen;
        });
        EXPECT_TRUE(r.ok()) << r.failures;
        return lt::readFile(out);
    }

    std::unique_ptr<lt::Netns> ns_;
    lt::TempDir dir_;
    std::string conf_;
    lt::Process daemon_;
    int starts_ = 0;
};

TEST_F(OpconfTest, TheFilesLinesAreAppliedAtStartAndTheMostSpecificWins) {
    writeConf(std::string(STARTUP) +
              "if.p*.policy = drop\n"
              "if.p1.policy = keep\n"
              "if.p2.trust = on\n"
              "if.p*.circuit-id-type = userdefine\n"
              "if.p*.circuit-id-format = 'one %portname'\n");
    ASSERT_TRUE(start()) << log_();
    EXPECT_EQ(1u, ifGet("p1", IF_POLICY));
    EXPECT_EQ(2u, ifGet("p2", IF_POLICY));
    EXPECT_EQ(1u, ifGet("p2", IF_TRUST));
    EXPECT_EQ(2u, ifGet("p1", IF_TRUST));
    EXPECT_EQ("'one %portname'", ifGetText("p1", IF_CID_FORMAT));
    EXPECT_EQ("one p1", crossing());
}

TEST_F(OpconfTest, ConfiguredByCallsSavedAndRestartedTheStateIsTheSame) {
    writeConf(STARTUP);
    ASSERT_TRUE(start()) << log_();
    EXPECT_EQ("none", crossing());  // no trusted uplink yet: trapped and dropped
    ASSERT_EQ(0, ifSet("p2", IF_TRUST, 1));
    ASSERT_EQ(0, ifSet("p1", IF_POLICY, 3));
    ASSERT_EQ(0, ifSet("p1", IF_CID_TYPE, 1));
    {
        cmdp::CallRequest req;
        req.code = ROW_IF_SET;
        req.unit = unit("p1");
        req.cmd = IF_CID_FORMAT;
        req.valueKind = cmdp::VALUE_STR;
        const std::string f = "'saved %portname'";
        req.data.assign(f.begin(), f.end());
        req.lenWord = req.capacity = static_cast<uint32_t>(f.size());
        cmdp::CallReply reply;
        std::string error;
        ASSERT_EQ(0, cmdp::call(cmdSocket(), req, reply, error));
        ASSERT_EQ(0, reply.result);
    }
    const std::string before = state();
    EXPECT_EQ("saved p1", crossing());

    // What `pppoeplusctl config show` prints, read back by a new daemon.
    Json shown = control({{"op", "config-show"}});
    ASSERT_TRUE(shown.value("ok", false)) << shown.dump();
    const std::string text = shown["text"].get<std::string>();
    EXPECT_TRUE(contains(text, "if.p2.trust = on")) << text;
    EXPECT_TRUE(contains(text, "if.p1.circuit-id-format = 'saved %portname'")) << text;
    // Values shown as the words that set them; a port following the global
    // policing limit has no line of its own.
    EXPECT_FALSE(contains(text, "4294967295")) << text;
    EXPECT_FALSE(contains(text, "if.p1.police-rate")) << text;
    writeConf(text);
    ASSERT_EQ(0, stop());
    ASSERT_TRUE(start()) << log_();
    EXPECT_EQ(before, state());
    EXPECT_EQ("saved p1", crossing());
    EXPECT_EQ(control({{"op", "config-show"}})["operational"], shown["operational"]);
}

TEST_F(OpconfTest, APortDeletedAndCreatedAgainGetsItsSettingsBack) {
    writeConf(std::string(STARTUP) + "if.p2.trust = on\nif.p1.policy = keep\nif.p1.circuit-id-type = userdefine\n"
                                     "if.p1.circuit-id-format = 'back %portname'\n");
    ASSERT_TRUE(start()) << log_();
    EXPECT_EQ("back p1", crossing());
    ASSERT_EQ(0, ns_->sh("ip link del c1"));
    ASSERT_TRUE(lt::eventually([&] { return ifGet("p2", IF_TRUST) == 1 && ns_->out("ip -o link show p1").empty(); }));
    ASSERT_EQ(0, ns_->sh("ip link add c1 type veth peer name p1 && ip link set p1 master br0 && "
                         "ip link set c1 up && ip link set p1 up"));
    EXPECT_TRUE(lt::eventually([&] { return ifGet("p1", IF_POLICY) == 1; }, 10000)) << log_();
    EXPECT_TRUE(lt::eventually([&] { return ifGetText("p1", IF_CID_FORMAT) == "'back %portname'"; }, 10000));
    EXPECT_EQ("back p1", crossing());
}

TEST_F(OpconfTest, AReloadThatChangesAFormatChangesTheNextCircuitIdAndNoCounter) {
    const std::string base = std::string(STARTUP) + "if.p2.trust = on\nif.p1.circuit-id-type = userdefine\n";
    writeConf(base + "if.p1.circuit-id-format = 'one %portname'\n");
    ASSERT_TRUE(start()) << log_();
    EXPECT_EQ("one p1", crossing());
    EXPECT_EQ("one p1", crossing());
    const uint32_t padi = ifGet("p1", IF_PADI_RCV), sent = ifGet("p2", IF_TOTAL_SEND);
    ASSERT_EQ(2u, padi);

    writeConf(base + "if.p1.circuit-id-format = 'two %portname'\n");
    Json r = control({{"op", "config-reload"}});
    ASSERT_TRUE(r.value("ok", false)) << r.dump();
    ASSERT_EQ(1u, r["changed"].size()) << r.dump();
    EXPECT_EQ("if.p1.circuit-id-format = 'two %portname'", r["changed"][0]);
    EXPECT_EQ(padi, ifGet("p1", IF_PADI_RCV));
    EXPECT_EQ(sent, ifGet("p2", IF_TOTAL_SEND));
    EXPECT_EQ("two p1", crossing());
    EXPECT_EQ(padi + 1, ifGet("p1", IF_PADI_RCV));

    // The same file again changes nothing.
    r = control({{"op", "config-reload"}});
    EXPECT_TRUE(r.value("ok", false));
    EXPECT_EQ(0u, r["changed"].size()) << r.dump();
}

TEST_F(OpconfTest, ABrokenFileChangesNothingOnReloadOrSighup) {
    const std::string good = std::string(STARTUP) + "if.p2.trust = on\nif.p1.policy = keep\n";
    writeConf(good);
    ASSERT_TRUE(start()) << log_();
    EXPECT_EQ("p1:0.0", crossing());  // the built-in format
    const std::string before = state();

    // Line 8 is broken; lines 7 and 9 would change settings.
    writeConf(good + "if.p1.policy = drop\nif.p1.trust = sideways\nif.p2.trust = off\n");
    Json r = control({{"op", "config-reload"}});
    EXPECT_FALSE(r.value("ok", true)) << r.dump();
    ASSERT_EQ(1u, r["errors"].size()) << r.dump();
    EXPECT_TRUE(contains(r["errors"][0].get<std::string>(), conf_ + ":8: if.p1.trust: trust: ")) << r.dump();
    EXPECT_EQ(before, state());
    EXPECT_TRUE(contains(log_(), conf_ + ":8: if.p1.trust"));

    ::kill(daemon_.pid, SIGHUP);
    EXPECT_TRUE(lt::eventually([&] {
        return contains(log_(), "configuration reload: 1 error(s) in " + conf_ + "; nothing changed") &&
               log_().find("nothing changed") != log_().rfind("nothing changed");
    })) << log_();
    EXPECT_EQ(before, state());
}

TEST_F(OpconfTest, AValueTheAgentRefusesUndoesTheWholeReload) {
    const std::string good = std::string(STARTUP) + "if.p2.trust = on\nif.p1.circuit-id-type = userdefine\n";
    writeConf(good);
    ASSERT_TRUE(start()) << log_();
    const std::string before = state();
    // The policy would change first; the format is refused by the agent.
    writeConf(good + "if.p1.policy = drop\nif.p1.circuit-id-format = '%nosuchkeyword'\n");
    Json r = control({{"op", "config-reload"}});
    EXPECT_FALSE(r.value("ok", true)) << r.dump();
    ASSERT_GE(r["errors"].size(), 1u);
    EXPECT_TRUE(contains(r["errors"][0].get<std::string>(), conf_ + ":8: if.p1.circuit-id-format")) << r.dump();
    EXPECT_EQ(before, state());
}

TEST_F(OpconfTest, ALineRemovedGivesTheSettingBackItsValueFromBeforeTheFile) {
    writeConf(std::string(STARTUP) + "if.p2.trust = on\nif.p1.policy = drop\n");
    ASSERT_TRUE(start()) << log_();
    EXPECT_EQ(2u, ifGet("p1", IF_POLICY));
    writeConf(std::string(STARTUP) + "if.p2.trust = on\n");
    Json r = control({{"op", "config-reload"}});
    ASSERT_TRUE(r.value("ok", false)) << r.dump();
    EXPECT_EQ(0u, ifGet("p1", IF_POLICY));
    EXPECT_EQ(1u, ifGet("p2", IF_TRUST));
}

TEST_F(OpconfTest, AChangedStartUpOptionIsReportedAsNeedingARestart) {
    writeConf(STARTUP);
    ASSERT_TRUE(start()) << log_();
    writeConf(std::string(STARTUP) + "pppoeplus.maxifnum = 30\n");
    Json r = control({{"op", "config-reload"}});
    ASSERT_TRUE(r.value("ok", false)) << r.dump();
    ASSERT_EQ(1u, r["restart"].size()) << r.dump();
    EXPECT_EQ("pppoeplus.maxifnum", r["restart"][0]);
}

}  // namespace
