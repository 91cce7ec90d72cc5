// The management tables as the command service serves them to other
// processes: the settings table the daemon registers, and every call made
// through the service's dispatch into the real entry points on the
// simulated device. The service builds each value record from the table; a
// request whose value does not fit its setting reaches no entry point, and
// no request can leave the daemon lock held.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "agent/global.h"
#include "mgmt/call_specs.h"
#include "mgmt/func_map.h"
#include "mgmt/mgmt_test_util.h"
#include "mgmt/mgmt_types.h"
#include "mgmt/scalar_api.h"
#include "packet/pkt_recv.h"
#include "platform/linux/cmd_call.h"
#include "platform/linux/cmd_proto.h"
#include "platform/types.h"
#include "support/fixture.h"

namespace {

using mgmt_test::lockRecord;

// What came back from the service for one request.
struct Outcome {
    bool error = false;  // an error reply: the connection is closed after it
    int32_t result = 0;
    std::string text;    // an error reply's reason
    cmdp::CallReply reply;
    bool reached = false;  // an entry point ran (it took the daemon lock)
};

class CallSpecsTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        sim::addInterface(7, "eth0/7", ZEL_OND_ETH);
        pppoeplusTestStart();
        table_.map = static_cast<const tIcmFuncMap*>(sim::g.cmdMap);
        table_.rows = sim::g.cmdRows;
        ASSERT_NE(nullptr, sim::g.cmdSpecs) << "start-up registers the settings";
        table_.specs.assign(sim::g.cmdSpecs, sim::g.cmdSpecs + sim::g.cmdSpecRows);
    }

    Outcome serve(const cmdp::CallRequest& req) {
        std::vector<uint8_t> bytes = cmdp::callRequestEncode(req, 42);
        cmdp::Frame f;
        EXPECT_EQ(0, cmdp::headerDecode(bytes.data(), cmdp::MAX_REQUEST_BODY, f.header));
        f.body.assign(bytes.begin() + cmdp::HEADER_LEN, bytes.end());
        const uint32_t takes = lockRecord().takes;
        linuxplat::Answer a = linuxplat::callServe(table_, f);
        Outcome o;
        o.reached = lockRecord().takes != takes;
        cmdp::Header h;
        EXPECT_EQ(0, cmdp::headerDecode(a.reply.data(), cmdp::MAX_REPLY_BODY, h));
        EXPECT_EQ(42u, h.seq);
        const uint8_t* body = a.reply.data() + cmdp::HEADER_LEN;
        if (h.kind == cmdp::KIND_ERROR) {
            cmdp::ErrorReply e;
            EXPECT_EQ(0, cmdp::errorReplyDecode(body, h.length, e));
            EXPECT_TRUE(a.close) << "an error reply ends the connection";
            o.error = true;
            o.result = e.result;
            o.text = e.text;
        } else {
            EXPECT_EQ(cmdp::KIND_CALL | cmdp::REPLY_BIT, h.kind);
            EXPECT_EQ(0, cmdp::callReplyDecode(body, h.length, o.reply));
            EXPECT_FALSE(a.close);
            o.result = o.reply.result;
        }
        return o;
    }

    static cmdp::CallRequest word(uint32_t code, uint32_t unit, uint32_t cmd, uint32_t value) {
        cmdp::CallRequest r;
        r.code = code;
        r.unit = unit;
        r.cmd = cmd;
        r.valueKind = cmdp::VALUE_U32;
        r.lenWord = value;
        return r;
    }
    static cmdp::CallRequest text(uint32_t code, uint32_t unit, uint32_t cmd, const std::string& t) {
        cmdp::CallRequest r;
        r.code = code;
        r.unit = unit;
        r.cmd = cmd;
        r.valueKind = cmdp::VALUE_STR;
        r.data.assign(t.begin(), t.end());
        r.lenWord = r.capacity = static_cast<uint32_t>(t.size());
        return r;
    }
    static cmdp::CallRequest room(uint32_t code, uint32_t unit, uint32_t cmd, uint32_t bytes) {
        cmdp::CallRequest r;
        r.code = code;
        r.unit = unit;
        r.cmd = cmd;
        r.valueKind = cmdp::VALUE_STR;
        r.lenWord = r.capacity = bytes;
        return r;
    }

    const tIcmCallSpec* spec(uint32_t code, uint32_t cmd) const {
        for (const tIcmCallSpec& s : table_.specs)
            if (s.code == code && (s.cmd == cmd || s.cmd == ICM_ANY_CMD)) return &s;
        return nullptr;
    }

    linuxplat::CallTable table_;
};

