// Start-up: options, the global record, sockets, command service, worker task.
#include "daemon/startup.h"

#include <climits>
#include <cstring>
#include <string_view>

#include "agent/global.h"
#include "agent/log.h"
#include "daemon/main_loop.h"
#include "daemon/route_socket.h"
#include "format/default_formats.h"
#include "format/keywords.h"
#include "iftable/if_entry.h"
#include "mgmt/call_specs.h"
#include "mgmt/func_map.h"
#include "platform/hwil.h"
#include "platform/ifdb.h"
#include "platform/number.h"
#include "platform/os.h"
#include "platform/services.h"
#include "platform/socket.h"
#include "platform/types.h"

// Start-up failures: error sub-module, written while debug switch bit 0x1 is on.
#define PPPOEPLUS_STARTUP_LOG(...) PPPOEPLUS_DEBUG_LOG(PPPOEPLUS_DEBUG_STARTUP, PPPOEPLUS_SUB_ERROR, __VA_ARGS__)

static constexpr uint32_t PPPOEPLUS_FAIL = static_cast<uint32_t>(-1);

// Decimal value of an option, read like atoi (leading white space, a sign,
// the digits up to the first other character) but saturating instead of
// overflowing on a value too large for an int.
static int32_t pppoeplusOptAtoi(const char* text) {
    std::string_view rest(text);
    while (!rest.empty() && (rest.front() == ' ' || (rest.front() >= '\t' && rest.front() <= '\r'))) rest.remove_prefix(1);
    bool negative = false;
    if (!rest.empty() && (rest.front() == '+' || rest.front() == '-')) {
        negative = rest.front() == '-';
        rest.remove_prefix(1);
    }
    const uint64_t magnitude = numberLeadingDecimal(rest);
    constexpr uint64_t intMax = static_cast<uint64_t>(INT_MAX);
    if (!negative) return magnitude > intMax ? INT_MAX : static_cast<int32_t>(magnitude);
    return magnitude > intMax + 1 ? INT_MIN : static_cast<int32_t>(-static_cast<int64_t>(magnitude));
}

// Reads `key` into `buf` (cleared first). True when the key exists.
static bool pppoeplusOptGet(const char* key, char (&buf)[PPPOEPLUS_OPT_VALUE_LEN + 1]) {
    std::memset(buf, 0, sizeof(buf));
    return silOptRead(0, key, 0, 0, 1, buf, PPPOEPLUS_OPT_VALUE_LEN) > 0;
}

// A boolean option: f/F false, t/T true, anything else keeps `*value`.
static void pppoeplusOptBool(const char* key, uint32_t* value) {
    char buf[PPPOEPLUS_OPT_VALUE_LEN + 1];
    if (!pppoeplusOptGet(key, buf)) return;
    if (buf[0] == 'f' || buf[0] == 'F') *value = 0;
    else if (buf[0] == 't' || buf[0] == 'T') *value = 1;
}

uint32_t pppoeplusOptInit(void) {
    uint32_t maxIfNum = 0;
    uint32_t maxSubSysNum = 0;
    uint32_t ponCommonType = PPPOEPLUS_PON_TYPE_OLT;
    uint32_t defaultEnable = 0;
    uint32_t defaultPortEnable = 0;
    uint32_t ethIfEnable = 1;
    uint32_t ethAggIfEnable = 1;
    uint32_t gponIfEnable = 0;
    uint32_t ponAggIfEnable = 0;
    char buf[PPPOEPLUS_OPT_VALUE_LEN + 1];

    if (pppoeplusOptGet("pppoeplus.enable", buf) && (buf[0] == 'f' || buf[0] == 'F')) return PPPOEPLUS_FAIL;
    if (pppoeplusOptGet("pppoeplus.maxifnum", buf)) maxIfNum = static_cast<uint32_t>(pppoeplusOptAtoi(buf));
    if (pppoeplusOptGet("pppoeplus.maxsubsysnum", buf)) maxSubSysNum = static_cast<uint32_t>(pppoeplusOptAtoi(buf));
    if (pppoeplusOptGet("pppoeplus.poncommontype", buf)) {
        // "pon-olt" or "pon-onu": the first and fifth characters decide.
        if (buf[0] != 'p' && buf[0] != 'P') return PPPOEPLUS_FAIL;
        if (buf[4] == 'l' || buf[4] == 'L') ponCommonType = PPPOEPLUS_PON_TYPE_OLT;
        else if (buf[4] == 'n' || buf[4] == 'N') ponCommonType = PPPOEPLUS_PON_TYPE_ONU;
        else return PPPOEPLUS_FAIL;
    }
    pppoeplusOptBool("pppoeplus.defaultenable", &defaultEnable);
    pppoeplusOptBool("pppoeplus.defaultportenable", &defaultPortEnable);
    pppoeplusOptBool("pppoeplus.ethifenable", &ethIfEnable);
    pppoeplusOptBool("pppoeplus.ethaggifenable", &ethAggIfEnable);
    pppoeplusOptBool("pppoeplus.gponifenable", &gponIfEnable);
    pppoeplusOptBool("pppoeplus.ponaggifenable", &ponAggIfEnable);

    // A failed read leaves 0, which selects the built-in vendor id.
    uint32_t vendorId = 0;
    (void)zelScalarGetApi(0, ZEL_SCALAR_VENDOR_ID, &vendorId);

    return pppoeplusInit(maxIfNum, defaultEnable, vendorId, ponCommonType, maxSubSysNum, defaultPortEnable,
                         ethIfEnable, ethAggIfEnable, gponIfEnable, ponAggIfEnable);
}

