// Building and reading the frames of the services' protocol, and the client
// side of a connection.
#include "platform/linux/cmd_proto.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace cmdp {

namespace {

// ---- big-endian writer and bounded reader ----------------------------------------

struct Writer {
    std::vector<uint8_t> out;
    void u8(uint8_t v) { out.push_back(v); }
    void u16(uint16_t v) {
        out.push_back(static_cast<uint8_t>(v >> 8));
        out.push_back(static_cast<uint8_t>(v));
    }
    void u32(uint32_t v) {
        for (int s = 24; s >= 0; s -= 8) out.push_back(static_cast<uint8_t>(v >> s));
    }
    void u64(uint64_t v) {
        for (int s = 56; s >= 0; s -= 8) out.push_back(static_cast<uint8_t>(v >> s));
    }
    void bytes(const void* p, size_t n) {
        const auto* b = static_cast<const uint8_t*>(p);
        out.insert(out.end(), b, b + n);
    }
};

// Every read checks that the bytes are there; a failed read sets `bad` and
// returns 0, so a body is judged once at the end.
struct Reader {
    const uint8_t* p;
    size_t len;
    size_t pos = 0;
    bool bad = false;
    bool have(size_t n) {
        if (bad || n > len - pos) {
            bad = true;
            return false;
        }
        return true;
    }
    uint8_t u8() { return have(1) ? p[pos++] : 0; }
    uint16_t u16() {
        if (!have(2)) return 0;
        uint16_t v = static_cast<uint16_t>((p[pos] << 8) | p[pos + 1]);
        pos += 2;
        return v;
    }
    uint32_t u32() {
        if (!have(4)) return 0;
        uint32_t v = (static_cast<uint32_t>(p[pos]) << 24) | (static_cast<uint32_t>(p[pos + 1]) << 16) |
                     (static_cast<uint32_t>(p[pos + 2]) << 8) | p[pos + 3];
        pos += 4;
        return v;
    }
    uint64_t u64() {
        uint64_t hi = u32();
        uint64_t lo = u32();
        return (hi << 32) | lo;
    }
    const uint8_t* bytes(size_t n) {
        if (!have(n)) return nullptr;
        const uint8_t* b = p + pos;
        pos += n;
        return b;
    }
    // The whole body was read, and nothing more is there.
    bool done() const { return !bad && pos == len; }
};

std::vector<uint8_t> frame(uint8_t kind, uint32_t seq, const Writer& body) {
    Header h;
    h.kind = kind;
    h.length = static_cast<uint32_t>(body.out.size());
    h.seq = seq;
    std::vector<uint8_t> out(HEADER_LEN + body.out.size());
    headerEncode(h, out.data());
    if (!body.out.empty()) std::memcpy(out.data() + HEADER_LEN, body.out.data(), body.out.size());
    return out;
}

bool nameOk(const std::string& name) {
    if (name.empty() || name.size() > MAX_NAME) return false;
    for (char c : name)
        if (c <= ' ' || c > '~') return false;
    return true;
}

}  // namespace

// ---- header ---------------------------------------------------------------------------

void headerEncode(const Header& h, uint8_t out[HEADER_LEN]) {
    out[0] = static_cast<uint8_t>(h.magic >> 8);
    out[1] = static_cast<uint8_t>(h.magic);
    out[2] = h.version;
    out[3] = h.kind;
    for (int i = 0; i < 4; i++) out[4 + i] = static_cast<uint8_t>(h.length >> (24 - 8 * i));
    for (int i = 0; i < 4; i++) out[8 + i] = static_cast<uint8_t>(h.seq >> (24 - 8 * i));
}

int32_t headerDecode(const uint8_t in[HEADER_LEN], uint32_t maxBody, Header& out) {
    Reader r{in, HEADER_LEN};
    out.magic = r.u16();
    out.version = r.u8();
    out.kind = r.u8();
    out.length = r.u32();
    out.seq = r.u32();
    if (out.magic != MAGIC) return ERR_MALFORMED;
    if (out.version != VERSION) return ERR_UNSUPPORTED;
    if (out.length > maxBody) return ERR_TOO_LONG;
    return 0;
}

