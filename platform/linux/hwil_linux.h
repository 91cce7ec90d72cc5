// The hardware layer on Linux: there is no switching hardware to program,
// so commands are accepted and the last value of each is kept for inspection.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace linuxplat {

// Value bytes of the last zelHwilCmdSyncApi call with `cmdId` and `key`.
std::optional<std::vector<uint8_t>> hwilLastCommand(uint32_t key, uint32_t cmdId);
// Value of the last zelHwilScalarSet of `scalar`.
std::optional<uint32_t> hwilLastScalar(uint32_t scalar);

}  // namespace linuxplat
