// pppoeplusctl metrics: the agent's states and counters in the Prometheus
// text exposition format (version 0.0.4), for a textfile collector or any
// scraper that reads a file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ctl {

// One served interface as the daemon reports it: the raw words of its
// settings and its eight counters in the order of ifCounters().
struct MetricsInterface {
    uint32_t unit = 0;
    std::string name;  // this namespace's name of the unit, empty when none
    uint32_t enable = 0;
    uint32_t trust = 0;
    uint32_t ignore = 0;
    uint32_t policy = 0;
    std::vector<uint32_t> counters;
    // Policing of discovery, when the daemon polices: frames dropped over
    // the port's limit, and whether the port is error-disabled.
    bool policed = false;
    uint64_t policeDropped = 0;
    bool errorDisabled = false;
};

struct MetricsSnapshot {
    uint32_t enable = 0;    // truth value: 1 on, 2 off
    uint32_t policy = 0;    // 0 default, 1 keep, 2 drop, 3 replace
    uint32_t vendorId = 0;
    std::vector<MetricsInterface> interfaces;
    bool policing = false;  // the daemon polices discovery (the policing families are written)
};

// The whole exposition: HELP and TYPE lines, then the samples of each
// family, interfaces labelled interface="NAME",unit="UNIT".
std::string metricsText(const MetricsSnapshot& s);

// The name of the counter family of an interface command code
// ("pppoeplus_interface_padi_received_total"); nullptr for other codes.
const char* counterMetricName(uint32_t code);

}  // namespace ctl
