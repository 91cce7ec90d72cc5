// Interface entries: creation, enabling, disabling, reset and deletion, and
// the platform's trapping of discovery frames that goes with them.
#include "iftable/if_entry.h"

#include <cstring>

#include "agent/global.h"
#include "agent/log.h"
#include "format/keywords.h"
#include "iftable/trust_list.h"
#include "platform/ifdb.h"
#include "platform/os.h"
#include "platform/types.h"

namespace {

// Which protocol state a failed platform call was switching.
enum class tPppoeplusProtoType { State, DefaultState };

// Sets interface attribute `attr` (53, 54, 56 or 57) for protocol `proto`.
uint32_t pppoeplusIfProtoSet(uint32_t ifUnit, uint32_t attr, uint32_t proto) {
    tZelIfProto value{};
    value.protoId = proto;
    return zelIfSetApi(ifUnit, attr, &value);
}

// Operator log of a failed switch of `proto` on `ifUnit`: on (sub-module 6,
// "enable") or off (sub-module 7, "disable"), of its state or its default
// state.
void pppoeplusIfProtoErrLog(uint32_t ifUnit, uint32_t proto, bool on, tPppoeplusProtoType type) {
    char ifName[ZEL_IF_NAME_LEN] = {};
    zelIfUnit2Name(ifUnit, ifName, sizeof(ifName));
    PPPOEPLUS_OPER_LOG(on ? PPPOEPLUS_SUB_PROTO_ENABLE : PPPOEPLUS_SUB_PROTO_DISABLE,
                       "The interface %s protocol error.(ifName=[%s], proto=[%s], type=[%s])\r\n",
                       on ? "enable" : "disable", ifName, zelProtoName(proto),
                       type == tPppoeplusProtoType::DefaultState ? "defaultstate" : "state");
}

// True when `entry` itself (not merely an entry of the same unit) is linked
// in the interface tree.
bool pppoeplusIfEntryInTree(const tPppoePlusIfEntry* entry) {
    return avl_find(&gPppoeplus.ifTree, entry) == entry;
}

// Takes `entry` out of the tree and off the trusted list wherever it is
// linked, zeroes it and returns it to the pool, so that nothing keeps
// pointing into a freed record.
void pppoeplusIfEntryRelease(tPppoePlusIfEntry* entry) {
    if (pppoeplusIfEntryInTree(entry)) avl_remove(&gPppoeplus.ifTree, entry);
    // Harmless for a node that is zero or points to itself.
    pppoeplusTrustIfEntryDetach(entry);
    std::memset(entry, 0, sizeof(*entry));
    silMemPoolFree(&gPppoeplus.ifPool, entry);
}

// Empties a format record's two texts, keeping its keyword table.
void pppoeplusIfFormatClear(tPppoeplusFormat* format) {
    std::memset(format->format, 0, sizeof(format->format));
    format->formatLen = 0;
    std::memset(format->origFormat, 0, sizeof(format->origFormat));
    format->origFormatLen = 0;
}

}  // namespace

int32_t pppoeplusIfCmp(const void* a, const void* b) {
    if (a == nullptr) return -1;
    if (b == nullptr) return 1;
    uint32_t ua = static_cast<const tPppoePlusIfEntry*>(a)->ifUnit;
    uint32_t ub = static_cast<const tPppoePlusIfEntry*>(b)->ifUnit;
    if (ua > ub) return 1;
    if (ua == ub) return 0;
    return -1;
}

tPppoePlusIfEntry* pppoeplusIfEntryGet(uint32_t ifUnit) {
    tPppoePlusIfEntry key{};
    key.ifUnit = ifUnit;
    return static_cast<tPppoePlusIfEntry*>(avl_find(&gPppoeplus.ifTree, &key));
}

