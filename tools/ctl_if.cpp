// pppoeplusctl: the interface commands, the list of served interfaces and the metrics.
#include "tools/runner.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <iomanip>
#include <sstream>

#include "generated/pppoeplus_version.h"
#include "mgmt/mgmt_codes.h"
#include "platform/number.h"
#include "platform/types.h"
#include "tools/metrics.h"
#include "vocab/text.h"

namespace ctl {

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
    if (action == "recover") {
        if (rest.size() > 1) return usage({"recover takes no arguments", "if"});
        return cmdIfRecover(*unit, label);
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

int Runner::cmdIfRecover(uint32_t unit, const std::string& label) {
    what_ = "if " + label + " recover";
    Json j = ifScope(unit);
    j["action"] = "recover";
    std::string name = resolver_.nameOf(unit);
    if (name.empty()) return answered(ZEL_ERR_NOT_FOUND, ResultSource::Daemon, "", j);
    Json reply;
    if (int rc = control({{"op", "police-recover"}, {"if", name}}, reply); rc != 0) return rc;
    if (!reply.value("ok", false)) return controlRefused(reply, j);
    if (json_) printJson(okWith(true, j));
    else out_ << label << ": served again\n";
    return EXIT_OK;
}

namespace {

// A port's policing as `if list` shows it: the discovery frames the kernel
// dropped over its limit, and its state.
struct PoliceRow {
    std::string dropped = "-";
    std::string state = "-";
    Json json;  // null when policing is unavailable
};

// The policing of every port, by name, in one request ("police-status");
// nothing when it cannot be had (policing unavailable, or a daemon without
// it): the columns then show '-'.
std::map<std::string, PoliceRow> policeRows(Transport& t, bool& available) {
    std::map<std::string, PoliceRow> out;
    available = false;
    std::string text, error;
    if (t.control(Json{{"op", "police-status"}}.dump(), text, error) != 0) return out;
    Json reply = Json::parse(text, nullptr, false);
    if (reply.is_discarded() || !reply.is_object() || !reply.value("ok", false) || !reply.value("available", false) ||
        !reply.contains("interfaces") || !reply["interfaces"].is_object())
        return out;
    available = true;
    for (const auto& [name, p] : reply["interfaces"].items()) {
        if (!p.is_object()) continue;
        PoliceRow r;
        const uint64_t dropped = p.value("dropped", uint64_t{0});
        const bool held = p.value("state", std::string()) == "err-disabled";
        r.dropped = std::to_string(dropped);
        r.state = held ? "err-disabled " + std::to_string(p.value("hold-left", uint64_t{0})) + "s" : "served";
        r.json = {{"dropped", dropped},
                  {"passed", p.value("passed", uint64_t{0})},
                  {"state", held ? "err-disabled" : "served"}};
        if (held) r.json["hold-left"] = p.value("hold-left", uint64_t{0});
        out[name] = r;
    }
    return out;
}

}  // namespace

int Runner::cmdIfList() {
    what_ = "if list";
    std::vector<uint32_t> units;
    if (int rc = servedUnits(units); rc != 0) return rc;
    bool policing = false;
    const std::map<std::string, PoliceRow> police = policeRows(transport(), policing);

    static const uint32_t SHOWN[] = {PPPOEPLUS_IF_ENABLE, PPPOEPLUS_IF_TRUST, PPPOEPLUS_IF_POLICY,
                                     PPPOEPLUS_IF_IGNORE_PKT};
    Json list = Json::array();
    std::vector<std::vector<std::string>> rows;
    rows.push_back({"UNIT", "NAME", "ENABLE", "TRUST", "POLICY", "IGNORE", "ERR-RCV", "ERR-SEND", "PADI", "PADR",
                    "PADO", "PADS", "PADT", "SENT", "POLICED", "STATE"});
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
        // Policing: a port the filter has not counted yet has dropped nothing.
        PoliceRow pr;
        if (policing) {
            auto it = police.find(name);
            pr = it != police.end() ? it->second
                                    : PoliceRow{"0", "served", {{"dropped", 0}, {"passed", 0}, {"state", "served"}}};
        }
        row.push_back(pr.dropped);
        row.push_back(pr.state);
        o["police"] = pr.json;
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
            const bool number = i == 0 || (i >= 6 && i + 1 < r.size());
            if (number) cell = std::string(widths[i] - cell.size(), ' ') + cell;
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
    const std::map<std::string, PoliceRow> police = policeRows(transport(), snap.policing);
    for (uint32_t unit : units) {
        MetricsInterface i;
        i.unit = unit;
        i.name = resolver_.nameOf(unit);
        // A port the filter has not counted yet dropped nothing.
        i.policed = snap.policing;
        if (auto p = police.find(i.name); p != police.end() && !p->second.json.is_null()) {
            i.policeDropped = p->second.json.value("dropped", uint64_t{0});
            i.errorDisabled = p->second.json.value("state", std::string()) == "err-disabled";
        }
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

}  // namespace ctl
