// One call of the command service (cmd_call.h).
#include "platform/linux/cmd_call.h"

#include <algorithm>
#include <cstring>

namespace linuxplat {

namespace {

struct StrValue {  // the entry points' {text pointer, length} value
    char* str;
    uint32_t len;
};

using EntryCmd = int32_t (*)(uint32_t, uint32_t, void*);
using EntryFirst = int32_t (*)(uint32_t*);
using EntryNext = int32_t (*)(uint32_t, uint32_t*);

// Map rows 4 and 5 are the iterators, called with a place for a unit; every
// other row takes (unit, command code, value record).
constexpr uint32_t ROW_GET_FIRST = 4;
constexpr uint32_t ROW_GET_NEXT = 5;

const tIcmCallSpec* specFind(const CallTable& t, uint32_t code, uint32_t cmd) {
    for (const tIcmCallSpec& s : t.specs)
        if (s.code == code && (s.cmd == cmd || s.cmd == ICM_ANY_CMD)) return &s;
    return nullptr;
}

const char* kindName(uint8_t kind) {
    switch (kind) {
        case ICM_VALUE_U32: return "a u32 value";
        case ICM_VALUE_TEXT_IN: return "a text";
        case ICM_VALUE_TEXT_OUT: return "a buffer to fill";
        default: return "nothing";
    }
}

std::string settingName(const cmdp::CallRequest& req) {
    return "row " + std::to_string(req.code) + " setting " + std::to_string(req.cmd);
}

// Why the request's value does not fit the setting, or empty when it does.
std::string valueMisfit(const tIcmCallSpec& s, const cmdp::CallRequest& req) {
    switch (s.valueKind) {
        case ICM_VALUE_U32:
            if (req.valueKind != cmdp::VALUE_U32 || req.capacity != 0 || !req.data.empty())
                return settingName(req) + " takes " + kindName(s.valueKind);
            return "";
        case ICM_VALUE_TEXT_IN:
            if (req.valueKind != cmdp::VALUE_STR) return settingName(req) + " takes " + kindName(s.valueKind);
            if (req.data.size() != req.lenWord || req.capacity != req.lenWord)
                return "the text's length word, buffer size and bytes sent differ";
            return "";
        case ICM_VALUE_TEXT_OUT:
            if (req.valueKind != cmdp::VALUE_STR) return settingName(req) + " takes " + kindName(s.valueKind);
            if (!req.data.empty()) return "a get sends no value bytes";
            if (req.lenWord > req.capacity) return "the size word is beyond the buffer";
            if (req.lenWord < s.minRoom)
                return settingName(req) + " needs a buffer of at least " + std::to_string(s.minRoom) +
                       " bytes; the call was not made";
            return "";
        default: return settingName(req) + " has no value kind";
    }
}

// An error reply, after which the service closes the connection.
Answer refusal(int32_t code, const std::string& why, uint32_t seq) {
    return Answer{cmdp::errorReplyEncode(cmdp::ErrorReply{code, why}, seq), true};
}

}  // namespace

std::string callSpecsCheck(const tIcmCallSpec* specs, uint32_t rows) {
    if (specs == nullptr || rows == 0) return "no settings";
    if (rows > 4096) return "more than 4096 settings";
    for (uint32_t i = 0; i < rows; i++) {
        const tIcmCallSpec& s = specs[i];
        std::string at = "setting row " + std::to_string(i) + ": ";
        if (s.valueKind != ICM_VALUE_U32 && s.valueKind != ICM_VALUE_TEXT_IN && s.valueKind != ICM_VALUE_TEXT_OUT)
            return at + "unknown value kind " + std::to_string(s.valueKind);
        if (s.valueKind == ICM_VALUE_U32 && (s.capacity != 0 || s.minRoom != 0))
            return at + "a u32 value has no buffer";
        if (s.valueKind != ICM_VALUE_U32 && (s.capacity == 0 || s.capacity > cmdp::MAX_VALUE))
            return at + "buffer of " + std::to_string(s.capacity) + " bytes, not 1 to " +
                   std::to_string(cmdp::MAX_VALUE);
        if (s.minRoom > s.capacity) return at + "least room beyond the buffer";
    }
    return "";
}

Answer callServe(const CallTable& t, const cmdp::Frame& frame) {
    const uint32_t seq = frame.header.seq;
    cmdp::CallRequest req;
    if (cmdp::callRequestDecode(frame.body.data(), frame.body.size(), req) != 0)
        return refusal(cmdp::ERR_MALFORMED, "malformed call", seq);

    cmdp::CallReply reply;
    reply.valueKind = req.valueKind;
    reply.lenWord = req.lenWord;
    auto refused = [&](int32_t result) {
        reply.result = result;
        return Answer{cmdp::callReplyEncode(reply, seq), false};
    };

    tIcmEntry func = nullptr;
    for (uint32_t i = 0; t.map != nullptr && i < t.rows; i++)
        if (t.map[i].code == req.code) {
            func = t.map[i].func;
            break;
        }
    if (func == nullptr) return refused(cmdp::ERR_UNSUPPORTED);
    const tIcmCallSpec* spec = specFind(t, req.code, req.cmd);
    if (spec == nullptr) return refused(cmdp::ERR_UNSUPPORTED);
    if (std::string why = valueMisfit(*spec, req); !why.empty()) return refusal(cmdp::ERR_MALFORMED, why, seq);
    if (spec->valueKind == ICM_VALUE_TEXT_IN && req.lenWord > spec->capacity) return refused(cmdp::ERR_TOO_LONG);

    // The record, built here over a buffer of the setting's own capacity.
    uint32_t word = req.lenWord;
    std::vector<char> buf(std::max<uint32_t>(spec->capacity, 1), '\0');
    StrValue sv{buf.data(), 0};
    void* value = &word;
    if (spec->valueKind == ICM_VALUE_TEXT_IN) {
        if (!req.data.empty()) std::memcpy(buf.data(), req.data.data(), req.data.size());
        sv.len = req.lenWord;
        value = &sv;
    } else if (spec->valueKind == ICM_VALUE_TEXT_OUT) {
        sv.len = std::min(req.lenWord, spec->capacity);
        value = &sv;
    }

    if (req.code == ROW_GET_FIRST) reply.result = reinterpret_cast<EntryFirst>(func)(&word);
    else if (req.code == ROW_GET_NEXT) reply.result = reinterpret_cast<EntryNext>(func)(req.unit, &word);
    else reply.result = reinterpret_cast<EntryCmd>(func)(req.unit, req.cmd, value);

    if (spec->valueKind == ICM_VALUE_U32) {
        reply.lenWord = word;
    } else {
        reply.lenWord = sv.len;
        if (spec->valueKind == ICM_VALUE_TEXT_OUT) {
            size_t n = std::min<size_t>({sv.len, buf.size(), req.capacity});
            reply.data.assign(buf.begin(), buf.begin() + static_cast<std::ptrdiff_t>(n));
        }
    }
    return Answer{cmdp::callReplyEncode(reply, seq), false};
}

}  // namespace linuxplat
