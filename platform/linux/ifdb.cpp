// The interface database: a cache of the kernel's links, filled by a dump at
// start and kept current by a thread that follows rtnetlink link messages.
// The thread also turns link changes into the platform's route messages.
// Per-port protocol states (software trap, hardware rule) live here too.
#include <libmnl/libmnl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <map>
#include <mutex>
#include <pthread.h>
#include <shared_mutex>
#include <unordered_set>
#include <vector>

#include "platform/ifdb.h"
#include "platform/linux/config.h"
#include "platform/linux/hwrule.h"
#include "platform/linux/internal.h"
#include "platform/linux/nl_links.h"
#include "platform/linux/opconf.h"
#include "platform/linux/plat_log.h"
#include "platform/linux/police.h"
#include "platform/linux/rtnl.h"
#include "platform/types.h"

namespace linuxplat {

namespace {

std::once_flag gOnce;
std::shared_mutex gTableMutex;
// Never destroyed: the event thread may still run while the process ends.
LinkTable& gTable = *new LinkTable;
// Bumped (under the table's lock) whenever the table changes: answers
// computed from an older table are not used again.
std::atomic<uint64_t> gTableGeneration{1};

struct ProtoState {
    bool dflt = false;
    bool on = false;
};
std::mutex gProtoMutex;
auto& gProto = *new std::map<std::pair<uint32_t, uint32_t>, ProtoState>;  // (unit, protocol)
// unit -> name its hardware rule was added under
auto& gRuleName = *new std::map<uint32_t, std::string>;

std::shared_mutex gTrapMutex;
auto& gTrap = *new std::unordered_set<int32_t>;  // units whose software trap is on
// Bumped (under gTrapMutex) whenever gTrap changes, as gTableGeneration is
// for the table.
std::atomic<uint64_t> gTrapGeneration{1};

std::string& gHostName = *new std::string;

// Never closed: the event thread reads it until the process ends.
struct mnl_socket* gEvents = nullptr;

// After a link is gone or renamed: its hardware rule follows the name.
void protoFollowLink(const LinkChange& change, int32_t ifindex, const std::string& newName) {
    uint32_t unit = static_cast<uint32_t>(ifindex);
    std::lock_guard<std::mutex> lock(gProtoMutex);
    auto rule = gRuleName.find(unit);
    if (change.removed) {
        if (rule != gRuleName.end()) {
            (void)hwruleSet(rule->second, false);
            gRuleName.erase(rule);
        }
        for (auto it = gProto.begin(); it != gProto.end();) {
            if (it->first.first == unit) it = gProto.erase(it);
            else ++it;
        }
        std::unique_lock<std::shared_mutex> trap(gTrapMutex);
        gTrap.erase(ifindex);
        gTrapGeneration.fetch_add(1, std::memory_order_release);
        return;
    }
    if (change.renamed && rule != gRuleName.end() && rule->second != newName) {
        (void)hwruleSet(rule->second, false);
        if (hwruleSet(newName, true) == 0) rule->second = newName;
        else gRuleName.erase(rule);
    }
}

// Applies kernel events to the table, then delivers what they give.
void applyEvents(const std::vector<std::pair<LinkEvent, LinkInfo>>& events) {
    for (const auto& [ev, link] : events) {
        LinkChange change;
        std::string name;
        {
            std::unique_lock<std::shared_mutex> lock(gTableMutex);
            change = linkApply(gTable, ev, link);
            gTableGeneration.fetch_add(1, std::memory_order_release);
            const LinkInfo* now = gTable.find(link.ifindex);
            name = now != nullptr ? now->name : link.name;
        }
        if (change.removed || change.renamed) protoFollowLink(change, link.ifindex, name);
        for (const auto& m : change.messages) routeDeliver(m);
        // The operational configuration follows: a new name gets its lines.
        if (change.removed) opconfLinkGone(static_cast<uint32_t>(link.ifindex));
        else if (change.added || change.renamed) opconfLinkNew(static_cast<uint32_t>(link.ifindex));
    }
}

// A lost event (the socket overflowed): read everything again and announce
// the differences.
void resync() {
    std::map<int32_t, LinkInfo> now;
    if (!nlDump(now)) {
        platLog(PLAT_LOG_ERR, "interface database: re-reading the links failed");
        return;
    }
    std::vector<std::pair<LinkEvent, LinkInfo>> events;
    {
        std::shared_lock<std::shared_mutex> lock(gTableMutex);
        for (const auto& [index, link] : gTable.links)
            if (now.count(index) == 0) events.emplace_back(LinkEvent::Del, link);
    }
    for (const auto& [index, link] : now) events.emplace_back(LinkEvent::New, link);
    applyEvents(events);
}

void* eventThread(void*) {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    std::vector<uint8_t> buf(NL_BUF_LEN);
    for (;;) {
        // libmnl takes the kernel's messages only: one another process
        // addressed to this socket is refused (ESRCH), one larger than the
        // buffer reported (ENOSPC).
        ssize_t n = mnl_socket_recvfrom(gEvents, buf.data(), buf.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            if (errno == ESRCH) {
                platLog(PLAT_LOG_WARNING, "interface database: a link message not from the kernel ignored");
                continue;
            }
            if (errno == ENOBUFS || errno == ENOSPC) {
                platLog(PLAT_LOG_WARNING, "interface database: link events lost; re-reading the links");
                resync();
                continue;
            }
            platLog(PLAT_LOG_ERR, "interface database: reading link events failed: %s", std::strerror(errno));
            ::sleep(1);
            continue;
        }
        std::vector<std::pair<LinkEvent, LinkInfo>> events;
        NlWalk w = rtnlWalk(buf.data(), static_cast<size_t>(n),
                            [&](LinkEvent ev, const LinkInfo& link) { events.emplace_back(ev, link); });
        if (w.malformed) platLog(PLAT_LOG_WARNING, "interface database: malformed link message ignored");
        applyEvents(events);
    }
    return nullptr;
}

// A port's rule that was gathered under the daemon's lock could not be
// loaded, not even on its own: the port is marked as without it (as a call
// that failed at once would have left it), so that nothing here counts it as
// ruled. Its discovery frames are bridged as they are; hwrule logged it.
void ruleFailed(const std::string& name, bool on) {
    if (!on) return;  // a rule that could not be taken away stays: closed
    std::lock_guard<std::mutex> lock(gProtoMutex);
    for (auto it = gRuleName.begin(); it != gRuleName.end();) {
        if (it->second != name) {
            ++it;
            continue;
        }
        auto st = gProto.find({it->first, ZEL_PROTO_PPPOEPLUS_HW});
        if (st != gProto.end()) st->second.on = false;
        it = gRuleName.erase(it);
    }
}

void start() {
    platformStart();
    hwruleOnFailed(ruleFailed);
    char host[256] = {};
    if (::gethostname(host, sizeof(host) - 1) == 0) gHostName = host;

    gTable.portOf = [](const std::string& name) { return configPort(name); };
    gTable.excluded = [](const std::string& name) { return configExcluded(name); };

    // Subscribe before the dump so that no change falls between the two.
    gEvents = nlOpen(RTMGRP_LINK).release();
    if (gEvents == nullptr) {
        platLog(PLAT_LOG_ERR, "interface database: cannot open rtnetlink: %s", std::strerror(errno));
    } else {
        int fd = mnl_socket_get_fd(gEvents);
        int size = 4 << 20;
        if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0)
            (void)::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
    }
    std::map<int32_t, LinkInfo> links;
    if (!nlDump(links)) platLog(PLAT_LOG_ERR, "interface database: reading the links failed");
    {
        std::unique_lock<std::shared_mutex> lock(gTableMutex);
        gTable.links = std::move(links);
        gTableGeneration.fetch_add(1, std::memory_order_release);
    }
    for (const auto& m : config().ports)
        if (ifdbUnitByName(m.first) == 0)
            platLog(PLAT_LOG_INFO, "port %s of the configuration does not exist (yet)", m.first.c_str());

