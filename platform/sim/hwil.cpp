// Simulated hardware layer: every command is recorded with the bytes of its
// control record and of the value that record describes.
#include <cstring>
#include <string>

#include "platform/hwil.h"
#include "platform/sim/sim.h"

using sim::g;

// Mode bit of the control record: the value is a {text pointer, length} pair.
static constexpr uint32_t SIM_HWIL_MODE_STRING = 0x80000000;

int32_t zelHwilCmdSyncApi(uint32_t key, uint32_t cmdId, const void* value, const void* ctrl) {
    auto f = sim::enter("zelHwilCmdSyncApi",
                        "zelHwilCmdSyncApi(" + std::to_string(key) + "," + std::to_string(cmdId) + ")");
    sim::HwilCall call{key, cmdId, {}, {}};
    if (ctrl != nullptr) {
        const auto* c = static_cast<const uint8_t*>(ctrl);
        call.ctrl.assign(c, c + ZEL_HWIL_CTRL_LEN);
        uint32_t mode = 0;
        uint32_t valueLen = 0;
        std::memcpy(&mode, c, 4);
        std::memcpy(&valueLen, c + 16, 4);
        if (value != nullptr) {
            const uint8_t* bytes = static_cast<const uint8_t*>(value);
            if (mode & SIM_HWIL_MODE_STRING) {
                const uint8_t* text = nullptr;
                std::memcpy(&text, value, sizeof(text));
                bytes = text;
            }
            if (bytes != nullptr) call.value.assign(bytes, bytes + valueLen);
        }
    }
    g.hwilCalls.push_back(call);
    if (f) return static_cast<int32_t>(*f);
    return 0;
}

int32_t zelHwilScalarSet(uint32_t unit, uint32_t scalar, const void* value, uint32_t len) {
    uint32_t v = 0;
    if (value != nullptr) std::memcpy(&v, value, 4);
    auto f = sim::enter("zelHwilScalarSet", "zelHwilScalarSet(" + std::to_string(unit) + "," +
                                                std::to_string(scalar) + "," + std::to_string(v) + "," +
                                                std::to_string(len) + ")");
    if (f) return static_cast<int32_t>(*f);
    std::vector<uint8_t> bytes(4);
    std::memcpy(bytes.data(), &v, 4);
    g.hwilScalars[scalar] = bytes;
    return 0;
}
