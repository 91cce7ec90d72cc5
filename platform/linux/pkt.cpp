// Filter, receive record and send header of the packet socket.
#include "platform/linux/pkt.h"

#include <linux/if_packet.h>

#include <cstring>

namespace linuxplat {

namespace {

uint16_t be16(const uint8_t* p) { return static_cast<uint16_t>((p[0] << 8) | p[1]); }

void putBe16(uint8_t* p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
}

struct sock_filter stmt(uint16_t code, uint32_t k) { return sock_filter{code, 0, 0, k}; }
struct sock_filter jump(uint16_t code, uint32_t k, uint8_t jt, uint8_t jf) { return sock_filter{code, jt, jf, k}; }

}  // namespace

bool pktIsVlanTpid(uint16_t tpid) {
    return tpid == ETH_TYPE_8021Q || tpid == ETH_TYPE_8021AD || tpid == ETH_TYPE_QINQ_OLD;
}

std::vector<struct sock_filter> pktFilterProgram() {
    // Offsets of the type field behind 0, 1 and 2 tags.
    constexpr uint32_t TYPE0 = 12;
    constexpr uint32_t TYPE1 = TYPE0 + VLAN_TAG_LEN;
    constexpr uint32_t TYPE2 = TYPE1 + VLAN_TAG_LEN;
    constexpr uint32_t ACCEPT = 0x40000;  // whole frame
    // Instruction numbers, for the relative jumps below.
    enum : uint8_t {
        L_PKTTYPE, L_NOT_OUT, L_TYPE0, L_IS0, L_Q0, L_AD0, L_OLD0,
        L_TYPE1, L_IS1, L_Q1, L_AD1, L_OLD1,
        L_TYPE2, L_IS2,
        L_ACCEPT, L_DROP,
    };
    auto to = [](uint8_t from, uint8_t target) { return static_cast<uint8_t>(target - from - 1); };
    std::vector<struct sock_filter> p = {
        /* L_PKTTYPE */ stmt(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE)),
        /* L_NOT_OUT */ jump(BPF_JMP | BPF_JEQ | BPF_K, PACKET_OUTGOING, to(L_NOT_OUT, L_DROP), 0),
        /* L_TYPE0   */ stmt(BPF_LD | BPF_H | BPF_ABS, TYPE0),
        /* L_IS0     */ jump(BPF_JMP | BPF_JEQ | BPF_K, ETH_TYPE_PPPOE_DISC, to(L_IS0, L_ACCEPT), 0),
        /* L_Q0      */ jump(BPF_JMP | BPF_JEQ | BPF_K, ETH_TYPE_8021Q, to(L_Q0, L_TYPE1), 0),
        /* L_AD0     */ jump(BPF_JMP | BPF_JEQ | BPF_K, ETH_TYPE_8021AD, to(L_AD0, L_TYPE1), 0),
        /* L_OLD0    */ jump(BPF_JMP | BPF_JEQ | BPF_K, ETH_TYPE_QINQ_OLD, to(L_OLD0, L_TYPE1), to(L_OLD0, L_DROP)),
        /* L_TYPE1   */ stmt(BPF_LD | BPF_H | BPF_ABS, TYPE1),
        /* L_IS1     */ jump(BPF_JMP | BPF_JEQ | BPF_K, ETH_TYPE_PPPOE_DISC, to(L_IS1, L_ACCEPT), 0),
        /* L_Q1      */ jump(BPF_JMP | BPF_JEQ | BPF_K, ETH_TYPE_8021Q, to(L_Q1, L_TYPE2), 0),
        /* L_AD1     */ jump(BPF_JMP | BPF_JEQ | BPF_K, ETH_TYPE_8021AD, to(L_AD1, L_TYPE2), 0),
        /* L_OLD1    */ jump(BPF_JMP | BPF_JEQ | BPF_K, ETH_TYPE_QINQ_OLD, to(L_OLD1, L_TYPE2), to(L_OLD1, L_DROP)),
        /* L_TYPE2   */ stmt(BPF_LD | BPF_H | BPF_ABS, TYPE2),
        /* L_IS2     */ jump(BPF_JMP | BPF_JEQ | BPF_K, ETH_TYPE_PPPOE_DISC, to(L_IS2, L_ACCEPT), to(L_IS2, L_DROP)),
        /* L_ACCEPT  */ stmt(BPF_RET | BPF_K, ACCEPT),
        /* L_DROP    */ stmt(BPF_RET | BPF_K, 0),
    };
    return p;
}

