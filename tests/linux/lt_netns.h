// Helpers of the Linux platform tests: network namespaces that a test
// creates and always removes, and code run in a child process inside one
// (the platform keeps process-wide state, so every test gets a fresh
// process).
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>
#include <sys/types.h>

#include <functional>
#include <type_traits>
#include <string>
#include <vector>

namespace lt {

// Why the namespace tests cannot run here, or empty when they can.
std::string namespaceSkipReason();

#define LT_NEED_NETNS()                                            \
    do {                                                           \
        std::string why_ = ::lt::namespaceSkipReason();            \
        if (!why_.empty()) GTEST_SKIP() << why_;                   \
    } while (0)

// A network namespace with a name unique to this process, removed (with
// everything in it) when the object goes.
class Netns {
  public:
    Netns();
    ~Netns();
    Netns(const Netns&) = delete;
    Netns& operator=(const Netns&) = delete;

    const std::string& name() const { return name_; }
    bool ok() const { return ok_; }
    // Runs a shell command inside the namespace; its exit status.
    int sh(const std::string& command) const;
    // Same, with its standard output.
    std::string out(const std::string& command) const;

  private:
    std::string name_;
    bool ok_ = false;
};

// Kills what runs in namespace `netns` and removes it.
void removeNamespace(const std::string& netns);
// Removes the namespaces of earlier test processes that died without
// removing theirs, and whatever still runs in them; how many.
int sweepStaleNamespaces();

// In a forked child: dies with SIGKILL when the test process (`parent`)
// does, so that a killed test run leaves no process behind. Again after a
// change of user, which clears it.
void dieWithParent(pid_t parent);

// Runs a shell command; its exit status.
int sh(const std::string& command);
std::string shOut(const std::string& command);

// A temporary directory removed with the object.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    const std::string& path() const { return path_; }
    std::string file(const std::string& name, const std::string& text) const;

  private:
    std::string path_;
};

// ---- child processes -------------------------------------------------------------

struct ChildResult {
    bool exited = false;
    int status = -1;
    std::string failures;  // what the child's checks reported
    bool ok() const { return exited && status == 0 && failures.empty(); }
};

// Runs `body` in a forked child, inside namespace `netns` when not empty,
// with `env` set (NAME=VALUE) before it starts. Kills it after `timeoutSec`.
ChildResult runChild(const std::string& netns, const std::vector<std::string>& env, const std::function<void()>& body,
                     int timeoutSec = 30);

// In a child: reports a failed check.
void childFail(const char* file, int line, const std::string& what);

#define CHECK_TRUE(cond)                                                 \
    do {                                                                 \
        if (!(cond)) ::lt::childFail(__FILE__, __LINE__, "failed: " #cond); \
    } while (0)

#define CHECK_EQ(expected, actual)                                                                     \
    do {                                                                                               \
        auto e_ = (expected);                                                                          \
        auto a_ = (actual);                                                                            \
        if (!(e_ == a_))                                                                               \
            ::lt::childFail(__FILE__, __LINE__,                                                        \
                            std::string(#actual " is ") + ::lt::show(a_) + ", expected " + ::lt::show(e_)); \
    } while (0)

template <typename T>
std::string show(const T& v) {
    if constexpr (std::is_convertible_v<T, std::string>) return "'" + std::string(v) + "'";
    else return std::to_string(v);
}

// A process started with its standard error in a file.
struct Process {
    int pid = -1;
    std::string errFile;
};
Process spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env, const std::string& errFile,
              int uid = -1);
// Waits at most `timeoutMs`; the wait status, or -1 on time-out.
int waitFor(int pid, int timeoutMs);
std::string readFile(const std::string& path);
// Waits until `path` exists, at most `timeoutMs`.
bool waitForPath(const std::string& path, int timeoutMs);

// Whether `text` holds `part`.
inline bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Waits until `what()` holds, looking every 50 ms, at most `ms`.
template <typename F>
bool eventually(F what, int ms = 5000) {
    for (int waited = 0; waited < ms; waited += 50) {
        if (what()) return true;
        ::usleep(50000);
    }
    return what();
}

}  // namespace lt
