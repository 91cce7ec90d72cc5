// Pure pieces of the interface database: reading the kernel's link messages
// (rtnetlink), the table of links they keep, the kind, position and flags of
// an interface, and the platform's route messages (24-byte big-endian
// header) that link changes and injected events become.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/ifdb.h"
#include "platform/linux/config.h"
#include "platform/route_msg.h"

namespace linuxplat {

// ---- kernel link messages ----------------------------------------------------------

// What the platform keeps of one kernel link.
struct LinkInfo {
    int32_t ifindex = 0;
    std::string name;
    uint8_t mac[6] = {0, 0, 0, 0, 0, 0};
    bool hasMac = false;
    uint16_t arphrd = 0;   // hardware type (ARPHRD_*)
    uint32_t flags = 0;    // IFF_* flags
    int32_t master = 0;    // ifindex of the master (bridge, bond, team), 0 for none
    std::string linkKind;  // IFLA_INFO_KIND: "bridge", "bond", "veth", ... or empty
};

enum class LinkEvent { New, Del };

// Result of walking one read of the kernel's netlink socket.
struct NlWalk {
    bool done = false;       // NLMSG_DONE seen
    int error = 0;           // NLMSG_ERROR seen: its (positive) error number, or -1 for an ack-less error
    bool malformed = false;  // a message or attribute that does not fit or is refused, or a message of
                             // another request; the walk stopped there
    bool interrupted = false;  // the kernel says the dump was interrupted (links changed meanwhile): read again
    size_t links = 0;        // link messages handed to the callback
};

// Walks the netlink messages in `buf` (host byte order, as the kernel writes
// them) with libmnl and hands every RTM_NEWLINK / RTM_DELLINK to `onLink`.
// Never reads outside the `len` bytes. A `seq` or `portid` other than 0
// refuses messages that carry another (those of the kernel's answer to
// another request).
NlWalk rtnlWalk(const uint8_t* buf, size_t len, const std::function<void(LinkEvent, const LinkInfo&)>& onLink,
                uint32_t seq = 0, uint32_t portid = 0);

// Reads one link message body (struct ifinfomsg and its attributes) of
// `len` bytes. False when it does not fit, or when an attribute it uses is
// not what the kernel writes (a name without its NUL or longer than an
// interface name, a master that is not 32 bits, a kind longer than 32).
bool rtnlParseLink(const uint8_t* body, size_t len, LinkInfo& out);

// The request for a dump of every link (RTM_GETLINK), sequence number `seq`.
std::vector<uint8_t> rtnlDumpRequest(uint32_t seq);

// ---- kind, position and flags ------------------------------------------------------------

// Kind of an interface: the port line's, else from what the kernel says
// (Ethernet device 1, bond or team 2, loopback, bridge and the rest 0).
uint32_t ifKind(const LinkInfo& link, const PortSpec* spec);

// Physical position record. The port number is the line's, else the trailing
// digits of the name, else the ifindex.
void ifPhyInfo(const LinkInfo& link, const PortSpec* spec, tZelPhyInfo& out);

// Interface type number (interface attribute 5).
uint32_t ifTypeNumber(const LinkInfo& link, uint32_t kind);

// ---- the table of links --------------------------------------------------------------------

// Everything the platform knows of the links, by ifindex. The resolver gives
// the port line of a name (null for none) and whether a name is excluded.
struct LinkTable {
    std::map<int32_t, LinkInfo> links;
    std::function<const PortSpec*(const std::string&)> portOf = [](const std::string&) { return nullptr; };
    std::function<bool(const std::string&)> excluded = [](const std::string&) { return false; };

    const LinkInfo* find(int32_t ifindex) const;
    // Kind and position, as the daemon is told: an excluded interface is
    // kind 0 with no position.
    uint32_t kindOf(const LinkInfo& link) const;
    void phyInfo(const LinkInfo& link, tZelPhyInfo& out) const;
    bool isAggregate(int32_t ifindex) const;  // kind 2 or 12
    // The flags word (interface attribute 10).
    uint32_t flagsOf(const LinkInfo& link) const;
};

// What applying one kernel event to the table brought about.
struct LinkChange {
    std::vector<std::vector<uint8_t>> messages;  // platform route messages, in order
    bool added = false;    // a link the table did not have
    bool removed = false;  // a link taken out
    bool renamed = false;  // a known link under a new name
    std::string oldName;
};

// Applies a kernel link event to the table and says which platform route
// messages it gives: a new link an RTM_NEWLINK with change mask 0xFFFFFFFF, a
// deleted link an RTM_DELLINK, a link that took an aggregate as its master an
// RTM_NEWLINK with IFLA_PHYJOINAGG, one that left its aggregate one with
// IFLA_PHYQUITAGG. Other changes only update the table.
LinkChange linkApply(LinkTable& table, LinkEvent event, const LinkInfo& link);

// ---- platform route messages ------------------------------------------------------------

// The layout of the messages is platform/route_msg.h.

struct RtAttr {
    uint16_t type;
    std::vector<uint8_t> value;
};

std::vector<uint8_t> rtMsgNewLink(const LinkInfo& link, uint32_t change, const std::vector<RtAttr>& attrs);
std::vector<uint8_t> rtMsgDelLink(const LinkInfo& link);
std::vector<uint8_t> rtMsgResetPort(int32_t ifindex);
// Protocol ids above the bit array are left out.
std::vector<uint8_t> rtMsgResetProto(const std::vector<uint16_t>& protos);

}  // namespace linuxplat
