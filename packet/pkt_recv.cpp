// The receive path: receive, decide and send.
#include "packet/pkt_recv.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "agent/global.h"
#include "agent/log.h"
#include "iftable/trust_list.h"
#include "packet/pkt_log.h"
#include "packet/vendor_tag.h"
#include "platform/ifdb.h"
#include "platform/socket.h"
#include "platform/types.h"

extern "C" {
uint32_t gPppoeplusTestForward = 0;
}

namespace {

constexpr char PPPOEPLUS_MAC_FMT[] = "%02x:%02x:%02x:%02x:%02x:%02x";
constexpr uint32_t PPPOEPLUS_MAC_TEXT_LEN = 18;

void pppoeplusMacText(const uint8_t* mac, char* text) {
    std::snprintf(text, PPPOEPLUS_MAC_TEXT_LEN, PPPOEPLUS_MAC_FMT, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

// The first control message of level `level` and type `type` in the
// `controlLen` bytes at `control`, walked the standard way: none when a
// 12-byte header does not fit, each next one at its length rounded up to 4.
const zel_cmsghdr* pppoeplusCmsgFind(const uint8_t* control, uint32_t controlLen, int32_t level, int32_t type) {
    uint32_t at = 0;
    while (controlLen >= ZEL_CMSG_HDRLEN && at <= controlLen - ZEL_CMSG_HDRLEN) {
        const auto* c = reinterpret_cast<const zel_cmsghdr*>(control + at);
        if (c->cmsg_level == level && c->cmsg_type == type) return c;
        // A length below the header's own would never move on.
        if (c->cmsg_len < ZEL_CMSG_HDRLEN) return nullptr;
        const uint64_t next = static_cast<uint64_t>(at) + ZEL_CMSG_ALIGN(c->cmsg_len);
        if (next > controlLen) return nullptr;
        at = static_cast<uint32_t>(next);
    }
    return nullptr;
}

}  // namespace

void pppoeplusSend(tPppoePlusIfEntry* entry, tPppoePlusPkt* pkt) {
    if (entry == nullptr || pkt == nullptr) return;

    if (pppoeplusDebugOn(PPPOEPLUS_DEBUG_EVENT)) {
        char dst[PPPOEPLUS_MAC_TEXT_LEN];
        pppoeplusMacText(pkt->dstMac, dst);
        PPPOEPLUS_SEND_LOG(PPPOEPLUS_DEBUG_EVENT,
                           "Send packet to %s, length %d, innerVid %d, outerVid %d, innerPri %d, outerPri %d.\r\n", dst,
                           pkt->len, pkt->innerVid, pkt->outerVid, pkt->innerPri, pkt->outerPri);
    }
    if (pppoeplusDebugOn(PPPOEPLUS_DEBUG_PKT_DUMP)) pppoeplusPktShow(pkt->data, pkt->len, PPPOEPLUS_SUB_SEND);

    // Address: the destination interface (set per uplink below) and the
    // received destination MAC.
    zel_sockaddr_ll addr;
    std::memset(&addr, 0, sizeof(addr));
    addr.sll_family = static_cast<uint16_t>(ZEL_AF_PACKET);
    const uint8_t protocol[2] = {static_cast<uint8_t>(ZEL_ETH_P_PPPOE_DISC >> 8),
                                 static_cast<uint8_t>(ZEL_ETH_P_PPPOE_DISC & 0xFF)};
    std::memcpy(&addr.sll_protocol, protocol, sizeof(protocol));  // network byte order
    addr.sll_halen = 6;
    std::memcpy(addr.sll_addr, pkt->dstMac, 6);

    // Send information: the client's source MAC and the received VLAN tags.
    alignas(zel_cmsghdr) uint8_t control[PPPOEPLUS_PKT_CTRL_LEN];
    std::memset(control, 0, sizeof(control));
    auto* cmsg = reinterpret_cast<zel_cmsghdr*>(control);
    cmsg->cmsg_len = PPPOEPLUS_PKT_TXINFO_CMSG_LEN;
    cmsg->cmsg_level = ZEL_SOL_PACKET;
    cmsg->cmsg_type = ZEL_TX_PKTINFO;
    zel_pkt_txinfo txInfo;
    std::memset(&txInfo, 0, sizeof(txInfo));
    txInfo.flags = ZEL_TXINFO_QUEUE | ZEL_TXINFO_SRC_MAC;
    txInfo.queue = 0;
    std::memcpy(txInfo.srcMac, pkt->srcMac, 6);
    if (pkt->innerVid != 0) {
        txInfo.innerVid = pkt->innerVid;
        txInfo.innerPri = pkt->innerPri;
        txInfo.flags |= ZEL_TXINFO_INNER_VID | ZEL_TXINFO_INNER_PRI;
    }

    zel_iovec iov;
    const zel_msghdr msg =
        zelMsgOne(&iov, pkt->data, pkt->len, &addr, sizeof(addr), control, PPPOEPLUS_PKT_TXINFO_CMSG_LEN);

    for (tPppoePlusIfEntry* uplink = pppoeplusTrustIfEntryFirst(); uplink != nullptr;
         uplink = pppoeplusTrustIfEntryNext(uplink)) {
        if (uplink == entry) continue;
        txInfo.flags &= ~ZEL_TXINFO_OUTER_VID;
        if (pkt->outerVid != 0) {
            txInfo.outerVid = pkt->outerVid;
            txInfo.outerPri = pkt->outerPri;
            txInfo.flags |= ZEL_TXINFO_OUTER_VID | ZEL_TXINFO_OUTER_PRI;
        }
        std::memcpy(ZEL_CMSG_DATA(cmsg), &txInfo, sizeof(txInfo));
        addr.sll_ifindex = static_cast<int32_t>(uplink->ifUnit);
        if (pppoeplusDebugOn(PPPOEPLUS_DEBUG_EVENT)) {
            char name[ZEL_IF_NAME_LEN];
            zelIfUnit2Name(uplink->ifUnit, name, sizeof(name));
            PPPOEPLUS_SEND_LOG(PPPOEPLUS_DEBUG_EVENT, "Send packet on interface %s.\r\n", name);
        }
        uplink->totalSend++;
        if (zel_sendmsg(gPppoeplus.pktFd, &msg, ZEL_MSG_PKTINFO) < 0) {
            uplink->errorSend++;
            PPPOEPLUS_ERROR_LOG("Failed to send packet, errno %d!\r\n", errnoGet());
        }
    }
}

void pppoeplusClientPktRecv(tPppoePlusIfEntry* entry, tPppoePlusPkt* pkt) {
    if (entry == nullptr || pkt == nullptr) return;

    uint32_t ret;
    if (pkt->vsTag == nullptr) {
        PPPOEPLUS_RECV_LOG(PPPOEPLUS_DEBUG_EVENT, "Vendor-Specific Tag is not exist, insert it to the packet.\r\n");
        ret = pppoeplusVendorSpecTagInsert(entry, pkt);
    } else {
        PPPOEPLUS_RECV_LOG(PPPOEPLUS_DEBUG_EVENT, "Vendor-Specific Tag is already in the packet.\r\n");
        const uint32_t policy = pppoeplusIfPolicyGet(entry) != PPPOEPLUS_POLICY_DEFAULT ? pppoeplusIfPolicyGet(entry)
                                                                                       : pppoeplusPolicy();
        switch (policy) {
            case PPPOEPLUS_POLICY_DROP:
                PPPOEPLUS_RECV_LOG(PPPOEPLUS_DEBUG_EVENT, "Drop the Vendor-Specific Tag.\r\n");
                ret = pppoeplusVendorSpecTagDrop(entry, pkt);
                break;
            case PPPOEPLUS_POLICY_REPLACE:
                PPPOEPLUS_RECV_LOG(PPPOEPLUS_DEBUG_EVENT, "Replace the Vendor-Specific Tag.\r\n");
                ret = pppoeplusVendorSpecTagDrop(entry, pkt);
                if (ret == 0) {
                    // Clear what the drop freed, and whatever followed the
                    // payload, up to the end of the frame area.
                    const uint32_t end = std::min(pppoeplusPktHeld(pkt), PPPOEPLUS_PKT_BUF_LEN);
                    if (pkt->pppoeLen < end) std::memset(pkt->data + pkt->pppoeLen, 0, end - pkt->pppoeLen);
                    ret = pppoeplusVendorSpecTagInsert(entry, pkt);
                }
                break;
            case PPPOEPLUS_POLICY_KEEP:
                PPPOEPLUS_RECV_LOG(PPPOEPLUS_DEBUG_EVENT, "Keep the Vendor-Specific Tag.\r\n");
                ret = 0;
                break;
            default:
                // No action is defined: the frame is not sent.
                return;
        }
    }
    if (ret != PPPOEPLUS_VS_TAG_FAIL) pppoeplusSend(entry, pkt);
}

void pppoeplusPktRecv(void) {
    // The frame area is followed by slack that is never received into; both
    // are zeroed for every frame.
    uint8_t buf[PPPOEPLUS_PKT_BUF_LEN + PPPOEPLUS_PKT_BUF_SLACK];
    alignas(zel_cmsghdr) uint8_t control[PPPOEPLUS_PKT_CTRL_LEN];
    zel_sockaddr_ll from;
    std::memset(buf, 0, sizeof(buf));
    std::memset(control, 0, sizeof(control));
    std::memset(&from, 0, sizeof(from));

    zel_iovec iov;
    zel_msghdr msg = zelMsgOne(&iov, buf, PPPOEPLUS_PKT_BUF_LEN, &from, sizeof(from), control, sizeof(control));

    const int32_t received = zel_recvmsg(gPppoeplus.pktFd, &msg, 0);
    if (received < 0) return;
    const uint16_t len = static_cast<uint16_t>(std::min<uint32_t>(static_cast<uint32_t>(received), PPPOEPLUS_PKT_BUF_LEN));

    const zel_cmsghdr* cmsg =
        pppoeplusCmsgFind(control, std::min<uint32_t>(msg.msg_controllen, sizeof(control)), ZEL_SOL_PACKET, ZEL_RX_PKTINFO);
    if (cmsg == nullptr) return;
    // The record is read from the zeroed control buffer, so members the
    // platform did not write read as 0; nothing is read past the buffer.
    zel_pkt_rxinfo info;
    std::memset(&info, 0, sizeof(info));
    const auto dataAt = static_cast<uint32_t>(ZEL_CMSG_DATA(cmsg) - control);
    std::memcpy(&info, ZEL_CMSG_DATA(cmsg), std::min<uint32_t>(sizeof(info), sizeof(control) - dataAt));

    const auto ifUnit = static_cast<uint32_t>(from.sll_ifindex);
    if (pppoeplusDebugOn(PPPOEPLUS_DEBUG_EVENT)) {
        char name[ZEL_IF_NAME_LEN];
        zelIfUnit2Name(ifUnit, name, sizeof(name));
        PPPOEPLUS_RECV_LOG(PPPOEPLUS_DEBUG_EVENT, "Received a packet on interface %s, length %d.\r\n", name,
                           static_cast<int>(len));
    }
    if (pppoeplusDebugOn(PPPOEPLUS_DEBUG_PKT_DUMP)) pppoeplusPktShow(buf, len, PPPOEPLUS_SUB_RECV);

    tPppoePlusIfEntry* entry = pppoeplusIfEntryGet(ifUnit);
    if (entry == nullptr) return;
    if (pppoeplusIfEnableGet(entry) != ZEL_TRUE || pppoeplusIfIgnorePktGet(entry) == ZEL_TRUE ||
        pppoeplusIfTrustGet(entry) == ZEL_TRUE) {
        PPPOEPLUS_RECV_LOG(PPPOEPLUS_DEBUG_ERROR, "Received packet from unknown interface!\r\n");
        return;
    }

    tPppoePlusPkt pkt;
    std::memset(&pkt, 0, sizeof(pkt));
    uint8_t onuInfo[PPPOEPLUS_ONU_INFO_LEN];
    pkt.data = buf;
    pkt.len = len;
    pkt.bufSize = sizeof(buf);
    pkt.pIf = entry;
    std::memcpy(pkt.srcMac, info.srcMac, sizeof(pkt.srcMac));
    std::memcpy(pkt.dstMac, info.dstMac, sizeof(pkt.dstMac));
    pkt.innerVid = info.innerVid;
    pkt.outerVid = info.outerVid;
    pkt.innerPri = info.innerPri;
    pkt.outerPri = info.outerPri;
    if (info.onuPresent != 0 && (info.flags & ZEL_RXINFO_ONU_VALID) != 0) {
        std::memcpy(onuInfo, info.onuInfo, sizeof(onuInfo));
        pkt.onuInfo = onuInfo;
    }

    if (gPppoeplusTestForward != 0) {
        pppoeplusSend(entry, &pkt);
        return;
    }

    if (pppoeplusDebugOn(PPPOEPLUS_DEBUG_EVENT)) {
        char src[PPPOEPLUS_MAC_TEXT_LEN];
        char dst[PPPOEPLUS_MAC_TEXT_LEN];
        pppoeplusMacText(pkt.srcMac, src);
        pppoeplusMacText(pkt.dstMac, dst);
        PPPOEPLUS_RECV_LOG(PPPOEPLUS_DEBUG_EVENT,
                           "Packet source %s, destination %s, innerVid %d, outerVid %d, innerPri %d, outerPri %d.\r\n",
                           src, dst, pkt.innerVid, pkt.outerVid, pkt.innerPri, pkt.outerPri);
    }

    if (pppoeplusPktParse(entry, &pkt) != 0) {
        entry->errorRcv++;
        return;
    }

    switch (buf[1]) {
        case PPPOEPLUS_CODE_PADI:
            entry->padiRcv++;
            pppoeplusClientPktRecv(entry, &pkt);
            break;
        case PPPOEPLUS_CODE_PADR:
            entry->padrRcv++;
            pppoeplusClientPktRecv(entry, &pkt);
            break;
        case PPPOEPLUS_CODE_PADT:
            entry->padtRcv++;
            if (pppoeplusIfTrustGet(entry) != ZEL_TRUE)
                pppoeplusClientPktRecv(entry, &pkt);
            else
                pppoeplusSend(entry, &pkt);  // cannot happen behind the gate above; kept as designed
            break;
        case PPPOEPLUS_CODE_PADO:
            entry->padoRcv++;  // server frames are only counted
            break;
        case PPPOEPLUS_CODE_PADS:
            entry->padsRcv++;
            break;
        default:
            break;
    }
}
