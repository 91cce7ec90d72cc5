// Kernel link messages through the translator, on canned bytes.
#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/linux/rtnl.h"
#include "platform/types.h"

namespace {

using namespace linuxplat;

// ---- building kernel messages ------------------------------------------------------

void putAttr(std::vector<uint8_t>& m, uint16_t type, const void* data, size_t len) {
    size_t at = m.size();
    struct rtattr a;
    a.rta_len = static_cast<unsigned short>(RTA_LENGTH(len));
    a.rta_type = type;
    m.resize(at + RTA_SPACE(len), 0);
    std::memcpy(m.data() + at, &a, sizeof(a));
    if (len > 0) std::memcpy(m.data() + at + RTA_LENGTH(0), data, len);
}

struct KLink {
    uint16_t type = RTM_NEWLINK;
    uint8_t family = AF_UNSPEC;
    int index = 0;
    std::string name;
    uint16_t arphrd = ARPHRD_ETHER;
    uint32_t flags = IFF_UP | IFF_BROADCAST;
    int master = 0;
    std::string kind;
    bool mac = true;
};

KLink klink(uint16_t type, int index, const std::string& name) {
    KLink l;
    l.type = type;
    l.index = index;
    l.name = name;
    return l;
}

std::vector<uint8_t> kmsg(const KLink& l) {
    std::vector<uint8_t> m(NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(struct ifinfomsg)), 0);
    struct ifinfomsg ifi;
    std::memset(&ifi, 0, sizeof(ifi));
    ifi.ifi_family = l.family;
    ifi.ifi_index = l.index;
    ifi.ifi_type = l.arphrd;
    ifi.ifi_flags = l.flags;
    ifi.ifi_change = 0xFFFFFFFF;
    std::memcpy(m.data() + NLMSG_HDRLEN, &ifi, sizeof(ifi));
    if (!l.name.empty()) putAttr(m, IFLA_IFNAME, l.name.c_str(), l.name.size() + 1);
    if (l.mac) {
        const uint8_t mac[6] = {0x02, 0, 0, 0, 0, static_cast<uint8_t>(l.index)};
        putAttr(m, IFLA_ADDRESS, mac, 6);
    }
    if (l.master != 0) putAttr(m, IFLA_MASTER, &l.master, 4);
    if (!l.kind.empty()) {
        std::vector<uint8_t> inner;
        putAttr(inner, IFLA_INFO_KIND, l.kind.c_str(), l.kind.size() + 1);
        putAttr(m, IFLA_LINKINFO, inner.data(), inner.size());
    }
    struct nlmsghdr h;
    std::memset(&h, 0, sizeof(h));
    h.nlmsg_len = static_cast<uint32_t>(m.size());
    h.nlmsg_type = l.type;
    std::memcpy(m.data(), &h, sizeof(h));
    return m;
}

std::vector<uint8_t> kdone() {
    std::vector<uint8_t> m(NLMSG_HDRLEN + 4, 0);
    struct nlmsghdr h;
    std::memset(&h, 0, sizeof(h));
    h.nlmsg_len = static_cast<uint32_t>(m.size());
    h.nlmsg_type = NLMSG_DONE;
    std::memcpy(m.data(), &h, sizeof(h));
    return m;
}

