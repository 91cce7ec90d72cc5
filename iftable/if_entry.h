// Interface entries: one record per interface the agent serves, kept in the
// global tree ordered by ifUnit and taken from the "pppoeplus_if" pool.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/format_record.h"
#include "base/list.h"
#include "platform/avl.h"
#include "platform/ifdb.h"
#include "platform/types.h"

struct tPppoePlusIfEntry {
    avl_node_t treeNode;           // linkage of the interface tree
    tPppoeplusListNode trustNode;  // linkage of the trusted list; zero or self when detached
    uint32_t ifUnit;               // tree key
    uint32_t errorRcv;
    uint32_t errorSend;
    uint32_t padiRcv;
    uint32_t padrRcv;
    uint32_t padtRcv;
    uint32_t padoRcv;
    uint32_t padsRcv;
    uint32_t totalSend;
    uint32_t circuitIdFormatType;
    uint32_t remoteIdFormatType;
    tPppoeplusFormat circuitIdFormat;
    tPppoeplusFormat remoteIdFormat;
    uint8_t mac[6];
    // Six 2-bit fields, from the most significant: enable, trust, policy,
    // ignorePkt, protoEnable, protoDfltEnable; the low 4 bits are spare and
    // stay zero. Read and written through the accessors below.
    uint16_t bits;
    tZelPhyInfo phyInfo;
};

static_assert(offsetof(tPppoePlusIfEntry, treeNode) == 0, "the tree node comes first");
static_assert(offsetof(tPppoePlusIfEntry, trustNode) == sizeof(avl_node_t), "the list node follows the tree node");
static_assert(offsetof(tPppoeplusListNode, next) == 0 && offsetof(tPppoeplusListNode, prev) == sizeof(void*) &&
                  sizeof(tPppoeplusListNode) == 2 * sizeof(void*),
              "a list node is two pointers, next then previous");
static_assert(offsetof(tPppoePlusIfEntry, ifUnit) >= offsetof(tPppoePlusIfEntry, trustNode) + sizeof(tPppoeplusListNode));
static_assert(sizeof(tPppoePlusIfEntry::ifUnit) == 4);
static_assert(offsetof(tPppoePlusIfEntry, errorRcv) == offsetof(tPppoePlusIfEntry, ifUnit) + 4);
static_assert(offsetof(tPppoePlusIfEntry, errorSend) == offsetof(tPppoePlusIfEntry, errorRcv) + 4);
static_assert(offsetof(tPppoePlusIfEntry, padiRcv) == offsetof(tPppoePlusIfEntry, errorRcv) + 2 * 4);
static_assert(offsetof(tPppoePlusIfEntry, padrRcv) == offsetof(tPppoePlusIfEntry, errorRcv) + 3 * 4);
static_assert(offsetof(tPppoePlusIfEntry, padtRcv) == offsetof(tPppoePlusIfEntry, errorRcv) + 4 * 4);
static_assert(offsetof(tPppoePlusIfEntry, padoRcv) == offsetof(tPppoePlusIfEntry, errorRcv) + 5 * 4);
static_assert(offsetof(tPppoePlusIfEntry, padsRcv) == offsetof(tPppoePlusIfEntry, errorRcv) + 6 * 4);
static_assert(offsetof(tPppoePlusIfEntry, totalSend) == offsetof(tPppoePlusIfEntry, errorRcv) + 7 * 4,
              "eight counters in a row, errorRcv first, totalSend last");
static_assert(offsetof(tPppoePlusIfEntry, circuitIdFormatType) == offsetof(tPppoePlusIfEntry, totalSend) + 4);
static_assert(offsetof(tPppoePlusIfEntry, remoteIdFormatType) == offsetof(tPppoePlusIfEntry, circuitIdFormatType) + 4);
static_assert(offsetof(tPppoePlusIfEntry, circuitIdFormat) >= offsetof(tPppoePlusIfEntry, remoteIdFormatType) + 4);
static_assert(offsetof(tPppoePlusIfEntry, remoteIdFormat) ==
              offsetof(tPppoePlusIfEntry, circuitIdFormat) + sizeof(tPppoeplusFormat));
