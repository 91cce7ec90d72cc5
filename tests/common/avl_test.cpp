// Ordered tree: random operations against std::set, balance and parent-link
// checks, walks, and removal while walking.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <set>
#include <vector>

#include "platform/avl.h"

namespace {

// The node sits behind some payload so that record and node addresses differ.
struct Rec {
    uint32_t pad[3];
    uint32_t key;
    avl_node_t node;
    uint32_t tail;
};

// Node first: record and node share their address.
struct FrontRec {
    avl_node_t node;
    uint32_t key;
};

template <typename T>
int32_t compareKeys(const void* a, const void* b) {
    // Unsigned comparison: keys with the top bit set sort last.
    const uint32_t ka = static_cast<const T*>(a)->key;
    const uint32_t kb = static_cast<const T*>(b)->key;
    return ka < kb ? -1 : (ka > kb ? 1 : 0);
}

const avl_node_t* nodeOf(const Rec* rec) {
    return &rec->node;
}

// Returns the subtree's height after checking stored heights, balance and
// parent links; counts the nodes in `nodes`.
int32_t checkSubtree(const avl_node_t* node, const avl_node_t* parent, uint32_t* nodes) {
    if (node == nullptr) {
        return 0;
    }
    EXPECT_EQ(node->parent, parent);
    ++*nodes;
    const int32_t l = checkSubtree(node->left, node, nodes);
    const int32_t r = checkSubtree(node->right, node, nodes);
    EXPECT_LE(l - r, 1);
    EXPECT_GE(l - r, -1);
    const int32_t h = std::max(l, r) + 1;
    EXPECT_EQ(node->height, h);
    return h;
}

void checkBalanced(const avl_tree_t& tree) {
    uint32_t nodes = 0;
    checkSubtree(tree.root, nullptr, &nodes);
    EXPECT_EQ(nodes, tree.count);
}

template <typename T>
std::vector<uint32_t> keysForward(const avl_tree_t& tree) {
    std::vector<uint32_t> keys;
    for (void* r = avl_first(&tree); r != nullptr; r = avl_walk(&tree, r, AVL_AFTER)) {
        keys.push_back(static_cast<T*>(r)->key);
    }
    return keys;
}

template <typename T>
std::vector<uint32_t> keysBackward(const avl_tree_t& tree) {
    std::vector<uint32_t> keys;
    for (void* r = avl_last(&tree); r != nullptr; r = avl_walk(&tree, r, AVL_BEFORE)) {
        keys.push_back(static_cast<T*>(r)->key);
    }
    return keys;
}

void checkAgainst(const avl_tree_t& tree, const std::set<uint32_t>& model) {
    ASSERT_EQ(avl_numnodes(&tree), model.size());
    const std::vector<uint32_t> expected(model.begin(), model.end());
    ASSERT_EQ(keysForward<Rec>(tree), expected);
    const std::vector<uint32_t> reversed(model.rbegin(), model.rend());
    ASSERT_EQ(keysBackward<Rec>(tree), reversed);
    checkBalanced(tree);
}

TEST(AvlTree, EmptyTree) {
    avl_tree_t tree;
    avl_create(&tree, compareKeys<Rec>, sizeof(Rec), offsetof(Rec, node));
    EXPECT_EQ(avl_numnodes(&tree), 0u);
    EXPECT_EQ(avl_first(&tree), nullptr);
    EXPECT_EQ(avl_last(&tree), nullptr);
    Rec key{};
    key.key = 5;
    EXPECT_EQ(avl_find(&tree, &key), nullptr);
    EXPECT_TRUE(keysForward<Rec>(tree).empty());
    EXPECT_TRUE(keysBackward<Rec>(tree).empty());
}

TEST(AvlTree, SingleRecordWalksEndBothWays) {
    avl_tree_t tree;
    avl_create(&tree, compareKeys<Rec>, sizeof(Rec), offsetof(Rec, node));
    Rec r{};
    r.key = 42;
    ASSERT_EQ(avl_add(&tree, &r), 0);
    EXPECT_EQ(avl_first(&tree), &r);
    EXPECT_EQ(avl_last(&tree), &r);
    EXPECT_EQ(avl_walk(&tree, &r, AVL_AFTER), nullptr);
    EXPECT_EQ(avl_walk(&tree, &r, AVL_BEFORE), nullptr);
    EXPECT_EQ(r.node.height, 1);
}

TEST(AvlTree, DuplicateAddRefusedAndTreeUnchanged) {
    avl_tree_t tree;
    avl_create(&tree, compareKeys<Rec>, sizeof(Rec), offsetof(Rec, node));
    Rec recs[5]{};
    for (uint32_t i = 0; i < 5; ++i) {
        recs[i].key = i * 10;
        ASSERT_EQ(avl_add(&tree, &recs[i]), 0);
    }
    const avl_node_t* rootBefore = tree.root;
    Rec dup{};
    dup.key = 20;
    dup.node.height = 0;
    EXPECT_EQ(avl_add(&tree, &dup), -1);
    EXPECT_EQ(avl_numnodes(&tree), 5u);
    EXPECT_EQ(tree.root, rootBefore);
    EXPECT_EQ(dup.node.height, 0);
    EXPECT_EQ(avl_find(&tree, &dup), &recs[2]);
    EXPECT_EQ(keysForward<Rec>(tree), (std::vector<uint32_t>{0, 10, 20, 30, 40}));
    checkBalanced(tree);
}

TEST(AvlTree, FindReturnsTheStoredRecord) {
    avl_tree_t tree;
    avl_create(&tree, compareKeys<Rec>, sizeof(Rec), offsetof(Rec, node));
    Rec recs[100]{};
    for (uint32_t i = 0; i < 100; ++i) {
        recs[i].key = (i * 37) % 100;
        ASSERT_EQ(avl_add(&tree, &recs[i]), 0);
    }
    for (uint32_t i = 0; i < 100; ++i) {
        Rec key{};
        key.key = recs[i].key;
        EXPECT_EQ(avl_find(&tree, &key), &recs[i]);
    }
    Rec missing{};
    missing.key = 1000;
    EXPECT_EQ(avl_find(&tree, &missing), nullptr);
}

TEST(AvlTree, RemovedNodeLinksCleared) {
    avl_tree_t tree;
    avl_create(&tree, compareKeys<Rec>, sizeof(Rec), offsetof(Rec, node));
    Rec recs[7]{};
    for (uint32_t i = 0; i < 7; ++i) {
        recs[i].key = i;
        ASSERT_EQ(avl_add(&tree, &recs[i]), 0);
    }
    // Key 3 is the root of a perfectly balanced tree of 7: two children.
    ASSERT_EQ(tree.root, nodeOf(&recs[3]));
    avl_remove(&tree, &recs[3]);
    EXPECT_EQ(recs[3].node.left, nullptr);
    EXPECT_EQ(recs[3].node.right, nullptr);
    EXPECT_EQ(recs[3].node.parent, nullptr);
    EXPECT_EQ(recs[3].node.height, 0);
    EXPECT_EQ(avl_numnodes(&tree), 6u);
    EXPECT_EQ(keysForward<Rec>(tree), (std::vector<uint32_t>{0, 1, 2, 4, 5, 6}));
    checkBalanced(tree);

    // The record can go back in afterwards.
    ASSERT_EQ(avl_add(&tree, &recs[3]), 0);
    EXPECT_EQ(keysForward<Rec>(tree), (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 6}));
    checkBalanced(tree);
}

