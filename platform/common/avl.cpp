// Intrusive AVL tree. Every record carries an avl_node_t at tree->offset; the
// tree links those nodes and never allocates. Parent links let avl_walk step
// to the neighbour of any record without a stack, and let remove and insert
// rebalance bottom-up.

#include "platform/avl.h"

namespace {

avl_node_t* nodeOf(const avl_tree_t* tree, const void* record) {
    return reinterpret_cast<avl_node_t*>(static_cast<char*>(const_cast<void*>(record)) + tree->offset);
}

void* recordOf(const avl_tree_t* tree, const avl_node_t* node) {
    if (node == nullptr) {
        return nullptr;
    }
    return const_cast<char*>(reinterpret_cast<const char*>(node)) - tree->offset;
}

int32_t heightOf(const avl_node_t* node) {
    return node != nullptr ? node->height : 0;
}

void updateHeight(avl_node_t* node) {
    const int32_t l = heightOf(node->left);
    const int32_t r = heightOf(node->right);
    node->height = (l > r ? l : r) + 1;
}

int32_t balanceOf(const avl_node_t* node) {
    return heightOf(node->left) - heightOf(node->right);
}

// Points whatever referred to `from` (the parent's child link or the root) at `to`.
void replaceChild(avl_tree_t* tree, avl_node_t* parent, const avl_node_t* from, avl_node_t* to) {
    if (parent == nullptr) {
        tree->root = to;
    } else if (parent->left == from) {
        parent->left = to;
    } else {
        parent->right = to;
    }
}

// Rotations return the new root of the subtree.
avl_node_t* rotateRight(avl_tree_t* tree, avl_node_t* node) {
    avl_node_t* pivot = node->left;
    node->left = pivot->right;
    if (pivot->right != nullptr) {
        pivot->right->parent = node;
    }
    pivot->parent = node->parent;
    replaceChild(tree, node->parent, node, pivot);
    pivot->right = node;
    node->parent = pivot;
    updateHeight(node);
    updateHeight(pivot);
    return pivot;
}

avl_node_t* rotateLeft(avl_tree_t* tree, avl_node_t* node) {
    avl_node_t* pivot = node->right;
    node->right = pivot->left;
    if (pivot->left != nullptr) {
        pivot->left->parent = node;
    }
    pivot->parent = node->parent;
    replaceChild(tree, node->parent, node, pivot);
    pivot->left = node;
    node->parent = pivot;
    updateHeight(node);
    updateHeight(pivot);
    return pivot;
}

// Restores heights and balance from `node` up to the root. Stops early once a
// subtree keeps its height without a rotation: nothing above it changed.
void rebalance(avl_tree_t* tree, avl_node_t* node) {
    while (node != nullptr) {
        const int32_t oldHeight = node->height;
        updateHeight(node);
        const int32_t balance = balanceOf(node);
        if (balance > 1) {
            if (balanceOf(node->left) < 0) {
                rotateLeft(tree, node->left);
            }
            node = rotateRight(tree, node);
        } else if (balance < -1) {
            if (balanceOf(node->right) > 0) {
                rotateRight(tree, node->right);
            }
            node = rotateLeft(tree, node);
        } else if (node->height == oldHeight) {
            return;
        }
        node = node->parent;
    }
}

avl_node_t* leftmost(avl_node_t* node) {
    while (node->left != nullptr) {
        node = node->left;
    }
    return node;
}

avl_node_t* rightmost(avl_node_t* node) {
    while (node->right != nullptr) {
        node = node->right;
    }
    return node;
}

void clearNode(avl_node_t* node) {
    node->left = nullptr;
    node->right = nullptr;
    node->parent = nullptr;
    node->height = 0;
}

}  // namespace

void avl_create(avl_tree_t* tree, avl_compare_t compare, size_t size, size_t offset) {
    if (tree == nullptr) {
        return;
    }
    tree->root = nullptr;
    tree->compare = compare;
    tree->size = size;
    tree->offset = offset;
    tree->count = 0;
}

