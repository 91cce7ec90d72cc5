// The worker loop: one pass at a time, and the lock around each receiver.
#include <string>
#include <vector>

#include "agent/global.h"
#include "daemon/main_loop.h"
#include "platform/types.h"
#include "support/fixture.h"

namespace {

class MainLoopTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        pppoeplusTestStart();
        ASSERT_EQ(3, gPppoeplus.pktFd);
        ASSERT_EQ(4, gPppoeplus.rtSockFd);
        sim::g.selects.clear();
    }
    static sim::Frame frame() {
        sim::Frame f{};
        f.bytes = {0x11, 0x09, 0x00, 0x00, 0x00, 0x00};
        f.ifUnit = 5;
        f.withInfo = true;
        return f;
    }
};

TEST_F(MainLoopTest, NoTrafficWaitsFiveSecondsAndDoesNothing) {
    for (int i = 0; i < 3; i++) pppoeplusMainLoopPass(4);
    EXPECT_EQ((std::vector<std::string>{"zel_select(5)", "zel_select(5)", "zel_select(5)"}), sim::g.calls);
    ASSERT_EQ(3u, sim::g.selects.size());
    for (const sim::Select& s : sim::g.selects) {
        EXPECT_EQ(5, s.nfds);
        EXPECT_EQ((std::vector<int32_t>{3, 4}), s.watched);
        ASSERT_TRUE(s.hasTimeout);
        EXPECT_EQ(5, s.timeout.tv_sec);
        EXPECT_EQ(0, s.timeout.tv_usec);
    }
    EXPECT_TRUE(sim::g.logs.empty());
}

TEST_F(MainLoopTest, FrameIsServedBeforeTheRouteMessage) {
    sim::pushRead(4, std::vector<uint8_t>(24, 0));
    sim::pushFrame(3, frame());
    pppoeplusMainLoopPass(4);
    const std::vector<std::string> expected = {
        "zel_select(5)",   "silTakeSem(1,-1)", "zel_recvmsg(3)", "silGiveSem(1)",
        "silTakeSem(1,-1)", "zel_recv(4,3840)", "silGiveSem(1)",
    };
    EXPECT_EQ(expected, sim::g.calls);
    EXPECT_EQ(0, sim::g.sems[1].depth);
    EXPECT_EQ(2u, sim::g.sems[1].takes);
    EXPECT_TRUE(sim::g.sockets[3].frames.empty());
    EXPECT_TRUE(sim::g.sockets[4].reads.empty());
}

TEST_F(MainLoopTest, EachReceiverReadsOncePerPass) {
    sim::pushFrame(3, frame());
    sim::pushFrame(3, frame());
    sim::pushRead(4, std::vector<uint8_t>(24, 0));
    sim::pushRead(4, std::vector<uint8_t>(24, 0));
    pppoeplusMainLoopPass(4);
    EXPECT_EQ(1u, sim::g.sockets[3].frames.size());
    EXPECT_EQ(1u, sim::g.sockets[4].reads.size());
    pppoeplusMainLoopPass(4);
    EXPECT_TRUE(sim::g.sockets[3].frames.empty());
    EXPECT_TRUE(sim::g.sockets[4].reads.empty());
}

TEST_F(MainLoopTest, OnlyTheRouteSocketReady) {
    sim::pushRead(4, std::vector<uint8_t>(24, 0));
    pppoeplusMainLoopPass(4);
    EXPECT_EQ((std::vector<std::string>{"zel_select(5)", "silTakeSem(1,-1)", "zel_recv(4,3840)", "silGiveSem(1)"}),
              sim::g.calls);
}

TEST_F(MainLoopTest, OnlyThePacketSocketReady) {
    sim::pushFrame(3, frame());
    pppoeplusMainLoopPass(4);
    EXPECT_EQ((std::vector<std::string>{"zel_select(5)", "silTakeSem(1,-1)", "zel_recvmsg(3)", "silGiveSem(1)"}),
              sim::g.calls);
}

TEST_F(MainLoopTest, SelectErrorStartsTheNextPass) {
    sim::pushFrame(3, frame());
    sim::failWhen("zel_select(5)", -1, 1, 4);
    pppoeplusMainLoopPass(4);
    EXPECT_EQ(std::vector<std::string>{"zel_select(5)"}, sim::g.calls);
    EXPECT_EQ(1u, sim::g.sockets[3].frames.size());
    pppoeplusMainLoopPass(4);
    EXPECT_TRUE(sim::g.sockets[3].frames.empty()) << "the next pass serves the frame";
}

TEST_F(MainLoopTest, DescriptorZeroIsNeverWatched) {
    gPppoeplus.pktFd = 0;
    pppoeplusMainLoopPass(4);
    ASSERT_EQ(1u, sim::g.selects.size());
    EXPECT_EQ(std::vector<int32_t>{4}, sim::g.selects[0].watched);

    gPppoeplus.pktFd = 3;
    gPppoeplus.rtSockFd = 0;
    pppoeplusMainLoopPass(4);
    EXPECT_EQ(std::vector<int32_t>{3}, sim::g.selects[1].watched);

    gPppoeplus.pktFd = -1;
    gPppoeplus.rtSockFd = 0;
    pppoeplusMainLoopPass(4);
    EXPECT_TRUE(sim::g.selects[2].watched.empty());
}

TEST_F(MainLoopTest, DescriptorZeroIsNeverServed) {
    // Even when the platform were to report descriptor 0 ready.
    gPppoeplus.pktFd = 0;
    gPppoeplus.rtSockFd = 0;
    sim::pushFrame(0, frame());
    pppoeplusMainLoopPass(4);
    EXPECT_EQ(std::vector<std::string>{"zel_select(5)"}, sim::g.calls);
}

TEST_F(MainLoopTest, AReceiverThatFindsNothingHasNoEffect) {
    // The route socket is reported ready but its read fails, then a read of
    // 0 bytes: neither does anything, and the loop goes on.
    pppoeplusDebugSwitchSet(0xF);
    sim::pushRead(4, {});
    sim::failWhen("zel_recv(4,3840)", -1, 1, 11);
    pppoeplusMainLoopPass(4);
    pppoeplusMainLoopPass(4);
    EXPECT_TRUE(sim::g.logs.empty());
    EXPECT_EQ(0, sim::g.sems[1].depth);
    sim::pushRead(4, std::vector<uint8_t>(24, 0));
    pppoeplusMainLoopPass(4);
    ASSERT_EQ(1u, sim::g.logs.size());
    EXPECT_EQ("Receive route message, length 24.\r\n", sim::g.logs[0].text);
    EXPECT_EQ(0x45D0003u, sim::g.logs[0].module);
    EXPECT_EQ(7u, sim::g.logs[0].level);
}

TEST_F(MainLoopTest, RouteTraceNeedsTheTraceSwitch) {
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_ERROR | PPPOEPLUS_DEBUG_STARTUP);
    sim::pushRead(4, std::vector<uint8_t>(40, 0));
    pppoeplusMainLoopPass(4);
    EXPECT_TRUE(sim::g.logs.empty());
}

using MainLoopDeathTest = MainLoopTest;

TEST_F(MainLoopDeathTest, MainRepeatsThePassForEver) {
    EXPECT_EXIT(
        {
            sim::g.calls.clear();
            sim::exitAfterCalls("zel_select", 4, 43);
            pppoeplusMain();
        },
        ::testing::ExitedWithCode(43), "^zel_select\\(5\\)\nzel_select\\(5\\)\nzel_select\\(5\\)\nzel_select\\(5\\)\n$");
}

}  // namespace
