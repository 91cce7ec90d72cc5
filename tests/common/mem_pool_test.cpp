// Fixed-size memory pool: accounting, zeroed hand-out, refusal of bad frees,
// destroy, init errors and the printed summary.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "platform/common/mem_pool.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define MEM_POOL_TEST_ASAN 1
#endif

namespace {

bool isZeroed(const tSilMemPool& pool) {
    tSilMemPool zero{};
    return std::memcmp(&pool, &zero, sizeof(pool)) == 0;
}

bool allZero(const void* p, size_t len) {
    const auto* b = static_cast<const unsigned char*>(p);
    for (size_t i = 0; i < len; ++i) {
        if (b[i] != 0) {
            return false;
        }
    }
    return true;
}

class MemPoolTest : public ::testing::Test {
protected:
    void TearDown() override { memPoolDestroy(&pool_); }
    tSilMemPool pool_{};
};

TEST_F(MemPoolTest, InitFillsTheRecord) {
    ASSERT_EQ(memPoolInit(&pool_, "sessions", 8, 20, 0x5), 0u);
    EXPECT_STREQ(pool_.name, "sessions");
    EXPECT_EQ(pool_.size, 20u);
    EXPECT_EQ(pool_.stride % alignof(std::max_align_t), 0u);
    EXPECT_GE(pool_.stride, 20u);
    EXPECT_LT(pool_.stride, 20u + alignof(std::max_align_t));
    EXPECT_EQ(pool_.count, 8u);
    EXPECT_EQ(pool_.used, 0u);
    EXPECT_EQ(pool_.highWater, 0u);
    EXPECT_EQ(pool_.flags, 0x5u);
    EXPECT_NE(pool_.block, nullptr);
    EXPECT_NE(pool_.next, nullptr);
    EXPECT_NE(pool_.inUse, nullptr);
}

TEST_F(MemPoolTest, ExhaustionThenNull) {
    ASSERT_EQ(memPoolInit(&pool_, "p", 4, 24, 0), 0u);
    std::set<void*> got;
    for (int i = 0; i < 4; ++i) {
        void* r = memPoolAlloc(&pool_);
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(r) % alignof(std::max_align_t), 0u);
        got.insert(r);
    }
    EXPECT_EQ(got.size(), 4u);
    EXPECT_EQ(memPoolAlloc(&pool_), nullptr);
    EXPECT_EQ(pool_.used, 4u);

    // One back, one out again: the same slot (LIFO).
    void* back = *got.begin();
    ASSERT_EQ(memPoolFree(&pool_, back), 0u);
    EXPECT_EQ(memPoolAlloc(&pool_), back);
    EXPECT_EQ(memPoolAlloc(&pool_), nullptr);
}

TEST_F(MemPoolTest, RecordsZeroedWhenHandedOut) {
    ASSERT_EQ(memPoolInit(&pool_, "p", 2, 40, 0), 0u);
    void* a = memPoolAlloc(&pool_);
    ASSERT_NE(a, nullptr);
    EXPECT_TRUE(allZero(a, 40));
    std::memset(a, 0xA5, 40);
    ASSERT_EQ(memPoolFree(&pool_, a), 0u);
    void* b = memPoolAlloc(&pool_);
    ASSERT_EQ(b, a);
    EXPECT_TRUE(allZero(b, 40));
}

TEST_F(MemPoolTest, DoubleFreeRefusedStateUnchanged) {
    ASSERT_EQ(memPoolInit(&pool_, "p", 3, 16, 0), 0u);
    void* a = memPoolAlloc(&pool_);
    void* b = memPoolAlloc(&pool_);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    ASSERT_EQ(memPoolFree(&pool_, a), 0u);

    const tSilMemPool before = pool_;
    const std::vector<uint32_t> nextBefore(pool_.next, pool_.next + pool_.count);
    const std::vector<unsigned char> inUseBefore(pool_.inUse, pool_.inUse + pool_.count);
    EXPECT_EQ(memPoolFree(&pool_, a), SIL_MEM_POOL_ERR_DOUBLE_FREE);
    EXPECT_EQ(std::memcmp(&before, &pool_, sizeof(pool_)), 0);
    EXPECT_EQ(std::vector<uint32_t>(pool_.next, pool_.next + pool_.count), nextBefore);
    EXPECT_EQ(std::vector<unsigned char>(pool_.inUse, pool_.inUse + pool_.count), inUseBefore);

    // A slot that was never handed out is refused the same way.
    void* c = memPoolAlloc(&pool_);  // takes a's slot back
    ASSERT_EQ(c, a);
    void* neverOut = pool_.block + 2 * static_cast<size_t>(pool_.stride);
    EXPECT_EQ(memPoolFree(&pool_, neverOut), SIL_MEM_POOL_ERR_DOUBLE_FREE);
    EXPECT_EQ(pool_.used, 2u);

    // The free list still works after the refusals.
    EXPECT_NE(memPoolAlloc(&pool_), nullptr);
    EXPECT_EQ(memPoolAlloc(&pool_), nullptr);
    EXPECT_EQ(memPoolFree(&pool_, b), 0u);
}

