// Fuzz target of the configuration file reader (platform/linux/config.h):
// the whole file, and the value readers on their own.
//
// An input is the text of a configuration file. Every message must name the
// file and a line that exists; every value kept must be under a known key
// (pppoeplus.* or platform.*) and within the value limit; every port line
// kept must name a valid interface; every operational line kept must name a
// setting that can be written, with a value of its type that writes back as
// the same value, and patterns that the precedence rule can rank. The value
// readers get the input's first line and must not accept what they should not.
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz/fuzz_target.h"
#include "platform/linux/config.h"

namespace pppoeplusfuzz {

const char* const kTargetName = "config_fuzz";

void targetSetUp() {}

std::string targetOne(const uint8_t* data, size_t size) {
    std::string problems;
    if (size > (1u << 16)) return problems;
    std::unique_ptr<char[]> copy(new char[size == 0 ? 1 : size]);
    if (size > 0) std::memcpy(copy.get(), data, size);
    const std::string_view text(copy.get(), size);

    const linuxplat::ConfigData c = linuxplat::configParse(text, "fuzz.conf");
    size_t lines = 1;
    for (char ch : text) lines += ch == '\n' ? 1 : 0;
    for (const std::string& m : c.messages) {
        if (m.compare(0, 10, "fuzz.conf:") != 0) {
            problems += "message without the file name; ";
            break;
        }
        size_t line = std::strtoul(m.c_str() + 10, nullptr, 10);
        if (line == 0 || line > lines) {
            problems += "message names a line that is not there; ";
            break;
        }
    }
    for (const auto& [key, value] : c.values) {
        if (key.compare(0, 10, "pppoeplus.") != 0 && key.compare(0, 9, "platform.") != 0)
            problems += "value kept under an unknown key; ";
        if (value.size() > linuxplat::CONFIG_MAX_VALUE) problems += "value longer than the limit kept; ";
    }
    for (const auto& [name, spec] : c.ports) {
        if (name.empty() || name.size() > 15) problems += "port line for a name no interface can have; ";
        if (spec.ondType && *spec.ondType != 0 && *spec.ondType != 1 && *spec.ondType != 2 && *spec.ondType != 10 &&
            *spec.ondType != 11 && *spec.ondType != 12)
            problems += "port of an unknown kind; ";
    }

    for (const linuxplat::OpSetting& op : c.ops) {
        if (op.line == 0 || op.line > lines) problems += "operational line that is not there; ";
        if (op.setting.name == nullptr || !op.setting.canSet || op.setting.type == vocab::ValueType::Ignored)
            problems += "operational line of a setting that cannot be written; ";
        if (op.perInterface && (op.pattern.empty() || op.pattern.size() > linuxplat::CONFIG_MAX_PATTERN))
            problems += "interface pattern out of bounds; ";
        if (!op.perInterface && !op.pattern.empty()) problems += "global setting with a pattern; ";
        if (op.text.size() > linuxplat::CONFIG_MAX_TEXT) problems += "text longer than a format kept; ";
        if (op.setting.name == nullptr) continue;
        // Written as config show writes it, the value reads back the same.
        const std::string key = op.perInterface ? "if." + op.pattern + "." + op.setting.name
                                                : std::string("agent.") + op.setting.name;
        const linuxplat::ConfigData back =
            linuxplat::configParse(key + " = " + linuxplat::configOpValueText(op.setting, op.word, op.text), "b.conf");
        if (back.ops.size() != 1 || back.ops[0].word != op.word || back.ops[0].text != op.text)
            problems += "value that does not read back as written; ";
        (void)linuxplat::configPatternRank(op.pattern);
        if (op.perInterface) (void)linuxplat::configOpFor(c.ops, true, op.setting, op.pattern);
    }

    // The value readers on the first line.
    const std::string_view first = text.substr(0, text.find('\n'));
    uint32_t n = 0;
    if (linuxplat::configParseU32(first, n)) {
        for (char ch : first)
            if (!(ch == ' ' || ch == '\t' || ch == '\r' || ch == 'x' || ch == 'X' || (ch >= '0' && ch <= '9') ||
                  (ch >= 'a' && ch <= 'f') || (ch >= 'A' && ch <= 'F'))) {
                problems += "number read from a text with other characters; ";
                break;
            }
    }
    uint8_t mac[6];
    (void)linuxplat::configParseMac(first, mac);
    (void)linuxplat::configParseBool(first);
    linuxplat::PortSpec spec;
    std::string error;
    if (!linuxplat::configParsePort(first, spec, error) && error.empty()) problems += "port refused without a reason; ";
    return problems;
}

}  // namespace pppoeplusfuzz
