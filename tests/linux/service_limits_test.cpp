// The service engine under hostile peers: slow senders, peers that never
// read, too many connections. A service of the engine's own (no command map,
// no shell table) is served by a child process; its handler answers a
// request "big" with as many bytes of output as its first argument asks,
// "count" with how many big replies it built, anything else at once.
#include <gtest/gtest.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "lt_netns.h"
#include "platform/linux/cmd_proto.h"
#include "platform/linux/service_engine.h"

namespace {

constexpr gid_t GROUP = 65534;  // the service's group; the test users' primary group
constexpr uid_t FIRST_USER = 60001;

int64_t nowMs() {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

void sleepUntil(int64_t ms) {
    int64_t left = ms - nowMs();
    if (left > 0) ::usleep(static_cast<useconds_t>(left) * 1000);
}

// The test service's handler. Runs on the service's thread in the child.
uint32_t gBigReplies = 0;
linuxplat::Answer answer(const cmdp::Frame& f) {
    cmdp::ShellRequest req;
    if (cmdp::shellRequestDecode(f.body.data(), f.body.size(), req) != 0)
        return linuxplat::errorAnswer(cmdp::ERR_MALFORMED, "malformed", f.header.seq);
    cmdp::ShellReply reply;
    reply.result = 7;
    if (req.name == "big" && !req.args.empty()) {
        size_t n = static_cast<size_t>(req.args[0]);
        reply.output.assign(n < cmdp::MAX_SHELL_OUTPUT ? n : cmdp::MAX_SHELL_OUTPUT, 'x');
        gBigReplies++;
    } else if (req.name == "count") {
        reply.result = static_cast<int32_t>(gBigReplies);
    }
    return linuxplat::Answer{cmdp::shellReplyEncode(reply, f.header.seq), false};
}

// Serves the test service from a child process until destroyed.
class Server {
  public:
    Server(const std::string& root, const std::string& conf) {
        path = root + "/limits.socket";
        std::fflush(nullptr);
        pid_ = ::fork();
        if (pid_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::setenv("PPPOEPLUS_CONF", conf.c_str(), 1);
            ::setenv("PPPOEPLUS_LOG", "stderr", 1);
            auto svc = std::make_unique<linuxplat::Service>();
            svc->name = "ltLimits";
            svc->path = path;
            svc->kind = cmdp::KIND_SHELL;
            svc->gid = GROUP;
            svc->groupAllowed = true;
            svc->handle = answer;
            if (linuxplat::serviceStart(std::move(svc), 0660) != 0) ::_exit(1);
            for (;;) ::pause();
        }
        ready = lt::waitForPath(path, 5000);
    }
    ~Server() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    pid_t pid() const { return pid_; }
    std::string path;
    bool ready = false;

  private:
    pid_t pid_ = -1;
};

std::vector<uint8_t> request(const std::string& name, std::vector<int64_t> args = {}, uint32_t seq = 1) {
    cmdp::ShellRequest req;
    req.name = name;
    req.args = std::move(args);
    return cmdp::shellRequestEncode(req, seq);
}

// What a connection was answered: "served", "error CODE: TEXT", "closed" or
// "no reply".
std::string outcome(int fd, int timeoutMs) {
    cmdp::Frame f;
    int32_t rc = cmdp::readFrame(fd, cmdp::MAX_REPLY_BODY, timeoutMs, f);
    if (rc != 0) return errno == ETIMEDOUT || errno == EAGAIN ? "no reply" : "closed";
    if (f.header.kind == cmdp::KIND_ERROR) {
        cmdp::ErrorReply e;
        cmdp::errorReplyDecode(f.body.data(), f.body.size(), e);
        return "error " + std::to_string(e.result) + ": " + e.text;
    }
    return "served";
}

// True when the peer has closed the connection: whatever is left to read
// ends, within `timeoutMs`, in an end of file or a reset.
bool closedByPeer(int fd, int timeoutMs) {
    int64_t end = nowMs() + timeoutMs;
    std::vector<uint8_t> sink(1 << 16);
    for (;;) {
        int64_t left = end - nowMs();
        if (left <= 0) return false;
        struct pollfd p = {fd, POLLIN, 0};
        if (::poll(&p, 1, static_cast<int>(left)) <= 0) continue;
        ssize_t n = ::recv(fd, sink.data(), sink.size(), MSG_DONTWAIT);
        if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) return true;
    }
}

// True when the peer has closed the connection, whatever it left unread
// here: a write to it fails.
bool peerGone(int fd) {
    uint8_t b = 0;
    return ::send(fd, &b, 1, MSG_NOSIGNAL | MSG_DONTWAIT) < 0 && (errno == EPIPE || errno == ECONNRESET);
}

size_t rssKb(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind("VmRSS:", 0) == 0) return std::strtoul(line.c_str() + 6, nullptr, 10);
    return 0;
}