    if (gEvents != nullptr) {
        pthread_t tid;
        pthread_attr_t attr;
        pthread_attr_init(&attr);
        pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
        if (pthread_create(&tid, &attr, eventThread, nullptr) != 0)
            platLog(PLAT_LOG_ERR, "interface database: cannot start the link event thread");
        else
            pthread_setname_np(tid, "zelIfdb");
        pthread_attr_destroy(&attr);
    }
}

// Whether the software trap of `unit` is on, and whether its hardware rule
// was switched off explicitly; under gProtoMutex. A served port whose rule
// is off is an uplink, which the default discovery limit does not police.
bool trapOnLocked(uint32_t unit) {
    std::shared_lock<std::shared_mutex> trap(gTrapMutex);
    return gTrap.count(static_cast<int32_t>(unit)) != 0;
}

bool hwOffLocked(uint32_t unit) {
    auto it = gProto.find({unit, ZEL_PROTO_PPPOEPLUS_HW});
    return it != gProto.end() && !it->second.on;
}

// Takes the hardware rule of `unit` away, under gProtoMutex: 0, or the
// rule's error (the port is forgotten either way).
uint32_t ruleRemove(uint32_t unit) {
    auto rule = gRuleName.find(unit);
    if (rule == gRuleName.end()) return 0;
    std::string was = rule->second;
    gRuleName.erase(rule);
    int rc = hwruleSet(was, false);
    return rc != 0 ? static_cast<uint32_t>(rc) : 0;
}

const LinkInfo* findLocked(uint32_t unit) {
    if (unit == 0 || unit > 0x7FFFFFFF) return nullptr;
    return gTable.find(static_cast<int32_t>(unit));
}

void putU32(void* dst, uint32_t v) { std::memcpy(dst, &v, sizeof(v)); }

// What the frame path asks about the receiving port with every frame (its
// type, name and position), computed from the table of one generation and
// kept per thread, so that the answer costs no lock while the table stays
// as it is.
struct FrameAnswers {
    uint32_t unit = 0;
    uint64_t generation = 0;  // 0: never computed
    bool found = false;
    uint32_t type = 0;
    char name[ZEL_IF_NAME_LEN] = {};
    tZelPhyInfo phy{};
};

const FrameAnswers& frameAnswers(uint32_t unit) {
    static thread_local FrameAnswers cache[8];
    FrameAnswers& c = cache[unit % 8];
    if (c.unit == unit && c.generation == gTableGeneration.load(std::memory_order_acquire)) return c;
    std::shared_lock<std::shared_mutex> lock(gTableMutex);
    c.unit = unit;
    c.generation = gTableGeneration.load(std::memory_order_relaxed);
    const LinkInfo* l = findLocked(unit);
    c.found = l != nullptr;
    if (l != nullptr) {
        c.type = ifTypeNumber(*l, gTable.kindOf(*l));
        std::memset(c.name, 0, sizeof(c.name));
        std::memcpy(c.name, l->name.data(), std::min<size_t>(l->name.size(), ZEL_IF_NAME_LEN - 1));
        gTable.phyInfo(*l, c.phy);
    }
    return c;
}

}  // namespace

