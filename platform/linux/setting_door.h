// One setting of the agent or of an interface read or written through the
// door a management call takes: the command service's own request path
// (callServe with the table the daemon registered) for the agent's
// settings, the platform's registry (plat_settings.h) for its own. The
// configuration manager (opconf.cpp) reads and writes everything this way.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/cmd_call.h"
#include "vocab/settings.h"

namespace linuxplat {

// A value of a setting: the word, or the text of a Text setting.
struct Val {
    uint32_t word = 0;
    std::string text;
    bool operator==(const Val& o) const { return word == o.word && text == o.text; }
};

// Reads a setting of the agent (perIf false, unit 0) or of interface
// `unit`; nullopt with `why` when it cannot be read.
std::optional<Val> readSetting(const CallTable& table, const vocab::CommandInfo& c, bool perIf, uint32_t unit,
                               std::string& why);
// Writes a setting; "" or why it was refused.
std::string writeSetting(const CallTable& table, const vocab::CommandInfo& c, bool perIf, uint32_t unit,
                         const Val& v);
// Whether the agent has an entry for the interface (its enable reads).
bool hasEntry(const CallTable& table, uint32_t unit);
// The units the agent has entries for, in its order.
std::vector<uint32_t> servedUnits(const CallTable& table);
// The settings a file may write, for the agent or an interface, in the order
// they are applied: enable first (it makes an interface's entry), then the
// table's order (a format type before its format).
std::vector<vocab::CommandInfo> writable(bool perIf);
// The key of a setting's line: "agent.NAME" or "if.IFNAME.NAME".
std::string keyText(bool perIf, const std::string& ifName, const vocab::CommandInfo& c);

}  // namespace linuxplat