uint32_t pppoeplusMemoryPoolInit(void) {
    return silMemPoolInit(&gPppoeplus.ifPool, PPPOEPLUS_POOL_NAME, gPppoeplus.ifMaxNum,
                          sizeof(tPppoePlusIfEntry), 0);
}

static uint32_t pppoeplusInitCleanup(void) {
    if (gPppoeplus.semId != 0) silDeleteSem(gPppoeplus.semId);
    silMemPoolDestroy(&gPppoeplus.ifPool);
    // Only -1 marks a closed descriptor: a failure before the sockets were
    // opened closes descriptor 0 of the zeroed record, twice.
    if (gPppoeplus.pktFd != -1) {
        zel_close(gPppoeplus.pktFd);
        gPppoeplus.pktFd = -1;
    }
    if (gPppoeplus.rtSockFd != -1) {
        zel_close(gPppoeplus.rtSockFd);
        gPppoeplus.rtSockFd = -1;
    }
    gPppoeplusInit = 0;
    return PPPOEPLUS_FAIL;
}

static int32_t pppoeplusSetIntOpt(int32_t fd, int32_t level, int32_t option, int32_t value) {
    return zel_setsockopt(fd, level, option, &value, sizeof(value));
}

uint32_t pppoeplusInit(uint32_t ifPerSubSys, uint32_t defaultEnable, uint32_t vendorId, uint32_t ponCommonType,
                       uint32_t subSysNum, uint32_t defaultPortEnable, uint32_t ethIfEnable, uint32_t ethAggIfEnable,
                       uint32_t gponIfEnable, uint32_t ponAggIfEnable) {
    if (gPppoeplusInit == 1) return 0;

    std::memset(&gPppoeplus, 0, sizeof(gPppoeplus));

    pppoeplusEnableSet(defaultEnable != 0 ? ZEL_TRUE : ZEL_FALSE);
    pppoeplusAllPortEnableSet(defaultPortEnable != 0 ? ZEL_TRUE : ZEL_FALSE);
    pppoeplusPolicySet(PPPOEPLUS_POLICY_REPLACE);

    gPppoeplus.vendorId = vendorId != 0 ? vendorId : PPPOEPLUS_DEFAULT_VENDOR_ID;
    gPppoeplus.dfltVendorId = gPppoeplus.vendorId;
    gPppoeplus.ponDefaultType = ponCommonType;
    gPppoeplus.maxSubSysNum = subSysNum != 0 ? subSysNum : PPPOEPLUS_DEFAULT_SUBSYS_NUM;
    gPppoeplus.ifMaxNum = gPppoeplus.maxSubSysNum * (ifPerSubSys != 0 ? ifPerSubSys : PPPOEPLUS_DEFAULT_IF_PER_SUBSYS);

    gPppoeplus.ethIfEnable = ethIfEnable != 0 ? ZEL_TRUE : ZEL_FALSE;
    gPppoeplus.ethAggIfEnable = ethAggIfEnable != 0 ? ZEL_TRUE : ZEL_FALSE;
    gPppoeplus.gponIfEnable = gponIfEnable != 0 ? ZEL_TRUE : ZEL_FALSE;
    gPppoeplus.ponAggIfEnable = ponAggIfEnable != 0 ? ZEL_TRUE : ZEL_FALSE;

    pppoeplusDebugSwitchSet(PPPOEPLUS_DEBUG_STARTUP);
    static constexpr uint32_t defaultLogLevel[PPPOEPLUS_SUB_NUM] = {7, 7, 7, 7, 5, 7, 7, 7};
    std::memcpy(gPppoeplus.logLevel, defaultLogLevel, sizeof(defaultLogLevel));

    uint32_t rc = pppoeplusMemoryPoolInit();
    if (rc != 0) {
        PPPOEPLUS_STARTUP_LOG("interface memory pool init error(err#%d).\r\n", static_cast<int32_t>(rc));
        return pppoeplusInitCleanup();
    }

    pppoeplusKeywordsInit(&gPppoeplus.circuitIdFormat);
    pppoeplusKeywordsInit(&gPppoeplus.remoteIdFormat);
    pppoeplusKeywordsInit(&gPppoeplus.ponCircuitIdFormat);

    gPppoeplus.circuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_DEFAULT;
    gPppoeplus.remoteIdFormatType = PPPOEPLUS_FORMAT_TYPE_DEFAULT;
    gPppoeplus.ponCircuitIdFormatType = PPPOEPLUS_FORMAT_TYPE_DEFAULT;
    pppoeplusCircuitIdFormatInstallDefault(&gPppoeplus.circuitIdFormat);
    pppoeplusRemoteIdFormatInstallDefault(&gPppoeplus.remoteIdFormat);
    if (pppoeplusPonCircuitIdFormatInstallDefault(&gPppoeplus.ponCircuitIdFormat, gPppoeplus.ponDefaultType) != 0) {
        PPPOEPLUS_STARTUP_LOG("Failed to init pon common!\r\n");
        return pppoeplusInitCleanup();
    }

    gPppoeplus.semId = silCreateMSem(PPPOEPLUS_SEM_OPTIONS);
    if (gPppoeplus.semId == 0) {
        PPPOEPLUS_STARTUP_LOG("Failed to create semaphore for pppoeplus.\r\n");
        return pppoeplusInitCleanup();
    }

    avl_create(&gPppoeplus.ifTree, pppoeplusIfCmp, sizeof(tPppoePlusIfEntry), 0);
    pppoeplusListInit(&gPppoeplus.trustIfList);

    gPppoeplus.pktFd = -1;
    gPppoeplus.pktFd = zel_socket(ZEL_AF_PACKET, ZEL_SOCK_DGRAM, ZEL_ETH_P_PPPOE_DISC);
    if (gPppoeplus.pktFd < 0) {
        PPPOEPLUS_STARTUP_LOG("Failed to create socket!\r\n");
        return pppoeplusInitCleanup();
    }
    if (pppoeplusSetIntOpt(gPppoeplus.pktFd, ZEL_SOL_SOCKET, ZEL_SO_NAME, ZEL_PROTO_PPPOEPLUS) != 0) {
        PPPOEPLUS_STARTUP_LOG("Failed to set SO_NAME option!\r\n");
        return pppoeplusInitCleanup();
    }
    if (pppoeplusSetIntOpt(gPppoeplus.pktFd, ZEL_SOL_PACKET, ZEL_RX_PKTINFO, 1) != 0) {
        PPPOEPLUS_STARTUP_LOG("Failed to set RX_PKTINFO option!\r\n");
        return pppoeplusInitCleanup();
    }
    // Switched off, the socket keeps the platform's default buffer.
    if (pppoeplusEnableGet() == ZEL_TRUE &&
        pppoeplusSetIntOpt(gPppoeplus.pktFd, ZEL_SOL_SOCKET, ZEL_SO_RCVBUF, PPPOEPLUS_RCVBUF_ENABLED) != 0) {
        PPPOEPLUS_STARTUP_LOG("Failed to set SO_RCVBUF option!\r\n");
        return pppoeplusInitCleanup();
    }

    gPppoeplus.rtSockFd = -1;
    gPppoeplus.rtSockFd = pppoeplusRtSockOpen();
    if (gPppoeplus.rtSockFd < 0) {
        PPPOEPLUS_STARTUP_LOG("Failed to create socket!\r\n");
        return pppoeplusInitCleanup();
    }

    // Management callers may arrive from here on; they wait on the lock. The
    // service is told first which value record each call takes, so that it
    // builds every record itself.
    (void)icmProcCallSpecInit(PPPOEPLUS_CMD_SERVICE, gPppoeplusCallSpecs.data(), PPPOEPLUS_CALL_SPEC_ROWS);
    (void)icmProcTcpInit(PPPOEPLUS_CMD_SERVICE, PPPOEPLUS_CMD_SOCKET, gPppoeplusFuncMap, PPPOEPLUS_FUNC_MAP_ROWS);

    uint32_t taskId = 0;
    if (silCreateTask(PPPOEPLUS_TASK_NAME, PPPOEPLUS_TASK_PRIORITY, PPPOEPLUS_TASK_STACK, pppoeplusMain, 0, 0,
                      &taskId) != 0) {
        PPPOEPLUS_STARTUP_LOG("Failed to create pppoeplus task!\r\n");
        return pppoeplusInitCleanup();
    }

    uint32_t protoId = ZEL_PROTO_PPPOEPLUS;
    (void)zelHwilScalarSet(0, ZEL_HWIL_SCALAR_PROTO_ID, &protoId, 0);
    gPppoeplusInit = 1;
    return 0;
}
