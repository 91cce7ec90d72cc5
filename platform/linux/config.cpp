// Reading the configuration file.
#include "platform/linux/config.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/linux/plat_log.h"
#include "platform/number.h"

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

ConfigData configParse(std::string_view text, std::string_view fileName) {
    ConfigData data;
    size_t lineNo = 0;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t nl = text.find('\n', pos);
        std::string_view raw = text.substr(pos, nl == std::string_view::npos ? std::string_view::npos : nl - pos);
        pos = nl == std::string_view::npos ? text.size() : nl + 1;
        lineNo++;

        if (raw.size() > CONFIG_MAX_LINE) {
            data.messages.push_back(where(fileName, lineNo) + "line longer than " + std::to_string(CONFIG_MAX_LINE) +
                                    " characters, ignored");
            continue;
        }
        if (raw.find('\0') != std::string_view::npos) {
            data.messages.push_back(where(fileName, lineNo) + "line holds a NUL byte, ignored");
            continue;
        }
        std::string_view line = trim(raw);
        if (line.empty() || line[0] == '#') continue;

        size_t eq = line.find('=');
        if (eq == std::string_view::npos) {
            data.messages.push_back(where(fileName, lineNo) + "expected 'key = value', ignored");
            continue;
        }
        std::string key(trim(line.substr(0, eq)));
        std::string_view value = trim(line.substr(eq + 1));
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);

        if (key.empty()) {
            data.messages.push_back(where(fileName, lineNo) + "empty key, ignored");
            continue;
        }
        if (value.size() > CONFIG_MAX_VALUE) {
            data.messages.push_back(where(fileName, lineNo) + "value of '" + key + "' too long, ignored");
            continue;
        }

        if (key.compare(0, 5, "port.") == 0) {
            std::string ifName = key.substr(5);
            if (!ifNameOk(ifName)) {
                data.messages.push_back(where(fileName, lineNo) + "'" + ifName + "' is not an interface name, ignored");
                continue;
            }
            PortSpec spec;
            std::string error;
            if (!configParsePort(value, spec, error)) {
                data.messages.push_back(where(fileName, lineNo) + "port " + ifName + ": " + error + ", ignored");
                continue;
            }
            if (data.ports.count(ifName) != 0)
                data.messages.push_back(where(fileName, lineNo) + "port " + ifName + " given again, this line counts");
            data.ports[ifName] = spec;
            continue;
        }

        bool keyOk = true;
        for (char c : key) keyOk = keyOk && keyCharOk(c);
        if (!keyOk) {
            data.messages.push_back(where(fileName, lineNo) + "bad characters in key '" + key + "', ignored");
            continue;
        }
        if (key.compare(0, 10, "pppoeplus.") == 0) {
            if (!known(KNOWN_OPTIONS, key)) {
                data.messages.push_back(where(fileName, lineNo) + "unknown option '" + key + "', ignored");
                continue;
            }
            // Words the start-up options do not read as the operator meant
            // them: they are kept as written (the daemon reads them as it
            // always does), with a warning naming the line.
            const char first = value.empty() ? '\0' : value.front();
            const bool truthWord = first == 't' || first == 'T' || first == 'f' || first == 'F';
            if (known(TRUTH_OPTIONS, key) && !truthWord)
                data.messages.push_back(where(fileName, lineNo) + key + " takes true or false; '" +
                                        std::string(value) + "' is read as neither and leaves the default");
            if (key == "pppoeplus.enable" && !truthWord && !value.empty())
                data.messages.push_back(where(fileName, lineNo) + "pppoeplus.enable = '" + std::string(value) +
                                        "' lets the daemon start; only a value starting with f stops it");
        } else if (key.compare(0, 9, "platform.") == 0) {
            if (!known(KNOWN_PLATFORM, key)) {
                data.messages.push_back(where(fileName, lineNo) + "unknown setting '" + key + "', ignored");
                continue;
            }
        } else {
            data.messages.push_back(where(fileName, lineNo) + "unknown key '" + key +
                                    "' (keys start with pppoeplus., platform. or port.), ignored");
            continue;
        }
        if (data.values.count(key) != 0)
            data.messages.push_back(where(fileName, lineNo) + "'" + key + "' given again, this line counts");
        data.values[key] = std::string(value);
    }
    return data;
}