void ifdbStart() { std::call_once(gOnce, start); }

size_t ifdbProtoStates() {
    std::lock_guard<std::mutex> lock(gProtoMutex);
    return gProto.size() + gRuleName.size();
}

void ifdbServedCounts(size_t& served, size_t& trusted) {
    std::vector<int32_t> units;
    {
        std::shared_lock<std::shared_mutex> trap(gTrapMutex);
        units.assign(gTrap.begin(), gTrap.end());
    }
    served = units.size();
    trusted = 0;
    std::lock_guard<std::mutex> lock(gProtoMutex);
    for (int32_t unit : units) {
        auto it = gProto.find({static_cast<uint32_t>(unit), ZEL_PROTO_PPPOEPLUS_HW});
        if (it != gProto.end() && !it->second.on) trusted++;
    }
}

bool ifdbTrapOn(int32_t ifindex) {
    // Asked with every frame received, mostly about the port of the frame
    // before: the last answer is kept per thread while the set is unchanged.
    struct Cached {
        int32_t ifindex = 0;
        uint64_t generation = 0;
        bool on = false;
    };
    static thread_local Cached c;
    if (c.ifindex == ifindex && c.generation == gTrapGeneration.load(std::memory_order_acquire)) return c.on;
    std::shared_lock<std::shared_mutex> lock(gTrapMutex);
    c = Cached{ifindex, gTrapGeneration.load(std::memory_order_relaxed), gTrap.count(ifindex) != 0};
    return c.on;
}

