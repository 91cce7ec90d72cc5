// pppoeplusctl without a daemon: the tables, the words, the result names, the
// JSON, and whole command lines run against a transport that records every
// request and answers as a test tells it.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "mgmt/mgmt_types.h"
#include "platform/types.h"
#include "generated/pppoeplus_version.h"
#include "tools/ctl.h"

#include <nlohmann/json.hpp>
#include "platform/number.h"

namespace {

using ctl::CommandInfo;
using ctl::ValueType;

// ---- a transport that answers by itself ---------------------------------------------------

struct FakeDaemon {
    // Calls: every request, and how to answer (default: result 0, lenWord as given).
    std::vector<cmdp::CallRequest> calls;
    std::function<void(const cmdp::CallRequest&, cmdp::CallReply&)> onCall;
    std::vector<cmdp::ShellRequest> shells;
    std::function<void(const cmdp::ShellRequest&, cmdp::ShellReply&)> onShell;
    std::vector<cmdp::EventRequest> events;
    std::function<void(const cmdp::EventRequest&, cmdp::EventReply&)> onEvent;
    std::vector<std::string> controls;  // control requests' texts
    std::function<std::string(const std::string&)> onControl;  // the reply's text
    int32_t transportResult = 0;  // non-zero: every exchange fails with it
    std::string transportError;
    std::vector<ctl::Endpoints> endpoints;  // one per transport made
};

class FakeTransport : public ctl::Transport {
  public:
    explicit FakeTransport(FakeDaemon& d) : d_(d) {}
    int32_t call(const cmdp::CallRequest& req, cmdp::CallReply& reply, std::string& error) override {
        cmdp::CallReply fresh;
        fresh.valueKind = req.valueKind;
        fresh.lenWord = req.lenWord;
        return answer(d_.calls, d_.onCall, req, reply, error, fresh);
    }
    int32_t shell(const cmdp::ShellRequest& req, cmdp::ShellReply& reply, std::string& error) override {
        return answer(d_.shells, d_.onShell, req, reply, error, cmdp::ShellReply());
    }
    int32_t event(const cmdp::EventRequest& req, cmdp::EventReply& reply, std::string& error) override {
        cmdp::EventReply fresh;
        fresh.delivered = 1;
        return answer(d_.events, d_.onEvent, req, reply, error, fresh);
    }
    int32_t control(const std::string& req, std::string& reply, std::string& error) override {
        d_.controls.push_back(req);
        if (d_.transportResult != 0) {
            error = d_.transportError;
            return d_.transportResult;
        }
        reply = d_.onControl ? d_.onControl(req) : std::string("{\"ok\":true}");
        return 0;
    }


