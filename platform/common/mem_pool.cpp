// Fixed-size memory pools: one block of `count` slots, a LIFO free list of
// slot indexes and one in-use byte per slot, so that a stray or repeated
// free is refused instead of corrupting the list.

#include "platform/common/mem_pool.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#if defined(__SANITIZE_ADDRESS__)
#define MEM_POOL_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MEM_POOL_ASAN 1
#endif
#endif

#ifdef MEM_POOL_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace {

constexpr size_t kSlotAlign = alignof(std::max_align_t);
static_assert((kSlotAlign & (kSlotAlign - 1)) == 0, "slot alignment must be a power of two");

// Under AddressSanitizer free slots are poisoned, so a record used after it
// was returned to its pool is reported like a use after free of the heap.
void poison(const void* addr, size_t len) {
#ifdef MEM_POOL_ASAN
    ASAN_POISON_MEMORY_REGION(addr, len);
#else
    (void)addr;
    (void)len;
#endif
}

void unpoison(const void* addr, size_t len) {
#ifdef MEM_POOL_ASAN
    ASAN_UNPOISON_MEMORY_REGION(addr, len);
#else
    (void)addr;
    (void)len;
#endif
}

bool created(const tSilMemPool* pool) {
    return pool != nullptr && pool->block != nullptr;
}

}  // namespace

uint32_t memPoolInit(tSilMemPool* pool, const char* name, uint32_t count, uint32_t size, uint32_t flags) {
    if (pool == nullptr || name == nullptr || count == 0 || size == 0) {
        return SIL_MEM_POOL_ERR_PARAM;
    }
    if (pool->block != nullptr) {
        return SIL_MEM_POOL_ERR_PARAM;  // still holds a pool; destroy it first
    }

    // Sizes are worked out in 64 bits so that neither the rounding nor the
    // product can wrap.
    const uint64_t stride = (static_cast<uint64_t>(size) + kSlotAlign - 1) & ~static_cast<uint64_t>(kSlotAlign - 1);
    const uint64_t total = stride * count;
    if (stride > UINT32_MAX || total > SIL_MEM_POOL_MAX_BYTES) {
        std::memset(pool, 0, sizeof(*pool));
        return SIL_MEM_POOL_ERR_NOMEM;
    }

    // malloc returns memory aligned for any type, so every slot is too.
    auto* block = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(total)));
    auto* next = static_cast<uint32_t*>(std::malloc(sizeof(uint32_t) * count));
    auto* inUse = static_cast<unsigned char*>(std::calloc(count, 1));
    if (block == nullptr || next == nullptr || inUse == nullptr) {
        std::free(block);
        std::free(next);
        std::free(inUse);
        std::memset(pool, 0, sizeof(*pool));
        return SIL_MEM_POOL_ERR_NOMEM;
    }

    std::memset(pool, 0, sizeof(*pool));
    std::strncpy(pool->name, name, SIL_MEM_POOL_NAME_LEN - 1);
    pool->name[SIL_MEM_POOL_NAME_LEN - 1] = '\0';
    pool->size = size;
    pool->stride = static_cast<uint32_t>(stride);
    pool->count = count;
    pool->used = 0;
    pool->highWater = 0;
    pool->flags = flags;
    pool->block = block;
    pool->next = next;
    pool->inUse = inUse;

    // Slot 0 is handed out first; the last slot links to `count`, the end.
    for (uint32_t i = 0; i < count; ++i) {
        next[i] = i + 1;
    }
    pool->freeHead = 0;
    poison(block, static_cast<size_t>(total));
    return 0;
}

void* memPoolAlloc(tSilMemPool* pool) {
    if (!created(pool) || pool->freeHead >= pool->count) {
        return nullptr;
    }
    const uint32_t slot = pool->freeHead;
    pool->freeHead = pool->next[slot];
    pool->next[slot] = pool->count;
    pool->inUse[slot] = 1;
    pool->used++;
    if (pool->used > pool->highWater) {
        pool->highWater = pool->used;
    }

    unsigned char* record = pool->block + static_cast<size_t>(slot) * pool->stride;
    unpoison(record, pool->size);
    std::memset(record, 0, pool->size);
    return record;
}

uint32_t memPoolFree(tSilMemPool* pool, void* record) {
    if (!created(pool) || record == nullptr) {
        return SIL_MEM_POOL_ERR_NOT_OWNED;
    }
    // Compare addresses as integers: the pointer may belong to any object.
    const uintptr_t start = reinterpret_cast<uintptr_t>(pool->block);
    const uintptr_t addr = reinterpret_cast<uintptr_t>(record);
    const uintptr_t span = static_cast<uintptr_t>(pool->count) * pool->stride;
    if (addr < start || addr - start >= span) {
        return SIL_MEM_POOL_ERR_NOT_OWNED;
    }
    const uintptr_t offset = addr - start;
    if (offset % pool->stride != 0) {
        return SIL_MEM_POOL_ERR_NOT_OWNED;
    }
    const auto slot = static_cast<uint32_t>(offset / pool->stride);
    if (pool->inUse[slot] == 0) {
        return SIL_MEM_POOL_ERR_DOUBLE_FREE;
    }

    pool->inUse[slot] = 0;
    pool->next[slot] = pool->freeHead;
    pool->freeHead = slot;
    pool->used--;
    poison(record, pool->stride);
    return 0;
}

uint32_t memPoolDestroy(tSilMemPool* pool) {
    if (pool == nullptr) {
        return SIL_MEM_POOL_ERR_PARAM;
    }
    if (pool->block != nullptr) {
        unpoison(pool->block, static_cast<size_t>(pool->count) * pool->stride);
    }
    std::free(pool->block);
    std::free(pool->next);
    std::free(pool->inUse);
    std::memset(pool, 0, sizeof(*pool));
    return 0;
}

void memPoolPrint(const tSilMemPool* pool) {
    if (!created(pool)) {
        std::printf("mem pool (none)\r\n");
        return;
    }
    std::printf("mem pool %s: size %u, total %u, used %u, free %u, peak %u\r\n", pool->name,
                static_cast<unsigned>(pool->size), static_cast<unsigned>(pool->count),
                static_cast<unsigned>(pool->used), static_cast<unsigned>(pool->count - pool->used),
                static_cast<unsigned>(pool->highWater));
}
