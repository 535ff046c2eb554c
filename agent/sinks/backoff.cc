#include "agent/sinks/backoff.h"

#include <algorithm>

namespace sinks {

std::chrono::milliseconds Backoff::Next()
{
    constexpr int kManyFailures = 30; // from here on, doubling would only overflow
    const int64_t doubled = limits_.first.count() << std::min(failures_, kManyFailures);
    failures_ = std::min(failures_ + 1, kManyFailures);
    // Two thirds, so that the jitter has room up to the longest: else all hosts would come in step
    // again once they have waited long enough.
    const int64_t pause = std::min(doubled, limits_.longest.count() * 2 / 3);
    std::uniform_int_distribution<int64_t> jitter(0, pause / 2);
    const int64_t with_jitter = std::min(pause + jitter(random_), limits_.longest.count());
    return std::chrono::milliseconds(with_jitter);
}

} // namespace sinks
