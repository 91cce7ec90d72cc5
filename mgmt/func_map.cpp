// The management entry-point table. The command service looks a row up by
// its code; a row whose entry point is null is answered as unsupported by the
// service.
#include "mgmt/func_map.h"

// Codes 1 to 8 are the global get, set and sync and the interface iterators,
// get, set and sync.
extern "C" {
const tIcmFuncMap gPppoeplusFuncMap[PPPOEPLUS_FUNC_MAP_SIZE] = {
    {0, nullptr}, {1, nullptr}, {2, nullptr}, {3, nullptr}, {4, nullptr},
    {5, nullptr}, {6, nullptr}, {7, nullptr}, {8, nullptr},
};
}
