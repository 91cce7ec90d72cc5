// The real daemon's threads meeting at its lock: the worker forwards a
// steady stream of PADIs while several management clients, each on a
// connection of its own, change policies, formats, trust and enables, read
// counters and call the shell, all at once. Afterwards the daemon still
// runs, no sanitizer spoke (this test is what scripts/tsan runs under
// ThreadSanitizer), and every frame is accounted for: each one sent was
// received and forwarded once to each uplink, and what each uplink sent
// arrived on its far side.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent_lab.h"
#include "lt_netns.h"

namespace {

constexpr uint32_t IF_TRUST = 1, IF_ENABLE = 2, IF_POLICY = 3, IF_CIRCUITID_TYPE = 5, IF_CIRCUITID_FORMAT = 6;
constexpr uint32_t SCALAR_POLICY = 2, SCALAR_REMOTEID_TYPE = 7, SCALAR_REMOTEID_FORMAT = 8;
constexpr int32_t OK = 0;

TEST(LockConcurrencyTest, ManagementCallsMeetTheWorkerAtTheLock) {
    LT_NEED_NETNS();
    lt::AgentLab lab(2, 3);
    ASSERT_TRUE(lab.ok()) << lab.why();
    const uint32_t c1 = lab.unit("c1"), c2 = lab.unit("c2"), u1 = lab.unit("u1"), u2 = lab.unit("u2"),
                   u3 = lab.unit("u3");
    // u3 comes and goes as an uplink below; c1's own policy never defers to
    // the global one, so that no frame of c1 is held back by a rule.
    ASSERT_EQ(OK, lab.ifSet(u3, IF_TRUST, 2));
    ASSERT_EQ(OK, lab.ifSet(c1, IF_POLICY, 1));
    const size_t fdsBefore = lab.settledFds();

    const double seconds = 5;
    std::atomic<bool> done{false};
    std::atomic<int> callsFailed{0};
    std::atomic<int> calls{0};
    std::mutex failuresMutex;
    std::map<std::string, int> failures;
    auto count = [&](int32_t rc, bool mustSucceed, const char* what) {
        calls++;
        // Transport failures are the protocol's codes; results of entry
        // points vary with the interleaving and only some must be 0.
        if ((rc >= 0x3E80000 && rc <= 0x3E8FFFF && rc != 0x3E80002) || (mustSucceed && rc != OK)) {
            callsFailed++;
            std::lock_guard<std::mutex> lock(failuresMutex);
            failures[std::string(what) + " " + std::to_string(rc)]++;
        }
    };

    std::vector<std::thread> threads;
    threads.emplace_back([&] {  // policies and formats
        const char* formats[] = {"'%portname:%svlan.%cvlan'", "'%sysname eth %slot/%port'", "0x01 %8slot %8port",
                                 "'%portmac %svlan'"};
        for (uint32_t i = 0; !done; i++) {
            count(lab.scalarSet(SCALAR_POLICY, i % 4), true, "global policy");
            count(lab.ifSet(c1, IF_POLICY, 1 + i % 3), true, "port policy");
            count(lab.ifSet(c1, IF_CIRCUITID_TYPE, 1), true, "port circuit-id type");
            count(lab.ifSetText(c1, IF_CIRCUITID_FORMAT, formats[i % 4]), true, "port circuit-id format");
            count(lab.scalarSet(SCALAR_REMOTEID_TYPE, 1), true, "global remote-id type");
            count(lab.scalarSetText(SCALAR_REMOTEID_FORMAT, formats[(i + 1) % 4]), true, "global remote-id format");
        }
    });
    threads.emplace_back([&] {  // readers
        while (!done) {
            lt::LabCounters c;
            count(lab.counters(c1, c) && lab.counters(u1, c) && lab.counters(u2, c) ? 0 : -1, true, "counters");
            uint32_t v = 0;
            count(lab.scalarGet(SCALAR_POLICY, v), true, "global policy get");
            cmdp::ShellRequest req;
            req.name = "pppoeplusShow";
            cmdp::ShellReply reply;
            std::string error;
            count(cmdp::shell(lab.shellSocket(), req, reply, error) != 0 ? -1 : reply.status, true, "shell");
        }
    });
    threads.emplace_back([&] {  // trust and enables
        for (uint32_t i = 0; !done; i++) {
            count(lab.ifSet(u3, IF_TRUST, (i % 2) ? 1 : 2), true, "trust");
            // Switching c2 off deletes its entry; switching it on makes it again.
            count(lab.ifSet(c2, IF_ENABLE, (i % 2) ? 1 : 2), false, "enable");
        }
    });

    const uint8_t prefix[3] = {0x02, 0xa1, 0x00};
    lt::FarCounter far(lab.ns().name(), {"s1", "s2"}, lab.root());
    ASSERT_TRUE(far.start());
    const uint64_t s1Before = lab.rxPackets("s1"), s2Before = lab.rxPackets("s2");
    int64_t sent = lt::sendPadis(lab.ns().name(), "g1", prefix, 2000, seconds, 3);
    done = true;
    for (std::thread& t : threads) t.join();
    ASSERT_GT(sent, 0);
    ::usleep(500000);
    std::vector<uint64_t> arrived = far.finish(prefix);

    EXPECT_TRUE(lab.alive()) << lab.log();
    EXPECT_EQ("", lab.sanitizerReports());
    std::string failed;
    for (const auto& [what, n] : failures) failed += what + ": " + std::to_string(n) + "; ";
    EXPECT_EQ(0, callsFailed.load()) << "of " << calls.load() << " calls: " << failed;
    EXPECT_GT(calls.load(), 30);

    lt::LabCounters cc1, cu1, cu2;
    ASSERT_TRUE(lab.counters(c1, cc1));
    ASSERT_TRUE(lab.counters(u1, cu1));
    ASSERT_TRUE(lab.counters(u2, cu2));
    // Received: every frame sent; forwarded: every one of them, to each uplink.
    EXPECT_EQ(static_cast<uint64_t>(sent), cc1.padiRcv + cc1.errorRcv) << cc1.text();
    EXPECT_EQ(0u, cc1.errorRcv);
    EXPECT_EQ(static_cast<uint64_t>(sent), arrived[0]);
    EXPECT_EQ(static_cast<uint64_t>(sent), arrived[1]);
    EXPECT_EQ(cc1.padiRcv, cu1.totalSend) << cu1.text();
    EXPECT_EQ(cc1.padiRcv, cu2.totalSend) << cu2.text();
    EXPECT_EQ(0u, cu1.errorSend + cu2.errorSend);
    EXPECT_EQ(lab.rxPackets("s1") - s1Before, cu1.totalSend);
    EXPECT_EQ(lab.rxPackets("s2") - s2Before, cu2.totalSend);
    // Nothing left open but the send socket the platform keeps for each
    // uplink it sent to (u1, u2, and u3 while it was trusted).
    EXPECT_EQ(fdsBefore + 3, lab.settledFds());

    EXPECT_EQ(0, WEXITSTATUS(lab.stop()));
    EXPECT_EQ("", lab.sanitizerReports());
}

}  // namespace
