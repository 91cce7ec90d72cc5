// The records of the sockets the platform opened (sock_table.h).
#include "platform/linux/sock_table.h"

#include <array>
#include <atomic>
#include <cerrno>

#include "platform/linux/internal.h"

namespace linuxplat {

std::shared_mutex gSockMutex;
// Never destroyed: other threads may still use it while the process ends.
std::map<int, SockInfo>& gSocks = *new std::map<int, SockInfo>;

namespace {

thread_local int32_t tLastErrno = 0;

// Bumped, with gSockMutex held exclusively, whenever a socket record is
// added, changed or removed.
std::atomic<uint64_t> gSockGen{1};

// Each thread keeps the records it looked up last, good for as long as no
// record changed since: the worker asks about the same two descriptors
// several times per frame, and then takes no lock to do so.
struct SockCacheEntry {
    int fd = -1;
    uint64_t gen = 0;
    SockInfo info;
};
constexpr size_t SOCK_CACHE_SIZE = 2;
thread_local std::array<SockCacheEntry, SOCK_CACHE_SIZE> tSockCache;
thread_local size_t tSockCacheNext = 0;

}  // namespace

int32_t fail(int err) {
    tLastErrno = err;
    errno = err;
    return -1;
}

int32_t sockLastErrno() { return tLastErrno; }

void socksChanged() { gSockGen.fetch_add(1, std::memory_order_acq_rel); }

const SockInfo* lookupRef(int fd) {
    const uint64_t gen = gSockGen.load(std::memory_order_acquire);
    for (SockCacheEntry& e : tSockCache)
        if (e.fd == fd && e.gen == gen) return &e.info;
    // Read after the generation: a change made meanwhile makes the entry
    // stale at the next lookup, never wrongly current.
    std::shared_lock<std::shared_mutex> lock(gSockMutex);
    auto it = gSocks.find(fd);
    if (it == gSocks.end()) return nullptr;
    SockCacheEntry* slot = nullptr;
    for (SockCacheEntry& e : tSockCache)
        if (e.fd == fd) slot = &e;
    if (slot == nullptr) {
        slot = &tSockCache[tSockCacheNext];
        tSockCacheNext = (tSockCacheNext + 1) % SOCK_CACHE_SIZE;
    }
    slot->fd = fd;
    slot->gen = gen;
    slot->info = it->second;
    return &slot->info;
}

bool lookup(int fd, SockInfo& out) {
    const SockInfo* info = lookupRef(fd);
    if (info == nullptr) return false;
    out = *info;
    return true;
}

// True when the ring of a packet socket has a frame to read now.
bool ringReady(const SockInfo& info) {
    if (!info.ring) return false;
    std::lock_guard<std::mutex> lock(info.ring->mutex);
    return info.ring->ring.ready();
}

size_t packetRingBytes(int fd) {
    SockInfo info;
    if (!lookup(fd, info) || !info.ring) return 0;
    std::lock_guard<std::mutex> lock(info.ring->mutex);
    return info.ring->ring.bytes();
}

}  // namespace linuxplat
