// The management entry points that other processes call through the command
// service, one row per command code.
#pragma once

#include "platform/services.h"

constexpr uint32_t PPPOEPLUS_FUNC_MAP_SIZE = 9;

extern "C" {
extern const tIcmFuncMap gPppoeplusFuncMap[PPPOEPLUS_FUNC_MAP_SIZE];
}
