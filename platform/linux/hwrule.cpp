// nftables rules of the hardware rule protocol, loaded in process through
// libnftables: one transaction per change, as `nft -f` would run the same
// script, without a child process.
#include "platform/linux/hwrule.h"

#include <linux/capability.h>
#include <nftables/libnftables.h>
#include <sys/syscall.h>
#include <unistd.h>

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

}  // namespace

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
    return setLocked({ifName}, on);
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
    return setLocked(names, on);
}

void hwruleRelease() {
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