tPppoePlusIfEntry* pppoeplusIfEntryAdd(uint32_t ifUnit, uint32_t enable) {
    // One entry per unit: a second one could not go into the tree, and the
    // platform's protocol states belong to the entry that is there.
    if (pppoeplusIfEntryGet(ifUnit) != nullptr) return nullptr;

    auto* entry = static_cast<tPppoePlusIfEntry*>(silMemPoolAlloc(&gPppoeplus.ifPool));
    if (entry == nullptr) {
        PPPOEPLUS_ERROR_LOG("Failed to add interface entry; alloc if entry failed!\r\n");
        return nullptr;
    }
    // Counters, list node and spare bits start at zero whatever the pool
    // hands out: not every platform's pool zeroes its records.
    std::memset(entry, 0, sizeof(*entry));

    entry->ifUnit = ifUnit;
    pppoeplusIfProtoEnableSet(entry, ZEL_FALSE);
    pppoeplusIfProtoDfltEnableSet(entry, ZEL_FALSE);

    if (pppoeplusAllPortEnableGet() == ZEL_TRUE) {
        if (pppoeplusIfProtoSet(ifUnit, ZEL_IF_ATTR_PROTO_DFLT_ON, ZEL_PROTO_PPPOEPLUS) != 0) {
            pppoeplusIfProtoErrLog(ifUnit, ZEL_PROTO_PPPOEPLUS, true, tPppoeplusProtoType::DefaultState);
            pppoeplusIfEntryRelease(entry);
            return nullptr;
        }
        if (pppoeplusIfProtoSet(ifUnit, ZEL_IF_ATTR_PROTO_DFLT_ON, ZEL_PROTO_PPPOEPLUS_HW) != 0) {
            pppoeplusIfProtoSet(ifUnit, ZEL_IF_ATTR_PROTO_DFLT_OFF, ZEL_PROTO_PPPOEPLUS);
            pppoeplusIfProtoErrLog(ifUnit, ZEL_PROTO_PPPOEPLUS_HW, true, tPppoeplusProtoType::DefaultState);
            pppoeplusIfEntryRelease(entry);
            return nullptr;
        }
        pppoeplusIfProtoDfltEnableSet(entry, ZEL_TRUE);
    }

    // A failed enable has already returned the record to the pool.
    if (enable == 1 && pppoeplusIfEntryEnable(entry) != 0) return nullptr;

    pppoeplusIfTrustSet(entry, ZEL_FALSE);
    pppoeplusIfEnableSet(entry, enable == 1 ? ZEL_TRUE : ZEL_FALSE);
    pppoeplusIfPolicySet(entry, PPPOEPLUS_POLICY_DEFAULT);

    avl_add(&gPppoeplus.ifTree, entry);

    if (pppoeplusDebugOn(PPPOEPLUS_DEBUG_EVENT)) {
        char ifName[ZEL_IF_NAME_LEN] = {};
        zelIfUnit2Name(ifUnit, ifName, sizeof(ifName));
        PPPOEPLUS_EVENT_LOG("Add and enable an interface %s.\r\n", ifName);
    }

    // What the platform cannot tell stays zero.
    tZelOctets mac{entry->mac, sizeof(entry->mac)};
    (void)zelIfGetApi(ifUnit, ZEL_IF_ATTR_MAC, &mac);
    pppoeplusKeywordsInit(&entry->circuitIdFormat);
    pppoeplusKeywordsInit(&entry->remoteIdFormat);
    (void)zelIndexTrans(ifUnit, ZEL_INDEX_TRANS_PHYINFO, &entry->phyInfo);
    entry->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_DEFAULT;
    entry->remoteIdFormatType = PPPOEPLUS_FORMAT_TYPE_DEFAULT;
    return entry;
}

// On failure the entry is freed whoever called, and pppoeplusIfEntryAdd
// relies on that. When the entry is already in the tree (the enable command on
// an existing entry), it is first taken out of the tree and off the trusted
// list, so the tree and the list never keep a freed record: the interface
// simply has no entry afterwards.
int32_t pppoeplusIfEntryEnable(tPppoePlusIfEntry* entry) {
    if (entry == nullptr) return -1;
    const uint32_t ifUnit = entry->ifUnit;

    if (pppoeplusIfProtoSet(ifUnit, ZEL_IF_ATTR_PROTO_ON, ZEL_PROTO_PPPOEPLUS) != 0) {
        pppoeplusIfProtoErrLog(ifUnit, ZEL_PROTO_PPPOEPLUS, true, tPppoeplusProtoType::State);
        pppoeplusIfEntryRelease(entry);
        return -1;
    }
    if (pppoeplusIfProtoSet(ifUnit, ZEL_IF_ATTR_PROTO_ON, ZEL_PROTO_PPPOEPLUS_HW) != 0) {
        pppoeplusIfProtoSet(ifUnit, ZEL_IF_ATTR_PROTO_OFF, ZEL_PROTO_PPPOEPLUS);
        if (pppoeplusIfProtoDfltEnableGet(entry) == ZEL_TRUE) {
            pppoeplusIfProtoSet(ifUnit, ZEL_IF_ATTR_PROTO_DFLT_OFF, ZEL_PROTO_PPPOEPLUS);
            pppoeplusIfProtoSet(ifUnit, ZEL_IF_ATTR_PROTO_DFLT_OFF, ZEL_PROTO_PPPOEPLUS_HW);
        }
        pppoeplusIfProtoErrLog(ifUnit, ZEL_PROTO_PPPOEPLUS_HW, true, tPppoeplusProtoType::State);
        PPPOEPLUS_ERROR_LOG("Failed to add acl on hardware!\r\n");
        pppoeplusIfEntryRelease(entry);
        return -1;
    }
    pppoeplusIfProtoEnableSet(entry, ZEL_TRUE);
    return 0;
}

