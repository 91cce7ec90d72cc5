// The kernel's links over rtnetlink (libmnl): a socket joined to groups, and
// one consistent dump of every link.
#pragma once

#include <libmnl/libmnl.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>

#include "platform/linux/rtnl.h"

namespace linuxplat {

// Receive buffer of a link socket: the largest message batch the kernel sends.
constexpr size_t NL_BUF_LEN = 64 * 1024;

struct NlClose {
    void operator()(struct mnl_socket* nl) const { mnl_socket_close(nl); }
};
using NlSocket = std::unique_ptr<struct mnl_socket, NlClose>;

// An rtnetlink socket joined to `groups`; null (errno set) on failure.
NlSocket nlOpen(unsigned groups);

// Reads every link the kernel has into `out`. False when the dump failed. A
// dump the kernel marks as interrupted (links changed while it ran) is read
// again.
bool nlDump(std::map<int32_t, LinkInfo>& out);

}  // namespace linuxplat
