// The packet socket's pure pieces: the kernel filter (run here by a small
// interpreter of the instructions it uses), the receive record and the send
// header.
#include <gtest/gtest.h>
#include <linux/if_packet.h>

#include <cstring>
#include <vector>

#include "platform/linux/pkt.h"

namespace {

using namespace linuxplat;

// Runs a classic BPF program over `frame`, as the kernel would with the
// packet type `pktType`. Returns the accepted length (0: dropped).
uint32_t runFilter(const std::vector<struct sock_filter>& prog, const std::vector<uint8_t>& frame, uint32_t pktType) {
    uint32_t a = 0;
    for (size_t pc = 0; pc < prog.size(); pc++) {
        const struct sock_filter& in = prog[pc];
        switch (in.code) {
            case BPF_LD | BPF_W | BPF_ABS:
                if (in.k == static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE)) a = pktType;
                else if (in.k + 4 > frame.size()) return 0;
                else a = (uint32_t(frame[in.k]) << 24) | (frame[in.k + 1] << 16) | (frame[in.k + 2] << 8) | frame[in.k + 3];
                break;
            case BPF_LD | BPF_H | BPF_ABS:
                if (in.k + 2 > frame.size()) return 0;  // the kernel drops a frame read past its end
                a = (uint32_t(frame[in.k]) << 8) | frame[in.k + 1];
                break;
            case BPF_JMP | BPF_JEQ | BPF_K:
                pc += a == in.k ? in.jt : in.jf;
                break;
            case BPF_RET | BPF_K:
                return in.k;
            default:
                ADD_FAILURE() << "instruction the interpreter does not know: " << in.code;
                return 0;
        }
        if (pc >= prog.size()) ADD_FAILURE() << "jump out of the program";
    }
    ADD_FAILURE() << "fell off the end of the program";
    return 0;
}

std::vector<uint8_t> frame(std::vector<std::pair<uint16_t, uint16_t>> tags, uint16_t type, size_t payload = 20) {
    std::vector<uint8_t> f = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x02, 0, 0, 0, 0, 1};
    for (auto [tpid, tci] : tags) {
        f.push_back(tpid >> 8);
        f.push_back(tpid & 0xff);
        f.push_back(tci >> 8);
        f.push_back(tci & 0xff);
    }
    f.push_back(type >> 8);
    f.push_back(type & 0xff);
    const uint8_t padi[] = {0x11, 0x09, 0x00, 0x00, 0x00, 0x04, 0x01, 0x01, 0x00, 0x00};
    f.insert(f.end(), padi, padi + sizeof(padi));
    f.resize(f.size() + payload, 0);
    return f;
}

TEST(PktFilter, KeepsDiscoveryFramesBehindZeroOneOrTwoTags) {
    auto prog = pktFilterProgram();
    ASSERT_LE(prog.size(), 64u);
    EXPECT_NE(0u, runFilter(prog, frame({}, 0x8863), PACKET_HOST));
    EXPECT_NE(0u, runFilter(prog, frame({}, 0x8863), PACKET_BROADCAST));
    EXPECT_NE(0u, runFilter(prog, frame({{0x8100, 10}}, 0x8863), PACKET_BROADCAST));
    EXPECT_NE(0u, runFilter(prog, frame({{0x88a8, 10}}, 0x8863), PACKET_BROADCAST));
    EXPECT_NE(0u, runFilter(prog, frame({{0x9100, 10}}, 0x8863), PACKET_BROADCAST));
    EXPECT_NE(0u, runFilter(prog, frame({{0x88a8, 20}, {0x8100, 10}}, 0x8863), PACKET_BROADCAST));
    EXPECT_NE(0u, runFilter(prog, frame({{0x8100, 20}, {0x8100, 10}}, 0x8863), PACKET_OTHERHOST));
}

TEST(PktFilter, DropsEverythingElse) {
    auto prog = pktFilterProgram();
    EXPECT_EQ(0u, runFilter(prog, frame({}, 0x8863), PACKET_OUTGOING));
    EXPECT_EQ(0u, runFilter(prog, frame({}, 0x8864), PACKET_HOST));  // session frames
    EXPECT_EQ(0u, runFilter(prog, frame({}, 0x0800), PACKET_HOST));
    EXPECT_EQ(0u, runFilter(prog, frame({{0x8100, 10}}, 0x0806), PACKET_HOST));
    EXPECT_EQ(0u, runFilter(prog, frame({{0x8100, 1}, {0x8100, 2}, {0x8100, 3}}, 0x8863), PACKET_HOST));
    EXPECT_EQ(0u, runFilter(prog, frame({{0x8100, 1}, {0x8100, 2}}, 0x0800), PACKET_HOST));
    EXPECT_EQ(0u, runFilter(prog, std::vector<uint8_t>(13, 0), PACKET_HOST));  // too short for a type
}

