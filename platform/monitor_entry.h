// One registered event in the monitoring table that the module exports (lpVKVMon, nCnt). The host reads
// the table between two waits, and may fill it itself.
#ifndef PLATFORM_MONITOR_ENTRY_H
#define PLATFORM_MONITOR_ENTRY_H

#include <cstddef>
#include <cstdint>

constexpr int kMaxEntries = 2048;       // entries of the table
constexpr size_t kKeywordSize = 257;    // bytes, the zero byte included
constexpr size_t kSourceNameSize = 500; // bytes, the zero byte included

struct VKVMon {
    char Keyword1[kKeywordSize]; // text that a line must contain; empty: no condition
    char Keyword2[kKeywordSize];
    char Keyword3[kKeywordSize];
    uint32_t EventID;
    char Source[kSourceNameSize];
    uint32_t WatchTime;   // bit h: watched during hour h, 0 to 23, of local time
    int32_t ReportCount;  // hits that make one report; 0 or less: the entry never counts
    int32_t CurrentCount; // hits since the last report; raised and reset by the matchers
};

#endif // PLATFORM_MONITOR_ENTRY_H
