// Silences: which alerts they hold back, when, and what is told at their end.
#include "agent/policy/silence.h"

#include <cstdlib>
#include <ctime>

#include "agent/host/error.h"
#include "agent/policy/report_desk.h"
#include "agent/policy/silence_registry.h"
#include "platform/loader.h"
#include "tests/agent/support/report_test.h"

namespace {

using policy::ParseWindow;
using policy::Silence;
using policy::WindowText;

// Saturday, 2026-11-21, at midnight UTC.
constexpr int64_t kSaturday = 1795219200;
constexpr int64_t kHour = 3600;
constexpr int64_t kDay = 24 * kHour;

TEST(SilenceWindow, IsWrittenAndReadBack)
{
    for (const char *text :
         {"mon-fri 22:00-06:00", "sat,sun", "22:00-06:00", "02:30-03:00 UTC", "mon,wed,fri UTC",
          "mon-wed,sun 00:00-12:00", "00:00-24:00", "tue 12:00-24:00", "sat Europe/Berlin",
          "22:00-06:00 America/Argentina/Buenos_Aires", "mon Etc/GMT+5"})
        EXPECT_EQ(text, WindowText(ParseWindow(text)));
    EXPECT_EQ("mon,fri-sun", WindowText(ParseWindow("fri-mon"))) << "over the end of the week";
    EXPECT_EQ("00:00-24:00", WindowText(ParseWindow("mon-sun")));
}

TEST(SilenceWindow, OfAnotherFormIsRefusedAndTheErrorSaysWhatIsAllowed)
{
    for (const char *text :
         {"", "monday", "mon-", "mon,", "25:00-26:00", "10:60-11:00", "10:00", "1:00-2:00",
          "mon tue", "10:00-11:00 12:00-13:00", "UTC", "10:00-11:00 UTC UTC", "10:00-11:00 mon",
          "Monday 10:00-11:00", "UTC mon", "mon Europe,Berlin", "mon :localtime", "mon ../UTC"}) {
        const std::string error = test::ErrorOf([&] { ParseWindow(text); });
        EXPECT_NE(std::string::npos, error.find("write days and hours, such as")) << text << error;
    }
}

TEST(SilenceWindow, HoldsOnItsDaysFromItsBeginToItsEnd)
{
    const auto window = ParseWindow("sat 10:00-12:00 UTC");
    EXPECT_FALSE(window.Holds(kSaturday + 10 * kHour - 1));
    EXPECT_TRUE(window.Holds(kSaturday + 10 * kHour));
    EXPECT_TRUE(window.Holds(kSaturday + 12 * kHour - 1));
    EXPECT_FALSE(window.Holds(kSaturday + 12 * kHour));
    EXPECT_FALSE(window.Holds(kSaturday + kDay + 11 * kHour));
    EXPECT_TRUE(window.Holds(kSaturday + 7 * kDay + 11 * kHour));
}

TEST(SilenceWindow, PastMidnightBelongsToTheDayOnWhichItBegan)
{
    const auto window = ParseWindow("fri 22:00-06:00 UTC");
    EXPECT_FALSE(window.Holds(kSaturday - 2 * kHour - 1));
    EXPECT_TRUE(window.Holds(kSaturday - kHour));
    EXPECT_TRUE(window.Holds(kSaturday + 6 * kHour - 1));
    EXPECT_FALSE(window.Holds(kSaturday + 6 * kHour));
    EXPECT_FALSE(window.Holds(kSaturday + 23 * kHour)) << "that is Saturday's evening";
}

TEST(SilenceWindow, IsOfTheZoneOfTheHostUnlessItSaysUtc)
{
    setenv("TZ", "UTC-9", 1); // nine hours east
    tzset();
    EXPECT_TRUE(ParseWindow("sat 09:00-10:00").Holds(kSaturday));
    EXPECT_FALSE(ParseWindow("sat 09:00-10:00 UTC").Holds(kSaturday));
    unsetenv("TZ");
    tzset();
}

TEST(SilenceWindow, OfAnUnknownZoneIsRefusedAndTheErrorNamesTheOneThatIsMeant)
{
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"Europe/Berlinn", "did you mean Europe/Berlin? "},
        {"europe/berlin", "did you mean Europe/Berlin? "},
        {"Berlin", "did you mean Europe/Berlin? "},
        {"new_york", "did you mean America/New_York? "},
        {"utc", "did you mean UTC? "},
        {"America/NewYork", "did you mean America/New_York? "},
        {"Nowhere/Atall", "this host has none of that name; use a name such as"},
    };
    for (const auto &[zone, words] : rows) {
        const std::string error = test::ErrorOf([&] { ParseWindow("mon " + zone); });
        EXPECT_NE(std::string::npos, error.find("cannot use the time zone \"" + zone + "\""))
            << error;
        EXPECT_NE(std::string::npos, error.find(words)) << error;
    }
    // What the library takes, and is no name of a zone everywhere.
    for (const char *zone : {"localtime", "posixrules", "posix/UTC", "Europe"})
        EXPECT_NE("", test::ErrorOf([&] { ParseWindow(std::string("mon ") + zone); })) << zone;
}