std::vector<uint8_t> cat(std::initializer_list<std::vector<uint8_t>> parts) {
    std::vector<uint8_t> out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

uint32_t be32(const std::vector<uint8_t>& m, size_t off) {
    return (uint32_t(m[off]) << 24) | (uint32_t(m[off + 1]) << 16) | (uint32_t(m[off + 2]) << 8) | m[off + 3];
}
uint16_t be16(const std::vector<uint8_t>& m, size_t off) { return static_cast<uint16_t>((m[off] << 8) | m[off + 1]); }

// The attribute types of a platform route message, in order, as the daemon
// walks them.
std::vector<std::pair<uint16_t, uint32_t>> attrsOf(const std::vector<uint8_t>& m) {
    std::vector<std::pair<uint16_t, uint32_t>> out;
    size_t off = RT_OFF_ATTRS;
    while (off + 4 <= m.size()) {
        uint16_t len = be16(m, off);
        uint16_t type = be16(m, off + 2);
        if (len < 4 || off + len > m.size()) {
            ADD_FAILURE() << "attribute does not fit";
            break;
        }
        out.emplace_back(type, len >= 8 ? be32(m, off + 4) : 0);
        off += (len + 3u) & ~3u;
    }
    return out;
}

std::vector<std::pair<LinkEvent, LinkInfo>> walk(const std::vector<uint8_t>& buf, NlWalk* result = nullptr) {
    std::vector<std::pair<LinkEvent, LinkInfo>> got;
    NlWalk w = rtnlWalk(buf.data(), buf.size(), [&](LinkEvent e, const LinkInfo& l) { got.emplace_back(e, l); });
    if (result != nullptr) *result = w;
    return got;
}

// ---- reading kernel messages --------------------------------------------------------------

TEST(RtnlWalk, ReadsLinksUntilDone) {
    KLink veth = klink(RTM_NEWLINK, 5, "veth0");
    veth.kind = "veth";
    veth.master = 9;
    KLink gone = klink(RTM_DELLINK, 6, "old");
    NlWalk w;
    auto got = walk(cat({kmsg(veth), kmsg(gone), kdone(), kmsg(klink(RTM_NEWLINK, 7, "after"))}), &w);
    EXPECT_TRUE(w.done);
    EXPECT_FALSE(w.malformed);
    ASSERT_EQ(2u, got.size());
    EXPECT_EQ(LinkEvent::New, got[0].first);
    EXPECT_EQ(5, got[0].second.ifindex);
    EXPECT_EQ("veth0", got[0].second.name);
    EXPECT_EQ("veth", got[0].second.linkKind);
    EXPECT_EQ(9, got[0].second.master);
    EXPECT_TRUE(got[0].second.hasMac);
    EXPECT_EQ(5, got[0].second.mac[5]);
    EXPECT_EQ(LinkEvent::Del, got[1].first);
    EXPECT_EQ(6, got[1].second.ifindex);
}

TEST(RtnlWalk, BridgePortMessagesAreNotLinkChanges) {
    // A port leaving a bridge: the bridge family's "deleted link", then the
    // link itself without a master.
    KLink portGone = klink(RTM_DELLINK, 5, "m1");
    portGone.family = AF_BRIDGE;
    portGone.master = 4;
    KLink link = klink(RTM_NEWLINK, 5, "m1");
    NlWalk w;
    auto got = walk(cat({kmsg(portGone), kmsg(link)}), &w);
    EXPECT_FALSE(w.malformed);
    ASSERT_EQ(1u, got.size());
    EXPECT_EQ(LinkEvent::New, got[0].first);
    EXPECT_EQ(0, got[0].second.master);
}

TEST(RtnlWalk, StopsAtWhatDoesNotFit) {
    auto one = kmsg(klink(RTM_NEWLINK, 5, "a"));
    // A length beyond the read: nothing of it is used.
    auto lie = one;
    uint32_t big = 4096;
    std::memcpy(lie.data(), &big, 4);
    NlWalk w;
    EXPECT_TRUE(walk(lie, &w).empty());
    EXPECT_TRUE(w.malformed);
    // Every cut of a valid message.
    for (size_t n = 0; n < one.size(); n++) {
        std::vector<uint8_t> cut(one.begin(), one.begin() + static_cast<std::ptrdiff_t>(n));
        auto got = walk(cut, &w);
        EXPECT_TRUE(got.empty()) << "cut at " << n;
    }
    // An attribute longer than its message.
    auto badAttr = one;
    size_t attrAt = NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(struct ifinfomsg));
    uint16_t alen = 200;
    std::memcpy(badAttr.data() + attrAt, &alen, 2);
    EXPECT_TRUE(walk(badAttr, &w).empty());
    EXPECT_TRUE(w.malformed);
    // A header shorter than a header.
    auto tiny = one;
    uint32_t small = 8;
    std::memcpy(tiny.data(), &small, 4);
    EXPECT_TRUE(walk(tiny, &w).empty());
    EXPECT_TRUE(w.malformed);
}

