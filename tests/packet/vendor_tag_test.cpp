// The Vendor-Specific tag: the agent's tag byte for byte with its length
// quirks, insertion before End-of-List and at the end, the 512- and
// 1400-byte limits, dropping a client's tag, and insert-then-drop round trips.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "agent/global.h"
#include "packet/pkt_parse.h"
#include "packet/pkt_test_util.h"
#include "packet/real_capture.h"
#include "packet/vendor_tag.h"
#include "support/fixture.h"

using namespace pkttest;

namespace {

void setFormat(tPppoeplusFormat* f, const std::string& text) {
    std::memset(f->format, 0, sizeof(f->format));
    std::memcpy(f->format, text.data(), text.size());
    f->formatLen = static_cast<uint16_t>(text.size());
}

Bytes vendorIdBytes() {
    Bytes b;
    put32(b, gPppoeplus.vendorId);
    return b;
}

class VendorTagTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        pppoeplusTestStart();
        eth = addPort(1, "eth0/1");
        std::memcpy(sim::g.interfaces[1].mac, kPortMac.data(), 6);
        std::memcpy(eth->mac, kPortMac.data(), 6);
        pon = addPort(2, "gpon0/2", ZEL_OND_GPON, ZEL_IFTYPE_GPON);
        sim::setScalarBytes(ZEL_SCALAR_SYS_MAC, kSysMac);
        pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT | PPPOEPLUS_DEBUG_ERROR);
        sim::g.logs.clear();
    }

    // Builds the tag of `entry` for a frame with S-VLAN 100, C-VLAN 200.
    Bytes build(tPppoePlusIfEntry* entry, uint32_t capacity = PPPOEPLUS_VS_TAG_BUF_LEN, uint32_t* sizeOut = nullptr) {
        std::vector<uint8_t> buf(capacity + 8, 0);
        FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, {}), entry);
        f.pkt.outerVid = 100;
        f.pkt.innerVid = 200;
        uint32_t size = pppoePlusVendorSpecTagBuild(entry, &f.pkt, buf.data(), capacity);
        if (sizeOut != nullptr) *sizeOut = size;
        for (size_t i = capacity; i < buf.size(); i++) EXPECT_EQ(0, buf[i]) << "written past the capacity";
        return Bytes(buf.begin(), buf.begin() + std::min(size, capacity));
    }

    void circuit(tPppoePlusIfEntry* e, const std::string& text) {
        e->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
        setFormat(&e->circuitIdFormat, text);
    }
    void remote(tPppoePlusIfEntry* e, const std::string& text) {
        e->remoteIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
        setFormat(&e->remoteIdFormat, text);
    }

    // The agent's tag on the Ethernet port with the default formats.
    Bytes ethTag() {
        return cat({Bytes{0x01, 0x05, 0x00, 39}, vendorIdBytes(), Bytes{1, 14}, str("eth0/1:100.200"), Bytes{2, 17},
                    str("00:11:22:33:44:55")});
    }

    tPppoePlusIfEntry* eth = nullptr;
    tPppoePlusIfEntry* pon = nullptr;
};

// ---- building ------------------------------------------------------------------------------

TEST_F(VendorTagTest, EthernetPortCarriesBothSubOptions) {
    EXPECT_EQ(0x00000DE9u, gPppoeplus.vendorId) << "the built-in default";
    Bytes t = build(eth);
    EXPECT_EQ(ethTag(), t);
    EXPECT_EQ(12u + 14 + 17, t.size());
}

TEST_F(VendorTagTest, TagCarriesTheConfiguredVendorId) {
    gPppoeplus.vendorId = 0x01020304;
    gPppoeplus.dfltVendorId = 0x0A0B0C0D;
    Bytes t = build(eth);
    EXPECT_EQ((Bytes{0x01, 0x02, 0x03, 0x04}), Bytes(t.begin() + 4, t.begin() + 8));
}

