// Route-socket interface events.
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "agent/global.h"
#include "daemon/main_loop.h"
#include "daemon/route_socket.h"
#include "iftable/if_entry.h"
#include "mgmt/enable.h"
#include "platform/types.h"
#include "support/fixture.h"

namespace {

using Bytes = std::vector<uint8_t>;

void put16(Bytes& b, size_t off, uint16_t v) {
    if (b.size() < off + 2) b.resize(off + 2);
    b[off] = static_cast<uint8_t>(v >> 8);
    b[off + 1] = static_cast<uint8_t>(v);
}

void put32(Bytes& b, size_t off, uint32_t v) {
    if (b.size() < off + 4) b.resize(off + 4);
    for (int i = 0; i < 4; i++) b[off + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}

// A message of `len` bytes (at least the header) with its type and, from
// offset 28, the interface index.
Bytes msg(uint16_t type, uint32_t ifindex, uint32_t len = 32) {
    Bytes b(len, 0);
    put32(b, 0, len);
    put16(b, 4, type);
    if (len >= 32) put32(b, 28, ifindex);
    return b;
}

Bytes attr(uint16_t type, uint16_t len = 4) {
    Bytes b(len, 0);
    put16(b, 0, len);
    put16(b, 2, type);
    return b;
}

Bytes newLink(uint32_t ifindex, uint32_t mask, const std::vector<Bytes>& attrs = {}) {
    Bytes b(48, 0);
    put16(b, 4, RT_NEWLINK);
    put32(b, 28, ifindex);
    put32(b, 36, mask);
    for (const Bytes& a : attrs) {
        b.insert(b.end(), a.begin(), a.end());
        while (b.size() % 4) b.push_back(0);
    }
    put32(b, 0, static_cast<uint32_t>(b.size()));
    return b;
}

Bytes errorMsg(int32_t err) {
    Bytes b = msg(RT_MSG_ERROR, 0, 40);
    put32(b, 24, static_cast<uint32_t>(err));
    return b;
}

Bytes resetProto(uint32_t proto) {
    Bytes b = msg(RT_RESETPROTOCONFIG, 0, 36 + 48);
    b[36 + proto / 8] |= static_cast<uint8_t>(0x80u >> (proto % 8));
    return b;
}

// Messages laid one after the other at 4-byte boundaries.
Bytes join(const std::vector<Bytes>& msgs) {
    Bytes out;
    for (const Bytes& m : msgs) {
        out.insert(out.end(), m.begin(), m.end());
        while (out.size() % 4) out.push_back(0);
    }
    return out;
}

class RouteEventTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        pppoeplusTestStart(1, 1);
        gPppoeplus.gponIfEnable = ZEL_TRUE;
        sim::addInterface(1, "eth1", ZEL_OND_ETH);
        sim::addInterface(2, "eth2", ZEL_OND_ETH);
        sim::addInterface(3, "agg3", ZEL_OND_ETH_AGG);
        sim::addInterface(4, "gpon4", ZEL_OND_GPON, ZEL_IFTYPE_GPON);
        sim::addInterface(5, "epon5", ZEL_OND_EPON);
        sim::addInterface(6, "eth6", ZEL_OND_ETH);
    }
    // Feeds one read through the route socket as the worker does.
    void receive(const Bytes& bytes) {
        sim::pushRead(gPppoeplus.rtSockFd, bytes);
        pppoeplusRtSockRecv();
    }
    tPppoePlusIfEntry* add(uint32_t unit) {
        tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(unit, ZEL_TRUE);
        EXPECT_NE(nullptr, e);
        return e;
    }
    std::vector<std::string> routeTraces() {
        std::vector<std::string> out;
        for (const sim::LogRecord& r : sim::g.logs)
            if (r.module == 0x45D0003) out.push_back(r.text);
        return out;
    }
};

TEST_F(RouteEventTest, SeveralMessagesInOneReadAreHandledInOrder) {
    add(1);
    add(2);
    pppoeplusDebugSwitchSet(0x4);
    receive(join({msg(RT_DELLINK, 2), msg(RT_DELLINK, 1)}));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(2));
    const std::vector<std::string> expected = {
        "Receive route message, length 64.\r\n",     "Reveive a route message: type 0x21.\r\n",
        "Reveive RTM_DELLINK message: ifindex 2.\r\n", "Reveive a route message: type 0x21.\r\n",
        "Reveive RTM_DELLINK message: ifindex 1.\r\n",
    };
    EXPECT_EQ(expected, routeTraces());
    for (const sim::LogRecord& r : sim::g.logs) {
        EXPECT_EQ(7u, r.level);
        EXPECT_FALSE(r.oper);
    }
}

