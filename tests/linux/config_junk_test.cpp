// Every key of the configuration file given junk. The reader keeps a value
// as text or refuses its line with the file name, the line number and the
// reason, and changes nothing else it read; the settings that are numbers
// fall back to their defaults; the daemon started with junk in every
// setting runs on its defaults and says what it ignored, and refuses to
// start only for the start-up options that are defined to stop it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <map>
#include <string>
#include <vector>

#include "lt_netns.h"
#include "platform/linux/config.h"
#include "platform/linux/cmd_proto.h"

#ifndef PPPOEPLUSD_PATH
#error "PPPOEPLUSD_PATH names the daemon binary"
#endif

namespace {

using linuxplat::ConfigData;
using linuxplat::configParse;

const std::vector<std::string> kOptions = {
    "pppoeplus.enable",         "pppoeplus.maxifnum",       "pppoeplus.maxsubsysnum",
    "pppoeplus.poncommontype",  "pppoeplus.defaultenable",  "pppoeplus.defaultportenable",
    "pppoeplus.ethifenable",    "pppoeplus.ethaggifenable", "pppoeplus.gponifenable",
    "pppoeplus.ponaggifenable",
};
const std::vector<std::string> kSettings = {
    "platform.vendorid",   "platform.sysmac",      "platform.devicename", "platform.sysname",
    "platform.exclude",    "platform.group",       "platform.hwrule",     "platform.nfttable",
    "platform.tpid.single", "platform.tpid.outer", "platform.tpid.inner",
    "platform.taskpolicy", "platform.loglevel",    "platform.announce",   "platform.rxring",
};

// A configuration every junk line is added to: one good line per key.
const std::string kBaseline =
    "# baseline\n"
    "pppoeplus.enable = true\n"
    "pppoeplus.maxifnum = 20\n"
    "pppoeplus.defaultenable = true\n"
    "platform.vendorid = 3561\n"
    "platform.sysname = node-1\n"
    "platform.hwrule = none\n"
    "platform.loglevel = 6\n"
    "port.c1 = kind=eth slot=1 port=1\n"
    "port.c2 = kind=gpon slot=2 port=3\n";
const size_t kBaselineLines = 10;

// Junk values: the text after "key = ".
const std::vector<std::string> kJunk = {
    "",  "junk", "0x", "0xZZ", "-1", "99999999999999999999", "t f", "\"", "\"\"", "\"quoted junk\"", "#no comment",
    "a=b=c", "\t \t", "\x01\x02\x7f", "\xc3\xa9t\xc3\xa9", "../../etc/passwd", "%s%s%s%n", "' OR 1=1 --",
};

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t\r");
    size_t e = s.find_last_not_of(" \t\r");
    return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

// The value the reader keeps for a value text as written.
std::string kept(const std::string& written) {
    std::string v = trim(written);
    if (v.size() >= 2 && v.front() == '"' && v.back() == '"') v = v.substr(1, v.size() - 2);
    return v;
}

bool samePorts(const ConfigData& a, const ConfigData& b, const std::string& except) {
    for (const auto& [name, spec] : a.ports) {
        if (name == except) continue;
        auto it = b.ports.find(name);
        if (it == b.ports.end() || it->second.ondType != spec.ondType || it->second.slot != spec.slot ||
            it->second.port != spec.port || it->second.sys != spec.sys || it->second.subPort != spec.subPort)
            return false;
    }
    return true;
}

// Whether a value of `key` draws the warning of truth words the start-up
// options do not read: they look at its first character only.
bool truthWarning(const std::string& key, const std::string& value) {
    const char first = value.empty() ? '\0' : value[0];
    if (first == 't' || first == 'T' || first == 'f' || first == 'F') return false;
    if (key == "pppoeplus.enable") return !value.empty();
    for (const char* k : {"pppoeplus.defaultenable", "pppoeplus.defaultportenable", "pppoeplus.ethifenable",
                          "pppoeplus.ethaggifenable", "pppoeplus.gponifenable", "pppoeplus.ponaggifenable"})
        if (key == k) return true;
    return false;
}

TEST(ConfigJunkTest, EveryKeyWithJunkIsKeptAsTextOrRefusedAndChangesNothingElse) {
    const ConfigData base = configParse(kBaseline, "junk.conf");
    ASSERT_TRUE(base.messages.empty());
    const std::string at = "junk.conf:" + std::to_string(kBaselineLines + 1) + ": ";
    std::vector<std::string> keys = kOptions;
    keys.insert(keys.end(), kSettings.begin(), kSettings.end());
    int rows = 0;
    for (const std::string& key : keys) {
        std::vector<std::string> junk = kJunk;
        junk.push_back(std::string(linuxplat::CONFIG_MAX_VALUE + 1, 'v'));  // too long
        junk.push_back(std::string("a\0b", 3));                             // a NUL byte
        junk.push_back(std::string(linuxplat::CONFIG_MAX_LINE, 'w'));      // the line too long
        for (const std::string& j : junk) {
            SCOPED_TRACE(key + " = [" + j.substr(0, 40) + "]");
            const ConfigData c = configParse(kBaseline + key + " = " + j + "\n", "junk.conf");
            rows++;
            // Nothing else read changes.
            for (const auto& [k, v] : base.values) {
                if (k != key) {
                    EXPECT_EQ(v, c.values.count(k) ? c.values.at(k) : "<gone>") << k;
                }
            }
            EXPECT_TRUE(samePorts(base, c, ""));
            EXPECT_EQ(base.ports.size(), c.ports.size());

            const bool nul = j.find('\0') != std::string::npos;
            const bool lineTooLong = key.size() + 3 + j.size() > linuxplat::CONFIG_MAX_LINE;
            const bool valueTooLong = kept(j).size() > linuxplat::CONFIG_MAX_VALUE;
            if (nul || lineTooLong || valueTooLong) {
                // Refused, with where and why; the key keeps what it had.
                ASSERT_EQ(1u, c.messages.size());
                EXPECT_EQ(0u, c.messages[0].find(at)) << c.messages[0];
                const char* why = lineTooLong ? "line longer than" : nul ? "NUL byte" : "too long";
                EXPECT_NE(std::string::npos, c.messages[0].find(why)) << c.messages[0];
                EXPECT_EQ(base.values.count(key) ? base.values.at(key) : "<none>",
                          c.values.count(key) ? c.values.at(key) : "<none>");
                continue;
            }
            // Kept as text: the consumer of the setting judges it. A word
            // that a start-up truth option does not read draws a warning
            // naming the line first.
            ASSERT_EQ(1u, c.values.count(key));
            EXPECT_EQ(kept(j), c.values.at(key));
            std::vector<std::string> expected;
            if (truthWarning(key, kept(j)))
                expected.push_back(at + (key == "pppoeplus.enable" ? "pppoeplus.enable = '" + kept(j) + "' lets"
                                                                   : key + " takes true or false; '" + kept(j) + "'"));
            if (base.values.count(key)) expected.push_back(at + "'" + key + "' given again, this line counts");
            ASSERT_EQ(expected.size(), c.messages.size());
            for (size_t i = 0; i < expected.size(); i++)
                EXPECT_EQ(0u, c.messages[i].find(expected[i])) << c.messages[i];
        }
    }
    EXPECT_GT(rows, 500);
}

TEST(ConfigJunkTest, MisspelledAndForeignKeysAreRefused) {
    const ConfigData base = configParse(kBaseline, "junk.conf");
    const std::string at = "junk.conf:" + std::to_string(kBaselineLines + 1) + ": ";
    const std::vector<std::pair<std::string, std::string>> lines = {
        {"pppoeplus.enabled = true", "unknown option 'pppoeplus.enabled'"},
        {"pppoeplus. = 1", "unknown option 'pppoeplus.'"},
        {"platform.rxrings = no", "unknown setting 'platform.rxrings'"},
        // The rules load in process: there is no nft tool to name any more.
        {"platform.nft = /usr/sbin/nft", "unknown setting 'platform.nft'"},
        {"Platform.vendorid = 1", "unknown key 'Platform.vendorid'"},
        {"vendorid = 1", "unknown key 'vendorid'"},
        {"platform vendorid = 1", "bad characters in key 'platform vendorid'"},
        {"platform.vendor$id = 1", "bad characters in key"},
        {"= 1", "empty key"},
        {"just words", "expected 'key = value'"},
        {"port.bad/name = kind=eth", "is not an interface name"},
        {"port.waytoolonginterfacename = kind=eth", "is not an interface name"},
        {"port. = kind=eth", "is not an interface name"},
        {"port.c1 = kind=ufo", "unknown kind 'ufo'"},
        {"port.c1 = slot=x", "'slot' needs a number"},
        {"port.c1 = port=-1", "'port' needs a number"},
        {"port.c1 = port=99999999999", "'port' needs a number"},
        {"port.c1 = colour=5", "unknown word 'colour'"},
        {"port.c1 = colour=red", "unknown word 'colour' (kind, sys, slot, port, subport)"},
        {"port.c1 = kind", "expected name=value"},
        {"port.c1 = =eth", "expected name=value"},
        {"port.c1 = kind=", "expected name=value"},
        {"port.c1 =", "empty port description"},
        {"port.c1 = , ,", "empty port description"},
    };
    for (const auto& [line, why] : lines) {
        SCOPED_TRACE(line);
        const ConfigData c = configParse(kBaseline + line + "\n", "junk.conf");
        ASSERT_EQ(1u, c.messages.size());
        EXPECT_EQ(0u, c.messages[0].find(at)) << c.messages[0];
        EXPECT_NE(std::string::npos, c.messages[0].find(why)) << c.messages[0];
        EXPECT_NE(std::string::npos, c.messages[0].find("ignored")) << c.messages[0];
        EXPECT_EQ(base.values, c.values);
        EXPECT_TRUE(samePorts(base, c, ""));
        EXPECT_EQ(base.ports.size(), c.ports.size());
    }
}

TEST(ConfigJunkTest, NumbersAndSwitchesWithJunkFallBackToTheirDefaults) {
    lt::TempDir dir;
    std::string conf = dir.file("junk.conf",
                                "platform.vendorid = junk\n"
                                "platform.loglevel = 0xZZ\n"
                                "platform.tpid.single = -1\n"
                                "platform.tpid.outer = 99999999999999999999\n"
                                "platform.tpid.inner = \"\"\n"
                                "platform.announce = perhaps\n"
                                "platform.rxring = ?\n"
                                "platform.sysmac = 02:00:00:00:00\n");
    auto r = lt::runChild("", {"PPPOEPLUS_CONF=" + conf, "PPPOEPLUS_LOG=stderr"}, [] {
        CHECK_EQ(0u, linuxplat::configGetU32("platform.vendorid", 0));
        CHECK_EQ(7u, linuxplat::configGetU32("platform.loglevel", 7));
        CHECK_EQ(0x8100u, linuxplat::configGetU32("platform.tpid.single", 0x8100));
        CHECK_EQ(0x88a8u, linuxplat::configGetU32("platform.tpid.outer", 0x88a8));
        CHECK_EQ(0x8100u, linuxplat::configGetU32("platform.tpid.inner", 0x8100));
        CHECK_TRUE(!linuxplat::configParseBool(linuxplat::configGetOr("platform.announce", "yes")).has_value());
        CHECK_TRUE(!linuxplat::configParseBool(linuxplat::configGetOr("platform.rxring", "yes")).has_value());
        uint8_t mac[6];
        CHECK_TRUE(!linuxplat::configParseMac(linuxplat::configGetOr("platform.sysmac", ""), mac));
    });
    EXPECT_TRUE(r.ok()) << r.failures;
}

class ConfigJunkDaemonTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LT_NEED_NETNS();
        ns_ = std::make_unique<lt::Netns>();
        ASSERT_TRUE(ns_->ok());
        ASSERT_EQ(0, ns_->sh("ip link add j1 type veth peer name j2 && ip link set j1 up && ip link set j2 up"));
        log_ = dir_.path() + "/stderr.txt";
    }
    void TearDown() override {
        if (daemon_.pid > 0 && lt::waitFor(daemon_.pid, 0) == -1) {
            ::kill(daemon_.pid, SIGKILL);
            lt::waitFor(daemon_.pid, 5000);
        }
    }
    void start(const std::string& text) {
        std::string conf = dir_.file("junk.conf", text);
        daemon_ = lt::spawn({"ip", "netns", "exec", ns_->name(), PPPOEPLUSD_PATH},
                            {"PPPOEPLUS_CONF=" + conf, "PPPOEPLUS_LOG=stderr", "PPPOEPLUS_ROOT=" + dir_.path()}, log_);
    }
    std::unique_ptr<lt::Netns> ns_;
    lt::TempDir dir_;
    std::string log_;
    lt::Process daemon_;
};