bool ifdbMac(int32_t ifindex, uint8_t mac[6]) {
    std::shared_lock<std::shared_mutex> lock(gTableMutex);
    const LinkInfo* l = gTable.find(ifindex);
    if (l == nullptr || !l->hasMac) return false;
    std::memcpy(mac, l->mac, 6);
    return true;
}

uint32_t ifdbUnitByName(const std::string& name) {
    std::shared_lock<std::shared_mutex> lock(gTableMutex);
    for (const auto& [index, link] : gTable.links)
        if (link.name == name) return static_cast<uint32_t>(index);
    return 0;
}

std::vector<std::pair<uint32_t, std::string>> ifdbLinks() {
    ifdbStart();
    std::vector<std::pair<uint32_t, std::string>> out;
    std::shared_lock<std::shared_mutex> lock(gTableMutex);
    for (const auto& [index, link] : gTable.links) out.emplace_back(static_cast<uint32_t>(index), link.name);
    return out;
}

std::string ifdbName(uint32_t unit) {
    std::shared_lock<std::shared_mutex> lock(gTableMutex);
    const LinkInfo* l = findLocked(unit);
    return l != nullptr ? l->name : std::string();
}

std::vector<std::vector<uint8_t>> ifdbAnnouncements() {
    std::vector<std::vector<uint8_t>> out;
    std::shared_lock<std::shared_mutex> lock(gTableMutex);
    for (const auto& [index, link] : gTable.links) out.push_back(rtMsgNewLink(link, RT_CHANGE_NEW, {}));
    return out;
}

}  // namespace linuxplat

using namespace linuxplat;

uint32_t zelIfGetFirst(uint32_t* unit) {
    ifdbStart();
    if (unit == nullptr) return static_cast<uint32_t>(ZEL_ERR_NULL_POINTER);
    std::shared_lock<std::shared_mutex> lock(gTableMutex);
    if (gTable.links.empty()) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    *unit = static_cast<uint32_t>(gTable.links.begin()->first);
    return 0;
}

uint32_t zelIfGetNext(uint32_t unit, uint32_t* next) {
    ifdbStart();
    if (next == nullptr) return static_cast<uint32_t>(ZEL_ERR_NULL_POINTER);
    if (unit > 0x7FFFFFFF) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    std::shared_lock<std::shared_mutex> lock(gTableMutex);
    auto it = gTable.links.upper_bound(static_cast<int32_t>(unit));
    if (it == gTable.links.end()) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    *next = static_cast<uint32_t>(it->first);
    return 0;
}