TEST(AvlTree, AscendingInsertStaysBalanced) {
    avl_tree_t tree;
    avl_create(&tree, compareKeys<Rec>, sizeof(Rec), offsetof(Rec, node));
    std::vector<Rec> recs(1023);
    for (uint32_t i = 0; i < recs.size(); ++i) {
        recs[i].key = i;
        ASSERT_EQ(avl_add(&tree, &recs[i]), 0);
    }
    checkBalanced(tree);
    // 1023 records in ascending order make a perfect tree of height 10.
    EXPECT_EQ(tree.root->height, 10);
    for (uint32_t i = 0; i < recs.size(); i += 2) {
        avl_remove(&tree, &recs[i]);
    }
    checkBalanced(tree);
    EXPECT_EQ(avl_numnodes(&tree), 511u);
}

TEST(AvlTree, RemoveCurrentDuringAscendingWalk) {
    avl_tree_t tree;
    avl_create(&tree, compareKeys<Rec>, sizeof(Rec), offsetof(Rec, node));
    std::vector<Rec> recs(200);
    for (uint32_t i = 0; i < recs.size(); ++i) {
        recs[i].key = (i * 7919) % 200;  // scrambled order
        ASSERT_EQ(avl_add(&tree, &recs[i]), 0);
    }
    std::vector<uint32_t> seen;
    void* cur = avl_first(&tree);
    while (cur != nullptr) {
        void* next = avl_walk(&tree, cur, AVL_AFTER);
        const uint32_t key = static_cast<Rec*>(cur)->key;
        seen.push_back(key);
        if (key % 3 != 0) {
            avl_remove(&tree, cur);
        }
        cur = next;
    }
    ASSERT_EQ(seen.size(), 200u);
    for (uint32_t i = 0; i < seen.size(); ++i) {
        EXPECT_EQ(seen[i], i);
    }
    std::vector<uint32_t> expected;
    for (uint32_t k = 0; k < 200; k += 3) {
        expected.push_back(k);
    }
    EXPECT_EQ(keysForward<Rec>(tree), expected);
    checkBalanced(tree);

    // Emptying the whole tree the same way.
    cur = avl_first(&tree);
    while (cur != nullptr) {
        void* next = avl_walk(&tree, cur, AVL_AFTER);
        avl_remove(&tree, cur);
        cur = next;
    }
    EXPECT_EQ(avl_numnodes(&tree), 0u);
    EXPECT_EQ(tree.root, nullptr);
    EXPECT_EQ(avl_first(&tree), nullptr);
}

