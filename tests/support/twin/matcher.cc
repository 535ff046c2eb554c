#include "tests/support/twin/matcher.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <regex.h>

#include "filemonitor/filemonitor.h"
#include "match/report.h"
#include "match/table_data.h"
#include "platform/agent.h"
#include "platform/siblings.h"
#include "platform/trace.h"

namespace test::twin {

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr size_t kMessageSize = 3329;

struct Site {
    const char *unit;
    const char *function;
};
constexpr Site kSyslog = {"vkevmon", "CheckLine"};
constexpr Site kFileMonitor = {"filemonitor", "CheckFileLine"};

bool IsPlain(const char *line, const char *keyword)
{
    return keyword[0] == '\0' || strstr(line, keyword) != nullptr;
}

bool IsFound(const char *line, const char *keyword)
{
    if (IsPlain(line, keyword))
        return true;
    if (IsFTServer < 1)
        return false;
    TRACE_FOR("CheckLine", 0, "Regular Expression is:([[:space:]]*)%s([[:space:]]*)", keyword);
    return ExpressionMatches(line, keyword);
}

void Report(const Site &site, const char *line, VKVMon *entry, int64_t next)
{
    char message[kMessageSize] = {};
    TarskCodeConvert(line, -1, message, sizeof message, 1, 0);
    entry->CurrentCount = 0;
    if (report_ft == 0 && memcmp(entry->Source, "FTREPORT", 9) == 0)
        return;
    if (next < 0)
        TraceLog(3, site.unit, site.function, 0, "Report %s", line);
    else
        TraceLog(3, site.unit, site.function, 0, "Report %s, the next line's offset is %lld", line,
                 static_cast<long long>(next));
    TraceLog(3, site.unit, site.function, 0, "REPORT: Source=%s, EventID=0x%X", entry->Source,
             entry->EventID);
    char log_name[] = "Application";
    const char *strings[] = {message};
    ReportRequest request{};
    request.logName = log_name;
    request.source = entry->Source;
    request.eventId = entry->EventID;
    request.strings = strings;
    pVKMonitorCall(&request);
}

void Hit(const Site &site, const char *line, int times, VKVMon *entry, int64_t next)
{
    TraceLog(0, site.unit, site.function, 0, "found a match!");
    const long long sum = static_cast<long long>(entry->CurrentCount) + times;
    entry->CurrentCount = static_cast<int32_t>(std::clamp<long long>(sum, INT_MIN, INT_MAX));
    TraceLog(0, site.unit, site.function, 0, "curnum = %d, repnum = %d.", entry->CurrentCount,
             entry->ReportCount);
    if (entry->CurrentCount >= entry->ReportCount)
        Report(site, line, entry, next);
}

BOOL Refuse(const char *why)
{
    TRACE_FOR("GetSyslogTime", 1, "%s", why);
    return FALSE;
}

} // namespace

bool ExpressionMatches(const std::string &line, const std::string &keyword)
{
    const std::string pattern = "([[:space:]]*)" + keyword + "([[:space:]]*)";
    regex_t expression;
    if (regcomp(&expression, pattern.c_str(), REG_EXTENDED) != 0)
        return false;
    regmatch_t matches[20];
    const bool found = regexec(&expression, line.c_str(), 20, matches, 0) == 0;
    regfree(&expression);
    return found;
}

BOOL GetSyslogTime(const char *buf, time_t *pcur_time)
{
    static constexpr const char *kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    TRACE(0, ">buf=%p,pcur_time=%p", static_cast<const void *>(buf),
          static_cast<void *>(pcur_time));
    char word[5];
    struct tm when {};
    if (sscanf(buf, "%4s %d %d:%d:%d", word, &when.tm_mday, &when.tm_hour, &when.tm_min,
               &when.tm_sec) < 5)
        return Refuse("<get time form buf failed.return FALSE.");
    while (when.tm_mon < 12 && strncmp(word, kMonths[when.tm_mon], 3) != 0)
        ++when.tm_mon;
    if (when.tm_mon == 12)
        return Refuse("<month wrong!return FALSE.");
    const time_t now = time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    if (local.tm_mon == when.tm_mon || local.tm_mon == when.tm_mon + 1)
        when.tm_year = local.tm_year;
    else if (when.tm_mon == 11 && local.tm_mon == 0)
        when.tm_year = local.tm_year - 1;
    else
        return Refuse("<syslog time err.return FALSE.");
    when.tm_isdst = local.tm_isdst;
    *pcur_time = mktime(&when);
    if (*pcur_time == -1)
        return Refuse("<invalid time.return FALSE.");
    TRACE(0, "<return TRUE.");
    return TRUE;
}

int OnTime(time_t t, unsigned int watchtime)
{
    TRACE(0, ">");
    struct tm local {};
    const bool known = localtime_r(&t, &local) != nullptr;
    const int result = known && ((1U << static_cast<unsigned>(local.tm_hour)) & watchtime) != 0;
    TRACE(0, "<return %d", result);
    return result;
}

int CheckLine(char *line, int times)
{
    TRACE(0, ">line=%p,times=%d", static_cast<void *>(line), times);
    if (line == nullptr) {
        TRACE(1, "<line==NULL.return -1.");
        return -1;
    }
    TRACE(0, "line \"%s\" is checked, it happend %d times\n", line, times);
    time_t stamp = 0;
    if (twin::GetSyslogTime(line, &stamp) == FALSE) {
        TRACE(1, "<GetSyslogTime() return FALSE.return 0.");
        return 0;
    }
    if (strstr(line, "TARSKvkvmain") != nullptr) {
        TRACE(0, "<TARSKvkvmain is found in line, ignore.return 0.");
        return 0;
    }
    const time_t now = time(nullptr);
    if (now == -1) {
        TRACE(2, "<time() return -1");
        return -1;
    }
    for (int i = 0; i < nCnt; ++i) {
        VKVMon *entry = lpVKVMon[i];
        if (IsFound(line, entry->Keyword1) && IsFound(line, entry->Keyword2) &&
            IsFound(line, entry->Keyword3) && twin::OnTime(now, entry->WatchTime) == 1 &&
            entry->ReportCount > 0)
            Hit(kSyslog, line, times, entry, -1);
    }
    TRACE(0, "<return 0.");
    return 0;
}

int CheckFileLine(const char *line)
{
    TraceLog(0, "filemonitor", "CheckFileLine", 0, ">line=%p", static_cast<const void *>(line));
    TraceLog(0, "filemonitor", "CheckFileLine", 0, "line \"%s\" is being checked\n", line);
    const time_t now = time(nullptr);
    if (now == -1) {
        TraceLog(2, "filemonitor", "CheckFileLine", 0, "<time() return -1, the error code is %d.",
                 errno);
        return FALSE;
    }
    for (int i = 0; i < nCnt; ++i) {
        VKVMon *entry = lpVKVMon[i];
        if (IsPlain(line, entry->Keyword1) && IsPlain(line, entry->Keyword2) &&
            IsPlain(line, entry->Keyword3) && twin::OnTime(now, entry->WatchTime) == 1 &&
            entry->ReportCount > 0)
            Hit(kFileMonitor, line, 1, entry, filedata.start + filedata.linepos);
    }
    TraceLog(0, "filemonitor", "CheckFileLine", 0, "<return 0.");
    return TRUE;
}

} // namespace test::twin
