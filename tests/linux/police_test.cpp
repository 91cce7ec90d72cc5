// Policing of discovery per port by the packet socket's eBPF filter: it
// keeps exactly the frames the classic filter keeps, cuts a flooding port
// to its limit while the other ports' frames pass, counts what it drops,
// lets a power cut's worth of PADIs through whole with the defaults, and
// error-disables a port that keeps going over its limit.
#include <arpa/inet.h>
#include <cap-ng.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "lt_frames.h"
#include "lt_netns.h"
#include "platform/ifdb.h"
#include "platform/linux/internal.h"
#include "platform/linux/pkt.h"
#include "platform/linux/police.h"
#include "platform/socket.h"
#include "platform/types.h"

namespace {

using namespace linuxplat;
using lt::discoveryFrame;
const uint8_t* const BCAST = lt::BROADCAST;

// A client MAC numbered `n`, so that frames can be told apart.
std::vector<uint8_t> mac(uint32_t n) {
    return {0x02, 0x00, static_cast<uint8_t>(n >> 24), static_cast<uint8_t>(n >> 16), static_cast<uint8_t>(n >> 8),
            static_cast<uint8_t>(n)};
}

// A socket of the test for every frame seen on `ifName` (all interfaces
// when null) behind the filter `attach` puts on it, with a large receive
// buffer. It is bound after the filter is on, so that nothing passes
// unfiltered. -1 on failure.
template <typename Attach>
int tapSocket(const char* ifName, Attach attach) {
    int fd = ::socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK, 0);
    if (fd < 0) return -1;
    int buf = 64 << 20;
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &buf, sizeof(buf));
    struct sockaddr_ll a;
    std::memset(&a, 0, sizeof(a));
    a.sll_family = AF_PACKET;
    a.sll_protocol = htons(ETH_P_ALL);
    a.sll_ifindex = ifName != nullptr ? static_cast<int>(if_nametoindex(ifName)) : 0;
    if (!attach(fd) || ::bind(fd, reinterpret_cast<struct sockaddr*>(&a), sizeof(a)) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

bool attachClassic(int fd) {
    std::vector<struct sock_filter> prog = pktFilterProgram();
    struct sock_fprog fprog = {static_cast<unsigned short>(prog.size()), prog.data()};
    return ::setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &fprog, sizeof(fprog)) == 0;
}

// Every frame queued on `fd` until it has been quiet for `quietMs`: the
// whole frames, with the receiving interface's index.
struct Seen {
    std::vector<uint8_t> bytes;
    int ifindex;
};
std::vector<Seen> drain(int fd, int quietMs = 300) {
    std::vector<Seen> out;
    for (;;) {
        struct pollfd p = {fd, POLLIN, 0};
        if (::poll(&p, 1, quietMs) <= 0) return out;
        for (;;) {
            uint8_t buf[2048];
            struct sockaddr_ll from;
            socklen_t fl = sizeof(from);
            ssize_t n = ::recvfrom(fd, buf, sizeof(buf), 0, reinterpret_cast<struct sockaddr*>(&from), &fl);
            if (n < 0) break;
            out.push_back({std::vector<uint8_t>(buf, buf + n), from.sll_ifindex});
        }
    }
}

// Keeps only CAP_NET_RAW and CAP_NET_ADMIN, as the daemon after its start.
bool dropToRuntimeCapabilities() {
    capng_clear(CAPNG_SELECT_BOTH);
    capng_updatev(CAPNG_ADD, static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED), CAP_NET_RAW, CAP_NET_ADMIN,
                  -1);
    return capng_apply(CAPNG_SELECT_BOTH) == 0 && capng_have_capability(CAPNG_EFFECTIVE, CAP_BPF) == 0 &&
           capng_have_capability(CAPNG_EFFECTIVE, CAP_SYS_ADMIN) == 0;
}

// Standard error into a file, for the platform's log lines.
struct StderrTo {
    explicit StderrTo(const std::string& path) { CHECK_TRUE(std::freopen(path.c_str(), "w", stderr) != nullptr); }
};

class PoliceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LT_NEED_NETNS();
        ns_ = std::make_unique<lt::Netns>();
        ASSERT_TRUE(ns_->ok());
        ASSERT_EQ(0, ns_->sh("ip link add a0 type veth peer name a1 && ip link set a0 up && ip link set a1 up && "
                             "ip link add b0 type veth peer name b1 && ip link set b0 up && ip link set b1 up"));
    }
    std::unique_ptr<lt::Netns> ns_;
    lt::TempDir dir_;
    std::vector<std::string> env() const {
        return {"PPPOEPLUS_CONF=" + dir_.path() + "/none.conf", "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir_.path()};
    }
};

TEST(Police, SettingsOutOfRangeAreRefusedAndChangeNothing) {
    lt::TempDir dir;
    auto r = lt::runChild("", {"PPPOEPLUS_CONF=" + dir.path() + "/none.conf", "PPPOEPLUS_LOG=stderr"}, [] {
        // The defaults.
        CHECK_EQ(POLICE_RATE_DEFAULT, policeRate(0));
        CHECK_EQ(POLICE_BURST_DEFAULT, policeBurst(0));
        CHECK_EQ(0u, policeErrdisableTime());
        CHECK_EQ(ERRDISABLE_HOLD_DEFAULT, policeErrdisableHold());
        CHECK_EQ(POLICE_FOLLOW, policeRate(7));
        CHECK_EQ(POLICE_FOLLOW, policeBurst(7));
        for (bool loaded : {false, true}) {
            if (loaded) CHECK_TRUE(policeLoad());
            CHECK_TRUE(!policeSetRate(0, POLICE_RATE_MAX + 1).empty());
            CHECK_TRUE(!policeSetRate(0, POLICE_FOLLOW).empty());  // the global value follows nothing
            CHECK_TRUE(!policeSetBurst(0, 0).empty());
            CHECK_TRUE(!policeSetBurst(0, POLICE_BURST_MAX + 1).empty());
            CHECK_TRUE(!policeSetRate(7, POLICE_RATE_MAX + 1).empty());
            CHECK_TRUE(!policeSetBurst(7, 0).empty());
            CHECK_TRUE(!policeSetErrdisableTime(ERRDISABLE_TIME_MAX + 1).empty());
            CHECK_TRUE(!policeSetErrdisableHold(0).empty());
            CHECK_TRUE(!policeSetErrdisableHold(ERRDISABLE_HOLD_MAX + 1).empty());
            CHECK_EQ(POLICE_RATE_DEFAULT, policeRate(0));
            CHECK_EQ(POLICE_BURST_DEFAULT, policeBurst(0));
            CHECK_EQ(POLICE_FOLLOW, policeRate(7));
            CHECK_EQ(POLICE_FOLLOW, policeBurst(7));
            CHECK_EQ(0u, policeErrdisableTime());
            CHECK_EQ(ERRDISABLE_HOLD_DEFAULT, policeErrdisableHold());
        }
        // The ends of the ranges are taken, and a port goes back to the default.
        CHECK_EQ(std::string(), policeSetRate(0, 0));
        CHECK_EQ(std::string(), policeSetRate(0, POLICE_RATE_MAX));
        CHECK_EQ(std::string(), policeSetBurst(0, POLICE_BURST_MIN));
        CHECK_EQ(std::string(), policeSetBurst(7, POLICE_BURST_MAX));
        CHECK_EQ(std::string(), policeSetRate(7, 0));
        CHECK_EQ(0u, policeRate(7));
        CHECK_EQ(std::string(), policeSetRate(7, POLICE_FOLLOW));
        CHECK_EQ(POLICE_FOLLOW, policeRate(7));
        CHECK_EQ(std::string(), policeSetErrdisableTime(ERRDISABLE_TIME_MAX));
        CHECK_EQ(std::string(), policeSetErrdisableHold(ERRDISABLE_HOLD_MIN));
        CHECK_EQ(ERRDISABLE_TIME_MAX, policeErrdisableTime());
        CHECK_EQ(ERRDISABLE_HOLD_MIN, policeErrdisableHold());
        // Nothing to recover.
        CHECK_TRUE(!policeRecover(7).empty());
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

TEST_F(PoliceTest, TheFilterKeepsExactlyWhatTheClassicFilterKeeps) {
    auto r = lt::runChild(ns_->name(), env(), [] {
        CHECK_TRUE(policeLoad());
        CHECK_EQ(std::string(), policeSetRate(0, 0));  // filtering alone here
        int classic = tapSocket("a0", attachClassic);
        int ebpf = tapSocket("a0", policeAttach);
        CHECK_TRUE(classic >= 0 && ebpf >= 0);
        int far = lt::rawSocket("a1");
        int near = lt::rawSocket("a0");  // its frames are a0's outgoing ones
        CHECK_TRUE(far >= 0 && near >= 0);

        using Tags = std::vector<std::pair<uint16_t, uint16_t>>;
        struct Case {
            Tags tags;
            uint16_t type;
            bool kept;
        };
        const std::vector<Case> cases = {
            {{}, 0x8863, true},
            {{{0x8100, 10}}, 0x8863, true},
            {{{0x88a8, 10}}, 0x8863, true},
            {{{0x9100, 10}}, 0x8863, true},
            {{{0x88a8, 20}, {0x8100, 10}}, 0x8863, true},
            {{{0x8100, 20}, {0x8100, 10}}, 0x8863, true},
            {{{0x9100, 20}, {0x9100, 10}}, 0x8863, true},
            // The kernel takes an outer 802.1Q or 802.1ad tag out of the data
            // before the sockets see the frame: two tags are left.
            {{{0x8100, 1}, {0x8100, 2}, {0x8100, 3}}, 0x8863, true},
            {{{0x9100, 1}, {0x9100, 2}, {0x9100, 3}}, 0x8863, false},
            {{}, 0x8864, false},
            {{}, 0x0800, false},
            {{{0x8100, 10}}, 0x0806, false},
            {{{0x8100, 1}, {0x8100, 2}}, 0x0800, false},
            {{{0x9100, 1}, {0x88a8, 2}}, 0x8864, false},
        };
        uint32_t n = 0;
        size_t keptSent = 0;
        for (const Case& c : cases) {
            static const uint8_t UNICAST[6] = {0x02, 0x00, 0x00, 0x00, 0xAB, 0xCD};
            for (const uint8_t* dst : {BCAST, UNICAST}) {
                std::vector<uint8_t> src = mac(++n);
                CHECK_TRUE(lt::rawSend(far, discoveryFrame(dst, src.data(), c.tags, c.type)));
                if (c.kept) keptSent++;
            }
            // The host's own copy of a discovery frame: kept by neither.
            std::vector<uint8_t> src = mac(++n);
            CHECK_TRUE(lt::rawSend(near, discoveryFrame(BCAST, src.data(), c.tags, c.type)));
        }
        // Frames cut short: a type field half there, and none.
        std::vector<uint8_t> shortFrame = discoveryFrame(BCAST, mac(++n).data(), {});
        shortFrame.resize(13);
        (void)lt::rawSend(far, shortFrame);
        std::vector<uint8_t> tagOnly = discoveryFrame(BCAST, mac(++n).data(), {{0x9100, 5}});
        tagOnly.resize(17);
        (void)lt::rawSend(far, tagOnly);

        std::vector<Seen> a = drain(classic);
        std::vector<Seen> b = drain(ebpf);
        CHECK_EQ(keptSent, a.size());
        CHECK_EQ(a.size(), b.size());
        for (size_t i = 0; i < a.size() && i < b.size(); i++) {
            CHECK_EQ(a[i].bytes.size(), b[i].bytes.size());
            CHECK_TRUE(a[i].bytes == b[i].bytes);
        }
        PolicePortStatus st = policeStatus(if_nametoindex("a0"));
        CHECK_EQ(static_cast<uint64_t>(keptSent), st.passed);
        CHECK_EQ(0u, st.dropped);
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

TEST_F(PoliceTest, AFloodFromOnePortIsCutToItsLimitWhileAnotherPortsFramesPass) {
    auto r = lt::runChild(ns_->name(), env(), [] {
        uint32_t a0 = if_nametoindex("a0"), b0 = if_nametoindex("b0");
        CHECK_EQ(std::string(), policeSetRate(0, 100));
        CHECK_EQ(std::string(), policeSetBurst(0, 100));
        // The daemon's own socket, as it reads discovery.
        int32_t fd = lt::openPacketSocket(8 << 20);
        CHECK_TRUE(policeAvailable());
        lt::trap(a0, true);
        lt::trap(b0, true);
        int fa = lt::rawSocket("a1"), fb = lt::rawSocket("b1");
        CHECK_TRUE(fa >= 0 && fb >= 0);
        constexpr uint32_t FLOOD = 20000, EVERY = 400;
        uint32_t sentA = 0, sentB = 0;
        std::vector<uint8_t> fromA = discoveryFrame(BCAST, mac(0xA).data(), {});
        std::vector<uint8_t> fromB = discoveryFrame(BCAST, mac(0xB).data(), {});
        auto t0 = std::chrono::steady_clock::now();
        for (uint32_t i = 0; i < FLOOD; i++) {
            if (lt::rawSend(fa, fromA)) sentA++;
            if (i % EVERY == 0 && lt::rawSend(fb, fromB)) sentB++;
        }
        double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        CHECK_EQ(FLOOD, sentA);
        CHECK_EQ(FLOOD / EVERY, sentB);

        uint32_t gotA = 0, gotB = 0;
        for (;;) {
            lt::PlatformFrame g = lt::platformRecv(fd, 300);
            if (g.len < 0) break;
            if (g.info.ifUnit == a0) gotA++;
            if (g.info.ifUnit == b0) gotB++;
        }
        // The burst, and the rate for as long as the flood lasted.
        CHECK_TRUE(gotA >= 100);
        CHECK_TRUE(gotA <= 100 + static_cast<uint32_t>(100 * (secs + 0.5)));
        CHECK_EQ(sentB, gotB);
        // Every frame of the flood is counted: passed or dropped.
        PolicePortStatus sa = policeStatus(a0), sb = policeStatus(b0);
        CHECK_EQ(static_cast<uint64_t>(gotA), sa.passed);
        CHECK_EQ(static_cast<uint64_t>(sentA - gotA), sa.dropped);
        CHECK_EQ(static_cast<uint64_t>(sentB), sb.passed);
        CHECK_EQ(0u, sb.dropped);
        std::vector<PolicePortStatus> all = policeStatusAll();
        CHECK_EQ(2u, all.size());
        std::fprintf(stderr, "flood: %u frames in %.3f s from a1, %u passed; %u of %u from b1 passed\n", sentA, secs,
                     gotA, gotB, sentB);
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

TEST_F(PoliceTest, AnUplinkIsNotPolicedByTheDefaultButByARateOfItsOwn) {
    auto r = lt::runChild(ns_->name(), env(), [] {
        uint32_t a0 = if_nametoindex("a0");
        CHECK_EQ(std::string(), policeSetBurst(0, 10));
        int tap = tapSocket("a0", policeAttach);
        CHECK_TRUE(tap >= 0);
        int far = lt::rawSocket("a1");
        std::vector<uint8_t> f = discoveryFrame(BCAST, mac(1).data(), {});
        auto sendAndCount = [&](int n) {
            ::usleep(150000);  // the bucket full again
            for (int i = 0; i < n; i++) CHECK_TRUE(lt::rawSend(far, f));
            return drain(tap).size();
        };
        // The agent's hardware rule of the port switched off: a port the
        // agent does not serve is still policed by the default.
        ifdbStart();
        tZelIfProto p{};
        p.protoId = ZEL_PROTO_PPPOEPLUS_HW;
        CHECK_EQ(0u, zelIfSetApi(a0, ZEL_IF_ATTR_PROTO_OFF, &p));
        size_t got = sendAndCount(500);
        CHECK_TRUE(got >= 10 && got < 100);
        // Served with its rule off: an uplink, not policed.
        lt::trap(a0, true);
        uint64_t droppedBefore = policeStatus(a0).dropped;
        CHECK_EQ(500u, sendAndCount(500));
        CHECK_EQ(droppedBefore, policeStatus(a0).dropped);
        // A rate of its own polices it.
        CHECK_EQ(std::string(), policeSetRate(a0, 100));
        got = sendAndCount(500);
        CHECK_TRUE(got >= 10 && got < 100);
        CHECK_EQ(droppedBefore + 500 - got, policeStatus(a0).dropped);
        // Its rule on again: a subscriber port, policed by the default.
        CHECK_EQ(std::string(), policeSetRate(a0, POLICE_FOLLOW));
        CHECK_EQ(0u, zelIfSetApi(a0, ZEL_IF_ATTR_PROTO_ON, &p));
        got = sendAndCount(500);
        CHECK_TRUE(got >= 10 && got < 100);
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

TEST(Police, TenThousandPadisOverAHundredPortsPassWholeWithTheDefaults) {
    LT_NEED_NETNS();
    lt::Netns ns;
    ASSERT_TRUE(ns.ok());
    constexpr int PORTS = 100, PER_PORT = 100;
    std::string batch;
    for (int i = 0; i < PORTS; i++)
        batch += "link add p" + std::to_string(i) + " type veth peer name q" + std::to_string(i) + "\n";
    for (int i = 0; i < PORTS; i++)
        batch += "link set p" + std::to_string(i) + " up\nlink set q" + std::to_string(i) + " up\n";
    lt::TempDir dir;
    std::string file = dir.file("links", batch);
    ASSERT_EQ(0, ns.sh("ip -batch " + file));
    auto r = lt::runChild(ns.name(), {"PPPOEPLUS_CONF=" + dir.path() + "/none.conf", "PPPOEPLUS_LOG=stderr"}, [] {
        CHECK_EQ(POLICE_RATE_DEFAULT, policeRate(0));
        CHECK_EQ(POLICE_BURST_DEFAULT, policeBurst(0));
        int tap = tapSocket(nullptr, policeAttach);
        CHECK_TRUE(tap >= 0);
        std::vector<int> far;
        for (int i = 0; i < PORTS; i++) far.push_back(lt::rawSocket(("q" + std::to_string(i)).c_str()));
        // Every subscriber's PADI at once, the ports taking turns.
        uint32_t n = 0;
        for (int k = 0; k < PER_PORT; k++)
            for (int i = 0; i < PORTS; i++) CHECK_TRUE(lt::rawSend(far[i], discoveryFrame(BCAST, mac(++n).data(), {})));
        std::vector<Seen> seen = drain(tap);
        CHECK_EQ(static_cast<size_t>(PORTS * PER_PORT), seen.size());
        uint64_t passed = 0, dropped = 0;
        for (const PolicePortStatus& s : policeStatusAll()) {
            passed += s.passed;
            dropped += s.dropped;
        }
        CHECK_EQ(static_cast<uint64_t>(PORTS * PER_PORT), passed);
        CHECK_EQ(0u, dropped);
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

TEST_F(PoliceTest, ErrorDisableStartsEndsAndIsRecovered) {
    std::string log = dir_.path() + "/stderr";
    auto r = lt::runChild(ns_->name(), env(), [log] {
        StderrTo to(log);
        uint32_t a0 = if_nametoindex("a0"), b0 = if_nametoindex("b0");
        CHECK_TRUE(policeLoad());
        // From here on as the daemon runs: settings and counters need no capability.
        CHECK_TRUE(dropToRuntimeCapabilities());
        int tap = tapSocket(nullptr, policeAttach);
        CHECK_TRUE(tap >= 0);
        CHECK_EQ(std::string(), policeSetRate(a0, 1000));  // a bucket that refills in 10 ms
        CHECK_EQ(std::string(), policeSetBurst(a0, 10));
        CHECK_EQ(std::string(), policeSetErrdisableTime(2));
        CHECK_EQ(std::string(), policeSetErrdisableHold(5));
        int fa = lt::rawSocket("a1"), fb = lt::rawSocket("b1");
        std::vector<uint8_t> f = discoveryFrame(BCAST, mac(1).data(), {});
        auto flood = [&] {
            for (int i = 0; i < 300; i++) CHECK_TRUE(lt::rawSend(fa, f));
            CHECK_TRUE(lt::rawSend(fb, f));
        };
        auto passesAfterRefill = [&](int count) {
            ::usleep(30000);
            (void)drain(tap, 50);
            for (int i = 0; i < count; i++) CHECK_TRUE(lt::rawSend(fa, f));
            return drain(tap, 200).size() == static_cast<size_t>(count);
        };
        // Checks a second apart, the last of them now.
        int64_t t = policeNowMs() - 2000;
        // Two checks in a row over the limit (the first check only learns the counter).
        flood();
        policeTick(t);
        CHECK_TRUE(!policeStatus(a0).errDisabled);
        flood();
        policeTick(t += 1000);
        CHECK_TRUE(!policeStatus(a0).errDisabled);
        flood();
        policeTick(t += 1000);
        PolicePortStatus s = policeStatus(a0);
        CHECK_TRUE(s.errDisabled);
        CHECK_TRUE(s.holdLeft >= 4 && s.holdLeft <= 5);
        CHECK_TRUE(!policeStatus(b0).errDisabled);
        // Held: every discovery frame of the port is dropped and counted.
        ::usleep(30000);
        (void)drain(tap, 50);
        uint64_t droppedBefore = policeStatus(a0).dropped;
        uint64_t passedBefore = policeStatus(a0).passed;
        for (int i = 0; i < 20; i++) CHECK_TRUE(lt::rawSend(fa, f));
        CHECK_TRUE(lt::rawSend(fb, f));
        std::vector<Seen> seen = drain(tap, 200);
        CHECK_EQ(1u, seen.size());
        if (!seen.empty()) CHECK_EQ(static_cast<int>(b0), seen[0].ifindex);
        CHECK_EQ(droppedBefore + 20, policeStatus(a0).dropped);
        CHECK_EQ(passedBefore, policeStatus(a0).passed);
        // Its hold is not over after 4 s; it is after 5.
        policeTick(t + 4000);
        CHECK_TRUE(policeStatus(a0).errDisabled);
        policeTick(t += 5000);
        CHECK_TRUE(!policeStatus(a0).errDisabled);
        CHECK_TRUE(passesAfterRefill(5));
        // Again, then recovered by the operator.
        flood();
        policeTick(t += 1000);
        flood();
        policeTick(t += 1000);
        CHECK_TRUE(policeStatus(a0).errDisabled);
        CHECK_EQ(std::string(), policeRecover(a0));
        CHECK_TRUE(!policeStatus(a0).errDisabled);
        CHECK_TRUE(passesAfterRefill(5));
        CHECK_TRUE(!policeRecover(a0).empty());
        // Off: floods go on, the port stays served.
        CHECK_EQ(std::string(), policeSetErrdisableTime(0));
        for (int i = 0; i < 4; i++) {
            flood();
            policeTick(t += 1000);
        }
        CHECK_TRUE(!policeStatus(a0).errDisabled);
        std::fflush(stderr);
        std::string text = lt::readFile(log);
        CHECK_TRUE(lt::contains(text, "police: a0 error-disabled: over its discovery limit for 2 s"));
        CHECK_TRUE(lt::contains(text, "police: a0 served again: its error-disable hold is over"));
        CHECK_TRUE(lt::contains(text, "police: a0 served again: recovered by the operator"));
    });
    EXPECT_TRUE(r.ok()) << r.failures << lt::readFile(log);
}

TEST_F(PoliceTest, WithoutTheCapabilityToLoadItTheClassicFilterServes) {
    std::string log = dir_.path() + "/stderr";
    auto r = lt::runChild(ns_->name(), env(), [log] {
        StderrTo to(log);
        CHECK_TRUE(dropToRuntimeCapabilities());
        uint32_t a0 = if_nametoindex("a0");
        int32_t fd = lt::openPacketSocket();
        CHECK_TRUE(fd > 0);
        CHECK_TRUE(!policeAvailable());
        CHECK_EQ(-1, policeProgramFd());
        lt::trap(a0, true);
        int far = lt::rawSocket("a1");
        // Discovery frames still come; others still do not; nothing is policed.
        for (int i = 0; i < 1200; i++) CHECK_TRUE(lt::rawSend(far, discoveryFrame(BCAST, mac(1).data(), {})));
        CHECK_TRUE(lt::rawSend(far, discoveryFrame(BCAST, mac(1).data(), {}, 0x0800)));
        int got = 0;
        while (lt::platformRecv(fd, 300).len > 0) got++;
        CHECK_EQ(1200, got);
        // The settings are still kept, for the record.
        CHECK_EQ(std::string(), policeSetRate(0, 50));
        CHECK_EQ(50u, policeRate(0));
        std::fflush(stderr);
        std::string text = lt::readFile(log);
        CHECK_TRUE(lt::contains(text, "police: discovery policing unavailable"));
        size_t first = text.find("policing unavailable");
        CHECK_TRUE(first != std::string::npos && text.find("policing unavailable", first + 1) == std::string::npos);
    });
    EXPECT_TRUE(r.ok()) << r.failures << lt::readFile(log);
}

}  // namespace
