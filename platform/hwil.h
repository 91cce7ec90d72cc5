// Hardware abstraction layer.
#pragma once

#include <cstdint>

// Scalar of zelHwilScalarSet through which a process announces its protocol id.
constexpr uint32_t ZEL_HWIL_SCALAR_PROTO_ID = 499;

// Size of the control record given to zelHwilCmdSyncApi.
constexpr uint32_t ZEL_HWIL_CTRL_LEN = 64;

// Forwards a management command to the hardware layer. `ctrl` points at a
// ZEL_HWIL_CTRL_LEN-byte control record (mode, key length, value length) that
// says how many bytes of `value` belong to the command. Returns 0 or an error.
int32_t zelHwilCmdSyncApi(uint32_t key, uint32_t cmdId, const void* value, const void* ctrl);

// Sets a hardware-layer scalar. Returns 0 or an error.
int32_t zelHwilScalarSet(uint32_t unit, uint32_t scalar, const void* value, uint32_t len);
