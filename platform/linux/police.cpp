// Policing of discovery per input port: the settings kept here, pushed to
// the filter's maps; the filter's counters read back; the error-disable
// check.
#include "platform/linux/police.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <net/if.h>
#include <pthread.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "generated/police.skel.h"
#include "platform/linux/bpf/police_abi.h"
#include "platform/linux/cmd_proto.h"
#include "platform/linux/control_service.h"
#include "platform/linux/internal.h"
#include "platform/linux/plat_log.h"
#include "platform/linux/plat_settings.h"

namespace linuxplat {

namespace {

// A port's own settings.
struct PortConf {
    uint32_t rate = POLICE_FOLLOW;
    uint32_t burst = POLICE_FOLLOW;
    bool uplink = false;
    bool ownNothing() const { return rate == POLICE_FOLLOW && burst == POLICE_FOLLOW && !uplink; }
};

// A port as the error-disable check follows it.
struct PortRun {
    bool seen = false;
    uint64_t lastDropped = 0;
    uint32_t overSeconds = 0;  // checks in a row that found new drops
    int64_t heldUntilMs = 0;   // error-disabled until then; 0: served
};

std::mutex gMutex;
uint32_t gRate = POLICE_RATE_DEFAULT;
uint32_t gBurst = POLICE_BURST_DEFAULT;
uint32_t gErrTime = 0;
uint32_t gErrHold = ERRDISABLE_HOLD_DEFAULT;
auto& gConf = *new std::map<uint32_t, PortConf>;
auto& gRun = *new std::map<uint32_t, PortRun>;

std::once_flag gLoadOnce;
police_bpf* gSkel = nullptr;  // set once, under gLoadOnce; never freed
std::once_flag gTimerOnce;

// What libbpf said while loading, for the one log line of a failure.
std::string& gLibbpfSaid = *new std::string;

int libbpfPrint(enum libbpf_print_level level, const char* format, va_list args) {
    if (level == LIBBPF_DEBUG) return 0;
    char line[512];
    std::vsnprintf(line, sizeof(line), format, args);
    if (gLibbpfSaid.size() < 4096) gLibbpfSaid += line;
    return 0;
}

std::string portName(uint32_t ifIndex) {
    std::string name = ifdbName(ifIndex);
    if (!name.empty()) return name;
    // Before the interface cache has it, the kernel's name.
    char buf[IF_NAMESIZE];
    if (::if_indextoname(ifIndex, buf) != nullptr) return buf;
    return "ifindex " + std::to_string(ifIndex);
}

// Log lines about a port, written once gMutex is let go: the port's name
// comes from the interface database, whose locks are taken before this
// module's (it tells this module of uplinks under them).
struct PortLine {
    int priority;
    uint32_t ifIndex;
    std::string rest;  // what follows the port's name
};

void writeLines(const std::vector<PortLine>& lines) {
    for (const PortLine& l : lines) platLog(l.priority, "police: %s%s", portName(l.ifIndex).c_str(), l.rest.c_str());
}

police_cfg cfgOf(uint32_t rate, uint32_t burst) {
    police_cfg c;
    std::memset(&c, 0, sizeof(c));
    if (rate == 0) {
        c.mode = POLICE_MODE_OFF;
        return c;
    }
    c.mode = POLICE_MODE_LIMIT;
    c.interval_ns = 1000000000ull / rate;
    c.tolerance_ns = static_cast<uint64_t>(burst - 1) * c.interval_ns;
    return c;
}

bool heldLocked(uint32_t ifIndex) {
    auto it = gRun.find(ifIndex);
    return it != gRun.end() && it->second.heldUntilMs != 0;
}

PortConf confLocked(uint32_t ifIndex) {
    auto it = gConf.find(ifIndex);
    return it != gConf.end() ? it->second : PortConf{};
}

// The record of a port that needs one of its own; nullopt when the global
// record serves it.
std::optional<police_cfg> portCfgLocked(uint32_t ifIndex) {
    PortConf c = confLocked(ifIndex);
    if (heldLocked(ifIndex)) {
        police_cfg b;
        std::memset(&b, 0, sizeof(b));
        b.mode = POLICE_MODE_BLOCK;
        return b;
    }
    if (c.ownNothing()) return std::nullopt;
    uint32_t rate = c.rate != POLICE_FOLLOW ? c.rate : (c.uplink ? 0 : gRate);
    uint32_t burst = c.burst != POLICE_FOLLOW ? c.burst : gBurst;
    return cfgOf(rate, burst);
}

// Writes a port's record to the filter (or takes it away): 0 or an errno.
int pushPortLocked(uint32_t ifIndex) {
    if (gSkel == nullptr) return 0;
    int fd = bpf_map__fd(gSkel->maps.police_port);
    std::optional<police_cfg> c = portCfgLocked(ifIndex);
    if (c) return bpf_map_update_elem(fd, &ifIndex, &*c, BPF_ANY) == 0 ? 0 : errno;
    if (bpf_map_delete_elem(fd, &ifIndex) != 0 && errno != ENOENT) return errno;
    return 0;
}

// The global record and every port record that follows it.
int pushAllLocked() {
    if (gSkel == nullptr) return 0;
    uint32_t zero = 0;
    police_cfg g = cfgOf(gRate, gBurst);
    if (bpf_map_update_elem(bpf_map__fd(gSkel->maps.police_global), &zero, &g, BPF_ANY) != 0) return errno;
    for (const auto& [ifIndex, conf] : gConf)
        if (int err = pushPortLocked(ifIndex); err != 0) return err;
    for (const auto& [ifIndex, run] : gRun)
        if (run.heldUntilMs != 0)
            if (int err = pushPortLocked(ifIndex); err != 0) return err;
    return 0;
}

bool readState(uint32_t ifIndex, police_state& out) {
    if (gSkel == nullptr) return false;
    return bpf_map_lookup_elem(bpf_map__fd(gSkel->maps.police_state), &ifIndex, &out) == 0;
}

// Every port the filter has counters of.
std::map<uint32_t, police_state> readAllStates() {
    std::map<uint32_t, police_state> out;
    if (gSkel == nullptr) return out;
    int fd = bpf_map__fd(gSkel->maps.police_state);
    uint32_t key = 0, next = 0;
    const void* prev = nullptr;
    for (uint32_t n = 0; n < POLICE_PORTS_MAX && bpf_map_get_next_key(fd, prev, &next) == 0; n++) {
        police_state st;
        if (bpf_map_lookup_elem(fd, &next, &st) == 0) out[next] = st;
        key = next;
        prev = &key;
    }
    return out;
}

void load() {
    libbpf_set_print(libbpfPrint);
    gLibbpfSaid.clear();
    police_bpf* skel = police_bpf__open();
    int err = skel == nullptr ? errno : 0;
    if (skel != nullptr) {
        int rc = police_bpf__load(skel);
        if (rc != 0) {
            err = rc < 0 ? -rc : rc;
            police_bpf__destroy(skel);
            skel = nullptr;
        }
    }
    if (skel == nullptr) {
        std::string said = gLibbpfSaid;
        while (!said.empty() && said.back() == '\n') said.pop_back();
        platLog(PLAT_LOG_WARNING,
                "police: discovery policing unavailable, the packet socket keeps the classic filter: cannot load "
                "the eBPF filter: %s%s%s%s",
                std::strerror(err), err == EPERM ? " (loading needs CAP_BPF or CAP_SYS_ADMIN at start)" : "",
                said.empty() ? "" : "; libbpf: ", said.c_str());
        return;
    }
    std::lock_guard<std::mutex> lock(gMutex);
    gSkel = skel;
    if (int e = pushAllLocked(); e != 0)
        platLog(PLAT_LOG_WARNING, "police: cannot write the filter's settings: %s", std::strerror(e));
    platLog(PLAT_LOG_INFO, "police: discovery policed per port in the kernel (default %u frames/s, burst %u)", gRate,
            gBurst);
}

void timerMain() {
    auto next = std::chrono::steady_clock::now();
    for (;;) {
        next += std::chrono::seconds(1);
        std::this_thread::sleep_until(next);
        policeTick(policeNowMs());
    }
}

}  // namespace

int64_t policeNowMs() {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

bool policeLoad() {
    std::call_once(gLoadOnce, load);
    return gSkel != nullptr;
}

bool policeAvailable() {
    std::lock_guard<std::mutex> lock(gMutex);
    return gSkel != nullptr;
}

int policeProgramFd() {
    if (!policeAvailable()) return -1;
    return bpf_program__fd(gSkel->progs.police);
}

bool policeAttach(int fd) {
    if (!policeLoad()) return false;
    int prog = bpf_program__fd(gSkel->progs.police);
    if (::setsockopt(fd, SOL_SOCKET, SO_ATTACH_BPF, &prog, sizeof(prog)) != 0) {
        static std::once_flag said;
        int err = errno;
        std::call_once(said, [err] {
            platLog(PLAT_LOG_WARNING, "police: cannot attach the eBPF filter (%s); the packet socket keeps the classic one",
                    std::strerror(err));
        });
        return false;
    }
    std::call_once(gTimerOnce, [] {
        std::thread t(timerMain);
        pthread_setname_np(t.native_handle(), "zelPolice");
        t.detach();
    });
    return true;
}

namespace {

// Sets a global value (the default of every port) and pushes it to the
// filter; put back when the filter refuses it. "" or why not. gMutex held.
std::string setGlobalLocked(uint32_t& field, uint32_t value) {
    const uint32_t old = field;
    field = value;
    if (int err = pushAllLocked(); err != 0) {
        field = old;
        (void)pushAllLocked();
        return std::string("cannot write the filter's settings: ") + std::strerror(err);
    }
    return "";
}

// Sets one value of a port's own settings and pushes them to the filter;
// put back when the filter refuses them. "" or why not. gMutex held.
std::string setPortLocked(uint32_t ifIndex, uint32_t PortConf::*field, uint32_t value) {
    if (gConf.count(ifIndex) == 0 && gConf.size() >= POLICE_PORTS_MAX)
        return "too many ports with settings of their own (" + std::to_string(POLICE_PORTS_MAX) + ")";
    const PortConf old = confLocked(ifIndex);
    PortConf now = old;
    now.*field = value;
    auto put = [&](const PortConf& c) {
        if (c.ownNothing()) gConf.erase(ifIndex);
        else gConf[ifIndex] = c;
    };
    put(now);
    if (int err = pushPortLocked(ifIndex); err != 0) {
        put(old);
        (void)pushPortLocked(ifIndex);
        return std::string("cannot write the filter's settings: ") + std::strerror(err);
    }
    return "";
}

}  // namespace

std::string policeSetRate(uint32_t ifIndex, uint32_t value) {
    std::lock_guard<std::mutex> lock(gMutex);
    if (ifIndex == 0) {
        if (value > POLICE_RATE_MAX)
            return "the rate is 0 (off) to " + std::to_string(POLICE_RATE_MAX) + " frames a second";
        return setGlobalLocked(gRate, value);
    }
    if (value > POLICE_RATE_MAX && value != POLICE_FOLLOW)
        return "the rate is 0 (off) to " + std::to_string(POLICE_RATE_MAX) + " frames a second, or default";
    return setPortLocked(ifIndex, &PortConf::rate, value);
}

std::string policeSetBurst(uint32_t ifIndex, uint32_t value) {
    std::lock_guard<std::mutex> lock(gMutex);
    const std::string range =
        "the burst is " + std::to_string(POLICE_BURST_MIN) + " to " + std::to_string(POLICE_BURST_MAX) + " frames";
    if (ifIndex == 0) {
        if (value < POLICE_BURST_MIN || value > POLICE_BURST_MAX) return range;
        return setGlobalLocked(gBurst, value);
    }
    if ((value < POLICE_BURST_MIN || value > POLICE_BURST_MAX) && value != POLICE_FOLLOW) return range + ", or default";
    return setPortLocked(ifIndex, &PortConf::burst, value);
}

uint32_t policeRate(uint32_t ifIndex) {
    std::lock_guard<std::mutex> lock(gMutex);
    return ifIndex == 0 ? gRate : confLocked(ifIndex).rate;
}

uint32_t policeBurst(uint32_t ifIndex) {
    std::lock_guard<std::mutex> lock(gMutex);
    return ifIndex == 0 ? gBurst : confLocked(ifIndex).burst;
}

std::string policeSetErrdisableTime(uint32_t seconds) {
    if (seconds > ERRDISABLE_TIME_MAX)
        return "the error-disable time is 0 (off) to " + std::to_string(ERRDISABLE_TIME_MAX) + " seconds";
    std::lock_guard<std::mutex> lock(gMutex);
    gErrTime = seconds;
    return "";
}

std::string policeSetErrdisableHold(uint32_t seconds) {
    if (seconds < ERRDISABLE_HOLD_MIN || seconds > ERRDISABLE_HOLD_MAX)
        return "the error-disable hold is " + std::to_string(ERRDISABLE_HOLD_MIN) + " to " +
               std::to_string(ERRDISABLE_HOLD_MAX) + " seconds";
    std::lock_guard<std::mutex> lock(gMutex);
    gErrHold = seconds;
    return "";
}

uint32_t policeErrdisableTime() {
    std::lock_guard<std::mutex> lock(gMutex);
    return gErrTime;
}

uint32_t policeErrdisableHold() {
    std::lock_guard<std::mutex> lock(gMutex);
    return gErrHold;
}

void policeSetUplink(uint32_t ifIndex, bool uplink) {
    if (ifIndex == 0) return;
    std::vector<PortLine> lines;
    {
        std::lock_guard<std::mutex> lock(gMutex);
        PortConf c = confLocked(ifIndex);
        if (c.uplink == uplink) return;
        if (uplink && gConf.count(ifIndex) == 0 && gConf.size() >= POLICE_PORTS_MAX) {
            lines.push_back({PLAT_LOG_WARNING, ifIndex,
                             " stays policed as a subscriber port: too many ports with settings of their own"});
        } else {
            c.uplink = uplink;
            if (c.ownNothing()) gConf.erase(ifIndex);
            else gConf[ifIndex] = c;
            if (int err = pushPortLocked(ifIndex); err != 0)
                lines.push_back({PLAT_LOG_WARNING, ifIndex, std::string(": cannot write its settings: ") + std::strerror(err)});
        }
    }
    writeLines(lines);
}

PolicePortStatus policeStatus(uint32_t ifIndex) {
    std::lock_guard<std::mutex> lock(gMutex);
    PolicePortStatus s;
    s.ifIndex = ifIndex;
    police_state st;
    if (readState(ifIndex, st)) {
        s.passed = st.passed;
        s.dropped = st.dropped;
    }
    auto it = gRun.find(ifIndex);
    if (it != gRun.end() && it->second.heldUntilMs != 0) {
        s.errDisabled = true;
        int64_t left = it->second.heldUntilMs - policeNowMs();
        s.holdLeft = left <= 0 ? 0 : static_cast<uint32_t>((left + 999) / 1000);
    }
    return s;
}

std::vector<PolicePortStatus> policeStatusAll() {
    std::vector<uint32_t> ports;
    {
        std::lock_guard<std::mutex> lock(gMutex);
        for (const auto& [ifIndex, st] : readAllStates()) ports.push_back(ifIndex);
        for (const auto& [ifIndex, run] : gRun)
            if (run.heldUntilMs != 0) ports.push_back(ifIndex);
    }
    std::sort(ports.begin(), ports.end());
    ports.erase(std::unique(ports.begin(), ports.end()), ports.end());
    std::vector<PolicePortStatus> out;
    out.reserve(ports.size());
    for (uint32_t p : ports) out.push_back(policeStatus(p));
    return out;
}

std::string policeRecover(uint32_t ifIndex) {
    {
        std::lock_guard<std::mutex> lock(gMutex);
        auto it = gRun.find(ifIndex);
        if (it == gRun.end() || it->second.heldUntilMs == 0) return "the interface is not error-disabled";
        PortRun saved = it->second;
        it->second.heldUntilMs = 0;
        it->second.overSeconds = 0;
        if (int err = pushPortLocked(ifIndex); err != 0) {
            it->second = saved;
            return std::string("cannot write the filter's settings: ") + std::strerror(err);
        }
    }
    writeLines({{PLAT_LOG_NOTICE, ifIndex, " served again: recovered by the operator"}});
    return "";
}

void policeTick(int64_t nowMs) {
    std::vector<PortLine> lines;
    {
        std::lock_guard<std::mutex> lock(gMutex);
        if (gSkel == nullptr) return;
        std::map<uint32_t, police_state> states = readAllStates();
        // Hold times that are over.
        for (auto& [ifIndex, run] : gRun) {
            if (run.heldUntilMs == 0 || nowMs < run.heldUntilMs) continue;
            run.heldUntilMs = 0;
            run.overSeconds = 0;
            if (int err = pushPortLocked(ifIndex); err != 0) {
                run.heldUntilMs = nowMs + 1000;  // tried again at the next check
                lines.push_back({PLAT_LOG_WARNING, ifIndex, std::string(": cannot serve it again: ") + std::strerror(err)});
                continue;
            }
            lines.push_back({PLAT_LOG_NOTICE, ifIndex, " served again: its error-disable hold is over"});
        }
        for (const auto& [ifIndex, st] : states) {
            PortRun& run = gRun[ifIndex];
            bool over = run.seen && st.dropped > run.lastDropped;
            run.seen = true;
            run.lastDropped = st.dropped;
            if (run.heldUntilMs != 0) continue;
            run.overSeconds = over ? run.overSeconds + 1 : 0;
            if (gErrTime == 0 || run.overSeconds < gErrTime) continue;
            run.heldUntilMs = nowMs + static_cast<int64_t>(gErrHold) * 1000;
            run.overSeconds = 0;
            if (int err = pushPortLocked(ifIndex); err != 0) {
                run.heldUntilMs = 0;
                lines.push_back({PLAT_LOG_WARNING, ifIndex, std::string(": cannot error-disable it: ") + std::strerror(err)});
                continue;
            }
            lines.push_back({PLAT_LOG_WARNING, ifIndex,
                             " error-disabled: over its discovery limit for " + std::to_string(gErrTime) +
                                 " s; its discovery frames are dropped for " + std::to_string(gErrHold) + " s"});
        }
        // Ports the filter no longer counts (gone, or pushed out of its
        // table) and that are not held are forgotten.
        for (auto it = gRun.begin(); it != gRun.end();) {
            if (it->second.heldUntilMs == 0 && states.count(it->first) == 0) it = gRun.erase(it);
            else ++it;
        }
    }
    writeLines(lines);
}

namespace {

using Json = nlohmann::json;

// {"available", "rate", "burst", "errdisable-time", "errdisable-hold",
//  "interfaces": {NAME: {"ifindex", "passed", "dropped", "state", "hold-left"}}}
Json statusOp(const Json&, const ControlCaller&) {
    Json ports = Json::object();
    for (const PolicePortStatus& s : policeStatusAll()) {
        std::string name = ifdbName(s.ifIndex);
        if (name.empty()) continue;  // gone
        Json p = {{"ifindex", s.ifIndex},
                  {"passed", s.passed},
                  {"dropped", s.dropped},
                  {"state", s.errDisabled ? "err-disabled" : "served"}};
        if (s.errDisabled) p["hold-left"] = s.holdLeft;
        ports[name] = p;
    }
    return Json{{"available", policeAvailable()},
                {"rate", policeRate(0)},
                {"burst", policeBurst(0)},
                {"errdisable-time", policeErrdisableTime()},
                {"errdisable-hold", policeErrdisableHold()},
                {"interfaces", ports}};
}

// {"if": NAME}
Json recoverOp(const Json& req, const ControlCaller&) {
    if (!req.contains("if") || !req["if"].is_string()) return controlError("\"if\" must be an interface name");
    const std::string name = req["if"].get<std::string>();
    const uint32_t unit = name.size() <= cmdp::MAX_NAME ? ifdbUnitByName(name) : 0;
    if (unit == 0) return controlError("no interface '" + name.substr(0, cmdp::MAX_NAME) + "'");
    if (std::string why = policeRecover(unit); !why.empty()) return controlError(name + ": " + why);
    return Json::object();
}

// A global value as a setting's answer: always there.
std::optional<uint32_t> some(uint32_t v) { return v; }

}  // namespace

void policeRegister() {
    static std::once_flag once;
    std::call_once(once, [] {
        auto global = [](const char* name, std::function<uint32_t()> get, std::function<std::string(uint32_t)> set) {
            platSettingRegister(PlatSetting{name, false, [get](uint32_t) { return some(get()); },
                                            [set](uint32_t, uint32_t v) { return set(v); }});
        };
        global("police-rate", [] { return policeRate(0); }, [](uint32_t v) { return policeSetRate(0, v); });
        global("police-burst", [] { return policeBurst(0); }, [](uint32_t v) { return policeSetBurst(0, v); });
        global("errdisable-time", policeErrdisableTime, policeSetErrdisableTime);
        global("errdisable-hold", policeErrdisableHold, policeSetErrdisableHold);
        // A port's own values: any interface, served or not; 0 is the global one's unit.
        auto port = [](const char* name, uint32_t (*get)(uint32_t), std::string (*set)(uint32_t, uint32_t)) {
            platSettingRegister(PlatSetting{
                name, true,
                [get](uint32_t unit) -> std::optional<uint32_t> {
                    if (unit == 0) return std::nullopt;
                    return get(unit);
                },
                [set](uint32_t unit, uint32_t v) -> std::string {
                    if (unit == 0) return "no interface";
                    return set(unit, v);
                }});
        };
        port("police-rate", policeRate, policeSetRate);
        port("police-burst", policeBurst, policeSetBurst);
        controlRegister("police-status", false, statusOp);
        controlRegister("police-recover", false, recoverOp);
    });
}

}  // namespace linuxplat
