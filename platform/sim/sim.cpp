// State of the simulated platform, its faults and its helpers.
#include "platform/sim/sim.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace sim {

State g;

void reset() { g = State(); }

void failNth(const std::string& fn, int nth, int64_t result, int32_t err) {
    g.faults.push_back(Fault{fn, "", nth, 1, result, err});
}

void failWhen(const std::string& text, int64_t result, int times, int32_t err) {
    g.faults.push_back(Fault{"", text, 0, times, result, err});
}

static bool textMatches(const std::string& pattern, const std::string& text) {
    if (!pattern.empty() && pattern.back() == '*')
        return text.compare(0, pattern.size() - 1, pattern, 0, pattern.size() - 1) == 0;
    return pattern == text;
}

void exitAfterCalls(const std::string& fn, int nth, int code) {
    g.exitAfterFn = fn;
    g.exitAfterCount = nth;
    g.exitCode = code;
}

std::optional<int64_t> enter(const std::string& fn, const std::string& text) {
    g.calls.push_back(text);
    int ordinal = ++g.callCounts[fn];
    if (!g.exitAfterFn.empty() && g.exitAfterFn == fn && ordinal >= g.exitAfterCount) {
        for (const std::string& c : g.calls) std::fprintf(stderr, "%s\n", c.c_str());
        std::fflush(stderr);
        _exit(g.exitCode);
    }
    for (Fault& f : g.faults) {
        bool hit = false;
        if (f.text.empty()) {
            hit = f.fn == fn && f.nth == ordinal;
        } else if (f.remaining != 0 && textMatches(f.text, text)) {
            hit = true;
            if (f.remaining > 0) f.remaining--;
        }
        if (hit) {
            if (f.err != 0) g.lastErrno = f.err;
            return f.result;
        }
    }
    return std::nullopt;
}

void setOption(const std::string& key, const std::string& value) { g.options[key] = value; }

void setScalarU32(uint32_t scalar, uint32_t value) {
    std::vector<uint8_t> bytes(4);
    std::memcpy(bytes.data(), &value, 4);
    g.scalars[scalar] = bytes;
}

void setScalarBytes(uint32_t scalar, const std::vector<uint8_t>& bytes) { g.scalars[scalar] = bytes; }

void setScalarText(uint32_t scalar, const std::string& text) {
    std::vector<uint8_t> bytes(text.begin(), text.end());
    bytes.push_back(0);
    g.scalars[scalar] = bytes;
}

Interface& addInterface(uint32_t unit, const std::string& name, uint32_t ondType, uint32_t type) {
    Interface itf{};
    itf.unit = unit;
    itf.name = name;
    const uint8_t mac[6] = {0x00, 0x11, 0x22, 0x33, static_cast<uint8_t>(unit >> 8), static_cast<uint8_t>(unit)};
    std::memcpy(itf.mac, mac, 6);
    itf.type = type;
    itf.flags = 0;
    itf.phyInfo = tZelPhyInfo{};
    itf.phyInfo.ondType = ondType;
    itf.phyInfo.portNo = unit;
    g.interfaces[unit] = itf;
    return g.interfaces[unit];
}

void pushFrame(int32_t fd, const Frame& frame) { g.sockets[fd].frames.push_back(frame); }

void pushRead(int32_t fd, const std::vector<uint8_t>& bytes) { g.sockets[fd].reads.push_back(bytes); }

std::vector<std::string> callsStartingWith(const std::string& prefix) {
    std::vector<std::string> out;
    for (const std::string& c : g.calls)
        if (c.compare(0, prefix.size(), prefix) == 0) out.push_back(c);
    return out;
}

int findCall(const std::string& text, size_t from) {
    for (size_t i = from; i < g.calls.size(); i++)
        if (g.calls[i] == text) return static_cast<int>(i);
    return -1;
}

std::vector<std::string> logTexts() {
    std::vector<std::string> out;
    for (const LogRecord& r : g.logs) out.push_back(r.text);
    return out;
}

std::optional<int32_t> sockOpt(int32_t fd, int32_t level, int32_t option) {
    auto s = g.sockets.find(fd);
    if (s == g.sockets.end()) return std::nullopt;
    auto o = s->second.options.find({level, option});
    if (o == s->second.options.end()) return std::nullopt;
    return o->second;
}

}  // namespace sim
