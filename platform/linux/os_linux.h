// Process-wide state of the Linux platform shared by its parts.
#pragma once

namespace linuxplat {

// This process is the daemon (it registered its process shell): a start-up
// that ends the process gets a closing message.
void markDaemonProcess();
// The daemon's start-up has completed.
void markStarted();

// Blocks the asynchronous signals in the calling thread, so that only the
// platform's signal thread receives them.
void blockAsyncSignals();

}  // namespace linuxplat
