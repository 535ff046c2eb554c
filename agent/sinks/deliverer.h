// Sees to it that stored alerts reach the sinks: starts a worker for each receiver, writes down how
// far each has come, and keeps the number of alerts within its limit.
//
// It has a thread and a connection to the store of its own. The monitor never waits for it: it only
// rings a bell. Its writes are small, at most one a second unless alerts are removed, and are not
// synchronised with the disk: after a power cut the last of them may be missing, and then some
// alerts are sent again under the same keys.
//
//   D1  An alert leaves the store when more of them, or more bytes of them, are kept than the limits
//       say, the oldest first. So those that
//       were delivered go first, and one that was not goes only when the limit is full of alerts
//       that were not. A sink with a bound (rate) that had not got it tells of it in its next message;
//       for another one it counts as dropped.
//       An alert that was delivered to servers that may lose it (SinkKind::look) stays for ten minutes more, as
//       long as twice the limits are enough for that.
//   D2  A sink that waits for 80 % of the limit, or loses an alert to it, is told of: in the trace
//       log and on standard error, once until it has caught up.
//   D3  An alert that a receiver does not take although it takes others is told of in the same way, and
//       stands in a list until somebody has it sent again or drops it. It leaves the store by D1, too.
//   D4  What is not written down in time is written later; a busy or failing store stops no sink.
#ifndef AGENT_SINKS_DELIVERER_H
#define AGENT_SINKS_DELIVERER_H

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "agent/host/layout.h"
#include "agent/host/waitable.h"
#include "agent/sinks/progress.h"
#include "agent/sinks/rate.h"
#include "agent/sinks/route.h"
#include "agent/sinks/settled.h"
#include "agent/sinks/sink_registry.h"
#include "agent/sinks/worker.h"

namespace sinks {

// What a deliverer works with. Tests shorten the times.
struct DelivererOptions {
    host::Layout layout;
    PauseLimits pauses;
    std::chrono::milliseconds record_every{1000}; // at most one write of the progress in this time
    std::chrono::milliseconds second{1000};       // of a heartbeat
    std::function<bool()> is_fresh = nullptr; // does the monitor do its work? Null: IsMonitorFresh
};

class Deliverer {
  public:
    // Starts with the sinks of the store. Throws StoreError when that cannot be opened.
    explicit Deliverer(DelivererOptions options);
    // Ends all workers, which takes at most the time limit of their stop, and writes the progress.
    ~Deliverer();
    Deliverer(const Deliverer &) = delete;
    Deliverer &operator=(const Deliverer &) = delete;

    // Alerts may have been stored. From any thread; returns at once.
    void Wake();
    // Settings may have changed. Receivers that failed are tried at once. From any thread; returns
    // at once. The event kSinksEvent does the same.
    void Reload();

  private:
    using Clock = std::chrono::steady_clock;
    enum class Level { kWell, kFilling, kFull }; // of the alerts that wait for a sink

    // A configured sink. Its progress is shared with its workers, which end before it does.
    struct Entry {
        StoredSink sink;
        Route route;
        Rate rate;
        std::shared_ptr<Progress> progress;
        std::vector<std::unique_ptr<Worker>> workers; // none while it has a problem
        // Its rows in the store are older than its progress.
        bool unwritten = false;
        Deliveries written;                     // the rows that were written last
        std::vector<UndeliveredChange> changes; // not written yet
        Level level = Level::kWell;
        Settled settled; // of a kind whose receiver can lose what it has confirmed
    };

    void Run();
    void WaitForNews();
    void TakeSettings();
    void Load();
    Entry Start(const StoredSink &sink, const Deliveries &rows,
                const std::vector<Undelivered> &undelivered, const Held &held);
    void StopWorkers();
    void Record();
    void WriteRows();
    void TakeChanges(Entry &entry) const;
    static void SendWantedAgain(const Entry &entry, const std::vector<Undelivered> &rows);
    void KeepTheLimit();
    [[nodiscard]] int64_t SettledId();
    std::vector<alerts::Alert> NotHadByAll(int64_t up_to);
    // The alerts that are kept, by their numbers: all between the two.
    struct Kept {
        int64_t oldest;
        int64_t newest;
        [[nodiscard]] int64_t Count() const { return newest - oldest + 1; }
    };
    Kept LookAtAlerts();
    [[nodiscard]] int64_t FittingAlerts(const Kept &kept) const;
    void LookAtLevels(const Kept &kept);
    void Tell(const std::string &text) const;

    DelivererOptions options_;
    // Rung by any thread; the flags below say what for. The sink's event is rung by commands.
    host::Fd bell_;
    std::shared_ptr<host::WakeEvent> sinks_event_;
    std::atomic<bool> stop_{false};
    std::atomic<bool> woken_{false};
    std::atomic<bool> reload_{false};
    std::atomic<bool> progressed_{false};

    // of the thread, once it runs
    host::Store store_;
    host::RegistryTree tree_;
    SinkRegistry registry_;
    std::vector<Entry> entries_;
    uint32_t limit_ = kDefaultAlertLimit;
    uint32_t limit_megabytes_ = kDefaultAlertMegabytes;
    int64_t bytes_ = 0;       // of the alerts that are kept,
    int64_t counted_to_ = 0;  // up to this one
    bool over_limit_ = false; // more is to be removed
    // It has failed and was told of; the next try comes after a pause.
    bool store_failed_ = false;
    Clock::time_point recorded_at_;

    std::thread thread_;
};

} // namespace sinks

#endif // AGENT_SINKS_DELIVERER_H
