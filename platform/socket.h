// Socket wrappers with the platform's own constants and record layouts. The
// daemon never sees the host's socket headers: the layouts below are the
// platform's, and each platform translates them to what it runs on.
#pragma once

#include <cstddef>
#include <cstdint>

// Domains, types and protocols.
constexpr int32_t ZEL_AF_ROUTE = 16;
constexpr int32_t ZEL_AF_PACKET = 17;
constexpr int32_t ZEL_SOCK_DGRAM = 2;
constexpr int32_t ZEL_ETH_P_PPPOE_DISC = 0x8863;

// Option levels and options.
constexpr int32_t ZEL_SOL_SOCKET = 0xFFFF;
constexpr int32_t ZEL_SO_RCVBUF = 0x1002;
constexpr int32_t ZEL_SO_NAME = 0x1019;
constexpr int32_t ZEL_SOL_PACKET = 263;
constexpr int32_t ZEL_RX_PKTINFO = 20;  // option and control-message type: receive information
constexpr int32_t ZEL_TX_PKTINFO = 21;  // control-message type: send information
constexpr int32_t ZEL_SOL_ROUTE = 270;
constexpr int32_t ZEL_ADD_MEMBERSHIP = 1;

// Send flag that the packet path passes with every frame.
constexpr int32_t ZEL_MSG_PKTINFO = 0x20000;

// ---- descriptor sets and time-outs ----------------------------------------

constexpr int32_t ZEL_FD_SETSIZE = 1024;

struct zel_fd_set {
    uint32_t bits[ZEL_FD_SETSIZE / 32];
};

inline void ZEL_FD_ZERO(zel_fd_set* set) {
    for (uint32_t& w : set->bits) w = 0;
}
inline void ZEL_FD_SET(int32_t fd, zel_fd_set* set) {
    if (fd >= 0 && fd < ZEL_FD_SETSIZE) set->bits[fd / 32] |= 1u << (fd % 32);
}
inline bool ZEL_FD_ISSET(int32_t fd, const zel_fd_set* set) {
    return fd >= 0 && fd < ZEL_FD_SETSIZE && (set->bits[fd / 32] & (1u << (fd % 32))) != 0;
}

struct zel_timeval {
    int64_t tv_sec;
    int64_t tv_usec;
};

// ---- addresses ------------------------------------------------------------

// Link-level address of the packet socket (20 bytes).
struct zel_sockaddr_ll {
    uint16_t sll_family;
    uint16_t sll_protocol;  // network byte order
    int32_t sll_ifindex;    // the platform interface unit
    uint16_t sll_hatype;
    uint8_t sll_pkttype;
    uint8_t sll_halen;
    uint8_t sll_addr[8];
};
static_assert(sizeof(zel_sockaddr_ll) == 20);

// Route-socket local address (12 bytes): byte 1 is the family.
struct zel_sockaddr_rt {
    uint8_t rt_len;
    uint8_t rt_family;
    uint16_t rt_pad;
    uint32_t rt_pid;
    uint32_t rt_groups;
};
static_assert(sizeof(zel_sockaddr_rt) == 12);

// ---- message headers --------------------------------------------------------

struct zel_iovec {
    void* iov_base;
    size_t iov_len;
};

struct zel_msghdr {
    void* msg_name;
    uint32_t msg_namelen;
    zel_iovec* msg_iov;
    uint32_t msg_iovlen;
    void* msg_control;
    uint32_t msg_controllen;
    int32_t msg_flags;
};

// A message record of one buffer: `iov` (the caller's, kept alive with the
// record) set to `data`/`len`, the address area `name`/`nameLen`, the control
// area `control`/`controlLen`; flags zero.
inline zel_msghdr zelMsgOne(zel_iovec* iov, void* data, size_t len, void* name, uint32_t nameLen, void* control,
                            uint32_t controlLen) {
    *iov = zel_iovec{data, len};
    return zel_msghdr{name, nameLen, iov, 1, control, controlLen, 0};
}

// Control-message header: 12 bytes, messages aligned to 4 bytes.
struct zel_cmsghdr {
    uint32_t cmsg_len;  // header plus data
    int32_t cmsg_level;
    int32_t cmsg_type;
};
static_assert(sizeof(zel_cmsghdr) == 12);

constexpr uint32_t ZEL_CMSG_ALIGN(uint32_t len) { return (len + 3u) & ~3u; }
constexpr uint32_t ZEL_CMSG_HDRLEN = sizeof(zel_cmsghdr);
constexpr uint32_t ZEL_CMSG_LEN(uint32_t dataLen) { return ZEL_CMSG_HDRLEN + dataLen; }
inline unsigned char* ZEL_CMSG_DATA(zel_cmsghdr* c) { return reinterpret_cast<unsigned char*>(c) + ZEL_CMSG_HDRLEN; }
inline const unsigned char* ZEL_CMSG_DATA(const zel_cmsghdr* c) {
    return reinterpret_cast<const unsigned char*>(c) + ZEL_CMSG_HDRLEN;
}

