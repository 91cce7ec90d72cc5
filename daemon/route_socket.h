// The route socket through which the platform announces interface changes.
#pragma once

#include <cstdint>

#include "platform/route_msg.h"

constexpr uint32_t PPPOEPLUS_RT_BUF_LEN = 3840;
constexpr int32_t PPPOEPLUS_RT_GROUP = 1;

// Opens, binds and names the route socket. The descriptor, or -1.
int32_t pppoeplusRtSockOpen(void);

// Reads the route socket once and handles every message of the read.
void pppoeplusRtSockRecv(void);

// Handles the messages in the first `count` bytes of `buf`, in order. Stops
// at a message shorter than its header or longer than what is left, at
// RT_MSG_DONE and RT_MSG_ERROR, and at an attribute that does not fit its
// message. Never reads outside the `count` bytes.
void pppoeplusRtMsgHandle(const uint8_t* buf, uint32_t count);