TEST(SilenceWindow, OfAZoneFollowsItsClocksWhateverTheZoneOfTheHost)
{
    setenv("TZ", "UTC-9", 1);
    tzset();
    const auto window = ParseWindow("sat 09:00-10:00 Europe/Berlin");
    EXPECT_FALSE(window.Holds(kSaturday + 8 * kHour - 1));
    EXPECT_TRUE(window.Holds(kSaturday + 8 * kHour)) << "in winter an hour before UTC";
    EXPECT_FALSE(window.Holds(kSaturday + 9 * kHour));
    constexpr int64_t kSaturdayOfJuly = 1784332800; // 2026-07-18
    EXPECT_TRUE(window.Holds(kSaturdayOfJuly + 7 * kHour)) << "in summer two";
    EXPECT_FALSE(window.Holds(kSaturdayOfJuly + 8 * kHour));
    // 2045-07-15, behind the last change of clocks that zone files list one by one.
    constexpr int64_t kSaturdayOf2045 = 2383689600;
    EXPECT_TRUE(window.Holds(kSaturdayOf2045 + 7 * kHour));
    EXPECT_FALSE(window.Holds(kSaturdayOf2045 + 8 * kHour));
    // The day is the zone's, too: in Auckland it begins while it is Friday's noon in UTC.
    EXPECT_TRUE(ParseWindow("sat Pacific/Auckland").Holds(kSaturday - 11 * kHour));
    EXPECT_FALSE(ParseWindow("sat Pacific/Auckland").Holds(kSaturday + 12 * kHour));
    unsetenv("TZ");
    tzset();
}

TEST(SilenceWindow, HasNoneOfAnHourThatIsLeftOutAndTwiceOneThatIsRepeated)
{
    constexpr int64_t kSpring = 1774746000; // 2026-03-29 01:00 UTC: 02:00 in Berlin becomes 03:00
    const auto left_out = ParseWindow("sun 02:00-03:00 Europe/Berlin");
    for (int64_t time = kSpring - 2 * kHour; time < kSpring + 2 * kHour; time += 60)
        EXPECT_FALSE(left_out.Holds(time)) << time - kSpring;
    const auto half = ParseWindow("sun 02:30-03:30 Europe/Berlin");
    EXPECT_FALSE(half.Holds(kSpring - 1));
    EXPECT_TRUE(half.Holds(kSpring));
    EXPECT_TRUE(half.Holds(kSpring + kHour / 2 - 1));
    EXPECT_FALSE(half.Holds(kSpring + kHour / 2));

    constexpr int64_t kAutumn = 1792890000; // 2026-10-25 01:00 UTC: 03:00 becomes 02:00 again
    const auto repeated = ParseWindow("sun 02:15-02:45 Europe/Berlin");
    for (const int64_t begin : {kAutumn - 3 * kHour / 4, kAutumn + kHour / 4}) {
        EXPECT_FALSE(repeated.Holds(begin - 1));
        EXPECT_TRUE(repeated.Holds(begin));
        EXPECT_TRUE(repeated.Holds(begin + kHour / 2 - 1));
        EXPECT_FALSE(repeated.Holds(begin + kHour / 2));
    }
    // The night from Saturday is an hour longer.
    const auto night = ParseWindow("sat 22:00-06:00 Europe/Berlin");
    int hours = 0;
    for (int64_t time = kAutumn - 12 * kHour; time < kAutumn + 12 * kHour; time += kHour)
        hours += night.Holds(time) ? 1 : 0;
    EXPECT_EQ(9, hours);
}

