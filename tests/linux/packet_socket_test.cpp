// The packet socket over a veth pair in a network namespace: frames sent on
// the far end arrive with the right receive information; frames the
// platform sends leave with the right Ethernet header and tags.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>
#include <vector>

#include "lt_frames.h"
#include "lt_netns.h"
#include "platform/ifdb.h"
#include "platform/socket.h"
#include "platform/types.h"

namespace {

using lt::discoveryFrame;
using lt::openPacketSocket;
using lt::platformRecv;
using lt::rawSend;
using lt::rawSocket;
using lt::trap;
using Got = lt::PlatformFrame;
const uint8_t* const BCAST = lt::BROADCAST;

const uint8_t CLIENT[6] = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};

struct RawFrame {
    std::vector<uint8_t> bytes;
    bool tagValid = false;
    uint16_t tpid = 0;
    uint16_t tci = 0;
};

// The next frame entering on the raw socket's interface whose source is
// `src`, within `ms`.
bool rawRecv(int fd, const uint8_t src[6], RawFrame& out, int ms = 2000) {
    for (;;) {
        struct pollfd p = {fd, POLLIN, 0};
        if (::poll(&p, 1, ms) <= 0) return false;
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
        ssize_t n = ::recvmsg(fd, &m, 0);
        if (n < 14) continue;
        if (from.sll_pkttype == PACKET_OUTGOING || std::memcmp(buf + 6, src, 6) != 0) continue;
        out.bytes.assign(buf, buf + n);
        out.tagValid = false;
        for (struct cmsghdr* c = CMSG_FIRSTHDR(&m); c != nullptr; c = CMSG_NXTHDR(&m, c)) {
            if (c->cmsg_level != SOL_PACKET || c->cmsg_type != PACKET_AUXDATA) continue;
            struct tpacket_auxdata a;
            std::memcpy(&a, CMSG_DATA(c), sizeof(a));
            if (a.tp_status & TP_STATUS_VLAN_VALID) {
                out.tagValid = true;
                out.tci = a.tp_vlan_tci;
                out.tpid = (a.tp_status & TP_STATUS_VLAN_TPID_VALID) ? a.tp_vlan_tpid : 0x8100;
            }
        }
        return true;
    }
}

class PacketSocketTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LT_NEED_NETNS();
        ns_ = std::make_unique<lt::Netns>();
        ASSERT_TRUE(ns_->ok());
        ASSERT_EQ(0, ns_->sh("ip link add a0 type veth peer name a1 && ip link set a0 up && ip link set a1 up"));
    }
    std::unique_ptr<lt::Netns> ns_;
    lt::TempDir dir_;
    std::vector<std::string> env() const {
        return {"PPPOEPLUS_CONF=" + dir_.path() + "/none.conf", "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir_.path()};
    }
};