TEST_F(CallSpecsTest, TheTableIsOneTheServiceAccepts) {
    EXPECT_EQ("", linuxplat::callSpecsCheck(gPppoeplusCallSpecs.data(), PPPOEPLUS_CALL_SPEC_ROWS));
    EXPECT_EQ(PPPOEPLUS_CALL_SPEC_ROWS, table_.specs.size());
    // One row per (map row, setting): no setting is listed twice.
    for (size_t i = 0; i < table_.specs.size(); i++)
        for (size_t j = i + 1; j < table_.specs.size(); j++)
            EXPECT_FALSE(table_.specs[i].code == table_.specs[j].code && table_.specs[i].cmd == table_.specs[j].cmd)
                << "row " << i << " and " << j;
}

TEST_F(CallSpecsTest, EachSettingTakesTheRecordItsEntryPointReads) {
    struct Row {
        uint32_t code, cmd;
        uint8_t kind;
        uint32_t capacity, minRoom;
    };
    const Row rows[] = {
        {PPPOEPLUS_FUNC_SCALAR_GET, PPPOEPLUS_SCALAR_ENABLE, ICM_VALUE_U32, 0, 0},
        {PPPOEPLUS_FUNC_SCALAR_GET, PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, ICM_VALUE_TEXT_OUT, 256, 0},
        {PPPOEPLUS_FUNC_SCALAR_GET, PPPOEPLUS_SCALAR_VERSION, ICM_VALUE_TEXT_OUT, 21, 0},
        {PPPOEPLUS_FUNC_SCALAR_GET, PPPOEPLUS_SCALAR_NSRINFO, ICM_VALUE_TEXT_OUT, 12, 12},
        {PPPOEPLUS_FUNC_SCALAR_SET, PPPOEPLUS_SCALAR_REMOTEID_FORMAT, ICM_VALUE_TEXT_IN, 256, 0},
        {PPPOEPLUS_FUNC_SCALAR_SYNC, PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT, ICM_VALUE_TEXT_IN, 256, 0},
        {PPPOEPLUS_FUNC_SCALAR_SET, PPPOEPLUS_SCALAR_VENDORID, ICM_VALUE_U32, 0, 0},
        {PPPOEPLUS_FUNC_IF_GET_FIRST, 0, ICM_VALUE_U32, 0, 0},
        {PPPOEPLUS_FUNC_IF_GET_NEXT, 77, ICM_VALUE_U32, 0, 0},
        {PPPOEPLUS_FUNC_IF_GET, PPPOEPLUS_IF_TOTAL_SEND, ICM_VALUE_U32, 0, 0},
        {PPPOEPLUS_FUNC_IF_GET, PPPOEPLUS_IF_REMOTEID_FORMAT, ICM_VALUE_TEXT_OUT, 256, 0},
        {PPPOEPLUS_FUNC_IF_SET, PPPOEPLUS_IF_CIRCUITID_FORMAT, ICM_VALUE_TEXT_IN, 256, 0},
        {PPPOEPLUS_FUNC_IF_SYNC, PPPOEPLUS_IF_STAT_CLEAR, ICM_VALUE_U32, 0, 0},
    };
    for (const Row& r : rows) {
        const tIcmCallSpec* s = spec(r.code, r.cmd);
        ASSERT_NE(nullptr, s) << r.code << "/" << r.cmd;
        EXPECT_EQ(r.kind, s->valueKind) << r.code << "/" << r.cmd;
        EXPECT_EQ(r.capacity, s->capacity) << r.code << "/" << r.cmd;
        EXPECT_EQ(r.minRoom, s->minRoom) << r.code << "/" << r.cmd;
    }
    // Read-only values cannot be set, counters have no set, a clear no get.
    EXPECT_EQ(nullptr, spec(PPPOEPLUS_FUNC_SCALAR_SET, PPPOEPLUS_SCALAR_VERSION));
    EXPECT_EQ(nullptr, spec(PPPOEPLUS_FUNC_SCALAR_SYNC, PPPOEPLUS_SCALAR_NSRINFO));
    EXPECT_EQ(nullptr, spec(PPPOEPLUS_FUNC_IF_SET, PPPOEPLUS_IF_PADI_RCV));
    EXPECT_EQ(nullptr, spec(PPPOEPLUS_FUNC_IF_GET, PPPOEPLUS_IF_STAT_CLEAR));
    EXPECT_EQ(nullptr, spec(PPPOEPLUS_FUNC_SCALAR_GET, PPPOEPLUS_SCALAR_MAX));
    EXPECT_EQ(nullptr, spec(PPPOEPLUS_FUNC_NONE, 0));
}

