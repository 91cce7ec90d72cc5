// Logging, scalars, the hardware layer, semaphores and the option store of
// the Linux platform, each in a child process of its own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "lt_netns.h"
#include "platform/hwil.h"
#include "platform/ifdb.h"
#include "platform/linux/hwil_linux.h"
#include "platform/logging.h"
#include "platform/os.h"
#include "platform/socket.h"
#include "platform/types.h"

namespace {

size_t count(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) n++;
    return n;
}

TEST(LinuxLogging, PartsComeOutAsOneBlockOnStandardError) {
    lt::TempDir dir;
    std::string out = dir.path() + "/err.txt";
    auto r = lt::runChild("", {"PPPOEPLUS_LOG=stderr", "PPPOEPLUS_CONF=" + dir.path() + "/none"}, [out] {
        int fd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ::dup2(fd, 2);
        loggingDebugOutput(0x45D0000, 7, LOG_PART_FIRST, "=================\r\n");
        loggingDebugOutput(0x45D0000, 0, LOG_PART_MIDDLE, "%02x ", 0x11);
        loggingDebugOutput(0x45D0000, 0, LOG_PART_MIDDLE, "\r\n%02x ", 0x09);
        loggingDebugOutput(0x45D0000, 0, LOG_PART_LAST, "\r\n=================\r\n");
        loggingLogOutput(0x45D0006, 7, LOG_PART_WHOLE,
                         "The interface enable protocol error.(ifName=[%s], proto=[%s], type=[%s])\r\n", "eth1",
                         "pppoe+", "state");
        loggingDebugOutput(0x45D0004, 5, LOG_PART_WHOLE, "Failed to create socket!\r\n");
    });
    ASSERT_TRUE(r.ok()) << r.failures;
    std::string text = lt::readFile(out);
    EXPECT_EQ(std::string::npos, text.find('\r')) << text;
    // The block: one message, its lines kept together and indented.
    EXPECT_NE(std::string::npos, text.find("debug 0x45d0000: =================\n    11 \n    09 \n    =================\n"))
        << text;
    EXPECT_EQ(1u, count(text, "debug 0x45d0000"));
    EXPECT_NE(std::string::npos,
              text.find("log 0x45d0006: The interface enable protocol error.(ifName=[eth1], proto=[pppoe+], "
                        "type=[state])\n"))
        << text;
    EXPECT_NE(std::string::npos, text.find("debug 0x45d0004: Failed to create socket!\n")) << text;
}

