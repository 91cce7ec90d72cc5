// Pure pieces of the packet socket: the kernel filter that keeps discovery
// frames, reading a received Ethernet frame and its VLAN tags into the
// receive information record, and building the Ethernet header and tags of a
// frame to send from the send information record.
#pragma once

#include <linux/filter.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/socket.h"

namespace linuxplat {

constexpr uint16_t ETH_TYPE_PPPOE_DISC = 0x8863;
constexpr uint16_t ETH_TYPE_8021Q = 0x8100;
constexpr uint16_t ETH_TYPE_8021AD = 0x88a8;
constexpr uint16_t ETH_TYPE_QINQ_OLD = 0x9100;
constexpr size_t ETH_HDR_LEN = 14;
constexpr size_t VLAN_TAG_LEN = 4;
constexpr size_t MAX_VLAN_TAGS = 2;
// Largest Ethernet header the platform builds: addresses, two tags, type.
constexpr size_t MAX_TX_HDR_LEN = ETH_HDR_LEN + MAX_VLAN_TAGS * VLAN_TAG_LEN;

// True for the tag protocol identifiers read as VLAN tags.
bool pktIsVlanTpid(uint16_t tpid);

// Classic BPF: accept frames that are not the host's own outgoing copies and
// carry Ethernet type 0x8863 behind 0, 1 or 2 VLAN tags in the data (an outer
// tag the driver has already taken out of the data is not seen here).
std::vector<struct sock_filter> pktFilterProgram();

// A VLAN tag the kernel reported beside the frame (PACKET_AUXDATA).
struct AuxTag {
    bool valid = false;
    uint16_t tpid = 0;
    uint16_t tci = 0;
};

// A received frame as the daemon is told of it.
struct RxFrame {
    uint8_t dst[6];
    uint8_t src[6];
    uint8_t vlanCount;
    uint16_t outerTpid, outerVid;
    uint8_t outerPri;
    uint16_t innerTpid, innerVid;
    uint8_t innerPri;
    size_t payloadOffset;  // the PPPoE header starts here
};

// Reads an Ethernet frame (from the destination address on) and the tag the
// kernel kept beside it. False when it is not a discovery frame behind at
// most two tags, or too short for its headers.
bool pktParseRx(const uint8_t* frame, size_t len, const AuxTag& aux, RxFrame& out);

// The receive information record of a frame received on `ifUnit`.
void pktFillRxInfo(const RxFrame& frame, uint32_t ifUnit, zel_pkt_rxinfo& out);

// Tag protocol identifiers of frames sent: one tag, and the outer and inner
// of two.
struct TxTpids {
    uint16_t single = ETH_TYPE_8021Q;
    uint16_t outer = ETH_TYPE_8021AD;
    uint16_t inner = ETH_TYPE_8021Q;
};

// Writes the Ethernet header of a frame to `dst` from `src` with the tags of
// `tx` (may be null: no tags) into `out` (at least MAX_TX_HDR_LEN bytes). The
// source address is the record's when its flag says so, else `ifMac`.
// Returns the header length.
size_t pktBuildTxHeader(const uint8_t dst[6], const uint8_t ifMac[6], const zel_pkt_txinfo* tx, uint16_t etherType,
                        const TxTpids& tpids, uint8_t* out);

// Finds the send information record in a control buffer of `len` bytes laid
// out as the platform's control messages and copies it to `out`. False when
// there is none that fits.
bool pktFindTxInfo(const void* control, size_t len, zel_pkt_txinfo& out);

}  // namespace linuxplat
