// Kernel link messages in, platform route messages out.
#include "platform/linux/rtnl.h"

#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "platform/types.h"

namespace linuxplat {

namespace {

constexpr size_t align4(size_t n) { return (n + 3u) & ~static_cast<size_t>(3u); }

// Walks the attributes in `len` bytes at `payload` with libmnl, handing each
// to `f` (false: the attribute is refused and the walk stops). libmnl stops
// quietly at an attribute that does not fit; such an attribute is caught
// here by checking that the walk reached the end (bytes too few for an
// attribute header are padding). True when every attribute fitted and was
// taken.
template <typename F>
bool parseAttrs(const void* payload, size_t len, F&& f) {
    struct Walk {
        F* f;
        const uint8_t* reached;
    };
    const uint8_t* begin = static_cast<const uint8_t*>(payload);
    Walk walk{&f, begin};
    int rc = mnl_attr_parse_payload(
        payload, len,
        [](const struct nlattr* a, void* data) -> int {
            auto* w = static_cast<Walk*>(data);
            w->reached = reinterpret_cast<const uint8_t*>(a) + MNL_ALIGN(a->nla_len);
            return (*w->f)(a) ? MNL_CB_OK : MNL_CB_ERROR;
        },
        &walk);
    if (rc != MNL_CB_OK) return false;
    size_t used = std::min(static_cast<size_t>(walk.reached - begin), len);
    return len - used < sizeof(struct nlattr);
}

// A string attribute as the kernel writes it: NUL-terminated, at most
// `max` characters before the NUL.
bool stringAttr(const struct nlattr* a, size_t max, std::string& out) {
    if (mnl_attr_validate(a, MNL_TYPE_NUL_STRING) < 0) return false;
    size_t n = mnl_attr_get_payload_len(a) - 1;
    const char* s = mnl_attr_get_str(a);
    n = strnlen(s, n);
    if (n > max) return false;
    out.assign(s, n);
    return true;
}

void putBe16(std::vector<uint8_t>& m, size_t off, uint16_t v) {
    m[off] = static_cast<uint8_t>(v >> 8);
    m[off + 1] = static_cast<uint8_t>(v);
}

void putBe32(std::vector<uint8_t>& m, size_t off, uint32_t v) {
    for (int i = 0; i < 4; i++) m[off + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}

std::vector<uint8_t> rtHeader(uint16_t type, size_t bodyEnd) {
    std::vector<uint8_t> m(align4(bodyEnd), 0);
    putBe32(m, RT_OFF_LEN, static_cast<uint32_t>(m.size()));
    putBe16(m, RT_OFF_TYPE, type);
    return m;
}

void rtAppendAttr(std::vector<uint8_t>& m, const RtAttr& a) {
    size_t at = m.size();
    size_t alen = RT_ATTR_HDR_LEN + a.value.size();
    m.resize(at + align4(alen), 0);
    putBe16(m, at + RT_ATTR_OFF_LEN, static_cast<uint16_t>(alen));
    putBe16(m, at + RT_ATTR_OFF_TYPE, a.type);
    if (!a.value.empty()) std::memcpy(m.data() + at + RT_ATTR_HDR_LEN, a.value.data(), a.value.size());
    putBe32(m, RT_OFF_LEN, static_cast<uint32_t>(m.size()));
}

RtAttr u32Attr(uint16_t type, uint32_t v) {
    RtAttr a{type, std::vector<uint8_t>(4)};
    for (int i = 0; i < 4; i++) a.value[i] = static_cast<uint8_t>(v >> (24 - 8 * i));
    return a;
}

bool isAggKind(uint32_t kind) { return kind == ZEL_OND_ETH_AGG || kind == ZEL_OND_PON_AGG; }

}  // namespace

// ---- kernel messages ------------------------------------------------------------------

bool rtnlParseLink(const uint8_t* body, size_t len, LinkInfo& out) {
    if (body == nullptr || len < sizeof(struct ifinfomsg)) return false;
    struct ifinfomsg ifi;
    std::memcpy(&ifi, body, sizeof(ifi));
    LinkInfo link;
    link.ifindex = ifi.ifi_index;
    link.arphrd = ifi.ifi_type;
    link.flags = ifi.ifi_flags;
    size_t attrOff = MNL_ALIGN(sizeof(struct ifinfomsg));
    if (attrOff > len) return false;
    bool ok = parseAttrs(body + attrOff, len - attrOff, [&](const struct nlattr* a) {
        switch (mnl_attr_get_type(a)) {
            case IFLA_IFNAME:
                return stringAttr(a, IFNAMSIZ - 1, link.name);
            case IFLA_ADDRESS:
                // Ethernet-like links only: other hardware addresses (tunnels,
                // InfiniBand) have other lengths and are not kept.
                if (mnl_attr_get_payload_len(a) == 6) {
                    std::memcpy(link.mac, mnl_attr_get_payload(a), 6);
                    link.hasMac = true;
                }
                return true;
            case IFLA_MASTER:
                if (mnl_attr_validate(a, MNL_TYPE_U32) < 0) return false;
                link.master = static_cast<int32_t>(mnl_attr_get_u32(a));
                return true;
            case IFLA_LINKINFO:
                if (mnl_attr_validate(a, MNL_TYPE_NESTED) < 0) return false;
                return parseAttrs(mnl_attr_get_payload(a), mnl_attr_get_payload_len(a), [&](const struct nlattr* in) {
                    if (mnl_attr_get_type(in) != IFLA_INFO_KIND) return true;
                    return stringAttr(in, 32, link.linkKind);
                });
            default:
                return true;
        }
    });
    if (!ok || link.ifindex <= 0) return false;
    out = std::move(link);
    return true;
}

namespace {

// What the callbacks of one walk share.
struct WalkState {
    NlWalk* walk;
    const std::function<void(LinkEvent, const LinkInfo&)>* onLink;
    const uint8_t* reached;  // end of the last message libmnl handed over
    bool stoppedHere;        // a callback (not libmnl) ended the walk with an error
};

void reach(WalkState* st, const struct nlmsghdr* nlh) {
    st->reached = reinterpret_cast<const uint8_t*>(nlh) + MNL_ALIGN(nlh->nlmsg_len);
}

int onData(const struct nlmsghdr* nlh, void* data) {
    auto* st = static_cast<WalkState*>(data);
    reach(st, nlh);
    if (nlh->nlmsg_type != RTM_NEWLINK && nlh->nlmsg_type != RTM_DELLINK) return MNL_CB_OK;
    const auto* body = static_cast<const uint8_t*>(mnl_nlmsg_get_payload(nlh));
    size_t bodyLen = mnl_nlmsg_get_payload_len(nlh);
    // A bridge also reports its ports in messages of its own family (a port
    // leaving the bridge is such a "deleted link"): only the links themselves
    // count.
    if (bodyLen >= sizeof(struct ifinfomsg)) {
        struct ifinfomsg ifi;
        std::memcpy(&ifi, body, sizeof(ifi));
        if (ifi.ifi_family != AF_UNSPEC) return MNL_CB_OK;
    }
    LinkInfo link;
    if (!rtnlParseLink(body, bodyLen, link)) {
        st->walk->malformed = true;
        st->stoppedHere = true;
        return MNL_CB_ERROR;
    }
    st->walk->links++;
    (*st->onLink)(nlh->nlmsg_type == RTM_NEWLINK ? LinkEvent::New : LinkEvent::Del, link);
    return MNL_CB_OK;
}

int onSkip(const struct nlmsghdr* nlh, void* data) {
    reach(static_cast<WalkState*>(data), nlh);
    return MNL_CB_OK;
}

int onDone(const struct nlmsghdr* nlh, void* data) {
    auto* st = static_cast<WalkState*>(data);
    reach(st, nlh);
    st->walk->done = true;
    return MNL_CB_STOP;
}

int onError(const struct nlmsghdr* nlh, void* data) {
    auto* st = static_cast<WalkState*>(data);
    reach(st, nlh);
    if (mnl_nlmsg_get_payload_len(nlh) >= sizeof(int32_t)) {
        int32_t e;
        std::memcpy(&e, mnl_nlmsg_get_payload(nlh), sizeof(e));
        st->walk->error = e < 0 ? -e : e;
    } else {
        st->walk->error = -1;
    }
    return MNL_CB_STOP;
}

// The control messages (types below NLMSG_MIN_TYPE): done and error end
// the walk, the others are passed over. (libmnl takes the table as mutable.)
std::array<mnl_cb_t, NLMSG_MIN_TYPE> controlCallbacks() {
    std::array<mnl_cb_t, NLMSG_MIN_TYPE> cbs{};
    cbs.fill(onSkip);
    cbs[NLMSG_ERROR] = onError;
    cbs[NLMSG_DONE] = onDone;
    return cbs;
}

}  // namespace

NlWalk rtnlWalk(const uint8_t* buf, size_t len, const std::function<void(LinkEvent, const LinkInfo&)>& onLink,
                uint32_t seq, uint32_t portid) {
    NlWalk w;
    if (buf == nullptr) return w;
    WalkState st{&w, &onLink, buf, false};
    std::array<mnl_cb_t, NLMSG_MIN_TYPE> control = controlCallbacks();
    errno = 0;
    int rc = mnl_cb_run2(buf, len, seq, portid, onData, &st, control.data(), control.size());
    if (rc == MNL_CB_ERROR && !st.stoppedHere) {
        // libmnl's own checks: an interrupted dump (the links changed while
        // it ran), or a message of another request or sender.
        if (errno == EINTR) w.interrupted = true;
        else w.malformed = true;
        return w;
    }
    if (rc == MNL_CB_OK) {
        // libmnl stops quietly at a message that does not fit: bytes left
        // that hold a header are one.
        size_t used = std::min(static_cast<size_t>(st.reached - buf), len);
        if (len - used >= sizeof(struct nlmsghdr)) w.malformed = true;
    }
    return w;
}

std::vector<uint8_t> rtnlDumpRequest(uint32_t seq) {
    std::vector<uint8_t> buf(MNL_NLMSG_HDRLEN + MNL_ALIGN(sizeof(struct ifinfomsg)), 0);
    struct nlmsghdr* nlh = mnl_nlmsg_put_header(buf.data());
    nlh->nlmsg_type = RTM_GETLINK;
    nlh->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    nlh->nlmsg_seq = seq;
    auto* ifi = static_cast<struct ifinfomsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(struct ifinfomsg)));
    ifi->ifi_family = AF_UNSPEC;
    buf.resize(nlh->nlmsg_len);
    return buf;
}

