// OS layer on Linux: threads, mutex semaphores, memory pools, the option
// store (the configuration file), fault handling, and the platform's start.
#include <execinfo.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "platform/common/mem_pool.h"
#include "platform/linux/cmd_proto.h"
#include "platform/linux/config.h"
#include "platform/linux/hwrule.h"
#include "platform/linux/internal.h"
#include "platform/linux/os_linux.h"
#include "platform/linux/plat_log.h"
#include "platform/linux/police.h"
#include "platform/linux/runtime_dir.h"
#include "platform/os.h"
#include "platform/types.h"

namespace linuxplat {

namespace {

std::once_flag gStartOnce;
std::atomic<bool> gCleanedUp{false};
std::atomic<bool> gDaemonProcess{false};
std::atomic<bool> gStarted{false};  // the start-up completed (the hardware layer was told the protocol)

// Options read at start, for the message of a failed start.
std::mutex gOptMutex;
std::string& gOptsRead = *new std::string;

void atExit() {
    if (gDaemonProcess.load() && !gStarted.load()) {
        std::string opts;
        {
            std::lock_guard<std::mutex> lock(gOptMutex);
            opts = gOptsRead;
        }
        platLog(PLAT_LOG_ERR, "start-up failed, exiting with status -1%s%s", opts.empty() ? "" : "; options read: ",
                opts.c_str());
    }
    platformCleanup();
}

}  // namespace

void platformStart() {
    std::call_once(gStartOnce, [] {
        (void)logToStderr();
        platLog(PLAT_LOG_NOTICE, "pppoeplusd starting (pid %d)", static_cast<int>(::getpid()));
        (void)config();
        logSetMaxLevel(configGetU32("platform.loglevel", 7));
        platLog(PLAT_LOG_NOTICE, "configuration: %s", configSourceText().c_str());
        std::atexit(atExit);
    });
}

void platformCleanup() {
    // A daemon that was refused its runtime directory owns nothing there.
    if (gDaemonProcess.load() && !runtimeOwner()) return;
    if (gCleanedUp.exchange(true)) return;
    // The nftables table stays: it keeps subscribers' discovery frames off
    // the uplinks while no agent runs, and the next start replaces it.
    hwruleRelease();
    servicesCleanup();
    runtimeUnlock();
}

void platformFailClosed(const std::string& why) {
    platLog(PLAT_LOG_ERR, "%s; pppoeplusd cannot be managed and does not run, exiting with status 1", why.c_str());
    platformCleanup();
    ::_exit(1);
}

bool isDaemonProcess() { return gDaemonProcess.load(); }

void markDaemonProcess() {
    static std::once_flag once;
    std::call_once(once, [] {
        // One daemon per runtime directory, before anything of it is touched:
        // its sockets, its nftables table, its interfaces.
        std::string why;
        pid_t holder = 0;
        if (runtimeLock(why, holder) != 0) {
            // Nothing of the running daemon's is touched on the way out.
            platLog(PLAT_LOG_ERR, "%s; not starting, exiting with status 1", why.c_str());
            ::_exit(1);
        }
        gDaemonProcess.store(true);
        // A path taken by something that is not a socket would leave a daemon
        // that cannot be managed: it does not start.
        for (const std::string& path : {cmdp::runtimePath(cmdp::CMD_SOCKET),
                                        cmdp::runtimePath(cmdp::shellSocketPath("pppoeplus")),
                                        cmdp::runtimePath(cmdp::EVENT_SOCKET),
                                        cmdp::runtimePath(cmdp::CONTROL_SOCKET)}) {
            std::string problem = runtimePathProblem(path);
            if (!problem.empty()) platformFailClosed(problem);
        }
    });
}

void markStarted() {
    if (!gStarted.exchange(true)) platLog(PLAT_LOG_NOTICE, "pppoeplusd running");
}

void startDaemonProcess() {
    static std::once_flag once;
    std::call_once(once, [] {
        markDaemonProcess();
        // Capabilities belong to threads, and a thread starts with its
        // creator's: dropped here, before the daemon's first thread, they are
        // dropped for every thread to come. The discovery filter is loaded
        // first: loading needs CAP_BPF or CAP_SYS_ADMIN, which go.
        policeRegister();
        (void)policeLoad();
        dropPrivileges();
    });
}

void blockAsyncSignals() {
    sigset_t all;
    sigfillset(&all);
    // Faults stay with the thread that causes them.
    for (int s : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP}) sigdelset(&all, s);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

}  // namespace linuxplat

using namespace linuxplat;

// ---- tasks ---------------------------------------------------------------------------

