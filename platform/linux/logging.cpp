// Logging: the daemon's debug output and operator log, and the platform's own
// messages, to syslog or (PPPOEPLUS_LOG=stderr) to standard error. A message
// written in parts (first, middle..., last) is collected per thread and comes
// out as one block.
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "platform/linux/plat_log.h"
#include "platform/logging.h"

namespace linuxplat {

namespace {

// A block that grows past this is written out as it stands and restarted.
constexpr size_t LOG_BLOCK_MAX = 64 * 1024;

std::mutex gLogMutex;
std::once_flag gOpenOnce;
bool gStderr = false;

void logOpen() {
    const char* env = std::getenv("PPPOEPLUS_LOG");
    gStderr = env != nullptr && std::strcmp(env, "stderr") == 0;
    if (!gStderr) ::openlog("pppoeplusd", LOG_PID | LOG_NDELAY, LOG_DAEMON);
}

// The daemon ends its texts with "\r\n": drop carriage returns and the last
// line end, the log adds its own.
std::string logClean(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text)
        if (c != '\r') out.push_back(c);
    while (!out.empty() && out.back() == '\n') out.pop_back();
    return out;
}

std::string vformat(const char* format, va_list args) {
    if (format == nullptr) return std::string();
    char small[512];
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(small, sizeof(small), format, copy);
    va_end(copy);
    if (n < 0) return std::string();
    if (static_cast<size_t>(n) < sizeof(small)) return std::string(small, static_cast<size_t>(n));
    size_t len = static_cast<size_t>(n) < LOG_BLOCK_MAX ? static_cast<size_t>(n) : LOG_BLOCK_MAX;
    std::string out(len + 1, '\0');
    std::vsnprintf(out.data(), out.size(), format, args);
    out.resize(len);
    return out;
}

// Parts of a message being written by this thread.
thread_local std::string tBlock;
thread_local bool tOpen = false;
thread_local uint32_t tModule = 0;
thread_local uint32_t tLevel = 0;

int levelToPriority(uint32_t level) { return level > 7 ? 7 : static_cast<int>(level); }

std::atomic<uint32_t> gMaxLevel{7};

void daemonLog(bool oper, uint32_t module, uint32_t level, uint32_t part, const std::string& text) {
    char tag[48];
    std::snprintf(tag, sizeof(tag), "%s %#x", oper ? "log" : "debug", module);
    switch (part) {
        case LOG_PART_FIRST:
            if (tOpen && !tBlock.empty()) logEmit(levelToPriority(tLevel), tag, tBlock);  // an unfinished block
            tBlock = text;
            tOpen = true;
            tModule = module;
            tLevel = level;
            break;
        case LOG_PART_MIDDLE:
        case LOG_PART_LAST:
            if (!tOpen) {  // parts without a first part: the text alone
                if (part == LOG_PART_LAST) logEmit(levelToPriority(level), tag, text);
                else {
                    tBlock = text;
                    tOpen = true;
                    tModule = module;
                    tLevel = level;
                }
                break;
            }
            tBlock += text;
            if (part == LOG_PART_LAST) {
                std::snprintf(tag, sizeof(tag), "%s %#x", oper ? "log" : "debug", tModule);
                logEmit(levelToPriority(tLevel), tag, tBlock);
                tBlock.clear();
                tOpen = false;
            } else if (tBlock.size() > LOG_BLOCK_MAX) {
                logEmit(levelToPriority(tLevel), tag, tBlock);
                tBlock.clear();
            }
            break;
        default:
            logEmit(levelToPriority(level), tag, text);
            break;
    }
}

}  // namespace

void logSetMaxLevel(uint32_t level) { gMaxLevel.store(level > 7 ? 7 : level); }

bool logToStderr() {
    std::call_once(gOpenOnce, logOpen);
    return gStderr;
}

void logEmit(int priority, const char* tag, const std::string& text) {
    if (static_cast<uint32_t>(priority) > gMaxLevel.load(std::memory_order_relaxed)) return;
    std::string clean = logClean(text);
    if (logToStderr()) {
        struct timespec ts;
        ::clock_gettime(CLOCK_REALTIME, &ts);
        struct tm tm;
        ::localtime_r(&ts.tv_sec, &tm);
        char stamp[96];
        std::snprintf(stamp, sizeof(stamp), "%04d-%02d-%02d %02d:%02d:%02d.%03ld", tm.tm_year + 1900, tm.tm_mon + 1,
                      tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, ts.tv_nsec / 1000000);
        std::string line = std::string(stamp) + " pppoeplusd[" + std::to_string(::getpid()) + "] " + tag + ": ";
        // A block of several lines keeps them together, indented.
        for (char c : clean) {
            line.push_back(c);
            if (c == '\n') line += "    ";
        }
        line.push_back('\n');
        std::lock_guard<std::mutex> lock(gLogMutex);
        int saved = errno;
        size_t off = 0;
        while (off < line.size()) {
            ssize_t n = ::write(STDERR_FILENO, line.data() + off, line.size() - off);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            off += static_cast<size_t>(n);
        }
        errno = saved;
    } else {
        int saved = errno;
        ::syslog(priority, "%s: %s", tag, clean.c_str());
        errno = saved;
    }
}

void platLog(int priority, const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = vformat(format, args);
    va_end(args);
    logEmit(priority, "platform", text);
}

}  // namespace linuxplat

void loggingDebugOutput(uint32_t module, uint32_t level, uint32_t part, const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = linuxplat::vformat(format, args);
    va_end(args);
    linuxplat::daemonLog(false, module, level, part, text);
}

void loggingLogOutput(uint32_t module, uint32_t level, uint32_t part, const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = linuxplat::vformat(format, args);
    va_end(args);
    linuxplat::daemonLog(true, module, level, part, text);
}