TEST(RtnlWalk, ErrorMessage) {
    std::vector<uint8_t> m(NLMSG_HDRLEN + sizeof(struct nlmsgerr), 0);
    struct nlmsghdr h;
    std::memset(&h, 0, sizeof(h));
    h.nlmsg_len = static_cast<uint32_t>(m.size());
    h.nlmsg_type = NLMSG_ERROR;
    std::memcpy(m.data(), &h, sizeof(h));
    int32_t err = -105;
    std::memcpy(m.data() + NLMSG_HDRLEN, &err, 4);
    NlWalk w;
    walk(m, &w);
    EXPECT_EQ(105, w.error);
}

// What the kernel would never write is refused, the message with it: libmnl
// validates the attributes the platform reads.
TEST(RtnlWalk, RefusesAttributesTheKernelDoesNotWrite) {
    auto withAttr = [](uint16_t type, const std::vector<uint8_t>& value) {
        auto m = kmsg(klink(RTM_NEWLINK, 5, "a"));
        putAttr(m, type, value.data(), value.size());
        uint32_t len = static_cast<uint32_t>(m.size());
        std::memcpy(m.data(), &len, 4);
        return m;
    };
    NlWalk w;
    // A name without its NUL, and one longer than an interface name.
    EXPECT_TRUE(walk(withAttr(IFLA_IFNAME, {'e', 't', 'h', '1'}), &w).empty());
    EXPECT_TRUE(w.malformed);
    std::string longName(IFNAMSIZ, 'x');
    std::vector<uint8_t> longValue(longName.begin(), longName.end());
    longValue.push_back(0);
    EXPECT_TRUE(walk(withAttr(IFLA_IFNAME, longValue), &w).empty());
    EXPECT_TRUE(w.malformed);
    // A master that is not 32 bits.
    EXPECT_TRUE(walk(withAttr(IFLA_MASTER, {1, 0}), &w).empty());
    EXPECT_TRUE(w.malformed);
    EXPECT_TRUE(walk(withAttr(IFLA_MASTER, {1, 0, 0, 0, 0, 0, 0, 0}), &w).empty());
    EXPECT_TRUE(w.malformed);
    // Link info whose kind overruns the nest it sits in.
    std::vector<uint8_t> inner;
    putAttr(inner, IFLA_INFO_KIND, "veth", 5);
    uint16_t overrun = 40;
    std::memcpy(inner.data(), &overrun, 2);
    EXPECT_TRUE(walk(withAttr(IFLA_LINKINFO, inner), &w).empty());
    EXPECT_TRUE(w.malformed);
    // A nest too short for an attribute header.
    EXPECT_TRUE(walk(withAttr(IFLA_LINKINFO, {1, 2}), &w).empty());
    EXPECT_TRUE(w.malformed);
    // What is well formed still reads, other hardware address lengths
    // included (they are not kept).
    auto fine = withAttr(IFLA_MASTER, {7, 0, 0, 0});
    auto got = walk(fine, &w);
    EXPECT_FALSE(w.malformed);
    ASSERT_EQ(1u, got.size());
    EXPECT_EQ(7, got[0].second.master);
    KLink tunnel = klink(RTM_NEWLINK, 8, "tun0");
    tunnel.mac = false;
    auto t = kmsg(tunnel);
    const uint8_t ip[4] = {10, 0, 0, 1};
    putAttr(t, IFLA_ADDRESS, ip, 4);
    uint32_t tlen = static_cast<uint32_t>(t.size());
    std::memcpy(t.data(), &tlen, 4);
    got = walk(t, &w);
    EXPECT_FALSE(w.malformed);
    ASSERT_EQ(1u, got.size());
    EXPECT_FALSE(got[0].second.hasMac);
}

