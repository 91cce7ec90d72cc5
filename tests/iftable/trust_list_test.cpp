// The trusted-interface list and the list primitives beneath it, including
// random sequences of attach, detach, delete and reset checked against a
// reference model.
#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "agent/global.h"
#include "base/list.h"
#include "iftable/if_entry.h"
#include "iftable/trust_list.h"
#include "platform/avl.h"
#include "platform/types.h"
#include "support/fixture.h"

namespace {

// Entries on the list in order, checking every link both ways and that the
// backward walk meets the same entries.
std::vector<tPppoePlusIfEntry*> listEntries() {
    std::vector<tPppoePlusIfEntry*> forward;
    tPppoeplusListNode* head = &gPppoeplus.trustIfList;
    for (tPppoeplusListNode* node = head->next; node != head && forward.size() <= 1000; node = node->next) {
        EXPECT_EQ(node, node->next->prev);
        EXPECT_EQ(node, node->prev->next);
        forward.push_back(pppoeplusTrustIfEntryOf(node));
    }
    EXPECT_EQ(head, head->next->prev);
    EXPECT_EQ(head, head->prev->next);
    std::vector<tPppoePlusIfEntry*> backward;
    for (tPppoeplusListNode* node = head->prev; node != head && backward.size() <= 1000; node = node->prev)
        backward.push_back(pppoeplusTrustIfEntryOf(node));
    std::reverse(backward.begin(), backward.end());
    EXPECT_EQ(forward, backward);
    return forward;
}

std::vector<uint32_t> listUnits() {
    std::vector<uint32_t> out;
    for (tPppoePlusIfEntry* e : listEntries()) out.push_back(e->ifUnit);
    return out;
}

std::vector<uint32_t> treeUnits() {
    std::vector<uint32_t> out;
    for (auto* e = static_cast<tPppoePlusIfEntry*>(avl_first(&gPppoeplus.ifTree)); e != nullptr;
         e = static_cast<tPppoePlusIfEntry*>(avl_walk(&gPppoeplus.ifTree, e, AVL_AFTER)))
        out.push_back(e->ifUnit);
    return out;
}

// A zeroed entry that lives outside the pool and the tree.
std::unique_ptr<tPppoePlusIfEntry> looseEntry(uint32_t unit) {
    auto e = std::make_unique<tPppoePlusIfEntry>();
    e->ifUnit = unit;
    return e;
}

class TrustListTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        pppoeplusTestStart();
    }
};

// ---- primitives -------------------------------------------------------------------

TEST(TrustListPrimitives, InitLinkUnlink) {
    tPppoeplusListNode head{};
    tPppoeplusListNode a{};
    tPppoeplusListNode b{};
    tPppoeplusListNode c{};
    pppoeplusListInit(&head);
    EXPECT_EQ(&head, head.next);
    EXPECT_EQ(&head, head.prev);
    EXPECT_TRUE(pppoeplusListEmpty(&head));

    pppoeplusListLinkAfter(&a, &head);  // head a
    pppoeplusListLinkAfter(&c, &a);     // head a c
    pppoeplusListLinkBetween(&b, &a, &c);  // head a b c
    EXPECT_FALSE(pppoeplusListEmpty(&head));
    EXPECT_EQ(&a, head.next);
    EXPECT_EQ(&b, a.next);
    EXPECT_EQ(&c, b.next);
    EXPECT_EQ(&head, c.next);
    EXPECT_EQ(&c, head.prev);
    EXPECT_EQ(&b, c.prev);
    EXPECT_EQ(&a, b.prev);
    EXPECT_EQ(&head, a.prev);

    pppoeplusListUnlink(&b);  // head a c; b keeps its pointers
    EXPECT_EQ(&c, a.next);
    EXPECT_EQ(&a, c.prev);
    EXPECT_EQ(&c, b.next);
    EXPECT_EQ(&a, b.prev);

    pppoeplusListUnlinkInit(&a);  // head c
    EXPECT_EQ(&a, a.next);
    EXPECT_EQ(&a, a.prev);
    EXPECT_EQ(&c, head.next);
    EXPECT_EQ(&head, c.prev);

    pppoeplusListUnlinkInit(&c);
    EXPECT_TRUE(pppoeplusListEmpty(&head));
    EXPECT_EQ(&head, head.prev);
}

