// pppoeplusctl's logic: tables, words, parsing, output and the run of one
// command line. No socket and no system call here: the transport and the
// interface names come from the caller.
#include "tools/ctl.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iomanip>
#include <map>
#include <sstream>

#include "mgmt/mgmt_codes.h"
#include "platform/types.h"

namespace ctl {

namespace {

// ---- small text helpers -------------------------------------------------------------------

std::string lower(std::string_view s) {
    std::string r(s);
    for (char& c : r) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return r;
}

// Lower case without '-', '_' and blanks: "Circuit-Id_Type" and "circuitidtype" meet.
std::string normalName(std::string_view s) {
    std::string r;
    for (char c : s) {
        if (c == '-' || c == '_' || c == ' ') continue;
        r += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return r;
}

std::string hex(uint32_t v) {
    std::ostringstream s;
    s << "0x" << std::uppercase << std::hex << v;
    return s.str();
}

std::vector<std::string> split(const std::string& s, const std::string& seps) {
    std::vector<std::string> out;
    std::string cur;
    for (char c : s) {
        if (seps.find(c) != std::string::npos) {
            if (!cur.empty()) out.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    if (!cur.empty()) out.push_back(cur);
    return out;
}

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos) return "";
    size_t e = s.find_last_not_of(" \t");
    return s.substr(b, e - b + 1);
}

// The daemon's text output ends its lines in "\r\n"; a terminal wants "\n".
std::string plainLines(const std::string& s) {
    std::string r;
    r.reserve(s.size());
    for (size_t i = 0; i < s.size(); i++) {
        if (s[i] == '\r' && i + 1 < s.size() && s[i + 1] == '\n') continue;
        r += s[i];
    }
    return r;
}

// `text` in lines of at most `width` characters, each starting with `indent`.
std::string wrap(const std::string& text, const std::string& indent, size_t width) {
    std::string out, line;
    for (const std::string& word : split(text, " ")) {
        if (!line.empty() && indent.size() + line.size() + 1 + word.size() > width) {
            out += indent + line + "\n";
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    if (!line.empty()) out += indent + line + "\n";
    return out;
}

// ---- tables -----------------------------------------------------------------------------

const char* const DEBUG_WORDS[4] = {"startup", "dump", "trace", "error"};

}  // namespace

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
    if (auto code = parseU32(nameOrCode)) {
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

std::optional<CommandInfo> findScalar(const std::string& nameOrCode) {
    return findIn(scalarCommands(), nameOrCode, "PPPOEPLUS_SCALAR_");
}

std::optional<CommandInfo> findIf(const std::string& nameOrCode) {
    return findIn(ifCommands(), nameOrCode, "PPPOEPLUS_IF_");
}

// ---- result codes ---------------------------------------------------------------------------

ResultInfo resultInfo(int32_t result, ResultSource source) {
    const bool proto = source == ResultSource::Protocol;
    switch (result) {
        case 0: return {"OK", "success"};
        case PPPOEPLUS_ERR: return {"PPPOEPLUS_ERR", "the operation failed"};
        case ZEL_EINVAL: return {"ZEL_EINVAL", "invalid value or format"};
        case ZEL_ERR_GENERAL: return {"ZEL_ERR_GENERAL", "general failure"};
        case ZEL_ERR_NOT_FOUND:
            if (proto) return {"ERR_NOT_FOUND", "no such function, variable or interface"};
            return {"ZEL_ERR_NOT_FOUND", "no such entry (an interface the agent does not serve yet: "
                                         "'if IF set enable on' creates its entry)"};
        case ZEL_ERR_EXISTS: return {"ZEL_ERR_EXISTS", "already exists"};
        case ZEL_ERR_INVALID_ARG:
            if (proto) return {"ERR_MALFORMED", "malformed request"};
            return {"ZEL_ERR_INVALID_ARG", "invalid argument"};
        case ZEL_ERR_TOO_LONG:
            if (proto) return {"ERR_TOO_LONG", "request too long"};
            return {"ZEL_ERR_TOO_LONG", "value too long (a format takes at most 255 bytes)"};
        case ZEL_ERR_NO_RESOURCE: return {"ZEL_ERR_NO_RESOURCE", "no room for another interface entry"};
        case ZEL_ERR_UNSUPPORTED:
            if (proto) return {"ERR_UNSUPPORTED", "request not supported"};
            return {"ZEL_ERR_UNSUPPORTED", "not supported (an unknown code, or a value that can only be read)"};
        case ZEL_ERR_NULL_POINTER: return {"ZEL_ERR_NULL_POINTER", "no value given"};
        case ZEL_ERR_SET_SOCKOPT:
            return {"ZEL_ERR_SET_SOCKOPT", "the packet socket's receive buffer could not be set"};
        case cmdp::ERR_DENIED:
            return {"ERR_DENIED",
                    "not allowed (a peer without the right, or a shell call the process does not offer)"};
        default: return {"UNKNOWN", "a result this tool has no name for"};
    }
}

std::string resultValueText(int32_t result) {
    if (result >= ZEL_ERR_BASE && result < ZEL_ERR_BASE + 0x10000) return hex(static_cast<uint32_t>(result));
    return std::to_string(result);
}

std::string resultText(int32_t result, ResultSource source) {
    return std::string(resultInfo(result, source).name) + " (" + resultValueText(result) + ")";
}

// ---- values -------------------------------------------------------------------------------

std::optional<uint32_t> parseU32(std::string_view text) {
    if (text.empty()) return std::nullopt;
    uint64_t v = 0;
    int base = 10;
    size_t i = 0;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        i = 2;
    }
    for (; i < text.size(); i++) {
        int d;
        char c = text[i];
        if (c >= '0' && c <= '9') d = c - '0';
        else if (base == 16 && c >= 'a' && c <= 'f') d = c - 'a' + 10;
        else if (base == 16 && c >= 'A' && c <= 'F') d = c - 'A' + 10;
        else return std::nullopt;
        v = v * base + static_cast<uint64_t>(d);
        if (v > 0xFFFFFFFFull) return std::nullopt;
    }
    return static_cast<uint32_t>(v);
}

std::optional<int64_t> parseI64(std::string_view text) {
    bool neg = false;
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) {
        neg = text[0] == '-';
        text.remove_prefix(1);
    }
    if (text.empty()) return std::nullopt;
    uint64_t v = 0;
    int base = 10;
    size_t i = 0;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        i = 2;
    }
    for (; i < text.size(); i++) {
        int d;
        char c = text[i];
        if (c >= '0' && c <= '9') d = c - '0';
        else if (base == 16 && c >= 'a' && c <= 'f') d = c - 'a' + 10;
        else if (base == 16 && c >= 'A' && c <= 'F') d = c - 'A' + 10;
        else return std::nullopt;
        if (v > (0xFFFFFFFFFFFFFFFFull - static_cast<uint64_t>(d)) / static_cast<uint64_t>(base)) return std::nullopt;
        v = v * base + static_cast<uint64_t>(d);
    }
    if (!neg && v > static_cast<uint64_t>(INT64_MAX)) return std::nullopt;
    if (neg && v > static_cast<uint64_t>(INT64_MAX) + 1) return std::nullopt;
    return neg ? static_cast<int64_t>(0 - v) : static_cast<int64_t>(v);
}

std::string acceptedWords(ValueType type) {
    switch (type) {
        case ValueType::Truth: return "on or off (also true/false, yes/no, enable/disable), or a number (1 on, 2 off)";
        case ValueType::Policy: return "default, keep, drop or replace, or a number (0 to 3)";
        case ValueType::FormatType: return "default, userdefine or ascii, or a number (0 to 2)";
        case ValueType::Debug:
            return "none, all, or startup, dump, trace, error joined by commas, or a number (0x0 to 0xF)";
        case ValueType::Number:
        case ValueType::Counter:
        case ValueType::Nsr: return "a number, decimal or 0x hexadecimal";
        case ValueType::Text: return "a text";
        case ValueType::Ignored: return "anything (the value is not used)";
    }
    return "";
}

ParsedWord parseValue(ValueType type, const std::string& text) {
    ParsedWord r;
    auto ok = [&r](uint32_t v) {
        r.ok = true;
        r.value = v;
        return r;
    };
    if (type == ValueType::Ignored) return ok(0);
    if (type != ValueType::Debug) {
        if (auto n = parseU32(text)) return ok(*n);
    }
    const std::string w = lower(trim(text));
    switch (type) {
        case ValueType::Truth:
            if (w == "on" || w == "true" || w == "yes" || w == "enable" || w == "enabled" || w == "zel_true")
                return ok(ZEL_TRUE);
            if (w == "off" || w == "false" || w == "no" || w == "disable" || w == "disabled" || w == "zel_false")
                return ok(ZEL_FALSE);
            break;
        case ValueType::Policy:
            if (w == "default") return ok(0);
            if (w == "keep") return ok(1);
            if (w == "drop") return ok(2);
            if (w == "replace") return ok(3);
            break;
        case ValueType::FormatType:
            if (w == "default") return ok(0);
            if (w == "userdefine" || w == "user-define" || w == "user") return ok(1);
            if (w == "ascii") return ok(2);
            break;
        case ValueType::Debug: {
            std::vector<std::string> parts = split(w, ",+| ");
            if (parts.empty()) break;
            uint32_t v = 0;
            bool good = true;
            for (const std::string& p : parts) {
                if (auto n = parseU32(p)) v |= *n;
                else if (p == "none" || p == "off") v |= 0;
                else if (p == "all") v |= 0xF;
                else if (p == "startup") v |= 0x1;
                else if (p == "dump" || p == "dumps") v |= 0x2;
                else if (p == "trace" || p == "traces" || p == "event" || p == "events") v |= 0x4;
                else if (p == "error" || p == "errors") v |= 0x8;
                else good = false;
            }
            if (good) return ok(v);
            break;
        }
        default: break;
    }
    r.error = "invalid value '" + text + "': expected " + acceptedWords(type);
    return r;
}

std::string valueWord(ValueType type, uint32_t value) {
    switch (type) {
        case ValueType::Truth:
            if (value == ZEL_TRUE) return "on";
            if (value == ZEL_FALSE) return "off";
            if (value == 0) return "unset";
            return "unknown (" + std::to_string(value) + ")";
        case ValueType::Policy: {
            static const char* const w[] = {"default", "keep", "drop", "replace"};
            if (value < 4) return w[value];
            return "unknown (" + std::to_string(value) + ")";
        }
        case ValueType::FormatType: {
            static const char* const w[] = {"default", "userdefine", "ascii"};
            if (value < 3) return w[value];
            return "unknown (" + std::to_string(value) + ")";
        }
        case ValueType::Debug: {
            std::string words;
            for (int b = 0; b < 4; b++) {
                if ((value & (1u << b)) == 0) continue;
                if (!words.empty()) words += ",";
                words += DEBUG_WORDS[b];
            }
            if ((value & ~0xFu) != 0) words += words.empty() ? "other" : ",other";
            if (words.empty()) words = "none";
            return hex(value) + " (" + words + ")";
        }
        default: return std::to_string(value);
    }
}

std::optional<NsrInfo> nsrFromBytes(const std::vector<uint8_t>& bytes) {
    if (bytes.size() < 12) return std::nullopt;
    NsrInfo n;
    std::memcpy(&n.switchover, bytes.data(), 4);
    std::memcpy(&n.incompleteOp, bytes.data() + 4, 4);
    std::memcpy(&n.allOp, bytes.data() + 8, 4);
    return n;
}

// ---- JSON -----------------------------------------------------------------------------------

std::string jsonString(std::string_view text) {
    std::string r = "\"";
    for (char ch : text) {
        unsigned char c = static_cast<unsigned char>(ch);
        switch (c) {
            case '"': r += "\\\""; break;
            case '\\': r += "\\\\"; break;
            case '\n': r += "\\n"; break;
            case '\r': r += "\\r"; break;
            case '\t': r += "\\t"; break;
            default:
                if (c < 0x20 || c >= 0x7F) {
                    static const char digits[] = "0123456789abcdef";
                    r += "\\u00";
                    r += digits[c >> 4];
                    r += digits[c & 0xF];
                } else {
                    r += static_cast<char>(c);
                }
        }
    }
    r += "\"";
    return r;
}

Json Json::object() { return Json(); }

Json Json::array() {
    Json j;
    j.isArray_ = true;
    return j;
}

Json& Json::add(const std::string& key, const std::string& value) { return addRaw(key, jsonString(value)); }
Json& Json::add(const std::string& key, const char* value) { return addRaw(key, jsonString(value)); }
Json& Json::add(const std::string& key, int64_t value) { return addRaw(key, std::to_string(value)); }
Json& Json::add(const std::string& key, bool value) { return addRaw(key, value ? "true" : "false"); }

Json& Json::addRaw(const std::string& key, const std::string& json) {
    items_.push_back(jsonString(key) + ":" + json);
    return *this;
}

Json& Json::push(const Json& value) { return pushRaw(value.str()); }

Json& Json::merge(const Json& other) {
    items_.insert(items_.end(), other.items_.begin(), other.items_.end());
    return *this;
}

Json& Json::pushRaw(const std::string& json) {
    items_.push_back(json);
    return *this;
}

std::string Json::str() const {
    std::string r = isArray_ ? "[" : "{";
    for (size_t i = 0; i < items_.size(); i++) {
        if (i > 0) r += ",";
        r += items_[i];
    }
    r += isArray_ ? "]" : "}";
    return r;
}

// ---- help -------------------------------------------------------------------------------------

namespace {

const char* const HELP_MAIN =
    "Usage: pppoeplusctl [OPTIONS] COMMAND [ARGUMENTS]\n"
    "\n"
    "Manages a running pppoeplusd, the PPPoE intermediate agent, through its\n"
    "command service, process shell and event socket.\n"
    "\n"
    "Commands:\n"
    "  get [NAME]                 show a global setting, or all of them\n"
    "  set NAME VALUE             change a global setting\n"
    "  sync NAME VALUE            change a global setting as a sync (see 'help sync')\n"
    "  if list                    the interfaces the agent serves, and their counters\n"
    "  if IF get [NAME]           show a setting or counter of an interface, or all\n"
    "  if IF set NAME VALUE       change a setting of an interface\n"
    "  if IF sync NAME VALUE      change a setting of an interface as a sync\n"
    "  if IF counters             the eight counters of an interface\n"
    "  if IF clear                set the counters of an interface to zero\n"
    "  shell FUNCTION [ARG...]    call a diagnostic function; 'shell' alone lists them\n"
    "  event reset-port IF        raise the event that resets a port's configuration\n"
    "  event reset-proto [ID...]  raise the event that resets protocols' settings\n"
    "                             (default 141, the agent's own protocol)\n"
    "  help [TOPIC]               this text, or a topic: get set sync if shell event\n"
    "                             names results\n"
    "\n"
    "NAME is the name of a setting or counter ('pppoeplusctl help names') or its\n"
    "command code. Values are words (on/off, keep/drop/replace/default,\n"
    "default/userdefine/ascii) or numbers. IF is an interface name or an interface\n"
    "unit (on Linux its ifindex). Names are looked up in this tool's network\n"
    "namespace: run the tool in the daemon's namespace (ip netns exec NS ...).\n"
    "\n"
    "Options (before the command):\n"
    "  --json               print the result as one JSON object, for scripts\n"
    "  --root DIR           the daemon's PPPOEPLUS_ROOT: its sockets are in DIR\n"
    "                       instead of /tmp (default: $PPPOEPLUS_ROOT, else\n"
    "                       /run/pppoeplus when the daemon's socket is there)\n"
    "  --socket PATH        the command service (default /tmp/pppoeplusNm.socket)\n"
    "  --shell-socket PATH  the process shell (default /tmp/pppoeplusShell.socket)\n"
    "  --event-socket PATH  the event socket (default /tmp/zelRouteEvent.socket)\n"
    "  --timeout SECONDS    how long to wait for a reply (default 10, shell 30)\n"
    "  -h, --help           this text; after a command, the help of that command\n"
    "  --version            the tool's version\n"
    "\n"
    "Exit status:\n"
    "  0  success\n"
    "  1  the daemon answered with a result other than 0; the message names it\n"
    "     and gives its value, e.g. ZEL_ERR_NOT_FOUND (0x3E80002) ('help results')\n"
    "  2  the command line is wrong: unknown command, name, value or interface\n"
    "  3  the daemon could not be reached, or the exchange with it failed\n"
    "\n"
    "The command service admits root and the members of platform.group; the\n"
    "process shell and the event socket admit root only.\n"
    "\n"
    "Examples:\n"
    "  pppoeplusctl get\n"
    "  pppoeplusctl set enable on\n"
    "  pppoeplusctl set policy replace\n"
    "  pppoeplusctl if eth9 set trust on\n"
    "  pppoeplusctl if eth1 set circuit-id-type userdefine\n"
    "  pppoeplusctl if eth1 set circuit-id-format \"'%portname/%svlan/%cvlan'\"\n"
    "  pppoeplusctl if eth1 counters\n"
    "  pppoeplusctl --json if list\n"
    "  pppoeplusctl shell pppoeplusShow\n"
    "  pppoeplusctl event reset-port eth1\n";

const char* const HELP_GET =
    "Usage: pppoeplusctl [--json] get [NAME]\n"
    "\n"
    "Shows a global setting of the agent, or with no NAME every global value in\n"
    "code order. NAME is one of the names of 'pppoeplusctl help names' (global\n"
    "part) or a command code; a code the daemon does not know is answered with\n"
    "ZEL_ERR_UNSUPPORTED (0x3E80010).\n"
    "\n"
    "Enumerated values are shown as words (on/off, keep/drop/replace/default,\n"
    "default/userdefine/ascii), formats as the text that was typed; with --json\n"
    "the number the daemon holds is given as \"raw\" beside the word.\n"
    "\n"
    "Examples:\n"
    "  pppoeplusctl get policy\n"
    "  pppoeplusctl get circuit-id-format\n"
    "  pppoeplusctl --json get vendor-id\n";

const char* const HELP_SET =
    "Usage: pppoeplusctl [--json] set NAME VALUE\n"
    "\n"
    "Changes a global setting. The daemon forwards the command to the hardware\n"
    "layer first, then checks and applies it.\n"
    "\n"
    "  debug VALUE              none, all, or startup,dump,trace,error, or a mask\n"
    "  policy VALUE             default, keep, drop or replace: what happens to a\n"
    "                           client frame that already carries a Vendor-Specific\n"
    "                           tag (keep it, remove it, replace it by the agent's;\n"
    "                           default at the global level forwards nothing)\n"
    "  enable on|off            switch the whole agent on or off; off removes every\n"
    "                           interface entry\n"
    "  vendor-id NUMBER         vendor id of the agent's tag (3561 at start)\n"
    "  circuit-id-type TYPE     default (the built-in format), userdefine (keywords\n"
    "                           such as %portname, typed in full) or ascii (the\n"
    "                           text as it stands)\n"
    "  circuit-id-format TEXT   the format; set the type first\n"
    "  remote-id-type TYPE, remote-id-format TEXT\n"
    "  pon-circuit-id-type TYPE, pon-circuit-id-format TEXT   the same for PON ports\n"
    "\n"
    "The other names can only be read: a set answers ZEL_ERR_UNSUPPORTED.\n"
    "A rejected value or format gives ZEL_EINVAL (22), a format of 256 bytes or\n"
    "more ZEL_ERR_TOO_LONG (0x3E8000D). A text value may be given as several\n"
    "arguments; they are joined by single blanks.\n"
    "\n"
    "Examples:\n"
    "  pppoeplusctl set enable off\n"
    "  pppoeplusctl set policy keep\n"
    "  pppoeplusctl set circuit-id-type userdefine\n"
    "  pppoeplusctl set circuit-id-format \"'%portname:%svlan.%cvlan'\"\n"
    "  pppoeplusctl set remote-id-format \"0x01 %16s %c\"     (a hex format)\n";

const char* const HELP_SYNC =
    "Usage: pppoeplusctl [--json] sync NAME VALUE\n"
    "       pppoeplusctl [--json] if IF sync NAME VALUE\n"
    "\n"
    "Like set, with the same names, values, checks and effects on the agent; the\n"
    "only difference is the mode word handed to the hardware layer with the\n"
    "command (1, a sync, instead of 3, a set), as a standby board or a restore of\n"
    "saved configuration would send it.\n";

const char* const HELP_IF =
    "Usage: pppoeplusctl [--json] if list\n"
    "       pppoeplusctl [--json] if IF get [NAME]\n"
    "       pppoeplusctl [--json] if IF set NAME VALUE\n"
    "       pppoeplusctl [--json] if IF sync NAME VALUE\n"
    "       pppoeplusctl [--json] if IF counters\n"
    "       pppoeplusctl [--json] if IF clear\n"
    "\n"
    "IF is an interface name of this tool's network namespace or an interface\n"
    "unit (ifindex). An interface the agent does not serve has no entry: every\n"
    "command on it answers ZEL_ERR_NOT_FOUND (0x3E80002), except 'set enable on',\n"
    "which creates the entry.\n"
    "\n"
    "  list                     every served interface in unit order: enable,\n"
    "                           trust, policy and the counters\n"
    "  get [NAME]               one setting or counter, or all of them\n"
    "  set trust on|off         on makes the interface an uplink: the agent sends\n"
    "                           its tagged frames there and takes nothing from it\n"
    "  set enable on|off        serve the interface, or stop serving it\n"
    "  set policy VALUE         default (follow the global policy), keep, drop or\n"
    "                           replace\n"
    "  set ignore-pkt on|off    ignore the frames received on the interface\n"
    "  set circuit-id-type TYPE default (use the global format), userdefine, ascii\n"
    "  set circuit-id-format TEXT, set remote-id-type TYPE, set remote-id-format TEXT\n"
    "  counters                 errorRcv, errorSend, padiRcv, padrRcv, padoRcv,\n"
    "                           padsRcv, padtRcv, totalSend ('help names')\n"
    "  clear                    sets the eight counters to zero\n"
    "\n"
    "Examples:\n"
    "  pppoeplusctl if list\n"
    "  pppoeplusctl if eth9 set trust on\n"
    "  pppoeplusctl if eth1 set policy drop\n"
    "  pppoeplusctl if 7 get padi-rcv\n"
    "  pppoeplusctl --json if eth1 counters\n";

const char* const HELP_SHELL =
    "Usage: pppoeplusctl [--json] shell FUNCTION [ARG...]\n"
    "       pppoeplusctl [--json] shell 'FUNCTION(ARG, ...)'\n"
    "\n"
    "Calls a diagnostic function of the daemon through its process shell (root\n"
    "only) and prints what it printed. The daemon calls only the functions below,\n"
    "each with exactly its arguments: IF is an interface name or unit (a name is\n"
    "looked up in this tool's network namespace, a unit must be one the daemon\n"
    "knows); the other arguments are integers (decimal or 0x hexadecimal) in the\n"
    "range the function takes. Anything else is refused with ERR_DENIED, and the\n"
    "refusal lists what may be called. The exit status is 1 when the call is\n"
    "refused or the function returns something other than 0.\n"
    "\n"
    "Functions:\n"
    "  pppoeplusShow                      the global record and every interface\n"
    "  pppoeplusIfShowAll                 every interface, then the entry pool\n"
    "  pppoeplusTrustIfShowAll            the trusted interfaces (uplinks)\n"
    "  pppoeplusIfEntryShow IF            the entry of one interface\n"
    "  pppoeplusKeywordsShow              the format keywords and their codes\n"
    "  pppoeplusCommonFormatShow          the built-in formats\n"
    "  pppoeplusHelp                      the daemon's own list of functions\n"
    "  pppoeplusSetPktFdRecvBufLen BYTES  the packet socket's receive buffer (i32)\n"
    "  pppoeplusTestForwardSet 0|1        forward frames unchanged (test switch, u32)\n"
    "  pppoeplusTest                      two reads through the management calls\n"
    "  pppoeplusLogTest IF                write the protocol error log messages\n"
    "  pppoeplusPonTest IF ONU            treat IF as a G-PON port with ONU number\n"
    "                                     ONU (u32; for a lab without PON hardware)\n"
    "  gPppoeplusTestForward, gTestOnuInfo  show these test variables (read only)\n"
    "\n"
    "Examples:\n"
    "  pppoeplusctl shell pppoeplusShow\n"
    "  pppoeplusctl shell pppoeplusIfEntryShow eth1\n"
    "  pppoeplusctl shell pppoeplusPonTest eth3 7\n"
    "  pppoeplusctl shell 'pppoeplusPonTest(eth3, 7)'\n";

const char* const HELP_EVENT =
    "Usage: pppoeplusctl [--json] event reset-port IF\n"
    "       pppoeplusctl [--json] event reset-proto [ID...]\n"
    "\n"
    "Raises a platform event through the event socket (root only); the platform\n"
    "delivers it to the route sockets of every process that follows interface\n"
    "events, the daemon's included.\n"
    "\n"
    "  reset-port IF       the configuration of port IF goes back to its defaults:\n"
    "                      a port served by default keeps its entry with default\n"
    "                      settings and zero counters, any other loses its entry\n"
    "  reset-proto [ID...] the configuration of the protocols with these ids goes\n"
    "                      back to the defaults (ids 0 to 384, or the names pppoe+\n"
    "                      (141) and pppoe+hw (19); default 141): for 141 the\n"
    "                      agent's global settings are reset and the interface\n"
    "                      entries are reset or removed\n"
    "\n"
    "Examples:\n"
    "  pppoeplusctl event reset-port eth1\n"
    "  pppoeplusctl event reset-proto\n";

const char* const HELP_RESULTS_HEAD =
    "Results of the daemon and its services, as pppoeplusctl names them:\n"
    "\n";

}  // namespace

std::string helpText(const std::string& topic) {
    const std::string t = lower(topic);
    if (t.empty() || t == "pppoeplusctl") return HELP_MAIN;
    if (t == "get") return HELP_GET;
    if (t == "set") return HELP_SET;
    if (t == "sync") return HELP_SYNC;
    if (t == "if" || t == "interface") return HELP_IF;
    if (t == "shell") return HELP_SHELL;
    if (t == "event") return HELP_EVENT;
    if (t == "names") {
        std::ostringstream s;
        auto table = [&s](const char* title, const std::vector<CommandInfo>& rows) {
            s << title << "\n";
            for (const CommandInfo& c : rows) {
                std::string access = c.canGet && c.canSet ? "get, set" : c.canGet ? "get only" : "set only";
                s << "  " << std::setw(2) << c.code << "  " << c.name << " (" << access << ")\n";
                s << wrap(c.help, "        ", 78);
                if (c.type != ValueType::Number && c.type != ValueType::Counter && c.type != ValueType::Text &&
                    c.type != ValueType::Nsr && c.canSet)
                    s << wrap(std::string("values: ") + acceptedWords(c.type), "        ", 78);
            }
        };
        s << "Names are matched without regard to case, '-' and '_'; the record's field\n"
             "names (circuitIdFormat, totalSend, ...) and the command constants\n"
             "(PPPOEPLUS_SCALAR_POLICY, PPPOEPLUS_IF_TOTAL_SEND, ...) are accepted too.\n\n";
        table("Global (get, set, sync):", scalarCommands());
        s << "\n";
        table("Interface (if IF get, set, sync):", ifCommands());
        return s.str();
    }
    if (t == "results" || t == "codes" || t == "exit") {
        std::ostringstream s;
        s << HELP_RESULTS_HEAD;
        const int32_t codes[] = {0,
                                 ZEL_EINVAL,
                                 PPPOEPLUS_ERR,
                                 ZEL_ERR_NOT_FOUND,
                                 ZEL_ERR_TOO_LONG,
                                 ZEL_ERR_NO_RESOURCE,
                                 ZEL_ERR_UNSUPPORTED,
                                 ZEL_ERR_NULL_POINTER,
                                 ZEL_ERR_SET_SOCKOPT,
                                 ZEL_ERR_GENERAL,
                                 ZEL_ERR_EXISTS,
                                 ZEL_ERR_INVALID_ARG};
        auto row = [&s](int32_t c, ResultSource source) {
            ResultInfo i = resultInfo(c, source);
            std::ostringstream head;
            head << "  " << std::left << std::setw(22) << i.name << std::setw(11) << resultValueText(c);
            const std::string indent(head.str().size(), ' ');
            s << head.str() << wrap(i.meaning, indent, 79).substr(indent.size());
        };
        for (int32_t c : codes) row(c, ResultSource::Daemon);
        s << "\nThe services' protocol (error replies, shell and event statuses):\n";
        const int32_t proto[] = {cmdp::ERR_MALFORMED, cmdp::ERR_TOO_LONG, cmdp::ERR_NOT_FOUND, cmdp::ERR_UNSUPPORTED,
                                 cmdp::ERR_DENIED};
        for (int32_t c : proto) row(c, ResultSource::Protocol);
        s << "\nExit status: 0 success; 1 a result other than 0; 2 a wrong command line;\n"
             "3 the daemon could not be reached.\n";
        return s.str();
    }
    return "";
}

// ---- the run ----------------------------------------------------------------------------------

namespace {

constexpr uint32_t TEXT_CAPACITY = 512;  // a format is below 256 bytes, the version 21
constexpr uint32_t NSR_CAPACITY = 16;
const char* const TOOL_VERSION = "pppoeplusctl 1.0";

struct UsageError {
    std::string message;
    std::string topic;  // help topic to point at
};

class Runner {
  public:
    Runner(const std::string& root, const TransportFactory& factory, Resolver& resolver, std::ostream& out,
           std::ostream& err)
        : root_(root), factory_(factory), resolver_(resolver), out_(out), err_(err) {}

