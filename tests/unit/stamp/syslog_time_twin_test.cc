// Time stamps beside their slow twin, which reads them with sscanf and converts them with mktime: every
// oddity of the form, time zones with and without summer time, clocks from 1890 to 2100.
#include "stamp/syslog_time.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/campaign.h"
#include "tests/support/module_test.h"
#include "tests/support/outcome.h"
#include "tests/support/random_log.h"
#include "tests/support/twin/matcher.h"
#include "tests/unit/vkevmon/pass_fixture.h"

namespace test {
namespace {

constexpr std::array<const char *, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// A value that no conversion here gives, to see whether the out value was written.
constexpr time_t kUntouched = 123456789;

void AppendBigEndian(std::string *bytes, uint32_t number)
{
    for (const unsigned shift : {24U, 16U, 8U, 0U})
        *bytes += static_cast<char>(number >> shift & 0xFFU);
}

// A zone file: an offset from UTC in seconds, and others from the given moments on. None is summer time, or
// all are from the first move on.
std::string MovedZone(int32_t offset, const std::vector<std::pair<time_t, int32_t>> &moves,
                      bool to_summer_time = false)
{
    const auto count = static_cast<uint32_t>(moves.size());
    std::string bytes = "TZif" + std::string(16, '\0');
    for (const uint32_t number : {0U, 0U, 0U, count, count + 1, 4U})
        AppendBigEndian(&bytes, number);
    for (const auto &[moment, next] : moves)
        AppendBigEndian(&bytes, static_cast<uint32_t>(moment));
    for (uint32_t i = 1; i <= count; ++i)
        bytes += static_cast<char>(i);
    AppendBigEndian(&bytes, static_cast<uint32_t>(offset));
    bytes += std::string(2, '\0');
    for (const auto &[moment, next] : moves) {
        AppendBigEndian(&bytes, static_cast<uint32_t>(next));
        bytes += std::string(1, to_summer_time ? '\1' : '\0') + '\0';
    }
    return bytes + std::string("ZON\0", 4);
}

// The folder of the zone files that are made here, until the process ends.
std::string ZoneFile(const std::string &name, const std::string &bytes)
{
    static const TempDir dir;
    const std::string path = dir.path() + "/" + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return ":" + path;
}

constexpr time_t kMovedEast = 1525446000; // 4 May 2018, 15:00 UTC: 23:30 became midnight
constexpr time_t kMovedWest = 1439564400; // 14 August 2015, 15:00 UTC: midnight became 23:30

// As a country in East Asia did it.
std::string ZoneThatMoved()
{
    return ZoneFile("moved",
                    MovedZone(9 * 3600, {{kMovedWest, 8 * 3600 + 1800}, {kMovedEast, 9 * 3600}}));
}

const std::vector<std::string> &Zones()
{
    static const std::vector<std::string> zones = [] {
        std::vector<std::string> list = {ZoneThatMoved(),
                                         "UTC0",
                                         "CET-1CEST,M3.5.0,M10.5.0/3",
                                         "EST5EDT,M3.2.0,M11.1.0",
                                         "AEST-10AEDT,M10.1.0,M4.1.0/3",
                                         "IST-5:30",
                                         "NST3:30NDT,M3.2.0/0:01,M11.1.0/0:01",
                                         "LHST-10:30LHDT-11,M10.1.0,M4.1.0",
                                         "<+14>-14",
                                         "<-12>12",
                                         "XXX-24:59:59",
                                         "IST-1GMT0,M10.5.0,M3.5.0/1",
                                         "<-03>3<-02>,M3.5.0/-2,M10.5.0/-1",
                                         "nonsense",
                                         ""};
        // Zones with a past, where the system knows them: a winter time of its own, days left out, offsets
        // of odd seconds.
        for (const char *name :
             {"Europe/Berlin", "America/New_York", "Australia/Lord_Howe", "Europe/Dublin",
              "Africa/Casablanca", "Pacific/Apia", "Europe/Moscow", "America/Caracas",
              "Asia/Kolkata", "Africa/Monrovia", "Asia/Pyongyang", "America/Sao_Paulo",
              "Antarctica/Troll", "Asia/Tehran", "Europe/Amsterdam", "America/Nuuk"}) {
            if (std::filesystem::exists(std::string("/usr/share/zoneinfo/") + name))
                list.emplace_back(std::string(":") + name);
        }
        return list;
    }();
    return zones;
}

// ---- random clocks ----

time_t Utc(int year, int month, int day)
{
    struct tm moment {};
    moment.tm_year = year - 1900;
    moment.tm_mon = month - 1;
    moment.tm_mday = day;
    return timegm(&moment);
}

bool ChangesWithin(time_t begin, time_t end)
{
    struct tm a {};
    struct tm b {};
    localtime_r(&begin, &a);
    localtime_r(&end, &b);
    return a.tm_gmtoff != b.tm_gmtoff || a.tm_isdst != b.tm_isdst;
}

// The last change of the clock in the year behind `begin`, or `begin`.
time_t ChangeAfter(time_t begin)
{
    constexpr time_t kDay = 86400;
    for (time_t day = begin; day < begin + (366 * kDay); day += kDay) {
        if (!ChangesWithin(day, day + kDay))
            continue;
        time_t before = day;
        time_t after = day + kDay;
        while (after - before > 1) {
            const time_t middle = before + ((after - before) / 2);
            if (ChangesWithin(before, middle))
                after = middle;
            else
                before = middle;
        }
        return after;
    }
    return begin;
}

time_t RandomClock(Random &random)
{
    const auto span = static_cast<size_t>(Utc(2100, 12, 31) - Utc(1890, 1, 1));
    const auto around = [&](time_t moment, int seconds) {
        return moment + random.Between(-seconds, seconds);
    };
    const time_t any = Utc(1890, 1, 1) + static_cast<time_t>(random.Below(span));
    switch (random.Below(8)) {
    case 0:
        return any;
    case 1: // the end of a year, in any zone
        return around(Utc(random.Between(1968, 2040), 1, 1), 2 * 86400);
    case 2: // where the count of seconds begins, and where 32 bits of it end
        return around(random.Chance(50) ? 0 : INT32_MAX, 3 * 86400);
    case 3:
    case 4: // a change of the clock: some days or seconds from it
        return around(ChangeAfter(Utc(random.Between(1975, 2036), random.Between(1, 12), 1)),
                      random.Chance(50) ? 7200 : 40 * 86400);
    case 5:
        return around(Utc(random.Between(1969, 2037), 3, 1), 3 * 86400); // leap days
    default:
        return Utc(1995, 1, 1) + static_cast<time_t>(random.Below(size_t{31557600} * 40));
    }
}

// ---- random stamps ----

std::string RandomNumber(Random &random, int least, int most)
{
    static constexpr std::array<const char *, 18> kOdd = {
        "",    "x",           "-",
        "+",   "+7",          "-3",
        "- 3", "2147483648",  "4294967296",
        "00",  "0x1",         "1e1",
        "-0",  "-2147483649", "9223372036854775807",
        "007", "1000000",     "18446744073709551616"};
    if (random.Chance(92)) {
        char text[16];
        snprintf(text, sizeof text, random.Chance(50) ? "%02d" : "%d", random.Between(least, most));
        return text;
    }
    if (random.Chance(50))
        return random.OneOf(kOdd);
    // Up to 30 digits.
    return (random.Chance(30) ? "-" : "") + random.Text(1 + random.Below(30), "0123456789");
}

std::string RandomBlank(Random &random)
{
    static constexpr std::array<const char *, 9> kOdd = {"",  "\t", "  ",   "\n",  "   ",
                                                         "-", "\v", "\xA0", "\f\r"};
    return random.Chance(94) ? " " : random.OneOf(kOdd);
}

std::string RandomColon(Random &random)
{
    static constexpr std::array<const char *, 6> kOdd = {"", " :", ": ", ".", "::", ":\t"};
    return random.Chance(96) ? ":" : random.OneOf(kOdd);
}

std::string RandomMonth(Random &random, const struct tm &now)
{
    static constexpr std::array<const char *, 12> kOdd = {
        "", "mar", "Sept", "March", "Marc", "M", "Mai", "JAN", "Dec7", "5", "J\xC4n", "Febr"};
    if (random.Chance(6))
        return random.OneOf(kOdd);
    const int back = random.Chance(85) ? random.Between(0, 1) : random.Between(0, 11);
    return kMonths[static_cast<size_t>((now.tm_mon + 12 - back) % 12)];
}

// A stamp near the clock, with odd pieces here and there.
std::string RandomStamp(Random &random, time_t clock)
{
    static constexpr std::array<const char *, 6> kTails = {"", " host x", "x", ":1", ".", " "};
    struct tm now {};
    localtime_r(&clock, &now);
    std::string stamp = random.Chance(5) ? RandomBlank(random) : "";
    stamp += RandomMonth(random, now) + RandomBlank(random);
    const bool is_close = random.Chance(50); // within the day and hour of the clock
    stamp += is_close ? std::to_string(now.tm_mday) : RandomNumber(random, 0, 40);
    stamp += RandomBlank(random);
    stamp += is_close ? RandomNumber(random, now.tm_hour - 2, now.tm_hour + 2)
                      : RandomNumber(random, 0, 30);
    stamp += RandomColon(random) + RandomNumber(random, 0, 62) + RandomColon(random) +
             RandomNumber(random, 0, 62) + random.OneOf(kTails);
    if (random.Chance(6)) // the line ends early
        stamp.resize(random.Below(stamp.size() + 1));
    if (random.Chance(3))
        stamp = Edited(random, stamp);
    return stamp;
}

// ---- the comparison ----

class StampTwin : public ModuleTest {
  protected:
    // Reads a stamp and notes what came of it.
    template <typename Read>
    static Outcome ReadBy(const std::string &stamp, time_t *moment, Read read)
    {
        BeginOutcome();
        *moment = kUntouched;
        NoteStep("result " + std::to_string(read(stamp.c_str(), moment)));
        return TakeOutcome();
    }

