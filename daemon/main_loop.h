// The worker task's loop.
#pragma once

#include <cstdint>

constexpr int64_t PPPOEPLUS_SELECT_TIMEOUT_SEC = 5;

// Body of the worker task: serves the packet socket and the route socket for
// ever.
void pppoeplusMain(void);

// One pass of the loop: waits on both sockets (5 s at most), then serves the
// packet socket and after it the route socket, each under the lock. `maxFd`
// is the higher of the two descriptors.
void pppoeplusMainLoopPass(int32_t maxFd);
