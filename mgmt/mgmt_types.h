// Records and command codes of the management entry points: the value and
// status records that callers pass by pointer, the control record handed to
// the hardware layer with every forwarded command, and the global (scalar)
// and per-interface command codes.
#pragma once

#include <cstddef>
#include <cstdint>

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

// ---- global (scalar) commands -------------------------------------------------------

// Command id of a forwarded scalar command: base + code; the key is 0.
constexpr uint32_t PPPOEPLUS_HWIL_SCALAR_BASE = 0x154000;

constexpr uint32_t PPPOEPLUS_SCALAR_DEBUG = 1;                   // debugSwitch, low 4 bits
constexpr uint32_t PPPOEPLUS_SCALAR_POLICY = 2;                  // policy, low 4 bits
constexpr uint32_t PPPOEPLUS_SCALAR_ENABLE = 3;                  // 1 enable, 2 disable
constexpr uint32_t PPPOEPLUS_SCALAR_VENDORID = 4;                // u32
constexpr uint32_t PPPOEPLUS_SCALAR_CIRCUITID_TYPE = 5;          // 0, 1, 2
constexpr uint32_t PPPOEPLUS_SCALAR_CIRCUITID_FORMAT = 6;        // tPppoeplusStrValue
constexpr uint32_t PPPOEPLUS_SCALAR_REMOTEID_TYPE = 7;           // 0, 1, 2
constexpr uint32_t PPPOEPLUS_SCALAR_REMOTEID_FORMAT = 8;         // tPppoeplusStrValue
constexpr uint32_t PPPOEPLUS_SCALAR_VERSION = 9;                 // get only, tPppoeplusStrValue
constexpr uint32_t PPPOEPLUS_SCALAR_DFLT_VENDORID = 10;          // get only, u32
constexpr uint32_t PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE = 11;     // 0, 1, 2
constexpr uint32_t PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT = 12;   // tPppoeplusStrValue
constexpr uint32_t PPPOEPLUS_SCALAR_ALLPORT_ENABLE_SUPPORT = 13; // get only, truth value
constexpr uint32_t PPPOEPLUS_SCALAR_ETHIF_ENABLE = 14;           // get only, truth value
constexpr uint32_t PPPOEPLUS_SCALAR_ETHAGGIF_ENABLE = 15;        // get only, truth value
constexpr uint32_t PPPOEPLUS_SCALAR_GPONIF_ENABLE = 16;          // get only, truth value
constexpr uint32_t PPPOEPLUS_SCALAR_PONAGGIF_ENABLE = 17;        // get only, truth value
constexpr uint32_t PPPOEPLUS_SCALAR_NSRINFO = 18;                // get only, tPppoeplusNsrInfo in a tPppoeplusStrValue
// Codes from here on are not known to the scalar get; from
// PPPOEPLUS_SCALAR_ALLPORT_ENABLE_SUPPORT on, none can be set.
constexpr uint32_t PPPOEPLUS_SCALAR_MAX = 19;

// ---- interface commands ---------------------------------------------------------------

// Command id of a forwarded interface command: base + code; the key is the
// interface unit.
constexpr uint32_t PPPOEPLUS_HWIL_IF_BASE = 0x40D0000;

constexpr uint32_t PPPOEPLUS_IF_TRUST = 1;              // truth value
constexpr uint32_t PPPOEPLUS_IF_ENABLE = 2;             // 1 enable, 2 disable
constexpr uint32_t PPPOEPLUS_IF_POLICY = 3;             // 0 to 3, low 2 bits
constexpr uint32_t PPPOEPLUS_IF_IGNORE_PKT = 4;         // truth value, low 2 bits
constexpr uint32_t PPPOEPLUS_IF_CIRCUITID_TYPE = 5;     // 0, 1, 2
constexpr uint32_t PPPOEPLUS_IF_CIRCUITID_FORMAT = 6;   // tPppoeplusStrValue
constexpr uint32_t PPPOEPLUS_IF_REMOTEID_TYPE = 7;      // 0, 1, 2
constexpr uint32_t PPPOEPLUS_IF_REMOTEID_FORMAT = 8;    // tPppoeplusStrValue
// Counters, get only. The codes number them errorRcv, errorSend, PADI, PADR,
// PADO, PADS, PADT, totalSend; the entry keeps PADT before PADO and PADS, so
// they are mapped by name, never by position.
constexpr uint32_t PPPOEPLUS_IF_ERROR_RCV = 9;
constexpr uint32_t PPPOEPLUS_IF_ERROR_SEND = 10;
constexpr uint32_t PPPOEPLUS_IF_PADI_RCV = 11;
constexpr uint32_t PPPOEPLUS_IF_PADR_RCV = 12;
constexpr uint32_t PPPOEPLUS_IF_PADO_RCV = 13;
constexpr uint32_t PPPOEPLUS_IF_PADS_RCV = 14;
constexpr uint32_t PPPOEPLUS_IF_PADT_RCV = 15;
constexpr uint32_t PPPOEPLUS_IF_TOTAL_SEND = 16;
constexpr uint32_t PPPOEPLUS_IF_STAT_CLEAR = 17;        // set only; the value is ignored but must not be null
constexpr uint32_t PPPOEPLUS_IF_MAX = 18;

// ---- results ------------------------------------------------------------------------------

// Local failure; from the iterators: no further entry.
constexpr int32_t PPPOEPLUS_ERR = -1;
