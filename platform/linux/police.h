// Policing of discovery per input port, in the kernel: the packet socket's
// filter is an eBPF program (bpf/police.bpf.c) that keeps the frames the
// classic filter keeps and lets through at most `rate` of a port's discovery
// frames a second, `burst` of them back to back; the others are dropped
// before they are queued to the socket and counted per port. A port that
// keeps going over its limit for errdisable-time seconds can be
// error-disabled: all its discovery frames are dropped for errdisable-hold
// seconds, or until the operator recovers it.
//
// The program is loaded once, while the daemon still has CAP_BPF or
// CAP_SYS_ADMIN; everything after (attaching it, the settings, the
// counters) goes through its file descriptors and needs no capability.
// Without it (an old kernel, no capability) the socket keeps the classic
// filter and policing is reported unavailable; the settings are still kept.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vocab/settings.h"

namespace linuxplat {

// The per-port value that follows the global one.
constexpr uint32_t POLICE_FOLLOW = 0xFFFFFFFF;

// Defaults: 100 discovery frames a second on each port, 1000 back to back.
constexpr uint32_t POLICE_RATE_DEFAULT = 100;
constexpr uint32_t POLICE_BURST_DEFAULT = 1000;
// Ranges (the vocabulary's): rate 0 (policing off) to 1,000,000 pps; burst
// 1 to 1,000,000.
using vocab::POLICE_BURST_MAX;
using vocab::POLICE_BURST_MIN;
using vocab::POLICE_RATE_MAX;
// Error-disable: off (0) by default; at most a day over the limit; held
// 300 s by default, 1 s to a week.
using vocab::ERRDISABLE_HOLD_MAX;
using vocab::ERRDISABLE_HOLD_MIN;
using vocab::ERRDISABLE_TIME_MAX;
constexpr uint32_t ERRDISABLE_HOLD_DEFAULT = 300;

// Registers the settings (police-rate, police-burst, errdisable-time,
// errdisable-hold; the first two per interface too) and the control
// operations police-status and police-recover, once.
void policeRegister();

// Loads the filter, once: true when policing is available. Later calls give
// the first answer; a failure is logged once.
bool policeLoad();
bool policeAvailable();

// Attaches the filter to a packet socket (loading it first if nothing did):
// true when attached; false leaves the socket as it was, for the classic
// filter. The first attachment starts the once-a-second error-disable check.
bool policeAttach(int fd);

// The filter's program, for SO_ATTACH_BPF (-1 when not loaded).
int policeProgramFd();

// Settings; ifIndex 0 is the global value (the default of every port). A
// setter returns "" when done, else what is wrong (nothing changed then).
// A port's rate and burst may be POLICE_FOLLOW.
std::string policeSetRate(uint32_t ifIndex, uint32_t value);
std::string policeSetBurst(uint32_t ifIndex, uint32_t value);
uint32_t policeRate(uint32_t ifIndex);
uint32_t policeBurst(uint32_t ifIndex);
std::string policeSetErrdisableTime(uint32_t seconds);
std::string policeSetErrdisableHold(uint32_t seconds);
uint32_t policeErrdisableTime();
uint32_t policeErrdisableHold();

// Uplinks (ports whose hardware rule was switched off explicitly) carry the
// servers' answers for every subscriber: the global default does not police
// them, only a rate of their own.
void policeSetUplink(uint32_t ifIndex, bool uplink);

// A port's counters and error-disable state.
struct PolicePortStatus {
    uint32_t ifIndex = 0;
    uint64_t passed = 0;
    uint64_t dropped = 0;
    bool errDisabled = false;
    uint32_t holdLeft = 0;  // seconds until it is served again
};
PolicePortStatus policeStatus(uint32_t ifIndex);
// Every port with counters or an error-disable state.
std::vector<PolicePortStatus> policeStatusAll();

// Ends a port's error-disable now: "" when done, else why not.
std::string policeRecover(uint32_t ifIndex);

// The error-disable check, at monotonic time `nowMs`: a port whose drop
// counter grew since the last check has been over its limit for one more
// second; errdisable-time such seconds in a row error-disable it. Ports
// whose hold time is over are served again. The timer calls it once a
// second; tests call it with times of their own.
void policeTick(int64_t nowMs);

// The monotonic clock in milliseconds, as the timer gives it to policeTick.
int64_t policeNowMs();

}  // namespace linuxplat
