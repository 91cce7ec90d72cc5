// Checking of format texts before they are stored. The checker sees the
// stored form only: keywords are one-character codes (`%N`, `%16s`), so the
// operator's text is simplified first (format_simplify.h).
//
// A format text is a sequence of segments, read left to right:
// - an ASCII segment: a single quote, any characters, the closing single
//   quote; a backslash makes the character after it part of the segment, and
//   both quotes belong to the segment;
// - a hex segment: a run that starts with a character other than a quote or a
//   space and runs to the next single quote or the end of the text (spaces
//   inside it belong to it);
// - spaces between segments are ignored.
//
// Every failure is written to the error log (debug switch bit 0x8) once, with
// the reason; nothing is changed anywhere.
#pragma once

#include <cstdint>

// ---- character classes: 0 for a member, -1 otherwise -------------------------

// Keyword character: "0"-"9", "A"-"Z", "a"-"z".
constexpr int32_t pppoeplusKeywordCharCheck(char c) {
    if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')) return 0;
    return -1;
}

// Hex digit: "0"-"9", "A"-"F", "a"-"f".
constexpr int32_t pppoeplusHexCharCheck(char c) {
    if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f')) return 0;
    return -1;
}

// Delimiter allowed after a keyword of an ASCII segment: space, one of
// . / : ; [ ] { } < > ( ) ! @ # $ ^ & * _ + | - = , ? or NUL. "%" is not one,
// so two keywords may not touch.
constexpr int32_t pppoeplusDelimiterCheck(char c) {
    switch (c) {
        case ' ': case '.': case '/': case ':': case ';': case '[': case ']': case '{': case '}':
        case '<': case '>': case '(': case ')': case '!': case '@': case '#': case '$': case '^':
        case '&': case '*': case '_': case '+': case '|': case '-': case '=': case ',': case '?':
        case '\0':
            return 0;
        default:
            return -1;
    }
}

// ---- checks -------------------------------------------------------------------

// Checks every segment of `text` (`length` bytes, no terminator needed).
// Returns 0 when all pass, -1 at the first failing segment, after the
// segment's own message and "Ascii format check return ERROR." or "Hex
// format check return ERROR.". An unterminated quote fails without a message;
// a null text fails, an empty one passes.
int32_t pppoeplusFormatCheck(const char* text, uint32_t length);

// Checks one ASCII segment, quotes included: widths below 256, their sum
// below 256, a delimiter after every keyword code that is not the segment's
// last inner character. 0 or -1.
int32_t pppoeplusAsciiFormatCheck(const char* segment, uint32_t length);

// Checks one hex segment: keyword widths in bits (at most 32, multiples of 8,
// keywords together below 256 bytes), "0x" numbers of hex digits preceded by
// a space or starting the segment, decimal numbers up to 0xFFFFFFFF. 0 or -1.
int32_t pppoeplusHexFormatCheck(const char* segment, uint32_t length);
