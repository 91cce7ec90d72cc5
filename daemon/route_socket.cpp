// The route socket: opened at start-up, read by the worker task under the
// daemon lock. Interface events keep the interface table in step.
#include "daemon/route_socket.h"

#include <cstdio>
#include <cstring>

#include "agent/global.h"
#include "agent/log.h"
#include "iftable/if_entry.h"
#include "mgmt/enable.h"
#include "platform/ifdb.h"
#include "platform/socket.h"
#include "platform/types.h"

// Route traces: sub-module 3, written while debug switch bit 0x4 is on.
#define PPPOEPLUS_ROUTE_LOG(...) PPPOEPLUS_DEBUG_LOG(PPPOEPLUS_DEBUG_EVENT, PPPOEPLUS_SUB_ROUTE, __VA_ARGS__)

int32_t pppoeplusRtSockOpen(void) {
    int32_t fd = zel_socket(ZEL_AF_ROUTE, ZEL_SOCK_DGRAM, 0);
    if (fd < 0) {
        perror("Failed to create route socket for pppoe+!");
        return -1;
    }

    bool failed = false;
    zel_sockaddr_rt addr;
    std::memset(&addr, 0, sizeof(addr));
    addr.rt_family = ZEL_AF_ROUTE;
    if (zel_bind(fd, &addr, sizeof(addr)) != 0) {
        perror("Failed to bind route socket address!");
        failed = true;
    }
    int32_t group = PPPOEPLUS_RT_GROUP;
    if (!failed && zel_setsockopt(fd, ZEL_SOL_ROUTE, ZEL_ADD_MEMBERSHIP, &group, sizeof(group)) != 0) {
        perror("Failed to set ADD_MEMBERSHIP option!");
        failed = true;
    }
    int32_t name = ZEL_PROTO_PPPOEPLUS;
    if (!failed && zel_setsockopt(fd, ZEL_SOL_SOCKET, ZEL_SO_NAME, &name, sizeof(name)) != 0) {
        perror("Failed to set name option!");
        failed = true;
    }
    if (failed) {
        zel_close(fd);
        return -1;
    }
    return fd;
}

// One message of a read: its bytes and its length. Fields are read only
// inside the message; a field that lies beyond its end reads as zero, as if
// the message had been padded with zeros.
struct tPppoeplusRtMsg {
    const uint8_t* data;
    uint32_t len;
};

static uint8_t pppoeplusRtByte(const tPppoeplusRtMsg& msg, uint32_t off) { return off < msg.len ? msg.data[off] : 0; }

static uint16_t pppoeplusRtU16(const tPppoeplusRtMsg& msg, uint32_t off) {
    return static_cast<uint16_t>((pppoeplusRtByte(msg, off) << 8) | pppoeplusRtByte(msg, off + 1));
}

static uint32_t pppoeplusRtU32(const tPppoeplusRtMsg& msg, uint32_t off) {
    return (static_cast<uint32_t>(pppoeplusRtByte(msg, off)) << 24) |
           (static_cast<uint32_t>(pppoeplusRtByte(msg, off + 1)) << 16) |
           (static_cast<uint32_t>(pppoeplusRtByte(msg, off + 2)) << 8) | pppoeplusRtByte(msg, off + 3);
}

static bool pppoeplusAllPortServed(void) {
    return pppoeplusEnableGet() == ZEL_TRUE && pppoeplusAllPortEnableGet() == ZEL_TRUE;
}

static bool pppoeplusRtNewIfEligible(uint32_t unit, uint32_t ondType) {
    uint32_t flags = 0;
    switch (ondType) {
        case ZEL_OND_ETH_AGG:  // an aggregate with members
            return zelIfGetApi(unit, ZEL_IF_ATTR_FLAGS, &flags) == 0 && (flags & ZEL_IF_FLAG_AGG_EMPTY) == 0;
        case ZEL_OND_ETH:  // a port that is not part of an aggregate
            return zelIfGetApi(unit, ZEL_IF_ATTR_FLAGS, &flags) == 0 && (flags & ZEL_IF_FLAG_AGG_MEMBER) == 0;
        default:
            return true;
    }
}

// RT_NEWLINK. Returns false when an invalid attribute ends the read.
static bool pppoeplusRtNewLink(const tPppoeplusRtMsg& msg) {
    uint32_t unit = pppoeplusRtU32(msg, RT_OFF_IFINDEX);
    tZelPhyInfo phyInfo;
    std::memset(&phyInfo, 0, sizeof(phyInfo));
    if (zelIndexTrans(unit, ZEL_INDEX_TRANS_PHYINFO, &phyInfo) != 0) return true;
    if (!pppoeplusIfKindAdmitted(phyInfo.ondType)) return true;
    tPppoePlusIfEntry* entry = pppoeplusIfEntryGet(unit);

    if (pppoeplusRtU32(msg, RT_OFF_CHANGE) == RT_CHANGE_NEW) {
        if (entry == nullptr && pppoeplusAllPortServed() && pppoeplusRtNewIfEligible(unit, phyInfo.ondType))
            (void)pppoeplusIfEntryAdd(unit, ZEL_TRUE);
        return true;
    }

    // Every attribute of the message is judged against the entry looked up
    // above. Once a join has deleted it, it counts as still present for the
    // rest of the message but is never touched again.
    bool entryDeleted = false;
    int64_t remaining = static_cast<int64_t>(msg.len) - RT_OFF_ATTRS;
    uint32_t off = RT_OFF_ATTRS;
    while (remaining >= RT_ATTR_HDR_LEN) {
        uint16_t attrLen = pppoeplusRtU16(msg, off + RT_ATTR_OFF_LEN);
        uint16_t attrType = pppoeplusRtU16(msg, off + RT_ATTR_OFF_TYPE);
        if (attrLen < RT_ATTR_HDR_LEN || attrLen > remaining) return false;
        if (attrType == RT_ATTR_PHYJOINAGG) {
            PPPOEPLUS_ROUTE_LOG("Reveive IFLA_PHYJOINAGG message: ifindex %d.\r\n", static_cast<int32_t>(unit));
            // The port is served through its aggregate from now on.
            if (entry != nullptr && !entryDeleted) {
                (void)pppoeplusIfEntryDelete(entry);
                entryDeleted = true;
            }
        } else if (attrType == RT_ATTR_PHYQUITAGG) {
            PPPOEPLUS_ROUTE_LOG("Reveive IFLA_PHYQUITAGG message: ifindex %d.\r\n", static_cast<int32_t>(unit));
            if (entry == nullptr && pppoeplusAllPortServed()) (void)pppoeplusIfEntryAdd(unit, ZEL_TRUE);
        }
        uint32_t step = rtAlign(attrLen);
        off += step;
        remaining -= step;
    }
    return true;
}

