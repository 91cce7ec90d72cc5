// Process services: the command service (management entry points of the
// process, called by other processes), the process shell (exported functions
// called by name), the platform event socket (route events raised by hand)
// and the signal handling that ends the process cleanly.
//
// Each service listens on a local stream socket and runs on one thread of
// its own, which serves every connection in turn: a call made through the
// service always runs on that thread. The protocol is cmd_proto.h's.
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <grp.h>
#include <link.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/cmd_proto.h"
#include "platform/linux/config.h"
#include "platform/linux/internal.h"
#include "platform/linux/os_linux.h"
#include "platform/linux/plat_log.h"
#include "platform/linux/rtnl.h"
#include "platform/services.h"
#include "platform/types.h"

namespace linuxplat {

namespace {

constexpr size_t MAX_CONNECTIONS = 16;
constexpr int64_t PARTIAL_TIMEOUT_MS = 10000;  // a request begun must be complete by then
constexpr int64_t IDLE_TIMEOUT_MS = 300000;    // a connection with nothing to say is closed
constexpr int64_t WRITE_TIMEOUT_MS = 5000;

int64_t nowMs() {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// ---- socket files ----------------------------------------------------------------------

std::mutex gFilesMutex;
auto& gFiles = *new std::vector<std::pair<std::string, ino_t>>;

void makeParent(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0) return;
    std::string dir = path.substr(0, slash);
    struct stat st;
    if (::stat(dir.c_str(), &st) == 0) return;
    makeParent(dir);
    if (::mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST)
        platLog(PLAT_LOG_ERR, "cannot create %s: %s", dir.c_str(), std::strerror(errno));
}

// A listening socket at `path` with `mode`, owned by root and `gid`.
int listenAt(const std::string& path, mode_t mode, gid_t gid) {
    struct sockaddr_un addr;
    std::memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof(addr.sun_path)) {
        platLog(PLAT_LOG_ERR, "socket path too long: %s", path.c_str());
        return -1;
    }
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    makeParent(path);
    struct stat st;
    if (::lstat(path.c_str(), &st) == 0) {
        if (!S_ISSOCK(st.st_mode)) {
            platLog(PLAT_LOG_ERR, "%s exists and is not a socket; not replaced", path.c_str());
            return -1;
        }
        ::unlink(path.c_str());  // left behind by an earlier run
    }
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return -1;
    // Created with no access at all, opened up once owner and mode are right.
    mode_t old = ::umask(0777);
    int rc = ::bind(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr));
    ::umask(old);
    if (rc != 0) {
        platLog(PLAT_LOG_ERR, "%s: bind: %s", path.c_str(), std::strerror(errno));
        ::close(fd);
        return -1;
    }
    if (::chown(path.c_str(), 0, gid) != 0)
        platLog(PLAT_LOG_WARNING, "%s: chown: %s", path.c_str(), std::strerror(errno));
    if (::chmod(path.c_str(), mode) != 0) platLog(PLAT_LOG_WARNING, "%s: chmod: %s", path.c_str(), std::strerror(errno));
    if (::listen(fd, 16) != 0) {
        ::close(fd);
        return -1;
    }
    if (::lstat(path.c_str(), &st) == 0) {
        std::lock_guard<std::mutex> lock(gFilesMutex);
        gFiles.emplace_back(path, st.st_ino);
    }
    return fd;
}

// ---- the service engine ----------------------------------------------------------------

// What a request handler answers: the reply frame, and whether the
// connection ends after it.
struct Answer {
    std::vector<uint8_t> reply;
    bool close = false;
};

struct Service {
    std::string name;
    std::string path;
    int listenFd = -1;
    uint8_t kind = 0;         // the one request kind the service serves
    bool groupAllowed = false;  // besides root, members of `gid` may use it
    gid_t gid = 0;
    std::function<Answer(const cmdp::Frame&)> handle;
};

struct Conn {
    int fd = -1;
    std::vector<uint8_t> buf;
    int64_t last = 0;
};

