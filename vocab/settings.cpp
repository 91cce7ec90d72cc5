// The table of global and interface settings, and finding a row by name.
#include "vocab/settings.h"

#include "mgmt/mgmt_codes.h"
#include "platform/number.h"
#include "vocab/text.h"

namespace vocab {

const std::vector<CommandInfo>& scalarCommands() {
    static const std::vector<CommandInfo> t = {
        {PPPOEPLUS_SCALAR_DEBUG, "debug", "debugSwitch", ValueType::Debug, true, true,
         "debug output switches: startup (0x1) start-up failures, dump (0x2) hex dumps of frames, "
         "trace (0x4) traces, error (0x8) errors"},
        {PPPOEPLUS_SCALAR_POLICY, "policy", nullptr, ValueType::Policy, true, true,
         "what happens to a client frame that already carries a Vendor-Specific tag, on interfaces whose own "
         "policy is default: keep it, drop it, replace it by the agent's; default here forwards no such frame"},
        {PPPOEPLUS_SCALAR_ENABLE, "enable", nullptr, ValueType::Truth, true, true,
         "the agent as a whole; off removes every interface entry, on recreates them when all-port-enable is on"},
        {PPPOEPLUS_SCALAR_VENDORID, "vendor-id", "vendorId", ValueType::Number, true, true,
         "vendor id (enterprise number) written into the agent's Vendor-Specific tag"},
        {PPPOEPLUS_SCALAR_CIRCUITID_TYPE, "circuit-id-type", "circuitIdFormatType", ValueType::FormatType, true, true,
         "type of the global Circuit-ID format; default installs the built-in format"},
        {PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, "circuit-id-format", "circuitIdFormat", ValueType::Text, true, true,
         "global Circuit-ID format (Ethernet ports), at most 255 bytes"},
        {PPPOEPLUS_SCALAR_REMOTEID_TYPE, "remote-id-type", "remoteIdFormatType", ValueType::FormatType, true, true,
         "type of the global Remote-ID format; default installs the built-in format"},
        {PPPOEPLUS_SCALAR_REMOTEID_FORMAT, "remote-id-format", "remoteIdFormat", ValueType::Text, true, true,
         "global Remote-ID format, at most 255 bytes"},
        {PPPOEPLUS_SCALAR_VERSION, "version", nullptr, ValueType::Text, true, false, "the daemon's version"},
        {PPPOEPLUS_SCALAR_DFLT_VENDORID, "default-vendor-id", "dfltVendorId", ValueType::Number, true, false,
         "the vendor id at start-up, which a reset restores"},
        {PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE, "pon-circuit-id-type", "ponCircuitIdFormatType", ValueType::FormatType,
         true, true, "type of the global Circuit-ID format of PON ports"},
        {PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT, "pon-circuit-id-format", "ponCircuitIdFormat", ValueType::Text, true,
         true, "global Circuit-ID format of PON ports (their tag carries no Remote-ID), at most 255 bytes"},
        {PPPOEPLUS_SCALAR_ALLPORT_ENABLE_SUPPORT, "all-port-enable", "isAllPortEnableSupport allPortEnableSupport", ValueType::Truth, true,
         false, "every eligible port gets an entry (pppoeplus.defaultportenable)"},
        {PPPOEPLUS_SCALAR_ETHIF_ENABLE, "eth-if-enable", "ethIfEnable", ValueType::Truth, true, false,
         "Ethernet ports are eligible (pppoeplus.ethifenable)"},
        {PPPOEPLUS_SCALAR_ETHAGGIF_ENABLE, "eth-agg-if-enable", "ethAggIfEnable", ValueType::Truth, true, false,
         "Ethernet aggregates are eligible (pppoeplus.ethaggifenable)"},
        {PPPOEPLUS_SCALAR_GPONIF_ENABLE, "gpon-if-enable", "gponIfEnable", ValueType::Truth, true, false,
         "G-PON ports are eligible (pppoeplus.gponifenable)"},
        {PPPOEPLUS_SCALAR_PONAGGIF_ENABLE, "pon-agg-if-enable", "ponAggIfEnable", ValueType::Truth, true, false,
         "PON aggregates are eligible (pppoeplus.ponaggifenable)"},
        {PPPOEPLUS_SCALAR_NSRINFO, "nsr-info", "nsrInfo", ValueType::Nsr, true, false,
         "non-stop-routing status: switchover, incomplete and all operations"},
        {PLAT_POLICE_RATE, "police-rate", "policeRate", ValueType::Number, true, true,
         "discovery frames a second each port may send, policed in the kernel (0 to 1000000; 0: off); the "
         "default of every port (uplinks: only their own)",
         Owner::Platform, 0, POLICE_RATE_MAX},
        {PLAT_POLICE_BURST, "police-burst", "policeBurst", ValueType::Number, true, true,
         "discovery frames a port may send back to back (1 to 1000000); the default of every port",
         Owner::Platform, POLICE_BURST_MIN, POLICE_BURST_MAX},
        {PLAT_ERRDISABLE_TIME, "errdisable-time", "errdisableTime", ValueType::Number, true, true,
         "seconds in a row over its discovery limit that error-disable a port (0 to 86400; 0: off)",
         Owner::Platform, 0, ERRDISABLE_TIME_MAX},
        {PLAT_ERRDISABLE_HOLD, "errdisable-hold", "errdisableHold", ValueType::Number, true, true,
         "seconds an error-disabled port is not served (1 to 604800)", Owner::Platform, ERRDISABLE_HOLD_MIN,
         ERRDISABLE_HOLD_MAX},
    };
    return t;
}

const std::vector<CommandInfo>& ifCommands() {
    static const std::vector<CommandInfo> t = {
        {PPPOEPLUS_IF_TRUST, "trust", nullptr, ValueType::Truth, true, true,
         "a trusted interface is an uplink: the agent sends its tagged frames there and ignores what it receives"},
        {PPPOEPLUS_IF_ENABLE, "enable", nullptr, ValueType::Truth, true, true,
         "the agent serves the interface; on creates the entry, off removes it (or disables it when "
         "all-port-enable is on)"},
        {PPPOEPLUS_IF_POLICY, "policy", nullptr, ValueType::Policy, true, true,
         "Vendor-Specific tag policy of the interface; default follows the global policy"},
        {PPPOEPLUS_IF_IGNORE_PKT, "ignore-pkt", "ignorePkt", ValueType::Truth, true, true,
         "on: frames received on the interface are ignored"},
        {PPPOEPLUS_IF_CIRCUITID_TYPE, "circuit-id-type", "circuitIdFormatType", ValueType::FormatType, true, true,
         "type of the interface's own Circuit-ID format; default uses the global one"},
        {PPPOEPLUS_IF_CIRCUITID_FORMAT, "circuit-id-format", "circuitIdFormat", ValueType::Text, true, true,
         "the interface's own Circuit-ID format (a get with type default shows the global one)"},
        {PPPOEPLUS_IF_REMOTEID_TYPE, "remote-id-type", "remoteIdFormatType", ValueType::FormatType, true, true,
         "type of the interface's own Remote-ID format; default uses the global one"},
        {PPPOEPLUS_IF_REMOTEID_FORMAT, "remote-id-format", "remoteIdFormat", ValueType::Text, true, true,
         "the interface's own Remote-ID format (a get with type default shows the global one)"},
        {PPPOEPLUS_IF_ERROR_RCV, "error-rcv", "errorRcv", ValueType::Counter, true, false,
         "frames received here that failed validation and were dropped"},
        {PPPOEPLUS_IF_ERROR_SEND, "error-send", "errorSend", ValueType::Counter, true, false,
         "frames the agent failed to send out of this interface"},
        {PPPOEPLUS_IF_PADI_RCV, "padi-rcv", "padiRcv", ValueType::Counter, true, false, "valid PADI received here"},
        {PPPOEPLUS_IF_PADR_RCV, "padr-rcv", "padrRcv", ValueType::Counter, true, false, "valid PADR received here"},
        {PPPOEPLUS_IF_PADO_RCV, "pado-rcv", "padoRcv", ValueType::Counter, true, false,
         "valid PADO received here (counted, never forwarded)"},
        {PPPOEPLUS_IF_PADS_RCV, "pads-rcv", "padsRcv", ValueType::Counter, true, false,
         "valid PADS received here (counted, never forwarded)"},
        {PPPOEPLUS_IF_PADT_RCV, "padt-rcv", "padtRcv", ValueType::Counter, true, false, "valid PADT received here"},
        {PPPOEPLUS_IF_TOTAL_SEND, "total-send", "totalSend", ValueType::Counter, true, false,
         "frames the agent sent out of this interface (an uplink)"},
        {PPPOEPLUS_IF_STAT_CLEAR, "stat-clear", "clear", ValueType::Ignored, false, true,
         "sets the eight counters to zero (set only; the value does not matter)"},
        {PLAT_POLICE_RATE, "police-rate", "policeRate", ValueType::NumberOrDefault, true, true,
         "the interface's own discovery limit in frames a second (0 to 1000000; 0: off); default follows the "
         "global one",
         Owner::Platform, 0, POLICE_RATE_MAX},
        {PLAT_POLICE_BURST, "police-burst", "policeBurst", ValueType::NumberOrDefault, true, true,
         "the interface's own discovery burst (1 to 1000000); default follows the global one", Owner::Platform,
         POLICE_BURST_MIN, POLICE_BURST_MAX},
    };
    return t;
}

const std::vector<const CommandInfo*>& ifCounters() {
    static const std::vector<const CommandInfo*> t = [] {
        std::vector<const CommandInfo*> v;
        for (const CommandInfo& c : ifCommands())
            if (c.type == ValueType::Counter) v.push_back(&c);
        return v;
    }();
    return t;
}

namespace {

std::optional<CommandInfo> findIn(const std::vector<CommandInfo>& table, const std::string& nameOrCode,
                                  const char* constPrefix) {
    if (auto code = numberParseU32(nameOrCode)) {
        for (const CommandInfo& c : table)
            if (c.code == *code) return c;
        return CommandInfo{*code, nullptr, nullptr, ValueType::Number, true, true, nullptr};
    }
    std::string n = normalName(nameOrCode);
    const std::string prefix = normalName(constPrefix);
    if (n.size() > prefix.size() && n.compare(0, prefix.size(), prefix) == 0) n = n.substr(prefix.size());
    if (n.empty()) return std::nullopt;
    for (const CommandInfo& c : table) {
        if (n == normalName(c.name)) return c;
        if (c.alias == nullptr) continue;
        for (const std::string& a : split(c.alias, " "))
            if (n == normalName(a)) return c;
    }
    return std::nullopt;
}

}  // namespace

MapRows mapRows(bool perInterface) {
    return perInterface ? MapRows{PPPOEPLUS_FUNC_IF_GET, PPPOEPLUS_FUNC_IF_SET}
                        : MapRows{PPPOEPLUS_FUNC_SCALAR_GET, PPPOEPLUS_FUNC_SCALAR_SET};
}
uint32_t ifFirstRow() { return PPPOEPLUS_FUNC_IF_GET_FIRST; }
uint32_t ifNextRow() { return PPPOEPLUS_FUNC_IF_GET_NEXT; }

bool isEnable(const CommandInfo& c, bool perInterface) {
    return c.owner == Owner::Agent && c.code == (perInterface ? PPPOEPLUS_IF_ENABLE : PPPOEPLUS_SCALAR_ENABLE);
}

std::optional<uint32_t> formatTypeCode(const CommandInfo& c, bool perInterface) {
    if (c.owner != Owner::Agent || c.type != ValueType::Text) return std::nullopt;
    if (perInterface) {
        if (c.code == PPPOEPLUS_IF_CIRCUITID_FORMAT) return PPPOEPLUS_IF_CIRCUITID_TYPE;
        if (c.code == PPPOEPLUS_IF_REMOTEID_FORMAT) return PPPOEPLUS_IF_REMOTEID_TYPE;
        return std::nullopt;
    }
    if (c.code == PPPOEPLUS_SCALAR_CIRCUITID_FORMAT) return PPPOEPLUS_SCALAR_CIRCUITID_TYPE;
    if (c.code == PPPOEPLUS_SCALAR_REMOTEID_FORMAT) return PPPOEPLUS_SCALAR_REMOTEID_TYPE;
    if (c.code == PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT) return PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE;
    return std::nullopt;
}

std::optional<CommandInfo> findScalar(const std::string& nameOrCode) {
    return findIn(scalarCommands(), nameOrCode, "PPPOEPLUS_SCALAR_");
}

std::optional<CommandInfo> findIf(const std::string& nameOrCode) {
    return findIn(ifCommands(), nameOrCode, "PPPOEPLUS_IF_");
}

}  // namespace vocab
