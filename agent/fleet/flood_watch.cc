#include "agent/fleet/flood_watch.h"

namespace fleet {

// Spans follow each other without a gap. So a flood at this rate fills one of them whenever it begins.
bool FloodCount::Add(int64_t stored_ms)
{
    if (const int64_t span = stored_ms / kSpanMs; span != span_) {
        span_ = span;
        in_span_ = 0;
    }
    if (++in_span_ != kTooMany)
        return false;
    if (told_ms_ && stored_ms - *told_ms_ < kToldForMs)
        return false;
    told_ms_ = stored_ms;
    return true;
}

bool FloodCount::MayTell(nats::Pace::Clock::time_point now)
{
    if (pace_.Next() > now)
        return false;
    pace_.Take(now);
    return true;
}

bool FloodCount::IsForgettable(int64_t stored_ms, nats::Pace::Clock::time_point now) const
{
    return !told_ms_ && span_ != stored_ms / kSpanMs && pace_.HasRested(now);
}

FloodCount FloodWatch::Of(const std::string &uuid) const
{
    const auto found = counts_.find(uuid);
    return found == counts_.end() ? FloodCount() : found->second;
}

void FloodWatch::Keep(const std::string &uuid, const FloodCount &count)
{
    counts_.insert_or_assign(uuid, count);
}

void FloodWatch::Forget(int64_t stored_ms, nats::Pace::Clock::time_point now)
{
    const int64_t span = stored_ms / FloodCount::kSpanMs;
    if (span == span_)
        return;
    span_ = span;
    std::erase_if(counts_, [&](const auto &of) { return of.second.IsForgettable(stored_ms, now); });
}

} // namespace fleet
