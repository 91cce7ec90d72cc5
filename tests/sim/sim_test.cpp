// The simulated platform itself: faults, queues, captures and records behave
// as the daemon's tests rely on.
#include <cstring>
#include <string>
#include <vector>

#include "platform/hwil.h"
#include "platform/ifdb.h"
#include "platform/logging.h"
#include "platform/os.h"
#include "platform/services.h"
#include "platform/socket.h"
#include "platform/types.h"
#include "support/fixture.h"

namespace {

using SimPlatformTest = SimTest;

TEST_F(SimPlatformTest, FaultByOrdinalHitsOnlyThatCall) {
    sim::failNth("silCreateMSem", 2, 0);
    EXPECT_EQ(1u, silCreateMSem(13));
    EXPECT_EQ(0u, silCreateMSem(13));
    EXPECT_EQ(2u, silCreateMSem(13));
    EXPECT_EQ((std::vector<std::string>{"silCreateMSem(13)", "silCreateMSem(13)", "silCreateMSem(13)"}),
              sim::g.calls);
}

TEST_F(SimPlatformTest, FaultByTextCountsDownAndSetsErrno) {
    int32_t fd = zel_socket(17, 2, 0x8863);
    sim::failWhen("zel_setsockopt(3,65535,4098,*", -1, 2, 105);
    int32_t v = 7;
    EXPECT_EQ(-1, zel_setsockopt(fd, 0xFFFF, 0x1002, &v, 4));
    EXPECT_EQ(105, errnoGet());
    EXPECT_EQ(-1, zel_setsockopt(fd, 0xFFFF, 0x1002, &v, 4));
    EXPECT_EQ(0, zel_setsockopt(fd, 0xFFFF, 0x1002, &v, 4));
    EXPECT_EQ(0, zel_setsockopt(fd, 0xFFFF, 0x1019, &v, 4)) << "another option is not matched";
    EXPECT_EQ(7, sim::sockOpt(fd, 0xFFFF, 0x1002));
}

TEST_F(SimPlatformTest, ForeverFault) {
    sim::failWhen("zelIfGetFirst()", ZEL_ERR_GENERAL);
    uint32_t unit = 0;
    sim::addInterface(1, "eth1", 1);
    for (int i = 0; i < 5; i++) EXPECT_EQ(static_cast<uint32_t>(ZEL_ERR_GENERAL), zelIfGetFirst(&unit));
}

TEST_F(SimPlatformTest, ResetForgetsEverything) {
    sim::setOption("a", "b");
    sim::addInterface(1, "eth1", 1);
    sim::failWhen("x", 1);
    zel_socket(17, 2, 0);
    sim::reset();
    EXPECT_TRUE(sim::g.calls.empty());
    EXPECT_TRUE(sim::g.options.empty());
    EXPECT_TRUE(sim::g.interfaces.empty());
    EXPECT_TRUE(sim::g.faults.empty());
    EXPECT_TRUE(sim::g.sockets.empty());
    EXPECT_EQ(3, zel_socket(17, 2, 0)) << "descriptors start at 3 again";
}

TEST_F(SimPlatformTest, SemaphoresCountTakesAndGives) {
    uint32_t id = silCreateMSem(13);
    EXPECT_EQ(0u, silTakeSem(id, -1));
    EXPECT_EQ(1, sim::g.sems[id].depth);
    EXPECT_EQ(0u, silGiveSem(id));
    EXPECT_NE(0u, silGiveSem(id)) << "giving a semaphore that is not held is refused";
    EXPECT_EQ(0u, silDeleteSem(id));
    EXPECT_NE(0u, silTakeSem(id, -1)) << "a deleted semaphore cannot be taken";
    EXPECT_NE(0u, silDeleteSem(99));
}

TEST_F(SimPlatformTest, OptionsAreCutToTheBuffer) {
    sim::setOption("k", "abcdef");
    char buf[8] = {};
    EXPECT_EQ(4, silOptRead(0, "k", 0, 0, 1, buf, 4));
    EXPECT_EQ("abcd", std::string(buf));
    EXPECT_EQ(0, silOptRead(0, "missing", 0, 0, 1, buf, 4));
}

TEST_F(SimPlatformTest, SelectReportsQueuedSockets) {
    int32_t a = zel_socket(17, 2, 0x8863);
    int32_t b = zel_socket(16, 2, 0);
    zel_fd_set set;
    ZEL_FD_ZERO(&set);
    ZEL_FD_SET(a, &set);
    ZEL_FD_SET(b, &set);
    zel_timeval tv{5, 0};
    EXPECT_EQ(0, zel_select(b + 1, &set, nullptr, nullptr, &tv));
    sim::pushRead(b, {1, 2, 3});
    ZEL_FD_ZERO(&set);
    ZEL_FD_SET(a, &set);
    ZEL_FD_SET(b, &set);
    EXPECT_EQ(1, zel_select(b + 1, &set, nullptr, nullptr, &tv));
    EXPECT_FALSE(ZEL_FD_ISSET(a, &set));
    EXPECT_TRUE(ZEL_FD_ISSET(b, &set));
    // A descriptor at or above nfds is not looked at.
    ZEL_FD_ZERO(&set);
    ZEL_FD_SET(b, &set);
    EXPECT_EQ(0, zel_select(b, &set, nullptr, nullptr, &tv));
}

TEST_F(SimPlatformTest, ReadsAreCutToTheBufferAndAnEmptyQueueFails) {
    int32_t fd = zel_socket(16, 2, 0);
    sim::pushRead(fd, {1, 2, 3, 4, 5});
    uint8_t buf[3] = {};
    EXPECT_EQ(3, zel_recv(fd, buf, 3, 0));
    EXPECT_EQ(3, buf[2]);
    EXPECT_EQ(-1, zel_recv(fd, buf, 3, 0));
    EXPECT_EQ(11, errnoGet());
    EXPECT_EQ(-1, zel_recv(99, buf, 3, 0));
    EXPECT_EQ(9, errnoGet());
}

TEST_F(SimPlatformTest, FramesComeWithAddressAndReceiveInformation) {
    int32_t fd = zel_socket(17, 2, 0x8863);
    sim::Frame f{};
    f.bytes = {0x11, 0x09, 0, 0, 0, 0};
    f.ifUnit = 7;
    f.withInfo = true;
    f.info.outerVid = 100;
    std::memcpy(f.info.srcMac, "\x00\x01\x02\x03\x04\x05", 6);
    sim::pushFrame(fd, f);

    uint8_t data[1400] = {};
    uint8_t control[128] = {};
    zel_sockaddr_ll from{};
    zel_iovec iov{data, sizeof(data)};
    zel_msghdr msg{&from, sizeof(from), &iov, 1, control, sizeof(control), 0};
    ASSERT_EQ(6, zel_recvmsg(fd, &msg, 0));
    EXPECT_EQ(0x11, data[0]);
    EXPECT_EQ(7, from.sll_ifindex);
    EXPECT_EQ(20u, msg.msg_namelen);
    ASSERT_EQ(ZEL_CMSG_ALIGN(12 + 64), msg.msg_controllen);
    const auto* c = reinterpret_cast<const zel_cmsghdr*>(control);
    EXPECT_EQ(263, c->cmsg_level);
    EXPECT_EQ(20, c->cmsg_type);
    EXPECT_EQ(76u, c->cmsg_len);
    zel_pkt_rxinfo info;
    std::memcpy(&info, ZEL_CMSG_DATA(c), sizeof(info));
    EXPECT_EQ(100, info.outerVid);

    // Without room for the record, or without one, no control information.
    f.withInfo = false;
    sim::pushFrame(fd, f);
    msg.msg_controllen = sizeof(control);
    ASSERT_EQ(6, zel_recvmsg(fd, &msg, 0));
    EXPECT_EQ(0u, msg.msg_controllen);
}

TEST_F(SimPlatformTest, SendsAreCaptured) {
    int32_t fd = zel_socket(17, 2, 0x8863);
    uint8_t data[4] = {1, 2, 3, 4};
    uint8_t control[16] = {9};
    zel_sockaddr_ll to{};
    to.sll_ifindex = 12;
    zel_iovec iov{data, sizeof(data)};
    zel_msghdr msg{&to, sizeof(to), &iov, 1, control, sizeof(control), 0};
    EXPECT_EQ(4, zel_sendmsg(fd, &msg, 0x20000));
    ASSERT_EQ(1u, sim::g.sent.size());
    EXPECT_EQ(12, sim::g.sent[0].addr.sll_ifindex);
    EXPECT_EQ(0x20000, sim::g.sent[0].flags);
    EXPECT_EQ((std::vector<uint8_t>{1, 2, 3, 4}), sim::g.sent[0].bytes);
    EXPECT_EQ(16u, sim::g.sent[0].control.size());
    EXPECT_EQ("zel_sendmsg(3,12)", sim::g.calls.back());
    sim::failWhen("zel_sendmsg(3,12)", -1, 1, 100);
    EXPECT_EQ(-1, zel_sendmsg(fd, &msg, 0x20000));
    EXPECT_EQ(100, errnoGet());
    EXPECT_EQ(1u, sim::g.sent.size()) << "a failed send is not captured";
    zel_close(fd);
    EXPECT_EQ(-1, zel_sendmsg(fd, &msg, 0)) << "a closed socket sends nothing";
}

TEST_F(SimPlatformTest, InterfaceDatabase) {
    sim::Interface& itf = sim::addInterface(9, "gpon0/9", 11, 250);
    itf.flags = 0x40010;
    sim::addInterface(3, "eth3", 1);
    uint32_t unit = 0;
    ASSERT_EQ(0u, zelIfGetFirst(&unit));
    EXPECT_EQ(3u, unit);
    ASSERT_EQ(0u, zelIfGetNext(unit, &unit));
    EXPECT_EQ(9u, unit);
    EXPECT_NE(0u, zelIfGetNext(unit, &unit));

    char name[ZEL_IF_NAME_LEN];
    ASSERT_EQ(0u, zelIfGetApi(9, ZEL_IF_ATTR_NAME, name));
    EXPECT_STREQ("gpon0/9", name);
    uint32_t v = 0;
    ASSERT_EQ(0u, zelIfGetApi(9, ZEL_IF_ATTR_TYPE, &v));
    EXPECT_EQ(250u, v);
    ASSERT_EQ(0u, zelIfGetApi(9, ZEL_IF_ATTR_FLAGS, &v));
    EXPECT_EQ(0x40010u, v);
    uint8_t mac[6] = {};
    tZelOctets octets{mac, 6};
    ASSERT_EQ(0u, zelIfGetApi(9, ZEL_IF_ATTR_MAC, &octets));
    EXPECT_EQ(0x09, mac[5]);
    tZelPhyInfo phy{};
    ASSERT_EQ(0u, zelIndexTrans(9, 5, &phy));
    EXPECT_EQ(11u, phy.ondType);
    EXPECT_NE(0u, zelIndexTrans(9, 4, &phy));
    EXPECT_NE(0u, zelIfGetApi(4, ZEL_IF_ATTR_FLAGS, &v)) << "unknown unit";

    char small[4];
    EXPECT_STREQ("gpo", zelIfUnit2Name(9, small, sizeof(small)));
    EXPECT_STREQ("", zelIfUnit2Name(4, small, sizeof(small)));
}

TEST_F(SimPlatformTest, ProtocolStatesFollowTheSets) {
    sim::addInterface(5, "eth5", 1);
    tZelIfProto proto{141, {}};
    EXPECT_EQ(0u, zelIfSetApi(5, 53, &proto));
    EXPECT_EQ(0u, zelIfSetApi(5, 56, &proto));
    EXPECT_TRUE((sim::g.protoStates[{5, 141}].dflt));
    EXPECT_TRUE((sim::g.protoStates[{5, 141}].on));
    EXPECT_EQ(0u, zelIfSetApi(5, 57, &proto));
    EXPECT_FALSE((sim::g.protoStates[{5, 141}].on));
    EXPECT_EQ("zelIfSetApi(5,57,141)", sim::g.calls.back());
    EXPECT_NE(0u, zelIfSetApi(6, 56, &proto)) << "unknown unit";
}

TEST_F(SimPlatformTest, ScalarsAndProtocolNames) {
    sim::setScalarText(58, "olt-1");
    char text[256] = {};
    ASSERT_EQ(0u, zelScalarGetApi(0, 58, text));
    EXPECT_STREQ("olt-1", text);
    uint32_t v = 5;
    EXPECT_NE(0u, zelScalarGetApi(0, 38, &v));
    EXPECT_EQ(5u, v) << "a missing scalar leaves the value";
    EXPECT_STREQ("pppoe+", zelProtoName(141));
    EXPECT_STREQ("pppoe+hw", zelProtoName(19));
    EXPECT_STREQ("unknown", zelProtoName(385));
}

TEST_F(SimPlatformTest, HardwareCommandsRecordTheirBytes) {
    uint8_t ctrl[64] = {};
    uint32_t mode = 0x80000003, len = 5;
    std::memcpy(ctrl, &mode, 4);
    std::memcpy(ctrl + 16, &len, 4);
    struct {
        const char* text;
        uint32_t len;
    } value{"hello world", 5};
    EXPECT_EQ(0, zelHwilCmdSyncApi(0, 0x154006, &value, ctrl));
    ASSERT_EQ(1u, sim::g.hwilCalls.size());
    EXPECT_EQ(0x154006u, sim::g.hwilCalls[0].cmdId);
    EXPECT_EQ("hello", std::string(sim::g.hwilCalls[0].value.begin(), sim::g.hwilCalls[0].value.end()));
    EXPECT_EQ(64u, sim::g.hwilCalls[0].ctrl.size());

    uint32_t number = 7;
    mode = 3;
    len = 4;
    std::memcpy(ctrl, &mode, 4);
    std::memcpy(ctrl + 16, &len, 4);
    sim::failWhen("zelHwilCmdSyncApi(0,1392641)", ZEL_ERR_GENERAL, 1);
    EXPECT_EQ(ZEL_ERR_GENERAL, zelHwilCmdSyncApi(0, 0x154001, &number, ctrl));
    ASSERT_EQ(2u, sim::g.hwilCalls.size()) << "a failing command is still recorded";
    EXPECT_EQ((std::vector<uint8_t>{7, 0, 0, 0}), sim::g.hwilCalls[1].value);
}

TEST_F(SimPlatformTest, LogsAreCapturedWithTheirMarkers) {
    loggingDebugOutput(0x45D0000, 7, 2, "a %d\r\n", 1);
    loggingLogOutput(0x45D0006, 7, 0, "b %s\r\n", "x");
    ASSERT_EQ(2u, sim::g.logs.size());
    EXPECT_FALSE(sim::g.logs[0].oper);
    EXPECT_EQ(2u, sim::g.logs[0].part);
    EXPECT_EQ("a 1\r\n", sim::g.logs[0].text);
    EXPECT_TRUE(sim::g.logs[1].oper);
    EXPECT_EQ(0x45D0006u, sim::g.logs[1].module);
    EXPECT_EQ("b x\r\n", sim::g.logs[1].text);
}

TEST_F(SimPlatformTest, ServicesAreRecorded) {
    static const tIcmFuncMap map[1] = {{0, nullptr}};
    static const tProcShellFunc funcs[1] = {{"f", [](const int64_t*) { return 0; }, 0, {}, {}}};
    EXPECT_EQ(0, procShellFuncInit(funcs, 1));
    EXPECT_EQ(0, procShellInit("p", 0, 0));
    EXPECT_EQ(0, icmProcTcpInit("svc", "/tmp/x.socket", map, 1));
    patchSignalHandler();
    silCatchSegFault();
    EXPECT_EQ("p", sim::g.shellName);
    EXPECT_EQ(funcs, sim::g.shellFuncs);
    EXPECT_EQ(1u, sim::g.shellFuncRows);
    EXPECT_EQ("svc", sim::g.cmdService);
    EXPECT_EQ(map, sim::g.cmdMap);
    EXPECT_TRUE(sim::g.signalsPatched);
    EXPECT_TRUE(sim::g.segFaultCaught);
}

TEST_F(SimPlatformTest, PoolCallsCanFail) {
    tSilMemPool pool{};
    sim::failWhen("silMemPoolInit(p,2,8,0)", 0x3E8000E, 1);
    EXPECT_EQ(0x3E8000Eu, silMemPoolInit(&pool, "p", 2, 8, 0));
    ASSERT_EQ(0u, silMemPoolInit(&pool, "p", 2, 8, 0));
    sim::failNth("silMemPoolAlloc", 1, 1);
    EXPECT_EQ(nullptr, silMemPoolAlloc(&pool));
    void* r = silMemPoolAlloc(&pool);
    EXPECT_NE(nullptr, r);
    EXPECT_EQ(0u, silMemPoolFree(&pool, r));
    EXPECT_EQ(0u, silMemPoolDestroy(&pool));
}

}  // namespace
