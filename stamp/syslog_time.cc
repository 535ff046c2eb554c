#include "stamp/syslog_time.h"

#include <algorithm>

#include "platform/trace.h"

// clang-format off
const uint32_t TimeMask[kHoursOfDay] = {
    1U << 0,  1U << 1,  1U << 2,  1U << 3,  1U << 4,  1U << 5,  1U << 6,  1U << 7,
    1U << 8,  1U << 9,  1U << 10, 1U << 11, 1U << 12, 1U << 13, 1U << 14, 1U << 15,
    1U << 16, 1U << 17, 1U << 18, 1U << 19, 1U << 20, 1U << 21, 1U << 22, 1U << 23,
};
// clang-format on

std::atomic<uint64_t> zones_looked_up = 0;
uint64_t stamps_learned = 0;

namespace {

constexpr char kUnit[] = "vkevmon";

constexpr int kDecember = 11;
constexpr int kJanuary = 0;
constexpr size_t kMonthWordMax = 4;

// Days of a common year before each of its months.
constexpr int kDaysBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};

// The stamp as it stands in the line.
struct Stamp {
    char month[kMonthWordMax + 1]; // at most four characters are taken for the month word
    int day, hour, minute, second;
};

// ---- parsing ----
//
// The stamp is read as the C library's scanner reads "%4s %d %d:%d:%d", in every case: white space before
// each field, signs, over-large numbers. The scanner itself costs more than matching the line.

bool IsSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

const char *SkipSpace(const char *text)
{
    while (IsSpace(*text))
        ++text;
    return text;
}

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

// The scanner reads a number as 64 bits, stopped at their limits, and keeps the lower 32.
int Cut(uint64_t magnitude, bool is_negative)
{
    const uint64_t limit = static_cast<uint64_t>(INT64_MAX) + (is_negative ? 1 : 0);
    const uint64_t stopped = magnitude > limit ? limit : magnitude;
    return static_cast<int>(static_cast<uint32_t>(is_negative ? -stopped : stopped));
}

// A number of one or two digits, as nearly all are. False when there is another one, or none.
bool ReadShortNumber(const char **text, int *number)
{
    const char *at = *text;
    if (!IsDigit(at[0]))
        return false;
    if (!IsDigit(at[1])) {
        *number = at[0] - '0';
        *text = at + 1;
        return true;
    }
    *number = ((at[0] - '0') * 10) + (at[1] - '0');
    *text = at + 2;
    return !IsDigit(at[2]);
}

// Reads any number and steps behind it. False when there is none.
bool ReadLongNumber(const char **text, int *number)
{
    const char *at = SkipSpace(*text);
    const bool is_negative = *at == '-';
    if (*at == '-' || *at == '+')
        ++at;
    if (!IsDigit(*at))
        return false;
    uint64_t magnitude = 0;
    for (; IsDigit(*at); ++at) {
        const auto digit = static_cast<uint64_t>(*at - '0');
        magnitude = magnitude < UINT64_MAX / 10 ? (magnitude * 10) + digit : UINT64_MAX;
    }
    *number = Cut(magnitude, is_negative);
    *text = at;
    return true;
}

bool ReadNumber(const char **text, int *number)
{
    const char *begin = *text;
    if (ReadShortNumber(text, number))
        return true;
    *text = begin;
    return ReadLongNumber(text, number);
}

bool ReadColon(const char **text)
{
    return *(*text)++ == ':';
}

bool ParseStamp(const char *text, Stamp *stamp)
{
    text = SkipSpace(text);
    size_t length = 0;
    while (length < kMonthWordMax && *text != '\0' && !IsSpace(*text))
        stamp->month[length++] = *text++;
    stamp->month[length] = '\0';
    text = SkipSpace(text);
    if (length == 0 || !ReadNumber(&text, &stamp->day))
        return false;
    text = SkipSpace(text);
    return ReadNumber(&text, &stamp->hour) && ReadColon(&text) &&
           ReadNumber(&text, &stamp->minute) && ReadColon(&text) &&
           ReadNumber(&text, &stamp->second);
}

// The first three characters of a word as a number.
constexpr uint32_t MonthKey(const char *word)
{
    return static_cast<uint32_t>(static_cast<unsigned char>(word[0])) << 16U |
           static_cast<uint32_t>(static_cast<unsigned char>(word[1])) << 8U |
           static_cast<unsigned char>(word[2]);
}

// Index of the month, or -1. Three characters count, so "Sept" is September.
int MonthIndex(const char *word)
{
    switch (MonthKey(word)) {
    case MonthKey("Jan"):
        return kJanuary;
    case MonthKey("Feb"):
        return 1;
    case MonthKey("Mar"):
        return 2;
    case MonthKey("Apr"):
        return 3;
    case MonthKey("May"):
        return 4;
    case MonthKey("Jun"):
        return 5;
    case MonthKey("Jul"):
        return 6;
    case MonthKey("Aug"):
        return 7;
    case MonthKey("Sep"):
        return 8;
    case MonthKey("Oct"):
        return 9;
    case MonthKey("Nov"):
        return 10;
    case MonthKey("Dec"):
        return kDecember;
    default:
        return -1;
    }
}

