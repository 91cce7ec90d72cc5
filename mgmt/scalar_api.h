// Global (scalar) management commands: set, sync and get of the settings of
// the global record. Every set is first forwarded to the hardware layer
// (zelHwilCmdSyncApi with key 0 and command id PPPOEPLUS_HWIL_SCALAR_BASE +
// code) and only then checked and applied. All entry points take the daemon
// lock after their null check.
#pragma once

#include <cstdint>

#include "mgmt/mgmt_types.h"

// Set: `_pppoeplusScalarSetApi` with mode PPPOEPLUS_SYNC_MODE_SET. `unit` is
// ignored; `value` points at a u32 or, for the format codes, at a
// tPppoeplusStrValue. 0, 22 (invalid value or format), -1 (no PON default
// format for the device), ZEL_ERR_TOO_LONG, ZEL_ERR_UNSUPPORTED,
// ZEL_ERR_NULL_POINTER, or the failure of the hardware layer or of
// pppoeplusEnable as it came.
int32_t pppoeplusScalarSetApi(uint32_t unit, uint32_t code, void* value);

// Sync: the same as the set in every respect but the mode word
// (PPPOEPLUS_SYNC_MODE_SYNC) that the hardware layer receives.
int32_t pppoeplusScalarSyncApi(uint32_t unit, uint32_t code, void* value);

// The worker of set and sync; `mode` goes into word 0 of the control record.
int32_t _pppoeplusScalarSetApi(uint32_t unit, uint32_t code, void* value, uint32_t mode);

// Get: writes the setting of `code` into the record at `value` (a u32, or a
// tPppoeplusStrValue for the format, version and NSR codes). 0, 22 (no text
// stored), -1 (malformed NSR request: returned with the daemon lock still
// held), ZEL_ERR_TOO_LONG (version buffer below 21 bytes),
// ZEL_ERR_UNSUPPORTED, ZEL_ERR_NULL_POINTER.
int32_t pppoeplusScalarGetApi(uint32_t unit, uint32_t code, void* value);
