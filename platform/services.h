// Process services: the process shell, signal handling and the command
// service through which other processes call a process's entry points.
#pragma once

#include <cstdint>

// Registers the process with the process shell under `name`, so that the
// functions of its shell table (procShellFuncInit) can be called by name.
// Returns 0 or an error.
int32_t procShellInit(const char* name, uint32_t arg1, uint32_t arg2);

// The kinds of argument a process-shell function takes. The shell checks
// every argument of a call against its kind and refuses the call otherwise;
// no kind carries an address, so nothing given through the shell is used as
// a pointer.
constexpr uint8_t PROC_SHELL_ARG_U32 = 1;     // a number from 0 to 4294967295
constexpr uint8_t PROC_SHELL_ARG_I32 = 2;     // a number from -2147483648 to 2147483647
constexpr uint8_t PROC_SHELL_ARG_IFUNIT = 3;  // the unit of an interface the platform knows
constexpr uint32_t PROC_SHELL_MAX_ARGS = 4;
constexpr uint32_t PROC_SHELL_MAX_FUNCS = 256;

// A process-shell function as the shell calls it: `args` holds argCount
// values, each already checked against its kind, so that the function may
// narrow it to its parameter's type. Returns the function's result.
using tProcShellEntry = int32_t (*)(const int64_t* args);

// One row of a process's shell table: what operators may call by name.
struct tProcShellFunc {
    const char* name;                           // 1 to 63 printable characters, no blanks
    tProcShellEntry entry;                      // never null
    uint32_t argCount;                          // 0 to PROC_SHELL_MAX_ARGS
    uint8_t argKinds[PROC_SHELL_MAX_ARGS];      // PROC_SHELL_ARG_*, the first argCount used
    const char* argNames[PROC_SHELL_MAX_ARGS];  // 1 to 31 characters each, for the list of callable functions
};

// Registers the `rows` rows (1 to PROC_SHELL_MAX_FUNCS) of `funcs` as the
// only functions the process shell calls; the rows are copied, and a later
// registration replaces them. The shell refuses every call while no table is
// registered, and every call of a name the table does not have, with another
// number of arguments than its row's, or with an argument outside its kind.
// Returns 0, or ZEL_ERR_INVALID_ARG for no table, too many rows or a bad row
// (a name that is missing, too long, repeated or a test variable's; no entry;
// too many arguments; an unknown kind; a missing argument name); such a
// table changes nothing.
int32_t procShellFuncInit(const tProcShellFunc* funcs, uint32_t rows);

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

// ---- what a remote call's value is ------------------------------------------------------
//
// An entry point of a command map takes its value by pointer, and the
// record behind the pointer depends on the setting (the command code): a u32
// word, or a {text, length} record over a buffer. A caller in another
// process cannot hand the process a pointer, so the command service builds
// every value record itself, from a table of the settings its map serves,
// and a request only says what goes into it. A request that the table does
// not list, or whose value does not fit the setting, reaches no entry point.

// The value record built for one setting.
constexpr uint8_t ICM_VALUE_U32 = 1;       // a u32 word, the caller's value in, the word after the call out
constexpr uint8_t ICM_VALUE_TEXT_IN = 2;   // {text, length} over the caller's text of at most `capacity` bytes
constexpr uint8_t ICM_VALUE_TEXT_OUT = 3;  // {buffer, size} over a buffer of `capacity` bytes the entry point fills

// A row that serves every command code of its map row (the iterators).
constexpr uint32_t ICM_ANY_CMD = 0xFFFFFFFFu;

// One setting a command map serves to other processes.
struct tIcmCallSpec {
    uint32_t code;       // row of the command map
    uint32_t cmd;        // the command code (setting), or ICM_ANY_CMD
    uint8_t valueKind;   // ICM_VALUE_*
    uint32_t capacity;   // TEXT_IN: longest text taken; TEXT_OUT: bytes of the buffer built
    uint32_t minRoom;    // TEXT_OUT: the least buffer size a caller may announce; below it the
                         // entry point would not come back in a usable state, so the call is refused
};

// Gives the command service `service` the settings its map serves. Called
// before icmProcTcpInit for that service; a service started without a table
// refuses every call. Returns 0 or an error.
int32_t icmProcCallSpecInit(const char* service, const tIcmCallSpec* specs, uint32_t rows);
