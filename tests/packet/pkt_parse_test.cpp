// Parsing and validation of discovery frames: every rule in its order with
// its message, the tag positions, the PON line id, the code names, the hex
// dump, real frames, and frames whose lengths lie.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "agent/global.h"
#include "packet/pkt_parse.h"
#include "packet/pkt_test_util.h"
#include "packet/real_capture.h"
#include "platform/logging.h"
#include "support/fixture.h"

using namespace pkttest;

namespace {

// (module, text without "\r\n") of every captured log.
using Msg = std::pair<uint32_t, std::string>;

std::vector<Msg> messages() {
    std::vector<Msg> out;
    for (const sim::LogRecord& r : sim::g.logs) {
        EXPECT_FALSE(r.oper);
        EXPECT_EQ(0u, r.part);
        EXPECT_EQ(gPppoeplus.logLevel[r.module - PPPOEPLUS_MODULE_BASE], r.level);
        std::string text = r.text;
        EXPECT_GE(text.size(), 2u);
        if (text.size() >= 2) {
            EXPECT_EQ("\r\n", text.substr(text.size() - 2)) << text;
            text.resize(text.size() - 2);
        }
        out.emplace_back(r.module, text);
    }
    return out;
}

Msg recv(const std::string& t) { return {kRecvModule, t}; }
Msg err(const std::string& t) { return {kErrorModule, t}; }

std::string summary(int len, int verType, int payload, int session) {
    char text[128];
    std::snprintf(text, sizeof(text), "Packet length %d, version&Type 0x%0x, Payload length %d, Session-ID %d.", len,
                  verType, payload, session);
    return text;
}

class PktParseTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        pppoeplusTestStart();
        port = addPort(1, "eth0/1");
        pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_EVENT | PPPOEPLUS_DEBUG_ERROR);
        sim::g.logs.clear();
    }

    int32_t parse(FrameBuf& f) { return pppoeplusPktParse(port, &f.pkt); }

    // Makes the test port a GPON port of the pon-olt device the fixture
    // starts (its port-index record says kind 11).
    void makePon(uint32_t kind = ZEL_OND_GPON) {
        port->phyInfo.ondType = kind;
        sim::g.interfaces[1].phyInfo.ondType = kind;
    }

    tPppoePlusIfEntry* port = nullptr;
};

// ---- rules in order, with their messages ---------------------------------------------

TEST_F(PktParseTest, RealPadiAcceptedWithItsTwoTraces) {
    FrameBuf f(realcap::pppoe(realcap::kRealPadi), port);
    ASSERT_EQ(0, parse(f));
    EXPECT_EQ(18u, f.pkt.pppoeLen);
    EXPECT_EQ(18u, f.pkt.len);
    EXPECT_EQ(nullptr, f.pkt.eolTag);
    EXPECT_EQ(nullptr, f.pkt.vsTag);
    EXPECT_STREQ("", f.pkt.ponLineId);
    EXPECT_EQ((std::vector<Msg>{recv("Received a PADI packet."), err(summary(18, 0x11, 12, 0))}), messages());
}

TEST_F(PktParseTest, EveryRealFrameIsAccepted) {
    const char* names[] = {"PADI", "PADO", "PADR", "PADS", "PADT", "PADI", "PADO", "PADR", "PADS", "PADT"};
    for (size_t i = 0; i < realcap::kAll.size(); i++) {
        SCOPED_TRACE(i);
        sim::g.logs.clear();
        Bytes bytes = realcap::pppoe(realcap::kAll[i]);
        FrameBuf f(bytes, port);
        ASSERT_EQ(0, parse(f));
        EXPECT_EQ(bytes.size(), f.pkt.pppoeLen);
        EXPECT_EQ(nullptr, f.pkt.eolTag);
        EXPECT_EQ(nullptr, f.pkt.vsTag);
        EXPECT_EQ(std::string("Received a ") + names[i] + " packet.", messages().at(0).second);
        EXPECT_EQ(bytes, f.held()) << "the frame is not changed";
    }
}