// Every byte of a read set to every value that matters: the walk reads only
// inside the buffer (the sanitizers watch), and whatever it hands on is a
// link with an index and a name that fits.
TEST(RtnlWalk, CorruptedReadsNeverCrash) {
    KLink veth = klink(RTM_NEWLINK, 5, "veth0");
    veth.kind = "veth";
    veth.master = 9;
    auto good = cat({kmsg(veth), kmsg(klink(RTM_DELLINK, 6, "old")), kdone()});
    size_t handed = 0;
    for (size_t at = 0; at < good.size(); at++) {
        for (uint8_t v : {uint8_t(0x00), uint8_t(0x01), uint8_t(0x03), uint8_t(0x7f), uint8_t(0x80), uint8_t(0xff)}) {
            auto bad = good;
            bad[at] = v;
            // Read from a copy of exactly its size, so that a read past it is caught.
            auto exact = std::make_unique<uint8_t[]>(bad.size());
            std::memcpy(exact.get(), bad.data(), bad.size());
            rtnlWalk(exact.get(), bad.size(), [&](LinkEvent, const LinkInfo& l) {
                handed++;
                EXPECT_GT(l.ifindex, 0);
                EXPECT_LT(l.name.size(), static_cast<size_t>(IFNAMSIZ));
            });
        }
    }
    EXPECT_GT(handed, 0u);
}

TEST(RtnlWalk, InterruptedDumpAndAnotherRequestsMessages) {
    auto one = kmsg(klink(RTM_NEWLINK, 5, "a"));
    // The kernel marks a dump during which the links changed.
    auto intr = one;
    uint16_t flags = NLM_F_MULTI | NLM_F_DUMP_INTR;
    std::memcpy(intr.data() + offsetof(struct nlmsghdr, nlmsg_flags), &flags, 2);
    NlWalk w;
    EXPECT_TRUE(walk(intr, &w).empty());
    EXPECT_TRUE(w.interrupted);
    EXPECT_FALSE(w.malformed);
    // The answer to request 7 of port 1234: read for that request only.
    auto answer = one;
    uint32_t seq = 7;
    uint32_t portid = 1234;
    std::memcpy(answer.data() + offsetof(struct nlmsghdr, nlmsg_seq), &seq, 4);
    std::memcpy(answer.data() + offsetof(struct nlmsghdr, nlmsg_pid), &portid, 4);
    size_t got = 0;
    w = rtnlWalk(answer.data(), answer.size(), [&](LinkEvent, const LinkInfo&) { got++; }, 7, 1234);
    EXPECT_EQ(1u, got);
    EXPECT_FALSE(w.malformed);
    w = rtnlWalk(answer.data(), answer.size(), [&](LinkEvent, const LinkInfo&) { got++; }, 8, 1234);
    EXPECT_EQ(1u, got);
    EXPECT_TRUE(w.malformed);
    w = rtnlWalk(answer.data(), answer.size(), [&](LinkEvent, const LinkInfo&) { got++; }, 7, 99);
    EXPECT_EQ(1u, got);
    EXPECT_TRUE(w.malformed);
}

TEST(RtnlDumpRequest, AsksForEveryLink) {
    auto req = rtnlDumpRequest(42);
    ASSERT_EQ(NLMSG_LENGTH(sizeof(struct ifinfomsg)), req.size());
    struct nlmsghdr h;
    std::memcpy(&h, req.data(), sizeof(h));
    EXPECT_EQ(req.size(), h.nlmsg_len);
    EXPECT_EQ(RTM_GETLINK, h.nlmsg_type);
    EXPECT_EQ(NLM_F_REQUEST | NLM_F_DUMP, h.nlmsg_flags);
    EXPECT_EQ(42u, h.nlmsg_seq);
    struct ifinfomsg ifi;
    std::memcpy(&ifi, req.data() + NLMSG_HDRLEN, sizeof(ifi));
    EXPECT_EQ(AF_UNSPEC, ifi.ifi_family);
    EXPECT_EQ(0, ifi.ifi_index);
}