TEST_F(MemPoolTest, ForeignPointersRefused) {
    ASSERT_EQ(memPoolInit(&pool_, "p", 4, 32, 0), 0u);
    void* a = memPoolAlloc(&pool_);
    ASSERT_NE(a, nullptr);
    const tSilMemPool before = pool_;

    int onStack = 0;
    EXPECT_EQ(memPoolFree(&pool_, &onStack), SIL_MEM_POOL_ERR_NOT_OWNED);
    EXPECT_EQ(memPoolFree(&pool_, static_cast<unsigned char*>(a) + 1), SIL_MEM_POOL_ERR_NOT_OWNED);
    EXPECT_EQ(memPoolFree(&pool_, static_cast<unsigned char*>(a) + 8), SIL_MEM_POOL_ERR_NOT_OWNED);
    unsigned char* pastEnd = pool_.block + static_cast<size_t>(pool_.count) * pool_.stride;
    EXPECT_EQ(memPoolFree(&pool_, pastEnd), SIL_MEM_POOL_ERR_NOT_OWNED);
    void* before0 = reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(pool_.block) - pool_.stride);
    EXPECT_EQ(memPoolFree(&pool_, before0), SIL_MEM_POOL_ERR_NOT_OWNED);
    EXPECT_EQ(memPoolFree(&pool_, nullptr), SIL_MEM_POOL_ERR_NOT_OWNED);
    EXPECT_EQ(std::memcmp(&before, &pool_, sizeof(pool_)), 0);

    // A record of another pool is foreign too.
    tSilMemPool other{};
    ASSERT_EQ(memPoolInit(&other, "other", 4, 32, 0), 0u);
    void* o = memPoolAlloc(&other);
    EXPECT_EQ(memPoolFree(&pool_, o), SIL_MEM_POOL_ERR_NOT_OWNED);
    EXPECT_EQ(memPoolFree(&other, o), 0u);
    EXPECT_EQ(memPoolDestroy(&other), 0u);

    EXPECT_EQ(memPoolFree(&pool_, a), 0u);
}

TEST_F(MemPoolTest, UsedAndHighWater) {
    ASSERT_EQ(memPoolInit(&pool_, "p", 5, 8, 0), 0u);
    void* r[5];
    for (int i = 0; i < 3; ++i) {
        r[i] = memPoolAlloc(&pool_);
        ASSERT_NE(r[i], nullptr);
    }
    EXPECT_EQ(pool_.used, 3u);
    EXPECT_EQ(pool_.highWater, 3u);
    ASSERT_EQ(memPoolFree(&pool_, r[0]), 0u);
    ASSERT_EQ(memPoolFree(&pool_, r[1]), 0u);
    EXPECT_EQ(pool_.used, 1u);
    EXPECT_EQ(pool_.highWater, 3u);
    r[0] = memPoolAlloc(&pool_);
    EXPECT_EQ(pool_.used, 2u);
    EXPECT_EQ(pool_.highWater, 3u);
    r[1] = memPoolAlloc(&pool_);
    r[3] = memPoolAlloc(&pool_);
    r[4] = memPoolAlloc(&pool_);
    EXPECT_EQ(pool_.used, 5u);
    EXPECT_EQ(pool_.highWater, 5u);
    EXPECT_EQ(memPoolAlloc(&pool_), nullptr);
    EXPECT_EQ(pool_.used, 5u);
    EXPECT_EQ(pool_.highWater, 5u);
    for (void* p : {r[0], r[1], r[2], r[3], r[4]}) {
        ASSERT_EQ(memPoolFree(&pool_, p), 0u);
    }
    EXPECT_EQ(pool_.used, 0u);
    EXPECT_EQ(pool_.highWater, 5u);
}

TEST_F(MemPoolTest, DestroyThenEverythingRefused) {
    ASSERT_EQ(memPoolInit(&pool_, "p", 2, 8, 0), 0u);
    void* a = memPoolAlloc(&pool_);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(memPoolDestroy(&pool_), 0u);
    EXPECT_TRUE(isZeroed(pool_));
    EXPECT_EQ(memPoolAlloc(&pool_), nullptr);
    EXPECT_EQ(memPoolFree(&pool_, a), SIL_MEM_POOL_ERR_NOT_OWNED);
    EXPECT_EQ(memPoolDestroy(&pool_), 0u);
    EXPECT_TRUE(isZeroed(pool_));

    // The record can hold a new pool afterwards.
    ASSERT_EQ(memPoolInit(&pool_, "again", 1, 8, 0), 0u);
    EXPECT_NE(memPoolAlloc(&pool_), nullptr);
}

