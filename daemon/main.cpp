// Process entry of pppoeplusd.
#include <csignal>

#include "daemon/startup.h"
#include "diag/shell_table.h"
#include "platform/os.h"
#include "platform/services.h"

int main(void) {
    silCatchSegFault();
    std::signal(SIGPIPE, SIG_IGN);
    patchSignalHandler();
    // The shell calls only the diagnostic functions of its table.
    procShellFuncInit(gPppoeplusShellFuncs, PPPOEPLUS_SHELL_FUNC_NUM);
    procShellInit("pppoeplus", 0, 0);

    if (pppoeplusOptInit() != 0) return -1;

    // All work happens on the worker task and the command service's threads.
    for (;;) silSleep(10);
}
