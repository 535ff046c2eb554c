#include "agent/sinks/backoff.h"

#include <set>

#include <gtest/gtest.h>

namespace {

using sinks::Backoff;
using std::chrono::milliseconds;

TEST(Backoff, GrowsFromOneSecondToFiveMinutes)
{
    Backoff backoff({});
    int64_t smallest = 1000;
    for (int failure = 0; failure < 60; ++failure) {
        const int64_t pause = backoff.Next().count();
        EXPECT_GE(pause, smallest) << failure;
        EXPECT_LE(pause, smallest * 3 / 2) << failure;
        smallest = std::min<int64_t>(smallest * 2, 200000);
    }
}

TEST(Backoff, NeverPassesTheLongest)
{
    Backoff backoff({milliseconds(1000), milliseconds(5000)});
    for (int failure = 0; failure < 1000; ++failure)
        EXPECT_LE(backoff.Next().count(), 5000);
}

TEST(Backoff, IsNotTheSameForAllHostsWhenItIsLongest)
{
    std::set<int64_t> pauses;
    for (int host = 0; host < 50; ++host) {
        Backoff backoff({});
        for (int failure = 0; failure < 40; ++failure)
            backoff.Next();
        pauses.insert(backoff.Next().count());
    }
    EXPECT_GT(pauses.size(), 10U);
}

TEST(Backoff, BeginsAnewAfterASuccess)
{
    Backoff backoff({});
    for (int failure = 0; failure < 8; ++failure)
        backoff.Next();
    backoff.Reset();
    EXPECT_LE(backoff.Next().count(), 1500);
}

TEST(Backoff, IsNotTheSameForAllHosts)
{
    std::set<int64_t> pauses;
    for (int host = 0; host < 50; ++host)
        pauses.insert(Backoff({}).Next().count());
    EXPECT_GT(pauses.size(), 10U);
}

} // namespace
