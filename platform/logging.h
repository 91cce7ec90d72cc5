// Logging service.
#pragma once

#include <cstdint>

// Part markers of a message: a one-call message is LOG_PART_WHOLE; a message
// written in several calls opens with LOG_PART_FIRST, goes on with
// LOG_PART_MIDDLE and closes with LOG_PART_LAST, and comes out as one block.
constexpr uint32_t LOG_PART_WHOLE = 0;
constexpr uint32_t LOG_PART_LAST = 1;
constexpr uint32_t LOG_PART_FIRST = 2;
constexpr uint32_t LOG_PART_MIDDLE = 3;

// Debug and trace output of module `module` at `level`.
void loggingDebugOutput(uint32_t module, uint32_t level, uint32_t part, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// Operator log: always written.
void loggingLogOutput(uint32_t module, uint32_t level, uint32_t part, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
