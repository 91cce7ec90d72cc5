// Diagnostic commands of the process shell, which reaches them through its
// table (diag/shell_table.h). They have C linkage, under the names operators
// know; they print to standard output, every line ending in "\r\n", and take
// no lock: they read the global record and the interface table as they stand.
#pragma once

#include <cstdint>

#include "iftable/if_entry.h"

// The test ONU record that pppoeplusPonTest fills, laid out as the ONU
// identity block of the receive information: bytes 0-3 the interface unit;
// bytes 4-7 a word, in host order like every word of that record, whose bits
// 8-19 hold the ONU number and bits 0-7 the serial number's length, 8 (byte 7
// on a big-endian device); bytes 8-15 the serial number.
struct tPppoeplusTestOnuInfo {
    uint32_t ifUnit;
    uint32_t onuWord;
    uint8_t sn[8];
};
static_assert(sizeof(tPppoeplusTestOnuInfo) == 16);

extern "C" {

extern tPppoeplusTestOnuInfo gTestOnuInfo;

int32_t pppoeplusShow(void);
int32_t pppoeplusIfShowAll(void);
int32_t pppoeplusTrustIfShowAll(void);
int32_t pppoeplusIfEntryShow(tPppoePlusIfEntry* pIf);
int32_t pppoeplusKeywordsShow(void);
int32_t pppoeplusCommonFormatShow(void);
// Sets the packet socket's receive buffer. 0, or 2 when the platform refuses.
int32_t pppoeplusSetPktFdRecvBufLen(int32_t bufLen);
int32_t pppoeplusTestForwardSet(uint32_t enable);
int32_t pppoeplusHelp(void);
int32_t pppoeplusTest(void);
int32_t pppoeplusLogTest(uint32_t ifUnit);
int32_t pppoeplusPonTest(uint32_t ifUnit, uint32_t onuId);

}  // extern "C"

// The keyword lines of pppoeplusKeywordsShow, in the order it prints them.
struct tPppoeplusKeywordShowLine {
    const char* format;  // "svlan - %c"
    char code;
};
constexpr uint32_t PPPOEPLUS_KEYWORD_SHOW_LINES = 35;
extern const tPppoeplusKeywordShowLine gPppoeplusKeywordShowLines[PPPOEPLUS_KEYWORD_SHOW_LINES];