int32_t pppoeplusIfEntryDisable(tPppoePlusIfEntry* entry) {
    if (entry == nullptr || pppoeplusIfProtoEnableGet(entry) != ZEL_TRUE) return 0;
    const uint32_t ifUnit = entry->ifUnit;

    if (pppoeplusIfProtoSet(ifUnit, ZEL_IF_ATTR_PROTO_OFF, ZEL_PROTO_PPPOEPLUS) != 0)
        pppoeplusIfProtoErrLog(ifUnit, ZEL_PROTO_PPPOEPLUS, false, tPppoeplusProtoType::State);
    // A trusted interface lost its hardware rule when it became trusted.
    if (pppoeplusIfTrustGet(entry) == ZEL_FALSE &&
        pppoeplusIfProtoSet(ifUnit, ZEL_IF_ATTR_PROTO_OFF, ZEL_PROTO_PPPOEPLUS_HW) != 0)
        pppoeplusIfProtoErrLog(ifUnit, ZEL_PROTO_PPPOEPLUS_HW, false, tPppoeplusProtoType::State);

    pppoeplusIfProtoEnableSet(entry, ZEL_FALSE);
    return 0;
}

int32_t pppoeplusIfEntryDelete(tPppoePlusIfEntry* entry) {
    if (entry == nullptr) return 0;
    const uint32_t ifUnit = entry->ifUnit;

    if (pppoeplusIfProtoDfltEnableGet(entry) == ZEL_TRUE) {
        if (pppoeplusIfProtoSet(ifUnit, ZEL_IF_ATTR_PROTO_DFLT_OFF, ZEL_PROTO_PPPOEPLUS) != 0)
            pppoeplusIfProtoErrLog(ifUnit, ZEL_PROTO_PPPOEPLUS, false, tPppoeplusProtoType::DefaultState);
        if (pppoeplusIfProtoSet(ifUnit, ZEL_IF_ATTR_PROTO_DFLT_OFF, ZEL_PROTO_PPPOEPLUS_HW) != 0)
            pppoeplusIfProtoErrLog(ifUnit, ZEL_PROTO_PPPOEPLUS_HW, false, tPppoeplusProtoType::DefaultState);
        pppoeplusIfProtoDfltEnableSet(entry, ZEL_FALSE);
    }
    pppoeplusIfEntryDisable(entry);
    // Out of the tree, then off the trusted list (only a trusted entry is on
    // it), before the record is zeroed and freed.
    pppoeplusIfEntryRelease(entry);
    return 0;
}

int32_t pppoeplusIfEntryResetConfig(tPppoePlusIfEntry* entry) {
    if (entry == nullptr) return 0;
    int32_t rc = 0;

    if (pppoeplusIfTrustGet(entry) == ZEL_TRUE) {
        // Untrusted again: the hardware rule comes back unless the interface
        // is configured off.
        if (pppoeplusIfEnableGet(entry) != ZEL_FALSE) {
            rc = static_cast<int32_t>(
                pppoeplusIfProtoSet(entry->ifUnit, ZEL_IF_ATTR_PROTO_ON, ZEL_PROTO_PPPOEPLUS_HW));
            if (rc != 0)
                pppoeplusIfProtoErrLog(entry->ifUnit, ZEL_PROTO_PPPOEPLUS_HW, true, tPppoeplusProtoType::State);
        }
    }
    // An untrusted entry is not on the list; detaching it anyway keeps the
    // list and the trust field in step whatever happened before.
    pppoeplusTrustIfEntryDetach(entry);

    pppoeplusIfTrustSet(entry, ZEL_FALSE);
    pppoeplusIfPolicySet(entry, PPPOEPLUS_POLICY_DEFAULT);
    entry->circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_DEFAULT;
    entry->remoteIdFormatType = PPPOEPLUS_FORMAT_TYPE_DEFAULT;
    pppoeplusIfFormatClear(&entry->circuitIdFormat);
    pppoeplusIfFormatClear(&entry->remoteIdFormat);
    return rc;
}

const tPppoeplusFormat* pppoeplusIfFormatApplied(const tPppoePlusIfEntry* entry, bool circuitId, uint32_t* type) {
    if (circuitId) {
        if (entry->circuitIdFormatType != PPPOEPLUS_FORMAT_TYPE_DEFAULT) {
            *type = entry->circuitIdFormatType;
            return &entry->circuitIdFormat;
        }
        if (pppoeplusOndTypeIsPon(entry->phyInfo.ondType)) {
            *type = gPppoeplus.ponCircuitIdFormatType;
            return &gPppoeplus.ponCircuitIdFormat;
        }
        *type = gPppoeplus.circuitIdFormatType;
        return &gPppoeplus.circuitIdFormat;
    }
    if (entry->remoteIdFormatType != PPPOEPLUS_FORMAT_TYPE_DEFAULT) {
        *type = entry->remoteIdFormatType;
        return &entry->remoteIdFormat;
    }
    *type = gPppoeplus.remoteIdFormatType;
    return &gPppoeplus.remoteIdFormat;
}

const char* pppoeplusOndTypeStr(uint32_t ondType) {
    switch (ondType) {
        case ZEL_OND_ETH:
        case ZEL_OND_ETH_AGG: return "ETH";
        case ZEL_OND_EPON:
        case ZEL_OND_GPON:
        case ZEL_OND_PON_AGG: return "PON";
        default: return "other";
    }
}
