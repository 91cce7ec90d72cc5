// The format record: a format text as stored (simplified) and as typed, with
// the record's own keyword table, and the format types. The global record and
// every interface entry hold such records; the format layer fills and reads
// them.
#pragma once

#include <cstdint>

constexpr uint32_t PPPOEPLUS_KEYWORD_NUM = 35;
constexpr uint32_t PPPOEPLUS_FORMAT_LEN = 256;

struct tPppoeplusKeyword {
    const char* keyword;  // long form without the '%'
    uint8_t keywordLen;
    uint8_t keywordChar;  // one-character code
};

struct tPppoeplusFormat {
    uint16_t formatLen;
    uint16_t origFormatLen;
    char format[PPPOEPLUS_FORMAT_LEN];      // simplified form, checked and built from
    char origFormat[PPPOEPLUS_FORMAT_LEN];  // as the operator typed it
    tPppoeplusKeyword keywords[PPPOEPLUS_KEYWORD_NUM];
};

// Format types.
constexpr uint32_t PPPOEPLUS_FORMAT_TYPE_DEFAULT = 0;
constexpr uint32_t PPPOEPLUS_FORMAT_TYPE_USERDEFINE = 1;
constexpr uint32_t PPPOEPLUS_FORMAT_TYPE_ASCII = 2;
using tPppoeplusFormatType = uint32_t;