    int run(std::vector<std::string> args);

  private:
    // What is being done, for messages: "if p1 set policy".
    std::string what_;
    std::string root_;
    const TransportFactory& factory_;
    Resolver& resolver_;
    std::ostream& out_;
    std::ostream& err_;
    bool json_ = false;
    Endpoints ep_;
    std::string socketOpt_, shellOpt_, eventOpt_;
    int timeoutSec_ = 0;
    std::unique_ptr<Transport> transport_;

    Transport& transport() {
        if (!transport_) transport_ = factory_(ep_);
        return *transport_;
    }
    std::string runtime(const std::string& path) const {
        if (root_.empty() || path.compare(0, 5, "/tmp/") != 0) return path;
        std::string r = root_;
        while (r.size() > 1 && r.back() == '/') r.pop_back();
        return r + "/" + path.substr(5);
    }

    int usage(const UsageError& e);
    int unreachable(int32_t rc, const std::string& error, const std::string& path);
    int answered(int32_t result, ResultSource source, const std::string& detail, Json extra);

    // One call of the command map; 0 when the exchange worked (the entry
    // point's result is in reply.result), else the exit status already reported.
    int exchange(const cmdp::CallRequest& req, cmdp::CallReply& reply);

    struct Value {
        int32_t result = 0;
        std::string text;  // for people
        std::string json;  // JSON value
        std::string raw;   // JSON of the number held, or empty
    };
    // Reads one value (global when unit is nullopt). An exit status on a
    // transport failure, else 0 with `v` filled.
    int getValue(const CommandInfo& c, std::optional<uint32_t> unit, Value& v);