    // mktime has a memory: where a local time comes twice in the same half of the year (a zone that moved
    // west), it gives the moment that is nearer to what it was asked for before. Both are that local time.
    static bool AreTheSameLocalTime(time_t a, time_t b)
    {
        struct tm x {};
        struct tm y {};
        localtime_r(&a, &x);
        localtime_r(&b, &y);
        return x.tm_sec == y.tm_sec && x.tm_min == y.tm_min && x.tm_hour == y.tm_hour &&
               x.tm_mday == y.tm_mday && x.tm_mon == y.tm_mon && x.tm_year == y.tm_year &&
               x.tm_isdst == y.tm_isdst;
    }

    static void ExpectAsTwin(const std::string &stamp, LocalMoment *moment)
    {
        SCOPED_TRACE("stamp \"" + stamp + "\" at " + std::to_string(*Sys().now) + " in " +
                     getenv("TZ"));
        time_t slow = 0;
        time_t fast = 0;
        const Outcome expected = ReadBy(stamp, &slow, twin::GetSyslogTime);
        EXPECT_EQ("", Difference(expected, ReadBy(stamp, &fast, GetSyslogTime)));
        EXPECT_TRUE(slow == fast || (fast != kUntouched && AreTheSameLocalTime(slow, fast)))
            << "slow " << slow << ", fast " << fast;
        doubtful_ += slow != fast ? 1 : 0;

        const Outcome of_pass = ReadBy(stamp, &fast, [&](const char *text, time_t *time) {
            return GetSyslogTimeAt(moment, text, time, StampUse::kTime);
        });
        EXPECT_EQ("", Difference(expected, of_pass));
        EXPECT_TRUE(slow == fast || (fast != kUntouched && AreTheSameLocalTime(slow, fast)))
            << "slow " << slow << ", of a pass " << fast;

        const Outcome validity = ReadBy(stamp, &fast, [&](const char *text, time_t *time) {
            return GetSyslogTimeAt(moment, text, time, StampUse::kValidity);
        });
        EXPECT_EQ("", Difference(expected, validity));
        // An invalid time is written all the same.
        EXPECT_TRUE(fast == kUntouched || fast == slow) << "slow " << slow << ", validity " << fast;
        EXPECT_EQ(slow == -1, fast == -1);
    }