TEST_F(CallSpecsTest, CallsThatFitReachTheEntryPointsAndAnswerAsTheyDo) {
    Outcome o = serve(word(PPPOEPLUS_FUNC_SCALAR_SET, 0, PPPOEPLUS_SCALAR_VENDORID, 4242));
    EXPECT_FALSE(o.error);
    EXPECT_TRUE(o.reached);
    EXPECT_EQ(0, o.result);
    EXPECT_EQ(4242u, gPppoeplus.vendorId);

    o = serve(word(PPPOEPLUS_FUNC_IF_SET, 7, PPPOEPLUS_IF_ENABLE, ZEL_TRUE));
    EXPECT_EQ(0, o.result);
    o = serve(word(PPPOEPLUS_FUNC_IF_GET_FIRST, 0, 0, 0));
    EXPECT_EQ(0, o.result);
    EXPECT_EQ(7u, o.reply.lenWord);
    o = serve(word(PPPOEPLUS_FUNC_IF_GET_NEXT, 7, 0, 0));
    EXPECT_EQ(-1, o.result);

    o = serve(word(PPPOEPLUS_FUNC_SCALAR_SET, 0, PPPOEPLUS_SCALAR_CIRCUITID_TYPE, 1));
    EXPECT_EQ(0, o.result);
    o = serve(text(PPPOEPLUS_FUNC_SCALAR_SET, 0, PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, "'%portname-%svlan'"));
    EXPECT_EQ(0, o.result);
    o = serve(room(PPPOEPLUS_FUNC_SCALAR_GET, 0, PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, 512));
    EXPECT_EQ(0, o.result);
    EXPECT_EQ("'%portname-%svlan'", std::string(o.reply.data.begin(), o.reply.data.end()));
    EXPECT_EQ(18u, o.reply.lenWord);

    // An unknown interface answers as the entry point does.
    o = serve(word(PPPOEPLUS_FUNC_IF_SET, 99, PPPOEPLUS_IF_TRUST, ZEL_TRUE));
    EXPECT_FALSE(o.error);
    EXPECT_EQ(ZEL_ERR_NOT_FOUND, o.result);

    // The version with too little room: the entry point's own answer.
    o = serve(room(PPPOEPLUS_FUNC_SCALAR_GET, 0, PPPOEPLUS_SCALAR_VERSION, 20));
    EXPECT_TRUE(o.reached);
    EXPECT_EQ(ZEL_ERR_TOO_LONG, o.result);
    o = serve(room(PPPOEPLUS_FUNC_SCALAR_GET, 0, PPPOEPLUS_SCALAR_VERSION, 64));
    EXPECT_EQ("PPPOEPLUS_V7.00.00.00", std::string(o.reply.data.begin(), o.reply.data.end()));
    EXPECT_EQ(0, lockRecord().depth);
}

