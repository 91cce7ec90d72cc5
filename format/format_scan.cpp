// Reading `%` items of a format text.
#include "format/format_scan.h"

#include <algorithm>

tPppoeplusFormatItem pppoeplusFormatItemScan(const char* text, uint32_t length, uint32_t percent) {
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
