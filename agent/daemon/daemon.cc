#include "agent/daemon/daemon.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <optional>
#include <poll.h>
#include <string>
#include <unistd.h>

#include "agent/alarms/alarm_watch.h"
#include "agent/daemon/alert_outlets.h"
#include "agent/daemon/doorbell.h"
#include "agent/daemon/input_feed.h"
#include "agent/daemon/life_watch.h"
#include "agent/daemon/live_settings.h"
#include "agent/daemon/named_events.h"
#include "agent/daemon/notify.h"
#include "agent/daemon/page_keeper.h"
#include "agent/daemon/signals.h"
#include "agent/daemon/status_board.h"
#include "agent/daemon/store_wait.h"
#include "agent/daemon/supervisor.h"
#include "agent/daemon/trace_unit.h"
#include "agent/daemon/trigger.h"
#include "agent/fleet/fleet_keeper.h"
#include "agent/host/error.h"
#include "agent/host/host.h"
#include "agent/host/trace_log.h"
#include "agent/inputs/first_input.h"
#include "agent/status/daemon_lock.h"
#include "agent/text/say.h"

namespace syslogmond {

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

// Statuses of the process. A daemon that is ended at once has not finished what it should: no 0.
constexpr int kExitAtOnce = 1;
// So that systemd, which restarts on failure, starts one that opens the store that is there by
// then.
constexpr int kExitWithoutStore = 1;

// A pass of these kinds has taken a file's name from the registry, so the watched files may be
// others now.
bool TakesNames(status::PassKind kind)
{
    return kind == status::PassKind::kStart || kind == status::PassKind::kCustomerFile ||
           kind == status::PassKind::kFileMonitor;
}

// The table is loaded at the start, and by a pass of no kind that reads files.
bool MayLoadEvents(status::PassKind kind)
{
    return kind == status::PassKind::kStart || kind == status::PassKind::kOther;
}

// Nothing in its loop waits: not for the store, which it reads through a connection of its own, not for
// whoever reads what it prints, not for the monitor. Alerts go from the monitor's thread to those of the
// sinks, and do not pass through here.
class Daemon {
  public:
    Daemon(host::Host &host, const DaemonOptions &options);
    // The store outlives what is told of its waits.
    ~Daemon() { host_.store().SetWait({}); }
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    int Run();

  private:
    void Loop();
    void WaitForNews();
    void TakeSignals();
    void Act(int signal_number);
    void TakeSettings();
    void TakeInputs();
    void LookAtMonitor();
    void Stop();
    void EndWithoutStore();
    [[noreturn]] void LeaveMonitorBehind();

    void PassIsStored(const status::PassStatus &pass); // on the monitor thread
    void LookNow() const;
    void WatchingChanged(const std::string &problem);
    void InputsChanged(); // on their thread
    [[nodiscard]] SettingEffects Effects();
    [[nodiscard]] Milliseconds TimeToSleep() const;

