// pppoeplusctl's runner: the options and the commands of one command line,
// against a transport and interface names that the caller supplies. The
// class is shared by the files that hold its commands: ctl.cpp (options,
// dispatch, answers), ctl_settings.cpp (global get, set, sync),
// ctl_if.cpp (interface commands, the list, metrics) and ctl_services.cpp
// (process shell, platform events). No socket and no system call here.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "tools/ctl.h"

namespace ctl {

// The name a setting is shown by: its name, else its code.
inline std::string nameOf(const CommandInfo& c) { return c.name != nullptr ? c.name : std::to_string(c.code); }

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
    std::string socketOpt_, shellOpt_, eventOpt_, controlOpt_;
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

    // One request to the control service; 0 when a reply object came back
    // (its "ok" may be false), else the exit status already reported.
    int control(const Json& req, Json& reply);
    // A control reply with "ok" false: reported; the exit status.
    int controlRefused(const Json& reply, Json extra);

    // config show | save [FILE] | reload | check FILE (ctl_config.cpp).
    int cmdConfig(const std::vector<std::string>& a);

    // One call of the command map; 0 when the exchange worked (the entry
    // point's result is in reply.result), else the exit status already reported.
    int exchange(const cmdp::CallRequest& req, cmdp::CallReply& reply);

    struct Value {
        int32_t result = 0;
        std::string text;  // for people
        Json json;         // the value for scripts
        Json raw;          // the number held, null when the value is that number or text
    };
    // if IF recover: ends an interface's error-disable.
    int cmdIfRecover(uint32_t unit, const std::string& label);
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

}  // namespace ctl
