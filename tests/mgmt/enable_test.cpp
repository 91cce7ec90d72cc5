// Global enable, disable and reset.
#include <cstring>
#include <string>
#include <vector>

#include "agent/global.h"
#include "daemon/startup.h"
#include "format/default_formats.h"
#include "iftable/if_entry.h"
#include "iftable/trust_list.h"
#include "mgmt/enable.h"
#include "platform/types.h"
#include "support/fixture.h"

namespace {

std::vector<uint32_t> entryUnits() {
    std::vector<uint32_t> units;
    for (auto* e = static_cast<tPppoePlusIfEntry*>(avl_first(&gPppoeplus.ifTree)); e != nullptr;
         e = static_cast<tPppoePlusIfEntry*>(avl_walk(&gPppoeplus.ifTree, e, AVL_AFTER)))
        units.push_back(e->ifUnit);
    return units;
}

std::vector<uint32_t> enabledUnits() {
    std::vector<uint32_t> units;
    for (uint32_t u : entryUnits())
        if (pppoeplusIfEnableGet(pppoeplusIfEntryGet(u)) == ZEL_TRUE) units.push_back(u);
    return units;
}

void setCounters(tPppoePlusIfEntry* e, uint32_t v) {
    e->errorRcv = e->errorSend = e->padiRcv = e->padrRcv = v;
    e->padtRcv = e->padoRcv = e->padsRcv = e->totalSend = v;
}

bool countersZero(const tPppoePlusIfEntry* e) {
    return e->errorRcv == 0 && e->errorSend == 0 && e->padiRcv == 0 && e->padrRcv == 0 && e->padtRcv == 0 &&
           e->padoRcv == 0 && e->padsRcv == 0 && e->totalSend == 0;
}

class EnableTest : public SimTest {
  protected:
    // A device with one interface of every sort the walk must judge.
    void addMixedInterfaces() {
        sim::addInterface(1, "eth1", ZEL_OND_ETH);                                // admitted
        sim::addInterface(2, "eth2", ZEL_OND_ETH).phyInfo.portNo = 0;             // not on the front panel
        sim::addInterface(3, "br0", ZEL_OND_ETH).flags = ZEL_IF_FLAG_NOT_SUBSCRIBER;
        sim::addInterface(4, "agg4", ZEL_OND_ETH_AGG);                             // admitted
        sim::addInterface(5, "agg5", ZEL_OND_ETH_AGG).flags = ZEL_IF_FLAG_AGG_EMPTY;
        sim::addInterface(6, "gpon6", ZEL_OND_GPON, ZEL_IFTYPE_GPON);
        sim::addInterface(7, "epon7", ZEL_OND_EPON);                               // never automatic
        sim::addInterface(8, "ponagg8", ZEL_OND_PON_AGG);
        sim::addInterface(9, "eth9", ZEL_OND_ETH).phyOk = false;
        sim::addInterface(10, "eth10", ZEL_OND_ETH).flagsOk = false;
        sim::addInterface(11, "eth11", ZEL_OND_ETH).flags = ZEL_IF_FLAG_AGG_MEMBER;  // admitted: not tested here
        sim::addInterface(12, "agg12", ZEL_OND_ETH_AGG).flags = ZEL_IF_FLAG_AGG_MEMBER;
        sim::addInterface(13, "lo", 0);
        sim::addInterface(0x80000001u, "eth-hi", ZEL_OND_ETH);                     // admitted
    }
};

TEST_F(EnableTest, FailingReceiveBufferLeavesTheAgentOff) {
    pppoeplusTestStart(0, 1);
    addMixedInterfaces();
    sim::failWhen("zel_setsockopt(3,65535,4098,1048576)", -1, 1);
    EXPECT_EQ(0x3E8001Bu, pppoeplusEnable());
    EXPECT_EQ(ZEL_FALSE, pppoeplusEnableGet());
    EXPECT_TRUE(entryUnits().empty());
    EXPECT_EQ(std::vector<std::string>{"zel_setsockopt(3,65535,4098,1048576)"}, sim::g.calls);
}

TEST_F(EnableTest, WithoutAllPortNoEntriesAreCreated) {
    pppoeplusTestStart(0, 0);
    addMixedInterfaces();
    EXPECT_EQ(0u, pppoeplusEnable());
    EXPECT_EQ(ZEL_TRUE, pppoeplusEnableGet());
    EXPECT_EQ(0x100000, sim::sockOpt(3, 0xFFFF, 0x1002));
    EXPECT_TRUE(entryUnits().empty());
    EXPECT_EQ(std::vector<std::string>{"zel_setsockopt(3,65535,4098,1048576)"}, sim::g.calls);
}

TEST_F(EnableTest, AllPortEnablesExactlyTheAdmittedUnits) {
    pppoeplusTestStart(0, 1);
    addMixedInterfaces();
    sim::addInterface(14, "eth14", ZEL_OND_ETH);
    ASSERT_NE(nullptr, pppoeplusIfEntryAdd(14, ZEL_FALSE));  // an entry that exists, disabled
    EXPECT_EQ(0u, pppoeplusEnable());
    EXPECT_EQ((std::vector<uint32_t>{1, 4, 11, 12, 14, 0x80000001u}), entryUnits());
    EXPECT_EQ((std::vector<uint32_t>{1, 4, 11, 12, 0x80000001u}), enabledUnits());
    // Every unit was visited in order; the ones without a position or flags
    // were read and passed over.
    EXPECT_EQ(std::vector<std::string>{"zelIfGetFirst()"}, sim::callsStartingWith("zelIfGetFirst"));
    EXPECT_EQ(15u, sim::callsStartingWith("zelIfGetNext").size());
    EXPECT_GE(sim::findCall("zelIndexTrans(9,5)"), 0);
    EXPECT_EQ(-1, sim::findCall("zelIfGetApi(9,10)")) << "no flags read without a position";
}

TEST_F(EnableTest, KindSwitchesDecide) {
    pppoeplusTestStart(0, 1);
    addMixedInterfaces();
    gPppoeplus.ethIfEnable = ZEL_FALSE;
    gPppoeplus.ethAggIfEnable = ZEL_FALSE;
    gPppoeplus.gponIfEnable = ZEL_TRUE;
    gPppoeplus.ponAggIfEnable = ZEL_TRUE;
    EXPECT_EQ(0u, pppoeplusEnable());
    EXPECT_EQ((std::vector<uint32_t>{6, 8}), enabledUnits());
}

TEST_F(EnableTest, ThirdPhyInfoWordZeroSkipsOnlyEthernetPorts) {
    pppoeplusTestStart(0, 1);
    gPppoeplus.gponIfEnable = ZEL_TRUE;
    sim::addInterface(1, "eth1", ZEL_OND_ETH).phyInfo.portNo = 0;
    sim::addInterface(2, "agg2", ZEL_OND_ETH_AGG).phyInfo.portNo = 0;
    sim::addInterface(3, "gpon3", ZEL_OND_GPON).phyInfo.portNo = 0;
    EXPECT_EQ(0u, pppoeplusEnable());
    EXPECT_EQ((std::vector<uint32_t>{2, 3}), enabledUnits());
}

TEST_F(EnableTest, EnableTwiceCreatesNoDuplicates) {
    pppoeplusTestStart(0, 1);
    addMixedInterfaces();
    EXPECT_EQ(0u, pppoeplusEnable());
    uint32_t used = gPppoeplus.ifPool.used;
    sim::g.calls.clear();
    EXPECT_EQ(0u, pppoeplusEnable());
    EXPECT_EQ(used, gPppoeplus.ifPool.used);
    EXPECT_TRUE(sim::callsStartingWith("silMemPoolAlloc").empty());
    EXPECT_EQ((std::vector<uint32_t>{1, 4, 11, 12, 0x80000001u}), entryUnits());
}

TEST_F(EnableTest, NoInterfacesAtAll) {
    pppoeplusTestStart(0, 1);
    EXPECT_EQ(0u, pppoeplusEnable());
    EXPECT_EQ(ZEL_TRUE, pppoeplusEnableGet());
    EXPECT_TRUE(entryUnits().empty());
}

TEST_F(EnableTest, DisableShrinksTheBufferAndDeletesEverything) {
    pppoeplusTestStart(1, 1);
    addMixedInterfaces();
    ASSERT_EQ(0u, pppoeplusEnable());
    ASSERT_FALSE(entryUnits().empty());
    sim::g.calls.clear();
    EXPECT_EQ(0u, pppoeplusDisable());
    EXPECT_EQ("zel_setsockopt(3,65535,4098,1)", sim::g.calls.at(0));
    EXPECT_EQ(1, sim::sockOpt(3, 0xFFFF, 0x1002));
    EXPECT_EQ(ZEL_FALSE, pppoeplusEnableGet());
    EXPECT_EQ(ZEL_TRUE, pppoeplusAllPortEnableGet());
    EXPECT_TRUE(entryUnits().empty());
    EXPECT_EQ(0u, gPppoeplus.ifPool.used);
    for (const auto& [key, st] : sim::g.protoStates) {
        EXPECT_FALSE(st.on) << key.first << "/" << key.second;
        EXPECT_FALSE(st.dflt) << key.first << "/" << key.second;
    }
}

TEST_F(EnableTest, DisableSucceedsEvenWhenTheBufferCannotShrink) {
    pppoeplusTestStart(1, 0);
    sim::addInterface(1, "eth1", ZEL_OND_ETH);
    ASSERT_NE(nullptr, pppoeplusIfEntryAdd(1, ZEL_TRUE));
    sim::failWhen("zel_setsockopt(3,65535,4098,1)", -1);
    EXPECT_EQ(0u, pppoeplusDisable());
    EXPECT_EQ(ZEL_FALSE, pppoeplusEnableGet());
    EXPECT_TRUE(entryUnits().empty());
}

TEST_F(EnableTest, DisableThenEnableRecreatesDefaultEntries) {
    pppoeplusTestStart(0, 1);
    addMixedInterfaces();
    ASSERT_EQ(0u, pppoeplusEnable());
    tPppoePlusIfEntry* e = pppoeplusIfEntryGet(1);
    ASSERT_NE(nullptr, e);
    pppoeplusIfPolicySet(e, 2);
    e->circuitIdFormatType = 1;
    setCounters(e, 9);
    ASSERT_EQ(0u, pppoeplusDisable());
    ASSERT_TRUE(entryUnits().empty());
    ASSERT_EQ(0u, pppoeplusEnable());
    EXPECT_EQ((std::vector<uint32_t>{1, 4, 11, 12, 0x80000001u}), enabledUnits());
    e = pppoeplusIfEntryGet(1);
    ASSERT_NE(nullptr, e);
    EXPECT_EQ(0u, pppoeplusIfPolicyGet(e));
    EXPECT_EQ(ZEL_FALSE, pppoeplusIfTrustGet(e));
    EXPECT_EQ(0u, e->circuitIdFormatType);
    EXPECT_TRUE(countersZero(e));
}

// ---- reset ------------------------------------------------------------------

class ResetTest : public EnableTest {
  protected:
    // Three entries with non-default configuration, one of them trusted, and a
    // changed global configuration.
    void configure() {
        for (uint32_t u : {1u, 2u, 3u}) {
            sim::addInterface(u, "eth" + std::to_string(u), ZEL_OND_ETH);
            tPppoePlusIfEntry* e = pppoeplusIfEntryAdd(u, ZEL_TRUE);
            ASSERT_NE(nullptr, e);
            setCounters(e, 5);
            pppoeplusIfPolicySet(e, 1);
            e->circuitIdFormatType = 2;
            e->circuitIdFormat.formatLen = 3;
            std::memcpy(e->circuitIdFormat.format, "abc", 3);
        }
        tPppoePlusIfEntry* trusted = pppoeplusIfEntryGet(2);
        pppoeplusIfTrustSet(trusted, ZEL_TRUE);
        pppoeplusTrustIfEntryAttach(trusted);

        pppoeplusPolicySet(1);
        gPppoeplus.vendorId = 42;
        gPppoeplus.circuitIdFormatType = 1;
        gPppoeplus.remoteIdFormatType = 2;
        gPppoeplus.ponCircuitIdFormatType = 2;
        const char longText[] = "'%portname:%svlan.%cvlan.%portmac.%sysname.%devicename'";
        pppoeplusFormatInstall(&gPppoeplus.circuitIdFormat, longText, longText);
        pppoeplusFormatInstall(&gPppoeplus.remoteIdFormat, longText, longText);
        pppoeplusFormatInstall(&gPppoeplus.ponCircuitIdFormat, longText, longText);
        pppoeplusDebugSwitchSet(0x6);
    }
    void expectGlobalDefaults(const char* ponStored, const char* ponTyped) {
        EXPECT_EQ(3u, pppoeplusPolicy());
        EXPECT_EQ(gPppoeplus.dfltVendorId, gPppoeplus.vendorId);
        EXPECT_EQ(0u, gPppoeplus.circuitIdFormatType);
        EXPECT_EQ(0u, gPppoeplus.remoteIdFormatType);
        EXPECT_EQ(0u, gPppoeplus.ponCircuitIdFormatType);
        EXPECT_EQ("'%N:%s.%c'", std::string(gPppoeplus.circuitIdFormat.format, gPppoeplus.circuitIdFormat.formatLen));
        EXPECT_EQ("'%portname:%svlan.%cvlan'",
                  std::string(gPppoeplus.circuitIdFormat.origFormat, gPppoeplus.circuitIdFormat.origFormatLen));
        EXPECT_EQ("'%C'", std::string(gPppoeplus.remoteIdFormat.format, gPppoeplus.remoteIdFormat.formatLen));
        EXPECT_EQ("'%portmac'",
                  std::string(gPppoeplus.remoteIdFormat.origFormat, gPppoeplus.remoteIdFormat.origFormatLen));
        EXPECT_EQ(ponStored,
                  std::string(gPppoeplus.ponCircuitIdFormat.format, gPppoeplus.ponCircuitIdFormat.formatLen));
        EXPECT_EQ(ponTyped, std::string(gPppoeplus.ponCircuitIdFormat.origFormat,
                                        gPppoeplus.ponCircuitIdFormat.origFormatLen));
        EXPECT_EQ(0x6u, pppoeplusDebugSwitch()) << "the debug switch is kept";
    }
};

TEST_F(ResetTest, AgentOnAndAllPortOnKeepsEntriesWithCountersZeroed) {
    pppoeplusTestStart(1, 1);
    configure();
    pppoeplusResetConfig();
    EXPECT_EQ((std::vector<uint32_t>{1, 2, 3}), entryUnits());
    for (uint32_t u : entryUnits()) {
        tPppoePlusIfEntry* e = pppoeplusIfEntryGet(u);
        EXPECT_TRUE(countersZero(e)) << u;
        EXPECT_EQ(0u, pppoeplusIfPolicyGet(e));
        EXPECT_EQ(ZEL_FALSE, pppoeplusIfTrustGet(e));
        EXPECT_EQ(ZEL_TRUE, pppoeplusIfEnableGet(e)) << "enable is kept";
        EXPECT_EQ(0u, e->circuitIdFormatType);
        EXPECT_EQ(0u, e->circuitIdFormat.formatLen);
    }
    EXPECT_TRUE(pppoeplusListEmpty(&gPppoeplus.trustIfList));
    expectGlobalDefaults(PPPOEPLUS_OLTPORT_FORMAT_COMMON_LINEID, PPPOEPLUS_OLTPORT_FORMAT_ORIG_COMMON_LINEID);
    EXPECT_EQ(ZEL_TRUE, pppoeplusEnableGet());
    EXPECT_EQ(ZEL_TRUE, pppoeplusAllPortEnableGet());
}

TEST_F(ResetTest, EitherSwitchOffDeletesEveryEntry) {
    const struct {
        uint32_t enable;
        uint32_t allPort;
    } cases[] = {{0, 1}, {1, 0}, {0, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.enable) + "/" + std::to_string(c.allPort));
        pppoeplusTestReset();
        pppoeplusTestStart(c.enable, c.allPort);
        configure();
        pppoeplusResetConfig();
        EXPECT_TRUE(entryUnits().empty());
        EXPECT_EQ(0u, gPppoeplus.ifPool.used);
        EXPECT_TRUE(pppoeplusListEmpty(&gPppoeplus.trustIfList));
        expectGlobalDefaults(PPPOEPLUS_OLTPORT_FORMAT_COMMON_LINEID, PPPOEPLUS_OLTPORT_FORMAT_ORIG_COMMON_LINEID);
        EXPECT_EQ(c.enable ? ZEL_TRUE : ZEL_FALSE, pppoeplusEnableGet());
        EXPECT_EQ(c.allPort ? ZEL_TRUE : ZEL_FALSE, pppoeplusAllPortEnableGet());
    }
}

