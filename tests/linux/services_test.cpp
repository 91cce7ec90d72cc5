// The command service, the process shell and their protocol, served by a
// child process: requests and replies, malformed requests refused while the
// service goes on serving, peers that are not allowed refused.
#include <gtest/gtest.h>
#include <grp.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "lt_netns.h"
#include "platform/linux/cmd_proto.h"
#include "platform/services.h"
#include "platform/types.h"

// Names the shell may call in this test process, as a daemon's diagnostics.
extern "C" {
uint32_t gPppoeplusTestForward = 5;
uint8_t gTestOnuInfo[16] = {0, 0, 0, 0, 0, 0x01, 0x20, 0x08, 'W', 'U', 'P', 'O', 0x1b, 0xd8, 0x0a, 0x9a};
int pppoeplusLtEcho(int a, int b) {
    std::printf("echo %d %d\r\n", a, b);
    return a + b;
}
int pppoeplusLtLoud(int n) {
    for (int i = 0; i < n; i++) std::putchar('x');
    return n;
}
int pppoeplusLtArgs(long a, long b, long c, long d, long e, long f, long g, long h, long i, long j) {
    std::printf("%ld %ld %ld %ld %ld %ld %ld %ld %ld %ld", a, b, c, d, e, f, g, h, i, j);
    return static_cast<int>(a + j);
}
int ltNotOurs(void) { return 1; }
}

namespace {

struct StrValue {
    char* str;
    uint32_t len;
};

int32_t ltGet(uint32_t unit, uint32_t cmd, void* v) {
    if (v == nullptr) return ZEL_ERR_NULL_POINTER;
    if (cmd == 9) {
        auto* s = static_cast<StrValue*>(v);
        if (s->len < 5) return ZEL_ERR_TOO_LONG;
        std::memcpy(s->str, "hello", 5);
        s->len = 5;
        return 0;
    }
    uint32_t value = unit * 100 + cmd;
    std::memcpy(v, &value, 4);
    return 0;
}

uint32_t gLastSet = 0;
int32_t ltSet(uint32_t, uint32_t cmd, void* v) {
    if (v == nullptr) return ZEL_ERR_NULL_POINTER;
    if (cmd == 6) {
        auto* s = static_cast<StrValue*>(v);
        return s->len == 3 && std::memcmp(s->str, "abc", 3) == 0 ? 0 : ZEL_EINVAL;
    }
    std::memcpy(&gLastSet, v, 4);
    return 0;
}
// A get of what the last set stored: the call runs in the serving process.
int32_t ltSync(uint32_t, uint32_t, void* v) {
    std::memcpy(v, &gLastSet, 4);
    return 0;
}
int32_t ltFirst(uint32_t* out) {
    *out = 3;
    return 0;
}
int32_t ltNext(uint32_t unit, uint32_t* out) {
    if (unit >= 5) return -1;
    *out = unit + 1;
    return 0;
}

const tIcmFuncMap MAP[9] = {
    {0, nullptr},
    {1, reinterpret_cast<tIcmEntry>(&ltGet)},
    {2, reinterpret_cast<tIcmEntry>(&ltSet)},
    {3, reinterpret_cast<tIcmEntry>(&ltSync)},
    {4, reinterpret_cast<tIcmEntry>(&ltFirst)},
    {5, reinterpret_cast<tIcmEntry>(&ltNext)},
    {6, nullptr},
    {7, nullptr},
    {8, nullptr},
};

// What the test map serves, as a daemon registers its settings.
const tIcmCallSpec SPECS[] = {
    {1, 3, ICM_VALUE_U32, 0, 0},       {1, 9, ICM_VALUE_TEXT_OUT, 64, 0}, {2, 1, ICM_VALUE_U32, 0, 0},
    {2, 6, ICM_VALUE_TEXT_IN, 64, 0},  {3, 1, ICM_VALUE_U32, 0, 0},       {4, ICM_ANY_CMD, ICM_VALUE_U32, 0, 0},
    {5, ICM_ANY_CMD, ICM_VALUE_U32, 0, 0},
};

// Serves the test map and the shell from a child process until destroyed.
class Server {
  public:
    Server(const std::string& root, const std::string& conf) {
        std::fflush(nullptr);
        const pid_t parent = ::getpid();
        pid_ = ::fork();
        if (pid_ == 0) {
            lt::dieWithParent(parent);
            ::setenv("PPPOEPLUS_ROOT", root.c_str(), 1);
            ::setenv("PPPOEPLUS_CONF", conf.c_str(), 1);
            ::setenv("PPPOEPLUS_LOG", "stderr", 1);
            procShellInit("pppoeplus", 0, 0);
            icmProcCallSpecInit("pppoeplusCmd", SPECS, sizeof(SPECS) / sizeof(SPECS[0]));
            icmProcTcpInit("pppoeplusCmd", "/tmp/pppoeplusNm.socket", MAP, 9);
            for (;;) ::pause();
        }
        cmd = root + "/pppoeplusNm.socket";
        shell = root + "/pppoeplusShell.socket";
        ready = lt::waitForPath(cmd, 5000) && lt::waitForPath(shell, 5000);
    }
    ~Server() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    std::string cmd;
    std::string shell;
    bool ready = false;