TEST_F(VendorTagTest, PonPortCarriesTheCircuitIdOnly) {
    circuit(pon, "'pon-line'");
    Bytes expected = cat({Bytes{0x01, 0x05, 0x00, 6 + 8}, vendorIdBytes(), Bytes{1, 8}, str("pon-line")});
    EXPECT_EQ(expected, build(pon));
    EXPECT_EQ(10u + 8, expected.size());
}

TEST_F(VendorTagTest, EmptyCircuitIdGivesTenBytesWhateverTheRemoteId) {
    circuit(eth, "%u");  // builds nothing
    Bytes expected = cat({Bytes{0x01, 0x05, 0x00, 0x04}, vendorIdBytes(), Bytes{1, 0}});
    uint32_t size = 0;
    EXPECT_EQ(expected, build(eth, 512, &size));
    EXPECT_EQ(10u, size);
    circuit(pon, "%u");
    EXPECT_EQ(expected, build(pon));
}

TEST_F(VendorTagTest, EmptyCircuitIdFromAnEmptyFormat) {
    eth->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_ASCII;
    setFormat(&eth->circuitIdFormat, "");
    EXPECT_EQ(10u, build(eth).size());
    EXPECT_EQ((std::vector<std::string>{"Format length is zero!\r\n"}), logsOf(kErrorModule));
}

TEST_F(VendorTagTest, EmptyRemoteIdLeavesTheTagLengthZero) {
    remote(eth, "%u");
    Bytes expected = cat({Bytes{0x01, 0x05, 0x00, 0x00}, vendorIdBytes(), Bytes{1, 14}, str("eth0/1:100.200"),
                          Bytes{2, 0}});
    EXPECT_EQ(expected, build(eth));
    EXPECT_EQ(14u + 12, expected.size());
}

TEST_F(VendorTagTest, TextsAbove255BytesKeepTheLowEightBitsOfTheirLength) {
    sim::setScalarText(ZEL_SCALAR_SYS_NAME, std::string(150, 'n'));
    circuit(eth, "'%D' '%D'");
    Bytes t = build(eth);
    ASSERT_EQ(12u + 300 + 17, t.size());
    EXPECT_EQ(300 & 0xFF, t[9]);
    EXPECT_EQ((Bytes{0x01, 0x45}), Bytes(t.begin() + 2, t.begin() + 4)) << "tag length 325";
    EXPECT_EQ(2, t[310]);
    EXPECT_EQ(17, t[311]);
}

TEST_F(VendorTagTest, CircuitIdThatLeavesNoRoomForTheRemoteIdHeader) {
    // 250 + 250 + 1 = 501 bytes of Circuit-ID in a 512-byte buffer: the
    // Remote-ID header would need bytes 511 and 512.
    sim::setScalarText(ZEL_SCALAR_SYS_NAME, std::string(250, 'n'));
    circuit(eth, "'%D' '%D' 1");
    uint32_t size = 0;
    Bytes t = build(eth, 512, &size);
    EXPECT_EQ(501u + 12, size) << "more than the buffer: refused by its user";
    EXPECT_EQ(1, t[510]) << "the last Circuit-ID byte";
    EXPECT_EQ(0, t[511]);

    // 500 bytes: the header fits exactly, the Remote-ID has no room.
    circuit(eth, "'%D' '%D'");
    t = build(eth, 512, &size);
    EXPECT_EQ(512u, size);
    EXPECT_EQ(2, t[510]);
    EXPECT_EQ(0, t[511]);
    EXPECT_EQ(0, t[2]);
    EXPECT_EQ(0, t[3]);
}

