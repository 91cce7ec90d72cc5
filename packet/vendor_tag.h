// The Vendor-Specific tag (0x0105) that identifies the subscriber line to the
// access concentrator: building the agent's own tag, inserting it into a
// client frame and removing the tag a client frame carries.
//
// The tag as written (big-endian):
//   0-1   type 0x0105
//   2-3   tag length: bytes behind the length field
//   4-7   vendor id (gPppoeplus.vendorId)
//   8     1, Circuit-ID
//   9     Circuit-ID length, low 8 bits
//   10 on Circuit-ID
//   then  2, Remote-ID, its length (low 8 bits) and the Remote-ID; only on
//         a port that does not face a PON line
#pragma once

#include <cstdint>

#include "iftable/if_entry.h"
#include "packet/pkt_parse.h"

// Size of the area a tag is built in.
constexpr uint32_t PPPOEPLUS_VS_TAG_BUF_LEN = 512;
// Largest frame after an insertion: the receive buffer's size.
constexpr uint32_t PPPOEPLUS_PKT_MAX_LEN = 1400;
// Result of a failed insertion or drop.
constexpr uint32_t PPPOEPLUS_VS_TAG_FAIL = 0xFFFFFFFFu;

// Sub-option codes.
constexpr uint8_t PPPOEPLUS_SUBOPT_CIRCUIT_ID = 1;
constexpr uint8_t PPPOEPLUS_SUBOPT_REMOTE_ID = 2;

// Builds the agent's tag for the frame `pkt` received on `entry` into `buf`
// (`capacity` bytes, zeroed by the caller) and returns its size. An empty
// Circuit-ID gives the 10 bytes 01 05 00 04, the vendor id, 01 00 (the tag
// length covers the vendor id only); a non-empty Circuit-ID with an empty
// Remote-ID gives Circuit-ID length + 12 bytes and leaves the tag length
// field as it was (zero). A Circuit-ID that leaves no room for the Remote-ID
// sub-option header gives Circuit-ID length + 12 too, more than `capacity`,
// with nothing written past the Circuit-ID. 0 only for a null argument or a
// capacity below 10.
uint32_t pppoePlusVendorSpecTagBuild(tPppoePlusIfEntry* entry, tPppoePlusPkt* pkt, uint8_t* buf, uint32_t capacity);

// Inserts the agent's tag before the End-of-List tag (which is written again
// behind it) or, without one, at the end of the validated payload. Adds its
// size to len and to the payload length of the header; pppoeLen and eolTag
// stay. Returns the size, or PPPOEPLUS_VS_TAG_FAIL with the frame unchanged
// when the tag is empty or above 512 bytes, the frame would exceed 1400
// bytes, or the record points outside its buffer.
uint32_t pppoeplusVendorSpecTagInsert(tPppoePlusIfEntry* entry, tPppoePlusPkt* pkt);

// Removes the recorded Vendor-Specific tag: the bytes behind it move onto it
// and its size comes off len, pppoeLen, the header's payload length and
// eolTag; vsTag stays, the freed bytes at the end are not cleared. Returns 0,
// or PPPOEPLUS_VS_TAG_FAIL with nothing changed when the tag does not fit in
// the held frame or the record is otherwise inconsistent. `entry` is not read.
uint32_t pppoeplusVendorSpecTagDrop(tPppoePlusIfEntry* entry, tPppoePlusPkt* pkt);