  private:
    pid_t pid_ = -1;
};

class ServicesTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (::geteuid() != 0) GTEST_SKIP() << "needs root: the services check that their peers are root";
        server_ = std::make_unique<Server>(dir_.path(), dir_.file("c.conf", conf()));
        ASSERT_TRUE(server_->ready);
    }
    virtual std::string conf() { return ""; }

    // A get of code 1 works: the service is serving.
    void expectServing() {
        cmdp::CallRequest req;
        req.code = 1;
        req.unit = 2;
        req.cmd = 3;
        req.valueKind = cmdp::VALUE_U32;
        cmdp::CallReply reply;
        std::string error;
        ASSERT_EQ(0, cmdp::call(server_->cmd, req, reply, error)) << error;
        EXPECT_EQ(0, reply.result);
        EXPECT_EQ(203u, reply.lenWord);
    }

    // Sends raw bytes (then closes the sending side when `shut`) and reads
    // the one reply frame.
    cmdp::Frame rawExchange(const std::string& path, const std::vector<uint8_t>& bytes, bool shut, int32_t* rc) {
        int fd = cmdp::connectTo(path);
        EXPECT_GE(fd, 0);
        EXPECT_TRUE(cmdp::writeAll(fd, bytes));
        if (shut) ::shutdown(fd, SHUT_WR);
        cmdp::Frame f;
        *rc = cmdp::readFrame(fd, cmdp::MAX_REPLY_BODY, 5000, f);
        // After an error reply the service hangs up.
        if (*rc == 0 && f.header.kind == cmdp::KIND_ERROR) {
            uint8_t b;
            EXPECT_EQ(0, ::recv(fd, &b, 1, 0)) << "connection still open after an error";
        }
        ::close(fd);
        return f;
    }

    int32_t errorOf(const cmdp::Frame& f) {
        EXPECT_EQ(cmdp::KIND_ERROR, f.header.kind);
        cmdp::ErrorReply e;
        EXPECT_EQ(0, cmdp::errorReplyDecode(f.body.data(), f.body.size(), e));
        return e.result;
    }

    lt::TempDir dir_;
    std::unique_ptr<Server> server_;
};

TEST_F(ServicesTest, CallsRunTheEntryPointsOfTheMap) {
    expectServing();
    std::string error;
    cmdp::CallReply reply;

    cmdp::CallRequest set;
    set.code = 2;
    set.cmd = 1;
    set.valueKind = cmdp::VALUE_U32;
    set.lenWord = 77;
    ASSERT_EQ(0, cmdp::call(server_->cmd, set, reply, error)) << error;
    EXPECT_EQ(0, reply.result);
    cmdp::CallRequest sync = set;
    sync.code = 3;
    sync.lenWord = 0;
    ASSERT_EQ(0, cmdp::call(server_->cmd, sync, reply, error));
    EXPECT_EQ(77u, reply.lenWord);

    cmdp::CallRequest text;
    text.code = 2;
    text.cmd = 6;
    text.valueKind = cmdp::VALUE_STR;
    text.data = {'a', 'b', 'c'};
    text.lenWord = 3;
    text.capacity = 3;
    ASSERT_EQ(0, cmdp::call(server_->cmd, text, reply, error));
    EXPECT_EQ(0, reply.result);
    text.data = {'a', 'b', 'd'};
    ASSERT_EQ(0, cmdp::call(server_->cmd, text, reply, error));
    EXPECT_EQ(ZEL_EINVAL, reply.result);

    cmdp::CallRequest get;
    get.code = 1;
    get.cmd = 9;
    get.valueKind = cmdp::VALUE_STR;
    get.lenWord = 64;
    get.capacity = 64;
    ASSERT_EQ(0, cmdp::call(server_->cmd, get, reply, error));
    EXPECT_EQ(0, reply.result);
    EXPECT_EQ(5u, reply.lenWord);
    EXPECT_EQ(std::string("hello"), std::string(reply.data.begin(), reply.data.end()));
    get.lenWord = get.capacity = 4;
    ASSERT_EQ(0, cmdp::call(server_->cmd, get, reply, error));
    EXPECT_EQ(ZEL_ERR_TOO_LONG, reply.result);

    // The service builds the record; a request without a value does not fit.
    cmdp::CallRequest none;
    none.code = 1;
    none.cmd = 3;
    none.valueKind = cmdp::VALUE_NONE;
    EXPECT_EQ(cmdp::ERR_MALFORMED, cmdp::call(server_->cmd, none, reply, error));
    EXPECT_NE(std::string::npos, error.find("takes a u32 value")) << error;

    cmdp::CallRequest first;
    first.code = 4;
    first.valueKind = cmdp::VALUE_U32;
    ASSERT_EQ(0, cmdp::call(server_->cmd, first, reply, error));
    EXPECT_EQ(3u, reply.lenWord);
    cmdp::CallRequest next;
    next.code = 5;
    next.unit = 5;
    next.valueKind = cmdp::VALUE_U32;
    ASSERT_EQ(0, cmdp::call(server_->cmd, next, reply, error));
    EXPECT_EQ(-1, reply.result);
}