TEST_F(RouteEventTest, TracesNeedTheTraceSwitch) {
    add(1);
    pppoeplusDebugSwitchSet(0x8);
    receive(msg(RT_DELLINK, 1));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
    EXPECT_TRUE(routeTraces().empty());
}

TEST_F(RouteEventTest, DoneInTheMiddleDropsTheRest) {
    add(1);
    add(2);
    receive(join({msg(RT_DELLINK, 1), msg(RT_MSG_DONE, 0, 24), msg(RT_DELLINK, 2)}));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(2));
}

TEST_F(RouteEventTest, ErrorIsLoggedUnderTheErrorSwitchAndDropsTheRest) {
    add(1);
    pppoeplusDebugSwitchSet(0x8);
    receive(join({errorMsg(2), msg(RT_DELLINK, 1)}));
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(1));
    ASSERT_EQ(1u, sim::g.logs.size());
    EXPECT_EQ(std::string("Route message ERROR: ") + strerror(2) + ".\r\n", sim::g.logs[0].text);
    EXPECT_EQ(0x45D0003u, sim::g.logs[0].module);
    EXPECT_EQ(7u, sim::g.logs[0].level);

    sim::g.logs.clear();
    pppoeplusDebugSwitchSet(0x4);
    receive(errorMsg(-22));
    for (const std::string& t : routeTraces()) EXPECT_EQ(std::string::npos, t.find("ERROR")) << t;
}

TEST_F(RouteEventTest, MessageLongerThanTheReadIsNotHandledNorAnythingAfter) {
    add(1);
    add(2);
    Bytes first = msg(RT_DELLINK, 1);
    put32(first, 0, 200);  // claims more than the read holds
    receive(join({first, msg(RT_DELLINK, 2)}));
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(1));
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(2));
}

TEST_F(RouteEventTest, LengthBelowTheHeaderEndsTheWalk) {
    add(1);
    for (uint32_t len : {0u, 4u, 23u}) {
        Bytes first = msg(RT_DELLINK, 1);
        put32(first, 0, len);
        receive(join({first, msg(RT_DELLINK, 1)}));
        EXPECT_NE(nullptr, pppoeplusIfEntryGet(1)) << len;
    }
}

TEST_F(RouteEventTest, ReadShorterThanAHeaderDoesNothing) {
    add(1);
    Bytes m = msg(RT_DELLINK, 1);
    m.resize(23);
    receive(m);
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(1));
}

TEST_F(RouteEventTest, LengthsThatAreNotMultiplesOfFourAreRoundedUp) {
    add(1);
    add(2);
    Bytes first = msg(RT_DELLINK, 1, 33);  // padded to 36 by join
    receive(join({first, msg(RT_DELLINK, 2, 34)}));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(2));
}

TEST_F(RouteEventTest, LastMessageMayEndWithoutPadding) {
    add(2);
    Bytes m = msg(RT_DELLINK, 2, 33);
    receive(m);  // 33 bytes: the rounded step runs past the read, the walk ends
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(2));
}

TEST_F(RouteEventTest, AnIndexOutsideTheMessageReadsAsZero) {
    // A 24-byte DELLINK carries no index; the bytes after it belong to the
    // next message and are not taken for its index.
    sim::addInterface(0, "unit0", ZEL_OND_ETH);
    add(0);
    add(1);
    Bytes second = msg(RT_DELLINK, 1);
    receive(join({msg(RT_DELLINK, 0, 24), second}));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(0)) << "index 0 from the zero padding";
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
}

TEST_F(RouteEventTest, DelLinkOfAnUnknownInterfaceDoesNothing) {
    add(1);
    receive(msg(RT_DELLINK, 99));
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(1));
}

// ---- new interfaces ---------------------------------------------------------

TEST_F(RouteEventTest, NewInterfaceGetsAnEnabledEntry) {
    receive(newLink(1, 0xFFFFFFFF));
    tPppoePlusIfEntry* e = pppoeplusIfEntryGet(1);
    ASSERT_NE(nullptr, e);
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfEnableGet(e));
    EXPECT_GE(sim::findCall("zelIfGetApi(1,10)"), 0);
}

TEST_F(RouteEventTest, NewInterfaceWhileDisabledOrWithoutAllPortGetsNothing) {
    pppoeplusEnableSet(ZEL_FALSE);
    receive(newLink(1, 0xFFFFFFFF));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
    pppoeplusEnableSet(ZEL_TRUE);
    pppoeplusAllPortEnableSet(ZEL_FALSE);
    receive(newLink(1, 0xFFFFFFFF));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
}

