// Tells whether the monitor goes on. Processor time would tell less: an expression that a line keeps
// busy burns it without end, and a program that waits for the store burns it now and then.
#ifndef AGENT_DAEMON_VIGIL_H
#define AGENT_DAEMON_VIGIL_H

#include <chrono>
#include <cstdint>

namespace syslogmond {

class Vigil {
  public:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    // Takes a number that is another one after each step of the monitor. True when it has gone on
    // since the last look.
    bool Look(uint64_t signs)
    {
        const bool has_gone_on = signs != seen_;
        seen_ = signs;
        if (has_gone_on)
            went_on_at_ = Clock::now();
        return has_gone_on;
    }
    // Counts the stillness from now on.
    void Restart() { went_on_at_ = Clock::now(); }
    // How long it has not gone on, as far as the looks can tell.
    [[nodiscard]] Milliseconds Still() const
    {
        return std::chrono::duration_cast<Milliseconds>(Clock::now() - went_on_at_);
    }

  private:
    // The number of the last look.
    uint64_t seen_ = 0;
    Clock::time_point went_on_at_ = Clock::now();
};

} // namespace syslogmond

#endif // AGENT_DAEMON_VIGIL_H
