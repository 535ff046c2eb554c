// Looks at the monitor now and then, tells systemd and the status what it sees, and knows when to give up waiting
// for a monitor that is to stop.
//
// The watchdog is fed here alone, from the main loop, so it hears of a main loop that hangs; and only while the
// monitor goes on, pulse by pulse in its wait and line by line in a pass: a pass over gigabytes is no reason to be
// killed, one that hangs is.
#ifndef AGENT_DAEMON_LIFE_WATCH_H
#define AGENT_DAEMON_LIFE_WATCH_H

#include <atomic>
#include <chrono>

#include "agent/daemon/monitor.h"
#include "agent/daemon/status_board.h"
#include "agent/daemon/vigil.h"

namespace syslogmond {

class LifeWatch {
  public:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    explicit LifeWatch(StatusBoard &board);

    // How often a monitor that waits must give a sign of life, and the main loop must look.
    [[nodiscard]] Milliseconds Interval() const { return look_every_; }
    [[nodiscard]] Clock::time_point Next() const { return next_look_; }
    [[nodiscard]] bool IsDue() const { return Clock::now() >= next_look_; }

    // The monitor starts: its stillness counts from now on.
    void Restart() { vigil_.Restart(); }
    // It is to stop: it is looked at more often, from now on.
    void StopBegins();
    // A pass is stored. On the monitor thread. Whoever waits for the daemon to be ready counts on it that a line
    // which he writes from then on is read: so it is ready when the place is stored from which it reads on.
    void PassIsStored();

    // Looks. `monitor`: null when none runs.
    void Look(const Monitor *monitor);
    // Has a monitor that is to stop not gone on for so long that nobody need wait any longer? One line can keep an
    // expression busy without end. Reading a line takes microseconds, storing a pass a second.
    [[nodiscard]] bool IsHopeless() const;

  private:
    // All of the main thread, but for is_ready_.
    StatusBoard &board_;
    bool has_watchdog_;
    Milliseconds look_every_;
    Clock::time_point next_look_;
    Vigil vigil_;
    bool stopping_ = false;
    std::atomic<bool> is_ready_ = false; // the first pass is stored
};

} // namespace syslogmond

#endif // AGENT_DAEMON_LIFE_WATCH_H