// ---- call ------------------------------------------------------------------------------

std::vector<uint8_t> callRequestEncode(const CallRequest& r, uint32_t seq) {
    Writer w;
    w.u32(r.code);
    w.u32(r.unit);
    w.u32(r.cmd);
    w.u8(r.valueKind);
    w.u8(0);
    w.u8(0);
    w.u8(0);
    w.u32(r.lenWord);
    w.u32(r.capacity);
    w.u32(static_cast<uint32_t>(r.data.size()));
    w.bytes(r.data.data(), r.data.size());
    return frame(KIND_CALL, seq, w);
}

int32_t callRequestDecode(const uint8_t* body, size_t len, CallRequest& out) {
    Reader r{body, len};
    CallRequest q;
    q.code = r.u32();
    q.unit = r.u32();
    q.cmd = r.u32();
    q.valueKind = r.u8();
    r.bytes(3);
    q.lenWord = r.u32();
    q.capacity = r.u32();
    uint32_t dataLen = r.u32();
    if (r.bad) return ERR_MALFORMED;
    if (q.valueKind > VALUE_RAW) return ERR_MALFORMED;
    if (q.capacity > MAX_VALUE || dataLen > q.capacity) return ERR_MALFORMED;
    if ((q.valueKind == VALUE_NONE || q.valueKind == VALUE_U32) && (q.capacity != 0 || dataLen != 0))
        return ERR_MALFORMED;
    const uint8_t* data = r.bytes(dataLen);
    if (!r.done()) return ERR_MALFORMED;
    if (dataLen > 0) q.data.assign(data, data + dataLen);
    out = std::move(q);
    return 0;
}

std::vector<uint8_t> callReplyEncode(const CallReply& r, uint32_t seq) {
    Writer w;
    w.u32(static_cast<uint32_t>(r.result));
    w.u8(r.valueKind);
    w.u8(0);
    w.u8(0);
    w.u8(0);
    w.u32(r.lenWord);
    w.u32(static_cast<uint32_t>(r.data.size()));
    w.bytes(r.data.data(), r.data.size());
    return frame(KIND_CALL | REPLY_BIT, seq, w);
}

int32_t callReplyDecode(const uint8_t* body, size_t len, CallReply& out) {
    Reader r{body, len};
    CallReply q;
    q.result = static_cast<int32_t>(r.u32());
    q.valueKind = r.u8();
    r.bytes(3);
    q.lenWord = r.u32();
    uint32_t dataLen = r.u32();
    if (r.bad || dataLen > MAX_VALUE) return ERR_MALFORMED;
    const uint8_t* data = r.bytes(dataLen);
    if (!r.done()) return ERR_MALFORMED;
    if (dataLen > 0) q.data.assign(data, data + dataLen);
    out = std::move(q);
    return 0;
}

// ---- shell -----------------------------------------------------------------------------

std::vector<uint8_t> shellRequestEncode(const ShellRequest& r, uint32_t seq) {
    Writer w;
    w.u8(static_cast<uint8_t>(r.name.size()));
    w.bytes(r.name.data(), r.name.size());
    w.u8(static_cast<uint8_t>(r.args.size()));
    for (int64_t a : r.args) w.u64(static_cast<uint64_t>(a));
    return frame(KIND_SHELL, seq, w);
}

int32_t shellRequestDecode(const uint8_t* body, size_t len, ShellRequest& out) {
    Reader r{body, len};
    ShellRequest q;
    uint8_t nameLen = r.u8();
    const uint8_t* name = r.bytes(nameLen);
    if (r.bad || nameLen == 0 || nameLen > MAX_NAME) return ERR_MALFORMED;
    q.name.assign(reinterpret_cast<const char*>(name), nameLen);
    if (!nameOk(q.name)) return ERR_MALFORMED;
    uint8_t argc = r.u8();
    if (r.bad || argc > MAX_ARGS) return ERR_MALFORMED;
    for (uint8_t i = 0; i < argc; i++) q.args.push_back(static_cast<int64_t>(r.u64()));
    if (!r.done()) return ERR_MALFORMED;
    out = std::move(q);
    return 0;
}

