// Interface management commands. As for the global commands, a set is
// forwarded to the hardware layer first and only then checked and applied to
// the interface entry.
#include "mgmt/if_api.h"

#include <cstring>

#include "agent/global.h"
#include "agent/lock.h"
#include "agent/log.h"
#include "format/default_formats.h"
#include "iftable/if_entry.h"
#include "iftable/trust_list.h"
#include "mgmt/mgmt_common.h"
#include "platform/avl.h"
#include "platform/hwil.h"
#include "platform/ifdb.h"
#include "platform/types.h"

namespace {

// Forwards interface command `code` of `ifUnit` with `value` to the hardware
// layer.
int32_t pppoeplusIfHwilSync(uint32_t ifUnit, uint32_t code, const void* value, const tPppoeplusSyncCtrl* ctrl) {
    return zelHwilCmdSyncApi(ifUnit, PPPOEPLUS_HWIL_IF_BASE + code, value, ctrl);
}

// Trust (1). A trusted port is an uplink: its hardware rule ("pppoe+hw") is
// taken off, and it goes on the trusted list that the send path walks.
int32_t pppoeplusIfTrustSet(uint32_t ifUnit, tPppoePlusIfEntry* entry, const uint32_t* value,
                            const tPppoeplusSyncCtrl* ctrl) {
    int32_t rc = pppoeplusIfHwilSync(ifUnit, PPPOEPLUS_IF_TRUST, value, ctrl);
    if (rc != 0) return rc;
    const uint32_t oldTrust = pppoeplusIfTrustGet(entry);
    if (*value == oldTrust) return 0;

    // Only the value 2 puts the rule back; any other value takes it off.
    const uint32_t attr = *value == ZEL_FALSE ? ZEL_IF_ATTR_PROTO_ON : ZEL_IF_ATTR_PROTO_OFF;
    tZelIfProto proto{};
    proto.protoId = ZEL_PROTO_PPPOEPLUS_HW;
    rc = static_cast<int32_t>(zelIfSetApi(ifUnit, attr, &proto));
    if (rc != 0) {
        char ifName[ZEL_IF_NAME_LEN] = {};
        zelIfUnit2Name(ifUnit, ifName, ZEL_IF_NAME_LEN - 1);
        if (attr == ZEL_IF_ATTR_PROTO_OFF)
            PPPOEPLUS_OPER_LOG(PPPOEPLUS_SUB_PROTO_DISABLE,
                               "The interface disable protocol error.(ifName=[%s], proto=[%s], type=[state])\r\n",
                               ifName, zelProtoName(ZEL_PROTO_PPPOEPLUS_HW));
        else
            PPPOEPLUS_OPER_LOG(PPPOEPLUS_SUB_PROTO_ENABLE,
                               "The interface enable protocol error.(ifName=[%s], proto=[%s], type=[state])\r\n",
                               ifName, zelProtoName(ZEL_PROTO_PPPOEPLUS_HW));
        return rc;
    }

    pppoeplusIfTrustSet(entry, *value);  // low 2 bits
    if (pppoeplusIfTrustGet(entry) == ZEL_TRUE) {
        // The list takes an entry once only: a value such as 5 differs from
        // a stored 1 but leaves the entry trusted, and on the list already.
        if (oldTrust != ZEL_TRUE) pppoeplusTrustIfEntryAttach(entry);
    } else {
        pppoeplusTrustIfEntryDetach(entry);
    }
    return 0;
}

// Enable (2). With every port served by default, an interface keeps its
// entry when it is configured off (disabled and back to factory settings);
// otherwise configuring it off deletes the entry, and on creates it.
int32_t pppoeplusIfEnableSet(uint32_t ifUnit, tPppoePlusIfEntry* entry, const uint32_t* value,
                             const tPppoeplusSyncCtrl* ctrl) {
    int32_t rc = pppoeplusIfHwilSync(ifUnit, PPPOEPLUS_IF_ENABLE, value, ctrl);
    if (rc != 0) return rc;
    const bool allPort = pppoeplusAllPortEnableGet() == ZEL_TRUE;

    switch (*value) {
        case ZEL_TRUE:
            if (entry == nullptr) {
                if (pppoeplusIfEntryAdd(ifUnit, ZEL_TRUE) == nullptr) return ZEL_ERR_NO_RESOURCE;
                return 0;
            }
            if (allPort && pppoeplusIfEnableGet(entry) == ZEL_FALSE) {
                // On failure the entry is gone (pppoeplusIfEntryEnable frees it).
                rc = pppoeplusIfEntryEnable(entry);
                if (rc != 0) return rc;
                pppoeplusIfEnableSet(entry, ZEL_TRUE);
            }
            return 0;

        case ZEL_FALSE:
            if (!allPort) {
                if (entry == nullptr) return 0;
                return pppoeplusIfEntryDelete(entry);
            }
            if (entry == nullptr) {
                if (pppoeplusIfEntryAdd(ifUnit, ZEL_FALSE) == nullptr) return ZEL_ERR_NO_RESOURCE;
                return 0;
            }
            pppoeplusIfEnableSet(entry, ZEL_FALSE);
            (void)pppoeplusIfEntryDisable(entry);
            // Disabled first, so the reset leaves the hardware rule of a
            // trusted port off.
            (void)pppoeplusIfEntryResetConfig(entry);
            pppoeplusIfEntryCountersClear(entry);
            return 0;

        default:
            return 0;
    }
}

// Format types (5, 7). A type of 0 empties the entry's own format: the entry
// then uses the global one.
int32_t pppoeplusIfTypeSet(uint32_t ifUnit, tPppoePlusIfEntry* entry, uint32_t code, const uint32_t* value,
                           const tPppoeplusSyncCtrl* ctrl) {
    int32_t rc = pppoeplusIfHwilSync(ifUnit, code, value, ctrl);
    if (rc != 0) return rc;

    const bool circuitId = code == PPPOEPLUS_IF_CIRCUITID_TYPE;
    if (*value > PPPOEPLUS_FORMAT_TYPE_ASCII) {
        if (circuitId)
            PPPOEPLUS_ERROR_LOG("Failed to set circuit-id type!\r\n");
        else
            PPPOEPLUS_ERROR_LOG("Failed to set remote-id type!\r\n");
        return ZEL_EINVAL;
    }
    if (circuitId)
        entry->circuitIdFormatType = *value;
    else
        entry->remoteIdFormatType = *value;
    if (*value == PPPOEPLUS_FORMAT_TYPE_DEFAULT)
        pppoeplusFormatClear(circuitId ? &entry->circuitIdFormat : &entry->remoteIdFormat);
    return 0;
}

// Formats (6, 8). The hardware layer receives the text before it is checked
// and keeps it even when the daemon refuses it.
int32_t pppoeplusIfFormatSet(uint32_t ifUnit, tPppoePlusIfEntry* entry, uint32_t code,
                             const tPppoeplusStrValue* value, tPppoeplusSyncCtrl* ctrl) {
    char msg[PPPOEPLUS_MGMT_MSG_LEN];
    std::memset(msg, 0, sizeof(msg));
    pppoeplusSyncCtrlStrValue(ctrl, value);

    int32_t rc = pppoeplusIfHwilSync(ifUnit, code, value, ctrl);
    if (rc != 0) return rc;
    if (value->len >= PPPOEPLUS_FORMAT_LEN) return ZEL_ERR_TOO_LONG;
    if (value->str == nullptr) return ZEL_ERR_NULL_POINTER;

    const bool circuitId = code == PPPOEPLUS_IF_CIRCUITID_FORMAT;
    tPppoeplusFormat* slot = circuitId ? &entry->circuitIdFormat : &entry->remoteIdFormat;
    const uint32_t type = circuitId ? entry->circuitIdFormatType : entry->remoteIdFormatType;
    switch (pppoeplusMgmtFormatSet(slot, type, value, msg)) {
        case PPPOEPLUS_FORMAT_SET_OK:
            return 0;
        case PPPOEPLUS_FORMAT_SET_KEYWORD_ERR:
            PPPOEPLUS_ERROR_LOG("Keyword incorrect %s, Please check!\r\n", msg);
            return ZEL_EINVAL;
        case PPPOEPLUS_FORMAT_SET_FORMAT_ERR:
        default:
            if (circuitId)
                PPPOEPLUS_ERROR_LOG("Format %s incorrect, Please check!\r\n", msg);
            else
                PPPOEPLUS_ERROR_LOG("Format %s incorrect, please check!\r\n", msg);
            return ZEL_EINVAL;
    }
}

// The format that a get of the Circuit-ID (6) or Remote-ID (8) reads: the
// one that applies to the entry.
const tPppoeplusFormat* pppoeplusIfFormatOf(const tPppoePlusIfEntry* entry, uint32_t code) {
    uint32_t type = 0;
    return pppoeplusIfFormatApplied(entry, code == PPPOEPLUS_IF_CIRCUITID_FORMAT, &type);
}

}  // namespace