    int cmdGet(const std::vector<std::string>& a);
    int cmdSet(const std::vector<std::string>& a, bool sync);
    int cmdIf(const std::vector<std::string>& a);
    int cmdIfList();
    int cmdIfGet(uint32_t unit, const std::string& label, const std::vector<std::string>& a);
    int cmdIfSet(uint32_t unit, const std::string& label, const std::vector<std::string>& a, bool sync);
    int cmdIfCounters(uint32_t unit, const std::string& label);
    int cmdIfClear(uint32_t unit, const std::string& label);
    int cmdShell(const std::vector<std::string>& a);
    int cmdEvent(const std::vector<std::string>& a);

    int doSet(const CommandInfo& c, std::optional<uint32_t> unit, const std::string& label,
              const std::vector<std::string>& valueArgs, bool sync);
    // The unit of IF (a number or a name here).
    std::optional<uint32_t> unitOf(const std::string& name, std::string& label);
    std::string labelOf(uint32_t unit) {
        std::string n = resolver_.nameOf(unit);
        return n.empty() ? "unit " + std::to_string(unit) : n + " (unit " + std::to_string(unit) + ")";
    }
    void addIf(Json& j, uint32_t unit) {
        j.add("unit", static_cast<int64_t>(unit));
        std::string n = resolver_.nameOf(unit);
        if (n.empty()) j.addRaw("interface", "null");
        else j.add("interface", n);
    }
};

int Runner::usage(const UsageError& e) {
    err_ << "pppoeplusctl: " << e.message << "\n";
    if (!e.topic.empty()) err_ << "Try 'pppoeplusctl help " << e.topic << "'.\n";
    if (json_) out_ << Json::object().add("ok", false).add("error", e.message).str() << "\n";
    return EXIT_USAGE;
}

int Runner::unreachable(int32_t rc, const std::string& error, const std::string& path) {
    std::string msg;
    if (rc == -1) {
        msg = "cannot reach the daemon: " + error;
        if (error.find("No such file") != std::string::npos || error.find("Connection refused") != std::string::npos)
            msg += " (is pppoeplusd running? with PPPOEPLUS_ROOT set, give the tool the same directory: --root)";
        else if (error.find("Permission denied") != std::string::npos)
            msg += " (the command service admits root and platform.group, the shell and events root only)";
        err_ << "pppoeplusctl: " << what_ << ": " << msg << "\n";
        if (json_)
            out_ << Json::object().add("ok", false).add("command", what_).add("socket", path).add("error", msg).str()
                 << "\n";
        return EXIT_UNREACHABLE;
    }
    // An error frame: the service refused the request.
    msg = resultText(rc, ResultSource::Protocol) + ": " + resultInfo(rc, ResultSource::Protocol).meaning;
    if (!error.empty()) msg += " (" + error + ")";
    err_ << "pppoeplusctl: " << what_ << ": " << msg << "\n";
    if (json_)
        out_ << Json::object()
                    .add("ok", false)
                    .add("command", what_)
                    .add("result", static_cast<int64_t>(rc))
                    .add("resultName", resultInfo(rc, ResultSource::Protocol).name)
                    .add("resultValue", resultValueText(rc))
                    .add("error", msg)
                    .str()
             << "\n";
    return EXIT_UNREACHABLE;
}

int Runner::answered(int32_t result, ResultSource source, const std::string& detail, Json extra) {
    ResultInfo i = resultInfo(result, source);
    std::string msg = resultText(result, source) + ": " + i.meaning;
    if (!detail.empty()) msg += " (" + detail + ")";
    err_ << "pppoeplusctl: " << what_ << ": " << msg << "\n";
    if (json_) {
        Json o = Json::object();
        o.add("ok", false).add("command", what_).merge(extra);
        o.add("result", static_cast<int64_t>(result))
            .add("resultName", i.name)
            .add("resultValue", resultValueText(result))
            .add("error", msg);
        out_ << o.str() << "\n";
    }
    return EXIT_RESULT;
}

int Runner::exchange(const cmdp::CallRequest& req, cmdp::CallReply& reply) {
    std::string error;
    int32_t rc = transport().call(req, reply, error);
    if (rc != 0) return unreachable(rc, error, ep_.command);
    return 0;
}

int Runner::getValue(const CommandInfo& c, std::optional<uint32_t> unit, Value& v) {
    cmdp::CallRequest req;
    req.code = unit ? 6 : 1;
    req.unit = unit.value_or(0);
    req.cmd = c.code;
    if (c.type == ValueType::Text) {
        req.valueKind = cmdp::VALUE_STR;
        req.capacity = TEXT_CAPACITY;
        req.lenWord = TEXT_CAPACITY;
    } else if (c.type == ValueType::Nsr) {
        req.valueKind = cmdp::VALUE_STR;
        req.capacity = NSR_CAPACITY;
        req.lenWord = NSR_CAPACITY;
    } else {
        req.valueKind = cmdp::VALUE_U32;
    }
    cmdp::CallReply reply;
    if (int rc = exchange(req, reply); rc != 0) return rc;
    v.result = reply.result;
    if (reply.result != 0) return 0;
    switch (c.type) {
        case ValueType::Text: {
            std::string t(reply.data.begin(), reply.data.end());
            v.text = t;
            v.json = jsonString(t);
            break;
        }
        case ValueType::Nsr: {
            auto n = nsrFromBytes(reply.data);
            if (!n) {
                v.text = "(" + std::to_string(reply.data.size()) + " bytes)";
                v.json = "null";
                break;
            }
            v.text = "switchover " + valueWord(ValueType::Truth, n->switchover) + ", incompleteOp " +
                     std::to_string(n->incompleteOp) + ", allOp " + std::to_string(n->allOp);
            v.json = Json::object()
                         .add("switchover", valueWord(ValueType::Truth, n->switchover))
                         .add("incompleteOp", static_cast<int64_t>(n->incompleteOp))
                         .add("allOp", static_cast<int64_t>(n->allOp))
                         .str();
            break;
        }
        case ValueType::Number:
        case ValueType::Counter:
        case ValueType::Ignored:
            v.text = std::to_string(reply.lenWord);
            v.json = std::to_string(reply.lenWord);
            break;
        case ValueType::Debug: {
            v.text = valueWord(c.type, reply.lenWord);
            std::string words = v.text.substr(v.text.find('(') + 1);
            words.pop_back();
            v.json = jsonString(words);
            v.raw = std::to_string(reply.lenWord);
            break;
        }
        default:
            v.text = valueWord(c.type, reply.lenWord);
            v.json = jsonString(v.text);
            v.raw = std::to_string(reply.lenWord);
            break;
    }
    return 0;
}

std::string nameOf(const CommandInfo& c) { return c.name != nullptr ? c.name : std::to_string(c.code); }

// "name: value" lines with the values in one column.
void printTable(std::ostream& out, const std::vector<std::pair<std::string, std::string>>& rows,
                const std::string& indent = "") {
    size_t w = 0;
    for (const auto& r : rows) w = std::max(w, r.first.size());
    for (const auto& r : rows)
        out << indent << std::left << std::setw(static_cast<int>(w + 3)) << (r.first + ":") << std::right << r.second
            << "\n";
}

int Runner::cmdGet(const std::vector<std::string>& a) {
    if (a.size() > 2) return usage({"get takes at most one name", "get"});
    if (a.size() == 2) {
        auto c = findScalar(a[1]);
        if (!c) return usage({"unknown global name '" + a[1] + "'", "names"});
        what_ = "get " + nameOf(*c);
        Value v;
        if (int rc = getValue(*c, std::nullopt, v); rc != 0) return rc;
        Json j = Json::object();
        j.add("scope", "global").add("name", nameOf(*c)).add("code", static_cast<int64_t>(c->code));
        if (v.result != 0) return answered(v.result, ResultSource::Daemon, "", j);
        if (json_) {
            Json o = Json::object();
            o.add("ok", true).add("scope", "global").add("name", nameOf(*c)).add("code", static_cast<int64_t>(c->code));
            o.addRaw("value", v.json);
            if (!v.raw.empty()) o.addRaw("raw", v.raw);
            out_ << o.str() << "\n";
        } else {
            out_ << nameOf(*c) << ": " << v.text << "\n";
        }
        return EXIT_OK;
    }
    what_ = "get";
    std::vector<std::pair<std::string, std::string>> rows;
    Json values = Json::object(), raws = Json::object(), errors = Json::object();
    bool anyError = false, anyRaw = false;
    for (const CommandInfo& c : scalarCommands()) {
        Value v;
        if (int rc = getValue(c, std::nullopt, v); rc != 0) return rc;
        if (v.result != 0) {
            anyError = true;
            rows.emplace_back(c.name, resultText(v.result));
            errors.add(c.name, resultText(v.result));
            continue;
        }
        rows.emplace_back(c.name, v.text);
        values.addRaw(c.name, v.json);
        if (!v.raw.empty()) {
            raws.addRaw(c.name, v.raw);
            anyRaw = true;
        }
    }
    if (json_) {
        Json o = Json::object();
        o.add("ok", !anyError).add("scope", "global").addRaw("values", values.str());
        if (anyRaw) o.addRaw("raw", raws.str());
        if (anyError) o.addRaw("errors", errors.str());
        out_ << o.str() << "\n";
    } else {
        printTable(out_, rows);
    }
    if (anyError) {
        err_ << "pppoeplusctl: get: some values could not be read\n";
        return EXIT_RESULT;
    }
    return EXIT_OK;
}

int Runner::doSet(const CommandInfo& c, std::optional<uint32_t> unit, const std::string& label,
                  const std::vector<std::string>& valueArgs, bool sync) {
    const std::string verb = sync ? "sync" : "set";
    what_ = (unit ? "if " + label + " " : std::string()) + verb + " " + nameOf(c);
    cmdp::CallRequest req;
    req.code = unit ? (sync ? 8 : 7) : (sync ? 3 : 2);
    req.unit = unit.value_or(0);
    req.cmd = c.code;
    std::string shown;
    std::string raw;
    if (c.type == ValueType::Text) {
        std::string text;
        for (size_t i = 0; i < valueArgs.size(); i++) text += (i ? " " : "") + valueArgs[i];
        if (text.size() > cmdp::MAX_VALUE) {
            Json j = Json::object();
            return answered(ZEL_ERR_TOO_LONG, ResultSource::Daemon,
                            std::to_string(text.size()) + " bytes; a request carries at most " +
                                std::to_string(cmdp::MAX_VALUE),
                            j);
        }
        req.valueKind = cmdp::VALUE_STR;
        req.data.assign(text.begin(), text.end());
        req.lenWord = static_cast<uint32_t>(text.size());
        req.capacity = static_cast<uint32_t>(text.size());
        shown = text;
    } else {
        if (c.type == ValueType::Ignored) {
            if (valueArgs.size() > 1) return usage({nameOf(c) + " takes at most one value", unit ? "if" : verb});
        } else if (valueArgs.size() != 1) {
            return usage({verb + " " + nameOf(c) + " takes one value: " + acceptedWords(c.type), unit ? "if" : verb});
        }
        ParsedWord w = parseValue(c.type, valueArgs.empty() ? std::string() : valueArgs[0]);
        if (!w.ok) return usage({nameOf(c) + ": " + w.error, unit ? "if" : verb});
        req.valueKind = cmdp::VALUE_U32;
        req.lenWord = w.value;
        raw = std::to_string(w.value);
        shown = valueWord(c.type, w.value);
    }
    cmdp::CallReply reply;
    if (int rc = exchange(req, reply); rc != 0) return rc;
    Json j = Json::object();
    j.add("scope", unit ? "interface" : "global");
    if (unit) addIf(j, *unit);
    j.add("action", verb).add("name", nameOf(c)).add("code", static_cast<int64_t>(c.code)).add("value", shown);
    if (!raw.empty()) j.addRaw("raw", raw);
    if (reply.result != 0) return answered(reply.result, ResultSource::Daemon, "", j);
    if (json_) {
        Json o = Json::object();
        o.add("ok", true).add("scope", unit ? "interface" : "global");
        if (unit) addIf(o, *unit);
        o.add("action", verb).add("name", nameOf(c)).add("code", static_cast<int64_t>(c.code)).add("value", shown);
        if (!raw.empty()) o.addRaw("raw", raw);
        out_ << o.str() << "\n";
    } else if (c.type == ValueType::Ignored) {
        out_ << (unit ? label + ": " : std::string()) << nameOf(c) << " done\n";
    } else {
        out_ << (unit ? label + ": " : std::string()) << nameOf(c) << (sync ? " synced to " : " set to ") << shown
             << "\n";
    }
    return EXIT_OK;
}

int Runner::cmdSet(const std::vector<std::string>& a, bool sync) {
    const std::string verb = sync ? "sync" : "set";
    if (a.size() < 2) return usage({verb + " needs a name and a value", verb});
    auto c = findScalar(a[1]);
    if (!c) return usage({"unknown global name '" + a[1] + "'", "names"});
    std::vector<std::string> values(a.begin() + 2, a.end());
    if (values.empty() && c->type != ValueType::Ignored) return usage({verb + " " + nameOf(*c) + " needs a value", verb});
    return doSet(*c, std::nullopt, "", values, sync);
}

std::optional<uint32_t> Runner::unitOf(const std::string& name, std::string& label) {
    if (auto n = parseU32(name)) {
        label = name;
        return *n;
    }
    uint32_t u = resolver_.unitOf(name);
    if (u == 0) return std::nullopt;
    label = name;
    return u;
}

int Runner::cmdIf(const std::vector<std::string>& a) {
    if (a.size() < 2) return usage({"if needs 'list' or an interface", "if"});
    if (a[1] == "list") {
        if (a.size() > 2) return usage({"if list takes no arguments", "if"});
        return cmdIfList();
    }
    std::string label;
    auto unit = unitOf(a[1], label);
    what_ = "if " + a[1];
    if (!unit)
        return usage({"no interface '" + a[1] + "' in this network namespace (run the tool where the daemon runs: "
                      "ip netns exec NS pppoeplusctl ...), and not a unit number",
                      "if"});
    std::vector<std::string> rest(a.begin() + 2, a.end());
    const std::string action = rest.empty() ? "get" : rest[0];
    if (action == "get") return cmdIfGet(*unit, label, rest);
    if (action == "set" || action == "sync") {
        if (rest.size() < 2) return usage({"if " + label + " " + action + " needs a name and a value", "if"});
        auto c = findIf(rest[1]);
        if (!c) return usage({"unknown interface name '" + rest[1] + "'", "names"});
        std::vector<std::string> values(rest.begin() + 2, rest.end());
        if (values.empty() && c->type != ValueType::Ignored)
            return usage({"if " + label + " " + action + " " + nameOf(*c) + " needs a value", "if"});
        return doSet(*c, unit, label, values, action == "sync");
    }
    if (action == "counters") {
        if (rest.size() > 1) return usage({"counters takes no arguments", "if"});
        return cmdIfCounters(*unit, label);
    }
    if (action == "clear") {
        if (rest.size() > 1) return usage({"clear takes no arguments", "if"});
        return cmdIfClear(*unit, label);
    }
    return usage({"unknown interface command '" + action + "'", "if"});
}

int Runner::cmdIfGet(uint32_t unit, const std::string& label, const std::vector<std::string>& rest) {
    if (rest.size() > 2) return usage({"if IF get takes at most one name", "if"});
    if (rest.size() == 2) {
        auto c = findIf(rest[1]);
        if (!c) return usage({"unknown interface name '" + rest[1] + "'", "names"});
        what_ = "if " + label + " get " + nameOf(*c);
        Value v;
        if (int rc = getValue(*c, unit, v); rc != 0) return rc;
        Json j = Json::object();
        j.add("scope", "interface");
        addIf(j, unit);
        j.add("name", nameOf(*c)).add("code", static_cast<int64_t>(c->code));
        if (v.result != 0) return answered(v.result, ResultSource::Daemon, "", j);
        if (json_) {
            Json o = Json::object();
            o.add("ok", true).add("scope", "interface");
            addIf(o, unit);
            o.add("name", nameOf(*c)).add("code", static_cast<int64_t>(c->code)).addRaw("value", v.json);
            if (!v.raw.empty()) o.addRaw("raw", v.raw);
            out_ << o.str() << "\n";
        } else {
            out_ << nameOf(*c) << ": " << v.text << "\n";
        }
        return EXIT_OK;
    }
    what_ = "if " + label + " get";
    std::vector<std::pair<std::string, std::string>> rows;
    Json values = Json::object(), raws = Json::object();
    for (const CommandInfo& c : ifCommands()) {
        if (!c.canGet) continue;
        Value v;
        if (int rc = getValue(c, unit, v); rc != 0) return rc;
        if (v.result != 0) {
            Json j = Json::object();
            j.add("scope", "interface");
            addIf(j, unit);
            j.add("name", c.name).add("code", static_cast<int64_t>(c.code));
            return answered(v.result, ResultSource::Daemon, "", j);
        }
        rows.emplace_back(c.name, v.text);
        values.addRaw(c.name, v.json);
        if (!v.raw.empty()) raws.addRaw(c.name, v.raw);
    }
    if (json_) {
        Json o = Json::object();
        o.add("ok", true).add("scope", "interface");
        addIf(o, unit);
        o.addRaw("values", values.str()).addRaw("raw", raws.str());
        out_ << o.str() << "\n";
    } else {
        out_ << labelOf(unit) << "\n";
        printTable(out_, rows, "  ");
    }
    return EXIT_OK;
}

int Runner::cmdIfCounters(uint32_t unit, const std::string& label) {
    what_ = "if " + label + " counters";
    std::vector<std::pair<std::string, std::string>> rows;
    Json counters = Json::object();
    for (const CommandInfo* c : ifCounters()) {
        Value v;
        if (int rc = getValue(*c, unit, v); rc != 0) return rc;
        if (v.result != 0) {
            Json j = Json::object();
            j.add("scope", "interface");
            addIf(j, unit);
            return answered(v.result, ResultSource::Daemon, "", j);
        }
        rows.emplace_back(c->name, v.text);
        counters.addRaw(c->name, v.json);
    }
    if (json_) {
        Json o = Json::object();
        o.add("ok", true).add("scope", "interface");
        addIf(o, unit);
        o.addRaw("counters", counters.str());
        out_ << o.str() << "\n";
    } else {
        out_ << labelOf(unit) << " counters\n";
        printTable(out_, rows, "  ");
    }
    return EXIT_OK;
}

int Runner::cmdIfClear(uint32_t unit, const std::string& label) {
    const CommandInfo* clear = nullptr;
    for (const CommandInfo& c : ifCommands())
        if (c.code == PPPOEPLUS_IF_STAT_CLEAR) clear = &c;
    what_ = "if " + label + " clear";
    cmdp::CallRequest req;
    req.code = 7;
    req.unit = unit;
    req.cmd = clear->code;
    req.valueKind = cmdp::VALUE_U32;
    cmdp::CallReply reply;
    if (int rc = exchange(req, reply); rc != 0) return rc;
    Json j = Json::object();
    j.add("scope", "interface");
    addIf(j, unit);
    j.add("action", "clear");
    if (reply.result != 0) return answered(reply.result, ResultSource::Daemon, "", j);
    if (json_) {
        Json o = Json::object();
        o.add("ok", true).add("scope", "interface");
        addIf(o, unit);
        o.add("action", "clear");
        out_ << o.str() << "\n";
    } else {
        out_ << labelOf(unit) << ": counters cleared\n";
    }
    return EXIT_OK;
}

int Runner::cmdIfList() {
    what_ = "if list";
    std::vector<uint32_t> units;
    cmdp::CallRequest req;
    req.code = 4;
    req.valueKind = cmdp::VALUE_U32;
    cmdp::CallReply reply;
    if (int rc = exchange(req, reply); rc != 0) return rc;
    // Guard against a daemon that keeps answering: at most this many entries.
    constexpr size_t MAX_UNITS = 100000;
    while (reply.result == 0 && units.size() < MAX_UNITS) {
        units.push_back(reply.lenWord);
        req.code = 5;
        req.unit = reply.lenWord;
        req.lenWord = 0;
        if (int rc = exchange(req, reply); rc != 0) return rc;
        if (reply.result == 0 && reply.lenWord <= units.back()) break;  // no progress
    }
    if (reply.result != 0 && reply.result != PPPOEPLUS_ERR) return answered(reply.result, ResultSource::Daemon, "", Json::object());

    static const uint32_t SHOWN[] = {PPPOEPLUS_IF_ENABLE, PPPOEPLUS_IF_TRUST, PPPOEPLUS_IF_POLICY,
                                     PPPOEPLUS_IF_IGNORE_PKT};
    Json list = Json::array();
    std::vector<std::vector<std::string>> rows;
    rows.push_back({"UNIT", "NAME", "ENABLE", "TRUST", "POLICY", "IGNORE", "ERR-RCV", "ERR-SEND", "PADI", "PADR",
                    "PADO", "PADS", "PADT", "SENT"});
    for (uint32_t unit : units) {
        Json o = Json::object();
        addIf(o, unit);
        std::string name = resolver_.nameOf(unit);
        std::vector<std::string> row = {std::to_string(unit), name.empty() ? "-" : name};
        for (uint32_t code : SHOWN) {
            auto c = findIf(std::to_string(code));
            Value v;
            if (int rc = getValue(*c, unit, v); rc != 0) return rc;
            // An entry removed during the walk: shown as gone.
            std::string t = v.result == 0 ? v.text : "-";
            row.push_back(t);
            if (v.result == 0) o.add(c->name, v.text);
            else o.addRaw(c->name, "null");
        }
        Json counters = Json::object();
        for (const CommandInfo* c : ifCounters()) {
            Value v;
            if (int rc = getValue(*c, unit, v); rc != 0) return rc;
            row.push_back(v.result == 0 ? v.text : "-");
            counters.addRaw(c->name, v.result == 0 ? v.json : "null");
        }
        o.addRaw("counters", counters.str());
        list.push(o);
        rows.push_back(row);
    }
    if (json_) {
        out_ << Json::object().add("ok", true).addRaw("interfaces", list.str()).str() << "\n";
        return EXIT_OK;
    }
    if (units.empty()) {
        out_ << "no interface is served\n";
        return EXIT_OK;
    }
    std::vector<size_t> widths(rows[0].size(), 0);
    for (const auto& r : rows)
        for (size_t i = 0; i < r.size(); i++) widths[i] = std::max(widths[i], r[i].size());
    for (const auto& r : rows) {
        std::string line;
        for (size_t i = 0; i < r.size(); i++) {
            if (i > 0) line += "  ";
            std::string cell = r[i];
            // Numbers right-aligned, words left-aligned.
            if (i == 0 || i >= 6) cell = std::string(widths[i] - cell.size(), ' ') + cell;
            else if (i + 1 < r.size()) cell += std::string(widths[i] - cell.size(), ' ');
            line += cell;
        }
        while (!line.empty() && line.back() == ' ') line.pop_back();
        out_ << line << "\n";
    }
    return EXIT_OK;
}

int Runner::cmdShell(const std::vector<std::string>& a) {
    // Without a function: what may be called.
    if (a.size() < 2) {
        out_ << helpText("shell");
        return EXIT_OK;
    }
    std::string line;
    for (size_t i = 1; i < a.size(); i++) line += (i > 1 ? " " : "") + a[i];
    line = trim(line);
    std::string name;
    std::vector<std::string> argWords;
    size_t paren = line.find('(');
    if (paren != std::string::npos) {
        name = trim(line.substr(0, paren));
        size_t close = line.rfind(')');
        if (close == std::string::npos || close < paren || !trim(line.substr(close + 1)).empty())
            return usage({"shell: unbalanced parentheses in '" + line + "'", "shell"});
        argWords = split(line.substr(paren + 1, close - paren - 1), ", \t");
    } else {
        std::vector<std::string> words = split(line, ", \t");
        name = words.empty() ? "" : words[0];
        argWords.assign(words.begin() + (words.empty() ? 0 : 1), words.end());
    }
    what_ = "shell " + name;
    if (name.empty() || name.size() > cmdp::MAX_NAME)
        return usage({"shell: a function name has 1 to " + std::to_string(cmdp::MAX_NAME) + " characters", "shell"});
    for (char c : name)
        if (static_cast<unsigned char>(c) <= ' ' || static_cast<unsigned char>(c) >= 0x7F)
            return usage({"shell: '" + name + "' is no function name", "shell"});
    if (argWords.size() > cmdp::MAX_ARGS)
        return usage({"shell: at most " + std::to_string(cmdp::MAX_ARGS) + " arguments", "shell"});
    cmdp::ShellRequest req;
    req.name = name;
    for (const std::string& w : argWords) {
        if (auto n = parseI64(w)) {
            req.args.push_back(*n);
            continue;
        }
        uint32_t u = resolver_.unitOf(w);
        if (u == 0)
            return usage({"shell: argument '" + w + "' is neither a number nor an interface of this network namespace",
                          "shell"});
        req.args.push_back(u);
    }
    cmdp::ShellReply reply;
    std::string error;
    int32_t rc = transport().shell(req, reply, error);
    if (rc != 0) return unreachable(rc, error, ep_.shell);
    const bool variable = (reply.flags & cmdp::SHELL_FLAG_VARIABLE) != 0;
    const bool truncated = (reply.flags & cmdp::SHELL_FLAG_TRUNCATED) != 0;
    Json args = Json::array();
    for (int64_t v : req.args) args.pushRaw(std::to_string(v));
    Json j = Json::object();
    j.add("function", name).addRaw("args", args.str());
    if (reply.status != 0) {
        // The first line says why; the lines after it, if any, what may be
        // called instead.
        std::string text = trim(plainLines(reply.output));
        while (!text.empty() && text.back() == '\n') text.pop_back();
        const size_t eol = text.find('\n');
        const std::string detail = text.substr(0, eol);
        if (eol != std::string::npos) j.add("callable", text.substr(eol + 1) + "\n");
        int rc = answered(reply.status, ResultSource::Protocol, detail, j);
        if (eol != std::string::npos) err_ << text.substr(eol + 1) << "\n";
        return rc;
    }
    if (json_) {
        Json o = Json::object();
        o.add("ok", variable || reply.result == 0)
            .add("function", name)
            .addRaw("args", args.str())
            .add("result", static_cast<int64_t>(reply.result))
            .add("variable", variable)
            .add("truncated", truncated)
            .add("output", reply.output);
        out_ << o.str() << "\n";
    } else {
        out_ << plainLines(reply.output);
        if (!reply.output.empty() && reply.output.back() != '\n') out_ << "\n";
    }
    if (truncated) err_ << "pppoeplusctl: " << what_ << ": output cut at " << cmdp::MAX_SHELL_OUTPUT << " bytes\n";
    if (!variable && reply.result != 0) {
        err_ << "pppoeplusctl: " << what_ << ": returned " << reply.result << " ("
             << hex(static_cast<uint32_t>(reply.result)) << ")\n";
        return EXIT_RESULT;
    }
    return EXIT_OK;
}

int Runner::cmdEvent(const std::vector<std::string>& a) {
    if (a.size() < 2) return usage({"event needs reset-port or reset-proto", "event"});
    cmdp::EventRequest req;
    std::string shown;
    std::optional<uint32_t> portUnit;
    Json ids = Json::array();
    auto addEventFields = [&](Json& o) {
        if (portUnit) {
            o.add("event", "reset-port");
            addIf(o, *portUnit);
        } else {
            o.add("event", "reset-proto").addRaw("protocols", ids.str());
        }
    };
    if (a[1] == "reset-port") {
        if (a.size() != 3) return usage({"event reset-port needs one interface", "event"});
        std::string label;
        auto unit = unitOf(a[2], label);
        what_ = "event reset-port " + a[2];
        if (!unit) return usage({"no interface '" + a[2] + "' in this network namespace, and not a unit number", "event"});
        req.event = cmdp::EVENT_RESET_PORT;
        req.unit = *unit;
        portUnit = unit;
        shown = "reset-port " + labelOf(*unit);
    } else if (a[1] == "reset-proto") {
        what_ = "event reset-proto";
        req.event = cmdp::EVENT_RESET_PROTO;
        for (size_t i = 2; i < a.size(); i++) {
            for (const std::string& w : split(a[i], ", ")) {
                std::string l = lower(w);
                uint32_t id;
                if (l == "pppoe+") id = ZEL_PROTO_PPPOEPLUS;
                else if (l == "pppoe+hw") id = ZEL_PROTO_PPPOEPLUS_HW;
                else if (auto n = parseU32(w); n && *n <= ZEL_PROTO_MAX) id = *n;
                else return usage({"event reset-proto: '" + w + "' is no protocol id (0 to 384, pppoe+, pppoe+hw)", "event"});
                req.protos.push_back(static_cast<uint16_t>(id));
            }
        }
        if (req.protos.empty()) req.protos.push_back(ZEL_PROTO_PPPOEPLUS);
        if (req.protos.size() > cmdp::MAX_PROTOS) return usage({"event reset-proto: too many ids", "event"});
        shown = "reset-proto";
        for (uint16_t p : req.protos) {
            ids.pushRaw(std::to_string(p));
            shown += " " + std::to_string(p);
        }
    } else {
        return usage({"unknown event '" + a[1] + "'", "event"});
    }
    cmdp::EventReply reply;
    std::string error;
    int32_t rc = transport().event(req, reply, error);
    if (rc != 0) return unreachable(rc, error, ep_.event);
    if (reply.result != 0) {
        Json j = Json::object();
        addEventFields(j);
        return answered(reply.result, ResultSource::Protocol, "", j);
    }
    if (json_) {
        Json o = Json::object();
        o.add("ok", true);
        addEventFields(o);
        o.add("delivered", static_cast<int64_t>(reply.delivered));
        out_ << o.str() << "\n";
    } else {
        out_ << shown << ": delivered to " << reply.delivered << " route socket" << (reply.delivered == 1 ? "" : "s")
             << "\n";
    }
    return EXIT_OK;
}

int Runner::run(std::vector<std::string> args) {
    // Options before the command.
    size_t i = 0;
    bool help = false;
    for (; i < args.size(); i++) {
        const std::string& a = args[i];
        auto valueOf = [&](std::string& into) {
            size_t eq = a.find('=');
            if (eq != std::string::npos) {
                into = a.substr(eq + 1);
                return true;
            }
            if (i + 1 >= args.size()) return false;
            into = args[++i];
            return true;
        };
        auto is = [&a](const char* opt) {
            size_t n = std::strlen(opt);
            return a == opt || (a.size() > n && a.compare(0, n, opt) == 0 && a[n] == '=');
        };
        if (a == "--json") json_ = true;
        else if (a == "-h" || a == "--help") help = true;
        else if (a == "--version") {
            out_ << TOOL_VERSION << "\n";
            return EXIT_OK;
        } else if (is("--root")) {
            if (!valueOf(root_)) return usage({"--root needs a directory", ""});
        } else if (is("--socket")) {
            if (!valueOf(socketOpt_)) return usage({"--socket needs a path", ""});
        } else if (is("--shell-socket")) {
            if (!valueOf(shellOpt_)) return usage({"--shell-socket needs a path", ""});
        } else if (is("--event-socket")) {
            if (!valueOf(eventOpt_)) return usage({"--event-socket needs a path", ""});
        } else if (is("--timeout")) {
            std::string t;
            if (!valueOf(t)) return usage({"--timeout needs a number of seconds", ""});
            auto n = parseU32(t);
            if (!n || *n == 0 || *n > 3600) return usage({"--timeout takes 1 to 3600 seconds", ""});
            timeoutSec_ = static_cast<int>(*n);
        } else if (a == "--") {
            i++;
            break;
        } else if (a.size() > 1 && a[0] == '-') {
            return usage({"unknown option '" + a + "'", ""});
        } else {
            break;
        }
    }
    std::vector<std::string> rest(args.begin() + static_cast<std::ptrdiff_t>(i), args.end());
    // --json, -h and --help are taken after the command too, up to a "--"
    // (after which a value may start with '-').
    for (size_t k = 0; k < rest.size();) {
        if (rest[k] == "--" && k > 0) {
            rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(k));
            break;
        }
        if (rest[k] == "--json") {
            json_ = true;
            rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(k));
        } else if ((rest[k] == "-h" || rest[k] == "--help") && (rest[0] != "shell" || k == 1)) {
            help = true;
            rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(k));
        } else {
            k++;
        }
    }

