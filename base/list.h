// Circular doubly linked list node and its primitives. A list head is a node
// of its own; an empty list's head points to itself.
#pragma once

struct tPppoeplusListNode {
    tPppoeplusListNode* next;
    tPppoeplusListNode* prev;
};

// Makes `node` point to itself: an empty list head, or a detached node.
inline void pppoeplusListInit(tPppoeplusListNode* node) {
    node->next = node;
    node->prev = node;
}

// Links `node` between two neighbours.
inline void pppoeplusListLinkBetween(tPppoeplusListNode* node, tPppoeplusListNode* prev,
                                     tPppoeplusListNode* next) {
    next->prev = node;
    node->next = next;
    node->prev = prev;
    prev->next = node;
}

// Links `node` right behind `pos`.
inline void pppoeplusListLinkAfter(tPppoeplusListNode* node, tPppoeplusListNode* pos) {
    pppoeplusListLinkBetween(node, pos, pos->next);
}

// Unlinks `node` from its neighbours; a null neighbour pointer is left alone.
inline void pppoeplusListUnlink(tPppoeplusListNode* node) {
    if (node->next != nullptr) node->next->prev = node->prev;
    if (node->prev != nullptr) node->prev->next = node->next;
}

// Unlinks `node` and makes it point to itself.
inline void pppoeplusListUnlinkInit(tPppoeplusListNode* node) {
    pppoeplusListUnlink(node);
    pppoeplusListInit(node);
}

inline bool pppoeplusListEmpty(const tPppoeplusListNode* head) { return head->next == head; }