    static void ExpectSameHour(time_t t, unsigned mask, LocalMoment *moment)
    {
        SCOPED_TRACE("at " + std::to_string(t) + " in " + getenv("TZ"));
        BeginOutcome();
        const int slow = twin::OnTime(t, mask);
        const Outcome expected = TakeOutcome();
        BeginOutcome();
        EXPECT_EQ(slow, OnTime(t, mask));
        EXPECT_EQ("", Difference(expected, TakeOutcome()));
        BeginOutcome();
        EXPECT_EQ(slow, OnTimeAt(moment, t, mask));
        EXPECT_EQ("", Difference(expected, TakeOutcome()));
    }

    // Several stamps and hours of one pass, whose clock moves on.
    static void RunRound(Random &random)
    {
        ZoneGuard::Use(random.OneOf(Zones()).c_str());
        time_t clock = RandomClock(random);
        LocalMoment moment;
        for (int stamps = 0; stamps < 6; ++stamps) {
            if (random.Chance(40))
                clock += random.Between(0, random.Chance(50) ? 3 : 90000);
            Sys().now = clock;
            ExpectAsTwin(RandomStamp(random, clock), &moment);
            ExpectSameHour(clock + random.Between(0, 1), static_cast<unsigned>(random.Bits()),
                           &moment);
            if (HasFailure())
                return;
        }
    }

