// Fixed-size memory pools shared by every platform. Each platform's
// silMemPool* calls forward here; the simulated platform adds fault
// injection in front. No locking: callers serialise access to a pool.
#pragma once

#include <cstdint>

#include "platform/os.h"

// Creates a pool of `count` records of `size` bytes in `pool`, which must be
// all zero (never created, or destroyed). Returns 0, SIL_MEM_POOL_ERR_PARAM or
// SIL_MEM_POOL_ERR_NOMEM (the record is then left zeroed).
uint32_t memPoolInit(tSilMemPool* pool, const char* name, uint32_t count, uint32_t size, uint32_t flags);
// Hands out a zeroed record, or null when the pool is exhausted or not created.
void* memPoolAlloc(tSilMemPool* pool);
// Takes a record back. A pointer that is not the start of a record of this
// pool gives SIL_MEM_POOL_ERR_NOT_OWNED, a record not handed out gives
// SIL_MEM_POOL_ERR_DOUBLE_FREE; neither changes anything.
uint32_t memPoolFree(tSilMemPool* pool, void* record);
// Releases the pool's memory and zeroes the record. Safe on a zeroed
// record (returns 0); a null pool gives SIL_MEM_POOL_ERR_PARAM.
uint32_t memPoolDestroy(tSilMemPool* pool);
// Prints one line about the pool to standard output.
void memPoolPrint(const tSilMemPool* pool);