TEST_F(RouteEventTest, NewEthernetPortInAnAggregateGetsNothing) {
    sim::g.interfaces[1].flags = ZEL_IF_FLAG_AGG_MEMBER;
    receive(newLink(1, 0xFFFFFFFF));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
    sim::g.interfaces[2].flagsOk = false;
    receive(newLink(2, 0xFFFFFFFF));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(2)) << "flags that cannot be read refuse the port";
    sim::g.interfaces[6].flags = ZEL_IF_FLAG_AGG_EMPTY;  // only aggregates look at this bit
    receive(newLink(6, 0xFFFFFFFF));
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(6));
}

TEST_F(RouteEventTest, NewAggregateNeedsMembers) {
    sim::g.interfaces[3].flags = ZEL_IF_FLAG_AGG_EMPTY;
    receive(newLink(3, 0xFFFFFFFF));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(3));
    sim::g.interfaces[3].flags = ZEL_IF_FLAG_AGG_MEMBER;
    receive(newLink(3, 0xFFFFFFFF));
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(3));
}

TEST_F(RouteEventTest, NewGponPortIsAddedWithoutTheFlagsTest) {
    sim::g.interfaces[4].flags = ZEL_IF_FLAG_AGG_MEMBER | ZEL_IF_FLAG_AGG_EMPTY;
    receive(newLink(4, 0xFFFFFFFF));
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(4));
    EXPECT_EQ(-1, sim::findCall("zelIfGetApi(4,10)"));
}

TEST_F(RouteEventTest, KindNotAdmittedIsIgnored) {
    receive(newLink(5, 0xFFFFFFFF));  // EPON
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(5));
    gPppoeplus.gponIfEnable = ZEL_FALSE;
    receive(newLink(4, 0xFFFFFFFF));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(4));
    sim::g.interfaces[1].phyOk = false;
    receive(newLink(1, 0xFFFFFFFF));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
}

TEST_F(RouteEventTest, NewLinkOfAKnownInterfaceAddsNothing) {
    tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(1, ZEL_FALSE);
    ASSERT_NE(nullptr, e);
    uint32_t used = gPppoeplus.ifPool.used;
    receive(newLink(1, 0xFFFFFFFF));
    EXPECT_EQ(used, gPppoeplus.ifPool.used);
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfEnableGet(pppoeplusIfEntryGet(1)));
}

// ---- aggregate membership -----------------------------------------------------

TEST_F(RouteEventTest, JoinThenQuitRecreatesADefaultEntry) {
    tPppoePlusIfEntry* e = add(1);
    pppoeplusIfPolicySet(e, 2);
    e->padiRcv = 4;
    pppoeplusDebugSwitchSet(0x4);
    receive(newLink(1, 0x1, {attr(RT_ATTR_PHYJOINAGG)}));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
    receive(newLink(1, 0x1, {attr(RT_ATTR_PHYQUITAGG)}));
    e = pppoeplusIfEntryGet(1);
    ASSERT_NE(nullptr, e);
    EXPECT_EQ(ZEL_TRUE, pppoeplusIfEnableGet(e));
    EXPECT_EQ(0u, pppoeplusIfPolicyGet(e));
    EXPECT_EQ(0u, e->padiRcv);
    const std::vector<std::string> expected = {
        "Receive route message, length 52.\r\n", "Reveive a route message: type 0x20.\r\n",
        "Reveive IFLA_PHYJOINAGG message: ifindex 1.\r\n", "Receive route message, length 52.\r\n",
        "Reveive a route message: type 0x20.\r\n", "Reveive IFLA_PHYQUITAGG message: ifindex 1.\r\n",
    };
    EXPECT_EQ(expected, routeTraces());
}

TEST_F(RouteEventTest, QuitWithoutAllPortAddsNothing) {
    pppoeplusAllPortEnableSet(ZEL_FALSE);
    receive(newLink(1, 0x1, {attr(RT_ATTR_PHYQUITAGG)}));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
}

TEST_F(RouteEventTest, QuitAddsWithoutTheFlagsTest) {
    sim::g.interfaces[1].flags = ZEL_IF_FLAG_AGG_MEMBER;
    receive(newLink(1, 0x1, {attr(RT_ATTR_PHYQUITAGG)}));
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(1));
    EXPECT_EQ(-1, sim::findCall("zelIfGetApi(1,10)"));
}

