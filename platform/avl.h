// Ordered tree: an intrusive AVL tree. Each record carries an avl_node_t at a
// fixed offset; the tree never allocates.
#pragma once

#include <cstddef>
#include <cstdint>

struct avl_node_t {
    avl_node_t* left;
    avl_node_t* right;
    avl_node_t* parent;
    int32_t height;  // 1 for a leaf, 0 while not in a tree
};

// Compares two records: negative, 0 or positive.
using avl_compare_t = int32_t (*)(const void* a, const void* b);

struct avl_tree_t {
    avl_node_t* root;
    avl_compare_t compare;
    size_t size;    // bytes per record
    size_t offset;  // offset of the avl_node_t inside a record
    uint32_t count;
};

// Directions of avl_walk.
constexpr int32_t AVL_BEFORE = 0;
constexpr int32_t AVL_AFTER = 1;

void avl_create(avl_tree_t* tree, avl_compare_t compare, size_t size, size_t offset);
// Inserts a record. Returns 0, or -1 when a record that compares equal is
// already in the tree (nothing is changed then).
int32_t avl_add(avl_tree_t* tree, void* record);
// Returns the record that compares equal to `key`, or null.
void* avl_find(const avl_tree_t* tree, const void* key);
// Removes a record that is in the tree.
void avl_remove(avl_tree_t* tree, void* record);
// Smallest record, or null for an empty tree.
void* avl_first(const avl_tree_t* tree);
// Largest record, or null for an empty tree.
void* avl_last(const avl_tree_t* tree);
// The record after (AVL_AFTER) or before (AVL_BEFORE) `record`, or null.
void* avl_walk(const avl_tree_t* tree, const void* record, int32_t direction);
uint32_t avl_numnodes(const avl_tree_t* tree);