static_assert(offsetof(tPppoePlusIfEntry, mac) == offsetof(tPppoePlusIfEntry, remoteIdFormat) + sizeof(tPppoeplusFormat));
static_assert(sizeof(tPppoePlusIfEntry::mac) == 6);
static_assert(offsetof(tPppoePlusIfEntry, bits) == offsetof(tPppoePlusIfEntry, mac) + 6);
static_assert(sizeof(tPppoePlusIfEntry::bits) == 2, "the six 2-bit fields share one 16-bit word");
static_assert(offsetof(tPppoePlusIfEntry, phyInfo) == offsetof(tPppoePlusIfEntry, bits) + 2);
static_assert(sizeof(tZelPhyInfo) == 32);

constexpr uint32_t PPPOEPLUS_IF_COUNTER_NUM = 8;

// Positions of the 2-bit fields in `bits`.
constexpr uint32_t PPPOEPLUS_IFBIT_ENABLE = 14;
constexpr uint32_t PPPOEPLUS_IFBIT_TRUST = 12;
constexpr uint32_t PPPOEPLUS_IFBIT_POLICY = 10;
constexpr uint32_t PPPOEPLUS_IFBIT_IGNORE_PKT = 8;
constexpr uint32_t PPPOEPLUS_IFBIT_PROTO_ENABLE = 6;
constexpr uint32_t PPPOEPLUS_IFBIT_PROTO_DFLT_ENABLE = 4;

// Six 2-bit fields, enable in the two most significant bits, each field right
// below the previous one, the low 4 bits spare.
static_assert(PPPOEPLUS_IFBIT_ENABLE == 14 && PPPOEPLUS_IFBIT_TRUST == PPPOEPLUS_IFBIT_ENABLE - 2 &&
              PPPOEPLUS_IFBIT_POLICY == PPPOEPLUS_IFBIT_TRUST - 2 &&
              PPPOEPLUS_IFBIT_IGNORE_PKT == PPPOEPLUS_IFBIT_POLICY - 2 &&
              PPPOEPLUS_IFBIT_PROTO_ENABLE == PPPOEPLUS_IFBIT_IGNORE_PKT - 2 &&
              PPPOEPLUS_IFBIT_PROTO_DFLT_ENABLE == PPPOEPLUS_IFBIT_PROTO_ENABLE - 2 &&
              PPPOEPLUS_IFBIT_PROTO_DFLT_ENABLE == 4);
constexpr uint16_t PPPOEPLUS_IFBIT_SPARE_MASK = 0x000F;  // always zero

inline uint32_t pppoeplusIfBitsGet(const tPppoePlusIfEntry* e, uint32_t shift) { return (e->bits >> shift) & 0x3u; }
inline void pppoeplusIfBitsSet(tPppoePlusIfEntry* e, uint32_t shift, uint32_t value) {
    e->bits = static_cast<uint16_t>((e->bits & ~(0x3u << shift)) | ((value & 0x3u) << shift));
}

// Tree order: a null `a` gives -1, else a null `b` gives 1; otherwise the
// units compared unsigned.
int32_t pppoeplusIfCmp(const void* a, const void* b);

// Field accessors of the 2-bit word.
inline uint32_t pppoeplusIfEnableGet(const tPppoePlusIfEntry* e) { return pppoeplusIfBitsGet(e, PPPOEPLUS_IFBIT_ENABLE); }
inline void pppoeplusIfEnableSet(tPppoePlusIfEntry* e, uint32_t v) { pppoeplusIfBitsSet(e, PPPOEPLUS_IFBIT_ENABLE, v); }
inline uint32_t pppoeplusIfTrustGet(const tPppoePlusIfEntry* e) { return pppoeplusIfBitsGet(e, PPPOEPLUS_IFBIT_TRUST); }
inline void pppoeplusIfTrustSet(tPppoePlusIfEntry* e, uint32_t v) { pppoeplusIfBitsSet(e, PPPOEPLUS_IFBIT_TRUST, v); }
inline uint32_t pppoeplusIfPolicyGet(const tPppoePlusIfEntry* e) { return pppoeplusIfBitsGet(e, PPPOEPLUS_IFBIT_POLICY); }
inline void pppoeplusIfPolicySet(tPppoePlusIfEntry* e, uint32_t v) { pppoeplusIfBitsSet(e, PPPOEPLUS_IFBIT_POLICY, v); }
inline uint32_t pppoeplusIfIgnorePktGet(const tPppoePlusIfEntry* e) {
    return pppoeplusIfBitsGet(e, PPPOEPLUS_IFBIT_IGNORE_PKT);
}
inline void pppoeplusIfIgnorePktSet(tPppoePlusIfEntry* e, uint32_t v) {
    pppoeplusIfBitsSet(e, PPPOEPLUS_IFBIT_IGNORE_PKT, v);
}
inline uint32_t pppoeplusIfProtoEnableGet(const tPppoePlusIfEntry* e) {
    return pppoeplusIfBitsGet(e, PPPOEPLUS_IFBIT_PROTO_ENABLE);
}
inline void pppoeplusIfProtoEnableSet(tPppoePlusIfEntry* e, uint32_t v) {
    pppoeplusIfBitsSet(e, PPPOEPLUS_IFBIT_PROTO_ENABLE, v);
}
inline uint32_t pppoeplusIfProtoDfltEnableGet(const tPppoePlusIfEntry* e) {
    return pppoeplusIfBitsGet(e, PPPOEPLUS_IFBIT_PROTO_DFLT_ENABLE);
}
inline void pppoeplusIfProtoDfltEnableSet(tPppoePlusIfEntry* e, uint32_t v) {
    pppoeplusIfBitsSet(e, PPPOEPLUS_IFBIT_PROTO_DFLT_ENABLE, v);
}

