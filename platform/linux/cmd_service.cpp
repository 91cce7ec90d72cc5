// The command service: other processes call the management entry points of
// the process's command map through it (service_engine.h serves the socket).
#include <grp.h>

#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/cmd_call.h"
#include "platform/linux/cmd_proto.h"
#include "platform/linux/config.h"
#include "platform/linux/control_service.h"
#include "platform/linux/internal.h"
#include "platform/linux/opconf.h"
#include "platform/linux/plat_log.h"
#include "platform/linux/service_engine.h"
#include "platform/services.h"
#include "platform/types.h"

namespace linuxplat {

namespace {

// The settings each command service serves, registered before it starts.
std::mutex gSpecsMutex;
auto& gSpecs = *new std::map<std::string, std::vector<tIcmCallSpec>>;

}  // namespace

gid_t serviceGroup() {
    auto g = configGet("platform.group");
    if (!g || g->empty()) return 0;
    uint32_t n = 0;
    if (configParseU32(*g, n)) return static_cast<gid_t>(n);
    struct group grp;
    struct group* found = nullptr;
    std::vector<char> buf(16384);
    if (::getgrnam_r(g->c_str(), &grp, buf.data(), buf.size(), &found) == 0 && found != nullptr) return grp.gr_gid;
    platLog(PLAT_LOG_WARNING, "platform.group '%s' not found; the command service is root's only", g->c_str());
    return 0;
}

}  // namespace linuxplat

using namespace linuxplat;

int32_t icmProcCallSpecInit(const char* service, const tIcmCallSpec* specs, uint32_t rows) {
    platformStart();
    if (service == nullptr || specs == nullptr) return ZEL_ERR_NULL_POINTER;
    if (!serviceNameOk(service)) return ZEL_ERR_INVALID_ARG;
    if (std::string why = callSpecsCheck(specs, rows); !why.empty()) {
        platLog(PLAT_LOG_ERR, "%s: settings refused: %s", service, why.c_str());
        return ZEL_ERR_INVALID_ARG;
    }
    std::lock_guard<std::mutex> lock(gSpecsMutex);
    gSpecs[service].assign(specs, specs + rows);
    return 0;
}

int32_t icmProcTcpInit(const char* service, const char* path, const tIcmFuncMap* map, uint32_t rows) {
    platformStart();
    if (service == nullptr || path == nullptr || map == nullptr) return ZEL_ERR_NULL_POINTER;
    if (!serviceNameOk(service) || rows == 0 || rows > 64) return ZEL_ERR_INVALID_ARG;
    auto svc = std::make_unique<Service>();
    svc->name = service;
    svc->path = cmdp::runtimePath(path);
    svc->kind = cmdp::KIND_CALL;
    svc->gid = serviceGroup();
    svc->groupAllowed = svc->gid != 0;
    // The table is copied now: a service started without one refuses every
    // call, as every request then names a setting it does not list.
    auto table = std::make_shared<CallTable>();
    table->map = map;
    table->rows = rows;
    {
        std::lock_guard<std::mutex> lock(gSpecsMutex);
        auto it = gSpecs.find(service);
        if (it != gSpecs.end()) table->specs.assign(it->second.begin(), it->second.end());
    }
    if (table->specs.empty())
        platLog(PLAT_LOG_ERR, "%s: no settings registered; every call will be refused", service);
    svc->handle = [table](const cmdp::Frame& f) { return callServe(*table, f); };
    int32_t rc = serviceStart(std::move(svc), 0660);
    if (rc != 0) return rc;
    // The operational configuration writes through the same table, and the
    // control service (its show and reload among them) starts beside it.
    opconfStart(table);
    (void)controlServiceStart();
    return 0;
}
