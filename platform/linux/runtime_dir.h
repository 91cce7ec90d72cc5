// The daemon's runtime directory: where its sockets and its pid file are
// (PPPOEPLUS_ROOT, else /tmp). One daemon owns a directory at a time: it
// holds a lock on the pid file there for as long as it runs, and nothing of
// the directory is touched before the lock is held.
#pragma once

#include <sys/types.h>

#include <string>

namespace linuxplat {

// The directory the runtime sockets are made in.
std::string runtimeDir();

// The pid file of the runtime directory: <dir>/pppoeplusd.pid.
std::string pidFilePath();

// Takes the lock on the pid file and writes this process's pid into it.
// 0 on success; otherwise `why` says what stood in the way and `holder` is
// the pid of the daemon that holds the lock (0 when unknown).
int runtimeLock(std::string& why, pid_t& holder);

// This process holds the lock of the runtime directory.
bool runtimeOwner();

// Removes the pid file (this process's own only) and lets the lock go.
void runtimeUnlock();

// Why `path` cannot be the place of one of this daemon's sockets (something
// that is not a socket is there), or empty when it can. A socket there is
// one left behind by an earlier run and is replaced.
std::string runtimePathProblem(const std::string& path);

}  // namespace linuxplat