using lt::contains;

TEST_F(ConfigJunkDaemonTest, JunkInEverySettingRunsOnTheDefaults) {
    start("pppoeplus.maxifnum = junk\n"
          "pppoeplus.maxsubsysnum = junk\n"
          "pppoeplus.defaultenable = maybe\n"
          "pppoeplus.defaultportenable = maybe\n"
          "pppoeplus.ethifenable = ?\n"
          "platform.vendorid = junk\n"
          "platform.sysmac = not-a-mac\n"
          "platform.group = no-such-group-here\n"
          "platform.hwrule = sometimes\n"
          "platform.nfttable = bad table\n"
          "platform.taskpolicy = whenever\n"
          "platform.loglevel = loud\n"
          "platform.announce = perhaps\n"
          "platform.rxring = ?\n"
          "platform.tpid.single = junk\n"
          "port.j1 = kind=ufo\n");
    const std::string cmd = dir_.path() + "/pppoeplusNm.socket";
    ASSERT_TRUE(lt::waitForPath(cmd, 10000)) << lt::readFile(log_);
    for (int i = 0; i < 100 && !contains(lt::readFile(log_), "pppoeplusd running"); i++) ::usleep(50000);
    const std::string log = lt::readFile(log_);
    EXPECT_TRUE(contains(log, "pppoeplusd running")) << log;
    EXPECT_TRUE(contains(log, "junk.conf:16: port j1: unknown kind 'ufo'")) << log;
    EXPECT_TRUE(contains(log, "platform.vendorid: 'junk' is not a number")) << log;
    EXPECT_TRUE(contains(log, "platform.group 'no-such-group-here' not found")) << log;

    // The defaults: agent off (a start-up switch that is neither t nor f
    // leaves it), the default vendor id, the 180-entry table.
    auto get = [&](uint32_t code) {
        cmdp::CallRequest req;
        req.code = 1;
        req.cmd = code;
        req.valueKind = cmdp::VALUE_U32;
        cmdp::CallReply reply;
        std::string error;
        EXPECT_EQ(0, cmdp::call(cmd, req, reply, error)) << error;
        EXPECT_EQ(0, reply.result) << code;
        return reply.lenWord;
    };
    EXPECT_EQ(2u, get(3));     // enable: ZEL_FALSE
    EXPECT_EQ(3561u, get(4));  // vendor id
    EXPECT_EQ(2u, get(13));    // all-port: ZEL_FALSE
    EXPECT_EQ(1u, get(14));    // Ethernet ports: ZEL_TRUE (the default)

    ASSERT_EQ(0, ::kill(daemon_.pid, SIGTERM));
    int status = lt::waitFor(daemon_.pid, 5000);
    daemon_.pid = -1;
    ASSERT_NE(-1, status);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(ConfigJunkDaemonTest, StartUpOptionsThatStopTheStartSayWhy) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"pppoeplus.enable = false-ish\n", "pppoeplus.enable = 'false-ish'"},
        {"pppoeplus.poncommontype = ponxxx\n", "pppoeplus.poncommontype = 'ponxxx'"},
        {"pppoeplus.poncommontype = x\n", "pppoeplus.poncommontype = 'x'"},
        {"pppoeplus.maxifnum = 99999999\n", "start-up failed"},
    };
    for (const auto& [line, said] : cases) {
        SCOPED_TRACE(line);
        start(line);
        int status = lt::waitFor(daemon_.pid, 10000);
        daemon_.pid = -1;
        ASSERT_NE(-1, status) << "did not end";
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(255, WEXITSTATUS(status));
        const std::string log = lt::readFile(log_);
        EXPECT_TRUE(contains(log, "start-up failed, exiting with status -1")) << log;
        EXPECT_TRUE(contains(log, said)) << log;
    }
}

}  // namespace
