// Kernel link messages in, platform route messages out.
#include "platform/linux/rtnl.h"

#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cstring>

#include "platform/types.h"

namespace linuxplat {

namespace {

template <typename T>
T readHost(const uint8_t* p) {
    T v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

constexpr size_t align4(size_t n) { return (n + 3u) & ~static_cast<size_t>(3u); }

// Walks route attributes of `len` bytes; stops quietly at one that does not fit.
template <typename F>
bool walkAttrs(const uint8_t* p, size_t len, F&& f) {
    size_t off = 0;
    while (len - off >= sizeof(struct rtattr)) {
        uint16_t alen = readHost<uint16_t>(p + off);
        uint16_t atype = readHost<uint16_t>(p + off + 2);
        if (alen < sizeof(struct rtattr) || alen > len - off) return false;
        f(static_cast<uint16_t>(atype & NLA_TYPE_MASK), p + off + sizeof(struct rtattr), alen - sizeof(struct rtattr));
        size_t step = align4(alen);
        if (step >= len - off) return true;
        off += step;
    }
    return off == len || len - off < sizeof(struct rtattr);
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
    size_t attrOff = NLMSG_ALIGN(sizeof(struct ifinfomsg));
    if (attrOff > len) return false;
    bool ok = walkAttrs(body + attrOff, len - attrOff, [&](uint16_t type, const uint8_t* v, size_t vlen) {
        switch (type) {
            case IFLA_IFNAME: {
                size_t n = strnlen(reinterpret_cast<const char*>(v), vlen);
                if (n >= IFNAMSIZ) n = IFNAMSIZ - 1;
                link.name.assign(reinterpret_cast<const char*>(v), n);
                break;
            }
            case IFLA_ADDRESS:
                if (vlen == 6) {
                    std::memcpy(link.mac, v, 6);
                    link.hasMac = true;
                }
                break;
            case IFLA_MASTER:
                if (vlen >= 4) link.master = readHost<int32_t>(v);
                break;
            case IFLA_LINKINFO:
                walkAttrs(v, vlen, [&](uint16_t t2, const uint8_t* v2, size_t l2) {
                    if (t2 == IFLA_INFO_KIND) {
                        size_t n = strnlen(reinterpret_cast<const char*>(v2), l2);
                        if (n > 32) n = 32;
                        link.linkKind.assign(reinterpret_cast<const char*>(v2), n);
                    }
                });
                break;
            default:
                break;
        }
    });
    if (!ok || link.ifindex <= 0) return false;
    out = std::move(link);
    return true;
}

NlWalk rtnlWalk(const uint8_t* buf, size_t len, const std::function<void(LinkEvent, const LinkInfo&)>& onLink) {
    NlWalk w;
    if (buf == nullptr) return w;
    size_t off = 0;
    while (len - off >= sizeof(struct nlmsghdr)) {
        struct nlmsghdr h;
        std::memcpy(&h, buf + off, sizeof(h));
        if (h.nlmsg_len < sizeof(struct nlmsghdr) || h.nlmsg_len > len - off) {
            w.malformed = true;
            return w;
        }
        const uint8_t* body = buf + off + NLMSG_HDRLEN;
        size_t bodyLen = h.nlmsg_len - NLMSG_HDRLEN;
        switch (h.nlmsg_type) {
            case NLMSG_DONE:
                w.done = true;
                return w;
            case NLMSG_ERROR:
                if (bodyLen >= sizeof(int32_t)) {
                    int32_t e = readHost<int32_t>(body);
                    w.error = e < 0 ? -e : e;
                } else {
                    w.error = -1;
                }
                return w;
            case RTM_NEWLINK:
            case RTM_DELLINK: {
                // A bridge also reports its ports in messages of its own family
                // (a port leaving the bridge is such a "deleted link"): only the
                // links themselves count.
                if (bodyLen >= sizeof(struct ifinfomsg)) {
                    struct ifinfomsg ifi;
                    std::memcpy(&ifi, body, sizeof(ifi));
                    if (ifi.ifi_family != AF_UNSPEC) break;
                }
                LinkInfo link;
                if (!rtnlParseLink(body, bodyLen, link)) {
                    w.malformed = true;
                    return w;
                }
                w.links++;
                onLink(h.nlmsg_type == RTM_NEWLINK ? LinkEvent::New : LinkEvent::Del, link);
                break;
            }
            default:
                break;
        }
        size_t step = NLMSG_ALIGN(h.nlmsg_len);
        if (step >= len - off) break;
        off += step;
    }
    return w;
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
