// Time stamps, beside sscanf and mktime. Input: zone, clock, stamp.
#include <cstdlib>
#include <ctime>

#include "fuzz/fuzz.h"
#include "stamp/syslog_time.h"
#include "tests/support/outcome.h"
#include "tests/support/system.h"
#include "tests/support/twin/matcher.h"

namespace {

constexpr const char *kZones[] = {"UTC0",
                                  "CET-1CEST,M3.5.0,M10.5.0/3",
                                  "AEST-10AEDT,M10.1.0,M4.1.0/3",
                                  "LHST-10:30LHDT-11,M10.1.0,M4.1.0",
                                  "<-03>3<-02>,M3.5.0/-2,M10.5.0/-1",
                                  ":America/New_York",
                                  ":Asia/Pyongyang",
                                  ":Africa/Casablanca"};
constexpr size_t kZoneCount = sizeof kZones / sizeof kZones[0];

constexpr time_t kYear1890 = -2524521600;
constexpr uint64_t kTwoCenturies = 6658934400; // in seconds: up to 2100

constexpr time_t kUntouched = 123456789;

bool AreTheSameLocalTime(time_t a, time_t b)
{
    struct tm x {};
    struct tm y {};
    localtime_r(&a, &x);
    localtime_r(&b, &y);
    return x.tm_sec == y.tm_sec && x.tm_min == y.tm_min && x.tm_hour == y.tm_hour &&
           x.tm_mday == y.tm_mday && x.tm_mon == y.tm_mon && x.tm_year == y.tm_year &&
           x.tm_isdst == y.tm_isdst;
}

void ExpectAsTwin(const test::Outcome &slow, const std::string &what)
{
    const std::string difference = test::Difference(slow, test::TakeOutcome());
    fuzz::Expect(difference.empty(), what + ": " + difference);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    fuzz::StartOver();
    setenv("TZ", kZones[input.Byte() % kZoneCount], 1);
    tzset();
    test::Sys().now = kYear1890 + static_cast<time_t>(input.Number(5) % kTwoCenturies);
    const std::string stamp = input.Rest();

    test::BeginOutcome();
    time_t slow = kUntouched;
    test::twin::GetSyslogTime(stamp.c_str(), &slow);
    const test::Outcome expected = test::TakeOutcome();

    test::BeginOutcome();
    time_t fast = kUntouched;
    GetSyslogTime(stamp.c_str(), &fast);
    ExpectAsTwin(expected, "GetSyslogTime");
    // Where a local time comes twice, mktime gives either.
    fuzz::Expect(slow == fast || AreTheSameLocalTime(slow, fast),
                 "slow " + std::to_string(slow) + ", fast " + std::to_string(fast));

    test::BeginOutcome();
    LocalMoment moment;
    fast = kUntouched;
    GetSyslogTimeAt(&moment, stamp.c_str(), &fast, StampUse::kValidity);
    ExpectAsTwin(expected, "validity");
    fuzz::Expect((slow == -1) == (fast == -1), "the invalid time is written");
    return 0;
}
