// Who sends more than it should, by the servers' clock.
#include <gtest/gtest.h>

#include "agent/fleet/flood_watch.h"

namespace {

using fleet::FloodCount;
using fleet::FloodWatch;

constexpr int64_t kBegin = 1795222800000; // a span begins with it
static_assert(kBegin % FloodCount::kSpanMs == 0);

class FloodWatchTest : public testing::Test {
  protected:
    // How often it is told of, when so many messages come at one moment.
    int Told(const std::string &uuid, int64_t messages, int64_t stored_ms)
    {
        int told = 0;
        FloodCount count = watch_.Of(uuid);
        for (int64_t i = 0; i < messages; ++i)
            told += count.Add(stored_ms) ? 1 : 0;
        watch_.Keep(uuid, count);
        watch_.Forget(stored_ms, kNow);
        return told;
    }

    static constexpr nats::Pace::Clock::time_point kNow{std::chrono::hours(1)};
    FloodWatch watch_;
};

TEST_F(FloodWatchTest, AHostThatSendsAtThePaceOfItsSinkIsNotToldOf)
{
    // All that it may send at once, and then 500 in each second.
    EXPECT_EQ(0, Told("a", 500, kBegin));
    for (int64_t second = 0; second < 60; ++second)
        EXPECT_EQ(0, Told("a", 500, kBegin + second * 1000));
}

TEST_F(FloodWatchTest, OneThatFloodsIsToldOfOnceInAnHourAndTheOthersAreNot)
{
    EXPECT_EQ(0, Told("a", FloodCount::kTooMany - 1, kBegin));
    EXPECT_EQ(0, Told("b", FloodCount::kTooMany - 1, kBegin));
    EXPECT_EQ(1, Told("a", 1, kBegin));
    EXPECT_EQ(0, Told("a", 5 * FloodCount::kTooMany, kBegin));
    EXPECT_EQ(0, Told("a", 5 * FloodCount::kTooMany, kBegin + FloodCount::kSpanMs));
    EXPECT_EQ(
        0, Told("a", FloodCount::kTooMany, kBegin + FloodCount::kToldForMs - FloodCount::kSpanMs));
    EXPECT_EQ(1, Told("a", FloodCount::kTooMany, kBegin + FloodCount::kToldForMs));
}

TEST_F(FloodWatchTest, WhatHasWaitedForHoursAndIsTakenInAMomentIsNoFlood)
{
    for (int64_t second = 0; second < 7200; ++second)
        EXPECT_EQ(0, Told("a", 500, kBegin + second * 1000));
}

TEST_F(FloodWatchTest, WhatIsToldOfAHostComesTenTimesAtOnceAndThenOnceInAMinute)
{
    FloodCount a;
    FloodCount b;
    const auto told = [&](FloodCount &host, int times, std::chrono::seconds after) {
        int count = 0;
        for (int i = 0; i < times; ++i)
            count += host.MayTell(kNow + after) ? 1 : 0;
        return count;
    };
    EXPECT_EQ(10, told(a, 1000, std::chrono::seconds(0)));
    EXPECT_EQ(1, told(b, 1, std::chrono::seconds(0)));
    EXPECT_EQ(0, told(a, 1000, std::chrono::seconds(59)));
    EXPECT_EQ(1, told(a, 1000, std::chrono::seconds(60)));
    EXPECT_EQ(10, told(a, 1000, std::chrono::hours(1)));
}

TEST_F(FloodWatchTest, OfHostsThatAreQuietAndOfWhichNothingWasToldNothingIsKept)
{
    for (int host = 0; host < 1000; ++host)
        Told("host " + std::to_string(host), 1, kBegin);
    Told("flooding", FloodCount::kTooMany, kBegin);
    FloodCount told;
    told.MayTell(kNow);
    watch_.Keep("told", told);
    EXPECT_EQ(1002U, watch_.size());
    Told("later", 1, kBegin + FloodCount::kSpanMs);
    EXPECT_EQ(3U, watch_.size()); // "flooding", "told" and "later"
    watch_.Forget(kBegin + 2 * FloodCount::kSpanMs, kNow + std::chrono::hours(1));
    EXPECT_EQ(1U, watch_.size());
    EXPECT_EQ(0, Told("flooding", FloodCount::kTooMany, kBegin + 2 * FloodCount::kSpanMs));
}

} // namespace