TEST(TrustListPrimitives, UnlinkSkipsNullNeighbours) {
    tPppoeplusListNode zero{};
    pppoeplusListUnlink(&zero);
    EXPECT_EQ(nullptr, zero.next);
    EXPECT_EQ(nullptr, zero.prev);
    pppoeplusListUnlinkInit(&zero);
    EXPECT_EQ(&zero, zero.next);
    EXPECT_EQ(&zero, zero.prev);

    // Only the neighbour that is there is relinked.
    tPppoeplusListNode other{};
    tPppoeplusListNode half{};
    pppoeplusListInit(&other);
    half.next = &other;
    half.prev = nullptr;
    pppoeplusListUnlink(&half);
    EXPECT_EQ(nullptr, other.prev);
    EXPECT_EQ(&other, other.next);
}

// ---- attach and detach --------------------------------------------------------------

TEST_F(TrustListTest, AttachKeepsAscendingOrderEqualUnitsBehind) {
    auto five = looseEntry(5);
    auto twoA = looseEntry(2);
    auto nine = looseEntry(9);
    auto twoB = looseEntry(2);
    EXPECT_EQ(0, pppoeplusTrustIfEntryAttach(five.get()));
    EXPECT_EQ(0, pppoeplusTrustIfEntryAttach(twoA.get()));
    EXPECT_EQ(0, pppoeplusTrustIfEntryAttach(nine.get()));
    EXPECT_EQ(0, pppoeplusTrustIfEntryAttach(twoB.get()));
    EXPECT_EQ((std::vector<tPppoePlusIfEntry*>{twoA.get(), twoB.get(), five.get(), nine.get()}), listEntries())
        << "the second 2 is the later one";
    EXPECT_TRUE(sim::g.calls.empty()) << "no platform call";
}

TEST_F(TrustListTest, AttachComparesUnitsUnsigned) {
    auto top = looseEntry(0x80000000u);
    auto one = looseEntry(1);
    auto max = looseEntry(0xFFFFFFFFu);
    auto zero = looseEntry(0);
    pppoeplusTrustIfEntryAttach(top.get());
    pppoeplusTrustIfEntryAttach(one.get());
    pppoeplusTrustIfEntryAttach(max.get());
    pppoeplusTrustIfEntryAttach(zero.get());
    EXPECT_EQ((std::vector<uint32_t>{0, 1, 0x80000000u, 0xFFFFFFFFu}), listUnits());
}

TEST_F(TrustListTest, AttachToAnEmptyList) {
    auto e = looseEntry(7);
    pppoeplusTrustIfEntryAttach(e.get());
    tPppoeplusListNode* head = &gPppoeplus.trustIfList;
    EXPECT_EQ(&e->trustNode, head->next);
    EXPECT_EQ(&e->trustNode, head->prev);
    EXPECT_EQ(head, e->trustNode.next);
    EXPECT_EQ(head, e->trustNode.prev);
}

TEST_F(TrustListTest, DetachOfAFreshOrDetachedEntryLeavesTheListUnchanged) {
    auto two = looseEntry(2);
    auto five = looseEntry(5);
    auto fresh = looseEntry(3);
    pppoeplusTrustIfEntryAttach(two.get());
    pppoeplusTrustIfEntryAttach(five.get());

    EXPECT_EQ(0, pppoeplusTrustIfEntryDetach(fresh.get()));
    EXPECT_EQ((std::vector<tPppoePlusIfEntry*>{two.get(), five.get()}), listEntries());
    EXPECT_EQ(&fresh->trustNode, fresh->trustNode.next) << "the node now points to itself";
    EXPECT_EQ(&fresh->trustNode, fresh->trustNode.prev);

    EXPECT_EQ(0, pppoeplusTrustIfEntryDetach(fresh.get()));
    EXPECT_EQ((std::vector<tPppoePlusIfEntry*>{two.get(), five.get()}), listEntries());

    EXPECT_EQ(0, pppoeplusTrustIfEntryDetach(two.get()));
    EXPECT_EQ((std::vector<tPppoePlusIfEntry*>{five.get()}), listEntries());
    EXPECT_EQ(&two->trustNode, two->trustNode.next);
    EXPECT_EQ(0, pppoeplusTrustIfEntryDetach(two.get()));
    EXPECT_EQ((std::vector<tPppoePlusIfEntry*>{five.get()}), listEntries());
}

