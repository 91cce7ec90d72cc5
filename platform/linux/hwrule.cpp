// nftables rules of the hardware rule protocol.
#include "platform/linux/hwrule.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "platform/linux/config.h"
#include "platform/linux/plat_log.h"
#include "platform/types.h"

extern char** environ;

namespace linuxplat {

namespace {

std::mutex gMutex;
bool gStarted = false;
bool gEnabled = false;
bool gTableMade = false;
// Never destroyed: a thread may still switch a rule while the process ends.
std::string& gNft = *new std::string;
std::string& gTable = *new std::string;

bool executable(const std::string& path) { return ::access(path.c_str(), X_OK) == 0; }

std::string findNft() {
    auto configured = configGet("platform.nft");
    if (configured) return executable(*configured) ? *configured : std::string();
    for (const char* p : {"/usr/sbin/nft", "/sbin/nft", "/usr/bin/nft", "/usr/local/sbin/nft"})
        if (executable(p)) return p;
    return std::string();
}

bool tableNameOk(const std::string& name) {
    if (name.empty() || name.size() > 32) return false;
    for (char c : name)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_')) return false;
    return true;
}

// Called with gMutex held.
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
    gNft = findNft();
    if (gNft.empty()) {
        if (mode == "nft") {
            platLog(PLAT_LOG_ERR, "hardware rule: the nft tool is missing; port rules will fail");
            gEnabled = true;  // every attempt fails and the daemon reports it
            return;
        }
        platLog(PLAT_LOG_WARNING,
                "hardware rule: no nft tool found; running without rules, the bridge forwards discovery frames");
        return;
    }
    if (mode != "auto" && mode != "nft")
        platLog(PLAT_LOG_WARNING, "platform.hwrule '%s' unknown; using auto", mode.c_str());
    gEnabled = true;
}

// Called with gMutex held: the table exists, with `firstPort` in its set,
// after it returns 0.
int ensureTable(const std::string& firstPort) {
    if (gTableMade) return 0;
    std::string errors;
    // A table left behind by an earlier run is replaced in one transaction
    // with the first port's name: the ports stay ruled throughout.
    std::string script = "add table bridge " + gTable + "\ndelete table bridge " + gTable + "\n" +
                         hwruleTableScript(gTable) + hwruleElementScript(gTable, firstPort, true);
    int rc = nftRun(script, errors);
    if (rc != 0) {
        platLog(PLAT_LOG_ERR, "hardware rule: cannot load table bridge %s: %s", gTable.c_str(), errors.c_str());
        return rc;
    }
    gTableMade = true;
    platLog(PLAT_LOG_INFO, "hardware rule: table bridge %s loaded", gTable.c_str());
    return 0;
}

void readAll(int fd, std::string& out) {
    char buf[1024];
    for (;;) {
        ssize_t n = ::read(fd, buf, sizeof(buf));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        if (out.size() < 4096) out.append(buf, static_cast<size_t>(n));
    }
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
    return std::string(add ? "add" : "delete") + " element bridge " + table + " ports { \"" + ifName + "\" }\n";
}

int nftRun(const std::string& script, std::string& errors) {
    int in[2];
    int err[2];
    if (::pipe2(in, O_CLOEXEC) != 0) return -1;
    if (::pipe2(err, O_CLOEXEC) != 0) {
        ::close(in[0]);
        ::close(in[1]);
        return -1;
    }
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, in[0], 0);
    posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&fa, err[1], 2);
    // Signals the daemon blocks for its own handling must not stay blocked in nft.
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attr, &none);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setsigdefault(&attr, &all);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::string nft = gNft.empty() ? std::string("nft") : gNft;
    char arg0[] = "nft";
    char arg1[] = "-f";
    char arg2[] = "-";
    char* argv[] = {arg0, arg1, arg2, nullptr};
    pid_t pid = -1;
    int rc = ::posix_spawn(&pid, nft.c_str(), &fa, &attr, argv, environ);
    posix_spawn_file_actions_destroy(&fa);
    posix_spawnattr_destroy(&attr);
    ::close(in[0]);
    ::close(err[1]);
    if (rc != 0) {
        ::close(in[1]);
        ::close(err[0]);
        errors = std::string("cannot run ") + nft + ": " + std::strerror(rc);
        return -1;
    }
    size_t off = 0;
    while (off < script.size()) {
        ssize_t n = ::write(in[1], script.data() + off, script.size() - off);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        off += static_cast<size_t>(n);
    }
    ::close(in[1]);
    errors.clear();
    readAll(err[0], errors);
    ::close(err[0]);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    while (!errors.empty() && (errors.back() == '\n' || errors.back() == ' ')) errors.pop_back();
    for (char& c : errors)
        if (c == '\n') c = ' ';
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    return -1;
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
    if (gNft.empty()) return ZEL_ERR_UNSUPPORTED;
    if (ifName.empty() || ifName.find('"') != std::string::npos) return ZEL_ERR_INVALID_ARG;
    if (!on && !gTableMade) return 0;
    if (on && !gTableMade) return ensureTable(ifName) != 0 ? ZEL_ERR_GENERAL : 0;
    std::string errors;
    int rc = nftRun(hwruleElementScript(gTable, ifName, on), errors);
    if (rc != 0) {
        platLog(PLAT_LOG_ERR, "hardware rule: cannot %s port %s: %s", on ? "add" : "remove", ifName.c_str(),
                errors.c_str());
        return ZEL_ERR_GENERAL;
    }
    return 0;
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
