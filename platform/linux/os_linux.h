// Process-wide state of the Linux platform shared by its parts.
#pragma once

#include <string>

namespace linuxplat {

// This process is the daemon (it registered its process shell): a start-up
// that ends the process gets a closing message. Takes the runtime
// directory's lock first and ends the process when another daemon holds it
// or a socket path of the directory is taken by something else.
void markDaemonProcess();
bool isDaemonProcess();

// The process is pppoeplusd itself, starting (its main installs the signal
// handlers): markDaemonProcess, then only the capabilities the daemon uses
// are kept. Called before the process's first thread.
void startDaemonProcess();

// Ends the daemon on a fault that leaves it unmanageable: logs `why`,
// removes what this process made in its runtime directory, exits with 1.
[[noreturn]] void platformFailClosed(const std::string& why);
// The daemon's start-up has completed.
void markStarted();

// Blocks the asynchronous signals in the calling thread, so that only the
// platform's signal thread receives them.
void blockAsyncSignals();

}  // namespace linuxplat