TEST_F(ResetTest, OnlyTheLengthsAndTheFirstBytesAreWritten) {
    pppoeplusTestStart(1, 1);
    configure();
    std::string before(gPppoeplus.circuitIdFormat.format, 50);
    pppoeplusResetConfig();
    EXPECT_EQ(10u, gPppoeplus.circuitIdFormat.formatLen);
    EXPECT_EQ(25u, gPppoeplus.circuitIdFormat.origFormatLen);
    EXPECT_EQ(before.substr(10), std::string(gPppoeplus.circuitIdFormat.format + 10, 40))
        << "the old text stays behind the new length";
    EXPECT_EQ(4u, gPppoeplus.remoteIdFormat.formatLen);
    EXPECT_EQ('r', gPppoeplus.remoteIdFormat.format[4]) << "from the old \"'%portname...\"";
}

TEST_F(ResetTest, PonFormatFollowsTheDeviceKind) {
    pppoeplusTestStart(1, 1);
    configure();
    gPppoeplus.ponDefaultType = 2;
    pppoeplusResetConfig();
    expectGlobalDefaults(PPPOEPLUS_ONUPORT_FORMAT_COMMON_LINEID, PPPOEPLUS_ONUPORT_FORMAT_ORIG_COMMON_LINEID);
    EXPECT_EQ(2u, gPppoeplus.ponDefaultType);

    const char other[] = "'%portname:%svlan.%cvlan.%portmac'";
    pppoeplusFormatInstall(&gPppoeplus.ponCircuitIdFormat, other, other);
    gPppoeplus.ponCircuitIdFormatType = 1;
    std::string pon(gPppoeplus.ponCircuitIdFormat.format, gPppoeplus.ponCircuitIdFormat.formatLen);
    gPppoeplus.ponDefaultType = 0;
    pppoeplusResetConfig();
    EXPECT_EQ(pon, std::string(gPppoeplus.ponCircuitIdFormat.format, gPppoeplus.ponCircuitIdFormat.formatLen))
        << "a switch keeps its PON format as it is";
    EXPECT_EQ(0u, gPppoeplus.ponCircuitIdFormatType);
}

