// The Linux platform's own messages (start, configuration problems, socket
// and rule failures). They go where the daemon's log goes: syslog, or
// standard error with PPPOEPLUS_LOG=stderr.
#pragma once

#include <cstdint>
#include <string>

namespace linuxplat {

// Priorities as syslog numbers them.
constexpr int PLAT_LOG_ERR = 3;
constexpr int PLAT_LOG_WARNING = 4;
constexpr int PLAT_LOG_NOTICE = 5;
constexpr int PLAT_LOG_INFO = 6;
constexpr int PLAT_LOG_DEBUG = 7;

void platLog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Writes one finished block of text at `priority`, tagged with `tag`.
void logEmit(int priority, const char* tag, const std::string& text);

// Messages of a priority above `level` (0 to 7) are left out; 7 keeps all.
void logSetMaxLevel(uint32_t level);

// True when messages go to standard error rather than syslog.
bool logToStderr();

}  // namespace linuxplat
