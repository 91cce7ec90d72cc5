// nftables rules of the hardware rule protocol, loaded in process through
// libnftables, as `nft -f` would run the same script, without a child
// process: one transaction per change, or one for all the changes a thread
// asks for while it holds the daemon's lock.
#include "platform/linux/hwrule.h"

#include <linux/capability.h>
#include <nftables/libnftables.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>

#include "platform/linux/config.h"
#include "platform/linux/plat_log.h"
#include "platform/types.h"

namespace linuxplat {

namespace {

// The context is not thread-safe: every use is under gMutex.
std::mutex gMutex;
bool gStarted = false;
bool gEnabled = false;
bool gTableMade = false;
// Never freed: a thread may still switch a rule while the process ends.
struct nft_ctx* gCtx = nullptr;
std::string& gTable = *new std::string;

bool tableNameOk(const std::string& name) {
    if (name.empty() || name.size() > 32) return false;
    for (char c : name)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_')) return false;
    return true;
}

// A port name that can be an interface's (at most 15 bytes, no blank or
// control character) and goes between quotes in a script as it is.
bool portNameOk(const std::string& name) {
    if (name.empty() || name.size() > 15) return false;
    for (char c : name) {
        auto u = static_cast<unsigned char>(c);
        if (u <= ' ' || u == 0x7f || u == '"' || u == '\\') return false;
    }
    return true;
}

// Runs `script` as one transaction in gCtx. Called with gMutex held. 0 on
// success; else -1 with what libnftables said in `errors`, on one line.
int runLocked(const std::string& script, std::string& errors) {
    errors.clear();
    if (gCtx == nullptr) {
        errors = "no nftables context";
        return -1;
    }
    int rc = nft_run_cmd_from_buffer(gCtx, script.c_str());
    // Both buffers are read after every run so that the next starts empty.
    (void)nft_ctx_get_output_buffer(gCtx);
    const char* err = nft_ctx_get_error_buffer(gCtx);
    if (rc == 0) return 0;
    errors = err != nullptr ? err : "";
    if (errors.size() > 4096) errors.resize(4096);
    while (!errors.empty() && (errors.back() == '\n' || errors.back() == ' ')) errors.pop_back();
    for (char& c : errors)
        if (c == '\n') c = ' ';
    if (errors.empty()) errors = "libnftables refused the change";
    return -1;
}

// Whether this thread may change nftables (CAP_NET_ADMIN effective). Asked
// first, because libnftables writes a refusal for lack of it to standard
// error itself rather than to the context's error buffer.
bool netAdmin() {
    struct __user_cap_header_struct hdr = {_LINUX_CAPABILITY_VERSION_3, 0};
    struct __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    if (::syscall(SYS_capget, &hdr, data) != 0) return true;  // unknown: let libnftables find out
    return (data[CAP_TO_INDEX(CAP_NET_ADMIN)].effective & CAP_TO_MASK(CAP_NET_ADMIN)) != 0;
}

// A context whose output and errors are kept in buffers, not printed.
struct nft_ctx* newContext() {
    struct nft_ctx* ctx = nft_ctx_new(NFT_CTX_DEFAULT);
    if (ctx == nullptr) return nullptr;
    if (nft_ctx_buffer_output(ctx) != 0 || nft_ctx_buffer_error(ctx) != 0) {
        nft_ctx_free(ctx);
        return nullptr;
    }
    return ctx;
}

// Called with gMutex held. With auto the rules are on when libnftables
// works in this network namespace (listing the bridge tables succeeds:
// nf_tables is there and the process may use it), off otherwise; with nft
// they are required, and every attempt that fails is reported.
void start() {
    if (gStarted) return;
    gStarted = true;
    std::string mode = configGetOr("platform.hwrule", "auto");
    gTable = configGetOr("platform.nfttable", "pppoeplus");
    if (!tableNameOk(gTable)) {
        platLog(PLAT_LOG_ERR, "platform.nfttable '%s' is not a table name; using 'pppoeplus'", gTable.c_str());
        gTable = "pppoeplus";
    }
    if (mode == "none") {
        platLog(PLAT_LOG_NOTICE, "hardware rule: off (platform.hwrule = none); the bridge forwards discovery frames");
        return;
    }
    if (mode != "auto" && mode != "nft") {
        platLog(PLAT_LOG_WARNING, "platform.hwrule '%s' unknown; using auto", mode.c_str());
        mode = "auto";
    }
    std::string errors;
    if (!netAdmin()) {
        errors = "CAP_NET_ADMIN missing";
    } else {
        gCtx = newContext();
        if (gCtx == nullptr) errors = "cannot make a libnftables context";
        else (void)runLocked("list tables bridge\n", errors);
    }
    if (!errors.empty()) {
        if (mode == "nft") {
            platLog(PLAT_LOG_ERR, "hardware rule: nftables does not work here (%s); port rules will fail",
                    errors.c_str());
            gEnabled = true;  // every attempt fails and the daemon reports it
            return;
        }
        platLog(PLAT_LOG_WARNING,
                "hardware rule: nftables does not work here (%s); running without rules, the bridge forwards "
                "discovery frames",
                errors.c_str());
        return;
    }
    gEnabled = true;
}

// Called with gMutex held: the table exists, with `firstPorts` in its set,
// after it returns 0.
int ensureTable(const std::vector<std::string>& firstPorts) {
    if (gTableMade) return 0;
    std::string errors;
    // A table left behind by an earlier run is replaced in one transaction
    // with the first ports' names: the ports stay ruled throughout.
    std::string script = "add table bridge " + gTable + "\ndelete table bridge " + gTable + "\n" +
                         hwruleTableScript(gTable) + hwruleElementsScript(gTable, firstPorts, true);
    int rc = runLocked(script, errors);
    if (rc != 0) {
        platLog(PLAT_LOG_ERR, "hardware rule: cannot load table bridge %s: %s", gTable.c_str(), errors.c_str());
        return rc;
    }
    gTableMade = true;
    platLog(PLAT_LOG_INFO, "hardware rule: table bridge %s loaded", gTable.c_str());
    return 0;
}

// Switches the rules of `names` (checked, no duplicates, not empty) in one
// transaction. Called with gMutex held.
int setLocked(const std::vector<std::string>& names, bool on) {
    if (!gEnabled) return 0;
    if (gCtx == nullptr) return ZEL_ERR_UNSUPPORTED;
    if (!on && !gTableMade) return 0;
    if (on && !gTableMade) return ensureTable(names) != 0 ? ZEL_ERR_GENERAL : 0;
    std::string errors;
    if (runLocked(hwruleElementsScript(gTable, names, on), errors) != 0) {
        std::string what = names.size() == 1 ? "port " + names[0] : std::to_string(names.size()) + " ports";
        platLog(PLAT_LOG_ERR, "hardware rule: cannot %s %s: %s", on ? "add" : "remove", what.c_str(), errors.c_str());
        return ZEL_ERR_GENERAL;
    }
    return 0;
}

// ---- gathering ----------------------------------------------------------------------------

// One rule change asked for: a port name on or off.
struct Change {
    std::string name;
    bool on = false;
};

// Semaphores of the platform this thread holds (the daemon's lock among
// them). While it holds one, its rule changes are gathered.
thread_local int tHeld = 0;
// Changes gathered and not loaded yet, in the order they were asked for;
// and changes that failed but were not reported yet. Under gMutex.
auto& gPending = *new std::vector<Change>;
auto& gUnreported = *new std::vector<Change>;
// Whether either holds anything: letting go of the daemon's lock (once per
// frame on the worker) looks at this alone while nothing was gathered.
std::atomic<bool> gAnyPending{false};
// Told about every change that could not be loaded. Set once, at start.
std::atomic<HwruleFailed> gOnFailed{nullptr};

// The script that makes `changes`, in their order, in one transaction:
// consecutive changes of one kind share a command. With the table not
// loaded yet, it is loaded first (replacing one an earlier run left) with
// the ports the changes leave on; a removal then only undoes an earlier add
// of the same batch, as a removal before the table exists changes nothing.
// Empty when nothing is to be done. Called with gMutex held.
std::string batchScript(const std::vector<Change>& changes) {
    if (!gTableMade) {
        std::vector<std::string> first;
        for (const Change& c : changes) {
            auto it = std::find(first.begin(), first.end(), c.name);
            if (c.on && it == first.end()) first.push_back(c.name);
            if (!c.on && it != first.end()) first.erase(it);
        }
        if (first.empty()) return std::string();
        return "add table bridge " + gTable + "\ndelete table bridge " + gTable + "\n" + hwruleTableScript(gTable) +
               hwruleElementsScript(gTable, first, true);
    }
    std::string script;
    std::vector<std::string> group;
    bool groupOn = false;
    auto flush = [&] {
        if (!group.empty()) script += hwruleElementsScript(gTable, group, groupOn);
        group.clear();
    };
    for (const Change& c : changes) {
        // A name twice in one command is a second change: it gets a command
        // of its own, as it would have had a transaction of its own.
        if (c.on != groupOn || std::find(group.begin(), group.end(), c.name) != group.end()) flush();
        groupOn = c.on;
        group.push_back(c.name);
    }
    flush();
    return script;
}

// Loads `changes` in one transaction. When that fails they are loaded one by
// one, each as its own transaction, as they would have been without
// gathering: the ports whose rule can be loaded get it, and the changes that
// still fail are returned (and logged), never dropped in silence. Called
// with gMutex held.
std::vector<Change> commitLocked(const std::vector<Change>& changes) {
    std::vector<Change> failed;
    if (changes.empty() || !gEnabled) return failed;
    if (gCtx == nullptr) return changes;
    const bool tableWasMade = gTableMade;
    std::string script = batchScript(changes);
    if (script.empty()) return failed;
    std::string errors;
    if (runLocked(script, errors) == 0) {
        if (!tableWasMade) {
            gTableMade = true;
            platLog(PLAT_LOG_INFO, "hardware rule: table bridge %s loaded", gTable.c_str());
        }
        return failed;
    }
    platLog(PLAT_LOG_ERR, "hardware rule: cannot load %zu rule changes in one transaction (%s); loading them one by one",
            changes.size(), errors.c_str());
    for (const Change& c : changes)
        if (setLocked({c.name}, c.on) != 0) failed.push_back(c);
    return failed;
}

// Tells the database about changes that could not be loaded, without
// gMutex (it takes locks of its own that are held while rules are asked for).
void reportFailed(const std::vector<Change>& failed) {
    HwruleFailed fn = gOnFailed.load();
    for (const Change& c : failed) {
        platLog(PLAT_LOG_ERR, "hardware rule: port %s is %s", c.name.c_str(),
                c.on ? "NOT ruled: its discovery frames are bridged as they are" : "still ruled");
        if (fn != nullptr) fn(c.name, c.on);
    }
}

// Switches `names` (checked, no duplicates, not empty): gathered while the
// thread holds a semaphore, else loaded now together with whatever was
// gathered before them, in one transaction. Called with gMutex held.
int setOrGather(const std::vector<std::string>& names, bool on) {
    if (!gEnabled) return 0;
    if (gCtx == nullptr) return ZEL_ERR_UNSUPPORTED;
    if (tHeld > 0) {
        for (const std::string& n : names) gPending.push_back({n, on});
        gAnyPending.store(true, std::memory_order_release);
        return 0;
    }
    if (gPending.empty()) return setLocked(names, on);
    std::vector<Change> changes;
    changes.swap(gPending);
    const size_t mine = changes.size();
    for (const std::string& n : names) changes.push_back({n, on});
    std::vector<Change> failed = commitLocked(changes);
    // Of the failures, those of this call are its result; the earlier ones
    // are reported by the commit of the thread that gathered them (this
    // caller may hold the database's lock the report takes).
    int rc = 0;
    for (const Change& c : failed) {
        bool isMine = false;
        for (size_t i = mine; i < changes.size(); i++)
            if (changes[i].name == c.name && changes[i].on == c.on) isMine = true;
        if (isMine) rc = ZEL_ERR_GENERAL;
        else gUnreported.push_back(c);
    }
    gAnyPending.store(!gUnreported.empty(), std::memory_order_release);
    return rc;
}

}  // namespace

void hwruleOnFailed(HwruleFailed fn) { gOnFailed.store(fn); }

void hwruleHoldBegin() { tHeld++; }

void hwruleHoldEnd() {
    if (tHeld <= 0) return;
    if (--tHeld > 0) return;
    (void)hwruleCommit();
}

int hwruleCommit() {
    if (!gAnyPending.load(std::memory_order_acquire)) return 0;
    std::vector<Change> failed;
    {
        std::lock_guard<std::mutex> lock(gMutex);
        if (gPending.empty() && gUnreported.empty()) return 0;
        std::vector<Change> changes;
        changes.swap(gPending);
        failed.swap(gUnreported);
        gAnyPending.store(false, std::memory_order_release);
        std::vector<Change> now = commitLocked(changes);
        failed.insert(failed.end(), now.begin(), now.end());
    }
    reportFailed(failed);
    return failed.empty() ? 0 : ZEL_ERR_GENERAL;
}

std::string hwruleTableScript(const std::string& table) {
    const std::string tags = "{ 0x8100, 0x88a8, 0x9100 }";
    return "table bridge " + table +
           " {\n"
           "  set ports { type ifname; }\n"
           "  chain forward {\n"
           "    type filter hook forward priority -200; policy accept;\n"
           "    iifname @ports ether type 0x8863 drop\n"
           "    iifname @ports @ll,96,16 " + tags + " @ll,128,16 0x8863 drop\n"
           "    iifname @ports @ll,96,16 " + tags + " @ll,128,16 " + tags + " @ll,160,16 0x8863 drop\n"
           "  }\n"
           "}\n";
}

std::string hwruleElementScript(const std::string& table, const std::string& ifName, bool add) {
    return hwruleElementsScript(table, {ifName}, add);
}

std::string hwruleElementsScript(const std::string& table, const std::vector<std::string>& ifNames, bool add) {
    std::string s = std::string(add ? "add" : "delete") + " element bridge " + table + " ports { ";
    for (size_t i = 0; i < ifNames.size(); i++) {
        if (i > 0) s += ", ";
        s += "\"" + ifNames[i] + "\"";
    }
    return s + " }\n";
}

bool hwruleEnabled() {
    std::lock_guard<std::mutex> lock(gMutex);
    start();
    return gEnabled;
}

int hwruleSet(const std::string& ifName, bool on) {
    std::lock_guard<std::mutex> lock(gMutex);
    start();
    if (!gEnabled) return 0;
    if (!portNameOk(ifName)) return ZEL_ERR_INVALID_ARG;
    return setOrGather({ifName}, on);
}

int hwruleSetMany(const std::vector<std::string>& ifNames, bool on) {
    std::lock_guard<std::mutex> lock(gMutex);
    start();
    if (!gEnabled) return 0;
    // Every name is checked before anything changes; each goes in once.
    std::set<std::string> seen;
    std::vector<std::string> names;
    names.reserve(ifNames.size());
    for (const std::string& n : ifNames) {
        if (!portNameOk(n)) return ZEL_ERR_INVALID_ARG;
        if (seen.insert(n).second) names.push_back(n);
    }
    if (names.empty()) return 0;
    return setOrGather(names, on);
}

void hwruleRelease() {
    // What a thread gathered goes in first: a port the daemon ruled stays
    // ruled after the process.
    (void)hwruleCommit();
    std::lock_guard<std::mutex> lock(gMutex);
    start();
    if (gTableMade)
        platLog(PLAT_LOG_NOTICE,
                "hardware rule: table bridge %s stays and keeps discovery frames of the agent's ports off the bridge; "
                "nft delete table bridge %s lets them through",
                gTable.c_str(), gTable.c_str());
    gEnabled = false;
}

}  // namespace linuxplat
