// The trusted-interface list.
#include "iftable/trust_list.h"

#include "agent/global.h"

int32_t pppoeplusTrustIfEntryAttach(tPppoePlusIfEntry* entry) {
    tPppoeplusListNode* head = &gPppoeplus.trustIfList;
    if (head->next == nullptr) pppoeplusListInit(head);  // a head still zero-filled is an empty list
    // Behind the last element whose unit is not greater than the new one's,
    // so that an equal unit goes behind those already listed.
    tPppoeplusListNode* last = head;
    for (tPppoeplusListNode* node = head->next; node != head; node = node->next) {
        if (pppoeplusTrustIfEntryOf(node)->ifUnit > entry->ifUnit) break;
        last = node;
    }
    pppoeplusListLinkAfter(&entry->trustNode, last);
    return 0;
}

int32_t pppoeplusTrustIfEntryDetach(tPppoePlusIfEntry* entry) {
    pppoeplusListUnlinkInit(&entry->trustNode);
    return 0;
}

tPppoePlusIfEntry* pppoeplusTrustIfEntryFirst(void) {
    tPppoeplusListNode* head = &gPppoeplus.trustIfList;
    if (head->next == nullptr || head->next == head) return nullptr;
    return pppoeplusTrustIfEntryOf(head->next);
}

tPppoePlusIfEntry* pppoeplusTrustIfEntryNext(const tPppoePlusIfEntry* entry) {
    tPppoeplusListNode* next = entry->trustNode.next;
    if (next == nullptr || next == &gPppoeplus.trustIfList || next == &entry->trustNode) return nullptr;
    return pppoeplusTrustIfEntryOf(next);
}
