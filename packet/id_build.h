// Building the bytes of a Circuit-ID or Remote-ID for one received frame from
// the format that applies to the receiving port.
//
// The format is the entry's own when its type is not DEFAULT, else the global
// one (for a PON port's Circuit-ID the global PON Circuit-ID format). An ASCII
// ("type 2") format is copied as it stands; any other type is interpreted: it
// is a sequence of ASCII segments (quoted, keywords rendered as text) and hex
// segments (numbers and keywords packed big-endian), see format_check.h.
//
// Output is never NUL-terminated and always bounded by the capacity given;
// besides, every segment's expansion is stopped before its keyword values
// take it to 256 bytes.
#pragma once

#include <cstdint>

#include "iftable/if_entry.h"
#include "packet/pkt_parse.h"
#include "platform/ifdb.h"

// Which text to build.
constexpr uint32_t PPPOEPLUS_BUILD_CIRCUIT_ID = 1;
constexpr uint32_t PPPOEPLUS_BUILD_REMOTE_ID = 2;

// Bound of one segment's expansion and size of the scratch areas.
constexpr uint32_t PPPOEPLUS_BUILD_SEGMENT_LIMIT = 256;

// Builds text `which` (1 Circuit-ID, 2 Remote-ID) for the frame `pkt`
// received on `ifEntry` into `buf` (`capacity` bytes). Refreshes the entry's
// cached port-index record from the platform first (the cached copy is used
// when the platform does not answer). Returns the bytes written; 0 on any
// failure, a null argument, an unknown `which`, an empty format ("Format
// length is zero!"), an ASCII format that does not fit ("Circuit-id/remote-id
// is too long!") or a segment that yields nothing.
uint32_t pppoeplusBuildFormat(tPppoePlusIfEntry* ifEntry, const tPppoePlusPkt* pkt, uint8_t* buf,
                              uint32_t capacity, uint32_t which);

// Expands one ASCII segment (quotes included, `segmentLen` bytes, read up to a
// NUL) at `out`, where `room` bytes are free. `formatType` is the type of the
// format the segment belongs to. Returns the bytes written, or -1 for a null
// argument or a literal character without room.
int32_t pppoeplusBuildAsciiFormat(tPppoePlusIfEntry* ifEntry, const tPppoePlusPkt* pkt, const tZelPhyInfo* portIndex,
                                  uint32_t formatType, const char* segment, uint32_t segmentLen, uint8_t* out,
                                  uint32_t room);

// Expands one hex segment (`segmentLen` bytes, read up to a NUL) at `out`,
// where `room` bytes are free. Returns the bytes written, or -1 for a null
// argument.
int32_t pppoeplusBuildHexFormat(tPppoePlusIfEntry* ifEntry, const tPppoePlusPkt* pkt, const tZelPhyInfo* portIndex,
                                const char* segment, uint32_t segmentLen, uint8_t* out, uint32_t room);

// Copies `count` bits from `src` to `dst`, most significant first. `dstBit`
// and `srcBit` (1 to 8, 8 the top bit) say where in the first byte to start;
// after bit 1 the next byte is entered at bit 8. Nothing happens for a null
// pointer or a start bit of 0 or above 8.
void pppoeplusCopyDataByBits(uint8_t* dst, uint32_t dstBit, const uint8_t* src, uint32_t srcBit, uint32_t count);
