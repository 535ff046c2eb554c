// Values apart from each other, and no more of them than there is room for.
#include "agent/policy/event_count.h"
#include "tests/agent/support/host_test.h"

namespace {

using policy::CountTerms;
using policy::EventCount;
using Kind = policy::Outcome::Kind;

TEST(EventCount, EachValueIsCountedApart)
{
    EventCount count(CountTerms{2, 10, 0});
    EXPECT_EQ(Kind::kCounted, count.Take("a", {100, 1, "x"}).kind);
    EXPECT_EQ(Kind::kCounted, count.Take("b", {101, 1, "x"}).kind);
    EXPECT_EQ(Kind::kReported, count.Take("a", {102, 1, "x"}).kind);
    EXPECT_EQ(Kind::kReported, count.Take("b", {103, 1, "x"}).kind);
}

TEST(EventCount, TheLeastRecentValueGoesAndItsHitsAreTold)
{
    EventCount count(CountTerms{10, 0, 0});
    for (size_t i = 0; i < EventCount::kMaxValues; ++i)
        count.Take("v" + std::to_string(i), {100, 1, "x"});
    count.Take("v0", {100, 2, "x"});
    EXPECT_EQ((EventCount::Dropped{0, 0}), count.dropped());
    count.Take("new", {100, 1, "x"});
    EXPECT_EQ((EventCount::Dropped{1, 1}), count.dropped());
    EXPECT_EQ(nullptr, count.Find("v1"));
    EXPECT_EQ(3, count.Find("v0")->count.hits());
}

// Sizes, not seconds: what is kept does not grow with the lines.
TEST(EventCount, AMillionHitsOverTenThousandValuesAndMoreStayInBounds)
{
    EventCount count(CountTerms{1000, 86400, 3600});
    for (int64_t i = 0; i < 1000000; ++i) {
        // Some values come again and again, others once.
        const int64_t value = i % 3 == 0 ? i : i % 10007;
        count.Take(std::to_string(value), {i, 1, "a line"});
        ASSERT_LE(count.entries().size(), EventCount::kMaxValues);
        ASSERT_LE(count.moments(), EventCount::kMaxMoments);
        ASSERT_LE(count.changes().used.size(), EventCount::kMaxValues);
        ASSERT_EQ(0U, count.changes().gone.size()); // none of them was stored yet
    }
    EXPECT_EQ(EventCount::kMaxValues, count.entries().size());
    EXPECT_LT(0, count.dropped().values);
}

TEST(EventCount, MomentsAreBoundedOverAllValues)
{
    EventCount count(CountTerms{10000, 86400, 0});
    for (int64_t i = 0; i < 40; ++i) {
        for (int64_t second = 0; second < 9000; ++second)
            count.Take("v" + std::to_string(i), {second, 1, "x"});
        ASSERT_LE(count.moments(), EventCount::kMaxMoments);
    }
    EXPECT_EQ(22U, count.entries().size());
    EXPECT_EQ((EventCount::Dropped{18, 18 * 9000}), count.dropped());
}

TEST(EventCount, OnlyStoredValuesThatWentHaveToBeRemoved)
{
    EventCount count(CountTerms{10, 0, 0});
    count.Take("stored", {1, 1, "x"});
    EXPECT_EQ(1U, count.TakeChanges().used.size());
    for (size_t i = 0; i < 3 * EventCount::kMaxValues; ++i)
        count.Take("v" + std::to_string(i), {1, 1, "x"});
    EXPECT_EQ(1U, count.changes().gone.count("stored"));
    EXPECT_EQ(1U, count.changes().gone.size());
    // It comes back: its row is written, not removed.
    count.Take("stored", {1, 1, "x"});
    EXPECT_EQ(0U, count.changes().gone.size());
    EXPECT_EQ(1U, count.changes().used.count("stored"));
}

} // namespace
