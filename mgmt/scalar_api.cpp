// Global (scalar) management commands. A set is forwarded to the hardware
// layer first, so that the hardware layer (and through it a standby board)
// sees every command the daemon is given; the daemon then checks the value
// and applies it to the global record.
#include "mgmt/scalar_api.h"

#include <cstring>

#include "agent/global.h"
#include "agent/lock.h"
#include "agent/log.h"
#include "format/default_formats.h"
#include "mgmt/enable.h"
#include "mgmt/mgmt_common.h"
#include "platform/hwil.h"
#include "platform/types.h"

namespace {

// Forwards scalar command `code` with `value` to the hardware layer.
int32_t pppoeplusScalarHwilSync(uint32_t code, const void* value, const tPppoeplusSyncCtrl* ctrl) {
    return zelHwilCmdSyncApi(0, PPPOEPLUS_HWIL_SCALAR_BASE + code, value, ctrl);
}

// The format record and the format type of a format code (6, 8, 12).
tPppoeplusFormat* pppoeplusScalarFormatSlot(uint32_t code) {
    switch (code) {
        case PPPOEPLUS_SCALAR_CIRCUITID_FORMAT: return &gPppoeplus.circuitIdFormat;
        case PPPOEPLUS_SCALAR_REMOTEID_FORMAT: return &gPppoeplus.remoteIdFormat;
        case PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT: return &gPppoeplus.ponCircuitIdFormat;
        default: return nullptr;
    }
}

uint32_t pppoeplusScalarFormatType(uint32_t code) {
    switch (code) {
        case PPPOEPLUS_SCALAR_CIRCUITID_FORMAT: return gPppoeplus.circuitIdFormatType;
        case PPPOEPLUS_SCALAR_REMOTEID_FORMAT: return gPppoeplus.remoteIdFormatType;
        case PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT: return gPppoeplus.ponCircuitIdFormatType;
        default: return PPPOEPLUS_FORMAT_TYPE_DEFAULT;
    }
}

// Enable (3): only a change is forwarded and applied; pppoeplusEnable and
// pppoeplusDisable write the global enable themselves.
int32_t pppoeplusScalarEnableSet(const uint32_t* value, const tPppoeplusSyncCtrl* ctrl) {
    if (*value == pppoeplusEnableGet()) return 0;
    int32_t rc = pppoeplusScalarHwilSync(PPPOEPLUS_SCALAR_ENABLE, value, ctrl);
    if (rc != 0) return rc;
    if (*value == ZEL_FALSE) {
        (void)pppoeplusDisable();
        return 0;
    }
    // 1, and any value but 2, switches the agent on.
    return static_cast<int32_t>(pppoeplusEnable());
}

// Format types (5, 7, 11): a type of 0 puts the built-in default text back
// into the slot; types 1 and 2 keep the text that is there.
int32_t pppoeplusScalarTypeSet(uint32_t code, const uint32_t* value, const tPppoeplusSyncCtrl* ctrl) {
    int32_t rc = pppoeplusScalarHwilSync(code, value, ctrl);
    if (rc != 0) return rc;

    if (*value > PPPOEPLUS_FORMAT_TYPE_ASCII) {
        switch (code) {
            case PPPOEPLUS_SCALAR_CIRCUITID_TYPE: PPPOEPLUS_ERROR_LOG("Failed to set circuit-id type!\r\n"); break;
            case PPPOEPLUS_SCALAR_REMOTEID_TYPE: PPPOEPLUS_ERROR_LOG("Failed to set remote-id type!\r\n"); break;
            default: PPPOEPLUS_ERROR_LOG("Failed to set pon circuit-id type!\r\n"); break;
        }
        return ZEL_EINVAL;
    }

    switch (code) {
        case PPPOEPLUS_SCALAR_CIRCUITID_TYPE:
            gPppoeplus.circuitIdFormatType = *value;
            if (*value == PPPOEPLUS_FORMAT_TYPE_DEFAULT) {
                pppoeplusFormatClear(&gPppoeplus.circuitIdFormat);
                pppoeplusCircuitIdFormatInstallDefault(&gPppoeplus.circuitIdFormat);
            }
            return 0;
        case PPPOEPLUS_SCALAR_REMOTEID_TYPE:
            gPppoeplus.remoteIdFormatType = *value;
            if (*value == PPPOEPLUS_FORMAT_TYPE_DEFAULT) {
                pppoeplusFormatClear(&gPppoeplus.remoteIdFormat);
                pppoeplusRemoteIdFormatInstallDefault(&gPppoeplus.remoteIdFormat);
            }
            return 0;
        default:
            gPppoeplus.ponCircuitIdFormatType = *value;
            if (*value == PPPOEPLUS_FORMAT_TYPE_DEFAULT) {
                pppoeplusFormatClear(&gPppoeplus.ponCircuitIdFormat);
                // A device that is neither an OLT nor an ONU has no PON
                // default: the type stays stored and the slot stays empty.
                if (pppoeplusPonCircuitIdFormatInstallDefault(&gPppoeplus.ponCircuitIdFormat,
                                                              gPppoeplus.ponDefaultType) != 0) {
                    PPPOEPLUS_ERROR_LOG("Failed to set pon common circuit-id format!\r\n");
                    return PPPOEPLUS_ERR;
                }
            }
            return 0;
    }
}

// Formats (6, 8, 12). The hardware layer receives the text before it is
// checked and keeps it even when the daemon refuses it.
int32_t pppoeplusScalarFormatSet(uint32_t code, const tPppoeplusStrValue* value, tPppoeplusSyncCtrl* ctrl) {
    char msg[PPPOEPLUS_MGMT_MSG_LEN];
    std::memset(msg, 0, sizeof(msg));
    pppoeplusSyncCtrlStrValue(ctrl, value);

    int32_t rc = pppoeplusScalarHwilSync(code, value, ctrl);
    if (rc != 0) return rc;
    if (value->len >= PPPOEPLUS_FORMAT_LEN) return ZEL_ERR_TOO_LONG;
    if (value->str == nullptr) return ZEL_ERR_NULL_POINTER;

    switch (pppoeplusMgmtFormatSet(pppoeplusScalarFormatSlot(code), pppoeplusScalarFormatType(code), value, msg)) {
        case PPPOEPLUS_FORMAT_SET_OK:
            return 0;
        case PPPOEPLUS_FORMAT_SET_KEYWORD_ERR:
            if (code == PPPOEPLUS_SCALAR_REMOTEID_FORMAT)
                PPPOEPLUS_ERROR_LOG("Keyword incorrect %s, please check it!\r\n", msg);
            else
                PPPOEPLUS_ERROR_LOG("Keyword incorrect %s, Please check it!\r\n", msg);
            return ZEL_EINVAL;
        case PPPOEPLUS_FORMAT_SET_FORMAT_ERR:
        default:
            PPPOEPLUS_ERROR_LOG("Format %s incorrect, Please check it!\r\n", msg);
            return ZEL_EINVAL;
    }
}

}  // namespace

