#include "support/fixture.h"

#include <cstring>

#include "agent/global.h"
#include "daemon/startup.h"
#include "diag/diag.h"
#include "packet/pkt_recv.h"
#include "platform/common/mem_pool.h"

void pppoeplusTestReset() {
    memPoolDestroy(&gPppoeplus.ifPool);
    std::memset(&gPppoeplus, 0, sizeof(gPppoeplus));
    gPppoeplusInit = 0;
    gPppoeplusTestForward = 0;
    std::memset(&gTestOnuInfo, 0, sizeof(gTestOnuInfo));
    sim::reset();
}

void pppoeplusTestStart(uint32_t defaultEnable, uint32_t defaultPortEnable) {
    ASSERT_EQ(0u, pppoeplusInit(0, defaultEnable, 0, 1, 0, defaultPortEnable, 1, 1, 0, 0));
    ASSERT_EQ(1u, gPppoeplusInit);
    sim::g.calls.clear();
    sim::g.logs.clear();
    sim::g.callCounts.clear();
}
