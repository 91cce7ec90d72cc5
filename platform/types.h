// Platform-wide constants shared by every platform family: truth values,
// result codes, protocol ids and interface kinds.
#pragma once

#include <cstdint>

// Tri-state truth values of the platform. 0 means "not set".
constexpr uint32_t ZEL_TRUE = 1;
constexpr uint32_t ZEL_FALSE = 2;

// Result codes. 0 is success; the platform's own errors live at 0x3E8xxxx.
constexpr int32_t ZEL_OK = 0;
constexpr int32_t ZEL_ERR_BASE = 0x3E80000;
constexpr int32_t ZEL_ERR_GENERAL = ZEL_ERR_BASE + 0x01;
constexpr int32_t ZEL_ERR_NOT_FOUND = ZEL_ERR_BASE + 0x02;
constexpr int32_t ZEL_ERR_EXISTS = ZEL_ERR_BASE + 0x03;
constexpr int32_t ZEL_ERR_INVALID_ARG = ZEL_ERR_BASE + 0x04;
constexpr int32_t ZEL_ERR_TOO_LONG = ZEL_ERR_BASE + 0x0D;
constexpr int32_t ZEL_ERR_NO_RESOURCE = ZEL_ERR_BASE + 0x0E;
constexpr int32_t ZEL_ERR_UNSUPPORTED = ZEL_ERR_BASE + 0x10;
constexpr int32_t ZEL_ERR_NULL_POINTER = ZEL_ERR_BASE + 0x1A;
constexpr int32_t ZEL_ERR_SET_SOCKOPT = ZEL_ERR_BASE + 0x1B;

// The value handed back as "invalid value" by the daemon's entry points.
constexpr int32_t ZEL_EINVAL = 22;

// Protocol ids of the platform's protocol table.
constexpr uint32_t ZEL_PROTO_PPPOEPLUS_HW = 19;  // "pppoe+hw": hardware rule on a port
constexpr uint32_t ZEL_PROTO_PPPOEPLUS = 141;    // "pppoe+": software trap, socket name
constexpr uint32_t ZEL_PROTO_MAX = 384;          // highest id with a platform name

// Interface kinds (`ondType` of the physical-position record).
constexpr uint32_t ZEL_OND_ETH = 1;
constexpr uint32_t ZEL_OND_ETH_AGG = 2;
constexpr uint32_t ZEL_OND_EPON = 10;
constexpr uint32_t ZEL_OND_GPON = 11;
constexpr uint32_t ZEL_OND_PON_AGG = 12;

// Interface type numbers (interface attribute 5).
constexpr uint32_t ZEL_IFTYPE_ETHERNET = 6;
constexpr uint32_t ZEL_IFTYPE_GPON = 250;
