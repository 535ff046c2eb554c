// What the matcher of the syslog scan and the one of the file monitor share: the keyword test, the
// hit count, the report. Where they differ, each says how.
//
//                        CheckLine                            CheckFileLine
//   time stamp           must be readable                     none asked for
//   the agent's lines    skipped                              matched like any other
//   keywords             plain text, then, on a fault-        plain text
//                        tolerant server, as expressions
//   a line counts        as often as it was repeated          once
#ifndef MATCH_HITS_H
#define MATCH_HITS_H

#include <cstdint>
#include <ctime>

#include "platform/contract.h"
#include "platform/monitor_entry.h"
#include "platform/siblings.h"
#include "stamp/syslog_time.h"

// Under which names a matcher's records appear in the trace log.
struct TraceSite {
    const char *unit;
    const char *function;
};

// How one keyword, which is not empty, is looked for in a line.
using FindKeyword = bool (*)(const char *line, const char *keyword);

// The plain, case-sensitive search.
bool FindPlain(const char *line, const char *keyword);

// Are all keywords of the entry in the line? An empty keyword is no condition. They are tried in
// order, and the first one that is missing ends the test.
bool AllKeywordsFound(const char *line, const VKVMon &entry, FindKeyword find);

// Does an entry whose keywords were found count now? The hour is asked for first.
bool IsWatched(const VKVMon &entry, time_t now, LocalMoment *moment);

// Adds hits to the entry. Returns true when it has reached its report count.
bool CountHits(const TraceSite &site, VKVMon *entry, int times);

// A report and all that it points at. It lives in the caller's frame until VKMonitorCall has
// returned.
struct Report {
    ReportRequest request;
    char log_name[12];
    const char *strings[1];
    char message[kLineBufferSize]; // a whole line
};

// Fills a report of the line for the entry, and sets the entry's hit count back to 0.
void BuildReport(const char *line, VKVMon *entry, Report *report);

// Reports of the source "FTREPORT" are dropped while report_ft is 0. Their hits are gone, not kept.
bool IsWithheld(const VKVMon &entry);

// Hands the report to the alert component, which may change the table: whatever is known of it is to be
// looked at again.
void SendReport(const TraceSite &site, Report *report);

// a + b, stopped at the limits of the type: a hostile repeat count in a log must not overflow.
int32_t AddSaturated(int32_t a, int32_t b);

#endif // MATCH_HITS_H