TEST_F(TrustListTest, DetachFirstMiddleLastAndReattach) {
    std::vector<std::unique_ptr<tPppoePlusIfEntry>> e;
    for (uint32_t u : {1u, 2u, 3u, 4u}) {
        e.push_back(looseEntry(u));
        pppoeplusTrustIfEntryAttach(e.back().get());
    }
    pppoeplusTrustIfEntryDetach(e[0].get());
    EXPECT_EQ((std::vector<uint32_t>{2, 3, 4}), listUnits());
    pppoeplusTrustIfEntryDetach(e[3].get());
    EXPECT_EQ((std::vector<uint32_t>{2, 3}), listUnits());
    pppoeplusTrustIfEntryDetach(e[1].get());
    EXPECT_EQ((std::vector<uint32_t>{3}), listUnits());
    pppoeplusTrustIfEntryAttach(e[3].get());
    pppoeplusTrustIfEntryAttach(e[0].get());
    EXPECT_EQ((std::vector<uint32_t>{1, 3, 4}), listUnits());
    pppoeplusTrustIfEntryDetach(e[2].get());
    pppoeplusTrustIfEntryDetach(e[0].get());
    pppoeplusTrustIfEntryDetach(e[3].get());
    EXPECT_TRUE(listUnits().empty());
    EXPECT_TRUE(pppoeplusListEmpty(&gPppoeplus.trustIfList));
}

TEST_F(TrustListTest, WalkHelpers) {
    EXPECT_EQ(nullptr, pppoeplusTrustIfEntryFirst());
    auto nine = looseEntry(9);
    auto four = looseEntry(4);
    pppoeplusTrustIfEntryAttach(nine.get());
    pppoeplusTrustIfEntryAttach(four.get());
    EXPECT_EQ(four.get(), pppoeplusTrustIfEntryFirst());
    EXPECT_EQ(nine.get(), pppoeplusTrustIfEntryNext(four.get()));
    EXPECT_EQ(nullptr, pppoeplusTrustIfEntryNext(nine.get()));
    pppoeplusTrustIfEntryDetach(four.get());
    EXPECT_EQ(nullptr, pppoeplusTrustIfEntryNext(four.get())) << "a detached entry has no next";
    EXPECT_EQ(nine.get(), pppoeplusTrustIfEntryFirst());
}

TEST_F(TrustListTest, DeletingATrustedEntryUnlinksItBeforeItIsFreed) {
    for (uint32_t u : {3u, 5u, 8u}) sim::addInterface(u, "eth0/" + std::to_string(u), ZEL_OND_ETH);
    std::vector<tPppoePlusIfEntry*> e;
    for (uint32_t u : {3u, 5u, 8u}) {
        e.push_back(pppoeplusIfEntryAdd(u, 1));
        ASSERT_NE(nullptr, e.back());
        pppoeplusIfTrustSet(e.back(), ZEL_TRUE);
        pppoeplusTrustIfEntryAttach(e.back());
    }
    EXPECT_EQ(0, pppoeplusIfEntryDelete(e[1]));
    // The neighbours point at each other, not into the freed (and, under
    // ASan, poisoned) record.
    EXPECT_EQ(&e[2]->trustNode, e[0]->trustNode.next);
    EXPECT_EQ(&e[0]->trustNode, e[2]->trustNode.prev);
    EXPECT_EQ((std::vector<uint32_t>{3, 8}), listUnits());
    EXPECT_EQ(0, pppoeplusIfEntryDelete(e[0]));
    EXPECT_EQ(0, pppoeplusIfEntryDelete(e[2]));
    EXPECT_TRUE(listUnits().empty());
    EXPECT_EQ(0u, gPppoeplus.ifPool.used);
}

// ---- random sequences against a model ---------------------------------------------

// Loose entries, equal units included: the list must equal a model that
// inserts behind the last element whose unit is not greater.
TEST_F(TrustListTest, RandomAttachDetachOfLooseEntries) {
    for (uint32_t seed : {1u, 2u, 3u, 4u}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        pppoeplusListInit(&gPppoeplus.trustIfList);
        std::mt19937 rng(seed);
        const uint32_t units[] = {0, 1, 2, 2, 3, 7, 7, 7, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 5};
        std::vector<std::unique_ptr<tPppoePlusIfEntry>> entries;
        for (uint32_t u : units) entries.push_back(looseEntry(u));
        std::vector<bool> on(entries.size(), false);
        std::vector<tPppoePlusIfEntry*> model;

        for (int step = 0; step < 3000; step++) {
            size_t i = rng() % entries.size();
            tPppoePlusIfEntry* e = entries[i].get();
            if (!on[i]) {
                pppoeplusTrustIfEntryAttach(e);
                auto pos = std::upper_bound(model.begin(), model.end(), e->ifUnit,
                                            [](uint32_t u, const tPppoePlusIfEntry* m) { return u < m->ifUnit; });
                model.insert(pos, e);
                on[i] = true;
            } else {
                pppoeplusTrustIfEntryDetach(e);
                model.erase(std::find(model.begin(), model.end(), e));
                on[i] = false;
            }
            if (rng() % 4 == 0) {
                // Detaching an entry that is not listed changes nothing.
                size_t j = rng() % entries.size();
                if (!on[j]) pppoeplusTrustIfEntryDetach(entries[j].get());
            }
            ASSERT_EQ(model, listEntries()) << "step " << step;
        }
    }
}

