// pppoeplusctl's runner: the options and the commands of one command line,
// against a transport and interface names that the caller supplies. No
// socket and no system call here.
#include "tools/ctl.h"

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <sstream>

#include "generated/pppoeplus_version.h"
#include "mgmt/mgmt_codes.h"
#include "platform/number.h"
#include "platform/types.h"
#include "tools/metrics.h"
#include "tools/text.h"

namespace ctl {

// ---- the run ----------------------------------------------------------------------------------

namespace {

constexpr uint32_t TEXT_CAPACITY = 512;  // a format is below 256 bytes, the version 21
constexpr uint32_t NSR_CAPACITY = 16;

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
        Json json;         // the value for scripts
        Json raw;          // the number held, null when the value is that number or text
    };
    // `o` with the value's members: "value", and "raw" when there is one.
    static Json withValue(Json o, const Value& v) {
        o["value"] = v.json;
        if (!v.raw.is_null()) o["raw"] = v.raw;
        return o;
    }
    // Reads one value (global when unit is nullopt). An exit status on a
    // transport failure, else 0 with `v` filled.
    int getValue(const CommandInfo& c, std::optional<uint32_t> unit, Value& v);

    // Reads one value and shows it: "name: value", or a JSON object of
    // `fields`, the name and code, and the value.
    int showOne(const CommandInfo& c, std::optional<uint32_t> unit, Json fields);

    int cmdGet(const std::vector<std::string>& a);
    int cmdSet(const std::vector<std::string>& a, bool sync);
    int cmdIf(const std::vector<std::string>& a);
    int cmdIfList();
    int cmdIfGet(uint32_t unit, const std::string& label, const std::vector<std::string>& a);
    int cmdIfSet(uint32_t unit, const std::string& label, const std::vector<std::string>& a, bool sync);
    int cmdIfCounters(uint32_t unit, const std::string& label);
    int cmdIfClear(uint32_t unit, const std::string& label);
    int cmdMetrics(const std::vector<std::string>& a);
    // The units the agent serves, in unit order, through the entry
    // iterators; 0, or the exit status already reported.
    int servedUnits(std::vector<uint32_t>& units);
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
    // The interface's members of a JSON object: its unit and its name here
    // (null when this namespace has none).
    void addIf(Json& j, uint32_t unit) {
        j["unit"] = unit;
        std::string n = resolver_.nameOf(unit);
        j["interface"] = n.empty() ? Json(nullptr) : Json(n);
    }
    // {"scope": "interface", "unit": ..., "interface": ...}.
    Json ifScope(uint32_t unit) {
        Json j = {{"scope", "interface"}};
        addIf(j, unit);
        return j;
    }
    void printJson(const Json& j) { out_ << jsonLine(j) << "\n"; }
    // Values of one interface that were read: a JSON object with the
    // interface and `members`, or `heading` and a table of `rows`.
    int showIf(uint32_t unit, const Json& members, const std::string& heading,
               const std::vector<std::pair<std::string, std::string>>& rows) {
        if (json_) {
            Json o = okWith(true, ifScope(unit));
            for (const auto& [key, value] : members.items()) o[key] = value;
            printJson(o);
        } else {
            out_ << heading << "\n";
            printTable(out_, rows, "  ");
        }
        return EXIT_OK;
    }
};

int Runner::usage(const UsageError& e) {
    err_ << "pppoeplusctl: " << e.message << "\n";
    if (!e.topic.empty()) err_ << "Try 'pppoeplusctl help " << e.topic << "'.\n";
    if (json_) printJson({{"ok", false}, {"error", e.message}});
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
        if (json_) printJson({{"ok", false}, {"command", what_}, {"socket", path}, {"error", msg}});
        return EXIT_UNREACHABLE;
    }
    // An error frame: the service refused the request.
    msg = resultText(rc, ResultSource::Protocol) + ": " + resultInfo(rc, ResultSource::Protocol).meaning;
    if (!error.empty()) msg += " (" + error + ")";
    err_ << "pppoeplusctl: " << what_ << ": " << msg << "\n";
    if (json_)
        printJson({{"ok", false},
                   {"command", what_},
                   {"result", rc},
                   {"resultName", resultInfo(rc, ResultSource::Protocol).name},
                   {"resultValue", resultValueText(rc)},
                   {"error", msg}});
    return EXIT_UNREACHABLE;
}

