// The configuration file of the Linux platform: `key = value` lines. Keys
// `pppoeplus.*` are the daemon's start-up options (handed out by silOptRead),
// `platform.*` settings of this platform, `port.<ifname>` the kind and
// position of an interface: all read once, at start. Keys `agent.NAME` and
// `if.IFNAME.NAME` are operational settings (the names and value words of
// pppoeplusctl): applied at start, to interfaces as they appear, and again
// at every reload (opconf.h). The parsing (config_parse.cpp) is pure; the
// process's copy (config.cpp) is read once.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vocab/settings.h"

namespace linuxplat {

constexpr const char* CONFIG_DEFAULT_PATH = "/etc/pppoeplus.conf";
constexpr size_t CONFIG_MAX_FILE = 1u << 20;  // a larger file is refused
constexpr size_t CONFIG_MAX_LINE = 1024;      // a longer line is a bad line
constexpr size_t CONFIG_MAX_VALUE = 512;

// Kind and position of one interface from a `port.<ifname>` line. What the
// line does not name is left to the platform's defaults.
struct PortSpec {
    std::optional<uint32_t> ondType;  // eth 1, ethagg 2, epon 10, gpon 11, ponagg 12, none 0
    std::optional<uint32_t> sys;
    std::optional<uint32_t> slot;
    std::optional<uint32_t> port;
    std::optional<uint32_t> subPort;
};

// Longest interface pattern of an `if.` line, and longest text value of an
// operational setting (a format).
constexpr size_t CONFIG_MAX_PATTERN = 64;
constexpr size_t CONFIG_MAX_TEXT = 255;

// One operational line: `agent.NAME = VALUE` (a global setting) or
// `if.IFNAME.NAME = VALUE` (a setting of every interface whose name IFNAME
// names; IFNAME may be a shell pattern, and the interface's name may hold
// dots: the setting is the last dot-separated part).
struct OpSetting {
    size_t line = 0;
    bool perInterface = false;
    std::string pattern;       // perInterface: the name or pattern
    vocab::CommandInfo setting{};
    uint32_t word = 0;         // the value of every type but Text
    std::string text;          // the value of a Text setting
};

// Result of reading a configuration text.
struct ConfigData {
    std::map<std::string, std::string> values;  // pppoeplus.* and platform.* keys
    std::map<std::string, PortSpec> ports;      // by interface name
    std::vector<OpSetting> ops;                 // operational lines, in file order, each key once
    std::vector<std::string> messages;          // "file:line: what was wrong", in order
    std::vector<std::string> errors;            // the messages of lines that were not taken
};

// How specific an interface pattern is: a plain name beats every pattern;
// among patterns, more characters that are no wildcard win. Equal ones: the
// later line wins.
size_t configPatternRank(const std::string& pattern);
// True when `name` is matched by `pattern` (fnmatch without flags).
bool configPatternMatches(const std::string& pattern, const std::string& name);
// The line of `ops` that decides `setting` (its code and owner) of interface
// `ifName` (perInterface) or of the agent, or null when none does.
const OpSetting* configOpFor(const std::vector<OpSetting>& ops, bool perInterface, const vocab::CommandInfo& setting,
                             const std::string& ifName);
// The value of `op` written as a configuration line's value: the vocabulary's
// word, a text in double quotes when blanks at its ends would be lost.
std::string configOpValueText(const vocab::CommandInfo& setting, uint32_t word, const std::string& text);

// Parses a whole configuration text. Bad lines are reported in `messages`
// with `fileName` and their line number and otherwise ignored. Pure.
ConfigData configParse(std::string_view text, std::string_view fileName);

// Parses the value of a `port.<ifname>` line: blank-separated `name=value`
// words, names kind, sys, slot, port, subport. Pure.
bool configParsePort(std::string_view value, PortSpec& out, std::string& error);

// Number in decimal or 0x hexadecimal, at most 32 bits. Pure.
bool configParseU32(std::string_view text, uint32_t& out);
// MAC address written aa:bb:cc:dd:ee:ff (or with '-'). Pure.
bool configParseMac(std::string_view text, uint8_t mac[6]);
// "yes"/"no" style word: t/T/y/Y/1 true, f/F/n/N/0 false. Pure.
std::optional<bool> configParseBool(std::string_view text);

// ---- the process's configuration -----------------------------------------------

// Reads a whole configuration file: a regular file of at most
// CONFIG_MAX_FILE bytes. False with `error` ("path: why") and, when the file
// could not be opened, the errno in `errnoOut`.
bool configReadFile(const std::string& path, std::string& text, std::string& error, int* errnoOut = nullptr);

// The configuration file: the path in PPPOEPLUS_CONF, else the default path.
std::string configPath();

// Loaded once, on first use; reading problems are logged then.
const ConfigData& config();

// A `pppoeplus.*` or `platform.*` value, if the file sets it.
std::optional<std::string> configGet(const std::string& key);
std::string configGetOr(const std::string& key, const std::string& fallback);
uint32_t configGetU32(const std::string& key, uint32_t fallback);

// The port line of an interface name, or null.
const PortSpec* configPort(const std::string& ifName);

// True when `ifName` matches a pattern of `platform.exclude` (blank or comma
// separated shell patterns).
bool configExcluded(const std::string& ifName);

// Writes `text` to `path` so that a reader sees the old file or the new one,
// never a part: a temporary file beside it, fsync, the old file kept as
// `path.bak`, rename. The old file's mode and owner are kept. False with
// `error` when nothing was changed.
bool configWriteFile(const std::string& path, const std::string& text, std::string& error);

// Where the configuration came from, for the start-up message.
std::string configSourceText();

}  // namespace linuxplat