// A child process running as `uid` (primary group GROUP, no other groups),
// killed with the test. It writes its report on a pipe; the parent reads
// the first line of it, then the child goes on with whatever it does.
class AsUser {
  public:
    AsUser(uid_t uid, const std::function<void(int report)>& body) {
        int fds[2];
        if (::pipe(fds) != 0) return;
        std::fflush(nullptr);
        pid_ = ::fork();
        if (pid_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::close(fds[0]);
            if (::setgroups(0, nullptr) != 0 || ::setgid(GROUP) != 0 || ::setuid(uid) != 0) {
                (void)!::write(fds[1], "setuid\n", 7);
                ::_exit(1);
            }
            body(fds[1]);
            ::_exit(0);
        }
        ::close(fds[1]);
        fd_ = fds[0];
    }
    ~AsUser() {
        if (fd_ >= 0) ::close(fd_);
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    // The first line the child reported (without its newline), waiting at
    // most `timeoutMs`.
    std::string line(int timeoutMs = 10000) {
        std::string out;
        int64_t end = nowMs() + timeoutMs;
        char ch;
        while (nowMs() < end) {
            struct pollfd p = {fd_, POLLIN, 0};
            if (::poll(&p, 1, 100) <= 0) continue;
            if (::read(fd_, &ch, 1) != 1 || ch == '\n') break;
            out += ch;
        }
        return out;
    }

  private:
    pid_t pid_ = -1;
    int fd_ = -1;
};

void report(int fd, const std::string& text) { (void)!::write(fd, (text + "\n").data(), text.size() + 1); }

// Opens up to `count` connections and keeps those the service took. A
// refused one is answered at once with an error and closed.
std::vector<int> connectMany(const std::string& path, int count, std::string* firstRefusal = nullptr) {
    std::vector<int> fds;
    for (int i = 0; i < count; i++) {
        int fd = cmdp::connectTo(path);
        if (fd < 0) continue;
        struct pollfd p = {fd, POLLIN, 0};
        if (::poll(&p, 1, 200) > 0) {
            std::string why = outcome(fd, 1000);
            if (firstRefusal != nullptr && firstRefusal->empty()) *firstRefusal = why;
            ::close(fd);
            continue;
        }
        fds.push_back(fd);
    }
    return fds;
}

// Sends the bytes of a request one at a time to every connection, one byte
// every `everyMs`, for ever (the child is killed).
[[noreturn]] void trickle(const std::vector<int>& fds, int everyMs) {
    std::vector<uint8_t> bytes = request("ping");
    for (size_t at = 0;; at = (at + 1) % bytes.size()) {
        for (int fd : fds) (void)::send(fd, &bytes[at], 1, MSG_NOSIGNAL | MSG_DONTWAIT);
        ::usleep(static_cast<useconds_t>(everyMs) * 1000);
    }
}

class ServiceLimitsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (::geteuid() != 0) GTEST_SKIP() << "needs root: the service checks its peers' credentials";
        ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 0755));
        server_ = std::make_unique<Server>(dir_.path(), dir_.file("c.conf", conf()));
        ASSERT_TRUE(server_->ready);
    }
    virtual std::string conf() { return ""; }

    // One root request answered; how long it took, or -1 on failure.
    int64_t rootPing() {
        int64_t t0 = nowMs();
        cmdp::ShellRequest req;
        req.name = "ping";
        cmdp::ShellReply reply;
        std::string error;
        if (cmdp::shell(server_->path, req, reply, error, 5000) != 0 || reply.result != 7) {
            ADD_FAILURE() << "root's request failed: " << error;
            return -1;
        }
        return nowMs() - t0;
    }

    uint32_t bigReplies() {
        cmdp::ShellRequest req;
        req.name = "count";
        cmdp::ShellReply reply;
        std::string error;
        EXPECT_EQ(0, cmdp::shell(server_->path, req, reply, error, 5000)) << error;
        return static_cast<uint32_t>(reply.result);
    }

    lt::TempDir dir_;
    std::unique_ptr<Server> server_;
};

