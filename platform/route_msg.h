// The platform's route messages, as the route socket delivers them to the
// daemon and as the Linux platform writes them from kernel link events and
// injected events: a 24-byte header (u32 length, u16 type, the rest unread),
// then the fields of the type. Every field is big-endian. Attributes follow
// at RT_OFF_ATTRS, each a u16 length (header included), a u16 type and the
// value, every attribute starting on a multiple of 4.
#pragma once

#include <cstdint>

// Header and fields.
constexpr uint32_t RT_HDR_LEN = 24;
constexpr uint32_t RT_OFF_LEN = 0;        // u32: the message's length, header included
constexpr uint32_t RT_OFF_TYPE = 4;       // u16: the message type
constexpr uint32_t RT_OFF_IFTYPE = 26;    // interface messages: u16 hardware type
constexpr uint32_t RT_OFF_ERRNO = 24;     // RT_MSG_ERROR: error number
constexpr uint32_t RT_OFF_IFINDEX = 28;   // interface messages: the interface unit
constexpr uint32_t RT_OFF_IFFLAGS = 32;   // interface messages: the interface's flags
constexpr uint32_t RT_OFF_CHANGE = 36;    // RT_NEWLINK: change mask
constexpr uint32_t RT_OFF_PROTOS = 36;    // RT_RESETPROTOCONFIG: protocol bit array
constexpr uint32_t RT_OFF_MASTER = 40;    // interface messages: unit of the master, 0 for none
constexpr uint32_t RT_OFF_ATTRS = 48;     // RT_NEWLINK, RT_DELLINK: attributes
constexpr uint32_t RT_PROTO_BYTES = 52;   // bits for protocol ids 0 to 415, most significant first
constexpr uint32_t RT_ATTR_HDR_LEN = 4;   // attribute: u16 length (header included), u16 type
constexpr uint32_t RT_ATTR_OFF_LEN = 0;
constexpr uint32_t RT_ATTR_OFF_TYPE = 2;

// Messages and attributes start on a multiple of 4 bytes: the room that one
// of `len` bytes takes.
constexpr uint32_t rtAlign(uint32_t len) { return (len + 3u) & ~3u; }

// Message types.
constexpr uint16_t RT_MSG_ERROR = 2;
constexpr uint16_t RT_MSG_DONE = 3;
constexpr uint16_t RT_NEWLINK = 0x20;
constexpr uint16_t RT_DELLINK = 0x21;
constexpr uint16_t RT_RESETPORTCONFIG = 0x144;
constexpr uint16_t RT_RESETPROTOCONFIG = 0x168;

// Attribute types.
constexpr uint16_t RT_ATTR_IFNAME = 3;
constexpr uint16_t RT_ATTR_PHYJOINAGG = 0x34;
constexpr uint16_t RT_ATTR_PHYQUITAGG = 0x35;

// Change mask of an RT_NEWLINK that announces a new interface.
constexpr uint32_t RT_CHANGE_NEW = 0xFFFFFFFF;