TEST_F(ServicesTest, RowsWithoutAnEntryPointAreUnsupportedAndTheConnectionStays) {
    int fd = cmdp::connectTo(server_->cmd);
    ASSERT_GE(fd, 0);
    for (uint32_t code : {0u, 6u, 7u, 8u, 9u, 1000u, 1u}) {
        cmdp::CallRequest req;
        req.code = code;
        req.cmd = 3;
        req.valueKind = cmdp::VALUE_U32;
        ASSERT_TRUE(cmdp::writeAll(fd, cmdp::callRequestEncode(req, code)));
        cmdp::Frame f;
        ASSERT_EQ(0, cmdp::readFrame(fd, cmdp::MAX_REPLY_BODY, 5000, f));
        ASSERT_EQ(cmdp::KIND_CALL | cmdp::REPLY_BIT, f.header.kind);
        EXPECT_EQ(code, f.header.seq);
        cmdp::CallReply reply;
        ASSERT_EQ(0, cmdp::callReplyDecode(f.body.data(), f.body.size(), reply));
        EXPECT_EQ(code == 1 ? 0 : cmdp::ERR_UNSUPPORTED, reply.result) << "code " << code;
    }
    ::close(fd);
}

TEST_F(ServicesTest, MalformedRequestsAreRefusedAndTheServiceGoesOn) {
    int32_t rc = 0;
    cmdp::CallRequest good;
    good.code = 1;
    good.cmd = 3;
    good.valueKind = cmdp::VALUE_U32;
    std::vector<uint8_t> frame = cmdp::callRequestEncode(good, 1);

    // Short: part of a header, then the end.
    auto f = rawExchange(server_->cmd, std::vector<uint8_t>(frame.begin(), frame.begin() + 5), true, &rc);
    ASSERT_EQ(0, rc);
    EXPECT_EQ(cmdp::ERR_MALFORMED, errorOf(f));
    expectServing();

    // Oversized: refused from the header, before any body.
    auto big = frame;
    big[4] = 0x00;
    big[5] = 0x10;  // 1 MiB
    f = rawExchange(server_->cmd, std::vector<uint8_t>(big.begin(), big.begin() + 12), false, &rc);
    ASSERT_EQ(0, rc);
    EXPECT_EQ(cmdp::ERR_TOO_LONG, errorOf(f));
    expectServing();

    // Wrong version.
    auto version = frame;
    version[2] = 9;
    f = rawExchange(server_->cmd, version, false, &rc);
    ASSERT_EQ(0, rc);
    EXPECT_EQ(cmdp::ERR_UNSUPPORTED, errorOf(f));

    // Not this protocol at all.
    f = rawExchange(server_->cmd, std::vector<uint8_t>(20, 'G'), false, &rc);
    ASSERT_EQ(0, rc);
    EXPECT_EQ(cmdp::ERR_MALFORMED, errorOf(f));
    expectServing();

    // A body length that promises more than comes.
    auto lie = frame;
    lie[7] = static_cast<uint8_t>(lie[7] + 10);
    f = rawExchange(server_->cmd, lie, true, &rc);
    ASSERT_EQ(0, rc);
    EXPECT_EQ(cmdp::ERR_MALFORMED, errorOf(f));

    // A body length shorter than the call's fields.
    auto shortBody = frame;
    shortBody[7] = 10;
    shortBody.resize(12 + 10);
    f = rawExchange(server_->cmd, shortBody, false, &rc);
    ASSERT_EQ(0, rc);
    EXPECT_EQ(cmdp::ERR_MALFORMED, errorOf(f));

    // Value lengths that lie inside a well-framed body.
    cmdp::CallRequest liar;
    liar.code = 2;
    liar.cmd = 6;
    liar.valueKind = cmdp::VALUE_STR;
    liar.capacity = 4;
    liar.lenWord = 4000;  // more than the buffer
    f = rawExchange(server_->cmd, cmdp::callRequestEncode(liar, 1), false, &rc);
    ASSERT_EQ(0, rc);
    EXPECT_EQ(cmdp::ERR_MALFORMED, errorOf(f));
    liar.lenWord = 0;
    auto inner = cmdp::callRequestEncode(liar, 1);
    inner[12 + 27] = 200;  // data length beyond the capacity and the body
    f = rawExchange(server_->cmd, inner, false, &rc);
    ASSERT_EQ(0, rc);
    EXPECT_EQ(cmdp::ERR_MALFORMED, errorOf(f));

    // An iterator without its u32.
    cmdp::CallRequest iter;
    iter.code = 4;
    f = rawExchange(server_->cmd, cmdp::callRequestEncode(iter, 1), false, &rc);
    ASSERT_EQ(0, rc);
    EXPECT_EQ(cmdp::ERR_MALFORMED, errorOf(f));

    // A shell request on the command service.
    cmdp::ShellRequest wrongKind;
    wrongKind.name = "pppoeplusLtEcho";
    f = rawExchange(server_->cmd, cmdp::shellRequestEncode(wrongKind, 1), false, &rc);
    ASSERT_EQ(0, rc);
    EXPECT_EQ(cmdp::ERR_UNSUPPORTED, errorOf(f));

    expectServing();
}

