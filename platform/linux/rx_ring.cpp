// The packet socket's memory-mapped receive ring.
#include "platform/linux/rx_ring.h"

#include <sys/mman.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace linuxplat {

namespace {

uint32_t loadStatus(const struct tpacket_block_desc* b) {
    return __atomic_load_n(&b->hdr.bh1.block_status, __ATOMIC_ACQUIRE);
}

void storeStatus(struct tpacket_block_desc* b, uint32_t v) {
    __atomic_store_n(&b->hdr.bh1.block_status, v, __ATOMIC_RELEASE);
}

bool setRing(int fd, uint32_t blocks) {
    struct tpacket_req3 req;
    std::memset(&req, 0, sizeof(req));
    if (blocks != 0) {
        req.tp_block_size = RxRing::BLOCK_SIZE;
        req.tp_block_nr = blocks;
        req.tp_frame_size = RxRing::FRAME_SIZE;
        req.tp_frame_nr = blocks * (RxRing::BLOCK_SIZE / RxRing::FRAME_SIZE);
        req.tp_retire_blk_tov = RxRing::RETIRE_MS;
    }
    return ::setsockopt(fd, SOL_PACKET, PACKET_RX_RING, &req, sizeof(req)) == 0;
}

}  // namespace

RxRing::~RxRing() { close(); }

uint32_t RxRing::blocksFor(uint64_t bytes) {
    uint64_t n = bytes / BLOCK_SIZE;
    if (n < MIN_BLOCKS) return 0;
    return n > MAX_BLOCKS ? MAX_BLOCKS : static_cast<uint32_t>(n);
}

bool RxRing::open(int fd, uint32_t blocks) {
    close();
    if (blocks < MIN_BLOCKS || blocks > MAX_BLOCKS) {
        errno = EINVAL;
        return false;
    }
    int version = TPACKET_V3;
    if (::setsockopt(fd, SOL_PACKET, PACKET_VERSION, &version, sizeof(version)) != 0) return false;
    if (!setRing(fd, blocks)) return false;
    size_t len = static_cast<size_t>(blocks) * BLOCK_SIZE;
    void* p = ::mmap(nullptr, len, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, fd, 0);
    if (p == MAP_FAILED) {
        int err = errno;
        (void)setRing(fd, 0);
        errno = err;
        return false;
    }
    fd_ = fd;
    map_ = static_cast<uint8_t*>(p);
    mapLen_ = len;
    blockNr_ = blocks;
    cur_ = 0;
    held_ = nullptr;
    left_ = 0;
    nextFrame_ = nullptr;
    // Whatever the receive queue held before the ring was there would keep
    // the socket readable for ever: read it away.
    alignas(8) uint8_t scrap[64];
    for (int i = 0; i < 100000; i++)
        if (::recv(fd, scrap, sizeof(scrap), MSG_DONTWAIT | MSG_TRUNC) < 0) break;
    return true;
}

void RxRing::close() {
    if (map_ == nullptr) return;
    ::munmap(map_, mapLen_);
    (void)setRing(fd_, 0);
    int version = TPACKET_V1;
    (void)::setsockopt(fd_, SOL_PACKET, PACKET_VERSION, &version, sizeof(version));
    map_ = nullptr;
    mapLen_ = 0;
    blockNr_ = 0;
    held_ = nullptr;
    left_ = 0;
    nextFrame_ = nullptr;
    fd_ = -1;
    clearQueues();
}

void RxRing::clearQueues() {
    queues_.clear();
    turn_.clear();
    free_.clear();
    for (uint32_t i = 0; i < slots_.size(); i++) free_.push_back(i);
    handed_ = NO_SLOT;
    sincePull_ = 0;
    lastQueue_ = nullptr;
}

RxRing::Queue* RxRing::findQueue(int32_t port) {
    if (lastQueue_ != nullptr && lastQueue_->first == port) return lastQueue_;
    auto it = queues_.find(port);
    if (it == queues_.end()) return nullptr;
    lastQueue_ = &*it;
    return lastQueue_;
}

void RxRing::eraseQueue(Queue* q) {
    if (lastQueue_ == q) lastQueue_ = nullptr;
    queues_.erase(q->first);
}

struct tpacket_block_desc* RxRing::block(uint32_t i) const {
    return reinterpret_cast<struct tpacket_block_desc*>(map_ + static_cast<size_t>(i) * BLOCK_SIZE);
}

void RxRing::releaseSpent() {
    if (held_ == nullptr || left_ != 0) return;
    storeStatus(held_, TP_STATUS_KERNEL);
    held_ = nullptr;
    nextFrame_ = nullptr;
    cur_ = (cur_ + 1) % blockNr_;
}

bool RxRing::ready() {
    if (map_ == nullptr) return false;
    if (handed_ != NO_SLOT) {
        free_.push_back(handed_);
        handed_ = NO_SLOT;
    }
    if (!turn_.empty()) return true;
    releaseSpent();
    if (held_ != nullptr) return true;
    return (loadStatus(block(cur_)) & TP_STATUS_USER) != 0;
}

