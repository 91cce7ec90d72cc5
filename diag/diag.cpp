// Diagnostic commands of the process shell.
#include "diag/diag.h"

#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "agent/global.h"
#include "format/default_formats.h"
#include "format/format_simplify.h"
#include "iftable/trust_list.h"
#include "mgmt/scalar_api.h"
#include "packet/pkt_recv.h"
#include "platform/ifdb.h"
#include "platform/logging.h"
#include "platform/os.h"
#include "platform/socket.h"
#include "platform/types.h"

extern "C" {
tPppoeplusTestOnuInfo gTestOnuInfo;
}

// The keywords in the order the command prints them ("sys" after "frame").
constexpr tPppoeplusKeywordShowLine gPppoeplusKeywordShowLines[PPPOEPLUS_KEYWORD_SHOW_LINES] = {
    {"svlan - %c\r\n", 's'},        {"cvlan - %c\r\n", 'c'},        {"accessnode - %c\r\n", 'a'},
    {"rack - %c\r\n", 'r'},         {"frame - %c\r\n", 'f'},        {"sys - %c\r\n", 'H'},
    {"slot - %c\r\n", 'S'},         {"port - %c\r\n", 'p'},         {"onuid - %c\r\n", 'm'},
    {"uplinktype - %c\r\n", 'u'},   {"slottype - %c\r\n", 'L'},     {"managevlanip - %c\r\n", 'O'},
    {"onuauthid - %c\r\n", 'o'},    {"onutype - %c\r\n", 'n'},      {"onuslot - %c\r\n", 'T'},
    {"onusubslot - %c\r\n", 'M'},   {"onuport - %c\r\n", 'P'},      {"userporttype - %c\r\n", 't'},
    {"xpi - %c\r\n", 'X'},          {"xci - %c\r\n", 'x'},          {"iadip - %c\r\n", 'I'},
    {"iadmac - %c\r\n", 'A'},       {"nodetype - %c\r\n", 'B'},     {"accesstype - %c\r\n", 'b'},
    {"portname - %c\r\n", 'N'},     {"porttype - %c\r\n", 'Y'},     {"portmac - %c\r\n", 'C'},
    {"devicename - %c\r\n", 'd'},   {"sysname - %c\r\n", 'D'},      {"onusn - %c\r\n", 'U'},
    {"oltonlymac - %c\r\n", 'R'},   {"oltmac - %c\r\n", 'Z'},       {"clientmac - %c\r\n", 'J'},
    {"onuloid - %c\r\n", 'G'},      {"onuauthinfo - %c\r\n", 'h'},
};

static const char PPPOEPLUS_DOTS[] = "................................................";
static_assert(sizeof(PPPOEPLUS_DOTS) - 1 == 48);

// Prints `label.formatLen:%u, label.format:%s` for a format record; the text
// is copied into a zeroed buffer first, since it carries no terminator.
static void pppoeplusFormatLinePrint(const char* label, const tPppoeplusFormat* format) {
    char text[PPPOEPLUS_FORMAT_LEN + 1];
    std::memset(text, 0, sizeof(text));
    uint32_t len = format->formatLen < PPPOEPLUS_FORMAT_LEN ? format->formatLen : PPPOEPLUS_FORMAT_LEN;
    std::memcpy(text, format->format, len);
    printf("%s.formatLen:%u, %s.format:%s\r\n", label, static_cast<uint32_t>(format->formatLen), label, text);
}

