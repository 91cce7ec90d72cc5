// systemd's service notifications (notify.h), through libsystemd's sd_notify.
#include "platform/linux/notify.h"

#include <systemd/sd-daemon.h>
#include <time.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "platform/linux/internal.h"

namespace linuxplat {

namespace {

int64_t monotonicUs() {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

// What the worker's thread last told; only that thread touches these.
struct WorkerNotes {
    bool ready = false;
    int64_t watchdogUs = -1;  // the interval asked for, 0 for none, -1 not read yet
    int64_t lastPingUs = 0;
    int64_t lastStatusUs = 0;
    size_t served = SIZE_MAX;
    size_t trusted = SIZE_MAX;
};
thread_local WorkerNotes tNotes;

// Whether a service manager listens at all, read once.
bool managed() {
    static const bool yes = [] {
        const char* s = std::getenv("NOTIFY_SOCKET");
        return s != nullptr && s[0] != '\0';
    }();
    return yes;
}

}  // namespace

std::string notifyStatusText(size_t served, size_t trusted) {
    char text[96];
    std::snprintf(text, sizeof(text), "serving %zu interface%s, %zu trusted", served, served == 1 ? "" : "s",
                  trusted);
    return text;
}

void notifyWorkerTurn() {
    if (!managed()) return;
    WorkerNotes& n = tNotes;
    const int64_t now = monotonicUs();
    if (n.watchdogUs < 0) {
        uint64_t usec = 0;
        n.watchdogUs = sd_watchdog_enabled(0, &usec) > 0 ? static_cast<int64_t>(usec) : 0;
    }
    // The interface counts are looked at once a second at most.
    if (!n.ready || now - n.lastStatusUs >= 1000000) {
        n.lastStatusUs = now;
        size_t served = 0, trusted = 0;
        ifdbServedCounts(served, trusted);
        if (served != n.served || trusted != n.trusted || !n.ready) {
            n.served = served;
            n.trusted = trusted;
            std::string status = "STATUS=" + notifyStatusText(served, trusted);
            if (!n.ready) status = "READY=1\n" + status;
            (void)sd_notify(0, status.c_str());
            n.ready = true;
        }
    }
    if (n.watchdogUs > 0 && now - n.lastPingUs >= n.watchdogUs / 4) {
        n.lastPingUs = now;
        (void)sd_notify(0, "WATCHDOG=1");
    }
}

void notifyStopping() {
    if (managed()) (void)sd_notify(0, "STOPPING=1");
}

void notifyReloading() {
    if (!managed()) return;
    (void)sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%lld", static_cast<long long>(monotonicUs()));
}

void notifyReloaded() {
    if (managed()) (void)sd_notify(0, "READY=1");
}

}  // namespace linuxplat
