// Interface entries.
#include "iftable/if_entry.h"

int32_t pppoeplusIfCmp(const void* a, const void* b) {
    if (a == nullptr) return -1;
    if (b == nullptr) return 1;
    uint32_t ua = static_cast<const tPppoePlusIfEntry*>(a)->ifUnit;
    uint32_t ub = static_cast<const tPppoePlusIfEntry*>(b)->ifUnit;
    if (ua > ub) return 1;
    if (ua == ub) return 0;
    return -1;
}