TEST(PktParseRx, UntaggedFrame) {
    auto f = frame({}, 0x8863);
    RxFrame rx;
    ASSERT_TRUE(pktParseRx(f.data(), f.size(), AuxTag{}, rx));
    EXPECT_EQ(14u, rx.payloadOffset);
    EXPECT_EQ(0, rx.vlanCount);
    EXPECT_EQ(0, rx.outerVid);
    const uint8_t src[6] = {0x02, 0, 0, 0, 0, 1};
    EXPECT_EQ(0, std::memcmp(src, rx.src, 6));
    EXPECT_EQ(0xff, rx.dst[0]);

    zel_pkt_rxinfo info;
    pktFillRxInfo(rx, 7, info);
    EXPECT_EQ(7u, info.ifUnit);
    EXPECT_EQ(0, std::memcmp(src, info.srcMac, 6));
    EXPECT_EQ(0xff, info.dstMac[5]);
    EXPECT_EQ(0x8863, info.etherType);
    EXPECT_EQ(0u, info.flags);
    EXPECT_EQ(0, info.onuPresent);
}

TEST(PktParseRx, OuterTagFromTheKernelInnerFromTheData) {
    // 802.1ad outer tag taken out by the driver, 802.1Q inner tag in the data.
    auto f = frame({{0x8100, (5 << 13) | 100}}, 0x8863);
    AuxTag aux{true, 0x88a8, (3 << 13) | 200};
    RxFrame rx;
    ASSERT_TRUE(pktParseRx(f.data(), f.size(), aux, rx));
    EXPECT_EQ(18u, rx.payloadOffset);
    EXPECT_EQ(2, rx.vlanCount);
    EXPECT_EQ(200, rx.outerVid);
    EXPECT_EQ(3, rx.outerPri);
    EXPECT_EQ(0x88a8, rx.outerTpid);
    EXPECT_EQ(100, rx.innerVid);
    EXPECT_EQ(5, rx.innerPri);
    EXPECT_EQ(0x8100, rx.innerTpid);

    zel_pkt_rxinfo info;
    pktFillRxInfo(rx, 3, info);
    const auto* b = reinterpret_cast<const uint8_t*>(&info);
    uint16_t outer, inner;
    std::memcpy(&outer, b + 12, 2);
    std::memcpy(&inner, b + 14, 2);
    EXPECT_EQ(200, outer);
    EXPECT_EQ(100, inner);
    EXPECT_EQ(3, b[17]);
    EXPECT_EQ(5, b[18]);
}

TEST(PktParseRx, BothTagsInTheData) {
    auto f = frame({{0x88a8, (1 << 13) | 4000}, {0x8100, (7 << 13) | 4095}}, 0x8863);
    RxFrame rx;
    ASSERT_TRUE(pktParseRx(f.data(), f.size(), AuxTag{}, rx));
    EXPECT_EQ(22u, rx.payloadOffset);
    EXPECT_EQ(4000, rx.outerVid);
    EXPECT_EQ(1, rx.outerPri);
    EXPECT_EQ(4095, rx.innerVid);
    EXPECT_EQ(7, rx.innerPri);
}

TEST(PktParseRx, RefusesWhatIsNotADiscoveryFrame) {
    RxFrame rx;
    auto three = frame({{0x8100, 1}, {0x8100, 2}}, 0x8863);
    EXPECT_FALSE(pktParseRx(three.data(), three.size(), AuxTag{true, 0x88a8, 3}, rx));
    auto session = frame({}, 0x8864);
    EXPECT_FALSE(pktParseRx(session.data(), session.size(), AuxTag{}, rx));
    auto f = frame({{0x8100, 1}}, 0x8863);
    EXPECT_FALSE(pktParseRx(f.data(), 16, AuxTag{}, rx));  // cut inside the tag
    EXPECT_FALSE(pktParseRx(f.data(), 13, AuxTag{}, rx));
    EXPECT_FALSE(pktParseRx(nullptr, 100, AuxTag{}, rx));
}

TEST(PktTxHeader, UntaggedWithInterfaceMac) {
    const uint8_t dst[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    const uint8_t ifMac[6] = {0x02, 0xaa, 0, 0, 0, 9};
    uint8_t out[MAX_TX_HDR_LEN];
    ASSERT_EQ(14u, pktBuildTxHeader(dst, ifMac, nullptr, 0x8863, TxTpids{}, out));
    const uint8_t want[14] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x02, 0xaa, 0, 0, 0, 9, 0x88, 0x63};
    EXPECT_EQ(0, std::memcmp(want, out, 14));
}

