#include "agent/inputs/local_clock.h"

#include <ctime>

namespace inputs {

namespace {

constexpr int64_t kHour = 3600;
constexpr int64_t kDay = 24 * kHour;

// A year that begins in March has its leap day at the end, so that the lengths of its months follow one
// formula. Such years repeat after 400 years.
constexpr int64_t kDaysOf400Years = 146097;
constexpr int64_t kDaysTo1970 = 719468; // from 1 March of the year 0

int64_t FloorDivide(int64_t number, int64_t by)
{
    return number / by - (number % by < 0 ? 1 : 0);
}

int64_t DaysOf(int year, int month, int day)
{
    const int64_t march_year = int64_t{year} - (month <= 2 ? 1 : 0);
    const int64_t era = FloorDivide(march_year, 400);
    const int64_t year_of_era = march_year - era * 400;
    const int64_t march_month = (month + 9) % 12;
    const int64_t day_of_year = (153 * march_month + 2) / 5 + day - 1;
    const int64_t day_of_era =
        year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
    return era * kDaysOf400Years + day_of_era - kDaysTo1970;
}

int64_t OffsetAt(int64_t seconds)
{
    const time_t moment = seconds;
    struct tm local {};
    return localtime_r(&moment, &local) != nullptr ? local.tm_gmtoff : 0;
}

} // namespace

int64_t SecondsOf(const CalendarTime &utc)
{
    return DaysOf(utc.year, utc.month, utc.day) * kDay + utc.hour * kHour + utc.minute * 60 +
           utc.second;
}

CalendarTime CalendarOf(int64_t seconds)
{
    const int64_t days = FloorDivide(seconds, kDay);
    const int64_t of_day = seconds - days * kDay;
    const int64_t era = FloorDivide(days + kDaysTo1970, kDaysOf400Years);
    const int64_t day_of_era = days + kDaysTo1970 - era * kDaysOf400Years;
    const int64_t year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const int64_t day_of_year =
        day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const int64_t march_month = (5 * day_of_year + 2) / 153;

    CalendarTime time;
    time.month = static_cast<int>(march_month < 10 ? march_month + 3 : march_month - 9);
    time.year = static_cast<int>(year_of_era + era * 400 + (time.month <= 2 ? 1 : 0));
    time.day = static_cast<int>(day_of_year - (153 * march_month + 2) / 5 + 1);
    time.hour = static_cast<int>(of_day / kHour);
    time.minute = static_cast<int>(of_day % kHour / 60);
    time.second = static_cast<int>(of_day % 60);
    return time;
}

CalendarTime LocalClock::At(int64_t seconds)
{
    const int64_t hour = FloorDivide(seconds, kHour);
    if (hour != hour_) {
        hour_ = hour;
        offset_ = OffsetAt(hour * kHour);
        is_steady_ = OffsetAt((hour + 1) * kHour - 1) == offset_;
        work_.zone_lookups += 2;
    }
    if (is_steady_)
        return InHour(seconds + offset_);
    ++work_.zone_lookups;
    return InHour(seconds + OffsetAt(seconds));
}

// `local`: seconds since 1970 as the clocks of the zone count them. Lines that follow each other are of the same hour,
// whose calendar differs in minutes and seconds only.
CalendarTime LocalClock::InHour(int64_t local)
{
    const int64_t hour = FloorDivide(local, kHour);
    if (hour != calendar_hour_) {
        calendar_hour_ = hour;
        calendar_ = CalendarOf(hour * kHour);
        ++work_.calendars;
    }
    const auto of_hour = static_cast<int>(local - hour * kHour);
    CalendarTime time = calendar_;
    time.minute = of_hour / 60;
    time.second = of_hour % 60;
    return time;
}

void LocalClock::LookUpZone()
{
    tzset(); // localtime_r alone would never see a change
    hour_ = INT64_MIN;
}

} // namespace inputs
