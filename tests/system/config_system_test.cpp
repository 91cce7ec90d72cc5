// The configuration file as the whole agent lives with it: settings made
// with pppoeplusctl and saved come back after a restart, a port created
// again gets its declared settings back, a broken file changes nothing on
// SIGHUP or `pppoeplusctl config reload`, and a good reload changes what the
// server receives without touching the counters. Real peers: pppoe and
// pppoe-server, captures decoded by tshark.
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "lab.h"
#include "lab_test.h"

namespace {

using st::Capture;
using st::Decoded;
using st::Frame;
using st::Lab;
using st::Result;

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// `text` with the first `from` in it made `to`; a `from` not there fails the test.
void replaceOnce(std::string& text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    if (at == std::string::npos) {
        ADD_FAILURE() << "'" << from << "' is not in:\n" << text;
        return;
    }
    text.replace(at, from.size(), to);
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

// The counters of `if IF counters`, by name ("padi-rcv" -> 1).
std::map<std::string, long> counters(const std::string& text) {
    std::map<std::string, long> out;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        const size_t colon = line.find(':');
        if (line.compare(0, 2, "  ") != 0 || colon == std::string::npos) continue;
        std::string name = line.substr(2, colon - 2);
        out[name] = std::stol(line.substr(colon + 1));
    }
    return out;
}

class ConfigSystemTest : public st::LabTest {
  protected:
    // Waits until `pppoeplusctl args` prints `expected` (the configuration is
    // applied by the daemon's own thread, a moment after an event).
    bool waitCtl(const std::vector<std::string>& args, const std::string& expected, int ms = 10000) {
        for (int waited = 0;; waited += 50) {
            if (lab_->ctl(args).out == expected) return true;
            if (waited >= ms) return false;
            ::usleep(50000);
        }
    }

    // What the management interface shows of the agent's state: the global
    // settings, each port's settings and the interface list with counters.
    std::string snapshot() {
        return "get:\n" + ctl({"get"}) + "if p1 get:\n" + ctl({"if", "p1", "get"}) + "if p2 get:\n" +
               ctl({"if", "p2", "get"}) + "if list:\n" + ctl({"if", "list"});
    }