// ---- kind, position and flags -------------------------------------------------------------

LinkInfo link(int index, const std::string& name, const std::string& kind = "", uint16_t arphrd = ARPHRD_ETHER) {
    LinkInfo l;
    l.ifindex = index;
    l.name = name;
    l.linkKind = kind;
    l.arphrd = arphrd;
    l.hasMac = true;
    return l;
}

TEST(IfKind, FromTheKernelAndFromPortLines) {
    EXPECT_EQ(ZEL_OND_ETH, ifKind(link(2, "eth0"), nullptr));
    EXPECT_EQ(ZEL_OND_ETH, ifKind(link(2, "v1", "veth"), nullptr));
    EXPECT_EQ(ZEL_OND_ETH_AGG, ifKind(link(2, "bond0", "bond"), nullptr));
    EXPECT_EQ(ZEL_OND_ETH_AGG, ifKind(link(2, "team0", "team"), nullptr));
    EXPECT_EQ(0u, ifKind(link(2, "br0", "bridge"), nullptr));
    EXPECT_EQ(0u, ifKind(link(2, "eth0.10", "vlan"), nullptr));
    EXPECT_EQ(0u, ifKind(link(1, "lo", "", ARPHRD_LOOPBACK), nullptr));
    EXPECT_EQ(0u, ifKind(link(3, "tun0", "tun", ARPHRD_NONE), nullptr));
    EXPECT_EQ(0u, ifKind(link(3, "ifb0", "ifb"), nullptr));
    PortSpec agg;
    agg.ondType = ZEL_OND_ETH_AGG;
    EXPECT_EQ(ZEL_OND_ETH_AGG, ifKind(link(2, "br0", "bridge"), &agg));
    PortSpec gpon;
    gpon.ondType = ZEL_OND_GPON;
    EXPECT_EQ(ZEL_OND_GPON, ifKind(link(2, "pon1"), &gpon));
    EXPECT_EQ(ZEL_IFTYPE_GPON, ifTypeNumber(link(2, "pon1"), ZEL_OND_GPON));
    EXPECT_EQ(ZEL_IFTYPE_ETHERNET, ifTypeNumber(link(2, "eth1"), ZEL_OND_ETH));
}

TEST(IfPhyInfo, PortNumberFromTheLineTheNameOrTheIndex) {
    tZelPhyInfo p;
    ifPhyInfo(link(12, "eth17"), nullptr, p);
    EXPECT_EQ(ZEL_OND_ETH, p.ondType);
    EXPECT_EQ(17u, p.portNo);
    EXPECT_EQ(0u, p.slotNo);
    ifPhyInfo(link(12, "uplink"), nullptr, p);
    EXPECT_EQ(12u, p.portNo);
    ifPhyInfo(link(12, "eth0"), nullptr, p);
    EXPECT_EQ(0u, p.portNo) << "port 0: not on the front panel";
    ifPhyInfo(link(12, "bond3", "bond"), nullptr, p);
    EXPECT_EQ(ZEL_OND_ETH_AGG, p.ondType);
    EXPECT_EQ(3u, p.aggNo);
    EXPECT_EQ(0u, p.portNo);
    ifPhyInfo(link(12, "x12345678901234"), nullptr, p);
    EXPECT_EQ(678901234u, p.portNo) << "the last nine digits";
    PortSpec s;
    s.slot = 2;
    s.port = 9;
    s.sys = 1;
    s.subPort = 4;
    ifPhyInfo(link(12, "eth17"), &s, p);
    EXPECT_EQ(1u, p.sysNo);
    EXPECT_EQ(2u, p.slotNo);
    EXPECT_EQ(9u, p.portNo);
    EXPECT_EQ(4u, p.subPort);
    ifPhyInfo(link(1, "lo", "", ARPHRD_LOOPBACK), nullptr, p);
    EXPECT_EQ(0u, p.ondType);
    EXPECT_EQ(0u, p.portNo);
}