int32_t pppoeplusIfGetFirst(uint32_t* ifUnit) {
    if (ifUnit == nullptr) return ZEL_ERR_NULL_POINTER;
    pppoeplusLock();
    int32_t rc = PPPOEPLUS_ERR;
    const auto* entry = static_cast<const tPppoePlusIfEntry*>(avl_first(&gPppoeplus.ifTree));
    if (entry != nullptr) {
        *ifUnit = entry->ifUnit;
        rc = 0;
    }
    pppoeplusUnlock();
    return rc;
}

int32_t pppoeplusIfGetNext(uint32_t ifUnit, uint32_t* nextIfUnit) {
    if (nextIfUnit == nullptr) return ZEL_ERR_NULL_POINTER;
    pppoeplusLock();
    int32_t rc = PPPOEPLUS_ERR;
    // One pass from the first entry in ascending (unsigned) unit order; the
    // given unit need not have an entry.
    for (auto* entry = static_cast<const tPppoePlusIfEntry*>(avl_first(&gPppoeplus.ifTree)); entry != nullptr;
         entry = static_cast<const tPppoePlusIfEntry*>(avl_walk(&gPppoeplus.ifTree, entry, AVL_AFTER))) {
        if (entry->ifUnit > ifUnit) {
            *nextIfUnit = entry->ifUnit;
            rc = 0;
            break;
        }
    }
    pppoeplusUnlock();
    return rc;
}

