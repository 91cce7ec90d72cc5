// Fuzz target of the control service's request handling
// (platform/linux/control_service.h): a request body of any bytes. The reply
// must be a JSON object with a boolean "ok"; a refused request must say why
// and change nothing; a setting may change only through a well-formed "set"
// whose value is in range, and then to exactly that value.
#include <cstring>
#include <string>

#include <nlohmann/json.hpp>

#include "fuzz/fuzz_target.h"
#include "platform/linux/control_service.h"
#include "platform/linux/plat_settings.h"

namespace pppoeplusfuzz {

const char* const kTargetName = "control_fuzz";

namespace {

// A global setting of the platform kept here: values up to 1000 taken.
uint32_t gValue = 7;

}  // namespace

void targetSetUp() {
    linuxplat::PlatSetting s;
    s.name = "fuzz-rate";
    s.perInterface = false;
    s.get = [](uint32_t) -> std::optional<uint32_t> { return gValue; };
    s.set = [](uint32_t, uint32_t v) -> std::string {
        if (v > 1000) return "fuzz-rate takes 0 to 1000";
        gValue = v;
        return "";
    };
    linuxplat::platSettingRegister(s);
    linuxplat::controlRegister("root-thing", true, [](const nlohmann::json&, const linuxplat::ControlCaller&) {
        return nlohmann::json{{"done", true}};
    });
}

std::string targetOne(const uint8_t* data, size_t size) {
    std::string problems;
    if (size > 8192) return problems;
    const std::string body(reinterpret_cast<const char*>(data), size);
    const uint32_t before = gValue;
    // Group member, then root.
    for (uid_t uid : {1000u, 0u}) {
        nlohmann::json reply = linuxplat::controlServe(body, linuxplat::ControlCaller{uid});
        if (!reply.is_object() || !reply.contains("ok") || !reply["ok"].is_boolean()) {
            problems += "reply without a boolean ok; ";
            continue;
        }
        const bool ok = reply["ok"].get<bool>();
        if (!ok && (!reply.contains("error") || !reply["error"].is_string())) problems += "refusal without a reason; ";
        if (!ok && gValue != before) problems += "a refused request changed a setting; ";
        if (reply.contains("done") && uid != 0) problems += "a root-only operation answered a group member; ";
        (void)reply.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
    if (gValue != before) {
        nlohmann::json req = nlohmann::json::parse(body, nullptr, false);
        const bool wellFormed = !req.is_discarded() && req.is_object() && req.value("op", "") == "set" &&
                                req.value("name", "") == "fuzz-rate" && !req.contains("if") &&
                                req.contains("value") && req["value"].is_number_unsigned() &&
                                req["value"].get<uint64_t>() == gValue && gValue <= 1000;
        if (!wellFormed) problems += "a setting changed other than by a well-formed set; ";
    }
    return problems;
}

}  // namespace pppoeplusfuzz
