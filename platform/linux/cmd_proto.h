// The local request and reply protocol of the Linux platform's services:
// the command service (management entry points of a process), the process
// shell (exported functions called by name) and the platform event socket
// (route events raised by an operator). docs/command-protocol.md describes
// the bytes; this header builds and reads them, for the services and for
// tools. No daemon code and no global state: a tool links only this.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace cmdp {

// ---- frame header ------------------------------------------------------------------

constexpr uint16_t MAGIC = 0x5050;  // "PP"
constexpr uint8_t VERSION = 1;
constexpr size_t HEADER_LEN = 12;   // magic u16, version u8, kind u8, body length u32, sequence u32

// Kinds of request; a reply carries the request's kind with REPLY_BIT set.
constexpr uint8_t KIND_CALL = 1;
constexpr uint8_t KIND_SHELL = 2;
constexpr uint8_t KIND_EVENT = 3;
constexpr uint8_t KIND_CONTROL = 4;  // the platform's control service: a JSON object each way
constexpr uint8_t REPLY_BIT = 0x80;
// A request that could not be read is answered with this kind, then the
// connection is closed.
constexpr uint8_t KIND_ERROR = 0xFF;

// Limits. A request body above MAX_REQUEST_BODY is refused unread.
constexpr uint32_t MAX_REQUEST_BODY = 8192;
constexpr uint32_t MAX_VALUE = 4096;          // value buffer of a call
constexpr uint32_t MAX_SHELL_OUTPUT = 1u << 20;  // output of a shell call, cut beyond
constexpr uint32_t MAX_REPLY_BODY = MAX_SHELL_OUTPUT + 64;
constexpr uint32_t MAX_NAME = 63;             // function or interface name
constexpr uint32_t MAX_ARGS = 10;
constexpr uint32_t MAX_PROTOS = 385;          // protocol ids 0 to 384
constexpr uint32_t MAX_ERROR_TEXT = 200;

// Result codes of the protocol itself (the platform's code space).
constexpr int32_t ERR_MALFORMED = 0x3E80004;    // a length that lies, a field out of range
constexpr int32_t ERR_TOO_LONG = 0x3E8000D;     // body above the limit
constexpr int32_t ERR_NOT_FOUND = 0x3E80002;    // no such function or interface
constexpr int32_t ERR_UNSUPPORTED = 0x3E80010;  // wrong version, kind, row without entry point
constexpr int32_t ERR_DENIED = 0x3E80030;       // peer not allowed, or name outside the process's own

struct Header {
    uint16_t magic = MAGIC;
    uint8_t version = VERSION;
    uint8_t kind = 0;
    uint32_t length = 0;  // bytes of body after the header
    uint32_t seq = 0;     // echoed in the reply
};

void headerEncode(const Header& h, uint8_t out[HEADER_LEN]);
// Reads a header. 0 when it may be followed by a body of `length` bytes
// (length at most `maxBody`); otherwise ERR_MALFORMED (magic),
// ERR_UNSUPPORTED (version) or ERR_TOO_LONG.
int32_t headerDecode(const uint8_t in[HEADER_LEN], uint32_t maxBody, Header& out);

// ---- call: one row of the process's command map -------------------------------------

// How the value argument of an entry point is built.
constexpr uint8_t VALUE_NONE = 0;  // null pointer
constexpr uint8_t VALUE_U32 = 1;   // pointer to a u32 word (lenWord in, lenWord out)
constexpr uint8_t VALUE_STR = 2;   // pointer to {char* text, u32 len}: buffer of `capacity` bytes
constexpr uint8_t VALUE_RAW = 3;   // pointer to a buffer of `capacity` bytes

struct CallRequest {
    uint32_t code = 0;  // row of the command map
    uint32_t unit = 0;
    uint32_t cmd = 0;
    uint8_t valueKind = VALUE_NONE;
    uint32_t lenWord = 0;   // U32: the value; STR: the length word handed in
    uint32_t capacity = 0;  // STR, RAW: bytes of the buffer (at most MAX_VALUE)
    std::vector<uint8_t> data;  // STR, RAW: first bytes of the buffer (at most capacity)
};

struct CallReply {
    int32_t result = 0;
    uint8_t valueKind = VALUE_NONE;
    uint32_t lenWord = 0;       // U32: the value after the call; STR: the length word after it
    std::vector<uint8_t> data;  // STR: the text (length word bytes, at most capacity); RAW: the buffer
};

std::vector<uint8_t> callRequestEncode(const CallRequest& r, uint32_t seq);
// Reads a call body. 0 or ERR_MALFORMED.
int32_t callRequestDecode(const uint8_t* body, size_t len, CallRequest& out);
std::vector<uint8_t> callReplyEncode(const CallReply& r, uint32_t seq);
int32_t callReplyDecode(const uint8_t* body, size_t len, CallReply& out);

// ---- shell: an exported function or test variable by name ---------------------------

struct ShellRequest {
    std::string name;
    std::vector<int64_t> args;  // at most MAX_ARGS
};

