// Simulated logging: every message is captured with its module, level and
// part marker.
#include <cstdarg>
#include <cstdio>
#include <string>

#include "platform/logging.h"
#include "platform/sim/sim.h"

using sim::g;

static std::string simFormat(const char* format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (n <= 0) return std::string();
    std::string out(static_cast<size_t>(n) + 1, '\0');
    std::vsnprintf(out.data(), out.size(), format, args);
    out.resize(static_cast<size_t>(n));
    return out;
}

void loggingDebugOutput(uint32_t module, uint32_t level, uint32_t part, const char* format, ...) {
    va_list args;
    va_start(args, format);
    g.logs.push_back(sim::LogRecord{false, module, level, part, format ? simFormat(format, args) : ""});
    va_end(args);
}

void loggingLogOutput(uint32_t module, uint32_t level, uint32_t part, const char* format, ...) {
    va_list args;
    va_start(args, format);
    g.logs.push_back(sim::LogRecord{true, module, level, part, format ? simFormat(format, args) : ""});
    va_end(args);
}