// ---- kind, position, flags -----------------------------------------------------------------

uint32_t ifKind(const LinkInfo& link, const PortSpec* spec) {
    if (spec != nullptr && spec->ondType) return *spec->ondType;
    if (link.arphrd != ARPHRD_ETHER || (link.flags & IFF_LOOPBACK) != 0) return 0;
    const std::string& k = link.linkKind;
    if (k == "bond" || k == "team") return ZEL_OND_ETH_AGG;
    // Devices that carry other interfaces' traffic, not subscriber lines.
    static const char* const notPorts[] = {"bridge", "vlan", "vxlan", "geneve", "gretap", "ip6gretap", "macsec",
                                           "openvswitch", "hsr", "batadv", "vrf", "ipoib", "ifb"};
    for (const char* n : notPorts)
        if (k == n) return 0;
    return ZEL_OND_ETH;
}

void ifPhyInfo(const LinkInfo& link, const PortSpec* spec, tZelPhyInfo& out) {
    std::memset(&out, 0, sizeof(out));
    uint32_t kind = ifKind(link, spec);
    uint32_t number = static_cast<uint32_t>(link.ifindex);
    if (spec != nullptr && spec->port) {
        number = *spec->port;
    } else {
        size_t end = link.name.size();
        size_t start = end;
        while (start > 0 && link.name[start - 1] >= '0' && link.name[start - 1] <= '9' && end - start < 9) start--;
        if (start < end) {
            number = 0;
            for (size_t i = start; i < end; i++) number = number * 10 + static_cast<uint32_t>(link.name[i] - '0');
        }
    }
    out.sysNo = spec != nullptr && spec->sys ? *spec->sys : 0;
    out.slotNo = spec != nullptr && spec->slot ? *spec->slot : 0;
    out.subPort = spec != nullptr && spec->subPort ? *spec->subPort : 0;
    out.ondType = kind;
    if (isAggKind(kind)) out.aggNo = number;
    else if (kind != 0) out.portNo = number;
}

