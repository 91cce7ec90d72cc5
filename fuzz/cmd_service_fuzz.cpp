// Fuzz target of the command service as a peer meets it: the bytes a
// connection sends are read as the service reads them (frame header, body,
// request kind), every call goes through the service's own dispatch
// (cmd_call.h: the settings table, the value record it builds, the entry
// point) into the daemon's real management entry points, running on the
// simulated device.
//
// An input is the byte stream of one connection. After every call the
// daemon lock must be free again, nothing may have written the test globals,
// and every answer must be a frame a client can read.
#include <cstring>
#include <string>
#include <vector>

#include "agent/global.h"
#include "fuzz/fuzz_target.h"
#include "fuzz/pkt_fuzz_target.h"
#include "platform/linux/cmd_call.h"
#include "platform/linux/cmd_proto.h"
#include "platform/sim/sim.h"

namespace pppoeplusfuzz {

const char* const kTargetName = "cmd_service_fuzz";

namespace {

// The command service's table, as the daemon registered it at start-up.
linuxplat::CallTable serviceTable() {
    linuxplat::CallTable t;
    t.map = static_cast<const tIcmFuncMap*>(sim::g.cmdMap);
    t.rows = sim::g.cmdRows;
    if (sim::g.cmdSpecs != nullptr) t.specs.assign(sim::g.cmdSpecs, sim::g.cmdSpecs + sim::g.cmdSpecRows);
    return t;
}

// What a client reading `reply` would see wrong with it.
std::string replyProblems(const std::vector<uint8_t>& reply) {
    if (reply.size() < cmdp::HEADER_LEN) return "reply shorter than a header; ";
    cmdp::Header h;
    if (cmdp::headerDecode(reply.data(), cmdp::MAX_REPLY_BODY, h) != 0) return "reply header unreadable; ";
    if (h.length != reply.size() - cmdp::HEADER_LEN) return "reply length wrong; ";
    const uint8_t* body = reply.data() + cmdp::HEADER_LEN;
    if (h.kind == cmdp::KIND_ERROR) {
        cmdp::ErrorReply e;
        if (cmdp::errorReplyDecode(body, h.length, e) != 0) return "error reply unreadable; ";
        if (e.text.empty()) return "error reply without a reason; ";
        return "";
    }
    if (h.kind != (cmdp::KIND_CALL | cmdp::REPLY_BIT)) return "reply of another kind; ";
    cmdp::CallReply r;
    if (cmdp::callReplyDecode(body, h.length, r) != 0) return "call reply unreadable; ";
    return "";
}

}  // namespace

void targetSetUp() { pppoeplusFuzzSetUp(); }

std::string targetOne(const uint8_t* data, size_t size) {
    std::string problems;
    pppoeplusFuzzSetUp();
    const linuxplat::CallTable table = serviceTable();
    if (table.specs.empty()) return "the daemon registered no settings; ";
    const uint32_t forward = gPppoeplusTestForward;

    size_t at = 0;
    while (at < size) {
        // The header, then as much body as it announces, as the service
        // reads them; a stream that ends early is a request cut short.
        if (size - at < cmdp::HEADER_LEN) break;
        cmdp::Header h;
        if (cmdp::headerDecode(data + at, cmdp::MAX_REQUEST_BODY, h) != 0) break;  // answered, then closed
        if (size - at - cmdp::HEADER_LEN < h.length) break;
        cmdp::Frame frame;
        frame.header = h;
        frame.body.assign(data + at + cmdp::HEADER_LEN, data + at + cmdp::HEADER_LEN + h.length);
        at += cmdp::HEADER_LEN + h.length;
        if (h.kind != cmdp::KIND_CALL) break;  // refused, then closed

        linuxplat::Answer a = linuxplat::callServe(table, frame);
        problems += replyProblems(a.reply);
        if (sim::g.sems[gPppoeplus.semId].depth != 0) {
            problems += "the daemon lock is held after a call; ";
            break;
        }
        if (gPppoeplusTestForward != forward) problems += "a call wrote the test switch; ";
        if (a.close) break;
    }
    return problems;
}

}  // namespace pppoeplusfuzz