static void pppoeplusRtResetPortConfig(const tPppoeplusRtMsg& msg) {
    uint32_t unit = pppoeplusRtU32(msg, RT_OFF_IFINDEX);
    PPPOEPLUS_ROUTE_LOG("Reveive RTM_RESETPORTCONFIG message: ifindex %d.\r\n", static_cast<int32_t>(unit));
    tPppoePlusIfEntry* entry = pppoeplusIfEntryGet(unit);
    if (entry == nullptr) return;
    if (pppoeplusIfProtoDfltEnableGet(entry) == ZEL_TRUE) {
        // The port is on by default: it stays, with factory settings.
        PPPOEPLUS_ROUTE_LOG("just clear non-default configuration and statistics.\r\n");
        (void)pppoeplusIfEntryResetConfig(entry);
        pppoeplusIfEntryCountersClear(entry);
    } else {
        PPPOEPLUS_ROUTE_LOG("delete if entry.\r\n");
        (void)pppoeplusIfEntryDelete(entry);
    }
}

// Bit `proto` of the protocol bit array: byte proto / 8, most significant bit
// first.
static bool pppoeplusRtProtoBit(const tPppoeplusRtMsg& msg, uint32_t proto) {
    uint8_t byte = pppoeplusRtByte(msg, RT_OFF_PROTOS + proto / 8);
    return (byte & (0x80u >> (proto % 8))) != 0;
}

void pppoeplusRtMsgHandle(const uint8_t* buf, uint32_t count) {
    if (buf == nullptr) return;
    int64_t remaining = count;
    uint32_t off = 0;
    while (remaining >= RT_HDR_LEN) {
        tPppoeplusRtMsg msg{buf + off, static_cast<uint32_t>(remaining)};
        uint32_t len = pppoeplusRtU32(msg, RT_OFF_LEN);
        if (len < RT_HDR_LEN || len > remaining) return;
        msg.len = len;
        uint16_t type = pppoeplusRtU16(msg, RT_OFF_TYPE);
        PPPOEPLUS_ROUTE_LOG("Reveive a route message: type 0x%0x.\r\n", type);

        switch (type) {
            case RT_MSG_DONE:
                return;
            case RT_MSG_ERROR:
                PPPOEPLUS_DEBUG_LOG(PPPOEPLUS_DEBUG_ERROR, PPPOEPLUS_SUB_ROUTE, "Route message ERROR: %s.\r\n",
                                    strerror(static_cast<int32_t>(pppoeplusRtU32(msg, RT_OFF_ERRNO))));
                return;
            case RT_DELLINK: {
                uint32_t unit = pppoeplusRtU32(msg, RT_OFF_IFINDEX);
                PPPOEPLUS_ROUTE_LOG("Reveive RTM_DELLINK message: ifindex %d.\r\n", static_cast<int32_t>(unit));
                tPppoePlusIfEntry* entry = pppoeplusIfEntryGet(unit);
                if (entry != nullptr) (void)pppoeplusIfEntryDelete(entry);
                break;
            }
            case RT_NEWLINK:
                if (!pppoeplusRtNewLink(msg)) return;
                break;
            case RT_RESETPORTCONFIG:
                pppoeplusRtResetPortConfig(msg);
                break;
            case RT_RESETPROTOCONFIG:
                if (pppoeplusRtProtoBit(msg, ZEL_PROTO_PPPOEPLUS)) pppoeplusResetConfig();
                break;
            default:
                break;
        }

        uint32_t step = rtAlign(len);
        off += step;
        remaining -= step;
    }
}

void pppoeplusRtSockRecv(void) {
    uint8_t buf[PPPOEPLUS_RT_BUF_LEN];
    std::memset(buf, 0, sizeof(buf));
    int32_t count = zel_recv(gPppoeplus.rtSockFd, buf, sizeof(buf), 0);
    if (count <= 0) return;
    PPPOEPLUS_ROUTE_LOG("Receive route message, length %d.\r\n", count);
    // A platform that claims more than the buffer holds is not believed.
    pppoeplusRtMsgHandle(buf, static_cast<uint32_t>(count) < sizeof(buf) ? static_cast<uint32_t>(count)
                                                                           : static_cast<uint32_t>(sizeof(buf)));
}
