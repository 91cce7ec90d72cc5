// The receive path end to end on the simulated device: frames in with their
// receive information, frames out byte for byte with their address and send
// information, the decision table row by row, policies at both levels,
// counters, traces, the test-forward switch and real captured frames.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "agent/global.h"
#include "daemon/main_loop.h"
#include "packet/pkt_parse.h"
#include "packet/pkt_recv.h"
#include "packet/pkt_test_util.h"
#include "packet/real_capture.h"
#include "packet/vendor_tag.h"
#include "platform/logging.h"
#include "support/fixture.h"

using namespace pkttest;

namespace {

struct Counters {
    uint32_t errorRcv, errorSend, padiRcv, padrRcv, padtRcv, padoRcv, padsRcv, totalSend;
    bool operator==(const Counters&) const = default;
};

Counters counters(const tPppoePlusIfEntry* e) {
    return {e->errorRcv, e->errorSend, e->padiRcv, e->padrRcv, e->padtRcv, e->padoRcv, e->padsRcv, e->totalSend};
}

void PrintTo(const Counters& c, std::ostream* os) {
    *os << "{errorRcv " << c.errorRcv << ", errorSend " << c.errorSend << ", padi " << c.padiRcv << ", padr "
        << c.padrRcv << ", padt " << c.padtRcv << ", pado " << c.padoRcv << ", pads " << c.padsRcv << ", totalSend "
        << c.totalSend << "}";
}

Counters only(uint32_t Counters::*field, uint32_t value = 1) {
    Counters c{};
    c.*field = value;
    return c;
}

class PktRecvTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        gPppoeplusTestForward = 0;
        pppoeplusTestStart(1, 0);
        sim::setScalarBytes(ZEL_SCALAR_SYS_MAC, kSysMac);
        client = addPort(1, "eth0/1");
        client2 = addPort(2, "eth0/2");
        up1 = addPort(10, "eth0/10");
        up2 = addPort(11, "eth0/11");
        trust(up2);
        trust(up1);
        std::memcpy(client->mac, kPortMac.data(), 6);
        pppoeplusDebugSwitchSet(0);
        sim::g.logs.clear();
        sim::g.calls.clear();
        sim::g.sent.clear();
    }
    void TearDown() override {
        gPppoeplusTestForward = 0;
        SimTest::TearDown();
    }

    void push(const Bytes& bytes, uint32_t unit, const zel_pkt_rxinfo& info) {
        sim::Frame f{};
        f.bytes = bytes;
        f.ifUnit = unit;
        f.withInfo = true;
        f.info = info;
        sim::pushFrame(gPppoeplus.pktFd, f);
    }
    void push(const Bytes& bytes, uint32_t unit = 1) { push(bytes, unit, rxInfo(kClient, kBroadcast, 100, 200, 5, 3)); }

    // The agent's tag for the client port with the default formats.
    Bytes agentTag(uint16_t outerVid = 100, uint16_t innerVid = 200) {
        std::string circuitId = "eth0/1:" + std::to_string(outerVid) + "." + std::to_string(innerVid);
        Bytes b = {0x01, 0x05};
        put16(b, static_cast<uint16_t>(8 + circuitId.size() + 17));
        put32(b, gPppoeplus.vendorId);
        b.push_back(1);
        b.push_back(static_cast<uint8_t>(circuitId.size()));
        b = cat({b, str(circuitId), Bytes{2, 17}, str("00:11:22:33:44:55")});
        return b;
    }

    // Units the captured sends went to, in order.
    std::vector<int32_t> sentTo() {
        std::vector<int32_t> out;
        for (const sim::Sent& s : sim::g.sent) out.push_back(s.addr.sll_ifindex);
        return out;
    }

    void expectSentEverywhere(const Bytes& bytes) {
        ASSERT_EQ((std::vector<int32_t>{10, 11}), sentTo());
        for (const sim::Sent& s : sim::g.sent) EXPECT_EQ(bytes, s.bytes) << s.addr.sll_ifindex;
    }

    tPppoePlusIfEntry* client = nullptr;
    tPppoePlusIfEntry* client2 = nullptr;
    tPppoePlusIfEntry* up1 = nullptr;
    tPppoePlusIfEntry* up2 = nullptr;
};

// ---- the decision table -----------------------------------------------------------------------

struct ClientCode {
    uint8_t code;
    uint16_t session;
    uint32_t Counters::*counter;
};

const std::vector<ClientCode> kClientCodes = {
    {PPPOEPLUS_CODE_PADI, 0, &Counters::padiRcv},
    {PPPOEPLUS_CODE_PADR, 0, &Counters::padrRcv},
    {PPPOEPLUS_CODE_PADT, 0x1234, &Counters::padtRcv},
};

TEST_F(PktRecvTest, ClientFrameWithoutTagGetsTheAgentsTagOnEveryUplink) {
    for (uint32_t policy : {0u, 1u, 2u, 3u}) {
        for (const ClientCode& c : kClientCodes) {
            SCOPED_TRACE(std::to_string(policy) + "/" + pppoeplusPktTypeStr(c.code));
            pppoeplusPolicySet(policy);
            pppoeplusIfEntryCountersClear(client);
            pppoeplusIfEntryCountersClear(up1);
            pppoeplusIfEntryCountersClear(up2);
            sim::g.sent.clear();
            push(frame(c.code, c.session, serviceName("isp")));
            pppoeplusPktRecv();
            expectSentEverywhere(frame(c.code, c.session, cat({serviceName("isp"), agentTag()})));
            EXPECT_EQ(only(c.counter), counters(client));
            EXPECT_EQ(only(&Counters::totalSend), counters(up1));
            EXPECT_EQ(only(&Counters::totalSend), counters(up2));
        }
    }
}

