// A small lab for tests that run the real pppoeplusd under load: a network
// namespace with client ports c1..cN (their far ends g1..gN send the
// clients' frames) and uplinks u1..uM (their far ends s1..sM receive what
// the agent sends), the daemon started there from a configuration, and
// helpers to manage it through its command service, send PADI frames at a
// rate and count what arrives on the far side.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "lt_netns.h"
#include "platform/linux/cmd_proto.h"

namespace lt {

struct LabCounters {
    uint32_t errorRcv = 0, errorSend = 0, padiRcv = 0, padrRcv = 0, padoRcv = 0, padsRcv = 0, padtRcv = 0,
             totalSend = 0;
    std::string text() const;
};

class AgentLab {
  public:
    // Starts the daemon with every port served by default and the uplinks
    // trusted; `extraConf` is added to its configuration and `env`
    // (NAME=VALUE) to its environment; with "pppoeplus.defaultenable =
    // false" in `extraConf` the agent starts switched off (no entries, no
    // trusted uplinks). ok() says whether it all worked,
    // why() what did not.
    AgentLab(int clients, int uplinks, const std::string& extraConf = "", const std::vector<std::string>& env = {});
    ~AgentLab();
    AgentLab(const AgentLab&) = delete;
    AgentLab& operator=(const AgentLab&) = delete;

    bool ok() const { return why_.empty(); }
    const std::string& why() const { return why_; }
    const Netns& ns() const { return *ns_; }
    int pid() const { return daemon_.pid; }
    std::string log() const { return readFile(logFile_); }
    std::string root() const { return dir_.path(); }
    std::string cmdSocket() const { return dir_.path() + "/pppoeplusNm.socket"; }
    std::string shellSocket() const { return dir_.path() + "/pppoeplusShell.socket"; }
    std::string eventSocket() const { return dir_.path() + "/zelRouteEvent.socket"; }

    // The interface unit (ifindex) of an interface of the namespace, 0 if none.
    uint32_t unit(const std::string& ifName) const;

    // Management calls; the entry point's result, or a non-zero code of the
    // protocol when the call did not go through.
    int32_t ifSet(uint32_t unit, uint32_t code, uint32_t value) const;
    int32_t ifSetText(uint32_t unit, uint32_t code, const std::string& text) const;
    int32_t ifGet(uint32_t unit, uint32_t code, uint32_t& out) const;
    int32_t scalarSet(uint32_t code, uint32_t value) const;
    int32_t scalarSetText(uint32_t code, const std::string& text) const;
    int32_t scalarGet(uint32_t code, uint32_t& out) const;
    bool counters(uint32_t unit, LabCounters& out) const;
    // Number of interface entries, by the daemon's iterators.
    uint32_t entries() const;

    // rx_packets of an interface of the namespace (a far end).
    uint64_t rxPackets(const std::string& ifName) const;

    // The daemon still runs and answers its command service.
    bool alive() const;
    size_t openFds() const;
    // Open descriptors once connections just served are closed: the least
    // of a few samples over half a second.
    size_t settledFds() const;
    size_t rssKb() const;
    // Lines of the daemon's standard error written by a sanitizer.
    std::string sanitizerReports() const;

    // Stops the daemon (SIGTERM); its exit status, or -1.
    int stop();

  private:
    std::unique_ptr<Netns> ns_;
    TempDir dir_;
    std::string logFile_;
    Process daemon_;
    std::string why_;
};

// Sends PADI frames out of `ifName` in namespace `netns` at `rate` frames a
// second for `seconds`, from source MACs prefix:00:nn:01 (16 of them); every
// `taggedEvery`-th frame (0: none) carries a Vendor-Specific tag of its own.
// Runs in a child process; returns how many were sent, -1 on failure.
int64_t sendPadis(const std::string& netns, const std::string& ifName, const uint8_t prefix[3], uint32_t rate,
                  double seconds, uint32_t taggedEvery);

// Counts discovery frames arriving on interfaces of a namespace, by the
// first three bytes of their source MAC, from start() until finish().
class FarCounter {
  public:
    FarCounter(const std::string& netns, const std::vector<std::string>& ifNames, const std::string& dir);
    ~FarCounter();
    bool start();
    // Stops counting; the count of frames from `prefix` on each interface,
    // in the order given.
    std::vector<uint64_t> finish(const uint8_t prefix[3]);
    // After finish(): the count from prefix on interface i.
    uint64_t count(size_t i, const uint8_t prefix[3]) const;

  private:
    std::string netns_, dir_;
    std::vector<std::string> ifNames_;
    int pid_ = -1;
    std::string results_;
};

}  // namespace lt
