// The lab of the system tests: three network namespaces of its own (client,
// agent, server), veth links between them, a bridge and pppoeplusd in the
// agent, and the real peers (pppoe, pppoe-server, tshark, scapy) around it.
// Everything a lab creates goes when the object goes, whatever the test did.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "lt_netns.h"

namespace st {

// Why the system tests cannot run here (empty when they can). `pppoe`:
// the PPPoE client and server are needed; `scapy`: crafted frames are.
std::string skipReason(bool pppoe, bool scapy);

#define ST_NEED(pppoe, scapy)                                       \
    do {                                                            \
        std::string why_ = ::st::skipReason(pppoe, scapy);          \
        if (!why_.empty()) GTEST_SKIP() << why_;                    \
    } while (0)

// ---- commands --------------------------------------------------------------------------

struct Result {
    int status = -1;  // exit status, or -1 when killed or not started
    std::string out;
    std::string err;
    std::string all() const { return "exit " + std::to_string(status) + "\nstdout:\n" + out + "stderr:\n" + err; }
};

// Runs argv[0] with its arguments (no shell), killed after `timeoutSec`.
Result exec(const std::vector<std::string>& argv, int timeoutSec = 30);

// ---- frames --------------------------------------------------------------------------------

struct Frame {
    std::vector<uint8_t> bytes;  // as on the wire, VLAN tags included
    bool outgoing = false;       // sent by this interface's own side
};

// The parts of an Ethernet frame the tests look at.
struct FrameView {
    std::string src, dst;                           // "02:00:00:00:0c:00"
    std::vector<std::pair<uint16_t, uint16_t>> tags;  // (TPID, TCI), outer first
    uint16_t etherType = 0;
    size_t payload = 0;  // offset of what follows the Ethernet type
    bool discovery() const { return etherType == 0x8863; }
};
FrameView view(const Frame& f);
// The PPPoE code of a discovery frame (0x09 PADI, ...), or -1.
int pppoeCode(const Frame& f);
// The value of the first discovery tag of `type` (0x0105 Vendor-Specific),
// or nothing.
std::optional<std::vector<uint8_t>> pppoeTag(const Frame& f, uint16_t type);

// Frames seen on one interface of one namespace, from construction on.
class Capture {
  public:
    Capture(const std::string& netns, const std::string& ifName);
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    bool ok() const { return fd_ >= 0; }
    std::vector<Frame> frames();
    // Received (not outgoing) frames, discovery or marker, from `src` (any when empty).
    std::vector<Frame> received(const std::string& src = "", bool markers = false);
    // Waits until `done` holds for the received frames, at most `ms`.
    bool waitFor(const std::function<bool(const std::vector<Frame>&)>& done, int ms = 10000);
    // Waits for a marker frame (type 0x88b5) from `src`.
    bool waitForMarker(const std::string& src, int ms = 10000);
    // Writes the received frames (or those given) as a pcap file.
    void writePcap(const std::string& path, const std::vector<Frame>& frames) const;

  private:
    void loop();
    int fd_ = -1;
    std::atomic<bool> stop_{false};
    std::mutex mutex_;
    std::vector<Frame> frames_;
    std::thread thread_;
};

// What tshark makes of a frame (`tshark -T json -x`): the first occurrence of
// each field (empty when absent) and, for the two sub-options, their bytes
// in hex.
struct Decoded {
    std::string src;
    std::string code;     // "0x09"
    std::string svid;     // outer tag of a double-tagged frame (ieee8021ad.id)
    std::string vlan;     // vlan.id: a single tag, or the inner one
    std::string vlanPri;  // vlan.priority
    std::string vendorId;
    std::string circuitId;
    std::string remoteId;
    std::string circuitHex;
    std::string remoteHex;
    std::string hostUniq;  // hex
};
// Decodes a pcap file with tshark. Empty when tshark failed (`error` says why).
std::vector<Decoded> tsharkDecode(const std::string& pcap, std::string& error);

// ---- the lab -----------------------------------------------------------------------------------

class Lab {
  public:
    struct Options {
        int clientPorts = 1;  // p1 (c0 in client); p3 (c1) with 2
        int uplinks = 1;      // p2 (s0 in server); p4 (s1) with 2
        bool trustUplinks = true;
        std::string conf;     // more configuration lines
    };

    Lab();
    ~Lab();
    Lab(const Lab&) = delete;
    Lab& operator=(const Lab&) = delete;

    // Builds the namespaces and links and starts pppoeplusd. False, with
    // why() saying what failed, when it could not.
    bool up(const Options& options);
    const std::string& why() const { return why_; }

    std::string client() const { return prefix_ + "-client"; }
    std::string agent() const { return prefix_ + "-agent"; }
    std::string server() const { return prefix_ + "-server"; }
    const std::string& runtimeDir() const { return dir_.path(); }
    // The daemon's configuration file (PPPOEPLUS_CONF).
    const std::string& confPath() const { return conf_; }
    // The log of the running daemon (of the last start).
    std::string daemonLog() const;

    // pppoeplusctl in the agent's namespace, with the daemon's runtime directory.
    Result ctl(const std::vector<std::string>& args, int timeoutSec = 30) const;
    // A command in one of the namespaces.
    Result in(const std::string& netns, const std::vector<std::string>& argv, int timeoutSec = 30) const;
    // Interface unit (ifindex) of an interface of the agent.
    uint32_t unit(const std::string& ifName) const;
    // Sends crafted frames (craft.py's FRAME words) from a client-side interface.
    Result craft(const std::string& iface, const std::vector<std::string>& frames) const;
    // Starts pppoe-server on s0 of the server namespace.
    bool startServer();
    // Waits until the agent serves `ifName` (its entry answers a get).
    bool waitForEntry(const std::string& ifName, int ms = 10000) const;
    // Waits until the hardware rule's port set is exactly `ports`.
    bool waitForRuleSet(std::vector<std::string> ports, int ms = 10000) const;
    // The port set of the hardware rule, sorted.
    std::vector<std::string> ruleSet() const;
    // Stops the daemon with SIGTERM: its exit status (0 expected), -1 on time-out.
    int stopDaemon();
    // Starts the daemon again with the same configuration file (after
    // stopDaemon) and waits until it runs and serves every port of the lab.
    // The log of the previous run is kept as pppoeplusd.log.<N>.
    bool startDaemon();
    // Sends `sig` to the running daemon.
    bool signalDaemon(int sig) const;

    // MAC addresses the lab gives its interfaces.
    static constexpr const char* SYS_MAC = "02:00:00:00:00:01";
    static std::string macOf(const std::string& ifName);

  private:
    bool step(const std::string& what, const std::vector<std::string>& argv);
    bool spawnDaemon();

    std::string conf_;
    std::vector<std::string> ports_;  // the agent's ports (p1, p2, ...)
    int starts_ = 0;

    std::string prefix_;
    std::vector<std::string> namespaces_;
    lt::TempDir dir_;
    lt::Process daemon_;
    lt::Process server_;
    std::string why_;
};

}  // namespace st