TEST_F(PktRecvTest, ClientFrameWithTagByPolicy) {
    const Bytes clientTag = vsTag(0x0DE9, {{1, "onu-circuit"}, {2, "onu-remote"}});
    for (const ClientCode& c : kClientCodes) {
        SCOPED_TRACE(pppoeplusPktTypeStr(c.code));
        const Bytes in = frame(c.code, c.session, cat({serviceName("isp"), clientTag, hostUniq({7, 7}), eol()}));
        struct Row {
            uint32_t policy;
            bool sent;
            Bytes out;
        };
        const std::vector<Row> rows = {
            {PPPOEPLUS_POLICY_KEEP, true, in},
            {PPPOEPLUS_POLICY_DROP, true, frame(c.code, c.session, cat({serviceName("isp"), hostUniq({7, 7}), eol()}))},
            {PPPOEPLUS_POLICY_REPLACE, true,
             frame(c.code, c.session, cat({serviceName("isp"), hostUniq({7, 7}), agentTag(), eol()}))},
            {PPPOEPLUS_POLICY_DEFAULT, false, {}},
        };
        for (const Row& row : rows) {
            SCOPED_TRACE(row.policy);
            pppoeplusPolicySet(row.policy);
            pppoeplusIfEntryCountersClear(client);
            pppoeplusIfEntryCountersClear(up1);
            sim::g.sent.clear();
            push(in);
            pppoeplusPktRecv();
            EXPECT_EQ(only(c.counter), counters(client));
            if (row.sent) {
                expectSentEverywhere(row.out);
                EXPECT_EQ(1u, up1->totalSend);
            } else {
                EXPECT_TRUE(sim::g.sent.empty());
                EXPECT_EQ(0u, up1->totalSend);
            }
        }
    }
}

TEST_F(PktRecvTest, ServerFramesAreCountedNotSent) {
    for (bool withTag : {false, true}) {
        for (auto [code, counter] : {std::pair{PPPOEPLUS_CODE_PADO, &Counters::padoRcv},
                                     std::pair{PPPOEPLUS_CODE_PADS, &Counters::padsRcv}}) {
            pppoeplusIfEntryCountersClear(client);
            Bytes payload = withTag ? cat({serviceName("isp"), vsTag(1, {{1, "x"}})}) : serviceName("isp");
            push(frame(code, code == PPPOEPLUS_CODE_PADS ? 3 : 0, payload));
            pppoeplusPktRecv();
            EXPECT_EQ(only(counter), counters(client)) << int(code);
        }
    }
    EXPECT_TRUE(sim::g.sent.empty());
    EXPECT_EQ(Counters{}, counters(up1));
}

TEST_F(PktRecvTest, InvalidFrameCountsAnErrorAndIsNotSent) {
    pppoeplusPolicySet(PPPOEPLUS_POLICY_KEEP);
    const std::vector<Bytes> bad = {
        frameLen(PPPOEPLUS_CODE_PADI, 0, 0, {}, 0x21),
        frame(PPPOEPLUS_CODE_PADI, 1, {}),
        frameLen(PPPOEPLUS_CODE_PADR, 0, 30, serviceName("")),
        frame(PPPOEPLUS_CODE_PADI, 0, cat({vsTag(1, {}), vsTag(2, {})})),
        frame(PPPOEPLUS_CODE_PADO, 0, cat({eol(), serviceName("")})),
    };
    for (const Bytes& b : bad) push(b);
    for (size_t i = 0; i < bad.size(); i++) pppoeplusPktRecv();
    EXPECT_EQ(only(&Counters::errorRcv, 5), counters(client));
    EXPECT_TRUE(sim::g.sent.empty());
}

TEST_F(PktRecvTest, UnknownCodeIsNeitherCountedNorSent) {
    push(frame(0x42, 0, serviceName("")));
    pppoeplusPktRecv();
    EXPECT_EQ(Counters{}, counters(client));
    EXPECT_TRUE(sim::g.sent.empty());
}

// ---- policies at both levels ----------------------------------------------------------------------

TEST_F(PktRecvTest, InterfacePolicyOverridesTheGlobalOne) {
    const Bytes tagged = frame(PPPOEPLUS_CODE_PADI, 0, cat({vsTag(9, {{1, "c"}}), serviceName("")}));
    const Bytes kept = tagged;
    const Bytes dropped = frame(PPPOEPLUS_CODE_PADI, 0, serviceName(""));
    const Bytes replaced = frame(PPPOEPLUS_CODE_PADI, 0, cat({serviceName(""), agentTag()}));
    auto outcome = [&](uint32_t policy) -> const Bytes* {
        switch (policy) {
            case 1: return &kept;
            case 2: return &dropped;
            case 3: return &replaced;
            default: return nullptr;
        }
    };
    for (uint32_t global = 0; global <= 3; global++) {
        for (uint32_t local = 0; local <= 3; local++) {
            SCOPED_TRACE("global " + std::to_string(global) + ", interface " + std::to_string(local));
            pppoeplusPolicySet(global);
            pppoeplusIfPolicySet(client, local);
            sim::g.sent.clear();
            push(tagged);
            pppoeplusPktRecv();
            const Bytes* expected = outcome(local != 0 ? local : global);
            if (expected == nullptr) {
                EXPECT_TRUE(sim::g.sent.empty());
            } else {
                expectSentEverywhere(*expected);
            }
        }
    }
}