std::vector<uint8_t> shellReplyEncode(const ShellReply& r, uint32_t seq) {
    Writer w;
    size_t n = r.output.size() > MAX_SHELL_OUTPUT ? MAX_SHELL_OUTPUT : r.output.size();
    w.u32(static_cast<uint32_t>(r.status));
    w.u32(static_cast<uint32_t>(r.result));
    w.u8(static_cast<uint8_t>(r.flags | (n < r.output.size() ? SHELL_FLAG_TRUNCATED : 0)));
    w.u8(0);
    w.u8(0);
    w.u8(0);
    w.u32(static_cast<uint32_t>(n));
    w.bytes(r.output.data(), n);
    return frame(KIND_SHELL | REPLY_BIT, seq, w);
}

int32_t shellReplyDecode(const uint8_t* body, size_t len, ShellReply& out) {
    Reader r{body, len};
    ShellReply q;
    q.status = static_cast<int32_t>(r.u32());
    q.result = static_cast<int32_t>(r.u32());
    q.flags = r.u8();
    r.bytes(3);
    uint32_t n = r.u32();
    if (r.bad || n > MAX_SHELL_OUTPUT) return ERR_MALFORMED;
    const uint8_t* text = r.bytes(n);
    if (!r.done()) return ERR_MALFORMED;
    q.output.assign(reinterpret_cast<const char*>(text), n);
    out = std::move(q);
    return 0;
}

// ---- event -----------------------------------------------------------------------------

std::vector<uint8_t> eventRequestEncode(const EventRequest& r, uint32_t seq) {
    Writer w;
    w.u8(r.event);
    if (r.event == EVENT_RESET_PORT) {
        w.u32(r.unit);
        w.u8(static_cast<uint8_t>(r.ifName.size()));
        w.bytes(r.ifName.data(), r.ifName.size());
    } else {
        w.u16(static_cast<uint16_t>(r.protos.size()));
        for (uint16_t p : r.protos) w.u16(p);
    }
    return frame(KIND_EVENT, seq, w);
}

int32_t eventRequestDecode(const uint8_t* body, size_t len, EventRequest& out) {
    Reader r{body, len};
    EventRequest q;
    q.event = r.u8();
    if (q.event == EVENT_RESET_PORT) {
        q.unit = r.u32();
        uint8_t nameLen = r.u8();
        const uint8_t* name = r.bytes(nameLen);
        if (r.bad || nameLen > MAX_NAME) return ERR_MALFORMED;
        q.ifName.assign(reinterpret_cast<const char*>(name), nameLen);
        if (q.unit == 0 && !nameOk(q.ifName)) return ERR_MALFORMED;
        if (q.unit != 0 && nameLen != 0) return ERR_MALFORMED;
    } else if (q.event == EVENT_RESET_PROTO) {
        uint16_t count = r.u16();
        if (r.bad || count == 0 || count > MAX_PROTOS) return ERR_MALFORMED;
        for (uint16_t i = 0; i < count; i++) {
            uint16_t p = r.u16();
            if (p >= MAX_PROTOS) return ERR_MALFORMED;
            q.protos.push_back(p);
        }
    } else {
        return ERR_MALFORMED;
    }
    if (!r.done()) return ERR_MALFORMED;
    out = std::move(q);
    return 0;
}

std::vector<uint8_t> eventReplyEncode(const EventReply& r, uint32_t seq) {
    Writer w;
    w.u32(static_cast<uint32_t>(r.result));
    w.u32(r.delivered);
    return frame(KIND_EVENT | REPLY_BIT, seq, w);
}

