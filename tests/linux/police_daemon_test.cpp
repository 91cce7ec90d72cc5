// The daemon polices discovery per port from its start: the eBPF filter is
// loaded before the capabilities go (none that could load another program
// is kept), and a flood from one client port reaches the agent, and the
// uplink, cut to the default limit.
#include <gtest/gtest.h>
#include <linux/capability.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

#include "agent_lab.h"
#include "lt_netns.h"
#include "platform/linux/cmd_proto.h"
#include "platform/linux/police.h"

#include <nlohmann/json.hpp>

namespace {

// The effective capability set of process `pid`, or 0 with `ok` false.
uint64_t capEff(int pid, bool& ok) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("CapEff:", 0) != 0) continue;
        ok = true;
        return std::stoull(line.substr(7), nullptr, 16);
    }
    ok = false;
    return 0;
}

TEST(PoliceDaemon, AFloodFromAClientPortReachesTheAgentCutToTheDefaultLimit) {
    LT_NEED_NETNS();
    // The default rate; the burst's line only says what the default is.
    lt::AgentLab lab(1, 1, "agent.police-burst = 1000\n");
    ASSERT_TRUE(lab.ok()) << lab.why();
    EXPECT_TRUE(lt::contains(lab.log(), "police: discovery policed per port in the kernel (default 100 frames/s, burst 1000)"))
        << lab.log();
    bool ok = false;
    uint64_t caps = capEff(lab.pid(), ok);
    ASSERT_TRUE(ok);
    EXPECT_NE(0u, caps & (1ull << CAP_NET_RAW));
    EXPECT_EQ(0u, caps & (1ull << CAP_BPF));
    EXPECT_EQ(0u, caps & (1ull << CAP_SYS_ADMIN));

    const uint32_t c1 = lab.unit("c1");
    lt::LabCounters before;
    ASSERT_TRUE(lab.counters(c1, before));
    const uint8_t prefix[3] = {0x02, 0x7a, 0x01};
    lt::FarCounter far(lab.ns().name(), {"s1"}, lab.root());
    ASSERT_TRUE(far.start());
    auto t0 = std::chrono::steady_clock::now();
    int64_t sent = lt::sendPadis(lab.ns().name(), "g1", prefix, 20000, 1.0, 0);
    double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    ASSERT_GT(sent, 5000);
    lt::LabCounters after;
    ASSERT_TRUE(lt::eventually([&] {
        lab.counters(c1, after);
        return after.padiRcv - before.padiRcv >= linuxplat::POLICE_BURST_DEFAULT;
    }));
    ::usleep(300000);
    ASSERT_TRUE(lab.counters(c1, after));
    std::vector<uint64_t> atUplink = far.finish(prefix);
    const uint64_t got = after.padiRcv - before.padiRcv;
    // The burst, and the rate while the flood lasted (and a little after).
    EXPECT_GE(got, linuxplat::POLICE_BURST_DEFAULT);
    EXPECT_LE(got, linuxplat::POLICE_BURST_DEFAULT + static_cast<uint64_t>(linuxplat::POLICE_RATE_DEFAULT * (secs + 1)))
        << sent << " sent in " << secs << " s";
    ASSERT_EQ(1u, atUplink.size());
    EXPECT_EQ(got, atUplink[0]);
    std::fprintf(stderr, "daemon: %lld PADIs sent in %.2f s from one port; the agent read %llu, the uplink got %llu\n",
                 static_cast<long long>(sent), secs, static_cast<unsigned long long>(got),
                 static_cast<unsigned long long>(atUplink[0]));
    EXPECT_EQ(0, lab.stop());
}

// The configuration file's lines set policing at start; pppoeplusctl's
// control requests read it, set it, refuse what is out of range and show
// each port's counters.
TEST(PoliceDaemon, TheFileSetsPolicingAndTheControlServiceReadsAndChangesIt) {
    LT_NEED_NETNS();
    lt::AgentLab lab(2, 1, "agent.police-rate = 50\nagent.police-burst = 20\nif.c2.police-rate = 0\n");
    ASSERT_TRUE(lab.ok()) << lab.why();
    std::string base = cmdp::CONTROL_SOCKET;
    const std::string socket = lab.root() + base.substr(base.rfind('/'));
    auto ask = [&](const nlohmann::json& req) {
        std::string text, error;
        EXPECT_EQ(0, cmdp::control(socket, req.dump(), text, error)) << error;
        return nlohmann::json::parse(text, nullptr, false);
    };
    auto value = [&](const nlohmann::json& req) {
        nlohmann::json r = ask(req);
        return r.value("ok", false) ? r["value"].get<uint32_t>() : 0xDEADu;
    };
    // Applied once the daemon has its interfaces.
    ASSERT_TRUE(lt::eventually([&] { return value({{"op", "get"}, {"name", "police-rate"}}) == 50; })) << lab.log();
    EXPECT_EQ(20u, value({{"op", "get"}, {"name", "police-burst"}}));
    EXPECT_EQ(0u, value({{"op", "get"}, {"name", "police-rate"}, {"if", "c2"}}));
    EXPECT_EQ(0xFFFFFFFFu, value({{"op", "get"}, {"name", "police-rate"}, {"if", "c1"}}));
    // Out of range: refused, nothing changed.
    nlohmann::json r = ask({{"op", "set"}, {"name", "police-rate"}, {"value", 1000001}});
    EXPECT_FALSE(r.value("ok", true));
    EXPECT_EQ(50u, value({{"op", "get"}, {"name", "police-rate"}}));
    r = ask({{"op", "set"}, {"name", "errdisable-hold"}, {"value", 0}});
    EXPECT_FALSE(r.value("ok", true));
    EXPECT_EQ(300u, value({{"op", "get"}, {"name", "errdisable-hold"}}));

    // A burst from each client port: c1 is cut to its 20, c2 is not policed.
    const uint8_t p1[3] = {0x02, 0x7b, 0x01}, p2[3] = {0x02, 0x7b, 0x02};
    ASSERT_GT(lt::sendPadis(lab.ns().name(), "g1", p1, 5000, 0.1, 0), 300);
    ASSERT_GT(lt::sendPadis(lab.ns().name(), "g2", p2, 5000, 0.1, 0), 300);
    nlohmann::json st;
    ASSERT_TRUE(lt::eventually([&] {
        st = ask({{"op", "police-status"}});
        return st.value("available", false) && st["interfaces"].contains("c1") && st["interfaces"].contains("c2") &&
               st["interfaces"]["c2"].value("passed", 0) >= 300;
    })) << st.dump();
    const uint64_t passed1 = st["interfaces"]["c1"]["passed"].get<uint64_t>();
    EXPECT_GE(passed1, 20u);
    EXPECT_LE(passed1, 40u);
    EXPECT_GE(st["interfaces"]["c1"]["dropped"].get<uint64_t>(), 260u);
    EXPECT_EQ(0u, st["interfaces"]["c2"]["dropped"].get<uint64_t>());
    EXPECT_EQ("served", st["interfaces"]["c1"]["state"]);
    // Nothing to recover.
    r = ask({{"op", "police-recover"}, {"if", "c1"}});
    EXPECT_FALSE(r.value("ok", true));
    EXPECT_EQ(0, lab.stop());
}

}  // namespace