TEST_F(PktRecvTest, ReplaceClearsWhatFollowedThePayload) {
    pppoeplusPolicySet(PPPOEPLUS_POLICY_REPLACE);
    Bytes in = frame(PPPOEPLUS_CODE_PADI, 0, cat({vsTag(9, {{1, "client"}}), serviceName("isp")}));
    in.resize(60, 0x5A);  // padding behind the payload
    push(in);
    pppoeplusPktRecv();
    // The tag is dropped (16 bytes), the rest cleared, the agent's tag
    // appended at the end of the payload.
    Bytes out = frame(PPPOEPLUS_CODE_PADI, 0, cat({serviceName("isp"), agentTag()}));
    out.resize(60 - 16 + agentTag().size(), 0x00);
    expectSentEverywhere(out);
}

TEST_F(PktRecvTest, DropKeepsWhatFollowedThePayload) {
    pppoeplusPolicySet(PPPOEPLUS_POLICY_DROP);
    Bytes in = frame(PPPOEPLUS_CODE_PADI, 0, cat({vsTag(9, {{1, "client"}}), serviceName("isp")}));
    in.resize(60, 0x5A);
    push(in);
    pppoeplusPktRecv();
    Bytes out = frame(PPPOEPLUS_CODE_PADI, 0, serviceName("isp"));
    out.resize(60 - 16, 0x5A);
    expectSentEverywhere(out);
}

TEST_F(PktRecvTest, FrameThatCannotTakeTheTagIsNotSent) {
    // 1390 bytes; the agent's tag is 43 bytes.
    push(frame(PPPOEPLUS_CODE_PADI, 0, tag(0x0101, Bytes(1380, 'x'))));
    push(frame(PPPOEPLUS_CODE_PADR, 0, tag(0x0101, Bytes(1380, 'x'))));
    push(frame(PPPOEPLUS_CODE_PADT, 1, tag(0x0101, Bytes(1380, 'x'))));
    pppoeplusPktRecv();
    pppoeplusPktRecv();
    pppoeplusPktRecv();
    EXPECT_TRUE(sim::g.sent.empty());
    Counters c{};
    c.padiRcv = c.padrRcv = c.padtRcv = 1;
    EXPECT_EQ(c, counters(client));
    EXPECT_EQ(Counters{}, counters(up1));
}

TEST_F(PktRecvTest, ReplaceThatCannotInsertIsNotSent) {
    pppoeplusPolicySet(PPPOEPLUS_POLICY_REPLACE);
    // 1395 bytes with a 5-byte client tag: 1390 after the drop, 1433 with
    // the agent's tag.
    push(frame(PPPOEPLUS_CODE_PADI, 0, cat({tag(0x0105, {0}), tag(0x0101, Bytes(1380, 'x'))})));
    pppoeplusPktRecv();
    EXPECT_TRUE(sim::g.sent.empty());
    EXPECT_EQ(only(&Counters::padiRcv), counters(client));
}

TEST_F(PktRecvTest, FailedDropIsNotSent) {
    pppoeplusPolicySet(PPPOEPLUS_POLICY_DROP);
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, vsTag(1, {{1, "c"}})), client);
    ASSERT_EQ(0, pppoeplusPktParse(client, &f.pkt));
    f.buf[f.offsetOf(f.pkt.vsTag) + 3] = 99;  // the tag no longer fits
    pppoeplusClientPktRecv(client, &f.pkt);
    EXPECT_TRUE(sim::g.sent.empty());
    pppoeplusPolicySet(PPPOEPLUS_POLICY_REPLACE);
    pppoeplusClientPktRecv(client, &f.pkt);
    EXPECT_TRUE(sim::g.sent.empty());
}

// ---- the send: address, send information, flags --------------------------------------------------

TEST_F(PktRecvTest, SendAddressAndInformationWithBothVlans) {
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}), 1, rxInfo(kClient, kBroadcast, 100, 200, 5, 3));
    pppoeplusPktRecv();
    ASSERT_EQ(2u, sim::g.sent.size());
    for (size_t i = 0; i < 2; i++) {
        const sim::Sent& s = sim::g.sent[i];
        EXPECT_EQ(gPppoeplus.pktFd, s.fd);
        EXPECT_EQ(0x20000, s.flags);
        ASSERT_TRUE(s.hasAddr);
        EXPECT_EQ(17, s.addr.sll_family);
        const auto* proto = reinterpret_cast<const uint8_t*>(&s.addr.sll_protocol);
        EXPECT_EQ(0x88, proto[0]);
        EXPECT_EQ(0x63, proto[1]);
        EXPECT_EQ(i == 0 ? 10 : 11, s.addr.sll_ifindex);
        EXPECT_EQ(0, s.addr.sll_hatype);
        EXPECT_EQ(0, s.addr.sll_pkttype);
        EXPECT_EQ(6, s.addr.sll_halen);
        EXPECT_EQ(kBroadcast, Bytes(s.addr.sll_addr, s.addr.sll_addr + 6));
        EXPECT_EQ(0, s.addr.sll_addr[6]);
        EXPECT_EQ(0, s.addr.sll_addr[7]);

        // One control message: 12-byte header, 104 bytes of data.
        ASSERT_EQ(116u, s.control.size());
        EXPECT_EQ(116u, get32(s.control, 0));
        EXPECT_EQ(263u, get32(s.control, 4));
        EXPECT_EQ(21u, get32(s.control, 8));
        const zel_pkt_txinfo tx = txInfoOf(s);
        EXPECT_EQ(0x1u | 0x8u | 0x10u | 0x20u | 0x100u | 0x200u, tx.flags);
        EXPECT_EQ(100, tx.outerVid);
        EXPECT_EQ(200, tx.innerVid);
        EXPECT_EQ(5, tx.outerPri);
        EXPECT_EQ(3, tx.innerPri);
        EXPECT_EQ(0u, tx.queue);
        EXPECT_EQ(kClient, Bytes(tx.srcMac, tx.srcMac + 6));
        // Nothing else is set.
        EXPECT_EQ(Bytes(2, 0), Bytes(s.control.begin() + 12 + 10, s.control.begin() + 12 + 12));
        EXPECT_EQ(Bytes(4, 0), Bytes(s.control.begin() + 12 + 16, s.control.begin() + 12 + 20));
        EXPECT_EQ(Bytes(78, 0), Bytes(s.control.begin() + 12 + 26, s.control.end()));
    }
}

