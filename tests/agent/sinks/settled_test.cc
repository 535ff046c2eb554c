// What may leave the store although servers could still lose it: nothing that was delivered in the last ten minutes.
#include <gtest/gtest.h>

#include "agent/sinks/settled.h"

namespace {

using sinks::Settled;
using std::chrono::minutes;
using std::chrono::seconds;

const Settled::Clock::time_point kStart{};

TEST(Settled, WhatWasDeliveredLatelyStays)
{
    Settled settled;
    settled.Note(kStart, 10);
    EXPECT_EQ(0, settled.UpTo(kStart)); // nothing is known of the time before
    settled.Note(kStart + minutes(5), 20);
    settled.Note(kStart + minutes(11), 30);
    EXPECT_EQ(10, settled.UpTo(kStart + minutes(11)));
    settled.Note(kStart + minutes(16), 40);
    EXPECT_EQ(20, settled.UpTo(kStart + minutes(16)));
}

TEST(Settled, WhatIsWaitingForItsFirstDeliveryHoldsUpNothing)
{
    Settled settled;
    settled.Note(kStart, 10);
    settled.Note(kStart + minutes(30), 10);
    EXPECT_EQ(INT64_MAX, settled.UpTo(kStart + minutes(30)));
}

// Its servers have lost their disks: what they are sent again is in the store alone until they have it.
TEST(Settled, WhatTheReceiverHasLostStaysWhileItIsSentAgain)
{
    Settled settled;
    settled.Note(kStart, 10);
    settled.Note(kStart + minutes(11), 30);
    EXPECT_EQ(10, settled.UpTo(kStart + minutes(11)));
    settled.Note(kStart + minutes(12), 5);
    EXPECT_EQ(5, settled.UpTo(kStart + minutes(12)));
    settled.Note(kStart + minutes(15), 25);
    EXPECT_EQ(5, settled.UpTo(kStart + minutes(15)));
    settled.Note(kStart + minutes(24), 30);
    EXPECT_EQ(5, settled.UpTo(kStart + minutes(24)));
    settled.Note(kStart + minutes(26), 30);
    EXPECT_EQ(25, settled.UpTo(kStart + minutes(26)));
}

// Then they are down, and what waits for them is as what waits for any other receiver.
TEST(Settled, WhatTheReceiverHasLostAndIsNotSentAgainInTimeHoldsUpNothing)
{
    Settled settled;
    settled.Note(kStart, 10);
    settled.Note(kStart + minutes(11), 5);
    settled.Note(kStart + minutes(20), 5);
    EXPECT_EQ(5, settled.UpTo(kStart + minutes(20)));
    settled.Note(kStart + minutes(22), 5);
    EXPECT_EQ(INT64_MAX, settled.UpTo(kStart + minutes(22)));
}

TEST(Settled, ManyDeliveriesAreRememberedInSteps)
{
    Settled settled;
    for (int second = 0; second <= 3600; ++second)
        settled.Note(kStart + seconds(second), second);
    const int64_t settled_to = settled.UpTo(kStart + seconds(3600));
    EXPECT_GE(settled_to, 2980);
    EXPECT_LE(settled_to, 3000);
}

} // namespace