int32_t pppoeplusScalarSetApi(uint32_t unit, uint32_t code, void* value) {
    return _pppoeplusScalarSetApi(unit, code, value, PPPOEPLUS_SYNC_MODE_SET);
}

int32_t pppoeplusScalarSyncApi(uint32_t unit, uint32_t code, void* value) {
    return _pppoeplusScalarSetApi(unit, code, value, PPPOEPLUS_SYNC_MODE_SYNC);
}

int32_t _pppoeplusScalarSetApi(uint32_t unit, uint32_t code, void* value, uint32_t mode) {
    (void)unit;
    tPppoeplusSyncCtrl ctrl;
    pppoeplusSyncCtrlInit(&ctrl, mode, PPPOEPLUS_SYNC_KEY_LEN_SCALAR);

    return pppoeplusMgmtSet("global", code, value, [&]() -> tPppoeplusMgmtOutcome {
        auto* u32Value = static_cast<uint32_t*>(value);
        int32_t rc = 0;
        switch (code) {
            case PPPOEPLUS_SCALAR_DEBUG:
                rc = pppoeplusScalarHwilSync(code, value, &ctrl);
                if (rc == 0) pppoeplusDebugSwitchSet(*u32Value & 0xFu);
                break;
            case PPPOEPLUS_SCALAR_POLICY:
                rc = pppoeplusScalarHwilSync(code, value, &ctrl);
                if (rc == 0) pppoeplusPolicySet(*u32Value & 0xFu);
                break;
            case PPPOEPLUS_SCALAR_VENDORID:
                rc = pppoeplusScalarHwilSync(code, value, &ctrl);
                if (rc == 0) gPppoeplus.vendorId = *u32Value;
                break;
            case PPPOEPLUS_SCALAR_ENABLE:
                rc = pppoeplusScalarEnableSet(u32Value, &ctrl);
                break;
            case PPPOEPLUS_SCALAR_CIRCUITID_TYPE:
            case PPPOEPLUS_SCALAR_REMOTEID_TYPE:
            case PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE:
                rc = pppoeplusScalarTypeSet(code, u32Value, &ctrl);
                break;
            case PPPOEPLUS_SCALAR_CIRCUITID_FORMAT:
            case PPPOEPLUS_SCALAR_REMOTEID_FORMAT:
            case PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT:
                rc = pppoeplusScalarFormatSet(code, static_cast<const tPppoeplusStrValue*>(value), &ctrl);
                break;
            default:
                // 0, the get-only codes (9, 10, 13 to 18) and everything beyond.
                rc = ZEL_ERR_UNSUPPORTED;
                break;
        }
        return {rc, true};
    });
}

