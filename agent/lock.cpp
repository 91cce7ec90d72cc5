// The daemon lock.
#include "agent/lock.h"

#include "agent/global.h"
#include "platform/os.h"

uint32_t pppoeplusLock(void) { return silTakeSem(gPppoeplus.semId, SIL_WAIT_FOREVER); }

uint32_t pppoeplusUnlock(void) { return silGiveSem(gPppoeplus.semId); }