TEST_F(PktParseTest, VersionIsCheckedFirst) {
    Bytes bytes = frameLen(PPPOEPLUS_CODE_PADI, 0, 0, {}, 0x22);
    FrameBuf f(bytes, port);
    EXPECT_EQ(-1, parse(f));
    EXPECT_EQ((std::vector<Msg>{recv("Received a PADI packet."), err("Version must be set to 0x1!")}), messages());
    EXPECT_EQ(0u, f.pkt.pppoeLen);
}

TEST_F(PktParseTest, TypeIsCheckedSecond) {
    FrameBuf f(frameLen(PPPOEPLUS_CODE_PADR, 0, 0, {}, 0x12), port);
    EXPECT_EQ(-1, parse(f));
    EXPECT_EQ((std::vector<Msg>{recv("Received a PADR packet."), err("Type must be set to 0x1!")}), messages());
}

TEST_F(PktParseTest, PayloadThatFitsExactlyIsAcceptedOneByteMoreIsNot) {
    Bytes payload = serviceName("isp");
    Bytes exact = frame(PPPOEPLUS_CODE_PADI, 0, payload);
    FrameBuf ok(exact, port);
    EXPECT_EQ(0, parse(ok));
    EXPECT_EQ(exact.size(), ok.pkt.pppoeLen);

    sim::g.logs.clear();
    Bytes over = frameLen(PPPOEPLUS_CODE_PADI, 0, static_cast<uint16_t>(payload.size() + 1), payload);
    FrameBuf bad(over, port);
    EXPECT_EQ(-1, parse(bad));
    EXPECT_EQ((std::vector<Msg>{recv("Received a PADI packet."), err(summary(14, 0x11, 8, 0)),
                                err("Payload length is ERROR!")}),
              messages());
    EXPECT_EQ(0u, bad.pkt.pppoeLen) << "pppoeLen is set only behind the length check";
}

TEST_F(PktParseTest, TrailingBytesBehindThePayloadAreAllowed) {
    Bytes bytes = frame(PPPOEPLUS_CODE_PADI, 0, serviceName(""));
    bytes.resize(46, 0x5A);  // Ethernet padding
    FrameBuf f(bytes, port);
    EXPECT_EQ(0, parse(f));
    EXPECT_EQ(10u, f.pkt.pppoeLen);
    EXPECT_EQ(46u, f.pkt.len);
}

TEST_F(PktParseTest, PadtWithTagsIsAcceptedWithAWarning) {
    FrameBuf f(frame(PPPOEPLUS_CODE_PADT, 7, hostUniq({1, 2})), port);
    EXPECT_EQ(0, parse(f));
    EXPECT_EQ((std::vector<Msg>{recv("Received a PADT packet."), err(summary(12, 0x11, 6, 7)),
                                err("No TAGs are required in PADT!")}),
              messages());
}

TEST_F(PktParseTest, PadtWithoutTagsHasNoWarning) {
    FrameBuf f(frame(PPPOEPLUS_CODE_PADT, 7, {}), port);
    EXPECT_EQ(0, parse(f));
    EXPECT_EQ(2u, messages().size());
}

TEST_F(PktParseTest, SessionIdAllOnesIsRefused) {
    FrameBuf f(frame(PPPOEPLUS_CODE_PADS, 0xFFFF, {}), port);
    EXPECT_EQ(-1, parse(f));
    EXPECT_EQ(err("Session-id must not be 0xffff!"), messages().back());
    EXPECT_EQ(6u, f.pkt.pppoeLen);
}

TEST_F(PktParseTest, SessionIdMustBeZeroInPadiPadoPadr) {
    for (uint8_t code : {PPPOEPLUS_CODE_PADI, PPPOEPLUS_CODE_PADO, PPPOEPLUS_CODE_PADR}) {
        sim::g.logs.clear();
        FrameBuf f(frame(code, 1, {}), port);
        EXPECT_EQ(-1, parse(f)) << int(code);
        EXPECT_EQ(err("Session-id must be zero in PADI, PADO and PADR!"), messages().back());
    }
    for (uint8_t code : {PPPOEPLUS_CODE_PADS, PPPOEPLUS_CODE_PADT}) {
        FrameBuf f(frame(code, 1, {}), port);
        EXPECT_EQ(0, parse(f)) << int(code);
    }
}