namespace {

struct TaskStart {
    tSilTaskEntry entry;
    std::string name;
};

std::atomic<uint32_t> gNextTaskId{1};

void* taskMain(void* arg) {
    TaskStart* start = static_cast<TaskStart*>(arg);
    tSilTaskEntry entry = start->entry;
    pthread_setname_np(pthread_self(), start->name.substr(0, 15).c_str());
    delete start;
    blockAsyncSignals();
    entry();
    return nullptr;
}

// Task priorities run from 0 (most urgent) to 255; real-time priorities from
// 99 (most urgent) to 1.
int realTimePriority(uint32_t priority) {
    uint32_t p = priority > 255 ? 255 : priority;
    int rt = 99 - static_cast<int>(p * 98 / 255);
    return rt < 1 ? 1 : rt;
}

}  // namespace

int32_t silCreateTask(const char* name, uint32_t priority, uint32_t stackSize, tSilTaskEntry entry, uintptr_t,
                      uintptr_t, uint32_t* taskId) {
    platformStart();
    if (entry == nullptr) return ZEL_ERR_NULL_POINTER;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    // The requested stack is a floor: the C library and the sanitizers need more.
    size_t stack = stackSize < (512u << 10) ? (512u << 10) : stackSize;
    pthread_attr_setstacksize(&attr, stack);

    std::string policy = configGetOr("platform.taskpolicy", "other");
    bool realTime = policy == "fifo" || policy == "rr";
    if (realTime) {
        struct sched_param sp;
        std::memset(&sp, 0, sizeof(sp));
        sp.sched_priority = realTimePriority(priority);
        pthread_attr_setinheritsched(&attr, PTHREAD_EXPLICIT_SCHED);
        pthread_attr_setschedpolicy(&attr, policy == "fifo" ? SCHED_FIFO : SCHED_RR);
        pthread_attr_setschedparam(&attr, &sp);
    }

    auto* start = new TaskStart{entry, name != nullptr ? name : "task"};
    pthread_t tid;
    int rc = pthread_create(&tid, &attr, taskMain, start);
    if (rc == EPERM && realTime) {
        platLog(PLAT_LOG_WARNING, "task %s: real-time scheduling refused; using the normal scheduler",
                start->name.c_str());
        pthread_attr_setinheritsched(&attr, PTHREAD_INHERIT_SCHED);
        rc = pthread_create(&tid, &attr, taskMain, start);
    }
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        platLog(PLAT_LOG_ERR, "task %s: %s", start->name.c_str(), std::strerror(rc));
        delete start;
        return ZEL_ERR_NO_RESOURCE;
    }
    if (taskId != nullptr) *taskId = gNextTaskId.fetch_add(1);
    return 0;
}