Answer errorAnswer(int32_t code, const std::string& text, uint32_t seq) {
    return Answer{cmdp::errorReplyEncode(cmdp::ErrorReply{code, text}, seq), true};
}

bool sendReply(int fd, const std::vector<uint8_t>& bytes) {
    size_t off = 0;
    int64_t deadline = nowMs() + WRITE_TIMEOUT_MS;
    while (off < bytes.size()) {
        ssize_t n = ::send(fd, bytes.data() + off, bytes.size() - off, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            off += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno != EAGAIN) return false;
        int64_t left = deadline - nowMs();
        if (left <= 0) return false;
        struct pollfd p = {fd, POLLOUT, 0};
        (void)::poll(&p, 1, static_cast<int>(left));
    }
    return true;
}

// Closes a connection. What the peer sent and was not read is taken first
// (a little of it at most), so that the peer sees an orderly end after the
// last reply rather than a reset.
void connClose(int fd) {
    uint8_t sink[4096];
    for (int i = 0; i < 16; i++)
        if (::recv(fd, sink, sizeof(sink), MSG_DONTWAIT) <= 0) break;
    ::close(fd);
}

bool peerAllowed(const Service& svc, int fd, std::string& who) {
    struct ucred cred;
    socklen_t len = sizeof(cred);
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0) {
        who = "unknown peer";
        return false;
    }
    who = "pid " + std::to_string(cred.pid) + " uid " + std::to_string(cred.uid);
    if (cred.uid == 0) return true;
    if (!svc.groupAllowed) return false;
    if (cred.gid == svc.gid) return true;
    gid_t groups[256];
    socklen_t glen = sizeof(groups);
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups, &glen) == 0) {
        for (size_t i = 0; i < glen / sizeof(gid_t); i++)
            if (groups[i] == svc.gid) return true;
    }
    return false;
}

// Reads what the connection has and handles every complete request in it.
// False when the connection is to be closed.
bool connReadable(Service& svc, Conn& c) {
    // Never more than the frame in hand needs: a header, then its body.
    size_t want;
    cmdp::Header h;
    if (c.buf.size() < cmdp::HEADER_LEN) {
        want = cmdp::HEADER_LEN - c.buf.size();
    } else {
        (void)cmdp::headerDecode(c.buf.data(), cmdp::MAX_REQUEST_BODY, h);
        want = cmdp::HEADER_LEN + h.length - c.buf.size();
    }
    size_t at = c.buf.size();
    c.buf.resize(at + want);
    ssize_t n = ::recv(c.fd, c.buf.data() + at, want, MSG_DONTWAIT);
    if (n < 0) {
        c.buf.resize(at);
        return errno == EAGAIN || errno == EINTR;
    }
    c.buf.resize(at + static_cast<size_t>(n));
    if (n == 0) {
        // The peer stopped sending. A request cut short still gets its answer.
        if (!c.buf.empty())
            (void)sendReply(c.fd, errorAnswer(cmdp::ERR_MALFORMED, "request cut short", 0).reply);
        return false;
    }
    c.last = nowMs();

    if (c.buf.size() < cmdp::HEADER_LEN) return true;
    int32_t rc = cmdp::headerDecode(c.buf.data(), cmdp::MAX_REQUEST_BODY, h);
    if (rc != 0) {
        const char* text = rc == cmdp::ERR_TOO_LONG      ? "request too long"
                           : rc == cmdp::ERR_UNSUPPORTED ? "protocol version not supported"
                                                         : "not a request of this protocol";
        (void)sendReply(c.fd, errorAnswer(rc, text, h.seq).reply);
        return false;
    }
    if (c.buf.size() < cmdp::HEADER_LEN + h.length) return true;

    cmdp::Frame frame;
    frame.header = h;
    frame.body.assign(c.buf.begin() + cmdp::HEADER_LEN, c.buf.end());
    c.buf.clear();
    Answer a = h.kind == svc.kind ? svc.handle(frame)
                                  : errorAnswer(cmdp::ERR_UNSUPPORTED, "request kind not served here", h.seq);
    if (!sendReply(c.fd, a.reply)) return false;
    return !a.close;
}

