// What is counted for one value, beside a slow twin that keeps a list of all hits and evaluates it anew
// with each line.
#include "agent/policy/value_count.h"
#include "tests/agent/policy/count_twin.h"
#include "tests/agent/support/random_test.h"

namespace {

using policy::CountTerms;
using policy::Outcome;
using policy::ValueCount;
using Kind = Outcome::Kind;

Outcome Take(ValueCount *count, const CountTerms &terms, int64_t time_s, int64_t times = 1)
{
    const std::string line = "line of " + std::to_string(time_s);
    return count->Take(terms, {time_s, times, line});
}

TEST(ValueCount, WithoutAWindowHitsCountWheneverTheyCome)
{
    ValueCount count;
    const CountTerms terms = {3, 0, 0};
    EXPECT_EQ(Kind::kCounted, Take(&count, terms, 100).kind);
    EXPECT_EQ(2, Take(&count, terms, 1000000).hits);
    const Outcome third = Take(&count, terms, 5, 2);
    EXPECT_EQ(Kind::kReported, third.kind);
    EXPECT_EQ(4, third.hits);
    EXPECT_EQ(0, count.hits());
}

TEST(ValueCount, AWindowSlides)
{
    ValueCount count;
    const CountTerms terms = {3, 10, 0};
    EXPECT_EQ(1, Take(&count, terms, 100).hits);
    EXPECT_EQ(2, Take(&count, terms, 105).hits);
    // The first one is eleven seconds old.
    EXPECT_EQ(Kind::kCounted, Take(&count, terms, 111).kind);
    EXPECT_EQ(2, count.hits());
    // Exactly ten seconds are within ten seconds.
    const Outcome fourth = Take(&count, terms, 115);
    EXPECT_EQ(Kind::kReported, fourth.kind);
    EXPECT_EQ(3, fourth.hits);
    EXPECT_EQ(Kind::kCounted, Take(&count, terms, 115).kind);
}

TEST(ValueCount, CatchingUpAfterAnOutageMakesNoBurst)
{
    ValueCount count;
    const CountTerms terms = {3, 600, 0};
    // Read in one go, written an hour apart.
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(Kind::kCounted, Take(&count, terms, i * 3600).kind);
    EXPECT_EQ(1U, count.moments().size());
}

TEST(ValueCount, ALineThatComesLateCountsAmongThoseOfItsTime)
{
    ValueCount count;
    const CountTerms terms = {3, 10, 0};
    Take(&count, terms, 100);
    Take(&count, terms, 109);
    EXPECT_EQ(Kind::kReported, Take(&count, terms, 105).kind);
    // Not more than ten seconds in all, although each is near enough to the line in the middle.
    Take(&count, terms, 200);
    Take(&count, terms, 210);
    EXPECT_EQ(Kind::kCounted, Take(&count, terms, 201, 0).kind);
    Take(&count, terms, 300);
    Take(&count, terms, 308);
    EXPECT_EQ(Kind::kCounted, Take(&count, terms, 297).kind);
}

TEST(ValueCount, AClockThatIsPutBackByFarBeginsAnew)
{
    ValueCount count;
    const CountTerms terms = {2, 10, 60};
    EXPECT_EQ(Kind::kReported, Take(&count, terms, 10000, 2).kind);
    EXPECT_EQ(Kind::kHeldBack, Take(&count, terms, 9950, 2).kind);
    EXPECT_EQ(Kind::kReported, Take(&count, terms, 5000, 2).kind);
}

TEST(ValueCount, ACooldownHoldsBackAndTheNextReportTellsOfIt)
{
    ValueCount count;
    const CountTerms terms = {2, 0, 100};
    EXPECT_EQ(0, count.QuietUntil(terms));
    EXPECT_EQ(Kind::kReported, Take(&count, terms, 1000, 2).kind);
    EXPECT_EQ(1100, count.QuietUntil(terms));
    EXPECT_EQ(Kind::kHeldBack, Take(&count, terms, 1010, 2).kind);
    EXPECT_EQ(Kind::kCounted, Take(&count, terms, 1020).kind);
    EXPECT_EQ(Kind::kHeldBack, Take(&count, terms, 1099, 4).kind);
    const Outcome next = Take(&count, terms, 1100, 3);
    EXPECT_EQ(Kind::kReported, next.kind);
    EXPECT_EQ(3, next.hits);
    EXPECT_EQ((policy::HeldBack{2, 7, 1010, 1099, "line of 1010", "line of 1099"}), next.held_back);
    EXPECT_EQ(policy::HeldBack(), count.held_back());
}

TEST(ValueCount, OfALineThatIsHeldBackTheBeginningIsKept)
{
    ValueCount count;
    const CountTerms terms = {1, 0, 100};
    Take(&count, terms, 1000);
    const std::string line(4000, 'x');
    count.Take(terms, {1001, 1, line});
    EXPECT_EQ(512U, count.held_back().first.size());
    EXPECT_EQ(512U, count.held_back().last.size());
}

TEST(ValueCount, DecidesAsTheTwinDoes)
{
    test::RandomData random;
    for (int history = 0; history < 400; ++history) {
        const CountTerms terms = {static_cast<int64_t>(1 + random.Below(6)),
                                  static_cast<int64_t>(random.OneIn(4) ? 0 : 1 + random.Below(40)),
                                  static_cast<int64_t>(random.OneIn(2) ? 0 : 1 + random.Below(80))};
        ValueCount count;
        test::CountTwin twin(terms);
        int64_t time_s = 1000000;
        for (int i = 0; i < 120; ++i) {
            time_s = test::NextTime(random, time_s);
            const int64_t times = random.OneIn(5) ? static_cast<int64_t>(1 + random.Below(9)) : 1;
            const Outcome outcome = Take(&count, terms, time_s, times);
            ASSERT_EQ(twin.Take(time_s, times), test::Told(outcome))
                << "history " << history << ", line " << i
                << ", SYSLOGMON_TEST_SEED=" << random.seed();
        }
    }
}

} // namespace
