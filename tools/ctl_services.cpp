// pppoeplusctl: the process shell and the platform's events.
#include "tools/runner.h"

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <sstream>

#include "generated/pppoeplus_version.h"
#include "mgmt/mgmt_codes.h"
#include "platform/number.h"
#include "platform/types.h"
#include "tools/metrics.h"
#include "vocab/text.h"

namespace ctl {

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

}  // namespace ctl
