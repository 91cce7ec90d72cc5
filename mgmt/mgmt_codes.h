// Command codes and result codes of the management entry points: the global
// (scalar) and per-interface command codes and the daemon's own failure
// result. Plain constants, no header of the project included, so that a program outside the
// daemon (pppoeplusctl) can name the commands without pulling in the records
// and the layers below them.
#pragma once

#include <cstdint>

// ---- rows of the command map (func_map.h gives the entry point of each) ---------------

constexpr uint32_t PPPOEPLUS_FUNC_NONE = 0;
constexpr uint32_t PPPOEPLUS_FUNC_SCALAR_GET = 1;
constexpr uint32_t PPPOEPLUS_FUNC_SCALAR_SET = 2;
constexpr uint32_t PPPOEPLUS_FUNC_SCALAR_SYNC = 3;
constexpr uint32_t PPPOEPLUS_FUNC_IF_GET_FIRST = 4;
constexpr uint32_t PPPOEPLUS_FUNC_IF_GET_NEXT = 5;
constexpr uint32_t PPPOEPLUS_FUNC_IF_GET = 6;
constexpr uint32_t PPPOEPLUS_FUNC_IF_SET = 7;
constexpr uint32_t PPPOEPLUS_FUNC_IF_SYNC = 8;

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
