// The process shell: an operator calls the diagnostic functions of the
// process's shell table by name, with arguments checked against their kinds,
// and reads what they print; the process's test variables may be read
// (service_engine.h serves the socket).
#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/cmd_proto.h"
#include "platform/linux/internal.h"
#include "platform/linux/os_linux.h"
#include "platform/linux/service_engine.h"
#include "platform/services.h"
#include "platform/types.h"

namespace linuxplat {

namespace {

// ---- process shell ------------------------------------------------------------------------

// A row of the registered shell table, copied.
struct ShellFunc {
    std::string name;
    tProcShellEntry entry = nullptr;
    std::vector<uint8_t> kinds;
    std::vector<std::string> argNames;
};

std::mutex gShellFuncsMutex;
std::vector<ShellFunc>& gShellFuncs = *new std::vector<ShellFunc>;  // empty: nothing registered, nothing callable
std::mutex gStdoutMutex;

constexpr const char* SHELL_VARIABLES[] = {"gPppoeplusTestForward", "gTestOnuInfo"};
constexpr size_t MAX_ARG_NAME = 31;

bool shellVariable(const std::string& name) {
    for (const char* v : SHELL_VARIABLES)
        if (name == v) return true;
    return false;
}

// A name of the table: 1 to `max` printable characters without blanks.
bool shellNameOk(const char* name, size_t max) {
    if (name == nullptr) return false;
    size_t n = ::strnlen(name, max + 1);
    if (n == 0 || n > max) return false;
    for (size_t i = 0; i < n; i++)
        if (name[i] <= ' ' || name[i] > '~') return false;
    return true;
}

const char* kindName(uint8_t kind) {
    switch (kind) {
        case PROC_SHELL_ARG_U32:
            return "u32";
        case PROC_SHELL_ARG_I32:
            return "i32";
        case PROC_SHELL_ARG_IFUNIT:
            return "interface";
        default:
            return "?";
    }
}

// "pppoeplusPonTest(interface ifUnit, u32 onuId)"
std::string signature(const ShellFunc& f) {
    std::string s = f.name + "(";
    for (size_t i = 0; i < f.kinds.size(); i++)
        s += (i > 0 ? ", " : "") + std::string(kindName(f.kinds[i])) + " " + f.argNames[i];
    return s + ")";
}

// What the shell offers, one function a line, for a refused call.
std::string callableList(const std::vector<ShellFunc>& funcs) {
    std::string s = "callable functions (an interface is given by its unit):\n";
    for (const ShellFunc& f : funcs) s += "  " + signature(f) + "\n";
    s += "variables, read only:";
    for (const char* v : SHELL_VARIABLES) s += std::string(" ") + v;
    return s + "\n";
}

// The symbol's ELF type and size, and whether it lies in this executable.
bool symbolInfo(void* addr, unsigned& type, size_t& size) {
    Dl_info info;
    void* extra = nullptr;
    if (::dladdr1(addr, &info, &extra, RTLD_DL_SYMENT) == 0 || extra == nullptr) return false;
    const auto* sym = static_cast<const ElfW(Sym)*>(extra);
    Dl_info self;
    if (::dladdr(reinterpret_cast<void*>(&symbolInfo), &self) == 0 || self.dli_fbase != info.dli_fbase) return false;
    type = ELF64_ST_TYPE(sym->st_info);
    size = sym->st_size;
    return true;
}

// Calls `entry` with what it prints to standard output captured.
int32_t callCaptured(tProcShellEntry entry, const int64_t* args, std::string& output, bool& truncated) {
    std::lock_guard<std::mutex> lock(gStdoutMutex);
    std::fflush(stdout);
    int capture = ::memfd_create("pppoeplus-shell", MFD_CLOEXEC);
    int saved = ::dup(STDOUT_FILENO);
    if (capture >= 0) ::dup2(capture, STDOUT_FILENO);
    int32_t r = entry(args);
    std::fflush(stdout);
    if (saved >= 0) {
        ::dup2(saved, STDOUT_FILENO);
        ::close(saved);
    } else {
        ::close(STDOUT_FILENO);
    }
    truncated = false;
    if (capture >= 0) {
        output.clear();
        char chunk[4096];
        off_t off = 0;
        for (;;) {
            ssize_t n = ::pread(capture, chunk, sizeof(chunk), off);
            if (n <= 0) break;
            off += n;
            size_t room = cmdp::MAX_SHELL_OUTPUT - output.size();
            if (static_cast<size_t>(n) > room) {
                output.append(chunk, room);
                truncated = true;
                break;
            }
            output.append(chunk, static_cast<size_t>(n));
        }
        ::close(capture);
    }
    return r;
}

// Reads a test variable: its first word is the result, its bytes the output.
void readVariable(const cmdp::ShellRequest& req, cmdp::ShellReply& reply) {
    void* addr = ::dlsym(RTLD_DEFAULT, req.name.c_str());
    unsigned type = 0;
    size_t size = 0;
    if (addr == nullptr || !symbolInfo(addr, type, size)) {
        reply.status = cmdp::ERR_NOT_FOUND;
        reply.output = "'" + req.name + "' not found\n";
        return;
    }
    if (type != STT_OBJECT || !req.args.empty()) {
        reply.status = cmdp::ERR_DENIED;
        reply.output = "'" + req.name + "' is a variable and takes no arguments\n";
        return;
    }
    size_t n = size < 64 ? size : 64;
    std::vector<uint8_t> bytes(n);
    std::memcpy(bytes.data(), addr, n);
    uint32_t first = 0;
    if (n >= 4) std::memcpy(&first, bytes.data(), 4);
    reply.result = static_cast<int32_t>(first);
    reply.flags = cmdp::SHELL_FLAG_VARIABLE;
    char line[64];
    if (n == 4) {
        std::snprintf(line, sizeof(line), " = %u (0x%08x)\n", first, first);
        reply.output = req.name + line;
    } else {
        reply.output = req.name + " =";
        for (uint8_t b : bytes) {
            std::snprintf(line, sizeof(line), " %02x", b);
            reply.output += line;
        }
        reply.output += "\n";
    }
}

// Checks argument `i` of a call of `f` against its kind. 0, or the status of
// the refusal with its line in `why`.
int32_t checkArg(const ShellFunc& f, size_t i, int64_t v, std::string& why) {
    const std::string what = "'" + f.name + "': argument " + std::to_string(i + 1) + " (" + f.argNames[i] + ")";
    switch (f.kinds[i]) {
        case PROC_SHELL_ARG_U32:
            if (v >= 0 && v <= static_cast<int64_t>(UINT32_MAX)) return 0;
            why = what + " must be a number from 0 to 4294967295, not " + std::to_string(v) + "\n";
            return cmdp::ERR_DENIED;
        case PROC_SHELL_ARG_I32:
            if (v >= INT32_MIN && v <= INT32_MAX) return 0;
            why = what + " must be a number from -2147483648 to 2147483647, not " + std::to_string(v) + "\n";
            return cmdp::ERR_DENIED;
        case PROC_SHELL_ARG_IFUNIT:
            // Units are interface indexes: positive ints.
            if (v <= 0 || v > INT32_MAX) {
                why = what + " must be an interface unit, not " + std::to_string(v) + "\n";
                return cmdp::ERR_DENIED;
            }
            ifdbStart();
            if (ifdbName(static_cast<uint32_t>(v)).empty()) {
                why = what + ": no interface has unit " + std::to_string(v) + "\n";
                return cmdp::ERR_NOT_FOUND;
            }
            return 0;
        default:
            why = what + " is of a kind the shell does not know\n";
            return cmdp::ERR_DENIED;
    }
}

Answer shellCall(const cmdp::Frame& frame) {
    cmdp::ShellRequest req;
    if (cmdp::shellRequestDecode(frame.body.data(), frame.body.size(), req) != 0)
        return errorAnswer(cmdp::ERR_MALFORMED, "malformed shell request", frame.header.seq);
    cmdp::ShellReply reply;
    auto answer = [&] { return Answer{cmdp::shellReplyEncode(reply, frame.header.seq), false}; };

    if (shellVariable(req.name)) {
        readVariable(req, reply);
        return answer();
    }

    // The row is copied, so that a registration meanwhile does not change it.
    ShellFunc f;
    std::string list;
    bool found = false, registered = false;
    {
        std::lock_guard<std::mutex> lock(gShellFuncsMutex);
        registered = !gShellFuncs.empty();
        for (const ShellFunc& row : gShellFuncs)
            if (row.name == req.name) {
                f = row;
                found = true;
                break;
            }
        if (!found) list = callableList(gShellFuncs);
    }
    if (!registered) {
        reply.status = cmdp::ERR_DENIED;
        reply.output = "'" + req.name + "' refused: the process registered no diagnostic functions with its shell\n";
        return answer();
    }
    if (!found) {
        reply.status = cmdp::ERR_DENIED;
        reply.output = "'" + req.name + "' is not a diagnostic function of this process\n" + list;
        return answer();
    }
    if (req.args.size() != f.kinds.size()) {
        reply.status = cmdp::ERR_DENIED;
        reply.output = "'" + f.name + "' takes " + std::to_string(f.kinds.size()) + " argument" +
                       (f.kinds.size() == 1 ? "" : "s") + ", not " + std::to_string(req.args.size()) + ": " +
                       signature(f) + "\n";
        return answer();
    }
    int64_t args[PROC_SHELL_MAX_ARGS] = {};
    for (size_t i = 0; i < req.args.size(); i++) {
        std::string why;
        if (int32_t status = checkArg(f, i, req.args[i], why); status != 0) {
            reply.status = status;
            reply.output = why;
            return answer();
        }
        args[i] = req.args[i];
    }
    bool truncated = false;
    reply.result = callCaptured(f.entry, args, reply.output, truncated);
    if (truncated) reply.flags |= cmdp::SHELL_FLAG_TRUNCATED;
    return answer();
}
}  // namespace

}  // namespace linuxplat

