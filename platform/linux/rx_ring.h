// A memory-mapped receive ring (TPACKET_V3) on a packet socket. The kernel
// writes each received frame, its address and its VLAN tag into blocks of a
// ring shared with the process; the process reads them in place and hands
// each block back when it has read it. A busy socket then costs no system
// call per frame to receive, and the ring holds many more frames than the
// socket's receive queue would.
//
// Fair reading: frames are taken out of the blocks the kernel has handed
// over whenever the queues run dry and after every PULL_EVERY frames handed
// out, copied into a queue per receiving port (interface index), and handed
// out one port at a time, in turn. A frame of a quiet port waits behind at
// most PULL_EVERY frames and then one frame of each busy port, instead of
// behind a whole flood; when the queues are full, the longest one (the flooding
// port's) loses its oldest frame, not the quiet port; and each block goes
// back to the kernel as soon as a pull has read it, so that the ring does
// not overflow and drop every port's frames alike while the reader is busy
// with the flood.
//
// Not thread-safe: the owner serialises the calls.
#pragma once

#include <linux/if_packet.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_map>
#include <vector>

namespace linuxplat {

class RxRing {
  public:
    // Block size: a power of two of pages (the kernel allocates each block
    // so), large enough for the largest frame the platform reads. The kernel
    // hands the block it is filling over when it is full, or when the retire
    // timer fires, however little the block holds; the timer runs on every
    // period, not from the opening of each block. While the reader is behind,
    // each period thus fills ceil(x) blocks with x blocks' worth of frames,
    // x = arrival rate x period / frames a block holds, and the room in the
    // rest of them is lost. With 32 KiB blocks (227 discovery frames) and
    // 16 ms, a 2 MiB ring holds a burst of 10,000 frames arriving at any
    // steady rate above 30,000 frames/s; with 64 KiB blocks and 2 ms it
    // needed more than 160,000, and not at every rate above. A lone frame
    // waits at most one period, nothing to a discovery exchange whose
    // retries are seconds apart, and an idle ring wakes the kernel less.
    static constexpr uint32_t BLOCK_SIZE = 32 * 1024;
    static constexpr uint32_t FRAME_SIZE = 2048;  // a formality of TPACKET_V3: frames are packed
    static constexpr uint32_t RETIRE_MS = 16;
    static constexpr uint32_t MIN_BLOCKS = 2;
    static constexpr uint32_t MAX_BLOCKS = 2048;  // 64 MiB
    // Frames queued for all ports together at most: more than a 2 MiB ring
    // holds, so that a burst the ring held is held whole here too. When
    // they are full, the port with the longest queue loses its oldest frame.
    static constexpr uint32_t QUEUE_MAX = 16384;
    // Frames taken out of the blocks per call at most, so that a reader
    // that keeps up with a flood still returns.
    static constexpr uint32_t PULL_MAX = QUEUE_MAX;
    // While frames are queued, the blocks are looked at again only after
    // this many frames were handed out. The block the kernel is filling
    // shares its header's cache line with the kernel's writes on another
    // CPU, so each look costs a cache miss (a tenth of a microsecond here):
    // once per frame it was the dearest step of the receive path. A frame
    // of a quiet port thus waits behind at most this many frames in the
    // ring before it joins the turn.
    static constexpr uint32_t PULL_EVERY = 64;

    RxRing() = default;
    ~RxRing();
    RxRing(const RxRing&) = delete;
    RxRing& operator=(const RxRing&) = delete;

    // Blocks of a ring of about `bytes` bytes: rounded down, between
    // MIN_BLOCKS and MAX_BLOCKS; 0 when `bytes` is below MIN_BLOCKS blocks.
    static uint32_t blocksFor(uint64_t bytes);

    // Sets a ring of `blocks` blocks up on `fd` (a bound packet socket
    // without a ring) and maps it. Frames already in the socket's receive
    // queue are read and thrown away: from here on the kernel writes to the
    // ring. False with errno set when the kernel refuses; the socket is then
    // as it was.
    bool open(int fd, uint32_t blocks);

    // Unmaps the ring and gives it back to the kernel; the socket goes back
    // to its receive queue. Frames in the ring are lost.
    void close();

    bool active() const { return map_ != nullptr; }
    size_t bytes() const { return mapLen_; }
    uint32_t blocks() const { return blockNr_; }

    // True when next() would return a frame now.
    bool ready();

    // The next frame, of the next port in turn that has one, or null when
    // none is queued and the kernel has handed over none. The record (and
    // the frame behind it, at tp_mac, and its address) is a copy laid out
    // as in the ring; it stays valid until the next call of next(), ready()
    // or close().
    const struct tpacket3_hdr* next();

    // Frames dropped because the queues were full.
    uint64_t dropped() const { return dropped_; }

    // The link-level address the kernel wrote beside a frame.
    static const struct sockaddr_ll* address(const struct tpacket3_hdr* h);
    static const uint8_t* frame(const struct tpacket3_hdr* h);

  private:
    struct tpacket_block_desc* block(uint32_t i) const;
    // Hands the block read so far back to the kernel once it is used up.
    void releaseSpent();
    // The next frame of the ring in arrival order, read in place; null when
    // the kernel has handed over none.
    const struct tpacket3_hdr* nextInPlace();
    // Copies what the kernel has handed over into the ports' queues.
    void pull();
    // While a flood lasts the queues are deep, and the frame handed out
    // next was copied in thousands of frames ago: long out of the cache,
    // where its first read cost more than anything else on the receive path.
    // Its first lines are fetched while the daemon works on the frame
    // handed out now.
    void prefetchNext() const;
    static constexpr size_t PREFETCH_BYTES = 192;
    void clearQueues();
    // A free slot; when none is left, the oldest frame of the longest queue
    // makes room, or NO_SLOT when that queue is `port`'s own (its newest
    // frame is then the one dropped).
    uint32_t takeSlot(int32_t port);

    // A port's queue: its interface index and its slots in arrival order.
    // Elements of the map keep their address until erased, so the turn and
    // the last queue found hold them by address: no lookup per frame.
    using Queue = std::unordered_map<int32_t, std::deque<uint32_t>>::value_type;
    // The queue of `port`, or null; the last one found is kept.
    Queue* findQueue(int32_t port);
    void eraseQueue(Queue* q);

    static constexpr uint32_t NO_SLOT = UINT32_MAX;
    std::vector<std::vector<uint8_t>> slots_;  // copies of frames, reused
    std::vector<uint32_t> free_;               // slots not in use
    std::unordered_map<int32_t, std::deque<uint32_t>> queues_;  // by interface index, none empty
    std::deque<Queue*> turn_;                  // ports with queued frames, in turn
    Queue* lastQueue_ = nullptr;               // the queue findQueue found last
    uint32_t handed_ = NO_SLOT;                // the slot next() returned last
    uint32_t sincePull_ = 0;                   // frames handed out since the blocks were looked at
    uint64_t dropped_ = 0;

    int fd_ = -1;
    uint8_t* map_ = nullptr;
    size_t mapLen_ = 0;
    uint32_t blockNr_ = 0;
    uint32_t cur_ = 0;                       // block read next
    struct tpacket_block_desc* held_ = nullptr;  // block being read, owned by the process
    uint32_t left_ = 0;                      // frames of the held block not read yet
    uint8_t* nextFrame_ = nullptr;
};

}  // namespace linuxplat
