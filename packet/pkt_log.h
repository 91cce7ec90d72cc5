// Traces of the packet path: sub-module 0 for the receive path, 1 for the
// send path, each under the debug switch bit the message belongs to. Errors go
// through PPPOEPLUS_ERROR_LOG (sub-module 4, bit 0x8).
#pragma once

#include "agent/log.h"

#define PPPOEPLUS_RECV_LOG(bit, ...) PPPOEPLUS_DEBUG_LOG((bit), PPPOEPLUS_SUB_RECV, __VA_ARGS__)
#define PPPOEPLUS_SEND_LOG(bit, ...) PPPOEPLUS_DEBUG_LOG((bit), PPPOEPLUS_SUB_SEND, __VA_ARGS__)