constexpr uint8_t SHELL_FLAG_TRUNCATED = 0x1;  // output cut at MAX_SHELL_OUTPUT
constexpr uint8_t SHELL_FLAG_VARIABLE = 0x2;   // the name is a variable: result is its first word

struct ShellReply {
    int32_t status = 0;  // 0: called; else why not (ERR_NOT_FOUND, ERR_DENIED, ...)
    int32_t result = 0;  // what the function returned (low 32 bits)
    uint8_t flags = 0;
    std::string output;  // what it printed
};

std::vector<uint8_t> shellRequestEncode(const ShellRequest& r, uint32_t seq);
int32_t shellRequestDecode(const uint8_t* body, size_t len, ShellRequest& out);
std::vector<uint8_t> shellReplyEncode(const ShellReply& r, uint32_t seq);
int32_t shellReplyDecode(const uint8_t* body, size_t len, ShellReply& out);

// ---- event: a platform route event raised by hand ----------------------------------

constexpr uint8_t EVENT_RESET_PORT = 1;   // a port's configuration reset
constexpr uint8_t EVENT_RESET_PROTO = 2;  // the configuration of some protocols reset

struct EventRequest {
    uint8_t event = 0;
    uint32_t unit = 0;         // RESET_PORT: the interface unit, or 0 to go by name
    std::string ifName;        // RESET_PORT: the interface name when unit is 0
    std::vector<uint16_t> protos;  // RESET_PROTO: protocol ids (0 to 384)
};

struct EventReply {
    int32_t result = 0;
    uint32_t delivered = 0;  // route sockets that received the message
};

std::vector<uint8_t> eventRequestEncode(const EventRequest& r, uint32_t seq);
int32_t eventRequestDecode(const uint8_t* body, size_t len, EventRequest& out);
std::vector<uint8_t> eventReplyEncode(const EventReply& r, uint32_t seq);
int32_t eventReplyDecode(const uint8_t* body, size_t len, EventReply& out);

// ---- control: a request to the platform itself --------------------------------------

// The control service's socket, before runtimePath.
constexpr const char* CONTROL_SOCKET = "/tmp/pppoeplusControl.socket";

// A control request or reply is one JSON object in UTF-8, the whole body
// (at most MAX_REQUEST_BODY bytes for a request): {"op": "...", ...} in,
// {"ok": true, ...} or {"ok": false, "error": "..."} out. The encoding
// takes the text as it is; the service and the tool parse it.
std::vector<uint8_t> controlEncode(uint8_t kind, const std::string& json, uint32_t seq);

// ---- error -----------------------------------------------------------------------

struct ErrorReply {
    int32_t result = 0;
    std::string text;
};

std::vector<uint8_t> errorReplyEncode(const ErrorReply& r, uint32_t seq);
int32_t errorReplyDecode(const uint8_t* body, size_t len, ErrorReply& out);

// ---- where the services listen --------------------------------------------------------

// The command service path a process names, e.g. "/tmp/pppoeplusNm.socket".
constexpr const char* CMD_SOCKET = "/tmp/pppoeplusNm.socket";
// The process shell of process `name`: "/tmp/<name>Shell.socket".
std::string shellSocketPath(const std::string& name);
// The platform's event socket.
constexpr const char* EVENT_SOCKET = "/tmp/zelRouteEvent.socket";

// Runtime paths start with /tmp/; with PPPOEPLUS_ROOT=/dir set they lie
// under /dir instead ("/tmp/x" becomes "/dir/x"). Other paths are kept.
std::string runtimePath(const std::string& path);

// ---- client ------------------------------------------------------------------------

// A frame read from a connection: header and body.
struct Frame {
    Header header;
    std::vector<uint8_t> body;
};

// Connects to the stream socket at `path` (taken as it is; apply runtimePath
// first). The descriptor, or -1 with errno set.
int connectTo(const std::string& path);
// Writes all of `bytes`. False on error.
bool writeAll(int fd, const std::vector<uint8_t>& bytes);
// Reads one frame, waiting at most `timeoutMs` in all. 0, or ERR_MALFORMED /
// ERR_TOO_LONG / ERR_UNSUPPORTED for a bad header, or -1 (errno) for a
// failed, closed or timed-out read.
int32_t readFrame(int fd, uint32_t maxBody, int timeoutMs, Frame& out);

// One request and its reply over a new connection. On a protocol or
// transport failure `error` says what went wrong and the result is not 0;
// a KIND_ERROR reply gives its result and text.
int32_t call(const std::string& path, const CallRequest& req, CallReply& reply, std::string& error,
             int timeoutMs = 10000);
int32_t shell(const std::string& path, const ShellRequest& req, ShellReply& reply, std::string& error,
              int timeoutMs = 30000);
int32_t event(const std::string& path, const EventRequest& req, EventReply& reply, std::string& error,
              int timeoutMs = 10000);
// A control request (a JSON text) and its reply text. A reload applies the
// whole file, so it may take a while: 60 s by default.
int32_t control(const std::string& path, const std::string& request, std::string& reply, std::string& error,
                int timeoutMs = 60000);

}  // namespace cmdp
