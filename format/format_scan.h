// Reading `%` items of a format text. An item is a '%', width digits (none,
// or a run that may start with '0': zero padding in the ASCII form) and the
// keyword: in the stored form one code character right after the digits, in
// the typed form the whole run of keyword characters after the '%'. The
// checker, the simplifier and the builder all read items through
// pppoeplusFormatItemScan and judge what it found by their own rules.
#pragma once

#include <algorithm>
#include <cstdint>

// Character classes of format texts.
constexpr bool pppoeplusFormatIsDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool pppoeplusFormatIsKeywordChar(char c) {
    return pppoeplusFormatIsDigit(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
// Value of a hex digit, -1 for any other character.
constexpr int32_t pppoeplusFormatHexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Widths are held at this value when read capped: far beyond every limit,
// and without a wrap.
constexpr uint32_t PPPOEPLUS_FORMAT_WIDTH_CAP = 0xFFFF;

// One item, by index into the text.
struct tPppoeplusFormatItem {
    uint32_t percent;      // the '%'
    uint32_t digitsEnd;    // after the width digits: the code character, or the text's end
    uint32_t runEnd;       // after the run of keyword characters that follows the '%'
    bool zeroPad;          // the first character after the '%' is '0'
    uint32_t width;        // the digits in u32 arithmetic, wrapping as it goes
    bool widthWrapped;     // a digit made that value smaller than it was before
    uint32_t widthCapped;  // the digits' value, held at PPPOEPLUS_FORMAT_WIDTH_CAP
};

// Reads the item whose '%' is text[percent] (percent below `length`); never
// reads at or past `length`. Inline: the builder reads items for every frame
// forwarded, and each caller keeps only the fields it looks at.
inline tPppoeplusFormatItem pppoeplusFormatItemScan(const char* text, uint32_t length, uint32_t percent) {
    tPppoeplusFormatItem item{};
    item.percent = percent;
    uint32_t i = percent + 1;
    item.zeroPad = i < length && text[i] == '0';
    while (i < length && pppoeplusFormatIsDigit(text[i])) {
        const uint32_t digit = static_cast<uint32_t>(text[i] - '0');
        const uint32_t before = item.width;
        item.width = item.width * 10u + digit;
        if (item.width < before) item.widthWrapped = true;
        item.widthCapped = std::min(item.widthCapped * 10u + digit, PPPOEPLUS_FORMAT_WIDTH_CAP);
        i++;
    }
    item.digitsEnd = i;
    while (i < length && pppoeplusFormatIsKeywordChar(text[i])) i++;
    item.runEnd = i;
    return item;
}

// True when the item has a character after its width digits (its code in the
// stored form).
inline bool pppoeplusFormatItemHasCode(const tPppoeplusFormatItem& item, uint32_t length) {
    return item.digitsEnd < length;
}