// ---- conversion ----

// The year of a stamp, in years since 1900. False when it lies neither in this month nor in the last.
bool YearOf(int month, const struct tm &now, int *year)
{
    *year = now.tm_year;
    if (now.tm_mon == month || now.tm_mon == month + 1)
        return true;
    *year = now.tm_year - 1;
    return month == kDecember && now.tm_mon == kJanuary;
}

struct tm BrokenDown(const Stamp &stamp, int month, int year, const struct tm &now)
{
    struct tm when {};
    when.tm_sec = stamp.second;
    when.tm_min = stamp.minute;
    when.tm_hour = stamp.hour;
    when.tm_mday = stamp.day;
    when.tm_mon = month;
    when.tm_year = year;
    // Today's daylight saving, not "find out": every stamp of a pass is read in the same way.
    when.tm_isdst = now.tm_isdst;
    return when;
}

bool IsBetween(int value, int least, int most)
{
    return value >= least && value <= most;
}

constexpr int kYear1971 = 71;
constexpr int kYear9999 = 8099;

// Is the moment certain to lie after 1970 and in what a time_t can hold?
bool IsConvertible(const struct tm &when)
{
    return IsBetween(when.tm_year, kYear1971, kYear9999) && when.tm_mday >= 0 &&
           when.tm_hour >= 0 && when.tm_min >= 0 && when.tm_sec >= 0;
}

// Days from 1970 to the first day of a month, in the proleptic Gregorian calendar.
int64_t DaysTo(int year, int month)
{
    const int64_t full = int64_t{year} + 1900;
    const bool is_leap = (full % 4 == 0 && full % 100 != 0) || full % 400 == 0;
    const int64_t before = full - 1;
    const int64_t days = (before * 365) + (before / 4) - (before / 100) + (before / 400);
    constexpr int64_t kDaysTo1970 = 719162;
    return days - kDaysTo1970 + kDaysBefore[month] + (is_leap && month > 1 ? 1 : 0);
}

bool IsSameMoment(const struct tm &a, const struct tm &b)
{
    return a.tm_sec == b.tm_sec && a.tm_min == b.tm_min && a.tm_hour == b.tm_hour &&
           a.tm_mday == b.tm_mday && a.tm_mon == b.tm_mon && a.tm_year == b.tm_year &&
           a.tm_isdst == b.tm_isdst;
}

// The moment, if the clock was as far from UTC then as it is now.
time_t Guess(const struct tm &when, const struct tm &now)
{
    const int64_t days = DaysTo(when.tm_year, when.tm_mon) + when.tm_mday - 1;
    return (((days * 24 + when.tm_hour) * 60 + when.tm_min) * 60) + when.tm_sec - now.tm_gmtoff;
}

// mktime, without its search: takes the guess only when it is that moment in local time. Around changes of
// the clock, and for fields out of range, mktime does it.
time_t Convert(struct tm when, const struct tm &now)
{
    if (IsConvertible(when)) {
        const time_t guess = Guess(when, now);
        struct tm check {};
        if (localtime_r(&guess, &check) != nullptr && IsSameMoment(check, when))
            return guess;
    }
    return mktime(&when);
}

bool IsSameClock(const struct tm &a, const struct tm &b)
{
    return a.tm_gmtoff == b.tm_gmtoff && a.tm_isdst == b.tm_isdst;
}

void BringTo(LocalMoment *moment, time_t t)
{
    if (moment->is_set && moment->time == t)
        return;
    zones_looked_up.fetch_add(1, std::memory_order_relaxed);
    tzset(); // localtime_r alone would never see a change of the time zone
    const struct tm before = moment->local;
    moment->time = t;
    moment->local = {};
    moment->is_set = localtime_r(&t, &moment->local) != nullptr;
    if (!IsSameClock(moment->local, before))
        moment->steady_end = moment->steady_begin;
}

bool IsSameClockAt(time_t t, const struct tm &now)
{
    zones_looked_up.fetch_add(1, std::memory_order_relaxed);
    struct tm there {};
    return localtime_r(&t, &there) != nullptr && IsSameClock(there, now);
}

// Is the stamp certain to be a local time that exists? mktime refuses those that were left out when a zone
// moved east for good, without summer time. So the clock is looked at around the stamp, by the hour: whole
// logs then cost two looks for each hour in them.
bool Exists(struct tm when, LocalMoment *moment)
{
    constexpr time_t kHour = 3600;
    constexpr int kLastSecond = 59;
    // mktime looks for the last second of the minute, and adds those beyond it to what it has found.
    when.tm_sec = std::min(when.tm_sec, kLastSecond);
    const time_t guess = Guess(when, moment->local);
    if (guess >= moment->steady_begin && guess < moment->steady_end)
        return true;
    moment->steady_begin = guess - (guess % kHour);
    moment->steady_end = moment->steady_begin;
    if (!IsSameClockAt(moment->steady_begin, moment->local) ||
        !IsSameClockAt(moment->steady_begin + kHour, moment->local))
        return false;
    moment->steady_end += kHour;
    return true;
}