void* serviceThread(void* arg) {
    std::unique_ptr<Service> svc(static_cast<Service*>(arg));
    blockAsyncSignals();
    std::vector<Conn> conns;
    for (;;) {
        std::vector<struct pollfd> fds;
        fds.push_back(pollfd{svc->listenFd, POLLIN, 0});
        for (const Conn& c : conns) fds.push_back(pollfd{c.fd, POLLIN, 0});
        int rc = ::poll(fds.data(), fds.size(), 1000);
        if (rc < 0 && errno != EINTR) {
            platLog(PLAT_LOG_ERR, "%s: poll: %s", svc->name.c_str(), std::strerror(errno));
            ::sleep(1);
            continue;
        }
        int64_t now = nowMs();
        std::vector<Conn> keep;
        for (size_t i = 0; i < conns.size(); i++) {
            Conn& c = conns[i];
            bool open = true;
            if (rc > 0 && (fds[i + 1].revents & (POLLIN | POLLHUP | POLLERR)) != 0) open = connReadable(*svc, c);
            if (open && !c.buf.empty() && now - c.last > PARTIAL_TIMEOUT_MS) {
                (void)sendReply(c.fd, errorAnswer(cmdp::ERR_MALFORMED, "request incomplete", 0).reply);
                open = false;
            }
            if (open && c.buf.empty() && now - c.last > IDLE_TIMEOUT_MS) open = false;
            if (open) keep.push_back(std::move(c));
            else connClose(c.fd);
        }
        conns = std::move(keep);

        if (rc > 0 && (fds[0].revents & POLLIN) != 0) {
            for (;;) {
                int fd = ::accept4(svc->listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
                if (fd < 0) break;
                std::string who;
                if (!peerAllowed(*svc, fd, who)) {
                    platLog(PLAT_LOG_WARNING, "%s: %s refused", svc->name.c_str(), who.c_str());
                    (void)sendReply(fd, errorAnswer(cmdp::ERR_DENIED, "permission denied", 0).reply);
                    connClose(fd);
                    continue;
                }
                if (conns.size() >= MAX_CONNECTIONS) {
                    (void)sendReply(fd, errorAnswer(cmdp::ERR_UNSUPPORTED, "too many connections", 0).reply);
                    connClose(fd);
                    continue;
                }
                conns.push_back(Conn{fd, {}, nowMs()});
            }
        }
    }
    return nullptr;
}

int32_t serviceStart(std::unique_ptr<Service> svc, mode_t mode) {
    svc->listenFd = listenAt(svc->path, mode, svc->gid);
    if (svc->listenFd < 0) return ZEL_ERR_GENERAL;
    std::string name = svc->name;
    std::string path = svc->path;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attr, 1u << 20);
    pthread_t tid;
    Service* raw = svc.release();
    int rc = pthread_create(&tid, &attr, serviceThread, raw);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        ::close(raw->listenFd);
        delete raw;
        platLog(PLAT_LOG_ERR, "%s: cannot start its thread: %s", name.c_str(), std::strerror(rc));
        return ZEL_ERR_NO_RESOURCE;
    }
    pthread_setname_np(tid, name.substr(0, 15).c_str());
    platLog(PLAT_LOG_INFO, "%s listening at %s", name.c_str(), path.c_str());
    return 0;
}

// ---- command service --------------------------------------------------------------------

struct StrValue {  // the entry points' {text pointer, length} value
    char* str;
    uint32_t len;
};

using EntryCmd = int32_t (*)(uint32_t, uint32_t, void*);
using EntryFirst = int32_t (*)(uint32_t*);
using EntryNext = int32_t (*)(uint32_t, uint32_t*);