using namespace linuxplat;

int32_t procShellFuncInit(const tProcShellFunc* funcs, uint32_t rows) {
    if (funcs == nullptr || rows == 0 || rows > PROC_SHELL_MAX_FUNCS) return ZEL_ERR_INVALID_ARG;
    std::vector<ShellFunc> table;
    for (uint32_t r = 0; r < rows; r++) {
        const tProcShellFunc& row = funcs[r];
        if (!shellNameOk(row.name, cmdp::MAX_NAME) || row.entry == nullptr || row.argCount > PROC_SHELL_MAX_ARGS)
            return ZEL_ERR_INVALID_ARG;
        ShellFunc f;
        f.name = row.name;
        f.entry = row.entry;
        for (uint32_t i = 0; i < row.argCount; i++) {
            uint8_t kind = row.argKinds[i];
            if (kind != PROC_SHELL_ARG_U32 && kind != PROC_SHELL_ARG_I32 && kind != PROC_SHELL_ARG_IFUNIT)
                return ZEL_ERR_INVALID_ARG;
            if (!shellNameOk(row.argNames[i], MAX_ARG_NAME)) return ZEL_ERR_INVALID_ARG;
            f.kinds.push_back(kind);
            f.argNames.push_back(row.argNames[i]);
        }
        // A name twice, or a test variable's name, would make a call ambiguous.
        if (shellVariable(f.name)) return ZEL_ERR_INVALID_ARG;
        for (const ShellFunc& other : table)
            if (other.name == f.name) return ZEL_ERR_INVALID_ARG;
        table.push_back(std::move(f));
    }
    std::lock_guard<std::mutex> lock(gShellFuncsMutex);
    gShellFuncs = std::move(table);
    return 0;
}

int32_t procShellInit(const char* name, uint32_t, uint32_t) {
    platformStart();
    markDaemonProcess();
    if (!serviceNameOk(name)) return ZEL_ERR_INVALID_ARG;
    auto svc = std::make_unique<Service>();
    svc->name = std::string(name) + "Shell";
    svc->path = cmdp::runtimePath(cmdp::shellSocketPath(name));
    svc->kind = cmdp::KIND_SHELL;
    svc->handle = shellCall;
    return serviceStart(std::move(svc), 0600);
}