TEST_F(PktParseTest, EndOfListWithLengthIsRefused) {
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, cat({serviceName(""), tagRaw(0x0000, 2, {0, 0})})), port);
    EXPECT_EQ(-1, parse(f));
    EXPECT_EQ(err("Length of the End-of-List TAG must be 0!"), messages().back());
}

TEST_F(PktParseTest, EndOfListFollowedByATagIsRefused) {
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, cat({eol(), serviceName("")})), port);
    EXPECT_EQ(-1, parse(f));
    EXPECT_EQ(err("End-of-List must be the last TAG!"), messages().back());
}

TEST_F(PktParseTest, EndOfListThatIsLastIsRecorded) {
    FrameBuf f(frame(PPPOEPLUS_CODE_PADR, 0, cat({serviceName("isp"), hostUniq({9}), eol()})), port);
    ASSERT_EQ(0, parse(f));
    ASSERT_NE(nullptr, f.pkt.eolTag);
    EXPECT_EQ(6u + 7u + 5u, f.offsetOf(f.pkt.eolTag));
    EXPECT_EQ(f.pkt.pppoeLen - 4u, f.offsetOf(f.pkt.eolTag));
}

TEST_F(PktParseTest, VendorSpecificTagIsRecorded) {
    Bytes vs = vsTag(3561, {{1, "eth0/3:1.2"}, {2, "remote"}});
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, cat({serviceName(""), vs, eol()})), port);
    ASSERT_EQ(0, parse(f));
    ASSERT_NE(nullptr, f.pkt.vsTag);
    EXPECT_EQ(10u, f.offsetOf(f.pkt.vsTag));
    EXPECT_EQ(10u + vs.size(), f.offsetOf(f.pkt.eolTag));
    EXPECT_STREQ("", f.pkt.ponLineId) << "an Ethernet port takes no line id";
}

TEST_F(PktParseTest, TwoVendorSpecificTagsAreRefusedAfterTheWalkFirstRecorded) {
    Bytes first = vsTag(1, {{1, "a"}});
    Bytes second = vsTag(2, {{1, "b"}});
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, cat({first, serviceName(""), second, eol()})), port);
    EXPECT_EQ(-1, parse(f));
    EXPECT_EQ(err("Pcaket cann't include multiple Vendor-specific tags!"), messages().back());
    EXPECT_EQ(6u, f.offsetOf(f.pkt.vsTag)) << "only the first is recorded";
    ASSERT_NE(nullptr, f.pkt.eolTag) << "the walk went on to the end";
}

TEST_F(PktParseTest, TagRulesOfTheWalkComeBeforeTheVendorSpecificCount) {
    Bytes payload = cat({vsTag(1, {}), vsTag(2, {}), eol(), serviceName("")});
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, payload), port);
    EXPECT_EQ(-1, parse(f));
    EXPECT_EQ(err("End-of-List must be the last TAG!"), messages().back());
}

TEST_F(PktParseTest, VendorSpecificCountComesBeforeTheLengthCheck) {
    Bytes payload = cat({vsTag(1, {}), vsTag(2, {}), tagRaw(0x0101, 40, {})});
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, payload), port);
    EXPECT_EQ(-1, parse(f));
    EXPECT_EQ(err("Pcaket cann't include multiple Vendor-specific tags!"), messages().back());
}

TEST_F(PktParseTest, TagRunningPastThePayloadIsALengthError) {
    Bytes payload = cat({serviceName("x"), tagRaw(0x0103, 10, {1, 2, 3})});
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, payload), port);
    EXPECT_EQ(-1, parse(f));
    EXPECT_EQ(err("Packet length is ERROR!"), messages().back());
}

