// pppoeplusctl config: the running configuration shown and saved, the file
// reloaded by the daemon, a file checked as the daemon reads it.
#include "tools/runner.h"

#include <cerrno>
#include <sstream>

#include "platform/linux/config.h"
#include "vocab/text.h"

namespace ctl {

namespace {

// The key of a `key = value` line, or "" for a comment, a blank line or a
// line without '='.
std::string lineKey(const std::string& line) {
    const std::string t = trim(line);
    if (t.empty() || t[0] == '#') return "";
    const size_t eq = t.find('=');
    if (eq == std::string::npos) return "";
    return trim(t.substr(0, eq));
}

bool operational(const std::string& key) { return key.compare(0, 6, "agent.") == 0 || key.compare(0, 3, "if.") == 0; }

}  // namespace

std::string configMerge(const std::string& oldText, const std::string& operationalText) {
    std::vector<std::string> kept;
    std::istringstream in(oldText);
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (trim(line) == CONFIG_SAVE_MARKER) continue;
        if (operational(lineKey(line))) continue;
        kept.push_back(line);
    }
    while (!kept.empty() && trim(kept.back()).empty()) kept.pop_back();
    std::string out;
    for (const std::string& l : kept) out += l + "\n";
    if (!out.empty()) out += "\n";
    out += std::string(CONFIG_SAVE_MARKER) + "\n";
    std::istringstream op(operationalText);
    while (std::getline(op, line))
        if (operational(lineKey(line))) out += line + "\n";
    return out;
}

int Runner::cmdConfig(const std::vector<std::string>& a) {
    if (a.size() < 2) return usage({"config needs show, save, reload or check", "config"});
    const std::string& sub = a[1];
    what_ = "config " + sub;

    if (sub == "check") {
        if (a.size() != 3) return usage({"config check needs one file", "config"});
        std::string text, error;
        if (!linuxplat::configReadFile(a[2], text, error)) {
            err_ << "pppoeplusctl: " << what_ << ": " << error << "\n";
            if (json_) printJson(okWith(false, {{"command", what_}, {"file", a[2]}, {"error", error}}));
            return EXIT_RESULT;
        }
        linuxplat::ConfigData data = linuxplat::configParse(text, a[2]);
        if (json_) {
            printJson(okWith(data.messages.empty(), {{"command", what_},
                                                     {"file", a[2]},
                                                     {"errors", data.errors},
                                                     {"messages", data.messages}}));
        } else {
            for (const std::string& m : data.messages) out_ << m << "\n";
            if (data.messages.empty()) out_ << a[2] << ": no errors\n";
        }
        return data.messages.empty() ? EXIT_OK : EXIT_RESULT;
    }

    if (sub == "show") {
        if (a.size() != 2) return usage({"config show takes no argument", "config"});
        Json reply;
        if (int rc = control({{"op", "config-show"}}, reply); rc != 0) return rc;
        if (!reply.value("ok", false)) return controlRefused(reply, Json::object());
        if (json_) {
            Json o = okWith(true, {{"command", what_}});
            for (const char* k : {"file", "agent", "interfaces", "startup"})
                if (reply.contains(k)) o[k] = reply[k];
            printJson(o);
        } else {
            out_ << reply.value("text", "");
        }
        return EXIT_OK;
    }

    if (sub == "save") {
        if (a.size() > 3) return usage({"config save takes at most one file", "config"});
        Json reply;
        if (int rc = control({{"op", "config-show"}}, reply); rc != 0) return rc;
        if (!reply.value("ok", false)) return controlRefused(reply, Json::object());
        const std::string path = a.size() == 3 ? a[2] : reply.value("file", "");
        if (path.empty()) return usage({"the daemon names no configuration file: config save FILE", "config"});
        std::string old, error;
        int err = 0;
        if (!linuxplat::configReadFile(path, old, error, &err) && err != ENOENT) {
            err_ << "pppoeplusctl: " << what_ << ": " << error << "\n";
            if (json_) printJson(okWith(false, {{"command", what_}, {"file", path}, {"error", error}}));
            return EXIT_RESULT;
        }
        const std::string merged = configMerge(old, reply.value("operational", ""));
        // What is written must read back whole.
        linuxplat::ConfigData check = linuxplat::configParse(merged, path);
        if (!check.errors.empty()) {
            err_ << "pppoeplusctl: " << what_ << ": the result would not read back; nothing written:\n";
            for (const std::string& e : check.errors) err_ << "  " << e << "\n";
            if (json_) printJson(okWith(false, {{"command", what_}, {"file", path}, {"errors", check.errors}}));
            return EXIT_RESULT;
        }
        if (!linuxplat::configWriteFile(path, merged, error)) {
            err_ << "pppoeplusctl: " << what_ << ": " << error << "\n";
            if (json_) printJson(okWith(false, {{"command", what_}, {"file", path}, {"error", error}}));
            return EXIT_RESULT;
        }
        const size_t lines = check.ops.size();
        if (json_) {
            printJson(okWith(true, {{"command", what_}, {"file", path}, {"settings", lines}}));
        } else {
            out_ << path << ": " << lines << " operational setting(s) saved" << (old.empty() ? "" : "; the previous file is " + path + ".bak") << "\n";
        }
        return EXIT_OK;
    }

    if (sub == "reload") {
        if (a.size() != 2) return usage({"config reload takes no argument", "config"});
        Json reply;
        if (int rc = control({{"op", "config-reload"}}, reply); rc != 0) return rc;
        auto list = [&](const char* k) {
            std::vector<std::string> v;
            if (reply.contains(k) && reply[k].is_array())
                for (const Json& e : reply[k])
                    if (e.is_string()) v.push_back(e.get<std::string>());
            return v;
        };
        const bool ok = reply.value("ok", false);
        if (json_) {
            printJson(okWith(ok, {{"command", what_},
                                  {"file", reply.value("file", "")},
                                  {"errors", list("errors")},
                                  {"changed", list("changed")},
                                  {"restart", list("restart")}}));
        } else if (!ok) {
            for (const std::string& e : list("errors")) err_ << e << "\n";
            if (reply.contains("error") && reply["error"].is_string()) err_ << reply["error"].get<std::string>() << "\n";
            err_ << "pppoeplusctl: " << what_ << ": nothing changed\n";
        } else {
            for (const std::string& c : list("changed")) out_ << "changed: " << c << "\n";
            for (const std::string& r : list("restart")) out_ << "needs a restart: " << r << "\n";
            out_ << reply.value("file", "") << ": reloaded, " << list("changed").size() << " setting(s) changed\n";
        }
        return ok ? EXIT_OK : EXIT_RESULT;
    }
    return usage({"unknown config command '" + sub + "' (show, save, reload, check)", "config"});
}

}  // namespace ctl