// Zeroes the eight counters, errorRcv to totalSend.
inline void pppoeplusIfEntryCountersClear(tPppoePlusIfEntry* e) {
    e->errorRcv = 0;
    e->errorSend = 0;
    e->padiRcv = 0;
    e->padrRcv = 0;
    e->padtRcv = 0;
    e->padoRcv = 0;
    e->padsRcv = 0;
    e->totalSend = 0;
}

// The entry of `ifUnit` in the interface tree, or null.
tPppoePlusIfEntry* pppoeplusIfEntryGet(uint32_t ifUnit);

// Creates the entry of `ifUnit` from the pool, switches the protocols'
// default states on when every port is served by default, enables trapping
// when `enable` is 1 (anything else adds it disabled) and inserts it into the
// tree. Null when the pool is exhausted, a platform call fails (everything
// done before is undone and logged) or `ifUnit` already has an entry.
tPppoePlusIfEntry* pppoeplusIfEntryAdd(uint32_t ifUnit, uint32_t enable);

// Switches trapping of "pppoe+" and "pppoe+hw" on. 0, or -1 after a platform
// failure; the entry is then gone: taken out of the tree and off the trusted
// list if it was there, and returned to the pool. The caller must not use it
// again.
int32_t pppoeplusIfEntryEnable(tPppoePlusIfEntry* entry);

// Switches trapping off (only "pppoe+" on a trusted entry); nothing when it
// is not on. Platform failures are logged and passed over. Always 0.
int32_t pppoeplusIfEntryDisable(tPppoePlusIfEntry* entry);

// Switches the default states and trapping off, takes the entry out of the
// tree and off the trusted list, zeroes it and returns it to the pool.
// Platform failures are logged and passed over. Always 0.
int32_t pppoeplusIfEntryDelete(tPppoePlusIfEntry* entry);

// Back to factory settings: untrusted (the hardware rule back on unless the
// entry is disabled), policy default, both formats DEFAULT and empty. Keeps
// the entry, its enable state, counters, MAC and position. 0, or the result
// of the failed platform call.
int32_t pppoeplusIfEntryResetConfig(tPppoePlusIfEntry* entry);

// Interface kinds whose ports face PON lines: EPON and GPON ports and PON
// aggregates.
inline bool pppoeplusOndTypeIsPon(uint32_t ondType) {
    return ondType == ZEL_OND_EPON || ondType == ZEL_OND_GPON || ondType == ZEL_OND_PON_AGG;
}

// The format that applies to `entry` for its Circuit-ID (`circuitId` true)
// or its Remote-ID, and that format's type in `type`: the entry's own when
// its type is not DEFAULT, else the global one (for the Circuit-ID of a PON
// interface, by the kind in the entry's port-index record, the global PON
// one).
const tPppoeplusFormat* pppoeplusIfFormatApplied(const tPppoePlusIfEntry* entry, bool circuitId, uint32_t* type);

// Text shown for an interface kind: "ETH" for Ethernet ports and aggregates,
// "PON" for PON ports and aggregates, "other" for anything else.
const char* pppoeplusOndTypeStr(uint32_t ondType);