    // One discovery of the real client on c0 (PADI, PADO, PADR, PADS); the
    // Circuit-ID of the PADI the server received.
    std::string discoverCircuitId() {
        Capture cap(lab_->server(), "s0");
        EXPECT_TRUE(cap.ok());
        Result client = lab_->in(lab_->client(), {"timeout", "30", "pppoe", "-I", "c0", "-d"}, 40);
        EXPECT_EQ(0, client.status) << client.all();
        const std::string c0 = Lab::macOf("c0");
        cap.waitFor([&](const std::vector<Frame>&) { return cap.received(c0).size() >= 2; });
        std::vector<Decoded> d = tshark(cap, cap.received(c0));
        for (const Decoded& f : d)
            if (f.code == "0x09") {
                EXPECT_EQ("3561", f.vendorId);
                return f.circuitId;
            }
        ADD_FAILURE() << "the server received no PADI from " << c0;
        return "";
    }
};

// ---- saved and restarted -------------------------------------------------------------------------

TEST_F(ConfigSystemTest, SettingsMadeWithTheToolAndSavedAreTheSameAfterARestart) {
    ST_NEED(true, false);
    Lab::Options o;
    o.trustUplinks = false;  // trusted below, with the tool
    LAB_UP(o);
    ASSERT_TRUE(lab.startServer()) << lab.why();
    const std::string original = readFile(lab.confPath());

    ctl({"if", "p2", "set", "trust", "on"});
    ASSERT_TRUE(lab.waitForRuleSet({"p1"})) << ::testing::PrintToString(lab.ruleSet());
    ctl({"set", "policy", "replace"});
    ctl({"if", "p1", "set", "circuit-id-type", "userdefine"});
    ctl({"if", "p1", "set", "circuit-id-format", "'saved/%portname/%svlan.%cvlan'"});
    const std::string before = snapshot();
    const std::string shownBefore = ctl({"config", "show"});
    EXPECT_EQ("saved/p1/0.0", discoverCircuitId());

    Result save = lab.ctl({"config", "save"});
    ASSERT_EQ(0, save.status) << save.all();
    EXPECT_EQ(0u, save.out.find(lab.confPath() + ": ")) << save.out;
    EXPECT_TRUE(contains(save.out, " operational setting(s) saved; the previous file is " + lab.confPath() + ".bak\n"))
        << save.out;
    // The previous file is kept whole; the new one keeps its lines where they
    // were and ends with the operational block.
    EXPECT_EQ(original, readFile(lab.confPath() + ".bak"));
    const std::string saved = readFile(lab.confPath());
    EXPECT_EQ(0u, saved.find(original)) << saved;
    for (const char* line : {"agent.policy = replace\n", "if.p2.trust = on\n",
                                    "if.p1.circuit-id-type = userdefine\n"})
        EXPECT_TRUE(contains(saved, line)) << line << "\n" << saved;
    EXPECT_TRUE(contains(saved, "if.p1.circuit-id-format = ")) << saved;
    Result check = lab.ctl({"config", "check", lab.confPath()});
    EXPECT_EQ(0, check.status) << check.all();

    ASSERT_EQ(0, lab.stopDaemon());
    ASSERT_TRUE(lab.startDaemon()) << lab.why();
    // No management call since the start: the file alone set all of it.
    ASSERT_TRUE(waitCtl({"if", "p1", "get", "circuit-id-format"},
                        "circuit-id-format: 'saved/%portname/%svlan.%cvlan'\n"))
        << lab.ctl({"if", "p1", "get"}).all() << lab.daemonLog();
    ASSERT_TRUE(lab.waitForRuleSet({"p1"})) << ::testing::PrintToString(lab.ruleSet());
    EXPECT_EQ(before, snapshot());
    EXPECT_EQ(shownBefore, ctl({"config", "show"}));
    EXPECT_EQ("saved/p1/0.0", discoverCircuitId());
    EXPECT_EQ("padi-rcv: 1\n", ctl({"if", "p1", "get", "padi-rcv"}));
    EXPECT_EQ("total-send: 2\n", ctl({"if", "p2", "get", "total-send"}));
}

// ---- hot-plug ------------------------------------------------------------------------------------------

TEST_F(ConfigSystemTest, APortDeletedAndCreatedAgainGetsItsDeclaredSettingsBack) {
    ST_NEED(true, false);
    Lab::Options o;
    o.trustUplinks = false;  // the file trusts the uplink
    // Subscriber ports by pattern; p1's own policy by name.
    o.conf = "if.p2.trust = on\n"
             "if.p?.circuit-id-type = userdefine\n"
             "if.p?.circuit-id-format = 'port %portname'\n"
             "if.p1.policy = drop\n";
    LAB_UP(o);
    ASSERT_TRUE(lab.startServer()) << lab.why();
    ASSERT_TRUE(lab.waitForRuleSet({"p1"})) << ::testing::PrintToString(lab.ruleSet());
    ASSERT_TRUE(waitCtl({"if", "p1", "get", "policy"}, "policy: drop\n")) << lab.daemonLog();
    EXPECT_EQ("port p1", discoverCircuitId());
    const std::string p1Before = ctl({"if", "p1", "get"});
    const uint32_t unitBefore = lab.unit("p1");

    // The client's link deleted (its peer goes with it): the entry goes.
    ASSERT_EQ(0, st::exec({"ip", "-n", lab.agent(), "link", "del", "p1"}).status);
    Result gone;
    for (int i = 0; i < 200; i++) {
        gone = lab.ctl({"if", std::to_string(unitBefore), "get", "enable"});
        if (gone.status != 0) break;
        ::usleep(50000);
    }
    ASSERT_EQ(1, gone.status) << gone.all();

    // Created again under the same name, in the bridge: no management call.
    ASSERT_EQ(0, st::exec({"ip", "-n", lab.agent(), "link", "add", "p1", "address", Lab::macOf("p1"), "type", "veth",
                           "peer", "name", "c0", "address", Lab::macOf("c0"), "netns", lab.client()})
                     .status);
    ASSERT_EQ(0, st::exec({"ip", "-n", lab.agent(), "link", "set", "p1", "master", "br0", "up"}).status);
    ASSERT_EQ(0, st::exec({"ip", "-n", lab.client(), "link", "set", "c0", "up"}).status);
    ASSERT_TRUE(lab.waitForEntry("p1")) << lab.ctl({"if", "list"}).all();
    EXPECT_NE(unitBefore, lab.unit("p1"));
    ASSERT_TRUE(waitCtl({"if", "p1", "get", "policy"}, "policy: drop\n")) << lab.daemonLog();
    EXPECT_EQ("circuit-id-type: userdefine\n", ctl({"if", "p1", "get", "circuit-id-type"}));
    EXPECT_EQ("circuit-id-format: 'port %portname'\n", ctl({"if", "p1", "get", "circuit-id-format"}));
    ASSERT_TRUE(lab.waitForRuleSet({"p1"})) << ::testing::PrintToString(lab.ruleSet());
    // The same settings as the first p1 had; its counters start again.
    const std::string p1After = ctl({"if", "p1", "get"});
    // (after the first line, which names the new unit)
    auto settings = [](const std::string& get) {
        return get.substr(get.find('\n'), get.find("error-rcv") - get.find('\n'));
    };
    EXPECT_EQ(settings(p1Before), settings(p1After));
    EXPECT_EQ("port p1", discoverCircuitId());
    EXPECT_EQ("padi-rcv: 1\n", ctl({"if", "p1", "get", "padi-rcv"}));
    // The port coming back is no error of the file: its lines wait for its entry.
    const std::string log = lab.daemonLog();
    EXPECT_FALSE(contains(log, "configuration: " + lab.confPath() + ":")) << log;
}

TEST_F(ConfigSystemTest, PortsCreatedAgainAndAgainGetTheirLinesWithoutAnErrorLogged) {
    ST_NEED(false, false);
    Lab::Options o;
    o.conf = "if.q*.policy = keep\n"
             "if.q*.circuit-id-type = ascii\n"
             "if.q*.circuit-id-format = hot-plugged\n";
    LAB_UP(o);
    // Ports appear while the agent is making the entries of the ones before:
    // their lines wait for each entry instead of failing on it, however the
    // link's event and the entry interleave.
    const int ports = 16;
    std::string add, del;
    for (int i = 0; i < ports; i++) {
        const std::string q = "q" + std::to_string(i), c = "c" + std::to_string(10 + i);
        add += "link add " + q + " type veth peer name " + c + " netns " + lab.client() + "\n";
        add += "link set " + q + " master br0 up\n";
        del += "link del " + q + "\n";
    }
    const std::string addFile = lab.runtimeDir() + "/add.batch", delFile = lab.runtimeDir() + "/del.batch";
    writeFile(addFile, add);
    writeFile(delFile, del);
    for (int round = 0; round < 10; round++) {
        SCOPED_TRACE("round " + std::to_string(round));
        Result r = st::exec({"ip", "-n", lab.agent(), "-batch", addFile});
        ASSERT_EQ(0, r.status) << r.all();
        for (int i = 0; i < ports; i++) {
            const std::string q = "q" + std::to_string(i);
            ASSERT_TRUE(lab.waitForEntry(q)) << q;
            ASSERT_TRUE(waitCtl({"if", q, "get", "circuit-id-format"}, "circuit-id-format: hot-plugged\n")) << q;
            ASSERT_TRUE(waitCtl({"if", q, "get", "policy"}, "policy: keep\n")) << q;
        }
        r = st::exec({"ip", "-n", lab.agent(), "-batch", delFile});
        ASSERT_EQ(0, r.status) << r.all();
        for (int i = 0; i < 200 && contains(ctl({"if", "list"}), " q"); i++) ::usleep(20000);
    }
    const std::string log = lab.daemonLog();
    EXPECT_FALSE(contains(log, "configuration: " + lab.confPath() + ":")) << log;
}

// ---- reload ------------------------------------------------------------------------------------------------

TEST_F(ConfigSystemTest, ABrokenFileChangesNothingOnSighupNorOnConfigReload) {
    ST_NEED(true, false);
    Lab::Options o;
    o.trustUplinks = false;
    o.conf = "if.p2.trust = on\n"
             "if.p1.circuit-id-type = userdefine\n"
             "if.p1.circuit-id-format = 'first %portname'\n";
    LAB_UP(o);
    ASSERT_TRUE(lab.startServer()) << lab.why();
    ASSERT_TRUE(lab.waitForRuleSet({"p1"})) << ::testing::PrintToString(lab.ruleSet());
    ASSERT_TRUE(waitCtl({"if", "p1", "get", "circuit-id-type"}, "circuit-id-type: userdefine\n"));
    EXPECT_EQ("first p1", discoverCircuitId());  // counters that are not zero
    const std::string before = snapshot();
    const std::string shownBefore = ctl({"config", "show"});

    // A good change (a new format, the uplink untrusted) and, on line 9, a
    // policy that does not exist: none of it may be applied.
    const std::string good = readFile(lab.confPath());
    std::string broken = good;
    replaceOnce(broken, "'first %portname'", "'second %portname'");
    replaceOnce(broken, "if.p2.trust = on", "if.p2.trust = off");
    broken += "if.p1.policy = sideways\n";
    ASSERT_EQ(8, std::count(good.begin(), good.end(), '\n')) << good;
    writeFile(lab.confPath(), broken);
    const std::string where = lab.confPath() + ":9: ";

    ASSERT_TRUE(lab.signalDaemon(SIGHUP));
    const std::string logged = "configuration reload: 1 error(s) in " + lab.confPath() + "; nothing changed";
    for (int i = 0; i < 200 && !contains(lab.daemonLog(), logged); i++) ::usleep(50000);
    const std::string log = lab.daemonLog();
    EXPECT_TRUE(contains(log, logged)) << log;
    EXPECT_TRUE(contains(log, "configuration reload: " + where)) << log;
    EXPECT_EQ(before, snapshot());
    EXPECT_EQ(shownBefore, ctl({"config", "show"}));
    EXPECT_EQ(std::vector<std::string>{"p1"}, lab.ruleSet());

    Result reload = lab.ctl({"config", "reload"});
    EXPECT_EQ(1, reload.status) << reload.all();
    EXPECT_EQ("", reload.out);
    EXPECT_EQ(0u, reload.err.find(where)) << reload.err;
    EXPECT_TRUE(contains(reload.err, "sideways")) << reload.err;
    EXPECT_TRUE(contains(reload.err, "pppoeplusctl: config reload: nothing changed\n")) << reload.err;
    EXPECT_EQ(before, snapshot());
    EXPECT_EQ(shownBefore, ctl({"config", "show"}));
    EXPECT_EQ(std::vector<std::string>{"p1"}, lab.ruleSet());
    EXPECT_EQ("first p1", discoverCircuitId());
}

TEST_F(ConfigSystemTest, AReloadThatChangesAFormatChangesTheNextPadiAndLeavesTheCounters) {
    ST_NEED(true, false);
    Lab::Options o;
    o.trustUplinks = false;
    o.conf = "if.p2.trust = on\n"
             "if.p1.circuit-id-type = userdefine\n"
             "if.p1.circuit-id-format = 'before %portname'\n";
    LAB_UP(o);
    ASSERT_TRUE(lab.startServer()) << lab.why();
    ASSERT_TRUE(lab.waitForRuleSet({"p1"})) << ::testing::PrintToString(lab.ruleSet());
    ASSERT_TRUE(waitCtl({"if", "p1", "get", "circuit-id-type"}, "circuit-id-type: userdefine\n"));
    EXPECT_EQ("before p1", discoverCircuitId());
    const std::map<std::string, long> p1 = counters(ctl({"if", "p1", "counters"}));
    const std::map<std::string, long> p2 = counters(ctl({"if", "p2", "counters"}));
    ASSERT_EQ(1, p1.at("padi-rcv"));
    ASSERT_EQ(2, p2.at("total-send"));

    std::string text = readFile(lab.confPath());
    replaceOnce(text, "'before %portname'", "'after %portname'");
    writeFile(lab.confPath(), text);
    Result reload = lab.ctl({"config", "reload"});
    ASSERT_EQ(0, reload.status) << reload.all();
    EXPECT_EQ("changed: if.p1.circuit-id-format = 'after %portname'\n" + lab.confPath() +
                  ": reloaded, 1 setting(s) changed\n",
              reload.out);
    EXPECT_EQ("circuit-id-format: 'after %portname'\n", ctl({"if", "p1", "get", "circuit-id-format"}));
    // The reload touched no counter.
    EXPECT_EQ(p1, counters(ctl({"if", "p1", "counters"})));
    EXPECT_EQ(p2, counters(ctl({"if", "p2", "counters"})));

    EXPECT_EQ("after p1", discoverCircuitId());
    // No counter went back; the new discovery counted on top.
    const std::map<std::string, long> p1After = counters(ctl({"if", "p1", "counters"}));
    const std::map<std::string, long> p2After = counters(ctl({"if", "p2", "counters"}));
    ASSERT_EQ(p1.size(), p1After.size());
    for (const auto& [name, value] : p1) EXPECT_LE(value, p1After.at(name)) << name;
    for (const auto& [name, value] : p2) EXPECT_LE(value, p2After.at(name)) << name;
    EXPECT_EQ(2, p1After.at("padi-rcv"));
    EXPECT_EQ(4, p2After.at("total-send"));
}

}  // namespace
