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
#include <memory>
#include <mutex>
#include <pthread.h>
#include <shared_mutex>
#include <unordered_set>
#include <vector>

#include "platform/ifdb.h"
#include "platform/linux/config.h"
#include "platform/linux/hwrule.h"
#include "platform/linux/internal.h"
#include "platform/linux/opconf.h"
#include "platform/linux/plat_log.h"
#include "platform/linux/police.h"
#include "platform/linux/rtnl.h"
#include "platform/types.h"

namespace linuxplat {

namespace {

constexpr size_t NL_BUF_LEN = 64 * 1024;

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

std::string& gHostName = *new std::string;

struct NlClose {
    void operator()(struct mnl_socket* nl) const { mnl_socket_close(nl); }
};
using NlSocket = std::unique_ptr<struct mnl_socket, NlClose>;

// Never closed: the event thread reads it until the process ends.
struct mnl_socket* gEvents = nullptr;
std::atomic<uint32_t> gDumpSeq{1};

// An rtnetlink socket joined to `groups`; null (errno set) on failure.
NlSocket nlOpen(unsigned groups) {
    NlSocket nl(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
    if (!nl) return nl;
    if (mnl_socket_bind(nl.get(), groups, MNL_SOCKET_AUTOPID) < 0) {
        int e = errno;
        nl.reset();
        errno = e;
    }
    return nl;
}

// One dump of every link; its messages carry the request's sequence number
// and the socket's port id, and libmnl takes only the kernel's.
enum class Dump { Ok, Failed, Interrupted };
Dump nlDumpOnce(std::map<int32_t, LinkInfo>& out) {
    NlSocket nl = nlOpen(0);
    if (!nl) return Dump::Failed;
    uint32_t seq = gDumpSeq.fetch_add(1, std::memory_order_relaxed);
    std::vector<uint8_t> req = rtnlDumpRequest(seq);
    if (mnl_socket_sendto(nl.get(), req.data(), req.size()) < 0) return Dump::Failed;
    uint32_t portid = mnl_socket_get_portid(nl.get());
    std::vector<uint8_t> buf(NL_BUF_LEN);
    for (;;) {
        ssize_t n = mnl_socket_recvfrom(nl.get(), buf.data(), buf.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return Dump::Failed;
        NlWalk w = rtnlWalk(
            buf.data(), static_cast<size_t>(n),
            [&](LinkEvent ev, const LinkInfo& link) {
                if (ev == LinkEvent::New) out[link.ifindex] = link;
            },
            seq, portid);
        if (w.interrupted) return Dump::Interrupted;
        if (w.malformed || w.error != 0) return Dump::Failed;
        if (w.done) return Dump::Ok;
    }
}

// Reads every link the kernel has. False when the dump failed. A dump the
// kernel marks as interrupted (links changed while it ran) is read again.
bool nlDump(std::map<int32_t, LinkInfo>& out) {
    for (int attempt = 0; attempt < 5; attempt++) {
        std::map<int32_t, LinkInfo> links;
        Dump d = nlDumpOnce(links);
        if (d == Dump::Ok) {
            out = std::move(links);
            return true;
        }
        if (d == Dump::Failed) return false;
    }
    return false;
}

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
            gTableGeneration.fetch_add(1, std::memory_order_relaxed);
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
        gTableGeneration.fetch_add(1, std::memory_order_relaxed);
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
    std::shared_lock<std::shared_mutex> lock(gTrapMutex);
    return gTrap.count(ifindex) != 0;
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
    std::shared_lock<std::shared_mutex> lock(gTableMutex);
    const LinkInfo* l = findLocked(unit);
    if (l == nullptr) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    if (value == nullptr) return static_cast<uint32_t>(ZEL_ERR_NULL_POINTER);
    switch (attr) {
        case ZEL_IF_ATTR_NAME: {
            char name[ZEL_IF_NAME_LEN] = {};
            std::memcpy(name, l->name.data(), std::min<size_t>(l->name.size(), ZEL_IF_NAME_LEN - 1));
            std::memcpy(value, name, sizeof(name));
            return 0;
        }
        case ZEL_IF_ATTR_TYPE:
            putU32(value, ifTypeNumber(*l, gTable.kindOf(*l)));
            return 0;
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
    std::shared_lock<std::shared_mutex> lock(gTableMutex);
    const LinkInfo* l = findLocked(unit);
    if (l == nullptr) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    if (kind != ZEL_INDEX_TRANS_PHYINFO) return static_cast<uint32_t>(ZEL_ERR_UNSUPPORTED);
    if (out == nullptr) return static_cast<uint32_t>(ZEL_ERR_NULL_POINTER);
    // The frame path asks for the receiving port's position with every
    // frame: the answers of the current table are kept per thread.
    struct Cached {
        uint32_t unit = 0;
        uint64_t generation = 0;
        tZelPhyInfo phy;
    };
    static thread_local Cached cache[8];
    Cached& c = cache[unit % 8];
    const uint64_t generation = gTableGeneration.load(std::memory_order_relaxed);
    if (c.generation != generation || c.unit != unit) {
        gTable.phyInfo(*l, c.phy);
        c.unit = unit;
        c.generation = generation;
    }
    std::memcpy(out, &c.phy, sizeof(c.phy));
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