extern "C" int32_t pppoeplusIfEntryShow(tPppoePlusIfEntry* pIf) {
    if (pIf == nullptr) return 0;
    char name[ZEL_IF_NAME_LEN];
    std::memset(name, 0, sizeof(name));
    zelIfUnit2Name(pIf->ifUnit, name, sizeof(name));
    uint32_t trust = pppoeplusIfTrustGet(pIf);
    uint32_t enable = pppoeplusIfEnableGet(pIf);
    uint32_t protoEnable = pppoeplusIfProtoEnableGet(pIf);
    uint32_t protoDfltEnable = pppoeplusIfProtoDfltEnableGet(pIf);
    printf("pIf:%p, ifUnit:%u %s, trust:%u %s, enable:%u %s, protoEnable:%u %s, protoDfltEnable:%u %s\r\n",
           static_cast<void*>(pIf), pIf->ifUnit, name, trust, pppoeplusTruthStr(trust), enable,
           pppoeplusTruthStr(enable), protoEnable, pppoeplusTruthStr(protoEnable), protoDfltEnable,
           pppoeplusTruthStr(protoDfltEnable));
    printf("phyInfo.ondType:%u %s\r\n", pIf->phyInfo.ondType, pppoeplusOndTypeStr(pIf->phyInfo.ondType));
    printf("mac:%02x:%02x:%02x:%02x:%02x:%02x\r\n", pIf->mac[0], pIf->mac[1], pIf->mac[2], pIf->mac[3], pIf->mac[4],
           pIf->mac[5]);
    uint32_t policy = pppoeplusIfPolicyGet(pIf);
    printf("policy:%u %s\r\n", policy, pppoeplusPolicyStr(policy));
    printf("circuitIdFormatType:%u %s\r\n", pIf->circuitIdFormatType,
           pppoeplusFormatTypeStr(pIf->circuitIdFormatType));
    printf("remoteIdFormatType:%u %s\r\n", pIf->remoteIdFormatType, pppoeplusFormatTypeStr(pIf->remoteIdFormatType));
    pppoeplusFormatLinePrint("circuitIdFormat", &pIf->circuitIdFormat);
    pppoeplusFormatLinePrint("remoteIdFormat", &pIf->remoteIdFormat);
    printf("errorRcv:%u, errorSend:%u, padiRcv:%u, padrRcv:%u, padtRcv:%u, padoRcv:%u, padsRcv:%u, totalSend:%u\r\n",
           pIf->errorRcv, pIf->errorSend, pIf->padiRcv, pIf->padrRcv, pIf->padtRcv, pIf->padoRcv, pIf->padsRcv,
           pIf->totalSend);
    printf("\r\n");
    return 0;
}

extern "C" int32_t pppoeplusIfShowAll(void) {
    printf("\r\n pppoeplus Interface:\r\n");
    for (auto* e = static_cast<tPppoePlusIfEntry*>(avl_first(&gPppoeplus.ifTree)); e != nullptr;
         e = static_cast<tPppoePlusIfEntry*>(avl_walk(&gPppoeplus.ifTree, e, AVL_AFTER)))
        pppoeplusIfEntryShow(e);
    silMemPoolPrint(&gPppoeplus.ifPool);
    return 0;
}

extern "C" int32_t pppoeplusTrustIfShowAll(void) {
    printf("\r\n pppoeplus Trust Interface:\r\n");
    for (tPppoePlusIfEntry* e = pppoeplusTrustIfEntryFirst(); e != nullptr; e = pppoeplusTrustIfEntryNext(e))
        pppoeplusIfEntryShow(e);
    return 0;
}

