// The registry of the platform's own settings.
#include "platform/linux/plat_settings.h"

#include <deque>
#include <mutex>

namespace linuxplat {

namespace {

std::mutex gMutex;
// A deque: records handed out stay where they are when more are added.
auto& gSettings = *new std::deque<PlatSetting>;

}  // namespace

void platSettingRegister(const PlatSetting& s) {
    if (s.name == nullptr || !s.get || !s.set) return;
    std::lock_guard<std::mutex> lock(gMutex);
    for (PlatSetting& have : gSettings) {
        if (have.perInterface == s.perInterface && std::string_view(have.name) == s.name) {
            have = s;
            return;
        }
    }
    gSettings.push_back(s);
}

const PlatSetting* platSettingFind(std::string_view name, bool perInterface) {
    std::lock_guard<std::mutex> lock(gMutex);
    for (const PlatSetting& s : gSettings)
        if (s.perInterface == perInterface && name == s.name) return &s;
    return nullptr;
}

}  // namespace linuxplat