bool pktParseRx(const uint8_t* frame, size_t len, const AuxTag& aux, RxFrame& out) {
    if (frame == nullptr || len < ETH_HDR_LEN) return false;
    RxFrame f;
    std::memset(&f, 0, sizeof(f));
    std::memcpy(f.dst, frame, 6);
    std::memcpy(f.src, frame + 6, 6);

    struct Tag {
        uint16_t tpid, tci;
    } tags[MAX_VLAN_TAGS + 1];
    size_t count = 0;
    if (aux.valid) tags[count++] = Tag{aux.tpid != 0 ? aux.tpid : ETH_TYPE_8021Q, aux.tci};

    size_t off = 12;
    uint16_t type = be16(frame + off);
    while (pktIsVlanTpid(type)) {
        if (count >= MAX_VLAN_TAGS) return false;  // a third tag
        if (len < off + VLAN_TAG_LEN + 2) return false;
        tags[count++] = Tag{type, be16(frame + off + 2)};
        off += VLAN_TAG_LEN;
        type = be16(frame + off);
    }
    if (type != ETH_TYPE_PPPOE_DISC) return false;
    f.payloadOffset = off + 2;

    f.vlanCount = static_cast<uint8_t>(count);
    if (count >= 1) {
        f.outerTpid = tags[0].tpid;
        f.outerVid = tags[0].tci & 0x0FFF;
        f.outerPri = static_cast<uint8_t>(tags[0].tci >> 13);
    }
    if (count >= 2) {
        f.innerTpid = tags[1].tpid;
        f.innerVid = tags[1].tci & 0x0FFF;
        f.innerPri = static_cast<uint8_t>(tags[1].tci >> 13);
    }
    out = f;
    return true;
}

void pktFillRxInfo(const RxFrame& frame, uint32_t ifUnit, zel_pkt_rxinfo& out) {
    std::memset(&out, 0, sizeof(out));
    out.ifUnit = ifUnit;
    std::memcpy(out.srcMac, frame.src, 6);
    out.etherType = ETH_TYPE_PPPOE_DISC;
    out.outerVid = frame.outerVid;
    out.innerVid = frame.innerVid;
    out.vlanCount = frame.vlanCount;
    out.outerPri = frame.outerPri;
    out.innerPri = frame.innerPri;
    out.outerTpid = frame.outerTpid;
    out.innerTpid = frame.innerTpid;
    std::memcpy(out.dstMac, frame.dst, 6);
}

size_t pktBuildTxHeader(const uint8_t dst[6], const uint8_t ifMac[6], const zel_pkt_txinfo* tx, uint16_t etherType,
                        const TxTpids& tpids, uint8_t* out) {
    std::memcpy(out, dst, 6);
    if (tx != nullptr && (tx->flags & ZEL_TXINFO_SRC_MAC) != 0) std::memcpy(out + 6, tx->srcMac, 6);
    else std::memcpy(out + 6, ifMac, 6);
    size_t off = 12;

    bool outer = tx != nullptr && (tx->flags & ZEL_TXINFO_OUTER_VID) != 0;
    bool inner = tx != nullptr && (tx->flags & ZEL_TXINFO_INNER_VID) != 0;
    auto tci = [](uint16_t vid, bool withPri, uint8_t pri) {
        return static_cast<uint16_t>((withPri ? (pri & 0x7u) << 13 : 0u) | (vid & 0x0FFFu));
    };
    if (outer) {
        putBe16(out + off, inner ? tpids.outer : tpids.single);
        putBe16(out + off + 2, tci(tx->outerVid, (tx->flags & ZEL_TXINFO_OUTER_PRI) != 0, tx->outerPri));
        off += VLAN_TAG_LEN;
    }
    if (inner) {
        putBe16(out + off, outer ? tpids.inner : tpids.single);
        putBe16(out + off + 2, tci(tx->innerVid, (tx->flags & ZEL_TXINFO_INNER_PRI) != 0, tx->innerPri));
        off += VLAN_TAG_LEN;
    }
    putBe16(out + off, etherType);
    return off + 2;
}

bool pktFindTxInfo(const void* control, size_t len, zel_pkt_txinfo& out) {
    if (control == nullptr) return false;
    const auto* base = static_cast<const uint8_t*>(control);
    size_t off = 0;
    while (len >= ZEL_CMSG_HDRLEN && off <= len - ZEL_CMSG_HDRLEN) {
        zel_cmsghdr c;
        std::memcpy(&c, base + off, sizeof(c));
        if (c.cmsg_len < ZEL_CMSG_HDRLEN || c.cmsg_len > len - off) return false;
        if (c.cmsg_level == ZEL_SOL_PACKET && c.cmsg_type == ZEL_TX_PKTINFO &&
            c.cmsg_len >= ZEL_CMSG_LEN(sizeof(zel_pkt_txinfo))) {
            // Copied: the caller's buffer need not be aligned for the record.
            std::memcpy(&out, base + off + ZEL_CMSG_HDRLEN, sizeof(out));
            return true;
        }
        size_t step = ZEL_CMSG_ALIGN(c.cmsg_len);
        if (step > len - off) break;
        off += step;
    }
    return false;
}

}  // namespace linuxplat
