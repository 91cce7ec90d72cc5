// Reading a configuration text: every line checked, bad ones reported with
// their line and left out. No global state and no I/O, so that pppoeplusctl
// checks a file exactly as the daemon reads it.
#include <fnmatch.h>

#include <cstring>

#include "platform/linux/config.h"
#include "platform/number.h"
#include "vocab/text.h"
#include "vocab/values.h"

namespace linuxplat {

namespace {

constexpr const char* KNOWN_OPTIONS[] = {
    "pppoeplus.enable",         "pppoeplus.maxifnum",       "pppoeplus.maxsubsysnum",
    "pppoeplus.poncommontype",  "pppoeplus.defaultenable",  "pppoeplus.defaultportenable",
    "pppoeplus.ethifenable",    "pppoeplus.ethaggifenable", "pppoeplus.gponifenable",
    "pppoeplus.ponaggifenable",
};

// Start-up options read as truth values: the daemon looks at the first
// character only, t/T true and f/F false; anything else keeps the default.
constexpr const char* TRUTH_OPTIONS[] = {
    "pppoeplus.defaultenable", "pppoeplus.defaultportenable", "pppoeplus.ethifenable",
    "pppoeplus.ethaggifenable", "pppoeplus.gponifenable", "pppoeplus.ponaggifenable",
};

constexpr const char* KNOWN_PLATFORM[] = {
    "platform.vendorid",   "platform.sysmac",     "platform.devicename", "platform.sysname",
    "platform.exclude",    "platform.group",      "platform.hwrule",     "platform.nfttable",
    "platform.tpid.single", "platform.tpid.outer", "platform.tpid.inner",
    "platform.taskpolicy", "platform.loglevel",  "platform.announce",   "platform.rxring",
    "platform.requesttimeout", "platform.idletimeout",
};

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\r')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

bool keyCharOk(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
           c == '-';
}

// Interface names: what the kernel accepts, less what would confuse the
// rule text (quotes, blanks, slashes).
bool ifNameOk(std::string_view name) {
    if (name.empty() || name.size() > 15) return false;
    for (char c : name)
        if (c <= ' ' || c > '~' || c == '/' || c == '"' || c == '\\' || c == '=' || c == '\'') return false;
    return true;
}

template <size_t N>
bool known(const char* const (&list)[N], const std::string& key) {
    for (const char* k : list)
        if (key == k) return true;
    return false;
}

std::string where(std::string_view file, size_t line) { return std::string(file) + ":" + std::to_string(line) + ": "; }

}  // namespace

bool configParseU32(std::string_view text, uint32_t& out) {
    // Blanks around the number are the file's layout, not part of it.
    const auto value = numberParseU32(trim(text));
    if (!value) return false;
    out = *value;
    return true;
}

bool configParseMac(std::string_view text, uint8_t mac[6]) {
    text = trim(text);
    if (text.size() != 17) return false;
    uint8_t out[6];
    for (size_t i = 0; i < 6; i++) {
        uint32_t byte = 0;
        for (size_t j = 0; j < 2; j++) {
            char c = text[i * 3 + j];
            uint32_t d;
            if (c >= '0' && c <= '9') d = static_cast<uint32_t>(c - '0');
            else if (c >= 'a' && c <= 'f') d = static_cast<uint32_t>(c - 'a' + 10);
            else if (c >= 'A' && c <= 'F') d = static_cast<uint32_t>(c - 'A' + 10);
            else return false;
            byte = byte * 16 + d;
        }
        if (i < 5 && text[i * 3 + 2] != ':' && text[i * 3 + 2] != '-') return false;
        out[i] = static_cast<uint8_t>(byte);
    }
    std::memcpy(mac, out, 6);
    return true;
}

std::optional<bool> configParseBool(std::string_view text) {
    text = trim(text);
    if (text.empty()) return std::nullopt;
    switch (text[0]) {
        case 't': case 'T': case 'y': case 'Y': case '1': return true;
        case 'f': case 'F': case 'n': case 'N': case '0': return false;
        case 'o': case 'O':  // on / off
            if (text.size() >= 2 && (text[1] == 'n' || text[1] == 'N')) return true;
            if (text.size() >= 2 && (text[1] == 'f' || text[1] == 'F')) return false;
            return std::nullopt;
        default: return std::nullopt;
    }
}

bool configParsePort(std::string_view value, PortSpec& out, std::string& error) {
    PortSpec spec;
    size_t pos = 0;
    bool any = false;
    while (pos < value.size()) {
        while (pos < value.size() && (value[pos] == ' ' || value[pos] == '\t' || value[pos] == ',')) pos++;
        if (pos >= value.size()) break;
        size_t end = pos;
        while (end < value.size() && value[end] != ' ' && value[end] != '\t' && value[end] != ',') end++;
        std::string_view word = value.substr(pos, end - pos);
        pos = end;
        size_t eq = word.find('=');
        if (eq == std::string_view::npos || eq == 0 || eq + 1 >= word.size()) {
            error = std::string("expected name=value, found '").append(word).append("'");
            return false;
        }
        std::string_view name = word.substr(0, eq);
        std::string_view val = word.substr(eq + 1);
        if (name == "kind") {
            if (val == "eth") spec.ondType = 1;
            else if (val == "ethagg") spec.ondType = 2;
            else if (val == "epon") spec.ondType = 10;
            else if (val == "gpon") spec.ondType = 11;
            else if (val == "ponagg") spec.ondType = 12;
            else if (val == "none") spec.ondType = 0;
            else {
                error = std::string("unknown kind '").append(val).append("' (eth, ethagg, epon, gpon, ponagg, none)");
                return false;
            }
        } else {
            std::optional<uint32_t>* field = name == "sys"       ? &spec.sys
                                             : name == "slot"    ? &spec.slot
                                             : name == "port"    ? &spec.port
                                             : name == "subport" ? &spec.subPort
                                                                 : nullptr;
            // The word first: a misspelt one is named as such, whatever its value.
            if (field == nullptr) {
                error = std::string("unknown word '").append(name).append("' (kind, sys, slot, port, subport)");
                return false;
            }
            uint32_t n = 0;
            if (!configParseU32(val, n)) {
                error = std::string("'").append(name).append("' needs a number, found '").append(val).append("'");
                return false;
            }
            *field = n;
        }
        any = true;
    }
    if (!any) {
        error = "empty port description";
        return false;
    }
    out = spec;
    return true;
}

namespace {

// Interface names and patterns of `if.` lines: the characters of interface
// names (ifNameOk) and the shell's wildcards.
bool patternOk(std::string_view p) {
    if (p.empty() || p.size() > CONFIG_MAX_PATTERN) return false;
    for (char c : p)
        if (c <= ' ' || c > '~' || c == '/' || c == '"' || c == '\\' || c == '=' || c == '\'') return false;
    return true;
}

bool isWildcard(char c) { return c == '*' || c == '?' || c == '[' || c == ']' || c == '!'; }

// An operational line's key and value: the setting and its value, or what
// is wrong.
std::string opParse(const std::string& key, std::string_view value, OpSetting& op) {
    std::string name;
    if (key.compare(0, 6, "agent.") == 0) {
        name = key.substr(6);
    } else {
        const std::string rest = key.substr(3);
        const size_t dot = rest.rfind('.');
        if (dot == std::string::npos || dot == 0) return "expected if.IFNAME.SETTING";
        op.perInterface = true;
        op.pattern = rest.substr(0, dot);
        name = rest.substr(dot + 1);
        if (!patternOk(op.pattern)) return "'" + op.pattern + "' is no interface name or pattern";
    }
    const char* scope = op.perInterface ? "interface" : "global";
    // Names only: a command's number means nothing to a reader of the file.
    bool number = !name.empty();
    for (char c : name) number = number && c >= '0' && c <= '9';
    std::optional<vocab::CommandInfo> c = number ? std::nullopt
                                          : op.perInterface ? vocab::findIf(name)
                                                            : vocab::findScalar(name);
    if (!c || c->name == nullptr) return "no " + std::string(scope) + " setting '" + name + "'";
    if (!c->canSet || c->type == vocab::ValueType::Ignored)
        return std::string(c->name) + " is no setting that can be written";
    op.setting = *c;
    if (c->type == vocab::ValueType::Text) {
        if (value.size() > CONFIG_MAX_TEXT)
            return std::string(c->name) + ": " + std::to_string(value.size()) + " bytes, at most " +
                   std::to_string(CONFIG_MAX_TEXT);
        op.text = std::string(value);
        return "";
    }
    vocab::ParsedWord w = vocab::parseValue(c->type, std::string(value));
    if (!w.ok) return std::string(c->name) + ": " + w.error;
    const bool isDefault = c->type == vocab::ValueType::NumberOrDefault && w.value == vocab::VALUE_DEFAULT;
    if (!isDefault && (w.value < c->min || w.value > c->max))
        return std::string(c->name) + ": " + std::to_string(w.value) + " is out of range (" + std::to_string(c->min) +
               " to " + std::to_string(c->max) + ")";
    op.word = w.value;
    return "";
}

}  // namespace

size_t configPatternRank(const std::string& pattern) {
    // Characters of a bracket expression ([0-9]) are part of its wildcard.
    size_t literal = 0;
    bool wild = false;
    bool inClass = false;
    for (char c : pattern) {
        if (inClass) {
            inClass = c != ']';
            continue;
        }
        if (c == '[') inClass = true;
        if (isWildcard(c)) wild = true;
        else literal++;
    }
    // A plain name ranks above every pattern.
    return wild ? literal : CONFIG_MAX_PATTERN + 1;
}

bool configPatternMatches(const std::string& pattern, const std::string& name) {
    return ::fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

const OpSetting* configOpFor(const std::vector<OpSetting>& ops, bool perInterface, const vocab::CommandInfo& setting,
                             const std::string& ifName) {
    const OpSetting* best = nullptr;
    size_t bestRank = 0;
    for (const OpSetting& op : ops) {
        if (op.perInterface != perInterface || op.setting.code != setting.code || op.setting.owner != setting.owner)
            continue;
        if (!perInterface) {
            best = &op;  // each key once: the one line
            continue;
        }
        if (!configPatternMatches(op.pattern, ifName)) continue;
        const size_t rank = configPatternRank(op.pattern);
        if (best == nullptr || rank > bestRank || (rank == bestRank && op.line > best->line)) {
            best = &op;
            bestRank = rank;
        }
    }
    return best;
}

std::string configOpValueText(const vocab::CommandInfo& setting, uint32_t word, const std::string& text) {
    switch (setting.type) {
        case vocab::ValueType::Text: {
            const bool quote = text.empty() || text.front() == ' ' || text.front() == '\t' || text.back() == ' ' ||
                               text.back() == '\t' || (text.size() >= 2 && text.front() == '"' && text.back() == '"');
            return quote ? "\"" + text + "\"" : text;
        }
        case vocab::ValueType::Truth:
        case vocab::ValueType::Policy:
        case vocab::ValueType::FormatType:
        case vocab::ValueType::NumberOrDefault: {
            // The word when the vocabulary has one for the number, else the number.
            std::string w = vocab::valueWord(setting.type, word);
            vocab::ParsedWord back = vocab::parseValue(setting.type, w);
            return back.ok && back.value == word ? w : std::to_string(word);
        }
        case vocab::ValueType::Debug: return vocab::hex(word);
        default: return std::to_string(word);
    }
}

ConfigData configParse(std::string_view text, std::string_view fileName) {
    ConfigData data;
    size_t lineNo = 0;
    size_t pos = 0;
    // A line left out, and a line taken with a remark.
    auto ignore = [&](const std::string& what) {
        data.messages.push_back(where(fileName, lineNo) + what);
        data.errors.push_back(data.messages.back());
    };
    auto warn = [&](const std::string& what) { data.messages.push_back(where(fileName, lineNo) + what); };
    while (pos < text.size()) {
        size_t nl = text.find('\n', pos);
        std::string_view raw = text.substr(pos, nl == std::string_view::npos ? std::string_view::npos : nl - pos);
        pos = nl == std::string_view::npos ? text.size() : nl + 1;
        lineNo++;

        if (raw.size() > CONFIG_MAX_LINE) {
            ignore("line longer than " + std::to_string(CONFIG_MAX_LINE) + " characters, ignored");
            continue;
        }
        if (raw.find('\0') != std::string_view::npos) {
            ignore("line holds a NUL byte, ignored");
            continue;
        }
        std::string_view line = trim(raw);
        if (line.empty() || line[0] == '#') continue;

        size_t eq = line.find('=');
        if (eq == std::string_view::npos) {
            ignore("expected 'key = value', ignored");
            continue;
        }
        std::string key(trim(line.substr(0, eq)));
        std::string_view value = trim(line.substr(eq + 1));
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);

        if (key.empty()) {
            ignore("empty key, ignored");
            continue;
        }
        if (value.size() > CONFIG_MAX_VALUE) {
            ignore("value of '" + key + "' too long, ignored");
            continue;
        }

        if (key.compare(0, 5, "port.") == 0) {
            std::string ifName = key.substr(5);
            if (!ifNameOk(ifName)) {
                ignore("'" + ifName + "' is not an interface name, ignored");
                continue;
            }
            PortSpec spec;
            std::string error;
            if (!configParsePort(value, spec, error)) {
                ignore("port " + ifName + ": " + error + ", ignored");
                continue;
            }
            if (data.ports.count(ifName) != 0) warn("port " + ifName + " given again, this line counts");
            data.ports[ifName] = spec;
            continue;
        }

        if (key.compare(0, 6, "agent.") == 0 || key.compare(0, 3, "if.") == 0) {
            OpSetting op;
            op.line = lineNo;
            if (std::string why = opParse(key, value, op); !why.empty()) {
                ignore(key + ": " + why + ", ignored");
                continue;
            }
            bool again = false;
            for (OpSetting& o : data.ops) {
                if (o.perInterface != op.perInterface || o.pattern != op.pattern || o.setting.code != op.setting.code ||
                    o.setting.owner != op.setting.owner)
                    continue;
                warn("'" + key + "' given again (line " + std::to_string(o.line) + "), this line counts");
                o = op;
                again = true;
            }
            if (!again) data.ops.push_back(op);
            continue;
        }

        bool keyOk = true;
        for (char c : key) keyOk = keyOk && keyCharOk(c);
        if (!keyOk) {
            ignore("bad characters in key '" + key + "', ignored");
            continue;
        }
        if (key.compare(0, 10, "pppoeplus.") == 0) {
            if (!known(KNOWN_OPTIONS, key)) {
                ignore("unknown option '" + key + "', ignored");
                continue;
            }
            // Words the start-up options do not read as the operator meant
            // them: they are kept as written (the daemon reads them as it
            // always does), with a warning naming the line.
            const char first = value.empty() ? '\0' : value.front();
            const bool truthWord = first == 't' || first == 'T' || first == 'f' || first == 'F';
            if (known(TRUTH_OPTIONS, key) && !truthWord)
                warn(key + " takes true or false; '" + std::string(value) + "' is read as neither and leaves the default");
            if (key == "pppoeplus.enable" && !truthWord && !value.empty())
                warn("pppoeplus.enable = '" + std::string(value) + "' lets the daemon start; only a value starting with f stops it");
        } else if (key.compare(0, 9, "platform.") == 0) {
            if (!known(KNOWN_PLATFORM, key)) {
                ignore("unknown setting '" + key + "', ignored");
                continue;
            }
        } else {
            ignore("unknown key '" + key + "' (keys start with pppoeplus., platform., port., agent. or if.), ignored");
            continue;
        }
        if (data.values.count(key) != 0) warn("'" + key + "' given again, this line counts");
        data.values[key] = std::string(value);
    }
    return data;
}

}  // namespace linuxplat