TEST_F(PktParseTest, TagHeaderCutByThePayloadEndIsALengthError) {
    // Two bytes of a tag header are left in the payload; the two after it
    // read from the zeroed buffer.
    Bytes payload = cat({serviceName("x"), Bytes{0x01, 0x03}});
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, payload), port);
    EXPECT_EQ(-1, parse(f));
    EXPECT_EQ(err("Packet length is ERROR!"), messages().back());
}

TEST_F(PktParseTest, UnknownCodesPass) {
    FrameBuf f(frame(0x55, 3, serviceName("")), port);
    EXPECT_EQ(0, parse(f));
    EXPECT_EQ(recv("Received a INVALID packet."), messages().front());
}

TEST_F(PktParseTest, NothingIsLoggedWithTheSwitchesOffButTheRulesHold) {
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_STARTUP | PPPOEPLUS_DEBUG_PKT_DUMP);
    FrameBuf ok(frame(PPPOEPLUS_CODE_PADT, 1, serviceName("")), port);
    EXPECT_EQ(0, parse(ok));
    FrameBuf bad(frame(PPPOEPLUS_CODE_PADI, 1, {}), port);
    EXPECT_EQ(-1, parse(bad));
    EXPECT_TRUE(sim::g.logs.empty());
}

TEST_F(PktParseTest, ErrorSwitchAloneGivesOnlyErrorMessages) {
    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_ERROR);
    FrameBuf bad(frameLen(PPPOEPLUS_CODE_PADI, 0, 0, {}, 0x21), port);
    EXPECT_EQ(-1, parse(bad));
    EXPECT_EQ((std::vector<Msg>{err("Version must be set to 0x1!")}), messages());
}

TEST_F(PktParseTest, NullRecordOrDataIsRefused) {
    EXPECT_EQ(-1, pppoeplusPktParse(port, nullptr));
    tPppoePlusPkt pkt{};
    EXPECT_EQ(-1, pppoeplusPktParse(port, &pkt));
}

// ---- the PON line id -------------------------------------------------------------------

TEST_F(PktParseTest, PonLineIdIsTheWordWithColonEth) {
    makePon();
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, vsTag(3561, {{1, "ab cd/1:eth 7"}})), port);
    ASSERT_EQ(0, parse(f));
    EXPECT_STREQ("cd/1:eth", f.pkt.ponLineId);
    EXPECT_EQ(8u, std::strlen(f.pkt.ponLineId));
    EXPECT_EQ((std::vector<Msg>{recv("Received a PADI packet."), err(summary(29, 0x11, 23, 0)),
                                recv("copy pon string4:cd/1:eth.")}),
              messages());
}

TEST_F(PktParseTest, PonLineIdWithColonAtmAndWithoutLeadingBlank) {
    makePon(ZEL_OND_EPON);
    FrameBuf f(frame(PPPOEPLUS_CODE_PADR, 0, vsTag(3561, {{1, "0/0/1:atm"}, {2, "x"}})), port);
    ASSERT_EQ(0, parse(f));
    EXPECT_STREQ("0/0/1:atm", f.pkt.ponLineId);
}

TEST_F(PktParseTest, PonLineIdOnAPonAggregate) {
    makePon(ZEL_OND_PON_AGG);
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, vsTag(1, {{1, "p x:eth"}})), port);
    ASSERT_EQ(0, parse(f));
    EXPECT_STREQ("x:eth", f.pkt.ponLineId);
}

TEST_F(PktParseTest, NoPonLineIdWithoutColonEthOrAtm) {
    makePon();
    for (const char* text : {"ab cd/1 eth 7", "ab cd/1:et", "ab cd/1:ETH x", "ab cd/1;eth x", "ab cd/1:at m"}) {
        FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, vsTag(1, {{1, text}})), port);
        ASSERT_EQ(0, parse(f)) << text;
        EXPECT_STREQ("", f.pkt.ponLineId) << text;
    }
}

