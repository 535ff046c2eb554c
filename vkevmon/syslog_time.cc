#include "vkevmon/syslog_time.h"

#include <cstdio>
#include <cstring>

#include "platform/trace.h"

// clang-format off
const uint32_t TimeMask[kHoursOfDay] = {
    1U << 0,  1U << 1,  1U << 2,  1U << 3,  1U << 4,  1U << 5,  1U << 6,  1U << 7,
    1U << 8,  1U << 9,  1U << 10, 1U << 11, 1U << 12, 1U << 13, 1U << 14, 1U << 15,
    1U << 16, 1U << 17, 1U << 18, 1U << 19, 1U << 20, 1U << 21, 1U << 22, 1U << 23,
};
// clang-format on

namespace {

constexpr char kUnit[] = "vkevmon";

constexpr int kMonths = 12;
constexpr char kMonthNames[kMonths][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr int kDecember = 11;
constexpr int kJanuary = 0;

// The stamp as it stands in the line.
struct Stamp {
    char month[5]; // at most four characters are taken for the month word
    int day, hour, minute, second;
};

bool ParseStamp(const char *buf, Stamp *stamp)
{
    return sscanf(buf, "%4s %d %d:%d:%d", stamp->month, &stamp->day, &stamp->hour, &stamp->minute,
                  &stamp->second) == 5;
}

// Index of the month, or -1. Three characters count, so "Sept" is September.
int MonthIndex(const char *word)
{
    for (int month = 0; month < kMonths; ++month) {
        if (strncmp(word, kMonthNames[month], 3) == 0)
            return month;
    }
    return -1;
}

// The year of a stamp, in years since 1900. False when it lies neither in this month nor in the last.
bool YearOf(int month, const struct tm &now, int *year)
{
    *year = now.tm_year;
    if (now.tm_mon == month || now.tm_mon == month + 1)
        return true;
    *year = now.tm_year - 1;
    return month == kDecember && now.tm_mon == kJanuary;
}

} // namespace

BOOL GetSyslogTime(const char *buf, time_t *pcur_time)
{
    TRACE(TRACE_DETAIL, ">buf=%p,pcur_time=%p", static_cast<const void *>(buf),
          static_cast<void *>(pcur_time));
    Stamp stamp{};
    if (!ParseStamp(buf, &stamp)) {
        TRACE(TRACE_ERROR, "<get time form buf failed.return FALSE.");
        return FALSE;
    }
    const int month = MonthIndex(stamp.month);
    if (month < 0) {
        TRACE(TRACE_ERROR, "<month wrong!return FALSE.");
        return FALSE;
    }
    const time_t current = time(nullptr);
    struct tm now {};
    localtime_r(&current, &now);
    int year = 0;
    if (!YearOf(month, now, &year)) {
        TRACE(TRACE_ERROR, "<syslog time err.return FALSE.");
        return FALSE;
    }
    struct tm when {};
    when.tm_sec = stamp.second;
    when.tm_min = stamp.minute;
    when.tm_hour = stamp.hour;
    when.tm_mday = stamp.day;
    when.tm_mon = month;
    when.tm_year = year;
    // Today's daylight saving, not "find out": every stamp of a pass is read in the same way.
    when.tm_isdst = now.tm_isdst;
    *pcur_time = mktime(&when);
    if (*pcur_time == -1) {
        TRACE(TRACE_ERROR, "<invalid time.return FALSE.");
        return FALSE;
    }
    TRACE(TRACE_DETAIL, "<return TRUE.");
    return TRUE;
}

int OnTime(time_t t, unsigned int watchtime)
{
    TRACE(TRACE_DETAIL, ">");
    struct tm local {};
    int on_time = 0;
    if (localtime_r(&t, &local) != nullptr && (TimeMask[local.tm_hour] & watchtime) != 0)
        on_time = 1;
    TRACE(TRACE_DETAIL, "<return %d", on_time);
    return on_time;
}
