// The configuration file parser, on canned text.
#include <gtest/gtest.h>

#include <cstring>

#include <fstream>
#include <sstream>

#include "platform/linux/config.h"

namespace {

using linuxplat::configParse;
using linuxplat::configParseBool;
using linuxplat::configParseMac;
using linuxplat::configParsePort;
using linuxplat::configParseU32;
using linuxplat::PortSpec;

TEST(ConfigParse, KeysValuesCommentsAndBlanks) {
    auto c = configParse(
        "# a comment\n"
        "\n"
        "  pppoeplus.defaultenable = true  \n"
        "pppoeplus.poncommontype=pon-onu\r\n"
        "\t# indented comment\n"
        "platform.devicename = \"olt one\"\n",
        "f.conf");
    EXPECT_TRUE(c.messages.empty()) << c.messages[0];
    EXPECT_EQ("true", c.values["pppoeplus.defaultenable"]);
    EXPECT_EQ("pon-onu", c.values["pppoeplus.poncommontype"]);
    EXPECT_EQ("olt one", c.values["platform.devicename"]);
}

TEST(ConfigParse, BadLinesAreReportedWithFileAndLineAndIgnored) {
    auto c = configParse(
        "pppoeplus.enable = true\n"
        "no equals sign\n"
        " = value\n"
        "other.key = 1\n"
        "pppoeplus.unknown = 1\n"
        "platform.nosuch = 1\n"
        "bad key! = 1\n"
        "port.eth1 = kind=wifi\n"
        "port.bad/name = kind=eth\n"
        "pppoeplus.maxifnum = 4\n",
        "/etc/x.conf");
    ASSERT_EQ(8u, c.messages.size());
    EXPECT_EQ("/etc/x.conf:2: expected 'key = value', ignored", c.messages[0]);
    EXPECT_EQ("/etc/x.conf:3: empty key, ignored", c.messages[1]);
    EXPECT_NE(std::string::npos, c.messages[2].find("/etc/x.conf:4: unknown key 'other.key'"));
    EXPECT_NE(std::string::npos, c.messages[3].find("/etc/x.conf:5: unknown option 'pppoeplus.unknown'"));
    EXPECT_NE(std::string::npos, c.messages[4].find("/etc/x.conf:6: unknown setting"));
    EXPECT_NE(std::string::npos, c.messages[5].find("/etc/x.conf:7: bad characters"));
    EXPECT_NE(std::string::npos, c.messages[6].find("/etc/x.conf:8: port eth1: unknown kind 'wifi'"));
    EXPECT_NE(std::string::npos, c.messages[7].find("/etc/x.conf:9: 'bad/name' is not an interface name"));
    EXPECT_EQ(2u, c.values.size());
    EXPECT_EQ("4", c.values["pppoeplus.maxifnum"]);
    EXPECT_TRUE(c.ports.empty());
}

TEST(ConfigParse, LongLinesNulBytesAndLongValuesAreRefused) {
    std::string text = "pppoeplus.enable = " + std::string(2000, 'x') + "\n";
    text += std::string("platform.devicename = a\0b\n", 26);
    text += "platform.devicename = " + std::string(600, 'y') + "\n";
    text += "pppoeplus.maxifnum = 3";  // no final line end
    auto c = configParse(text, "f");
    ASSERT_EQ(3u, c.messages.size());
    EXPECT_NE(std::string::npos, c.messages[0].find("f:1: line longer than 1024"));
    EXPECT_NE(std::string::npos, c.messages[1].find("f:2: line holds a NUL byte"));
    EXPECT_NE(std::string::npos, c.messages[2].find("f:3: value of 'platform.devicename' too long"));
    EXPECT_EQ(1u, c.values.size());
    EXPECT_EQ("3", c.values["pppoeplus.maxifnum"]);
}

TEST(ConfigParse, RepeatedKeyKeepsTheLastAndSaysSo) {
    auto c = configParse("platform.vendorid = 1\nplatform.vendorid = 2\n", "f");
    ASSERT_EQ(1u, c.messages.size());
    EXPECT_EQ("f:2: 'platform.vendorid' given again, this line counts", c.messages[0]);
    EXPECT_EQ("2", c.values["platform.vendorid"]);
}

TEST(ConfigParse, PortLines) {
    auto c = configParse(
        "port.eth1 = kind=eth slot=2 port=5 sys=1\n"
        "port.bond0 = kind=ethagg port=3\n"
        "port.pon1 = kind=gpon,slot=4\n"
        "port.br0 = kind=none\n",
        "f");
    EXPECT_TRUE(c.messages.empty());
    ASSERT_EQ(4u, c.ports.size());
    const PortSpec& e = c.ports["eth1"];
    EXPECT_EQ(1u, e.ondType.value());
    EXPECT_EQ(2u, e.slot.value());
    EXPECT_EQ(5u, e.port.value());
    EXPECT_EQ(1u, e.sys.value());
    EXPECT_FALSE(e.subPort.has_value());
    EXPECT_EQ(2u, c.ports["bond0"].ondType.value());
    EXPECT_EQ(11u, c.ports["pon1"].ondType.value());
    EXPECT_EQ(4u, c.ports["pon1"].slot.value());
    EXPECT_EQ(0u, c.ports["br0"].ondType.value());
}

TEST(ConfigParse, PortWordsAreChecked) {
    PortSpec s;
    std::string err;
    EXPECT_FALSE(configParsePort("", s, err));
    EXPECT_EQ("empty port description", err);
    EXPECT_FALSE(configParsePort("kind", s, err));
    EXPECT_FALSE(configParsePort("slot=", s, err));
    EXPECT_FALSE(configParsePort("=3", s, err));
    EXPECT_FALSE(configParsePort("slot=x", s, err));
    EXPECT_EQ("'slot' needs a number, found 'x'", err);
    EXPECT_FALSE(configParsePort("colour=3", s, err));
    EXPECT_EQ("unknown word 'colour' (kind, sys, slot, port, subport)", err);
    EXPECT_FALSE(configParsePort("colour=red", s, err));
    EXPECT_EQ("unknown word 'colour' (kind, sys, slot, port, subport)", err);
    EXPECT_FALSE(configParsePort("port=99999999999", s, err));
    EXPECT_TRUE(configParsePort("subport=0x10", s, err));
    EXPECT_EQ(16u, s.subPort.value());
}

// The start-up options read truth values by their first character only; a
// word such as "yes" or "on" is kept as written and read as the daemon
// always read it, but the line is named, so the operator learns why the
// agent did not come up as meant.
TEST(ConfigParse, TruthWordsTheStartUpOptionsDoNotReadDrawAWarningNamingTheLine) {
    auto c = configParse(
        "pppoeplus.defaultenable = yes\n"
        "pppoeplus.defaultportenable = on\n"
        "pppoeplus.ethifenable = TRUE\n"
        "pppoeplus.gponifenable = false\n"
        "pppoeplus.ponaggifenable = 1\n"
        "pppoeplus.enable = no\n"
        "pppoeplus.enable = true\n"
        "platform.announce = yes\n",
        "f.conf");
    ASSERT_EQ(5u, c.messages.size());
    EXPECT_EQ("f.conf:1: pppoeplus.defaultenable takes true or false; 'yes' is read as neither and leaves the default",
              c.messages[0]);
    EXPECT_EQ("f.conf:2: pppoeplus.defaultportenable takes true or false; 'on' is read as neither and leaves the default",
              c.messages[1]);
    EXPECT_EQ("f.conf:5: pppoeplus.ponaggifenable takes true or false; '1' is read as neither and leaves the default",
              c.messages[2]);
    EXPECT_EQ("f.conf:6: pppoeplus.enable = 'no' lets the daemon start; only a value starting with f stops it",
              c.messages[3]);
    EXPECT_EQ("f.conf:7: 'pppoeplus.enable' given again, this line counts", c.messages[4]);
    EXPECT_EQ("yes", c.values["pppoeplus.defaultenable"]) << "kept as written";
}

TEST(ConfigParse, Numbers) {
    uint32_t v = 0;
    EXPECT_TRUE(configParseU32("3561", v));
    EXPECT_EQ(3561u, v);
    EXPECT_TRUE(configParseU32(" 0x00000DE9 ", v));
    EXPECT_EQ(0xDE9u, v);
    EXPECT_TRUE(configParseU32("4294967295", v));
    EXPECT_FALSE(configParseU32("4294967296", v));
    EXPECT_FALSE(configParseU32("", v));
    EXPECT_FALSE(configParseU32("0x", v));
    EXPECT_FALSE(configParseU32("-1", v));
    EXPECT_FALSE(configParseU32("12a", v));
    // Blanks around the number only; signs, inner blanks and a bare prefix fail.
    EXPECT_TRUE(configParseU32("\t0XdE9\t", v));
    EXPECT_EQ(0xDE9u, v);
    EXPECT_TRUE(configParseU32("007", v));
    EXPECT_EQ(7u, v);
    v = 5;
    for (const char* text : {"+1", "1 2", "0x 1", "0x-1", " 0x ", "0x100000000", "1.0", "   "}) {
        EXPECT_FALSE(configParseU32(text, v)) << '"' << text << '"';
        EXPECT_EQ(5u, v) << "a refused number leaves the value alone";
    }
}

TEST(ConfigParse, MacAddresses) {
    uint8_t mac[6] = {};
    EXPECT_TRUE(configParseMac("00:1a:2B:3c:4d:5e", mac));
    const uint8_t want[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    EXPECT_EQ(0, std::memcmp(want, mac, 6));
    EXPECT_TRUE(configParseMac("00-1a-2b-3c-4d-5f", mac));
    EXPECT_FALSE(configParseMac("00:1a:2b:3c:4d", mac));
    EXPECT_FALSE(configParseMac("00:1a:2b:3c:4d:5g", mac));
    EXPECT_FALSE(configParseMac("001a:2b:3c:4d:5e:6", mac));
}

TEST(ConfigParse, Truth) {
    EXPECT_EQ(true, configParseBool("yes"));
    EXPECT_EQ(true, configParseBool("on"));
    EXPECT_EQ(false, configParseBool("off"));
    EXPECT_EQ(false, configParseBool("False"));
    EXPECT_EQ(std::nullopt, configParseBool("maybe"));
    EXPECT_EQ(std::nullopt, configParseBool(""));
}

TEST(ConfigExample, ReadsWithoutComplaintAndNamesEveryKey) {
    std::ifstream in(std::string(PPPOEPLUS_SOURCE_DIR) + "/examples/pppoeplus.conf");
    ASSERT_TRUE(in.good());
    std::stringstream ss;
    ss << in.rdbuf();
    std::string text = ss.str();
    auto c = configParse(text, "pppoeplus.conf");
    EXPECT_TRUE(c.messages.empty()) << c.messages[0];
    // Every key, set or commented out, with what it does.
    for (const char* key :
         {"pppoeplus.enable", "pppoeplus.maxifnum", "pppoeplus.maxsubsysnum", "pppoeplus.poncommontype",
          "pppoeplus.defaultenable", "pppoeplus.defaultportenable", "pppoeplus.ethifenable",
          "pppoeplus.ethaggifenable", "pppoeplus.gponifenable", "pppoeplus.ponaggifenable", "platform.vendorid",
          "platform.sysmac", "platform.devicename", "platform.sysname", "platform.exclude", "platform.group",
          "platform.hwrule", "platform.nfttable", "platform.tpid.single", "platform.tpid.outer",
          "platform.tpid.inner", "platform.taskpolicy", "platform.loglevel", "platform.announce",
          "platform.requesttimeout", "platform.idletimeout", "port.eth1"})
        EXPECT_NE(std::string::npos, text.find(std::string(key) + " = ")) << key;
    // Uncommenting every example line still reads cleanly.
    std::string all;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        all += (line.size() > 1 && line[0] == '#' && line[1] != ' ' && line[1] != '#' && line[1] != '-' ? line.substr(1)
                                                                                                       : line) +
               "\n";
    auto every = configParse(all, "all");
    EXPECT_TRUE(every.messages.empty()) << every.messages[0];
    EXPECT_EQ(4u, every.ports.size());
}

}  // namespace

// ---- operational lines ------------------------------------------------------------

namespace {

using linuxplat::configOpFor;
using linuxplat::configOpValueText;
using linuxplat::configPatternRank;
using linuxplat::OpSetting;

const OpSetting* opAt(const linuxplat::ConfigData& c, size_t line) {
    for (const OpSetting& op : c.ops)
        if (op.line == line) return &op;
    return nullptr;
}

vocab::CommandInfo ifSetting(const char* name) { return *vocab::findIf(name); }

}  // namespace

TEST(ConfigOpLines, GoodLinesGiveTheSettingAndTheValueWord) {
    struct Row {
        const char* line;
        bool perIf;
        const char* pattern;
        const char* setting;
        uint32_t word;
        const char* text;
    };
    const Row rows[] = {
        {"agent.enable = on", false, "", "enable", 1, ""},
        {"agent.policy = replace", false, "", "policy", 3, ""},
        {"agent.debug = 0x5", false, "", "debug", 5, ""},
        {"agent.vendor-id = 3561", false, "", "vendor-id", 3561, ""},
        {"agent.circuitIdFormatType = userdefine", false, "", "circuit-id-type", 1, ""},
        {"agent.circuit-id-format = '%portname'", false, "", "circuit-id-format", 0, "'%portname'"},
        {"if.eth1.trust = on", true, "eth1", "trust", 1, ""},
        {"if.eth1.trust = off", true, "eth1", "trust", 2, ""},
        {"if.eth0.100.policy = keep", true, "eth0.100", "policy", 1, ""},
        {"if.eth*.circuit-id-format = \" 'a' \"", true, "eth*", "circuit-id-format", 0, " 'a' "},
        {"if.sw[0-9]p?.ignore-pkt = on", true, "sw[0-9]p?", "ignore-pkt", 1, ""},
        {"if.eth2.remote-id-type = ascii", true, "eth2", "remote-id-type", 2, ""},
    };
    for (const Row& r : rows) {
        auto c = configParse(r.line, "f.conf");
        ASSERT_TRUE(c.messages.empty()) << r.line << ": " << c.messages[0];
        ASSERT_EQ(1u, c.ops.size()) << r.line;
        const OpSetting& op = c.ops[0];
        EXPECT_EQ(r.perIf, op.perInterface) << r.line;
        EXPECT_EQ(r.pattern, op.pattern) << r.line;
        EXPECT_STREQ(r.setting, op.setting.name) << r.line;
        EXPECT_EQ(r.word, op.word) << r.line;
        EXPECT_EQ(r.text, op.text) << r.line;
        EXPECT_EQ(1u, op.line);
    }
}

TEST(ConfigOpLines, BadLinesAreErrorsWithTheirLineAndAreLeftOut) {
    struct Row {
        const char* line;
        const char* says;
    };
    const Row rows[] = {
        {"agent.no-such = 1", "no global setting 'no-such'"},
        {"if.eth1.no-such = 1", "no interface setting 'no-such'"},
        {"agent.version = 2", "version is no setting that can be written"},
        {"if.eth1.padi-rcv = 0", "padi-rcv is no setting that can be written"},
        {"if.eth1.stat-clear = 1", "stat-clear is no setting that can be written"},
        {"agent.3 = on", "no global setting '3'"},
        {"if.eth1.trust = maybe", "trust: "},
        {"agent.policy = sometimes", "policy: "},
        {"if.trust = on", "expected if.IFNAME.SETTING"},
        {"if.eth/1.trust = on", "is no interface name or pattern"},
        {"if.eth\"1.trust = on", "is no interface name or pattern"},
        {"agent.vendor-id = 99999999999", "vendor-id: "},
        // The platform's settings outside their ranges.
        {"agent.police-rate = 1000001", "police-rate: 1000001 is out of range (0 to 1000000)"},
        {"if.eth1.police-rate = 2000000", "police-rate: 2000000 is out of range (0 to 1000000)"},
        {"agent.police-burst = 0", "police-burst: 0 is out of range (1 to 1000000)"},
        {"if.eth1.police-burst = 0", "police-burst: 0 is out of range (1 to 1000000)"},
        {"agent.errdisable-time = 86401", "errdisable-time: 86401 is out of range (0 to 86400)"},
        {"agent.errdisable-hold = 0", "errdisable-hold: 0 is out of range (1 to 604800)"},
    };
    for (const Row& r : rows) {
        auto c = configParse(std::string("# one\n") + r.line + "\n", "f.conf");
        ASSERT_EQ(1u, c.errors.size()) << r.line;
        EXPECT_EQ(0u, c.ops.size()) << r.line;
        EXPECT_NE(std::string::npos, c.errors[0].find("f.conf:2: ")) << c.errors[0];
        EXPECT_NE(std::string::npos, c.errors[0].find(r.says)) << r.line << " -> " << c.errors[0];
    }
}

TEST(ConfigOpLines, ThePlatformsSettingsTakeTheEndsOfTheirRanges) {
    auto c = configParse("agent.police-rate = 0\nagent.police-burst = 1000000\nagent.errdisable-time = 86400\n"
                         "agent.errdisable-hold = 1\nif.eth1.police-rate = default\nif.eth1.police-burst = 1\n",
                         "f.conf");
    EXPECT_TRUE(c.errors.empty()) << c.errors.front();
    EXPECT_EQ(6u, c.ops.size());
}

TEST(ConfigOpLines, AFormatOfMoreThan255BytesIsRefused) {
    auto ok = configParse("agent.circuit-id-format = " + std::string(255, 'a'), "f.conf");
    EXPECT_TRUE(ok.errors.empty());
    EXPECT_EQ(1u, ok.ops.size());
    auto bad = configParse("agent.circuit-id-format = " + std::string(256, 'a'), "f.conf");
    ASSERT_EQ(1u, bad.errors.size());
    EXPECT_NE(std::string::npos, bad.errors[0].find("256 bytes, at most 255"));
    EXPECT_TRUE(bad.ops.empty());
}

TEST(ConfigOpLines, AKeyGivenAgainKeepsTheLaterLineWithAWarning) {
    auto c = configParse("if.eth1.policy = keep\nif.eth1.policy = drop\nif.eth*.policy = keep\n", "f.conf");
    EXPECT_TRUE(c.errors.empty());
    ASSERT_EQ(1u, c.messages.size());
    EXPECT_NE(std::string::npos, c.messages[0].find("f.conf:2: 'if.eth1.policy' given again (line 1)"));
    ASSERT_EQ(2u, c.ops.size());
    EXPECT_EQ(2u, opAt(c, 2)->word);
}

TEST(ConfigOpLines, TheMostSpecificLineDecides) {
    auto c = configParse(
        "if.*.policy = drop\n"          // 1
        "if.eth4[0-9].policy = keep\n"  // 2
        "if.eth*.policy = replace\n"    // 3
        "if.eth48.policy = default\n"   // 4
        "if.e*.policy = keep\n"         // 5
        "if.eth4?.trust = on\n"         // 6
        "if.eth4*.trust = off\n",       // 7: as specific as line 6, and later
        "f.conf");
    ASSERT_TRUE(c.errors.empty());
    auto lineFor = [&](const char* setting, const char* ifName) -> size_t {
        const OpSetting* op = configOpFor(c.ops, true, ifSetting(setting), ifName);
        return op == nullptr ? 0 : op->line;
    };
    EXPECT_EQ(4u, lineFor("policy", "eth48"));  // a plain name beats every pattern
    EXPECT_EQ(2u, lineFor("policy", "eth47"));  // "eth4" and a class: 4 literal characters
    EXPECT_EQ(3u, lineFor("policy", "eth1"));   // "eth" beats "e"
    EXPECT_EQ(5u, lineFor("policy", "em1"));
    EXPECT_EQ(1u, lineFor("policy", "wan0"));
    EXPECT_EQ(7u, lineFor("trust", "eth47"));   // equal rank: the later line
    EXPECT_EQ(0u, lineFor("trust", "wan0"));
    EXPECT_GT(configPatternRank("eth1"), configPatternRank("eth1*"));
    EXPECT_EQ(nullptr, configOpFor(c.ops, false, *vocab::findScalar("policy"), ""));
}

TEST(ConfigOpLines, ValuesAreWrittenSoThatTheyReadBack) {
    const char* lines[] = {
        "agent.enable = on", "agent.enable = off", "agent.policy = keep", "agent.debug = 0xf",
        "agent.vendor-id = 0", "if.e1.circuit-id-type = userdefine", "if.e1.remote-id-type = ascii",
        "if.e1.circuit-id-format = '%portname/%svlan'", "if.e1.circuit-id-format = \" lead\"",
        "if.e1.circuit-id-format = \"\"x\"\"", "if.e1.ignore-pkt = on", "if.e1.police-rate = default",
        "if.e1.police-rate = 50", "agent.police-burst = 1000",
    };
    for (const char* line : lines) {
        auto first = configParse(line, "f.conf");
        // The value is written as the line wrote it.
        const std::string written(std::strchr(line, '=') + 2);
        ASSERT_EQ(1u, first.ops.size()) << line;
        const OpSetting& op = first.ops[0];
        std::string key = op.perInterface ? "if." + op.pattern + "." + op.setting.name : std::string("agent.") + op.setting.name;
        auto again = configParse(key + " = " + configOpValueText(op.setting, op.word, op.text), "g.conf");
        ASSERT_EQ(1u, again.ops.size()) << line << " -> " << configOpValueText(op.setting, op.word, op.text);
        EXPECT_EQ(op.word, again.ops[0].word) << line;
        EXPECT_EQ(op.text, again.ops[0].text) << line;
        if (op.setting.type != vocab::ValueType::Debug && op.setting.type != vocab::ValueType::Text) {
            EXPECT_EQ(written, configOpValueText(op.setting, op.word, op.text)) << line;
        }
    }
}

TEST(ConfigOpLines, ABracketExpressionCountsAsOneWildcard) {
    EXPECT_EQ(configPatternRank("eth4[0-9]"), configPatternRank("eth4*"));
    EXPECT_LT(configPatternRank("eth[0-9][0-9]"), configPatternRank("eth4*"));
}