int32_t pppoeplusScalarGetApi(uint32_t unit, uint32_t code, void* value) {
    (void)unit;
    if (value == nullptr) return ZEL_ERR_NULL_POINTER;

    pppoeplusLock();
    auto* u32Value = static_cast<uint32_t*>(value);
    auto* strValue = static_cast<tPppoeplusStrValue*>(value);
    int32_t rc = 0;
    switch (code) {
        case PPPOEPLUS_SCALAR_DEBUG: *u32Value = pppoeplusDebugSwitch(); break;
        case PPPOEPLUS_SCALAR_POLICY: *u32Value = pppoeplusPolicy(); break;
        case PPPOEPLUS_SCALAR_ENABLE: *u32Value = pppoeplusEnableGet(); break;
        case PPPOEPLUS_SCALAR_VENDORID: *u32Value = gPppoeplus.vendorId; break;
        case PPPOEPLUS_SCALAR_CIRCUITID_TYPE: *u32Value = gPppoeplus.circuitIdFormatType; break;
        case PPPOEPLUS_SCALAR_REMOTEID_TYPE: *u32Value = gPppoeplus.remoteIdFormatType; break;
        case PPPOEPLUS_SCALAR_DFLT_VENDORID: *u32Value = gPppoeplus.dfltVendorId; break;
        case PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE: *u32Value = gPppoeplus.ponCircuitIdFormatType; break;
        case PPPOEPLUS_SCALAR_ALLPORT_ENABLE_SUPPORT: *u32Value = pppoeplusAllPortEnableGet(); break;
        case PPPOEPLUS_SCALAR_ETHIF_ENABLE: *u32Value = gPppoeplus.ethIfEnable; break;
        case PPPOEPLUS_SCALAR_ETHAGGIF_ENABLE: *u32Value = gPppoeplus.ethAggIfEnable; break;
        case PPPOEPLUS_SCALAR_GPONIF_ENABLE: *u32Value = gPppoeplus.gponIfEnable; break;
        case PPPOEPLUS_SCALAR_PONAGGIF_ENABLE: *u32Value = gPppoeplus.ponAggIfEnable; break;

        case PPPOEPLUS_SCALAR_CIRCUITID_FORMAT:
        case PPPOEPLUS_SCALAR_REMOTEID_FORMAT:
        case PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT:
            // The text as it was typed; the caller's buffer holds 256 bytes.
            if (pppoeplusRecoverFormat(pppoeplusScalarFormatSlot(code), strValue) != 0) {
                strValue->len = 0;
                rc = ZEL_EINVAL;
            }
            break;

        case PPPOEPLUS_SCALAR_VERSION:
            if (strValue->len < PPPOEPLUS_VERSION_LEN) {
                rc = ZEL_ERR_TOO_LONG;
            } else if (strValue->str == nullptr) {
                rc = ZEL_ERR_NULL_POINTER;
            } else {
                strValue->len = PPPOEPLUS_VERSION_LEN;
                std::memcpy(strValue->str, PPPOEPLUS_VERSION, PPPOEPLUS_VERSION_LEN);
            }
            break;

        case PPPOEPLUS_SCALAR_NSRINFO: {
            // A malformed request returns at once, with the daemon lock still
            // held: that is how the command is built, and callers must always
            // hand in a buffer of at least 12 bytes.
            if (strValue == nullptr || strValue->len < sizeof(tPppoeplusNsrInfo) || strValue->str == nullptr)
                return PPPOEPLUS_ERR;
            strValue->len = sizeof(tPppoeplusNsrInfo);
            // The daemon keeps no state to carry over: it reports itself as
            // always ready for a switch-over, with nothing pending.
            tPppoeplusNsrInfo nsr{ZEL_TRUE, 0, 0};
            std::memcpy(strValue->str, &nsr, sizeof(nsr));
            break;
        }

        default:
            // 0 and everything from 19 on.
            rc = ZEL_ERR_UNSUPPORTED;
            break;
    }
    pppoeplusUnlock();
    return rc;
}