TEST_F(PktRecvTest, OuterVlanOnlyLeavesTheInnerMembersUnset) {
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}), 1, rxInfo(kClient, kBroadcast, 300, 0, 6, 2));
    pppoeplusPktRecv();
    ASSERT_EQ(2u, sim::g.sent.size());
    for (const sim::Sent& s : sim::g.sent) {
        const zel_pkt_txinfo tx = txInfoOf(s);
        EXPECT_EQ(0x1u | 0x8u | 0x10u | 0x100u, tx.flags);
        EXPECT_EQ(300, tx.outerVid);
        EXPECT_EQ(6, tx.outerPri);
        EXPECT_EQ(0, tx.innerVid);
        EXPECT_EQ(0, tx.innerPri) << "the received priority is not passed without its VLAN id";
    }
}

TEST_F(PktRecvTest, InnerVlanOnlyAndNoVlan) {
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}), 1, rxInfo(kClient, kBroadcast, 0, 42, 7, 1));
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}), 1, rxInfo(kClient, kBroadcast, 0, 0, 7, 1));
    pppoeplusPktRecv();
    pppoeplusPktRecv();
    ASSERT_EQ(4u, sim::g.sent.size());
    zel_pkt_txinfo inner = txInfoOf(sim::g.sent[1]);
    EXPECT_EQ(0x1u | 0x8u | 0x20u | 0x200u, inner.flags);
    EXPECT_EQ(42, inner.innerVid);
    EXPECT_EQ(1, inner.innerPri);
    EXPECT_EQ(0, inner.outerVid);
    EXPECT_EQ(0, inner.outerPri);
    zel_pkt_txinfo none = txInfoOf(sim::g.sent[3]);
    EXPECT_EQ(0x1u | 0x8u, none.flags);
    EXPECT_EQ(0, none.outerVid);
    EXPECT_EQ(0, none.innerVid);
}

TEST_F(PktRecvTest, ReceiveInformationIsReadAtItsBytePositions) {
    // The record laid out byte by byte, host order.
    uint8_t raw[64] = {};
    const uint8_t src[6] = {0x02, 0x00, 0x00, 0x00, 0x00, 0x07};
    const uint8_t dst[6] = {0x02, 0x00, 0x00, 0x00, 0x00, 0x09};
    std::memcpy(raw + 4, src, 6);
    const uint16_t outer = 0x0123;
    const uint16_t inner = 0x0456;
    std::memcpy(raw + 12, &outer, 2);
    std::memcpy(raw + 14, &inner, 2);
    raw[17] = 4;  // outer priority
    raw[18] = 6;  // inner priority
    std::memcpy(raw + 56, dst, 6);
    zel_pkt_rxinfo info;
    std::memcpy(&info, raw, sizeof(info));
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}), 1, info);
    pppoeplusPktRecv();
    ASSERT_EQ(2u, sim::g.sent.size());
    const sim::Sent& s = sim::g.sent[0];
    EXPECT_EQ(Bytes(dst, dst + 6), Bytes(s.addr.sll_addr, s.addr.sll_addr + 6));
    const zel_pkt_txinfo tx = txInfoOf(s);
    EXPECT_EQ(Bytes(src, src + 6), Bytes(tx.srcMac, tx.srcMac + 6));
    EXPECT_EQ(0x0123, tx.outerVid);
    EXPECT_EQ(0x0456, tx.innerVid);
    EXPECT_EQ(4, tx.outerPri);
    EXPECT_EQ(6, tx.innerPri);
    EXPECT_EQ(frame(PPPOEPLUS_CODE_PADI, 0, agentTag(0x0123, 0x0456)), s.bytes);
}

TEST_F(PktRecvTest, WithoutTrustedInterfacesTheFrameGoesNowhere) {
    pppoeplusIfTrustSet(up1, ZEL_FALSE);
    pppoeplusTrustIfEntryDetach(up1);
    pppoeplusIfTrustSet(up2, ZEL_FALSE);
    pppoeplusTrustIfEntryDetach(up2);
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}));
    pppoeplusPktRecv();
    EXPECT_TRUE(sim::g.sent.empty());
    EXPECT_EQ(only(&Counters::padiRcv), counters(client));
}

