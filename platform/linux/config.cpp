// The process's configuration: the file read once, at start.
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

namespace linuxplat {

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
