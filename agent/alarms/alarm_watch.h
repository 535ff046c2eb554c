// Looks after the monitor and its surroundings, and stores an alert when something is wrong: on a thread and a
// connection of its own, so the monitor and the main loop never wait for it. What cannot be stored at the moment is
// tried again with the next look.
#ifndef AGENT_ALARMS_ALARM_WATCH_H
#define AGENT_ALARMS_ALARM_WATCH_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "agent/alarms/sight.h"
#include "agent/host/here_and_now.h"

namespace alarms {

struct AlarmWatchOptions {
    std::filesystem::path store;
    std::function<status::Status()> status;        // of this moment; called on the watch's thread
    std::function<void()> stored;                  // alerts were, likewise
    std::function<int64_t()> now_ms = host::NowMs; // the clock, which somebody may set
};

class AlarmWatch {
  public:
    // Throws host::StoreError when the store cannot be opened.
    explicit AlarmWatch(AlarmWatchOptions options);
    ~AlarmWatch();
    AlarmWatch(const AlarmWatch &) = delete;
    AlarmWatch &operator=(const AlarmWatch &) = delete;

    // The monitor ended by itself. And: a pass of it is stored. From any thread; both return at once.
    void MonitorEnded(MonitorEnd end);
    void MonitorRuns() { runs_ = true; }

  private:
    void Run();
    void Wait(std::chrono::seconds pause);
    std::chrono::seconds Look();
    void LookAtClock(const Sight &sight);
    [[nodiscard]] bool TakeEnd(Sight *sight);
    void ForgetEnd();

    AlarmWatchOptions options_;
    std::atomic<bool> stops_ = false;
    std::atomic<bool> runs_ = false;
    std::mutex mutex_; // guards the next ones
    std::condition_variable news_;
    bool woken_ = false;
    std::optional<MonitorEnd> end_;
    int64_t ends_ = 0; // how many there were
    // Of the thread.
    host::Store store_;
    host::RegistryTree registry_;
    AlarmBook book_;
    ClockWatch clock_;
    int64_t clock_set_ms_ = 0;  // by so much it was set, which is not told yet
    int64_t end_looked_at_ = 0; // the number of the end that a look saw
    bool store_failed_ = false;
    std::thread thread_; // ends before what it uses
};

} // namespace alarms

#endif // AGENT_ALARMS_ALARM_WATCH_H
