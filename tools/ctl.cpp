// pppoeplusctl's runner (runner.h): its options, the dispatch of a command
// line and the answers it prints; the commands themselves are in
// ctl_settings.cpp, ctl_if.cpp and ctl_services.cpp. No socket and no system
// call here.
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
#include "tools/runner.h"
#include "vocab/text.h"

namespace ctl {

// ---- the run ----------------------------------------------------------------------------------

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

int Runner::control(const Json& req, Json& reply) {
    std::string error, text;
    int32_t rc = transport().control(req.dump(), text, error);
    if (rc != 0) return unreachable(rc, error, ep_.control);
    reply = Json::parse(text, nullptr, false);
    if (reply.is_discarded() || !reply.is_object()) {
        reply = Json::object();
        return unreachable(cmdp::ERR_MALFORMED, "the control service's reply is no JSON object", ep_.control);
    }
    return 0;
}

int Runner::controlRefused(const Json& reply, Json extra) {
    const std::string why = reply.contains("error") && reply["error"].is_string() ? reply["error"].get<std::string>()
                                                                                  : "refused";
    err_ << "pppoeplusctl: " << what_ << ": " << why << "\n";
    if (json_) {
        Json o = okWith(false, {{"command", what_}});
        for (const auto& [key, value] : extra.items()) o[key] = value;
        o["error"] = why;
        printJson(o);
    }
    return EXIT_RESULT;
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
        } else if (is("--control-socket")) {
            if (!valueOf(controlOpt_)) return usage({"--control-socket needs a path", ""});
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
    ep_.control = controlOpt_.empty() ? runtime(cmdp::CONTROL_SOCKET) : controlOpt_;
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
    if (cmd == "config") return cmdConfig(rest);
    return usage({"unknown command '" + cmd + "'", ""});
}

int run(const std::vector<std::string>& args, const std::string& root, const TransportFactory& transport,
        Resolver& resolver, std::ostream& out, std::ostream& err) {
    Runner r(root, transport, resolver, out, err);
    return r.run(args);
}

}  // namespace ctl
