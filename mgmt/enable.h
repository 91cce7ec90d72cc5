// Switching the agent on and off as a whole, and going back to the default
// configuration. Called with the daemon lock held.
#pragma once

#include <cstdint>

// Switches the agent on: the packet socket's receive buffer goes to 1 MiB and,
// when every port is served by default, every eligible interface gets an
// enabled entry. 0, or ZEL_ERR_SET_SOCKOPT (nothing changed) when the buffer
// cannot be set.
uint32_t pppoeplusEnable(void);

// Switches the agent off: the receive buffer shrinks so that trapped frames
// are no longer queued, and every interface entry is deleted. Always 0.
uint32_t pppoeplusDisable(void);

// Brings the global configuration back to its defaults; interface entries are
// reset and kept while the agent is on and every port is served by default,
// deleted otherwise.
void pppoeplusResetConfig(void);

// True when interfaces of kind `ondType` may get entries without being
// configured: Ethernet ports, Ethernet aggregates, GPON ports and PON
// aggregates, each by its switch of the global record.
bool pppoeplusIfKindAdmitted(uint32_t ondType);
