// Names and meanings of the results the daemon and its services answer with.
#pragma once

#include <cstdint>
#include <string>

namespace ctl {

// Where a result came from: an entry point of the daemon, or the services'
// protocol itself (error frames, shell and event statuses). A few values
// have a different name in each.
enum class ResultSource { Daemon, Protocol };

struct ResultInfo {
    const char* name;     // "ZEL_ERR_NOT_FOUND", "UNKNOWN" when the value has no name
    const char* meaning;  // a few words for people
};
ResultInfo resultInfo(int32_t result, ResultSource source = ResultSource::Daemon);
// "0x3E80002" for the platform's codes, the decimal value for the others ("22", "-1").
std::string resultValueText(int32_t result);
// "ZEL_ERR_NOT_FOUND (0x3E80002)".
std::string resultText(int32_t result, ResultSource source = ResultSource::Daemon);

}  // namespace ctl
