// Frames for the packet-socket tests: discovery frames built by hand, a raw
// socket of the test on the far end of a veth, and one frame read through
// the platform's packet socket as the daemon reads it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "platform/socket.h"
#include "platform/types.h"

namespace lt {

extern const uint8_t BROADCAST[6];

// An Ethernet frame from `src` to `dst` behind the given (TPID, TCI) tags,
// of Ethernet type `type`, carrying a PADI body, padded to 60 bytes or to
// `size` when larger.
std::vector<uint8_t> discoveryFrame(const uint8_t dst[6], const uint8_t src[6],
                                    const std::vector<std::pair<uint16_t, uint16_t>>& tags, uint16_t type = 0x8863,
                                    size_t size = 60);

// A raw socket of the test bound to `ifName`: it sends whole frames (with an
// 8 MiB send buffer, for bursts) and receives every frame with its VLAN tag
// in the auxiliary data. -1 on failure.
int rawSocket(const char* ifName);
bool rawSend(int fd, const std::vector<uint8_t>& frame);
// The untagged discovery frames from `src` that arrive on raw socket `fd`
// (not sent by it) until none has come for `idleMs`, each as received.
std::vector<std::vector<uint8_t>> recvDiscoveryFrom(int fd, const uint8_t src[6], int idleMs = 700);

// One frame through the platform's socket: its data, address and receive
// record (hasInfo: the record came with it).
struct PlatformFrame {
    int32_t len = -1;
    std::vector<uint8_t> data;
    zel_sockaddr_ll addr{};
    uint32_t controlLen = 0;
    bool hasInfo = false;
    zel_pkt_rxinfo info{};
};

// Waits up to `ms` for the socket, then receives one frame into a 1400-byte
// buffer, as the daemon does. len is -1 when nothing came.
PlatformFrame platformRecv(int32_t fd, int ms = 2000);

// The daemon's packet socket: discovery frames, receive records on, and a
// receive buffer of `rcvbuf` bytes unless 0.
int32_t openPacketSocket(int32_t rcvbuf = 0x100000);

// Switches the trapping of discovery frames on interface `unit` on or off.
void trap(uint32_t unit, bool on);

}  // namespace lt
