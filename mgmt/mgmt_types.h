// Records of the management entry points: the value and status records that
// callers pass by pointer and the control record handed to the hardware layer
// with every forwarded command. The command and result codes are in
// mgmt_codes.h, which this header includes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mgmt/mgmt_codes.h"
#include "format/format_simplify.h"  // tPppoeplusStrValue: {text pointer, length}
#include "platform/hwil.h"

// ---- control record of zelHwilCmdSyncApi ------------------------------------------

// Mode word (offset 0): 3 for a set, 1 for a sync, plus the two flag bits.
constexpr uint32_t PPPOEPLUS_SYNC_MODE_SYNC = 1;
constexpr uint32_t PPPOEPLUS_SYNC_MODE_SET = 3;
// The value is a tPppoeplusStrValue; the value length is the text's length.
constexpr uint32_t PPPOEPLUS_SYNC_MODE_STR_VALUE = 0x80000000;
// An interface command: the key is the interface unit.
constexpr uint32_t PPPOEPLUS_SYNC_MODE_IF = 0x10000000;

// Key length of a scalar command (no key) and of an interface command (ifUnit).
constexpr uint32_t PPPOEPLUS_SYNC_KEY_LEN_SCALAR = 0;
constexpr uint32_t PPPOEPLUS_SYNC_KEY_LEN_IF = 4;
// Value length of an integer value.
constexpr uint32_t PPPOEPLUS_SYNC_VALUE_LEN_U32 = 4;

// 64 bytes, zero-filled before use.
struct tPppoeplusSyncCtrl {
    uint32_t mode;          // offset 0
    uint32_t keyLen;        // offset 4
    uint8_t reserved1[8];   // offset 8, zero
    uint32_t valueLen;      // offset 16
    uint8_t reserved2[44];  // offset 20, zero
};
static_assert(sizeof(tPppoeplusSyncCtrl) == 64);
static_assert(sizeof(tPppoeplusSyncCtrl) == ZEL_HWIL_CTRL_LEN);
static_assert(offsetof(tPppoeplusSyncCtrl, mode) == 0);
static_assert(offsetof(tPppoeplusSyncCtrl, keyLen) == 4);
static_assert(offsetof(tPppoeplusSyncCtrl, reserved1) == 8);
static_assert(offsetof(tPppoeplusSyncCtrl, valueLen) == 16);
static_assert(offsetof(tPppoeplusSyncCtrl, reserved2) == 20);

// ---- value records -------------------------------------------------------------------

// Non-stop-routing status, delivered into the buffer of a tPppoeplusStrValue.
struct tPppoeplusNsrInfo {
    uint32_t switchover;    // truth value
    uint32_t incompleteOp;  // count
    uint32_t allOp;         // count
};
static_assert(sizeof(tPppoeplusNsrInfo) == 12);
static_assert(offsetof(tPppoeplusNsrInfo, switchover) == 0);
static_assert(offsetof(tPppoeplusNsrInfo, incompleteOp) == 4);
static_assert(offsetof(tPppoeplusNsrInfo, allOp) == 8);

static_assert(offsetof(tPppoeplusStrValue, str) == 0, "word 0 is the text pointer");
static_assert(offsetof(tPppoeplusStrValue, len) == sizeof(char*), "word 1 is the length");

// The daemon's version, delivered without a terminating NUL.
inline constexpr char PPPOEPLUS_VERSION[] = "PPPOEPLUS_V7.00.00.00";
constexpr uint32_t PPPOEPLUS_VERSION_LEN = 21;
static_assert(sizeof(PPPOEPLUS_VERSION) == PPPOEPLUS_VERSION_LEN + 1);
