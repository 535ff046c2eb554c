// Who sends more than it should, by the servers' clock.
#include <gtest/gtest.h>

#include "agent/fleet/flood_watch.h"

namespace {

using fleet::FloodWatch;

constexpr int64_t kBegin = 1795222800000; // a span begins with it
static_assert(kBegin % FloodWatch::kSpanMs == 0);

class FloodWatchTest : public testing::Test {
  protected:
    // How often it is told of, when so many messages come at one moment.
    int Told(const std::string &uuid, int64_t messages, int64_t stored_ms)
    {
        int told = 0;
        for (int64_t i = 0; i < messages; ++i)
            told += watch_.Count(uuid, stored_ms) ? 1 : 0;
        return told;
    }

  private:
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
    EXPECT_EQ(0, Told("a", FloodWatch::kTooMany - 1, kBegin));
    EXPECT_EQ(0, Told("b", FloodWatch::kTooMany - 1, kBegin));
    EXPECT_EQ(1, Told("a", 1, kBegin));
    EXPECT_EQ(0, Told("a", 5 * FloodWatch::kTooMany, kBegin));
    EXPECT_EQ(0, Told("a", 5 * FloodWatch::kTooMany, kBegin + FloodWatch::kSpanMs));
    EXPECT_EQ(
        0, Told("a", FloodWatch::kTooMany, kBegin + FloodWatch::kToldForMs - FloodWatch::kSpanMs));
    EXPECT_EQ(1, Told("a", FloodWatch::kTooMany, kBegin + FloodWatch::kToldForMs));
}

TEST_F(FloodWatchTest, WhatHasWaitedForHoursAndIsTakenInAMomentIsNoFlood)
{
    for (int64_t second = 0; second < 7200; ++second)
        EXPECT_EQ(0, Told("a", 500, kBegin + second * 1000));
}

TEST_F(FloodWatchTest, WhatIsToldOfAHostComesTenTimesAtOnceAndThenOnceInAMinute)
{
    FloodWatch watch;
    const nats::Pace::Clock::time_point begin{std::chrono::hours(1)};
    const auto told = [&](const char *uuid, int times, std::chrono::seconds after) {
        int count = 0;
        for (int i = 0; i < times; ++i)
            count += watch.MayTell(uuid, begin + after) ? 1 : 0;
        return count;
    };
    EXPECT_EQ(10, told("a", 1000, std::chrono::seconds(0)));
    EXPECT_EQ(1, told("b", 1, std::chrono::seconds(0)));
    EXPECT_EQ(0, told("a", 1000, std::chrono::seconds(59)));
    EXPECT_EQ(1, told("a", 1000, std::chrono::seconds(60)));
    EXPECT_EQ(10, told("a", 1000, std::chrono::hours(1)));
}

} // namespace
