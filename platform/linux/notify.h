// systemd's service notifications: when the daemon runs under a unit that
// asks for them (Type=notify sets NOTIFY_SOCKET, WatchdogSec= sets
// WATCHDOG_USEC), the platform tells the service manager that the agent
// serves (READY=1), how many interfaces it serves (STATUS=), that its worker
// is still turning (WATCHDOG=1), and that it reloads or stops. Without a
// service manager, every call does nothing.
#pragma once

#include <cstddef>
#include <string>

namespace linuxplat {

// Called by the worker's wait (zel_select) on every pass, and by nothing
// else: the first call says READY=1; then WATCHDOG=1 at a quarter of the
// watchdog interval at most, so a worker that stops turning (a lock never
// given back, a hang) stops the pings and the service manager restarts the
// daemon; STATUS= whenever the numbers of served and trusted interfaces
// change.
void notifyWorkerTurn();

// STOPPING=1, when the daemon ends on a signal.
void notifyStopping();

// RELOADING=1 with the monotonic time, then READY=1 after a reload.
void notifyReloading();
void notifyReloaded();

// The status line for `served` interfaces of which `trusted` are uplinks.
std::string notifyStatusText(size_t served, size_t trusted);

}  // namespace linuxplat
