// Frames of the services' protocol, on canned bytes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "platform/linux/cmd_proto.h"

namespace {

using namespace cmdp;

// The body of a frame built by an encoder, after checking its header.
std::vector<uint8_t> bodyOf(const std::vector<uint8_t>& frame, uint8_t kind) {
    Header h;
    EXPECT_GE(frame.size(), HEADER_LEN);
    EXPECT_EQ(0, headerDecode(frame.data(), MAX_REPLY_BODY, h));
    EXPECT_EQ(kind, h.kind);
    EXPECT_EQ(frame.size() - HEADER_LEN, h.length);
    return std::vector<uint8_t>(frame.begin() + HEADER_LEN, frame.end());
}

TEST(CmdProto, HeaderBytes) {
    Header h;
    h.kind = KIND_CALL;
    h.length = 0x01020304;
    h.seq = 0xA0B0C0D0;
    uint8_t b[HEADER_LEN];
    headerEncode(h, b);
    const uint8_t want[HEADER_LEN] = {0x50, 0x50, 1, 1, 1, 2, 3, 4, 0xA0, 0xB0, 0xC0, 0xD0};
    EXPECT_EQ(0, std::memcmp(want, b, HEADER_LEN));
}

TEST(CmdProto, TheDocumentedExampleBytes) {
    CallRequest r;
    r.code = 1;
    r.cmd = 10;
    r.valueKind = VALUE_U32;
    const std::vector<uint8_t> request = {0x50, 0x50, 1, 1, 0, 0, 0, 0x1c, 0, 0, 0, 1,  // header
                                          0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0x0a,     // code, unit, cmd
                                          1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,        // kind, length word, capacity
                                          0, 0, 0, 0};                               // data length
    EXPECT_EQ(request, callRequestEncode(r, 1));
    CallReply reply;
    reply.valueKind = VALUE_U32;
    reply.lenWord = 3561;
    const std::vector<uint8_t> answer = {0x50, 0x50, 1, 0x81, 0, 0, 0, 0x10, 0, 0, 0, 1,
                                         0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0x0d, 0xe9, 0, 0, 0, 0};
    EXPECT_EQ(answer, callReplyEncode(reply, 1));
}

TEST(CmdProto, HeaderChecks) {
    uint8_t b[HEADER_LEN] = {0x50, 0x50, 1, 1, 0, 0, 0x20, 0x00, 0, 0, 0, 7};
    Header h;
    EXPECT_EQ(0, headerDecode(b, MAX_REQUEST_BODY, h));
    EXPECT_EQ(8192u, h.length);
    EXPECT_EQ(7u, h.seq);
    b[7] = 1;  // 8193
    EXPECT_EQ(ERR_TOO_LONG, headerDecode(b, MAX_REQUEST_BODY, h));
    b[7] = 0;
    b[2] = 2;
    EXPECT_EQ(ERR_UNSUPPORTED, headerDecode(b, MAX_REQUEST_BODY, h));
    b[2] = 1;
    b[0] = 0x51;
    EXPECT_EQ(ERR_MALFORMED, headerDecode(b, MAX_REQUEST_BODY, h));
}

TEST(CmdProto, CallRequestRoundTrip) {
    CallRequest r;
    r.code = 2;
    r.unit = 17;
    r.cmd = 6;
    r.valueKind = VALUE_STR;
    r.lenWord = 5;
    r.capacity = 5;
    r.data = {'\'', '%', 'C', '\'', 'x'};
    auto body = bodyOf(callRequestEncode(r, 9), KIND_CALL);
    ASSERT_EQ(28u + 5u, body.size());
    CallRequest back;
    ASSERT_EQ(0, callRequestDecode(body.data(), body.size(), back));
    EXPECT_EQ(2u, back.code);
    EXPECT_EQ(17u, back.unit);
    EXPECT_EQ(6u, back.cmd);
    EXPECT_EQ(VALUE_STR, back.valueKind);
    EXPECT_EQ(5u, back.lenWord);
    EXPECT_EQ(5u, back.capacity);
    EXPECT_EQ(r.data, back.data);
}

TEST(CmdProto, CallRequestLengthsThatLieAreRefused) {
    CallRequest r;
    r.code = 1;
    r.valueKind = VALUE_RAW;
    r.capacity = 8;
    r.data = {1, 2, 3, 4};
    auto body = bodyOf(callRequestEncode(r, 1), KIND_CALL);
    CallRequest back;
    // Every cut of the body is refused, and one extra byte too.
    for (size_t n = 0; n < body.size(); n++)
        EXPECT_EQ(ERR_MALFORMED, callRequestDecode(body.data(), n, back)) << "cut at " << n;
    auto longer = body;
    longer.push_back(0);
    EXPECT_EQ(ERR_MALFORMED, callRequestDecode(longer.data(), longer.size(), back));
    // Data length beyond the capacity.
    auto lie = body;
    lie[27] = 9;
    EXPECT_EQ(ERR_MALFORMED, callRequestDecode(lie.data(), lie.size(), back));
    // Capacity beyond the limit.
    r.capacity = MAX_VALUE + 1;
    r.data.clear();
    auto big = bodyOf(callRequestEncode(r, 1), KIND_CALL);
    EXPECT_EQ(ERR_MALFORMED, callRequestDecode(big.data(), big.size(), back));
    // A u32 value with a buffer.
    r.valueKind = VALUE_U32;
    r.capacity = 4;
    auto u32buf = bodyOf(callRequestEncode(r, 1), KIND_CALL);
    EXPECT_EQ(ERR_MALFORMED, callRequestDecode(u32buf.data(), u32buf.size(), back));
    // An unknown value kind.
    r.valueKind = 4;
    r.capacity = 0;
    auto kind = bodyOf(callRequestEncode(r, 1), KIND_CALL);
    EXPECT_EQ(ERR_MALFORMED, callRequestDecode(kind.data(), kind.size(), back));
}

TEST(CmdProto, CallReplyRoundTrip) {
    CallReply r;
    r.result = -1;
    r.valueKind = VALUE_U32;
    r.lenWord = 0xDE9;
    auto body = bodyOf(callReplyEncode(r, 3), KIND_CALL | REPLY_BIT);
    CallReply back;
    ASSERT_EQ(0, callReplyDecode(body.data(), body.size(), back));
    EXPECT_EQ(-1, back.result);
    EXPECT_EQ(0xDE9u, back.lenWord);
    EXPECT_TRUE(back.data.empty());
}

TEST(CmdProto, ShellRequestRoundTripAndLimits) {
    ShellRequest r;
    r.name = "pppoeplusShow";
    r.args = {1, -2, 0x7FFFFFFFFFFFLL};
    auto body = bodyOf(shellRequestEncode(r, 1), KIND_SHELL);
    ShellRequest back;
    ASSERT_EQ(0, shellRequestDecode(body.data(), body.size(), back));
    EXPECT_EQ(r.name, back.name);
    EXPECT_EQ(r.args, back.args);
    for (size_t n = 0; n < body.size(); n++) EXPECT_EQ(ERR_MALFORMED, shellRequestDecode(body.data(), n, back));

    r.args.assign(11, 0);
    auto many = bodyOf(shellRequestEncode(r, 1), KIND_SHELL);
    EXPECT_EQ(ERR_MALFORMED, shellRequestDecode(many.data(), many.size(), back));
    r.args.clear();
    r.name = "bad name";
    auto blank = bodyOf(shellRequestEncode(r, 1), KIND_SHELL);
    EXPECT_EQ(ERR_MALFORMED, shellRequestDecode(blank.data(), blank.size(), back));
    r.name = std::string(64, 'a');
    auto longName = bodyOf(shellRequestEncode(r, 1), KIND_SHELL);
    EXPECT_EQ(ERR_MALFORMED, shellRequestDecode(longName.data(), longName.size(), back));
    r.name = "";
    auto empty = bodyOf(shellRequestEncode(r, 1), KIND_SHELL);
    EXPECT_EQ(ERR_MALFORMED, shellRequestDecode(empty.data(), empty.size(), back));
}

TEST(CmdProto, ShellReplyRoundTripAndTruncation) {
    ShellReply r;
    r.status = 0;
    r.result = 7;
    r.output = "line 1\r\nline 2\r\n";
    auto body = bodyOf(shellReplyEncode(r, 1), KIND_SHELL | REPLY_BIT);
    ShellReply back;
    ASSERT_EQ(0, shellReplyDecode(body.data(), body.size(), back));
    EXPECT_EQ(7, back.result);
    EXPECT_EQ(r.output, back.output);
    EXPECT_EQ(0, back.flags);

    r.output.assign(MAX_SHELL_OUTPUT + 10, 'x');
    auto big = bodyOf(shellReplyEncode(r, 1), KIND_SHELL | REPLY_BIT);
    ASSERT_EQ(0, shellReplyDecode(big.data(), big.size(), back));
    EXPECT_EQ(MAX_SHELL_OUTPUT, back.output.size());
    EXPECT_EQ(SHELL_FLAG_TRUNCATED, back.flags);
}

TEST(CmdProto, EventRequests) {
    EventRequest port;
    port.event = EVENT_RESET_PORT;
    port.ifName = "eth3";
    auto body = bodyOf(eventRequestEncode(port, 1), KIND_EVENT);
    EventRequest back;
    ASSERT_EQ(0, eventRequestDecode(body.data(), body.size(), back));
    EXPECT_EQ(EVENT_RESET_PORT, back.event);
    EXPECT_EQ(0u, back.unit);
    EXPECT_EQ("eth3", back.ifName);

    EventRequest proto;
    proto.event = EVENT_RESET_PROTO;
    proto.protos = {141, 19};
    auto pbody = bodyOf(eventRequestEncode(proto, 1), KIND_EVENT);
    ASSERT_EQ(0, eventRequestDecode(pbody.data(), pbody.size(), back));
    EXPECT_EQ(proto.protos, back.protos);

    proto.protos = {385};
    auto beyond = bodyOf(eventRequestEncode(proto, 1), KIND_EVENT);
    EXPECT_EQ(ERR_MALFORMED, eventRequestDecode(beyond.data(), beyond.size(), back));
    proto.protos.clear();
    auto none = bodyOf(eventRequestEncode(proto, 1), KIND_EVENT);
    EXPECT_EQ(ERR_MALFORMED, eventRequestDecode(none.data(), none.size(), back));
    port.unit = 4;  // unit and name at once
    auto both = bodyOf(eventRequestEncode(port, 1), KIND_EVENT);
    EXPECT_EQ(ERR_MALFORMED, eventRequestDecode(both.data(), both.size(), back));
    const uint8_t unknown[] = {9};
    EXPECT_EQ(ERR_MALFORMED, eventRequestDecode(unknown, 1, back));
    EXPECT_EQ(ERR_MALFORMED, eventRequestDecode(unknown, 0, back));
}

TEST(CmdProto, ErrorReply) {
    auto body = bodyOf(errorReplyEncode(ErrorReply{ERR_TOO_LONG, std::string(300, 'e')}, 5), KIND_ERROR);
    ErrorReply back;
    ASSERT_EQ(0, errorReplyDecode(body.data(), body.size(), back));
    EXPECT_EQ(ERR_TOO_LONG, back.result);
    EXPECT_EQ(MAX_ERROR_TEXT, back.text.size());
}

TEST(CmdProto, RuntimePaths) {
    ::unsetenv("PPPOEPLUS_ROOT");
    EXPECT_EQ("/tmp/pppoeplusNm.socket", runtimePath(CMD_SOCKET));
    ::setenv("PPPOEPLUS_ROOT", "/run/lab1/", 1);
    EXPECT_EQ("/run/lab1/pppoeplusNm.socket", runtimePath(CMD_SOCKET));
    EXPECT_EQ("/run/lab1/pppoeplusShell.socket", runtimePath(shellSocketPath("pppoeplus")));
    EXPECT_EQ("/var/x", runtimePath("/var/x"));
    ::unsetenv("PPPOEPLUS_ROOT");
}

}  // namespace
