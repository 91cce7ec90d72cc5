// The simulated platform: a deterministic model of an access device that a
// test sets up, drives and inspects. Every platform call made by the daemon is
// recorded as a line of text ("zel_setsockopt(3,65535,4121,141)") in call
// order, and any call can be made to fail by its name and ordinal or by its
// exact text.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/ifdb.h"
#include "platform/os.h"
#include "platform/services.h"
#include "platform/socket.h"

namespace sim {

// ---- faults -------------------------------------------------------------------

struct Fault {
    std::string fn;    // function name; with `text` empty, matches by ordinal
    std::string text;  // exact call text, or a prefix when it ends in '*'
    int nth;           // with `fn`: the nth call of fn (1-based) since reset
    int remaining;     // with `text`: how many matching calls fail, -1 for all
    int64_t result;    // what the call returns (pointer calls return null)
    int32_t err;       // what errnoGet gives afterwards; 0 leaves it
};

// The nth call (1-based) of `fn` fails with `result`.
void failNth(const std::string& fn, int nth, int64_t result, int32_t err = 0);
// Calls whose text is `text` (or starts with it, when it ends in '*') fail
// with `result`, `times` times or for ever with -1.
void failWhen(const std::string& text, int64_t result, int times = -1, int32_t err = 0);

// Ends the process with `code` when the nth call of `fn` is made, after
// writing every recorded call to standard error, one per line. Lets a test
// watch, in a child process, code that loops for ever.
void exitAfterCalls(const std::string& fn, int nth, int code);

// ---- records ------------------------------------------------------------------

struct LogRecord {
    bool oper;  // operator log (loggingLogOutput) rather than debug output
    uint32_t module;
    uint32_t level;
    uint32_t part;
    std::string text;
};

struct Task {
    std::string name;
    uint32_t priority;
    uint32_t stackSize;
    tSilTaskEntry entry;
};

struct Sem {
    uint32_t options;
    bool alive;
    int32_t depth;  // takes minus gives
    uint32_t takes;
    uint32_t gives;
};

// A frame waiting on a packet socket, with what the platform tells about it.
struct Frame {
    std::vector<uint8_t> bytes;  // from the PPPoE header on
    uint32_t ifUnit;
    bool withInfo;               // deliver the receive information record
    zel_pkt_rxinfo info;
    // When not empty, delivered as the control information as it stands
    // (cut to the control buffer) instead of the one generated record.
    std::vector<uint8_t> rawControl = {};
};

// A frame handed to zel_sendmsg.
struct Sent {
    int32_t fd;
    int32_t flags;
    zel_sockaddr_ll addr;
    bool hasAddr;
    std::vector<uint8_t> control;  // the control buffer as given
    std::vector<uint8_t> bytes;    // the data of every buffer, in order
};

struct Socket {
    int32_t domain;
    int32_t type;
    int32_t protocol;
    bool open;
    bool bound;
    std::vector<uint8_t> boundAddr;
    std::map<std::pair<int32_t, int32_t>, int32_t> options;  // (level, option) -> last 4-byte value
    std::deque<Frame> frames;                             // packet socket: frames to receive
    std::deque<std::vector<uint8_t>> reads;               // other sockets: what each read returns
};

struct Interface {
    uint32_t unit;
    std::string name;
    uint8_t mac[6];
    uint32_t type;       // type number: 6 Ethernet, 250 G-PON
    uint32_t flags;      // flags word
    tZelPhyInfo phyInfo;
    bool macOk = true;   // attribute 33 answers
    bool flagsOk = true; // attribute 10 answers
    bool phyOk = true;   // zelIndexTrans answers
};

// State of one protocol on one interface, as zelIfSetApi left it.
struct ProtoState {
    bool dflt = false;  // default state (53 on / 54 off)
    bool on = false;    // state (56 on / 57 off)
};

struct HwilCall {
    uint32_t key;
    uint32_t cmdId;
    std::vector<uint8_t> ctrl;   // the 64 bytes of the control record
    std::vector<uint8_t> value;  // the value bytes the control record describes
};

struct Select {
    int32_t nfds;
    std::vector<int32_t> watched;
    bool hasTimeout;
    zel_timeval timeout;
};

struct State {
    std::vector<std::string> calls;
    std::vector<LogRecord> logs;
    std::vector<Fault> faults;
    std::map<std::string, int> callCounts;
    int32_t lastErrno = 0;

    // OS
    std::map<std::string, std::string> options;
    // 0 to 255: silMemPoolAlloc fills every record it hands out with this
    // byte, like a pool that does not zero its records; -1 leaves them zeroed.
    int allocFill = -1;
    std::vector<Task> tasks;
    std::map<uint32_t, Sem> sems;
    uint32_t nextSemId = 1;
    uint32_t sleeps = 0;
    // The process ends with `exitCode` when the `exitAfterCount`th call of
    // `exitAfterFn` is made (see exitAfterCalls).
    std::string exitAfterFn;
    int exitAfterCount = 0;
    int exitCode = 0;

    // sockets
    std::map<int32_t, Socket> sockets;
    int32_t nextFd = 3;
    std::vector<Sent> sent;
    std::vector<Select> selects;

    // interface database and scalars
    std::map<uint32_t, Interface> interfaces;
    std::map<std::pair<uint32_t, uint32_t>, ProtoState> protoStates;  // (unit, protocol)
    std::map<uint32_t, std::vector<uint8_t>> scalars;

    // hardware layer
    std::vector<HwilCall> hwilCalls;
    std::map<uint32_t, std::vector<uint8_t>> hwilScalars;

    // services
    bool segFaultCaught = false;
    bool signalsPatched = false;
    std::string shellName;
    const tProcShellFunc* shellFuncs = nullptr;
    uint32_t shellFuncRows = 0;
    std::string cmdService;
    std::string cmdPath;
    const void* cmdMap = nullptr;
    uint32_t cmdRows = 0;
    std::string cmdSpecService;  // icmProcCallSpecInit: the service and its table
    const tIcmCallSpec* cmdSpecs = nullptr;
    uint32_t cmdSpecRows = 0;
};

extern State g;

// Back to an empty device: no calls, logs, faults, options, interfaces,
// sockets or scalars.
void reset();

// ---- set-up helpers -------------------------------------------------------------

void setOption(const std::string& key, const std::string& value);
void setScalarU32(uint32_t scalar, uint32_t value);
void setScalarBytes(uint32_t scalar, const std::vector<uint8_t>& bytes);
void setScalarText(uint32_t scalar, const std::string& text);
Interface& addInterface(uint32_t unit, const std::string& name, uint32_t ondType, uint32_t type = 6);

// Queues a frame on packet socket `fd`, or a read on any other socket.
void pushFrame(int32_t fd, const Frame& frame);
void pushRead(int32_t fd, const std::vector<uint8_t>& bytes);

// ---- inspection helpers ---------------------------------------------------------

// The calls whose text starts with `prefix`, in order.
std::vector<std::string> callsStartingWith(const std::string& prefix);
// Index of the first call equal to `text` at or after `from`, or -1.
int findCall(const std::string& text, size_t from = 0);
// The texts of the logs, in order.
std::vector<std::string> logTexts();
// Value of a 4-byte socket option last set on `fd`, if any.
std::optional<int32_t> sockOpt(int32_t fd, int32_t level, int32_t option);

// ---- used by the platform calls themselves ---------------------------------------

// Records `text` as a call of `fn` and returns the injected result, if any.
std::optional<int64_t> enter(const std::string& fn, const std::string& text);

}  // namespace sim
