// The Prometheus text exposition of a snapshot of the agent.
#include "tools/metrics.h"

#include <cctype>
#include <sstream>

#include "mgmt/mgmt_codes.h"
#include "platform/types.h"
#include "vocab/settings.h"

namespace ctl {

using namespace vocab;

namespace {

struct CounterName {
    uint32_t code;
    const char* metric;
};

// The eight counters; the HELP text is the settings table's.
constexpr CounterName COUNTER_NAMES[] = {
    {PPPOEPLUS_IF_ERROR_RCV, "pppoeplus_interface_receive_errors_total"},
    {PPPOEPLUS_IF_ERROR_SEND, "pppoeplus_interface_send_errors_total"},
    {PPPOEPLUS_IF_PADI_RCV, "pppoeplus_interface_padi_received_total"},
    {PPPOEPLUS_IF_PADR_RCV, "pppoeplus_interface_padr_received_total"},
    {PPPOEPLUS_IF_PADO_RCV, "pppoeplus_interface_pado_received_total"},
    {PPPOEPLUS_IF_PADS_RCV, "pppoeplus_interface_pads_received_total"},
    {PPPOEPLUS_IF_PADT_RCV, "pppoeplus_interface_padt_received_total"},
    {PPPOEPLUS_IF_TOTAL_SEND, "pppoeplus_interface_sent_total"},
};

// A label value: backslash, double quote and line feed escaped.
std::string labelValue(const std::string& text) {
    std::string r;
    for (char c : text) {
        if (c == '\\') r += "\\\\";
        else if (c == '"') r += "\\\"";
        else if (c == '\n') r += "\\n";
        else r += c;
    }
    return r;
}

uint32_t truth(uint32_t word) { return word == ZEL_TRUE ? 1 : 0; }

void family(std::ostringstream& out, const char* name, const char* type, const std::string& help) {
    out << "# HELP " << name << " " << help << "\n# TYPE " << name << " " << type << "\n";
}

std::string labels(const MetricsInterface& i) {
    return "{interface=\"" + labelValue(i.name) + "\",unit=\"" + std::to_string(i.unit) + "\"}";
}

}  // namespace

const char* counterMetricName(uint32_t code) {
    for (const CounterName& c : COUNTER_NAMES)
        if (c.code == code) return c.metric;
    return nullptr;
}

std::string metricsText(const MetricsSnapshot& s) {
    std::ostringstream out;
    family(out, "pppoeplus_up", "gauge", "1 when pppoeplusctl read these values from pppoeplusd.");
    out << "pppoeplus_up 1\n";
    family(out, "pppoeplus_enabled", "gauge", "The agent as a whole is enabled (1) or not (0).");
    out << "pppoeplus_enabled " << truth(s.enable) << "\n";
    family(out, "pppoeplus_policy", "gauge",
           "Global Vendor-Specific tag policy: 0 default, 1 keep, 2 drop, 3 replace.");
    out << "pppoeplus_policy " << s.policy << "\n";
    family(out, "pppoeplus_vendor_id", "gauge", "Vendor id written into the agent's Vendor-Specific tag.");
    out << "pppoeplus_vendor_id " << s.vendorId << "\n";
    family(out, "pppoeplus_interfaces", "gauge", "Interfaces the agent serves (has an entry for).");
    out << "pppoeplus_interfaces " << s.interfaces.size() << "\n";

    struct State {
        const char* name;
        const char* help;
        uint32_t (*value)(const MetricsInterface&);
    };
    static const State STATES[] = {
        {"pppoeplus_interface_enabled", "The agent serves the interface (1) or its entry is disabled (0).",
         [](const MetricsInterface& i) { return truth(i.enable); }},
        {"pppoeplus_interface_trusted", "The interface is a trusted uplink (1) or a subscriber port (0).",
         [](const MetricsInterface& i) { return truth(i.trust); }},
        {"pppoeplus_interface_ignore_packets", "Frames received on the interface are ignored (1) or not (0).",
         [](const MetricsInterface& i) { return truth(i.ignore); }},
        {"pppoeplus_interface_policy",
         "Vendor-Specific tag policy of the interface: 0 default (the global one), 1 keep, 2 drop, 3 replace.",
         [](const MetricsInterface& i) { return i.policy; }},
    };
    for (const State& st : STATES) {
        family(out, st.name, "gauge", st.help);
        for (const MetricsInterface& i : s.interfaces) out << st.name << labels(i) << " " << st.value(i) << "\n";
    }
    const auto& counters = ifCounters();
    for (size_t k = 0; k < counters.size(); k++) {
        const char* name = counterMetricName(counters[k]->code);
        std::string help = counters[k]->help;
        help[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(help[0])));
        family(out, name, "counter", help + ".");
        for (const MetricsInterface& i : s.interfaces)
            out << name << labels(i) << " " << (k < i.counters.size() ? i.counters[k] : 0) << "\n";
    }
    if (s.policing) {
        family(out, "pppoeplus_interface_policed_total", "counter",
               "Discovery frames of the interface dropped in the kernel over its limit (policing).");
        for (const MetricsInterface& i : s.interfaces)
            if (i.policed) out << "pppoeplus_interface_policed_total" << labels(i) << " " << i.policeDropped << "\n";
        family(out, "pppoeplus_interface_error_disabled", "gauge",
               "The interface is error-disabled for exceeding its discovery limit (1) or served (0).");
        for (const MetricsInterface& i : s.interfaces)
            if (i.policed) out << "pppoeplus_interface_error_disabled" << labels(i) << " " << (i.errorDisabled ? 1 : 0) << "\n";
    }
    return out.str();
}

}  // namespace ctl