// A request whose value kind comes from the wire used to decide the record:
// the raw kind made the daemon read the request's bytes as a {pointer,
// length} record and write through the pointer.
TEST_F(CallSpecsTest, ARawValueIsNeverTakenForARecord) {
    const uint32_t before = gPppoeplusTestForward;
    cmdp::CallRequest r;
    r.code = PPPOEPLUS_FUNC_SCALAR_SET;
    r.cmd = PPPOEPLUS_SCALAR_CIRCUITID_FORMAT;
    r.valueKind = cmdp::VALUE_RAW;
    r.capacity = 16;
    uint8_t record[16] = {};
    char* target = reinterpret_cast<char*>(&gPppoeplusTestForward);
    uint32_t len = 4;
    std::memcpy(record, &target, sizeof(target));
    std::memcpy(record + 8, &len, 4);
    r.data.assign(record, record + 16);
    for (uint32_t code : {PPPOEPLUS_FUNC_SCALAR_GET, PPPOEPLUS_FUNC_SCALAR_SET, PPPOEPLUS_FUNC_IF_GET}) {
        r.code = code;
        Outcome o = serve(r);
        EXPECT_TRUE(o.error) << code;
        EXPECT_EQ(cmdp::ERR_MALFORMED, o.result);
        EXPECT_FALSE(o.reached);
    }
    EXPECT_EQ(before, gPppoeplusTestForward);
}

// The NSR get returns with the daemon lock held when it is given less room
// than its 12-byte record. No caller of the service can make that call.
TEST_F(CallSpecsTest, AnNsrGetWithLessRoomThanItsRecordNeverReachesTheEntryPoint) {
    for (uint32_t bytes = 0; bytes < 12; bytes++) {
        Outcome o = serve(room(PPPOEPLUS_FUNC_SCALAR_GET, 0, PPPOEPLUS_SCALAR_NSRINFO, bytes));
        EXPECT_TRUE(o.error) << bytes;
        EXPECT_EQ(cmdp::ERR_MALFORMED, o.result);
        EXPECT_NE(std::string::npos, o.text.find("at least 12 bytes")) << o.text;
        EXPECT_FALSE(o.reached) << bytes;
        EXPECT_EQ(0, lockRecord().depth);
    }
    for (uint32_t bytes : {12u, 13u, 16u, 4096u}) {
        Outcome o = serve(room(PPPOEPLUS_FUNC_SCALAR_GET, 0, PPPOEPLUS_SCALAR_NSRINFO, bytes));
        EXPECT_FALSE(o.error) << bytes;
        EXPECT_EQ(0, o.result);
        ASSERT_EQ(12u, o.reply.data.size());
        EXPECT_EQ(12u, o.reply.lenWord);
        const uint32_t expect[3] = {ZEL_TRUE, 0, 0};
        EXPECT_EQ(0, std::memcmp(expect, o.reply.data.data(), 12));
        EXPECT_EQ(0, lockRecord().depth);
    }
}

// A format comes back whole whatever size the caller announced: the record
// is built over the setting's own buffer, so a small announced size cannot
// make the entry point write past it.
TEST_F(CallSpecsTest, AFormatGetWithASmallAnnouncedSizeStaysInsideTheBuffer) {
    const std::string longText = "'" + std::string(200, 'x') + "'";
    ASSERT_EQ(0, serve(word(PPPOEPLUS_FUNC_SCALAR_SET, 0, PPPOEPLUS_SCALAR_REMOTEID_TYPE, 2)).result);
    ASSERT_EQ(0, serve(text(PPPOEPLUS_FUNC_SCALAR_SET, 0, PPPOEPLUS_SCALAR_REMOTEID_FORMAT, longText)).result);
    for (uint32_t bytes : {0u, 1u, 8u}) {
        Outcome o = serve(room(PPPOEPLUS_FUNC_SCALAR_GET, 0, PPPOEPLUS_SCALAR_REMOTEID_FORMAT, bytes));
        EXPECT_EQ(0, o.result);
        EXPECT_EQ(longText.size(), o.reply.lenWord);
        EXPECT_EQ(longText.substr(0, bytes), std::string(o.reply.data.begin(), o.reply.data.end()));
    }
}

