// Simplification and recovery of format texts. Operators type keywords in
// their long form (`%portname:%svlan.%cvlan`); the checker and the builder
// work on one-character codes (`%N:%s.%c`). A USERDEFINE text is simplified
// when it is set, and both forms are kept in its format record; reading the
// format back returns the text as it was typed (a copy, not a translation of
// codes back into words).
#pragma once

#include <cstdint>

#include "format/keywords.h"

// A text value of the management interface: word 0 points at the text
// (bytes, not necessarily NUL-terminated), word 1 is its length in bytes. On
// a get, `str` points at the caller's buffer.
struct tPppoeplusStrValue {
    char* str;
    uint32_t len;
};

// Simplifies the typed text `input` (length below 256) with the keyword
// table `keywords` (the target record's own). On success writes the
// simplified text into `format`/`formatLen` and the typed text into
// `origFormat`/`origFormatLen` of `record` (both areas zero-filled first;
// the record's keyword table is not touched) and returns 0. On failure
// returns -1 and leaves `record` as it was. A simplified text must stay below
// 256 bytes too.
int32_t pppoeplusSimplifyFormat(const tPppoeplusKeyword* keywords, const tPppoeplusStrValue* input,
                                tPppoeplusFormat* record);

// Simplifies one ASCII segment, quotes included, into `out`, an area of
// `room` bytes (at most 256 are ever written, a format's whole text area, so
// the default suits a segment written at the start of such an area). Returns
// the simplified length, or -1 when a keyword matches nothing or the result
// would not fit in `room`.
int32_t pppoeplusSimplifyAsciiFormat(const tPppoeplusKeyword* keywords, const char* segment, uint32_t length,
                                     char* out, uint32_t room = PPPOEPLUS_FORMAT_LEN);

// Simplifies one hex segment into `out`, an area of `room` bytes (at most 256
// written, as above). Returns the simplified length, or -1 when the segment
// holds a character the hex form does not know, a keyword that matches
// nothing or has a text value, or the result would not fit in `room`.
int32_t pppoeplusSimplifyHexFormat(const tPppoeplusKeyword* keywords, const char* segment, uint32_t length,
                                   char* out, uint32_t room = PPPOEPLUS_FORMAT_LEN);

// Copies the typed text of `record` into `output->str` (a buffer of at least
// 256 bytes) and sets `output->len`. Returns 0, or -1 when `record` is null or
// holds no typed text, and -1 with "Failed to recover the format!" when the
// copy cannot be made (no output buffer, or a stored length of 256 or more).
int32_t pppoeplusRecoverFormat(const tPppoeplusFormat* record, tPppoeplusStrValue* output);
