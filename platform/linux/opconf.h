// The operational configuration: the file's `agent.` and `if.` lines kept
// true in the running daemon. Every value goes through the door a
// management call uses (the command service's table and callServe for the
// agent's settings, plat_settings.h for the platform's own), so it is
// checked as at run time, with the same result codes and log lines.
//
// - At start, once the daemon has taken the announcements of the interfaces
//   present, the lines are applied to the agent and to every interface they
//   name. An interface that appears later, or that the daemon starts to
//   serve, gets its lines then (hot-plug, a port deleted and created again).
// - Only differences are written: a setting that already has its value is
//   not touched, so no counter is cleared and no rule is changed on an
//   interface whose settings did not change.
// - A reload (SIGHUP, `pppoeplusctl config reload`) reads the file again and
//   checks all of it first: a file with an error changes nothing. A good one
//   is applied as a difference; a setting whose line was removed goes back to
//   the value it had before a line first set it; a value the agent refuses
//   undoes the whole reload. Start-up options that changed are reported as
//   needing a restart.
//
// One thread does all of it, in order; callers queue work and wait for the
// answer when they need one.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace linuxplat {

struct CallTable;

// Starts the manager with the command service's table (once). It applies the
// file once the announcements are taken, and registers the control
// operations "config-show" and "config-reload".
void opconfStart(std::shared_ptr<const CallTable> table);

// Interface events from the interface database: a link that appeared (or
// was renamed), one the daemon now serves, one that is gone.
void opconfLinkNew(uint32_t unit);
void opconfLinkGone(uint32_t unit);
void opconfServed(uint32_t unit);

// SIGHUP: reload without waiting for the answer (it is logged).
void opconfReloadAsync();

// The answer of a reload: {"ok", "file", "errors": [...], "changed": [...],
// "restart": [...]}.
nlohmann::json opconfReload();
// The running configuration: {"file", "text", "operational", "startup",
// "agent": {...}, "interfaces": {...}}.
nlohmann::json opconfShow();

}  // namespace linuxplat