int Runner::answered(int32_t result, ResultSource source, const std::string& detail, Json extra) {
    ResultInfo i = resultInfo(result, source);
    std::string msg = resultText(result, source) + ": " + i.meaning;
    if (!detail.empty()) msg += " (" + detail + ")";
    err_ << "pppoeplusctl: " << what_ << ": " << msg << "\n";
    if (json_) {
        Json o = okWith(false, {{"command", what_}});
        for (const auto& [key, value] : extra.items()) o[key] = value;
        o["result"] = result;
        o["resultName"] = i.name;
        o["resultValue"] = resultValueText(result);
        o["error"] = msg;
        printJson(o);
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
            v.json = t;
            break;
        }
        case ValueType::Nsr: {
            auto n = nsrFromBytes(reply.data);
            if (!n) {
                v.text = "(" + std::to_string(reply.data.size()) + " bytes)";
                v.json = nullptr;
                break;
            }
            v.text = "switchover " + valueWord(ValueType::Truth, n->switchover) + ", incompleteOp " +
                     std::to_string(n->incompleteOp) + ", allOp " + std::to_string(n->allOp);
            v.json = {{"switchover", valueWord(ValueType::Truth, n->switchover)},
                      {"incompleteOp", n->incompleteOp},
                      {"allOp", n->allOp}};
            break;
        }
        case ValueType::Number:
        case ValueType::Counter:
        case ValueType::Ignored:
            v.text = std::to_string(reply.lenWord);
            v.json = reply.lenWord;
            break;
        case ValueType::Debug: {
            v.text = valueWord(c.type, reply.lenWord);
            std::string words = v.text.substr(v.text.find('(') + 1);
            words.pop_back();
            v.json = words;
            v.raw = reply.lenWord;
            break;
        }
        default:
            v.text = valueWord(c.type, reply.lenWord);
            v.json = v.text;
            v.raw = reply.lenWord;
            break;
    }
    return 0;
}

std::string nameOf(const CommandInfo& c) { return c.name != nullptr ? c.name : std::to_string(c.code); }

int Runner::showOne(const CommandInfo& c, std::optional<uint32_t> unit, Json fields) {
    Value v;
    if (int rc = getValue(c, unit, v); rc != 0) return rc;
    fields["name"] = nameOf(c);
    fields["code"] = c.code;
    if (v.result != 0) return answered(v.result, ResultSource::Daemon, "", fields);
    if (json_) printJson(withValue(okWith(true, fields), v));
    else out_ << nameOf(c) << ": " << v.text << "\n";
    return EXIT_OK;
}

