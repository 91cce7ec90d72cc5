// The format keywords: the fixed table of long forms and their one-character
// codes, and the lookups between them. A format text mixes literal text with
// `%` keywords; the stored (simplified) form writes every keyword as its
// one-character code (the record is base/format_record.h).
#pragma once

#include <cstdint>

#include "base/format_record.h"

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
