// One call of the command service, from request to reply: the request is
// checked against the settings table that the process registered
// (icmProcCallSpecInit), the value record is built from that table, the
// entry point of the command map is called and its answer encoded. No I/O
// and no global state, so the whole path can be driven from tests and fuzz
// targets on any platform.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/linux/cmd_proto.h"
#include "platform/linux/service_engine.h"
#include "platform/services.h"

namespace linuxplat {

// What one command service serves: its command map and its settings.
struct CallTable {
    const tIcmFuncMap* map = nullptr;
    uint32_t rows = 0;
    std::vector<tIcmCallSpec> specs;
};

// Empty when `specs` is a table the service can build values from, else what
// is wrong with it (a kind it does not know, a buffer beyond the protocol's
// value limit, a least room beyond the buffer).
std::string callSpecsCheck(const tIcmCallSpec* specs, uint32_t rows);

// Serves one call request frame:
// - a body that does not decode, a value kind that is not the setting's, or
//   lengths that do not match the bytes sent: an error reply, and the
//   connection is closed;
// - a row without an entry point, or a setting the table does not list: a
//   call reply with ERR_UNSUPPORTED;
// - a text longer than the setting takes: a call reply with ERR_TOO_LONG;
// - a get that announces less room than the setting's least (the entry point
//   would not come back in a usable state): an error reply.
// Only a request that passes reaches the entry point, with a record that the
// service built over a buffer of the setting's capacity.
Answer callServe(const CallTable& table, const cmdp::Frame& frame);

}  // namespace linuxplat
