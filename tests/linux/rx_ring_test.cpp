// The packet socket's receive ring over a veth pair in a network namespace:
// it follows the receive buffer the daemon asks for, holds a burst of ten
// thousand frames, hands over exactly what the receive queue would (receive
// information included), never blocks, and does not hold back route events
// while it is full. With platform.rxring = no the socket reads its receive
// queue, whose buffer is granted past net.core.rmem_max.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "lt_frames.h"
#include "lt_netns.h"
#include "platform/ifdb.h"
#include "platform/linux/internal.h"
#include "platform/linux/police.h"
#include "platform/linux/rx_ring.h"
#include "platform/socket.h"
#include "platform/types.h"

namespace {

using lt::openPacketSocket;
using lt::platformRecv;
using lt::rawSend;
using lt::rawSocket;
using Got = lt::PlatformFrame;

// A PADI from `client` behind the given tags, padded to 60 bytes, or to
// `size` bytes when larger.
std::vector<uint8_t> padi(const uint8_t client[6], const std::vector<std::pair<uint16_t, uint16_t>>& tags,
                          uint16_t type = 0x8863, size_t size = 60) {
    return lt::discoveryFrame(lt::BROADCAST, client, tags, type, size);
}

double secondsNow() {
    struct timespec t;
    ::clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// Sends `count` frames, the n-th from client MAC 02:00:00:00:hi(n):lo(n):
// as fast as the kernel takes them, or `perSecond` frames a second when not
// 0. Returns the seconds the sending took, negative when a send failed.
double rawBurst(int fd, uint32_t count, uint32_t perSecond = 0) {
    std::vector<std::vector<uint8_t>> frames;
    for (uint32_t n = 0; n < count; n++) {
        const uint8_t mac[6] = {0x02, 0x00, 0x00, static_cast<uint8_t>(n >> 16), static_cast<uint8_t>(n >> 8),
                                static_cast<uint8_t>(n)};
        frames.push_back(padi(mac, {}));
    }
    std::vector<struct iovec> iov(count);
    std::vector<struct mmsghdr> msgs(count);
    for (uint32_t n = 0; n < count; n++) {
        iov[n] = {frames[n].data(), frames[n].size()};
        std::memset(&msgs[n], 0, sizeof(msgs[n]));
        msgs[n].msg_hdr.msg_iov = &iov[n];
        msgs[n].msg_hdr.msg_iovlen = 1;
    }
    const double start = secondsNow();
    uint32_t sent = 0;
    while (sent < count) {
        uint32_t batch = std::min<uint32_t>(count - sent, 256);
        if (perSecond != 0) {
            while (secondsNow() < start + static_cast<double>(sent) / perSecond) {
            }
            batch = 1;
        }
        int r = ::sendmmsg(fd, msgs.data() + sent, batch, 0);
        if (r <= 0) return -1;
        sent += static_cast<uint32_t>(r);
    }
    return secondsNow() - start;
}

int32_t setRcvbuf(int32_t fd, int32_t size) { return zel_setsockopt(fd, ZEL_SOL_SOCKET, ZEL_SO_RCVBUF, &size, 4); }

class RxRingTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LT_NEED_NETNS();
        ns_ = std::make_unique<lt::Netns>();
        ASSERT_TRUE(ns_->ok());
        ASSERT_EQ(0, ns_->sh("ip link add a0 type veth peer name a1 && ip link set a0 up && ip link set a1 up"));
    }
    std::vector<std::string> env(const std::string& conf) const {
        return {"PPPOEPLUS_CONF=" + dir_.file("p.conf", conf), "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir_.path()};
    }
    std::unique_ptr<lt::Netns> ns_;
    lt::TempDir dir_;
};

TEST_F(RxRingTest, TheRingFollowsTheReceiveBufferAsked) {
    auto r = lt::runChild(ns_->name(), env("platform.announce = no\n"), [] {
        uint32_t unit = if_nametoindex("a0");
        int32_t fd = openPacketSocket(0);
        lt::trap(unit, true);
        int far = rawSocket("a1");
        const uint8_t client[6] = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};

        // No buffer asked for yet: the receive queue.
        CHECK_EQ(static_cast<size_t>(0), linuxplat::packetRingBytes(fd));
        CHECK_TRUE(rawSend(far, padi(client, {})));
        CHECK_EQ(46, platformRecv(fd).len);

        // 1 MiB asked: a ring of twice that, as the kernel grants a buffer.
        CHECK_EQ(0, setRcvbuf(fd, 0x100000));
        CHECK_EQ(static_cast<size_t>(2 << 20), linuxplat::packetRingBytes(fd));
        CHECK_TRUE(rawSend(far, padi(client, {})));
        CHECK_EQ(46, platformRecv(fd).len);

        // One byte (the agent switched off): the queue again, at its smallest.
        CHECK_EQ(0, setRcvbuf(fd, 1));
        CHECK_EQ(static_cast<size_t>(0), linuxplat::packetRingBytes(fd));
        CHECK_TRUE(rawSend(far, padi(client, {})));
        CHECK_EQ(46, platformRecv(fd).len);

        // A frame left in the queue when the ring comes back is not handed
        // over, and does not keep the socket readable.
        CHECK_TRUE(rawSend(far, padi(client, {})));
        ::usleep(50000);
        CHECK_EQ(0, setRcvbuf(fd, 0x100000));
        CHECK_EQ(static_cast<size_t>(2 << 20), linuxplat::packetRingBytes(fd));
        zel_fd_set set;
        ZEL_FD_ZERO(&set);
        ZEL_FD_SET(fd, &set);
        zel_timeval tv = {0, 200000};
        CHECK_EQ(0, zel_select(fd + 1, &set, nullptr, nullptr, &tv));
        CHECK_TRUE(rawSend(far, padi(client, {})));
        CHECK_EQ(46, platformRecv(fd).len);

        // The same size again changes nothing; a larger one grows the ring.
        CHECK_EQ(0, setRcvbuf(fd, 0x100000));
        CHECK_EQ(static_cast<size_t>(2 << 20), linuxplat::packetRingBytes(fd));
        CHECK_EQ(0, setRcvbuf(fd, 0x200000));
        CHECK_EQ(static_cast<size_t>(4 << 20), linuxplat::packetRingBytes(fd));
        CHECK_TRUE(rawSend(far, padi(client, {})));
        CHECK_EQ(46, platformRecv(fd).len);
        CHECK_EQ(0, zel_close(fd));
        CHECK_EQ(static_cast<size_t>(0), linuxplat::packetRingBytes(fd));
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

// Frames the kernel dropped before any socket saw them, all CPUs together
// (their input backlogs were full): the second column of softnet_stat.
uint64_t backlogDrops() {
    uint64_t sum = 0;
    FILE* f = std::fopen("/proc/net/softnet_stat", "r");
    if (f == nullptr) return 0;
    unsigned long long processed = 0, dropped = 0;
    char rest[512];
    while (std::fscanf(f, "%llx %llx", &processed, &dropped) == 2) {
        sum += dropped;
        if (std::fgets(rest, sizeof(rest), f) == nullptr) break;
    }
    std::fclose(f);
    return sum;
}

// Sends a burst of 10,000 frames at `perSecond` (0: as fast as possible)
// while nobody reads, then reads: every frame must be there.
void burstIsHeldWhole(uint32_t perSecond) {
    // The ring is measured here, not the policing of discovery: 10,000
    // frames from one port are far over its default limit.
    CHECK_EQ(std::string(), linuxplat::policeSetRate(0, 0));
    uint32_t unit = if_nametoindex("a0");
    int32_t fd = openPacketSocket();
    lt::trap(unit, true);
    int far = rawSocket("a1");
    const uint64_t dropsBefore = backlogDrops();
    const double took = rawBurst(far, 10000, perSecond);
    CHECK_TRUE(took >= 0);
    ::usleep(100000);  // the ring hands a block over at the latest after its time-out
    std::vector<bool> seen(10000, false);
    uint32_t got = 0;
    for (;;) {
        Got g = platformRecv(fd, 300);
        if (g.len < 0) break;
        CHECK_EQ(46, g.len);
        CHECK_EQ(static_cast<int32_t>(unit), g.addr.sll_ifindex);
        uint32_t n = (static_cast<uint32_t>(g.info.srcMac[3]) << 16) | (g.info.srcMac[4] << 8) | g.info.srcMac[5];
        if (n < seen.size() && !seen[n]) {
            seen[n] = true;
            got++;
        }
    }
    if (got != 10000u)
        lt::childFail(__FILE__, __LINE__,
                      "held " + std::to_string(got) + " of 10000 frames sent in " +
                          std::to_string(static_cast<int>(took * 1000)) + " ms (" +
                          std::to_string(static_cast<int>(10000 / std::max(took, 1e-6))) + " frames/s); " +
                          std::to_string(backlogDrops() - dropsBefore) + " dropped meanwhile by the kernel's input backlogs");
}

TEST_F(RxRingTest, ABurstOfTenThousandFramesIsHeldWhole) {
    auto r = lt::runChild(ns_->name(), env("platform.announce = no\n"), [] { burstIsHeldWhole(0); }, 60);
    EXPECT_TRUE(r.ok()) << r.failures;
}

// Blocks handed over part-filled at the retire time-out must not eat the
// ring: a burst trickling in at 40,000 frames/s (a quarter of a second) is
// held whole too.
TEST_F(RxRingTest, ABurstTricklingInIsHeldWholeToo) {
    auto r = lt::runChild(ns_->name(), env("platform.announce = no\n"), [] { burstIsHeldWhole(40000); }, 60);
    EXPECT_TRUE(r.ok()) << r.failures;
}

// In the child: a packet socket with its ring and two served ports,
// unpoliced (the receive path's fairness is what is measured): a0 is to
// flood, b0 to stay quiet; and raw sockets on their far ends.
struct FloodAndQuiet {
    uint32_t flooded;
    uint32_t quiet;
    int32_t fd;
    int floodFar;
    int quietFar;
};

FloodAndQuiet floodAndQuiet() {
    FloodAndQuiet p{if_nametoindex("a0"), if_nametoindex("b0"), -1, -1, -1};
    CHECK_EQ(std::string(), linuxplat::policeSetRate(0, 0));
    p.fd = openPacketSocket();
    CHECK_TRUE(linuxplat::packetRingBytes(p.fd) > 0);
    lt::trap(p.flooded, true);
    lt::trap(p.quiet, true);
    p.floodFar = rawSocket("a1");
    p.quietFar = rawSocket("b1");
    return p;
}

// A port flooding the socket does not starve the others: with 5,000 frames
// of one port waiting in the ring, 8 frames that another port received
// after them are handed over within the first 32 reads (one port at a time,
// in turn), not after the flood.
TEST_F(RxRingTest, AQuietPortIsServedBetweenTheFramesOfAFlood) {
    ASSERT_EQ(0, ns_->sh("ip link add b0 type veth peer name b1 && ip link set b0 up && ip link set b1 up"));
    auto r = lt::runChild(ns_->name(), env("platform.announce = no\n"), [] {
        const FloodAndQuiet p = floodAndQuiet();
        const uint32_t flooded = p.flooded, quiet = p.quiet;
        const int32_t fd = p.fd;
        const int floodFar = p.floodFar, quietFar = p.quietFar;
        CHECK_TRUE(rawBurst(floodFar, 5000) >= 0);
        const uint8_t client[6] = {0x02, 0xbb, 0x00, 0x00, 0x00, 0x01};
        for (int i = 0; i < 8; i++) CHECK_TRUE(rawSend(quietFar, padi(client, {})));
        ::usleep(100000);  // the ring hands a block over at the latest after its time-out
        std::vector<uint32_t> quietAt;
        uint32_t reads = 0, floodFrames = 0;
        for (;;) {
            Got g = platformRecv(fd, 300);
            if (g.len < 0) break;
            reads++;
            if (g.addr.sll_ifindex == static_cast<int32_t>(quiet)) quietAt.push_back(reads);
            else if (g.addr.sll_ifindex == static_cast<int32_t>(flooded)) floodFrames++;
        }
        CHECK_EQ(size_t(8), quietAt.size());
        CHECK_EQ(5000u, floodFrames);
        for (uint32_t at : quietAt)
            if (at > 32) {
                lt::childFail(__FILE__, __LINE__, "a frame of the quiet port came at read " + std::to_string(at));
                break;
            }
        CHECK_EQ(0, zel_close(fd));
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

// A frame of a quiet port that arrives while a flood is being read joins
// the turn within a pull period: it waits behind at most that many frames
// in the ring, then behind one frame of the flooding port.
TEST_F(RxRingTest, AQuietFrameArrivingDuringAFloodWaitsAtMostOnePullPeriod) {
    ASSERT_EQ(0, ns_->sh("ip link add b0 type veth peer name b1 && ip link set b0 up && ip link set b1 up"));
    auto r = lt::runChild(ns_->name(), env("platform.announce = no\n"), [] {
        const FloodAndQuiet p = floodAndQuiet();
        const uint32_t quiet = p.quiet;
        const int32_t fd = p.fd;
        CHECK_TRUE(rawBurst(p.floodFar, 5000) >= 0);
        ::usleep(100000);
        // The first read takes the whole flood into its queue; a few more
        // are read before the quiet port speaks.
        constexpr uint32_t before = 10;
        for (uint32_t i = 0; i < before; i++) CHECK_TRUE(platformRecv(fd, 300).len > 0);
        const uint8_t client[6] = {0x02, 0xbb, 0x00, 0x00, 0x00, 0x02};
        CHECK_TRUE(rawSend(p.quietFar, padi(client, {})));
        ::usleep(100000);  // handed over by the ring's time-out at the latest
        uint32_t reads = 0, quietAt = 0;
        for (;;) {
            Got g = platformRecv(fd, 300);
            if (g.len < 0) break;
            reads++;
            if (g.addr.sll_ifindex == static_cast<int32_t>(quiet)) quietAt = reads;
        }
        CHECK_EQ(5000u - before + 1, reads);
        CHECK_TRUE(quietAt > 0);
        if (quietAt > linuxplat::RxRing::PULL_EVERY + 2)
            lt::childFail(__FILE__, __LINE__, "the quiet frame came at read " + std::to_string(quietAt));
        CHECK_EQ(0, zel_close(fd));
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

// The frames below, read through the queue or through the ring, give the
// same data, address and receive information.
std::vector<Got> receiveSet() {
    uint32_t unit = if_nametoindex("a0");
    int32_t fd = openPacketSocket();
    lt::trap(unit, true);
    int far = rawSocket("a1");
    const uint8_t client[6] = {0x02, 0x00, 0x00, 0x00, 0x00, 0x07};
    std::vector<Got> out;
    const std::vector<std::vector<std::pair<uint16_t, uint16_t>>> tagSets = {
        {}, {{0x8100, (5 << 13) | 100}}, {{0x88a8, (3 << 13) | 200}, {0x8100, (6 << 13) | 100}}, {{0x9100, 7}}};
    for (const auto& tags : tagSets) {
        CHECK_TRUE(rawSend(far, padi(client, tags)));
        out.push_back(platformRecv(fd));
    }
    // Not discovery frames, and a frame over 16 KiB: never handed over.
    CHECK_TRUE(rawSend(far, padi(client, {}, 0x8864)));
    CHECK_TRUE(rawSend(far, padi(client, {{0x8100, 7}}, 0x0800)));
    CHECK_TRUE(rawSend(far, padi(client, {}, 0x8863, 17000)));
    CHECK_TRUE(rawSend(far, padi(client, {}, 0x8863, 1514)));
    out.push_back(platformRecv(fd));
    out.push_back(platformRecv(fd, 300));
    CHECK_EQ(0, zel_close(fd));
    return out;
}

TEST_F(RxRingTest, TheRingHandsOverWhatTheQueueWould) {
    ASSERT_EQ(0, ns_->sh("ip link set a0 mtu 20000 && ip link set a1 mtu 20000"));
    std::string resultFile = dir_.path() + "/ring.bin";
    for (const char* mode : {"no", "yes"}) {
        auto r = lt::runChild(ns_->name(), env(std::string("platform.announce = no\nplatform.rxring = ") + mode + "\n"),
                              [&] {
                                  std::vector<Got> got = receiveSet();
                                  CHECK_EQ(static_cast<size_t>(6), got.size());
                                  if (got.size() != 6) return;
                                  CHECK_EQ(46, got[0].len);
                                  CHECK_EQ(100, got[1].info.outerVid);
                                  CHECK_EQ(5, got[1].info.outerPri);
                                  CHECK_EQ(200, got[2].info.outerVid);
                                  CHECK_EQ(100, got[2].info.innerVid);
                                  CHECK_EQ(0x88a8, got[2].info.outerTpid);
                                  CHECK_EQ(0x9100, got[3].info.outerTpid);
                                  CHECK_EQ(1400, got[4].len);  // cut to the daemon's buffer
                                  CHECK_TRUE(got[5].len < 0);
                                  // Everything the daemon is handed, byte for byte.
                                  std::vector<uint8_t> bytes;
                                  for (const Got& g : got) {
                                      const auto* p = reinterpret_cast<const uint8_t*>(&g.len);
                                      bytes.insert(bytes.end(), p, p + sizeof(g.len));
                                      bytes.insert(bytes.end(), g.data.begin(), g.data.end());
                                      p = reinterpret_cast<const uint8_t*>(&g.addr);
                                      bytes.insert(bytes.end(), p, p + sizeof(g.addr));
                                      p = reinterpret_cast<const uint8_t*>(&g.controlLen);
                                      bytes.insert(bytes.end(), p, p + sizeof(g.controlLen));
                                      p = reinterpret_cast<const uint8_t*>(&g.info);
                                      bytes.insert(bytes.end(), p, p + sizeof(g.info));
                                  }
                                  if (std::string(mode) == "no") {
                                      FILE* f = std::fopen(resultFile.c_str(), "wb");
                                      CHECK_TRUE(f != nullptr);
                                      if (f != nullptr) {
                                          std::fwrite(bytes.data(), 1, bytes.size(), f);
                                          std::fclose(f);
                                      }
                                  } else {
                                      std::string before = lt::readFile(resultFile);
                                      CHECK_TRUE(before == std::string(bytes.begin(), bytes.end()));
                                  }
                              });
        EXPECT_TRUE(r.ok()) << mode << ": " << r.failures;
    }
}

TEST_F(RxRingTest, AnEmptyRingNeverBlocksTheReader) {
    auto r = lt::runChild(ns_->name(), env("platform.announce = no\n"), [] {
        int32_t fd = openPacketSocket();
        CHECK_TRUE(linuxplat::packetRingBytes(fd) > 0);
        uint8_t buf[1400];
        zel_iovec iov = {buf, sizeof(buf)};
        zel_msghdr m;
        std::memset(&m, 0, sizeof(m));
        m.msg_iov = &iov;
        m.msg_iovlen = 1;
        CHECK_TRUE(zel_recvmsg(fd, &m, 0) < 0);
        CHECK_TRUE(zel_recv(fd, buf, sizeof(buf), 0) < 0);
    }, 10);
    EXPECT_TRUE(r.ok()) << r.failures;
}

void spinMicroseconds(int64_t us) {
    const double end = secondsNow() + static_cast<double>(us) * 1e-6;
    while (secondsNow() < end) {
    }
}

TEST_F(RxRingTest, RouteEventsAreNotHeldBackWhileTheRingIsFull) {
    auto r = lt::runChild(ns_->name(), env("platform.announce = no\n"), [] {
        uint32_t unit = if_nametoindex("a0");
        int32_t pkt = openPacketSocket();
        lt::trap(unit, true);
        int32_t rt = zel_socket(ZEL_AF_ROUTE, ZEL_SOCK_DGRAM, 0);
        int32_t group = 1;
        CHECK_TRUE(rt > 0);
        CHECK_EQ(0, zel_setsockopt(rt, ZEL_SOL_ROUTE, ZEL_ADD_MEMBERSHIP, &group, 4));
        int far = rawSocket("a1");
        CHECK_TRUE(rawBurst(far, 8000) >= 0);
        ::usleep(100000);
        std::vector<uint8_t> msg(24, 0);
        msg[3] = 24;

        // The worker's loop: wait on both, one frame per pass. The route
        // event comes while the ring is full.
        int32_t maxFd = std::max(pkt, rt);
        uint32_t frames = 0;
        bool routeSeen = false;
        uint32_t framesAtEvent = 0;
        uint32_t framesBeforeRoute = 0;
        for (int pass = 0; pass < 20000 && !routeSeen; pass++) {
            if (pass == 200) {
                framesAtEvent = frames;
                CHECK_EQ(1u, linuxplat::routeDeliver(msg));
            }
            zel_fd_set set;
            ZEL_FD_ZERO(&set);
            ZEL_FD_SET(pkt, &set);
            ZEL_FD_SET(rt, &set);
            zel_timeval tv = {1, 0};
            if (zel_select(maxFd + 1, &set, nullptr, nullptr, &tv) < 1) break;
            if (ZEL_FD_ISSET(pkt, &set)) {
                uint8_t buf[1400];
                zel_iovec iov = {buf, sizeof(buf)};
                zel_msghdr m;
                std::memset(&m, 0, sizeof(m));
                m.msg_iov = &iov;
                m.msg_iovlen = 1;
                if (zel_recvmsg(pkt, &m, 0) > 0) frames++;
                // The daemon's work on a frame takes microseconds; without
                // it an optimised build empties the ring within the
                // platform's millisecond before it looks at the others.
                spinMicroseconds(2);
            }
            if (ZEL_FD_ISSET(rt, &set)) {
                routeSeen = true;
                framesBeforeRoute = frames;
                uint8_t buf[3840];
                CHECK_EQ(24, zel_recv(rt, buf, sizeof(buf), 0));
            }
        }
        CHECK_TRUE(routeSeen);
        CHECK_EQ(200u, framesAtEvent);
        // Seen within a couple of milliseconds' worth of frames, long before
        // the ring ran dry.
        CHECK_TRUE(framesBeforeRoute > framesAtEvent);
        CHECK_TRUE(framesBeforeRoute < 7000);
    }, 60);
    EXPECT_TRUE(r.ok()) << r.failures;
}

TEST_F(RxRingTest, WithoutTheRingTheBufferIsGrantedInFull) {
    auto r = lt::runChild(ns_->name(), env("platform.announce = no\nplatform.rxring = no\n"), [] {
        int32_t fd = openPacketSocket();
        CHECK_EQ(static_cast<size_t>(0), linuxplat::packetRingBytes(fd));
        // The kernel doubles what is asked; SO_RCVBUFFORCE goes past the cap
        // of net.core.rmem_max whatever it is set to.
        int granted = 0;
        socklen_t len = sizeof(granted);
        CHECK_EQ(0, ::getsockopt(fd, SOL_SOCKET, SO_RCVBUF, &granted, &len));
        CHECK_EQ(2 << 20, granted);
        CHECK_EQ(0, setRcvbuf(fd, 0x800000));
        CHECK_EQ(0, ::getsockopt(fd, SOL_SOCKET, SO_RCVBUF, &granted, &len));
        CHECK_EQ(16 << 20, granted);
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

}  // namespace