TEST(SilenceWindow, StoredWithAZoneThatIsGoneHoldsNothing)
{
    const auto window = policy::ParseStoredWindow("sat Europe/Berlinn");
    EXPECT_FALSE(window.HasZone());
    EXPECT_FALSE(window.Holds(kSaturday + 12 * kHour));
    EXPECT_EQ("sat Europe/Berlinn", WindowText(window));
    EXPECT_TRUE(policy::ParseStoredWindow("sat Europe/Berlin").HasZone());
}

TEST(SilenceWindow, AWholeDayIsOneFromMidnightToMidnight)
{
    const auto window = ParseWindow("sat UTC");
    EXPECT_FALSE(window.Holds(kSaturday - 1));
    EXPECT_TRUE(window.Holds(kSaturday));
    EXPECT_TRUE(window.Holds(kSaturday + kDay - 1));
    EXPECT_FALSE(window.Holds(kSaturday + kDay));
}

// ---- in a pass ----

class SilenceDesk : public test::ReportTest {
  protected:
    // A line begins with its time in seconds, and its host.
    SilenceDesk()
    {
        test::TheHost().SetReportSource([](const std::string &line) {
            const size_t begin = line.find(' ') + 1;
            return host::ReportSource{
                line, "log", line.substr(begin, line.find(' ', begin) - begin), "prog", ""};
        });
    }
    uint32_t Add(Silence silence)
    {
        return policy::AddSilence(test::Store(), test::Registry(), silence, Now());
    }
    static Silence For(int64_t seconds)
    {
        Silence silence;
        silence.begin_s = Now() - 1000;
        silence.end_s = Now() + seconds;
        return silence;
    }
    static int64_t Now() { return time(nullptr); }
    void ReportAt(int64_t time_s, const std::string &host = "web1")
    {
        Report("DISK", 1, (std::to_string(time_s) + " " + host + " a line").c_str());
    }
    std::vector<uint32_t> Marks()
    {
        std::vector<uint32_t> marks;
        for (const alerts::Alert &alert : Stored())
            marks.push_back(alert.silence);
        return marks;
    }

    policy::ReportDesk desk_{test::TheHost(), [](const std::string &line) {
                                 return std::optional<int64_t>(std::stoll(line));
                             }};
};

using Numbers = std::vector<uint32_t>;

TEST_F(SilenceDesk, AnAlertIsStoredAndMarked)
{
    Silence silence = For(3600);
    silence.host = "web*";
    const uint32_t number = Add(silence);
    ReportAt(Now());
    ReportAt(Now(), "db1");
    EXPECT_EQ((Numbers{number, 0}), Marks());
}

TEST_F(SilenceDesk, TheTimeOfTheLineDecidesAndNotThatOfItsReading)
{
    const uint32_t number = Add(For(3600));
    ReportAt(Now() - 2000); // before it began
    ReportAt(Now() - 500);
    ReportAt(Now() + 3700); // behind its end
    EXPECT_EQ((Numbers{0, number, 0}), Marks());
}

TEST_F(SilenceDesk, OnlyTheEventThatItNamesIsHeldBack)
{
    Silence silence = For(3600);
    silence.source = "DI?K";
    silence.event_id = 2;
    Add(silence);
    ReportAt(Now());
    silence.event_id = 1;
    const uint32_t number = Add(silence);
    test::Store().CommitPass();
    ReportAt(Now());
    EXPECT_EQ((Numbers{0, number}), Marks());
}

TEST(SilenceLabels, EachMustMatchAndOneThatIsNotThereIsEmpty)
{
    alerts::Alert alert;
    alert.labels = {{"team", "db"}, {"tier", "web1"}};
    const auto matches = [&](const std::string &labels) {
        Silence silence;
        silence.labels = policy::ParseLabels(labels);
        return silence.Matches(alert);
    };
    for (const char *labels : {"", "team=db", "team=d?", "team=db,tier=web*", "site="})
        EXPECT_TRUE(matches(labels)) << labels;
    for (const char *labels : {"team=DB", "team=db,tier=app*", "site=*x", "team="})
        EXPECT_FALSE(matches(labels)) << labels;
}