TEST_F(VendorTagTest, BuildRefusesNullArgumentsAndTinyBuffers) {
    uint8_t buf[16] = {};
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, {}), eth);
    EXPECT_EQ(0u, pppoePlusVendorSpecTagBuild(nullptr, &f.pkt, buf, 16));
    EXPECT_EQ(0u, pppoePlusVendorSpecTagBuild(eth, nullptr, buf, 16));
    EXPECT_EQ(0u, pppoePlusVendorSpecTagBuild(eth, &f.pkt, nullptr, 16));
    EXPECT_EQ(0u, pppoePlusVendorSpecTagBuild(eth, &f.pkt, buf, 9));
}

// ---- insertion -----------------------------------------------------------------------------------

TEST_F(VendorTagTest, InsertBeforeEndOfList) {
    Bytes payload = cat({serviceName("isp"), eol()});
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, payload), eth);
    f.pkt.outerVid = 100;
    f.pkt.innerVid = 200;
    ASSERT_EQ(0, pppoeplusPktParse(eth, &f.pkt));
    uint8_t* eolBefore = f.pkt.eolTag;
    const uint16_t pppoeLenBefore = f.pkt.pppoeLen;
    sim::g.logs.clear();

    EXPECT_EQ(43u, pppoeplusVendorSpecTagInsert(eth, &f.pkt));
    Bytes expected = frame(PPPOEPLUS_CODE_PADI, 0, cat({serviceName("isp"), ethTag(), eol()}));
    EXPECT_EQ(expected, f.held());
    EXPECT_EQ(expected.size(), f.pkt.len);
    EXPECT_EQ(pppoeLenBefore, f.pkt.pppoeLen) << "left as it was";
    EXPECT_EQ(eolBefore, f.pkt.eolTag) << "left as it was";
    EXPECT_EQ((std::vector<std::string>{"End-Of-List Tag is already exist, insert the tag before it.\r\n"}),
              logsOf(kRecvModule));
    // The End-of-List tag is the last four bytes of the payload again.
    FrameBuf again(f.held(), eth);
    ASSERT_EQ(0, pppoeplusPktParse(eth, &again.pkt));
    EXPECT_EQ(again.pkt.pppoeLen - 4u, again.offsetOf(again.pkt.eolTag));
}

TEST_F(VendorTagTest, InsertAtTheEndOverTrailingBytes) {
    Bytes bytes = frame(PPPOEPLUS_CODE_PADR, 0, serviceName("isp"));
    const size_t pppoeLen = bytes.size();
    bytes.resize(pppoeLen + 20, 0x5A);
    FrameBuf f(bytes, eth);
    f.pkt.outerVid = 100;
    f.pkt.innerVid = 200;
    ASSERT_EQ(0, pppoeplusPktParse(eth, &f.pkt));
    sim::g.logs.clear();

    EXPECT_EQ(43u, pppoeplusVendorSpecTagInsert(eth, &f.pkt));
    Bytes expected = frame(PPPOEPLUS_CODE_PADR, 0, cat({serviceName("isp"), ethTag()}));
    expected.resize(pppoeLen + 20 + 43, 0x00);  // the zeroed buffer behind the old frame
    EXPECT_EQ(expected, f.held());
    EXPECT_EQ(pppoeLen, f.pkt.pppoeLen);
    EXPECT_EQ((std::vector<std::string>{"End-Of-List Tag is not exist, insert the tag to the end of the packet.\r\n"}),
              logsOf(kRecvModule));
}

TEST_F(VendorTagTest, NoTraceWithTheEventSwitchOff) {
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_ERROR);
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, {}), eth);
    ASSERT_EQ(0, pppoeplusPktParse(eth, &f.pkt));
    sim::g.logs.clear();
    EXPECT_NE(PPPOEPLUS_VS_TAG_FAIL, pppoeplusVendorSpecTagInsert(eth, &f.pkt));
    EXPECT_TRUE(sim::g.logs.empty());
}

// A PADI of `total` bytes: one Service-Name tag filling the payload.
Bytes padiOf(size_t total) { return frame(PPPOEPLUS_CODE_PADI, 0, tag(0x0101, Bytes(total - 10, 'x'))); }

