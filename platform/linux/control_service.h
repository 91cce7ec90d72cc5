// The control service: what pppoeplusctl asks of the platform itself rather
// than of the agent's entry points: the platform's own settings (get, set),
// the operational configuration (show, reload) and what the parts of the
// platform register (policing's status and recovery). One JSON object per
// request and reply (cmd_proto.h, KIND_CONTROL), on its own socket
// (cmdp::CONTROL_SOCKET), served to root and, like the command service, to
// the members of platform.group; an operation may be root's only.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include <nlohmann/json.hpp>

namespace linuxplat {

// The caller of a request.
struct ControlCaller {
    uid_t uid = 0;
};

// Answers a request ({"op": ..., ...}): the reply object. The service adds
// "ok": true unless the handler set "ok" itself (false with "error").
using ControlHandler = std::function<nlohmann::json(const nlohmann::json& request, const ControlCaller& caller)>;

// Registers operation `op`, before or after the service started. `rootOnly`:
// refused to every caller but root.
void controlRegister(const std::string& op, bool rootOnly, ControlHandler handler);

// Answers one request body as the service does, for tests: the reply object.
nlohmann::json controlServe(const std::string& body, const ControlCaller& caller);

// Starts the service (once; later calls do nothing). 0 or an error.
int32_t controlServiceStart();

// A reply with "ok": false and the reason.
nlohmann::json controlError(const std::string& why);

}  // namespace linuxplat