TEST_F(PktRecvTest, SendSkipsTheReceivingInterface) {
    FrameBuf f(frame(PPPOEPLUS_CODE_PADT, 1, {}), up1);
    pppoeplusSend(up1, &f.pkt);
    EXPECT_EQ((std::vector<int32_t>{11}), sentTo());
    EXPECT_EQ(0u, up1->totalSend);
    EXPECT_EQ(1u, up2->totalSend);
    pppoeplusSend(nullptr, &f.pkt);
    pppoeplusSend(up1, nullptr);
    EXPECT_EQ(1u, sim::g.sent.size());
}

TEST_F(PktRecvTest, UplinksInAscendingUnitOrder) {
    tPppoePlusIfEntry* up0 = addPort(5, "eth0/5");
    trust(up0);
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}));
    pppoeplusPktRecv();
    EXPECT_EQ((std::vector<int32_t>{5, 10, 11}), sentTo());
}

TEST_F(PktRecvTest, FailedSendOnOneUplinkDoesNotStopTheOthers) {
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_ERROR);
    sim::failWhen("zel_sendmsg(3,10)", -1, 1, 105);
    ASSERT_EQ(3, gPppoeplus.pktFd);
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}));
    pppoeplusPktRecv();
    EXPECT_EQ((std::vector<int32_t>{11}), sentTo());
    Counters failed{};
    failed.totalSend = 1;
    failed.errorSend = 1;
    EXPECT_EQ(failed, counters(up1));
    EXPECT_EQ(only(&Counters::totalSend), counters(up2));
    EXPECT_EQ("Failed to send packet, errno 105!\r\n", logsOf(kErrorModule).back());
    EXPECT_EQ(2u, logsOf(kErrorModule).size()) << "behind the parser's summary line";
    EXPECT_EQ(gPppoeplus.logLevel[4], sim::g.logs.back().level);
}

// ---- the gate and the receive itself ---------------------------------------------------------------

TEST_F(PktRecvTest, DisabledIgnoredOrTrustedInterfacesAreNotServed) {
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_ERROR);
    pppoeplusIfEnableSet(client, ZEL_FALSE);
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}));
    pppoeplusPktRecv();
    pppoeplusIfEnableSet(client, ZEL_TRUE);
    pppoeplusIfIgnorePktSet(client, ZEL_TRUE);
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}));
    pppoeplusPktRecv();
    pppoeplusIfIgnorePktSet(client, 0);
    pppoeplusIfEnableSet(client, 0);  // "not set" is not enabled either
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}));
    pppoeplusPktRecv();
    pppoeplusIfEnableSet(client, ZEL_TRUE);
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}), 10);  // an uplink
    pppoeplusPktRecv();

    EXPECT_TRUE(sim::g.sent.empty());
    EXPECT_EQ(Counters{}, counters(client));
    EXPECT_EQ(Counters{}, counters(up1));
    ASSERT_EQ(4u, sim::g.logs.size());
    for (const sim::LogRecord& r : sim::g.logs) {
        EXPECT_EQ(0x45D0000u, r.module);
        EXPECT_EQ(gPppoeplus.logLevel[0], r.level);
        EXPECT_EQ("Received packet from unknown interface!\r\n", r.text);
    }

    // Ignore "false" and trust "not set" serve the frame.
    pppoeplusIfIgnorePktSet(client, ZEL_FALSE);
    pppoeplusIfTrustSet(client, 0);
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}));
    pppoeplusPktRecv();
    EXPECT_EQ(2u, sim::g.sent.size());
}

TEST_F(PktRecvTest, UnitsWithoutAnEntryEndSilently) {
    pppoeplusDebugSwitchSet(0xF);
    sim::addInterface(77, "eth0/77", ZEL_OND_ETH);
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}), 77);
    pppoeplusPktRecv();
    EXPECT_TRUE(sim::g.sent.empty());
    EXPECT_TRUE(logsOf(kErrorModule).empty());
    for (const std::string& t : logsOf(kRecvModule)) EXPECT_EQ(std::string::npos, t.find("unknown interface"));
}

TEST_F(PktRecvTest, NothingHappensWithoutReceiveInformation) {
    pppoeplusDebugSwitchSet(0xF);
    sim::Frame f{};
    f.bytes = frame(PPPOEPLUS_CODE_PADI, 0, {});
    f.ifUnit = 1;
    f.withInfo = false;
    sim::pushFrame(gPppoeplus.pktFd, f);
    pppoeplusPktRecv();
    EXPECT_TRUE(sim::g.sent.empty());
    EXPECT_TRUE(sim::g.logs.empty());
    EXPECT_EQ(Counters{}, counters(client));
}

TEST_F(PktRecvTest, FailedReceiveEndsSilently) {
    pppoeplusDebugSwitchSet(0xF);
    pppoeplusPktRecv();  // nothing queued
    sim::failWhen("zel_recvmsg(3)", -1);
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}));
    pppoeplusPktRecv();
    EXPECT_TRUE(sim::g.sent.empty());
    EXPECT_TRUE(sim::g.logs.empty());
    EXPECT_EQ((std::vector<std::string>{"zel_recvmsg(3)", "zel_recvmsg(3)"}), sim::callsStartingWith("zel_recvmsg"));
}

// Control information as the platform could lay it out.
Bytes cmsg(int32_t level, int32_t type, const Bytes& data, uint32_t lenField = 0) {
    Bytes b(12, 0);
    uint32_t len = lenField != 0 ? lenField : static_cast<uint32_t>(12 + data.size());
    std::memcpy(b.data(), &len, 4);
    std::memcpy(b.data() + 4, &level, 4);
    std::memcpy(b.data() + 8, &type, 4);
    b.insert(b.end(), data.begin(), data.end());
    while (b.size() % 4 != 0) b.push_back(0);
    return b;
}

