// The system tests' lab: namespaces, links, the daemon, the peers, captures.
#include "lab.h"

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
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <future>
#include <optional>
#include <regex>
#include <sstream>

#include <nlohmann/json.hpp>

#ifndef PPPOEPLUSD_PATH
#error "PPPOEPLUSD_PATH names the daemon binary"
#endif
#ifndef PPPOEPLUSCTL_PATH
#error "PPPOEPLUSCTL_PATH names the tool"
#endif
#ifndef PPPOEPLUS_SYSTEM_TEST_DIR
#error "PPPOEPLUS_SYSTEM_TEST_DIR names this folder (craft.py)"
#endif

namespace st {

namespace {

const char* const PREFIX = "ppst";
std::atomic<int> gLabs{0};

int64_t nowMs() {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

bool haveCommand(const std::string& name) { return lt::sh("command -v " + name + " >/dev/null 2>&1") == 0; }

using lt::removeNamespace;

// Namespaces of earlier test processes that died before removing theirs:
// ppst<pid>x<n>-<role>.
void sweepStale() {
    static std::once_flag once;
    std::call_once(once, [] {
        DIR* d = ::opendir("/var/run/netns");
        if (d == nullptr) return;
        std::vector<std::string> stale;
        while (struct dirent* e = ::readdir(d)) {
            std::string n = e->d_name;
            if (n.compare(0, std::strlen(PREFIX), PREFIX) != 0) continue;
            int pid = std::atoi(n.c_str() + std::strlen(PREFIX));
            if (pid > 0 && ::kill(pid, 0) != 0 && errno == ESRCH) stale.push_back(n);
        }
        ::closedir(d);
        for (const std::string& n : stale) removeNamespace(n);
    });
}

std::string macText(const uint8_t* m) {
    char buf[18];
    std::snprintf(buf, sizeof(buf), "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
    return buf;
}

}  // namespace

std::string skipReason(bool pppoe, bool scapy) {
    std::string why = lt::namespaceSkipReason();
    if (!why.empty()) return "system tests: " + why;
    std::vector<std::string> missing;
    if (!haveCommand("nft")) missing.push_back("nft (apt-get install nftables)");
    if (!haveCommand("tshark")) missing.push_back("tshark (apt-get install tshark)");
    if (pppoe && (!haveCommand("pppoe") || !haveCommand("pppoe-server")))
        missing.push_back("pppoe and pppoe-server (apt-get install pppoe)");
    if (scapy && lt::sh("/usr/bin/python3 -c 'import scapy.all' >/dev/null 2>&1") != 0)
        missing.push_back("scapy for /usr/bin/python3 (apt-get install python3-scapy)");
    if (missing.empty()) return "";
    why = "system tests need ";
    for (size_t i = 0; i < missing.size(); i++) why += (i ? ", " : "") + missing[i];
    return why;
}

// ---- commands ---------------------------------------------------------------------------------

Result exec(const std::vector<std::string>& argv, int timeoutSec) {
    Result r;
    int outp[2], errp[2];
    if (::pipe2(outp, O_CLOEXEC) != 0) return r;
    if (::pipe2(errp, O_CLOEXEC) != 0) {
        ::close(outp[0]);
        ::close(outp[1]);
        return r;
    }
    std::fflush(nullptr);
    const pid_t parent = ::getpid();
    pid_t pid = ::fork();
    if (pid == 0) {
        lt::dieWithParent(parent);
        ::setpgid(0, 0);
        ::dup2(outp[1], 1);
        ::dup2(errp[1], 2);
        int null = ::open("/dev/null", O_RDONLY);
        if (null >= 0) ::dup2(null, 0);
        std::vector<char*> args;
        for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        ::execvp(args[0], args.data());
        std::fprintf(stderr, "cannot run %s: %s\n", args[0], std::strerror(errno));
        ::_exit(127);
    }
    ::close(outp[1]);
    ::close(errp[1]);
    if (pid < 0) {
        ::close(outp[0]);
        ::close(errp[0]);
        return r;
    }
    int64_t deadline = nowMs() + static_cast<int64_t>(timeoutSec) * 1000;
    bool open[2] = {true, true};
    int fds[2] = {outp[0], errp[0]};
    bool killed = false;
    while (open[0] || open[1]) {
        struct pollfd p[2];
        int n = 0;
        int which[2];
        for (int i = 0; i < 2; i++)
            if (open[i]) {
                p[n] = {fds[i], POLLIN, 0};
                which[n++] = i;
            }
        int64_t left = deadline - nowMs();
        if (left <= 0) {
            ::kill(-pid, SIGKILL);
            killed = true;
            break;
        }
        int rc = ::poll(p, static_cast<nfds_t>(n), static_cast<int>(std::min<int64_t>(left, 1000)));
        if (rc < 0 && errno != EINTR) break;
        for (int k = 0; k < n; k++) {
            if ((p[k].revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
            char buf[8192];
            ssize_t got = ::read(p[k].fd, buf, sizeof(buf));
            if (got <= 0) {
                open[which[k]] = false;
                continue;
            }
            (which[k] == 0 ? r.out : r.err).append(buf, static_cast<size_t>(got));
        }
    }
    ::close(outp[0]);
    ::close(errp[0]);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    ::kill(-pid, SIGKILL);  // whatever it left in its group
    if (killed) r.err += "\n(killed after " + std::to_string(timeoutSec) + " s)";
    r.status = !killed && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

// ---- frames ------------------------------------------------------------------------------------

FrameView view(const Frame& f) {
    FrameView v;
    const auto& b = f.bytes;
    if (b.size() < 14) return v;
    v.dst = macText(b.data());
    v.src = macText(b.data() + 6);
    size_t off = 12;
    for (;;) {
        if (off + 2 > b.size()) return v;
        uint16_t type = static_cast<uint16_t>((b[off] << 8) | b[off + 1]);
        if ((type == 0x8100 || type == 0x88a8 || type == 0x9100) && off + 4 <= b.size()) {
            v.tags.emplace_back(type, static_cast<uint16_t>((b[off + 2] << 8) | b[off + 3]));
            off += 4;
            continue;
        }
        v.etherType = type;
        v.payload = off + 2;
        return v;
    }
}

int pppoeCode(const Frame& f) {
    FrameView v = view(f);
    if (!v.discovery() || v.payload + 6 > f.bytes.size()) return -1;
    return f.bytes[v.payload + 1];
}

std::optional<std::vector<uint8_t>> pppoeTag(const Frame& f, uint16_t type) {
    FrameView v = view(f);
    const auto& b = f.bytes;
    if (!v.discovery() || v.payload + 6 > b.size()) return std::nullopt;
    size_t end = std::min(b.size(), v.payload + 6 + ((b[v.payload + 4] << 8) | b[v.payload + 5]));
    for (size_t off = v.payload + 6; off + 4 <= end;) {
        uint16_t t = static_cast<uint16_t>((b[off] << 8) | b[off + 1]);
        size_t len = static_cast<size_t>((b[off + 2] << 8) | b[off + 3]);
        if (off + 4 + len > end) return std::nullopt;
        if (t == type) return std::vector<uint8_t>(b.begin() + static_cast<std::ptrdiff_t>(off + 4),
                                                   b.begin() + static_cast<std::ptrdiff_t>(off + 4 + len));
        off += 4 + len;
    }
    return std::nullopt;
}

Capture::Capture(const std::string& netns, const std::string& ifName) {
    std::promise<int> opened;
    std::future<int> fd = opened.get_future();
    thread_ = std::thread([this, netns, ifName, &opened] {
        // This thread alone enters the namespace; its socket stays there.
        int nsfd = ::open(("/var/run/netns/" + netns).c_str(), O_RDONLY | O_CLOEXEC);
        if (nsfd < 0 || ::setns(nsfd, CLONE_NEWNET) != 0) {
            if (nsfd >= 0) ::close(nsfd);
            opened.set_value(-1);
            return;
        }
        ::close(nsfd);
        int s = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
        struct sockaddr_ll a;
        std::memset(&a, 0, sizeof(a));
        a.sll_family = AF_PACKET;
        a.sll_protocol = htons(ETH_P_ALL);
        a.sll_ifindex = static_cast<int>(::if_nametoindex(ifName.c_str()));
        int one = 1;
        if (s < 0 || a.sll_ifindex == 0 || ::bind(s, reinterpret_cast<struct sockaddr*>(&a), sizeof(a)) != 0 ||
            ::setsockopt(s, SOL_PACKET, PACKET_AUXDATA, &one, sizeof(one)) != 0) {
            if (s >= 0) ::close(s);
            opened.set_value(-1);
            return;
        }
        fd_ = s;
        opened.set_value(s);
        loop();
    });
    fd.wait();
    if (fd.get() < 0) {
        thread_.join();
        fd_ = -1;
    }
}

Capture::~Capture() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    if (fd_ >= 0) ::close(fd_);
}

void Capture::loop() {
    while (!stop_) {
        struct pollfd p = {fd_, POLLIN, 0};
        if (::poll(&p, 1, 100) <= 0) continue;
        uint8_t buf[2048];
        alignas(8) uint8_t control[256];
        struct sockaddr_ll from;
        struct iovec iov = {buf, sizeof(buf)};
        struct msghdr m;
        std::memset(&m, 0, sizeof(m));
        m.msg_name = &from;
        m.msg_namelen = sizeof(from);
        m.msg_iov = &iov;
        m.msg_iovlen = 1;
        m.msg_control = control;
        m.msg_controllen = sizeof(control);
        ssize_t n = ::recvmsg(fd_, &m, MSG_DONTWAIT);
        if (n < 14) continue;
        Frame f;
        f.bytes.assign(buf, buf + n);
        f.outgoing = from.sll_pkttype == PACKET_OUTGOING;
        // A tag the driver took out of the frame goes back in, as on the wire.
        for (struct cmsghdr* c = CMSG_FIRSTHDR(&m); c != nullptr; c = CMSG_NXTHDR(&m, c)) {
            if (c->cmsg_level != SOL_PACKET || c->cmsg_type != PACKET_AUXDATA) continue;
            struct tpacket_auxdata aux;
            std::memcpy(&aux, CMSG_DATA(c), sizeof(aux));
            if ((aux.tp_status & TP_STATUS_VLAN_VALID) == 0) continue;
            uint16_t tpid = (aux.tp_status & TP_STATUS_VLAN_TPID_VALID) ? aux.tp_vlan_tpid : 0x8100;
            const uint8_t tag[4] = {static_cast<uint8_t>(tpid >> 8), static_cast<uint8_t>(tpid),
                                    static_cast<uint8_t>(aux.tp_vlan_tci >> 8), static_cast<uint8_t>(aux.tp_vlan_tci)};
            f.bytes.insert(f.bytes.begin() + 12, tag, tag + 4);
        }
        std::lock_guard<std::mutex> lock(mutex_);
        frames_.push_back(std::move(f));
    }
}

std::vector<Frame> Capture::frames() {
    std::lock_guard<std::mutex> lock(mutex_);
    return frames_;
}

std::vector<Frame> Capture::received(const std::string& src, bool markers) {
    std::vector<Frame> out;
    for (const Frame& f : frames()) {
        if (f.outgoing) continue;
        FrameView v = view(f);
        if (!v.discovery() && !(markers && v.etherType == 0x88b5)) continue;
        if (!src.empty() && v.src != src) continue;
        out.push_back(f);
    }
    return out;
}

bool Capture::waitFor(const std::function<bool(const std::vector<Frame>&)>& done, int ms) {
    int64_t deadline = nowMs() + ms;
    for (;;) {
        if (done(received())) return true;
        if (nowMs() >= deadline) return false;
        ::usleep(20000);
    }
}

bool Capture::waitForMarker(const std::string& src, int ms) {
    int64_t deadline = nowMs() + ms;
    for (;;) {
        for (const Frame& f : received(src, true))
            if (view(f).etherType == 0x88b5) return true;
        if (nowMs() >= deadline) return false;
        ::usleep(20000);
    }
}

void Capture::writePcap(const std::string& path, const std::vector<Frame>& frames) const {
    std::ofstream out(path, std::ios::binary);
    auto u32 = [&out](uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
    auto u16 = [&out](uint16_t v) { out.write(reinterpret_cast<const char*>(&v), 2); };
    u32(0xa1b2c3d4);
    u16(2);
    u16(4);
    u32(0);
    u32(0);
    u32(65535);
    u32(1);  // Ethernet
    uint32_t t = 0;
    for (const Frame& f : frames) {
        u32(++t);
        u32(0);
        u32(static_cast<uint32_t>(f.bytes.size()));
        u32(static_cast<uint32_t>(f.bytes.size()));
        out.write(reinterpret_cast<const char*>(f.bytes.data()), static_cast<std::streamsize>(f.bytes.size()));
    }
}

namespace {

using Json = nlohmann::ordered_json;

// The first string of a field's value: the value itself, or for a raw field
// ([hex, offset, length, mask, type]) and a field tshark met more than once
// (an array, --no-duplicate-keys) its first element.
std::string firstString(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_array() && !value.empty()) return firstString(value.front());
    return "";
}

// The value of the first field named `key` in `node`, in the order tshark
// wrote them (a field before what lies below it); nothing when absent.
std::optional<std::string> firstField(const Json& node, const std::string& key) {
    if (node.is_object()) {
        for (const auto& [name, value] : node.items()) {
            if (name == key) return firstString(value);
            if (auto found = firstField(value, key)) return found;
        }
    } else if (node.is_array()) {
        for (const Json& value : node)
            if (auto found = firstField(value, key)) return found;
    }
    return std::nullopt;
}

}  // namespace

std::vector<Decoded> tsharkDecode(const std::string& pcap, std::string& error) {
    // Every field with its bytes (-x: the "..._raw" fields); a field that
    // occurs twice in one tree becomes an array instead of a second key.
    Result json = exec({"tshark", "-r", pcap, "-T", "json", "-x", "--no-duplicate-keys"}, 60);
    if (json.status != 0) {
        error = "tshark -T json: " + json.all();
        return {};
    }
    const Json packets = Json::parse(json.out, nullptr, false);
    if (packets.is_discarded() || !packets.is_array()) {
        error = "tshark -T json gave no list of packets: " + json.out.substr(0, 200);
        return {};
    }
    std::vector<Decoded> out;
    for (const Json& packet : packets) {
        const Json* layers = nullptr;
        if (packet.is_object() && packet.contains("_source") && packet["_source"].is_object() &&
            packet["_source"].contains("layers"))
            layers = &packet["_source"]["layers"];
        if (layers == nullptr) {
            error = "tshark's JSON has a packet without layers: " + packet.dump().substr(0, 200);
            return {};
        }
        auto field = [layers](const char* key) { return firstField(*layers, key).value_or(""); };
        Decoded d;
        d.src = field("eth.src");
        d.code = field("pppoe.code");
        d.svid = field("ieee8021ad.id");
        d.vlan = field("vlan.id");
        d.vlanPri = field("vlan.priority");
        d.vendorId = field("pppoed.tags.vendor_id");
        d.circuitId = field("pppoed.tags.circuit_id");
        d.remoteId = field("pppoed.tags.remote_id");
        d.circuitHex = field("pppoed.tags.circuit_id_raw");
        d.remoteHex = field("pppoed.tags.remote_id_raw");
        out.push_back(d);
    }
    return out;
}

// ---- the lab ----------------------------------------------------------------------------------

Lab::Lab() {
    sweepStale();
    prefix_ = std::string(PREFIX) + std::to_string(::getpid()) + "x" + std::to_string(gLabs++);
}

Lab::~Lab() {
    for (lt::Process* p : {&server_, &daemon_}) {
        if (p->pid <= 0) continue;
        ::kill(p->pid, SIGTERM);
        if (lt::waitFor(p->pid, 3000) == -1) {
            ::kill(p->pid, SIGKILL);
            lt::waitFor(p->pid, 3000);
        }
        p->pid = -1;
    }
    for (const std::string& n : namespaces_) removeNamespace(n);
}

std::string Lab::macOf(const std::string& ifName) {
    // c<N>: client side, p<N>: agent ports, s<N>: server side.
    const char* kind = ifName[0] == 'c' ? "0c" : ifName[0] == 's' ? "5e" : "a0";
    int n = std::atoi(ifName.c_str() + 1);
    char buf[18];
    std::snprintf(buf, sizeof(buf), "02:00:00:00:%s:%02x", kind, n);
    return buf;
}

bool Lab::step(const std::string& what, const std::vector<std::string>& argv) {
    Result r = exec(argv, 30);
    if (r.status == 0) return true;
    why_ = what + " failed: " + r.all();
    return false;
}

std::string Lab::daemonLog() const { return lt::readFile(dir_.path() + "/pppoeplusd.log"); }

Result Lab::in(const std::string& netns, const std::vector<std::string>& argv, int timeoutSec) const {
    std::vector<std::string> a = {"ip", "netns", "exec", netns};
    a.insert(a.end(), argv.begin(), argv.end());
    return exec(a, timeoutSec);
}

Result Lab::ctl(const std::vector<std::string>& args, int timeoutSec) const {
    std::vector<std::string> a = {"env", "PPPOEPLUS_ROOT=" + dir_.path(), PPPOEPLUSCTL_PATH};
    a.insert(a.end(), args.begin(), args.end());
    return in(agent(), a, timeoutSec);
}

uint32_t Lab::unit(const std::string& ifName) const {
    Result r = in(agent(), {"cat", "/sys/class/net/" + ifName + "/ifindex"});
    return r.status == 0 ? static_cast<uint32_t>(std::stoul(r.out)) : 0;
}

Result Lab::craft(const std::string& iface, const std::vector<std::string>& frames) const {
    std::vector<std::string> a = {"/usr/bin/python3", std::string(PPPOEPLUS_SYSTEM_TEST_DIR) + "/craft.py", iface};
    a.insert(a.end(), frames.begin(), frames.end());
    return in(client(), a, 60);
}

bool Lab::waitForEntry(const std::string& ifName, int ms) const {
    int64_t deadline = nowMs() + ms;
    for (;;) {
        if (ctl({"if", ifName, "get", "enable"}).status == 0) return true;
        if (nowMs() >= deadline) return false;
        ::usleep(50000);
    }
}

std::vector<std::string> Lab::ruleSet() const {
    Result r = in(agent(), {"nft", "list", "set", "bridge", "pppoeplus", "ports"});
    std::vector<std::string> ports;
    static const std::regex name("\"([^\"]+)\"");
    for (auto it = std::sregex_iterator(r.out.begin(), r.out.end(), name); it != std::sregex_iterator(); ++it)
        ports.push_back((*it)[1]);
    std::sort(ports.begin(), ports.end());
    return ports;
}

bool Lab::waitForRuleSet(std::vector<std::string> ports, int ms) const {
    std::sort(ports.begin(), ports.end());
    int64_t deadline = nowMs() + ms;
    for (;;) {
        if (ruleSet() == ports) return true;
        if (nowMs() >= deadline) return false;
        ::usleep(50000);
    }
}

bool Lab::up(const Options& o) {
    for (const char* role : {"-client", "-agent", "-server"}) {
        std::string n = prefix_ + role;
        if (!step("ip netns add " + n, {"ip", "netns", "add", n})) return false;
        namespaces_.push_back(n);
        if (!step("lo up", {"ip", "-n", n, "link", "set", "lo", "up"})) return false;
        // No IPv6 chatter on the links.
        in(n, {"sysctl", "-qw", "net.ipv6.conf.all.disable_ipv6=1", "net.ipv6.conf.default.disable_ipv6=1"});
    }
    if (!step("bridge", {"ip", "-n", agent(), "link", "add", "br0", "type", "bridge"})) return false;
    std::vector<std::string> agentPorts;
    std::vector<std::pair<std::string, std::string>> links;  // agent port, peer (c* in client, s* in server)
    for (int i = 0; i < o.clientPorts; i++) links.emplace_back("p" + std::to_string(2 * i + 1), "c" + std::to_string(i));
    for (int i = 0; i < o.uplinks; i++) links.emplace_back("p" + std::to_string(2 * i + 2), "s" + std::to_string(i));
    for (const auto& [port, peer] : links) {
        const std::string peerNs = peer[0] == 'c' ? client() : server();
        if (!step("veth " + port,
                  {"ip", "-n", agent(), "link", "add", port, "address", macOf(port), "type", "veth", "peer", "name",
                   peer, "address", macOf(peer), "netns", peerNs}))
            return false;
        if (!step("master " + port, {"ip", "-n", agent(), "link", "set", port, "master", "br0", "up"})) return false;
        if (!step("up " + peer, {"ip", "-n", peerNs, "link", "set", peer, "up"})) return false;
        agentPorts.push_back(port);
    }
    if (!step("br0 up", {"ip", "-n", agent(), "link", "set", "br0", "up"})) return false;

    conf_ = dir_.file("pppoeplus.conf",
                      "# system test lab\n"
                      "pppoeplus.defaultenable = true\n"
                      "pppoeplus.defaultportenable = true\n"
                      "platform.sysmac = " + std::string(SYS_MAC) + "\n"
                      "platform.hwrule = nft\n" + o.conf);
    ports_ = agentPorts;
    if (!spawnDaemon()) return false;
    std::vector<std::string> clientPorts;
    for (int i = 0; i < o.clientPorts; i++) clientPorts.push_back("p" + std::to_string(2 * i + 1));
    if (o.trustUplinks) {
        for (int i = 0; i < o.uplinks; i++) {
            Result r = ctl({"if", "p" + std::to_string(2 * i + 2), "set", "trust", "on"});
            if (r.status != 0) {
                why_ = "trust: " + r.all();
                return false;
            }
        }
        if (!waitForRuleSet(clientPorts)) {
            why_ = "the hardware rule's ports are not the client ports\n" +
                   in(agent(), {"nft", "list", "ruleset"}).out + daemonLog();
            return false;
        }
    }
    return true;
}

bool Lab::startServer() {
    server_ = lt::spawn({"ip", "netns", "exec", server(), "pppoe-server", "-F", "-I", "s0", "-C", "lab-ac", "-S",
                         "lab"},
                        {}, dir_.path() + "/pppoe-server.log");
    // Ready once its discovery socket is open in the server's namespace.
    int64_t deadline = nowMs() + 10000;
    for (;;) {
        Result r = in(server(), {"cat", "/proc/net/packet"});
        std::istringstream lines(r.out);
        std::string line;
        while (std::getline(lines, line)) {
            std::istringstream w(line);
            std::string sk, refcnt, type, proto;
            w >> sk >> refcnt >> type >> proto;
            if (proto == "8863") return true;
        }
        if (nowMs() >= deadline || lt::waitFor(server_.pid, 0) != -1) {
            why_ = "pppoe-server did not start: " + lt::readFile(dir_.path() + "/pppoe-server.log");
            return false;
        }
        ::usleep(50000);
    }
}

// Starts pppoeplusd with the lab's file and waits until it runs and has an
// entry for every port of the lab.
bool Lab::spawnDaemon() {
    const std::string log = dir_.path() + "/pppoeplusd.log";
    if (starts_++ > 0) ::rename(log.c_str(), (log + "." + std::to_string(starts_ - 1)).c_str());
    daemon_ = lt::spawn({"ip", "netns", "exec", agent(), PPPOEPLUSD_PATH},
                        {"PPPOEPLUS_CONF=" + conf_, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir_.path()}, log);
    if (!lt::waitForPath(dir_.path() + "/pppoeplusNm.socket", 20000)) {
        why_ = "pppoeplusd did not start:\n" + daemonLog();
        return false;
    }
    int64_t deadline = nowMs() + 20000;
    while (!contains(daemonLog(), "pppoeplusd running")) {
        if (nowMs() >= deadline) {
            why_ = "pppoeplusd did not report running:\n" + daemonLog();
            return false;
        }
        ::usleep(50000);
    }
    for (const std::string& p : ports_) {
        if (!waitForEntry(p)) {
            why_ = "no entry for " + p + ":\n" + ctl({"if", "list"}).all() + daemonLog();
            return false;
        }
    }
    return true;
}

bool Lab::startDaemon() {
    if (daemon_.pid > 0) {
        why_ = "pppoeplusd is still running";
        return false;
    }
    return spawnDaemon();
}

bool Lab::signalDaemon(int sig) const { return daemon_.pid > 0 && ::kill(daemon_.pid, sig) == 0; }

int Lab::stopDaemon() {
    if (daemon_.pid <= 0) return -1;
    ::kill(daemon_.pid, SIGTERM);
    int status = lt::waitFor(daemon_.pid, 10000);
    if (status == -1) return -1;
    daemon_.pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace st
