// All short histories: every order of a few steps, and in each, in the middle of each pass, whatever the other side can do.
// What chance may never draw is here, as long as it takes few steps. See docs/histories.md.
//
//   SYSLOGMON_SHORT_HISTORIES  up to how many steps, all of them with interruptions
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>

#include "tests/history/life.h"
#include "tests/history/shrink.h"
#include "tests/history/slow_clock.h"
#include "tests/support/module_test.h"

namespace history {
namespace {

// So many steps take seconds. An interruption makes some fifty histories of each.
constexpr size_t kSteps = 3;
constexpr size_t kStepsInterrupted = 1;

size_t StepsOr(size_t otherwise)
{
    const char *text = getenv("SYSLOGMON_SHORT_HISTORIES");
    return text != nullptr ? strtoul(text, nullptr, 10) : otherwise;
}

Step Of(Do what, int n = 0, int m = 0)
{
    return {what, kSystemLog, n, m, {}};
}

// What whoever writes and rotates the log does in between. In a faithful history, what loses nothing.
std::vector<Step> OtherSide(bool is_faithful)
{
    std::vector<Step> steps = {Of(Do::kAppend, 1), Of(Do::kRotate, kCreateEmpty),
                               Of(Do::kRotate, kCreateNothing)};
    if (!is_faithful) {
        steps.push_back(Of(Do::kPart, 60));
        steps.push_back(Of(Do::kRotate, kCopyTruncate));
        steps.push_back(Of(Do::kHarmBackup, 1, kHarmCompress));
        steps.push_back(Of(Do::kRemoveLive));
    }
    return steps;
}

std::vector<Step> Alphabet(bool is_faithful)
{
    std::vector<Step> steps = {Of(Do::kAppend, 1),
                               Of(Do::kPart, 60),
                               Of(Do::kRotate, kCreateEmpty),
                               Of(Do::kRotate, kCopyTruncate),
                               Of(Do::kHarmBackup, 1, kHarmCompress),
                               Of(Do::kClock, 20 * kDay),
                               Of(Do::kPass),
                               Of(Do::kKill),
                               Of(Do::kRestart),
                               Of(Do::kReload)};
    if (!is_faithful)
        steps.push_back(Of(Do::kRemoveLive));
    return steps;
}

// The oracle says of such a history how many bytes are told of.
bool IsUnedited(const History &history)
{
    return std::none_of(history.steps.begin(), history.steps.end(), [](const Step &step) {
        return step.what == Do::kPart || step.what == Do::kPassDuring;
    });
}

History Begin(bool is_faithful)
{
    History history;
    history.setup.start = 1718445600; // 15 June 2024, 10:00 UTC: twenty days later it is July
    history.is_faithful = is_faithful;
    return history;
}

class AllShort {
  public:
    // `interrupted`: the kind of pass in which the other side acts.
    AllShort(bool is_faithful, Do interrupted)
        : is_faithful_(is_faithful), interrupted_(interrupted)
    {
    }

    void Run()
    {
        Lengthen(Begin(is_faithful_));
        printf("%llu histories of up to %zu steps; of those of up to %zu, %llu interrupted in a "
               "pass\n",
               static_cast<unsigned long long>(histories_), most_, most_interrupted_,
               static_cast<unsigned long long>(interruptions_));
        EXPECT_GT(interruptions_, 0U);
    }

  private:
    // The history, and every longer one that begins with it.
    void Lengthen(const History &begun)
    {
        RunWithLastPass(begun);
        if (begun.steps.size() == most_)
            return;
        for (const Step &step : Alphabet(is_faithful_)) {
            if (testing::Test::HasFatalFailure())
                return;
            History longer = begun;
            longer.steps.push_back(step);
            Lengthen(longer);
        }
    }

    void RunWithLastPass(History history)
    {
        const size_t steps = history.steps.size();
        history.steps.push_back(Of(Do::kPass));
        ++histories_;
        RunOne(history);
        for (size_t at = 0; steps <= most_interrupted_ && at <= steps; ++at) {
            if (history.steps[at].what == Do::kPass)
                InterruptPass(history, at);
        }
    }

    // Each step of the other side at each moment of the pass.
    void InterruptPass(History history, size_t at)
    {
        for (const Step &inner : OtherSide(is_faithful_)) {
            history.steps[at] = {interrupted_, kSystemLog, 1, 0, {inner}};
            while (!testing::Test::HasFatalFailure() && RunOne(history)) {
                ++interruptions_;
                ++history.steps[at].n;
            }
        }
    }

    // True when it was interrupted.
    bool RunOne(History history)
    {
        history.tells_losses = !is_faithful_ && IsUnedited(history);
        const Outcome outcome = history::Run(history, log_dir_.path());
        [&] { ASSERT_FALSE(outcome.failed) << Explain(history, histories_, log_dir_.path()); }();
        return outcome.was_interrupted;
    }

    bool is_faithful_;
    Do interrupted_;
    const size_t most_ = StepsOr(kSteps);
    const size_t most_interrupted_ = StepsOr(kStepsInterrupted);
    const test::TempDir log_dir_;
    uint64_t histories_ = 0;
    uint64_t interruptions_ = 0;
};

TEST(ShortHistories, AllCountEachLineExactlyOnceWhateverCallIsInterrupted)
{
    AllShort(true, Do::kPassDuringCall).Run();
}

TEST(ShortHistories, AllOfAnyKindGoAsTheOracleSays)
{
    AllShort(false, Do::kPassDuring).Run();
}

} // namespace
} // namespace history