Bytes infoBytes(const zel_pkt_rxinfo& info) {
    const auto* p = reinterpret_cast<const uint8_t*>(&info);
    return Bytes(p, p + sizeof(info));
}

TEST_F(PktRecvTest, ReceiveInformationIsFoundBehindOtherControlMessages) {
    sim::Frame f{};
    f.bytes = frame(PPPOEPLUS_CODE_PADI, 0, {});
    f.ifUnit = 1;
    f.rawControl = cat({cmsg(1, 29, {1, 2, 3, 4, 5}), cmsg(263, 8, Bytes(8, 0xAA)),
                        cmsg(263, 20, infoBytes(rxInfo(kClient, kBroadcast, 100, 200, 5, 3)))});
    sim::pushFrame(gPppoeplus.pktFd, f);
    pppoeplusPktRecv();
    expectSentEverywhere(frame(PPPOEPLUS_CODE_PADI, 0, agentTag()));
}

TEST_F(PktRecvTest, MalformedControlInformationIsPassedOver) {
    const zel_pkt_rxinfo info = rxInfo(kClient, kBroadcast, 100, 200, 5, 3);
    const std::vector<Bytes> controls = {
        Bytes(11, 0),                                        // shorter than a header
        cmsg(1, 2, Bytes(4, 0), 3),                          // a length below the header's
        cmsg(1, 2, Bytes(4, 0), 200),                        // a length past the buffer
        cat({cmsg(1, 2, Bytes(100, 0)), Bytes(8, 0)}),       // no room for the next header
        cmsg(263, 21, infoBytes(info)),                      // the wrong type
    };
    for (const Bytes& c : controls) {
        sim::Frame f{};
        f.bytes = frame(PPPOEPLUS_CODE_PADI, 0, {});
        f.ifUnit = 1;
        f.rawControl = c;
        sim::pushFrame(gPppoeplus.pktFd, f);
        pppoeplusPktRecv();
    }
    EXPECT_TRUE(sim::g.sent.empty());
    EXPECT_EQ(Counters{}, counters(client));

    // A record cut short by the end of the control buffer reads zeros
    // behind it: the frame is served without addresses.
    Bytes cut = cat({cmsg(1, 2, Bytes(68, 0)), cmsg(263, 20, Bytes(36, 0), 76)});
    ASSERT_EQ(128u, cut.size());
    std::memcpy(cut.data() + 80 + 12 + 4, kClient.data(), 6);
    sim::Frame f{};
    f.bytes = frame(PPPOEPLUS_CODE_PADI, 0, {});
    f.ifUnit = 1;
    f.rawControl = cut;
    sim::pushFrame(gPppoeplus.pktFd, f);
    pppoeplusPktRecv();
    ASSERT_EQ(2u, sim::g.sent.size());
    const zel_pkt_txinfo tx = txInfoOf(sim::g.sent[0]);
    EXPECT_EQ(kClient, Bytes(tx.srcMac, tx.srcMac + 6));
    EXPECT_EQ(Bytes(6, 0), Bytes(sim::g.sent[0].addr.sll_addr, sim::g.sent[0].addr.sll_addr + 6));
}

TEST_F(PktRecvTest, OneFramePerCall) {
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}));
    push(frame(PPPOEPLUS_CODE_PADR, 0, {}));
    pppoeplusPktRecv();
    EXPECT_EQ(2u, sim::g.sent.size());
    EXPECT_EQ(1u, sim::g.sockets[gPppoeplus.pktFd].frames.size());
    pppoeplusPktRecv();
    EXPECT_EQ(4u, sim::g.sent.size());
}

TEST_F(PktRecvTest, FramesLongerThanTheBufferAreCutTo1400Bytes) {
    Bytes big = frame(PPPOEPLUS_CODE_PADI, 0, tag(0x0101, Bytes(1390, 'x')));  // 1400 + 6
    ASSERT_EQ(1400u, big.size());
    big.resize(1500, 0x11);
    push(big);
    pppoeplusPktRecv();
    EXPECT_TRUE(sim::g.sent.empty()) << "no room for a tag";
    EXPECT_EQ(only(&Counters::padiRcv), counters(client));
}

TEST_F(PktRecvTest, ServedThroughTheMainLoop) {
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}));
    pppoeplusMainLoopPass(std::max(gPppoeplus.pktFd, gPppoeplus.rtSockFd));
    EXPECT_EQ(2u, sim::g.sent.size());
    EXPECT_EQ(1u, client->padiRcv);
}

// ---- the test-forward switch -----------------------------------------------------------------------

TEST_F(PktRecvTest, TestForwardSendsEveryGatedFrameUnchanged) {
    gPppoeplusTestForward = 1;
    const Bytes malformed = {0x42, 0x99, 0xFF, 0xFF, 0x10, 0x00, 0x01};
    push(malformed);
    pppoeplusPktRecv();
    expectSentEverywhere(malformed);
    EXPECT_EQ(Counters{}, counters(client)) << "no counter of the receiving interface moves";
    EXPECT_EQ(only(&Counters::totalSend), counters(up1));

    // The gate still holds.
    sim::g.sent.clear();
    pppoeplusIfEnableSet(client, ZEL_FALSE);
    push(malformed);
    pppoeplusPktRecv();
    EXPECT_TRUE(sim::g.sent.empty());

    // A PADI is not tagged.
    pppoeplusIfEnableSet(client, ZEL_TRUE);
    gPppoeplusTestForward = 0x80000000u;
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}), 1, rxInfo(kClient, kBroadcast, 7, 0, 1, 0));
    pppoeplusPktRecv();
    expectSentEverywhere(frame(PPPOEPLUS_CODE_PADI, 0, {}));
    EXPECT_EQ(7, txInfoOf(sim::g.sent[0]).outerVid);
    EXPECT_EQ(0u, client->padiRcv);
}

