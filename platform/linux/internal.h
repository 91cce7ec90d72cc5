// What the parts of the Linux platform tell each other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace linuxplat {

// Once per process: reads the configuration, sets up logging and writes the
// start message. Every entry point that may come first calls it.
void platformStart();

// Removes what the platform made in the runtime directory (socket files,
// the pid file, whose lock it lets go); the nftables table stays (fail
// closed). Called when the process ends, normally or by a stopping signal;
// nothing runs on a crash. Does nothing in a daemon refused its directory.
void platformCleanup();

// ---- privileges ------------------------------------------------------------------

// The capabilities the daemon keeps (CAP_* numbers), from the configuration.
std::vector<int> runtimeCapabilities();
// Keeps those (as far as the process has them, saying what is missing) and
// drops every other capability from all sets, the bounding set included.
void dropPrivileges();

// ---- interface database ----------------------------------------------------------

// Once: reads the kernel's links and starts following their changes.
void ifdbStart();

// The frame path's questions, answered from the cache without a system call.
bool ifdbTrapOn(int32_t ifindex);
bool ifdbMac(int32_t ifindex, uint8_t mac[6]);

// Protocol states and hardware rules the database keeps, all interfaces
// together (they go with their interface).
size_t ifdbProtoStates();

// Interfaces the agent serves (its software trap is on) and, of those, the
// uplinks (their hardware rule was switched off explicitly).
void ifdbServedCounts(size_t& served, size_t& trusted);

// Interface unit of a name, 0 for none.
uint32_t ifdbUnitByName(const std::string& name);
// Every link the database knows: (unit, name).
std::vector<std::pair<uint32_t, std::string>> ifdbLinks();
std::string ifdbName(uint32_t unit);

// A new-interface route message for every interface known now, by unit.
std::vector<std::vector<uint8_t>> ifdbAnnouncements();

// ---- route sockets -------------------------------------------------------------------

// A route socket joins the group of interface events, or is closed.
void routeJoin(int daemonFd);
void routeUnregister(int daemonFd);
// Delivers one platform route message to every route socket that joined.
// Returns how many took it.
uint32_t routeDeliver(const std::vector<uint8_t>& msg);

// ---- packet socket ---------------------------------------------------------------

// Bytes of the receive ring a packet socket reads through, 0 when it reads
// its receive queue (platform.rxring = no, or a receive buffer below two
// ring blocks was asked for).
size_t packetRingBytes(int fd);

// ---- services ---------------------------------------------------------------------------

// Once: starts the event service through which operators raise route events.
void eventServiceStart();

// Removes the socket files the services made.
void servicesCleanup();

}  // namespace linuxplat