int Runner::cmdGet(const std::vector<std::string>& a) {
    if (a.size() > 2) return usage({"get takes at most one name", "get"});
    if (a.size() == 2) {
        auto c = findScalar(a[1]);
        if (!c) return usage({"unknown global name '" + a[1] + "'", "names"});
        what_ = "get " + nameOf(*c);
        return showOne(*c, std::nullopt, {{"scope", "global"}});
    }
    what_ = "get";
    std::vector<std::pair<std::string, std::string>> rows;
    Json values = Json::object(), raws = Json::object(), errors = Json::object();
    bool anyError = false;
    for (const CommandInfo& c : scalarCommands()) {
        Value v;
        if (int rc = getValue(c, std::nullopt, v); rc != 0) return rc;
        if (v.result != 0) {
            anyError = true;
            rows.emplace_back(c.name, resultText(v.result));
            errors[c.name] = resultText(v.result);
            continue;
        }
        rows.emplace_back(c.name, v.text);
        values[c.name] = v.json;
        if (!v.raw.is_null()) raws[c.name] = v.raw;
    }
    if (json_) {
        Json o = {{"ok", !anyError}, {"scope", "global"}, {"values", values}};
        if (!raws.empty()) o["raw"] = raws;
        if (anyError) o["errors"] = errors;
        printJson(o);
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
    Json raw;  // the number sent, for a value word
    if (c.type == ValueType::Text) {
        std::string text;
        for (size_t i = 0; i < valueArgs.size(); i++) text += (i ? " " : "") + valueArgs[i];
        if (text.size() > cmdp::MAX_VALUE) {
            return answered(ZEL_ERR_TOO_LONG, ResultSource::Daemon,
                            std::to_string(text.size()) + " bytes; a request carries at most " +
                                std::to_string(cmdp::MAX_VALUE),
                            Json::object());
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
        raw = w.value;
        shown = valueWord(c.type, w.value);
    }
    cmdp::CallReply reply;
    if (int rc = exchange(req, reply); rc != 0) return rc;
    Json j = unit ? ifScope(*unit) : Json{{"scope", "global"}};
    j["action"] = verb;
    j["name"] = nameOf(c);
    j["code"] = c.code;
    j["value"] = shown;
    if (!raw.is_null()) j["raw"] = raw;
    if (reply.result != 0) return answered(reply.result, ResultSource::Daemon, "", j);
    if (json_) {
        printJson(okWith(true, j));
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
    if (auto n = numberParseU32(name)) {
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
        return showOne(*c, unit, ifScope(unit));
    }
    what_ = "if " + label + " get";
    std::vector<std::pair<std::string, std::string>> rows;
    Json values = Json::object(), raws = Json::object();
    for (const CommandInfo& c : ifCommands()) {
        if (!c.canGet) continue;
        Value v;
        if (int rc = getValue(c, unit, v); rc != 0) return rc;
        if (v.result != 0) {
            Json j = ifScope(unit);
            j["name"] = c.name;
            j["code"] = c.code;
            return answered(v.result, ResultSource::Daemon, "", j);
        }
        rows.emplace_back(c.name, v.text);
        values[c.name] = v.json;
        if (!v.raw.is_null()) raws[c.name] = v.raw;
    }
    return showIf(unit, {{"values", values}, {"raw", raws}}, labelOf(unit), rows);
}

int Runner::cmdIfCounters(uint32_t unit, const std::string& label) {
    what_ = "if " + label + " counters";
    std::vector<std::pair<std::string, std::string>> rows;
    Json counters = Json::object();
    for (const CommandInfo* c : ifCounters()) {
        Value v;
        if (int rc = getValue(*c, unit, v); rc != 0) return rc;
        if (v.result != 0) return answered(v.result, ResultSource::Daemon, "", ifScope(unit));
        rows.emplace_back(c->name, v.text);
        counters[c->name] = v.json;
    }
    return showIf(unit, {{"counters", counters}}, labelOf(unit) + " counters", rows);
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
    Json j = ifScope(unit);
    j["action"] = "clear";
    if (reply.result != 0) return answered(reply.result, ResultSource::Daemon, "", j);
    if (json_) {
        printJson(okWith(true, j));
    } else {
        out_ << labelOf(unit) << ": counters cleared\n";
    }
    return EXIT_OK;
}

int Runner::servedUnits(std::vector<uint32_t>& units) {
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
    if (reply.result != 0 && reply.result != PPPOEPLUS_ERR)
        return answered(reply.result, ResultSource::Daemon, "", Json::object());
    return 0;
}

int Runner::cmdIfList() {
    what_ = "if list";
    std::vector<uint32_t> units;
    if (int rc = servedUnits(units); rc != 0) return rc;

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
            o[c->name] = v.result == 0 ? Json(v.text) : Json(nullptr);
        }
        Json counters = Json::object();
        for (const CommandInfo* c : ifCounters()) {
            Value v;
            if (int rc = getValue(*c, unit, v); rc != 0) return rc;
            row.push_back(v.result == 0 ? v.text : "-");
            counters[c->name] = v.result == 0 ? v.json : Json(nullptr);
        }
        o["counters"] = counters;
        list.push_back(o);
        rows.push_back(row);
    }
    if (json_) {
        printJson({{"ok", true}, {"interfaces", list}});
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

int Runner::cmdMetrics(const std::vector<std::string>& a) {
    if (a.size() > 1) return usage({"metrics takes no arguments", "metrics"});
    // Text only; a failure leaves stdout empty so that a collector never
    // reads half a file, and is told on stderr.
    json_ = false;
    what_ = "metrics";
    auto read = [this](const CommandInfo& c, std::optional<uint32_t> unit, uint32_t& into, bool& gone) {
        Value v;
        if (int rc = getValue(c, unit, v); rc != 0) return rc;
        // An interface whose entry went away during the walk is left out.
        if (unit && v.result == ZEL_ERR_NOT_FOUND) {
            gone = true;
            return 0;
        }
        if (v.result != 0) return answered(v.result, ResultSource::Daemon, nameOf(c), Json::object());
        into = v.raw.is_null() ? v.json.get<uint32_t>() : v.raw.get<uint32_t>();
        return 0;
    };
    MetricsSnapshot snap;
    bool gone = false;
    const std::pair<uint32_t, uint32_t*> globals[] = {{PPPOEPLUS_SCALAR_ENABLE, &snap.enable},
                                                      {PPPOEPLUS_SCALAR_POLICY, &snap.policy},
                                                      {PPPOEPLUS_SCALAR_VENDORID, &snap.vendorId}};
    for (const auto& [code, into] : globals)
        if (int rc = read(*findScalar(std::to_string(code)), std::nullopt, *into, gone); rc != 0) return rc;
    std::vector<uint32_t> units;
    if (int rc = servedUnits(units); rc != 0) return rc;
    for (uint32_t unit : units) {
        MetricsInterface i;
        i.unit = unit;
        i.name = resolver_.nameOf(unit);
        gone = false;
        const std::pair<uint32_t, uint32_t*> states[] = {{PPPOEPLUS_IF_ENABLE, &i.enable},
                                                         {PPPOEPLUS_IF_TRUST, &i.trust},
                                                         {PPPOEPLUS_IF_IGNORE_PKT, &i.ignore},
                                                         {PPPOEPLUS_IF_POLICY, &i.policy}};
        for (const auto& [code, into] : states)
            if (int rc = read(*findIf(std::to_string(code)), unit, *into, gone); rc != 0) return rc;
        i.counters.resize(ifCounters().size());
        for (size_t k = 0; k < ifCounters().size(); k++)
            if (int rc = read(*ifCounters()[k], unit, i.counters[k], gone); rc != 0) return rc;
        if (!gone) snap.interfaces.push_back(i);
    }
    out_ << metricsText(snap);
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
        if (auto n = numberParseI64(w)) {
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
    Json args = req.args;
    Json j = {{"function", name}, {"args", args}};
    if (reply.status != 0) {
        // The first line says why; the lines after it, if any, what may be
        // called instead.
        std::string text = trim(plainLines(reply.output));
        while (!text.empty() && text.back() == '\n') text.pop_back();
        const size_t eol = text.find('\n');
        const std::string detail = text.substr(0, eol);
        if (eol != std::string::npos) j["callable"] = text.substr(eol + 1) + "\n";
        int rc = answered(reply.status, ResultSource::Protocol, detail, j);
        if (eol != std::string::npos) err_ << text.substr(eol + 1) << "\n";
        return rc;
    }
    if (json_) {
        Json o = okWith(variable || reply.result == 0, j);
        o["result"] = reply.result;
        o["variable"] = variable;
        o["truncated"] = truncated;
        o["output"] = reply.output;
        printJson(o);
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
            o["event"] = "reset-port";
            addIf(o, *portUnit);
        } else {
            o["event"] = "reset-proto";
            o["protocols"] = ids;
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
                else if (auto n = numberParseU32(w); n && *n <= ZEL_PROTO_MAX) id = *n;
                else return usage({"event reset-proto: '" + w + "' is no protocol id (0 to 384, pppoe+, pppoe+hw)", "event"});
                req.protos.push_back(static_cast<uint16_t>(id));
            }
        }
        if (req.protos.empty()) req.protos.push_back(ZEL_PROTO_PPPOEPLUS);
        if (req.protos.size() > cmdp::MAX_PROTOS) return usage({"event reset-proto: too many ids", "event"});
        shown = "reset-proto";
        for (uint16_t p : req.protos) {
            ids.push_back(p);
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
        Json o = {{"ok", true}};
        addEventFields(o);
        o["delivered"] = reply.delivered;
        printJson(o);
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
            out_ << "pppoeplusctl (pppoeplus) " << PPPOEPLUS_PRODUCT_VERSION << "\n";
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
            auto n = numberParseU32(t);
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
    if (cmd == "metrics") return cmdMetrics(rest);
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
