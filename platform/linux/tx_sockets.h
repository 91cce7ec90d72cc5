// The sockets the packet socket's frames are sent on (tx_sockets.cpp).
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace linuxplat {

// The sockets frames are sent on: one raw packet socket per interface sent
// to, bound to it with protocol 0 (it receives nothing and is never on the
// receive path), opened on the first frame for that interface. A send on a
// bound socket names no address: the kernel neither copies one in nor looks
// the interface up by index (a few nanoseconds of each send). Each
// frame is still one system call whose result is the daemon's, so its
// counters stay exact. The errors are the same as with an address: ENETDOWN
// while the link is down (a socket of protocol 0 is never marked failed by
// the link going down, so the first send after the link is back up goes
// through), ENXIO for an interface that is gone.
//
// Sends `len` bytes of `frame` out of `ifindex`: the bytes sent, or -1 with
// errno set.
ssize_t txSocketSend(int32_t ifindex, const uint8_t* frame, size_t len);
// Closes every send socket (the packet socket closed; the next opens its
// own): the calling thread's at once, each other thread's before its next
// send or when it ends. Each thread sends on sockets of its own.
void txSocketsCloseAll();

}  // namespace linuxplat
