#include "stamp/syslog_time.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "tests/support/module_test.h"
#include "tests/unit/vkevmon/pass_fixture.h"

namespace {

using test::Host;
using test::kAllHours;
using test::Sys;

constexpr char kNoStamp[] = "<get time form buf failed.return FALSE.";
constexpr char kNoMonth[] = "<month wrong!return FALSE.";
constexpr char kOtherMonth[] = "<syslog time err.return FALSE.";
constexpr char kNoTime[] = "<invalid time.return FALSE.";

// A value that no stamp of these tests has, to see whether the out value was written.
constexpr time_t kUntouched = 123456789;

const char *const kMonths[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Central Europe: one hour ahead of UTC, two in summer. Summer time began on 31 March 2024 at 2:00
// and ended on 27 October 2024 at 3:00.
constexpr char kCentralEurope[] = "CET-1CEST,M3.5.0,M10.5.0/3";

// Seconds since the epoch of a moment in UTC.
time_t Utc(int year, int month, int day, int hour, int minute, int second)
{
    struct tm moment {};
    moment.tm_year = year - 1900;
    moment.tm_mon = month - 1;
    moment.tm_mday = day;
    moment.tm_hour = hour;
    moment.tm_min = minute;
    moment.tm_sec = second;
    return timegm(&moment);
}

class SyslogTime : public test::ModuleTest {
  protected:
    SyslogTime()
    {
        UseZone("UTC0");
        SetClock(2024, 3, 10, 12, 0, 0);
    }

    static void UseZone(const char *zone) { test::ZoneGuard::Use(zone); }

    static void SetClockUtc(time_t now) { Sys().now = now; }

    static void ExpectTime(const std::string &line, time_t expected)
    {
        Host().ForgetRecords();
        time_t moment = kUntouched;
        EXPECT_EQ(TRUE, GetSyslogTime(line.c_str(), &moment)) << line;
        EXPECT_EQ(expected, moment) << line;
        EXPECT_TRUE(Host().Texts(1).empty()) << line;
        EXPECT_EQ(1, Host().Traced(0, "<return TRUE.")) << line;
    }

    static void ExpectRefused(const std::string &line, const char *message,
                              time_t expected = kUntouched)
    {
        Host().ForgetRecords();
        time_t moment = kUntouched;
        EXPECT_EQ(FALSE, GetSyslogTime(line.c_str(), &moment)) << line;
        EXPECT_EQ(expected, moment) << line;
        EXPECT_EQ(std::vector<std::string>{message}, Host().Texts(1)) << line;
        EXPECT_EQ(0, Host().Traced("<return TRUE.")) << line;
    }

  private:
    test::ZoneGuard zone_;
};

TEST_F(SyslogTime, IsMonthDayAndTimeOfDayInTheYearOfTheClock)
{
    ExpectTime("Mar  5 10:00:01 host kernel: text", Utc(2024, 3, 5, 10, 0, 1));
    ExpectTime("Mar 31 23:59:59 host kernel: text", Utc(2024, 3, 31, 23, 59, 59));
    ExpectTime("Feb 29 00:00:00 host kernel: text", Utc(2024, 2, 29, 0, 0, 0));
}

TEST_F(SyslogTime, LeavesItsMarksInTheTraceLog)
{
    const char *line = "Mar 10 10:00:01 x";
    time_t moment = 0;
    GetSyslogTime(line, &moment);

    char entry[80];
    snprintf(entry, sizeof entry, ">buf=%p,pcur_time=%p", static_cast<const void *>(line),
             static_cast<void *>(&moment));
    ASSERT_EQ(2U, Host().trace.size());
    EXPECT_EQ(entry, Host().trace[0].text);
    EXPECT_EQ("<return TRUE.", Host().trace[1].text);
    for (const auto &record : Host().trace) {
        EXPECT_EQ(0, record.level);
        EXPECT_EQ("vkevmon", record.unit);
        EXPECT_EQ("GetSyslogTime", record.function);
    }
}

TEST_F(SyslogTime, EveryRefusalIsOneErrorRecordOfTheFunction)
{
    ExpectRefused("no stamp at all", kNoStamp);
    ASSERT_EQ(2U, Host().trace.size());
    EXPECT_EQ("vkevmon", Host().trace[1].unit);
    EXPECT_EQ("GetSyslogTime", Host().trace[1].function);
}

TEST_F(SyslogTime, WhiteSpaceOfAnyKindAndLengthMaySeparateTheFields)
{
    const time_t expected = Utc(2024, 3, 5, 10, 0, 1);
    for (const char *line : {"Mar 5 10:00:01", "Mar  5 10:00:01", "Mar\t5\t10:00:01",
                             "Mar 05 10:00:01", "   Mar 5 10:00:01", "\n\t Mar 5\n10:00:01",
                             "Mar 5 10: 00:\t01", "Mar     5    10:0:1", "Mar\v5\f10:00:\r01"})
        ExpectTime(line, expected);
}

TEST_F(SyslogTime, WhiteSpaceBeforeAColonIsNotAStamp)
{
    ExpectRefused("Mar 5 10 :00:01", kNoStamp);
    ExpectRefused("Mar 5 10:00 :01", kNoStamp);
}

TEST_F(SyslogTime, WhatFollowsTheSecondsIsIgnored)
{
    const time_t expected = Utc(2024, 3, 5, 10, 0, 1);
    for (const char *line : {"Mar 5 10:00:01", "Mar 5 10:00:01host", "Mar 5 10:00:01.123 host",
                             "Mar 5 10:00:01:99", "Mar 5 10:00:01 2019", "Mar 5 10:00:01\xFF\x80"})
        ExpectTime(line, expected);
}

TEST_F(SyslogTime, FewerThanFiveFieldsAreNotAStamp)
{
    for (const char *line :
         {"", " ", "Mar", "Mar 5", "Mar 5 10", "Mar 5 10:", "Mar 5 10:00",
          "Mar 5 10:00:", "Mar 5 10-00-01", "Mar 5 10.00.01", "Mar five 10:00:01",
          "Mar 5 ten:00:01", "    continued from the line before", "kernel: no stamp",
          "2024-03-05T10:00:01+00:00 x", "<13>Mar 5 10:00:01", "Mar 5, 10:00:01"})
        ExpectRefused(line, kNoStamp);
}

TEST_F(SyslogTime, AWordOfMoreThanFourLettersIsNotAMonth)
{
    // Four characters are the month word; the rest would have to be the day.
    ExpectRefused("March 5 10:00:01", kNoStamp);
    ExpectRefused("Marchx 5 10:00:01", kNoStamp);
}

TEST_F(SyslogTime, ThreeLettersOfTheMonthWordCount)
{
    SetClock(2024, 9, 10, 12, 0, 0);
    ExpectTime("Sept 5 10:00:01 x", Utc(2024, 9, 5, 10, 0, 1));
    ExpectTime("Sep. 5 10:00:01 x", Utc(2024, 9, 5, 10, 0, 1));
    ExpectTime("SepX 5 10:00:01 x", Utc(2024, 9, 5, 10, 0, 1));
    // The fourth character is the month word's, digit or not, so the day is the next number.
    ExpectTime("Sep5 7 10:00:01 x", Utc(2024, 9, 7, 10, 0, 1));
    ExpectRefused("Sep5 10:00:01 x", kNoStamp);
    // The digits behind four letters are the day, blank or not.
    ExpectTime("Sept5 10:00:01 x", Utc(2024, 9, 5, 10, 0, 1));
}

TEST_F(SyslogTime, TheCaseOfTheMonthCounts)
{
    for (const char *line : {"mar 5 10:00:01", "MAR 5 10:00:01", "mAR 5 10:00:01", "Ma 5 10:00:01",
                             "M\xE4r 5 10:00:01", "12 5 10:00:01", "Mrz 5 10:00:01"})
        ExpectRefused(line, kNoMonth);
}

TEST_F(SyslogTime, AStampLiesInTheMonthOfTheClockOrInTheOneBefore)
{
    for (int now = 0; now < 12; ++now) {
        SetClock(2023, now + 1, 15, 12, 0, 0);
        for (int month = 0; month < 12; ++month) {
            const std::string line = std::string(kMonths[month]) + " 7 08:09:10 x";
            if (month == now || month == now - 1)
                ExpectTime(line, Utc(2023, month + 1, 7, 8, 9, 10));
            else if (month == 11 && now == 0)
                ExpectTime(line, Utc(2022, 12, 7, 8, 9, 10));
            else
                ExpectRefused(line, kOtherMonth);
        }
    }
}

TEST_F(SyslogTime, InTheFirstDaysOfAYearDecemberIsLastYears)
{
    SetClock(2024, 1, 3, 9, 0, 0);
    ExpectTime("Dec 31 23:59:59 x", Utc(2023, 12, 31, 23, 59, 59));
    ExpectTime("Jan  1 00:00:00 x", Utc(2024, 1, 1, 0, 0, 0));
    ExpectRefused("Nov 30 23:59:59 x", kOtherMonth);
    ExpectRefused("Feb  1 00:00:00 x", kOtherMonth);
}

TEST_F(SyslogTime, TheBorderOfTheMonthIsTheOneOfLocalTime)
{
    UseZone("XXX-10"); // ten hours ahead of UTC
    SetClockUtc(Utc(2023, 12, 31, 14, 0, 0));
    ExpectTime("Dec 31 23:59:59 x", Utc(2023, 12, 31, 13, 59, 59)); // it is January already
    SetClockUtc(Utc(2023, 12, 31, 13, 59, 59));
    ExpectRefused("Jan  1 00:00:00 x", kOtherMonth); // not yet
}

TEST_F(SyslogTime, ALaterDayOfThisMonthIsAccepted)
{
    ExpectTime("Mar 31 23:00:00 x", Utc(2024, 3, 31, 23, 0, 0));
}

TEST_F(SyslogTime, DaysAndTimesOutOfRangeRunOn)
{
    SetClock(2023, 3, 31, 12, 0, 0);
    ExpectTime("Feb 29 00:00:00 x", Utc(2023, 3, 1, 0, 0, 0));
    ExpectTime("Feb 30 00:00:00 x", Utc(2023, 3, 2, 0, 0, 0));
    SetClock(2024, 3, 31, 12, 0, 0);
    ExpectTime("Feb 30 00:00:00 x", Utc(2024, 3, 1, 0, 0, 0));
    ExpectTime("Mar 0 00:00:00 x", Utc(2024, 2, 29, 0, 0, 0));
    ExpectTime("Mar 5 24:00:00 x", Utc(2024, 3, 6, 0, 0, 0));
    ExpectTime("Mar 5 10:60:60 x", Utc(2024, 3, 5, 11, 1, 0));
    ExpectTime("Mar 400 99:99:99 x", Utc(2024, 3, 0, 0, 0, 0) + (400 * 86400LL) + (99 * 3661LL));
}

TEST_F(SyslogTime, SignsAreRead)
{
    ExpectTime("Mar +5 +10:+00:+01 x", Utc(2024, 3, 5, 10, 0, 1));
    ExpectTime("Mar -1 00:00:00 x", Utc(2024, 2, 28, 0, 0, 0));
    ExpectTime("Mar 5 -1:-1:-1 x", Utc(2024, 3, 5, 0, 0, 0) - 3661);
    ExpectRefused("Mar - 5 10:00:01 x", kNoStamp);
    ExpectRefused("Mar ++5 10:00:01 x", kNoStamp);
}

TEST_F(SyslogTime, AResultOfMinusOneIsNoTimeAndIsLeftInTheOutValue)
{
    SetClockUtc(10); // the first seconds of 1970, so that December is the one of 1969
    ExpectTime("Dec 31 23:59:58 x", -2);
    ExpectRefused("Dec 31 23:59:59 x", kNoTime, -1);
    ExpectTime("Jan  1 00:00:00 x", 0);
}

// Further from the present than a time can be told.
TEST_F(SyslogTime, AYearBeyondTheRangeIsNoTime)
{
    struct tm last {};
    last.tm_year = INT_MAX;
    last.tm_mon = 11;
    last.tm_mday = 31;
    SetClockUtc(timegm(&last));
    ExpectRefused("Dec 99 00:00:00 x", kNoTime, -1);
}

TEST_F(SyslogTime, AClockBefore1900IsNoReasonToRefuseAStamp)
{
    SetClockUtc(Utc(1899, 3, 10, 12, 0, 0));
    ExpectTime("Mar  5 10:00:01 x", Utc(1899, 3, 5, 10, 0, 1));
    SetClockUtc(Utc(1900, 1, 3, 12, 0, 0));
    ExpectTime("Dec 31 10:00:01 x", Utc(1899, 12, 31, 10, 0, 1));
}

TEST_F(SyslogTime, IsLocalTime)
{
    const struct {
        const char *zone;
        int seconds_east;
    } zones[] = {{"UTC0", 0},           {"EST5", -5 * 3600},      {"JST-9", 9 * 3600},
                 {"IST-5:30", 19800},   {"<+1245>-12:45", 45900}, {"NST3:30", -12600},
                 {"XXX-14", 14 * 3600}, {"<-12>12", -12 * 3600}};
    for (const auto &zone : zones) {
        UseZone(zone.zone);
        SetClock(2024, 3, 10, 12, 0, 0);
        ExpectTime("Mar 10 11:22:33 x", Utc(2024, 3, 10, 11, 22, 33) - zone.seconds_east);
    }
}

TEST_F(SyslogTime, InSummerAStampOfTheWinterIsReadAsSummerTime)
{
    UseZone(kCentralEurope);
    SetClockUtc(Utc(2024, 4, 2, 10, 0, 0));
    ExpectTime("Apr  2 11:00:00 x", Utc(2024, 4, 2, 9, 0, 0));
    ExpectTime("Mar 20 12:00:00 x", Utc(2024, 3, 20, 10, 0, 0)); // 11:00 by the clock of that day
}

TEST_F(SyslogTime, InWinterAStampOfTheSummerIsReadAsWinterTime)
{
    UseZone(kCentralEurope);
    SetClockUtc(Utc(2024, 11, 2, 10, 0, 0));
    ExpectTime("Nov  2 11:00:00 x", Utc(2024, 11, 2, 10, 0, 0));
    ExpectTime("Oct 10 12:00:00 x", Utc(2024, 10, 10, 11, 0, 0)); // 13:00 by the clock of that day
}

TEST_F(SyslogTime, AStampInTheSkippedHourIsReadByTheClocksSide)
{
    UseZone(kCentralEurope);
    SetClockUtc(Utc(2024, 3, 31, 0, 59, 59)); // the last second of winter time
    ExpectTime("Mar 31 01:59:59 x", Utc(2024, 3, 31, 0, 59, 59));
    ExpectTime("Mar 31 02:30:00 x", Utc(2024, 3, 31, 1, 30, 0));
    SetClockUtc(Utc(2024, 3, 31, 1, 0, 0)); // the first one of summer time
    ExpectTime("Mar 31 03:00:00 x", Utc(2024, 3, 31, 1, 0, 0));
    ExpectTime("Mar 31 02:30:00 x", Utc(2024, 3, 31, 0, 30, 0));
}

TEST_F(SyslogTime, AStampInTheHourThatComesTwiceIsReadByTheClocksSide)
{
    UseZone(kCentralEurope);
    SetClockUtc(Utc(2024, 10, 27, 0, 45, 0)); // 2:45, for the first time
    ExpectTime("Oct 27 02:30:00 x", Utc(2024, 10, 27, 0, 30, 0));
    SetClockUtc(Utc(2024, 10, 27, 1, 45, 0)); // 2:45 again
    ExpectTime("Oct 27 02:30:00 x", Utc(2024, 10, 27, 1, 30, 0));
}

// Changed behind the module's back, as an administrator changes that of the host.
TEST_F(SyslogTime, AnotherZoneCountsFromTheNextSecondOn)
{
    constexpr unsigned kNoon = 1U << 12U;
    LocalMoment moment;
    time_t read = 0;
    const auto read_stamp = [&] {
        GetSyslogTimeAt(&moment, "Mar 10 12:00:01 x", &read, StampUse::kTime);
        return read;
    };
    EXPECT_EQ(Utc(2024, 3, 10, 12, 0, 1), read_stamp());
    EXPECT_EQ(1, OnTimeAt(&moment, *Sys().now, kNoon));

    setenv("TZ", "JST-9", 1); // and no tzset
    SetClockUtc(*Sys().now + 1);
    EXPECT_EQ(Utc(2024, 3, 10, 3, 0, 1), read_stamp());
    EXPECT_EQ(0, OnTimeAt(&moment, *Sys().now, kNoon));
}

TEST_F(SyslogTime, LeavesTheSharedBufferOfTheCLibraryAlone)
{
    const time_t other = Utc(2001, 2, 3, 4, 5, 6);
    const struct tm *shared = localtime(&other);
    time_t moment = 0;
    GetSyslogTime("Mar  5 10:00:01 x", &moment);
    OnTime(moment, kAllHours);
    struct tm kept = *shared;
    EXPECT_EQ(other, timegm(&kept));
}

// ---- against the obvious reading ----

struct Reading {
    BOOL result = FALSE;
    time_t moment = kUntouched;
    std::string message; // empty on success
};

Reading Refused(const char *message, time_t moment = kUntouched)
{
    return {FALSE, moment, message};
}

// The rules, one after the other.
Reading ReadObviously(const std::string &line, time_t clock)
{
    char word[5];
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (sscanf(line.c_str(), "%4s %d %d:%d:%d", word, &day, &hour, &minute, &second) < 5)
        return Refused(kNoStamp);
    int month = 0;
    while (month < 12 && std::string(word).substr(0, 3) != kMonths[month])
        ++month;
    if (month == 12)
        return Refused(kNoMonth);
    struct tm now {};
    localtime_r(&clock, &now);
    const bool this_year = now.tm_mon == month || now.tm_mon == month + 1;
    if (!this_year && (month != 11 || now.tm_mon != 0))
        return Refused(kOtherMonth);
    struct tm when {};
    when.tm_sec = second;
    when.tm_min = minute;
    when.tm_hour = hour;
    when.tm_mday = day;
    when.tm_mon = month;
    when.tm_year = this_year ? now.tm_year : now.tm_year - 1;
    when.tm_isdst = now.tm_isdst;
    const time_t moment = mktime(&when);
    if (moment == -1)
        return Refused(kNoTime, moment);
    return {TRUE, moment, ""};
}

void ExpectAsRead(const std::string &line)
{
    const Reading expected = ReadObviously(line, *Sys().now);
    Host().ForgetRecords();
    time_t moment = kUntouched;
    ASSERT_EQ(expected.result, GetSyslogTime(line.c_str(), &moment)) << '"' << line << '"';
    ASSERT_EQ(expected.moment, moment) << '"' << line << '"';
    const auto errors = Host().Texts(1);
    ASSERT_EQ(expected.message, errors.empty() ? "" : errors[0]) << '"' << line << '"';
}

TEST_F(SyslogTime, NumbersTooLargeAreWhatTheCLibraryMakesOfThem)
{
    for (const char *number :
         {"2147483647", "2147483648", "4294967295", "4294967296", "4294967301", "99999999999",
          "9223372036854775807", "9223372036854775808", "99999999999999999999999999999999",
          "-2147483648", "-2147483649", "-99999999999999999999999999999999",
          "0000000000000000000000000000000000007", "0x10", "007", "1e3"}) {
        const std::string text = number;
        ExpectAsRead("Mar " + text + " 10:00:01 x");
        ExpectAsRead("Mar 5 " + text + ":00:01 x");
        ExpectAsRead("Mar 5 10:" + text + ":01 x");
        ExpectAsRead("Mar 5 10:00:" + text + " x");
    }
}

// A stamp with one or more of its pieces replaced by something else, if chance wants it.
std::string RandomStamp(std::mt19937 &random)
{
    const auto pick = [&random](std::initializer_list<const char *> choice) {
        return std::string(choice.begin()[random() % choice.size()]);
    };
    const auto number = [&]() {
        return random() % 12 == 0 ? pick({"", "x", "-", "+7", "-3", "2147483648", "99999999999999",
                                          "00", "0x1", "61", "1000000"})
                                  : std::to_string(random() % 62);
    };
    const auto blank = [&]() {
        return random() % 12 == 0 ? pick({"", "\t", "  ", "\n", "   ", "-", "\xA0"}) : " ";
    };
    const auto colon = [&]() {
        return random() % 16 == 0 ? pick({"", " :", ": ", ".", "::"}) : ":";
    };
    const std::string month =
        random() % 8 == 0
            ? pick({"", "mar", "Sept", "March", "Marc", "M", "Mai", "JAN", "Dec7", "5"})
            : kMonths[random() % 12];
    return (random() % 16 == 0 ? blank() : "") + month + blank() + number() + blank() + number() +
           colon() + number() + colon() + number() + pick({"", " host x", "x", ":1", "."});
}

TEST_F(SyslogTime, AgreesWithTheObviousReadingOnRandomStamps)
{
    const char *const zones[] = {"UTC0", kCentralEurope, "EST5EDT,M3.2.0,M11.1.0",
                                 "AEST-10AEDT,M10.1.0,M4.1.0/3", "IST-5:30"};
    for (uint32_t seed = 1; seed <= 4000; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        UseZone(zones[random() % 5]);
        SetClockUtc(Utc(2015, 1, 1, 0, 0, 0) + static_cast<time_t>(random() % (15UL * 31536000UL)));
        ExpectAsRead(RandomStamp(random));
        if (HasFatalFailure())
            return;
    }
}

// ---- the hours of an entry ----

using HourMask = SyslogTime;

TEST_F(HourMask, HasOneBitPerHour)
{
    for (uint32_t hour = 0; hour < 24; ++hour)
        EXPECT_EQ(1U << hour, TimeMask[hour]);
    EXPECT_EQ(24U, sizeof TimeMask / sizeof TimeMask[0]);
}

TEST_F(HourMask, WatchesAnHourFromItsFirstToItsLastSecond)
{
    for (int hour = 0; hour < 24; ++hour) {
        const time_t begin = Utc(2024, 3, 10, hour, 0, 0);
        const uint32_t bit = 1U << static_cast<unsigned>(hour);
        EXPECT_EQ(1, OnTime(begin, bit)) << hour;
        EXPECT_EQ(1, OnTime(begin + 3599, bit)) << hour;
        EXPECT_EQ(0, OnTime(begin - 1, bit)) << hour;
        EXPECT_EQ(0, OnTime(begin + 3600, bit)) << hour;
        EXPECT_EQ(0, OnTime(begin, ~bit)) << hour;
    }
}

TEST_F(HourMask, OfZeroIsNeverAndOfAllBitsAlways)
{
    for (int hour = 0; hour < 24; ++hour) {
        EXPECT_EQ(0, OnTime(Utc(2024, 3, 10, hour, 30, 0), 0));
        EXPECT_EQ(1, OnTime(Utc(2024, 3, 10, hour, 30, 0), kAllHours));
        EXPECT_EQ(1, OnTime(Utc(2024, 3, 10, hour, 30, 0), 0xFFFFFFFFU));
    }
}

TEST_F(HourMask, HasNoMeaningAboveBit23)
{
    for (int hour = 0; hour < 24; ++hour)
        EXPECT_EQ(0, OnTime(Utc(2024, 3, 10, hour, 30, 0), 0xFF000000U));
}

TEST_F(HourMask, SpeaksOfLocalHours)
{
    UseZone("JST-9");
    EXPECT_EQ(1, OnTime(Utc(2024, 3, 10, 3, 0, 0), 1U << 12U));
    EXPECT_EQ(0, OnTime(Utc(2024, 3, 10, 3, 0, 0), 1U << 3U));
    UseZone("IST-5:30");
    EXPECT_EQ(1, OnTime(Utc(2024, 3, 10, 18, 30, 0), 1U << 0U));
    EXPECT_EQ(1, OnTime(Utc(2024, 3, 10, 18, 29, 59), 1U << 23U));
}

TEST_F(HourMask, MissesTheSkippedHourAndMeetsTheRepeatedOneTwice)
{
    UseZone(kCentralEurope);
    constexpr uint32_t two_o_clock = 1U << 2U;
    int in_spring = 0;
    int in_autumn = 0;
    for (int minute = 0; minute < 24 * 60; ++minute) {
        in_spring += OnTime(Utc(2024, 3, 30, 23, minute, 0), two_o_clock);
        in_autumn += OnTime(Utc(2024, 10, 26, 22, minute, 0), two_o_clock);
    }
    EXPECT_EQ(0, in_spring);
    EXPECT_EQ(120, in_autumn);
}

TEST_F(HourMask, WatchesNothingAtATimeThatHasNoLocalForm)
{
    EXPECT_EQ(0, OnTime(INT64_MAX, kAllHours));
}

TEST_F(HourMask, TestLeavesItsMarksInTheTraceLog)
{
    OnTime(Utc(2024, 3, 10, 12, 0, 0), kAllHours);
    OnTime(Utc(2024, 3, 10, 12, 0, 0), 0);
    ASSERT_EQ(4U, Host().trace.size());
    EXPECT_EQ(2, Host().Traced(0, ">"));
    EXPECT_EQ("<return 1", Host().trace[1].text);
    EXPECT_EQ("<return 0", Host().trace[3].text);
    for (const auto &record : Host().trace) {
        EXPECT_EQ(0, record.level);
        EXPECT_EQ("vkevmon", record.unit);
        EXPECT_EQ("OnTime", record.function);
    }
}

} // namespace
