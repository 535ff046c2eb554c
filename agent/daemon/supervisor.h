// Keeps a monitor running: starts it, starts it again after a growing pause when it ended without being asked to,
// and says why.
//
// Of the main thread, but for what the monitor tells at a rest, which comes on its own.
#ifndef AGENT_DAEMON_SUPERVISOR_H
#define AGENT_DAEMON_SUPERVISOR_H

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "agent/daemon/doorbell.h"
#include "agent/daemon/life_watch.h"
#include "agent/daemon/monitor.h"
#include "agent/daemon/retry_pause.h"
#include "agent/daemon/status_board.h"
#include "agent/host/host.h"
#include "agent/monitor/module.h"
#include "agent/status/status_file.h"

namespace syslogmond {

class Supervisor {
  public:
    using Clock = std::chrono::steady_clock;

    // Loads the module. `stored` is called on the monitor thread whenever a pass is committed; `ended`, when it has
    // ended by itself, with the reason and whether it had a table. Neither may block. Throws host::Error.
    Supervisor(host::Host &host, StatusBoard &board, LifeWatch &life, InputFeed &feed,
               std::function<void(const status::PassStatus &)> stored,
               std::function<void(const std::string &, bool)> ended);

    void Start();
    // Has a running monitor end, and starts another one in its place at once.
    void Restart();
    // Has it end for good, within the pass that is under way.
    void Stop();
    // Ends the pause: something has changed that may have been the cause.
    void TryNow();

    [[nodiscard]] const Monitor *monitor() const { return monitor_.get(); } // null: none runs
    [[nodiscard]] bool IsPausing() const { return start_again_at_.has_value(); }

    // To be polled: the monitor's thread is about to end. And when Work is to be called at the latest.
    [[nodiscard]] int EndedFd() const { return ended_.fd(); }
    [[nodiscard]] std::optional<Clock::time_point> Next() const { return start_again_at_; }

    // Does what there is to do when the monitor ended, or a pause. False: the store was removed or replaced, so
    // everything that this process has open belongs to a file that nobody else sees, and it must end.
    [[nodiscard]] bool Work();

  private:
    [[nodiscard]] bool MonitorEnded();
    void Pause(const std::string &reason);
    void Publish(const status::PassStatus &pass, int table_size);

    host::Host &host_;
    StatusBoard &board_;
    LifeWatch &life_;
    InputFeed &feed_;
    std::function<void(const status::PassStatus &)> stored_;
    std::function<void(const std::string &, bool)> told_end_;
    std::atomic<bool> has_table_ = false; // the life under way, or the last one, has loaded it
    monitor::Module module_;
    Doorbell ended_;
    // Of the life under way, for telling whether it ran well.
    Clock::time_point started_at_;
    std::optional<Clock::time_point> start_again_at_; // set while pausing
    RetryPause pause_;
    bool stopping_ = false;
    bool restart_wanted_ = false;
    std::unique_ptr<Monitor> monitor_; // ends before what it uses
};

} // namespace syslogmond

#endif // AGENT_DAEMON_SUPERVISOR_H
