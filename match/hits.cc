#include "match/hits.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "match/report.h"
#include "platform/agent.h"
#include "platform/trace.h"

// A record under the names of the matcher that called.
#define TRACE_AT(site, level, ...)                                                                 \
    TraceLog(level, (site).unit, (site).function, __LINE__, __VA_ARGS__)

namespace {

constexpr char kLogName[] = "Application";
static_assert(sizeof kLogName == sizeof Report::log_name);

} // namespace

bool FindPlain(const char *line, const char *keyword)
{
    return strstr(line, keyword) != nullptr;
}

bool AllKeywordsFound(const char *line, const VKVMon &entry, FindKeyword find)
{
    for (const char *keyword : {entry.Keyword1, entry.Keyword2, entry.Keyword3}) {
        if (keyword[0] != '\0' && !find(line, keyword))
            return false;
    }
    return true;
}

bool IsWatched(const VKVMon &entry, time_t now, LocalMoment *moment)
{
    return OnTimeAt(moment, now, entry.WatchTime) == 1 && entry.ReportCount > 0;
}

bool CountHits(const TraceSite &site, VKVMon *entry, int times)
{
    TRACE_AT(site, TRACE_DETAIL, "found a match!");
    entry->CurrentCount = AddSaturated(entry->CurrentCount, times);
    TRACE_AT(site, TRACE_DETAIL, "curnum = %d, repnum = %d.", entry->CurrentCount,
             entry->ReportCount);
    return entry->CurrentCount >= entry->ReportCount;
}

void BuildReport(const char *line, VKVMon *entry, Report *report)
{
    memset(static_cast<void *>(report), 0, sizeof *report);
    TarskCodeConvert(line, -1, report->message, kLineBufferSize, CODE_LOG, CODE_REGISTRY);
    entry->CurrentCount = 0;
    memcpy(report->log_name, kLogName, sizeof kLogName);
    report->strings[0] = report->message;
    report->request.logName = report->log_name;
    report->request.source = entry->Source;
    report->request.eventId = entry->EventID;
    report->request.strings = report->strings;
}

bool IsWithheld(const VKVMon &entry)
{
    return report_ft == 0 && strcmp(entry.Source, kWithheldSource) == 0;
}

void SendReport(const TraceSite &site, Report *report)
{
    const ReportRequest &request = report->request;
    TRACE_AT(site, TRACE_NOTABLE, "REPORT: Source=%s, EventID=0x%X",
             request.source != nullptr ? request.source : "NULL", request.eventId);
    pVKMonitorCall(&report->request);
}

int32_t AddSaturated(int32_t a, int32_t b)
{
    const int64_t sum = int64_t{a} + b;
    return static_cast<int32_t>(std::clamp<int64_t>(sum, std::numeric_limits<int32_t>::min(),
                                                    std::numeric_limits<int32_t>::max()));
}