TEST_F(PktParseTest, ColonEthMustLieInsideTheSubOption) {
    makePon();
    // "ab:eth" with a sub-option length of 5: the "h" lies outside it.
    Bytes value = vsValue(1, {{1, "ab:eth"}});
    value[5] = 5;
    FrameBuf cut(frame(PPPOEPLUS_CODE_PADI, 0, tag(0x0105, value)), port);
    ASSERT_EQ(0, parse(cut));
    EXPECT_STREQ("", cut.pkt.ponLineId);
    // With 6 the three letters lie inside.
    FrameBuf whole(frame(PPPOEPLUS_CODE_PADI, 0, vsTag(1, {{1, "ab:eth"}})), port);
    ASSERT_EQ(0, parse(whole));
    EXPECT_STREQ("ab:eth", whole.pkt.ponLineId);
}

TEST_F(PktParseTest, PonLineIdOf27BytesIsTaken28IsNot) {
    makePon();
    std::string word27 = "a:eth" + std::string(22, 'x');
    FrameBuf f27(frame(PPPOEPLUS_CODE_PADI, 0, vsTag(1, {{1, "z " + word27 + " q"}})), port);
    ASSERT_EQ(0, parse(f27));
    EXPECT_EQ(word27, std::string(f27.pkt.ponLineId));

    std::string word28 = word27 + "y";
    FrameBuf f28(frame(PPPOEPLUS_CODE_PADI, 0, vsTag(1, {{1, "z " + word28 + " q"}})), port);
    ASSERT_EQ(0, parse(f28));
    EXPECT_STREQ("", f28.pkt.ponLineId);
}

TEST_F(PktParseTest, PonLineIdScanStopsAtTheFirstBlankAfterTheMatch) {
    makePon();
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, vsTag(1, {{1, "a:eth b:atm"}})), port);
    ASSERT_EQ(0, parse(f));
    EXPECT_STREQ("a:eth", f.pkt.ponLineId);
    // A trailing blank without a match leaves no word.
    FrameBuf g(frame(PPPOEPLUS_CODE_PADI, 0, vsTag(1, {{1, "abc "}})), port);
    ASSERT_EQ(0, parse(g));
    EXPECT_STREQ("", g.pkt.ponLineId);
}

TEST_F(PktParseTest, PonLineIdOnlyOnPonPortsOfAPonOltWithDefaultFormat) {
    const Bytes payload = vsTag(1, {{1, "ab cd/1:eth 7"}});
    auto lineId = [&]() {
        FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, payload), port);
        EXPECT_EQ(0, parse(f));
        return std::string(f.pkt.ponLineId);
    };
    EXPECT_EQ("", lineId()) << "Ethernet port";
    makePon();
    EXPECT_EQ("cd/1:eth", lineId());

    gPppoeplus.ponDefaultType = PPPOEPLUS_PON_TYPE_ONU;
    EXPECT_EQ("", lineId()) << "pon-onu device";
    gPppoeplus.ponDefaultType = PPPOEPLUS_PON_TYPE_OLT;

    port->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
    EXPECT_EQ("", lineId()) << "the port's own format";
    port->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_DEFAULT;

    gPppoeplus.ponCircuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_ASCII;
    EXPECT_EQ("", lineId()) << "global PON format not DEFAULT";
    gPppoeplus.ponCircuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_DEFAULT;

    gPppoeplus.circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_USERDEFINE;
    EXPECT_EQ("cd/1:eth", lineId()) << "the common format does not matter on a PON port";
}

