// Settings the Linux platform keeps itself rather than the agent (policing
// of discovery, for one). Each is registered once, at start, by the part of
// the platform that owns it; the control service (pppoeplusctl's get and
// set) and the operational configuration (the file's `agent.` and `if.`
// lines) read and write them through here, by the vocabulary's names.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace linuxplat {

struct PlatSetting {
    const char* name = nullptr;  // the vocabulary's name, e.g. "police-rate"
    bool perInterface = false;   // false: the global value (ifIndex 0)
    // The value for an interface (ifIndex 0 for the global one); nullopt when it has none.
    std::function<std::optional<uint32_t>(uint32_t ifIndex)> get;
    // Sets it; "" when done, else what is wrong (nothing changed then).
    std::function<std::string(uint32_t ifIndex, uint32_t value)> set;
};

// Registers a setting; one registered again under its name and scope
// replaces the first.
void platSettingRegister(const PlatSetting& s);
// The setting of that name and scope, or null. The record stays valid.
const PlatSetting* platSettingFind(std::string_view name, bool perInterface);

}  // namespace linuxplat
