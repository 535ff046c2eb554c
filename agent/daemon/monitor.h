// One life of the monitor: the module's StartThread on a thread of its own, and what the host does
// when the module is at rest.
//
// Whatever of it waits for the store, waits on the monitor thread.
//
// At each rest, on the monitor thread: the hit counters are saved, the pass is committed, the
// status is published. When the pass cannot be stored, it is rolled back and the wait reports the
// stop handle: the module ends, and the next life reads everything of the broken pass again.
#ifndef AGENT_DAEMON_MONITOR_H
#define AGENT_DAEMON_MONITOR_H

#include <atomic>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "agent/daemon/input_feed.h"
#include "agent/daemon/loss_notes.h"
#include "agent/daemon/pass_counter.h"
#include "agent/host/host.h"
#include "agent/host/owned_handle.h"
#include "agent/monitor/module.h"
#include "agent/policy/report_desk.h"
#include "agent/status/status_file.h"
#include "platform/types.h"

namespace syslogmond {

// What the daemon wants to hear from the monitor. All are called on the monitor thread.
struct MonitorNews {
    std::function<void(int table_size)> started; // the table is loaded, the first pass begins
    std::function<void(const status::PassStatus &, int table_size)> at_rest; // a pass was committed
    std::function<void()> ended; // the thread is about to end
    DWORD pulse_ms = 0;          // so often a monitor that waits shows that it is alive
};

class Monitor : private host::Moments {
  public:
    // Starts the thread. The module must be at rest, and belongs to this object for its life.
    // Throws host::Error when no event is left.
    Monitor(host::Host &host, monitor::Module &module, InputFeed &feed, MonitorNews news);
    ~Monitor() override; // stops it, and waits until it has ended
    Monitor(const Monitor &) = delete;
    Monitor &operator=(const Monitor &) = delete;

    // Asks it to stop. It does so within the pass that is under way.
    void RequestStop();
    [[nodiscard]] bool StopWasRequested() const { return stop_requested_; }

    // Another number after each step of a pass, and after each pulse of a wait. The same one: it
    // has come no further.
    [[nodiscard]] uint64_t SignsOfLife() const;

    // Why it ended, when nobody asked: empty while nothing is known.
    [[nodiscard]] const std::string &reason() const { return reason_; } // after `ended`

  private:
    void Run();
    bool Prepare();

    // The moments of the module.
    void TableLoaded() override;
    bool ModuleRests() override;
    void StillRests() override { ++pulses_; }
    [[nodiscard]] DWORD PulseMs() const override { return news_.pulse_ms; }
    void PartIsRead(const LogPart &part) override { losses_.Add(part); }
    void TargetLinesAreRead(const std::string &path, int64_t lines, int64_t bytes) override
    {
        if (counter_)
            counter_->TargetLinesAreRead(path, lines, bytes);
    }
    [[nodiscard]] bool MayEndRest(const std::string &name) override { return feed_.MayTake(name); }
    void PassBegins(DWORD result, const std::string &name) override;

    [[nodiscard]] std::optional<int64_t> TimeOf(const std::string &line) const;
    void StorePass();
    void TellOfAbsent(int64_t now_s);
    void AbandonPass();
    void Break(const std::exception &error);

    host::Host &host_;
    monitor::Module &module_;
    InputFeed &feed_; // what joins each pass
    MonitorNews news_;
    // What StartThread is given; read by the module as long as it runs.
    std::vector<char> record_;
    host::OwnedHandle stop_;
    host::OwnedHandle started_;
    std::optional<host::HitCounters>
        counters_;                           // of the monitor thread, as all that reads the store
    std::optional<PassCounter> counter_;     // likewise
    std::optional<policy::ReportDesk> desk_; // likewise; tells the one before
    bool table_is_reloaded_ = false;         // since the last rest
    LossNotes losses_;                       // likewise
    // The pass under way, or the last one while it rests. Of the monitor thread.
    status::PassStatus pass_;
    // Of the monitor thread, until it has ended.
    std::string reason_;
    std::atomic<bool> stop_requested_ = false;
    // How often a wait was found to go on; for SignsOfLife, on the main thread.
    std::atomic<uint64_t> pulses_ = 0;
    host::MomentsOf moments_; // goes before what they need
    std::thread thread_;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_MONITOR_H