// ---- the process's configuration -----------------------------------------------

namespace {

std::once_flag gOnce;
// Never destroyed: read by every thread until the process ends.
ConfigData& gConfig = *new ConfigData;
std::string& gSource = *new std::string;

void configLoad() {
    std::string path = configPath();
    std::string text, error;
    int err = 0;
    if (!configReadFile(path, text, error, &err)) {
        if (err == ENOENT && std::getenv("PPPOEPLUS_CONF") == nullptr) {
            gSource = "built-in defaults (no " + path + ")";
        } else {
            gSource = "built-in defaults (" + error + ")";
            platLog(PLAT_LOG_ERR, "configuration: %s", error.c_str());
        }
        return;
    }
    gConfig = configParse(text, path);
    for (const std::string& m : gConfig.messages) platLog(PLAT_LOG_WARNING, "%s", m.c_str());
    gSource = path;
}

}  // namespace

bool configReadFile(const std::string& path, std::string& text, std::string& error, int* errnoOut) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        const int err = errno;
        if (errnoOut != nullptr) *errnoOut = err;
        error = path + ": " + std::strerror(err);
        return false;
    }
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > static_cast<off_t>(CONFIG_MAX_FILE)) {
        error = path + ": not a regular file of at most " + std::to_string(CONFIG_MAX_FILE) + " bytes";
        ::close(fd);
        return false;
    }
    text.assign(static_cast<size_t>(st.st_size), '\0');
    size_t got = 0;
    while (got < text.size()) {
        ssize_t n = ::read(fd, text.data() + got, text.size() - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            error = path + ": " + std::strerror(errno);
            ::close(fd);
            return false;
        }
        if (n == 0) break;
        got += static_cast<size_t>(n);
    }
    ::close(fd);
    text.resize(got);
    return true;
}

std::string configPath() {
    const char* env = std::getenv("PPPOEPLUS_CONF");
    return env != nullptr && env[0] != '\0' ? env : CONFIG_DEFAULT_PATH;
}

const ConfigData& config() {
    std::call_once(gOnce, configLoad);
    return gConfig;
}

std::optional<std::string> configGet(const std::string& key) {
    const ConfigData& c = config();
    auto it = c.values.find(key);
    if (it == c.values.end()) return std::nullopt;
    return it->second;
}

std::string configGetOr(const std::string& key, const std::string& fallback) {
    auto v = configGet(key);
    return v ? *v : fallback;
}

uint32_t configGetU32(const std::string& key, uint32_t fallback) {
    auto v = configGet(key);
    uint32_t n = 0;
    if (!v) return fallback;
    if (!configParseU32(*v, n)) {
        platLog(PLAT_LOG_WARNING, "%s: '%s' is not a number; using %u", key.c_str(), v->c_str(), fallback);
        return fallback;
    }
    return n;
}

const PortSpec* configPort(const std::string& ifName) {
    const ConfigData& c = config();
    auto it = c.ports.find(ifName);
    return it == c.ports.end() ? nullptr : &it->second;
}

bool configExcluded(const std::string& ifName) {
    auto v = configGet("platform.exclude");
    if (!v) return false;
    const std::string& list = *v;
    size_t pos = 0;
    while (pos < list.size()) {
        while (pos < list.size() && (list[pos] == ' ' || list[pos] == ',' || list[pos] == '\t')) pos++;
        size_t end = pos;
        while (end < list.size() && list[end] != ' ' && list[end] != ',' && list[end] != '\t') end++;
        if (end > pos) {
            std::string pattern = list.substr(pos, end - pos);
            if (::fnmatch(pattern.c_str(), ifName.c_str(), 0) == 0) return true;
        }
        pos = end;
    }
    return false;
}

std::string configSourceText() {
    config();
    return gSource;
}

}  // namespace linuxplat
