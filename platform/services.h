// Process services: the process shell, signal handling and the command
// service through which other processes call a process's entry points.
#pragma once

#include <cstdint>

// Registers the process with the process shell under `name`, so that its
// exported diagnostic functions can be called by name. Returns 0 or an error.
int32_t procShellInit(const char* name, uint32_t arg1, uint32_t arg2);

// Installs the platform's remaining signal handlers.
void patchSignalHandler(void);

// One row of a command map: a command code and the entry point that serves it.
// The entry point's real signature depends on the code; the service calls it
// through the signature the code stands for.
using tIcmEntry = void (*)(void);
struct tIcmFuncMap {
    uint32_t code;
    tIcmEntry func;
};

// Starts the command service `service` at the local socket `path`, serving the
// `rows` rows of `map` on the service's own threads. Returns 0 or an error.
int32_t icmProcTcpInit(const char* service, const char* path, const tIcmFuncMap* map, uint32_t rows);