TEST(PktTxHeader, ClientSourceAndOneTag) {
    const uint8_t dst[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    const uint8_t ifMac[6] = {};
    zel_pkt_txinfo tx;
    std::memset(&tx, 0, sizeof(tx));
    tx.flags = ZEL_TXINFO_QUEUE | ZEL_TXINFO_SRC_MAC | ZEL_TXINFO_OUTER_VID | ZEL_TXINFO_OUTER_PRI;
    tx.outerVid = 100;
    tx.outerPri = 6;
    const uint8_t client[6] = {0x02, 0, 0, 0, 0, 1};
    std::memcpy(tx.srcMac, client, 6);
    uint8_t out[MAX_TX_HDR_LEN];
    ASSERT_EQ(18u, pktBuildTxHeader(dst, ifMac, &tx, 0x8863, TxTpids{}, out));
    const uint8_t want[18] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x02, 0, 0, 0, 0, 1, 0x81, 0x00, 0xc0, 100, 0x88, 0x63};
    EXPECT_EQ(0, std::memcmp(want, out, 18));
}

TEST(PktTxHeader, TwoTagsOuter8021adInner8021Q) {
    const uint8_t dst[6] = {1, 2, 3, 4, 5, 6};
    const uint8_t ifMac[6] = {};
    zel_pkt_txinfo tx;
    std::memset(&tx, 0, sizeof(tx));
    tx.flags = ZEL_TXINFO_SRC_MAC | ZEL_TXINFO_OUTER_VID | ZEL_TXINFO_OUTER_PRI | ZEL_TXINFO_INNER_VID |
               ZEL_TXINFO_INNER_PRI;
    tx.outerVid = 0x123;
    tx.outerPri = 3;
    tx.innerVid = 0xFFF;
    tx.innerPri = 9;  // only three bits count
    uint8_t out[MAX_TX_HDR_LEN];
    ASSERT_EQ(22u, pktBuildTxHeader(dst, ifMac, &tx, 0x8863, TxTpids{}, out));
    const uint8_t tags[10] = {0x88, 0xa8, 0x61, 0x23, 0x81, 0x00, 0x2f, 0xff, 0x88, 0x63};
    EXPECT_EQ(0, std::memcmp(tags, out + 12, 10));

    TxTpids custom;
    custom.outer = 0x9100;
    custom.inner = 0x88a8;
    pktBuildTxHeader(dst, ifMac, &tx, 0x8863, custom, out);
    EXPECT_EQ(0x91, out[12]);
    EXPECT_EQ(0x88, out[16]);
    EXPECT_EQ(0xa8, out[17]);
}

TEST(PktTxHeader, VlanIdWithoutPriorityFlagHasPriorityZero) {
    const uint8_t dst[6] = {};
    const uint8_t ifMac[6] = {};
    zel_pkt_txinfo tx;
    std::memset(&tx, 0, sizeof(tx));
    tx.flags = ZEL_TXINFO_INNER_VID;  // an inner id alone gets the single-tag identifier
    tx.innerVid = 7;
    tx.innerPri = 5;
    uint8_t out[MAX_TX_HDR_LEN];
    ASSERT_EQ(18u, pktBuildTxHeader(dst, ifMac, &tx, 0x8863, TxTpids{}, out));
    const uint8_t tag[4] = {0x81, 0x00, 0x00, 0x07};
    EXPECT_EQ(0, std::memcmp(tag, out + 12, 4));
}

TEST(PktTxInfo, FoundByTheControlMessageWalk) {
    alignas(4) uint8_t control[160] = {};
    zel_cmsghdr other{ZEL_CMSG_LEN(4), ZEL_SOL_PACKET, 99};
    std::memcpy(control, &other, sizeof(other));
    zel_cmsghdr c{ZEL_CMSG_LEN(sizeof(zel_pkt_txinfo)), ZEL_SOL_PACKET, ZEL_TX_PKTINFO};
    std::memcpy(control + 16, &c, sizeof(c));
    zel_pkt_txinfo tx;
    std::memset(&tx, 0, sizeof(tx));
    tx.flags = 0x119;
    std::memcpy(control + 16 + 12, &tx, sizeof(tx));
    zel_pkt_txinfo found;
    ASSERT_TRUE(pktFindTxInfo(control, 16 + 116, found));
    EXPECT_EQ(0x119u, found.flags);
    EXPECT_FALSE(pktFindTxInfo(control, 16 + 115, found)) << "a record cut short";
    EXPECT_FALSE(pktFindTxInfo(control, 11, found));
    EXPECT_FALSE(pktFindTxInfo(nullptr, 128, found));
    // A header whose length runs past the buffer ends the walk.
    zel_cmsghdr liar{1000, ZEL_SOL_PACKET, ZEL_TX_PKTINFO};
    std::memcpy(control, &liar, sizeof(liar));
    EXPECT_FALSE(pktFindTxInfo(control, 160, found));
    // A header shorter than itself too.
    zel_cmsghdr tiny{4, ZEL_SOL_PACKET, 1};
    std::memcpy(control, &tiny, sizeof(tiny));
    EXPECT_FALSE(pktFindTxInfo(control, 128, found));
}

}  // namespace
