#include "tests/history/shrink.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "tests/history/life.h"

namespace history {

namespace {

// Tries every shorter history that leaves out `size` steps in a row. True when one of them fails too.
bool LeaveOut(History *history, size_t size, const std::string &log_dir)
{
    bool changed = false;
    for (size_t at = 0; at < history->steps.size();) {
        History shorter = *history;
        const auto begin = shorter.steps.begin() + static_cast<std::ptrdiff_t>(at);
        const size_t count = std::min(size, shorter.steps.size() - at);
        shorter.steps.erase(begin, begin + static_cast<std::ptrdiff_t>(count));
        if (Run(shorter, log_dir).failed) {
            *history = std::move(shorter);
            changed = true;
        } else {
            at += size;
        }
    }
    return changed;
}

bool TryStep(History *history, size_t at, const Step &simpler, const std::string &log_dir)
{
    History changed = *history;
    changed.steps[at] = simpler;
    if (!Run(changed, log_dir).failed)
        return false;
    *history = std::move(changed);
    return true;
}

// Plain lines, one at a time; interruptions with fewer steps.
void Simplify(History *history, const std::string &log_dir)
{
    for (size_t at = 0; at < history->steps.size(); ++at) {
        const Step step = history->steps[at];
        if (step.what == Do::kAppend) {
            Step plain = step;
            plain.m = kPlain;
            TryStep(history, at, plain, log_dir);
            for (int n = 1; n < step.n; n *= 2) {
                Step fewer = history->steps[at];
                fewer.n = n;
                if (TryStep(history, at, fewer, log_dir))
                    break;
            }
        }
        if (step.what == Do::kPassDuring) {
            Step once = step;
            once.m = 0;
            TryStep(history, at, once, log_dir);
        }
        for (size_t i = 0; i < history->steps[at].inner.size();) {
            Step fewer = history->steps[at];
            fewer.inner.erase(fewer.inner.begin() + static_cast<std::ptrdiff_t>(i));
            if (!TryStep(history, at, fewer, log_dir))
                ++i;
        }
    }
}

} // namespace

History Shrink(const History &history, const std::string &log_dir)
{
    History smallest = history;
    for (size_t size = std::max<size_t>(smallest.steps.size() / 2, 1); size > 0; size /= 2)
        LeaveOut(&smallest, size, log_dir);
    Simplify(&smallest, log_dir);
    while (LeaveOut(&smallest, 1, log_dir))
        continue;
    return smallest;
}

std::string Explain(const History &history, uint64_t seed, const std::string &log_dir)
{
    const History smallest = Shrink(history, log_dir);
    return "seed " + std::to_string(seed) + (history.is_faithful ? " (faithful)" : " (any)") +
           ", " + std::to_string(smallest.steps.size()) + " of " +
           std::to_string(history.steps.size()) + " steps:\n" + Text(smallest) + "  " +
           Run(smallest, log_dir).what + "\n";
}

} // namespace history
