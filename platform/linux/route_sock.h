// The platform's route sockets (route_sock.cpp). Joining the group of
// interface events, unregistering and delivering are declared in
// internal.h, beside the other parts that use them.
#pragma once

#include <cstdint>

namespace linuxplat {

// A new route socket: the daemon's end, or -1 (errno, errnoGet).
int32_t routeSocket();

}  // namespace linuxplat