TEST_F(PktParseTest, PonLineIdNeedsCircuitIdFirstAndATagOfSevenBytes) {
    makePon();
    FrameBuf remoteFirst(frame(PPPOEPLUS_CODE_PADI, 0, vsTag(1, {{2, "ab cd/1:eth 7"}})), port);
    ASSERT_EQ(0, parse(remoteFirst));
    EXPECT_STREQ("", remoteFirst.pkt.ponLineId);

    // A tag of 6 bytes: vendor id, code 1 and a length byte saying 5.
    FrameBuf shortTag(frame(PPPOEPLUS_CODE_PADI, 0, tag(0x0105, {0, 0, 0, 1, 1, 5})), port);
    ASSERT_EQ(0, parse(shortTag));
    EXPECT_STREQ("", shortTag.pkt.ponLineId);

    FrameBuf emptySub(frame(PPPOEPLUS_CODE_PADI, 0, tag(0x0105, {0, 0, 0, 1, 1, 0, 'x'})), port);
    ASSERT_EQ(0, parse(emptySub));
    EXPECT_STREQ("", emptySub.pkt.ponLineId);
}

TEST_F(PktParseTest, PonLineIdFromTheFirstOfTwoTagsOnly) {
    makePon();
    Bytes payload = cat({vsTag(1, {{1, "a b:eth"}}), vsTag(1, {{1, "c d:eth"}})});
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, payload), port);
    EXPECT_EQ(-1, parse(f));
    EXPECT_STREQ("b:eth", f.pkt.ponLineId);
}

TEST_F(PktParseTest, PonLineIdSubOptionLongerThanTheFrameReadsZeros) {
    makePon();
    // The sub-option claims 200 bytes; the frame ends after "x:eth". The
    // zeros behind count as part of the word, which grows too long.
    Bytes value = vsValue(1, {{1, "x:eth"}});
    value[5] = 200;
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, tag(0x0105, value)), port);
    ASSERT_EQ(0, parse(f));
    EXPECT_STREQ("", f.pkt.ponLineId);

    // Same, with a blank right behind the word inside the frame: taken.
    Bytes value2 = vsValue(1, {{1, "x:eth "}});
    value2[5] = 255;
    FrameBuf g(frame(PPPOEPLUS_CODE_PADI, 0, tag(0x0105, value2)), port);
    ASSERT_EQ(0, parse(g));
    EXPECT_STREQ("x:eth", g.pkt.ponLineId);
}

TEST_F(PktParseTest, PonLineIdScanNeverLeavesAnExactBuffer) {
    makePon();
    // A buffer that holds exactly the frame: the scan of a 255-byte
    // sub-option reads nothing behind it (the sanitizers would see it).
    Bytes value = vsValue(1, {{1, "ab x:eth"}});
    value[5] = 255;
    Bytes bytes = frame(PPPOEPLUS_CODE_PADI, 0, tag(0x0105, value));
    auto exact = std::make_unique<uint8_t[]>(bytes.size());
    std::memcpy(exact.get(), bytes.data(), bytes.size());
    tPppoePlusPkt pkt{};
    pkt.data = exact.get();
    pkt.len = static_cast<uint16_t>(bytes.size());
    ASSERT_EQ(0, pppoeplusPktParse(port, &pkt));
    EXPECT_STREQ("", pkt.ponLineId);
}

// ---- lengths that lie ----------------------------------------------------------------------

TEST_F(PktParseTest, PayloadLengthSumWrapsPastTheLengthCheck) {
    // 0xFFFA + 6 is 0 modulo 65536 and passes the length check; the walk then
    // reads the zeroed buffer behind the frame as an End-of-List tag that is
    // not last.
    FrameBuf f(frameLen(PPPOEPLUS_CODE_PADI, 0, 0xFFFA, {}), port);
    EXPECT_EQ(-1, parse(f));
    EXPECT_EQ((std::vector<Msg>{recv("Received a PADI packet."), err(summary(65536, 0x11, 0xFFFA, 0)),
                                err("End-of-List must be the last TAG!")}),
              messages());
    EXPECT_EQ(0u, f.pkt.pppoeLen);
}

