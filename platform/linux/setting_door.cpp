// One setting through the management door (setting_door.h).
#include "platform/linux/setting_door.h"

#include "platform/linux/cmd_proto.h"
#include "platform/linux/plat_settings.h"
#include "platform/types.h"
#include "vocab/text.h"

namespace linuxplat {

using vocab::CommandInfo;
using vocab::Owner;
using vocab::ValueType;

namespace {

// Buffer of a text read: a format is at most 255 bytes.
constexpr uint32_t TEXT_ROOM = 256;


// One call of the command map through the command service's own code path.
bool callOnce(const CallTable& table, const cmdp::CallRequest& req, cmdp::CallReply& reply) {
    std::vector<uint8_t> bytes = cmdp::callRequestEncode(req, 1);
    cmdp::Frame frame;
    if (cmdp::headerDecode(bytes.data(), cmdp::MAX_REQUEST_BODY, frame.header) != 0) return false;
    frame.body.assign(bytes.begin() + cmdp::HEADER_LEN, bytes.end());
    Answer a = callServe(table, frame);
    cmdp::Header h;
    if (a.reply.size() < cmdp::HEADER_LEN || cmdp::headerDecode(a.reply.data(), cmdp::MAX_REPLY_BODY, h) != 0 ||
        h.kind != (cmdp::KIND_CALL | cmdp::REPLY_BIT))
        return false;
    return cmdp::callReplyDecode(a.reply.data() + cmdp::HEADER_LEN, a.reply.size() - cmdp::HEADER_LEN, reply) == 0;
}

std::string resultText(int32_t rc) { return "result " + vocab::hex(static_cast<uint32_t>(rc)); }

}  // namespace

// Reads a setting; nullopt with `why` when it cannot be read.
std::optional<Val> readSetting(const CallTable& table, const CommandInfo& c, bool perIf, uint32_t unit,
                               std::string& why) {
    if (c.owner == Owner::Platform) {
        const PlatSetting* s = platSettingFind(c.name, perIf);
        if (s == nullptr) {
            why = "not kept by this platform";
            return std::nullopt;
        }
        std::optional<uint32_t> v = s->get(unit);
        if (!v) {
            why = "no value";
            return std::nullopt;
        }
        return Val{*v, {}};
    }
    cmdp::CallRequest req;
    req.code = vocab::mapRows(perIf).get;
    req.unit = unit;
    req.cmd = c.code;
    if (c.type == ValueType::Text) {
        req.valueKind = cmdp::VALUE_STR;
        req.capacity = TEXT_ROOM;
        req.lenWord = TEXT_ROOM;
    } else {
        req.valueKind = cmdp::VALUE_U32;
    }
    cmdp::CallReply reply;
    if (!callOnce(table, req, reply)) {
        why = "the call failed";
        return std::nullopt;
    }
    if (reply.result != 0) {
        why = resultText(reply.result);
        return std::nullopt;
    }
    if (c.type == ValueType::Text) return Val{0, std::string(reply.data.begin(), reply.data.end())};
    return Val{reply.lenWord, {}};
}

// Whether the agent has an entry for the interface (its enable reads).
bool hasEntry(const CallTable& table, uint32_t unit) {
    cmdp::CallRequest req;
    req.code = vocab::mapRows(true).get;
    req.unit = unit;
    for (const CommandInfo& c : vocab::ifCommands())
        if (vocab::isEnable(c, true)) req.cmd = c.code;
    req.valueKind = cmdp::VALUE_U32;
    cmdp::CallReply reply;
    return callOnce(table, req, reply) && reply.result == 0;
}

// Writes a setting; "" or why it was refused.
std::string writeSetting(const CallTable& table, const CommandInfo& c, bool perIf, uint32_t unit, const Val& v) {
    if (c.owner == Owner::Platform) {
        const PlatSetting* s = platSettingFind(c.name, perIf);
        if (s == nullptr) return "not kept by this platform";
        return s->set(unit, v.word);
    }
    cmdp::CallRequest req;
    req.code = vocab::mapRows(perIf).set;
    req.unit = unit;
    req.cmd = c.code;
    if (c.type == ValueType::Text) {
        req.valueKind = cmdp::VALUE_STR;
        req.data.assign(v.text.begin(), v.text.end());
        req.lenWord = static_cast<uint32_t>(v.text.size());
        req.capacity = static_cast<uint32_t>(v.text.size());
    } else {
        req.valueKind = cmdp::VALUE_U32;
        req.lenWord = v.word;
    }
    cmdp::CallReply reply;
    if (!callOnce(table, req, reply)) return "the call failed";
    if (reply.result != 0) return "refused by the agent (" + resultText(reply.result) + ")";
    return "";
}

// The settings a file may write, for the agent or an interface, in the order
// they are applied: enable first (it makes an interface's entry), then the
// table's order (a format type before its format).
std::vector<CommandInfo> writable(bool perIf) {
    std::vector<CommandInfo> out;
    const std::vector<CommandInfo>& table = perIf ? vocab::ifCommands() : vocab::scalarCommands();
    for (const CommandInfo& c : table)
        if (c.canSet && c.type != ValueType::Ignored && vocab::isEnable(c, perIf)) out.push_back(c);
    for (const CommandInfo& c : table)
        if (c.canSet && c.type != ValueType::Ignored && !vocab::isEnable(c, perIf)) out.push_back(c);
    return out;
}

std::string keyText(bool perIf, const std::string& ifName, const CommandInfo& c) {
    return perIf ? "if." + ifName + "." + c.name : std::string("agent.") + c.name;
}

// The units the agent has entries for, in its order.
std::vector<uint32_t> servedUnits(const CallTable& table) {
    std::vector<uint32_t> units;
    cmdp::CallRequest req;
    req.code = vocab::ifFirstRow();
    req.valueKind = cmdp::VALUE_U32;
    cmdp::CallReply reply;
    if (!callOnce(table, req, reply)) return units;
    while (reply.result == 0 && units.size() < 100000) {
        if (!units.empty() && reply.lenWord <= units.back()) break;
        units.push_back(reply.lenWord);
        req.code = vocab::ifNextRow();
        req.unit = reply.lenWord;
        req.lenWord = 0;
        if (!callOnce(table, req, reply)) break;
    }
    return units;
}

}  // namespace linuxplat