TEST_F(VendorTagTest, FrameOf1390BytesTakesTenBytesButNotEleven) {
    circuit(pon, "'x'");  // 11-byte tag
    FrameBuf f(padiOf(1390), pon);
    ASSERT_EQ(0, pppoeplusPktParse(pon, &f.pkt));
    const Bytes before = f.held();
    EXPECT_EQ(PPPOEPLUS_VS_TAG_FAIL, pppoeplusVendorSpecTagInsert(pon, &f.pkt));
    EXPECT_EQ(before, f.held()) << "unchanged";
    EXPECT_EQ(1390u, f.pkt.len);

    circuit(pon, "%u");  // 10-byte tag
    EXPECT_EQ(10u, pppoeplusVendorSpecTagInsert(pon, &f.pkt));
    EXPECT_EQ(1400u, f.pkt.len);
    EXPECT_EQ((Bytes{0x01, 0x05, 0x00, 0x04}), Bytes(f.buf.begin() + 1390, f.buf.begin() + 1394));
    EXPECT_EQ(0, f.buf[1400]) << "the slack stays zero";
}

TEST_F(VendorTagTest, TagAbove512BytesIsNotInserted) {
    sim::setScalarText(ZEL_SCALAR_SYS_NAME, std::string(250, 'n'));
    circuit(eth, "'%D' '%D' 1");
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, {}), eth);
    ASSERT_EQ(0, pppoeplusPktParse(eth, &f.pkt));
    EXPECT_EQ(PPPOEPLUS_VS_TAG_FAIL, pppoeplusVendorSpecTagInsert(eth, &f.pkt));
    EXPECT_EQ(6u, f.pkt.len);
}

TEST_F(VendorTagTest, TagOf512BytesIsInserted) {
    sim::setScalarText(ZEL_SCALAR_SYS_NAME, std::string(250, 'n'));
    circuit(eth, "'%D' '%D'");
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, {}), eth);
    ASSERT_EQ(0, pppoeplusPktParse(eth, &f.pkt));
    EXPECT_EQ(512u, pppoeplusVendorSpecTagInsert(eth, &f.pkt));
    EXPECT_EQ(518u, f.pkt.len);
    EXPECT_EQ(512u, pppoeplusPktPayloadLen(&f.pkt));
}

TEST_F(VendorTagTest, InsertRefusesRecordsPointingOutsideTheBuffer) {
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, eol()), eth);
    ASSERT_EQ(0, pppoeplusPktParse(eth, &f.pkt));
    // An End-of-List position too close to the end of the buffer for the
    // tag and the new End-of-List.
    f.pkt.eolTag = f.buf.data() + f.buf.size() - 10;
    EXPECT_EQ(PPPOEPLUS_VS_TAG_FAIL, pppoeplusVendorSpecTagInsert(eth, &f.pkt));
    f.pkt.eolTag = f.buf.data() + f.buf.size() + 100;
    EXPECT_EQ(PPPOEPLUS_VS_TAG_FAIL, pppoeplusVendorSpecTagInsert(eth, &f.pkt));
    f.pkt.eolTag = nullptr;
    f.pkt.pppoeLen = 1390;  // 1390 + 43 is past the buffer
    EXPECT_EQ(PPPOEPLUS_VS_TAG_FAIL, pppoeplusVendorSpecTagInsert(eth, &f.pkt));
    EXPECT_EQ(10u, f.pkt.len);
    EXPECT_EQ(PPPOEPLUS_VS_TAG_FAIL, pppoeplusVendorSpecTagInsert(eth, nullptr));
}