TEST_F(PktParseTest, WrappedPayloadLengthCannotPlaceEndOfListOutsideTheBuffer) {
    // A tag jumps the walk to 0xFFF6, far behind the buffer, where the four
    // bytes read as a last End-of-List tag: refused, nothing recorded.
    FrameBuf f(frameLen(PPPOEPLUS_CODE_PADI, 0, 0xFFFA, tagRaw(0x0101, 0xFFF2, {})), port);
    EXPECT_EQ(-1, parse(f));
    EXPECT_EQ(err("Packet length is ERROR!"), messages().back());
    EXPECT_EQ(nullptr, f.pkt.eolTag);
}

TEST_F(PktParseTest, WrappedPayloadLengthReachedExactlyIsAccepted) {
    // 0xFFFB + 6 wraps to 1; one tag whose length takes the walk exactly to
    // 0xFFFB satisfies every rule.
    FrameBuf f(frameLen(PPPOEPLUS_CODE_PADI, 0, 0xFFFB, tagRaw(0x0101, 0xFFF7, {})), port);
    EXPECT_EQ(0, parse(f));
    EXPECT_EQ(1u, f.pkt.pppoeLen);
}

TEST_F(PktParseTest, SixteenBitTagOffsetWrapsForward) {
    // A length of 0xFFFF moves the 16-bit offset 3 bytes on: the walk reads
    // a tag at offset 3 (type 0xFF01, length 0) and ends at 7.
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, Bytes{0x01, 0x01, 0xFF, 0xFF, 0x01, 0x00, 0x00}), port);
    EXPECT_EQ(0, parse(f));
    EXPECT_EQ(13u, f.pkt.pppoeLen);
}

TEST_F(PktParseTest, TagLengthThatKeepsTheOffsetStillEnds) {
    // 0xFFFC + 4 is 0: the offset would never move.
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, tagRaw(0x0101, 0xFFFC, Bytes(8, 0))), port);
    EXPECT_EQ(-1, parse(f));
    EXPECT_EQ(err("Packet length is ERROR!"), messages().back());
}

TEST_F(PktParseTest, TagLengthThatWrapsBackIntoACycleStillEnds) {
    // 0 -> 4 -> 0 -> ...
    Bytes payload = cat({tagRaw(0x0101, 0, {}), tagRaw(0x0102, 0xFFF8, {}), Bytes(8, 0x33)});
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, payload), port);
    EXPECT_EQ(-1, parse(f));
    EXPECT_EQ(err("Packet length is ERROR!"), messages().back());
}

TEST_F(PktParseTest, VendorSpecificCountIsEightBit) {
    // The count of Vendor-Specific tags is an 8-bit one: 256 of them count
    // as none.
    Bytes payload;
    for (int i = 0; i < 256; i++) payload = cat({payload, tag(0x0105, {})});
    FrameBuf f(frame(PPPOEPLUS_CODE_PADI, 0, payload), port);
    EXPECT_EQ(0, parse(f));
    EXPECT_EQ(6u, f.offsetOf(f.pkt.vsTag));
    FrameBuf twoMore(frame(PPPOEPLUS_CODE_PADI, 0, cat({payload, tag(0x0105, {}), tag(0x0105, {})})), port);
    EXPECT_EQ(-1, parse(twoMore));
    EXPECT_EQ(err("Pcaket cann't include multiple Vendor-specific tags!"), messages().back());
}

TEST_F(PktParseTest, ShortFramesReadZerosBehindThem) {
    for (size_t n = 0; n <= 6; n++) {
        Bytes bytes = frame(PPPOEPLUS_CODE_PADI, 0, {});
        bytes.resize(n);
        FrameBuf f(bytes, port);
        EXPECT_EQ(n == 6 ? 0 : -1, parse(f)) << n;
    }
    // A 2-byte frame in an exact buffer: the header is read as far as it
    // goes, the rest as zeros, and the header does not fit.
    sim::g.logs.clear();
    uint8_t two[2] = {0x11, PPPOEPLUS_CODE_PADI};
    tPppoePlusPkt pkt{};
    pkt.data = two;
    pkt.len = 2;
    EXPECT_EQ(-1, pppoeplusPktParse(port, &pkt));
    EXPECT_EQ((std::vector<Msg>{recv("Received a PADI packet."), err(summary(6, 0x11, 0, 0)),
                                err("Payload length is ERROR!")}),
              messages());
}