TEST(AvlTree, NodeAtOffsetZero) {
    avl_tree_t tree;
    avl_create(&tree, compareKeys<FrontRec>, sizeof(FrontRec), offsetof(FrontRec, node));
    std::vector<FrontRec> recs(50);
    for (uint32_t i = 0; i < recs.size(); ++i) {
        recs[i].key = 49 - i;
        ASSERT_EQ(avl_add(&tree, &recs[i]), 0);
    }
    std::vector<uint32_t> expected;
    for (uint32_t k = 0; k < 50; ++k) {
        expected.push_back(k);
    }
    EXPECT_EQ(keysForward<FrontRec>(tree), expected);
    EXPECT_EQ(avl_first(&tree), &recs[49]);
    EXPECT_EQ(avl_last(&tree), &recs[0]);
    checkBalanced(tree);
}

TEST(AvlTree, UnsignedKeysWithTopBitSet) {
    avl_tree_t tree;
    avl_create(&tree, compareKeys<Rec>, sizeof(Rec), offsetof(Rec, node));
    const std::vector<uint32_t> keys = {0x80000000u, 0xFFFFFFFFu, 0u, 1u, 0x7FFFFFFFu, 0xC0000001u, 0x80000001u};
    std::vector<Rec> recs(keys.size());
    for (size_t i = 0; i < keys.size(); ++i) {
        recs[i].key = keys[i];
        ASSERT_EQ(avl_add(&tree, &recs[i]), 0);
    }
    EXPECT_EQ(keysForward<Rec>(tree),
              (std::vector<uint32_t>{0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0x80000001u, 0xC0000001u, 0xFFFFFFFFu}));
    EXPECT_EQ(static_cast<Rec*>(avl_last(&tree))->key, 0xFFFFFFFFu);
    Rec key{};
    key.key = 0xC0000001u;
    EXPECT_EQ(avl_find(&tree, &key), &recs[5]);
    checkBalanced(tree);
}

TEST(AvlTree, RandomOperationsMatchStdSet) {
    avl_tree_t tree;
    avl_create(&tree, compareKeys<Rec>, sizeof(Rec), offsetof(Rec, node));

    // A fixed pool of candidate keys, half of them with the top bit set, so
    // that random picks hit present keys often.
    std::mt19937 rng(20240611u);
    constexpr size_t kCandidates = 1500;
    std::vector<uint32_t> candidates;
    std::set<uint32_t> unique;
    while (candidates.size() < kCandidates) {
        uint32_t k = static_cast<uint32_t>(rng());
        k = (candidates.size() % 2 == 0) ? (k | 0x80000000u) : (k & 0x7FFFFFFFu);
        if (unique.insert(k).second) {
            candidates.push_back(k);
        }
    }
    // One record per candidate; a spare record per candidate for duplicate tries.
    std::vector<Rec> recs(kCandidates);
    std::vector<Rec> spares(kCandidates);
    for (size_t i = 0; i < kCandidates; ++i) {
        recs[i].key = candidates[i];
        spares[i].key = candidates[i];
    }

    std::set<uint32_t> model;
    std::uniform_int_distribution<size_t> pick(0, kCandidates - 1);
    std::uniform_int_distribution<int> op(0, 9);
    for (int step = 0; step < 6000; ++step) {
        const size_t i = pick(rng);
        const bool present = model.count(candidates[i]) != 0;
        const int what = op(rng);
        Rec key{};
        key.key = candidates[i];
        if (what < 5) {
            // Insert, or a refused duplicate.
            if (present) {
                ASSERT_EQ(avl_add(&tree, &spares[i]), -1);
                ASSERT_EQ(spares[i].node.height, 0);
            } else {
                ASSERT_EQ(avl_add(&tree, &recs[i]), 0);
                model.insert(candidates[i]);
            }
        } else if (what < 8) {
            if (present) {
                avl_remove(&tree, &recs[i]);
                model.erase(candidates[i]);
                ASSERT_EQ(recs[i].node.height, 0);
                ASSERT_EQ(avl_find(&tree, &key), nullptr);
            }
        } else {
            ASSERT_EQ(avl_find(&tree, &key), present ? &recs[i] : nullptr);
        }
        ASSERT_NO_FATAL_FAILURE(checkAgainst(tree, model));
        ASSERT_FALSE(HasFailure()) << "after step " << step;
    }
    EXPECT_GT(model.size(), 100u);
}

}  // namespace