TEST_F(ServiceLimitsTest, SlowClientsDoNotKeepRootOut) {
    // Ten users, each trying for ten connections that send a byte every two
    // seconds: more than every slot for users other than root.
    std::vector<std::unique_ptr<AsUser>> users;
    for (uid_t u = 0; u < 10; u++) {
        users.push_back(std::make_unique<AsUser>(FIRST_USER + u, [this](int out) {
            std::vector<int> fds = connectMany(server_->path, 10);
            report(out, std::to_string(fds.size()));
            trickle(fds, 2000);
        }));
    }
    int held = 0;
    for (auto& u : users) held += std::atoi(u->line().c_str());
    EXPECT_GE(held, 16) << "the slow clients hold the connections";
    EXPECT_LE(held, 60) << "users other than root leave root its slots";

    // Root's own slow connections take the rest: every slot is taken.
    std::vector<int> rootSlow = connectMany(server_->path, 4);
    for (int i = 0; i < 5; i++) {
        int64_t ms = rootPing();
        EXPECT_GE(ms, 0);
        EXPECT_LT(ms, 1000) << "root waited " << ms << " ms";
        ::usleep(300000);
    }
    for (int fd : rootSlow) ::close(fd);
}

TEST_F(ServiceLimitsTest, AClientThatNeverReadsDelaysNoOtherClient) {
    // Three clients ask for the largest replies, twice each, and read nothing.
    std::vector<int> sinks;
    for (int i = 0; i < 3; i++) {
        int fd = cmdp::connectTo(server_->path);
        ASSERT_GE(fd, 0);
        std::vector<uint8_t> two = request("big", {cmdp::MAX_SHELL_OUTPUT});
        std::vector<uint8_t> again = request("big", {cmdp::MAX_SHELL_OUTPUT}, 2);
        two.insert(two.end(), again.begin(), again.end());
        ASSERT_TRUE(cmdp::writeAll(fd, two));
        sinks.push_back(fd);
    }
    ::usleep(100000);
    for (int i = 0; i < 10; i++) {
        int64_t ms = rootPing();
        EXPECT_GE(ms, 0);
        EXPECT_LT(ms, 200) << "a call waited " << ms << " ms behind replies nobody reads";
        ::usleep(50000);
    }
    for (int fd : sinks) ::close(fd);
}

TEST_F(ServiceLimitsTest, AReplyIsWrittenWholeAsTheClientTakesIt) {
    int fd = cmdp::connectTo(server_->path);
    ASSERT_GE(fd, 0);
    ASSERT_TRUE(cmdp::writeAll(fd, request("big", {cmdp::MAX_SHELL_OUTPUT}, 9)));
    // Taken in small pieces, slowly, while another client is served.
    std::vector<uint8_t> got;
    size_t want = cmdp::HEADER_LEN + 16 + cmdp::MAX_SHELL_OUTPUT;
    int rounds = 0;
    while (got.size() < want && rounds++ < 2000) {
        struct pollfd p = {fd, POLLIN, 0};
        ASSERT_EQ(1, ::poll(&p, 1, 2000));
        uint8_t buf[32768];
        ssize_t n = ::recv(fd, buf, sizeof(buf), 0);
        ASSERT_GT(n, 0);
        got.insert(got.end(), buf, buf + n);
        if (rounds % 8 == 0) {
            EXPECT_GE(rootPing(), 0);
        }
        ::usleep(5000);
    }
    ASSERT_EQ(want, got.size());
    cmdp::Header h;
    ASSERT_EQ(0, cmdp::headerDecode(got.data(), cmdp::MAX_REPLY_BODY, h));
    EXPECT_EQ(9u, h.seq);
    cmdp::ShellReply reply;
    ASSERT_EQ(0, cmdp::shellReplyDecode(got.data() + cmdp::HEADER_LEN, got.size() - cmdp::HEADER_LEN, reply));
    EXPECT_EQ(std::string(cmdp::MAX_SHELL_OUTPUT, 'x'), reply.output);
    // The connection serves its next request.
    ASSERT_TRUE(cmdp::writeAll(fd, request("ping", {}, 10)));
    EXPECT_EQ("served", outcome(fd, 2000));
    ::close(fd);
}

TEST_F(ServiceLimitsTest, EachUserHasACapAndRootStillGetsIn) {
    AsUser first(FIRST_USER, [this](int out) {
        std::string refusal;
        std::vector<int> fds = connectMany(server_->path, 9, &refusal);
        report(out, std::to_string(fds.size()) + " | " + refusal);
        ::pause();
    });
    std::string line = first.line();
    EXPECT_EQ("8 | error " + std::to_string(cmdp::ERR_UNSUPPORTED) + ": too many connections of uid " +
                  std::to_string(FIRST_USER) + " (at most 8)",
              line);

    // Another user and root are still served.
    AsUser second(FIRST_USER + 1, [this](int out) {
        int fd = cmdp::connectTo(server_->path);
        cmdp::writeAll(fd, request("ping"));
        report(out, outcome(fd, 2000));
    });
    EXPECT_EQ("served", second.line());
    EXPECT_GE(rootPing(), 0);
}

