// The control service: requests to the platform itself, one JSON object
// each way (control_service.h).
#include "platform/linux/control_service.h"

#include <map>
#include <memory>
#include <mutex>

#include "platform/linux/cmd_proto.h"
#include "platform/linux/internal.h"
#include "platform/linux/plat_log.h"
#include "platform/linux/plat_settings.h"
#include "platform/linux/service_engine.h"
#include "platform/types.h"

namespace linuxplat {

namespace {

struct Op {
    bool rootOnly = false;
    ControlHandler handler;
};

std::mutex gOpsMutex;
auto& gOps = *new std::map<std::string, Op>;
std::once_flag gStartOnce;
int32_t gStartResult = 0;

using Json = nlohmann::json;

// The interface of a request's "if" (a name), or 0 with `error` set; 0 and
// no error when the request names none.
uint32_t requestUnit(const Json& req, std::string& error) {
    if (!req.contains("if")) return 0;
    if (!req["if"].is_string()) {
        error = "\"if\" must be an interface name";
        return 0;
    }
    const std::string name = req["if"].get<std::string>();
    const uint32_t unit = name.size() <= cmdp::MAX_NAME ? ifdbUnitByName(name) : 0;
    if (unit == 0) error = "no interface '" + name.substr(0, cmdp::MAX_NAME) + "'";
    return unit;
}

// get and set of a platform setting: {"name": ..., "if": optional, "value": for set}.
Json settingOp(const Json& req, bool set) {
    if (!req.contains("name") || !req["name"].is_string()) return controlError("\"name\" must be a setting's name");
    std::string error;
    const uint32_t unit = requestUnit(req, error);
    if (!error.empty()) return controlError(error);
    const std::string name = req["name"].get<std::string>();
    const PlatSetting* s = platSettingFind(name, req.contains("if"));
    if (s == nullptr)
        return controlError("no " + std::string(req.contains("if") ? "interface" : "global") + " setting '" +
                            name.substr(0, cmdp::MAX_NAME) + "' on this platform");
    if (!set) {
        std::optional<uint32_t> v = s->get(unit);
        if (!v) return controlError(name + " has no value here");
        return Json{{"value", *v}};
    }
    if (!req.contains("value") || !req["value"].is_number_unsigned() || req["value"].get<uint64_t>() > 0xFFFFFFFFu)
        return controlError("\"value\" must be a number from 0 to 4294967295");
    const uint32_t value = req["value"].get<uint32_t>();
    if (std::string why = s->set(unit, value); !why.empty()) return controlError(why);
    platLog(PLAT_LOG_INFO, "control: %s%s%s set to %u", name.c_str(), unit != 0 ? " of " : "",
            unit != 0 ? req["if"].get<std::string>().c_str() : "", value);
    return Json::object();
}

void registerBuiltins() {
    controlRegister("get", false, [](const Json& req, const ControlCaller&) { return settingOp(req, false); });
    controlRegister("set", false, [](const Json& req, const ControlCaller&) { return settingOp(req, true); });
}

}  // namespace

Json controlError(const std::string& why) { return Json{{"ok", false}, {"error", why}}; }

void controlRegister(const std::string& op, bool rootOnly, ControlHandler handler) {
    std::lock_guard<std::mutex> lock(gOpsMutex);
    gOps[op] = Op{rootOnly, std::move(handler)};
}

Json controlServe(const std::string& body, const ControlCaller& caller) {
    static std::once_flag builtins;
    std::call_once(builtins, registerBuiltins);
    // Malformed text is refused, never thrown: the parser reports it as discarded.
    Json req = Json::parse(body, nullptr, false);
    if (req.is_discarded() || !req.is_object()) return controlError("the request is no JSON object");
    if (!req.contains("op") || !req["op"].is_string()) return controlError("the request names no \"op\"");
    const std::string op = req["op"].get<std::string>();
    Op found;
    {
        std::lock_guard<std::mutex> lock(gOpsMutex);
        auto it = gOps.find(op);
        if (it == gOps.end()) return controlError("no operation '" + op.substr(0, cmdp::MAX_NAME) + "'");
        found = it->second;
    }
    if (found.rootOnly && caller.uid != 0) return controlError(op + " is root's only");
    Json reply = found.handler(req, caller);
    if (!reply.is_object()) reply = Json{{"value", reply}};
    if (!reply.contains("ok")) reply["ok"] = true;
    return reply;
}

int32_t controlServiceStart() {
    std::call_once(gStartOnce, [] {
        auto svc = std::make_unique<Service>();
        svc->name = "control";
        svc->path = cmdp::runtimePath(cmdp::CONTROL_SOCKET);
        svc->kind = cmdp::KIND_CONTROL;
        svc->gid = serviceGroup();
        svc->groupAllowed = svc->gid != 0;
        svc->handleFrom = [](const cmdp::Frame& f, uid_t uid) {
            std::string body(f.body.begin(), f.body.end());
            // Invalid UTF-8 in a reply's text would make dump() throw: replaced.
            std::string text = controlServe(body, ControlCaller{uid}).dump(-1, ' ', false, Json::error_handler_t::replace);
            if (text.size() > cmdp::MAX_REPLY_BODY) text = controlError("the reply is too long").dump();
            return Answer{cmdp::controlEncode(cmdp::KIND_CONTROL | cmdp::REPLY_BIT, text, f.header.seq), false};
        };
        gStartResult = serviceStart(std::move(svc), 0660);
        if (gStartResult != 0) platLog(PLAT_LOG_ERR, "control service: cannot start (%d)", gStartResult);
    });
    return gStartResult;
}

}  // namespace linuxplat
