// Least privilege: the daemon keeps only the capabilities it uses, from
// before its first thread on (capabilities are per thread; threads and
// children get their creator's).
#include <cap-ng.h>
#include <linux/capability.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/linux/config.h"
#include "platform/linux/internal.h"
#include "platform/linux/plat_log.h"

namespace linuxplat {

namespace {

struct Need {
    int cap;
    const char* name;
    const char* forWhat;  // what fails without it
};

}  // namespace

std::vector<int> runtimeCapabilities() {
    // CAP_NET_RAW: the packet socket. CAP_NET_ADMIN: a receive buffer beyond
    // net.core.rmem_max (SO_RCVBUFFORCE) when the agent is switched on, and
    // the hardware rule's nftables transactions, which libnftables runs on
    // the thread that switches the rule (no child process).
    // Reading links and following rtnetlink need none; no interface is made.
    std::vector<int> caps = {CAP_NET_RAW, CAP_NET_ADMIN};
    // The command service's socket is handed to platform.group.
    if (configGet("platform.group")) caps.push_back(CAP_CHOWN);
    // Real-time tasks.
    std::string policy = configGetOr("platform.taskpolicy", "other");
    if (policy == "fifo" || policy == "rr") caps.push_back(CAP_SYS_NICE);
    return caps;
}

void dropPrivileges() {
    static const Need NEEDS[] = {
        {CAP_NET_RAW, "CAP_NET_RAW", "the packet socket"},
        {CAP_NET_ADMIN, "CAP_NET_ADMIN",
         "a receive buffer beyond net.core.rmem_max and the nftables hardware rule"},
        {CAP_CHOWN, "CAP_CHOWN", "handing the command socket to platform.group"},
        {CAP_SYS_NICE, "CAP_SYS_NICE", "real-time tasks (platform.taskpolicy)"},
    };
    if (capng_get_caps_process() != 0) {
        platLog(PLAT_LOG_WARNING, "capabilities: cannot read this process's capabilities; none dropped");
        return;
    }
    std::vector<int> want = runtimeCapabilities();
    // Only what the process has can be kept; what is missing is said.
    std::vector<int> keep;
    std::string kept;
    for (int cap : want) {
        const Need* need = nullptr;
        for (const Need& n : NEEDS)
            if (n.cap == cap) need = &n;
        if (capng_have_capability(CAPNG_PERMITTED, static_cast<unsigned>(cap)) == 0) {
            platLog(PLAT_LOG_WARNING, "capabilities: %s is missing; %s will fail", need->name, need->forWhat);
            continue;
        }
        keep.push_back(cap);
        if (!kept.empty()) kept += " ";
        kept += need->name;
    }
    capng_clear(CAPNG_SELECT_ALL);
    // Nothing inheritable or ambient: the daemon runs no program that would need them.
    for (int cap : keep)
        capng_update(CAPNG_ADD,
                     static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED | CAPNG_BOUNDING_SET),
                     static_cast<unsigned>(cap));
    int rc = capng_apply(CAPNG_SELECT_ALL);
    if (rc != 0) {
        // Without CAP_SETPCAP the bounding set stays; the process's own sets still go.
        rc = capng_apply(static_cast<capng_select_t>(CAPNG_SELECT_CAPS | CAPNG_SELECT_AMBIENT));
        if (rc != 0) {
            platLog(PLAT_LOG_WARNING, "capabilities: cannot drop (libcap-ng error %d); running with those it has", rc);
            return;
        }
        platLog(PLAT_LOG_WARNING, "capabilities: the bounding set cannot be changed here; kept %s",
                kept.empty() ? "none" : kept.c_str());
        return;
    }
    platLog(PLAT_LOG_INFO, "capabilities: kept %s, dropped the rest", kept.empty() ? "none" : kept.c_str());
}

}  // namespace linuxplat
