// Random lives of a log, against the oracle (model.h). See docs/histories.md.
//
//   SYSLOGMON_HISTORIES     how many histories each of the two campaigns goes through
//   SYSLOGMON_HISTORY_SEED  the first of them; they are numbered, and each is the same in every run
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "tests/history/life.h"
#include "tests/history/shrink.h"
#include "tests/support/module_test.h"

namespace history {
namespace {

constexpr uint64_t kHistories = 6000;

uint64_t NumberFrom(const char *variable, uint64_t otherwise)
{
    const char *text = getenv(variable);
    return text != nullptr ? strtoull(text, nullptr, 10) : otherwise;
}

void RunCampaign(const std::function<History(uint64_t seed)> &generate)
{
    const uint64_t first = NumberFrom("SYSLOGMON_HISTORY_SEED", 1);
    const uint64_t count = NumberFrom("SYSLOGMON_HISTORIES", kHistories);
    const test::TempDir log_dir;
    uint64_t steps = 0;
    uint64_t wakes = 0;
    uint64_t alerts = 0;
    for (uint64_t seed = first; seed - first < count; ++seed) {
        const History history = generate(seed);
        const Outcome outcome = Run(history, log_dir.path());
        steps += history.steps.size();
        wakes += static_cast<uint64_t>(outcome.wakes);
        alerts += static_cast<uint64_t>(outcome.alerts);
        ASSERT_FALSE(outcome.failed) << Explain(history, seed, log_dir.path());
    }
    printf("%llu histories from seed %llu, %llu steps, %llu wakes, %llu reports\n",
           static_cast<unsigned long long>(count), static_cast<unsigned long long>(first),
           static_cast<unsigned long long>(steps), static_cast<unsigned long long>(wakes),
           static_cast<unsigned long long>(alerts));
    EXPECT_TRUE(alerts > 0 || count == 1); // a history may have none
}

TEST(Histories, WithoutTheKnownLossesEachLineCountsExactlyOnce)
{
    RunCampaign([](uint64_t seed) { return Generate(seed, true); });
}

TEST(Histories, OfAnyKindGoAsTheOracleSays)
{
    RunCampaign([](uint64_t seed) { return Generate(seed, false); });
}

TEST(Histories, WhereNothingIsEditedEachByteIsReadOrToldOf)
{
    RunCampaign(GenerateUnedited);
}

} // namespace
} // namespace history