// ---- names and the hex dump ---------------------------------------------------------------

TEST(PktTypeStr, EveryCode) {
    EXPECT_STREQ("PADI", pppoeplusPktTypeStr(0x09));
    EXPECT_STREQ("PADO", pppoeplusPktTypeStr(0x07));
    EXPECT_STREQ("PADR", pppoeplusPktTypeStr(0x19));
    EXPECT_STREQ("PADS", pppoeplusPktTypeStr(0x65));
    EXPECT_STREQ("PADT", pppoeplusPktTypeStr(0xA7));
    for (int c : {0x00, 0x01, 0x08, 0x0A, 0x66, 0xA6, 0xFF}) EXPECT_STREQ("INVALID", pppoeplusPktTypeStr(uint8_t(c)));
}

class PktShowTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        pppoeplusTestStart();
        gPppoeplus.logLevel[0] = 6;
        gPppoeplus.logLevel[1] = 3;
        sim::g.logs.clear();
    }
};

const char kRule[] = "=================================================";

TEST_F(PktShowTest, NothingForNullOrEmpty) {
    uint8_t b[1] = {1};
    pppoeplusPktShow(nullptr, 10, 0);
    pppoeplusPktShow(b, 0, 0);
    EXPECT_TRUE(sim::g.logs.empty());
}

TEST_F(PktShowTest, OneBlockOfSixteenByteLines) {
    Bytes bytes(33);
    for (size_t i = 0; i < bytes.size(); i++) bytes[i] = static_cast<uint8_t>(0xE0 + i);
    pppoeplusPktShow(bytes.data(), static_cast<uint32_t>(bytes.size()), 0);
    ASSERT_EQ(35u, sim::g.logs.size());

    const sim::LogRecord& first = sim::g.logs.front();
    EXPECT_EQ(0x45D0000u, first.module);
    EXPECT_EQ(6u, first.level);
    EXPECT_EQ(LOG_PART_FIRST, first.part);
    EXPECT_EQ(std::string(kRule) + "\r\n", first.text);
    for (size_t i = 1; i <= 33; i++) {
        const sim::LogRecord& r = sim::g.logs[i];
        EXPECT_EQ(0x45D0000u, r.module);
        EXPECT_EQ(0u, r.level);
        EXPECT_EQ(LOG_PART_MIDDLE, r.part);
    }
    const sim::LogRecord& last = sim::g.logs.back();
    EXPECT_EQ(0x45D0000u, last.module);
    EXPECT_EQ(0u, last.level);
    EXPECT_EQ(LOG_PART_LAST, last.part);
    EXPECT_EQ("\r\n" + std::string(kRule) + "\r\n", last.text);

    std::string block;
    for (const sim::LogRecord& r : sim::g.logs) block += r.text;
    EXPECT_EQ(std::string(kRule) + "\r\n" +
                  "e0 e1 e2 e3 e4 e5 e6 e7 e8 e9 ea eb ec ed ee ef \r\n"
                  "f0 f1 f2 f3 f4 f5 f6 f7 f8 f9 fa fb fc fd fe ff \r\n"
                  "00 \r\n" +
                  kRule + "\r\n",
              block);
}

TEST_F(PktShowTest, SentFramesUseTheSendModuleForTheHeading) {
    uint8_t b[2] = {0x11, 0x09};
    pppoeplusPktShow(b, 2, 1);
    ASSERT_EQ(4u, sim::g.logs.size());
    EXPECT_EQ(0x45D0001u, sim::g.logs[0].module);
    EXPECT_EQ(3u, sim::g.logs[0].level);
    EXPECT_EQ("11 ", sim::g.logs[1].text);
    EXPECT_EQ("09 ", sim::g.logs[2].text);
    EXPECT_EQ(0x45D0000u, sim::g.logs[3].module);
}

}  // namespace
