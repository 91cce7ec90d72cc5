// The command service: other processes call the management entry points of
// the process's command map through it (service_engine.h serves the socket).
#include <grp.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/cmd_proto.h"
#include "platform/linux/config.h"
#include "platform/linux/internal.h"
#include "platform/linux/plat_log.h"
#include "platform/linux/service_engine.h"
#include "platform/services.h"
#include "platform/types.h"

namespace linuxplat {

namespace {

// ---- command service --------------------------------------------------------------------

struct StrValue {  // the entry points' {text pointer, length} value
    char* str;
    uint32_t len;
};

using EntryCmd = int32_t (*)(uint32_t, uint32_t, void*);
using EntryFirst = int32_t (*)(uint32_t*);
using EntryNext = int32_t (*)(uint32_t, uint32_t*);

Answer commandCall(const tIcmFuncMap* map, uint32_t rows, const cmdp::Frame& frame) {
    cmdp::CallRequest req;
    if (cmdp::callRequestDecode(frame.body.data(), frame.body.size(), req) != 0)
        return errorAnswer(cmdp::ERR_MALFORMED, "malformed call", frame.header.seq);
    if (req.valueKind == cmdp::VALUE_STR && req.lenWord > req.capacity)
        return errorAnswer(cmdp::ERR_MALFORMED, "length word beyond the buffer", frame.header.seq);
    bool iterator = req.code == 4 || req.code == 5;
    if (iterator && req.valueKind != cmdp::VALUE_U32)
        return errorAnswer(cmdp::ERR_MALFORMED, "an iterator takes a u32 value", frame.header.seq);

    cmdp::CallReply reply;
    reply.valueKind = req.valueKind;
    tIcmEntry func = nullptr;
    for (uint32_t i = 0; map != nullptr && i < rows; i++)
        if (map[i].code == req.code) {
            func = map[i].func;
            break;
        }
    if (func == nullptr || req.code == 0 || req.code > 8) {
        reply.result = cmdp::ERR_UNSUPPORTED;
        reply.lenWord = req.lenWord;
        return Answer{cmdp::callReplyEncode(reply, frame.header.seq), false};
    }

    uint32_t word = req.lenWord;
    std::vector<char> buf(req.capacity > 0 ? req.capacity : 1, '\0');
    if (!req.data.empty()) std::memcpy(buf.data(), req.data.data(), req.data.size());
    StrValue sv{buf.data(), req.lenWord};
    void* value = nullptr;
    switch (req.valueKind) {
        case cmdp::VALUE_U32: value = &word; break;
        case cmdp::VALUE_STR: value = &sv; break;
        case cmdp::VALUE_RAW: value = buf.data(); break;
        default: break;
    }
    if (req.code == 4) reply.result = reinterpret_cast<EntryFirst>(func)(&word);
    else if (req.code == 5) reply.result = reinterpret_cast<EntryNext>(func)(req.unit, &word);
    else reply.result = reinterpret_cast<EntryCmd>(func)(req.unit, req.cmd, value);

    switch (req.valueKind) {
        case cmdp::VALUE_U32: reply.lenWord = word; break;
        case cmdp::VALUE_STR: {
            reply.lenWord = sv.len;
            size_t n = sv.len < req.capacity ? sv.len : req.capacity;
            reply.data.assign(buf.begin(), buf.begin() + static_cast<std::ptrdiff_t>(n));
            break;
        }
        case cmdp::VALUE_RAW: reply.data.assign(buf.begin(), buf.begin() + req.capacity); break;
        default: break;
    }
    return Answer{cmdp::callReplyEncode(reply, frame.header.seq), false};
}
gid_t serviceGroup() {
    auto g = configGet("platform.group");
    if (!g || g->empty()) return 0;
    uint32_t n = 0;
    if (configParseU32(*g, n)) return static_cast<gid_t>(n);
    struct group grp;
    struct group* found = nullptr;
    std::vector<char> buf(16384);
    if (::getgrnam_r(g->c_str(), &grp, buf.data(), buf.size(), &found) == 0 && found != nullptr) return grp.gr_gid;
    platLog(PLAT_LOG_WARNING, "platform.group '%s' not found; the command service is root's only", g->c_str());
    return 0;
}
}  // namespace

}  // namespace linuxplat

using namespace linuxplat;

int32_t icmProcTcpInit(const char* service, const char* path, const tIcmFuncMap* map, uint32_t rows) {
    platformStart();
    if (service == nullptr || path == nullptr || map == nullptr) return ZEL_ERR_NULL_POINTER;
    if (!serviceNameOk(service) || rows == 0 || rows > 64) return ZEL_ERR_INVALID_ARG;
    auto svc = std::make_unique<Service>();
    svc->name = service;
    svc->path = cmdp::runtimePath(path);
    svc->kind = cmdp::KIND_CALL;
    svc->gid = serviceGroup();
    svc->groupAllowed = svc->gid != 0;
    svc->handle = [map, rows](const cmdp::Frame& f) { return commandCall(map, rows, f); };
    return serviceStart(std::move(svc), 0660);
}
