// The hardware rule of a port (protocol 19) on Linux: nftables bridge rules
// that keep the kernel bridge from forwarding discovery frames (untagged,
// behind one 802.1Q or 802.1ad tag, or behind two tags) that enter on the
// port, so that the agent's copy is the only one that reaches the uplinks.
//
// One table (family bridge, "pppoeplus" unless platform.nfttable says
// otherwise) holds a set of port names and three fixed rules that drop from
// the ports in the set; switching a port's rule on or off adds or removes its
// name. The table is created on first use, replacing one left behind by an
// earlier run in the same transaction as the first port's name. It is not
// removed when the process ends, however it ends (a stop, a crash, kill -9):
// while no agent runs, discovery frames from the ruled ports stay off the
// uplinks (fail closed). `nft delete table bridge pppoeplus` lets them through.
#pragma once

#include <string>
#include <vector>

namespace linuxplat {

// The rule text loaded into the kernel for table `table`. Pure.
std::string hwruleTableScript(const std::string& table);
// Adding or removing one port name. Pure.
std::string hwruleElementScript(const std::string& table, const std::string& ifName, bool add);
// Adding or removing several port names in one command. Pure.
std::string hwruleElementsScript(const std::string& table, const std::vector<std::string>& ifNames, bool add);

// Switches the rule for `ifName` on or off, in one nftables transaction
// (loaded in process through libnftables). 0, or a platform error code.
int hwruleSet(const std::string& ifName, bool on);
// Switches the rules of every name in `ifNames` on or off in ONE
// transaction: all of them change or none does (a name not in the set makes
// switching off fail as a whole, as it does for hwruleSet). A name that is
// not an interface name refuses the call before anything changes;
// duplicates count once, an empty list changes nothing. 0, or a platform
// error code.
int hwruleSetMany(const std::vector<std::string>& ifNames, bool on);
// Gathering. While a thread holds one of the platform's mutex semaphores
// (the daemon's lock), hwruleSet and hwruleSetMany only note the changes it
// asks for and return 0; when it lets go of the last one, still holding it,
// every change noted is loaded in ONE transaction, in the order asked for
// (switching the agent on rules all its ports at once instead of one
// transaction per port under the lock). A call from a thread that holds no
// semaphore loads what was noted before it together with its own change.
// Fail closed: when the transaction fails, the changes are loaded one by one
// as each would have been alone, and each one that still fails is logged and
// handed to the hwruleOnFailed callback (the interface database marks the
// port as without its rule), so that no port is believed ruled while the
// bridge forwards its discovery frames.
void hwruleHoldBegin();  // the thread took a semaphore
void hwruleHoldEnd();    // the thread is letting go of one (commits at the last)
// Loads what was noted now. 0, or ZEL_ERR_GENERAL when a change failed.
int hwruleCommit();
// Called, without any lock of this file held, for every noted change that
// could not be loaded: the port name and whether it was to be switched on.
using HwruleFailed = void (*)(const std::string& ifName, bool on);
void hwruleOnFailed(HwruleFailed fn);

// True while rules can be loaded (libnftables works in this network
// namespace, or platform.hwrule = nft requires it), false when the platform
// runs without them (platform.hwrule = none, or auto where nftables does
// not work).
bool hwruleEnabled();
// The process is ending: the table is left as it is, and rules switched
// from now on (by threads still running) change nothing.
void hwruleRelease();

}  // namespace linuxplat
