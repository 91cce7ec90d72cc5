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
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "lt_netns.h"
#include "platform/linux/cmd_proto.h"
#include "platform/services.h"
#include "platform/types.h"

// The test variables the shell reads in this test process, as a daemon's, and
// a function of the process's own that its shell table does not list.
extern "C" {
uint32_t gPppoeplusTestForward = 5;
uint8_t gTestOnuInfo[16] = {0, 0, 0, 0, 0, 0x01, 0x20, 0x08, 'W', 'U', 'P', 'O', 0x1b, 0xd8, 0x0a, 0x9a};
int pppoeplusLtHidden(void) {
    std::printf("hidden called\r\n");
    return 99;
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

// The shell table of the serving process: functions with each kind of
// argument, as a daemon's diagnostics.
int32_t ltEcho(const int64_t* a) {
    std::printf("echo %d %d\r\n", static_cast<int32_t>(a[0]), static_cast<int32_t>(a[1]));
    return static_cast<int32_t>(a[0] + a[1]);
}
int32_t ltLoud(const int64_t* a) {
    for (int64_t i = 0; i < a[0]; i++) std::putchar('x');
    return static_cast<int32_t>(a[0]);
}
int32_t ltArgs(const int64_t* a) {
    std::printf("%lld %lld %lld %lld", static_cast<long long>(a[0]), static_cast<long long>(a[1]),
                static_cast<long long>(a[2]), static_cast<long long>(a[3]));
    return static_cast<int32_t>(a[2]);
}
int32_t ltNone(const int64_t*) {
    std::printf("none\r\n");
    return -5;
}

const tProcShellFunc SHELL_FUNCS[4] = {
    {"pppoeplusLtEcho", ltEcho, 2, {PROC_SHELL_ARG_I32, PROC_SHELL_ARG_I32}, {"a", "b"}},
    {"pppoeplusLtLoud", ltLoud, 1, {PROC_SHELL_ARG_U32}, {"n"}},
    {"pppoeplusLtArgs",
     ltArgs,
     4,
     {PROC_SHELL_ARG_U32, PROC_SHELL_ARG_I32, PROC_SHELL_ARG_IFUNIT, PROC_SHELL_ARG_U32},
     {"u", "i", "ifUnit", "v"}},
    {"pppoeplusLtNone", ltNone, 0, {}, {}},
};

// A unit no interface has.
constexpr int64_t NO_UNIT = 0x7FFFFFF0;

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
// `setup` runs in the child first (it registers the shell table).
class Server {
  public:
    Server(const std::string& root, const std::string& conf, const std::function<void()>& setup) {
        std::fflush(nullptr);
        const pid_t parent = ::getpid();
        pid_ = ::fork();
        if (pid_ == 0) {
            lt::dieWithParent(parent);
            ::setenv("PPPOEPLUS_ROOT", root.c_str(), 1);
            ::setenv("PPPOEPLUS_CONF", conf.c_str(), 1);
            ::setenv("PPPOEPLUS_LOG", "stderr", 1);
            setup();
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
        server_ = std::make_unique<Server>(dir_.path(), dir_.file("c.conf", conf()), [this] { shellSetup(); });
        ASSERT_TRUE(server_->ready);
    }
    virtual std::string conf() { return ""; }
    // In the serving process, before its shell starts.
    virtual void shellSetup() {
        if (procShellFuncInit(SHELL_FUNCS, 4) != 0) std::_Exit(3);
    }

    // A shell call and its reply.
    cmdp::ShellReply shell(const std::string& name, const std::vector<int64_t>& args = {}) {
        cmdp::ShellRequest req;
        req.name = name;
        req.args = args;
        cmdp::ShellReply reply;
        std::string error;
        EXPECT_EQ(0, cmdp::shell(server_->shell, req, reply, error)) << name << ": " << error;
        return reply;
    }

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
    wrongKind.name = "pppoeplusLtNone";
    f = rawExchange(server_->cmd, cmdp::shellRequestEncode(wrongKind, 1), false, &rc);
    ASSERT_EQ(0, rc);
    EXPECT_EQ(cmdp::ERR_UNSUPPORTED, errorOf(f));

    expectServing();
}

TEST_F(ServicesTest, ShellCallsTheFunctionsOfItsTable) {
    cmdp::ShellReply reply = shell("pppoeplusLtEcho", {3, 4});
    EXPECT_EQ(0, reply.status);
    EXPECT_EQ(7, reply.result);
    EXPECT_EQ("echo 3 4\r\n", reply.output);
    reply = shell("pppoeplusLtEcho", {-2147483648LL, 2147483647});
    EXPECT_EQ(0, reply.status) << reply.output;
    EXPECT_EQ("echo -2147483648 2147483647\r\n", reply.output);
    EXPECT_EQ(-1, reply.result);

    // The ends of every kind's range; lo is unit 1 in every network namespace.
    reply = shell("pppoeplusLtArgs", {4294967295LL, -2147483648LL, 1, 0});
    EXPECT_EQ(0, reply.status) << reply.output;
    EXPECT_EQ("4294967295 -2147483648 1 0", reply.output);
    EXPECT_EQ(1, reply.result);

    reply = shell("pppoeplusLtNone");
    EXPECT_EQ(0, reply.status);
    EXPECT_EQ(-5, reply.result);
    EXPECT_EQ("none\r\n", reply.output);

    reply = shell("pppoeplusLtLoud", {static_cast<int64_t>(cmdp::MAX_SHELL_OUTPUT) + 100});
    EXPECT_EQ(cmdp::MAX_SHELL_OUTPUT, reply.output.size());
    EXPECT_TRUE(reply.flags & cmdp::SHELL_FLAG_TRUNCATED);

    // The test variables are read, not called.
    reply = shell("gPppoeplusTestForward");
    EXPECT_EQ(0, reply.status);
    EXPECT_EQ(5, reply.result);
    EXPECT_TRUE(reply.flags & cmdp::SHELL_FLAG_VARIABLE);
    EXPECT_EQ("gPppoeplusTestForward = 5 (0x00000005)\n", reply.output);
    reply = shell("gTestOnuInfo");
    EXPECT_EQ("gTestOnuInfo = 00 00 00 00 00 01 20 08 57 55 50 4f 1b d8 0a 9a\n", reply.output);
}

TEST_F(ServicesTest, ShellRefusesNamesOutsideItsTable) {
    // pppoeplusLtHidden is a function of the process with the process's
    // prefix, but not in the table.
    for (const char* name : {"pppoeplusLtHidden", "ltNotOurs", "system", "exit", "abort", "gPppoeplusOther",
                             "pppoeplusNoSuchFunction", "pppoeplusIfEntryAdd", "pppoeplusEnable"}) {
        cmdp::ShellReply reply = shell(name);
        EXPECT_EQ(cmdp::ERR_DENIED, reply.status) << name;
        EXPECT_EQ(0, reply.result) << name;
        // The refusal says what may be called instead.
        EXPECT_EQ("'" + std::string(name) +
                      "' is not a diagnostic function of this process\n"
                      "callable functions (an interface is given by its unit):\n"
                      "  pppoeplusLtEcho(i32 a, i32 b)\n"
                      "  pppoeplusLtLoud(u32 n)\n"
                      "  pppoeplusLtArgs(u32 u, i32 i, interface ifUnit, u32 v)\n"
                      "  pppoeplusLtNone()\n"
                      "variables, read only: gPppoeplusTestForward gTestOnuInfo\n",
                  reply.output);
    }
    cmdp::ShellReply reply = shell("gPppoeplusTestForward", {1});
    EXPECT_EQ(cmdp::ERR_DENIED, reply.status) << "a variable takes no arguments";
    EXPECT_EQ("'gPppoeplusTestForward' is a variable and takes no arguments\n", reply.output);

    // A malformed shell request.
    int32_t rc = 0;
    cmdp::ShellRequest many;
    many.name = "pppoeplusLtEcho";
    many.args.assign(11, 1);
    auto f = rawExchange(server_->shell, cmdp::shellRequestEncode(many, 1), false, &rc);
    ASSERT_EQ(0, rc);
    EXPECT_EQ(cmdp::ERR_MALFORMED, errorOf(f));
}

TEST_F(ServicesTest, ShellRefusesWrongArgumentCountsAndKinds) {
    struct Refused {
        const char* name;
        std::vector<int64_t> args;
        int32_t status;
        std::string why;
    };
    const Refused refused[] = {
        {"pppoeplusLtEcho", {}, cmdp::ERR_DENIED, "'pppoeplusLtEcho' takes 2 arguments, not 0: pppoeplusLtEcho(i32 a, i32 b)\n"},
        {"pppoeplusLtEcho", {1}, cmdp::ERR_DENIED, "'pppoeplusLtEcho' takes 2 arguments, not 1: pppoeplusLtEcho(i32 a, i32 b)\n"},
        {"pppoeplusLtEcho", {1, 2, 3}, cmdp::ERR_DENIED, "'pppoeplusLtEcho' takes 2 arguments, not 3: pppoeplusLtEcho(i32 a, i32 b)\n"},
        {"pppoeplusLtNone", {0}, cmdp::ERR_DENIED, "'pppoeplusLtNone' takes 0 arguments, not 1: pppoeplusLtNone()\n"},
        {"pppoeplusLtLoud", {1, 2}, cmdp::ERR_DENIED, "'pppoeplusLtLoud' takes 1 argument, not 2: pppoeplusLtLoud(u32 n)\n"},
        {"pppoeplusLtEcho", {2147483648LL, 0}, cmdp::ERR_DENIED,
         "'pppoeplusLtEcho': argument 1 (a) must be a number from -2147483648 to 2147483647, not 2147483648\n"},
        {"pppoeplusLtEcho", {0, -2147483649LL}, cmdp::ERR_DENIED,
         "'pppoeplusLtEcho': argument 2 (b) must be a number from -2147483648 to 2147483647, not -2147483649\n"},
        {"pppoeplusLtLoud", {-1}, cmdp::ERR_DENIED,
         "'pppoeplusLtLoud': argument 1 (n) must be a number from 0 to 4294967295, not -1\n"},
        {"pppoeplusLtLoud", {4294967296LL}, cmdp::ERR_DENIED,
         "'pppoeplusLtLoud': argument 1 (n) must be a number from 0 to 4294967295, not 4294967296\n"},
        // An address where a number belongs.
        {"pppoeplusLtLoud", {0x7ffd12345678LL}, cmdp::ERR_DENIED,
         "'pppoeplusLtLoud': argument 1 (n) must be a number from 0 to 4294967295, not 140724908873336\n"},
        {"pppoeplusLtArgs", {0, 0, 0, 0}, cmdp::ERR_DENIED,
         "'pppoeplusLtArgs': argument 3 (ifUnit) must be an interface unit, not 0\n"},
        {"pppoeplusLtArgs", {0, 0, -1, 0}, cmdp::ERR_DENIED,
         "'pppoeplusLtArgs': argument 3 (ifUnit) must be an interface unit, not -1\n"},
        {"pppoeplusLtArgs", {0, 0, 0x100000001LL, 0}, cmdp::ERR_DENIED,
         "'pppoeplusLtArgs': argument 3 (ifUnit) must be an interface unit, not 4294967297\n"},
        {"pppoeplusLtArgs", {0, 0, NO_UNIT, 0}, cmdp::ERR_NOT_FOUND,
         "'pppoeplusLtArgs': argument 3 (ifUnit): no interface has unit 2147483632\n"},
        {"pppoeplusLtArgs", {0, 0, 1, -1}, cmdp::ERR_DENIED,
         "'pppoeplusLtArgs': argument 4 (v) must be a number from 0 to 4294967295, not -1\n"},
    };
    for (const Refused& r : refused) {
        cmdp::ShellReply reply = shell(r.name, r.args);
        EXPECT_EQ(r.status, reply.status) << r.why;
        EXPECT_EQ(r.why, reply.output);
        EXPECT_EQ(0, reply.result) << r.why;
    }
    // Nothing was called, and the shell goes on serving.
    cmdp::ShellReply reply = shell("pppoeplusLtEcho", {1, 2});
    EXPECT_EQ(0, reply.status);
    EXPECT_EQ("echo 1 2\r\n", reply.output);
}

// A process that registered no shell table: the shell calls nothing.
class ServicesNoShellTableTest : public ServicesTest {
  protected:
    void shellSetup() override {}
};

TEST_F(ServicesNoShellTableTest, ShellRefusesEveryCall) {
    for (const char* name : {"pppoeplusLtEcho", "pppoeplusLtHidden", "pppoeplusShow"}) {
        cmdp::ShellReply reply = shell(name);
        EXPECT_EQ(cmdp::ERR_DENIED, reply.status) << name;
        EXPECT_EQ("'" + std::string(name) +
                      "' refused: the process registered no diagnostic functions with its shell\n",
                  reply.output);
    }
    EXPECT_EQ(cmdp::ERR_DENIED, shell("pppoeplusLtEcho", {1, 2}).status);
    // The test variables may still be read.
    EXPECT_EQ(0, shell("gPppoeplusTestForward").status);
}

// A bad table after a good one: the bad one is refused and the good one stays.
class ServicesBadShellTableTest : public ServicesTest {
  protected:
    void shellSetup() override {
        static const tProcShellFunc bad[2] = {
            {"pppoeplusLtNone", ltNone, 0, {}, {}},
            {"pppoeplusLtEcho", ltEcho, 2, {PROC_SHELL_ARG_I32, 9}, {"a", "b"}},
        };
        if (procShellFuncInit(SHELL_FUNCS, 1) != 0) std::_Exit(3);
        if (procShellFuncInit(bad, 2) != ZEL_ERR_INVALID_ARG) std::_Exit(4);
    }
};

TEST_F(ServicesBadShellTableTest, ARefusedTableChangesNothing) {
    EXPECT_EQ("echo 1 2\r\n", shell("pppoeplusLtEcho", {1, 2}).output);
    EXPECT_EQ(cmdp::ERR_DENIED, shell("pppoeplusLtNone").status);
}

// Whether procShellFuncInit refuses `rows` rows of `funcs`.
bool tableRefused(const tProcShellFunc* funcs, uint32_t rows) {
    return procShellFuncInit(funcs, rows) == ZEL_ERR_INVALID_ARG;
}

// Registers bad tables, then good ones; says on standard error which bad one
// was taken or which good one refused, and returns how many.
int registerTables() {
    const tProcShellFunc good = SHELL_FUNCS[0];
    auto with = [&good](auto change) {
        tProcShellFunc row = good;
        change(row);
        return row;
    };
    const std::string tooLong(64, 'f');
    const tProcShellFunc badRows[] = {
        with([](tProcShellFunc& r) { r.name = nullptr; }),
        with([](tProcShellFunc& r) { r.name = ""; }),
        with([](tProcShellFunc& r) { r.name = "pppoeplus Echo"; }),
        with([&tooLong](tProcShellFunc& r) { r.name = tooLong.c_str(); }),
        with([](tProcShellFunc& r) { r.name = "gTestOnuInfo"; }),
        with([](tProcShellFunc& r) { r.entry = nullptr; }),
        with([](tProcShellFunc& r) { r.argCount = PROC_SHELL_MAX_ARGS + 1; }),
        with([](tProcShellFunc& r) { r.argKinds[1] = 0; }),
        with([](tProcShellFunc& r) { r.argKinds[0] = 4; }),
        with([](tProcShellFunc& r) { r.argNames[1] = nullptr; }),
        with([](tProcShellFunc& r) { r.argNames[0] = "a b"; }),
    };
    int failures = 0;
    auto expect = [&failures](bool ok, const std::string& what) {
        if (!ok) {
            std::fprintf(stderr, "wrong answer: %s\n", what.c_str());
            failures++;
        }
    };
    for (size_t i = 0; i < std::size(badRows); i++) {
        const tProcShellFunc rows[2] = {SHELL_FUNCS[1], badRows[i]};
        expect(tableRefused(rows, 2), "bad row " + std::to_string(i) + " taken");
    }
    const tProcShellFunc twice[2] = {good, good};
    expect(tableRefused(twice, 2), "a name twice taken");
    expect(tableRefused(nullptr, 1), "no table taken");
    expect(tableRefused(SHELL_FUNCS, 0), "no rows taken");
    // As many rows as a table may have, with names of their own, and one more.
    std::vector<std::string> names;
    for (uint32_t i = 0; i <= PROC_SHELL_MAX_FUNCS; i++) names.push_back("f" + std::to_string(i));
    std::vector<tProcShellFunc> many(PROC_SHELL_MAX_FUNCS + 1, good);
    for (size_t i = 0; i < many.size(); i++) many[i].name = names[i].c_str();
    expect(tableRefused(many.data(), PROC_SHELL_MAX_FUNCS + 1), "too many rows taken");
    expect(procShellFuncInit(many.data(), PROC_SHELL_MAX_FUNCS) == 0, "a full table refused");
    expect(procShellFuncInit(SHELL_FUNCS, 4) == 0, "the good table refused");
    return failures;
}

// Registering changes the process's shell, so it runs in a child of its own.
TEST(ShellTableTest, BadTablesAreRefused) {
    EXPECT_EXIT(std::exit(registerTables()), ::testing::ExitedWithCode(0), "^$");
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