// Entries of the interface table under random add, trust, untrust, delete,
// reset, disable and failing enables. After every step the list holds exactly
// the trusted entries of the tree, in ascending unit order, every link
// consistent, and the pool holds exactly the tree's entries.
TEST_F(TrustListTest, RandomTableOperationsKeepTheListSortedAndConsistent) {
    const std::vector<uint32_t> units = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu};
    for (uint32_t seed : {11u, 12u, 13u, 14u}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        pppoeplusTestReset();
        pppoeplusTestStart(0, seed % 2);  // half the runs with every port served by default
        for (uint32_t u : units) sim::addInterface(u, "eth0/" + std::to_string(u), ZEL_OND_ETH);
        std::mt19937 rng(seed);
        std::map<uint32_t, bool> model;  // unit -> trusted

        for (int step = 0; step < 2000; step++) {
            const uint32_t unit = units[rng() % units.size()];
            tPppoePlusIfEntry* e = pppoeplusIfEntryGet(unit);
            ASSERT_EQ(model.count(unit) != 0, e != nullptr) << "step " << step;
            switch (rng() % 8) {
                case 0:
                case 1:  // add
                    if (e == nullptr) {
                        ASSERT_NE(nullptr, pppoeplusIfEntryAdd(unit, rng() % 2 == 0 ? 1 : 2));
                        model[unit] = false;
                    } else {
                        EXPECT_EQ(nullptr, pppoeplusIfEntryAdd(unit, 1));
                    }
                    break;
                case 2:  // trust: attach only on a change
                    if (e != nullptr && !model[unit]) {
                        pppoeplusIfTrustSet(e, ZEL_TRUE);
                        pppoeplusTrustIfEntryAttach(e);
                        model[unit] = true;
                    }
                    break;
                case 3:  // untrust
                    if (e != nullptr && model[unit]) {
                        pppoeplusIfTrustSet(e, ZEL_FALSE);
                        pppoeplusTrustIfEntryDetach(e);
                        model[unit] = false;
                    }
                    break;
                case 4:  // delete
                    if (e != nullptr) {
                        EXPECT_EQ(0, pppoeplusIfEntryDelete(e));
                        model.erase(unit);
                    }
                    break;
                case 5:  // reset
                    if (e != nullptr) {
                        pppoeplusIfEntryResetConfig(e);
                        model[unit] = false;
                    }
                    break;
                case 6:  // an enable that fails on an entry of the tree
                    if (e != nullptr) {
                        sim::failWhen("zelIfSetApi(" + std::to_string(unit) + ",56," +
                                          (rng() % 2 == 0 ? "141)" : "19)"),
                                      ZEL_ERR_GENERAL, 1);
                        EXPECT_EQ(-1, pppoeplusIfEntryEnable(e));
                        model.erase(unit);
                    }
                    break;
                default:  // disable, or a successful enable
                    if (e != nullptr) {
                        if (pppoeplusIfProtoEnableGet(e) == ZEL_TRUE) EXPECT_EQ(0, pppoeplusIfEntryDisable(e));
                        else EXPECT_EQ(0, pppoeplusIfEntryEnable(e));
                    }
                    break;
            }

            std::vector<uint32_t> trusted;
            std::vector<uint32_t> all;
            for (const auto& [u, t] : model) {
                all.push_back(u);
                if (t) trusted.push_back(u);
            }
            std::vector<tPppoePlusIfEntry*> listed = listEntries();
            std::vector<uint32_t> listedUnits;
            for (tPppoePlusIfEntry* l : listed) {
                listedUnits.push_back(l->ifUnit);
                EXPECT_EQ(ZEL_TRUE, pppoeplusIfTrustGet(l));
                EXPECT_EQ(l, pppoeplusIfEntryGet(l->ifUnit)) << "a listed entry is the tree's";
            }
            ASSERT_EQ(trusted, listedUnits) << "step " << step;
            ASSERT_EQ(all, treeUnits()) << "step " << step;
            ASSERT_EQ(model.size(), gPppoeplus.ifPool.used) << "step " << step;
        }
        // Everything deleted: list empty, pool full.
        for (const auto& [u, t] : model) EXPECT_EQ(0, pppoeplusIfEntryDelete(pppoeplusIfEntryGet(u)));
        EXPECT_TRUE(pppoeplusListEmpty(&gPppoeplus.trustIfList));
        EXPECT_EQ(0u, gPppoeplus.ifPool.used);
    }
}

}  // namespace
