#include "agent/fleet/flood_watch.h"

namespace fleet {

// Spans follow each other without a gap. So a flood at this rate fills one of them whenever it begins.
bool FloodWatch::Count(const std::string &uuid, int64_t stored_ms)
{
    if (const int64_t span = stored_ms / kSpanMs; span != span_) {
        span_ = span;
        counted_.clear();
    }
    if (++counted_[uuid] != kTooMany)
        return false;
    const auto [told, is_first] = told_ms_.try_emplace(uuid, stored_ms);
    if (!is_first && stored_ms - told->second < kToldForMs)
        return false;
    told->second = stored_ms;
    return true;
}

bool FloodWatch::MayTell(const std::string &uuid, nats::Pace::Clock::time_point now)
{
    nats::Pace &pace = paces_.try_emplace(uuid, kTellAtOnce, kTellEvery).first->second;
    if (pace.Next() > now)
        return false;
    pace.Take(now);
    return true;
}

} // namespace fleet