TEST_F(ResetTest, RestoresTheStartUpVendorId) {
    sim::setScalarU32(38, 777);
    ASSERT_EQ(0u, pppoeplusInit(0, 1, 777, 1, 0, 0, 1, 1, 0, 0));
    gPppoeplus.vendorId = 4242;
    pppoeplusResetConfig();
    EXPECT_EQ(777u, gPppoeplus.vendorId);
    EXPECT_EQ(777u, gPppoeplus.dfltVendorId);
}

TEST_F(ResetTest, LeavesTheRestAlone) {
    pppoeplusTestStart(1, 1);
    configure();
    gPppoeplus.ethIfEnable = ZEL_FALSE;
    gPppoeplus.gponIfEnable = ZEL_TRUE;
    gPppoeplus.logLevel[2] = 3;
    const tPppoeplusKeyword* kw = gPppoeplus.circuitIdFormat.keywords;
    std::string keywordsBefore(reinterpret_cast<const char*>(kw), sizeof(gPppoeplus.circuitIdFormat.keywords));
    pppoeplusResetConfig();
    EXPECT_EQ(ZEL_FALSE, gPppoeplus.ethIfEnable);
    EXPECT_EQ(ZEL_TRUE, gPppoeplus.ethAggIfEnable);
    EXPECT_EQ(ZEL_TRUE, gPppoeplus.gponIfEnable);
    EXPECT_EQ(3u, gPppoeplus.logLevel[2]);
    EXPECT_EQ(1u, gPppoeplus.ponDefaultType);
    EXPECT_EQ(3, gPppoeplus.pktFd);
    EXPECT_EQ(4, gPppoeplus.rtSockFd);
    EXPECT_EQ(keywordsBefore, std::string(reinterpret_cast<const char*>(kw), sizeof(gPppoeplus.circuitIdFormat.keywords)));
}

}  // namespace
