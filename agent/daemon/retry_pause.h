// The pause before something that failed is tried again: doubled each time, up to the longest.
#ifndef AGENT_DAEMON_RETRY_PAUSE_H
#define AGENT_DAEMON_RETRY_PAUSE_H

#include <algorithm>
#include <chrono>

namespace syslogmond {

class RetryPause {
  public:
    using Milliseconds = std::chrono::milliseconds;
    // A second for what mends itself, such as a lock; a minute at most, since nobody who has mended
    // the cause should wait longer.
    static constexpr Milliseconds kFirst{1000};
    static constexpr Milliseconds kLongest{60000};
    static_assert(kFirst < kLongest, "the pause must be able to grow");

    // This time's pause; the next one is longer.
    Milliseconds Take()
    {
        const Milliseconds pause = next_;
        next_ = std::min(next_ * 2, kLongest);
        return pause;
    }
    // It has worked: the next failure is a new one.
    void Reset() { next_ = kFirst; }

  private:
    Milliseconds next_ = kFirst;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_RETRY_PAUSE_H
