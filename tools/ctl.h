// pppoeplusctl: the operator's tool for a running pppoeplusd. Everything
// that does not touch a socket or the system lives here, so that it can be
// tested on its own: the names and value words of the management commands,
// the names of result codes, argument parsing, text and JSON output, and the
// whole run of a command line against a transport that the caller supplies
// (the real one talks to the daemon's services, a test's answers by itself).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/cmd_proto.h"

namespace ctl {

// ---- exit statuses ---------------------------------------------------------------------

constexpr int EXIT_OK = 0;
constexpr int EXIT_RESULT = 1;       // the daemon or a service answered with a non-zero result
constexpr int EXIT_USAGE = 2;        // the command line is wrong (unknown name, word, interface)
constexpr int EXIT_UNREACHABLE = 3;  // the daemon could not be reached, or the exchange failed

// ---- result codes --------------------------------------------------------------------------

// Where a result came from: an entry point of the daemon, or the services'
// protocol itself (error frames, shell and event statuses). A few values
// have a different name in each.
enum class ResultSource { Daemon, Protocol };

struct ResultInfo {
    const char* name;     // "ZEL_ERR_NOT_FOUND", "UNKNOWN" when the value has no name
    const char* meaning;  // a few words for people
};
ResultInfo resultInfo(int32_t result, ResultSource source = ResultSource::Daemon);
// "0x3E80002" for the platform's codes, the decimal value for the others ("22", "-1").
std::string resultValueText(int32_t result);
// "ZEL_ERR_NOT_FOUND (0x3E80002)".
std::string resultText(int32_t result, ResultSource source = ResultSource::Daemon);

// ---- command tables ------------------------------------------------------------------------

enum class ValueType {
    Truth,       // 1 on, 2 off (0 unset)
    Policy,      // 0 default, 1 keep, 2 drop, 3 replace
    FormatType,  // 0 default, 1 userdefine, 2 ascii
    Debug,       // bit mask: 0x1 startup, 0x2 dump, 0x4 trace, 0x8 error
    Number,      // u32
    Counter,     // u32 counter
    Text,        // a format or the version
    Nsr,         // the 12-byte non-stop-routing status
    Ignored,     // set only, the value does not matter (clear)
};

struct CommandInfo {
    uint32_t code;
    const char* name;   // canonical name, kebab case
    const char* alias;  // other accepted spellings, blank-separated (the record's field name), or nullptr
    ValueType type;
    bool canGet;
    bool canSet;
    const char* help;
};

// Global (scalar) commands, codes 1 to 18, and interface commands, codes 1 to 17.
const std::vector<CommandInfo>& scalarCommands();
const std::vector<CommandInfo>& ifCommands();
// The eight counters in the order they are shown.
const std::vector<const CommandInfo*>& ifCounters();

// Finds a command by name (case, '-' and '_' do not count; the command
// constants' names are accepted too) or by its number. A number that is no
// row of the table gives a made-up entry of type Number that can be sent as
// it is (the daemon then answers for it). Nothing for an unknown name.
std::optional<CommandInfo> findScalar(const std::string& nameOrCode);
std::optional<CommandInfo> findIf(const std::string& nameOrCode);

// ---- values -------------------------------------------------------------------------------

// Reads an unsigned 32-bit number, decimal or 0x hexadecimal.
std::optional<uint32_t> parseU32(std::string_view text);
// Reads a signed 64-bit number, decimal or 0x hexadecimal, with an optional sign.
std::optional<int64_t> parseI64(std::string_view text);

// Reads the value word of a command of `type` into the word the daemon takes.
// An error text (what is accepted) when it cannot.
struct ParsedWord {
    bool ok = false;
    uint32_t value = 0;
    std::string error;
};
ParsedWord parseValue(ValueType type, const std::string& text);

// The word shown for a number of `type` ("on", "keep", "userdefine", "0x5 (startup,trace)").
std::string valueWord(ValueType type, uint32_t value);
// What `parseValue` accepts for `type`, for help and error texts.
std::string acceptedWords(ValueType type);

// The non-stop-routing record as the daemon writes it (host order).
struct NsrInfo {
    uint32_t switchover = 0;
    uint32_t incompleteOp = 0;
    uint32_t allOp = 0;
};
std::optional<NsrInfo> nsrFromBytes(const std::vector<uint8_t>& bytes);

// ---- JSON ---------------------------------------------------------------------------------

// A JSON string literal, quotes included; bytes outside printable ASCII are
// escaped (\u00XX), so that any text the daemon holds stays valid JSON.
std::string jsonString(std::string_view text);

// A small ordered JSON object or array writer.
class Json {
  public:
    static Json object();
    static Json array();
    Json& add(const std::string& key, const std::string& value);  // a string
    Json& add(const std::string& key, const char* value);
    Json& add(const std::string& key, int64_t value);
    Json& add(const std::string& key, bool value);
    Json& addRaw(const std::string& key, const std::string& json);  // already JSON
    Json& push(const Json& value);                                  // array element
    Json& pushRaw(const std::string& json);
    Json& merge(const Json& other);  // the other object's members, after these
    std::string str() const;

  private:
    bool isArray_ = false;
    std::vector<std::string> items_;
};

// ---- the environment a run needs ------------------------------------------------------------

// Talks to the daemon's services. Each call returns 0 when a reply of the
// request's kind came back (filled in), -1 when the service could not be
// reached or the exchange broke off, or the result of an error frame; `error`
// says what went wrong.
class Transport {
  public:
    virtual ~Transport() = default;
    virtual int32_t call(const cmdp::CallRequest& req, cmdp::CallReply& reply, std::string& error) = 0;
    virtual int32_t shell(const cmdp::ShellRequest& req, cmdp::ShellReply& reply, std::string& error) = 0;
    virtual int32_t event(const cmdp::EventRequest& req, cmdp::EventReply& reply, std::string& error) = 0;
};

// Interface names of the tool's own network namespace.
class Resolver {
  public:
    virtual ~Resolver() = default;
    virtual uint32_t unitOf(const std::string& name) = 0;  // 0 when there is none
    virtual std::string nameOf(uint32_t unit) = 0;         // empty when there is none
};

// Where the services listen, after the options and PPPOEPLUS_ROOT.
struct Endpoints {
    std::string command;  // command service
    std::string shell;    // process shell
    std::string event;    // event socket
    int timeoutMs = 0;    // 0: the transport's own default
};

using TransportFactory = std::function<std::unique_ptr<Transport>(const Endpoints&)>;

// Runs one command line (the arguments after the program's name). `root` is
// PPPOEPLUS_ROOT as the environment gives it (empty when unset). Writes
// results to `out` and messages to `err`; returns the exit status.
int run(const std::vector<std::string>& args, const std::string& root, const TransportFactory& transport,
        Resolver& resolver, std::ostream& out, std::ostream& err);

// The directory the installed systemd unit gives the daemon (PPPOEPLUS_ROOT).
inline constexpr const char* INSTALLED_ROOT = "/run/pppoeplus";

// The root the tool uses when --root is not given: PPPOEPLUS_ROOT when set
// (`envRoot`), else INSTALLED_ROOT when `socketAt` finds the daemon's command
// socket there, else none (the sockets' paths in /tmp).
std::string defaultRoot(const char* envRoot, const std::function<bool(const std::string&)>& socketAt);
// A socket is at `path`.
bool isSocket(const std::string& path);

// The help texts: the overview, and one per topic (get, set, sync, if, shell,
// event, names, results). Empty for an unknown topic.
std::string helpText(const std::string& topic = "");

}  // namespace ctl