    ZoneGuard zone_;
    static inline int doubtful_ = 0; // stamps of which mktime could have made either of two moments
};

TEST_F(StampTwin, AgreesOnRandomStampsZonesAndClocks)
{
    doubtful_ = 0;
    Campaign("stamps", 15000).Run([](Random &random) { RunRound(random); });
    EXPECT_LT(doubtful_, 500) << "the exception is for rare cases";
}

// The conversion refuses a local time that never was, so the line that bears it matches nothing.
TEST_F(StampTwin, AgreesOnTimesLeftOutWhenAZoneMovedEast)
{
    ZoneGuard::Use(ZoneThatMoved().c_str());
    Sys().now = kMovedEast + 3600;
    LocalMoment moment;
    for (const char *stamp :
         {"May  4 23:29:59 x", "May  4 23:30:00 x", "May  4 23:59:59 x", "May  5 00:00:00 x",
          "May  5 00:59:00 x", "May  4 23:59:60 x", "May  4 23:45:7850 x", "May  4 22:00:5460 x",
          "May  4 22:100:00 x", "May  3 47:59:00 x", "May  4 23:29:60 x"})
        ExpectAsTwin(stamp, &moment);
    time_t untouched = kUntouched;
    EXPECT_EQ(FALSE,
              GetSyslogTimeAt(&moment, "May  4 23:45:00 x", &untouched, StampUse::kValidity));
    EXPECT_EQ(TRUE, GetSyslogTimeAt(&moment, "May  4 23:15:00 x", &untouched, StampUse::kValidity));
    EXPECT_EQ(TRUE, GetSyslogTimeAt(&moment, "May  5 00:15:00 x", &untouched, StampUse::kValidity));
}

// A country that moves east and begins summer time in the same night keeps its clocks, yet mktime tells the
// two times apart.
TEST_F(StampTwin, AgreesWhenSummerTimeBeginsWithoutMovingTheClock)
{
    const std::string zone =
        ZoneFile("renamed", MovedZone(3 * 3600, {{kMovedEast, 3 * 3600}}, true));
    ZoneGuard::Use(zone.c_str());
    for (const int side : {-3600, 3600}) {
        Sys().now = kMovedEast + side;
        LocalMoment moment;
        for (const char *stamp : {"May  4 17:59:59 x", "May  4 18:00:00 x", "May  4 12:00:00 x",
                                  "May  4 18:30:00 x", "Apr 10 12:00:00 x"})
            ExpectAsTwin(stamp, &moment);
    }
}

// From before a change of the clock to behind it, seen from both sides.
TEST_F(StampTwin, AgreesAroundChangesOfTheClock)
{
    for (const std::string &zone : Zones()) {
        ZoneGuard::Use(zone.c_str());
        for (const int year : {1972, 1996, 2014, 2024, 2025}) {
            const time_t change = ChangeAfter(Utc(year, 2, 1));
            for (const int side : {-2, 0, 1, 86400, -86400}) {
                Sys().now = change + side;
                LocalMoment moment;
                for (int minutes = -150; minutes <= 150; minutes += 10) {
                    const time_t stamp_at = change + (minutes * 60);
                    struct tm local {};
                    localtime_r(&stamp_at, &local);
                    char text[32];
                    strftime(text, sizeof text, "%b %e %H:%M:%S", &local);
                    ExpectAsTwin(text, &moment);
                    if (HasFailure())
                        return;
                }
            }
        }
    }
}

} // namespace
} // namespace test
