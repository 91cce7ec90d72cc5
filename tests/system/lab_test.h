// The base of the system tests' fixtures: one lab per test, torn down
// whatever happened (with the daemon's log on standard error when the test
// failed), pppoeplusctl that must succeed, and captures decoded by tshark.
#pragma once

#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "lab.h"

namespace st {

class LabTest : public ::testing::Test {
  protected:
    void TearDown() override {
        if (HasFailure() && lab_) {
            std::string log = lab_->daemonLog();
            if (log.size() > 6000) log = "..." + log.substr(log.size() - 6000);
            std::cerr << "---- pppoeplusd log ----\n" << log << "------------------------\n";
        }
        lab_.reset();  // namespaces, daemon and peers go, whatever happened
    }

    Lab& up(const Lab::Options& o = Lab::Options()) {
        lab_ = std::make_unique<Lab>();
        upOk_ = lab_->up(o);
        return *lab_;
    }

    // pppoeplusctl, which must succeed; its standard output.
    std::string ctl(const std::vector<std::string>& args) {
        Result r = lab_->ctl(args);
        if (r.status != 0) {
            std::string line;
            for (const std::string& a : args) line += " " + a;
            ADD_FAILURE() << "pppoeplusctl" << line << ": " << r.all();
        }
        return r.out;
    }

    // `frames` as tshark decodes them, through a capture file of the lab's.
    std::vector<Decoded> tshark(const Capture& cap, const std::vector<Frame>& frames) {
        std::string pcap = lab_->runtimeDir() + "/capture-" + std::to_string(pcaps_++) + ".pcap";
        cap.writePcap(pcap, frames);
        std::string error;
        std::vector<Decoded> d = tsharkDecode(pcap, error);
        EXPECT_EQ("", error);
        return d;
    }

    std::unique_ptr<Lab> lab_;
    bool upOk_ = false;
    int pcaps_ = 0;
};

}  // namespace st

#define LAB_UP(options)     \
    Lab& lab = up(options); \
    ASSERT_TRUE(upOk_) << lab.why();
