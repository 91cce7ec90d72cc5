// Network namespaces and child processes of the Linux platform tests.
#include "lt_netns.h"

#include <grp.h>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace lt {

namespace {

const char* const PREFIX = "pplt-";
std::atomic<int> gCounter{0};
int gFailFd = -1;  // in a child: where failures go

int64_t nowMs() {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

void sweepStale() {
    static bool done = false;
    if (done) return;
    done = true;
    sweepStaleNamespaces();
}

}  // namespace

void removeNamespace(const std::string& netns) {
    // What still runs in it (a daemon, a child of a killed test) goes first:
    // it would keep its interfaces and its files alive otherwise.
    std::istringstream pids(shOut("ip netns pids " + netns + " 2>/dev/null"));
    int pid;
    while (pids >> pid)
        if (pid > 1 && pid != ::getpid()) ::kill(pid, SIGKILL);
    sh("ip netns del " + netns + " >/dev/null 2>&1");
}

int sweepStaleNamespaces() {
    DIR* d = ::opendir("/var/run/netns");
    if (d == nullptr) return 0;
    std::vector<std::string> stale;
    while (struct dirent* e = ::readdir(d)) {
        std::string n = e->d_name;
        if (n.compare(0, std::strlen(PREFIX), PREFIX) != 0) continue;
        int pid = std::atoi(n.c_str() + std::strlen(PREFIX));
        if (pid > 0 && ::kill(pid, 0) != 0 && errno == ESRCH) stale.push_back(n);
    }
    ::closedir(d);
    for (const std::string& n : stale) removeNamespace(n);
    return static_cast<int>(stale.size());
}

void dieWithParent(pid_t parent) {
    // A test run that is killed takes its children along.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(125);
}

int sh(const std::string& command) {
    int rc = std::system(command.c_str());
    return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
}

std::string shOut(const std::string& command) {
    std::string out;
    FILE* f = ::popen(command.c_str(), "r");
    if (f == nullptr) return out;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0) out.append(buf, n);
    ::pclose(f);
    return out;
}

std::string namespaceSkipReason() {
    if (::geteuid() != 0) return "needs root to create network namespaces (run the tests as root)";
    static int usable = -1;
    if (usable < 0) {
        sweepStale();
        std::string probe = std::string(PREFIX) + std::to_string(::getpid()) + "-probe";
        usable = sh("ip netns add " + probe + " >/dev/null 2>&1") == 0 ? 1 : 0;
        sh("ip netns del " + probe + " >/dev/null 2>&1");
    }
    if (usable == 0) return "'ip netns' is not available here (iproute2 missing or namespaces not permitted)";
    return std::string();
}

Netns::Netns() {
    sweepStale();
    name_ = std::string(PREFIX) + std::to_string(::getpid()) + "-" + std::to_string(gCounter++);
    ok_ = lt::sh("ip netns add " + name_) == 0;
    if (ok_) lt::sh("ip -n " + name_ + " link set lo up");
}

Netns::~Netns() {
    if (ok_) removeNamespace(name_);
}

int Netns::sh(const std::string& command) const { return lt::sh("ip netns exec " + name_ + " sh -c '" + command + "'"); }

std::string Netns::out(const std::string& command) const {
    return lt::shOut("ip netns exec " + name_ + " sh -c '" + command + "'");
}

TempDir::TempDir() {
    char tmpl[] = "/tmp/pplt-XXXXXX";
    const char* p = ::mkdtemp(tmpl);
    path_ = p != nullptr ? p : "/tmp";
}

TempDir::~TempDir() {
    if (path_.compare(0, 10, "/tmp/pplt-") == 0) sh("rm -rf '" + path_ + "'");
}

std::string TempDir::file(const std::string& name, const std::string& text) const {
    std::string p = path_ + "/" + name;
    std::ofstream(p) << text;
    return p;
}

void childFail(const char* file, int line, const std::string& what) {
    std::string msg = std::string(file) + ":" + std::to_string(line) + ": " + what + "\n";
    if (gFailFd >= 0) (void)!::write(gFailFd, msg.data(), msg.size());
    else ADD_FAILURE_AT(file, line) << what;
}

