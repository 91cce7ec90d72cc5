// The daemon's logging: every message goes through the platform's logging
// with the sub-module's module id and log level. Each text carries its own
// "\r\n".
#pragma once

#include "agent/global.h"
#include "platform/logging.h"

// Debug output of sub-module `sub`, written only when debug switch bit `bit`
// is on.
#define PPPOEPLUS_DEBUG_LOG(bit, sub, ...)                                                                  \
    do {                                                                                                   \
        if (pppoeplusDebugOn(bit))                                                                         \
            loggingDebugOutput(PPPOEPLUS_MODULE_BASE + (sub), gPppoeplus.logLevel[(sub)], LOG_PART_WHOLE, \
                               __VA_ARGS__);                                                               \
    } while (0)

// Error messages (sub-module 4, switch bit 0x8).
#define PPPOEPLUS_ERROR_LOG(...) PPPOEPLUS_DEBUG_LOG(PPPOEPLUS_DEBUG_ERROR, PPPOEPLUS_SUB_ERROR, __VA_ARGS__)
// Management, format and interface traces (sub-module 5, switch bit 0x4).
#define PPPOEPLUS_EVENT_LOG(...) PPPOEPLUS_DEBUG_LOG(PPPOEPLUS_DEBUG_EVENT, PPPOEPLUS_SUB_EVENT, __VA_ARGS__)

// Operator log of sub-module `sub`: always written.
#define PPPOEPLUS_OPER_LOG(sub, ...) \
    loggingLogOutput(PPPOEPLUS_MODULE_BASE + (sub), gPppoeplus.logLevel[(sub)], LOG_PART_WHOLE, __VA_ARGS__)