extern "C" int32_t pppoeplusShow(void) {
    printf("\r\n------------------------PPPOEPLUS INFOMATION-----------------------\r\n");
    uint32_t enable = pppoeplusEnableGet();
    uint32_t allPort = pppoeplusAllPortEnableGet();
    printf("enable:%u %s, isAllPortEnableSupport:%u %s, maxSubSysNum:%u, ifMaxNum:%u, ponDefaultType:%u %s, "
           "vendorId:%u\r\n",
           enable, pppoeplusTruthStr(enable), allPort, pppoeplusTruthStr(allPort), gPppoeplus.maxSubSysNum,
           gPppoeplus.ifMaxNum, gPppoeplus.ponDefaultType, pppoeplusPonTypeStr(gPppoeplus.ponDefaultType),
           gPppoeplus.vendorId);
    printf("ethIfEnable:%u %s, ethAggIfEnable:%u %s, gponIfEnable:%u %s, ponAggIfEnable:%u %s\r\n",
           gPppoeplus.ethIfEnable, pppoeplusTruthStr(gPppoeplus.ethIfEnable), gPppoeplus.ethAggIfEnable,
           pppoeplusTruthStr(gPppoeplus.ethAggIfEnable), gPppoeplus.gponIfEnable,
           pppoeplusTruthStr(gPppoeplus.gponIfEnable), gPppoeplus.ponAggIfEnable,
           pppoeplusTruthStr(gPppoeplus.ponAggIfEnable));
    const uint8_t* mac = gPppoeplus.sysMac;
    printf("sys mac:%02x:%02x:%02x:%02x:%02x:%02x\r\n", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    uint32_t policy = pppoeplusPolicy();
    printf("dfltVendorId:%u, policy:%u %s\r\n", gPppoeplus.dfltVendorId, policy, pppoeplusPolicyStr(policy));
    printf("circuitIdFormatType:%u %s\r\n", gPppoeplus.circuitIdFormatType,
           pppoeplusFormatTypeStr(gPppoeplus.circuitIdFormatType));
    printf("remoteIdFormatType:%u %s\r\n", gPppoeplus.remoteIdFormatType,
           pppoeplusFormatTypeStr(gPppoeplus.remoteIdFormatType));
    printf("ponCircuitIdFormatType:%u %s\r\n", gPppoeplus.ponCircuitIdFormatType,
           pppoeplusFormatTypeStr(gPppoeplus.ponCircuitIdFormatType));
    pppoeplusFormatLinePrint("circuitIdFormat", &gPppoeplus.circuitIdFormat);
    pppoeplusFormatLinePrint("ponCircuitIdFormat", &gPppoeplus.ponCircuitIdFormat);
    pppoeplusFormatLinePrint("remoteIdFormat", &gPppoeplus.remoteIdFormat);
    printf("%s\r\n", PPPOEPLUS_DOTS);
    pppoeplusIfShowAll();
    printf("%s\r\n", PPPOEPLUS_DOTS);
    printf("\r\n-------------------------------------------------------------------\r\n");
    return 0;
}

extern "C" int32_t pppoeplusKeywordsShow(void) {
    printf("\r\n");
    for (const tPppoeplusKeywordShowLine& line : gPppoeplusKeywordShowLines) printf(line.format, line.code);
    return 0;
}

extern "C" int32_t pppoeplusCommonFormatShow(void) {
    printf("\r\n");
    printf("PPPOEPLUS_SWITCH_FORMAT_COMMON_CIRCUITID:%s\r\n", PPPOEPLUS_SWITCH_FORMAT_COMMON_CIRCUITID);
    printf("PPPOEPLUS_SWITCH_FORMAT_ORIG_COMMON_CIRCUITID:%s\r\n", PPPOEPLUS_SWITCH_FORMAT_ORIG_COMMON_CIRCUITID);
    printf("PPPOEPLUS_SWITCH_FORMAT_COMMON_REMOTEID:%s\r\n", PPPOEPLUS_SWITCH_FORMAT_COMMON_REMOTEID);
    printf("PPPOEPLUS_SWITCH_FORMAT_ORIG_COMMON_REMOTEID:%s\r\n", PPPOEPLUS_SWITCH_FORMAT_ORIG_COMMON_REMOTEID);
    printf("PPPOEPLUS_OLTPORT_FORMAT_COMMON_LINEID:%s\r\n", PPPOEPLUS_OLTPORT_FORMAT_COMMON_LINEID);
    printf("PPPOEPLUS_OLTPORT_FORMAT_ORIG_COMMON_LINEID:%s\r\n", PPPOEPLUS_OLTPORT_FORMAT_ORIG_COMMON_LINEID);
    printf("PPPOEPLUS_ONUPORT_FORMAT_COMMON_LINEID:%s\r\n", PPPOEPLUS_ONUPORT_FORMAT_COMMON_LINEID);
    printf("PPPOEPLUS_ONUPORT_FORMAT_ORIG_COMMON_LINEID:%s\r\n", PPPOEPLUS_ONUPORT_FORMAT_ORIG_COMMON_LINEID);
    printf("\r\n");
    return 0;
}

extern "C" int32_t pppoeplusSetPktFdRecvBufLen(int32_t bufLen) {
    if (zel_setsockopt(gPppoeplus.pktFd, ZEL_SOL_SOCKET, ZEL_SO_RCVBUF, &bufLen, sizeof(bufLen)) < 0) return 2;
    printf("\r\n");
    printf("set pktFd:%d recv bufLen:%d\r\n", gPppoeplus.pktFd, bufLen);
    return 0;
}

extern "C" int32_t pppoeplusTestForwardSet(uint32_t enable) {
    gPppoeplusTestForward = enable;
    printf("\r\n gPppoeplusTestForward change to %u\r\n", gPppoeplusTestForward);
    return 0;
}

extern "C" int32_t pppoeplusHelp(void) {
    printf("\r\n");
    puts("pppoeplusKeywordsShow()\r");
    puts("pppoeplusCommonFormatShow()\r");
    puts("pppoeplusIfEntryShow(tPppoePlusIfEntry *pIf)\r");
    puts("pppoeplusIfShowAll()\r");
    puts("pppoeplusTrustIfShowAll()\r");
    puts("pppoeplusShow()\r");
    puts("pppoeplusSetPktFdRecvBufLen(int32_t bufLen)\r");
    puts("pppoeplusTestForwardSet(uint32_t enable)\r");
    printf("\r\n");
    return 0;
}

extern "C" int32_t pppoeplusTest(void) {
    printf("\r\n");
    uint32_t vendorId = 0;
    int32_t ret = pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_DFLT_VENDORID, &vendorId);
    printf("pppoeplusScalarGetApi ret:%d, deftVendorId:%u\r\n", ret, vendorId);

    printf("\r\n");
    static uint8_t nsrBuf[1500];
    std::memset(nsrBuf, 0, sizeof(nsrBuf));
    tPppoeplusStrValue value = {reinterpret_cast<char*>(nsrBuf), sizeof(nsrBuf)};
    ret = pppoeplusScalarGetApi(0, PPPOEPLUS_SCALAR_NSRINFO, &value);
    if (ret == 0) {
        tPppoeplusNsrInfo info;
        std::memcpy(&info, nsrBuf, sizeof(info));
        printf("pppoeplusScalarGetApi PPPOEPLUS_SCALAR_NSRINFO return OK\r\n");
        printf("pNsrInfo->switchover:%d %s\r\n", static_cast<int32_t>(info.switchover),
               pppoeplusTruthStr(info.switchover));
        printf("pNsrInfo->incompleteOp:%u\r\n", info.incompleteOp);
        printf("pNsrInfo->allOp:%u\r\n", info.allOp);
    } else {
        printf("pppoeplusScalarGetApi PPPOEPLUS_SCALAR_NSRINFO return NOT OK. ret:%u\r\n",
               static_cast<uint32_t>(ret));
    }
    return 0;
}

