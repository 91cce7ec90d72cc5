/* What the discovery filter (police.bpf.c, run by the kernel) and the
 * platform (police.cpp) share: the records of its maps. Plain C, read by
 * both compilers; the layouts are fixed (no padding left to a compiler). */
#ifndef PPPOEPLUS_POLICE_ABI_H
#define PPPOEPLUS_POLICE_ABI_H

#include <linux/types.h>

/* What the filter does with a port's discovery frames. */
#define POLICE_MODE_OFF 0u    /* every one passes (counted) */
#define POLICE_MODE_LIMIT 1u  /* a token bucket: interval and tolerance below */
#define POLICE_MODE_BLOCK 2u  /* every one is dropped (error-disabled port) */

/* Ports the maps hold at most (per-port settings; counters of the ports
 * seen last, the longest unseen going first). */
#define POLICE_PORTS_MAX 4096u

/* How a port is policed: the global record (array map, key 0) for the
 * ports without one of their own (hash map, key ifindex). A frame passes
 * when the port's theoretical arrival time is at most tolerance_ns ahead of
 * now; it then moves interval_ns further (GCRA): interval = 1 s / rate,
 * tolerance = (burst - 1) * interval. */
struct police_cfg {
    __u64 interval_ns;
    __u64 tolerance_ns;
    __u32 mode;
    __u32 pad;
};

/* A port's state, written by the filter (LRU hash map, key ifindex). */
struct police_state {
    __u64 tat_ns; /* theoretical arrival time of the next frame (monotonic clock) */
    __u64 passed; /* discovery frames handed to the socket */
    __u64 dropped; /* discovery frames dropped over the limit or blocked */
};

#endif