int32_t eventReplyDecode(const uint8_t* body, size_t len, EventReply& out) {
    Reader r{body, len};
    EventReply q;
    q.result = static_cast<int32_t>(r.u32());
    q.delivered = r.u32();
    if (!r.done()) return ERR_MALFORMED;
    out = q;
    return 0;
}

// ---- error -----------------------------------------------------------------------------

std::vector<uint8_t> errorReplyEncode(const ErrorReply& r, uint32_t seq) {
    Writer w;
    size_t n = r.text.size() > MAX_ERROR_TEXT ? MAX_ERROR_TEXT : r.text.size();
    w.u32(static_cast<uint32_t>(r.result));
    w.u16(static_cast<uint16_t>(n));
    w.bytes(r.text.data(), n);
    return frame(KIND_ERROR, seq, w);
}

int32_t errorReplyDecode(const uint8_t* body, size_t len, ErrorReply& out) {
    Reader r{body, len};
    ErrorReply q;
    q.result = static_cast<int32_t>(r.u32());
    uint16_t n = r.u16();
    if (r.bad || n > MAX_ERROR_TEXT) return ERR_MALFORMED;
    const uint8_t* text = r.bytes(n);
    if (!r.done()) return ERR_MALFORMED;
    q.text.assign(reinterpret_cast<const char*>(text), n);
    out = std::move(q);
    return 0;
}

// ---- control ---------------------------------------------------------------------------

std::vector<uint8_t> controlEncode(uint8_t kind, const std::string& json, uint32_t seq) {
    Writer w;
    w.out.assign(json.begin(), json.end());
    return frame(kind, seq, w);
}

// ---- paths -----------------------------------------------------------------------------

std::string shellSocketPath(const std::string& name) { return "/tmp/" + name + "Shell.socket"; }

std::string runtimePath(const std::string& path) {
    const char* root = std::getenv("PPPOEPLUS_ROOT");
    if (root == nullptr || root[0] == '\0' || path.compare(0, 5, "/tmp/") != 0) return path;
    std::string r = root;
    while (r.size() > 1 && r.back() == '/') r.pop_back();
    return r + "/" + path.substr(5);
}

// ---- client ------------------------------------------------------------------------------