// Without PPPOEPLUS_LOG the messages go to syslog: facility daemon, the
// daemon's level as the priority, tagged with the process, one datagram per
// message or block, without the daemon's carriage returns and last line end.
// The child gets a /dev of its own (a mount namespace with a tmpfs on /dev)
// whose /dev/log is a socket the test reads.
TEST(LinuxLogging, WithoutStandardErrorTheMessagesGoToSyslog) {
    LT_NEED_NETNS();  // root, as for the namespaces
    lt::TempDir dir;
    std::string out = dir.path() + "/syslog.txt";
    auto r = lt::runChild("", {"PPPOEPLUS_CONF=" + dir.path() + "/none"}, [out] {
        CHECK_EQ(0, ::unshare(CLONE_NEWNS));
        CHECK_EQ(0, ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr));
        CHECK_EQ(0, ::mount("tmpfs", "/dev", "tmpfs", 0, "size=64k"));
        int sink = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        struct sockaddr_un a;
        std::memset(&a, 0, sizeof(a));
        a.sun_family = AF_UNIX;
        std::strcpy(a.sun_path, "/dev/log");
        CHECK_EQ(0, ::bind(sink, reinterpret_cast<struct sockaddr*>(&a), sizeof(a)));
        struct timeval tv = {2, 0};
        ::setsockopt(sink, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));

        loggingDebugOutput(0x45D0004, 3, LOG_PART_WHOLE, "Failed to create socket!\r\n");
        loggingDebugOutput(0x45D0000, 7, LOG_PART_FIRST, "=====\r\n");
        loggingDebugOutput(0x45D0000, 0, LOG_PART_MIDDLE, "%02x ", 0x11);
        loggingDebugOutput(0x45D0000, 0, LOG_PART_LAST, "\r\n=====\r\n");
        loggingLogOutput(0x45D0006, 6, LOG_PART_WHOLE, "The interface enable protocol error.(ifName=[%s])\r\n",
                         "eth1");
        std::string text;
        for (int i = 0; i < 3; i++) {
            char buf[2048];
            ssize_t n = ::recv(sink, buf, sizeof(buf), 0);
            CHECK_TRUE(n > 0);
            if (n <= 0) break;
            text.append(buf, static_cast<size_t>(n));
            text.push_back('|');  // where a datagram ends
        }
        FILE* f = std::fopen(out.c_str(), "w");
        CHECK_TRUE(f != nullptr);
        if (f != nullptr) {
            std::fprintf(f, "%d\n%s", static_cast<int>(::getpid()), text.c_str());
            std::fclose(f);
        }
    });
    ASSERT_TRUE(r.ok()) << r.failures;
    std::string got = lt::readFile(out);
    size_t nl = got.find('\n');
    ASSERT_NE(std::string::npos, nl) << got;
    std::string who = "pppoeplusd[" + got.substr(0, nl) + "]: ";
    std::string text = got.substr(nl + 1);
    EXPECT_EQ(std::string::npos, text.find('\r')) << text;
    // Facility daemon (3 << 3) plus the level: <27> error, <31> debug, <30> info.
    EXPECT_EQ(0u, text.find("<27>")) << text;
    EXPECT_NE(std::string::npos, text.find(who + "debug 0x45d0004: Failed to create socket!|")) << text;
    EXPECT_NE(std::string::npos, text.find("|<31>")) << text;
    EXPECT_NE(std::string::npos, text.find(who + "debug 0x45d0000: =====\n11 \n=====|")) << text;
    EXPECT_NE(std::string::npos, text.find("|<30>")) << text;
    EXPECT_NE(std::string::npos,
              text.find(who + "log 0x45d0006: The interface enable protocol error.(ifName=[eth1])|"))
        << text;
}

TEST(LinuxLogging, LevelsAboveTheConfiguredOneAreLeftOut) {
    lt::TempDir dir;
    std::string out = dir.path() + "/err.txt";
    std::string conf = dir.file("c.conf", "platform.loglevel = 5\n");
    auto r = lt::runChild("", {"PPPOEPLUS_LOG=stderr", "PPPOEPLUS_CONF=" + conf}, [out] {
        int fd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ::dup2(fd, 2);
        uint32_t v = 0;
        char buf[8];
        silOptRead(0, "pppoeplus.enable", 0, 0, 1, buf, sizeof(buf));  // reads the configuration
        loggingDebugOutput(0x45D0003, 7, 0, "trace\r\n");
        loggingDebugOutput(0x45D0004, 5, 0, "error\r\n");
        (void)v;
    });
    ASSERT_TRUE(r.ok()) << r.failures;
    std::string text = lt::readFile(out);
    EXPECT_EQ(std::string::npos, text.find("trace")) << text;
    EXPECT_NE(std::string::npos, text.find("error")) << text;
}

