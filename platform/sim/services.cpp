// Simulated process services: registrations are recorded, nothing is served.
#include <string>

#include "platform/services.h"
#include "platform/sim/sim.h"

using sim::g;

int32_t procShellInit(const char* name, uint32_t arg1, uint32_t arg2) {
    auto f = sim::enter("procShellInit", "procShellInit(" + std::string(name ? name : "") + "," +
                                             std::to_string(arg1) + "," + std::to_string(arg2) + ")");
    if (f) return static_cast<int32_t>(*f);
    g.shellName = name ? name : "";
    return 0;
}

int32_t procShellFuncInit(const tProcShellFunc* funcs, uint32_t rows) {
    auto f = sim::enter("procShellFuncInit", "procShellFuncInit(" + std::to_string(rows) + ")");
    if (f) return static_cast<int32_t>(*f);
    g.shellFuncs = funcs;
    g.shellFuncRows = rows;
    return 0;
}

void patchSignalHandler(void) {
    sim::enter("patchSignalHandler", "patchSignalHandler()");
    g.signalsPatched = true;
}

int32_t icmProcTcpInit(const char* service, const char* path, const tIcmFuncMap* map, uint32_t rows) {
    auto f = sim::enter("icmProcTcpInit", "icmProcTcpInit(" + std::string(service ? service : "") + "," +
                                              std::string(path ? path : "") + "," + std::to_string(rows) + ")");
    if (f) return static_cast<int32_t>(*f);
    g.cmdService = service ? service : "";
    g.cmdPath = path ? path : "";
    g.cmdMap = map;
    g.cmdRows = rows;
    return 0;
}

int32_t icmProcCallSpecInit(const char* service, const tIcmCallSpec* specs, uint32_t rows) {
    auto f = sim::enter("icmProcCallSpecInit",
                        "icmProcCallSpecInit(" + std::string(service ? service : "") + "," + std::to_string(rows) + ")");
    if (f) return static_cast<int32_t>(*f);
    g.cmdSpecService = service ? service : "";
    g.cmdSpecs = specs;
    g.cmdSpecRows = rows;
    return 0;
}
