// Interface management commands: iteration over the configured interfaces,
// and set, sync and get of one interface entry, addressed by its unit. Every
// set is first forwarded to the hardware layer (zelHwilCmdSyncApi with the
// unit as key and command id PPPOEPLUS_HWIL_IF_BASE + code) and only then
// checked and applied. All entry points take the daemon lock after their null
// check.
#pragma once

#include <cstdint>

#include "mgmt/mgmt_types.h"

// Writes the smallest configured unit into `ifUnit`. 0, -1 for an empty
// table, ZEL_ERR_NULL_POINTER.
int32_t pppoeplusIfGetFirst(uint32_t* ifUnit);

// Writes the smallest configured unit above `ifUnit` (unsigned) into
// `nextIfUnit`; `ifUnit` need not have an entry. 0, -1 when there is none,
// ZEL_ERR_NULL_POINTER.
int32_t pppoeplusIfGetNext(uint32_t ifUnit, uint32_t* nextIfUnit);

// Set: `_pppoeplusIfSetApi` with mode PPPOEPLUS_SYNC_MODE_SET. `value` points
// at a u32 or, for the format codes, at a tPppoeplusStrValue. 0, 22,
// ZEL_ERR_NOT_FOUND (no entry, any code but PPPOEPLUS_IF_ENABLE),
// ZEL_ERR_NO_RESOURCE (entry not created), ZEL_ERR_TOO_LONG,
// ZEL_ERR_UNSUPPORTED, ZEL_ERR_NULL_POINTER, or the failure of the hardware
// layer, of zelIfSetApi, of pppoeplusIfEntryEnable or of
// pppoeplusIfEntryDelete as it came.
int32_t pppoeplusIfSetApi(uint32_t ifUnit, uint32_t code, void* value);

// Sync: the same as the set in every respect but the mode word
// (PPPOEPLUS_SYNC_MODE_SYNC) that the hardware layer receives.
int32_t pppoeplusIfSyncApi(uint32_t ifUnit, uint32_t code, void* value);

// The worker of set and sync; `mode` | PPPOEPLUS_SYNC_MODE_IF goes into word 0
// of the control record.
int32_t _pppoeplusIfSetApi(uint32_t ifUnit, uint32_t code, void* value, uint32_t mode);

// Get: writes the field of `code` into the record at `value` (a u32, or a
// tPppoeplusStrValue for the format codes; an entry without a format of its
// own reads the global one). 0, 22 (no text stored), ZEL_ERR_NOT_FOUND,
// ZEL_ERR_UNSUPPORTED, ZEL_ERR_NULL_POINTER.
int32_t pppoeplusIfGetApi(uint32_t ifUnit, uint32_t code, void* value);
