// Random lives of a log, against the oracle (model.h). See docs/histories.md.
//
//   SYSLOGMON_HISTORY_SECONDS  how long each of the two campaigns runs
//   SYSLOGMON_HISTORY_SEED     where it begins; with a time of 0 seconds, this history alone is run
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "tests/history/life.h"
#include "tests/support/module_test.h"

namespace history {
namespace {

constexpr int kSeconds = 10;

uint64_t NumberFrom(const char *variable, uint64_t otherwise)
{
    const char *text = getenv(variable);
    return text != nullptr ? strtoull(text, nullptr, 10) : otherwise;
}

void RunCampaign(bool is_faithful)
{
    const uint64_t first = NumberFrom("SYSLOGMON_HISTORY_SEED", 1);
    const auto seconds = static_cast<double>(NumberFrom("SYSLOGMON_HISTORY_SECONDS", kSeconds));
    const test::TempDir log_dir;
    const auto begin = std::chrono::steady_clock::now();
    const auto elapsed = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    };
    uint64_t count = 0;
    uint64_t steps = 0;
    uint64_t wakes = 0;
    uint64_t alerts = 0;
    do {
        const uint64_t seed = first + count++;
        const History history = Generate(seed, is_faithful);
        const Outcome outcome = Run(history, log_dir.path());
        steps += history.steps.size();
        wakes += static_cast<uint64_t>(outcome.wakes);
        alerts += static_cast<uint64_t>(outcome.alerts);
        ASSERT_FALSE(outcome.failed) << Explain(history, seed, log_dir.path());
    } while (elapsed() < seconds);
    printf(
        "%llu histories from seed %llu, %llu steps, %llu wakes, %llu reports, %.0f histories/s\n",
        static_cast<unsigned long long>(count), static_cast<unsigned long long>(first),
        static_cast<unsigned long long>(steps), static_cast<unsigned long long>(wakes),
        static_cast<unsigned long long>(alerts), static_cast<double>(count) / elapsed());
    EXPECT_GT(alerts, 0U);
}

TEST(Histories, WithoutTheKnownLossesEachLineCountsExactlyOnce)
{
    RunCampaign(true);
}

TEST(Histories, OfAnyKindGoAsTheOracleSays)
{
    RunCampaign(false);
}

} // namespace
} // namespace history
