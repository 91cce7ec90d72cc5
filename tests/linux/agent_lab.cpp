// The lab of tests that run pppoeplusd under load.
#include "agent_lab.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

#ifndef PPPOEPLUSD_PATH
#error "PPPOEPLUSD_PATH names the daemon binary"
#endif

namespace lt {

namespace {

double nowSec() {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

using lt::contains;

using lt::eventually;

int32_t callU32(const std::string& sock, uint32_t code, uint32_t unit, uint32_t cmd, uint32_t value, uint32_t* out) {
    cmdp::CallRequest req;
    req.code = code;
    req.unit = unit;
    req.cmd = cmd;
    req.valueKind = cmdp::VALUE_U32;
    req.lenWord = value;
    cmdp::CallReply reply;
    std::string error;
    int32_t rc = cmdp::call(sock, req, reply, error);
    if (rc != 0) return rc;
    if (out != nullptr) *out = reply.lenWord;
    return reply.result;
}

int32_t callText(const std::string& sock, uint32_t code, uint32_t unit, uint32_t cmd, const std::string& text) {
    cmdp::CallRequest req;
    req.code = code;
    req.unit = unit;
    req.cmd = cmd;
    req.valueKind = cmdp::VALUE_STR;
    req.lenWord = static_cast<uint32_t>(text.size());
    req.capacity = static_cast<uint32_t>(text.size());
    req.data.assign(text.begin(), text.end());
    cmdp::CallReply reply;
    std::string error;
    int32_t rc = cmdp::call(sock, req, reply, error);
    return rc != 0 ? rc : reply.result;
}

// Writes a PADI from `mac` into `f` (60 bytes), with a Vendor-Specific tag of
// the client's own when `tagged`.
size_t padi(uint8_t* f, const uint8_t mac[6], bool tagged, uint32_t n) {
    std::memset(f, 0, 64);
    std::memset(f, 0xff, 6);
    std::memcpy(f + 6, mac, 6);
    f[12] = 0x88;
    f[13] = 0x63;
    f[14] = 0x11;
    f[15] = 0x09;
    uint8_t* t = f + 20;
    const uint8_t hostUniq[] = {0x01, 0x03, 0x00, 0x04, static_cast<uint8_t>(n >> 24), static_cast<uint8_t>(n >> 16),
                                static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n)};
    std::memcpy(t, hostUniq, sizeof(hostUniq));
    t += sizeof(hostUniq);
    if (tagged) {
        // Vendor 3561, Circuit-ID "cpe1", Remote-ID "r1".
        const uint8_t vs[] = {0x01, 0x05, 0x00, 0x0e, 0x00, 0x00, 0x0d, 0xe9, 0x01, 0x04, 'c', 'p', 'e', '1',
                              0x02, 0x02, 'r', '1'};
        std::memcpy(t, vs, sizeof(vs));
        t += sizeof(vs);
    }
    size_t payload = static_cast<size_t>(t - (f + 20));
    f[18] = static_cast<uint8_t>(payload >> 8);
    f[19] = static_cast<uint8_t>(payload);
    return 60;
}

}  // namespace

std::string LabCounters::text() const {
    std::ostringstream o;
    o << "errorRcv=" << errorRcv << " errorSend=" << errorSend << " padiRcv=" << padiRcv << " padrRcv=" << padrRcv
      << " padoRcv=" << padoRcv << " padsRcv=" << padsRcv << " padtRcv=" << padtRcv << " totalSend=" << totalSend;
    return o.str();
}

AgentLab::AgentLab(int clients, int uplinks, const std::string& extraConf, const std::vector<std::string>& env) {
    ns_ = std::make_unique<Netns>();
    if (!ns_->ok()) {
        why_ = "no namespace";
        return;
    }
    std::string cmd = "sysctl -qw net.ipv6.conf.all.disable_ipv6=1 net.ipv6.conf.default.disable_ipv6=1";
    for (int i = 1; i <= clients; i++)
        cmd += " && ip link add c" + std::to_string(i) + " type veth peer name g" + std::to_string(i);
    for (int i = 1; i <= uplinks; i++)
        cmd += " && ip link add u" + std::to_string(i) + " type veth peer name s" + std::to_string(i);
    cmd += " && for l in $(ls /sys/class/net); do ip link set $l up; done";
    if (ns_->sh(cmd) != 0) {
        why_ = "cannot make the interfaces";
        return;
    }
    // The lab measures the agent under load: discovery is not policed unless
    // the test sets policing itself.
    const std::string police = extraConf.find("police-") == std::string::npos ? "agent.police-rate = 0\n" : "";
    std::string conf = dir_.file("pppoeplus.conf",
                                 "pppoeplus.defaultenable = true\n"
                                 "pppoeplus.defaultportenable = true\n"
                                 "platform.hwrule = none\n"
                                 "platform.exclude = g* s*\n" +
                                     police + extraConf);
    logFile_ = dir_.path() + "/stderr.txt";
    std::vector<std::string> daemonEnv = {"PPPOEPLUS_CONF=" + conf, "PPPOEPLUS_LOG=stderr",
                                          "PPPOEPLUS_ROOT=" + dir_.path()};
    daemonEnv.insert(daemonEnv.end(), env.begin(), env.end());
    daemon_ = spawn({"ip", "netns", "exec", ns_->name(), PPPOEPLUSD_PATH}, daemonEnv, logFile_);
    if (!waitForPath(cmdSocket(), 20000) ||
        !eventually([&] { return contains(readFile(logFile_), "pppoeplusd running"); }, 20000)) {
        why_ = "the daemon did not start: " + readFile(logFile_);
        return;
    }
    // A lab whose agent starts switched off has no entries to wait for.
    if (contains(extraConf, "pppoeplus.defaultenable = false")) return;
    const uint32_t expected = static_cast<uint32_t>(clients + uplinks);
    if (!eventually([&] { return entries() >= expected; }, 20000)) {
        why_ = "the ports did not get entries";
        return;
    }
    for (int i = 1; i <= uplinks; i++) {
        int32_t rc = ifSet(unit("u" + std::to_string(i)), 1, 1);  // trust
        if (rc != 0) {
            why_ = "cannot trust u" + std::to_string(i) + ": " + std::to_string(rc);
            return;
        }
    }
}

AgentLab::~AgentLab() { stop(); }

int AgentLab::stop() {
    if (daemon_.pid <= 0) return -1;
    int status = waitFor(daemon_.pid, 0);
    if (status == -1) {
        ::kill(daemon_.pid, SIGTERM);
        status = waitFor(daemon_.pid, 10000);
        if (status == -1) {
            ::kill(daemon_.pid, SIGKILL);
            waitFor(daemon_.pid, 5000);
        }
    }
    daemon_.pid = -1;
    return status;
}

uint32_t AgentLab::unit(const std::string& ifName) const {
    std::string s = ns_->out("cat /sys/class/net/" + ifName + "/ifindex 2>/dev/null");
    return s.empty() ? 0 : static_cast<uint32_t>(std::strtoul(s.c_str(), nullptr, 10));
}

int32_t AgentLab::ifSet(uint32_t u, uint32_t code, uint32_t value) const {
    return callU32(cmdSocket(), 7, u, code, value, nullptr);
}
int32_t AgentLab::ifSetText(uint32_t u, uint32_t code, const std::string& text) const {
    return callText(cmdSocket(), 7, u, code, text);
}
int32_t AgentLab::ifGet(uint32_t u, uint32_t code, uint32_t& out) const {
    return callU32(cmdSocket(), 6, u, code, 0, &out);
}
int32_t AgentLab::scalarSet(uint32_t code, uint32_t value) const {
    return callU32(cmdSocket(), 2, 0, code, value, nullptr);
}
int32_t AgentLab::scalarSetText(uint32_t code, const std::string& text) const {
    return callText(cmdSocket(), 2, 0, code, text);
}
int32_t AgentLab::scalarGet(uint32_t code, uint32_t& out) const { return callU32(cmdSocket(), 1, 0, code, 0, &out); }

bool AgentLab::counters(uint32_t u, LabCounters& out) const {
    uint32_t* fields[] = {&out.errorRcv, &out.errorSend, &out.padiRcv, &out.padrRcv,
                          &out.padoRcv,  &out.padsRcv,   &out.padtRcv, &out.totalSend};
    for (uint32_t i = 0; i < 8; i++)
        if (ifGet(u, 9 + i, *fields[i]) != 0) return false;
    return true;
}

uint32_t AgentLab::entries() const {
    uint32_t n = 0, u = 0;
    int32_t rc = callU32(cmdSocket(), 4, 0, 0, 0, &u);
    while (rc == 0 && n < 100000) {
        n++;
        rc = callU32(cmdSocket(), 5, u, 0, 0, &u);
    }
    return n;
}

uint64_t AgentLab::rxPackets(const std::string& ifName) const {
    return std::strtoull(ns_->out("cat /sys/class/net/" + ifName + "/statistics/rx_packets").c_str(), nullptr, 10);
}

bool AgentLab::alive() const {
    if (daemon_.pid <= 0 || ::kill(daemon_.pid, 0) != 0) return false;
    uint32_t v = 0;
    return scalarGet(10, v) == 0 && v == 3561;
}

size_t AgentLab::openFds() const {
    size_t n = 0;
    DIR* d = ::opendir(("/proc/" + std::to_string(daemon_.pid) + "/fd").c_str());
    if (d == nullptr) return 0;
    while (struct dirent* e = ::readdir(d))
        if (e->d_name[0] != '.') n++;
    ::closedir(d);
    return n;
}

size_t AgentLab::settledFds() const {
    size_t least = openFds();
    for (int i = 0; i < 5; i++) {
        ::usleep(100000);
        least = std::min(least, openFds());
    }
    return least;
}

size_t AgentLab::rssKb() const {
    std::ifstream in("/proc/" + std::to_string(daemon_.pid) + "/status");
    std::string line;
    while (std::getline(in, line))
        if (line.compare(0, 6, "VmRSS:") == 0) return std::strtoul(line.c_str() + 6, nullptr, 10);
    return 0;
}

std::string AgentLab::sanitizerReports() const {
    std::istringstream in(readFile(logFile_));
    std::string line, out;
    while (std::getline(in, line))
        if (contains(line, "Sanitizer") || contains(line, "runtime error:") || contains(line, "WARNING: ThreadSanitizer"))
            out += line + "\n";
    return out;
}

int64_t sendPadis(const std::string& netns, const std::string& ifName, const uint8_t prefix[3], uint32_t rate,
                  double seconds, uint32_t taggedEvery) {
    char path[] = "/tmp/pplt-sent-XXXXXX";
    int tmp = ::mkstemp(path);
    if (tmp < 0) return -1;
    ::close(tmp);
    const std::string file = path;
    auto r = runChild(netns, {}, [&] {
        int fd = ::socket(AF_PACKET, SOCK_RAW, 0);
        struct sockaddr_ll a;
        std::memset(&a, 0, sizeof(a));
        a.sll_family = AF_PACKET;
        a.sll_ifindex = static_cast<int>(if_nametoindex(ifName.c_str()));
        CHECK_TRUE(fd >= 0 && a.sll_ifindex > 0);
        if (fd < 0 || ::bind(fd, reinterpret_cast<struct sockaddr*>(&a), sizeof(a)) != 0) return;
        constexpr uint32_t BATCH = 16;
        uint8_t frames[BATCH][64];
        struct iovec iov[BATCH];
        struct mmsghdr msgs[BATCH];
        uint64_t sent = 0;
        const double start = nowSec();
        while (nowSec() - start < seconds) {
            const double due = start + static_cast<double>(sent + BATCH) / rate;
            const double now = nowSec();
            if (due > now) {
                ::usleep(static_cast<useconds_t>((due - now) * 1e6));
                continue;
            }
            for (uint32_t i = 0; i < BATCH; i++) {
                const uint64_t n = sent + i;
                const uint8_t mac[6] = {prefix[0], prefix[1], prefix[2], 0x00, static_cast<uint8_t>(n % 16), 0x01};
                size_t len = padi(frames[i], mac, taggedEvery != 0 && n % taggedEvery == 0, static_cast<uint32_t>(n));
                iov[i] = {frames[i], len};
                std::memset(&msgs[i], 0, sizeof(msgs[i]));
                msgs[i].msg_hdr.msg_iov = &iov[i];
                msgs[i].msg_hdr.msg_iovlen = 1;
            }
            int done = ::sendmmsg(fd, msgs, BATCH, 0);
            if (done < 0) {
                if (errno == ENOBUFS || errno == EINTR) continue;
                CHECK_TRUE(done >= 0);
                break;
            }
            sent += static_cast<uint64_t>(done);
        }
        std::ofstream(file) << sent;
    }, static_cast<int>(seconds) + 60);
    int64_t sent = r.ok() ? std::strtoll(readFile(file).c_str(), nullptr, 10) : -1;
    ::unlink(file.c_str());
    return sent;
}

FarCounter::FarCounter(const std::string& netns, const std::vector<std::string>& ifNames, const std::string& dir)
    : netns_(netns), dir_(dir), ifNames_(ifNames) {}

FarCounter::~FarCounter() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

bool FarCounter::start() {
    const std::string stop = dir_ + "/far-stop", ready = dir_ + "/far-ready", out = dir_ + "/far-counts";
    ::unlink(stop.c_str());
    ::unlink(ready.c_str());
    std::fflush(nullptr);
    const pid_t parent = ::getpid();
    pid_t pid = ::fork();
    if (pid == 0) {
        dieWithParent(parent);
        int nsfd = ::open(("/var/run/netns/" + netns_).c_str(), O_RDONLY | O_CLOEXEC);
        if (nsfd < 0 || ::setns(nsfd, CLONE_NEWNET) != 0) ::_exit(3);
        std::vector<struct pollfd> fds;
        for (const std::string& n : ifNames_) {
            int fd = ::socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK, htons(ETH_P_ALL));
            struct sockaddr_ll a;
            std::memset(&a, 0, sizeof(a));
            a.sll_family = AF_PACKET;
            a.sll_protocol = htons(ETH_P_ALL);
            a.sll_ifindex = static_cast<int>(if_nametoindex(n.c_str()));
            if (fd < 0 || ::bind(fd, reinterpret_cast<struct sockaddr*>(&a), sizeof(a)) != 0) ::_exit(4);
            int buf = 32 << 20;
            ::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &buf, sizeof(buf));
            fds.push_back(pollfd{fd, POLLIN, 0});
        }
        std::ofstream(ready) << "1";
        std::map<std::pair<size_t, uint32_t>, uint64_t> counts;
        struct stat st;
        for (;;) {
            bool stopping = ::stat(stop.c_str(), &st) == 0;
            int rc = ::poll(fds.data(), fds.size(), stopping ? 0 : 50);
            if (rc == 0 && stopping) break;
            for (size_t i = 0; i < fds.size(); i++) {
                for (;;) {
                    uint8_t buf[2048];
                    struct sockaddr_ll from;
                    socklen_t fl = sizeof(from);
                    ssize_t n = ::recvfrom(fds[i].fd, buf, sizeof(buf), 0, reinterpret_cast<struct sockaddr*>(&from), &fl);
                    if (n < 0) break;
                    if (n < 14 || from.sll_pkttype == PACKET_OUTGOING) continue;
                    size_t off = 12;
                    while (off + 2 <= static_cast<size_t>(n) && (buf[off] == 0x81 || buf[off] == 0x88) &&
                           (buf[off + 1] == 0x00 || buf[off + 1] == 0xa8))
                        off += 4;
                    if (off + 2 > static_cast<size_t>(n) || buf[off] != 0x88 || buf[off + 1] != 0x63) continue;
                    uint32_t prefix = (static_cast<uint32_t>(buf[6]) << 16) | (buf[7] << 8) | buf[8];
                    counts[{i, prefix}]++;
                }
            }
        }
        std::ofstream o(out);
        for (const auto& [k, v] : counts) o << k.first << " " << k.second << " " << v << "\n";
        o.close();
        ::_exit(0);
    }
    if (pid < 0) return false;
    pid_ = pid;
    return waitForPath(ready, 10000);
}

std::vector<uint64_t> FarCounter::finish(const uint8_t prefix[3]) {
    if (pid_ > 0) {
        std::ofstream(dir_ + "/far-stop") << "1";
        waitFor(pid_, 30000);
        pid_ = -1;
        results_ = readFile(dir_ + "/far-counts");
    }
    std::vector<uint64_t> out;
    for (size_t i = 0; i < ifNames_.size(); i++) out.push_back(count(i, prefix));
    return out;
}

uint64_t FarCounter::count(size_t i, const uint8_t prefix[3]) const {
    const uint32_t want = (static_cast<uint32_t>(prefix[0]) << 16) | (prefix[1] << 8) | prefix[2];
    std::istringstream in(results_);
    size_t idx;
    uint32_t p;
    uint64_t c;
    while (in >> idx >> p >> c)
        if (idx == i && p == want) return c;
    return 0;
}

}  // namespace lt