namespace {

int64_t nowMs() {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Reads exactly `n` bytes before `deadline`. False on error, end or time-out
// (errno ETIMEDOUT, or ECONNRESET for an early end).
bool readExact(int fd, uint8_t* buf, size_t n, int64_t deadline) {
    size_t got = 0;
    while (got < n) {
        int64_t left = deadline - nowMs();
        if (left <= 0) {
            errno = ETIMEDOUT;
            return false;
        }
        struct pollfd p = {fd, POLLIN, 0};
        int rc = ::poll(&p, 1, static_cast<int>(left > 60000 ? 60000 : left));
        if (rc < 0 && errno == EINTR) continue;
        if (rc < 0) return false;
        if (rc == 0) continue;
        ssize_t r = ::recv(fd, buf + got, n - got, 0);
        if (r < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (r < 0) return false;
        if (r == 0) {
            errno = ECONNRESET;
            return false;
        }
        got += static_cast<size_t>(r);
    }
    return true;
}

// Sends `request` and reads the reply frame of kind `kind | REPLY_BIT` (or an
// error frame) into `reply`.
int32_t exchange(const std::string& path, const std::vector<uint8_t>& request, uint32_t maxBody, int timeoutMs,
                 Frame& reply, std::string& error) {
    int fd = connectTo(path);
    if (fd < 0) {
        error = path + ": " + std::strerror(errno);
        return -1;
    }
    int32_t rc = 0;
    if (!writeAll(fd, request)) {
        error = std::string("write: ") + std::strerror(errno);
        rc = -1;
    } else {
        rc = readFrame(fd, maxBody, timeoutMs, reply);
        if (rc == -1) error = std::string("reading the reply: ") + std::strerror(errno);
        else if (rc != 0) error = "bad reply header";
    }
    ::close(fd);
    return rc;
}

// Common end of a client call: an error frame, or the right reply kind.
template <typename T, typename Decode>
int32_t finish(const Frame& f, uint8_t kind, T& reply, Decode decode, std::string& error) {
    if (f.header.kind == KIND_ERROR) {
        ErrorReply e;
        if (errorReplyDecode(f.body.data(), f.body.size(), e) != 0) {
            error = "malformed error reply";
            return ERR_MALFORMED;
        }
        error = e.text;
        return e.result != 0 ? e.result : ERR_MALFORMED;
    }
    if (f.header.kind != (kind | REPLY_BIT)) {
        error = "unexpected reply kind";
        return ERR_MALFORMED;
    }
    if (decode(f.body.data(), f.body.size(), reply) != 0) {
        error = "malformed reply";
        return ERR_MALFORMED;
    }
    return 0;
}

}  // namespace

int connectTo(const std::string& path) {
    struct sockaddr_un addr;
    std::memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof(addr.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (::connect(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0) {
        int err = errno;
        ::close(fd);
        errno = err;
        return -1;
    }
    return fd;
}

bool writeAll(int fd, const std::vector<uint8_t>& bytes) {
    size_t off = 0;
    while (off < bytes.size()) {
        ssize_t n = ::send(fd, bytes.data() + off, bytes.size() - off, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        off += static_cast<size_t>(n);
    }
    return true;
}

int32_t readFrame(int fd, uint32_t maxBody, int timeoutMs, Frame& out) {
    int64_t deadline = nowMs() + timeoutMs;
    uint8_t head[HEADER_LEN];
    if (!readExact(fd, head, HEADER_LEN, deadline)) return -1;
    int32_t rc = headerDecode(head, maxBody, out.header);
    if (rc != 0) return rc;
    out.body.resize(out.header.length);
    if (out.header.length > 0 && !readExact(fd, out.body.data(), out.header.length, deadline)) return -1;
    return 0;
}

int32_t call(const std::string& path, const CallRequest& req, CallReply& reply, std::string& error, int timeoutMs) {
    Frame f;
    int32_t rc = exchange(path, callRequestEncode(req, 1), MAX_REPLY_BODY, timeoutMs, f, error);
    if (rc != 0) return rc;
    return finish(f, KIND_CALL, reply, callReplyDecode, error);
}

int32_t shell(const std::string& path, const ShellRequest& req, ShellReply& reply, std::string& error,
              int timeoutMs) {
    Frame f;
    int32_t rc = exchange(path, shellRequestEncode(req, 1), MAX_REPLY_BODY, timeoutMs, f, error);
    if (rc != 0) return rc;
    return finish(f, KIND_SHELL, reply, shellReplyDecode, error);
}

int32_t event(const std::string& path, const EventRequest& req, EventReply& reply, std::string& error,
              int timeoutMs) {
    Frame f;
    int32_t rc = exchange(path, eventRequestEncode(req, 1), MAX_REPLY_BODY, timeoutMs, f, error);
    if (rc != 0) return rc;
    return finish(f, KIND_EVENT, reply, eventReplyDecode, error);
}

int32_t control(const std::string& path, const std::string& request, std::string& reply, std::string& error,
                int timeoutMs) {
    if (request.size() > MAX_REQUEST_BODY) {
        error = "request too long";
        return ERR_TOO_LONG;
    }
    Frame f;
    int32_t rc = exchange(path, controlEncode(KIND_CONTROL, request, 1), MAX_REPLY_BODY, timeoutMs, f, error);
    if (rc != 0) return rc;
    auto asText = [](const uint8_t* body, size_t len, std::string& out) {
        out.assign(reinterpret_cast<const char*>(body), len);
        return 0;
    };
    return finish(f, KIND_CONTROL, reply, asText, error);
}

}  // namespace cmdp
