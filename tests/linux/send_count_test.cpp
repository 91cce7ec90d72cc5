// The send counters of the real daemon when an uplink refuses frames: each
// frame forwarded counts once in totalSend of every trusted uplink it was
// sent to, and once in errorSend of the uplink whose send failed, exactly;
// the other uplinks are not touched by its failures. An uplink whose link
// is down refuses every frame (ENETDOWN); once up again it sends them all.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "agent_lab.h"
#include "lt_netns.h"

namespace {

// Sends PADIs into c1 for a fifth of a second and waits until the daemon
// has received them all (its padiRcv of c1 goes from `received` up by the
// frames sent). Returns how many were sent, 0 when that did not work.
uint32_t sendAndSettle(lt::AgentLab& lab, uint32_t c1, uint32_t received, const uint8_t prefix[3]) {
    int64_t sent = lt::sendPadis(lab.ns().name(), "g1", prefix, 2000, 0.2, 0);
    if (sent <= 0) return 0;
    const uint32_t want = received + static_cast<uint32_t>(sent);
    bool settled = lt::eventually([&] {
        lt::LabCounters c;
        return lab.counters(c1, c) && c.padiRcv == want;
    });
    return settled ? static_cast<uint32_t>(sent) : 0;
}

struct UplinkCounts {
    uint32_t total, errors;
    uint64_t arrived;  // rx_packets of the far end since the start
};

void expectUplink(lt::AgentLab& lab, const char* name, uint64_t farBefore, const UplinkCounts& want) {
    lt::LabCounters c;
    ASSERT_TRUE(lab.counters(lab.unit(name), c)) << name;
    EXPECT_EQ(want.total, c.totalSend) << name << ": " << c.text();
    EXPECT_EQ(want.errors, c.errorSend) << name << ": " << c.text();
    std::string far = std::string("s") + (name + 1);
    EXPECT_EQ(want.arrived, lab.rxPackets(far) - farBefore) << name << ": " << c.text();
}

TEST(SendCountTest, EveryRefusedSendCountsOnItsOwnUplink) {
    LT_NEED_NETNS();
    lt::AgentLab lab(1, 3);
    ASSERT_TRUE(lab.ok()) << lab.why();
    const uint32_t c1 = lab.unit("c1");
    const uint64_t s1 = lab.rxPackets("s1"), s2 = lab.rxPackets("s2"), s3 = lab.rxPackets("s3");
    const uint8_t prefix[3] = {0x02, 0xc5, 0x00};

    // All three uplinks up: every frame goes out of each.
    const uint32_t a = sendAndSettle(lab, c1, 0, prefix);
    ASSERT_GT(a, 0u);
    ::usleep(200000);
    expectUplink(lab, "u1", s1, {a, 0, a});
    expectUplink(lab, "u2", s2, {a, 0, a});
    expectUplink(lab, "u3", s3, {a, 0, a});

    // u2's link down: each of its sends fails and is counted there, the
    // others are unaffected.
    ASSERT_EQ(0, lab.ns().sh("ip link set u2 down"));
    const uint32_t b = sendAndSettle(lab, c1, a, prefix);
    ASSERT_GT(b, 0u);
    ::usleep(200000);
    expectUplink(lab, "u1", s1, {a + b, 0, a + b});
    expectUplink(lab, "u2", s2, {a + b, b, a});
    expectUplink(lab, "u3", s3, {a + b, 0, a + b});

    // u2 up again, u3 down: u2 sends every frame again, u3 fails them all.
    ASSERT_EQ(0, lab.ns().sh("ip link set u2 up && ip link set u3 down"));
    ASSERT_TRUE(lt::eventually([&] { return lab.ns().out("cat /sys/class/net/u2/operstate") == "up\n"; }));
    const uint32_t c = sendAndSettle(lab, c1, a + b, prefix);
    ASSERT_GT(c, 0u);
    ::usleep(200000);
    expectUplink(lab, "u1", s1, {a + b + c, 0, a + b + c});
    expectUplink(lab, "u2", s2, {a + b + c, b, a + c});
    expectUplink(lab, "u3", s3, {a + b + c, c, a + b});

    EXPECT_TRUE(lab.alive()) << lab.log();
    EXPECT_EQ(0, WEXITSTATUS(lab.stop()));
    EXPECT_EQ("", lab.sanitizerReports());
}

}  // namespace
