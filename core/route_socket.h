// The route socket through which the platform announces interface changes.
#pragma once

#include <cstdint>

constexpr uint32_t PPPOEPLUS_RT_BUF_LEN = 3840;
constexpr int32_t PPPOEPLUS_RT_GROUP = 1;

// Opens, binds and names the route socket. The descriptor, or -1.
int32_t pppoeplusRtSockOpen(void);

// Reads the route socket once and handles what was read.
void pppoeplusRtSockRecv(void);
