// The route socket through which the platform announces interface changes.
#pragma once

#include <cstdint>

constexpr uint32_t PPPOEPLUS_RT_BUF_LEN = 3840;
constexpr int32_t PPPOEPLUS_RT_GROUP = 1;

// Route messages: a 24-byte header (u32 length, u16 type, the rest unread),
// then the type's fields; all fields big-endian.
constexpr uint32_t PPPOEPLUS_RT_HDR_LEN = 24;
constexpr uint32_t PPPOEPLUS_RT_OFF_ERRNO = 24;    // NLMSG_ERROR: error number
constexpr uint32_t PPPOEPLUS_RT_OFF_IFINDEX = 28;  // interface messages: the interface unit
constexpr uint32_t PPPOEPLUS_RT_OFF_CHANGE = 36;   // RTM_NEWLINK: change mask
constexpr uint32_t PPPOEPLUS_RT_OFF_PROTOS = 36;   // RTM_RESETPROTOCONFIG: protocol bit array
constexpr uint32_t PPPOEPLUS_RT_OFF_ATTRS = 48;    // RTM_NEWLINK: attributes
constexpr uint32_t PPPOEPLUS_RTA_HDR_LEN = 4;      // attribute: u16 length, u16 type

constexpr uint16_t NLMSG_ERROR = 2;
constexpr uint16_t NLMSG_DONE = 3;
constexpr uint16_t RTM_NEWLINK = 0x20;
constexpr uint16_t RTM_DELLINK = 0x21;
constexpr uint16_t RTM_RESETPORTCONFIG = 0x144;
constexpr uint16_t RTM_RESETPROTOCONFIG = 0x168;
constexpr uint16_t IFLA_PHYJOINAGG = 0x34;
constexpr uint16_t IFLA_PHYQUITAGG = 0x35;

// Change mask of an RTM_NEWLINK that announces a new interface.
constexpr uint32_t PPPOEPLUS_RT_CHANGE_NEW = 0xFFFFFFFF;

// Opens, binds and names the route socket. The descriptor, or -1.
int32_t pppoeplusRtSockOpen(void);

// Reads the route socket once and handles every message of the read.
void pppoeplusRtSockRecv(void);

// Handles the messages in the first `count` bytes of `buf`, in order. Stops
// at a message shorter than its header or longer than what is left, at
// NLMSG_DONE and NLMSG_ERROR, and at an attribute that does not fit its
// message. Never reads outside the `count` bytes.
void pppoeplusRtMsgHandle(const uint8_t* buf, uint32_t count);