ChildResult runChild(const std::string& netns, const std::vector<std::string>& env, const std::function<void()>& body,
                     int timeoutSec) {
    ChildResult r;
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        r.failures = "pipe failed";
        return r;
    }
    std::fflush(nullptr);
    const pid_t parent = ::getpid();
    pid_t pid = ::fork();
    if (pid == 0) {
        dieWithParent(parent);
        ::close(fds[0]);
        gFailFd = fds[1];
        // A process of its own, so that a time-out kills whatever it started.
        ::setpgid(0, 0);
        if (!netns.empty()) {
            int nsfd = ::open(("/var/run/netns/" + netns).c_str(), O_RDONLY | O_CLOEXEC);
            if (nsfd < 0 || ::setns(nsfd, CLONE_NEWNET) != 0) {
                childFail(__FILE__, __LINE__, "cannot enter namespace " + netns);
                ::_exit(3);
            }
            ::close(nsfd);
        }
        for (const std::string& e : env) {
            size_t eq = e.find('=');
            ::setenv(e.substr(0, eq).c_str(), e.substr(eq + 1).c_str(), 1);
        }
        body();
        std::fflush(nullptr);
        ::_exit(0);
    }
    ::close(fds[1]);
    if (pid < 0) {
        ::close(fds[0]);
        r.failures = "fork failed";
        return r;
    }
    int64_t deadline = nowMs() + timeoutSec * 1000;
    bool timedOut = false;
    for (;;) {
        struct pollfd p = {fds[0], POLLIN, 0};
        int64_t left = deadline - nowMs();
        if (left <= 0) {
            timedOut = true;
            break;
        }
        int rc = ::poll(&p, 1, static_cast<int>(left));
        if (rc < 0 && errno == EINTR) continue;
        if (rc <= 0) continue;
        char buf[4096];
        ssize_t n = ::read(fds[0], buf, sizeof(buf));
        if (n <= 0) break;  // the child is gone (or closed its end)
        r.failures.append(buf, static_cast<size_t>(n));
    }
    ::close(fds[0]);
    if (timedOut) {
        ::kill(-pid, SIGKILL);
        ::kill(pid, SIGKILL);
        r.failures += "child timed out after " + std::to_string(timeoutSec) + " s\n";
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    // Whatever it started in its own group goes with it.
    ::kill(-pid, SIGKILL);
    r.exited = WIFEXITED(status);
    r.status = r.exited ? WEXITSTATUS(status) : -1;
    if (!r.exited) r.failures += "child killed by signal " + std::to_string(WTERMSIG(status)) + "\n";
    return r;
}

Process spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env, const std::string& errFile,
              int uid) {
    Process p;
    p.errFile = errFile;
    std::fflush(nullptr);
    const pid_t parent = ::getpid();
    pid_t pid = ::fork();
    if (pid == 0) {
        dieWithParent(parent);
        int fd = ::open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd >= 0) {
            ::dup2(fd, 2);
            ::dup2(fd, 1);
        }
        for (const std::string& e : env) {
            size_t eq = e.find('=');
            ::setenv(e.substr(0, eq).c_str(), e.substr(eq + 1).c_str(), 1);
        }
        if (uid >= 0) {
            if (::setgroups(0, nullptr) != 0 || ::setgid(static_cast<gid_t>(uid)) != 0 ||
                ::setuid(static_cast<uid_t>(uid)) != 0)
                ::_exit(126);
            dieWithParent(parent);  // a change of user clears it
        }
        std::vector<char*> args;
        for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        ::execvp(args[0], args.data());
        ::_exit(127);
    }
    p.pid = pid;
    return p;
}

int waitFor(int pid, int timeoutMs) {
    int64_t deadline = nowMs() + timeoutMs;
    for (;;) {
        int status = 0;
        pid_t r = ::waitpid(pid, &status, WNOHANG);
        if (r == pid) return status;
        if (r < 0 && errno != EINTR) return -1;
        if (nowMs() >= deadline) return -1;
        ::usleep(20000);
    }
}

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

bool waitForPath(const std::string& path, int timeoutMs) {
    int64_t deadline = nowMs() + timeoutMs;
    struct stat st;
    while (::stat(path.c_str(), &st) != 0) {
        if (nowMs() >= deadline) return false;
        ::usleep(20000);
    }
    return true;
}

}  // namespace lt
