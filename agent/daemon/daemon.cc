#include "agent/daemon/daemon.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <optional>
#include <poll.h>
#include <string>
#include <unistd.h>

#include "agent/daemon/alert_outlets.h"
#include "agent/daemon/doorbell.h"
#include "agent/daemon/life_watch.h"
#include "agent/daemon/live_settings.h"
#include "agent/daemon/named_events.h"
#include "agent/daemon/notify.h"
#include "agent/daemon/signals.h"
#include "agent/daemon/status_board.h"
#include "agent/daemon/store_wait.h"
#include "agent/daemon/supervisor.h"
#include "agent/daemon/trigger.h"
#include "agent/host/host.h"
#include "agent/host/trace_log.h"
#include "agent/status/daemon_lock.h"
#include "agent/text/say.h"
#include "platform/trace.h"

namespace syslogmond {

namespace {

constexpr char kUnit[] = "syslogmond";

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr int kExitAtOnce = 1;
constexpr int kExitWithoutStore = 1;

// A pass of these kinds has taken a file's name from the registry.
bool TakesNames(status::PassKind kind)
{
    return kind == status::PassKind::kStart || kind == status::PassKind::kCustomerFile ||
           kind == status::PassKind::kFileMonitor;
}

// Nothing in its loop waits: not for the store, which it reads through a connection of its own, not for
// whoever reads what it prints, not for the monitor. Alerts go from the monitor's thread to those of the
// sinks, and do not pass through here.
class Daemon {
  public:
    Daemon(host::Host &host, const DaemonOptions &options);
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
    void LookAtMonitor();
    void Stop();
    void EndWithoutStore();
    [[noreturn]] void LeaveMonitorBehind();

    void PassIsStored(const status::PassStatus &pass); // on the monitor thread
    void LookNow() const;
    void WatchingChanged(const std::string &problem);
    [[nodiscard]] SettingEffects Effects();
    [[nodiscard]] Milliseconds TimeToSleep() const;

    host::Host &host_;
    Signals signals_; // first: all threads inherit its mask
    NamedEvents events_;
    StatusBoard board_;
    StoreWait store_wait_{
        host_.layout().Store(), [this](int64_t since_ms) {
            board_.Update([&](status::Status &status) { status.waiting_since_ms = since_ms; });
        }};
    AlertOutlets outlets_;
    LifeWatch life_{board_};
    Trigger trigger_{[this] { LookNow(); },
                     [this](const std::string &problem) { WatchingChanged(problem); }};
    Doorbell names_taken_; // the monitor may follow other files than before
    LiveSettings settings_;
    Supervisor supervisor_; // last: its monitor uses the others
    bool stopping_ = false;
    int result_ = 0; // of the process
};

Daemon::Daemon(host::Host &host, const DaemonOptions &options)
    : host_(host), events_(options.layout.run), board_(host),
      outlets_(options.layout, options.print_alerts), settings_(options.layout.Store(), Effects()),
      supervisor_(host, board_, life_,
                  [this](const status::PassStatus &pass) { PassIsStored(pass); })
{
    host_.store().SetWait(store_wait_.Patience());
}

// ---- what follows from what ----

SettingEffects Daemon::Effects()
{
    SettingEffects effects;
    effects.restart_monitor = [this] { supervisor_.Restart(); };
    effects.reload_table = [this] {
        if (supervisor_.monitor() != nullptr)
            events_.table->Set();
    };
    effects.watch_files = [this](std::vector<std::filesystem::path> files, Milliseconds interval) {
        trigger_.Follow(std::move(files), interval);
    };
    return effects;
}

void Daemon::PassIsStored(const status::PassStatus &pass)
{
    outlets_.Wake();
    if (TakesNames(pass.kind))
        names_taken_.Ring();
}

// A monitor that starts reads everything anyway.
void Daemon::LookNow() const
{
    if (supervisor_.monitor() != nullptr)
        events_.scan->Set();
}

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

// ---- signals ----

void Daemon::TakeSignals()
{
    while (const auto number = signals_.Next())
        Act(*number);
}

void Daemon::Act(int signal_number)
{
    switch (signal_number) {
    case SIGHUP:
        events_.SetAll();
        outlets_.Reload();
        break;
    case SIGUSR1:
        events_.scan->Set();
        break;
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
    signals_.EndAtOnceWith(kExitAtOnce);
    outlets_.Close();
    _exit(0);
}

// ---- the loop ----

void Daemon::TakeSettings()
{
    const bool changed = events_.settings->TryTake();
    if (names_taken_.Answer() || changed || settings_.IsDue())
        settings_.ReadOrRetry();
}

void Daemon::LookAtMonitor()
{
    if (!life_.IsDue())
        return;
    life_.Look(supervisor_.monitor());
    if (supervisor_.monitor() != nullptr && life_.IsHopeless())
        LeaveMonitorBehind();
}

Milliseconds Daemon::TimeToSleep() const
{
    Milliseconds longest = life_.Interval();
    for (const auto &moment :
         {std::optional(life_.Next()), supervisor_.Next(), settings_.Next(), trigger_.Next()}) {
        if (!moment)
            continue;
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
    };
    poll(waiting, std::size(waiting), static_cast<int>(TimeToSleep().count()));
    // Taken, so that a change that brings nothing back is tried once. The start loads the whole table.
    if ((waiting[4].revents & POLLIN) != 0 && events_.table->TryTake())
        supervisor_.TryNow();
    trigger_.Work((waiting[5].revents & POLLIN) != 0, (waiting[6].revents & POLLPRI) != 0);
}

void Daemon::Loop()
{
    while (!stopping_ || supervisor_.monitor() != nullptr) {
        WaitForNews();
        TakeSignals();
        TakeSettings();
        if (!supervisor_.Work())
            EndWithoutStore();
        LookAtMonitor();
    }
}

int Daemon::Run()
{
    try {
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

} // namespace

int RunDaemon(const DaemonOptions &options)
{
    options.layout.CreateFolders();
    const status::DaemonLock only_one(options.layout.run);
    host::Host host(options.layout, host::Role::kDaemon);
    host.store().KeepReserve();
    TraceLogSetThrName("syslogmond");
    Daemon daemon(host, options);
    return daemon.Run();
}

} // namespace syslogmond