TEST(LinkTableFlags, SubscriberMemberAndEmptyAggregate) {
    LinkTable t;
    PortSpec agg;
    agg.ondType = ZEL_OND_ETH_AGG;
    t.portOf = [&](const std::string& n) -> const PortSpec* { return n == "agg1" ? &agg : nullptr; };
    t.excluded = [](const std::string& n) { return n == "mgmt0"; };
    LinkInfo lo = link(1, "lo", "", ARPHRD_LOOPBACK);
    lo.flags = IFF_LOOPBACK;
    t.links[1] = lo;
    t.links[2] = link(2, "eth1");
    t.links[3] = link(3, "mgmt0");
    t.links[4] = link(4, "agg1", "bridge");
    t.links[5] = link(5, "br0", "bridge");
    t.links[6] = link(6, "eth2");
    t.links[6].master = 5;  // a bridge port is no aggregate member
    EXPECT_EQ(ZEL_IF_FLAG_NOT_SUBSCRIBER, t.flagsOf(t.links[1]));
    EXPECT_EQ(0u, t.flagsOf(t.links[2]));
    EXPECT_EQ(ZEL_IF_FLAG_NOT_SUBSCRIBER, t.flagsOf(t.links[3]));
    EXPECT_EQ(0u, t.kindOf(t.links[3])) << "an excluded port is no port";
    tZelPhyInfo p;
    t.phyInfo(t.links[3], p);
    EXPECT_EQ(0u, p.ondType);
    EXPECT_EQ(0u, p.portNo);
    t.phyInfo(t.links[2], p);
    EXPECT_EQ(ZEL_OND_ETH, p.ondType);
    EXPECT_EQ(1u, p.portNo);
    EXPECT_EQ(ZEL_IF_FLAG_AGG_EMPTY, t.flagsOf(t.links[4]));
    EXPECT_EQ(ZEL_IF_FLAG_NOT_SUBSCRIBER, t.flagsOf(t.links[5]));
    EXPECT_EQ(0u, t.flagsOf(t.links[6]));
    t.links[2].master = 4;
    EXPECT_EQ(ZEL_IF_FLAG_AGG_MEMBER, t.flagsOf(t.links[2]));
    EXPECT_EQ(0u, t.flagsOf(t.links[4]));
}

// ---- link changes into route messages -------------------------------------------------------

TEST(LinkApply, NewLinkIsAnnouncedWithTheNewMask) {
    LinkTable t;
    LinkChange c = linkApply(t, LinkEvent::New, link(7, "eth7"));
    EXPECT_TRUE(c.added);
    ASSERT_EQ(1u, c.messages.size());
    const auto& m = c.messages[0];
    EXPECT_EQ(m.size(), be32(m, 0));
    EXPECT_EQ(0u, m.size() % 4);
    EXPECT_EQ(RT_NEWLINK, be16(m, 4));
    EXPECT_EQ(7u, be32(m, RT_OFF_IFINDEX));
    EXPECT_EQ(0xFFFFFFFFu, be32(m, RT_OFF_CHANGE));
    auto attrs = attrsOf(m);
    ASSERT_EQ(1u, attrs.size());
    EXPECT_EQ(RT_ATTR_IFNAME, attrs[0].first);
    EXPECT_EQ(1u, t.links.count(7));
}

TEST(LinkApply, ChangesWithoutMembershipSayNothing) {
    LinkTable t;
    linkApply(t, LinkEvent::New, link(7, "eth7"));
    LinkInfo up = link(7, "eth7");
    up.flags = IFF_UP | IFF_RUNNING;
    LinkChange c = linkApply(t, LinkEvent::New, up);
    EXPECT_FALSE(c.added);
    EXPECT_TRUE(c.messages.empty());
    EXPECT_EQ(static_cast<uint32_t>(IFF_UP | IFF_RUNNING), t.links[7].flags);
}