TEST_F(VendorTagTest, InsertStaysInsideASmallBuffer) {
    // A buffer that holds 20 bytes: a 43-byte tag cannot go into it.
    Bytes bytes = frame(PPPOEPLUS_CODE_PADI, 0, {});
    std::vector<uint8_t> small(20, 0);
    std::memcpy(small.data(), bytes.data(), bytes.size());
    tPppoePlusPkt pkt{};
    pkt.data = small.data();
    pkt.len = static_cast<uint16_t>(bytes.size());
    pkt.bufSize = 20;
    ASSERT_EQ(0, pppoeplusPktParse(eth, &pkt));
    EXPECT_EQ(PPPOEPLUS_VS_TAG_FAIL, pppoeplusVendorSpecTagInsert(eth, &pkt));
    circuit(pon, "%u");
    EXPECT_EQ(10u, pppoeplusVendorSpecTagInsert(pon, &pkt)) << "a 10-byte tag fits";
    EXPECT_EQ(16u, pkt.len);
}

// ---- dropping ------------------------------------------------------------------------------------

TEST_F(VendorTagTest, DropMovesTheRestForwardAndEndOfListBack) {
    Bytes client = vsTag(0x1234, {{1, "client-circuit"}, {2, "client-remote"}});
    Bytes payload = cat({serviceName("isp"), client, hostUniq({1, 2, 3, 4}), eol()});
    FrameBuf f(frame(PPPOEPLUS_CODE_PADR, 0, payload), eth);
    ASSERT_EQ(0, pppoeplusPktParse(eth, &f.pkt));
    uint8_t* vs = f.pkt.vsTag;
    const size_t eolAt = f.offsetOf(f.pkt.eolTag);
    const uint16_t len = f.pkt.len;
    const Bytes before = f.held();

    EXPECT_EQ(0u, pppoeplusVendorSpecTagDrop(nullptr, &f.pkt)) << "the entry is not read";
    Bytes expected = frame(PPPOEPLUS_CODE_PADR, 0, cat({serviceName("isp"), hostUniq({1, 2, 3, 4}), eol()}));
    EXPECT_EQ(expected, f.held());
    EXPECT_EQ(len - client.size(), f.pkt.len);
    EXPECT_EQ(expected.size(), f.pkt.pppoeLen);
    EXPECT_EQ(eolAt - client.size(), f.offsetOf(f.pkt.eolTag));
    EXPECT_EQ(vs, f.pkt.vsTag) << "kept";
    // The freed bytes are not cleared.
    EXPECT_EQ(Bytes(before.end() - client.size(), before.end()),
              Bytes(f.buf.begin() + f.pkt.len, f.buf.begin() + len));
}

TEST_F(VendorTagTest, DropWithoutEndOfListAndWithTrailingBytes) {
    Bytes bytes = frame(PPPOEPLUS_CODE_PADI, 0, cat({vsTag(1, {{1, "c"}}), serviceName("")}));
    const size_t pppoeLen = bytes.size();
    bytes.resize(pppoeLen + 8, 0x77);
    FrameBuf f(bytes, eth);
    ASSERT_EQ(0, pppoeplusPktParse(eth, &f.pkt));
    EXPECT_EQ(0u, pppoeplusVendorSpecTagDrop(eth, &f.pkt));
    Bytes expected = frame(PPPOEPLUS_CODE_PADI, 0, serviceName(""));
    expected.resize(expected.size() + 8, 0x77);
    EXPECT_EQ(expected, f.held()) << "trailing bytes move with the rest";
    EXPECT_EQ(nullptr, f.pkt.eolTag);
}

TEST_F(VendorTagTest, DropOfATagThatDoesNotFitChangesNothing) {
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, cat({serviceName(""), vsTag(1, {{1, "c"}})})), eth);
    ASSERT_EQ(0, pppoeplusPktParse(eth, &f.pkt));
    // The tag's length field says more than the frame holds behind it.
    f.buf[f.offsetOf(f.pkt.vsTag) + 3] = 40;
    const Bytes before = f.held();
    const tPppoePlusPkt record = f.pkt;
    EXPECT_EQ(PPPOEPLUS_VS_TAG_FAIL, pppoeplusVendorSpecTagDrop(eth, &f.pkt));
    EXPECT_EQ(before, f.held());
    EXPECT_EQ(0, std::memcmp(&record, &f.pkt, sizeof(record)));
}