    ep_.command = socketOpt_.empty() ? runtime(cmdp::CMD_SOCKET) : socketOpt_;
    ep_.shell = shellOpt_.empty() ? runtime(cmdp::shellSocketPath("pppoeplus")) : shellOpt_;
    ep_.event = eventOpt_.empty() ? runtime(cmdp::EVENT_SOCKET) : eventOpt_;
    ep_.timeoutMs = timeoutSec_ * 1000;

    if (rest.empty()) {
        if (help) {
            out_ << helpText();
            return EXIT_OK;
        }
        err_ << helpText();
        return EXIT_USAGE;
    }
    const std::string& cmd = rest[0];
    if (cmd == "help") {
        if (rest.size() > 2) return usage({"help takes at most one topic", ""});
        std::string t = helpText(rest.size() == 2 ? rest[1] : "");
        if (t.empty()) return usage({"no help topic '" + rest[1] + "'", ""});
        out_ << t;
        return EXIT_OK;
    }
    if (help) {
        std::string t = helpText(cmd);
        if (t.empty()) return usage({"unknown command '" + cmd + "'", ""});
        out_ << t;
        return EXIT_OK;
    }
    what_ = cmd;
    if (cmd == "get") return cmdGet(rest);
    if (cmd == "set") return cmdSet(rest, false);
    if (cmd == "sync") return cmdSet(rest, true);
    if (cmd == "if" || cmd == "interface") return cmdIf(rest);
    if (cmd == "shell") return cmdShell(rest);
    if (cmd == "event") return cmdEvent(rest);
    return usage({"unknown command '" + cmd + "'", ""});
}

}  // namespace

int run(const std::vector<std::string>& args, const std::string& root, const TransportFactory& transport,
        Resolver& resolver, std::ostream& out, std::ostream& err) {
    Runner r(root, transport, resolver, out, err);
    return r.run(args);
}

}  // namespace ctl
