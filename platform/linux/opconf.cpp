// The operational configuration (opconf.h).
#include "platform/linux/opconf.h"

#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <future>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <tuple>

#include "platform/linux/cmd_call.h"
#include "platform/linux/cmd_proto.h"
#include "platform/linux/config.h"
#include "platform/linux/control_service.h"
#include "platform/linux/internal.h"
#include "platform/linux/notify.h"
#include "platform/linux/plat_log.h"
#include "platform/linux/plat_settings.h"
#include "platform/linux/setting_door.h"
#include "platform/linux/sock_table.h"
#include "platform/types.h"
#include "vocab/text.h"
#include "vocab/values.h"

namespace linuxplat {

namespace {

using Json = nlohmann::json;
using vocab::CommandInfo;
using vocab::Owner;
using vocab::ValueType;


// One setting of one target: the agent (unit 0) or an interface.
struct Key {
    uint32_t unit = 0;
    bool perInterface = false;
    Owner owner = Owner::Agent;
    uint32_t code = 0;
    bool operator<(const Key& o) const {
        return std::tie(unit, perInterface, owner, code) < std::tie(o.unit, o.perInterface, o.owner, o.code);
    }
};

// ---- the manager's state (the worker thread's own) -----------------------------------------

struct Change {
    Key key;
    CommandInfo setting;
    std::string ifName;
    Val before;
    Val after;
};

struct State {
    std::shared_ptr<const CallTable> table;
    std::string file;
    std::vector<OpSetting> ops;                // the lines in force
    ConfigData startFile;                      // the file as read at start (start-up options)
    std::map<Key, Val> base;                   // a setting's value before a line first set it
    std::set<Key> managed;                     // settings a line of `ops` has set
};

State& gState = *new State;

// Applies the lines to one target. Failures are appended to `errors`
// ("file:line: key: why"); changes made to `changes`.
void applyTarget(State& st, bool perIf, uint32_t unit, const std::string& ifName, std::vector<std::string>& errors,
                 std::vector<Change>& changes) {
    for (const CommandInfo& c : writable(perIf)) {
        const OpSetting* op = configOpFor(st.ops, perIf, c, ifName);
        const Key key{unit, perIf, c.owner, c.code};
        std::optional<Val> want;
        if (op != nullptr) want = Val{op->word, op->text};
        else if (st.managed.count(key) != 0 && st.base.count(key) != 0) want = st.base[key];
        if (!want) continue;

        std::string why;
        std::optional<Val> now = readSetting(*st.table, c, perIf, unit, why);
        const bool entryKept = perIf && c.owner == Owner::Agent;
        if (!now && entryKept) {
            // An interface without an entry is off, and has nothing else to
            // write to: its other lines wait until the agent serves it. A
            // format that reads back as nothing is empty.
            // The entry may have been made between the read and the look
            // (the agent serves a port as it appears): read it again then.
            if (vocab::isEnable(c, true)) now = Val{ZEL_FALSE, {}};
            else if (!hasEntry(*st.table, unit)) continue;
            else if (now = readSetting(*st.table, c, perIf, unit, why); !now && c.type == ValueType::Text) now = Val{};
        } else if (!now && c.type == ValueType::Text) {
            now = Val{};
        }
        if (!now) {
            if (op != nullptr)
                errors.push_back(st.file + ":" + std::to_string(op->line) + ": " + keyText(perIf, ifName, c) +
                                 ": cannot be read (" + why + ")");
            continue;
        }
        if (*now == *want) {
            if (op != nullptr) st.managed.insert(key);
            continue;
        }
        if (why = writeSetting(*st.table, c, perIf, unit, *want); !why.empty()) {
            const std::string where = op != nullptr ? st.file + ":" + std::to_string(op->line) + ": " : "";
            errors.push_back(where + keyText(perIf, ifName, c) + " = " +
                             configOpValueText(c, want->word, want->text) + ": " + why);
            continue;
        }
        if (st.base.count(key) == 0) st.base[key] = *now;
        changes.push_back(Change{key, c, ifName, *now, *want});
        if (op != nullptr) {
            st.managed.insert(key);
        } else {
            // Back to the value it had before the file: no longer the file's.
            st.managed.erase(key);
            st.base.erase(key);
        }
    }
}

// Whether a line may concern the interface: one of its patterns matches, or
// the file set something on it before.
bool concerns(const State& st, uint32_t unit, const std::string& name) {
    for (const OpSetting& op : st.ops)
        if (op.perInterface && configPatternMatches(op.pattern, name)) return true;
    for (const Key& k : st.managed)
        if (k.perInterface && k.unit == unit) return true;
    return false;
}

void applyAll(State& st, std::vector<std::string>& errors, std::vector<Change>& changes) {
    applyTarget(st, false, 0, "", errors, changes);
    for (const auto& [unit, name] : ifdbLinks())
        if (concerns(st, unit, name)) applyTarget(st, true, unit, name, errors, changes);
}

void logChanges(const std::vector<Change>& changes, const char* why) {
    for (const Change& ch : changes)
        platLog(PLAT_LOG_INFO, "configuration (%s): %s = %s (was %s)", why,
                keyText(ch.key.perInterface, ch.ifName, ch.setting).c_str(),
                configOpValueText(ch.setting, ch.after.word, ch.after.text).c_str(),
                configOpValueText(ch.setting, ch.before.word, ch.before.text).c_str());
}

// Undoes `changes`, last first.
void undo(State& st, const std::vector<Change>& changes) {
    for (auto it = changes.rbegin(); it != changes.rend(); ++it) {
        std::string why = writeSetting(*st.table, it->setting, it->key.perInterface, it->key.unit, it->before);
        if (!why.empty())
            platLog(PLAT_LOG_ERR, "configuration: undoing %s failed: %s",
                    keyText(it->key.perInterface, it->ifName, it->setting).c_str(), why.c_str());
    }
}

// The start-up options, platform settings and port lines that differ between
// two readings of the file: they take effect at the next start only.
std::vector<std::string> restartNeeded(const ConfigData& was, const ConfigData& now) {
    std::vector<std::string> out;
    std::set<std::string> keys;
    for (const auto& [k, v] : was.values) keys.insert(k);
    for (const auto& [k, v] : now.values) keys.insert(k);
    for (const std::string& k : keys) {
        auto a = was.values.find(k);
        auto b = now.values.find(k);
        const bool same = (a == was.values.end()) == (b == now.values.end()) && (a == was.values.end() || a->second == b->second);
        if (!same) out.push_back(k);
    }
    std::set<std::string> ports;
    for (const auto& [k, v] : was.ports) ports.insert(k);
    for (const auto& [k, v] : now.ports) ports.insert(k);
    auto same = [](const PortSpec& x, const PortSpec& y) {
        return x.ondType == y.ondType && x.sys == y.sys && x.slot == y.slot && x.port == y.port && x.subPort == y.subPort;
    };
    for (const std::string& p : ports) {
        auto a = was.ports.find(p);
        auto b = now.ports.find(p);
        if (a == was.ports.end() || b == now.ports.end() || !same(a->second, b->second)) out.push_back("port." + p);
    }
    return out;
}

Json doReload(State& st) {
    Json r{{"file", st.file}, {"errors", Json::array()}, {"changed", Json::array()}, {"restart", Json::array()}};
    std::string text, error;
    if (!configReadFile(st.file, text, error)) {
        r["ok"] = false;
        r["errors"].push_back(error);
        platLog(PLAT_LOG_ERR, "configuration reload: %s; nothing changed", error.c_str());
        return r;
    }
    ConfigData data = configParse(text, st.file);
    if (!data.errors.empty()) {
        for (const std::string& e : data.errors) {
            r["errors"].push_back(e);
            platLog(PLAT_LOG_ERR, "configuration reload: %s", e.c_str());
        }
        platLog(PLAT_LOG_ERR, "configuration reload: %zu error(s) in %s; nothing changed", data.errors.size(),
                st.file.c_str());
        r["ok"] = false;
        return r;
    }
    for (const std::string& m : data.messages) platLog(PLAT_LOG_WARNING, "configuration reload: %s", m.c_str());

    // Applied on a copy of the bookkeeping, kept only when all of it worked.
    State trial = st;
    trial.ops = data.ops;
    std::vector<std::string> errors;
    std::vector<Change> changes;
    applyAll(trial, errors, changes);
    if (!errors.empty()) {
        undo(st, changes);
        for (const std::string& e : errors) {
            r["errors"].push_back(e);
            platLog(PLAT_LOG_ERR, "configuration reload: %s", e.c_str());
        }
        platLog(PLAT_LOG_ERR, "configuration reload: a value was refused; the %zu change(s) made were undone",
                changes.size());
        r["ok"] = false;
        return r;
    }
    st.ops = trial.ops;
    st.base = trial.base;
    st.managed = trial.managed;
    logChanges(changes, "reload");
    for (const Change& ch : changes)
        r["changed"].push_back(keyText(ch.key.perInterface, ch.ifName, ch.setting) + " = " +
                               configOpValueText(ch.setting, ch.after.word, ch.after.text));
    for (const std::string& k : restartNeeded(st.startFile, data)) {
        r["restart"].push_back(k);
        platLog(PLAT_LOG_WARNING, "configuration reload: %s changed; it takes effect at the next start", k.c_str());
    }
    platLog(PLAT_LOG_NOTICE, "configuration reloaded from %s: %zu setting(s) changed", st.file.c_str(),
            changes.size());
    r["ok"] = true;
    return r;
}

// ---- show -----------------------------------------------------------------------------------

// One target's settings as lines and as JSON.
void showTarget(State& st, bool perIf, uint32_t unit, const std::string& ifName, std::string& text, Json& obj) {
    for (const CommandInfo& c : writable(perIf)) {
        std::string why;
        if (std::optional<uint32_t> typeCode = vocab::formatTypeCode(c, perIf)) {
            const std::vector<CommandInfo>& table = perIf ? vocab::ifCommands() : vocab::scalarCommands();
            std::optional<Val> type;
            for (const CommandInfo& t : table)
                if (t.code == *typeCode && t.owner == Owner::Agent) type = readSetting(*st.table, t, perIf, unit, why);
            if (!type || type->word == 0) continue;  // default: the built-in or the global format
        }
        std::optional<Val> v = readSetting(*st.table, c, perIf, unit, why);
        if (!v) continue;
        // An unset truth value has no word that sets it; a value that
        // follows the global one is what an interface has without a line.
        if (c.type == ValueType::Truth && v->word == 0) continue;
        if (c.type == ValueType::NumberOrDefault && v->word == vocab::VALUE_DEFAULT) continue;
        text += keyText(perIf, ifName, c) + " = " + configOpValueText(c, v->word, v->text) + "\n";
        if (c.type == ValueType::Text) obj[c.name] = v->text;
        else if (c.type == ValueType::Number) obj[c.name] = v->word;
        else obj[c.name] = configOpValueText(c, v->word, v->text);
    }
}


Json doShow(State& st) {
    Json r{{"file", st.file}, {"agent", Json::object()}, {"interfaces", Json::object()}, {"startup", Json::object()}};
    std::string op = "# Operational settings, as the daemon runs them\n";
    showTarget(st, false, 0, "", op, r["agent"]);
    for (uint32_t unit : servedUnits(*st.table)) {
        const std::string name = ifdbName(unit);
        if (name.empty()) continue;
        Json obj = Json::object();
        showTarget(st, true, unit, name, op, obj);
        r["interfaces"][name] = obj;
    }
    std::string startup = "# Start-up options, platform settings and ports, as read at start\n";
    for (const auto& [k, v] : st.startFile.values) {
        startup += k + " = " + v + "\n";
        r["startup"][k] = v;
    }
    for (const auto& [name, spec] : st.startFile.ports) {
        std::string words;
        static const std::map<uint32_t, const char*> kinds = {{1, "eth"}, {2, "ethagg"}, {10, "epon"},
                                                              {11, "gpon"}, {12, "ponagg"}, {0, "none"}};
        if (spec.ondType && kinds.count(*spec.ondType) != 0) words += std::string(" kind=") + kinds.at(*spec.ondType);
        if (spec.sys) words += " sys=" + std::to_string(*spec.sys);
        if (spec.slot) words += " slot=" + std::to_string(*spec.slot);
        if (spec.port) words += " port=" + std::to_string(*spec.port);
        if (spec.subPort) words += " subport=" + std::to_string(*spec.subPort);
        if (words.empty()) continue;
        startup += "port." + name + " =" + words + "\n";
        r["startup"]["port." + name] = words.substr(1);
    }
    r["operational"] = op;
    r["startupText"] = startup;
    r["text"] = startup + "\n" + op;
    return r;
}

// ---- the worker ----------------------------------------------------------------------------

enum class JobKind { Start, Link, Gone, Reload, Show };

struct Job {
    JobKind kind = JobKind::Start;
    uint32_t unit = 0;
    std::shared_ptr<std::promise<Json>> answer;  // null: nobody waits
};

std::mutex gQueueMutex;
std::condition_variable gQueueCv;
auto& gQueue = *new std::deque<Job>;
bool gStarted = false;

void enqueue(Job job) {
    {
        std::lock_guard<std::mutex> lock(gQueueMutex);
        if (!gStarted && job.kind != JobKind::Start) {
            if (job.answer) job.answer->set_value(controlError("the configuration is not loaded yet"));
            return;
        }
        gQueue.push_back(std::move(job));
    }
    gQueueCv.notify_one();
}

// Waits until the daemon has read what its route sockets hold (the
// announcements of the interfaces present), at most `limitMs`, then a moment
// for it to handle the last one.
void waitRouteQueues(int limitMs) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    while (std::chrono::steady_clock::now() < until) {
        bool pending = false;
        {
            std::shared_lock<std::shared_mutex> lock(gSockMutex);
            for (const auto& [fd, info] : gSocks) {
                int queued = 0;
                if (info.kind == SockKind::Route && info.platformEnd >= 0 &&
                    ::ioctl(info.platformEnd, TIOCOUTQ, &queued) == 0 && queued > 0)
                    pending = true;
            }
        }
        if (!pending) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

void runJob(State& st, const Job& job) {
    std::vector<std::string> errors;
    std::vector<Change> changes;
    switch (job.kind) {
        case JobKind::Start: {
            waitRouteQueues(3000);
            applyAll(st, errors, changes);
            for (const std::string& e : errors) platLog(PLAT_LOG_ERR, "configuration: %s", e.c_str());
            logChanges(changes, "start");
            platLog(PLAT_LOG_NOTICE, "configuration: %zu operational line(s) of %s, %zu setting(s) applied",
                    st.ops.size(), st.file.c_str(), changes.size());
            break;
        }
        case JobKind::Link: {
            const std::string name = ifdbName(job.unit);
            if (name.empty() || !concerns(st, job.unit, name)) break;
            applyTarget(st, true, job.unit, name, errors, changes);
            for (const std::string& e : errors) platLog(PLAT_LOG_ERR, "configuration: %s", e.c_str());
            logChanges(changes, name.c_str());
            break;
        }
        case JobKind::Gone: {
            // A new interface under this index starts from its own defaults.
            for (auto it = st.managed.begin(); it != st.managed.end();)
                it = it->perInterface && it->unit == job.unit ? st.managed.erase(it) : std::next(it);
            for (auto it = st.base.begin(); it != st.base.end();)
                it = it->first.perInterface && it->first.unit == job.unit ? st.base.erase(it) : std::next(it);
            break;
        }
        case JobKind::Reload: {
            notifyReloading();
            Json r = doReload(st);
            notifyReloaded();
            if (job.answer) job.answer->set_value(r);
            return;
        }
        case JobKind::Show: {
            Json r = doShow(st);
            if (job.answer) job.answer->set_value(r);
            return;
        }
    }
    if (job.answer) job.answer->set_value(Json::object());
}

void* workerThread(void*) {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    for (;;) {
        Job job;
        {
            std::unique_lock<std::mutex> lock(gQueueMutex);
            gQueueCv.wait(lock, [] { return !gQueue.empty(); });
            job = std::move(gQueue.front());
            gQueue.pop_front();
        }
        runJob(gState, job);
    }
    return nullptr;
}

Json waitFor(JobKind kind) {
    auto answer = std::make_shared<std::promise<Json>>();
    std::future<Json> f = answer->get_future();
    enqueue(Job{kind, 0, answer});
    return f.get();
}

}  // namespace

void opconfStart(std::shared_ptr<const CallTable> table) {
    static std::once_flag once;
    std::call_once(once, [&] {
        gState.table = std::move(table);
        gState.file = configPath();
        gState.startFile = config();
        gState.ops = gState.startFile.ops;
        controlRegister("config-show", false, [](const Json&, const ControlCaller&) { return opconfShow(); });
        // A reload applies root's file; the group may ask for it, as for
        // any setting it may write itself.
        controlRegister("config-reload", false, [](const Json&, const ControlCaller&) { return opconfReload(); });
        {
            std::lock_guard<std::mutex> lock(gQueueMutex);
            gStarted = true;
        }
        enqueue(Job{JobKind::Start, 0, nullptr});
        pthread_t tid;
        pthread_attr_t attr;
        pthread_attr_init(&attr);
        pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
        if (pthread_create(&tid, &attr, workerThread, nullptr) == 0) pthread_setname_np(tid, "zelConfig");
        else platLog(PLAT_LOG_ERR, "configuration: cannot start its thread; operational lines are not applied");
        pthread_attr_destroy(&attr);
    });
}

void opconfLinkNew(uint32_t unit) { enqueue(Job{JobKind::Link, unit, nullptr}); }
void opconfServed(uint32_t unit) { enqueue(Job{JobKind::Link, unit, nullptr}); }
void opconfLinkGone(uint32_t unit) { enqueue(Job{JobKind::Gone, unit, nullptr}); }
void opconfReloadAsync() { enqueue(Job{JobKind::Reload, 0, nullptr}); }

Json opconfReload() { return waitFor(JobKind::Reload); }
Json opconfShow() { return waitFor(JobKind::Show); }

}  // namespace linuxplat