// What is wrong with a stamp.
enum class StampFault { kNone, kForm, kMonthName, kMonth, kTime };

void TraceFault(StampFault fault)
{
    constexpr const char *kInterface = "GetSyslogTime";
    switch (fault) {
    case StampFault::kNone:
        TRACE_HELPER(TRACE_DETAIL, "<return TRUE.");
        break;
    case StampFault::kForm:
        TRACE_HELPER(TRACE_ERROR, "<get time form buf failed.return FALSE.");
        break;
    case StampFault::kMonthName:
        TRACE_HELPER(TRACE_ERROR, "<month wrong!return FALSE.");
        break;
    case StampFault::kMonth:
        TRACE_HELPER(TRACE_ERROR, "<syslog time err.return FALSE.");
        break;
    case StampFault::kTime:
        TRACE_HELPER(TRACE_ERROR, "<invalid time.return FALSE.");
        break;
    }
}

// Judges a stamp and, if asked for its time, converts it.
StampFault FaultOf(LocalMoment *moment, const char *buf, time_t *pcur_time, StampUse use)
{
    Stamp stamp{};
    if (!ParseStamp(buf, &stamp))
        return StampFault::kForm;
    const int month = MonthIndex(stamp.month);
    if (month < 0)
        return StampFault::kMonthName;
    BringTo(moment, time(nullptr));
    int year = 0;
    if (!YearOf(month, moment->local, &year))
        return StampFault::kMonth;
    const struct tm when = BrokenDown(stamp, month, year, moment->local);
    if (use == StampUse::kValidity && IsConvertible(when) && Exists(when, moment))
        return StampFault::kNone;
    const time_t converted = Convert(when, moment->local);
    if (use == StampUse::kTime || converted == -1)
        *pcur_time = converted;
    return converted == -1 ? StampFault::kTime : StampFault::kNone;
}

// In the form in which loggers write it: nothing of the line behind it can belong to it.
bool IsOfUsualForm(const char *line)
{
    constexpr size_t kHour = sizeof "Jan  5 " - 1;
    constexpr size_t kMinute = kHour + 3;
    constexpr size_t kSecond = kMinute + 3;
    return strnlen(line, KnownStamp::kSize) == KnownStamp::kSize && line[kMinute - 1] == ':' &&
           line[kSecond - 1] == ':' && IsDigit(line[kSecond]) && IsDigit(line[kSecond + 1]) &&
           !IsDigit(line[KnownStamp::kSize]);
}

} // namespace

BOOL GetSyslogTimeAt(LocalMoment *moment, const char *buf, time_t *pcur_time, StampUse use)
{
    constexpr const char *kInterface = "GetSyslogTime";
    TRACE_HELPER(TRACE_DETAIL, ">buf=%p,pcur_time=%p", static_cast<const void *>(buf),
                 static_cast<void *>(pcur_time));
    const StampFault fault = FaultOf(moment, buf, pcur_time, use);
    TraceFault(fault);
    return fault == StampFault::kNone ? TRUE : FALSE;
}

void RecallMoment(KnownStamp *known, LocalMoment *moment)
{
    BringTo(moment, time(nullptr));
    const struct tm &now = moment->local;
    known->is_set = known->is_set && moment->is_set && known->month == now.tm_mon &&
                    known->year == now.tm_year && known->is_dst == now.tm_isdst &&
                    known->gmtoff == now.tm_gmtoff;
}

bool LearnStamp(KnownStamp *known, LocalMoment *moment, const char *line)
{
    ++stamps_learned;
    time_t ignored = 0;
    if (FaultOf(moment, line, &ignored, StampUse::kValidity) != StampFault::kNone)
        return false;
    known->is_set = moment->is_set && IsOfUsualForm(line);
    if (known->is_set) {
        memcpy(known->text, line, sizeof known->text);
        const struct tm &now = moment->local;
        known->month = now.tm_mon;
        known->year = now.tm_year;
        known->is_dst = now.tm_isdst;
        known->gmtoff = now.tm_gmtoff;
    }
    return true;
}

BOOL GetSyslogTime(const char *buf, time_t *pcur_time)
{
    LocalMoment moment;
    return GetSyslogTimeAt(&moment, buf, pcur_time, StampUse::kTime);
}

int OnTimeAt(LocalMoment *moment, time_t t, unsigned int watchtime)
{
    constexpr const char *kInterface = "OnTime";
    TRACE_HELPER(TRACE_DETAIL, ">");
    BringTo(moment, t);
    const int on_time =
        moment->is_set && (TimeMask[moment->local.tm_hour] & watchtime) != 0 ? 1 : 0;
    TRACE_HELPER(TRACE_DETAIL, "<return %d", on_time);
    return on_time;
}

int OnTime(time_t t, unsigned int watchtime)
{
    LocalMoment moment;
    return OnTimeAt(&moment, t, watchtime);
}
