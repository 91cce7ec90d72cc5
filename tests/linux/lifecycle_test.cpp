// pppoeplusd's life on a real system: one daemon per runtime directory, a
// socket path taken by something else ends the start, the nftables rules
// outlive a killed daemon and are replaced by the next one, and a started
// daemon keeps only the capabilities it uses.
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <sstream>
#include <poll.h>
#include <string>
#include <vector>

#include "lt_frames.h"
#include "lt_netns.h"
#include "platform/linux/cmd_proto.h"

#ifndef PPPOEPLUSD_PATH
#error "PPPOEPLUSD_PATH names the daemon binary"
#endif

namespace {

using lt::contains;

// The daemon is given up to 10 s for what it does at start.
template <typename F>
bool eventually(F what, int ms = 10000) {
    return lt::eventually(what, ms);
}

size_t countOf(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) n++;
    return n;
}

ino_t inodeOf(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

const uint8_t CLIENT[6] = {0x02, 0x00, 0x00, 0x00, 0x0c, 0x01};

// What reached the uplink's far end of one PADI sent from the client port.
struct Crossing {
    int frames = 0;  // discovery frames from the client
    int tagged = 0;  // of them, carrying a Vendor-Specific tag
};

bool hasVendorTag(const uint8_t* f, size_t n) {
    if (n < 20) return false;
    size_t end = 20 + ((f[18] << 8) | f[19]);
    for (size_t off = 20; off + 4 <= end && off + 4 <= n;) {
        uint16_t t = static_cast<uint16_t>((f[off] << 8) | f[off + 1]);
        if (t == 0x0105) return true;
        off += 4 + ((f[off + 2] << 8) | f[off + 3]);
    }
    return false;
}

// In the namespace: one PADI out of c1, what arrives on s2 within 700 ms.
void expectCrossing(const std::string& netns, int frames, int tagged) {
    auto r = lt::runChild(netns, {}, [frames, tagged] {
        int c1 = lt::rawSocket("c1");
        int s2 = lt::rawSocket("s2");
        CHECK_TRUE(c1 >= 0 && s2 >= 0);
        CHECK_TRUE(lt::rawSend(c1, lt::discoveryFrame(lt::BROADCAST, CLIENT, {})));
        Crossing got;
        for (const std::vector<uint8_t>& f : lt::recvDiscoveryFrom(s2, CLIENT)) {
            got.frames++;
            if (hasVendorTag(f.data(), f.size())) got.tagged++;
        }
        CHECK_EQ(frames, got.frames);
        CHECK_EQ(tagged, got.tagged);
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

class LifecycleTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LT_NEED_NETNS();
        ns_ = std::make_unique<lt::Netns>();
        ASSERT_TRUE(ns_->ok());
        // client c1 -- p1 [bridge br0] p2 -- s2 server side; the agent serves p1 and p2.
        ASSERT_EQ(0, ns_->sh("ip link add c1 type veth peer name p1 && ip link add s2 type veth peer name p2 && "
                             "ip link add br0 type bridge && ip link set p1 master br0 && ip link set p2 master br0 && "
                             "for i in c1 p1 s2 p2 br0; do ip link set $i up; done"));
        conf_ = dir_.file("pppoeplus.conf",
                          "pppoeplus.defaultenable = true\n"
                          "pppoeplus.defaultportenable = true\n"
                          "platform.exclude = c1 s2\n");
    }
    void TearDown() override {
        for (lt::Process& p : started_) {
            if (p.pid > 0 && lt::waitFor(p.pid, 0) == -1) {
                ::kill(p.pid, SIGKILL);
                lt::waitFor(p.pid, 5000);
            }
        }
    }

    // Starts a daemon in the namespace, behind `wrapper` (a command that
    // runs the rest of its arguments) when given.
    lt::Process& start(const std::vector<std::string>& wrapper = {}, const std::string& conf = "") {
        std::vector<std::string> argv = {"ip", "netns", "exec", ns_->name()};
        argv.insert(argv.end(), wrapper.begin(), wrapper.end());
        argv.push_back(PPPOEPLUSD_PATH);
        std::string log = dir_.path() + "/stderr" + std::to_string(started_.size()) + ".txt";
        started_.push_back(lt::spawn(argv,
                                     {"PPPOEPLUS_CONF=" + (conf.empty() ? conf_ : conf), "PPPOEPLUS_LOG=stderr",
                                      "PPPOEPLUS_ROOT=" + dir_.path()},
                                     log));
        return started_.back();
    }
    std::string log(const lt::Process& p) const { return lt::readFile(p.errFile); }
    bool running(const lt::Process& p) const {
        return eventually([&] { return contains(log(p), "pppoeplusd running"); });
    }
    std::string cmdSocket() const { return dir_.path() + "/pppoeplusNm.socket"; }
    std::string shellSocket() const { return dir_.path() + "/pppoeplusShell.socket"; }
    std::string eventSocket() const { return dir_.path() + "/zelRouteEvent.socket"; }
    std::string pidFile() const { return dir_.path() + "/pppoeplusd.pid"; }
    std::string ports() const { return ns_->out("nft list set bridge pppoeplus ports 2>/dev/null"); }
    bool portsRuled(bool p1, bool p2) const {
        return eventually([&] {
            std::string set = ports();
            return contains(set, "\"p1\"") == p1 && contains(set, "\"p2\"") == p2;
        });
    }

    // The command service answers (the vendor id).
    bool answers() const {
        cmdp::CallRequest req;
        req.code = 1;
        req.cmd = 10;
        req.valueKind = cmdp::VALUE_U32;
        cmdp::CallReply reply;
        std::string error;
        return cmdp::call(cmdSocket(), req, reply, error) == 0;
    }
    // p2 becomes the trusted uplink.
    int32_t trustUplink() const {
        cmdp::CallRequest trust;
        trust.code = 7;  // interface set
        trust.unit = static_cast<uint32_t>(std::stoul(ns_->out("cat /sys/class/net/p2/ifindex")));
        trust.cmd = 1;  // trust
        trust.valueKind = cmdp::VALUE_U32;
        trust.lenWord = 1;
        cmdp::CallReply reply;
        std::string error;
        int32_t rc = cmdp::call(cmdSocket(), trust, reply, error);
        return rc != 0 ? rc : reply.result;
    }
    static bool haveNft() { return lt::sh("command -v nft >/dev/null 2>&1") == 0; }

    std::unique_ptr<lt::Netns> ns_;
    lt::TempDir dir_;
    std::string conf_;
    std::vector<lt::Process> started_;
};

TEST_F(LifecycleTest, ASecondDaemonOnTheSameDirectoryRefusesAndTouchesNothingOfTheFirst) {
    if (!haveNft()) GTEST_SKIP() << "the nft tool is not installed";
    lt::Process first = start();
    ASSERT_TRUE(running(first)) << log(first);
    ASSERT_TRUE(portsRuled(true, true)) << log(first);
    EXPECT_EQ(std::to_string(first.pid) + "\n", lt::readFile(pidFile()));
    const ino_t cmd = inodeOf(cmdSocket()), shell = inodeOf(shellSocket()), event = inodeOf(eventSocket());
    ASSERT_NE(0u, cmd);
    ASSERT_NE(0u, shell);
    ASSERT_NE(0u, event);
    const std::string handles = ns_->out("nft -a list table bridge pppoeplus");

    lt::Process second = start();
    int status = lt::waitFor(second.pid, 10000);
    ASSERT_NE(-1, status) << "the second daemon runs: " << log(second);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(1, WEXITSTATUS(status));
    EXPECT_TRUE(contains(log(second), "another pppoeplusd (pid " + std::to_string(first.pid) +
                                          ") holds the pid file " + pidFile()))
        << log(second);
    EXPECT_FALSE(contains(log(second), "listening at")) << log(second);

    // The first one's sockets, pid file and table (handles and all) are as they were.
    EXPECT_EQ(cmd, inodeOf(cmdSocket()));
    EXPECT_EQ(shell, inodeOf(shellSocket()));
    EXPECT_EQ(event, inodeOf(eventSocket()));
    EXPECT_EQ(std::to_string(first.pid) + "\n", lt::readFile(pidFile()));
    EXPECT_EQ(handles, ns_->out("nft -a list table bridge pppoeplus"));
    EXPECT_TRUE(answers());
    EXPECT_EQ(0, lt::waitFor(first.pid, 0) == -1 ? 0 : 1) << "the first daemon ended";
}

// A path of the daemon's sockets taken by something that is not a socket.
struct Squatter {
    const char* socket;  // file name in the runtime directory
    const char* make;    // shell command making it there ($P is the path)
    const char* kind;
};

class SquattedPathTest : public LifecycleTest, public ::testing::WithParamInterface<Squatter> {};

TEST_P(SquattedPathTest, EndsTheStartWithAClearMessage) {
    const Squatter& s = GetParam();
    std::string path = dir_.path() + "/" + s.socket;
    ASSERT_EQ(0, lt::sh(std::string("P='") + path + "'; " + s.make));
    struct stat before;
    ASSERT_EQ(0, ::lstat(path.c_str(), &before));

    lt::Process d = start();
    int status = lt::waitFor(d.pid, 10000);
    ASSERT_NE(-1, status) << "the daemon runs unmanaged: " << log(d);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(1, WEXITSTATUS(status));
    EXPECT_TRUE(contains(log(d), path + " is " + s.kind + ", not a socket of pppoeplusd")) << log(d);
    EXPECT_TRUE(contains(log(d), "cannot be managed")) << log(d);
    EXPECT_FALSE(contains(log(d), "pppoeplusd running")) << log(d);
    // The squatter is left alone; nothing else stays behind: no rules, no
    // socket, no pid file.
    struct stat after;
    ASSERT_EQ(0, ::lstat(path.c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
    if (haveNft()) {
        EXPECT_EQ("", ns_->out("nft list ruleset"));
    }
    for (const std::string& p : {cmdSocket(), shellSocket(), eventSocket(), dir_.path() + "/pppoeplusControl.socket",
                                 pidFile()}) {
        if (p != path) {
            EXPECT_EQ(0u, inodeOf(p)) << p;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Paths, SquattedPathTest,
                         ::testing::Values(Squatter{"pppoeplusNm.socket", "echo squat > \"$P\"", "a regular file"},
                                           Squatter{"pppoeplusShell.socket", "mkdir \"$P\"", "a directory"},
                                           Squatter{"zelRouteEvent.socket", "ln -s /dev/null \"$P\"",
                                                    "a symbolic link"},
                                           Squatter{"pppoeplusControl.socket", "mkfifo \"$P\"", "a named pipe"}),
                         [](const ::testing::TestParamInfo<Squatter>& info) {
                             std::string n = info.param.socket;
                             return n.substr(0, n.find('.'));
                         });

TEST_F(LifecycleTest, AfterAKillTheRulesStayAndTheNextStartReplacesThem) {
    if (!haveNft()) GTEST_SKIP() << "the nft tool is not installed";
    lt::Process first = start();
    ASSERT_TRUE(running(first)) << log(first);
    ASSERT_TRUE(portsRuled(true, true)) << log(first);
    int32_t rc = trustUplink();
    if (rc == cmdp::ERR_UNSUPPORTED) GTEST_SKIP() << "the daemon does not serve interface commands yet";
    ASSERT_EQ(0, rc);
    ASSERT_TRUE(portsRuled(true, false));
    expectCrossing(ns_->name(), 1, 1);

    // Killed: no clean-up runs, the rule of p1 stays and nothing from the
    // client reaches the uplink.
    ASSERT_EQ(0, ::kill(first.pid, SIGKILL));
    ASSERT_NE(-1, lt::waitFor(first.pid, 5000));
    EXPECT_TRUE(contains(ports(), "\"p1\"")) << ns_->out("nft list ruleset");
    expectCrossing(ns_->name(), 0, 0);

    // The next daemon takes the directory over: the dead one's sockets are
    // replaced, and so is its table, not doubled.
    struct stat st;
    ASSERT_EQ(0, ::lstat(cmdSocket().c_str(), &st));
    ASSERT_TRUE(S_ISSOCK(st.st_mode));
    EXPECT_FALSE(answers()) << "nobody listens on a dead daemon's socket";
    lt::Process second = start();
    ASSERT_TRUE(running(second)) << log(second);
    EXPECT_TRUE(answers()) << log(second);
    EXPECT_EQ(std::to_string(second.pid) + "\n", lt::readFile(pidFile()));
    ASSERT_TRUE(portsRuled(true, true)) << log(second);
    ASSERT_EQ(0, trustUplink());
    ASSERT_TRUE(portsRuled(true, false));
    std::string ruleset = ns_->out("nft list ruleset");
    EXPECT_EQ(1u, countOf(ruleset, "table bridge pppoeplus")) << ruleset;
    EXPECT_EQ(1u, countOf(ruleset, "chain forward")) << ruleset;
    EXPECT_EQ(3u, countOf(ruleset, "drop")) << ruleset;
    EXPECT_EQ(1u, countOf(ports(), "\"p1\"")) << ruleset;
    expectCrossing(ns_->name(), 1, 1);

    // An orderly stop keeps the rules too; the operator lets discovery
    // through by removing the table.
    ASSERT_EQ(0, ::kill(second.pid, SIGTERM));
    int status = lt::waitFor(second.pid, 5000);
    ASSERT_NE(-1, status);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_TRUE(contains(log(second), "nft delete table bridge pppoeplus lets them through")) << log(second);
    EXPECT_TRUE(contains(ports(), "\"p1\""));
    EXPECT_EQ(0u, inodeOf(cmdSocket()));
    EXPECT_EQ(0u, inodeOf(pidFile()));
    expectCrossing(ns_->name(), 0, 0);
    ASSERT_EQ(0, ns_->sh("nft delete table bridge pppoeplus"));
    expectCrossing(ns_->name(), 1, 0);
}

// A crash (a fault, an abort) ends the daemon without its clean-up: the
// rules stay, and so does its socket.
class CrashTest : public LifecycleTest, public ::testing::WithParamInterface<int> {};

TEST_P(CrashTest, LeavesTheRulesInPlace) {
    if (!haveNft()) GTEST_SKIP() << "the nft tool is not installed";
    lt::Process d = start();
    ASSERT_TRUE(running(d)) << log(d);
    ASSERT_TRUE(portsRuled(true, true)) << log(d);
    ASSERT_EQ(0, ::kill(d.pid, GetParam()));
    int status = lt::waitFor(d.pid, 10000);
    ASSERT_NE(-1, status);
    EXPECT_TRUE(WIFSIGNALED(status) || (WIFEXITED(status) && WEXITSTATUS(status) != 0)) << status;
    EXPECT_FALSE(contains(log(d), "lets them through")) << log(d);
    EXPECT_TRUE(portsRuled(true, true)) << ns_->out("nft list ruleset");
    expectCrossing(ns_->name(), 0, 0);
}

INSTANTIATE_TEST_SUITE_P(Signals, CrashTest, ::testing::Values(SIGSEGV, SIGABRT, SIGBUS),
                         [](const ::testing::TestParamInfo<int>& info) {
                             return std::string(info.param == SIGSEGV   ? "SIGSEGV"
                                                : info.param == SIGABRT ? "SIGABRT"
                                                                        : "SIGBUS");
                         });

// CapEff, CapPrm, CapBnd, CapInh and CapAmb of a process, as /proc shows them.
struct Caps {
    uint64_t eff = ~0ull, prm = ~0ull, bnd = ~0ull, inh = ~0ull, amb = ~0ull;
};

Caps capsIn(const std::string& statusFile) {
    Caps c;
    std::string status = lt::readFile(statusFile);
    auto field = [&](const char* name) {
        size_t at = status.find(std::string(name) + ":\t");
        return at == std::string::npos ? ~0ull : std::stoull(status.substr(at + std::strlen(name) + 2, 16), nullptr, 16);
    };
    c.eff = field("CapEff");
    c.prm = field("CapPrm");
    c.bnd = field("CapBnd");
    c.inh = field("CapInh");
    c.amb = field("CapAmb");
    return c;
}

Caps capsOf(int pid) { return capsIn("/proc/" + std::to_string(pid) + "/status"); }

// Capabilities are per thread: every thread of the process, with its name.
std::vector<std::pair<std::string, Caps>> threadCaps(int pid) {
    std::vector<std::pair<std::string, Caps>> out;
    std::string dir = "/proc/" + std::to_string(pid) + "/task";
    std::string tids = lt::shOut("ls " + dir);
    std::istringstream in(tids);
    std::string tid;
    while (in >> tid) {
        std::string name = lt::readFile(dir + "/" + tid + "/comm");
        out.emplace_back(tid + " " + name.substr(0, name.find('\n')), capsIn(dir + "/" + tid + "/status"));
    }
    return out;
}

// Every thread of `pid` has exactly `want` in its effective, permitted and
// bounding sets and nothing inheritable or ambient.
void expectOnly(int pid, uint64_t want) {
    auto threads = threadCaps(pid);
    EXPECT_GE(threads.size(), 3u) << "the daemon's threads";
    for (const auto& [who, c] : threads) {
        EXPECT_EQ(want, c.eff) << who;
        EXPECT_EQ(want, c.prm) << who;
        EXPECT_EQ(want, c.bnd) << who;
        EXPECT_EQ(0u, c.inh) << who;
        EXPECT_EQ(0u, c.amb) << who;
    }
}

constexpr uint64_t bit(int cap) { return 1ull << cap; }
constexpr int CAP_CHOWN_ = 0, CAP_NET_ADMIN_ = 12, CAP_NET_RAW_ = 13;

TEST_F(LifecycleTest, StartedWithOnlyTheCapabilitiesItNeedsItServesAndKeepsJustThose) {
    if (!haveNft()) GTEST_SKIP() << "the nft tool is not installed";
    if (lt::sh("command -v setpriv >/dev/null 2>&1") != 0) GTEST_SKIP() << "setpriv (util-linux) is not installed";
    lt::Process d = start({"setpriv", "--inh-caps=-all", "--bounding-set=-all,+net_raw,+net_admin", "--"});
    ASSERT_TRUE(running(d)) << log(d);
    EXPECT_TRUE(contains(log(d), "capabilities: kept CAP_NET_RAW CAP_NET_ADMIN, dropped the rest")) << log(d);
    expectOnly(d.pid, bit(CAP_NET_RAW_) | bit(CAP_NET_ADMIN_));

    // It serves: rules loaded and changed through nft after the drop, and a
    // discovery frame crosses tagged, once.
    ASSERT_TRUE(portsRuled(true, true)) << log(d);
    int32_t rc = trustUplink();
    if (rc == cmdp::ERR_UNSUPPORTED) GTEST_SKIP() << "the daemon does not serve interface commands yet";
    ASSERT_EQ(0, rc);
    ASSERT_TRUE(portsRuled(true, false)) << log(d);
    expectCrossing(ns_->name(), 1, 1);
}

// Started as another user with the two capabilities ambient, it keeps them
// effective and passes nothing on (it runs no program): the hardware rule's
// nftables transactions run in the process.
TEST_F(LifecycleTest, StartedAsAnotherUserItKeepsNoInheritableOrAmbientCapabilities) {
    if (!haveNft()) GTEST_SKIP() << "the nft tool is not installed";
    if (lt::sh("command -v setpriv >/dev/null 2>&1") != 0) GTEST_SKIP() << "setpriv (util-linux) is not installed";
    ASSERT_EQ(0, ::chown(dir_.path().c_str(), 65534, 65534));
    lt::Process d = start({"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                           "--inh-caps=-all,+net_raw,+net_admin", "--ambient-caps=-all,+net_raw,+net_admin",
                           "--bounding-set=-all,+net_raw,+net_admin", "--"});
    ASSERT_TRUE(running(d)) << log(d);
    EXPECT_TRUE(contains(log(d), "capabilities: kept CAP_NET_RAW CAP_NET_ADMIN, dropped the rest")) << log(d);
    expectOnly(d.pid, bit(CAP_NET_RAW_) | bit(CAP_NET_ADMIN_));
    EXPECT_TRUE(portsRuled(true, true)) << log(d);
}

TEST_F(LifecycleTest, StartedAsFullRootItDropsAllButWhatItUses) {
    // With platform.group the command socket is handed to the group: CAP_CHOWN stays.
    std::string conf = dir_.file("group.conf",
                                 "pppoeplus.defaultenable = true\n"
                                 "platform.exclude = c1 s2\n"
                                 "platform.group = daemon\n");
    lt::Process d = start({}, conf);
    ASSERT_TRUE(running(d)) << log(d);
    expectOnly(d.pid, bit(CAP_NET_RAW_) | bit(CAP_NET_ADMIN_) | bit(CAP_CHOWN_));
    EXPECT_TRUE(answers());
    // The command socket went to the group.
    struct stat st;
    ASSERT_EQ(0, ::stat(cmdSocket().c_str(), &st));
    EXPECT_EQ(1u, st.st_gid) << "group daemon";
}

TEST_F(LifecycleTest, StartedWithoutCapNetAdminItRunsAndSaysWhatIsMissing) {
    if (lt::sh("command -v setpriv >/dev/null 2>&1") != 0) GTEST_SKIP() << "setpriv (util-linux) is not installed";
    std::string conf = dir_.file("off.conf", "platform.exclude = c1 s2\nplatform.hwrule = none\n");
    lt::Process d = start({"setpriv", "--inh-caps=-all", "--bounding-set=-all,+net_raw", "--"}, conf);
    ASSERT_TRUE(running(d)) << log(d);
    EXPECT_TRUE(contains(log(d), "capabilities: CAP_NET_ADMIN is missing")) << log(d);
    Caps c = capsOf(d.pid);
    EXPECT_EQ(bit(CAP_NET_RAW_), c.eff);
    EXPECT_EQ(bit(CAP_NET_RAW_), c.bnd);
    EXPECT_TRUE(answers());
}

}  // namespace

namespace {

// A process is gone (or a zombie nobody reaped yet).
bool gone(int pid) {
    std::string stat = lt::readFile("/proc/" + std::to_string(pid) + "/stat");
    if (stat.empty()) return true;
    size_t paren = stat.rfind(')');
    return paren != std::string::npos && paren + 2 < stat.size() && stat[paren + 2] == 'Z';
}

TEST(TestHygiene, AStaleNamespaceIsSweptWithWhatStillRunsInIt) {
    LT_NEED_NETNS();
    // A namespace named after a test process that is gone, with a process
    // still running in it, as a killed test run leaves them.
    pid_t dead = ::fork();
    if (dead == 0) ::_exit(0);
    ASSERT_GT(dead, 0);
    ASSERT_NE(-1, lt::waitFor(dead, 5000));
    std::string name = "pplt-" + std::to_string(dead) + "-left";
    ASSERT_EQ(0, lt::sh("ip netns add " + name));
    lt::TempDir dir;
    lt::Process p = lt::spawn({"ip", "netns", "exec", name, "sleep", "300"}, {}, dir.path() + "/sleep.txt");
    ASSERT_TRUE(eventually([&] { return !lt::shOut("ip netns pids " + name).empty(); }, 5000));

    EXPECT_GE(lt::sweepStaleNamespaces(), 1);
    EXPECT_NE(-1, lt::waitFor(p.pid, 5000)) << "the process in the namespace still runs";
    EXPECT_NE(0, lt::sh("ip netns list | grep -qw " + name)) << "the namespace is still there";
    lt::sh("ip netns del " + name + " 2>/dev/null");
}

TEST(TestHygiene, AChildOfTheTestsDiesWithTheProcessThatStartedIt) {
    int fds[2];
    ASSERT_EQ(0, ::pipe(fds));
    lt::TempDir dir;
    std::fflush(nullptr);
    // A stand-in for a test process: it starts a child as the tests do, then is killed.
    pid_t tester = ::fork();
    if (tester == 0) {
        ::close(fds[0]);
        lt::Process child = lt::spawn({"sleep", "300"}, {}, dir.path() + "/sleep.txt");
        (void)!::write(fds[1], &child.pid, sizeof(child.pid));
        for (;;) ::pause();
    }
    ::close(fds[1]);
    int child = -1;
    ASSERT_EQ(static_cast<ssize_t>(sizeof(child)), ::read(fds[0], &child, sizeof(child)));
    ::close(fds[0]);
    ASSERT_GT(child, 0);
    ::usleep(100000);
    EXPECT_FALSE(gone(child));
    ::kill(tester, SIGKILL);
    ASSERT_NE(-1, lt::waitFor(tester, 5000));
    EXPECT_TRUE(eventually([&] { return gone(child); }, 5000)) << "the child outlived its parent";
    if (!gone(child)) ::kill(child, SIGKILL);
}

}  // namespace
