// Interface entries: one record per interface the agent serves, kept in the
// global tree ordered by ifUnit and taken from the "pppoeplus_if" pool.
#pragma once

#include <cstddef>
#include <cstdint>

#include "format/keywords.h"
#include "iftable/list.h"
#include "platform/avl.h"
#include "platform/ifdb.h"

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
static_assert(offsetof(tPppoePlusIfEntry, errorRcv) == offsetof(tPppoePlusIfEntry, ifUnit) + 4);
static_assert(offsetof(tPppoePlusIfEntry, totalSend) == offsetof(tPppoePlusIfEntry, errorRcv) + 7 * 4,
              "eight counters in a row, errorRcv first, totalSend last");
static_assert(offsetof(tPppoePlusIfEntry, bits) == offsetof(tPppoePlusIfEntry, mac) + 6);
static_assert(sizeof(tZelPhyInfo) == 32);

constexpr uint32_t PPPOEPLUS_IF_COUNTER_NUM = 8;

// Positions of the 2-bit fields in `bits`.
constexpr uint32_t PPPOEPLUS_IFBIT_ENABLE = 14;
constexpr uint32_t PPPOEPLUS_IFBIT_TRUST = 12;
constexpr uint32_t PPPOEPLUS_IFBIT_POLICY = 10;
constexpr uint32_t PPPOEPLUS_IFBIT_IGNORE_PKT = 8;
constexpr uint32_t PPPOEPLUS_IFBIT_PROTO_ENABLE = 6;
constexpr uint32_t PPPOEPLUS_IFBIT_PROTO_DFLT_ENABLE = 4;

inline uint32_t pppoeplusIfBitsGet(const tPppoePlusIfEntry* e, uint32_t shift) { return (e->bits >> shift) & 0x3u; }
inline void pppoeplusIfBitsSet(tPppoePlusIfEntry* e, uint32_t shift, uint32_t value) {
    e->bits = static_cast<uint16_t>((e->bits & ~(0x3u << shift)) | ((value & 0x3u) << shift));
}

// Tree order: a null `a` gives -1, else a null `b` gives 1; otherwise the
// units compared unsigned.
int32_t pppoeplusIfCmp(const void* a, const void* b);
