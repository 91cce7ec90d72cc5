// Names and meanings of results: the daemon's entry points, the platform's
// codes and the services' protocol.
#include "tools/results.h"

#include "mgmt/mgmt_codes.h"
#include "platform/linux/cmd_proto.h"
#include "platform/types.h"
#include "vocab/text.h"

namespace ctl {

using namespace vocab;

ResultInfo resultInfo(int32_t result, ResultSource source) {
    const bool proto = source == ResultSource::Protocol;
    switch (result) {
        case 0: return {"OK", "success"};
        case PPPOEPLUS_ERR: return {"PPPOEPLUS_ERR", "the operation failed"};
        case ZEL_EINVAL: return {"ZEL_EINVAL", "invalid value or format"};
        case ZEL_ERR_GENERAL: return {"ZEL_ERR_GENERAL", "general failure"};
        case ZEL_ERR_NOT_FOUND:
            if (proto) return {"ERR_NOT_FOUND", "no such function, variable or interface"};
            return {"ZEL_ERR_NOT_FOUND", "no such entry (an interface the agent does not serve yet: "
                                         "'if IF set enable on' creates its entry)"};
        case ZEL_ERR_EXISTS: return {"ZEL_ERR_EXISTS", "already exists"};
        case ZEL_ERR_INVALID_ARG:
            if (proto) return {"ERR_MALFORMED", "malformed request"};
            return {"ZEL_ERR_INVALID_ARG", "invalid argument"};
        case ZEL_ERR_TOO_LONG:
            if (proto) return {"ERR_TOO_LONG", "request too long"};
            return {"ZEL_ERR_TOO_LONG", "value too long (a format takes at most 255 bytes)"};
        case ZEL_ERR_NO_RESOURCE: return {"ZEL_ERR_NO_RESOURCE", "no room for another interface entry"};
        case ZEL_ERR_UNSUPPORTED:
            if (proto) return {"ERR_UNSUPPORTED", "request not supported"};
            return {"ZEL_ERR_UNSUPPORTED", "not supported (an unknown code, or a value that can only be read)"};
        case ZEL_ERR_NULL_POINTER: return {"ZEL_ERR_NULL_POINTER", "no value given"};
        case ZEL_ERR_SET_SOCKOPT:
            return {"ZEL_ERR_SET_SOCKOPT", "the packet socket's receive buffer could not be set"};
        case cmdp::ERR_DENIED:
            return {"ERR_DENIED",
                    "not allowed (a peer without the right, or a shell call the process does not offer)"};
        default: return {"UNKNOWN", "a result this tool has no name for"};
    }
}

std::string resultValueText(int32_t result) {
    if (result >= ZEL_ERR_BASE && result < ZEL_ERR_BASE + 0x10000) return hex(static_cast<uint32_t>(result));
    return std::to_string(result);
}

std::string resultText(int32_t result, ResultSource source) {
    return std::string(resultInfo(result, source).name) + " (" + resultValueText(result) + ")";
}

}  // namespace ctl