Answer commandCall(const tIcmFuncMap* map, uint32_t rows, const cmdp::Frame& frame) {
    cmdp::CallRequest req;
    if (cmdp::callRequestDecode(frame.body.data(), frame.body.size(), req) != 0)
        return errorAnswer(cmdp::ERR_MALFORMED, "malformed call", frame.header.seq);
    if (req.valueKind == cmdp::VALUE_STR && req.lenWord > req.capacity)
        return errorAnswer(cmdp::ERR_MALFORMED, "length word beyond the buffer", frame.header.seq);
    bool iterator = req.code == 4 || req.code == 5;
    if (iterator && req.valueKind != cmdp::VALUE_U32)
        return errorAnswer(cmdp::ERR_MALFORMED, "an iterator takes a u32 value", frame.header.seq);

    cmdp::CallReply reply;
    reply.valueKind = req.valueKind;
    tIcmEntry func = nullptr;
    for (uint32_t i = 0; map != nullptr && i < rows; i++)
        if (map[i].code == req.code) {
            func = map[i].func;
            break;
        }
    if (func == nullptr || req.code == 0 || req.code > 8) {
        reply.result = cmdp::ERR_UNSUPPORTED;
        reply.lenWord = req.lenWord;
        return Answer{cmdp::callReplyEncode(reply, frame.header.seq), false};
    }

    uint32_t word = req.lenWord;
    std::vector<char> buf(req.capacity > 0 ? req.capacity : 1, '\0');
    if (!req.data.empty()) std::memcpy(buf.data(), req.data.data(), req.data.size());
    StrValue sv{buf.data(), req.lenWord};
    void* value = nullptr;
    switch (req.valueKind) {
        case cmdp::VALUE_U32: value = &word; break;
        case cmdp::VALUE_STR: value = &sv; break;
        case cmdp::VALUE_RAW: value = buf.data(); break;
        default: break;
    }
    if (req.code == 4) reply.result = reinterpret_cast<EntryFirst>(func)(&word);
    else if (req.code == 5) reply.result = reinterpret_cast<EntryNext>(func)(req.unit, &word);
    else reply.result = reinterpret_cast<EntryCmd>(func)(req.unit, req.cmd, value);

    switch (req.valueKind) {
        case cmdp::VALUE_U32: reply.lenWord = word; break;
        case cmdp::VALUE_STR: {
            reply.lenWord = sv.len;
            size_t n = sv.len < req.capacity ? sv.len : req.capacity;
            reply.data.assign(buf.begin(), buf.begin() + static_cast<std::ptrdiff_t>(n));
            break;
        }
        case cmdp::VALUE_RAW: reply.data.assign(buf.begin(), buf.begin() + req.capacity); break;
        default: break;
    }
    return Answer{cmdp::callReplyEncode(reply, frame.header.seq), false};
}

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

// ---- event socket ------------------------------------------------------------------------

Answer eventCall(const cmdp::Frame& frame) {
    cmdp::EventRequest req;
    if (cmdp::eventRequestDecode(frame.body.data(), frame.body.size(), req) != 0)
        return errorAnswer(cmdp::ERR_MALFORMED, "malformed event request", frame.header.seq);
    cmdp::EventReply reply;
    if (req.event == cmdp::EVENT_RESET_PORT) {
        uint32_t unit = req.unit != 0 ? req.unit : ifdbUnitByName(req.ifName);
        if (unit == 0 || ifdbName(unit).empty()) {
            reply.result = cmdp::ERR_NOT_FOUND;
        } else {
            reply.delivered = routeDeliver(rtMsgResetPort(static_cast<int32_t>(unit)));
            platLog(PLAT_LOG_INFO, "event: reset of port %u (%s) raised, %u receiver(s)", unit,
                    ifdbName(unit).c_str(), reply.delivered);
        }
    } else {
        reply.delivered = routeDeliver(rtMsgResetProto(req.protos));
        platLog(PLAT_LOG_INFO, "event: reset of %zu protocol(s) raised, %u receiver(s)", req.protos.size(),
                reply.delivered);
    }
    return Answer{cmdp::eventReplyEncode(reply, frame.header.seq), false};
}

