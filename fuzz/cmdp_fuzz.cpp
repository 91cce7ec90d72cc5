// Fuzz target of the services' protocol decoders (platform/linux/cmd_proto.h):
// the frame header and every request and reply body, as the command
// service, the process shell and the event service read them from a peer.
//
// An input is one selector byte and the bytes to decode:
//   byte 0  low 3 bits: 0 frame header, 1 call request, 2 shell request,
//           3 event request, 4 call reply, 5 shell reply, 6 event reply,
//           7 error reply
//   then    the bytes.
// What decodes must encode again and decode to the same record, and its
// encoding must carry a header that reads back with the body's length.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/fuzz_target.h"
#include "platform/linux/cmd_proto.h"

namespace pppoeplusfuzz {

const char* const kTargetName = "cmdp_fuzz";

void targetSetUp() {}

namespace {

bool same(const cmdp::CallRequest& a, const cmdp::CallRequest& b) {
    return a.code == b.code && a.unit == b.unit && a.cmd == b.cmd && a.valueKind == b.valueKind &&
           a.lenWord == b.lenWord && a.capacity == b.capacity && a.data == b.data;
}
bool same(const cmdp::CallReply& a, const cmdp::CallReply& b) {
    return a.result == b.result && a.valueKind == b.valueKind && a.lenWord == b.lenWord && a.data == b.data;
}
bool same(const cmdp::ShellRequest& a, const cmdp::ShellRequest& b) { return a.name == b.name && a.args == b.args; }
bool same(const cmdp::ShellReply& a, const cmdp::ShellReply& b) {
    return a.status == b.status && a.result == b.result && a.flags == b.flags && a.output == b.output;
}
bool same(const cmdp::EventRequest& a, const cmdp::EventRequest& b) {
    return a.event == b.event && a.unit == b.unit && a.ifName == b.ifName && a.protos == b.protos;
}
bool same(const cmdp::EventReply& a, const cmdp::EventReply& b) {
    return a.result == b.result && a.delivered == b.delivered;
}
bool same(const cmdp::ErrorReply& a, const cmdp::ErrorReply& b) { return a.result == b.result && a.text == b.text; }

// Decodes `body`; when it decodes, encodes the record again and checks the
// frame that makes.
template <typename Rec, typename Dec, typename Enc>
std::string roundTrip(const uint8_t* body, size_t len, uint32_t maxBody, Dec decode, Enc encode) {
    Rec rec;
    if (decode(body, len, rec) != 0) return "";
    std::vector<uint8_t> frame = encode(rec, 0x01020304u);
    if (frame.size() < cmdp::HEADER_LEN) return "encoded frame shorter than a header; ";
    cmdp::Header h;
    if (cmdp::headerDecode(frame.data(), maxBody, h) != 0) return "encoded header refused; ";
    if (h.length != frame.size() - cmdp::HEADER_LEN || h.seq != 0x01020304u) return "encoded header wrong; ";
    std::unique_ptr<uint8_t[]> again(new uint8_t[h.length == 0 ? 1 : h.length]);
    if (h.length > 0) std::memcpy(again.get(), frame.data() + cmdp::HEADER_LEN, h.length);
    Rec back;
    if (decode(again.get(), h.length, back) != 0) return "re-encoded body refused; ";
    if (!same(rec, back)) return "re-encoded body decodes differently; ";
    return "";
}

}  // namespace

std::string targetOne(const uint8_t* data, size_t size) {
    if (size < 1) return "";
    const uint8_t which = data[0] & 0x7;
    const size_t len = size - 1;
    std::unique_ptr<uint8_t[]> body(new uint8_t[len == 0 ? 1 : len]);
    if (len > 0) std::memcpy(body.get(), data + 1, len);
    const uint8_t* b = body.get();
    switch (which) {
        case 0: {
            if (len < cmdp::HEADER_LEN) return "";
            cmdp::Header h;
            int32_t rc = cmdp::headerDecode(b, cmdp::MAX_REQUEST_BODY, h);
            if (rc == 0 && h.length > cmdp::MAX_REQUEST_BODY) return "header past the limit accepted; ";
            if (rc == 0) {
                uint8_t out[cmdp::HEADER_LEN];
                cmdp::headerEncode(h, out);
                cmdp::Header back;
                if (cmdp::headerDecode(out, cmdp::MAX_REQUEST_BODY, back) != 0 || back.kind != h.kind ||
                    back.length != h.length || back.seq != h.seq)
                    return "header does not read back; ";
            }
            return "";
        }
        case 1:
            return roundTrip<cmdp::CallRequest>(b, len, cmdp::MAX_REQUEST_BODY, cmdp::callRequestDecode,
                                                cmdp::callRequestEncode);
        case 2:
            return roundTrip<cmdp::ShellRequest>(b, len, cmdp::MAX_REQUEST_BODY, cmdp::shellRequestDecode,
                                                 cmdp::shellRequestEncode);
        case 3:
            return roundTrip<cmdp::EventRequest>(b, len, cmdp::MAX_REQUEST_BODY, cmdp::eventRequestDecode,
                                                 cmdp::eventRequestEncode);
        case 4:
            return roundTrip<cmdp::CallReply>(b, len, cmdp::MAX_REPLY_BODY, cmdp::callReplyDecode,
                                              cmdp::callReplyEncode);
        case 5:
            return roundTrip<cmdp::ShellReply>(b, len, cmdp::MAX_REPLY_BODY, cmdp::shellReplyDecode,
                                               cmdp::shellReplyEncode);
        case 6:
            return roundTrip<cmdp::EventReply>(b, len, cmdp::MAX_REPLY_BODY, cmdp::eventReplyDecode,
                                               cmdp::eventReplyEncode);
        default:
            return roundTrip<cmdp::ErrorReply>(b, len, cmdp::MAX_REPLY_BODY, cmdp::errorReplyDecode,
                                               cmdp::errorReplyEncode);
    }
}

}  // namespace pppoeplusfuzz