TEST_F(ServiceLimitsTest, UsersOtherThanRootLeaveRootItsSlots) {
    std::vector<std::unique_ptr<AsUser>> users;
    for (uid_t u = 0; u < 8; u++) {
        users.push_back(std::make_unique<AsUser>(FIRST_USER + u, [this](int out) {
            std::string refusal;
            std::vector<int> fds = connectMany(server_->path, 8, &refusal);
            report(out, std::to_string(fds.size()) + " | " + refusal);
            ::pause();
        }));
    }
    int held = 0;
    std::string refusals;
    for (auto& u : users) {
        std::string line = u->line();
        held += std::atoi(line.c_str());
        refusals += line.substr(line.find('|') + 1);
    }
    EXPECT_EQ(60, held);
    EXPECT_NE(std::string::npos, refusals.find("too many connections (at most 60, and 4 more for root)")) << refusals;
    // Root takes its four slots and then, with all 64 taken, still gets in.
    std::vector<int> rootIdle = connectMany(server_->path, 4);
    EXPECT_EQ(4u, rootIdle.size());
    EXPECT_GE(rootPing(), 0);
    EXPECT_GE(rootPing(), 0);
    for (int fd : rootIdle) ::close(fd);
}

class ServiceDeadlineTest : public ServiceLimitsTest {
  protected:
    std::string conf() override { return "platform.requesttimeout = 1000\nplatform.idletimeout = 1500\n"; }
};

TEST_F(ServiceDeadlineTest, ARequestTrickledByteByByteIsCutOffAtTheWholeRequestDeadline) {
    int fd = cmdp::connectTo(server_->path);
    ASSERT_GE(fd, 0);
    // A byte every 150 ms: the 18-byte request would take 2.7 s.
    std::vector<uint8_t> bytes = request("ping");
    int64_t first = nowMs();
    std::string got = "no reply";
    for (size_t i = 0; i < bytes.size(); i++) {
        if (::send(fd, &bytes[i], 1, MSG_NOSIGNAL) != 1) break;
        struct pollfd p = {fd, POLLIN, 0};
        if (::poll(&p, 1, 150) > 0) {
            got = outcome(fd, 1000);
            break;
        }
    }
    int64_t at = nowMs() - first;
    EXPECT_EQ("error " + std::to_string(cmdp::ERR_MALFORMED) + ": request incomplete", got);
    EXPECT_GE(at, 900);
    EXPECT_LE(at, 1600) << "cut off " << at << " ms after the first byte";
    EXPECT_TRUE(closedByPeer(fd, 1000));
    ::close(fd);
    EXPECT_GE(rootPing(), 0);
}

TEST_F(ServiceDeadlineTest, AnIdleConnectionIsClosed) {
    int fd = cmdp::connectTo(server_->path);
    ASSERT_GE(fd, 0);
    ASSERT_TRUE(cmdp::writeAll(fd, request("ping")));
    EXPECT_EQ("served", outcome(fd, 1000));
    int64_t t0 = nowMs();
    EXPECT_TRUE(closedByPeer(fd, 3000));
    int64_t idle = nowMs() - t0;
    EXPECT_GE(idle, 1300);
    EXPECT_LE(idle, 2500);
    ::close(fd);
}

TEST_F(ServiceDeadlineTest, AClientThatDoesNotTakeItsReplyIsDroppedAndMemoryStaysBounded) {
    size_t before = rssKb(server_->pid());
    ASSERT_GT(before, 0u);
    // Fifty requests for the largest reply, none of it read: the service
    // builds one reply, holds it until the deadline and drops the client.
    int fd = cmdp::connectTo(server_->path);
    ASSERT_GE(fd, 0);
    std::vector<uint8_t> many;
    for (uint32_t i = 0; i < 50; i++) {
        std::vector<uint8_t> one = request("big", {cmdp::MAX_SHELL_OUTPUT}, i);
        many.insert(many.end(), one.begin(), one.end());
    }
    ASSERT_TRUE(cmdp::writeAll(fd, many));
    int64_t sent = nowMs();
    ::usleep(300000);
    size_t during = rssKb(server_->pid());
    int64_t t0 = nowMs();
    EXPECT_EQ(1u, bigReplies()) << "the next request is not read while a reply waits";
    EXPECT_LT(nowMs() - t0, 200) << "the service waited on the client that does not read";
    sleepUntil(sent + 600);
    EXPECT_FALSE(peerGone(fd)) << "dropped before the deadline";
    sleepUntil(sent + 1500);
    EXPECT_TRUE(peerGone(fd)) << "still connected past the deadline";
    ::close(fd);
    EXPECT_EQ(1u, bigReplies());
    EXPECT_LT(during, before + 16 * 1024) << "VmRSS " << before << " kB before, " << during << " kB during";
}

}  // namespace
