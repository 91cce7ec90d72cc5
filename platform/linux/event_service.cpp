// The platform's event socket: an operator raises route events by hand
// (a port's or a protocol's configuration reset), delivered to every route
// socket as the platform's own events are (service_engine.h serves the
// socket).
#include <memory>
#include <mutex>
#include <string>

#include "platform/linux/cmd_proto.h"
#include "platform/linux/internal.h"
#include "platform/linux/plat_log.h"
#include "platform/linux/rtnl.h"
#include "platform/linux/service_engine.h"

namespace linuxplat {

namespace {

// ---- event socket ------------------------------------------------------------------------

Answer eventCall(const cmdp::Frame& frame) {
    cmdp::EventRequest req;
    if (cmdp::eventRequestDecode(frame.body.data(), frame.body.size(), req) != 0)
        return errorAnswer(cmdp::ERR_MALFORMED, "malformed event request", frame.header.seq);
    cmdp::EventReply reply;
    if (req.event == cmdp::EVENT_RESET_PORT) {
        uint32_t unit = req.unit != 0 ? req.unit : ifdbUnitByName(req.ifName);
        if (unit == 0 || ifdbName(unit).empty()) {
            reply.result = cmdp::ERR_NOT_FOUND;
        } else {
            reply.delivered = routeDeliver(rtMsgResetPort(static_cast<int32_t>(unit)));
            platLog(PLAT_LOG_INFO, "event: reset of port %u (%s) raised, %u receiver(s)", unit,
                    ifdbName(unit).c_str(), reply.delivered);
        }
    } else {
        reply.delivered = routeDeliver(rtMsgResetProto(req.protos));
        platLog(PLAT_LOG_INFO, "event: reset of %zu protocol(s) raised, %u receiver(s)", req.protos.size(),
                reply.delivered);
    }
    return Answer{cmdp::eventReplyEncode(reply, frame.header.seq), false};
}
std::once_flag gEventOnce;
}  // namespace

void eventServiceStart() {
    std::call_once(gEventOnce, [] {
        auto svc = std::make_unique<Service>();
        svc->name = "zelRouteEvent";
        svc->path = cmdp::runtimePath(cmdp::EVENT_SOCKET);
        svc->kind = cmdp::KIND_EVENT;
        svc->handle = eventCall;
        (void)serviceStart(std::move(svc), 0600);
    });
}
}  // namespace linuxplat
