// How many messages a sink may send.
#include <gtest/gtest.h>

#include "agent/sinks/rate.h"

namespace {

using sinks::CheckRate;
using sinks::ParseRate;
using sinks::Rate;

constexpr int64_t kMoment = 1795222801000;

TEST(RateTest, IsANumberAndAUnitOrNone)
{
    for (const char *good : {"none", "1/s", "1000/s", "30/min", "12/h", "1/d"})
        EXPECT_EQ("", CheckRate(good)) << good;
    for (const char *bad :
         {"", "30", "30/", "/min", "0/min", "-1/min", "+1/min", "1.5/min", "30/minute", "30 /min",
          "1001/s", "99999999999999999999/d", "None", "30/min "})
        EXPECT_NE("", CheckRate(bad)) << bad;
    EXPECT_FALSE(ParseRate("none").IsBounded());
}

TEST(RateTest, AFullBucketHoldsAsManyAsTheRateSays)
{
    const Rate rate = ParseRate("30/min");
    int64_t full_ms = 0;
    for (int64_t left = 30; left > 0; --left) {
        EXPECT_EQ(left, rate.Tokens(full_ms, kMoment));
        full_ms = rate.WithoutOne(full_ms, kMoment);
    }
    EXPECT_EQ(0, rate.Tokens(full_ms, kMoment));
}

TEST(RateTest, TokensComeBackEvenly)
{
    const Rate rate = ParseRate("30/min");
    const int64_t empty = kMoment + 60000;
    EXPECT_EQ(kMoment + 2000, rate.NextToken(empty, kMoment));
    EXPECT_EQ(0, rate.Tokens(empty, kMoment + 1999));
    EXPECT_EQ(1, rate.Tokens(empty, kMoment + 2000));
    EXPECT_EQ(15, rate.Tokens(empty, kMoment + 30000));
    EXPECT_EQ(30, rate.Tokens(empty, kMoment + 60000));
    EXPECT_EQ(30, rate.Tokens(empty, kMoment + 9999999)) << "and no more than a bucket holds";
}

TEST(RateTest, WhoTakesFromAnEmptyBucketOwesNothing)
{
    const Rate rate = ParseRate("2/s");
    int64_t full_ms = 0;
    for (int i = 0; i < 50; ++i)
        full_ms = rate.WithoutOne(full_ms, kMoment);
    EXPECT_EQ(1, rate.Tokens(full_ms, kMoment + 500));
}

TEST(RateTest, AClockThatIsPutBackCostsOneBucketAtMost)
{
    const Rate rate = ParseRate("1/h");
    const int64_t of_tomorrow = kMoment + 86400000;
    EXPECT_EQ(0, rate.Tokens(of_tomorrow, kMoment));
    EXPECT_EQ(kMoment + 3600000, rate.NextToken(of_tomorrow, kMoment));
}

TEST(RateTest, WithoutABoundThereIsAlwaysAToken)
{
    const Rate rate;
    EXPECT_GT(rate.Tokens(rate.WithoutOne(0, kMoment), kMoment), 1000000);
}

} // namespace
