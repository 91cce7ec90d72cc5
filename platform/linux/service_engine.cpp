// The service engine of the Linux platform: a local stream socket per
// service, its peers checked when they connect, and one thread per service
// that serves every connection in turn, so that a call made through a
// service always runs on that service's thread. No peer can hold the
// thread: connections are capped per user and in all (with slots kept for
// root), a request must arrive whole and a reply be taken within a
// deadline, and replies are queued and written as the peer takes them. The
// protocol is cmd_proto.h's; what a request does is the handler's business.
#include "platform/linux/service_engine.h"

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/config.h"
#include "platform/linux/internal.h"
#include "platform/linux/os_linux.h"
#include "platform/linux/plat_log.h"
#include "platform/types.h"

namespace linuxplat {

namespace {

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
    if (::listen(fd, 128) != 0) {
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
//
// One thread serves every connection of a service without ever waiting on
// one of them: sockets are non-blocking, a reply is queued on its
// connection and written as the peer takes it, and every wait is bounded
// by a deadline. Requests of a connection are handled one at a time: its
// next request is not read while its reply is still queued, so a peer that
// does not read makes the service hold one reply for it at most.

// Limits of a service's connections. Root may always manage: the last
// ROOT_RESERVED slots are root's, and when every slot is taken a root
// connection closes the most idle connection of another user (or of root,
// if there is none) to make room.
constexpr size_t MAX_CONNECTIONS = 64;  // per service
constexpr size_t MAX_PER_USER = 8;      // per peer uid other than root
constexpr size_t ROOT_RESERVED = 4;     // slots only root takes
constexpr size_t MAX_OTHERS = MAX_CONNECTIONS - ROOT_RESERVED;
constexpr int ACCEPTS_PER_ROUND = 64;  // the connections served wait for no more accepts than this
constexpr size_t MAX_REPLY_FRAME = cmdp::HEADER_LEN + cmdp::MAX_REPLY_BODY;

// Deadlines, in milliseconds; platform.requesttimeout and
// platform.idletimeout change the first two.
constexpr int64_t REQUEST_TIMEOUT_MS = 5000;  // first to last byte of a request; taking a reply
constexpr int64_t IDLE_TIMEOUT_MS = 60000;    // a connection with nothing to say is closed
constexpr int64_t MIN_TIMEOUT_MS = 100;
constexpr int64_t MAX_TIMEOUT_MS = 3600000;

struct Limits {
    int64_t requestMs = REQUEST_TIMEOUT_MS;
    int64_t idleMs = IDLE_TIMEOUT_MS;
};

int64_t timeoutSetting(const char* key, int64_t fallback) {
    uint32_t v = configGetU32(key, static_cast<uint32_t>(fallback));
    if (v < MIN_TIMEOUT_MS || v > MAX_TIMEOUT_MS) {
        platLog(PLAT_LOG_WARNING, "%s: %u is outside %lld..%lld ms; using %lld", key, v,
                static_cast<long long>(MIN_TIMEOUT_MS), static_cast<long long>(MAX_TIMEOUT_MS),
                static_cast<long long>(fallback));
        return fallback;
    }
    return v;
}

struct Conn {
    int fd = -1;
    uid_t uid = 0;
    std::vector<uint8_t> in;     // the request being read
    int64_t requestStart = 0;    // when its first byte came; 0: none begun
    std::vector<uint8_t> out;    // the reply being written
    size_t outOff = 0;           // bytes of it the peer has taken
    int64_t replyQueued = 0;     // when it was queued
    bool closeAfterReply = false;
    int64_t quietSince = 0;      // accepted, or its last reply taken
    bool open = true;

    bool writing() const { return outOff < out.size(); }
    // When it last did something useful: a request half sent counts from
    // its first byte, so that a trickle does not look busy.
    int64_t activity() const {
        if (writing()) return replyQueued;
        if (requestStart != 0) return requestStart;
        return quietSince;
    }
};

struct Engine {
    std::unique_ptr<Service> svc;
    Limits limits;
    std::vector<Conn> conns;
};

// Sends what the socket takes now of a connection's queued reply. False
// when the connection failed.
bool flushOut(Conn& c, int64_t now) {
    while (c.writing()) {
        ssize_t n = ::send(c.fd, c.out.data() + c.outOff, c.out.size() - c.outOff, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            c.outOff += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        return n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    }
    // The whole reply is the kernel's: let the buffer go.
    std::vector<uint8_t>().swap(c.out);
    c.outOff = 0;
    c.quietSince = now;
    if (c.closeAfterReply) c.open = false;
    return true;
}

// Queues a reply and sends what the socket takes of it at once.
void queueReply(Conn& c, std::vector<uint8_t> bytes, bool closeAfter, int64_t now) {
    if (bytes.size() > MAX_REPLY_FRAME) {
        platLog(PLAT_LOG_ERR, "a reply of %zu bytes is beyond the protocol's limit; not sent", bytes.size());
        bytes = errorAnswer(cmdp::ERR_TOO_LONG, "reply too long", 0).reply;
        closeAfter = true;
    }
    c.out = std::move(bytes);
    c.outOff = 0;
    c.replyQueued = now;
    c.closeAfterReply = closeAfter;
    if (!flushOut(c, now)) c.open = false;
}

void queueError(Conn& c, int32_t code, const char* text, uint32_t seq, int64_t now) {
    queueReply(c, errorAnswer(code, text, seq).reply, true, now);
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

// Answers a connection that is not taken with an error frame, if its
// socket takes it at once, and closes it.
void refuse(int fd, int32_t code, const std::string& text) {
    std::vector<uint8_t> bytes = errorAnswer(code, text, 0).reply;
    (void)::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    connClose(fd);
}

bool peerAllowed(const Service& svc, int fd, std::string& who, uid_t& uid) {
    struct ucred cred;
    socklen_t len = sizeof(cred);
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0) {
        who = "unknown peer";
        return false;
    }
    who = "pid " + std::to_string(cred.pid) + " uid " + std::to_string(cred.uid);
    uid = cred.uid;
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

// Reads what the connection has of its request (never more than the frame
// in hand needs: a header, then its body) and handles the request once it
// is whole. Called only while no reply is queued.
void connReadable(Service& svc, Conn& c, int64_t now) {
    size_t want;
    cmdp::Header h;
    if (c.in.size() < cmdp::HEADER_LEN) {
        want = cmdp::HEADER_LEN - c.in.size();
    } else {
        (void)cmdp::headerDecode(c.in.data(), cmdp::MAX_REQUEST_BODY, h);
        want = cmdp::HEADER_LEN + h.length - c.in.size();
    }
    size_t at = c.in.size();
    c.in.resize(at + want);
    ssize_t n = ::recv(c.fd, c.in.data() + at, want, MSG_DONTWAIT);
    if (n < 0) {
        c.in.resize(at);
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) c.open = false;
        return;
    }
    c.in.resize(at + static_cast<size_t>(n));
    if (n == 0) {
        // The peer stopped sending. A request cut short still gets its answer.
        if (!c.in.empty()) queueError(c, cmdp::ERR_MALFORMED, "request cut short", 0, now);
        c.open = false;
        return;
    }
    if (c.requestStart == 0) c.requestStart = now;

    if (c.in.size() < cmdp::HEADER_LEN) return;
    int32_t rc = cmdp::headerDecode(c.in.data(), cmdp::MAX_REQUEST_BODY, h);
    if (rc != 0) {
        const char* text = rc == cmdp::ERR_TOO_LONG      ? "request too long"
                           : rc == cmdp::ERR_UNSUPPORTED ? "protocol version not supported"
                                                         : "not a request of this protocol";
        queueError(c, rc, text, h.seq, now);
        return;
    }
    if (c.in.size() < cmdp::HEADER_LEN + h.length) return;

    cmdp::Frame frame;
    frame.header = h;
    frame.body.assign(c.in.begin() + cmdp::HEADER_LEN, c.in.end());
    std::vector<uint8_t>().swap(c.in);
    c.requestStart = 0;
    Answer a = h.kind != svc.kind ? errorAnswer(cmdp::ERR_UNSUPPORTED, "request kind not served here", h.seq)
               : svc.handleFrom   ? svc.handleFrom(frame, c.uid)
                                  : svc.handle(frame);
    queueReply(c, std::move(a.reply), a.close, now);
}

// Applies the deadlines of a connection; the time of its next one.
int64_t connDeadlines(const Limits& limits, Conn& c, int64_t now) {
    if (c.writing()) {
        // A reply must be taken whole within the request deadline.
        int64_t due = c.replyQueued + limits.requestMs;
        if (now >= due) c.open = false;
        return due;
    }
    if (c.requestStart != 0) {
        // A request must be whole within the deadline from its first byte.
        int64_t due = c.requestStart + limits.requestMs;
        if (now >= due) {
            std::vector<uint8_t>().swap(c.in);
            c.requestStart = 0;
            queueError(c, cmdp::ERR_MALFORMED, "request incomplete", 0, now);
            return c.replyQueued + limits.requestMs;
        }
        return due;
    }
    int64_t due = c.quietSince + limits.idleMs;
    if (now >= due) c.open = false;
    return due;
}

// Room for a new connection of `uid`; "" when it may be taken, else why
// not. For root, a full service closes its most idle connection of another
// user (or of root when every one is root's).
std::string makeRoom(Engine& e, uid_t uid) {
    if (uid != 0) {
        size_t mine = 0, others = 0;
        for (const Conn& c : e.conns) {
            if (c.uid == 0) continue;
            others++;
            if (c.uid == uid) mine++;
        }
        if (mine >= MAX_PER_USER)
            return "too many connections of uid " + std::to_string(uid) + " (at most " + std::to_string(MAX_PER_USER) +
                   ")";
        if (others >= MAX_OTHERS || e.conns.size() >= MAX_CONNECTIONS)
            return "too many connections (at most " + std::to_string(MAX_OTHERS) + ", and " +
                   std::to_string(ROOT_RESERVED) + " more for root)";
        return "";
    }
    if (e.conns.size() < MAX_CONNECTIONS) return "";
    size_t victim = e.conns.size();
    for (int pass = 0; pass < 2 && victim == e.conns.size(); pass++) {
        for (size_t i = 0; i < e.conns.size(); i++) {
            const Conn& c = e.conns[i];
            if (pass == 0 && c.uid == 0) continue;
            if (victim == e.conns.size() || c.activity() < e.conns[victim].activity()) victim = i;
        }
    }
    Conn& v = e.conns[victim];
    platLog(PLAT_LOG_NOTICE, "%s: connection of uid %u closed to make room for root", e.svc->name.c_str(),
            static_cast<unsigned>(v.uid));
    connClose(v.fd);
    e.conns.erase(e.conns.begin() + static_cast<std::ptrdiff_t>(victim));
    return "";
}

void acceptNew(Engine& e, int64_t now) {
    Service& svc = *e.svc;
    for (int i = 0; i < ACCEPTS_PER_ROUND; i++) {
        int fd = ::accept4(svc.listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0) {
            if (errno == EMFILE || errno == ENFILE)
                platLog(PLAT_LOG_WARNING, "%s: accept: %s", svc.name.c_str(), std::strerror(errno));
            return;
        }
        std::string who;
        uid_t uid = 0;
        if (!peerAllowed(svc, fd, who, uid)) {
            platLog(PLAT_LOG_WARNING, "%s: %s refused", svc.name.c_str(), who.c_str());
            refuse(fd, cmdp::ERR_DENIED, "permission denied");
            continue;
        }
        std::string why = makeRoom(e, uid);
        if (!why.empty()) {
            refuse(fd, cmdp::ERR_UNSUPPORTED, why);
            continue;
        }
        Conn c;
        c.fd = fd;
        c.uid = uid;
        c.quietSince = now;
        e.conns.push_back(std::move(c));
    }
}

void* serviceThread(void* arg) {
    std::unique_ptr<Engine> e(static_cast<Engine*>(arg));
    blockAsyncSignals();
    std::vector<struct pollfd> fds;
    int64_t next = nowMs() + 1000;
    for (;;) {
        fds.clear();
        fds.push_back(pollfd{e->svc->listenFd, POLLIN, 0});
        // A connection is read only while it has no reply queued.
        for (const Conn& c : e->conns) fds.push_back(pollfd{c.fd, static_cast<short>(c.writing() ? POLLOUT : POLLIN), 0});
        int64_t wait = next - nowMs();
        wait = wait < 0 ? 0 : wait > 1000 ? 1000 : wait;
        int rc = ::poll(fds.data(), fds.size(), static_cast<int>(wait));
        if (rc < 0 && errno != EINTR) {
            platLog(PLAT_LOG_ERR, "%s: poll: %s", e->svc->name.c_str(), std::strerror(errno));
            ::sleep(1);
            continue;
        }
        int64_t now = nowMs();
        next = now + 1000;
        for (size_t i = 0; i < e->conns.size(); i++) {
            Conn& c = e->conns[i];
            short ev = rc > 0 ? fds[i + 1].revents : 0;
            if (c.writing()) {
                if ((ev & (POLLOUT | POLLERR | POLLHUP)) != 0 && !flushOut(c, now)) c.open = false;
            } else if ((ev & (POLLIN | POLLHUP | POLLERR)) != 0) {
                connReadable(*e->svc, c, now);
            }
            if (c.open) {
                int64_t due = connDeadlines(e->limits, c, now);
                if (due < next) next = due;
            }
        }
        size_t kept = 0;
        for (size_t i = 0; i < e->conns.size(); i++) {
            if (!e->conns[i].open) connClose(e->conns[i].fd);
            else if (kept++ != i) e->conns[kept - 1] = std::move(e->conns[i]);
        }
        e->conns.resize(kept);

        if (rc > 0 && (fds[0].revents & POLLIN) != 0) acceptNew(*e, now);
    }
    return nullptr;
}

}  // namespace

int32_t serviceStart(std::unique_ptr<Service> svc, mode_t mode) {
    svc->listenFd = listenAt(svc->path, mode, svc->gid);
    // The daemon's start-up goes on whatever a service start returns; a
    // daemon that cannot be managed ends here instead.
    if (svc->listenFd < 0 && isDaemonProcess()) platformFailClosed(svc->name + " cannot listen at " + svc->path);
    if (svc->listenFd < 0) return ZEL_ERR_GENERAL;
    auto e = std::make_unique<Engine>();
    e->limits.requestMs = timeoutSetting("platform.requesttimeout", REQUEST_TIMEOUT_MS);
    e->limits.idleMs = timeoutSetting("platform.idletimeout", IDLE_TIMEOUT_MS);
    e->svc = std::move(svc);
    std::string name = e->svc->name;
    std::string path = e->svc->path;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attr, 1u << 20);
    pthread_t tid;
    Engine* raw = e.release();
    int rc = pthread_create(&tid, &attr, serviceThread, raw);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        ::close(raw->svc->listenFd);
        delete raw;
        platLog(PLAT_LOG_ERR, "%s: cannot start its thread: %s", name.c_str(), std::strerror(rc));
        return ZEL_ERR_NO_RESOURCE;
    }
    pthread_setname_np(tid, name.substr(0, 15).c_str());
    platLog(PLAT_LOG_INFO, "%s listening at %s", name.c_str(), path.c_str());
    return 0;
}

Answer errorAnswer(int32_t code, const std::string& text, uint32_t seq) {
    return Answer{cmdp::errorReplyEncode(cmdp::ErrorReply{code, text}, seq), true};
}

bool serviceNameOk(const char* name) {
    if (name == nullptr || name[0] == '\0' || std::strlen(name) > 32) return false;
    for (const char* p = name; *p != '\0'; p++)
        if (!((*p >= 'a' && *p <= 'z') || (*p >= 'A' && *p <= 'Z') || (*p >= '0' && *p <= '9') || *p == '_'))
            return false;
    return true;
}
void servicesCleanup() {
    std::lock_guard<std::mutex> lock(gFilesMutex);
    for (const auto& [path, ino] : gFiles) {
        struct stat st;
        if (::lstat(path.c_str(), &st) == 0 && st.st_ino == ino) ::unlink(path.c_str());
    }
    gFiles.clear();
}
}  // namespace linuxplat
