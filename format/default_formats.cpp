// The built-in default formats and their installation into a format record.
#include "format/default_formats.h"

#include <cstring>
#include <string_view>

#include "base/constants.h"

static_assert(std::string_view(PPPOEPLUS_SWITCH_FORMAT_COMMON_CIRCUITID).size() == 10);
static_assert(std::string_view(PPPOEPLUS_SWITCH_FORMAT_ORIG_COMMON_CIRCUITID).size() == 25);
static_assert(std::string_view(PPPOEPLUS_SWITCH_FORMAT_COMMON_REMOTEID).size() == 4);
static_assert(std::string_view(PPPOEPLUS_SWITCH_FORMAT_ORIG_COMMON_REMOTEID).size() == 10);
static_assert(std::string_view(PPPOEPLUS_OLTPORT_FORMAT_COMMON_LINEID).size() == 36);
static_assert(std::string_view(PPPOEPLUS_OLTPORT_FORMAT_ORIG_COMMON_LINEID).size() == 71);
static_assert(std::string_view(PPPOEPLUS_ONUPORT_FORMAT_COMMON_LINEID).size() == 36);
static_assert(std::string_view(PPPOEPLUS_ONUPORT_FORMAT_ORIG_COMMON_LINEID).size() == 57);

void pppoeplusFormatInstall(tPppoeplusFormat* format, const char* stored, const char* typed) {
    // The defaults are far below the text areas' size; the bound only keeps a
    // mistaken caller inside them.
    size_t storedLen = std::strlen(stored);
    size_t typedLen = std::strlen(typed);
    if (storedLen >= PPPOEPLUS_FORMAT_LEN || typedLen >= PPPOEPLUS_FORMAT_LEN) return;
    format->formatLen = static_cast<uint16_t>(storedLen);
    std::memcpy(format->format, stored, storedLen);
    format->origFormatLen = static_cast<uint16_t>(typedLen);
    std::memcpy(format->origFormat, typed, typedLen);
}

void pppoeplusFormatClear(tPppoeplusFormat* format) {
    format->formatLen = 0;
    std::memset(format->format, 0, sizeof(format->format));
    format->origFormatLen = 0;
    std::memset(format->origFormat, 0, sizeof(format->origFormat));
}

void pppoeplusCircuitIdFormatInstallDefault(tPppoeplusFormat* format) {
    pppoeplusFormatInstall(format, PPPOEPLUS_SWITCH_FORMAT_COMMON_CIRCUITID,
                           PPPOEPLUS_SWITCH_FORMAT_ORIG_COMMON_CIRCUITID);
}

void pppoeplusRemoteIdFormatInstallDefault(tPppoeplusFormat* format) {
    pppoeplusFormatInstall(format, PPPOEPLUS_SWITCH_FORMAT_COMMON_REMOTEID,
                           PPPOEPLUS_SWITCH_FORMAT_ORIG_COMMON_REMOTEID);
}

int32_t pppoeplusPonCircuitIdFormatInstallDefault(tPppoeplusFormat* format, uint32_t ponDefaultType) {
    switch (ponDefaultType) {
        case PPPOEPLUS_PON_TYPE_OLT:
            pppoeplusFormatInstall(format, PPPOEPLUS_OLTPORT_FORMAT_COMMON_LINEID,
                                   PPPOEPLUS_OLTPORT_FORMAT_ORIG_COMMON_LINEID);
            return 0;
        case PPPOEPLUS_PON_TYPE_ONU:
            pppoeplusFormatInstall(format, PPPOEPLUS_ONUPORT_FORMAT_COMMON_LINEID,
                                   PPPOEPLUS_ONUPORT_FORMAT_ORIG_COMMON_LINEID);
            return 0;
        default:
            return -1;
    }
}
