// Global enable, disable and reset.
#include "mgmt/enable.h"

#include <cstring>

#include "agent/global.h"
#include "format/default_formats.h"
#include "iftable/if_entry.h"
#include "platform/ifdb.h"
#include "platform/socket.h"
#include "platform/types.h"

bool pppoeplusIfKindAdmitted(uint32_t ondType) {
    switch (ondType) {
        case ZEL_OND_ETH: return gPppoeplus.ethIfEnable == ZEL_TRUE;
        case ZEL_OND_ETH_AGG: return gPppoeplus.ethAggIfEnable == ZEL_TRUE;
        case ZEL_OND_GPON: return gPppoeplus.gponIfEnable == ZEL_TRUE;
        case ZEL_OND_PON_AGG: return gPppoeplus.ponAggIfEnable == ZEL_TRUE;
        default: return false;
    }
}

// An interface that gets an enabled entry when the agent is switched on with
// every port served by default: its position and flags are known, its kind is
// admitted, it is a subscriber port, an Ethernet port sits on the front panel
// (its port word is not 0), an aggregate has members, and it has no entry yet.
static bool pppoeplusIfEligible(uint32_t unit) {
    tZelPhyInfo phyInfo;
    std::memset(&phyInfo, 0, sizeof(phyInfo));
    uint32_t flags = 0;
    if (zelIndexTrans(unit, ZEL_INDEX_TRANS_PHYINFO, &phyInfo) != 0) return false;
    if (zelIfGetApi(unit, ZEL_IF_ATTR_FLAGS, &flags) != 0) return false;
    if (!pppoeplusIfKindAdmitted(phyInfo.ondType)) return false;
    if (flags & ZEL_IF_FLAG_NOT_SUBSCRIBER) return false;
    if (phyInfo.ondType == ZEL_OND_ETH && phyInfo.portNo == 0) return false;
    if (phyInfo.ondType == ZEL_OND_ETH_AGG && (flags & ZEL_IF_FLAG_AGG_EMPTY)) return false;
    return pppoeplusIfEntryGet(unit) == nullptr;
}

uint32_t pppoeplusEnable(void) {
    int32_t bufLen = PPPOEPLUS_RCVBUF_ENABLED;
    if (zel_setsockopt(gPppoeplus.pktFd, ZEL_SOL_SOCKET, ZEL_SO_RCVBUF, &bufLen, sizeof(bufLen)) != 0)
        return static_cast<uint32_t>(ZEL_ERR_SET_SOCKOPT);
    pppoeplusEnableSet(ZEL_TRUE);

    // Without all-port support, entries come only from configuration.
    if (pppoeplusAllPortEnableGet() != ZEL_TRUE) return 0;

    uint32_t unit = 0;
    if (zelIfGetFirst(&unit) != 0) return 0;
    for (;;) {
        if (pppoeplusIfEligible(unit)) (void)pppoeplusIfEntryAdd(unit, ZEL_TRUE);
        uint32_t next = 0;
        if (zelIfGetNext(unit, &next) != 0) break;
        unit = next;
    }
    return 0;
}

uint32_t pppoeplusDisable(void) {
    // A 1-byte buffer: trapped frames are no longer queued.
    int32_t bufLen = 1;
    (void)zel_setsockopt(gPppoeplus.pktFd, ZEL_SOL_SOCKET, ZEL_SO_RCVBUF, &bufLen, sizeof(bufLen));
    pppoeplusEnableSet(ZEL_FALSE);
    // With the agent off this deletes every entry.
    pppoeplusResetConfig();
    return 0;
}

void pppoeplusResetConfig(void) {
    bool keepEntries = pppoeplusEnableGet() == ZEL_TRUE && pppoeplusAllPortEnableGet() == ZEL_TRUE;
    auto* entry = static_cast<tPppoePlusIfEntry*>(avl_first(&gPppoeplus.ifTree));
    while (entry != nullptr) {
        // The next entry is taken first: the current one may be freed.
        auto* next = static_cast<tPppoePlusIfEntry*>(avl_walk(&gPppoeplus.ifTree, entry, AVL_AFTER));
        if (keepEntries) {
            (void)pppoeplusIfEntryResetConfig(entry);
            pppoeplusIfEntryCountersClear(entry);
        } else {
            (void)pppoeplusIfEntryDelete(entry);
        }
        entry = next;
    }

    pppoeplusPolicySet(PPPOEPLUS_POLICY_REPLACE);
    gPppoeplus.vendorId = gPppoeplus.dfltVendorId;
    gPppoeplus.circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_DEFAULT;
    gPppoeplus.remoteIdFormatType = PPPOEPLUS_FORMAT_TYPE_DEFAULT;
    gPppoeplus.ponCircuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_DEFAULT;
    pppoeplusCircuitIdFormatInstallDefault(&gPppoeplus.circuitIdFormat);
    pppoeplusRemoteIdFormatInstallDefault(&gPppoeplus.remoteIdFormat);
    // A device that is neither an OLT nor an ONU keeps its PON format as is.
    (void)pppoeplusPonCircuitIdFormatInstallDefault(&gPppoeplus.ponCircuitIdFormat, gPppoeplus.ponDefaultType);
}