  private:
    // Records the request; fails it as the daemon says, or answers `fresh`
    // as the test's handler changes it.
    template <typename Request, typename Reply>
    int32_t answer(std::vector<Request>& log, const std::function<void(const Request&, Reply&)>& handler,
                   const Request& req, Reply& reply, std::string& error, const Reply& fresh) {
        log.push_back(req);
        if (d_.transportResult != 0) {
            error = d_.transportError;
            return d_.transportResult;
        }
        reply = fresh;
        if (handler) handler(req, reply);
        return 0;
    }
    FakeDaemon& d_;
};

class FakeResolver : public ctl::Resolver {
  public:
    std::map<std::string, uint32_t> units = {{"p1", 5}, {"p2", 7}, {"eth3", 12}};
    uint32_t unitOf(const std::string& name) override {
        auto it = units.find(name);
        return it == units.end() ? 0 : it->second;
    }
    std::string nameOf(uint32_t unit) override {
        for (const auto& [n, u] : units)
            if (u == unit) return n;
        return "";
    }
};

// A control service answering JSON objects.
std::function<std::string(const std::string&)> jsonControl(std::function<nlohmann::json(const nlohmann::json&)> f) {
    return [f](const std::string& req) { return f(nlohmann::json::parse(req)).dump(); };
}

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

class CtlTest : public ::testing::Test {
  protected:
    Outcome run(const std::vector<std::string>& args, const std::string& root = "") {
        std::ostringstream out, err;
        Outcome r;
        auto factory = [this](const ctl::Endpoints& ep) {
            daemon_.endpoints.push_back(ep);
            return std::make_unique<FakeTransport>(daemon_);
        };
        r.status = ctl::run(args, root, factory, resolver_, out, err);
        r.out = out.str();
        r.err = err.str();
        return r;
    }
    FakeDaemon daemon_;
    FakeResolver resolver_;
};

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// ---- tables ----------------------------------------------------------------------------------

// The agent's rows of a table, without the platform's own settings.
std::vector<CommandInfo> agentRows(const std::vector<CommandInfo>& all) {
    std::vector<CommandInfo> t;
    for (const CommandInfo& c : all)
        if (c.owner == vocab::Owner::Agent) t.push_back(c);
    return t;
}

TEST(CtlTables, GlobalCommandsAreTheDaemonsCodesOneToEighteenWithDistinctNames) {
    const auto t = agentRows(ctl::scalarCommands());
    ASSERT_EQ(18u, t.size());
    std::set<std::string> names;
    for (size_t i = 0; i < t.size(); i++) {
        EXPECT_EQ(i + 1, t[i].code);
        EXPECT_TRUE(names.insert(t[i].name).second) << t[i].name;
        EXPECT_NE(nullptr, t[i].help);
    }
    EXPECT_EQ(PPPOEPLUS_SCALAR_NSRINFO, t.back().code);
    EXPECT_EQ(PPPOEPLUS_SCALAR_MAX, t.size() + 1);
    // Only the settable codes of the daemon are marked so.
    for (const CommandInfo& c : t) EXPECT_EQ(c.code <= 12 && c.code != 9 && c.code != 10, c.canSet) << c.name;
}

TEST(CtlTables, InterfaceCommandsAreCodesOneToSeventeenAndCountersMapByName) {
    const auto t = agentRows(ctl::ifCommands());
    ASSERT_EQ(17u, t.size());
    for (size_t i = 0; i < t.size(); i++) EXPECT_EQ(i + 1, t[i].code);
    EXPECT_EQ(PPPOEPLUS_IF_MAX, t.size() + 1);
    const auto& c = ctl::ifCounters();
    ASSERT_EQ(8u, c.size());
    const std::pair<const char*, uint32_t> expected[] = {
        {"error-rcv", PPPOEPLUS_IF_ERROR_RCV}, {"error-send", PPPOEPLUS_IF_ERROR_SEND},
        {"padi-rcv", PPPOEPLUS_IF_PADI_RCV},   {"padr-rcv", PPPOEPLUS_IF_PADR_RCV},
        {"pado-rcv", PPPOEPLUS_IF_PADO_RCV},   {"pads-rcv", PPPOEPLUS_IF_PADS_RCV},
        {"padt-rcv", PPPOEPLUS_IF_PADT_RCV},   {"total-send", PPPOEPLUS_IF_TOTAL_SEND}};
    for (size_t i = 0; i < 8; i++) {
        EXPECT_STREQ(expected[i].first, c[i]->name);
        EXPECT_EQ(expected[i].second, c[i]->code);
    }
}

TEST(CtlTables, NamesAreFoundInEverySpellingAndByNumber) {
    for (const char* n : {"vendor-id", "vendorId", "VENDOR_ID", "vendorid", "PPPOEPLUS_SCALAR_VENDORID", "4"}) {
        auto c = ctl::findScalar(n);
        ASSERT_TRUE(c.has_value()) << n;
        EXPECT_EQ(PPPOEPLUS_SCALAR_VENDORID, c->code) << n;
    }
    EXPECT_EQ(PPPOEPLUS_SCALAR_DFLT_VENDORID, ctl::findScalar("PPPOEPLUS_SCALAR_DFLT_VENDORID")->code);
    EXPECT_EQ(PPPOEPLUS_SCALAR_ALLPORT_ENABLE_SUPPORT, ctl::findScalar("PPPOEPLUS_SCALAR_ALLPORT_ENABLE_SUPPORT")->code);
    EXPECT_EQ(PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, ctl::findScalar("circuitIdFormat")->code);
    EXPECT_EQ(PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE, ctl::findScalar("pon-circuit-id-type")->code);
    EXPECT_EQ(PPPOEPLUS_SCALAR_DEBUG, ctl::findScalar("debugSwitch")->code);
    for (const char* n : {"total-send", "totalSend", "PPPOEPLUS_IF_TOTAL_SEND", "16"})
        EXPECT_EQ(PPPOEPLUS_IF_TOTAL_SEND, ctl::findIf(n)->code) << n;
    EXPECT_EQ(PPPOEPLUS_IF_IGNORE_PKT, ctl::findIf("PPPOEPLUS_IF_IGNORE_PKT")->code);
    EXPECT_EQ(PPPOEPLUS_IF_STAT_CLEAR, ctl::findIf("clear")->code);
    EXPECT_EQ(PPPOEPLUS_IF_STAT_CLEAR, ctl::findIf("PPPOEPLUS_IF_STAT_CLEAR")->code);
    // A number outside the table is sent as it is.
    auto odd = ctl::findScalar("99");
    ASSERT_TRUE(odd.has_value());
    EXPECT_EQ(99u, odd->code);
    EXPECT_EQ(nullptr, odd->name);
    EXPECT_EQ(ValueType::Number, odd->type);
    EXPECT_FALSE(ctl::findScalar("bogus").has_value());
    EXPECT_FALSE(ctl::findScalar("").has_value());
    EXPECT_FALSE(ctl::findIf("vendor-id").has_value());
    EXPECT_FALSE(ctl::findScalar("padi-rcv").has_value());
}

// ---- values ----------------------------------------------------------------------------------

TEST(CtlValues, NumbersAreDecimalOrHexAndFitTheirWidth) {
    EXPECT_EQ(3561u, numberParseU32("3561"));
    EXPECT_EQ(0xDE9u, numberParseU32("0xde9"));
    EXPECT_EQ(0xFFFFFFFFu, numberParseU32("4294967295"));
    EXPECT_FALSE(numberParseU32("4294967296").has_value());
    EXPECT_FALSE(numberParseU32("0x").has_value());
    EXPECT_FALSE(numberParseU32("12a").has_value());
    EXPECT_FALSE(numberParseU32("-1").has_value());
    EXPECT_FALSE(numberParseU32("").has_value());
    EXPECT_EQ(-5, numberParseI64("-5"));
    EXPECT_EQ(0x10, numberParseI64("0x10"));
    EXPECT_EQ(INT64_MIN, numberParseI64("-9223372036854775808"));
    EXPECT_FALSE(numberParseI64("9223372036854775808").has_value());
    EXPECT_FALSE(numberParseI64("p1").has_value());
}

TEST(CtlValues, WordsBecomeTheNumbersTheDaemonTakes) {
    struct Case {
        ValueType type;
        const char* word;
        uint32_t value;
    };
    const Case cases[] = {
        {ValueType::Truth, "on", 1},          {ValueType::Truth, "OFF", 2},       {ValueType::Truth, "true", 1},
        {ValueType::Truth, "disable", 2},     {ValueType::Truth, "yes", 1},       {ValueType::Truth, "7", 7},
        {ValueType::Truth, "0", 0},           {ValueType::Policy, "default", 0},  {ValueType::Policy, "keep", 1},
        {ValueType::Policy, "drop", 2},       {ValueType::Policy, "Replace", 3},  {ValueType::Policy, "6", 6},
        {ValueType::FormatType, "default", 0}, {ValueType::FormatType, "userdefine", 1},
        {ValueType::FormatType, "user-define", 1}, {ValueType::FormatType, "ascii", 2},
        {ValueType::FormatType, "3", 3},      {ValueType::Debug, "none", 0},      {ValueType::Debug, "all", 0xF},
        {ValueType::Debug, "trace,error", 0xC}, {ValueType::Debug, "startup+dump", 0x3},
        {ValueType::Debug, "0x4", 0x4},       {ValueType::Number, "0x0DE9", 3561}, {ValueType::Ignored, "", 0},
    };
    for (const Case& c : cases) {
        ctl::ParsedWord w = ctl::parseValue(c.type, c.word);
        EXPECT_TRUE(w.ok) << c.word << ": " << w.error;
        EXPECT_EQ(c.value, w.value) << c.word;
    }
    for (auto [type, word] : std::vector<std::pair<ValueType, const char*>>{{ValueType::Truth, "maybe"},
                                                                          {ValueType::Policy, "discard"},
                                                                          {ValueType::FormatType, "hex"},
                                                                          {ValueType::Debug, "loud"},
                                                                          {ValueType::Number, "many"}}) {
        ctl::ParsedWord w = ctl::parseValue(type, word);
        EXPECT_FALSE(w.ok) << word;
        EXPECT_TRUE(has(w.error, std::string("invalid value '") + word + "'")) << w.error;
    }
}

TEST(CtlValues, NumbersAreShownAsWords) {
    EXPECT_EQ("on", ctl::valueWord(ValueType::Truth, 1));
    EXPECT_EQ("off", ctl::valueWord(ValueType::Truth, 2));
    EXPECT_EQ("unset", ctl::valueWord(ValueType::Truth, 0));
    EXPECT_EQ("unknown (3)", ctl::valueWord(ValueType::Truth, 3));
    EXPECT_EQ("default", ctl::valueWord(ValueType::Policy, 0));
    EXPECT_EQ("replace", ctl::valueWord(ValueType::Policy, 3));
    EXPECT_EQ("unknown (9)", ctl::valueWord(ValueType::Policy, 9));
    EXPECT_EQ("userdefine", ctl::valueWord(ValueType::FormatType, 1));
    EXPECT_EQ("ascii", ctl::valueWord(ValueType::FormatType, 2));
    EXPECT_EQ("0x0 (none)", ctl::valueWord(ValueType::Debug, 0));
    EXPECT_EQ("0x1 (startup)", ctl::valueWord(ValueType::Debug, 1));
    EXPECT_EQ("0xF (startup,dump,trace,error)", ctl::valueWord(ValueType::Debug, 0xF));
    EXPECT_EQ("3561", ctl::valueWord(ValueType::Number, 3561));
}

TEST(CtlValues, TheNsrRecordIsReadInHostOrder) {
    std::vector<uint8_t> b(12);
    uint32_t w[3] = {1, 2, 3};
    std::memcpy(b.data(), w, 12);
    auto n = ctl::nsrFromBytes(b);
    ASSERT_TRUE(n.has_value());
    EXPECT_EQ(1u, n->switchover);
    EXPECT_EQ(2u, n->incompleteOp);
    EXPECT_EQ(3u, n->allOp);
    b.resize(11);
    EXPECT_FALSE(ctl::nsrFromBytes(b).has_value());
}

// ---- result codes -----------------------------------------------------------------------------

TEST(CtlResults, EveryCodeHasItsNameAndValue) {
    EXPECT_EQ("OK (0)", ctl::resultText(0));
    EXPECT_EQ("ZEL_ERR_NOT_FOUND (0x3E80002)", ctl::resultText(0x3E80002));
    EXPECT_EQ("ZEL_ERR_TOO_LONG (0x3E8000D)", ctl::resultText(0x3E8000D));
    EXPECT_EQ("ZEL_ERR_NO_RESOURCE (0x3E8000E)", ctl::resultText(0x3E8000E));
    EXPECT_EQ("ZEL_ERR_UNSUPPORTED (0x3E80010)", ctl::resultText(0x3E80010));
    EXPECT_EQ("ZEL_ERR_NULL_POINTER (0x3E8001A)", ctl::resultText(0x3E8001A));
    EXPECT_EQ("ZEL_ERR_SET_SOCKOPT (0x3E8001B)", ctl::resultText(0x3E8001B));
    EXPECT_EQ("ZEL_EINVAL (22)", ctl::resultText(22));
    EXPECT_EQ("PPPOEPLUS_ERR (-1)", ctl::resultText(-1));
    EXPECT_EQ("UNKNOWN (0x3E80099)", ctl::resultText(0x3E80099));
    EXPECT_EQ("UNKNOWN (5)", ctl::resultText(5));
    using ctl::ResultSource;
    EXPECT_EQ("ERR_MALFORMED (0x3E80004)", ctl::resultText(cmdp::ERR_MALFORMED, ResultSource::Protocol));
    EXPECT_EQ("ERR_TOO_LONG (0x3E8000D)", ctl::resultText(cmdp::ERR_TOO_LONG, ResultSource::Protocol));
    EXPECT_EQ("ERR_NOT_FOUND (0x3E80002)", ctl::resultText(cmdp::ERR_NOT_FOUND, ResultSource::Protocol));
    EXPECT_EQ("ERR_UNSUPPORTED (0x3E80010)", ctl::resultText(cmdp::ERR_UNSUPPORTED, ResultSource::Protocol));
    EXPECT_EQ("ERR_DENIED (0x3E80030)", ctl::resultText(cmdp::ERR_DENIED, ResultSource::Protocol));
    EXPECT_EQ("ERR_DENIED (0x3E80030)", ctl::resultText(cmdp::ERR_DENIED));
}

// ---- JSON --------------------------------------------------------------------------------------

TEST(CtlJson, StringsAreEscapedAndObjectsKeepTheirOrder) {
    EXPECT_EQ("\"a\\\"b\\\\c\\r\\n\\t\\u0001\\u00ff\"", ctl::jsonString("a\"b\\c\r\n\t\x01\xff"));
    EXPECT_EQ("\"'%portname:%svlan.%cvlan'\"", ctl::jsonString("'%portname:%svlan.%cvlan'"));
    ctl::Json o = {{"b", 1}, {"a", "x"}, {"t", true}, {"n", nullptr}};
    EXPECT_EQ("{\"b\":1,\"a\":\"x\",\"t\":true,\"n\":null}", ctl::jsonLine(o));
    EXPECT_EQ("[{},2]", ctl::jsonLine(ctl::Json::array({ctl::Json::object(), 2})));
    EXPECT_EQ("{\"ok\":false,\"b\":1,\"a\":\"x\",\"t\":true,\"n\":null}", ctl::jsonLine(ctl::okWith(false, o)));
}

TEST(CtlJson, EveryByteOfATextComesBackFromTheParsedJson) {
    std::string all;
    for (int c = 0; c < 256; c++) all += static_cast<char>(c);
    const std::string line = ctl::jsonLine({{"text", all}, {"list", {all}}});
    for (char c : line) EXPECT_TRUE(c >= 0x20 && c < 0x7F) << "printable ASCII only: " << int(c);
    const ctl::Json back = ctl::Json::parse(line);
    for (const std::string& got : {back["text"].get<std::string>(), back["list"][0].get<std::string>()}) {
        // Each byte is the character of its number: U+0080 and up are two bytes of UTF-8.
        std::string bytes;
        for (size_t i = 0; i < got.size(); i++) {
            const auto b = static_cast<unsigned char>(got[i]);
            if (b < 0x80) {
                bytes += got[i];
            } else {
                ASSERT_LT(i + 1, got.size());
                bytes += static_cast<char>(((b & 0x03) << 6) | (static_cast<unsigned char>(got[++i]) & 0x3F));
            }
        }
        EXPECT_EQ(all, bytes);
    }
}

// ---- help ---------------------------------------------------------------------------------------

TEST_F(CtlTest, HelpNamesEveryCommandAndEveryTopicHasItsOwn) {
    Outcome r = run({"--help"});
    EXPECT_EQ(0, r.status);
    for (const char* part : {"get [NAME]", "set NAME VALUE", "sync NAME VALUE", "if list", "if IF get [NAME]",
                             "if IF set NAME VALUE", "if IF sync NAME VALUE", "if IF counters", "if IF clear",
                             "shell FUNCTION", "event reset-port IF", "event reset-proto", "metrics", "--json", "--root",
                             "Exit status", "ZEL_ERR_NOT_FOUND (0x3E80002)", "ip netns exec"})
        EXPECT_TRUE(has(r.out, part)) << part;
    EXPECT_TRUE(daemon_.calls.empty());
    for (const char* topic : {"get", "set", "sync", "if", "shell", "event", "metrics", "names", "results"}) {
        Outcome t = run({"help", topic});
        EXPECT_EQ(0, t.status) << topic;
        EXPECT_EQ(ctl::helpText(topic), t.out) << topic;
        EXPECT_GT(t.out.size(), 200u) << topic;
        // The same text after the command.
        if (std::string(topic) != "names" && std::string(topic) != "results") {
            Outcome h = run({topic, "--help"});
            EXPECT_EQ(0, h.status) << topic;
            EXPECT_EQ(t.out, h.out) << topic;
        }
    }
    // Every name and every result the tool knows is in the help.
    std::string names = ctl::helpText("names");
    for (const CommandInfo& c : ctl::scalarCommands()) EXPECT_TRUE(has(names, c.name)) << c.name;
    for (const CommandInfo& c : ctl::ifCommands()) EXPECT_TRUE(has(names, c.name)) << c.name;
    std::string results = ctl::helpText("results");
    for (const char* n : {"ZEL_ERR_NOT_FOUND", "0x3E80002", "ZEL_ERR_TOO_LONG", "0x3E8000D", "ZEL_ERR_NO_RESOURCE",
                          "0x3E8000E", "ZEL_ERR_UNSUPPORTED", "0x3E80010", "ZEL_ERR_NULL_POINTER", "0x3E8001A",
                          "ZEL_ERR_SET_SOCKOPT", "0x3E8001B", "ZEL_EINVAL", "PPPOEPLUS_ERR", "ERR_MALFORMED",
                          "ERR_DENIED", "0x3E80030"})
        EXPECT_TRUE(has(results, n)) << n;
    // The shell help lists every diagnostic function.
    std::string shell = ctl::helpText("shell");
    for (const char* f : {"pppoeplusShow", "pppoeplusIfShowAll", "pppoeplusTrustIfShowAll", "pppoeplusKeywordsShow",
                          "pppoeplusCommonFormatShow", "pppoeplusHelp", "pppoeplusSetPktFdRecvBufLen",
                          "pppoeplusTestForwardSet", "pppoeplusTest", "pppoeplusLogTest", "pppoeplusPonTest",
                          "gPppoeplusTestForward", "gTestOnuInfo"})
        EXPECT_TRUE(has(shell, f)) << f;
}

TEST_F(CtlTest, NoCommandOrAWrongOneIsAUsageError) {
    Outcome r = run({});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    EXPECT_TRUE(has(r.err, "Usage: pppoeplusctl"));
    r = run({"frobnicate"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    EXPECT_TRUE(has(r.err, "unknown command 'frobnicate'")) << r.err;
    r = run({"help", "bogus"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    r = run({"--bogus", "get"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    EXPECT_TRUE(has(r.err, "unknown option '--bogus'"));
    r = run({"--version"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("pppoeplusctl (pppoeplus) " PPPOEPLUS_PRODUCT_VERSION "\n", r.out);
    EXPECT_TRUE(daemon_.calls.empty());
}

// ---- global commands ---------------------------------------------------------------------------

TEST_F(CtlTest, GetReadsOneValueAndShowsItsWord) {
    daemon_.onCall = [](const cmdp::CallRequest&, cmdp::CallReply& r) { r.lenWord = 3; };
    Outcome r = run({"get", "policy"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("policy: replace\n", r.out);
    ASSERT_EQ(1u, daemon_.calls.size());
    const cmdp::CallRequest& q = daemon_.calls[0];
    EXPECT_EQ(1u, q.code);
    EXPECT_EQ(0u, q.unit);
    EXPECT_EQ(PPPOEPLUS_SCALAR_POLICY, q.cmd);
    EXPECT_EQ(cmdp::VALUE_U32, q.valueKind);

    r = run({"--json", "get", "policy"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("{\"ok\":true,\"scope\":\"global\",\"name\":\"policy\",\"code\":2,\"value\":\"replace\",\"raw\":3}\n",
              r.out);
    r = run({"get", "vendor-id", "--json"});
    EXPECT_EQ("{\"ok\":true,\"scope\":\"global\",\"name\":\"vendor-id\",\"code\":4,\"value\":3}\n", r.out);
}

TEST_F(CtlTest, TextValuesAreReadThroughABufferAndTheNsrRecordIsDecoded) {
    daemon_.onCall = [](const cmdp::CallRequest& q, cmdp::CallReply& r) {
        if (q.cmd == PPPOEPLUS_SCALAR_CIRCUITID_FORMAT) {
            std::string t = "'%portname:%svlan.%cvlan'";
            r.data.assign(t.begin(), t.end());
            r.lenWord = static_cast<uint32_t>(t.size());
        } else if (q.cmd == PPPOEPLUS_SCALAR_NSRINFO) {
            uint32_t w[3] = {1, 0, 0};
            r.data.resize(12);
            std::memcpy(r.data.data(), w, 12);
            r.lenWord = 12;
        }
    };
    Outcome r = run({"get", "circuit-id-format"});
    EXPECT_EQ("circuit-id-format: '%portname:%svlan.%cvlan'\n", r.out);
    ASSERT_EQ(1u, daemon_.calls.size());
    EXPECT_EQ(cmdp::VALUE_STR, daemon_.calls[0].valueKind);
    EXPECT_EQ(512u, daemon_.calls[0].capacity);
    EXPECT_EQ(512u, daemon_.calls[0].lenWord);
    r = run({"get", "nsr-info"});
    EXPECT_EQ("nsr-info: switchover on, incompleteOp 0, allOp 0\n", r.out);
    EXPECT_EQ(16u, daemon_.calls[1].capacity);
    r = run({"--json", "get", "nsr-info"});
    EXPECT_TRUE(has(r.out, "\"value\":{\"switchover\":\"on\",\"incompleteOp\":0,\"allOp\":0}")) << r.out;
}

TEST_F(CtlTest, GetWithoutANameReadsEveryGlobalValue) {
    daemon_.onCall = [](const cmdp::CallRequest& q, cmdp::CallReply& r) {
        if (q.cmd == PPPOEPLUS_SCALAR_VERSION) {
            std::string t = "PPPOEPLUS_V7.00.00.00";
            r.data.assign(t.begin(), t.end());
            r.lenWord = 21;
        } else if (q.valueKind == cmdp::VALUE_U32) {
            r.lenWord = q.cmd == PPPOEPLUS_SCALAR_VENDORID ? 3561 : 1;
        }
    };
    daemon_.onControl = jsonControl([](const nlohmann::json& q) {
        return nlohmann::json{{"ok", true}, {"value", q["name"] == "police-rate" ? 100 : 7}};
    });
    Outcome r = run({"get"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ(18u, daemon_.calls.size());
    // The platform's four, through the control service.
    EXPECT_EQ(4u, daemon_.controls.size());
    EXPECT_TRUE(has(r.out, "police-rate:            100\n")) << r.out;
    EXPECT_TRUE(has(r.out, "errdisable-hold:        7\n")) << r.out;
    EXPECT_TRUE(has(r.out, "vendor-id:              3561\n")) << r.out;
    EXPECT_TRUE(has(r.out, "version:                PPPOEPLUS_V7.00.00.00\n")) << r.out;
    EXPECT_TRUE(has(r.out, "enable:                 on\n")) << r.out;
    EXPECT_TRUE(has(r.out, "debug:                  0x1 (startup)\n")) << r.out;
    r = run({"--json", "get"});
    EXPECT_TRUE(has(r.out, "\"values\":{\"debug\":\"startup\",\"policy\":\"keep\",\"enable\":\"on\",\"vendor-id\":3561,"))
        << r.out;
}

TEST_F(CtlTest, SetAndSyncSendTheWordsNumberWithTheirOwnRows) {
    Outcome r = run({"set", "policy", "keep"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("policy set to keep\n", r.out);
    r = run({"sync", "enable", "off"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("enable synced to off\n", r.out);
    r = run({"set", "5", "2"});
    EXPECT_EQ("circuit-id-type set to ascii\n", r.out);
    ASSERT_EQ(3u, daemon_.calls.size());
    EXPECT_EQ(2u, daemon_.calls[0].code);
    EXPECT_EQ(PPPOEPLUS_SCALAR_POLICY, daemon_.calls[0].cmd);
    EXPECT_EQ(1u, daemon_.calls[0].lenWord);
    EXPECT_EQ(3u, daemon_.calls[1].code);
    EXPECT_EQ(PPPOEPLUS_SCALAR_ENABLE, daemon_.calls[1].cmd);
    EXPECT_EQ(2u, daemon_.calls[1].lenWord);
    EXPECT_EQ(PPPOEPLUS_SCALAR_CIRCUITID_TYPE, daemon_.calls[2].cmd);
    r = run({"--json", "set", "debug", "trace,error"});
    EXPECT_EQ("{\"ok\":true,\"scope\":\"global\",\"action\":\"set\",\"name\":\"debug\",\"code\":1,"
              "\"value\":\"0xC (trace,error)\",\"raw\":12}\n",
              r.out);
}

TEST_F(CtlTest, AFormatIsSentAsTextWithItsLength) {
    Outcome r = run({"set", "circuit-id-format", "'%portname:%svlan.%cvlan'"});
    EXPECT_EQ(0, r.status) << r.err;
    ASSERT_EQ(1u, daemon_.calls.size());
    const cmdp::CallRequest& q = daemon_.calls[0];
    EXPECT_EQ(cmdp::VALUE_STR, q.valueKind);
    EXPECT_EQ(25u, q.lenWord);
    EXPECT_EQ(25u, q.capacity);
    EXPECT_EQ("'%portname:%svlan.%cvlan'", std::string(q.data.begin(), q.data.end()));
    // Several words are one text.
    r = run({"set", "remote-id-format", "0x01", "%16s", "%c"});
    EXPECT_EQ("0x01 %16s %c", std::string(daemon_.calls[1].data.begin(), daemon_.calls[1].data.end()));
    // After "--" a value may start with '-'.
    r = run({"if", "p1", "set", "circuit-id-format", "--", "-x"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("-x", std::string(daemon_.calls[2].data.begin(), daemon_.calls[2].data.end()));
    EXPECT_EQ(5u, daemon_.calls[2].unit);
    // Longer than a request can carry: refused here as too long.
    r = run({"set", "circuit-id-format", std::string(5000, 'x')});
    EXPECT_EQ(ctl::EXIT_RESULT, r.status);
    EXPECT_TRUE(has(r.err, "ZEL_ERR_TOO_LONG (0x3E8000D)")) << r.err;
    EXPECT_EQ(3u, daemon_.calls.size());
}

TEST_F(CtlTest, AWrongNameOrWordSendsNothing) {
    Outcome r = run({"set", "policy", "discard"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    EXPECT_TRUE(has(r.err, "invalid value 'discard'")) << r.err;
    r = run({"get", "bogus"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    EXPECT_TRUE(has(r.err, "unknown global name 'bogus'")) << r.err;
    r = run({"set", "policy"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    r = run({"set", "policy", "keep", "drop"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    r = run({"--json", "set", "enable", "perhaps"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    EXPECT_TRUE(has(r.out, "\"ok\":false")) << r.out;
    EXPECT_TRUE(daemon_.calls.empty());
}

// Each result the daemon may give is named with its value, and the exit status is 1.
class CtlResultTest : public CtlTest, public ::testing::WithParamInterface<std::pair<int32_t, const char*>> {};

TEST_P(CtlResultTest, ANonZeroResultIsNamedWithItsValue) {
    const int32_t code = GetParam().first;
    daemon_.onCall = [code](const cmdp::CallRequest&, cmdp::CallReply& r) { r.result = code; };
    Outcome r = run({"set", "vendor-id", "7"});
    EXPECT_EQ(ctl::EXIT_RESULT, r.status);
    EXPECT_TRUE(has(r.err, std::string("pppoeplusctl: set vendor-id: ") + GetParam().second)) << r.err;
    EXPECT_EQ("", r.out);
    r = run({"--json", "if", "p1", "get", "policy"});
    EXPECT_EQ(ctl::EXIT_RESULT, r.status);
    EXPECT_TRUE(has(r.out, "\"ok\":false")) << r.out;
    EXPECT_TRUE(has(r.out, "\"result\":" + std::to_string(code))) << r.out;
    std::string name = GetParam().second;
    EXPECT_TRUE(has(r.out, "\"resultName\":\"" + name.substr(0, name.find(' ')) + "\"")) << r.out;
}

INSTANTIATE_TEST_SUITE_P(
    Codes, CtlResultTest,
    ::testing::Values(std::make_pair(0x3E80002, "ZEL_ERR_NOT_FOUND (0x3E80002)"),
                      std::make_pair(0x3E8000D, "ZEL_ERR_TOO_LONG (0x3E8000D)"),
                      std::make_pair(0x3E8000E, "ZEL_ERR_NO_RESOURCE (0x3E8000E)"),
                      std::make_pair(0x3E80010, "ZEL_ERR_UNSUPPORTED (0x3E80010)"),
                      std::make_pair(0x3E8001A, "ZEL_ERR_NULL_POINTER (0x3E8001A)"),
                      std::make_pair(0x3E8001B, "ZEL_ERR_SET_SOCKOPT (0x3E8001B)"),
                      std::make_pair(22, "ZEL_EINVAL (22)"), std::make_pair(-1, "PPPOEPLUS_ERR (-1)")),
    [](const ::testing::TestParamInfo<std::pair<int32_t, const char*>>& info) {
        std::string name = info.param.second;
        return name.substr(0, name.find(' '));
    });

TEST_F(CtlTest, AnUnreachableDaemonOrARefusalEndsWithStatusThree) {
    daemon_.transportResult = -1;
    daemon_.transportError = "/tmp/pppoeplusNm.socket: No such file or directory";
    Outcome r = run({"get", "policy"});
    EXPECT_EQ(ctl::EXIT_UNREACHABLE, r.status);
    EXPECT_TRUE(has(r.err, "cannot reach the daemon: /tmp/pppoeplusNm.socket: No such file or directory")) << r.err;
    EXPECT_TRUE(has(r.err, "is pppoeplusd running?")) << r.err;
    daemon_.transportResult = cmdp::ERR_DENIED;
    daemon_.transportError = "peer not allowed";
    r = run({"shell", "pppoeplusShow"});
    EXPECT_EQ(ctl::EXIT_UNREACHABLE, r.status);
    EXPECT_TRUE(has(r.err, "ERR_DENIED (0x3E80030)")) << r.err;
    r = run({"--json", "event", "reset-proto"});
    EXPECT_EQ(ctl::EXIT_UNREACHABLE, r.status);
    EXPECT_TRUE(has(r.out, "\"resultName\":\"ERR_DENIED\"")) << r.out;
}

TEST_F(CtlTest, TheRootDirectoryAndTheSocketOptionsChooseTheSockets) {
    run({"get", "policy"});
    run({"get", "policy"}, "/tmp/lab1/");
    run({"--root", "/run/pp", "get", "policy"});
    run({"--root=/run/pp", "--socket", "/x/cmd", "--shell-socket=/x/sh", "--event-socket", "/x/ev", "--timeout", "3",
         "get", "policy"});
    ASSERT_EQ(4u, daemon_.endpoints.size());
    EXPECT_EQ("/tmp/pppoeplusNm.socket", daemon_.endpoints[0].command);
    EXPECT_EQ("/tmp/pppoeplusShell.socket", daemon_.endpoints[0].shell);
    EXPECT_EQ("/tmp/zelRouteEvent.socket", daemon_.endpoints[0].event);
    EXPECT_EQ(0, daemon_.endpoints[0].timeoutMs);
    EXPECT_EQ("/tmp/lab1/pppoeplusNm.socket", daemon_.endpoints[1].command);
    EXPECT_EQ("/tmp/lab1/pppoeplusShell.socket", daemon_.endpoints[1].shell);
    EXPECT_EQ("/tmp/lab1/zelRouteEvent.socket", daemon_.endpoints[1].event);
    EXPECT_EQ("/run/pp/pppoeplusNm.socket", daemon_.endpoints[2].command);
    EXPECT_EQ("/x/cmd", daemon_.endpoints[3].command);
    EXPECT_EQ("/x/sh", daemon_.endpoints[3].shell);
    EXPECT_EQ("/x/ev", daemon_.endpoints[3].event);
    EXPECT_EQ(3000, daemon_.endpoints[3].timeoutMs);
}

// ---- interface commands -------------------------------------------------------------------------

TEST_F(CtlTest, AnInterfaceIsNamedOrNumbered) {
    Outcome r = run({"if", "p1", "set", "trust", "on"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("p1: trust set to on\n", r.out);
    r = run({"if", "9", "sync", "policy", "drop"});
    EXPECT_EQ(0, r.status) << r.err;
    ASSERT_EQ(2u, daemon_.calls.size());
    EXPECT_EQ(7u, daemon_.calls[0].code);
    EXPECT_EQ(5u, daemon_.calls[0].unit);
    EXPECT_EQ(PPPOEPLUS_IF_TRUST, daemon_.calls[0].cmd);
    EXPECT_EQ(1u, daemon_.calls[0].lenWord);
    EXPECT_EQ(8u, daemon_.calls[1].code);
    EXPECT_EQ(9u, daemon_.calls[1].unit);
    EXPECT_EQ(2u, daemon_.calls[1].lenWord);
    r = run({"if", "nosuch0", "get"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    EXPECT_TRUE(has(r.err, "no interface 'nosuch0' in this network namespace")) << r.err;
    r = run({"--json", "if", "p2", "set", "circuit-id-format", "'%portname'"});
    EXPECT_EQ("{\"ok\":true,\"scope\":\"interface\",\"unit\":7,\"interface\":\"p2\",\"action\":\"set\","
              "\"name\":\"circuit-id-format\",\"code\":6,\"value\":\"'%portname'\"}\n",
              r.out);
    EXPECT_EQ(3u, daemon_.calls.size());
}

TEST_F(CtlTest, CountersAreReadByNameAndClearedWithOneCall) {
    daemon_.onCall = [](const cmdp::CallRequest& q, cmdp::CallReply& r) { r.lenWord = q.cmd * 10; };
    Outcome r = run({"if", "p1", "counters"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("p1 (unit 5) counters\n"
              "  error-rcv:   90\n"
              "  error-send:  100\n"
              "  padi-rcv:    110\n"
              "  padr-rcv:    120\n"
              "  pado-rcv:    130\n"
              "  pads-rcv:    140\n"
              "  padt-rcv:    150\n"
              "  total-send:  160\n",
              r.out);
    ASSERT_EQ(8u, daemon_.calls.size());
    for (const auto& q : daemon_.calls) {
        EXPECT_EQ(6u, q.code);
        EXPECT_EQ(5u, q.unit);
    }
    r = run({"--json", "if", "p1", "counters"});
    EXPECT_EQ("{\"ok\":true,\"scope\":\"interface\",\"unit\":5,\"interface\":\"p1\",\"counters\":{\"error-rcv\":90,"
              "\"error-send\":100,\"padi-rcv\":110,\"padr-rcv\":120,\"pado-rcv\":130,\"pads-rcv\":140,"
              "\"padt-rcv\":150,\"total-send\":160}}\n",
              r.out);
    daemon_.calls.clear();
    r = run({"if", "p1", "clear"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("p1 (unit 5): counters cleared\n", r.out);
    ASSERT_EQ(1u, daemon_.calls.size());
    EXPECT_EQ(7u, daemon_.calls[0].code);
    EXPECT_EQ(PPPOEPLUS_IF_STAT_CLEAR, daemon_.calls[0].cmd);
    EXPECT_EQ(cmdp::VALUE_U32, daemon_.calls[0].valueKind);
    r = run({"if", "p1", "get", "total-send"});
    EXPECT_EQ("total-send: 160\n", r.out);
}

TEST_F(CtlTest, AGetOfAllReadsEverySettingAndCounter) {
    daemon_.onCall = [](const cmdp::CallRequest& q, cmdp::CallReply& r) {
        if (q.valueKind == cmdp::VALUE_STR) {
            std::string t = "'%C'";
            r.data.assign(t.begin(), t.end());
            r.lenWord = 4;
        } else {
            r.lenWord = q.cmd == PPPOEPLUS_IF_ENABLE ? 1 : 0;
        }
    };
    daemon_.onControl = jsonControl([](const nlohmann::json& q) {
        EXPECT_EQ("p1", q["if"]);
        return nlohmann::json{{"ok", true}, {"value", q["name"] == "police-rate" ? 4294967295u : 50u}};
    });
    Outcome r = run({"if", "p1"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ(16u, daemon_.calls.size());
    EXPECT_EQ(2u, daemon_.controls.size());
    EXPECT_TRUE(has(r.out, "  police-rate:        default\n")) << r.out;
    EXPECT_TRUE(has(r.out, "  police-burst:       50\n")) << r.out;
    Outcome g = run({"--json", "if", "p1", "get", "police-rate"});
    EXPECT_TRUE(has(g.out, "\"value\":\"default\",\"raw\":4294967295")) << g.out;
    g = run({"--json", "if", "p1", "get", "police-burst"});
    EXPECT_TRUE(has(g.out, "\"value\":50}")) << g.out;
    EXPECT_TRUE(has(r.out, "p1 (unit 5)\n  trust:              unset\n  enable:             on\n")) << r.out;
    EXPECT_TRUE(has(r.out, "  remote-id-format:   '%C'\n")) << r.out;
    EXPECT_TRUE(has(r.out, "  total-send:         0\n")) << r.out;
    // A unit without an entry.
    daemon_.onCall = [](const cmdp::CallRequest&, cmdp::CallReply& r) { r.result = 0x3E80002; };
    r = run({"if", "44", "get"});
    EXPECT_EQ(ctl::EXIT_RESULT, r.status);
    EXPECT_TRUE(has(r.err, "ZEL_ERR_NOT_FOUND (0x3E80002)")) << r.err;
}

// The entry iterators of a table with entries 5 and 12; true when `q` was one.
bool walkUnitsFiveAndTwelve(const cmdp::CallRequest& q, cmdp::CallReply& r) {
    if (q.code == 4) {
        r.lenWord = 5;
        return true;
    }
    if (q.code == 5) {
        if (q.unit < 12) r.lenWord = 12;
        else r.result = -1;
        return true;
    }
    return false;
}

TEST_F(CtlTest, TheListWalksTheTableInUnitOrder) {
    // Entries 5 and 12; unit 12 trusted.
    daemon_.onCall = [](const cmdp::CallRequest& q, cmdp::CallReply& r) {
        if (walkUnitsFiveAndTwelve(q, r)) return;
        if (q.code == 6) {
            switch (q.cmd) {
                case PPPOEPLUS_IF_ENABLE: r.lenWord = 1; break;
                case PPPOEPLUS_IF_TRUST: r.lenWord = q.unit == 12 ? 1 : 2; break;
                case PPPOEPLUS_IF_POLICY: r.lenWord = 0; break;
                case PPPOEPLUS_IF_IGNORE_PKT: r.lenWord = 0; break;
                case PPPOEPLUS_IF_PADI_RCV: r.lenWord = q.unit == 5 ? 3 : 0; break;
                case PPPOEPLUS_IF_TOTAL_SEND: r.lenWord = q.unit == 12 ? 3 : 0; break;
                default: r.lenWord = 0;
            }
        }
    };
    Outcome r = run({"if", "list"});
    EXPECT_EQ(0, r.status) << r.err;
    // Without policing (the control service says nothing of it) its columns show '-'.
    EXPECT_EQ("UNIT  NAME  ENABLE  TRUST  POLICY   IGNORE  ERR-RCV  ERR-SEND  PADI  PADR  PADO  PADS  PADT  SENT  "
              "POLICED  STATE\n"
              "   5  p1    on      off    default  unset         0         0     3     0     0     0     0     0        "
              "-  -\n"
              "  12  eth3  on      on     default  unset         0         0     0     0     0     0     0     3        "
              "-  -\n",
              r.out);
    r = run({"--json", "if", "list"});
    EXPECT_TRUE(has(r.out, "{\"ok\":true,\"interfaces\":[{\"unit\":5,\"interface\":\"p1\",\"enable\":\"on\",\"trust\":"
                           "\"off\",\"policy\":\"default\",\"ignore-pkt\":\"unset\",\"counters\":{\"error-rcv\":0,"))
        << r.out;
    // An empty table.
    daemon_.onCall = [](const cmdp::CallRequest&, cmdp::CallReply& r) { r.result = -1; };
    r = run({"if", "list"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("no interface is served\n", r.out);
    r = run({"--json", "if", "list"});
    EXPECT_EQ("{\"ok\":true,\"interfaces\":[]}\n", r.out);
}

TEST_F(CtlTest, TheListShowsEachPortsPolicingFromOneRequest) {
    daemon_.onCall = [](const cmdp::CallRequest& q, cmdp::CallReply& r) {
        if (walkUnitsFiveAndTwelve(q, r)) return;
        r.lenWord = q.cmd == PPPOEPLUS_IF_ENABLE ? 1 : 0;
    };
    daemon_.onControl = jsonControl([](const nlohmann::json& q) {
        EXPECT_EQ("police-status", q["op"]);
        return nlohmann::json{
            {"ok", true},
            {"available", true},
            {"interfaces",
             {{"p1", {{"ifindex", 5}, {"passed", 1100}, {"dropped", 1158843}, {"state", "err-disabled"}, {"hold-left", 42}}},
              {"other", {{"ifindex", 99}, {"passed", 1}, {"dropped", 0}, {"state", "served"}}}}}};
    });
    Outcome r = run({"if", "list"});
    EXPECT_EQ(0, r.status) << r.err;
    ASSERT_EQ(1u, daemon_.controls.size());
    EXPECT_TRUE(has(r.out, "  SENT  POLICED  STATE\n")) << r.out;
    EXPECT_TRUE(has(r.out, "     0  1158843  err-disabled 42s\n")) << r.out;
    // A port the filter has not counted yet dropped nothing.
    EXPECT_TRUE(has(r.out, "     0        0  served\n")) << r.out;
    r = run({"--json", "if", "list"});
    EXPECT_TRUE(has(r.out, "\"police\":{\"dropped\":1158843,\"passed\":1100,\"state\":\"err-disabled\",\"hold-left\":42}"))
        << r.out;
    EXPECT_TRUE(has(r.out, "\"police\":{\"dropped\":0,\"passed\":0,\"state\":\"served\"}")) << r.out;
    // Policing unavailable: '-', and null in JSON.
    daemon_.onControl = jsonControl([](const nlohmann::json&) {
        return nlohmann::json{{"ok", true}, {"available", false}, {"interfaces", nlohmann::json::object()}};
    });
    r = run({"--json", "if", "list"});
    EXPECT_TRUE(has(r.out, "\"police\":null")) << r.out;
}

TEST_F(CtlTest, PlatformSettingsAndRecoverGoToTheControlService) {
    daemon_.onControl = jsonControl([](const nlohmann::json& q) {
        if (q["op"] == "set" && q["value"] == 2000000) return nlohmann::json{{"ok", false}, {"error", "the rate is 0 (off) to 1000000 frames a second"}};
        if (q["op"] == "police-recover") return nlohmann::json{{"ok", false}, {"error", "eth3: the interface is not error-disabled"}};
        return nlohmann::json{{"ok", true}};
    });
    Outcome r = run({"set", "police-rate", "200"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("police-rate set to 200\n", r.out);
    r = run({"if", "eth3", "set", "police-burst", "default"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("eth3: police-burst set to default\n", r.out);
    r = run({"if", "eth3", "set", "police-rate", "fast"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    r = run({"set", "police-rate", "2000000"});
    EXPECT_EQ(ctl::EXIT_RESULT, r.status);
    EXPECT_TRUE(has(r.err, "the rate is 0 (off) to 1000000 frames a second")) << r.err;
    r = run({"if", "eth3", "recover"});
    EXPECT_EQ(ctl::EXIT_RESULT, r.status);
    EXPECT_TRUE(has(r.err, "not error-disabled")) << r.err;
    ASSERT_EQ(4u, daemon_.controls.size());
    EXPECT_EQ((nlohmann::json{{"op", "set"}, {"name", "police-rate"}, {"value", 200}}), nlohmann::json::parse(daemon_.controls[0]));
    EXPECT_EQ((nlohmann::json{{"op", "set"}, {"name", "police-burst"}, {"value", 4294967295u}, {"if", "eth3"}}),
              nlohmann::json::parse(daemon_.controls[1]));
    EXPECT_EQ((nlohmann::json{{"op", "police-recover"}, {"if", "eth3"}}), nlohmann::json::parse(daemon_.controls[3]));
    EXPECT_TRUE(daemon_.calls.empty());
    daemon_.onControl = jsonControl([](const nlohmann::json&) { return nlohmann::json{{"ok", true}}; });
    r = run({"--json", "if", "eth3", "recover"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_TRUE(has(r.out, "\"ok\":true")) << r.out;
}

TEST(CtlValues, NumberOrDefaultTakesANumberOrTheWordDefault) {
    auto w = vocab::parseValue(ValueType::NumberOrDefault, "default");
    EXPECT_TRUE(w.ok);
    EXPECT_EQ(vocab::VALUE_DEFAULT, w.value);
    w = vocab::parseValue(ValueType::NumberOrDefault, "0x64");
    EXPECT_TRUE(w.ok);
    EXPECT_EQ(100u, w.value);
    w = vocab::parseValue(ValueType::NumberOrDefault, "often");
    EXPECT_FALSE(w.ok);
    EXPECT_TRUE(has(w.error, "or default")) << w.error;
    EXPECT_EQ("default", vocab::valueWord(ValueType::NumberOrDefault, vocab::VALUE_DEFAULT));
    EXPECT_EQ("250", vocab::valueWord(ValueType::NumberOrDefault, 250));
}

// ---- metrics ------------------------------------------------------------------------------------

// Global enable on, policy replace, vendor id 3561; entries 5 (p1) and 12
// (eth3, trusted, policy drop), each counter a number of its own.
void answerLikeAnAgent(const cmdp::CallRequest& q, cmdp::CallReply& r) {
    if (q.code == 1) {
        switch (q.cmd) {
            case PPPOEPLUS_SCALAR_ENABLE: r.lenWord = 1; break;
            case PPPOEPLUS_SCALAR_POLICY: r.lenWord = 3; break;
            case PPPOEPLUS_SCALAR_VENDORID: r.lenWord = 3561; break;
            default: r.lenWord = 0;
        }
    } else if (walkUnitsFiveAndTwelve(q, r)) {
        return;
    } else if (q.code == 6) {
        switch (q.cmd) {
            case PPPOEPLUS_IF_ENABLE: r.lenWord = 1; break;
            case PPPOEPLUS_IF_TRUST: r.lenWord = q.unit == 12 ? 1 : 2; break;
            case PPPOEPLUS_IF_POLICY: r.lenWord = q.unit == 12 ? 2 : 0; break;
            case PPPOEPLUS_IF_IGNORE_PKT: r.lenWord = 2; break;
            default: r.lenWord = q.cmd * 100 + q.unit;  // counters 9 to 16
        }
    }
}

// What the Python client's parser makes of `text` (tools/tests/parse_metrics.py).
std::string parsedByPrometheusClient(const std::string& text, int& status) {
    char path[] = "/tmp/pppoeplusctl-metrics-XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) return "mkstemp failed";
    FILE* f = fdopen(fd, "w");
    fwrite(text.data(), 1, text.size(), f);
    fclose(f);
    const std::string cmd =
        std::string("/usr/bin/python3 ") + PPPOEPLUS_SOURCE_DIR + "/tools/tests/parse_metrics.py < " + path + " 2>&1";
    FILE* p = popen(cmd.c_str(), "r");
    std::string out;
    char buf[4096];
    size_t n;
    while (p != nullptr && (n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    status = p != nullptr ? pclose(p) : -1;
    unlink(path);
    return out;
}

TEST_F(CtlTest, MetricsAreTheCountersAndStatesAsThePrometheusParserReadsThem) {
    daemon_.onCall = answerLikeAnAgent;
    Outcome r = run({"metrics"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.err);
    EXPECT_TRUE(has(r.out, "# HELP pppoeplus_interface_padi_received_total Valid PADI received here.\n"
                           "# TYPE pppoeplus_interface_padi_received_total counter\n"
                           "pppoeplus_interface_padi_received_total{interface=\"p1\",unit=\"5\"} 1105\n"))
        << r.out;
    int status = -1;
    const std::string parsed = parsedByPrometheusClient(r.out, status);
    ASSERT_EQ(0, status) << parsed;
    const char* const expected[] = {
        "pppoeplus_enabled gauge pppoeplus_enabled {} 1",
        "pppoeplus_interface_enabled gauge pppoeplus_interface_enabled {interface=eth3,unit=12} 1",
        "pppoeplus_interface_enabled gauge pppoeplus_interface_enabled {interface=p1,unit=5} 1",
        "pppoeplus_interface_ignore_packets gauge pppoeplus_interface_ignore_packets {interface=p1,unit=5} 0",
        "pppoeplus_interface_pado_received counter pppoeplus_interface_pado_received_total "
        "{interface=eth3,unit=12} 1312",
        "pppoeplus_interface_padi_received counter pppoeplus_interface_padi_received_total "
        "{interface=p1,unit=5} 1105",
        "pppoeplus_interface_padr_received counter pppoeplus_interface_padr_received_total "
        "{interface=p1,unit=5} 1205",
        "pppoeplus_interface_pads_received counter pppoeplus_interface_pads_received_total "
        "{interface=p1,unit=5} 1405",
        "pppoeplus_interface_padt_received counter pppoeplus_interface_padt_received_total "
        "{interface=eth3,unit=12} 1512",
        "pppoeplus_interface_policy gauge pppoeplus_interface_policy {interface=eth3,unit=12} 2",
        "pppoeplus_interface_policy gauge pppoeplus_interface_policy {interface=p1,unit=5} 0",
        "pppoeplus_interface_receive_errors counter pppoeplus_interface_receive_errors_total "
        "{interface=p1,unit=5} 905",
        "pppoeplus_interface_send_errors counter pppoeplus_interface_send_errors_total "
        "{interface=eth3,unit=12} 1012",
        "pppoeplus_interface_sent counter pppoeplus_interface_sent_total {interface=eth3,unit=12} 1612",
        "pppoeplus_interface_trusted gauge pppoeplus_interface_trusted {interface=eth3,unit=12} 1",
        "pppoeplus_interface_trusted gauge pppoeplus_interface_trusted {interface=p1,unit=5} 0",
        "pppoeplus_interfaces gauge pppoeplus_interfaces {} 2",
        "pppoeplus_policy gauge pppoeplus_policy {} 3",
        "pppoeplus_up gauge pppoeplus_up {} 1",
        "pppoeplus_vendor_id gauge pppoeplus_vendor_id {} 3561",
    };
    for (const char* line : expected) EXPECT_TRUE(has(parsed, std::string(line) + "\n")) << line << "\n" << parsed;
    // 5 global samples, 2 interfaces x (4 states + 8 counters).
    EXPECT_EQ(5u + 2 * 12, static_cast<size_t>(std::count(parsed.begin(), parsed.end(), '\n'))) << parsed;
}

TEST_F(CtlTest, MetricsCarryEachPortsPolicingWhenTheDaemonPolices) {
    daemon_.onCall = answerLikeAnAgent;
    daemon_.onControl = jsonControl([](const nlohmann::json& q) {
        EXPECT_EQ("police-status", q["op"]);
        return nlohmann::json{{"ok", true},
                              {"available", true},
                              {"interfaces",
                               {{"p1", {{"ifindex", 5}, {"passed", 10}, {"dropped", 77}, {"state", "err-disabled"},
                                        {"hold-left", 9}}}}}};
    });
    Outcome r = run({"metrics"});
    ASSERT_EQ(0, r.status) << r.err;
    int status = -1;
    const std::string parsed = parsedByPrometheusClient(r.out, status);
    ASSERT_EQ(0, status) << parsed;
    for (const char* line : {
             "pppoeplus_interface_policed counter pppoeplus_interface_policed_total {interface=p1,unit=5} 77",
             "pppoeplus_interface_policed counter pppoeplus_interface_policed_total {interface=eth3,unit=12} 0",
             "pppoeplus_interface_error_disabled gauge pppoeplus_interface_error_disabled {interface=p1,unit=5} 1",
             "pppoeplus_interface_error_disabled gauge pppoeplus_interface_error_disabled {interface=eth3,unit=12} 0",
         })
        EXPECT_TRUE(has(parsed, std::string(line) + "\n")) << line << "\n" << parsed;
    // 5 global samples, 2 interfaces x (4 states + 8 counters + 2 of policing).
    EXPECT_EQ(5u + 2 * 14, static_cast<size_t>(std::count(parsed.begin(), parsed.end(), '\n'))) << parsed;
}

TEST_F(CtlTest, MetricsPrintNothingWhenTheDaemonCannotBeReachedOrRefuses) {
    daemon_.transportResult = -1;
    daemon_.transportError = "connect: No such file or directory";
    Outcome r = run({"metrics"});
    EXPECT_EQ(ctl::EXIT_UNREACHABLE, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_TRUE(has(r.err, "cannot reach the daemon")) << r.err;
    // --json does not apply: still nothing on stdout.
    r = run({"--json", "metrics"});
    EXPECT_EQ(ctl::EXIT_UNREACHABLE, r.status);
    EXPECT_EQ("", r.out);
    // The daemon fails halfway through the interfaces: nothing either.
    daemon_.transportResult = 0;
    daemon_.onCall = [](const cmdp::CallRequest& q, cmdp::CallReply& r) {
        answerLikeAnAgent(q, r);
        if (q.code == 6 && q.unit == 12 && q.cmd == PPPOEPLUS_IF_PADT_RCV) r.result = ZEL_ERR_GENERAL;
    };
    r = run({"metrics"});
    EXPECT_EQ(ctl::EXIT_RESULT, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_TRUE(has(r.err, "ZEL_ERR_GENERAL")) << r.err;
    EXPECT_EQ(ctl::EXIT_USAGE, run({"metrics", "now"}).status);
}

TEST_F(CtlTest, MetricsLeaveOutAnInterfaceWhoseEntryWentAwayDuringTheWalk) {
    daemon_.onCall = [](const cmdp::CallRequest& q, cmdp::CallReply& r) {
        answerLikeAnAgent(q, r);
        if (q.code == 6 && q.unit == 5 && q.cmd == PPPOEPLUS_IF_PADR_RCV) r.result = ZEL_ERR_NOT_FOUND;
    };
    Outcome r = run({"metrics"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_TRUE(has(r.out, "\npppoeplus_interfaces 1\n")) << r.out;
    EXPECT_FALSE(has(r.out, "unit=\"5\"")) << r.out;
    EXPECT_TRUE(has(r.out, "pppoeplus_interface_sent_total{interface=\"eth3\",unit=\"12\"} 1612\n")) << r.out;
}

// ---- shell and events ----------------------------------------------------------------------------

TEST_F(CtlTest, AShellCallTakesNumbersAndInterfaceNamesInEitherForm) {
    daemon_.onShell = [](const cmdp::ShellRequest&, cmdp::ShellReply& r) { r.output = "\r\nline one\r\nline two\r\n"; };
    Outcome r = run({"shell", "pppoeplusPonTest", "p1", "7"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("\nline one\nline two\n", r.out);
    r = run({"shell", "pppoeplusPonTest(eth3, 0x10)"});
    EXPECT_EQ(0, r.status) << r.err;
    r = run({"shell", "pppoeplusShow"});
    ASSERT_EQ(3u, daemon_.shells.size());
    EXPECT_EQ("pppoeplusPonTest", daemon_.shells[0].name);
    EXPECT_EQ((std::vector<int64_t>{5, 7}), daemon_.shells[0].args);
    EXPECT_EQ("pppoeplusPonTest", daemon_.shells[1].name);
    EXPECT_EQ((std::vector<int64_t>{12, 16}), daemon_.shells[1].args);
    EXPECT_TRUE(daemon_.shells[2].args.empty());
    r = run({"--json", "shell", "pppoeplusShow"});
    EXPECT_EQ("{\"ok\":true,\"function\":\"pppoeplusShow\",\"args\":[],\"result\":0,\"variable\":false,"
              "\"truncated\":false,\"output\":\"\\r\\nline one\\r\\nline two\\r\\n\"}\n",
              r.out);
    r = run({"shell", "pppoeplusPonTest", "nosuch0", "7"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    r = run({"shell", "pppoeplusPonTest(p1, 7"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    r = run({"shell", "f", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    EXPECT_EQ(4u, daemon_.shells.size());
}

TEST_F(CtlTest, AShellRefusalOrANonZeroReturnIsAFailure) {
    daemon_.onShell = [](const cmdp::ShellRequest& q, cmdp::ShellReply& r) {
        if (q.name == "system") {
            r.status = cmdp::ERR_DENIED;
            r.output = "system: not a function of this process\n";
        } else if (q.name == "pppoeplusNope") {
            r.status = cmdp::ERR_NOT_FOUND;
        } else if (q.name == "gPppoeplusTestForward") {
            r.flags = cmdp::SHELL_FLAG_VARIABLE;
            r.result = 1;
            r.output = "gPppoeplusTestForward = 1 (0x00000001)\n";
        } else {
            r.result = 2;
        }
    };
    Outcome r = run({"shell", "system"});
    EXPECT_EQ(ctl::EXIT_RESULT, r.status);
    EXPECT_TRUE(has(r.err, "ERR_DENIED (0x3E80030)")) << r.err;
    EXPECT_TRUE(has(r.err, "not a function of this process")) << r.err;
    r = run({"shell", "pppoeplusNope"});
    EXPECT_EQ(ctl::EXIT_RESULT, r.status);
    EXPECT_TRUE(has(r.err, "ERR_NOT_FOUND (0x3E80002)")) << r.err;
    r = run({"shell", "pppoeplusSetPktFdRecvBufLen", "1"});
    EXPECT_EQ(ctl::EXIT_RESULT, r.status);
    EXPECT_TRUE(has(r.err, "returned 2")) << r.err;
    r = run({"shell", "gPppoeplusTestForward"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("gPppoeplusTestForward = 1 (0x00000001)\n", r.out);
}

TEST_F(CtlTest, ShellAloneListsTheFunctions) {
    Outcome r = run({"shell"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ(ctl::helpText("shell"), r.out);
    EXPECT_TRUE(has(r.out, "pppoeplusIfEntryShow IF")) << r.out;
    EXPECT_TRUE(daemon_.shells.empty()) << "nothing is asked of the daemon";
}

TEST_F(CtlTest, AShellRefusalSaysWhyAndWhatMayBeCalled) {
    const std::string list =
        "callable functions (an interface is given by its unit):\n"
        "  pppoeplusShow()\n"
        "  pppoeplusIfEntryShow(interface ifUnit)\n"
        "variables, read only: gPppoeplusTestForward gTestOnuInfo\n";
    daemon_.onShell = [&list](const cmdp::ShellRequest& q, cmdp::ShellReply& r) {
        r.status = cmdp::ERR_DENIED;
        if (q.name == "pppoeplusIfEntryAdd")
            r.output = "'pppoeplusIfEntryAdd' is not a diagnostic function of this process\n" + list;
        else
            r.output = "'pppoeplusShow' takes 0 arguments, not 1: pppoeplusShow()\n";
    };
    Outcome r = run({"shell", "pppoeplusIfEntryAdd", "0x10"});
    EXPECT_EQ(ctl::EXIT_RESULT, r.status);
    EXPECT_EQ("pppoeplusctl: shell pppoeplusIfEntryAdd: ERR_DENIED (0x3E80030): not allowed (a peer without the "
              "right, or a shell call the process does not offer) ('pppoeplusIfEntryAdd' is not a diagnostic "
              "function of this process)\n" +
                  list,
              r.err);
    r = run({"shell", "pppoeplusShow", "1"});
    EXPECT_EQ(ctl::EXIT_RESULT, r.status);
    EXPECT_TRUE(has(r.err, "ERR_DENIED (0x3E80030)")) << r.err;
    EXPECT_TRUE(has(r.err, "('pppoeplusShow' takes 0 arguments, not 1: pppoeplusShow())\n")) << r.err;
    r = run({"--json", "shell", "pppoeplusIfEntryAdd"});
    EXPECT_EQ(ctl::EXIT_RESULT, r.status);
    EXPECT_TRUE(has(r.out, "\"callable\":\"callable functions (an interface is given by its unit):\\n  "
                           "pppoeplusShow()\\n"))
        << r.out;
    EXPECT_TRUE(has(r.out, "\"resultName\":\"ERR_DENIED\"")) << r.out;
}

TEST_F(CtlTest, EventsResetAPortOrProtocols) {
    Outcome r = run({"event", "reset-port", "p1"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("reset-port p1 (unit 5): delivered to 1 route socket\n", r.out);
    r = run({"event", "reset-proto"});
    EXPECT_EQ("reset-proto 141: delivered to 1 route socket\n", r.out);
    r = run({"--json", "event", "reset-proto", "pppoe+hw", "141,7"});
    EXPECT_EQ("{\"ok\":true,\"event\":\"reset-proto\",\"protocols\":[19,141,7],\"delivered\":1}\n", r.out);
    r = run({"--json", "event", "reset-port", "12"});
    EXPECT_EQ("{\"ok\":true,\"event\":\"reset-port\",\"unit\":12,\"interface\":\"eth3\",\"delivered\":1}\n", r.out);
    ASSERT_EQ(4u, daemon_.events.size());
    EXPECT_EQ(cmdp::EVENT_RESET_PORT, daemon_.events[0].event);
    EXPECT_EQ(5u, daemon_.events[0].unit);
    EXPECT_EQ(cmdp::EVENT_RESET_PROTO, daemon_.events[1].event);
    EXPECT_EQ((std::vector<uint16_t>{141}), daemon_.events[1].protos);
    EXPECT_EQ((std::vector<uint16_t>{19, 141, 7}), daemon_.events[2].protos);
    r = run({"event", "reset-proto", "385"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    r = run({"event", "reset-port"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    r = run({"event", "reboot"});
    EXPECT_EQ(ctl::EXIT_USAGE, r.status);
    daemon_.onEvent = [](const cmdp::EventRequest&, cmdp::EventReply& e) { e.result = cmdp::ERR_NOT_FOUND; };
    r = run({"event", "reset-port", "99"});
    EXPECT_EQ(ctl::EXIT_RESULT, r.status);
    EXPECT_TRUE(has(r.err, "ERR_NOT_FOUND (0x3E80002)")) << r.err;
}

}  // namespace

// ---- config ----------------------------------------------------------------------------------

std::string readAll(const std::string& path) {
    std::ifstream f(path);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

TEST(CtlConfigMerge, OtherLinesStayWhereTheyAreAndTheSettingsFormOneBlockAtTheEnd) {
    const std::string old =
        "# my agent\n"
        "pppoeplus.defaultenable = true\n"
        "if.eth1.trust = on\n"
        "# uplinks\n"
        "  agent.policy = keep\n"
        "platform.exclude = eth0\n"
        "\n"
        "port.eth2 = kind=eth port=2\n";
    const std::string op = "# Operational settings, as the daemon runs them\nagent.policy = drop\nif.eth9.trust = on\n";
    const std::string once = ctl::configMerge(old, op);
    EXPECT_EQ(
        "# my agent\n"
        "pppoeplus.defaultenable = true\n"
        "# uplinks\n"
        "platform.exclude = eth0\n"
        "\n"
        "port.eth2 = kind=eth port=2\n"
        "\n" +
            std::string(ctl::CONFIG_SAVE_MARKER) +
            "\n"
            "agent.policy = drop\n"
            "if.eth9.trust = on\n",
        once);
    // Saved again: the block is replaced, not repeated.
    EXPECT_EQ(once, ctl::configMerge(once, op));
    // An empty file: the block alone.
    EXPECT_EQ(std::string(ctl::CONFIG_SAVE_MARKER) + "\nagent.policy = drop\nif.eth9.trust = on\n",
              ctl::configMerge("", op));
}

TEST_F(CtlTest, ConfigCheckPrintsEveryBadLineAndExitsOne) {
    char path[] = "/tmp/ctl-check-XXXXXX";
    int fd = ::mkstemp(path);
    ASSERT_GE(fd, 0);
    const std::string text = "agent.policy = keep\nif.eth1.trust = sideways\nif.eth1.nosuch = 1\n";
    ASSERT_EQ(static_cast<ssize_t>(text.size()), ::write(fd, text.data(), text.size()));
    ::close(fd);
    Outcome r = run({"config", "check", path});
    EXPECT_EQ(1, r.status);
    EXPECT_TRUE(has(r.out, std::string(path) + ":2: if.eth1.trust: trust: ")) << r.out;
    EXPECT_TRUE(has(r.out, std::string(path) + ":3: if.eth1.nosuch: no interface setting 'nosuch'")) << r.out;
    EXPECT_TRUE(daemon_.controls.empty());

    const std::string good = "agent.policy = keep\nif.eth*.trust = off\n";
    fd = ::open(path, O_WRONLY | O_TRUNC);
    ASSERT_EQ(static_cast<ssize_t>(good.size()), ::write(fd, good.data(), good.size()));
    ::close(fd);
    r = run({"config", "check", path});
    EXPECT_EQ(0, r.status) << r.out;
    EXPECT_TRUE(has(r.out, "no errors"));
    ::unlink(path);
}

TEST_F(CtlTest, ConfigReloadPrintsTheDaemonsErrorsAndExitsOne) {
    daemon_.onControl = [](const std::string&) {
        return std::string(R"({"ok":false,"file":"/etc/p.conf","errors":["/etc/p.conf:4: if.eth1.trust: trust: on or off"],)"
                           R"("changed":[],"restart":[]})");
    };
    Outcome r = run({"config", "reload"});
    EXPECT_EQ(1, r.status);
    EXPECT_TRUE(has(r.err, "/etc/p.conf:4: if.eth1.trust: trust: on or off")) << r.err;
    EXPECT_TRUE(has(r.err, "nothing changed"));
    ASSERT_EQ(1u, daemon_.controls.size());
    EXPECT_EQ(R"({"op":"config-reload"})", daemon_.controls[0]);

    daemon_.onControl = [](const std::string&) {
        return std::string(R"({"ok":true,"file":"/etc/p.conf","errors":[],"changed":["if.eth1.policy = keep"],)"
                           R"("restart":["pppoeplus.maxifnum"]})");
    };
    r = run({"config", "reload"});
    EXPECT_EQ(0, r.status);
    EXPECT_TRUE(has(r.out, "changed: if.eth1.policy = keep"));
    EXPECT_TRUE(has(r.out, "needs a restart: pppoeplus.maxifnum"));
}

TEST_F(CtlTest, ConfigShowPrintsTheDaemonsTextAndSaveWritesItWithABackup) {
    char dir[] = "/tmp/ctl-save-XXXXXX";
    ASSERT_NE(nullptr, ::mkdtemp(dir));
    const std::string file = std::string(dir) + "/p.conf";
    {
        int fd = ::open(file.c_str(), O_WRONLY | O_CREAT, 0640);
        const std::string old = "# mine\npppoeplus.defaultenable = true\nif.eth1.trust = off\n";
        ASSERT_EQ(static_cast<ssize_t>(old.size()), ::write(fd, old.data(), old.size()));
        ::close(fd);
    }
    daemon_.onControl = [&file](const std::string&) {
        nlohmann::json j = {{"ok", true},
                            {"file", file},
                            {"text", "pppoeplus.defaultenable = true\n\nif.eth1.trust = on\n"},
                            {"operational", "if.eth1.trust = on\n"}};
        return j.dump();
    };
    Outcome r = run({"config", "show"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("pppoeplus.defaultenable = true\n\nif.eth1.trust = on\n", r.out);

    r = run({"config", "save"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("# mine\npppoeplus.defaultenable = true\n\n" + std::string(ctl::CONFIG_SAVE_MARKER) + "\nif.eth1.trust = on\n",
              readAll(file));
    EXPECT_EQ("# mine\npppoeplus.defaultenable = true\nif.eth1.trust = off\n", readAll(file + ".bak"));
    struct stat st;
    ASSERT_EQ(0, ::stat(file.c_str(), &st));
    EXPECT_EQ(0640u, st.st_mode & 0777);

    // Into another file, which did not exist: no backup.
    r = run({"config", "save", std::string(dir) + "/new.conf"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ(std::string(ctl::CONFIG_SAVE_MARKER) + "\nif.eth1.trust = on\n", readAll(std::string(dir) + "/new.conf"));
    EXPECT_NE(0, ::access((std::string(dir) + "/new.conf.bak").c_str(), F_OK));
    std::filesystem::remove_all(dir);
}