// ---- packet information records ---------------------------------------------

// Receive information (level ZEL_SOL_PACKET, type ZEL_RX_PKTINFO). Multi-byte
// members in host order.
struct zel_pkt_rxinfo {
    uint32_t ifUnit;        // 0-3
    uint8_t srcMac[6];      // 4-9
    uint16_t etherType;     // 10-11
    uint16_t outerVid;      // 12-13
    uint16_t innerVid;      // 14-15
    uint8_t vlanCount;      // 16
    uint8_t outerPri;       // 17
    uint8_t innerPri;       // 18
    uint8_t onuPresent;     // 19: non-zero when onuInfo is filled
    uint8_t onuInfo[16];    // 20-35: ONU identity block
    uint16_t outerTpid;     // 36-37
    uint16_t innerTpid;     // 38-39
    uint8_t reserved[12];   // 40-51
    uint32_t flags;         // 52-55
    uint8_t dstMac[6];      // 56-61
    uint8_t reserved2[2];   // 62-63
};
static_assert(sizeof(zel_pkt_rxinfo) == 64);
static_assert(offsetof(zel_pkt_rxinfo, srcMac) == 4);
static_assert(offsetof(zel_pkt_rxinfo, outerVid) == 12);
static_assert(offsetof(zel_pkt_rxinfo, innerVid) == 14);
static_assert(offsetof(zel_pkt_rxinfo, outerPri) == 17);
static_assert(offsetof(zel_pkt_rxinfo, innerPri) == 18);
static_assert(offsetof(zel_pkt_rxinfo, onuPresent) == 19);
static_assert(offsetof(zel_pkt_rxinfo, onuInfo) == 20);
static_assert(offsetof(zel_pkt_rxinfo, flags) == 52);
static_assert(offsetof(zel_pkt_rxinfo, dstMac) == 56);

constexpr uint32_t ZEL_RXINFO_ONU_VALID = 0x40;

// Send information (level ZEL_SOL_PACKET, type ZEL_TX_PKTINFO): 104 bytes.
struct zel_pkt_txinfo {
    uint32_t flags;        // 0-3
    uint16_t outerVid;     // 4-5
    uint16_t innerVid;     // 6-7
    uint8_t outerPri;      // 8
    uint8_t innerPri;      // 9
    uint16_t reserved0;    // 10-11
    uint32_t queue;        // 12-15: transmit queue, 0 = default
    uint32_t reserved1;    // 16-19
    uint8_t srcMac[6];     // 20-25
    uint8_t reserved2[78]; // 26-103
};
static_assert(sizeof(zel_pkt_txinfo) == 104);
static_assert(offsetof(zel_pkt_txinfo, outerVid) == 4);
static_assert(offsetof(zel_pkt_txinfo, innerVid) == 6);
static_assert(offsetof(zel_pkt_txinfo, outerPri) == 8);
static_assert(offsetof(zel_pkt_txinfo, innerPri) == 9);
static_assert(offsetof(zel_pkt_txinfo, queue) == 12);
static_assert(offsetof(zel_pkt_txinfo, srcMac) == 20);

// Flags of the send information.
constexpr uint32_t ZEL_TXINFO_QUEUE = 0x1;
constexpr uint32_t ZEL_TXINFO_SRC_MAC = 0x8;
constexpr uint32_t ZEL_TXINFO_OUTER_VID = 0x10;
constexpr uint32_t ZEL_TXINFO_INNER_VID = 0x20;
constexpr uint32_t ZEL_TXINFO_OUTER_PRI = 0x100;
constexpr uint32_t ZEL_TXINFO_INNER_PRI = 0x200;

// ---- calls ----------------------------------------------------------------

int32_t zel_socket(int32_t domain, int32_t type, int32_t protocol);
int32_t zel_bind(int32_t fd, const void* addr, uint32_t addrLen);
int32_t zel_setsockopt(int32_t fd, int32_t level, int32_t option, const void* value, uint32_t valueLen);
// Waits until a descriptor of `readSet` is readable or the time-out passes.
// Returns the number of ready descriptors (the set then holds only those),
// 0 on time-out, negative on error.
int32_t zel_select(int32_t nfds, zel_fd_set* readSet, zel_fd_set* writeSet, zel_fd_set* exceptSet,
                   zel_timeval* timeout);
int32_t zel_recv(int32_t fd, void* buf, uint32_t len, int32_t flags);
int32_t zel_recvmsg(int32_t fd, zel_msghdr* msg, int32_t flags);
int32_t zel_sendmsg(int32_t fd, const zel_msghdr* msg, int32_t flags);
int32_t zel_close(int32_t fd);
// The error number of the calling thread's last failed call.
int32_t errnoGet(void);
