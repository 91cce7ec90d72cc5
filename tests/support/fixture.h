// Test fixture: every test starts from an empty simulated device and a
// zeroed daemon, and leaves nothing behind.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/sim/sim.h"

// Zeroes the daemon's global record and test globals, frees the interface
// pool and resets the simulated platform.
void pppoeplusTestReset();

// Starts the daemon through pppoeplusInit with the start-up defaults (agent
// off, all-port off, pon-olt, 9 x 20 interfaces) and clears the call record.
// Fails the test when start-up fails.
void pppoeplusTestStart(uint32_t defaultEnable = 0, uint32_t defaultPortEnable = 0);

class SimTest : public ::testing::Test {
  protected:
    void SetUp() override { pppoeplusTestReset(); }
    void TearDown() override { pppoeplusTestReset(); }
};