void silSleep(uint32_t seconds) {
    struct timespec ts = {static_cast<time_t>(seconds), 0};
    while (::nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

// ---- mutex semaphores --------------------------------------------------------------------

namespace {

constexpr uint32_t SEM_MAX = 256;

struct Sem {
    pthread_mutex_t mutex;
    std::atomic<bool> alive{false};
};

// Slots are never freed, so a handle stays safe to look at after deletion.
Sem* gSems[SEM_MAX];
std::atomic<uint32_t> gSemCount{0};
std::mutex gSemCreate;
// How many times this thread holds each semaphore.
thread_local uint32_t tSemHeld[SEM_MAX];

Sem* semFind(uint32_t id) {
    if (id == 0 || id > gSemCount.load(std::memory_order_acquire)) return nullptr;
    Sem* s = gSems[id - 1];
    return s != nullptr && s->alive.load(std::memory_order_acquire) ? s : nullptr;
}

}  // namespace

uint32_t silCreateMSem(uint32_t options) {
    std::lock_guard<std::mutex> lock(gSemCreate);
    uint32_t n = gSemCount.load();
    if (n >= SEM_MAX) return 0;
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    // The owner may take it again; with priority inheritance when asked.
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    if ((options & SIL_SEM_INVERSION_SAFE) != 0) pthread_mutexattr_setprotocol(&attr, PTHREAD_PRIO_INHERIT);
    Sem* s = new Sem;
    int rc = pthread_mutex_init(&s->mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    if (rc != 0) {
        delete s;
        return 0;
    }
    s->alive.store(true);
    gSems[n] = s;
    gSemCount.store(n + 1, std::memory_order_release);
    return n + 1;
}

uint32_t silTakeSem(uint32_t semId, int32_t timeout) {
    Sem* s = semFind(semId);
    if (s == nullptr) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    int rc;
    if (timeout < 0) {
        rc = pthread_mutex_lock(&s->mutex);
    } else if (timeout == 0) {
        rc = pthread_mutex_trylock(&s->mutex);
    } else {
        // One tick is one millisecond.
        struct timespec until;
        ::clock_gettime(CLOCK_REALTIME, &until);
        until.tv_sec += timeout / 1000;
        until.tv_nsec += static_cast<long>(timeout % 1000) * 1000000L;
        if (until.tv_nsec >= 1000000000L) {
            until.tv_sec++;
            until.tv_nsec -= 1000000000L;
        }
        rc = pthread_mutex_timedlock(&s->mutex, &until);
    }
    if (rc != 0) return static_cast<uint32_t>(ZEL_ERR_GENERAL);
    // Hardware rule changes made under the lock are gathered and loaded in
    // one transaction before the lock is let go.
    tSemHeld[semId - 1]++;
    hwruleHoldBegin();
    return 0;
}

uint32_t silGiveSem(uint32_t semId) {
    Sem* s = semFind(semId);
    if (s == nullptr) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    // Only the owner may let go; the rules it gathered go in while it still
    // holds the lock, so the next holder finds them loaded.
    uint32_t& held = tSemHeld[semId - 1];
    if (held == 0) return static_cast<uint32_t>(ZEL_ERR_GENERAL);
    held--;
    hwruleHoldEnd();
    return pthread_mutex_unlock(&s->mutex) == 0 ? 0 : static_cast<uint32_t>(ZEL_ERR_GENERAL);
}

uint32_t silDeleteSem(uint32_t semId) {
    Sem* s = semFind(semId);
    if (s == nullptr) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    // The mutex itself is kept: a thread may still be on its way to it.
    s->alive.store(false);
    return 0;
}

// ---- memory pools --------------------------------------------------------------------------

namespace {
std::mutex gPoolMutex;
}

uint32_t silMemPoolInit(tSilMemPool* pool, const char* name, uint32_t count, uint32_t size, uint32_t flags) {
    std::lock_guard<std::mutex> lock(gPoolMutex);
    return memPoolInit(pool, name, count, size, flags);
}

void* silMemPoolAlloc(tSilMemPool* pool) {
    std::lock_guard<std::mutex> lock(gPoolMutex);
    return memPoolAlloc(pool);
}

uint32_t silMemPoolFree(tSilMemPool* pool, void* record) {
    std::lock_guard<std::mutex> lock(gPoolMutex);
    return memPoolFree(pool, record);
}

uint32_t silMemPoolDestroy(tSilMemPool* pool) {
    std::lock_guard<std::mutex> lock(gPoolMutex);
    return memPoolDestroy(pool);
}

void silMemPoolPrint(const tSilMemPool* pool) { memPoolPrint(pool); }

// ---- option store ----------------------------------------------------------------------------

int32_t silOptRead(uint32_t, const char* key, uint32_t, uint32_t, uint32_t asText, char* buf, uint32_t bufLen) {
    platformStart();
    if (key == nullptr) return 0;
    auto value = configGet(key);
    {
        std::lock_guard<std::mutex> lock(gOptMutex);
        if (gOptsRead.size() < 2048) {
            if (!gOptsRead.empty()) gOptsRead += ", ";
            gOptsRead += std::string(key) + (value ? " = '" + *value + "'" : " (not set)");
        }
    }
    if (!value || asText != 1 || buf == nullptr || bufLen == 0) return 0;
    uint32_t n = value->size() < bufLen ? static_cast<uint32_t>(value->size()) : bufLen;
    std::memcpy(buf, value->data(), n);
    return static_cast<int32_t>(n);
}

// ---- faults ------------------------------------------------------------------------------------

namespace {

void faultHandler(int sig, siginfo_t* info, void*) {
    // Only async-signal-safe calls from here on.
    char msg[128];
    int n = std::snprintf(msg, sizeof(msg), "pppoeplusd: fatal signal %d at address %p; backtrace:\n", sig,
                          info != nullptr ? info->si_addr : nullptr);
    if (n > 0) (void)!::write(STDERR_FILENO, msg, static_cast<size_t>(n));
    void* frames[64];
    int count = ::backtrace(frames, 64);
    ::backtrace_symbols_fd(frames, count, STDERR_FILENO);
    // The handler was reset: the signal now ends the process as it would have.
    ::raise(sig);
}

}  // namespace

void silCatchSegFault(void) {
    platformStart();
    static bool installed = false;
    if (installed) return;
    installed = true;
#if defined(__SANITIZE_ADDRESS__)
    // The address sanitizer's own report of a fault says more.
    return;
#endif
    // Prepare the backtrace machinery now, not in the handler.
    void* dummy[1];
    (void)::backtrace(dummy, 1);
    static std::vector<char> altStack(64 * 1024);
    stack_t ss;
    std::memset(&ss, 0, sizeof(ss));
    ss.ss_sp = altStack.data();
    ss.ss_size = altStack.size();
    (void)::sigaltstack(&ss, nullptr);
    struct sigaction sa;
    std::memset(&sa, 0, sizeof(sa));
    sa.sa_sigaction = faultHandler;
    sa.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESETHAND;
    sigemptyset(&sa.sa_mask);
    for (int s : {SIGSEGV, SIGBUS, SIGILL, SIGFPE}) ::sigaction(s, &sa, nullptr);
}
