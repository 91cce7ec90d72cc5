// The management entry-point table. The command service looks a row up by
// its code; a row whose entry point is null is answered as unsupported by the
// service. Each entry point is stored as the row's generic pointer type and
// called back through its real signature (func_map.h).
#include "mgmt/func_map.h"

#include "mgmt/if_api.h"
#include "mgmt/scalar_api.h"

// The static_cast to the named signature makes the compiler check each entry
// point against the signature its code stands for before it is stored.
extern "C" {
const tIcmFuncMap gPppoeplusFuncMap[PPPOEPLUS_FUNC_MAP_SIZE] = {
    {PPPOEPLUS_FUNC_NONE, nullptr},
    {PPPOEPLUS_FUNC_SCALAR_GET, reinterpret_cast<tIcmEntry>(static_cast<tPppoeplusCmdApi>(&pppoeplusScalarGetApi))},
    {PPPOEPLUS_FUNC_SCALAR_SET, reinterpret_cast<tIcmEntry>(static_cast<tPppoeplusCmdApi>(&pppoeplusScalarSetApi))},
    {PPPOEPLUS_FUNC_SCALAR_SYNC, reinterpret_cast<tIcmEntry>(static_cast<tPppoeplusCmdApi>(&pppoeplusScalarSyncApi))},
    {PPPOEPLUS_FUNC_IF_GET_FIRST,
     reinterpret_cast<tIcmEntry>(static_cast<tPppoeplusIfGetFirstApi>(&pppoeplusIfGetFirst))},
    {PPPOEPLUS_FUNC_IF_GET_NEXT, reinterpret_cast<tIcmEntry>(static_cast<tPppoeplusIfGetNextApi>(&pppoeplusIfGetNext))},
    {PPPOEPLUS_FUNC_IF_GET, reinterpret_cast<tIcmEntry>(static_cast<tPppoeplusCmdApi>(&pppoeplusIfGetApi))},
    {PPPOEPLUS_FUNC_IF_SET, reinterpret_cast<tIcmEntry>(static_cast<tPppoeplusCmdApi>(&pppoeplusIfSetApi))},
    {PPPOEPLUS_FUNC_IF_SYNC, reinterpret_cast<tIcmEntry>(static_cast<tPppoeplusCmdApi>(&pppoeplusIfSyncApi))},
};
}
