// The route socket: opened at start-up, read by the worker task.
#include "core/route_socket.h"

#include <cstdio>
#include <cstring>

#include "core/global.h"
#include "core/log.h"
#include "platform/socket.h"
#include "platform/types.h"

// Route traces: sub-module 3, written while debug switch bit 0x4 is on.
#define PPPOEPLUS_ROUTE_LOG(...) PPPOEPLUS_DEBUG_LOG(PPPOEPLUS_DEBUG_EVENT, PPPOEPLUS_SUB_ROUTE, __VA_ARGS__)

int32_t pppoeplusRtSockOpen(void) {
    int32_t fd = zel_socket(ZEL_AF_ROUTE, ZEL_SOCK_DGRAM, 0);
    if (fd < 0) {
        perror("Failed to create route socket for pppoe+!");
        return -1;
    }

    bool failed = false;
    zel_sockaddr_rt addr;
    std::memset(&addr, 0, sizeof(addr));
    addr.rt_family = ZEL_AF_ROUTE;
    if (zel_bind(fd, &addr, sizeof(addr)) != 0) {
        perror("Failed to bind route socket address!");
        failed = true;
    }
    int32_t group = PPPOEPLUS_RT_GROUP;
    if (!failed && zel_setsockopt(fd, ZEL_SOL_ROUTE, ZEL_ADD_MEMBERSHIP, &group, sizeof(group)) != 0) {
        perror("Failed to set ADD_MEMBERSHIP option!");
        failed = true;
    }
    int32_t name = ZEL_PROTO_PPPOEPLUS;
    if (!failed && zel_setsockopt(fd, ZEL_SOL_SOCKET, ZEL_SO_NAME, &name, sizeof(name)) != 0) {
        perror("Failed to set name option!");
        failed = true;
    }
    if (failed) {
        zel_close(fd);
        return -1;
    }
    return fd;
}

void pppoeplusRtSockRecv(void) {
    unsigned char buf[PPPOEPLUS_RT_BUF_LEN];
    std::memset(buf, 0, sizeof(buf));
    int32_t count = zel_recv(gPppoeplus.rtSockFd, buf, sizeof(buf), 0);
    if (count <= 0) return;
    PPPOEPLUS_ROUTE_LOG("Receive route message, length %d.\r\n", count);
    // The messages of the read are not acted on yet: interface events keep
    // the interface table as it is until the event handling is in place.
}
