// The process shell: an operator calls the process's exported diagnostic
// functions by name and reads what they print (service_engine.h serves the
// socket).
#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

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

std::string& gShellPrefix = *new std::string;  // names a shell call may use: the process's own prefix
std::mutex gStdoutMutex;

constexpr const char* SHELL_VARIABLES[] = {"gPppoeplusTestForward", "gTestOnuInfo"};

bool shellVariable(const std::string& name) {
    for (const char* v : SHELL_VARIABLES)
        if (name == v) return true;
    return false;
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

using ShellFn = intptr_t (*)(intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t,
                             intptr_t, intptr_t);

// Calls `fn` with what it prints to standard output captured.
intptr_t callCaptured(ShellFn fn, const intptr_t a[10], std::string& output, bool& truncated) {
    std::lock_guard<std::mutex> lock(gStdoutMutex);
    std::fflush(stdout);
    int capture = ::memfd_create("pppoeplus-shell", MFD_CLOEXEC);
    int saved = ::dup(STDOUT_FILENO);
    if (capture >= 0) ::dup2(capture, STDOUT_FILENO);
    intptr_t r = fn(a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9]);
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

Answer shellCall(const cmdp::Frame& frame) {
    cmdp::ShellRequest req;
    if (cmdp::shellRequestDecode(frame.body.data(), frame.body.size(), req) != 0)
        return errorAnswer(cmdp::ERR_MALFORMED, "malformed shell request", frame.header.seq);
    cmdp::ShellReply reply;
    auto answer = [&] { return Answer{cmdp::shellReplyEncode(reply, frame.header.seq), false}; };

    bool variable = shellVariable(req.name);
    if (!variable && (gShellPrefix.empty() || req.name.compare(0, gShellPrefix.size(), gShellPrefix) != 0)) {
        reply.status = cmdp::ERR_DENIED;
        reply.output = "'" + req.name + "' is not a function of this process\n";
        return answer();
    }
    void* addr = ::dlsym(RTLD_DEFAULT, req.name.c_str());
    unsigned type = 0;
    size_t size = 0;
    if (addr == nullptr || !symbolInfo(addr, type, size)) {
        reply.status = cmdp::ERR_NOT_FOUND;
        reply.output = "'" + req.name + "' not found\n";
        return answer();
    }
    if (variable) {
        if (type != STT_OBJECT || !req.args.empty()) {
            reply.status = cmdp::ERR_DENIED;
            reply.output = "'" + req.name + "' is a variable and takes no arguments\n";
            return answer();
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
        return answer();
    }
    if (type != STT_FUNC && type != STT_GNU_IFUNC) {
        reply.status = cmdp::ERR_DENIED;
        reply.output = "'" + req.name + "' is not a function\n";
        return answer();
    }
    intptr_t args[10] = {};
    for (size_t i = 0; i < req.args.size() && i < 10; i++) args[i] = static_cast<intptr_t>(req.args[i]);
    bool truncated = false;
    intptr_t r = callCaptured(reinterpret_cast<ShellFn>(addr), args, reply.output, truncated);
    reply.result = static_cast<int32_t>(r);
    if (truncated) reply.flags |= cmdp::SHELL_FLAG_TRUNCATED;
    return answer();
}
}  // namespace

}  // namespace linuxplat

using namespace linuxplat;

int32_t procShellInit(const char* name, uint32_t, uint32_t) {
    platformStart();
    markDaemonProcess();
    if (!serviceNameOk(name)) return ZEL_ERR_INVALID_ARG;
    gShellPrefix = name;
    auto svc = std::make_unique<Service>();
    svc->name = std::string(name) + "Shell";
    svc->path = cmdp::runtimePath(cmdp::shellSocketPath(name));
    svc->kind = cmdp::KIND_SHELL;
    svc->handle = shellCall;
    return serviceStart(std::move(svc), 0600);
}