int32_t pppoeplusIfSetApi(uint32_t ifUnit, uint32_t code, void* value) {
    return _pppoeplusIfSetApi(ifUnit, code, value, PPPOEPLUS_SYNC_MODE_SET);
}

int32_t pppoeplusIfSyncApi(uint32_t ifUnit, uint32_t code, void* value) {
    return _pppoeplusIfSetApi(ifUnit, code, value, PPPOEPLUS_SYNC_MODE_SYNC);
}

int32_t _pppoeplusIfSetApi(uint32_t ifUnit, uint32_t code, void* value, uint32_t mode) {
    tPppoeplusSyncCtrl ctrl;
    pppoeplusSyncCtrlInit(&ctrl, mode | PPPOEPLUS_SYNC_MODE_IF, PPPOEPLUS_SYNC_KEY_LEN_IF);

    return pppoeplusMgmtSet("interface", code, value, [&]() -> tPppoeplusMgmtOutcome {
        tPppoePlusIfEntry* entry = pppoeplusIfEntryGet(ifUnit);
        // Only the enable command may find no entry: it is the one that
        // creates entries.
        if (entry == nullptr && code != PPPOEPLUS_IF_ENABLE) return {ZEL_ERR_NOT_FOUND, false};

        auto* u32Value = static_cast<uint32_t*>(value);
        int32_t rc = 0;
        switch (code) {
            case PPPOEPLUS_IF_TRUST:
                rc = pppoeplusIfTrustSet(ifUnit, entry, u32Value, &ctrl);
                break;
            case PPPOEPLUS_IF_ENABLE:
                rc = pppoeplusIfEnableSet(ifUnit, entry, u32Value, &ctrl);
                break;
            case PPPOEPLUS_IF_POLICY:
                rc = pppoeplusIfHwilSync(ifUnit, code, value, &ctrl);
                if (rc == 0) pppoeplusIfPolicySet(entry, *u32Value);  // low 2 bits
                break;
            case PPPOEPLUS_IF_IGNORE_PKT:
                rc = pppoeplusIfHwilSync(ifUnit, code, value, &ctrl);
                if (rc == 0) pppoeplusIfIgnorePktSet(entry, *u32Value);  // low 2 bits
                break;
            case PPPOEPLUS_IF_CIRCUITID_TYPE:
            case PPPOEPLUS_IF_REMOTEID_TYPE:
                rc = pppoeplusIfTypeSet(ifUnit, entry, code, u32Value, &ctrl);
                break;
            case PPPOEPLUS_IF_CIRCUITID_FORMAT:
            case PPPOEPLUS_IF_REMOTEID_FORMAT:
                rc = pppoeplusIfFormatSet(ifUnit, entry, code, static_cast<const tPppoeplusStrValue*>(value), &ctrl);
                break;
            case PPPOEPLUS_IF_STAT_CLEAR:
                // Local counters only: nothing to forward.
                pppoeplusIfEntryCountersClear(entry);
                break;
            default:
                // 0, the counters (9 to 16) and everything from 18 on.
                rc = ZEL_ERR_UNSUPPORTED;
                break;
        }
        return {rc, true};
    });
}