TEST(MemPool, DestroyZeroedRecord) {
    tSilMemPool pool{};
    EXPECT_EQ(memPoolDestroy(&pool), 0u);
    EXPECT_TRUE(isZeroed(pool));
    EXPECT_EQ(memPoolAlloc(&pool), nullptr);
    int x = 0;
    EXPECT_EQ(memPoolFree(&pool, &x), SIL_MEM_POOL_ERR_NOT_OWNED);
    EXPECT_EQ(memPoolDestroy(nullptr), SIL_MEM_POOL_ERR_PARAM);
    EXPECT_EQ(memPoolAlloc(nullptr), nullptr);
    EXPECT_EQ(memPoolFree(nullptr, &x), SIL_MEM_POOL_ERR_NOT_OWNED);
}

TEST(MemPool, InitParamErrors) {
    tSilMemPool pool{};
    EXPECT_EQ(memPoolInit(nullptr, "p", 1, 1, 0), SIL_MEM_POOL_ERR_PARAM);
    EXPECT_EQ(memPoolInit(&pool, nullptr, 1, 1, 0), SIL_MEM_POOL_ERR_PARAM);
    EXPECT_TRUE(isZeroed(pool));
    EXPECT_EQ(memPoolInit(&pool, "p", 0, 1, 0), SIL_MEM_POOL_ERR_PARAM);
    EXPECT_TRUE(isZeroed(pool));
    EXPECT_EQ(memPoolInit(&pool, "p", 1, 0, 0), SIL_MEM_POOL_ERR_PARAM);
    EXPECT_TRUE(isZeroed(pool));
}

TEST_F(MemPoolTest, InitOnLivePoolRefused) {
    ASSERT_EQ(memPoolInit(&pool_, "first", 2, 8, 0), 0u);
    void* a = memPoolAlloc(&pool_);
    ASSERT_NE(a, nullptr);
    const tSilMemPool before = pool_;
    EXPECT_EQ(memPoolInit(&pool_, "second", 4, 16, 0), SIL_MEM_POOL_ERR_PARAM);
    EXPECT_EQ(std::memcmp(&before, &pool_, sizeof(pool_)), 0);
    EXPECT_EQ(memPoolFree(&pool_, a), 0u);
}

TEST_F(MemPoolTest, PrintLine) {
    ASSERT_EQ(memPoolInit(&pool_, "sessions", 10, 24, 0), 0u);
    void* r[4];
    for (void*& p : r) {
        p = memPoolAlloc(&pool_);
        ASSERT_NE(p, nullptr);
    }
    ASSERT_EQ(memPoolFree(&pool_, r[0]), 0u);
    testing::internal::CaptureStdout();
    memPoolPrint(&pool_);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "mem pool sessions: size 24, total 10, used 3, free 7, peak 4\r\n");
}

TEST(MemPool, PrintNone) {
    tSilMemPool pool{};
    testing::internal::CaptureStdout();
    memPoolPrint(&pool);
    memPoolPrint(nullptr);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "mem pool (none)\r\nmem pool (none)\r\n");
}

TEST_F(MemPoolTest, NameTruncatedTo31) {
    const std::string longName(40, 'n');
    ASSERT_EQ(memPoolInit(&pool_, longName.c_str(), 1, 4, 0), 0u);
    EXPECT_EQ(std::string(pool_.name), std::string(31, 'n'));
    EXPECT_EQ(pool_.name[SIL_MEM_POOL_NAME_LEN - 1], '\0');
    testing::internal::CaptureStdout();
    memPoolPrint(&pool_);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "mem pool " + std::string(31, 'n') + ": size 4, total 1, used 0, free 1, peak 0\r\n");
}

TEST_F(MemPoolTest, NameOfExactly31Kept) {
    const std::string name(31, 'x');
    ASSERT_EQ(memPoolInit(&pool_, name.c_str(), 1, 4, 0), 0u);
    EXPECT_EQ(std::string(pool_.name), name);
}

#ifdef MEM_POOL_TEST_ASAN
// Under AddressSanitizer a returned record is poisoned until handed out again.
TEST_F(MemPoolTest, FreeSlotsPoisonedUnderAsan) {
    ASSERT_EQ(memPoolInit(&pool_, "p", 2, 24, 0), 0u);
    void* a = memPoolAlloc(&pool_);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(__asan_region_is_poisoned(a, 24), nullptr);
    EXPECT_NE(__asan_address_is_poisoned(pool_.block + pool_.stride), 0);
    ASSERT_EQ(memPoolFree(&pool_, a), 0u);
    EXPECT_NE(__asan_address_is_poisoned(a), 0);
    EXPECT_EQ(memPoolAlloc(&pool_), a);
    EXPECT_EQ(__asan_region_is_poisoned(a, 24), nullptr);
}
#endif

}  // namespace
