// The keyword table and the mapping between long forms and codes.
#include "format/keywords.h"

#include <cstring>
#include <string_view>

#include "agent/log.h"

// Declared extern in the header, so this constexpr definition has external
// linkage and can still be checked at compile time below.
constexpr tPppoeplusKeywordDef gPppoeplusKeywordTable[PPPOEPLUS_KEYWORD_NUM] = {
    {"svlan", 's'},       {"cvlan", 'c'},        {"accessnode", 'a'}, {"rack", 'r'},         {"frame", 'f'},
    {"slot", 'S'},        {"port", 'p'},         {"onuid", 'm'},      {"uplinktype", 'u'},   {"slottype", 'L'},
    {"managevlanip", 'O'}, {"onuauthid", 'o'},   {"onutype", 'n'},    {"onuslot", 'T'},      {"onusubslot", 'M'},
    {"onuport", 'P'},     {"userporttype", 't'}, {"xpi", 'X'},        {"xci", 'x'},          {"iadip", 'I'},
    {"iadmac", 'A'},      {"nodetype", 'B'},     {"accesstype", 'b'}, {"portname", 'N'},     {"porttype", 'Y'},
    {"portmac", 'C'},     {"devicename", 'd'},   {"sysname", 'D'},    {"onusn", 'U'},        {"oltonlymac", 'R'},
    {"oltmac", 'Z'},      {"sys", 'H'},          {"clientmac", 'J'},  {"onuloid", 'G'},      {"onuauthinfo", 'h'},
};

// Every code and every long form is used once, and every long form fits the
// u8 length of a keyword entry.
static constexpr bool pppoeplusKeywordTableIsSound() {
    const auto& table = gPppoeplusKeywordTable;
    for (size_t i = 0; i < PPPOEPLUS_KEYWORD_NUM; i++) {
        if (std::string_view(table[i].keyword).size() > 255) return false;
        for (size_t j = i + 1; j < PPPOEPLUS_KEYWORD_NUM; j++)
            if (table[i].keywordChar == table[j].keywordChar ||
                std::string_view(table[i].keyword) == std::string_view(table[j].keyword))
                return false;
    }
    return true;
}
static_assert(pppoeplusKeywordTableIsSound());

void pppoeplusKeywordsInit(tPppoeplusFormat* format) {
    if (format == nullptr) return;
    for (uint32_t i = 0; i < PPPOEPLUS_KEYWORD_NUM; i++) {
        format->keywords[i].keyword = gPppoeplusKeywordTable[i].keyword;
        format->keywords[i].keywordLen = static_cast<uint8_t>(std::strlen(gPppoeplusKeywordTable[i].keyword));
        format->keywords[i].keywordChar = static_cast<uint8_t>(gPppoeplusKeywordTable[i].keywordChar);
    }
}

int32_t pppoeplusCharToKeyword(const tPppoeplusKeyword* keywords, uint8_t code, char* buf, uint32_t capacity,
                               uint32_t* lenOut) {
    if (keywords == nullptr) return -1;
    for (uint32_t i = 0; i < PPPOEPLUS_KEYWORD_NUM; i++) {
        if (keywords[i].keywordChar != code) continue;
        uint32_t n = keywords[i].keywordLen < capacity ? keywords[i].keywordLen : capacity;
        if (n > 0 && buf != nullptr) std::memcpy(buf, keywords[i].keyword, n);
        if (lenOut != nullptr) *lenOut = n;
        return 0;
    }
    return -1;
}

int32_t pppoeplusKeywordToChar(const tPppoeplusKeyword* keywords, const char* text, uint32_t length) {
    if (keywords == nullptr) return -1;
    if (text == nullptr) length = 0;

    // Width digits come first; a text of digits only is compared whole.
    uint32_t start = 0;
    while (start < length && text[start] >= '0' && text[start] <= '9') start++;
    if (start == length) start = 0;

    std::string_view name(text == nullptr ? "" : text + start, length - start);
    for (uint32_t i = 0; i < PPPOEPLUS_KEYWORD_NUM; i++) {
        if (keywords[i].keyword == nullptr) continue;
        if (name == std::string_view(keywords[i].keyword, keywords[i].keywordLen)) return keywords[i].keywordChar;
    }
    PPPOEPLUS_ERROR_LOG("Keyword does not match anyone!\r\n");
    return -1;
}

const char* pppoeplusFormatTypeStr(uint32_t type) {
    switch (type) {
        case PPPOEPLUS_FORMAT_TYPE_DEFAULT: return "DEFAULT";
        case PPPOEPLUS_FORMAT_TYPE_USERDEFINE: return "USERDEFINE";
        case PPPOEPLUS_FORMAT_TYPE_ASCII: return "ASCII";
        default: return "unknown";
    }
}
