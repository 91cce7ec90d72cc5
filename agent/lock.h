// The daemon lock: the mutex semaphore of the global record. The worker task
// holds it while it serves a socket, a management entry point while it reads
// or changes the record or the interface table.
#pragma once

#include <cstdint>

// Takes the lock, waiting without time limit. Returns the platform's result.
uint32_t pppoeplusLock(void);
// Gives the lock back. Returns the platform's result.
uint32_t pppoeplusUnlock(void);
