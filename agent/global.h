// The daemon's single global record and the accessors of its flags word.
#pragma once

#include <cstdint>

#include "base/constants.h"
#include "base/format_record.h"
#include "base/list.h"
#include "platform/avl.h"
#include "platform/os.h"

struct tPppoeplusGlobal {
    avl_tree_t ifTree;               // interface entries by ifUnit
    tPppoeplusListNode trustIfList;  // trusted entries by ifUnit
    tSilMemPool ifPool;              // "pppoeplus_if"
    uint32_t semId;
    uint32_t vendorId;
    uint32_t dfltVendorId;
    uint32_t ponDefaultType;
    uint32_t maxSubSysNum;
    uint32_t ifMaxNum;
    uint8_t ethIfEnable;
    uint8_t ethAggIfEnable;
    uint8_t gponIfEnable;
    uint8_t ponAggIfEnable;
    uint8_t sysMac[6];
    // Four 4-bit fields, from the most significant: debugSwitch, policy,
    // enable, isAllPortEnableSupport. Read and written through the accessors
    // below.
    uint16_t flags;
    int32_t pktFd;
    int32_t rtSockFd;
    uint32_t circuitIdFormatType;
    uint32_t remoteIdFormatType;
    uint32_t ponCircuitIdFormatType;
    tPppoeplusFormat circuitIdFormat;
    tPppoeplusFormat remoteIdFormat;
    tPppoeplusFormat ponCircuitIdFormat;
    uint32_t logLevel[PPPOEPLUS_SUB_NUM];
};

extern tPppoeplusGlobal gPppoeplus;
// 1 once start-up has completed.
extern uint32_t gPppoeplusInit;

// ---- the flags word ----------------------------------------------------------

constexpr uint32_t PPPOEPLUS_FLAG_SHIFT_DEBUG = 12;
constexpr uint32_t PPPOEPLUS_FLAG_SHIFT_POLICY = 8;
constexpr uint32_t PPPOEPLUS_FLAG_SHIFT_ENABLE = 4;
constexpr uint32_t PPPOEPLUS_FLAG_SHIFT_ALLPORT = 0;

inline uint32_t pppoeplusFlagGet(uint32_t shift) { return (gPppoeplus.flags >> shift) & 0xFu; }
inline void pppoeplusFlagSet(uint32_t shift, uint32_t value) {
    gPppoeplus.flags = static_cast<uint16_t>((gPppoeplus.flags & ~(0xFu << shift)) | ((value & 0xFu) << shift));
}

inline uint32_t pppoeplusDebugSwitch() { return pppoeplusFlagGet(PPPOEPLUS_FLAG_SHIFT_DEBUG); }
inline void pppoeplusDebugSwitchSet(uint32_t v) { pppoeplusFlagSet(PPPOEPLUS_FLAG_SHIFT_DEBUG, v); }
inline uint32_t pppoeplusPolicy() { return pppoeplusFlagGet(PPPOEPLUS_FLAG_SHIFT_POLICY); }
inline void pppoeplusPolicySet(uint32_t v) { pppoeplusFlagSet(PPPOEPLUS_FLAG_SHIFT_POLICY, v); }
inline uint32_t pppoeplusEnableGet() { return pppoeplusFlagGet(PPPOEPLUS_FLAG_SHIFT_ENABLE); }
inline void pppoeplusEnableSet(uint32_t v) { pppoeplusFlagSet(PPPOEPLUS_FLAG_SHIFT_ENABLE, v); }
inline uint32_t pppoeplusAllPortEnableGet() { return pppoeplusFlagGet(PPPOEPLUS_FLAG_SHIFT_ALLPORT); }
inline void pppoeplusAllPortEnableSet(uint32_t v) { pppoeplusFlagSet(PPPOEPLUS_FLAG_SHIFT_ALLPORT, v); }

inline bool pppoeplusDebugOn(uint32_t bit) { return (pppoeplusDebugSwitch() & bit) != 0; }

// Text shown for a truth value: "ZEL_TRUE", "ZEL_FALSE" or "unknown".
const char* pppoeplusTruthStr(uint32_t value);
// Text shown for a device kind: "switch", "pon-olt", "pon-onu" or "other".
const char* pppoeplusPonTypeStr(uint32_t value);
// Text shown for a policy: "default", "keep", "drop", "replace" or "unknown".
const char* pppoeplusPolicyStr(uint32_t value);
