// The process entry, built here under another name so that the test binary
// keeps its own main.
#include <csignal>
#include <string>
#include <vector>

#define main pppoeplusProcessMain
#include "daemon/main.cpp"
#undef main

#include "agent/global.h"
#include "support/fixture.h"

namespace {

using ProcessMainTest = SimTest;

TEST_F(ProcessMainTest, RefusedOptionEndsTheProcessWithMinusOne) {
    std::signal(SIGPIPE, SIG_DFL);
    sim::setOption("pppoeplus.enable", "false");
    EXPECT_EQ(-1, pppoeplusProcessMain());
    const std::vector<std::string> expected = {"silCatchSegFault()", "patchSignalHandler()",
                                               "procShellFuncInit(12)", "procShellInit(pppoeplus,0,0)",
                                               "silOptRead(pppoeplus.enable)"};
    EXPECT_EQ(expected, sim::g.calls);
    EXPECT_EQ(SIG_IGN, std::signal(SIGPIPE, SIG_DFL)) << "SIGPIPE is ignored";
    EXPECT_EQ("pppoeplus", sim::g.shellName);
    // The shell gets the diagnostic table, before it is registered.
    EXPECT_EQ(gPppoeplusShellFuncs, sim::g.shellFuncs);
    EXPECT_EQ(PPPOEPLUS_SHELL_FUNC_NUM, sim::g.shellFuncRows);
}

TEST_F(ProcessMainTest, FailedStartUpEndsTheProcessWithMinusOne) {
    sim::failWhen("silCreateTask*", 1);
    EXPECT_EQ(-1, pppoeplusProcessMain());
    EXPECT_EQ(0u, gPppoeplusInit);
    EXPECT_EQ(0u, sim::g.sleeps);
}

using ProcessMainDeathTest = ProcessMainTest;

TEST_F(ProcessMainDeathTest, AfterStartUpTheEntryThreadSleepsForEver) {
    EXPECT_EXIT(
        {
            sim::exitAfterCalls("silSleep", 3, 42);
            pppoeplusProcessMain();
        },
        ::testing::ExitedWithCode(42), "zelHwilScalarSet\\(0,499,141,0\\)\nsilSleep\\(10\\)\nsilSleep\\(10\\)\nsilSleep\\(10\\)\n$");
}

}  // namespace
