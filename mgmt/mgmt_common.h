// Pieces shared by the global and the interface commands: the frame of a set
// command, the control record of a forwarded command and the checking and
// storing of a format text.
#pragma once

#include <cstdint>
#include <cstring>

#include "agent/lock.h"
#include "agent/log.h"
#include "format/default_formats.h"
#include "format/format_check.h"
#include "format/format_simplify.h"
#include "format/keywords.h"
#include "mgmt/mgmt_types.h"
#include "platform/types.h"

// Size of the buffer that a refused format text is copied into for its
// message: one format text area, so every accepted length fits with its NUL.
constexpr uint32_t PPPOEPLUS_MGMT_MSG_LEN = PPPOEPLUS_FORMAT_LEN;

// What the body of a set command comes to: its result, and whether the end
// trace is written (a command refused before it is applied has none).
struct tPppoeplusMgmtOutcome {
    int32_t rc;
    bool traced;
};

// The frame of every set and sync command: the start trace, the null check
// of the value, the daemon lock around `body` (which looks up what the
// command addresses, switches on the code and applies it), the end trace.
// `family` names the commands in the traces: "global" or "interface".
template <typename Body>
int32_t pppoeplusMgmtSet(const char* family, uint32_t code, const void* value, Body&& body) {
    PPPOEPLUS_EVENT_LOG("Set %s parameter: cmd %d.\r\n", family, static_cast<int>(code));
    if (value == nullptr) return ZEL_ERR_NULL_POINTER;

    pppoeplusLock();
    const tPppoeplusMgmtOutcome outcome = body();
    if (outcome.traced)
        PPPOEPLUS_EVENT_LOG("Set %s parameter end: return %d.\r\n", family, static_cast<int>(outcome.rc));
    pppoeplusUnlock();
    return outcome.rc;
}

// A zero-filled control record for an integer value: mode word, key length
// and a value length of 4.
inline void pppoeplusSyncCtrlInit(tPppoeplusSyncCtrl* ctrl, uint32_t mode, uint32_t keyLen) {
    std::memset(ctrl, 0, sizeof(*ctrl));
    ctrl->mode = mode;
    ctrl->keyLen = keyLen;
    ctrl->valueLen = PPPOEPLUS_SYNC_VALUE_LEN_U32;
}

// Turns the control record into one for a text value: the mode's string bit,
// and the text's length as value length.
inline void pppoeplusSyncCtrlStrValue(tPppoeplusSyncCtrl* ctrl, const tPppoeplusStrValue* text) {
    ctrl->mode |= PPPOEPLUS_SYNC_MODE_STR_VALUE;
    ctrl->valueLen = text->len;
}

// Why a format text was not stored.
enum tPppoeplusFormatSetResult : int32_t {
    PPPOEPLUS_FORMAT_SET_OK = 0,
    PPPOEPLUS_FORMAT_SET_KEYWORD_ERR,  // a USERDEFINE text could not be simplified
    PPPOEPLUS_FORMAT_SET_FORMAT_ERR,   // the text to be stored failed the format check
};

// Checks and stores `text` (length below 256, text pointer not null) in
// `slot`, whose format type is `type`. A USERDEFINE text is simplified with
// the slot's own keyword table; a text of any other type is kept as it
// stands. The text to be stored must pass the format check. On success the
// slot is cleared and receives the stored text as `format` and the caller's
// text as `origFormat`. On failure the slot is unchanged and `msg` (a buffer
// of PPPOEPLUS_MGMT_MSG_LEN bytes, zero-filled by the caller) holds the text
// to name in the message, NUL-terminated: the caller's text after a keyword
// error, the text that was checked (for USERDEFINE the simplified one) after
// a format error.
inline tPppoeplusFormatSetResult pppoeplusMgmtFormatSet(tPppoeplusFormat* slot, uint32_t type,
                                                        const tPppoeplusStrValue* text, char* msg) {
    tPppoeplusFormat scratch;
    std::memset(&scratch, 0, sizeof(scratch));
    if (type == PPPOEPLUS_FORMAT_TYPE_USERDEFINE) {
        if (pppoeplusSimplifyFormat(slot->keywords, text, &scratch) != 0) {
            std::memcpy(msg, text->str, text->len);
            return PPPOEPLUS_FORMAT_SET_KEYWORD_ERR;
        }
    } else {
        std::memcpy(scratch.format, text->str, text->len);
        scratch.formatLen = static_cast<uint16_t>(text->len);
    }

    if (pppoeplusFormatCheck(scratch.format, scratch.formatLen) != 0) {
        std::memcpy(msg, scratch.format, scratch.formatLen);
        return PPPOEPLUS_FORMAT_SET_FORMAT_ERR;
    }

    pppoeplusFormatClear(slot);
    std::memcpy(slot->format, scratch.format, scratch.formatLen);
    slot->formatLen = scratch.formatLen;
    std::memcpy(slot->origFormat, text->str, text->len);
    slot->origFormatLen = static_cast<uint16_t>(text->len);
    return PPPOEPLUS_FORMAT_SET_OK;
}
