// The trusted-interface list: the uplink entries of the interface tree, kept
// on a circular doubly linked list of their own in ascending ifUnit, so that
// the send path and the trusted-interface show need not walk the whole tree.
// The head is gPppoeplus.trustIfList; it points to itself when the list is
// empty.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/list.h"
#include "iftable/if_entry.h"

// Links `entry` in ascending ifUnit (unsigned), behind every entry with the
// same unit. The entry must not be on the list already: callers attach only
// when its trust changes to ZEL_TRUE. Always 0.
int32_t pppoeplusTrustIfEntryAttach(tPppoePlusIfEntry* entry);

// Unlinks `entry` and leaves its node pointing to itself. An entry that is not
// on the list (zero or self-pointing node) leaves the list unchanged. Always 0.
int32_t pppoeplusTrustIfEntryDetach(tPppoePlusIfEntry* entry);

// The entry that holds list node `node`.
inline tPppoePlusIfEntry* pppoeplusTrustIfEntryOf(tPppoeplusListNode* node) {
    return reinterpret_cast<tPppoePlusIfEntry*>(reinterpret_cast<char*>(node) -
                                                offsetof(tPppoePlusIfEntry, trustNode));
}

// Walk of the list in order: the first trusted entry, or null when none.
tPppoePlusIfEntry* pppoeplusTrustIfEntryFirst(void);
// The trusted entry after `entry`, or null at the end of the list.
tPppoePlusIfEntry* pppoeplusTrustIfEntryNext(const tPppoePlusIfEntry* entry);