TEST_F(CallSpecsTest, TextsLongerThanTheSettingTakesAreAnsweredTooLong) {
    sim::g.calls.clear();
    Outcome o = serve(text(PPPOEPLUS_FUNC_SCALAR_SET, 0, PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, std::string(257, 'a')));
    EXPECT_FALSE(o.error);
    EXPECT_EQ(ZEL_ERR_TOO_LONG, o.result);
    EXPECT_FALSE(o.reached);
    EXPECT_TRUE(sim::callsStartingWith("zelHwilCmdSyncApi").empty());
    // 256 bytes still reach the entry point, which forwards, then refuses.
    o = serve(text(PPPOEPLUS_FUNC_SCALAR_SET, 0, PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, std::string(256, 'a')));
    EXPECT_TRUE(o.reached);
    EXPECT_EQ(ZEL_ERR_TOO_LONG, o.result);
    EXPECT_EQ(1u, sim::callsStartingWith("zelHwilCmdSyncApi").size());
}

// Every wire kind against every map row and setting, with announced sizes
// around each setting's capacity and lengths that lie about the bytes sent.
// Whatever comes, the answer is a readable frame, the lock is free after it,
// and only a request that fits its setting reaches an entry point.
TEST_F(CallSpecsTest, BadRequestTable) {
    const uint8_t kinds[] = {cmdp::VALUE_NONE, cmdp::VALUE_U32, cmdp::VALUE_STR, cmdp::VALUE_RAW, 4, 0xFF};
    const uint32_t cmds[] = {0, 1, 3, 6, 9, 12, 16, 17, 18, 19, 0xFFFFFFFFu};
    // Shapes of the value: {length word, buffer size, bytes sent}.
    auto shapes = [](uint32_t cap) {
        std::vector<std::array<uint32_t, 3>> v;
        for (uint32_t n : {0u, 1u, 11u, 12u, cap == 0 ? 2u : cap - 1, cap, cap + 1}) {
            v.push_back({n, n, n});      // honest text
            v.push_back({n, n, 0});      // honest get
            v.push_back({n + 1, n, n});  // length word beyond the bytes
            v.push_back({n, n + 5, n});  // buffer beyond the bytes
            if (n > 0) v.push_back({n - 1, n, n});
        }
        return v;
    };
    size_t served = 0, refused = 0;
    for (uint32_t code = 0; code <= 9; code++) {
        for (uint32_t cmd : cmds) {
            const tIcmCallSpec* s = spec(code, cmd);
            for (uint8_t kind : kinds) {
                for (auto [lenWord, capacity, sent] : shapes(s != nullptr ? s->capacity : 16)) {
                    if (capacity > cmdp::MAX_VALUE || sent > capacity) continue;  // the decoder's own refusals
                    cmdp::CallRequest r;
                    r.code = code;
                    r.unit = 7;
                    r.cmd = cmd;
                    r.valueKind = kind;
                    r.lenWord = lenWord;
                    r.capacity = capacity;
                    r.data.assign(sent, 'z');
                    if (code == PPPOEPLUS_FUNC_IF_SET && cmd == PPPOEPLUS_IF_ENABLE) r.unit = 8;  // keep eth0/7
                    Outcome o = serve(r);
                    ASSERT_EQ(0, lockRecord().depth) << code << "/" << cmd << " kind " << int(kind);
                    bool fits = false;
                    if (s != nullptr) {
                        if (s->valueKind == ICM_VALUE_U32)
                            fits = kind == cmdp::VALUE_U32 && capacity == 0 && sent == 0;
                        else if (s->valueKind == ICM_VALUE_TEXT_IN)
                            fits = kind == cmdp::VALUE_STR && lenWord == capacity && sent == lenWord &&
                                   lenWord <= s->capacity;
                        else
                            fits = kind == cmdp::VALUE_STR && sent == 0 && lenWord <= capacity &&
                                   lenWord >= s->minRoom;
                    }
                    if (!fits) {
                        EXPECT_FALSE(o.reached) << code << "/" << cmd << " kind " << int(kind) << " " << lenWord
                                                << "/" << capacity << "/" << sent;
                        EXPECT_NE(0, o.result);
                        refused++;
                    } else {
                        served++;
                    }
                }
            }
        }
    }
    // Both halves of the table were exercised.
    EXPECT_GT(served, 100u);
    EXPECT_GT(refused, 1000u);
}

}  // namespace
