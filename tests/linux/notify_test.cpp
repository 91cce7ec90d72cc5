// systemd's service notifications: a socket of the test's own stands in for
// the service manager (NOTIFY_SOCKET). The daemon says READY=1 once it
// serves, STATUS= with its served and trusted interfaces, pings the
// watchdog from its worker's loop only, and says STOPPING=1 when it ends;
// a worker that stops turning stops the pings.
#include <gtest/gtest.h>
#include <systemd/sd-daemon.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include "lt_frames.h"
#include "lt_netns.h"
#include "platform/linux/cmd_proto.h"
#include "platform/linux/notify.h"
#include "platform/os.h"
#include "platform/socket.h"

#ifndef PPPOEPLUSD_PATH
#error "PPPOEPLUSD_PATH names the daemon binary"
#endif

namespace {

int64_t nowMs() {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// The service manager's end: a datagram socket at `path`.
class NotifySocket {
  public:
    explicit NotifySocket(const std::string& path) : path_(path) {
        fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        struct sockaddr_un a;
        std::memset(&a, 0, sizeof(a));
        a.sun_family = AF_UNIX;
        std::strncpy(a.sun_path, path.c_str(), sizeof(a.sun_path) - 1);
        ok_ = fd_ >= 0 && ::bind(fd_, reinterpret_cast<struct sockaddr*>(&a), sizeof(a)) == 0;
    }
    ~NotifySocket() {
        if (fd_ >= 0) ::close(fd_);
        ::unlink(path_.c_str());
    }
    bool ok() const { return ok_; }

    // The messages that arrive within `ms`.
    std::vector<std::string> read(int ms) {
        std::vector<std::string> out;
        const int64_t end = nowMs() + ms;
        for (;;) {
            int64_t left = end - nowMs();
            if (left <= 0) return out;
            struct pollfd p = {fd_, POLLIN, 0};
            if (::poll(&p, 1, static_cast<int>(left)) <= 0) return out;
            char buf[512];
            ssize_t n = ::recv(fd_, buf, sizeof(buf), 0);
            if (n > 0) out.emplace_back(buf, static_cast<size_t>(n));
        }
    }
    // Reads until a message containing `part` arrives, at most `ms`; all read.
    std::vector<std::string> readUntil(const std::string& part, int ms) {
        std::vector<std::string> out;
        const int64_t end = nowMs() + ms;
        while (nowMs() < end) {
            for (auto& m : read(100)) {
                out.push_back(m);
                if (m.find(part) != std::string::npos) return out;
            }
        }
        return out;
    }

  private:
    std::string path_;
    int fd_ = -1;
    bool ok_ = false;
};

size_t countOf(const std::vector<std::string>& messages, const std::string& part) {
    size_t n = 0;
    for (const auto& m : messages)
        if (m.find(part) != std::string::npos) n++;
    return n;
}

std::string joined(const std::vector<std::string>& messages) {
    std::string s;
    for (const auto& m : messages) s += "[" + m + "] ";
    return s;
}

TEST(NotifyText, SaysHowManyInterfacesAreServedAndTrusted) {
    EXPECT_EQ("serving 0 interfaces, 0 trusted", linuxplat::notifyStatusText(0, 0));
    EXPECT_EQ("serving 1 interface, 1 trusted", linuxplat::notifyStatusText(1, 1));
    EXPECT_EQ("serving 180 interfaces, 2 trusted", linuxplat::notifyStatusText(180, 2));
}

// A worker of the platform's own kind turns a loop of waits; while it is
// stuck behind a lock that another thread holds, no ping goes out, and the
// pings come back once the lock is given back. The child marks the phases
// on the manager's socket, so the order of the messages tells them apart.
TEST(NotifyWatchdog, AStuckWorkerStopsThePings) {
    lt::TempDir dir;
    NotifySocket manager(dir.path() + "/notify");
    ASSERT_TRUE(manager.ok());
    // A datagram socket's queue is short: the messages are read as they
    // come, while the child runs. The child is forked by hand, with no other
    // thread in this process, so that nothing it inherits is held.
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::setenv("NOTIFY_SOCKET", (dir.path() + "/notify").c_str(), 1);
        ::setenv("WATCHDOG_USEC", "200000", 1);
        ::setenv("PPPOEPLUS_LOG", "stderr", 1);
        ::setenv("PPPOEPLUS_CONF", "/dev/null", 1);
        static uint32_t lock = silCreateMSem(0x1 | 0x4 | 0x8);
        static std::atomic<bool> stop{false};
        static std::atomic<uint32_t> turns{0};
        // The worker: take the lock, give it back, wait 10 ms; again.
        uint32_t task = 0;
        const tSilTaskEntry worker = [] {
            while (!stop) {
                silTakeSem(lock, -1);
                silGiveSem(lock);
                zel_timeval tv{0, 10000};
                zel_select(0, nullptr, nullptr, nullptr, &tv);
                turns++;
            }
        };
        if (silCreateTask("worker", 50, 65536, worker, 0, 0, &task) != 0) ::_exit(3);
        // Each phase lasts a number of the worker's turns (at least 10 ms
        // each, 50 turns at least half a second, several ping intervals of
        // 50 ms), however slow the machine.
        auto waitTurns = [](uint32_t n) {
            const uint32_t until = turns + n;
            while (turns < until) ::usleep(5000);
        };
        waitTurns(50);
        silTakeSem(lock, -1);
        sd_notify(0, "PHASE=stuck");
        const uint32_t before = turns;
        ::usleep(800000);
        if (turns > before + 1) ::_exit(4);  // the lock did not stop the worker
        sd_notify(0, "PHASE=turning");
        silGiveSem(lock);
        waitTurns(50);
        stop = true;
        ::usleep(50000);
        ::_exit(0);
    }
    std::vector<std::string> all;
    int status = -1;
    for (int64_t end = nowMs() + 60000; nowMs() < end;) {
        auto got = manager.read(50);
        all.insert(all.end(), got.begin(), got.end());
        if (::waitpid(pid, &status, WNOHANG) == pid) break;
        status = -1;
    }
    if (status == -1) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    auto rest = manager.read(200);
    all.insert(all.end(), rest.begin(), rest.end());
    ASSERT_TRUE(status != -1 && WIFEXITED(status)) << "the child did not end: " << joined(all);
    ASSERT_EQ(0, WEXITSTATUS(status)) << joined(all);
    ASSERT_FALSE(all.empty());
    EXPECT_NE(std::string::npos, all[0].find("READY=1")) << joined(all);
    size_t before = 0, stuck = 0, after = 0;
    int phase = 0;
    for (const auto& m : all) {
        if (m == "PHASE=stuck") phase = 1;
        else if (m == "PHASE=turning") phase = 2;
        else if (m == "WATCHDOG=1") (phase == 0 ? before : phase == 1 ? stuck : after)++;
    }
    EXPECT_GE(before, 4u) << joined(all);
    // One ping may have been on its way when the lock was taken.
    EXPECT_LE(stuck, 1u) << joined(all);
    EXPECT_GE(after, 4u) << joined(all);
}

// pppoeplusd under a stand-in service manager: READY=1 with the status once
// it serves, a new status when an uplink is trusted, watchdog pings while
// frames keep its worker turning, STOPPING=1 on SIGTERM.
TEST(NotifyDaemon, ReadyStatusWatchdogAndStopping) {
    LT_NEED_NETNS();
    lt::Netns ns;
    ASSERT_TRUE(ns.ok());
    ASSERT_EQ(0, ns.sh("ip link add c1 type veth peer name p1 && ip link add s2 type veth peer name p2 && "
                       "for i in c1 p1 s2 p2; do ip link set $i up; done"));
    lt::TempDir dir;
    NotifySocket manager(dir.path() + "/notify");
    ASSERT_TRUE(manager.ok());
    std::string conf = dir.file("pppoeplus.conf",
                                "pppoeplus.defaultenable = true\n"
                                "pppoeplus.defaultportenable = true\n"
                                "platform.hwrule = none\n"
                                "platform.exclude = c1 s2\n");
    lt::Process daemon = lt::spawn({"ip", "netns", "exec", ns.name(), PPPOEPLUSD_PATH},
                                   {"PPPOEPLUS_CONF=" + conf, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir.path(),
                                    "NOTIFY_SOCKET=" + dir.path() + "/notify", "WATCHDOG_USEC=2000000"},
                                   dir.path() + "/stderr.txt");
    auto log = [&] { return lt::readFile(dir.path() + "/stderr.txt"); };
    std::vector<std::string> got = manager.readUntil("READY=1", 10000);
    ASSERT_EQ(1u, countOf(got, "READY=1")) << joined(got) << log();
    // Both ports served once they are announced; none trusted yet.
    got = manager.readUntil("STATUS=serving 2 interfaces, 0 trusted", 5000);
    EXPECT_EQ(1u, countOf(got, "STATUS=serving 2 interfaces, 0 trusted")) << joined(got) << log();

    std::string cmd = dir.path() + "/pppoeplusNm.socket";
    ASSERT_TRUE(lt::waitForPath(cmd, 5000));
    cmdp::CallRequest trust;
    trust.code = 7;
    trust.unit = static_cast<uint32_t>(std::stoul(ns.out("cat /sys/class/net/p2/ifindex")));
    trust.cmd = 1;
    trust.valueKind = cmdp::VALUE_U32;
    trust.lenWord = 1;
    cmdp::CallReply reply;
    std::string error;
    ASSERT_EQ(0, cmdp::call(cmd, trust, reply, error)) << error;
    ASSERT_EQ(0, reply.result);

    // Frames keep the worker turning: PADIs from the client every 50 ms.
    auto sender = lt::runChild(ns.name(), {}, [] {
        int c1 = lt::rawSocket("c1");
        CHECK_TRUE(c1 >= 0);
        const uint8_t bcast[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
        const uint8_t client[6] = {0x02, 0, 0, 0, 0x0c, 0x01};
        for (int i = 0; i < 40; i++) {
            lt::rawSend(c1, lt::discoveryFrame(bcast, client, {}));
            ::usleep(50000);
        }
    });
    EXPECT_TRUE(sender.ok()) << sender.failures;
    got = manager.read(300);
    std::vector<std::string> more = manager.read(0);
    got.insert(got.end(), more.begin(), more.end());
    EXPECT_EQ(1u, countOf(got, "STATUS=serving 2 interfaces, 1 trusted")) << joined(got);
    // Two seconds of frames at a 2 s watchdog: a ping every half second.
    EXPECT_GE(countOf(got, "WATCHDOG=1"), 2u) << joined(got);

    ASSERT_EQ(0, ::kill(daemon.pid, SIGTERM));
    EXPECT_NE(-1, lt::waitFor(daemon.pid, 5000));
    got = manager.read(300);
    EXPECT_EQ(1u, countOf(got, "STOPPING=1")) << joined(got);
}

}  // namespace