uint32_t ifTypeNumber(const LinkInfo& link, uint32_t kind) {
    if (kind == ZEL_OND_EPON || kind == ZEL_OND_GPON) return ZEL_IFTYPE_GPON;
    if ((link.flags & IFF_LOOPBACK) != 0 || link.arphrd == ARPHRD_LOOPBACK) return 24;  // software loopback
    if (link.arphrd == ARPHRD_ETHER) return ZEL_IFTYPE_ETHERNET;
    return 1;  // other
}

const LinkInfo* LinkTable::find(int32_t ifindex) const {
    auto it = links.find(ifindex);
    return it == links.end() ? nullptr : &it->second;
}

uint32_t LinkTable::kindOf(const LinkInfo& link) const {
    // An excluded interface is no port at all, whatever else is said of it.
    if (excluded(link.name)) return 0;
    return ifKind(link, portOf(link.name));
}

void LinkTable::phyInfo(const LinkInfo& link, tZelPhyInfo& out) const {
    if (excluded(link.name)) {
        std::memset(&out, 0, sizeof(out));
        return;
    }
    ifPhyInfo(link, portOf(link.name), out);
}

bool LinkTable::isAggregate(int32_t ifindex) const {
    const LinkInfo* l = find(ifindex);
    return l != nullptr && isAggKind(kindOf(*l));
}

uint32_t LinkTable::flagsOf(const LinkInfo& link) const {
    uint32_t flags = 0;
    uint32_t kind = kindOf(link);
    if (kind == 0 || (link.flags & IFF_LOOPBACK) != 0 || excluded(link.name)) flags |= ZEL_IF_FLAG_NOT_SUBSCRIBER;
    if (link.master > 0 && isAggregate(link.master)) flags |= ZEL_IF_FLAG_AGG_MEMBER;
    if (isAggKind(kind)) {
        bool members = false;
        for (const auto& [index, other] : links)
            if (other.master == link.ifindex) {
                members = true;
                break;
            }
        if (!members) flags |= ZEL_IF_FLAG_AGG_EMPTY;
    }
    return flags;
}