TEST_F(RouteEventTest, TheEntryLookedUpBeforeTheWalkServesEveryAttribute) {
    // Join and quit in one message: the quit still sees the entry that was
    // there when the message began, so no new entry is made; a second join
    // does not touch the deleted entry again.
    add(1);
    uint32_t used = gPppoeplus.ifPool.used;
    receive(newLink(1, 0x1, {attr(RT_ATTR_PHYJOINAGG), attr(RT_ATTR_PHYQUITAGG), attr(RT_ATTR_PHYJOINAGG)}));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
    EXPECT_EQ(used - 1, gPppoeplus.ifPool.used);

    // Quit then join on a unit without an entry: the quit adds one, the join
    // goes by the lookup (none) and leaves it.
    receive(newLink(2, 0x1, {attr(RT_ATTR_PHYQUITAGG), attr(RT_ATTR_PHYJOINAGG)}));
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(2));
}

TEST_F(RouteEventTest, AttributesAtTheEndOfTheMessage) {
    add(1);
    // The join attribute fills the message exactly, with a value of 4 bytes.
    receive(newLink(1, 0x1, {attr(1, 8), attr(RT_ATTR_PHYJOINAGG, 8)}));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
}

TEST_F(RouteEventTest, UnknownAttributesAreSteppedOver) {
    add(1);
    receive(newLink(1, 0x1, {attr(0x33, 7), attr(0x36, 5), attr(RT_ATTR_PHYJOINAGG)}));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
}

TEST_F(RouteEventTest, InvalidAttributeEndsTheRead) {
    add(1);
    add(2);
    // An attribute claiming 2 bytes, then a join: neither the join nor the
    // next message is handled.
    Bytes bad = newLink(1, 0x1, {attr(0x33, 4), attr(RT_ATTR_PHYJOINAGG)});
    put16(bad, 48, 2);
    receive(join({bad, msg(RT_DELLINK, 2)}));
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(1));
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(2));

    // An attribute longer than what is left of its message.
    Bytes longer = newLink(1, 0x1, {attr(RT_ATTR_PHYJOINAGG)});
    put16(longer, 48, 8);
    receive(join({longer, msg(RT_DELLINK, 2)}));
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(1));
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(2));
}

TEST_F(RouteEventTest, FewerThanFourBytesLeftEndOnlyTheAttributes) {
    add(1);
    add(2);
    Bytes m = newLink(1, 0x1, {attr(RT_ATTR_PHYJOINAGG)});
    m.resize(m.size() + 3, 0xFF);  // three trailing bytes: no attribute fits
    put32(m, 0, static_cast<uint32_t>(m.size()));
    receive(join({m, msg(RT_DELLINK, 2)}));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(2));
}

TEST_F(RouteEventTest, NewLinkShorterThanItsAttributeAreaHasNoAttributes) {
    add(1);
    Bytes m = msg(RT_NEWLINK, 1, 40);
    put32(m, 36, 0x1);
    receive(m);
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(1));
}

// ---- configuration resets -------------------------------------------------------

TEST_F(RouteEventTest, ResetPortConfigOfADefaultOnPortClearsIt) {
    tPppoePlusIfEntry* e = add(1);  // all-port on: default states on
    ASSERT_EQ(ZEL_TRUE, pppoeplusIfProtoDfltEnableGet(e));
    pppoeplusIfPolicySet(e, 1);
    e->padrRcv = 3;
    e->totalSend = 8;
    pppoeplusDebugSwitchSet(0x4);
    receive(msg(RT_RESETPORTCONFIG, 1));
    ASSERT_EQ(e, pppoeplusIfEntryGet(1));
    EXPECT_EQ(0u, pppoeplusIfPolicyGet(e));
    EXPECT_EQ(0u, e->padrRcv);
    EXPECT_EQ(0u, e->totalSend);
    const std::vector<std::string> expected = {
        "Receive route message, length 32.\r\n", "Reveive a route message: type 0x144.\r\n",
        "Reveive RTM_RESETPORTCONFIG message: ifindex 1.\r\n",
        "just clear non-default configuration and statistics.\r\n"};
    EXPECT_EQ(expected, routeTraces());
}

TEST_F(RouteEventTest, ResetPortConfigOfAConfiguredPortDeletesIt) {
    pppoeplusAllPortEnableSet(ZEL_FALSE);
    tPppoePlusIfEntry* e = add(1);
    ASSERT_EQ(ZEL_FALSE, pppoeplusIfProtoDfltEnableGet(e));
    pppoeplusDebugSwitchSet(0x4);
    receive(msg(RT_RESETPORTCONFIG, 1));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
    EXPECT_EQ("delete if entry.\r\n", routeTraces().back());
}