uint32_t zelIfGetApi(uint32_t unit, uint32_t attr, void* value) {
    ifdbStart();
    if (attr == ZEL_IF_ATTR_TYPE || attr == ZEL_IF_ATTR_NAME) {
        const FrameAnswers& a = frameAnswers(unit);
        if (!a.found) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
        if (value == nullptr) return static_cast<uint32_t>(ZEL_ERR_NULL_POINTER);
        if (attr == ZEL_IF_ATTR_TYPE) putU32(value, a.type);
        else std::memcpy(value, a.name, sizeof(a.name));
        return 0;
    }
    std::shared_lock<std::shared_mutex> lock(gTableMutex);
    const LinkInfo* l = findLocked(unit);
    if (l == nullptr) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    if (value == nullptr) return static_cast<uint32_t>(ZEL_ERR_NULL_POINTER);
    switch (attr) {
        case ZEL_IF_ATTR_FLAGS:
            putU32(value, gTable.flagsOf(*l));
            return 0;
        case ZEL_IF_ATTR_MAC: {
            tZelOctets octets;
            std::memcpy(&octets, value, sizeof(octets));
            if (!l->hasMac) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
            if (octets.buf == nullptr) return static_cast<uint32_t>(ZEL_ERR_NULL_POINTER);
            if (octets.len < 6) return static_cast<uint32_t>(ZEL_ERR_TOO_LONG);
            std::memcpy(octets.buf, l->mac, 6);
            octets.len = 6;
            std::memcpy(value, &octets, sizeof(octets));
            return 0;
        }
        default:
            return static_cast<uint32_t>(ZEL_ERR_UNSUPPORTED);
    }
}

uint32_t zelIfSetApi(uint32_t unit, uint32_t attr, void* value) {
    ifdbStart();
    if (value == nullptr) return static_cast<uint32_t>(ZEL_ERR_NULL_POINTER);
    if (attr != ZEL_IF_ATTR_PROTO_DFLT_ON && attr != ZEL_IF_ATTR_PROTO_DFLT_OFF && attr != ZEL_IF_ATTR_PROTO_ON &&
        attr != ZEL_IF_ATTR_PROTO_OFF)
        return static_cast<uint32_t>(ZEL_ERR_UNSUPPORTED);
    tZelIfProto proto;
    std::memcpy(&proto, value, sizeof(proto));
    const bool on = attr == ZEL_IF_ATTR_PROTO_DFLT_ON || attr == ZEL_IF_ATTR_PROTO_ON;
    const bool dflt = attr == ZEL_IF_ATTR_PROTO_DFLT_ON || attr == ZEL_IF_ATTR_PROTO_DFLT_OFF;
    const std::string name = ifdbName(unit);
    // Switching off what a vanished interface had is not an error, and
    // nothing is kept for it: the daemon switches a port's protocols off
    // when it hears the port is gone, after the platform forgot the port.
    if (name.empty()) {
        if (on) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
        policeSetUplink(unit, false);
        std::lock_guard<std::mutex> lock(gProtoMutex);
        gProto.erase({unit, proto.protoId});
        if (proto.protoId == ZEL_PROTO_PPPOEPLUS) {
            std::unique_lock<std::shared_mutex> trap(gTrapMutex);
            gTrap.erase(static_cast<int32_t>(unit));
            gTrapGeneration.fetch_add(1, std::memory_order_release);
        }
        if (proto.protoId == ZEL_PROTO_PPPOEPLUS_HW && !dflt) return ruleRemove(unit);
        return 0;
    }

    std::lock_guard<std::mutex> lock(gProtoMutex);
    ProtoState& st = gProto[{unit, proto.protoId}];
    if (dflt) {
        st.dflt = on;
        return 0;
    }
    if (proto.protoId == ZEL_PROTO_PPPOEPLUS) {
        st.on = on;
        {
            std::unique_lock<std::shared_mutex> trap(gTrapMutex);
            // A port the daemon starts to serve gets its configured settings
            // (queued: they are written once the daemon gives its lock back).
            if (on && gTrap.insert(static_cast<int32_t>(unit)).second) opconfServed(unit);
            if (!on) gTrap.erase(static_cast<int32_t>(unit));
            gTrapGeneration.fetch_add(1, std::memory_order_release);
        }
        policeSetUplink(unit, on && hwOffLocked(unit));
        return 0;
    }
    if (proto.protoId == ZEL_PROTO_PPPOEPLUS_HW) {
        policeSetUplink(unit, !on && trapOnLocked(unit));
        auto rule = gRuleName.find(unit);
        if (on) {
            if (rule == gRuleName.end() || rule->second != name) {
                if (rule != gRuleName.end()) (void)hwruleSet(rule->second, false);
                int rc = hwruleSet(name, true);
                if (rc != 0) {
                    if (rule != gRuleName.end()) gRuleName.erase(rule);
                    st.on = false;
                    return static_cast<uint32_t>(rc);
                }
                gRuleName[unit] = name;
            }
            st.on = true;
            return 0;
        }
        st.on = false;
        return ruleRemove(unit);
    }
    st.on = on;
    return 0;
}

