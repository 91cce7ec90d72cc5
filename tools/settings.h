// The table of the agent's settings: every global and interface command the
// management entry points take, with its name, the record's field name, its
// command code, the type of its value and whether it can be read or changed.
// One table for everything that names a setting: the tool's commands, its
// help and a reader of configuration files. It needs nothing else of the
// tool (text.h for matching names) and no daemon record.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ctl {

enum class ValueType {
    Truth,       // 1 on, 2 off (0 unset)
    Policy,      // 0 default, 1 keep, 2 drop, 3 replace
    FormatType,  // 0 default, 1 userdefine, 2 ascii
    Debug,       // bit mask: 0x1 startup, 0x2 dump, 0x4 trace, 0x8 error
    Number,      // u32
    Counter,     // u32 counter
    Text,        // a format or the version
    Nsr,         // the 12-byte non-stop-routing status
    Ignored,     // set only, the value does not matter (clear)
};

struct CommandInfo {
    uint32_t code;
    const char* name;   // canonical name, kebab case
    const char* alias;  // other accepted spellings, blank-separated (the record's field name), or nullptr
    ValueType type;
    bool canGet;
    bool canSet;
    const char* help;
};

// Global (scalar) commands, codes 1 to 18, and interface commands, codes 1 to 17.
const std::vector<CommandInfo>& scalarCommands();
const std::vector<CommandInfo>& ifCommands();
// The eight counters in the order they are shown.
const std::vector<const CommandInfo*>& ifCounters();

// Finds a command by name (case, '-' and '_' do not count; the command
// constants' names are accepted too) or by its number. A number that is no
// row of the table gives a made-up entry of type Number that can be sent as
// it is (the daemon then answers for it). Nothing for an unknown name.
std::optional<CommandInfo> findScalar(const std::string& nameOrCode);
std::optional<CommandInfo> findIf(const std::string& nameOrCode);

}  // namespace ctl