// ---- signals --------------------------------------------------------------------------------

void* signalThread(void* arg) {
    sigset_t* set = static_cast<sigset_t*>(arg);
    for (;;) {
        int sig = 0;
        if (::sigwait(set, &sig) != 0) continue;
        if (sig == SIGHUP) {
            platLog(PLAT_LOG_NOTICE, "SIGHUP: the configuration is read at start only; restart to apply changes");
            continue;
        }
        platLog(PLAT_LOG_NOTICE, "stopping on signal %d", sig);
        platformCleanup();
        ::_exit(0);
    }
    return nullptr;
}

gid_t serviceGroup() {
    auto g = configGet("platform.group");
    if (!g || g->empty()) return 0;
    uint32_t n = 0;
    if (configParseU32(*g, n)) return static_cast<gid_t>(n);
    struct group grp;
    struct group* found = nullptr;
    std::vector<char> buf(16384);
    if (::getgrnam_r(g->c_str(), &grp, buf.data(), buf.size(), &found) == 0 && found != nullptr) return grp.gr_gid;
    platLog(PLAT_LOG_WARNING, "platform.group '%s' not found; the command service is root's only", g->c_str());
    return 0;
}

bool serviceNameOk(const char* name) {
    if (name == nullptr || name[0] == '\0' || std::strlen(name) > 32) return false;
    for (const char* p = name; *p != '\0'; p++)
        if (!((*p >= 'a' && *p <= 'z') || (*p >= 'A' && *p <= 'Z') || (*p >= '0' && *p <= '9') || *p == '_'))
            return false;
    return true;
}

std::once_flag gEventOnce;

}  // namespace

void servicesCleanup() {
    std::lock_guard<std::mutex> lock(gFilesMutex);
    for (const auto& [path, ino] : gFiles) {
        struct stat st;
        if (::lstat(path.c_str(), &st) == 0 && st.st_ino == ino) ::unlink(path.c_str());
    }
    gFiles.clear();
}

void eventServiceStart() {
    std::call_once(gEventOnce, [] {
        auto svc = std::make_unique<Service>();
        svc->name = "zelRouteEvent";
        svc->path = cmdp::runtimePath(cmdp::EVENT_SOCKET);
        svc->kind = cmdp::KIND_EVENT;
        svc->handle = eventCall;
        (void)serviceStart(std::move(svc), 0600);
    });
}

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

void patchSignalHandler(void) {
    platformStart();
    static bool done = false;
    if (done) return;
    done = true;
    // Blocked here, so in every thread started from now on; one thread waits for them.
    static sigset_t set;
    sigemptyset(&set);
    for (int s : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) sigaddset(&set, s);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    pthread_t tid;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    if (pthread_create(&tid, &attr, signalThread, &set) == 0) pthread_setname_np(tid, "zelSignal");
    else platLog(PLAT_LOG_ERR, "cannot start the signal thread");
    pthread_attr_destroy(&attr);
}

int32_t icmProcTcpInit(const char* service, const char* path, const tIcmFuncMap* map, uint32_t rows) {
    platformStart();
    if (service == nullptr || path == nullptr || map == nullptr) return ZEL_ERR_NULL_POINTER;
    if (!serviceNameOk(service) || rows == 0 || rows > 64) return ZEL_ERR_INVALID_ARG;
    auto svc = std::make_unique<Service>();
    svc->name = service;
    svc->path = cmdp::runtimePath(path);
    svc->kind = cmdp::KIND_CALL;
    svc->gid = serviceGroup();
    svc->groupAllowed = svc->gid != 0;
    svc->handle = [map, rows](const cmdp::Frame& f) { return commandCall(map, rows, f); };
    return serviceStart(std::move(svc), 0660);
}