uint32_t RxRing::takeSlot(int32_t port) {
    if (!free_.empty()) {
        uint32_t slot = free_.back();
        free_.pop_back();
        return slot;
    }
    if (slots_.size() < QUEUE_MAX) {
        slots_.emplace_back();
        return static_cast<uint32_t>(slots_.size() - 1);
    }
    auto longest = queues_.end();
    for (auto it = queues_.begin(); it != queues_.end(); ++it)
        if (longest == queues_.end() || it->second.size() > longest->second.size()) longest = it;
    if (longest == queues_.end()) return NO_SLOT;  // every slot handed out: cannot happen with QUEUE_MAX > 1
    const Queue* own = findQueue(port);
    if (own != nullptr && own->second.size() >= longest->second.size()) return NO_SLOT;
    uint32_t slot = longest->second.front();
    longest->second.pop_front();
    dropped_++;
    if (longest->second.empty()) {
        Queue* gone = &*longest;
        for (auto t = turn_.begin(); t != turn_.end(); ++t)
            if (*t == gone) {
                turn_.erase(t);
                break;
            }
        eraseQueue(gone);
    }
    return slot;
}

void RxRing::pull() {
    for (uint32_t n = 0; n < PULL_MAX; n++) {
        const struct tpacket3_hdr* h = nextInPlace();
        if (h == nullptr) return;
        const int32_t port = address(h)->sll_ifindex;
        uint32_t slot = takeSlot(port);
        if (slot == NO_SLOT) {
            dropped_++;
            continue;
        }
        // The record, its address and the frame, as they lie in the block
        // (nextInPlace checked that they lie within it).
        const auto* from = reinterpret_cast<const uint8_t*>(h);
        slots_[slot].assign(from, from + h->tp_mac + h->tp_snaplen);
        Queue* q = findQueue(port);
        if (q == nullptr) q = lastQueue_ = &*queues_.try_emplace(port).first;
        if (q->second.empty()) turn_.push_back(q);
        q->second.push_back(slot);
    }
}

const struct tpacket3_hdr* RxRing::next() {
    if (map_ == nullptr) return nullptr;
    if (handed_ != NO_SLOT) {
        free_.push_back(handed_);
        handed_ = NO_SLOT;
    }
    if (turn_.empty() || ++sincePull_ >= PULL_EVERY) {
        pull();
        sincePull_ = 0;
    }
    if (turn_.empty()) return nullptr;
    Queue* q = turn_.front();
    turn_.pop_front();
    handed_ = q->second.front();
    q->second.pop_front();
    if (!q->second.empty()) turn_.push_back(q);
    else eraseQueue(q);
    prefetchNext();
    return reinterpret_cast<const struct tpacket3_hdr*>(slots_[handed_].data());
}

void RxRing::prefetchNext() const {
    if (turn_.empty()) return;
    const uint8_t* p = slots_[turn_.front()->second.front()].data();
    // The record, the address and the start of the frame behind them.
    for (size_t at = 0; at < PREFETCH_BYTES; at += 64) __builtin_prefetch(p + at);
}

const struct tpacket3_hdr* RxRing::nextInPlace() {
    if (map_ == nullptr) return nullptr;
    for (uint32_t guard = 0; guard <= blockNr_; guard++) {
        releaseSpent();
        if (held_ == nullptr) {
            struct tpacket_block_desc* b = block(cur_);
            if ((loadStatus(b) & TP_STATUS_USER) == 0) return nullptr;
            held_ = b;
            left_ = b->hdr.bh1.num_pkts;
            uint32_t first = b->hdr.bh1.offset_to_first_pkt;
            nextFrame_ = first >= sizeof(struct tpacket_block_desc) && first < BLOCK_SIZE
                             ? reinterpret_cast<uint8_t*>(b) + first
                             : nullptr;
            if (nextFrame_ == nullptr) left_ = 0;
            continue;  // an empty block goes straight back
        }
        auto* h = reinterpret_cast<struct tpacket3_hdr*>(nextFrame_);
        left_--;
        // The kernel's offsets are trusted no further than the block.
        uint8_t* blockEnd = reinterpret_cast<uint8_t*>(held_) + BLOCK_SIZE;
        if (left_ != 0) {
            uint8_t* n = h->tp_next_offset != 0 ? nextFrame_ + h->tp_next_offset : nullptr;
            if (n == nullptr || n + sizeof(struct tpacket3_hdr) > blockEnd) left_ = 0;
            nextFrame_ = n;
        }
        const size_t room = static_cast<size_t>(blockEnd - reinterpret_cast<uint8_t*>(h));
        if (static_cast<size_t>(h->tp_mac) + h->tp_snaplen > room ||
            TPACKET_ALIGN(sizeof(struct tpacket3_hdr)) + sizeof(struct sockaddr_ll) > room)
            continue;
        return h;
    }
    return nullptr;
}

const struct sockaddr_ll* RxRing::address(const struct tpacket3_hdr* h) {
    return reinterpret_cast<const struct sockaddr_ll*>(reinterpret_cast<const uint8_t*>(h) +
                                                       TPACKET_ALIGN(sizeof(struct tpacket3_hdr)));
}

const uint8_t* RxRing::frame(const struct tpacket3_hdr* h) { return reinterpret_cast<const uint8_t*>(h) + h->tp_mac; }

}  // namespace linuxplat
