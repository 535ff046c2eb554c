// Makes the monitor look as soon as a line is written: sets "Driving_Syslog_Event" when a monitored
// file has changed, at most once per interval. The first change after a rest counts at once; one
// that comes within the interval counts at its end.
//
// Where nothing is written, nothing is done. Where changes cannot be watched, the cycle goes on,
// and it is tried again now and then.
//
// Runs on the daemon's main thread, in its poll loop.
#ifndef AGENT_DAEMON_TRIGGER_H
#define AGENT_DAEMON_TRIGGER_H

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agent/daemon/file_watch.h"

namespace syslogmond {

class Trigger {
  public:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    // `fire` sets the event. `tell` hears what is wrong with the watching, once for each change of
    // that; an empty text when nothing is wrong any longer.
    Trigger(std::function<void()> fire, std::function<void(const std::string &)> tell)
        : fire_(std::move(fire)), tell_(std::move(tell))
    {
    }

    // The files to be watched, and the interval; 0 turns the trigger off.
    void Follow(std::vector<std::filesystem::path> files, Milliseconds interval);

    // What to poll, the one for POLLIN and the other for POLLPRI; -1: not now.
    [[nodiscard]] int ChangesFd() const;
    [[nodiscard]] int MountsFd() const { return watch_.MountsFd(); }
    // When Work is to be called at the latest, although nothing was polled.
    [[nodiscard]] std::optional<Clock::time_point> Next() const;

    // Does what there is to do; `changes` and `mounts`: the descriptor was reported.
    void Work(bool changes, bool mounts);

  private:
    [[nodiscard]] bool IsResting() const;
    void Tell();

    std::function<void()> fire_;
    std::function<void(const std::string &)> tell_;
    FileWatch watch_;
    std::vector<std::filesystem::path> files_;
    Milliseconds interval_{0};
    bool pending_ = false;                       // a change was seen in the rest
    Clock::time_point rest_until_;               // no look at the changes before
    std::optional<Clock::time_point> try_again_; // set while something cannot be watched
    // What was last told of, so that it is told once.
    std::string told_;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_TRIGGER_H
