// Fuzz target of the route-message walk (pppoeplusRtMsgHandle): one read of
// the route socket, any bytes, handled against a simulated device with
// Ethernet ports, an aggregate and its member, a GPON port and two uplinks.
//
// An input is one configuration byte and the bytes of the read:
//   byte 0  bit 0 the agent is on, bit 1 every port is served by default,
//           bit 2 every debug switch on
//   then    the read (the daemon reads at most 3840 bytes).
// The device is set up afresh for every input. Afterwards the interface
// table must still be whole: every entry in the tree came from the pool, the
// pool hands out no more than the tree holds, and every uplink on the
// trusted list is in the tree.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "daemon/route_socket.h"
#include "fuzz/fuzz_target.h"
#include "fuzz/pkt_fuzz_target.h"
#include "platform/ifdb.h"

namespace pppoeplusfuzz {

const char* const kTargetName = "rtmsg_fuzz";

namespace {

void device() {
    pppoeplusFuzzSetUp();
    sim::Interface& agg = sim::addInterface(2, "eth-agg/2", ZEL_OND_ETH_AGG);
    agg.phyInfo.portNo = 2;
    sim::Interface& member = sim::addInterface(5, "eth0/5", ZEL_OND_ETH);
    member.flags = ZEL_IF_FLAG_AGG_MEMBER;
    member.phyInfo.portNo = 5;
    sim::Interface& spare = sim::addInterface(6, "eth0/6", ZEL_OND_ETH);
    spare.phyInfo.portNo = 6;
    sim::addInterface(7, "eth0/0", ZEL_OND_ETH);  // port number 0
}

}  // namespace

void targetSetUp() { device(); }

std::string targetOne(const uint8_t* data, size_t size) {
    std::string problems;
    if (size < 1) return problems;
    device();
    pppoeplusEnableSet((data[0] & 0x1) ? ZEL_TRUE : ZEL_FALSE);
    pppoeplusAllPortEnableSet((data[0] & 0x2) ? ZEL_TRUE : ZEL_FALSE);
    pppoeplusDebugSwitchSet((data[0] & 0x4) ? 0xF : 0);

    const size_t len = std::min<size_t>(size - 1, PPPOEPLUS_RT_BUF_LEN);
    std::unique_ptr<uint8_t[]> read(new uint8_t[len == 0 ? 1 : len]);
    if (len > 0) std::memcpy(read.get(), data + 1, len);
    pppoeplusRtMsgHandle(read.get(), static_cast<uint32_t>(len));

    uint32_t inTree = 0;
    for (auto* e = static_cast<tPppoePlusIfEntry*>(avl_first(&gPppoeplus.ifTree)); e != nullptr;
         e = static_cast<tPppoePlusIfEntry*>(avl_walk(&gPppoeplus.ifTree, e, AVL_AFTER))) {
        inTree++;
        if (inTree > gPppoeplus.ifPool.count) {
            problems += "the tree holds more entries than the pool; ";
            break;
        }
    }
    if (inTree != gPppoeplus.ifPool.used) problems += "tree and pool disagree; ";
    uint32_t trusted = 0;
    for (tPppoePlusIfEntry* e = pppoeplusTrustIfEntryFirst(); e != nullptr; e = pppoeplusTrustIfEntryNext(e)) {
        if (pppoeplusIfEntryGet(e->ifUnit) != e) problems += "an uplink outside the tree; ";
        if (++trusted > inTree) {
            problems += "trusted list longer than the tree; ";
            break;
        }
    }
    return problems;
}

}  // namespace pppoeplusfuzz
