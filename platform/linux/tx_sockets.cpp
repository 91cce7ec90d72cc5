// One send socket per uplink (tx_sockets.h).
#include "platform/linux/tx_sockets.h"

#include <linux/if_packet.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "platform/linux/internal.h"

namespace linuxplat {

namespace {

// Bumped by txSocketsCloseAll: a thread whose table is older closes its
// sockets before its next send.
std::atomic<uint64_t> gEpoch{0};

// The send sockets of one thread. Each thread that sends has a table of its
// own, so that a send takes no lock (a mutex taken and given back twice a
// frame, once per uplink, was a twentieth of the frame's cost), and a
// socket is only ever closed by the thread that sends on it.
class TxSockets {
  public:
    // Enough for the uplinks of a switch; beyond, the least recently used
    // socket is closed.
    static constexpr size_t MAX = 32;

    ~TxSockets() { closeAll(); }

    // Sends `len` bytes of `frame` out of `ifindex`. The bytes sent, or -1
    // with errno set.
    ssize_t send(int32_t ifindex, const uint8_t* frame, size_t len) {
        const uint64_t epoch = gEpoch.load(std::memory_order_acquire);
        if (epoch != epoch_) {
            closeAll();
            epoch_ = epoch;
        }
        Entry* e = find(ifindex);
        if (e == nullptr && (e = open(ifindex)) == nullptr) return -1;
        ssize_t n = sendOn(e->fd, frame, len);
        if (n < 0 && errno == ENXIO) {
            // The interface went away since the socket was bound: the index
            // may name another one now, as an address would.
            int err = errno;
            drop(*e);
            if ((e = open(ifindex)) == nullptr) return -1;
            n = sendOn(e->fd, frame, len);
            if (n < 0 && errno == ENXIO) errno = err;
        }
        return n;
    }

    void closeAll() {
        for (size_t i = 0; i < count_; i++) ::close(entries_[i].fd);
        count_ = 0;
    }

  private:
    // The system call itself: in a process with threads, the C library's
    // send() makes each call a cancellation point and switches the thread's
    // cancellation state before and after it (two atomic operations, about
    // 20 ns of the 340 ns a send costs here, twice per frame with two
    // uplinks). No thread of the daemon is ever cancelled.
    static ssize_t sendOn(int fd, const uint8_t* frame, size_t len) {
        return ::syscall(SYS_sendto, fd, frame, len, MSG_DONTWAIT, nullptr, 0);
    }

    struct Entry {
        int32_t ifindex;
        int fd;
        uint64_t used;
    };

    Entry* find(int32_t ifindex) {
        for (size_t i = 0; i < count_; i++)
            if (entries_[i].ifindex == ifindex) {
                entries_[i].used = ++clock_;
                return &entries_[i];
            }
        return nullptr;
    }

    void drop(Entry& e) {
        ::close(e.fd);
        e = entries_[--count_];
    }

    // A socket bound to `ifindex`, null with errno set (ENXIO for an
    // interface that does not exist, as a send to its index would say).
    // Sockets of interfaces the interface cache no longer knows are closed
    // first, so that descriptors do not pile up as interfaces come and go.
    Entry* open(int32_t ifindex) {
        uint8_t mac[6];
        for (size_t i = 0; i < count_;)
            if (!ifdbMac(entries_[i].ifindex, mac)) drop(entries_[i]);
            else i++;
        if (count_ == MAX) {
            size_t oldest = 0;
            for (size_t i = 1; i < count_; i++)
                if (entries_[i].used < entries_[oldest].used) oldest = i;
            drop(entries_[oldest]);
        }
        int fd = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
        if (fd < 0) return nullptr;
        struct sockaddr_ll a;
        std::memset(&a, 0, sizeof(a));
        a.sll_family = AF_PACKET;
        a.sll_ifindex = ifindex;
        if (::bind(fd, reinterpret_cast<struct sockaddr*>(&a), sizeof(a)) != 0) {
            int err = errno;
            ::close(fd);
            errno = err == ENODEV ? ENXIO : err;
            return nullptr;
        }
        entries_[count_] = Entry{ifindex, fd, ++clock_};
        return &entries_[count_++];
    }

    std::array<Entry, MAX> entries_{};
    size_t count_ = 0;
    uint64_t clock_ = 0;
    uint64_t epoch_ = 0;
};

// Closed when its thread ends.
thread_local TxSockets tTxSockets;

}  // namespace

ssize_t txSocketSend(int32_t ifindex, const uint8_t* frame, size_t len) { return tTxSockets.send(ifindex, frame, len); }

void txSocketsCloseAll() {
    gEpoch.fetch_add(1, std::memory_order_release);
    tTxSockets.closeAll();
}

}  // namespace linuxplat