TEST_F(ServicesTest, ShellCallsExportedFunctionsAndReturnsTheirOutput) {
    cmdp::ShellRequest req;
    req.name = "pppoeplusLtEcho";
    req.args = {3, 4};
    cmdp::ShellReply reply;
    std::string error;
    ASSERT_EQ(0, cmdp::shell(server_->shell, req, reply, error)) << error;
    EXPECT_EQ(0, reply.status);
    EXPECT_EQ(7, reply.result);
    EXPECT_EQ("echo 3 4\r\n", reply.output);

    req.name = "pppoeplusLtArgs";
    req.args = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    ASSERT_EQ(0, cmdp::shell(server_->shell, req, reply, error));
    EXPECT_EQ("1 2 3 4 5 6 7 8 9 10", reply.output);
    EXPECT_EQ(11, reply.result);

    req.name = "pppoeplusLtLoud";
    req.args = {static_cast<int64_t>(cmdp::MAX_SHELL_OUTPUT) + 100};
    ASSERT_EQ(0, cmdp::shell(server_->shell, req, reply, error));
    EXPECT_EQ(cmdp::MAX_SHELL_OUTPUT, reply.output.size());
    EXPECT_TRUE(reply.flags & cmdp::SHELL_FLAG_TRUNCATED);

    req.name = "gPppoeplusTestForward";
    req.args.clear();
    ASSERT_EQ(0, cmdp::shell(server_->shell, req, reply, error));
    EXPECT_EQ(0, reply.status);
    EXPECT_EQ(5, reply.result);
    EXPECT_TRUE(reply.flags & cmdp::SHELL_FLAG_VARIABLE);
    EXPECT_EQ("gPppoeplusTestForward = 5 (0x00000005)\n", reply.output);

    req.name = "gTestOnuInfo";
    ASSERT_EQ(0, cmdp::shell(server_->shell, req, reply, error));
    EXPECT_EQ("gTestOnuInfo = 00 00 00 00 00 01 20 08 57 55 50 4f 1b d8 0a 9a\n", reply.output);
}