TEST(LinkApply, JoinAndLeaveAnAggregate) {
    LinkTable t;
    PortSpec agg;
    agg.ondType = ZEL_OND_ETH_AGG;
    t.portOf = [&](const std::string& n) -> const PortSpec* { return n == "agg1" ? &agg : nullptr; };
    linkApply(t, LinkEvent::New, link(4, "agg1", "bridge"));
    linkApply(t, LinkEvent::New, link(5, "br0", "bridge"));
    linkApply(t, LinkEvent::New, link(7, "eth7"));

    LinkInfo joined = link(7, "eth7");
    joined.master = 4;
    LinkChange c = linkApply(t, LinkEvent::New, joined);
    ASSERT_EQ(1u, c.messages.size());
    EXPECT_EQ(RT_NEWLINK, be16(c.messages[0], 4));
    EXPECT_NE(0xFFFFFFFFu, be32(c.messages[0], RT_OFF_CHANGE));
    auto attrs = attrsOf(c.messages[0]);
    ASSERT_EQ(2u, attrs.size());
    EXPECT_EQ(RT_ATTR_PHYJOINAGG, attrs[1].first);
    EXPECT_EQ(4u, attrs[1].second);

    LinkInfo left = link(7, "eth7");  // no master any more
    c = linkApply(t, LinkEvent::New, left);
    ASSERT_EQ(1u, c.messages.size());
    attrs = attrsOf(c.messages[0]);
    ASSERT_EQ(2u, attrs.size());
    EXPECT_EQ(RT_ATTR_PHYQUITAGG, attrs[1].first);
    EXPECT_EQ(4u, attrs[1].second);

    // Joining a plain bridge is no aggregate membership.
    LinkInfo bridged = link(7, "eth7");
    bridged.master = 5;
    EXPECT_TRUE(linkApply(t, LinkEvent::New, bridged).messages.empty());
}

TEST(LinkApply, DeletedLinkAndRename) {
    LinkTable t;
    linkApply(t, LinkEvent::New, link(7, "eth7"));
    LinkInfo renamed = link(7, "port7");
    LinkChange c = linkApply(t, LinkEvent::New, renamed);
    EXPECT_TRUE(c.renamed);
    EXPECT_EQ("eth7", c.oldName);
    EXPECT_TRUE(c.messages.empty());

    c = linkApply(t, LinkEvent::Del, link(7, ""));
    EXPECT_TRUE(c.removed);
    ASSERT_EQ(1u, c.messages.size());
    EXPECT_EQ(RT_DELLINK, be16(c.messages[0], 4));
    EXPECT_EQ(7u, be32(c.messages[0], RT_OFF_IFINDEX));
    EXPECT_TRUE(t.links.empty());
    // The deletion of a link never seen is passed on all the same.
    c = linkApply(t, LinkEvent::Del, link(8, "x"));
    EXPECT_FALSE(c.removed);
    EXPECT_EQ(1u, c.messages.size());
}

TEST(RtMessages, ResetPortAndResetProtocols) {
    auto port = rtMsgResetPort(12);
    EXPECT_EQ(48u, port.size());
    EXPECT_EQ(48u, be32(port, 0));
    EXPECT_EQ(RT_RESETPORTCONFIG, be16(port, 4));
    EXPECT_EQ(12u, be32(port, RT_OFF_IFINDEX));

    auto proto = rtMsgResetProto({141, 0, 19, 9999});
    EXPECT_EQ(RT_RESETPROTOCONFIG, be16(proto, 4));
    EXPECT_EQ(proto.size(), be32(proto, 0));
    EXPECT_GE(proto.size(), RT_OFF_PROTOS + 385 / 8 + 1);
    // Bit n: byte n / 8 of the array, mask 0x80 >> n % 8.
    EXPECT_EQ(0x04, proto[RT_OFF_PROTOS + 141 / 8]);
    EXPECT_EQ(0x80, proto[RT_OFF_PROTOS + 0]);
    EXPECT_EQ(0x10, proto[RT_OFF_PROTOS + 19 / 8]);
    int bits = 0;
    for (size_t i = RT_OFF_PROTOS; i < proto.size(); i++) bits += __builtin_popcount(proto[i]);
    EXPECT_EQ(3, bits);
}

}  // namespace
