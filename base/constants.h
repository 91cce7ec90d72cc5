// Constants every layer of the daemon shares: the built-in vendor id, the
// device kinds, the tag policies, the debug switch bits, the log's
// sub-modules and the start-up sizes.
#pragma once

#include <cstdint>

// Built-in vendor id of the Vendor-Specific tag, used when the platform's
// vendor-id scalar reads as 0: the Broadband Forum enterprise number, under
// which access concentrators and analysers read the Circuit-ID and Remote-ID
// sub-options.
constexpr uint32_t PPPOEPLUS_DEFAULT_VENDOR_ID = 0x00000DE9;

// Device kinds (`ponDefaultType`).
constexpr uint32_t PPPOEPLUS_PON_TYPE_SWITCH = 0;
constexpr uint32_t PPPOEPLUS_PON_TYPE_OLT = 1;
constexpr uint32_t PPPOEPLUS_PON_TYPE_ONU = 2;

// Vendor-Specific tag policies.
constexpr uint32_t PPPOEPLUS_POLICY_DEFAULT = 0;
constexpr uint32_t PPPOEPLUS_POLICY_KEEP = 1;
constexpr uint32_t PPPOEPLUS_POLICY_DROP = 2;
constexpr uint32_t PPPOEPLUS_POLICY_REPLACE = 3;

// Bits of the debug switch.
constexpr uint32_t PPPOEPLUS_DEBUG_STARTUP = 0x1;  // start-up failures
constexpr uint32_t PPPOEPLUS_DEBUG_PKT_DUMP = 0x2; // hex dumps of frames
constexpr uint32_t PPPOEPLUS_DEBUG_EVENT = 0x4;    // traces
constexpr uint32_t PPPOEPLUS_DEBUG_ERROR = 0x8;    // errors

// Sub-modules of the log: module id = PPPOEPLUS_MODULE_BASE + sub-module, and
// the level is the global logLevel entry of the sub-module.
constexpr uint32_t PPPOEPLUS_MODULE_BASE = 0x45D0000;
constexpr uint32_t PPPOEPLUS_SUB_RECV = 0;
constexpr uint32_t PPPOEPLUS_SUB_SEND = 1;
constexpr uint32_t PPPOEPLUS_SUB_ROUTE = 3;
constexpr uint32_t PPPOEPLUS_SUB_ERROR = 4;
constexpr uint32_t PPPOEPLUS_SUB_EVENT = 5;
constexpr uint32_t PPPOEPLUS_SUB_PROTO_ENABLE = 6;
constexpr uint32_t PPPOEPLUS_SUB_PROTO_DISABLE = 7;
constexpr uint32_t PPPOEPLUS_SUB_NUM = 8;

// Start-up constants.
constexpr uint32_t PPPOEPLUS_RCVBUF_ENABLED = 0x100000;
constexpr uint32_t PPPOEPLUS_DEFAULT_IF_PER_SUBSYS = 20;
constexpr uint32_t PPPOEPLUS_DEFAULT_SUBSYS_NUM = 9;
