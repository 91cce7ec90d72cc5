// Hardware layer: accepted and remembered.
#include <cstring>
#include <map>
#include <mutex>

#include "platform/hwil.h"
#include "platform/linux/hwil_linux.h"
#include "platform/linux/os_linux.h"
#include "platform/linux/plat_log.h"
#include "platform/types.h"

namespace linuxplat {

namespace {

// Mode bit of the control record: the value is a {text pointer, length} pair.
constexpr uint32_t HWIL_MODE_STRING = 0x80000000;
// Longest value kept.
constexpr uint32_t HWIL_VALUE_MAX = 4096;

std::mutex gMutex;
// Never destroyed: a management thread may still call while the process ends.
auto& gCommands = *new std::map<std::pair<uint32_t, uint32_t>, std::vector<uint8_t>>;
auto& gScalars = *new std::map<uint32_t, uint32_t>;

}  // namespace

std::optional<std::vector<uint8_t>> hwilLastCommand(uint32_t key, uint32_t cmdId) {
    std::lock_guard<std::mutex> lock(gMutex);
    auto it = gCommands.find({key, cmdId});
    if (it == gCommands.end()) return std::nullopt;
    return it->second;
}

std::optional<uint32_t> hwilLastScalar(uint32_t scalar) {
    std::lock_guard<std::mutex> lock(gMutex);
    auto it = gScalars.find(scalar);
    if (it == gScalars.end()) return std::nullopt;
    return it->second;
}

}  // namespace linuxplat

using namespace linuxplat;

int32_t zelHwilCmdSyncApi(uint32_t key, uint32_t cmdId, const void* value, const void* ctrl) {
    std::vector<uint8_t> bytes;
    if (ctrl != nullptr && value != nullptr) {
        uint32_t mode = 0;
        uint32_t valueLen = 0;
        std::memcpy(&mode, ctrl, 4);
        std::memcpy(&valueLen, static_cast<const uint8_t*>(ctrl) + 16, 4);
        const uint8_t* src = static_cast<const uint8_t*>(value);
        if ((mode & HWIL_MODE_STRING) != 0) std::memcpy(&src, value, sizeof(src));
        if (valueLen > HWIL_VALUE_MAX) valueLen = HWIL_VALUE_MAX;
        if (src != nullptr) bytes.assign(src, src + valueLen);
    }
    std::lock_guard<std::mutex> lock(gMutex);
    gCommands[{key, cmdId}] = std::move(bytes);
    return 0;
}

int32_t zelHwilScalarSet(uint32_t, uint32_t scalar, const void* value, uint32_t) {
    uint32_t v = 0;
    if (value != nullptr) std::memcpy(&v, value, sizeof(v));
    {
        std::lock_guard<std::mutex> lock(gMutex);
        gScalars[scalar] = v;
    }
    // The daemon announces its protocol as the last step of its start-up.
    if (scalar == ZEL_HWIL_SCALAR_PROTO_ID) markStarted();
    return 0;
}