int32_t avl_add(avl_tree_t* tree, void* record) {
    if (tree == nullptr || record == nullptr) {
        return -1;
    }
    avl_node_t* parent = nullptr;
    avl_node_t* cur = tree->root;
    bool goLeft = false;
    while (cur != nullptr) {
        const int32_t cmp = tree->compare(record, recordOf(tree, cur));
        if (cmp == 0) {
            return -1;
        }
        parent = cur;
        goLeft = cmp < 0;
        cur = goLeft ? cur->left : cur->right;
    }

    avl_node_t* node = nodeOf(tree, record);
    node->left = nullptr;
    node->right = nullptr;
    node->parent = parent;
    node->height = 1;
    if (parent == nullptr) {
        tree->root = node;
    } else if (goLeft) {
        parent->left = node;
    } else {
        parent->right = node;
    }
    tree->count++;
    rebalance(tree, parent);
    return 0;
}

void* avl_find(const avl_tree_t* tree, const void* key) {
    if (tree == nullptr || key == nullptr) {
        return nullptr;
    }
    const avl_node_t* cur = tree->root;
    while (cur != nullptr) {
        const int32_t cmp = tree->compare(key, recordOf(tree, cur));
        if (cmp == 0) {
            return recordOf(tree, cur);
        }
        cur = cmp < 0 ? cur->left : cur->right;
    }
    return nullptr;
}

void avl_remove(avl_tree_t* tree, void* record) {
    if (tree == nullptr || record == nullptr) {
        return;
    }
    avl_node_t* node = nodeOf(tree, record);
    if (node->height == 0) {
        return;  // not in a tree
    }

    avl_node_t* fixFrom = nullptr;
    if (node->left != nullptr && node->right != nullptr) {
        // Two children: the in-order successor (leftmost of the right
        // subtree, which has no left child) takes the node's place.
        avl_node_t* succ = leftmost(node->right);
        if (succ->parent != node) {
            avl_node_t* succParent = succ->parent;
            succParent->left = succ->right;
            if (succ->right != nullptr) {
                succ->right->parent = succParent;
            }
            succ->right = node->right;
            node->right->parent = succ;
            fixFrom = succParent;
        } else {
            fixFrom = succ;  // keeps its own right subtree
        }
        succ->left = node->left;
        node->left->parent = succ;
        succ->parent = node->parent;
        succ->height = node->height;
        replaceChild(tree, node->parent, node, succ);
    } else {
        avl_node_t* child = node->left != nullptr ? node->left : node->right;
        if (child != nullptr) {
            child->parent = node->parent;
        }
        replaceChild(tree, node->parent, node, child);
        fixFrom = node->parent;
    }

    clearNode(node);
    tree->count--;
    rebalance(tree, fixFrom);
}

void* avl_first(const avl_tree_t* tree) {
    if (tree == nullptr || tree->root == nullptr) {
        return nullptr;
    }
    return recordOf(tree, leftmost(tree->root));
}

void* avl_last(const avl_tree_t* tree) {
    if (tree == nullptr || tree->root == nullptr) {
        return nullptr;
    }
    return recordOf(tree, rightmost(tree->root));
}

void* avl_walk(const avl_tree_t* tree, const void* record, int32_t direction) {
    if (tree == nullptr || record == nullptr) {
        return nullptr;
    }
    avl_node_t* node = nodeOf(tree, record);
    if (direction == AVL_BEFORE) {
        if (node->left != nullptr) {
            return recordOf(tree, rightmost(node->left));
        }
        // Climb while coming from a left child; the first parent reached
        // from its right side is the predecessor.
        while (node->parent != nullptr && node->parent->left == node) {
            node = node->parent;
        }
        return recordOf(tree, node->parent);
    }
    if (node->right != nullptr) {
        return recordOf(tree, leftmost(node->right));
    }
    while (node->parent != nullptr && node->parent->right == node) {
        node = node->parent;
    }
    return recordOf(tree, node->parent);
}

uint32_t avl_numnodes(const avl_tree_t* tree) {
    return tree != nullptr ? tree->count : 0;
}
