// The built-in default formats: each as stored (simplified) and as typed.
#pragma once

#include <cstdint>

#include "format/keywords.h"

inline constexpr char PPPOEPLUS_SWITCH_FORMAT_COMMON_CIRCUITID[] = "'%N:%s.%c'";
inline constexpr char PPPOEPLUS_SWITCH_FORMAT_ORIG_COMMON_CIRCUITID[] = "'%portname:%svlan.%cvlan'";
inline constexpr char PPPOEPLUS_SWITCH_FORMAT_COMMON_REMOTEID[] = "'%C'";
inline constexpr char PPPOEPLUS_SWITCH_FORMAT_ORIG_COMMON_REMOTEID[] = "'%portmac'";
inline constexpr char PPPOEPLUS_OLTPORT_FORMAT_COMMON_LINEID[] = "'0 0/0/0:0.0 %a/%r/%f/%S/0/%p/%m %b'";
inline constexpr char PPPOEPLUS_OLTPORT_FORMAT_ORIG_COMMON_LINEID[] = "'0 0/0/0:0.0 %accessnode/%rack/%frame/%slot/0/%port/%onuid %accesstype'";
inline constexpr char PPPOEPLUS_ONUPORT_FORMAT_COMMON_LINEID[] = "'0/0/0:0.0 0/0/0/0/0/0/0 %T/%M/%P 0'";
inline constexpr char PPPOEPLUS_ONUPORT_FORMAT_ORIG_COMMON_LINEID[] = "'0/0/0:0.0 0/0/0/0/0/0/0 %onuslot/%onusubslot/%onuport 0'";

// Writes the two texts and their lengths into `format`. Only the first
// length bytes of each text area are written; whatever stands behind them is
// left as it is, since every reader goes by the lengths.
void pppoeplusFormatInstall(tPppoeplusFormat* format, const char* stored, const char* typed);

// Clears both texts and both lengths (the keyword table stays).
void pppoeplusFormatClear(tPppoeplusFormat* format);

// Installs the default common Circuit-ID and Remote-ID formats.
void pppoeplusCircuitIdFormatInstallDefault(tPppoeplusFormat* format);
void pppoeplusRemoteIdFormatInstallDefault(tPppoeplusFormat* format);
// Installs the default PON Circuit-ID format of the device kind: 1 pon-olt,
// 2 pon-onu. Returns 0, or -1 (nothing written) for any other kind.
int32_t pppoeplusPonCircuitIdFormatInstallDefault(tPppoeplusFormat* format, uint32_t ponDefaultType);
