// The few management calls the benchmark and the soak test need, through
// the daemon's command service (the protocol of platform/linux/cmd_proto.h).
//
//   storm_ctl SOCKET entries                 number of interface entries
//   storm_ctl SOCKET trust UNIT              make an interface an uplink
//   storm_ctl SOCKET ifset UNIT CODE VALUE   interface set, u32 value
//   storm_ctl SOCKET ifget UNIT CODE         interface get, u32 value
//   storm_ctl SOCKET set CODE VALUE          global set, u32 value
//   storm_ctl SOCKET get CODE                global get, u32 value
//   storm_ctl SOCKET counters UNIT           the receive and send counters
//
// Exit status 0 when the call went through and returned 0.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/linux/cmd_proto.h"

namespace {

int32_t callU32(const std::string& sock, uint32_t code, uint32_t unit, uint32_t cmd, uint32_t value,
                uint32_t& out) {
    cmdp::CallRequest req;
    req.code = code;
    req.unit = unit;
    req.cmd = cmd;
    req.valueKind = cmdp::VALUE_U32;
    req.lenWord = value;
    cmdp::CallReply reply;
    std::string error;
    int32_t rc = cmdp::call(sock, req, reply, error);
    if (rc != 0) {
        std::fprintf(stderr, "storm_ctl: %s (%d)\n", error.c_str(), rc);
        return rc;
    }
    out = reply.lenWord;
    return reply.result;
}

uint32_t num(const char* s) { return static_cast<uint32_t>(std::strtoul(s, nullptr, 0)); }

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: storm_ctl SOCKET entries|trust|ifset|ifget|set|get|counters ...\n");
        return 2;
    }
    std::string sock = argv[1];
    std::string what = argv[2];
    uint32_t out = 0;
    if (what == "entries") {
        uint32_t n = 0, unit = 0;
        int32_t rc = callU32(sock, 4, 0, 0, 0, unit);
        while (rc == 0) {
            n++;
            rc = callU32(sock, 5, unit, 0, 0, unit);
        }
        std::printf("%u\n", n);
        return 0;
    }
    if (what == "trust" && argc == 4) return callU32(sock, 7, num(argv[3]), 1, 1, out) == 0 ? 0 : 1;
    if (what == "ifset" && argc == 6) {
        int32_t rc = callU32(sock, 7, num(argv[3]), num(argv[4]), num(argv[5]), out);
        if (rc != 0) std::printf("result %d\n", rc);
        return rc == 0 ? 0 : 1;
    }
    if (what == "ifget" && argc == 5) {
        int32_t rc = callU32(sock, 6, num(argv[3]), num(argv[4]), 0, out);
        if (rc != 0) return 1;
        std::printf("%u\n", out);
        return 0;
    }
    if (what == "set" && argc == 5) {
        int32_t rc = callU32(sock, 2, 0, num(argv[3]), num(argv[4]), out);
        if (rc != 0) std::printf("result %d\n", rc);
        return rc == 0 ? 0 : 1;
    }
    if (what == "get" && argc == 4) {
        int32_t rc = callU32(sock, 1, 0, num(argv[3]), 0, out);
        if (rc != 0) return 1;
        std::printf("%u\n", out);
        return 0;
    }
    if (what == "counters" && argc == 4) {
        static const struct {
            const char* name;
            uint32_t code;
        } names[] = {{"errorRcv", 9}, {"errorSend", 10}, {"padiRcv", 11}, {"padrRcv", 12},
                     {"padoRcv", 13}, {"padsRcv", 14},   {"padtRcv", 15}, {"totalSend", 16}};
        for (const auto& n : names) {
            if (callU32(sock, 6, num(argv[3]), n.code, 0, out) != 0) return 1;
            std::printf("%s=%u ", n.name, out);
        }
        std::printf("\n");
        return 0;
    }
    std::fprintf(stderr, "storm_ctl: bad arguments\n");
    return 2;
}
