// Signal handling of the process: SIGTERM, SIGINT and SIGQUIT end it
// cleanly, SIGHUP reloads the configuration; one thread waits for them, every other thread blocks them.
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include "platform/linux/internal.h"
#include "platform/linux/notify.h"
#include "platform/linux/opconf.h"
#include "platform/linux/os_linux.h"
#include "platform/linux/plat_log.h"
#include "platform/services.h"

namespace linuxplat {

namespace {

// ---- signals --------------------------------------------------------------------------------

void* signalThread(void* arg) {
    sigset_t* set = static_cast<sigset_t*>(arg);
    for (;;) {
        int sig = 0;
        if (::sigwait(set, &sig) != 0) continue;
        if (sig == SIGHUP) {
            platLog(PLAT_LOG_NOTICE, "SIGHUP: reloading the configuration");
            opconfReloadAsync();
            continue;
        }
        platLog(PLAT_LOG_NOTICE, "stopping on signal %d", sig);
        notifyStopping();
        platformCleanup();
        ::_exit(0);
    }
    return nullptr;
}
}  // namespace

}  // namespace linuxplat

using namespace linuxplat;

void patchSignalHandler(void) {
    platformStart();
    static bool done = false;
    if (done) return;
    done = true;
    // Only pppoeplusd's main installs these: the runtime directory is claimed
    // and the capabilities are cut before the first thread starts.
    startDaemonProcess();
    // Blocked here, so in every thread started from now on; one thread waits for them.
    static sigset_t set;
    sigemptyset(&set);
    for (int s : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) sigaddset(&set, s);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    pthread_t tid;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    if (pthread_create(&tid, &attr, signalThread, &set) == 0) pthread_setname_np(tid, "zelSignal");
    else platLog(PLAT_LOG_ERR, "cannot start the signal thread");
    pthread_attr_destroy(&attr);
}