TEST(LinuxOptions, StartUpOptionsComeFromTheFile) {
    lt::TempDir dir;
    std::string conf = dir.file("c.conf", "pppoeplus.poncommontype = pononu\npppoeplus.maxifnum = 7\n");
    auto r = lt::runChild("", {"PPPOEPLUS_LOG=stderr", "PPPOEPLUS_CONF=" + conf}, [] {
        char buf[64];
        std::memset(buf, 0, sizeof(buf));
        CHECK_EQ(6, silOptRead(0, "pppoeplus.poncommontype", 0, 0, 1, buf, 63));
        CHECK_EQ(std::string("pononu"), std::string(buf));
        std::memset(buf, 0, sizeof(buf));
        CHECK_EQ(3, silOptRead(0, "pppoeplus.poncommontype", 0, 0, 1, buf, 3));  // cut to the buffer
        CHECK_EQ(std::string("pon"), std::string(buf));
        CHECK_EQ(0, silOptRead(0, "pppoeplus.enable", 0, 0, 1, buf, 63));  // not set
        CHECK_EQ(0, silOptRead(0, nullptr, 0, 0, 1, buf, 63));
        CHECK_EQ(0, silOptRead(0, "pppoeplus.maxifnum", 0, 0, 1, nullptr, 63));
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

TEST(LinuxSemaphores, OwnerMayTakeAgainOthersWait) {
    auto r = lt::runChild("", {"PPPOEPLUS_LOG=stderr", "PPPOEPLUS_CONF=/nonexistent"}, [] {
        uint32_t sem = silCreateMSem(SIL_SEM_Q_PRIORITY | SIL_SEM_DELETE_SAFE | SIL_SEM_INVERSION_SAFE);
        CHECK_TRUE(sem != 0);
        CHECK_EQ(0u, silTakeSem(sem, SIL_WAIT_FOREVER));
        CHECK_EQ(0u, silTakeSem(sem, SIL_WAIT_FOREVER));  // the owner again
        std::atomic<int> got{-1};
        std::thread other([&] { got = static_cast<int>(silTakeSem(sem, 0)); });
        other.join();
        CHECK_TRUE(got.load() != 0);  // held by this thread
        std::thread timed([&] { got = static_cast<int>(silTakeSem(sem, 50)); });
        timed.join();
        CHECK_TRUE(got.load() != 0);
        CHECK_EQ(0u, silGiveSem(sem));
        CHECK_EQ(0u, silGiveSem(sem));
        std::thread free([&] {
            got = static_cast<int>(silTakeSem(sem, SIL_WAIT_FOREVER));
            silGiveSem(sem);
        });
        free.join();
        CHECK_EQ(0, got.load());
        CHECK_TRUE(silGiveSem(sem) != 0);  // not held
        CHECK_EQ(0u, silDeleteSem(sem));
        CHECK_TRUE(silTakeSem(sem, 0) != 0);
        CHECK_TRUE(silTakeSem(0, 0) != 0);
        CHECK_TRUE(silTakeSem(12345, 0) != 0);
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

std::atomic<int> gTaskRan{0};
void testTask(void) { gTaskRan = 1; }

TEST(LinuxTasks, ATaskRuns) {
    auto r = lt::runChild("", {"PPPOEPLUS_LOG=stderr", "PPPOEPLUS_CONF=/nonexistent"}, [] {
        uint32_t id = 0;
        CHECK_EQ(0, silCreateTask("pppoeplus", 50, 32768, testTask, 0, 0, &id));
        CHECK_TRUE(id != 0);
        for (int i = 0; i < 200 && gTaskRan.load() == 0; i++) ::usleep(5000);
        CHECK_EQ(1, gTaskRan.load());
        CHECK_TRUE(silCreateTask("x", 50, 0, nullptr, 0, 0, &id) != 0);
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

TEST(LinuxHardwareLayer, CommandsAreAcceptedAndRemembered) {
    auto r = lt::runChild("", {"PPPOEPLUS_LOG=stderr", "PPPOEPLUS_CONF=/nonexistent"}, [] {
        uint8_t ctrl[ZEL_HWIL_CTRL_LEN] = {};
        uint32_t mode = 3;
        uint32_t len = 4;
        std::memcpy(ctrl, &mode, 4);
        std::memcpy(ctrl + 16, &len, 4);
        uint32_t value = 0x12345678;
        CHECK_EQ(0, zelHwilCmdSyncApi(0, 0x154004, &value, ctrl));
        auto kept = linuxplat::hwilLastCommand(0, 0x154004);
        CHECK_TRUE(kept.has_value() && kept->size() == 4 && std::memcmp(kept->data(), &value, 4) == 0);
        // A text value: the record holds a pointer and the length says how much.
        struct {
            const char* text;
            uint32_t len;
        } str = {"'%C'", 4};
        mode = 3 | 0x80000000u;
        std::memcpy(ctrl, &mode, 4);
        CHECK_EQ(0, zelHwilCmdSyncApi(7, 0x40D0006, &str, ctrl));
        kept = linuxplat::hwilLastCommand(7, 0x40D0006);
        CHECK_TRUE(kept.has_value() && std::string(kept->begin(), kept->end()) == "'%C'");
        uint32_t proto = 141;
        CHECK_EQ(0, zelHwilScalarSet(0, ZEL_HWIL_SCALAR_PROTO_ID, &proto, 0));
        CHECK_EQ(141u, linuxplat::hwilLastScalar(ZEL_HWIL_SCALAR_PROTO_ID).value_or(0));
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

class ScalarsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LT_NEED_NETNS();
        ns_ = std::make_unique<lt::Netns>();
        ASSERT_TRUE(ns_->ok());
        ASSERT_EQ(0, ns_->sh("ip link add s1 address 02:00:00:00:00:11 type veth peer name s2 address "
                             "02:00:00:00:00:22"));
    }
    std::unique_ptr<lt::Netns> ns_;
    lt::TempDir dir_;
};

TEST_F(ScalarsTest, FromTheConfigurationElseFromTheSystem) {
    std::string bare = dir_.file("bare.conf", "");
    auto r = lt::runChild(ns_->name(), {"PPPOEPLUS_LOG=stderr", "PPPOEPLUS_CONF=" + bare}, [] {
        uint32_t vendor = 99;
        CHECK_EQ(0u, zelScalarGetApi(0, ZEL_SCALAR_VENDOR_ID, &vendor));
        CHECK_EQ(0u, vendor);  // the daemon's default applies
        uint8_t mac[6] = {};
        CHECK_EQ(0u, zelScalarGetApi(0, ZEL_SCALAR_SYS_MAC, mac));
        // The Ethernet port with the lowest unit (a veth's peer is made first).
        bool s1First = if_nametoindex("s1") < if_nametoindex("s2");
        const uint8_t first[6] = {0x02, 0, 0, 0, 0, static_cast<uint8_t>(s1First ? 0x11 : 0x22)};
        CHECK_EQ(0, std::memcmp(first, mac, 6));
        char text[ZEL_SCALAR_TEXT_LEN] = {};
        CHECK_TRUE(zelScalarGetApi(0, ZEL_SCALAR_DEVICE_NAME, text) != 0);
        CHECK_EQ(0u, zelScalarGetApi(0, ZEL_SCALAR_SYS_NAME, text));
        char host[256] = {};
        ::gethostname(host, sizeof(host) - 1);
        CHECK_EQ(std::string(host), std::string(text));
        CHECK_TRUE(zelScalarGetApi(0, 12345, text) != 0);
        CHECK_TRUE(zelScalarGetApi(0, ZEL_SCALAR_VENDOR_ID, nullptr) != 0);
    });
    EXPECT_TRUE(r.ok()) << r.failures;

    std::string conf = dir_.file("c.conf",
                                 "platform.vendorid = 0x0DE9\nplatform.sysmac = 00:11:22:33:44:55\n"
                                 "platform.devicename = olt-lab\nplatform.sysname = node-7\n"
                                 "port.s2 = kind=gpon slot=3 port=4\n");
    r = lt::runChild(ns_->name(), {"PPPOEPLUS_LOG=stderr", "PPPOEPLUS_CONF=" + conf}, [] {
        uint32_t vendor = 0;
        CHECK_EQ(0u, zelScalarGetApi(0, ZEL_SCALAR_VENDOR_ID, &vendor));
        CHECK_EQ(3561u, vendor);
        uint8_t mac[6] = {};
        CHECK_EQ(0u, zelScalarGetApi(0, ZEL_SCALAR_SYS_MAC, mac));
        const uint8_t want[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
        CHECK_EQ(0, std::memcmp(want, mac, 6));
        char text[ZEL_SCALAR_TEXT_LEN] = {};
        CHECK_EQ(0u, zelScalarGetApi(0, ZEL_SCALAR_DEVICE_NAME, text));
        CHECK_EQ(std::string("olt-lab"), std::string(text));
        CHECK_EQ(0u, zelScalarGetApi(0, ZEL_SCALAR_SYS_NAME, text));
        CHECK_EQ(std::string("node-7"), std::string(text));

        // The interface attributes of a configured G-PON port.
        uint32_t s2 = if_nametoindex("s2");
        uint32_t type = 0;
        CHECK_EQ(0u, zelIfGetApi(s2, ZEL_IF_ATTR_TYPE, &type));
        CHECK_EQ(ZEL_IFTYPE_GPON, type);
        tZelPhyInfo phy{};
        CHECK_EQ(0u, zelIndexTrans(s2, ZEL_INDEX_TRANS_PHYINFO, &phy));
        CHECK_EQ(ZEL_OND_GPON, phy.ondType);
        CHECK_EQ(3u, phy.slotNo);
        CHECK_EQ(4u, phy.portNo);
        char name[ZEL_IF_NAME_LEN];
        std::memset(name, 'x', sizeof(name));
        CHECK_EQ(0u, zelIfGetApi(s2, ZEL_IF_ATTR_NAME, name));
        CHECK_EQ(std::string("s2"), std::string(name));
        uint8_t ifMac[6] = {};
        tZelOctets o{ifMac, 6};
        CHECK_EQ(0u, zelIfGetApi(s2, ZEL_IF_ATTR_MAC, &o));
        CHECK_EQ(6u, o.len);
        CHECK_EQ(0x22, ifMac[5]);
        tZelOctets small{ifMac, 5};
        CHECK_TRUE(zelIfGetApi(s2, ZEL_IF_ATTR_MAC, &small) != 0);
        CHECK_TRUE(zelIfGetApi(s2, 99, &type) != 0);
        CHECK_TRUE(zelIfGetApi(999999, ZEL_IF_ATTR_TYPE, &type) != 0);
        char shortName[3];
        CHECK_EQ(std::string("s2"), std::string(zelIfUnit2Name(s2, shortName, sizeof(shortName))));
        char one[2];
        CHECK_EQ(std::string("s"), std::string(zelIfUnit2Name(s2, one, sizeof(one))));
        CHECK_EQ(std::string(""), std::string(zelIfUnit2Name(999999, shortName, sizeof(shortName))));

        // The walk visits every interface in unit order.
        uint32_t unit = 0;
        int seen = 0;
        uint32_t last = 0;
        for (uint32_t rc = zelIfGetFirst(&unit); rc == 0; rc = zelIfGetNext(unit, &unit)) {
            CHECK_TRUE(unit > last);
            last = unit;
            seen++;
        }
        CHECK_EQ(3, seen);  // lo, s1, s2
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

// The wait looks at every descriptor of its sets below nfds, in any word of
// the sets, and at none at or above nfds.
TEST(LinuxSelect, EveryDescriptorOfTheSetsBelowNfdsAndNoneAbove) {
    // Pipes until a read end lies beyond the first word of the sets.
    std::vector<std::array<int, 2>> pipes;
    while (pipes.empty() || pipes.back()[0] < 40) {
        std::array<int, 2> p{};
        ASSERT_EQ(0, ::pipe(p.data()));
        pipes.push_back(p);
    }
    const int first = pipes.front()[0];
    const int high = pipes.back()[0];
    ASSERT_LT(first, 32);
    ASSERT_EQ(1, ::write(pipes.front()[1], "x", 1));
    ASSERT_EQ(1, ::write(pipes.back()[1], "x", 1));

    zel_fd_set readSet;
    ZEL_FD_ZERO(&readSet);
    ZEL_FD_SET(first, &readSet);
    ZEL_FD_SET(high, &readSet);
    zel_timeval none = {0, 0};
    EXPECT_EQ(2, zel_select(high + 1, &readSet, nullptr, nullptr, &none));
    EXPECT_TRUE(ZEL_FD_ISSET(first, &readSet));
    EXPECT_TRUE(ZEL_FD_ISSET(high, &readSet));

    // nfds = high leaves the high descriptor out, readable or not.
    ZEL_FD_ZERO(&readSet);
    ZEL_FD_SET(first, &readSet);
    ZEL_FD_SET(high, &readSet);
    EXPECT_EQ(1, zel_select(high, &readSet, nullptr, nullptr, &none));
    EXPECT_TRUE(ZEL_FD_ISSET(first, &readSet));
    EXPECT_FALSE(ZEL_FD_ISSET(high, &readSet));

    // A write end in the write set only, past the first word.
    zel_fd_set writeSet;
    ZEL_FD_ZERO(&writeSet);
    const int highWrite = pipes.back()[1];
    ZEL_FD_SET(highWrite, &writeSet);
    ZEL_FD_ZERO(&readSet);
    EXPECT_EQ(1, zel_select(highWrite + 1, &readSet, &writeSet, nullptr, &none));
    EXPECT_TRUE(ZEL_FD_ISSET(highWrite, &writeSet));
    for (const auto& p : pipes) {
        ::close(p[0]);
        ::close(p[1]);
    }
}

}  // namespace
