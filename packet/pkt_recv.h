// The receive path: one trapped discovery frame per call, validated, counted,
// given the agent's Vendor-Specific tag by policy when it comes from a client,
// and sent out of every trusted interface.
#pragma once

#include <cstdint>

#include "iftable/if_entry.h"
#include "packet/pkt_parse.h"

// The receive buffer: 1400 bytes for the frame, followed by zeroed slack
// that is never received into, so that a 4-byte tag header read at any
// offset inside the frame stays inside the buffer and reads zeros past it.
constexpr uint32_t PPPOEPLUS_PKT_BUF_LEN = 1400;
constexpr uint32_t PPPOEPLUS_PKT_BUF_SLACK = 16;
constexpr uint32_t PPPOEPLUS_PKT_CTRL_LEN = 128;

// Sizes of the send control information: one message of a 12-byte header
// and the 104-byte send information record.
constexpr uint32_t PPPOEPLUS_PKT_TXINFO_CMSG_LEN = 116;

// Test switch of the diagnostics: not zero, every frame that passes the
// interface gate is sent on unchanged, without validation, counting or tag
// handling. 0 at start.
extern "C" uint32_t gPppoeplusTestForward;

// Reads at most one frame from the packet socket and handles it.
void pppoeplusPktRecv(void);

// Applies the Vendor-Specific tag policy to a validated client frame (PADI,
// PADR, PADT) and sends it unless the policy says not to or the tag could not
// be inserted or dropped.
void pppoeplusClientPktRecv(tPppoePlusIfEntry* entry, tPppoePlusPkt* pkt);

// Sends the frame of `pkt` out of every trusted interface but `entry`, with
// the client's source address, the received destination address and the
// received VLAN ids and priorities. Counts totalSend and errorSend on each.
void pppoeplusSend(tPppoePlusIfEntry* entry, tPppoePlusPkt* pkt);