TEST(PktRecvGlobals, TestForwardStartsAtZero) { EXPECT_EQ(0u, gPppoeplusTestForward); }

// ---- ONU identity and the PON line id --------------------------------------------------------------

class PktRecvPonTest : public PktRecvTest {
  protected:
    void SetUp() override {
        PktRecvTest::SetUp();
        sim::Interface& itf = sim::addInterface(3, "gpon0/3", ZEL_OND_GPON, ZEL_IFTYPE_GPON);
        itf.phyInfo.slotNo = 2;
        itf.phyInfo.portNo = 5;
        pon = pppoeplusIfEntryAdd(3, 1);
        ASSERT_NE(nullptr, pon);
        sim::g.sent.clear();
    }

    // The agent's tag on the PON port: the OLT line id as Circuit-ID only.
    Bytes ponTag(const std::string& circuitId) {
        Bytes b = {0x01, 0x05};
        put16(b, static_cast<uint16_t>(6 + circuitId.size()));
        put32(b, gPppoeplus.vendorId);
        b.push_back(1);
        b.push_back(static_cast<uint8_t>(circuitId.size()));
        return cat({b, str(circuitId)});
    }

    tPppoePlusIfEntry* pon = nullptr;
};

TEST_F(PktRecvPonTest, OnuNumberComesFromTheIdentityBlock) {
    zel_pkt_rxinfo info = rxInfo(kClient, kBroadcast, 100, 0, 0, 0);
    rxInfoOnu(info, 7, str("WUPO1234"), 8);
    push(frame(PPPOEPLUS_CODE_PADI, 0, {}), 3, info);
    pppoeplusPktRecv();
    expectSentEverywhere(frame(PPPOEPLUS_CODE_PADI, 0, ponTag("0 0/0/0:0.0 00:AA:BB:CC:DD:EE/0/0/2/0/5/7 GP")));
}

TEST_F(PktRecvPonTest, IdentityBlockNeedsBothPresenceAndValidity) {
    zel_pkt_rxinfo noFlag = rxInfo(kClient, kBroadcast);
    rxInfoOnu(noFlag, 7, {}, 0);
    noFlag.flags = 0;
    zel_pkt_rxinfo notPresent = rxInfo(kClient, kBroadcast);
    rxInfoOnu(notPresent, 7, {}, 0);
    notPresent.onuPresent = 0;
    for (const zel_pkt_rxinfo& info : {noFlag, notPresent}) {
        sim::g.sent.clear();
        push(frame(PPPOEPLUS_CODE_PADI, 0, {}), 3, info);
        pppoeplusPktRecv();
        expectSentEverywhere(frame(PPPOEPLUS_CODE_PADI, 0, ponTag("0 0/0/0:0.0 00:AA:BB:CC:DD:EE/0/0/2/0/5/0 GP")));
    }
}

TEST_F(PktRecvPonTest, OltRepeatsTheLineIdOfTheOnusOwnCircuitId) {
    pppoeplusPolicySet(PPPOEPLUS_POLICY_REPLACE);
    zel_pkt_rxinfo info = rxInfo(kClient, kBroadcast, 100, 0, 0, 0);
    rxInfoOnu(info, 12, str("WUPO1234"), 8);
    push(frame(PPPOEPLUS_CODE_PADI, 0, cat({serviceName(""), vsTag(0x0DE9, {{1, "onu 0/1/2:eth 1"}}), eol()})), 3,
         info);
    pppoeplusPktRecv();
    expectSentEverywhere(frame(
        PPPOEPLUS_CODE_PADI, 0,
        cat({serviceName(""), ponTag("0 0/0/0:0.0 00:AA:BB:CC:DD:EE/0/0/2/0/5/12 0/1/2:eth GP"), eol()})));
}

// ---- traces and dumps ---------------------------------------------------------------------------------

TEST_F(PktRecvTest, TracesOfAClientFrame) {
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT);
    const Bytes in = frame(PPPOEPLUS_CODE_PADI, 0, serviceName(""));
    push(in);
    pppoeplusPktRecv();
    const size_t outLen = in.size() + agentTag().size();
    EXPECT_EQ((std::vector<std::string>{
                  "Received a packet on interface eth0/1, length 10.\r\n",
                  "Packet source 00:0c:29:aa:bb:01, destination ff:ff:ff:ff:ff:ff, innerVid 200, outerVid 100, "
                  "innerPri 3, outerPri 5.\r\n",
                  "Received a PADI packet.\r\n",
                  "Vendor-Specific Tag is not exist, insert it to the packet.\r\n",
                  "End-Of-List Tag is not exist, insert the tag to the end of the packet.\r\n",
              }),
              logsOf(kRecvModule));
    EXPECT_EQ((std::vector<std::string>{
                  "Send packet to ff:ff:ff:ff:ff:ff, length " + std::to_string(outLen) +
                      ", innerVid 200, outerVid 100, innerPri 3, outerPri 5.\r\n",
                  "Send packet on interface eth0/10.\r\n",
                  "Send packet on interface eth0/11.\r\n",
              }),
              logsOf(kSendModule));
    for (const sim::LogRecord& r : sim::g.logs) {
        EXPECT_EQ(gPppoeplus.logLevel[r.module - 0x45D0000], r.level);
        EXPECT_EQ(0u, r.part);
    }
    EXPECT_EQ(logsOf(kRecvModule).size() + logsOf(kSendModule).size(), sim::g.logs.size());
}

