// The service engine: what the command service, the process shell and the
// event socket share. Each service listens on a local stream socket of its
// own and runs on one thread, which serves every connection in turn without
// waiting on any of them (docs/command-protocol.md gives the limits).
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/cmd_proto.h"

namespace linuxplat {

// What a request handler answers: the reply frame, and whether the
// connection ends after it.
struct Answer {
    std::vector<uint8_t> reply;
    bool close = false;
};

struct Service {
    std::string name;
    std::string path;
    int listenFd = -1;
    uint8_t kind = 0;           // the one request kind the service serves
    bool groupAllowed = false;  // besides root, members of `gid` may use it
    gid_t gid = 0;
    std::function<Answer(const cmdp::Frame&)> handle;
    // Instead of `handle`, for a service that answers root and the group
    // differently: the request with the peer's uid.
    std::function<Answer(const cmdp::Frame&, uid_t)> handleFrom;
};

// An error reply, after which the connection is closed.
Answer errorAnswer(int32_t code, const std::string& text, uint32_t seq);

// Listens at the service's path with `mode` and starts its thread. 0 or an
// error.
int32_t serviceStart(std::unique_ptr<Service> svc, mode_t mode);

// The group of platform.group (name or number) whose members may use the
// command and control services besides root; 0 when there is none.
gid_t serviceGroup();

// A service or process name: 1 to 32 letters, digits or underscores.
bool serviceNameOk(const char* name);

}  // namespace linuxplat
