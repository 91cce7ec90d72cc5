// The help texts of pppoeplusctl: the overview, one text per command, and
// the tables of names and results, written from the settings' table and the
// result names.
#include "tools/help.h"

#include <iomanip>
#include <sstream>

#include "mgmt/mgmt_codes.h"
#include "platform/linux/cmd_proto.h"
#include "platform/types.h"
#include "tools/results.h"
#include "vocab/settings.h"
#include "vocab/text.h"
#include "vocab/values.h"

namespace ctl {

using namespace vocab;

namespace {

const char* const HELP_MAIN =
    "Usage: pppoeplusctl [OPTIONS] COMMAND [ARGUMENTS]\n"
    "\n"
    "Manages a running pppoeplusd, the PPPoE intermediate agent, through its\n"
    "command service, process shell and event socket.\n"
    "\n"
    "Commands:\n"
    "  get [NAME]                 show a global setting, or all of them\n"
    "  set NAME VALUE             change a global setting\n"
    "  sync NAME VALUE            change a global setting as a sync (see 'help sync')\n"
    "  if list                    the interfaces the agent serves, and their counters\n"
    "  if IF get [NAME]           show a setting or counter of an interface, or all\n"
    "  if IF set NAME VALUE       change a setting of an interface\n"
    "  if IF sync NAME VALUE      change a setting of an interface as a sync\n"
    "  if IF counters             the eight counters of an interface\n"
    "  if IF clear                set the counters of an interface to zero\n"
    "  if IF recover              end an interface's error-disable (policing)\n"
    "  shell FUNCTION [ARG...]    call a diagnostic function; 'shell' alone lists them\n"
    "  event reset-port IF        raise the event that resets a port's configuration\n"
    "  event reset-proto [ID...]  raise the event that resets protocols' settings\n"
    "                             (default 141, the agent's own protocol)\n"
    "  metrics                    the counters and states in the Prometheus text\n"
    "                             format, for a textfile collector\n"
    "  config show                the running configuration, as a file\n"
    "  config save [FILE]         write it into the daemon's file (or FILE)\n"
    "  config reload              the daemon reads its file again\n"
    "  config check FILE          check a file without applying it\n"
    "  help [TOPIC]               this text, or a topic: get set sync if shell event\n"
    "                             metrics config names results\n"
    "\n"
    "NAME is the name of a setting or counter ('pppoeplusctl help names') or its\n"
    "command code. Values are words (on/off, keep/drop/replace/default,\n"
    "default/userdefine/ascii) or numbers. IF is an interface name or an interface\n"
    "unit (on Linux its ifindex). Names are looked up in this tool's network\n"
    "namespace: run the tool in the daemon's namespace (ip netns exec NS ...).\n"
    "\n"
    "Options (before the command):\n"
    "  --json               print the result as one JSON object, for scripts\n"
    "  --root DIR           the daemon's PPPOEPLUS_ROOT: its sockets are in DIR\n"
    "                       instead of /tmp (default: $PPPOEPLUS_ROOT, else\n"
    "                       /run/pppoeplus when the daemon's socket is there)\n"
    "  --socket PATH        the command service (default /tmp/pppoeplusNm.socket)\n"
    "  --shell-socket PATH  the process shell (default /tmp/pppoeplusShell.socket)\n"
    "  --event-socket PATH  the event socket (default /tmp/zelRouteEvent.socket)\n"
    "  --control-socket PATH the control service (default\n"
    "                       /tmp/pppoeplusControl.socket)\n"
    "  --timeout SECONDS    how long to wait for a reply (default 10, shell 30)\n"
    "  -h, --help           this text; after a command, the help of that command\n"
    "  --version            the tool's version\n"
    "\n"
    "Exit status:\n"
    "  0  success\n"
    "  1  the daemon answered with a result other than 0; the message names it\n"
    "     and gives its value, e.g. ZEL_ERR_NOT_FOUND (0x3E80002) ('help results')\n"
    "  2  the command line is wrong: unknown command, name, value or interface\n"
    "  3  the daemon could not be reached, or the exchange with it failed\n"
    "\n"
    "The command service admits root and the members of platform.group; the\n"
    "process shell and the event socket admit root only.\n"
    "\n"
    "Examples:\n"
    "  pppoeplusctl get\n"
    "  pppoeplusctl set enable on\n"
    "  pppoeplusctl set policy replace\n"
    "  pppoeplusctl if eth9 set trust on\n"
    "  pppoeplusctl if eth1 set circuit-id-type userdefine\n"
    "  pppoeplusctl if eth1 set circuit-id-format \"'%portname/%svlan/%cvlan'\"\n"
    "  pppoeplusctl if eth1 counters\n"
    "  pppoeplusctl --json if list\n"
    "  pppoeplusctl shell pppoeplusShow\n"
    "  pppoeplusctl event reset-port eth1\n"
    "  pppoeplusctl metrics\n";

const char* const HELP_GET =
    "Usage: pppoeplusctl [--json] get [NAME]\n"
    "\n"
    "Shows a global setting of the agent, or with no NAME every global value in\n"
    "code order. NAME is one of the names of 'pppoeplusctl help names' (global\n"
    "part) or a command code; a code the daemon does not know is answered with\n"
    "ZEL_ERR_UNSUPPORTED (0x3E80010).\n"
    "\n"
    "Enumerated values are shown as words (on/off, keep/drop/replace/default,\n"
    "default/userdefine/ascii), formats as the text that was typed; with --json\n"
    "the number the daemon holds is given as \"raw\" beside the word.\n"
    "\n"
    "Examples:\n"
    "  pppoeplusctl get policy\n"
    "  pppoeplusctl get circuit-id-format\n"
    "  pppoeplusctl --json get vendor-id\n";

const char* const HELP_SET =
    "Usage: pppoeplusctl [--json] set NAME VALUE\n"
    "\n"
    "Changes a global setting. The daemon forwards the command to the hardware\n"
    "layer first, then checks and applies it.\n"
    "\n"
    "  debug VALUE              none, all, or startup,dump,trace,error, or a mask\n"
    "  policy VALUE             default, keep, drop or replace: what happens to a\n"
    "                           client frame that already carries a Vendor-Specific\n"
    "                           tag (keep it, remove it, replace it by the agent's;\n"
    "                           default at the global level forwards nothing)\n"
    "  enable on|off            switch the whole agent on or off; off removes every\n"
    "                           interface entry\n"
    "  vendor-id NUMBER         vendor id of the agent's tag (3561 at start)\n"
    "  circuit-id-type TYPE     default (the built-in format), userdefine (keywords\n"
    "                           such as %portname, typed in full) or ascii (the\n"
    "                           text as it stands)\n"
    "  circuit-id-format TEXT   the format; set the type first\n"
    "  remote-id-type TYPE, remote-id-format TEXT\n"
    "  pon-circuit-id-type TYPE, pon-circuit-id-format TEXT   the same for PON ports\n"
    "\n"
    "The other names can only be read: a set answers ZEL_ERR_UNSUPPORTED.\n"
    "A rejected value or format gives ZEL_EINVAL (22), a format of 256 bytes or\n"
    "more ZEL_ERR_TOO_LONG (0x3E8000D). A text value may be given as several\n"
    "arguments; they are joined by single blanks.\n"
    "\n"
    "Examples:\n"
    "  pppoeplusctl set enable off\n"
    "  pppoeplusctl set policy keep\n"
    "  pppoeplusctl set circuit-id-type userdefine\n"
    "  pppoeplusctl set circuit-id-format \"'%portname:%svlan.%cvlan'\"\n"
    "  pppoeplusctl set remote-id-format \"0x01 %16s %c\"     (a hex format)\n";

const char* const HELP_SYNC =
    "Usage: pppoeplusctl [--json] sync NAME VALUE\n"
    "       pppoeplusctl [--json] if IF sync NAME VALUE\n"
    "\n"
    "Like set, with the same names, values, checks and effects on the agent; the\n"
    "only difference is the mode word handed to the hardware layer with the\n"
    "command (1, a sync, instead of 3, a set), as a standby board or a restore of\n"
    "saved configuration would send it.\n";

const char* const HELP_IF =
    "Usage: pppoeplusctl [--json] if list\n"
    "       pppoeplusctl [--json] if IF get [NAME]\n"
    "       pppoeplusctl [--json] if IF set NAME VALUE\n"
    "       pppoeplusctl [--json] if IF sync NAME VALUE\n"
    "       pppoeplusctl [--json] if IF counters\n"
    "       pppoeplusctl [--json] if IF clear\n"
    "       pppoeplusctl [--json] if IF recover\n"
    "\n"
    "IF is an interface name of this tool's network namespace or an interface\n"
    "unit (ifindex). An interface the agent does not serve has no entry: every\n"
    "command on it answers ZEL_ERR_NOT_FOUND (0x3E80002), except 'set enable on',\n"
    "which creates the entry.\n"
    "\n"
    "  list                     every served interface in unit order: enable,\n"
    "                           trust, policy, the counters, the discovery frames\n"
    "                           the kernel dropped by policing (POLICED) and the\n"
    "                           error-disable state ('-': policing unavailable)\n"
    "  get [NAME]               one setting or counter, or all of them\n"
    "  set trust on|off         on makes the interface an uplink: the agent sends\n"
    "                           its tagged frames there and takes nothing from it\n"
    "  set enable on|off        serve the interface, or stop serving it\n"
    "  set policy VALUE         default (follow the global policy), keep, drop or\n"
    "                           replace\n"
    "  set ignore-pkt on|off    ignore the frames received on the interface\n"
    "  set circuit-id-type TYPE default (use the global format), userdefine, ascii\n"
    "  set circuit-id-format TEXT, set remote-id-type TYPE, set remote-id-format TEXT\n"
    "  counters                 errorRcv, errorSend, padiRcv, padrRcv, padoRcv,\n"
    "                           padsRcv, padtRcv, totalSend ('help names')\n"
    "  clear                    sets the eight counters to zero\n"
    "  set police-rate N|default    the interface's own discovery limit, frames/s\n"
    "  set police-burst N|default   its own burst; default follows the global one\n"
    "  recover                  ends the interface's error-disable now\n"
    "\n"
    "Examples:\n"
    "  pppoeplusctl if list\n"
    "  pppoeplusctl if eth9 set trust on\n"
    "  pppoeplusctl if eth1 set policy drop\n"
    "  pppoeplusctl if 7 get padi-rcv\n"
    "  pppoeplusctl --json if eth1 counters\n";

const char* const HELP_SHELL =
    "Usage: pppoeplusctl [--json] shell FUNCTION [ARG...]\n"
    "       pppoeplusctl [--json] shell 'FUNCTION(ARG, ...)'\n"
    "\n"
    "Calls a diagnostic function of the daemon through its process shell (root\n"
    "only) and prints what it printed. The daemon calls only the functions below,\n"
    "each with exactly its arguments: IF is an interface name or unit (a name is\n"
    "looked up in this tool's network namespace, a unit must be one the daemon\n"
    "knows); the other arguments are integers (decimal or 0x hexadecimal) in the\n"
    "range the function takes. Anything else is refused with ERR_DENIED, and the\n"
    "refusal lists what may be called. The exit status is 1 when the call is\n"
    "refused or the function returns something other than 0.\n"
    "\n"
    "Functions:\n"
    "  pppoeplusShow                      the global record and every interface\n"
    "  pppoeplusIfShowAll                 every interface, then the entry pool\n"
    "  pppoeplusTrustIfShowAll            the trusted interfaces (uplinks)\n"
    "  pppoeplusIfEntryShow IF            the entry of one interface\n"
    "  pppoeplusKeywordsShow              the format keywords and their codes\n"
    "  pppoeplusCommonFormatShow          the built-in formats\n"
    "  pppoeplusHelp                      the daemon's own list of functions\n"
    "  pppoeplusSetPktFdRecvBufLen BYTES  the packet socket's receive buffer (i32)\n"
    "  pppoeplusTestForwardSet 0|1        forward frames unchanged (test switch, u32)\n"
    "  pppoeplusTest                      two reads through the management calls\n"
    "  pppoeplusLogTest IF                write the protocol error log messages\n"
    "  pppoeplusPonTest IF ONU            treat IF as a G-PON port with ONU number\n"
    "                                     ONU (u32; for a lab without PON hardware)\n"
    "  gPppoeplusTestForward, gTestOnuInfo  show these test variables (read only)\n"
    "\n"
    "Examples:\n"
    "  pppoeplusctl shell pppoeplusShow\n"
    "  pppoeplusctl shell pppoeplusIfEntryShow eth1\n"
    "  pppoeplusctl shell pppoeplusPonTest eth3 7\n"
    "  pppoeplusctl shell 'pppoeplusPonTest(eth3, 7)'\n";

const char* const HELP_EVENT =
    "Usage: pppoeplusctl [--json] event reset-port IF\n"
    "       pppoeplusctl [--json] event reset-proto [ID...]\n"
    "\n"
    "Raises a platform event through the event socket (root only); the platform\n"
    "delivers it to the route sockets of every process that follows interface\n"
    "events, the daemon's included.\n"
    "\n"
    "  reset-port IF       the configuration of port IF goes back to its defaults:\n"
    "                      a port served by default keeps its entry with default\n"
    "                      settings and zero counters, any other loses its entry\n"
    "  reset-proto [ID...] the configuration of the protocols with these ids goes\n"
    "                      back to the defaults (ids 0 to 384, or the names pppoe+\n"
    "                      (141) and pppoe+hw (19); default 141): for 141 the\n"
    "                      agent's global settings are reset and the interface\n"
    "                      entries are reset or removed\n"
    "\n"
    "Examples:\n"
    "  pppoeplusctl event reset-port eth1\n"
    "  pppoeplusctl event reset-proto\n";

const char* const HELP_CONFIG =
    "Usage: pppoeplusctl [--json] config show\n"
    "       pppoeplusctl [--json] config save [FILE]\n"
    "       pppoeplusctl [--json] config reload\n"
    "       pppoeplusctl [--json] config check FILE\n"
    "\n"
    "The operational settings (the agent's and each interface's, with the names\n"
    "and values of get and set) are lines of the configuration file:\n"
    "  agent.NAME = VALUE        a global setting\n"
    "  if.IFNAME.NAME = VALUE    a setting of interface IFNAME; IFNAME may be a\n"
    "                            shell pattern (if.eth*.trust = off); a plain name\n"
    "                            wins over a pattern, a pattern with more\n"
    "                            characters that are no wildcard wins over one with\n"
    "                            fewer, and of two equal ones the later line wins\n"
    "The daemon applies them at start, to interfaces as they appear, and at a\n"
    "reload.\n"
    "\n"
    "  show    the running configuration: the start-up options as read at start,\n"
    "          then every operational setting as it is now; read back by a new\n"
    "          daemon it gives the same state\n"
    "  save    writes the running operational settings into the daemon's file\n"
    "          (or FILE): every other line of the file, comments included, stays\n"
    "          as it is and where it is; the operational lines are written as\n"
    "          one block at the end, after a marker line. Atomic: a temporary file,\n"
    "          fsync, the previous file kept as FILE.bak, rename\n"
    "  reload  the daemon reads its file again and checks all of it first: a file\n"
    "          with an error changes nothing (each error is printed as\n"
    "          FILE:LINE: what is wrong, exit status 1); a good one is applied as\n"
    "          the difference from the running state; a start-up option that\n"
    "          changed is reported as needing a restart. SIGHUP does the same\n"
    "  check   reads FILE as the daemon would, without applying it: every line\n"
    "          that is left out or not read as written is printed; exit 0 when\n"
    "          there is none, 1 otherwise\n"
    "\n"
    "Show and reload go through the control service, which admits root and the\n"
    "members of platform.group.\n"
    "\n"
    "Examples:\n"
    "  pppoeplusctl if eth9 set trust on && pppoeplusctl config save\n"
    "  pppoeplusctl config check /etc/pppoeplus.conf && pppoeplusctl config reload\n";

const char* const HELP_METRICS =
    "Usage: pppoeplusctl metrics\n"
    "\n"
    "Prints the agent's states and counters in the Prometheus text exposition\n"
    "format (version 0.0.4), for node_exporter's textfile collector or any\n"
    "scraper that reads a file. --json does not apply.\n"
    "\n"
    "Global gauges:\n"
    "  pppoeplus_up                 1: the values were read from the daemon\n"
    "  pppoeplus_enabled            the agent is enabled (1) or not (0)\n"
    "  pppoeplus_policy             0 default, 1 keep, 2 drop, 3 replace\n"
    "  pppoeplus_vendor_id          vendor id of the agent's tag\n"
    "  pppoeplus_interfaces         interfaces the agent serves\n"
    "\n"
    "Per served interface, labelled interface=\"NAME\" and unit=\"UNIT\":\n"
    "  pppoeplus_interface_enabled, pppoeplus_interface_trusted,\n"
    "  pppoeplus_interface_ignore_packets (gauges, 0 or 1),\n"
    "  pppoeplus_interface_policy (gauge, 0 to 3), and the counters\n"
    "  pppoeplus_interface_receive_errors_total, ..._send_errors_total,\n"
    "  ..._padi_received_total, ..._padr_received_total, ..._pado_received_total,\n"
    "  ..._pads_received_total, ..._padt_received_total, ..._sent_total\n"
    "\n"
    "When the daemon cannot be reached, or answers with an error, nothing is\n"
    "printed on standard output and the exit status is 3 (or 1): a collector\n"
    "that writes the output to a temporary file and renames it only on success\n"
    "never publishes half a file. An interface whose entry goes away while it\n"
    "is read is left out.\n"
    "\n"
    "Example (what examples/pppoeplus-metrics.service does every 15 s):\n"
    "  pppoeplusctl metrics > /var/lib/prometheus/node-exporter/pppoeplus.prom.tmp &&\n"
    "    mv /var/lib/prometheus/node-exporter/pppoeplus.prom.tmp \\\n"
    "       /var/lib/prometheus/node-exporter/pppoeplus.prom\n";

const char* const HELP_RESULTS_HEAD =
    "Results of the daemon and its services, as pppoeplusctl names them:\n"
    "\n";

}  // namespace

std::string helpText(const std::string& topic) {
    const std::string t = lower(topic);
    if (t.empty() || t == "pppoeplusctl") return HELP_MAIN;
    if (t == "get") return HELP_GET;
    if (t == "set") return HELP_SET;
    if (t == "sync") return HELP_SYNC;
    if (t == "if" || t == "interface") return HELP_IF;
    if (t == "shell") return HELP_SHELL;
    if (t == "event") return HELP_EVENT;
    if (t == "config") return HELP_CONFIG;
    if (t == "metrics") return HELP_METRICS;
    if (t == "names") {
        std::ostringstream s;
        auto table = [&s](const char* title, const std::vector<CommandInfo>& rows) {
            s << title << "\n";
            for (const CommandInfo& c : rows) {
                std::string access = c.canGet && c.canSet ? "get, set" : c.canGet ? "get only" : "set only";
                s << "  " << std::setw(2) << c.code << "  " << c.name << " (" << access << ")\n";
                s << wrap(c.help, "        ", 78);
                if (c.type != ValueType::Number && c.type != ValueType::Counter && c.type != ValueType::Text &&
                    c.type != ValueType::Nsr && c.canSet)
                    s << wrap(std::string("values: ") + acceptedWords(c.type), "        ", 78);
            }
        };
        s << "Names are matched without regard to case, '-' and '_'; the record's field\n"
             "names (circuitIdFormat, totalSend, ...) and the command constants\n"
             "(PPPOEPLUS_SCALAR_POLICY, PPPOEPLUS_IF_TOTAL_SEND, ...) are accepted too.\n\n";
        table("Global (get, set, sync):", scalarCommands());
        s << "\n";
        table("Interface (if IF get, set, sync):", ifCommands());
        return s.str();
    }
    if (t == "results" || t == "codes" || t == "exit") {
        std::ostringstream s;
        s << HELP_RESULTS_HEAD;
        const int32_t codes[] = {0,
                                 ZEL_EINVAL,
                                 PPPOEPLUS_ERR,
                                 ZEL_ERR_NOT_FOUND,
                                 ZEL_ERR_TOO_LONG,
                                 ZEL_ERR_NO_RESOURCE,
                                 ZEL_ERR_UNSUPPORTED,
                                 ZEL_ERR_NULL_POINTER,
                                 ZEL_ERR_SET_SOCKOPT,
                                 ZEL_ERR_GENERAL,
                                 ZEL_ERR_EXISTS,
                                 ZEL_ERR_INVALID_ARG};
        auto row = [&s](int32_t c, ResultSource source) {
            ResultInfo i = resultInfo(c, source);
            std::ostringstream head;
            head << "  " << std::left << std::setw(22) << i.name << std::setw(11) << resultValueText(c);
            const std::string indent(head.str().size(), ' ');
            s << head.str() << wrap(i.meaning, indent, 79).substr(indent.size());
        };
        for (int32_t c : codes) row(c, ResultSource::Daemon);
        s << "\nThe services' protocol (error replies, shell and event statuses):\n";
        const int32_t proto[] = {cmdp::ERR_MALFORMED, cmdp::ERR_TOO_LONG, cmdp::ERR_NOT_FOUND, cmdp::ERR_UNSUPPORTED,
                                 cmdp::ERR_DENIED};
        for (int32_t c : proto) row(c, ResultSource::Protocol);
        s << "\nExit status: 0 success; 1 a result other than 0; 2 a wrong command line;\n"
             "3 the daemon could not be reached.\n";
        return s.str();
    }
    return "";
}

}  // namespace ctl