TEST_F(SilenceDesk, OneThatIsEndedHoldsBackNothingMore)
{
    const uint32_t number = Add(For(3600));
    ReportAt(Now());
    policy::EndSilence(test::Store(), test::Registry(), number, Now() - 1);
    test::Store().CommitPass();
    ReportAt(Now());
    EXPECT_EQ((Numbers{number, 0}), Marks());
    EXPECT_NE("no error", test::ErrorOf([&] {
                  policy::EndSilence(test::Store(), test::Registry(), number, Now());
              }));
}

TEST_F(SilenceDesk, WhatIsHeldBackIsCountedAndToldOfOnceAtTheEndIfThatIsWished)
{
    Silence silence = For(3600);
    silence.wants_summary = true;
    silence.comment = "disks are changed";
    const uint32_t number = Add(silence);
    for (int i = 0; i < 3; ++i)
        ReportAt(Now() - 100 + i);
    desk_.Save();
    EXPECT_EQ(3U, Stored().size()) << "it still holds";
    policy::EndSilence(test::Store(), test::Registry(), number, Now() - 1);
    desk_.Save();
    desk_.Save();
    const auto stored = Stored();
    ASSERT_EQ(4U, stored.size());
    const alerts::Alert &summary = stored.back();
    EXPECT_EQ("SYSLOGMON", summary.source);
    EXPECT_EQ(0U, summary.silence);
    EXPECT_EQ("the silence 1 (disks are changed) held back 3 alerts of 3 hits; syslogmon alerts "
              "--silenced shows them",
              summary.message);
    EXPECT_EQ(3, summary.held_back.hits);
    EXPECT_EQ((Now() - summary.held_back.first_ms / 1000) / 50, 2) << "a hundred seconds ago";
}

TEST_F(SilenceDesk, WithoutThatWishNothingIsTold)
{
    const uint32_t number = Add(For(3600));
    ReportAt(Now());
    policy::EndSilence(test::Store(), test::Registry(), number, Now() - 1);
    desk_.Save();
    EXPECT_EQ(1U, Stored().size());
}

TEST_F(SilenceDesk, AnAlertThatTakesInHeldBackReportsHasTheFirstOfThemAndTheLast)
{
    alerts::Alert alert;
    alert.source = "DISK";
    const int64_t id = alerts::AddAlert(test::Store(), alert);
    for (int i = 1; i <= 4; ++i) {
        alert.held_back = {};
        if (i < 4) // the last one has held back nothing
            alert.held_back = {1,
                               2,
                               i * 1000,
                               i * 1000 + 500,
                               "first " + std::to_string(i),
                               "last " + std::to_string(i)};
        alerts::FoldInto(test::Store(), id, alert);
    }
    const alerts::HeldBack held = Stored().at(0).held_back;
    EXPECT_EQ(3, held.reports);
    EXPECT_EQ(6, held.hits);
    EXPECT_EQ(1000, held.first_ms);
    EXPECT_EQ("first 1", held.first);
    EXPECT_EQ(3500, held.last_ms);
    EXPECT_EQ("last 3", held.last);
}

TEST_F(SilenceDesk, WhatOneHasHeldBackGoesWithIt)
{
    const uint32_t number = Add(For(3600));
    ReportAt(Now());
    EXPECT_EQ(1U, policy::ReadSilenceHeld(test::Store().database()).count(number));
    policy::EndSilence(test::Store(), test::Registry(), number, Now() - 40 * kDay);
    Add(For(3600));
    EXPECT_EQ(0U, policy::ReadSilenceHeld(test::Store().database()).count(number));
}

TEST_F(SilenceDesk, NumbersAreNeverUsedAgain)
{
    const uint32_t first = Add(For(3600));
    Silence old = For(0);
    old.end_s = Now() - 40 * kDay;
    const uint32_t second = Add(old);
    const uint32_t third = Add(For(3600)); // the second goes
    EXPECT_EQ(first + 1, second);
    EXPECT_EQ(first + 2, third);
    EXPECT_EQ(2U, policy::ReadSilences(test::Registry()).size());
}

TEST_F(SilenceDesk, IsReadBackAsItWasAdded)
{
    Silence silence = For(3600);
    silence.source = "DISK*";
    silence.host = "web[12]";
    silence.event_id = 0x1A2B;
    silence.window = ParseWindow("mon-fri 22:00-06:00 UTC");
    silence.wants_summary = true;
    silence.comment = "why";
    silence.author = "who";
    silence.number = Add(silence);
    EXPECT_EQ((std::vector<Silence>{silence}), policy::ReadSilences(test::Registry()));
}

} // namespace
