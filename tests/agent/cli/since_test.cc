// Since when: the forms in which a moment is typed.
#include "agent/cli/since.h"

#include <cstdlib>

#include "tests/agent/support/host_test.h"

namespace {

using cli::ParseSince;

// 2026-11-21 10:00:00 UTC, a Saturday.
constexpr time_t kNow = 1795255200;

class Since : public testing::Test {
  protected:
    Since() { SetZone("UTC"); }
    ~Since() override
    {
        unsetenv("TZ");
        tzset();
    }
    static void SetZone(const char *zone)
    {
        setenv("TZ", zone, 1);
        tzset();
    }
    // Seconds before now.
    static int64_t Ago(const std::string &text) { return kNow - ParseSince(text, kNow) / 1000; }
};

TEST_F(Since, AWhileHasEachUnitOnceTheLongestFirst)
{
    EXPECT_EQ(90, Ago("90s"));
    EXPECT_EQ(5400, Ago("1h30m"));
    EXPECT_EQ(93784, Ago("1d2h3m4s"));
    EXPECT_EQ(0, Ago("0s"));
    for (const char *text : {"30m1h", "1h1h", "1h30", "h", "", "-1h", "1y", "99999999d"})
        EXPECT_EQ(std::string("cannot use the time \"") + text +
                      "\": its form is not known; write 10m, 1h30m, 1d, 10:00, yesterday or "
                      "\"2026-11-21 10:00\"",
                  test::ErrorOf([&] { ParseSince(text, kNow); }));
}

TEST_F(Since, AClockTimeIsTheLastOne)
{
    EXPECT_EQ(0, Ago("10:00"));
    EXPECT_EQ(1800, Ago("09:30"));
    EXPECT_EQ(1770, Ago("9:30:30"));
    EXPECT_EQ(86400 - 60, Ago("10:01")) << "of yesterday: today it is still to come";
}

TEST_F(Since, DaysBeginAtMidnightOfTheHost)
{
    EXPECT_EQ(36000, Ago("today"));
    EXPECT_EQ(36000 + 86400, Ago("yesterday"));
    EXPECT_EQ(36000, Ago("2026-11-21"));
    SetZone("JST-9");
    EXPECT_EQ(36000 + 9 * 3600, Ago("today"));
}

TEST_F(Since, ADateMayHaveATAndAZone)
{
    for (const char *text :
         {"2026-11-21 09:00", "2026-11-21T09:00", "2026-11-21T09:00:00Z",
          "2026-11-21T09:00:00.123Z", "2026-11-21T09:00:00.123", "2026-11-21 09:00:00,123",
          "2026-11-21T10:00+01:00", "2026-11-21T03:30:00-0530"})
        EXPECT_EQ(3600, Ago(text)) << text;
}

} // namespace
