// The worker task's loop.
#include "daemon/main_loop.h"

#include "agent/global.h"
#include "agent/lock.h"
#include "daemon/route_socket.h"
#include "packet/pkt_recv.h"
#include "platform/os.h"
#include "platform/socket.h"

void pppoeplusMainLoopPass(int32_t maxFd) {
    zel_fd_set readSet;
    ZEL_FD_ZERO(&readSet);
    // Descriptor 0 is never watched: a zeroed record must not make the loop
    // read standard input.
    if (gPppoeplus.pktFd > 0) ZEL_FD_SET(gPppoeplus.pktFd, &readSet);
    if (gPppoeplus.rtSockFd > 0) ZEL_FD_SET(gPppoeplus.rtSockFd, &readSet);
    zel_timeval timeout = {PPPOEPLUS_SELECT_TIMEOUT_SEC, 0};

    // Nothing periodic is done on a time-out or an error.
    if (zel_select(maxFd + 1, &readSet, nullptr, nullptr, &timeout) < 1) return;

    // Frames first, then route events; the lock is released in between so a
    // management call can run between the two.
    if (gPppoeplus.pktFd > 0 && ZEL_FD_ISSET(gPppoeplus.pktFd, &readSet)) {
        pppoeplusLock();
        pppoeplusPktRecv();
        pppoeplusUnlock();
    }
    if (gPppoeplus.rtSockFd > 0 && ZEL_FD_ISSET(gPppoeplus.rtSockFd, &readSet)) {
        pppoeplusLock();
        pppoeplusRtSockRecv();
        pppoeplusUnlock();
    }
}

void pppoeplusMain(void) {
    int32_t maxFd = gPppoeplus.pktFd > gPppoeplus.rtSockFd ? gPppoeplus.pktFd : gPppoeplus.rtSockFd;
    for (;;) pppoeplusMainLoopPass(maxFd);
}
