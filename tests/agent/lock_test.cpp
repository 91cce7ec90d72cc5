// The daemon lock: the semaphore of the global record, taken without time
// limit.
#include <string>
#include <vector>

#include "agent/global.h"
#include "agent/lock.h"
#include "platform/types.h"
#include "support/fixture.h"

namespace {

class LockTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        pppoeplusTestStart();
    }
};

TEST_F(LockTest, LockAndUnlock) {
    EXPECT_EQ(0u, pppoeplusLock());
    EXPECT_EQ(0u, pppoeplusUnlock());
    EXPECT_EQ((std::vector<std::string>{"silTakeSem(1,-1)", "silGiveSem(1)"}), sim::g.calls);
    sim::failWhen("silTakeSem(1,-1)", ZEL_ERR_GENERAL, 1);
    EXPECT_EQ(static_cast<uint32_t>(ZEL_ERR_GENERAL), pppoeplusLock()) << "the platform's result is returned";
}

}  // namespace
