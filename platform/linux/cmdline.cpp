// pppoeplusd's command line. The daemon's entry takes no arguments and
// reads everything from its configuration file; the platform answers the
// few things an operator asks of the binary itself before the daemon runs:
// glibc calls the functions of .init_array with (argc, argv, envp) before
// main, so --version and --help are answered, and a command line the daemon
// does not take is refused, before anything is started.
//
// Linked into pppoeplusd only: a test binary keeps its own command line.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "generated/pppoeplus_version.h"

namespace {

constexpr const char* USAGE =
    "Usage: pppoeplusd [--version | --help]\n"
    "\n"
    "The PPPoE intermediate agent. Without arguments it runs in the foreground,\n"
    "configured by /etc/pppoeplus.conf (or the file named by PPPOEPLUS_CONF),\n"
    "logging to syslog (PPPOEPLUS_LOG=stderr: to standard error), with its\n"
    "sockets in /tmp (PPPOEPLUS_ROOT=DIR: in DIR). It is managed with\n"
    "pppoeplusctl. See pppoeplusd(8) and pppoeplus.conf(5).\n"
    "\n"
    "  --version   print the version and exit\n"
    "  --help      print this text and exit\n";

void pppoeplusdCommandLine(int argc, char** argv, char**) {
    if (argc <= 1) return;
    const char* a = argv[1];
    if (argc == 2 && std::strcmp(a, "--version") == 0) {
        std::printf("pppoeplusd (pppoeplus) %s\n", PPPOEPLUS_PRODUCT_VERSION);
        std::exit(0);
    }
    if (argc == 2 && (std::strcmp(a, "--help") == 0 || std::strcmp(a, "-h") == 0)) {
        std::fputs(USAGE, stdout);
        std::exit(0);
    }
    std::fprintf(stderr, "pppoeplusd: unexpected argument '%s'\n%s", a, USAGE);
    std::exit(2);
}

}  // namespace

__attribute__((section(".init_array"), used)) static void (*const gPppoeplusdCommandLine)(int, char**,
                                                                                          char**) =
    pppoeplusdCommandLine;
