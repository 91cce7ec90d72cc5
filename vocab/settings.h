// The vocabulary of the agent's settings: every global and interface command
// the management entry points take, with its name, the record's field name,
// its command code, the type of its value and whether it can be read or
// changed, and the settings the Linux platform keeps itself. One table for
// everything that names a setting: pppoeplusctl's commands and help, and the
// daemon's configuration file (its lines `agent.NAME = VALUE` and
// `if.IFNAME.NAME = VALUE`). It needs no daemon record and no tool code.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vocab {

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
    NumberOrDefault,  // u32, or `default` (VALUE_DEFAULT): follow the global value
};

// The word `default` of a NumberOrDefault value.
constexpr uint32_t VALUE_DEFAULT = 0xFFFFFFFF;

// Codes of the platform's own settings, above the agent's: the tool takes
// them as numbers too; the control service and the configuration file name
// them.
constexpr uint32_t PLAT_POLICE_RATE = 101;
constexpr uint32_t PLAT_POLICE_BURST = 102;
constexpr uint32_t PLAT_ERRDISABLE_TIME = 103;
constexpr uint32_t PLAT_ERRDISABLE_HOLD = 104;

// Ranges of the platform's settings: the platform refuses a value outside
// them, and the configuration check refuses the line.
constexpr uint32_t POLICE_RATE_MAX = 1000000;  // 0: policing off
constexpr uint32_t POLICE_BURST_MIN = 1;
constexpr uint32_t POLICE_BURST_MAX = 1000000;
constexpr uint32_t ERRDISABLE_TIME_MAX = 86400;  // 0: off
constexpr uint32_t ERRDISABLE_HOLD_MIN = 1;
constexpr uint32_t ERRDISABLE_HOLD_MAX = 7 * 86400;

// Who keeps a setting: the agent (read and written through the management
// entry points, by the command service) or the Linux platform (through the
// control service).
enum class Owner { Agent, Platform };

struct CommandInfo {
    uint32_t code;
    const char* name;   // canonical name, kebab case
    const char* alias;  // other accepted spellings, blank-separated (the record's field name), or nullptr
    ValueType type;
    bool canGet;
    bool canSet;
    const char* help;
    Owner owner = Owner::Agent;
    // A number's range (`default` aside).
    uint32_t min = 0;
    uint32_t max = UINT32_MAX;
};

// Global (scalar) commands, codes 1 to 18, and interface commands, codes 1 to
// 17, then the platform's settings (PLAT_*).
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

// The rows of the command map that read and write the settings of a scope,
// and that walk the interfaces the agent serves.
struct MapRows {
    uint32_t get = 0;
    uint32_t set = 0;
};
MapRows mapRows(bool perInterface);
uint32_t ifFirstRow();
uint32_t ifNextRow();

// The setting that switches the agent (global) or an interface's entry on.
bool isEnable(const CommandInfo& c, bool perInterface);
// For a format: the code of the type setting that says whether the format is
// the scope's own (a type other than default); nullopt for anything else.
std::optional<uint32_t> formatTypeCode(const CommandInfo& c, bool perInterface);

}  // namespace vocab