TEST_F(PacketSocketTest, ReceivedFramesCarryMacsVlanIdsAndPriorities) {
    auto r = lt::runChild(ns_->name(), env(), [] {
        uint32_t unit = if_nametoindex("a0");
        int32_t fd = openPacketSocket();
        trap(unit, true);
        int far = rawSocket("a1");
        CHECK_TRUE(far >= 0);

        // Untagged.
        CHECK_TRUE(rawSend(far, discoveryFrame(BCAST, CLIENT, {}, 0x8863)));
        Got g = platformRecv(fd);
        CHECK_EQ(46, g.len);  // from the PPPoE header to the end of the padded frame
        CHECK_TRUE(g.data.size() >= 2 && g.data[0] == 0x11 && g.data[1] == 0x09);
        CHECK_EQ(static_cast<int32_t>(unit), g.addr.sll_ifindex);
        CHECK_EQ(ZEL_AF_PACKET, static_cast<int32_t>(g.addr.sll_family));
        CHECK_TRUE(g.hasInfo);
        CHECK_EQ(unit, g.info.ifUnit);
        CHECK_EQ(0, std::memcmp(CLIENT, g.info.srcMac, 6));
        CHECK_EQ(0, std::memcmp(BCAST, g.info.dstMac, 6));
        CHECK_EQ(0, g.info.outerVid);
        CHECK_EQ(0, g.info.innerVid);
        CHECK_EQ(0, g.info.vlanCount);

        // 802.1Q, id 100, priority 5.
        CHECK_TRUE(rawSend(far, discoveryFrame(BCAST, CLIENT, {{0x8100, (5 << 13) | 100}}, 0x8863)));
        g = platformRecv(fd);
        CHECK_TRUE(g.hasInfo);
        CHECK_TRUE(g.data.size() >= 2 && g.data[1] == 0x09);
        CHECK_EQ(100, g.info.outerVid);
        CHECK_EQ(5, g.info.outerPri);
        CHECK_EQ(0, g.info.innerVid);
        CHECK_EQ(0, g.info.innerPri);
        CHECK_EQ(1, g.info.vlanCount);

        // 802.1ad id 200 priority 3 outside 802.1Q id 100 priority 6.
        const uint8_t unicast[6] = {0x02, 0x00, 0x00, 0x00, 0x00, 0x99};
        CHECK_TRUE(rawSend(far, discoveryFrame(unicast, CLIENT, {{0x88a8, (3 << 13) | 200}, {0x8100, (6 << 13) | 100}}, 0x8863)));
        g = platformRecv(fd);
        CHECK_TRUE(g.hasInfo);
        CHECK_TRUE(g.data.size() >= 2 && g.data[0] == 0x11);
        CHECK_EQ(200, g.info.outerVid);
        CHECK_EQ(3, g.info.outerPri);
        CHECK_EQ(0x88a8, g.info.outerTpid);
        CHECK_EQ(100, g.info.innerVid);
        CHECK_EQ(6, g.info.innerPri);
        CHECK_EQ(0, std::memcmp(unicast, g.info.dstMac, 6));

        // Not discovery frames: nothing.
        CHECK_TRUE(rawSend(far, discoveryFrame(BCAST, CLIENT, {}, 0x8864)));
        CHECK_TRUE(rawSend(far, discoveryFrame(BCAST, CLIENT, {{0x8100, 7}}, 0x0800)));
        g = platformRecv(fd, 300);
        CHECK_TRUE(g.len < 0);
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

TEST_F(PacketSocketTest, FramesFromAPortWhoseTrapIsOffAreNotDelivered) {
    auto r = lt::runChild(ns_->name(), env(), [] {
        uint32_t unit = if_nametoindex("a0");
        int32_t fd = openPacketSocket();
        int far = rawSocket("a1");
        // Never switched on.
        CHECK_TRUE(rawSend(far, discoveryFrame(BCAST, CLIENT, {}, 0x8863)));
        Got g = platformRecv(fd, 300);
        CHECK_TRUE(g.len < 0);
        // On, then off again.
        trap(unit, true);
        CHECK_TRUE(rawSend(far, discoveryFrame(BCAST, CLIENT, {}, 0x8863)));
        g = platformRecv(fd);
        CHECK_TRUE(g.len > 0);
        trap(unit, false);
        CHECK_TRUE(rawSend(far, discoveryFrame(BCAST, CLIENT, {}, 0x8863)));
        g = platformRecv(fd, 300);
        CHECK_TRUE(g.len < 0);
        // An unknown unit cannot be switched on; off is no error.
        tZelIfProto p{};
        p.protoId = ZEL_PROTO_PPPOEPLUS;
        CHECK_EQ(static_cast<uint32_t>(ZEL_ERR_NOT_FOUND), zelIfSetApi(99999, ZEL_IF_ATTR_PROTO_ON, &p));
        CHECK_EQ(0u, zelIfSetApi(99999, ZEL_IF_ATTR_PROTO_OFF, &p));
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

// Sends one frame through the platform and reads it on the far end.
void sendAndCapture(int32_t fd, uint32_t unit, int far, const zel_pkt_txinfo* tx, RawFrame& got, bool& arrived) {
    zel_sockaddr_ll to;
    std::memset(&to, 0, sizeof(to));
    to.sll_family = ZEL_AF_PACKET;
    to.sll_protocol = htons(0x8863);
    to.sll_ifindex = static_cast<int32_t>(unit);
    to.sll_halen = 6;
    const uint8_t server[6] = {0x02, 0x00, 0x00, 0x00, 0x00, 0x50};
    std::memcpy(to.sll_addr, server, 6);
    uint8_t data[] = {0x11, 0x09, 0x00, 0x00, 0x00, 0x04, 0x01, 0x01, 0x00, 0x00};
    zel_iovec iov = {data, sizeof(data)};
    alignas(4) uint8_t control[128] = {};
    zel_msghdr m;
    std::memset(&m, 0, sizeof(m));
    m.msg_name = &to;
    m.msg_namelen = sizeof(to);
    m.msg_iov = &iov;
    m.msg_iovlen = 1;
    if (tx != nullptr) {
        zel_cmsghdr c{ZEL_CMSG_LEN(sizeof(zel_pkt_txinfo)), ZEL_SOL_PACKET, ZEL_TX_PKTINFO};
        std::memcpy(control, &c, sizeof(c));
        std::memcpy(control + ZEL_CMSG_HDRLEN, tx, sizeof(*tx));
        m.msg_control = control;
        m.msg_controllen = c.cmsg_len;
    }
    CHECK_EQ(static_cast<int32_t>(sizeof(data)), zel_sendmsg(fd, &m, ZEL_MSG_PKTINFO));
    const uint8_t* src = (tx != nullptr && (tx->flags & ZEL_TXINFO_SRC_MAC)) ? tx->srcMac : nullptr;
    uint8_t ifMac[6] = {};
    if (src == nullptr) {
        tZelOctets o{ifMac, 6};
        CHECK_EQ(0u, zelIfGetApi(unit, ZEL_IF_ATTR_MAC, &o));
        src = ifMac;
    }
    arrived = rawRecv(far, src, got);
    if (arrived) CHECK_EQ(0, std::memcmp(server, got.bytes.data(), 6));
}

TEST_F(PacketSocketTest, SentFramesLeaveWithTheRightHeaderAndTags) {
    auto r = lt::runChild(ns_->name(), env(), [] {
        uint32_t unit = if_nametoindex("a0");
        int32_t fd = openPacketSocket();
        int far = rawSocket("a1");
        RawFrame got;
        bool arrived = false;

        // Untagged, with the interface's own MAC.
        sendAndCapture(fd, unit, far, nullptr, got, arrived);
        CHECK_TRUE(arrived);
        CHECK_TRUE(!got.tagValid);
        CHECK_TRUE(got.bytes.size() >= 16 && got.bytes[12] == 0x88 && got.bytes[13] == 0x63 && got.bytes[14] == 0x11);

        // The client's MAC and one tag.
        zel_pkt_txinfo tx;
        std::memset(&tx, 0, sizeof(tx));
        tx.flags = ZEL_TXINFO_QUEUE | ZEL_TXINFO_SRC_MAC | ZEL_TXINFO_OUTER_VID | ZEL_TXINFO_OUTER_PRI;
        tx.outerVid = 300;
        tx.outerPri = 4;
        std::memcpy(tx.srcMac, CLIENT, 6);
        sendAndCapture(fd, unit, far, &tx, got, arrived);
        CHECK_TRUE(arrived);
        CHECK_TRUE(got.tagValid);
        CHECK_EQ(0x8100, got.tpid);
        CHECK_EQ((4 << 13) | 300, static_cast<int>(got.tci));
        CHECK_TRUE(got.bytes.size() >= 15 && got.bytes[12] == 0x88 && got.bytes[13] == 0x63);

        // Two tags: 802.1ad outside 802.1Q.
        tx.flags |= ZEL_TXINFO_INNER_VID | ZEL_TXINFO_INNER_PRI;
        tx.innerVid = 42;
        tx.innerPri = 2;
        sendAndCapture(fd, unit, far, &tx, got, arrived);
        CHECK_TRUE(arrived);
        CHECK_TRUE(got.tagValid);
        CHECK_EQ(0x88a8, got.tpid);
        CHECK_EQ((4 << 13) | 300, static_cast<int>(got.tci));
        const uint8_t inner[6] = {0x81, 0x00, (2 << 5), 42, 0x88, 0x63};
        CHECK_TRUE(got.bytes.size() >= 18 && std::memcmp(inner, got.bytes.data() + 12, 6) == 0);

        // The platform's own frames never come back to it, even with the trap on.
        trap(unit, true);
        sendAndCapture(fd, unit, far, &tx, got, arrived);
        Got back = platformRecv(fd, 300);
        CHECK_TRUE(back.len < 0);

        // A send to a unit that is not there fails.
        zel_sockaddr_ll to;
        std::memset(&to, 0, sizeof(to));
        to.sll_family = ZEL_AF_PACKET;
        to.sll_ifindex = 99999;
        to.sll_halen = 6;
        uint8_t data[4] = {};
        zel_iovec iov = {data, sizeof(data)};
        zel_msghdr m;
        std::memset(&m, 0, sizeof(m));
        m.msg_name = &to;
        m.msg_namelen = sizeof(to);
        m.msg_iov = &iov;
        m.msg_iovlen = 1;
        CHECK_TRUE(zel_sendmsg(fd, &m, ZEL_MSG_PKTINFO) < 0);
        CHECK_TRUE(errnoGet() != 0);
        m.msg_namelen = 8;  // an address cut short
        CHECK_TRUE(zel_sendmsg(fd, &m, ZEL_MSG_PKTINFO) < 0);
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

// The worker's calls remember each descriptor's record between frames; a
// change made since (receive information switched off, the socket closed,
// its number given to a new socket) is seen by the very next call.
TEST_F(PacketSocketTest, ChangesToASocketAreSeenByTheNextCall) {
    auto r = lt::runChild(ns_->name(), env(), [] {
        uint32_t unit = if_nametoindex("a0");
        int32_t fd = openPacketSocket();
        trap(unit, true);
        int far = rawSocket("a1");
        CHECK_TRUE(far >= 0);

        CHECK_TRUE(rawSend(far, discoveryFrame(BCAST, CLIENT, {}, 0x8863)));
        Got g = platformRecv(fd);
        CHECK_EQ(46, g.len);
        CHECK_TRUE(g.hasInfo);

        int32_t off = 0;
        CHECK_EQ(0, zel_setsockopt(fd, ZEL_SOL_PACKET, ZEL_RX_PKTINFO, &off, 4));
        CHECK_TRUE(rawSend(far, discoveryFrame(BCAST, CLIENT, {}, 0x8863)));
        g = platformRecv(fd);
        CHECK_EQ(46, g.len);
        CHECK_TRUE(!g.hasInfo);

        CHECK_EQ(0, zel_close(fd));
        uint8_t data[20] = {0x11, 0x09};
        zel_iovec iov = {data, sizeof(data)};
        zel_sockaddr_ll to;
        std::memset(&to, 0, sizeof(to));
        to.sll_family = ZEL_AF_PACKET;
        to.sll_ifindex = static_cast<int32_t>(unit);
        to.sll_halen = 6;
        std::memcpy(to.sll_addr, BCAST, 6);
        zel_msghdr m;
        std::memset(&m, 0, sizeof(m));
        m.msg_name = &to;
        m.msg_namelen = sizeof(to);
        m.msg_iov = &iov;
        m.msg_iovlen = 1;
        CHECK_TRUE(zel_sendmsg(fd, &m, ZEL_MSG_PKTINFO) < 0);
        CHECK_EQ(EBADF, errnoGet());
        uint8_t buf[64];
        zel_iovec riov = {buf, sizeof(buf)};
        zel_msghdr rm;
        std::memset(&rm, 0, sizeof(rm));
        rm.msg_iov = &riov;
        rm.msg_iovlen = 1;
        CHECK_TRUE(zel_recvmsg(fd, &rm, 0) < 0);
        CHECK_EQ(EBADF, errnoGet());

        // The lowest free number comes back: a new socket under the old number
        // is the new socket, with its own receive information.
        int32_t again = openPacketSocket();
        CHECK_EQ(fd, again);
        CHECK_TRUE(rawSend(far, discoveryFrame(BCAST, CLIENT, {}, 0x8863)));
        g = platformRecv(again);
        CHECK_EQ(46, g.len);
        CHECK_TRUE(g.hasInfo);
        CHECK_EQ(20, zel_sendmsg(again, &m, ZEL_MSG_PKTINFO));
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

// Descriptors the process has open.
int openDescriptors() {
    int n = 0;
    for (const auto& e : std::filesystem::directory_iterator("/proc/self/fd")) {
        (void)e;
        n++;
    }
    return n;
}

// Each thread sends on sockets of its own; closing the packet socket closes
// the closing thread's at once, another thread's at its next send (or when
// it ends): none is left behind, and none is closed under a thread still
// sending on it.
TEST_F(PacketSocketTest, EveryThreadsSendSocketsCloseWithThePacketSocket) {
    auto r = lt::runChild(ns_->name(), env(), [] {
        uint32_t unit = if_nametoindex("a0");
        int far = rawSocket("a1");
        int32_t fd = openPacketSocket();
        const int base = openDescriptors();
        // A source of the test's own, so that the host's own frames out of
        // a0 (IPv6 neighbour discovery) are not taken for the test's.
        zel_pkt_txinfo tx{};
        tx.flags = ZEL_TXINFO_SRC_MAC;
        std::memcpy(tx.srcMac, CLIENT, 6);
        const zel_pkt_txinfo* withSrc = &tx;
        RawFrame got;
        bool arrived = false;
        sendAndCapture(fd, unit, far, withSrc, got, arrived);
        CHECK_TRUE(arrived);
        RawFrame theirs;
        bool otherArrived = false;
        int withBoth = 0;
        std::mutex m;
        std::condition_variable cv;
        int step = 0;  // 1: the other thread has sent; 2: the packet socket was closed and reopened
        int32_t again = -1;
        std::thread other([&] {
            sendAndCapture(fd, unit, far, withSrc, theirs, otherArrived);
            withBoth = openDescriptors();
            std::unique_lock<std::mutex> lock(m);
            step = 1;
            cv.notify_all();
            cv.wait(lock, [&] { return step == 2; });
            lock.unlock();
            // Its socket of the closed packet socket goes before this send.
            bool sentAgain = false;
            sendAndCapture(again, unit, far, withSrc, theirs, sentAgain);
            CHECK_TRUE(sentAgain);
            CHECK_EQ(base + 1, openDescriptors());  // the new packet socket's one send socket
        });
        {
            std::unique_lock<std::mutex> lock(m);
            cv.wait(lock, [&] { return step == 1; });
        }
        CHECK_TRUE(otherArrived);
        CHECK_EQ(base + 2, withBoth);  // one send socket per thread
        CHECK_EQ(0, zel_close(fd));
        CHECK_EQ(base, openDescriptors());  // the packet socket and this thread's send socket gone
        again = openPacketSocket();
        {
            std::lock_guard<std::mutex> lock(m);
            step = 2;
        }
        cv.notify_all();
        other.join();
        CHECK_EQ(base, openDescriptors());  // the thread's socket went with it
        CHECK_EQ(0, zel_close(again));
        CHECK_EQ(base - 1, openDescriptors());
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

TEST_F(PacketSocketTest, SocketCallsRefuseWhatTheyDoNotKnow) {
    auto r = lt::runChild(ns_->name(), env(), [] {
        CHECK_TRUE(zel_socket(ZEL_AF_PACKET, ZEL_SOCK_DGRAM, 0x0800) < 0);
        CHECK_TRUE(zel_socket(3, ZEL_SOCK_DGRAM, 0) < 0);
        CHECK_TRUE(zel_socket(ZEL_AF_PACKET, 1, ZEL_ETH_P_PPPOE_DISC) < 0);
        int32_t fd = openPacketSocket();
        int32_t v = 1;
        CHECK_TRUE(zel_setsockopt(fd, ZEL_SOL_PACKET, ZEL_RX_PKTINFO, &v, 2) < 0);
        CHECK_TRUE(zel_setsockopt(fd, ZEL_SOL_PACKET, ZEL_RX_PKTINFO, nullptr, 4) < 0);
        CHECK_TRUE(zel_setsockopt(fd, 12345, 1, &v, 4) < 0);
        CHECK_TRUE(zel_setsockopt(fd, ZEL_SOL_ROUTE, ZEL_ADD_MEMBERSHIP, &v, 4) < 0);
        CHECK_EQ(0, zel_setsockopt(fd, ZEL_SOL_SOCKET, ZEL_SO_NAME, &v, 4));
        // Descriptors the platform did not open are not closed.
        CHECK_TRUE(zel_close(0) < 0);
        CHECK_EQ(0, zel_close(fd));
        CHECK_TRUE(zel_close(fd) < 0);
        zel_fd_set set;
        ZEL_FD_ZERO(&set);
        CHECK_TRUE(zel_select(ZEL_FD_SETSIZE + 1, &set, nullptr, nullptr, nullptr) < 0);
        zel_timeval tv = {0, 1000};
        CHECK_EQ(0, zel_select(0, &set, nullptr, nullptr, &tv));
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

}  // namespace
