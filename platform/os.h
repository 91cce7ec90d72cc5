// OS layer: tasks, semaphores, fixed-size memory pools, the option store,
// process fault handling and sleeping.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- tasks -------------------------------------------------------------

using tSilTaskEntry = void (*)(void);

// Starts a task running `entry`. Returns 0 on success and stores the task id
// in `taskId` when it is not null.
int32_t silCreateTask(const char* name, uint32_t priority, uint32_t stackSize, tSilTaskEntry entry,
                      uintptr_t arg1, uintptr_t arg2, uint32_t* taskId);

// Puts the calling task to sleep for `seconds`.
void silSleep(uint32_t seconds);

// ---- semaphores --------------------------------------------------------

// Option bits of silCreateMSem.
constexpr uint32_t SIL_SEM_Q_PRIORITY = 0x1;      // waiters queued by priority
constexpr uint32_t SIL_SEM_DELETE_SAFE = 0x4;     // owner protected from deletion
constexpr uint32_t SIL_SEM_INVERSION_SAFE = 0x8;  // priority inheritance

constexpr int32_t SIL_WAIT_FOREVER = -1;

// Creates a mutex semaphore; returns its handle, or 0 on failure.
uint32_t silCreateMSem(uint32_t options);
// Takes the semaphore, waiting at most `timeout` ticks (-1: without limit).
uint32_t silTakeSem(uint32_t semId, int32_t timeout);
uint32_t silGiveSem(uint32_t semId);
uint32_t silDeleteSem(uint32_t semId);

// ---- memory pools ------------------------------------------------------

constexpr size_t SIL_MEM_POOL_NAME_LEN = 32;
// Largest block one pool may take; a larger pool is refused as out of memory
// rather than asked of the allocator.
constexpr uint64_t SIL_MEM_POOL_MAX_BYTES = 256ull << 20;

// Control record of a pool of `count` records of `size` bytes. A record
// that is all zero is a pool that was never created; destroying it is safe.
struct tSilMemPool {
    char name[SIL_MEM_POOL_NAME_LEN];
    uint32_t size;       // bytes per record as asked for
    uint32_t stride;     // bytes per slot, size rounded up for alignment
    uint32_t count;      // records in the pool
    uint32_t used;       // records handed out now
    uint32_t highWater;  // most records ever handed out at once
    uint32_t freeHead;   // index of the first free slot, count when none
    uint32_t flags;
    unsigned char* block;  // count * stride bytes
    uint32_t* next;        // free-list link per slot
    unsigned char* inUse;  // one byte per slot: 1 while handed out
};

// Result codes of the pool calls beyond 0.
constexpr uint32_t SIL_MEM_POOL_ERR_PARAM = 0x3E80004;
constexpr uint32_t SIL_MEM_POOL_ERR_NOMEM = 0x3E8000E;
constexpr uint32_t SIL_MEM_POOL_ERR_NOT_OWNED = 0x3E80011;
constexpr uint32_t SIL_MEM_POOL_ERR_DOUBLE_FREE = 0x3E80012;

uint32_t silMemPoolInit(tSilMemPool* pool, const char* name, uint32_t count, uint32_t size, uint32_t flags);
// Hands out a zeroed record, or null when the pool is exhausted.
void* silMemPoolAlloc(tSilMemPool* pool);
// Returns a record; a pointer that is not a handed-out record of this pool is
// refused with an error and changes nothing.
uint32_t silMemPoolFree(tSilMemPool* pool, void* record);
uint32_t silMemPoolDestroy(tSilMemPool* pool);
// Prints the pool's name, record size, capacity, used, free and high-water
// mark to standard output.
void silMemPoolPrint(const tSilMemPool* pool);

// ---- option store -------------------------------------------------------

// Reads option `key`. With `asText` 1 the value is copied as text into `buf`
// (at most `bufLen` bytes, no terminator added beyond them). Returns the
// number of bytes copied, which is positive when the key exists.
int32_t silOptRead(uint32_t scope, const char* key, uint32_t index, uint32_t flags, uint32_t asText, char* buf,
                   uint32_t bufLen);

// ---- process -----------------------------------------------------------

// Installs the platform's handler for segmentation faults.
void silCatchSegFault(void);