int32_t pppoeplusIfGetApi(uint32_t ifUnit, uint32_t code, void* value) {
    if (value == nullptr) return ZEL_ERR_NULL_POINTER;

    pppoeplusLock();
    const tPppoePlusIfEntry* entry = pppoeplusIfEntryGet(ifUnit);
    if (entry == nullptr) {
        pppoeplusUnlock();
        return ZEL_ERR_NOT_FOUND;
    }

    auto* u32Value = static_cast<uint32_t*>(value);
    int32_t rc = 0;
    switch (code) {
        case PPPOEPLUS_IF_TRUST: *u32Value = pppoeplusIfTrustGet(entry); break;
        case PPPOEPLUS_IF_ENABLE: *u32Value = pppoeplusIfEnableGet(entry); break;
        case PPPOEPLUS_IF_POLICY: *u32Value = pppoeplusIfPolicyGet(entry); break;
        case PPPOEPLUS_IF_IGNORE_PKT: *u32Value = pppoeplusIfIgnorePktGet(entry); break;
        case PPPOEPLUS_IF_CIRCUITID_TYPE: *u32Value = entry->circuitIdFormatType; break;
        case PPPOEPLUS_IF_REMOTEID_TYPE: *u32Value = entry->remoteIdFormatType; break;
        // Counters by name: the codes and the record order them differently.
        case PPPOEPLUS_IF_ERROR_RCV: *u32Value = entry->errorRcv; break;
        case PPPOEPLUS_IF_ERROR_SEND: *u32Value = entry->errorSend; break;
        case PPPOEPLUS_IF_PADI_RCV: *u32Value = entry->padiRcv; break;
        case PPPOEPLUS_IF_PADR_RCV: *u32Value = entry->padrRcv; break;
        case PPPOEPLUS_IF_PADO_RCV: *u32Value = entry->padoRcv; break;
        case PPPOEPLUS_IF_PADS_RCV: *u32Value = entry->padsRcv; break;
        case PPPOEPLUS_IF_PADT_RCV: *u32Value = entry->padtRcv; break;
        case PPPOEPLUS_IF_TOTAL_SEND: *u32Value = entry->totalSend; break;

        case PPPOEPLUS_IF_CIRCUITID_FORMAT:
        case PPPOEPLUS_IF_REMOTEID_FORMAT: {
            // The text as it was typed; the caller's buffer holds 256 bytes.
            auto* strValue = static_cast<tPppoeplusStrValue*>(value);
            if (pppoeplusRecoverFormat(pppoeplusIfFormatOf(entry, code), strValue) != 0) {
                strValue->len = 0;
                rc = ZEL_EINVAL;
            }
            break;
        }

        default:
            // 0 and everything from 17 on (the clear command is set only).
            rc = ZEL_ERR_UNSUPPORTED;
            break;
    }
    pppoeplusUnlock();
    return rc;
}
