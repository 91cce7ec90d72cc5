// The records of the sockets the platform opened for the daemon (packet and
// route sockets), shared by socket.cpp (the packet socket and the socket
// calls) and route_sock.cpp (the route sockets).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>

#include "platform/linux/rx_ring.h"

namespace linuxplat {

enum class SockKind { Packet, Route };

// The receive ring of a packet socket, shared by the worker that reads it
// and the management thread that sizes it.
struct RingBox {
    std::mutex mutex;
    RxRing ring;
};

struct SockInfo {
    SockKind kind = SockKind::Packet;
    bool rxInfo = false;   // receive information requested
    int32_t name = 0;      // ZEL_SO_NAME value
    int platformEnd = -1;  // route socket: the end the platform writes
    bool joined = false;   // route socket: in group 1
    std::shared_ptr<RingBox> ring;  // packet socket with platform.rxring on
};

// The records by descriptor, and their lock.
extern std::shared_mutex gSockMutex;
extern std::map<int, SockInfo>& gSocks;

// Sets errno and this thread's last error (errnoGet) to `err`; -1.
int32_t fail(int err);
// The last error a socket call of this thread set.
int32_t sockLastErrno();

// Called, with gSockMutex held exclusively, whenever a record is added,
// changed or removed.
void socksChanged();

// The record of `fd`, or null when the platform did not open it. The record
// stays valid on this thread until its next lookup of another descriptor.
const SockInfo* lookupRef(int fd);
// A copy of the record of `fd`; false when the platform did not open it.
bool lookup(int fd, SockInfo& out);

// True when the ring of a packet socket has a frame to read now.
bool ringReady(const SockInfo& info);

}  // namespace linuxplat