TEST_F(RouteEventTest, ResetPortConfigWithoutAnEntryDoesNothing) {
    uint32_t used = gPppoeplus.ifPool.used;
    receive(msg(RT_RESETPORTCONFIG, 6));
    EXPECT_EQ(used, gPppoeplus.ifPool.used);
}

TEST_F(RouteEventTest, ResetProtoConfigWithBit141ResetsTheAgent) {
    add(1);
    pppoeplusPolicySet(1);
    gPppoeplus.vendorId = 5;
    receive(resetProto(141));
    EXPECT_EQ(3u, pppoeplusPolicy());
    EXPECT_EQ(gPppoeplus.dfltVendorId, gPppoeplus.vendorId);
    EXPECT_NE(nullptr, pppoeplusIfEntryGet(1)) << "agent and all-port on: entries are kept";
}

TEST_F(RouteEventTest, ResetProtoConfigWithoutBit141DoesNothing) {
    pppoeplusPolicySet(1);
    for (uint32_t proto : {0u, 19u, 140u, 142u, 383u}) receive(resetProto(proto));
    EXPECT_EQ(1u, pppoeplusPolicy());
    // Bit 141 is byte 53, mask 0x04: a message that ends before it has no bit.
    Bytes shortMsg = msg(RT_RESETPROTOCONFIG, 0, 52);
    receive(join({shortMsg, resetProto(0)}));
    EXPECT_EQ(1u, pppoeplusPolicy());
    // ... though the byte right after it in the read is the next message's.
    Bytes next = msg(0x99, 0, 32);
    next[1] = 0x04;  // would be "byte 53" of the short message if read past its end
    receive(join({shortMsg, next}));
    EXPECT_EQ(1u, pppoeplusPolicy());
}

TEST_F(RouteEventTest, OtherTypesAreIgnored) {
    add(1);
    pppoeplusDebugSwitchSet(0x4);
    receive(join({msg(0x10, 1), msg(0x22, 1), msg(RT_DELLINK, 1)}));
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1)) << "the walk went on past the unknown types";
    auto traces = routeTraces();
    ASSERT_GE(traces.size(), 3u);
    EXPECT_EQ("Reveive a route message: type 0x10.\r\n", traces[1]);
    EXPECT_EQ("Reveive a route message: type 0x22.\r\n", traces[2]);
}

TEST_F(RouteEventTest, ServedFromTheWorkerLoop) {
    add(1);
    sim::pushRead(gPppoeplus.rtSockFd, msg(RT_DELLINK, 1));
    pppoeplusMainLoopPass(gPppoeplus.rtSockFd);
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
}

TEST_F(RouteEventTest, AFullBufferIsHandled) {
    // 3840 bytes of 48-byte messages: the last one is read whole.
    add(1);
    Bytes all;
    while (all.size() + 48 < 3840) {
        Bytes m = msg(0x99, 0, 48);
        all.insert(all.end(), m.begin(), m.end());
    }
    Bytes last = msg(RT_DELLINK, 1, static_cast<uint32_t>(3840 - all.size()));
    all.insert(all.end(), last.begin(), last.end());
    ASSERT_EQ(3840u, all.size());
    Bytes beyond = all;
    beyond.resize(4000, 0);  // the platform hands more than the buffer takes
    receive(beyond);
    EXPECT_EQ(nullptr, pppoeplusIfEntryGet(1));
}

TEST_F(RouteEventTest, RandomReadsNeverReadOutsideTheirBytes) {
    // Each read sits in a heap block of exactly its size, so any read beyond
    // it is caught by the address sanitizer.
    std::mt19937 rng(2516);
    for (int i = 0; i < 3000; i++) {
        size_t n = rng() % 160;
        std::vector<uint8_t> bytes(n);
        for (uint8_t& b : bytes) b = static_cast<uint8_t>(rng());
        // Plausible lengths and types often enough to go deep.
        if (n >= 8 && rng() % 2) {
            put32(bytes, 0, static_cast<uint32_t>(24 + rng() % (n + 8)));
            const uint16_t types[] = {2, 3, 0x20, 0x21, 0x144, 0x168};
            put16(bytes, 4, types[rng() % 6]);
            if (n >= 32) put32(bytes, 28, rng() % 8);
        }
        pppoeplusRtMsgHandle(bytes.data(), static_cast<uint32_t>(bytes.size()));
        ASSERT_EQ(gPppoeplus.ifPool.used, avl_numnodes(&gPppoeplus.ifTree)) << "read " << i;
    }
}

}  // namespace