char* zelIfUnit2Name(uint32_t unit, char* buf, uint32_t limit) {
    if (buf == nullptr || limit == 0) return buf;
    ifdbStart();
    std::shared_lock<std::shared_mutex> lock(gTableMutex);
    const LinkInfo* l = findLocked(unit);
    size_t n = l == nullptr ? 0 : std::min<size_t>(l->name.size(), limit - 1);
    if (n > 0) std::memcpy(buf, l->name.data(), n);
    buf[n] = '\0';
    return buf;
}

uint32_t zelIndexTrans(uint32_t unit, uint32_t kind, void* out) {
    ifdbStart();
    const FrameAnswers& a = frameAnswers(unit);
    if (!a.found) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    if (kind != ZEL_INDEX_TRANS_PHYINFO) return static_cast<uint32_t>(ZEL_ERR_UNSUPPORTED);
    if (out == nullptr) return static_cast<uint32_t>(ZEL_ERR_NULL_POINTER);
    std::memcpy(out, &a.phy, sizeof(a.phy));
    return 0;
}

uint32_t zelScalarGetApi(uint32_t, uint32_t scalar, void* value) {
    ifdbStart();
    if (value == nullptr) return static_cast<uint32_t>(ZEL_ERR_NULL_POINTER);
    auto putText = [value](const std::string& text) {
        size_t n = std::min<size_t>(text.size(), ZEL_SCALAR_TEXT_LEN - 1);
        std::memcpy(value, text.data(), n);
        static_cast<char*>(value)[n] = '\0';
        return 0u;
    };
    switch (scalar) {
        case ZEL_SCALAR_VENDOR_ID:
            putU32(value, configGetU32("platform.vendorid", 0));
            return 0;
        case ZEL_SCALAR_SYS_MAC: {
            uint8_t mac[6];
            auto configured = configGet("platform.sysmac");
            if (configured && configParseMac(*configured, mac)) {
                std::memcpy(value, mac, 6);
                return 0;
            }
            // The MAC of the first Ethernet port (a management port counts).
            std::shared_lock<std::shared_mutex> lock(gTableMutex);
            for (const auto& [index, link] : gTable.links) {
                static const uint8_t zero[6] = {0, 0, 0, 0, 0, 0};
                if (ifKind(link, gTable.portOf(link.name)) == ZEL_OND_ETH && link.hasMac && std::memcmp(link.mac, zero, 6) != 0) {
                    std::memcpy(value, link.mac, 6);
                    return 0;
                }
            }
            return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
        }
        case ZEL_SCALAR_DEVICE_NAME: {
            auto name = configGet("platform.devicename");
            if (!name) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
            return putText(*name);
        }
        case ZEL_SCALAR_SYS_NAME: {
            auto name = configGet("platform.sysname");
            if (name) return putText(*name);
            if (gHostName.empty()) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
            return putText(gHostName);
        }
        default:
            return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    }
}