TEST_F(VendorTagTest, DropRefusesInconsistentRecords) {
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, cat({vsTag(1, {{1, "c"}}), eol()})), eth);
    ASSERT_EQ(0, pppoeplusPktParse(eth, &f.pkt));
    tPppoePlusPkt p = f.pkt;
    p.vsTag = nullptr;
    EXPECT_EQ(PPPOEPLUS_VS_TAG_FAIL, pppoeplusVendorSpecTagDrop(eth, &p));
    p = f.pkt;
    p.vsTag = f.buf.data() + f.buf.size() + 1;
    EXPECT_EQ(PPPOEPLUS_VS_TAG_FAIL, pppoeplusVendorSpecTagDrop(eth, &p));
    p = f.pkt;
    p.eolTag = f.buf.data() + 2;  // would move in front of the frame
    EXPECT_EQ(PPPOEPLUS_VS_TAG_FAIL, pppoeplusVendorSpecTagDrop(eth, &p));
    p = f.pkt;
    p.len = static_cast<uint16_t>(f.buf.size() + 1);  // more than the buffer holds
    EXPECT_EQ(PPPOEPLUS_VS_TAG_FAIL, pppoeplusVendorSpecTagDrop(eth, &p));
    EXPECT_EQ(PPPOEPLUS_VS_TAG_FAIL, pppoeplusVendorSpecTagDrop(eth, nullptr));
}

// ---- round trips ---------------------------------------------------------------------------------

TEST_F(VendorTagTest, InsertThenDropGivesBackTheFrame) {
    std::vector<Bytes> frames = {
        frame(PPPOEPLUS_CODE_PADI, 0, {}),
        frame(PPPOEPLUS_CODE_PADI, 0, eol()),
        frame(PPPOEPLUS_CODE_PADR, 0, cat({serviceName("isp"), hostUniq({1, 2}), eol()})),
        frame(PPPOEPLUS_CODE_PADT, 9, hostUniq({5})),
    };
    frames.push_back(realcap::pppoe(realcap::kRealPadi));
    frames.push_back(realcap::pppoe(realcap::kRealPadiHostUniq));
    frames.push_back(realcap::pppoe(realcap::kRealPadr));
    frames.push_back(realcap::pppoe(realcap::kRealPadrHostUniq));

    for (tPppoePlusIfEntry* entry : {eth, pon}) {
        for (const Bytes& original : frames) {
            SCOPED_TRACE(entry->ifUnit);
            FrameBuf f(original, entry);
            f.pkt.outerVid = 10;
            ASSERT_EQ(0, pppoeplusPktParse(entry, &f.pkt));
            const uint32_t size = pppoeplusVendorSpecTagInsert(entry, &f.pkt);
            ASSERT_NE(PPPOEPLUS_VS_TAG_FAIL, size);
            EXPECT_EQ(original.size() + size, f.pkt.len);

            // Parsed again, the frame carries exactly the agent's tag.
            FrameBuf tagged(f.held(), entry);
            ASSERT_EQ(0, pppoeplusPktParse(entry, &tagged.pkt));
            ASSERT_NE(nullptr, tagged.pkt.vsTag);
            EXPECT_EQ(0x01, tagged.pkt.vsTag[0]);
            EXPECT_EQ(0x05, tagged.pkt.vsTag[1]);

            EXPECT_EQ(0u, pppoeplusVendorSpecTagDrop(entry, &tagged.pkt));
            EXPECT_EQ(original, tagged.held());
            EXPECT_EQ(original.size(), tagged.pkt.pppoeLen);
            if (tagged.pkt.eolTag != nullptr) {
                EXPECT_EQ(original.size() - 4, tagged.offsetOf(tagged.pkt.eolTag));
            }
        }
    }
}

}  // namespace
