// The receive path.
#include "packet/pkt_recv.h"

#include <cstring>

#include "core/global.h"
#include "platform/socket.h"

void pppoeplusPktRecv(void) {
    unsigned char buf[PPPOEPLUS_PKT_BUF_LEN];
    unsigned char control[PPPOEPLUS_PKT_CTRL_LEN];
    zel_sockaddr_ll from;
    std::memset(buf, 0, sizeof(buf));
    std::memset(control, 0, sizeof(control));
    std::memset(&from, 0, sizeof(from));

    zel_iovec iov = {buf, sizeof(buf)};
    zel_msghdr msg;
    std::memset(&msg, 0, sizeof(msg));
    msg.msg_name = &from;
    msg.msg_namelen = sizeof(from);
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof(control);

    // One frame per call. Validation, tagging and forwarding of the frame
    // are not in place yet: the frame is taken off the socket and dropped.
    (void)zel_recvmsg(gPppoeplus.pktFd, &msg, 0);
}
