// The platform's wait over descriptors (zel_select), on poll(2). A packet
// socket whose receive ring holds frames is readable without asking the
// kernel; while it is, the other descriptors of the wait are still looked at
// now and then, so that route events are not held back by a storm of frames.
#include <poll.h>
#include <time.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <iterator>
#include <vector>

#include "platform/linux/internal.h"
#include "platform/linux/notify.h"
#include "platform/linux/sock_table.h"
#include "platform/socket.h"

namespace linuxplat {

namespace {

// While the receive ring has frames, the other descriptors of a wait are
// still looked at this often, so that route events are not held back by a
// storm of frames.
constexpr int64_t OTHERS_POLL_NS = 1000000;
// ... though the clock is only read on every so many such waits: each costs
// a frame's handling, far below the period above.
constexpr uint32_t OTHERS_CLOCK_EVERY = 16;

int64_t nowNs() {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

}  // namespace

}  // namespace linuxplat

using namespace linuxplat;

int32_t zel_select(int32_t nfds, zel_fd_set* readSet, zel_fd_set* writeSet, zel_fd_set* exceptSet,
                   zel_timeval* timeout) {
    if (nfds < 0 || nfds > ZEL_FD_SETSIZE) return fail(EINVAL);
    // Only the worker waits here: each wait is a turn of its loop, which the
    // service manager's watchdog hears of.
    notifyWorkerTurn();
    // When the other descriptors were last looked at while a ring had frames.
    static thread_local int64_t tOthersPolledNs = 0;
    static thread_local uint32_t tRingWaits = 0;

    constexpr size_t SMALL = 16;
    struct pollfd small[SMALL];
    std::vector<struct pollfd> large;
    struct pollfd* fds = small;
    size_t count = 0;
    bool ringHasFrames[SMALL] = {};
    size_t ringsReady = 0;
    // The descriptors in the sets, below nfds, in ascending order: a word of
    // each set at a time, its set bits only.
    for (int32_t word = 0; word * 32 < nfds; word++) {
        uint32_t any = (readSet != nullptr ? readSet->bits[word] : 0) |
                       (writeSet != nullptr ? writeSet->bits[word] : 0) |
                       (exceptSet != nullptr ? exceptSet->bits[word] : 0);
        if (nfds - word * 32 < 32) any &= (1u << (nfds - word * 32)) - 1;
        for (; any != 0; any &= any - 1) {
            const int32_t fd = word * 32 + std::countr_zero(any);
            short events = 0;
            if (readSet != nullptr && ZEL_FD_ISSET(fd, readSet)) events |= POLLIN;
            if (writeSet != nullptr && ZEL_FD_ISSET(fd, writeSet)) events |= POLLOUT;
            if (exceptSet != nullptr && ZEL_FD_ISSET(fd, exceptSet)) events |= POLLPRI;
            if (count == SMALL && fds == small) {
                large.assign(small, small + SMALL);
                fds = nullptr;
            }
            if (fds == small) {
                // A packet socket whose ring holds frames is readable without asking the kernel.
                if ((events & POLLIN) != 0) {
                    const SockInfo* info = lookupRef(fd);
                    if (info != nullptr && info->kind == SockKind::Packet && ringReady(*info)) {
                        ringHasFrames[count] = true;
                        ringsReady++;
                    }
                }
                small[count++] = pollfd{fd, events, 0};
            } else {
                large.push_back(pollfd{fd, events, 0});
                count++;
            }
        }
    }
    if (fds == nullptr) {
        fds = large.data();
        ringsReady = 0;  // many descriptors: the kernel answers for all of them
        std::fill(std::begin(ringHasFrames), std::end(ringHasFrames), false);
    }

    if (ringsReady > 0) {
        // Frames are waiting: no wait. The other descriptors are asked about
        // without waiting, though not on every call.
        int64_t now = 0;
        bool others = false;
        if (count > ringsReady && ++tRingWaits % OTHERS_CLOCK_EVERY == 0) {
            now = nowNs();
            others = now - tOthersPolledNs >= OTHERS_POLL_NS;
        }
        struct pollfd rest[SMALL];
        size_t restCount = 0;
        for (size_t i = 0; i < count; i++) {
            if (ringHasFrames[i]) {
                fds[i].revents = POLLIN;
                // A ring socket asked for more than reading is asked about like the rest.
                if ((fds[i].events & ~POLLIN) != 0 && others) rest[restCount++] = pollfd{fds[i].fd, static_cast<short>(fds[i].events & ~POLLIN), 0};
            } else if (others) {
                rest[restCount++] = fds[i];
            } else {
                fds[i].revents = 0;
            }
        }
        if (others) {
            tOthersPolledNs = now;
            int rc = ::poll(rest, restCount, 0);
            if (rc < 0) return fail(errno);
            size_t r = 0;
            for (size_t i = 0; i < count && r < restCount; i++) {
                if (fds[i].fd != rest[r].fd) continue;
                fds[i].revents = static_cast<short>(fds[i].revents | rest[r].revents);
                r++;
            }
        }
    } else {
        int ms = -1;
        if (timeout != nullptr) {
            if (timeout->tv_sec < 0 || timeout->tv_usec < 0) return fail(EINVAL);
            int64_t total = timeout->tv_sec * 1000 + timeout->tv_usec / 1000;
            ms = total > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int>(total);
        }
        int rc = ::poll(fds, count, ms);
        if (rc < 0) return fail(errno);
    }

    if (readSet != nullptr) ZEL_FD_ZERO(readSet);
    if (writeSet != nullptr) ZEL_FD_ZERO(writeSet);
    if (exceptSet != nullptr) ZEL_FD_ZERO(exceptSet);
    int32_t ready = 0;
    for (size_t i = 0; i < count; i++) {
        const struct pollfd& p = fds[i];
        if ((p.revents & POLLNVAL) != 0) return fail(EBADF);
        if ((p.events & POLLIN) != 0 && (p.revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
            ZEL_FD_SET(p.fd, readSet);
            ready++;
        }
        if ((p.events & POLLOUT) != 0 && (p.revents & (POLLOUT | POLLHUP | POLLERR)) != 0) {
            ZEL_FD_SET(p.fd, writeSet);
            ready++;
        }
        if ((p.events & POLLPRI) != 0 && (p.revents & POLLPRI) != 0) {
            ZEL_FD_SET(p.fd, exceptSet);
            ready++;
        }
    }
    return ready;
}
