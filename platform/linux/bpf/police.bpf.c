/* The packet socket's filter: keeps the discovery frames the classic filter
 * keeps (pkt.cpp: not the host's own outgoing copies, Ethernet type 0x8863
 * behind 0, 1 or 2 VLAN tags in the data) and polices them per input port
 * with a token bucket, so that a port flooding discovery costs the agent no
 * more than its limit: frames over it are dropped here, before they are
 * queued to the socket, and counted per port. */
#include <linux/bpf.h>
#include <linux/if_packet.h>
#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

#include "police_abi.h"

/* Bytes kept of an accepted frame: all of it, as the classic filter. */
#define ACCEPT 0x40000
#define DROP 0

#define ETH_TYPE_PPPOE_DISC 0x8863
#define ETH_TYPE_8021Q 0x8100
#define ETH_TYPE_8021AD 0x88a8
#define ETH_TYPE_QINQ_OLD 0x9100
/* Compare-and-swap attempts on a port's bucket before the frame is dropped
 * (other CPUs moved it meanwhile: the port is busy). */
#define CAS_TRIES 4

struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, struct police_cfg);
} police_global SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(max_entries, POLICE_PORTS_MAX);
    __type(key, __u32);
    __type(value, struct police_cfg);
} police_port SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_LRU_HASH);
    __uint(max_entries, POLICE_PORTS_MAX);
    __type(key, __u32);
    __type(value, struct police_state);
} police_state SEC(".maps");

static __always_inline int is_vlan_tpid(__u16 t) {
    return t == ETH_TYPE_8021Q || t == ETH_TYPE_8021AD || t == ETH_TYPE_QINQ_OLD;
}

/* 1 when the frame is a discovery frame the agent reads. */
static __always_inline int is_discovery(struct __sk_buff* skb) {
    __u16 type;
    __u32 off = 12;
#pragma unroll
    for (int tags = 0; tags <= 2; tags++) {
        /* A read past the end drops the frame, as the classic filter's. */
        if (bpf_skb_load_bytes(skb, off, &type, sizeof(type)) != 0) return 0;
        type = bpf_ntohs(type);
        if (type == ETH_TYPE_PPPOE_DISC) return 1;
        if (tags == 2 || !is_vlan_tpid(type)) return 0;
        off += 4;
    }
    return 0;
}

SEC("socket")
int police(struct __sk_buff* skb) {
    if (skb->pkt_type == PACKET_OUTGOING) return DROP;
    if (!is_discovery(skb)) return DROP;

    __u32 port = skb->ifindex;
    __u32 zero = 0;
    struct police_cfg* cfg = bpf_map_lookup_elem(&police_port, &port);
    if (!cfg) cfg = bpf_map_lookup_elem(&police_global, &zero);
    if (!cfg) return DROP; /* cannot happen: an array's entry always exists */

    struct police_state* st = bpf_map_lookup_elem(&police_state, &port);
    if (!st) {
        struct police_state fresh = {};
        bpf_map_update_elem(&police_state, &port, &fresh, BPF_NOEXIST);
        st = bpf_map_lookup_elem(&police_state, &port);
        if (!st) return cfg->mode == POLICE_MODE_OFF ? ACCEPT : DROP;
    }

    __u32 mode = cfg->mode;
    if (mode == POLICE_MODE_OFF) {
        __sync_fetch_and_add(&st->passed, 1);
        return ACCEPT;
    }
    if (mode == POLICE_MODE_LIMIT) {
        __u64 interval = cfg->interval_ns;
        __u64 tolerance = cfg->tolerance_ns;
        __u64 now = bpf_ktime_get_ns();
#pragma unroll
        for (int i = 0; i < CAS_TRIES; i++) {
            __u64 tat = st->tat_ns;
            __u64 base = tat > now ? tat : now;
            if (base - now > tolerance) break; /* over the limit */
            if (__sync_val_compare_and_swap(&st->tat_ns, tat, base + interval) == tat) {
                __sync_fetch_and_add(&st->passed, 1);
                return ACCEPT;
            }
        }
    }
    __sync_fetch_and_add(&st->dropped, 1);
    return DROP;
}

char LICENSE[] SEC("license") = "GPL";