TEST_F(ServicesTest, ShellRefusesNamesOutsideTheProcessesOwn) {
    cmdp::ShellReply reply;
    std::string error;
    for (const char* name : {"ltNotOurs", "system", "exit", "abort", "gPppoeplusOther"}) {
        cmdp::ShellRequest req;
        req.name = name;
        ASSERT_EQ(0, cmdp::shell(server_->shell, req, reply, error));
        EXPECT_EQ(cmdp::ERR_DENIED, reply.status) << name;
    }
    cmdp::ShellRequest req;
    req.name = "pppoeplusNoSuchFunction";
    ASSERT_EQ(0, cmdp::shell(server_->shell, req, reply, error));
    EXPECT_EQ(cmdp::ERR_NOT_FOUND, reply.status);
    req.name = "gPppoeplusTestForward";
    req.args = {1};
    ASSERT_EQ(0, cmdp::shell(server_->shell, req, reply, error));
    EXPECT_EQ(cmdp::ERR_DENIED, reply.status) << "a variable takes no arguments";

    // A malformed shell request.
    int32_t rc = 0;
    cmdp::ShellRequest many;
    many.name = "pppoeplusLtEcho";
    many.args.assign(11, 1);
    auto f = rawExchange(server_->shell, cmdp::shellRequestEncode(many, 1), false, &rc);
    ASSERT_EQ(0, rc);
    EXPECT_EQ(cmdp::ERR_MALFORMED, errorOf(f));
}

// Connects as user and group 65534 and says what came of it: "refused" when
// the socket could not be reached, else the error code the service sent.
std::string connectAsNobody(const std::string& path) {
    int fds[2];
    if (::pipe(fds) != 0) return "pipe";
    std::fflush(nullptr);
    const pid_t parent = ::getpid();
    pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        std::string result;
        if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0) {
            result = "setuid";
        } else {
            lt::dieWithParent(parent);
            int fd = cmdp::connectTo(path);
            if (fd < 0) {
                result = "refused";
            } else {
                cmdp::CallRequest req;
                req.code = 1;
                req.cmd = 1;
                req.valueKind = cmdp::VALUE_U32;
                cmdp::writeAll(fd, cmdp::callRequestEncode(req, 1));
                cmdp::Frame f;
                if (cmdp::readFrame(fd, cmdp::MAX_REPLY_BODY, 5000, f) != 0) result = "no reply";
                else if (f.header.kind == cmdp::KIND_ERROR) {
                    cmdp::ErrorReply e;
                    cmdp::errorReplyDecode(f.body.data(), f.body.size(), e);
                    result = std::to_string(e.result);
                } else {
                    result = "served";
                }
            }
        }
        (void)!::write(fds[1], result.data(), result.size());
        ::_exit(0);
    }
    ::close(fds[1]);
    std::string out;
    char buf[64];
    ssize_t n;
    while ((n = ::read(fds[0], buf, sizeof(buf))) > 0) out.append(buf, static_cast<size_t>(n));
    ::close(fds[0]);
    ::waitpid(pid, nullptr, 0);
    return out;
}

TEST_F(ServicesTest, PeersThatAreNotRootAreRefused) {
    struct stat st;
    ASSERT_EQ(0, ::stat(server_->cmd.c_str(), &st));
    EXPECT_EQ(0660u, st.st_mode & 0777);
    EXPECT_EQ(0u, st.st_uid);
    ASSERT_EQ(0, ::stat(server_->shell.c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 0777);

    ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 0755));
    EXPECT_EQ("refused", connectAsNobody(server_->cmd));
    EXPECT_EQ("refused", connectAsNobody(server_->shell));
    // Past the file's permissions, the peer's credentials still decide.
    ASSERT_EQ(0, ::chmod(server_->cmd.c_str(), 0666));
    ASSERT_EQ(0, ::chmod(server_->shell.c_str(), 0666));
    EXPECT_EQ(std::to_string(cmdp::ERR_DENIED), connectAsNobody(server_->cmd));
    EXPECT_EQ(std::to_string(cmdp::ERR_DENIED), connectAsNobody(server_->shell));
    expectServing();
}

class ServicesGroupTest : public ServicesTest {
  protected:
    std::string conf() override { return "platform.group = 65534\n"; }
};

TEST_F(ServicesGroupTest, MembersOfTheConfiguredGroupMayUseTheCommandService) {
    struct stat st;
    ASSERT_EQ(0, ::stat(server_->cmd.c_str(), &st));
    EXPECT_EQ(65534u, st.st_gid);
    ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 0755));
    EXPECT_EQ("served", connectAsNobody(server_->cmd));
    EXPECT_EQ("refused", connectAsNobody(server_->shell));
}

}  // namespace
