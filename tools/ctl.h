// pppoeplusctl: the operator's tool for a running pppoeplusd. Everything
// that does not touch a socket or the system is tested on its own: the
// settings' table (settings.h), value words (values.h), result names
// (results.h), output (output.h), help (help.h), and here the whole run of a
// command line against a transport that the caller supplies (the real one
// talks to the daemon's services, a test's answers by itself).
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
#include "tools/help.h"
#include "tools/output.h"
#include "tools/results.h"
#include "vocab/settings.h"
#include "vocab/values.h"

namespace ctl {

// The tool speaks the settings' vocabulary throughout.
using namespace vocab;

// ---- exit statuses ---------------------------------------------------------------------

constexpr int EXIT_OK = 0;
constexpr int EXIT_RESULT = 1;       // the daemon or a service answered with a non-zero result
constexpr int EXIT_USAGE = 2;        // the command line is wrong (unknown name, word, interface)
constexpr int EXIT_UNREACHABLE = 3;  // the daemon could not be reached, or the exchange failed

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
    // A control request's JSON text and the reply's text.
    virtual int32_t control(const std::string& req, std::string& reply, std::string& error) {
        (void)req;
        (void)reply;
        error = "no control service";
        return -1;
    }
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
    std::string control;  // control service
    int timeoutMs = 0;    // 0: the transport's own default
};

using TransportFactory = std::function<std::unique_ptr<Transport>(const Endpoints&)>;

// Runs one command line (the arguments after the program's name). `root` is
// PPPOEPLUS_ROOT as the environment gives it (empty when unset). Writes
// results to `out` and messages to `err`; returns the exit status.
int run(const std::vector<std::string>& args, const std::string& root, const TransportFactory& transport,
        Resolver& resolver, std::ostream& out, std::ostream& err);

// The configuration file `oldText` with its operational lines (`agent.` and
// `if.`) replaced by `operational`: every other line (comments, start-up
// options, platform settings, ports) stays as it was and where it was; the
// operational lines are written as one block at the end, after a marker
// line that a later save finds and replaces.
std::string configMerge(const std::string& oldText, const std::string& operational);
// The marker line of that block.
inline constexpr const char* CONFIG_SAVE_MARKER = "# ---- operational settings (pppoeplusctl config save) ----";

// The directory the installed systemd unit gives the daemon (PPPOEPLUS_ROOT).
inline constexpr const char* INSTALLED_ROOT = "/run/pppoeplus";

// The root the tool uses when --root is not given: PPPOEPLUS_ROOT when set
// (`envRoot`), else INSTALLED_ROOT when `socketAt` finds the daemon's command
// socket there, else none (the sockets' paths in /tmp).
std::string defaultRoot(const char* envRoot, const std::function<bool(const std::string&)>& socketAt);
// A socket is at `path`.
bool isSocket(const std::string& path);

}  // namespace ctl