LinkChange linkApply(LinkTable& table, LinkEvent event, const LinkInfo& link) {
    LinkChange change;
    auto it = table.links.find(link.ifindex);
    if (event == LinkEvent::Del) {
        // A deleted link: the kernel's message may be brief, announce what was kept.
        LinkInfo gone = it != table.links.end() ? it->second : link;
        if (it != table.links.end()) {
            table.links.erase(it);
            change.removed = true;
        }
        change.messages.push_back(rtMsgDelLink(gone));
        return change;
    }

    if (it == table.links.end()) {
        table.links[link.ifindex] = link;
        change.added = true;
        change.messages.push_back(rtMsgNewLink(link, RT_CHANGE_NEW, {}));
        return change;
    }

    LinkInfo old = it->second;
    LinkInfo now = link;
    // A change message may leave out what did not change.
    if (now.name.empty()) now.name = old.name;
    if (!now.hasMac && old.hasMac) {
        std::memcpy(now.mac, old.mac, 6);
        now.hasMac = true;
    }
    if (now.linkKind.empty()) now.linkKind = old.linkKind;
    it->second = now;
    if (now.name != old.name) {
        change.renamed = true;
        change.oldName = old.name;
    }

    if (now.master != old.master) {
        // Judged after the update, so that the link's own record is current.
        bool joins = now.master > 0 && table.isAggregate(now.master);
        bool leaves = old.master > 0 && table.isAggregate(old.master);
        if (joins) {
            change.messages.push_back(
                rtMsgNewLink(now, 0, {u32Attr(RT_ATTR_PHYJOINAGG, static_cast<uint32_t>(now.master))}));
        } else if (leaves) {
            change.messages.push_back(
                rtMsgNewLink(now, 0, {u32Attr(RT_ATTR_PHYQUITAGG, static_cast<uint32_t>(old.master))}));
        }
    }
    return change;
}

// ---- platform route messages ------------------------------------------------------------

std::vector<uint8_t> rtMsgNewLink(const LinkInfo& link, uint32_t change, const std::vector<RtAttr>& attrs) {
    std::vector<uint8_t> m = rtHeader(RT_NEWLINK, RT_OFF_ATTRS);
    putBe16(m, RT_OFF_IFTYPE, link.arphrd);
    putBe32(m, RT_OFF_IFINDEX, static_cast<uint32_t>(link.ifindex));
    putBe32(m, RT_OFF_IFFLAGS, link.flags);
    putBe32(m, RT_OFF_CHANGE, change);
    putBe32(m, RT_OFF_MASTER, static_cast<uint32_t>(link.master));
    if (!link.name.empty()) {
        RtAttr name{RT_ATTR_IFNAME, std::vector<uint8_t>(link.name.begin(), link.name.end())};
        name.value.push_back(0);
        rtAppendAttr(m, name);
    }
    for (const RtAttr& a : attrs) rtAppendAttr(m, a);
    return m;
}

std::vector<uint8_t> rtMsgDelLink(const LinkInfo& link) {
    std::vector<uint8_t> m = rtHeader(RT_DELLINK, RT_OFF_ATTRS);
    putBe16(m, RT_OFF_IFTYPE, link.arphrd);
    putBe32(m, RT_OFF_IFINDEX, static_cast<uint32_t>(link.ifindex));
    putBe32(m, RT_OFF_IFFLAGS, link.flags);
    if (!link.name.empty()) {
        RtAttr name{RT_ATTR_IFNAME, std::vector<uint8_t>(link.name.begin(), link.name.end())};
        name.value.push_back(0);
        rtAppendAttr(m, name);
    }
    return m;
}

std::vector<uint8_t> rtMsgResetPort(int32_t ifindex) {
    std::vector<uint8_t> m = rtHeader(RT_RESETPORTCONFIG, RT_OFF_ATTRS);
    putBe32(m, RT_OFF_IFINDEX, static_cast<uint32_t>(ifindex));
    return m;
}

std::vector<uint8_t> rtMsgResetProto(const std::vector<uint16_t>& protos) {
    std::vector<uint8_t> m = rtHeader(RT_RESETPROTOCONFIG, RT_OFF_PROTOS + RT_PROTO_BYTES);
    for (uint16_t p : protos) {
        if (p >= RT_PROTO_BYTES * 8) continue;
        m[RT_OFF_PROTOS + p / 8] |= static_cast<uint8_t>(0x80u >> (p % 8));
    }
    return m;
}

}  // namespace linuxplat
