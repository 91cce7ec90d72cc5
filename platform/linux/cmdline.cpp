// pppoeplusd's command line. The daemon's entry takes no arguments and
// reads everything from its configuration file; the platform answers the
// few things an operator asks of the binary itself before the daemon runs:
// glibc calls the functions of .init_array with (argc, argv, envp) before
// main, so --version, --help and --check-config are answered, and a command
// line the daemon does not take is refused, before anything is started. A
// configuration file named explicitly (PPPOEPLUS_CONF) that cannot be read
// ends the start here too: a daemon started on the built-in defaults instead
// of its operator's file would run with the agent off and say nothing.
//
// Linked into pppoeplusd only: a test binary keeps its own command line.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <string>

#include "generated/pppoeplus_version.h"
#include "platform/linux/config.h"

namespace {

constexpr const char* USAGE =
    "Usage: pppoeplusd [--version | --help | --check-config FILE]\n"
    "\n"
    "The PPPoE intermediate agent. Without arguments it runs in the foreground,\n"
    "configured by /etc/pppoeplus.conf (or the file named by PPPOEPLUS_CONF),\n"
    "logging to syslog (PPPOEPLUS_LOG=stderr: to standard error), with its\n"
    "sockets in /tmp (PPPOEPLUS_ROOT=DIR: in DIR). It is managed with\n"
    "pppoeplusctl. See pppoeplusd(8) and pppoeplus.conf(5).\n"
    "\n"
    "  --version            print the version and exit\n"
    "  --help               print this text and exit\n"
    "  --check-config FILE  check FILE without starting: every line that is\n"
    "                       ignored or not read as written is printed as\n"
    "                       FILE:LINE: what is wrong; exit 0 when there is\n"
    "                       none, 1 otherwise\n";

// Checks a configuration file as the daemon would read it. The exit status.
int checkConfig(const char* path) {
    std::string text, error;
    if (!linuxplat::configReadFile(path, text, error)) {
        std::fprintf(stderr, "pppoeplusd: %s\n", error.c_str());
        return 1;
    }
    linuxplat::ConfigData data = linuxplat::configParse(text, path);
    for (const std::string& m : data.messages) std::printf("%s\n", m.c_str());
    if (data.messages.empty()) std::printf("%s: no errors\n", path);
    return data.messages.empty() ? 0 : 1;
}

void pppoeplusdCommandLine(int argc, char** argv, char**) {
    if (argc <= 1) {
        const char* named = std::getenv("PPPOEPLUS_CONF");
        std::string text, error;
        if (named != nullptr && named[0] != '\0' && !linuxplat::configReadFile(named, text, error)) {
            std::fprintf(stderr,
                         "pppoeplusd: the configuration named by PPPOEPLUS_CONF cannot be read (%s); not starting\n",
                         error.c_str());
            std::exit(1);
        }
        return;
    }
    const char* a = argv[1];
    if (argc == 2 && std::strcmp(a, "--version") == 0) {
        std::printf("pppoeplusd (pppoeplus) %s\n", PPPOEPLUS_PRODUCT_VERSION);
        std::exit(0);
    }
    if (argc == 2 && (std::strcmp(a, "--help") == 0 || std::strcmp(a, "-h") == 0)) {
        std::fputs(USAGE, stdout);
        std::exit(0);
    }
    if (argc == 3 && std::strcmp(a, "--check-config") == 0) std::exit(checkConfig(argv[2]));
    std::fprintf(stderr, "pppoeplusd: unexpected argument '%s'\n%s", a, USAGE);
    std::exit(2);
}

}  // namespace

__attribute__((section(".init_array"), used)) static void (*const gPppoeplusdCommandLine)(int, char**,
                                                                                          char**) =
    pppoeplusdCommandLine;