    host::Host &host_;
    Signals signals_; // first: all threads inherit its mask
    // Before the monitor, which waits for them: what is set from here on is not lost.
    NamedEvents events_;
    // Before all that tells something through it.
    StatusBoard board_;
    StoreWait store_wait_{
        host_.layout().Store(), [this](int64_t since_ms) {
            board_.Update([&](status::Status &status) { status.waiting_since_ms = since_ms; });
        }};
    // Goes after the monitor, so that the alerts of its last pass still find their way.
    AlertOutlets outlets_;
    alarms::AlarmWatch alarms_;
    LifeWatch life_{board_};
    Trigger trigger_{[this] { LookNow(); },
                     [this](const std::string &problem) { WatchingChanged(problem); }};
    InputFeed feed_;           // before the monitor that uses it
    Doorbell names_taken_;     // the monitor may follow other files than before
    PageKeeper page_;          // behind the board that it shows; before the monitor, which wakes it
    fleet::FleetKeeper fleet_; // behind what it wakes
    LiveSettings settings_;
    Supervisor supervisor_; // last: its monitor uses the others
    bool stopping_ = false;
    int result_ = 0; // of the process
};

Daemon::Daemon(host::Host &host, const DaemonOptions &options)
    : host_(host), events_(options.layout.run), board_(host),
      outlets_(options.layout, options.print_alerts),
      alarms_(
          {options.layout.Store(), [this] { return board_.Copy(); }, [this] { outlets_.Wake(); }}),
      feed_(
          host, [this] { events_.scan->Set(); }, [this] { InputsChanged(); }),
      page_(options.layout), fleet_(options.layout,
                                    [this] {
                                        outlets_.Wake();
                                        page_.Wake();
                                    }),
      settings_(options.layout.Store(), Effects()),
      supervisor_(
          host, board_, life_, feed_,
          [this](const status::PassStatus &pass) { PassIsStored(pass); },
          [this](const std::string &reason, bool had_table) {
              alarms_.MonitorEnded({reason, had_table});
          })
{
    host_.store().SetWait(store_wait_.Patience());
}

// ---- what follows from what ----

SettingEffects Daemon::Effects()
{
    SettingEffects effects;
    effects.restart_monitor = [this] { supervisor_.Restart(); };
    // A monitor that is to be started loads it anyway; the event would make it load it twice.
    effects.reload_table = [this] {
        if (supervisor_.monitor() != nullptr)
            events_.table->Set();
    };
    effects.watch_files = [this](std::vector<std::filesystem::path> files, Milliseconds interval) {
        trigger_.Follow(std::move(files), interval);
        feed_.SetInterval(interval);
    };
    effects.serve_page = [this](const std::string &address) { page_.Follow(address); };
    return effects;
}

// The outlets first: an alert waits for nothing else.
void Daemon::PassIsStored(const status::PassStatus &pass)
{
    outlets_.Wake();
    page_.Wake(MayLoadEvents(pass.kind));
    alarms_.MonitorRuns();
    if (TakesNames(pass.kind))
        names_taken_.Ring();
}

// A monitor that starts reads everything anyway.
void Daemon::LookNow() const
{
    if (supervisor_.monitor() != nullptr)
        events_.scan->Set();
}

// Said once for each change, by the trigger.
void Daemon::WatchingChanged(const std::string &problem)
{
    if (problem.empty()) {
        TRACE(TRACE_NOTABLE, "All monitored files are watched for changes again.");
    } else {
        const std::string text = problem + "; until then, changes are found once in a cycle";
        TRACE(TRACE_SYSTEM, "%s", text.c_str());
        text::Say(text);
    }
    board_.Update([&](status::Status &status) { status.watch_problem = problem; });
}

void Daemon::InputsChanged()
{
    board_.Update([this](status::Status &status) { feed_.TellStatus(&status); });
}

// ---- signals ----

void Daemon::TakeSignals()
{
    while (const auto number = signals_.Next())
        Act(*number);
}

void Daemon::Act(int signal_number)
{
    switch (signal_number) {
    // All that is set, and not a scan.
    case SIGHUP:
        events_.SetAll();
        outlets_.Reload();
        break;
    case SIGUSR1:
        events_.scan->Set();
        break;
    // SIGTERM and SIGINT.
    default:
        Stop();
        break;
    }
}

// ---- the end ----

void Daemon::Stop()
{
    if (stopping_) {
        // The second time: whoever sends it does not want to wait. The store loses nothing.
        _exit(kExitAtOnce);
    }
    // The order: whoever waits for the store gives up first, systemd and the status hear that the
    // end has begun, and only then is the monitor asked; its last pass may take a while.
    stopping_ = true;
    store_wait_.RequestStop();
    NotifyStopping();
    board_.Update([](status::Status &status) { status.state = status::MonitorState::kStopping; });
    supervisor_.Stop();
    life_.StopBegins();
}

// The next process opens what is there by then.
void Daemon::EndWithoutStore()
{
    const std::string text = "the store " + host_.layout().Store().string() +
                             " was removed or replaced while the daemon ran, which therefore ends; "
                             "the pass under way was not stored";
    TRACE(TRACE_SYSTEM, "%s", text.c_str());
    text::Say(text);
    stopping_ = true;
    result_ = kExitWithoutStore;
}

// A thread cannot be ended from outside, so the process ends with it. What the pass has written is in
// no transaction that was committed, and is read again.
void Daemon::LeaveMonitorBehind()
{
    const char told[] = "the monitor has read nothing for so long that the daemon ends without it; "
                        "its pass is read again at the next start";
    TRACE(TRACE_NOTABLE, "Stopped: %s", told);
    text::Say(told);
    host::FlushTraceLog();
    // Closing the outlets waits for receivers, each for its limit at most; whoever does not want to
    // wait can end it.
    signals_.EndAtOnceWith(kExitAtOnce);
    outlets_.Close();
    // Without destructors: they would wait for the monitor's thread. The status is 0, since the
    // stop was asked for.
    _exit(0);
}

// ---- the loop ----

void Daemon::TakeSettings()
{
    const bool changed = events_.settings->TryTake();
    // Both are taken before the test, so that neither makes the settings be read once more in the
    // next round.
    if (names_taken_.Answer() || changed || settings_.IsDue())
        settings_.ReadOrRetry();
    TakeInputs();
}

// The module takes another customer file at its start without passing over what is in it.
void Daemon::TakeInputs()
{
    try {
        if (feed_.TakeChanges())
            supervisor_.Restart();
        feed_.TakeCatchUp();
    } catch (const host::Error &error) {
        TRACE(TRACE_SYSTEM, "%s", error.what());
        text::Say(error.what());
    }
}

void Daemon::LookAtMonitor()
{
    if (!life_.IsDue())
        return;
    // Seldom: the loop comes by far more often, with each change of a log.
    life_.Look(supervisor_.monitor());
    if (supervisor_.monitor() != nullptr && life_.IsHopeless())
        LeaveMonitorBehind();
}

Milliseconds Daemon::TimeToSleep() const
{
    // No round is longer than the watchdog can wait for.
    Milliseconds longest = life_.Interval();
    for (const auto &moment : {std::optional(life_.Next()), supervisor_.Next(), settings_.Next(),
                               trigger_.Next(), page_.Next()}) {
        if (!moment)
            continue;
        // Up: rounded down, the last millisecond would be a busy loop.
        const auto left = std::chrono::ceil<Milliseconds>(*moment - Clock::now());
        longest = std::clamp(left, Milliseconds(0), longest);
    }
    return longest;
}

void Daemon::WaitForNews()
{
    pollfd waiting[] = {
        {signals_.fd(), POLLIN, 0},
        {names_taken_.fd(), POLLIN, 0},
        {supervisor_.EndedFd(), POLLIN, 0},
        {events_.settings->PollFd(), POLLIN, 0},
        // While pausing: a changed table may be what brings the monitor back, so it is tried at once.
        {supervisor_.IsPausing() ? events_.table->PollFd() : -1, POLLIN, 0},
        {trigger_.ChangesFd(), POLLIN, 0},
        {trigger_.MountsFd(), POLLPRI, 0},
        {feed_.ChangedFd(), POLLIN, 0},
        {feed_.CatchUpFd(), POLLIN, 0},
    };
    // What it returns says nothing new: on a signal or an error each step below looks for itself,
    // and finds nothing to do.
    poll(waiting, std::size(waiting), static_cast<int>(TimeToSleep().count()));
    // Taken, so that a change that brings nothing back is tried once. The start loads the whole table.
    if ((waiting[4].revents & POLLIN) != 0 && events_.table->TryTake())
        supervisor_.TryNow();
    trigger_.Work((waiting[5].revents & POLLIN) != 0, (waiting[6].revents & POLLPRI) != 0);
}

void Daemon::Loop()
{
    // To the end of the monitor, whose last pass is stored or given up by then. Settings are still
    // taken meanwhile, which does no harm.
    while (!stopping_ || supervisor_.monitor() != nullptr) {
        WaitForNews();
        TakeSignals();
        TakeSettings();
        page_.Work();
        if (!supervisor_.Work())
            EndWithoutStore();
        LookAtMonitor();
    }
}

int Daemon::Run()
{
    try {
        // Before the monitor: it converts its table into the character set that is taken here, and
        // asks only at its start whether the host is fault-tolerant. A failure here ends the
        // daemon: it has not begun anything yet.
        settings_.Read();
        supervisor_.Start();
        Loop();
    } catch (...) {
        signals_.EndAtOnceWith(kExitAtOnce); // while what was started ends
        throw;
    }
    signals_.EndAtOnceWith(kExitAtOnce);
    return result_;
}

// Through a connection of its own: the host's is for passes.
void AddFirstInput(const host::Layout &layout)
{
    host::Store store(layout.Store());
    host::RegistryTree registry(store);
    if (inputs::AddFirstInput(store, registry))
        TRACE(TRACE_NOTABLE,
              "There is no system log: the journal is read, as the input \"journal\".");
}

} // namespace

int RunDaemon(const DaemonOptions &options)
{
    // The order: the folder of the lock, the lock, the store. A second daemon touches nothing of
    // the first one's.
    options.layout.CreateFolders();
    const status::DaemonLock only_one(options.layout.run);
    host::Host host(options.layout, host::Role::kDaemon);
    // While there is space on the disk: it is there for the time when there is none.
    host.store().KeepReserve();
    TraceLogSetThrName("syslogmond");
    if (options.adds_first_input)
        AddFirstInput(options.layout);
    Daemon daemon(host, options);
    return daemon.Run();
}

} // namespace syslogmond