TEST_F(PktRecvTest, TracesOfEveryPolicy) {
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT);
    const Bytes in = frame(PPPOEPLUS_CODE_PADR, 0, vsTag(1, {{1, "c"}}));
    const std::vector<std::pair<uint32_t, std::vector<std::string>>> cases = {
        {1, {"Keep the Vendor-Specific Tag.\r\n"}},
        {2, {"Drop the Vendor-Specific Tag.\r\n"}},
        {3,
         {"Replace the Vendor-Specific Tag.\r\n",
          "End-Of-List Tag is not exist, insert the tag to the end of the packet.\r\n"}},
        {0, {}},
    };
    for (const auto& [policy, texts] : cases) {
        pppoeplusPolicySet(policy);
        sim::g.logs.clear();
        push(in);
        pppoeplusPktRecv();
        std::vector<std::string> recv = logsOf(kRecvModule);
        ASSERT_GE(recv.size(), 4u);
        EXPECT_EQ("Vendor-Specific Tag is already in the packet.\r\n", recv[3]);
        EXPECT_EQ(texts, std::vector<std::string>(recv.begin() + 4, recv.end())) << policy;
        EXPECT_EQ(policy == 0 ? 0u : 3u, logsOf(kSendModule).size());
    }
}

TEST_F(PktRecvTest, DumpsOfReceivedAndSentFrames) {
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_PKT_DUMP);
    const Bytes in = frame(PPPOEPLUS_CODE_PADI, 0, {});
    push(in);
    pppoeplusPktRecv();
    const size_t outLen = in.size() + agentTag().size();
    // One block for the received frame, one for the sent one.
    ASSERT_EQ((in.size() + 2) + (outLen + 2), sim::g.logs.size());
    EXPECT_EQ(0x45D0000u, sim::g.logs[0].module);
    EXPECT_EQ(LOG_PART_FIRST, sim::g.logs[0].part);
    EXPECT_EQ("11 ", sim::g.logs[1].text);
    EXPECT_EQ(LOG_PART_LAST, sim::g.logs[in.size() + 1].part);
    EXPECT_EQ(0x45D0001u, sim::g.logs[in.size() + 2].module);
    EXPECT_EQ(LOG_PART_FIRST, sim::g.logs[in.size() + 2].part);
    EXPECT_EQ(LOG_PART_LAST, sim::g.logs.back().part);
}

TEST_F(PktRecvTest, ParseMessagesOnTheReceivePath) {
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_ERROR);
    push(frame(PPPOEPLUS_CODE_PADI, 1, {}));
    pppoeplusPktRecv();
    EXPECT_EQ((std::vector<std::string>{"Packet length 6, version&Type 0x11, Payload length 0, Session-ID 1.\r\n",
                                        "Session-id must be zero in PADI, PADO and PADR!\r\n"}),
              logsOf(kErrorModule));
    EXPECT_EQ(1u, client->errorRcv);
}

// ---- real frames ----------------------------------------------------------------------------------------

TEST_F(PktRecvTest, RealClientFramesAreTaggedAtTheEnd) {
    for (auto f : {realcap::kAll[0], realcap::kAll[2], realcap::kAll[5], realcap::kAll[7]}) {
        sim::g.sent.clear();
        push(realcap::pppoe(f), 1, rxInfo(realcap::srcMac(f), realcap::dstMac(f)));
        pppoeplusPktRecv();
        Bytes out = cat({realcap::pppoe(f), agentTag(0, 0)});
        out[4] = static_cast<uint8_t>((out.size() - 6) >> 8);
        out[5] = static_cast<uint8_t>(out.size() - 6);
        expectSentEverywhere(out);
        for (const sim::Sent& s : sim::g.sent) {
            EXPECT_EQ(realcap::dstMac(f), Bytes(s.addr.sll_addr, s.addr.sll_addr + 6));
            const zel_pkt_txinfo tx = txInfoOf(s);
            EXPECT_EQ(Bytes(realcap::kClientMac, realcap::kClientMac + 6), Bytes(tx.srcMac, tx.srcMac + 6));
            EXPECT_EQ(0x9u, tx.flags);
        }
    }
    Counters c{};
    c.padiRcv = 2;
    c.padrRcv = 2;
    EXPECT_EQ(c, counters(client));
}

TEST_F(PktRecvTest, RealServerFramesOnAClientPortAreCountedPadtIsTagged) {
    for (size_t i : {1u, 3u, 4u, 6u, 8u, 9u}) {
        const auto f = realcap::kAll[i];
        push(realcap::pppoe(f), 1, rxInfo(realcap::srcMac(f), realcap::dstMac(f)));
        pppoeplusPktRecv();
    }
    Counters c{};
    c.padoRcv = 2;
    c.padsRcv = 2;
    c.padtRcv = 2;
    EXPECT_EQ(c, counters(client));
    ASSERT_EQ(4u, sim::g.sent.size()) << "the two PADTs, on two uplinks";
    Bytes padt = cat({realcap::pppoe(realcap::kRealPadt), agentTag(0, 0)});
    padt[5] = static_cast<uint8_t>(padt.size() - 6);
    EXPECT_EQ(padt, sim::g.sent[0].bytes);
}

}  // namespace
