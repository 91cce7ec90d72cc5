// The management entry points that other processes call through the command
// service, one row per command code. The service looks a row up by its code
// and calls the entry point through the signature the code stands for; the
// rows hold them as tIcmEntry, so each is cast back to its real type:
//
// | Code | Entry point              | Real signature                                            |
// |------|--------------------------|-----------------------------------------------------------|
// | 0    | none (null)              |                                                           |
// | 1    | pppoeplusScalarGetApi    | int32_t (uint32_t unit, uint32_t code, void* value)       |
// | 2    | pppoeplusScalarSetApi    | int32_t (uint32_t unit, uint32_t code, void* value)       |
// | 3    | pppoeplusScalarSyncApi   | int32_t (uint32_t unit, uint32_t code, void* value)       |
// | 4    | pppoeplusIfGetFirst      | int32_t (uint32_t* ifUnit)                                |
// | 5    | pppoeplusIfGetNext       | int32_t (uint32_t ifUnit, uint32_t* nextIfUnit)           |
// | 6    | pppoeplusIfGetApi        | int32_t (uint32_t ifUnit, uint32_t code, void* value)     |
// | 7    | pppoeplusIfSetApi        | int32_t (uint32_t ifUnit, uint32_t code, void* value)     |
// | 8    | pppoeplusIfSyncApi       | int32_t (uint32_t ifUnit, uint32_t code, void* value)     |
//
// The types below name those signatures.
#pragma once

#include <cstdint>

#include "mgmt/mgmt_codes.h"
#include "platform/services.h"

constexpr uint32_t PPPOEPLUS_FUNC_MAP_SIZE = 9;

// Codes 1, 2, 3, 6, 7, 8: (unit, command code, value record).
using tPppoeplusCmdApi = int32_t (*)(uint32_t, uint32_t, void*);
// Code 4: (place for the first unit).
using tPppoeplusIfGetFirstApi = int32_t (*)(uint32_t*);
// Code 5: (unit, place for the next unit).
using tPppoeplusIfGetNextApi = int32_t (*)(uint32_t, uint32_t*);

extern "C" {
extern const tIcmFuncMap gPppoeplusFuncMap[PPPOEPLUS_FUNC_MAP_SIZE];
}
