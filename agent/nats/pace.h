// How often something may be done at the servers of a fleet: a number of times at once, and then once in so long.
// Whatever comes from the network or from a log, one host asks no more of the servers than that.
#ifndef AGENT_NATS_PACE_H
#define AGENT_NATS_PACE_H

#include <algorithm>
#include <chrono>

namespace nats {

// Of one thread. Its clock only goes forward.
class Pace {
  public:
    using Clock = std::chrono::steady_clock;

    // `at_once`: so many times without a pause, at least 1, when it has rested for long. `span`: in which one more time
    // comes back.
    Pace(int at_once, Clock::duration span) : span_(span), rest_(span * at_once) {}

    // When the next time is; not after now: at once.
    [[nodiscard]] Clock::time_point Next() const { return full_at_ - rest_ + span_; }
    // All times are there again.
    [[nodiscard]] bool HasRested(Clock::time_point now) const { return full_at_ <= now; }
    // It is done.
    void Take(Clock::time_point now) { full_at_ = std::max(full_at_, now) + span_; }

  private:
    Clock::duration span_;
    Clock::duration rest_;        // in which all times come back
    Clock::time_point full_at_{}; // when they all are there again
};

} // namespace nats

#endif // AGENT_NATS_PACE_H
