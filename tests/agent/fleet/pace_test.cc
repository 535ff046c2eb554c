// How often something may be done at the servers.
#include "agent/nats/pace.h"

#include <gtest/gtest.h>

namespace {

using nats::Pace;
using std::chrono::milliseconds;
using std::chrono::seconds;

// How often within a span, by whoever would do it at each millisecond.
int CountWithin(Pace &pace, Pace::Clock::time_point &now, seconds span)
{
    int count = 0;
    for (const auto end = now + span; now < end; now += milliseconds(1)) {
        if (pace.Next() > now)
            continue;
        pace.Take(now);
        ++count;
    }
    return count;
}

TEST(Pace, SomeTimesAtOnceAndThenOnceInItsSpan)
{
    Pace pace(20, seconds(1));
    auto now = Pace::Clock::now();
    EXPECT_EQ(20 + 9, CountWithin(pace, now, seconds(10)));
    EXPECT_EQ(10, CountWithin(pace, now, seconds(10)));
}

TEST(Pace, WhatRestsComesBackAndNoMoreThanThat)
{
    Pace pace(20, seconds(1));
    auto now = Pace::Clock::now();
    CountWithin(pace, now, seconds(10));
    now += seconds(5);
    EXPECT_EQ(5 + 1, CountWithin(pace, now, seconds(1)));
    now += seconds(1000);
    EXPECT_EQ(20, CountWithin(pace, now, seconds(1)));
}

TEST(Pace, OfOneTimeIsAPauseAfterEach)
{
    Pace pace(1, milliseconds(2));
    auto now = Pace::Clock::now();
    EXPECT_EQ(500, CountWithin(pace, now, seconds(1)));
}

} // namespace
