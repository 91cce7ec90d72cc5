// The global record and the texts of its enumerated fields.
#include "agent/global.h"

#include "platform/types.h"

tPppoeplusGlobal gPppoeplus;
uint32_t gPppoeplusInit = 0;

const char* pppoeplusTruthStr(uint32_t value) {
    switch (value) {
        case ZEL_TRUE: return "ZEL_TRUE";
        case ZEL_FALSE: return "ZEL_FALSE";
        default: return "unknown";
    }
}

const char* pppoeplusPonTypeStr(uint32_t value) {
    switch (value) {
        case PPPOEPLUS_PON_TYPE_SWITCH: return "switch";
        case PPPOEPLUS_PON_TYPE_OLT: return "pon-olt";
        case PPPOEPLUS_PON_TYPE_ONU: return "pon-onu";
        default: return "other";
    }
}

const char* pppoeplusPolicyStr(uint32_t value) {
    switch (value) {
        case PPPOEPLUS_POLICY_DEFAULT: return "default";
        case PPPOEPLUS_POLICY_KEEP: return "keep";
        case PPPOEPLUS_POLICY_DROP: return "drop";
        case PPPOEPLUS_POLICY_REPLACE: return "replace";
        default: return "unknown";
    }
}