extern "C" int32_t pppoeplusLogTest(uint32_t ifUnit) {
    const char* state = pppoeplusAllPortEnableGet() == ZEL_TRUE ? "defaultstate" : "state";
    char name[ZEL_IF_NAME_LEN];
    std::memset(name, 0, sizeof(name));
    zelIfUnit2Name(ifUnit, name, ZEL_IF_NAME_LEN - 1);
    const uint32_t enableModule = PPPOEPLUS_MODULE_BASE + PPPOEPLUS_SUB_PROTO_ENABLE;
    const uint32_t disableModule = PPPOEPLUS_MODULE_BASE + PPPOEPLUS_SUB_PROTO_DISABLE;
    const uint32_t enableLevel = gPppoeplus.logLevel[PPPOEPLUS_SUB_PROTO_ENABLE];
    const uint32_t disableLevel = gPppoeplus.logLevel[PPPOEPLUS_SUB_PROTO_DISABLE];
    for (uint32_t proto : {ZEL_PROTO_PPPOEPLUS, ZEL_PROTO_PPPOEPLUS_HW})
        loggingLogOutput(enableModule, enableLevel, LOG_PART_WHOLE,
                         "The interface enable protocol error.(ifName=[%s], proto=[%s], type=[%s])\r\n", name,
                         zelProtoName(proto), state);
    for (uint32_t proto : {ZEL_PROTO_PPPOEPLUS, ZEL_PROTO_PPPOEPLUS_HW})
        loggingLogOutput(disableModule, disableLevel, LOG_PART_WHOLE,
                         "The interface disable protocol error.(ifName=[%s], proto=[%s], type=[%s])\r\n", name,
                         zelProtoName(proto), state);
    return 0;
}

extern "C" int32_t pppoeplusPonTest(uint32_t ifUnit, uint32_t onuId) {
    std::memset(&gTestOnuInfo, 0, sizeof(gTestOnuInfo));
    gTestOnuInfo.ifUnit = ifUnit;
    // The ONU number in bits 8-19 of the second word and the serial number's
    // length in its low byte, then the serial number itself.
    gTestOnuInfo.onuWord = ((onuId & 0xFFFu) << 8) | 8u;
    static constexpr uint8_t sn[8] = {'W', 'U', 'P', 'O', 0x1B, 0xD8, 0x0A, 0x9A};
    std::memcpy(gTestOnuInfo.sn, sn, sizeof(sn));

    tPppoePlusIfEntry* entry = pppoeplusIfEntryGet(ifUnit);
    if (entry != nullptr) entry->phyInfo.ondType = ZEL_OND_GPON;
    return 0;
}
