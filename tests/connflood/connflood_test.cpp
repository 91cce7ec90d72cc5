// Connection flood: the real pppoeplusd in a network namespace while
// hostile clients keep about a thousand connections to its command service
// open (slow senders, clients that never read, garbage headers; many users
// and root), and root manages it meanwhile with pppoeplusctl. Prints
// root's latency, and the daemon's resident size and descriptor count
// before, during and after.
//
//   PPPOEPLUS_FLOOD_CONNECTIONS  hostile connections kept open (default 1000)
//   PPPOEPLUS_FLOOD_TRIES        root's timed calls (default 20)
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

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "agent_lab.h"
#include "lt_netns.h"
#include "platform/linux/cmd_proto.h"

#ifndef PPPOEPLUSCTL_PATH
#error "PPPOEPLUSCTL_PATH names the management tool"
#endif

namespace {

constexpr gid_t GROUP = 65534;  // platform.group of the daemon, the hostile users' group
constexpr uid_t FIRST_USER = 61001;
constexpr int PER_CHILD = 40;          // connections one hostile process keeps open
constexpr int64_t RECONNECT_MS = 500;  // a closed or refused connection is opened again after this
constexpr int64_t GOAL_MS = 100;       // root's call, each

int64_t nowMs() {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

uint32_t envNumber(const char* name, uint32_t fallback) {
    const char* v = std::getenv(name);
    return v != nullptr && *v != '\0' ? static_cast<uint32_t>(std::strtoul(v, nullptr, 10)) : fallback;
}

volatile sig_atomic_t gStop = 0;
void onTerm(int) { gStop = 1; }

// How one hostile connection behaves.
enum Kind { SLOW, NO_READ, GARBAGE };

struct Slot {
    Kind kind = SLOW;
    int fd = -1;
    size_t sent = 0;       // SLOW: bytes of its request sent
    int64_t nextAt = 0;    // when it next sends (SLOW) or reconnects (closed)
};

// A hostile process: keeps `count` connections to `path` open, whatever
// the daemon does to them, until SIGTERM; then writes how many it opened.
[[noreturn]] void hostile(const std::string& path, int count, int reportFd) {
    ::signal(SIGTERM, onTerm);
    cmdp::CallRequest get;
    get.code = 1;
    get.cmd = 3;
    get.valueKind = cmdp::VALUE_U32;
    const std::vector<uint8_t> request = cmdp::callRequestEncode(get, 1);
    std::vector<uint8_t> pipeline;
    for (int i = 0; i < 64; i++) pipeline.insert(pipeline.end(), request.begin(), request.end());
    const std::vector<uint8_t> garbage(12, 'G');

    std::vector<Slot> slots(static_cast<size_t>(count));
    for (size_t i = 0; i < slots.size(); i++) slots[i].kind = static_cast<Kind>(i % 3);
    uint64_t opened = 0;
    std::vector<uint8_t> sink(4096);
    while (gStop == 0) {
        int64_t now = nowMs();
        std::vector<struct pollfd> fds;
        std::vector<size_t> which;
        for (size_t i = 0; i < slots.size(); i++) {
            Slot& s = slots[i];
            if (s.fd < 0) {
                if (now < s.nextAt) continue;
                s.fd = cmdp::connectTo(path);
                s.nextAt = now + RECONNECT_MS;
                if (s.fd < 0) continue;
                opened++;
                s.sent = 0;
                if (s.kind == GARBAGE) (void)::send(s.fd, garbage.data(), garbage.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
                s.nextAt = now;
            }
            if (s.kind == SLOW && now >= s.nextAt) {
                // One byte a second of a request that never ends.
                (void)::send(s.fd, &request[s.sent % request.size()], 1, MSG_NOSIGNAL | MSG_DONTWAIT);
                s.sent++;
                s.nextAt = now + 1000;
            }
            short events = s.kind == NO_READ ? POLLOUT : POLLIN;
            fds.push_back(pollfd{s.fd, events, 0});
            which.push_back(i);
        }
        (void)::poll(fds.data(), fds.size(), 100);
        now = nowMs();
        for (size_t k = 0; k < fds.size(); k++) {
            Slot& s = slots[which[k]];
            short ev = fds[k].revents;
            bool gone = (ev & (POLLHUP | POLLERR)) != 0;
            if (!gone && s.kind == NO_READ && (ev & POLLOUT) != 0) {
                // Requests as fast as the socket takes them; no reply is read.
                ssize_t n = ::send(s.fd, pipeline.data(), pipeline.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
                gone = n < 0 && errno != EAGAIN;
            }
            if (!gone && s.kind != NO_READ && (ev & POLLIN) != 0) {
                // An error frame, then the end: the daemon refused or cut it off.
                ssize_t n = ::recv(s.fd, sink.data(), sink.size(), MSG_DONTWAIT);
                gone = n == 0 || (n < 0 && errno != EAGAIN);
            }
            if (gone) {
                ::close(s.fd);
                s.fd = -1;
                s.nextAt = now + RECONNECT_MS;
            }
        }
    }
    std::string text = std::to_string(opened) + "\n";
    (void)!::write(reportFd, text.data(), text.size());
    ::_exit(0);
}

struct Child {
    pid_t pid = -1;
    int reportFd = -1;
};

Child startHostile(const std::string& path, uid_t uid, int count) {
    int fds[2];
    if (::pipe(fds) != 0) return {};
    std::fflush(nullptr);
    pid_t pid = ::fork();
    if (pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::close(fds[0]);
        if (uid != 0 && (::setgroups(0, nullptr) != 0 || ::setgid(GROUP) != 0 || ::setuid(uid) != 0)) ::_exit(1);
        hostile(path, count, fds[1]);
    }
    ::close(fds[1]);
    return Child{pid, fds[0]};
}

// Stops a hostile process; how many connections it opened.
uint64_t stopHostile(Child& c) {
    ::kill(c.pid, SIGTERM);
    std::string out;
    char buf[64];
    ssize_t n;
    while ((n = ::read(c.reportFd, buf, sizeof(buf))) > 0) out.append(buf, static_cast<size_t>(n));
    ::close(c.reportFd);
    if (lt::waitFor(c.pid, 5000) == -1) {
        ::kill(c.pid, SIGKILL);
        lt::waitFor(c.pid, 5000);
    }
    return std::strtoull(out.c_str(), nullptr, 10);
}

// `pppoeplusctl get enable` as root; its wall time in ms, or -1 when it failed.
int64_t rootGet(const std::string& root) {
    int64_t t0 = nowMs();
    lt::Process p = lt::spawn({PPPOEPLUSCTL_PATH, "--root", root, "get", "enable"}, {}, "/dev/null");
    // Waited for by the millisecond: the figure is the call's, not the wait's.
    int status = -1;
    while (nowMs() - t0 < 10000) {
        pid_t r = ::waitpid(p.pid, &status, WNOHANG);
        if (r == p.pid) break;
        status = -1;
        if (r < 0 && errno != EINTR) break;
        ::usleep(1000);
    }
    int64_t ms = nowMs() - t0;
    if (status == -1) {
        ::kill(p.pid, SIGKILL);
        lt::waitFor(p.pid, 5000);
        return -1;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? ms : -1;
}

TEST(ConnectionFlood, RootManagesWhileAThousandHostileConnectionsAreOpen) {
    LT_NEED_NETNS();
    const int connections = static_cast<int>(envNumber("PPPOEPLUS_FLOOD_CONNECTIONS", 1000));
    const int tries = static_cast<int>(envNumber("PPPOEPLUS_FLOOD_TRIES", 20));
    // Without the sanitizer's quarantine of freed memory, so that the
    // resident size says what the daemon holds.
    std::string asan = std::getenv("ASAN_OPTIONS") != nullptr ? std::getenv("ASAN_OPTIONS") : "";
    lt::AgentLab lab(1, 1, "platform.group = 65534\n",
                     {"ASAN_OPTIONS=" + asan + (asan.empty() ? "" : ":") + "quarantine_size_mb=0"});
    ASSERT_TRUE(lab.ok()) << lab.why();
    ASSERT_EQ(0, ::chmod(lab.root().c_str(), 0755));

    ASSERT_GE(rootGet(lab.root()), 0) << "root's call fails without any load";
    size_t rssBefore = lab.rssKb();
    size_t fdsBefore = lab.settledFds();

    // Root's hostile connections (one in 25), the rest from users of 40
    // connections each.
    std::vector<Child> children;
    int rootShare = std::max(1, connections / 25);
    children.push_back(startHostile(lab.cmdSocket(), 0, rootShare));
    int left = connections - rootShare;
    for (uid_t u = FIRST_USER; left > 0; u++) {
        int n = std::min(PER_CHILD, left);
        children.push_back(startHostile(lab.cmdSocket(), u, n));
        left -= n;
    }
    ::usleep(2000000);

    std::vector<int64_t> latency;
    size_t rssMax = 0, fdsMax = 0;
    for (int i = 0; i < tries; i++) {
        rssMax = std::max(rssMax, lab.rssKb());
        fdsMax = std::max(fdsMax, lab.openFds());
        latency.push_back(rootGet(lab.root()));
        ::usleep(200000);
    }
    rssMax = std::max(rssMax, lab.rssKb());
    fdsMax = std::max(fdsMax, lab.openFds());

    uint64_t opened = 0;
    for (Child& c : children) opened += stopHostile(c);
    ::usleep(500000);
    size_t rssAfter = lab.rssKb();
    size_t fdsAfter = lab.settledFds();
    ASSERT_GE(rootGet(lab.root()), 0) << "root's call fails after the flood";

    std::vector<int64_t> sorted = latency;
    std::sort(sorted.begin(), sorted.end());
    std::string all;
    for (int64_t ms : latency) all += " " + std::to_string(ms);
    std::printf("flood: %d hostile connections (%zu processes, %d as root), %llu opened in all\n", connections,
                children.size(), rootShare, static_cast<unsigned long long>(opened));
    std::printf("flood: root's pppoeplusctl get, %d tries, ms:%s\n", tries, all.c_str());
    std::printf("flood: root's latency min %lld, median %lld, max %lld ms (goal < %lld each)\n",
                static_cast<long long>(sorted.front()), static_cast<long long>(sorted[sorted.size() / 2]),
                static_cast<long long>(sorted.back()), static_cast<long long>(GOAL_MS));
    std::printf("flood: daemon VmRSS kB before %zu, during (max) %zu, after %zu\n", rssBefore, rssMax, rssAfter);
    std::printf("flood: daemon descriptors before %zu, during (max) %zu, after %zu\n", fdsBefore, fdsMax, fdsAfter);
    std::fflush(stdout);

    EXPECT_GE(sorted.front(), 0) << "a call of root's failed";
    EXPECT_LT(sorted[sorted.size() / 2], GOAL_MS);
    // A single slow call on a machine shared with other work is tolerated;
    // one held up behind the hostile clients (seconds) is not.
    EXPECT_LT(sorted.back(), 10 * GOAL_MS);
    // The command service holds at most its 64 connections.
    EXPECT_LE(fdsMax, fdsBefore + 64 + 2);
    EXPECT_LE(fdsAfter, fdsBefore);
    EXPECT_LT(rssMax, rssBefore + 32 * 1024);
    EXPECT_TRUE(lab.alive());
    EXPECT_EQ("", lab.sanitizerReports());
}

}  // namespace
