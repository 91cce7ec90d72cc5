// Format keywords and the format record. A format text mixes literal text
// with `%` keywords; the stored (simplified) form writes every keyword as its
// one-character code.
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

// The keyword table in its fixed order.
struct tPppoeplusKeywordDef {
    const char* keyword;
    char keywordChar;
};
extern const tPppoeplusKeywordDef gPppoeplusKeywordTable[PPPOEPLUS_KEYWORD_NUM];

// Fills the record's own keyword table in table order.
void pppoeplusKeywordsInit(tPppoeplusFormat* format);

// Copies at most `capacity` bytes of the long form of `code` into `buf` (no
// terminator) and stores the count in `lenOut`. 0, or -1 when `keywords` is
// null or no keyword has that code.
int32_t pppoeplusCharToKeyword(const tPppoeplusKeyword* keywords, uint8_t code, char* buf, uint32_t capacity,
                               uint32_t* lenOut);

// The code of the keyword in `text` (the part after '%', width digits first),
// or -1 when nothing matches.
int32_t pppoeplusKeywordToChar(const tPppoeplusKeyword* keywords, const char* text, uint32_t length);

// Text shown for a format type: "DEFAULT", "USERDEFINE", "ASCII" or "unknown".
const char* pppoeplusFormatTypeStr(uint32_t type);
