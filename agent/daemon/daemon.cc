#include "agent/daemon/daemon.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "agent/daemon/console.h"
#include "agent/daemon/doorbell.h"
#include "agent/daemon/module.h"
#include "agent/daemon/monitor.h"
#include "agent/daemon/notify.h"
#include "agent/daemon/signals.h"
#include "agent/daemon/status_board.h"
#include "agent/daemon/store_wait.h"
#include "agent/daemon/trigger.h"
#include "agent/daemon/vigil.h"
#include "agent/host/agent_values.h"
#include "agent/host/convert.h"
#include "agent/host/error.h"
#include "agent/host/host.h"
#include "agent/host/trace_log.h"
#include "agent/host/waitable.h"
#include "agent/logs/log_files.h"
#include "agent/sinks/deliverer.h"
#include "agent/status/daemon_lock.h"
#include "agent/text/say.h"
#include "platform/contract.h"
#include "platform/trace.h"

namespace syslogmond {

namespace {

constexpr char kUnit[] = "syslogmond";

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

// Pause before the monitor is started again, doubled each time up to the longest.
constexpr Milliseconds kFirstPause{1000};
constexpr Milliseconds kLongestPause{60000};
// A monitor that ran this long was well: the next pause is the first again.
constexpr Milliseconds kRanWell{60000};
static_assert(kFirstPause < kLongestPause, "the pause must be able to grow");

constexpr int kExitAtOnce = 1;
constexpr int kExitWithoutStore = 1;

// Between two looks at the monitor; a watchdog can make it less.
constexpr Milliseconds kLook{10000};
// And while the daemon stops. A monitor that does not go on for so long is left behind: one line can
// keep an expression busy without end. Reading a line takes microseconds, storing a pass a second.
constexpr Milliseconds kLookAtStop{250};
constexpr Milliseconds kStopPatience{10000};
// What the first pass asks of systemd at each look, as long as it goes on.
constexpr unsigned kStartExtensionSeconds = 60;
static_assert(Milliseconds(kStartExtensionSeconds * 1000) > 2 * kLook);

// The named events, held open for the life of the daemon: a signal that comes while the monitor is
// down is there when it starts again.
class NamedEvents {
  public:
    explicit NamedEvents(const std::filesystem::path &run)
        : table(Open(run, kTableEvent)), cycle(Open(run, kCycleEvent)), scan(Open(run, kScanEvent)),
          customer_file(Open(run, kCustomerFileEvent)), file_monitor(Open(run, kFileMonitorEvent)),
          settings(Open(run, host::kAgentSettingsEvent))
    {
    }
    std::shared_ptr<host::WakeEvent> table;
    std::shared_ptr<host::WakeEvent> cycle;
    std::shared_ptr<host::WakeEvent> scan;
    std::shared_ptr<host::WakeEvent> customer_file;
    std::shared_ptr<host::WakeEvent> file_monitor;
    std::shared_ptr<host::WakeEvent> settings;

  private:
    static std::shared_ptr<host::WakeEvent> Open(const std::filesystem::path &run, const char *name)
    {
        return host::WakeEvent::Create(run, name, false, false);
    }
};

// What is read of the registry here, all of it before any of it is taken.
struct AgentSettings {
    int trace_level;
    std::string charset;
    bool fault_tolerant;
    Milliseconds trigger_interval;
    std::vector<std::filesystem::path> files;
};

AgentSettings ReadAgentSettings(host::RegistryTree &registry)
{
    const uint32_t level =
        host::AgentNumber(registry, "TraceLevel").value_or(host::kDefaultTraceLevel);
    const uint32_t interval =
        host::AgentNumber(registry, "TriggerInterval").value_or(host::kDefaultTriggerInterval);
    return {static_cast<int>(std::min<uint32_t>(level, host::kTraceOff)),
            host::AgentText(registry, "LogCharset").value_or(host::kDefaultLogCharset),
            host::AgentNumber(registry, "FaultTolerant").value_or(0) != 0,
            Milliseconds(std::min(interval, host::kMaxTriggerInterval)),
            logs::WatchedPaths(registry)};
}

// Nothing in its loop waits: not for the store, which it reads through a connection of its own, not for
// whoever reads what it prints, not for the monitor.
class Daemon {
  public:
    explicit Daemon(const DaemonOptions &options)
        : events_(options.layout.run), board_(options.layout.run),
          module_(options.layout.Library("vkevmon.dll")), store_(options.layout.Store()),
          registry_(store_),
          trigger_([this] { LookNow(); },
                   [this](const std::string &problem) { WatchingChanged(problem); })
    {
        if (options.print_alerts)
            console_.emplace(options.layout.Store());
        deliverer_.emplace(sinks::DelivererOptions{options.layout, {}});
        host::HostStore().SetWait(store_wait_.Patience());
    }
    ~Daemon() { host::HostStore().SetWait({}); }
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    int Run();

  private:
    void StartMonitor();
    void MonitorEnded();
    void EndWithoutStore();
    void WaitForNews();
    void TakeSignals();
    void Act(int signal_number);
    void Stop();
    void TakeSettings();
    void ReadSettings();
    void TakeCharset(const std::string &charset);
    void LookNow() const;
    void WatchingChanged(const std::string &problem);
    void LookAtMonitor();
    void Publish(const status::PassStatus &pass, int table_size);
    void Loop();
    [[noreturn]] void LeaveMonitorBehind();
    [[nodiscard]] Milliseconds TimeToSleep() const;

    Signals signals_;
    NamedEvents events_;
    StatusBoard board_;
    StoreWait store_wait_{[this](int64_t since_ms) {
        board_.Update([&](status::Status &status) { status.waiting_since_ms = since_ms; });
    }};
    Module module_;
    host::Store store_;
    host::RegistryTree registry_;
    Trigger trigger_;
    std::optional<Console> console_;
    std::optional<sinks::Deliverer> deliverer_;

    Doorbell stored_;                            // a pass was committed
    Doorbell ended_;                             // the monitor thread is about to end
    std::atomic<bool> files_may_differ_ = false; // a pass took another file's name
    std::atomic<bool> is_ready_ = false;         // the first pass is stored
    std::unique_ptr<Monitor> monitor_;
    Clock::time_point started_at_;
    std::optional<Clock::time_point> start_again_at_; // set while pausing
    Milliseconds pause_ = kFirstPause;
    bool stopping_ = false;
    int result_ = 0;              // of the process
    bool restart_wanted_ = false; // to take a setting that is read at a start only

    std::optional<Clock::time_point> read_again_at_; // settings that could not be read
    Milliseconds read_pause_ = kFirstPause;
    std::string charset_ = host::kDefaultLogCharset;
    bool fault_tolerant_ = false;

    bool has_watchdog_ = WatchdogPulseMs() > 0;
    Milliseconds look_every_ =
        has_watchdog_ ? std::min(Milliseconds(WatchdogPulseMs()), kLook) : kLook;
    Clock::time_point next_look_;
    Vigil vigil_;
};

void Daemon::StartMonitor()
{
    start_again_at_.reset();
    started_at_ = Clock::now();
    board_.Update([](status::Status &status) {
        status.state = status::MonitorState::kStarting;
        status.next_start_ms = 0;
    });
    MonitorNews events;
    events.started = [this](int table_size) {
        board_.Update([&](status::Status &status) { status.table_size = table_size; });
    };
    events.at_rest = [this](const status::PassStatus &pass, int table_size) {
        Publish(pass, table_size);
    };
    events.pulse_ms = static_cast<DWORD>(look_every_.count());
    events.ended = [this] { ended_.Ring(); };
    monitor_ = std::make_unique<Monitor>(module_, std::move(events));
    vigil_.Restart();
}

// On the monitor thread. Whoever waits for the daemon to be ready counts on it that a line which he
// writes from then on is read: so it is ready when the place is stored from which it reads on.
void Daemon::Publish(const status::PassStatus &pass, int table_size)
{
    board_.Update([&](status::Status &status) {
        if (status.state == status::MonitorState::kStarting)
            status.state = status::MonitorState::kRunning;
        status.table_size = table_size;
        status.last_pass = pass;
        status.still_ms = 0;
        if (status::ReadsAllFiles(pass.kind))
            status.last_full_pass = pass;
    });
    if (!is_ready_.exchange(true))
        NotifyReady();
    if (pass.kind == status::PassKind::kStart || pass.kind == status::PassKind::kCustomerFile ||
        pass.kind == status::PassKind::kFileMonitor)
        files_may_differ_ = true;
    stored_.Ring();
}

void Daemon::MonitorEnded()
{
    const bool asked = monitor_->StopWasRequested();
    const std::string reason =
        monitor_->reason().empty() ? "it ended without saying why" : monitor_->reason();
    monitor_.reset();
    if (stopping_)
        return;
    if (!host::HostStore().IsInPlace()) {
        EndWithoutStore();
        return;
    }
    if (restart_wanted_ && asked) {
        restart_wanted_ = false;
        StartMonitor();
        return;
    }
    if (Clock::now() - started_at_ >= kRanWell)
        pause_ = kFirstPause;
    start_again_at_ = Clock::now() + pause_;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(pause_).count();
    TRACE(TRACE_NOTABLE, "The monitor ended: %s. It is started again in %lld s.", reason.c_str(),
          static_cast<long long>(seconds));
    text::Say("the monitor ended: " + reason + "; it is started again in " +
              std::to_string(seconds) + " s");
    board_.Update([&](status::Status &status) {
        status.state = status::MonitorState::kPausing;
        status.last_error = reason;
        status.next_start_ms = status::WallTimeMs() + pause_.count();
        ++status.restarts;
    });
    pause_ = std::min(pause_ * 2, kLongestPause);
}

// Everything that this process has open belongs to a file that nobody else sees. The next process
// opens what is there by then.
void Daemon::EndWithoutStore()
{
    const std::string text = "the store " + host::HostLayout().Store().string() +
                             " was removed or replaced while the daemon ran, which therefore ends; "
                             "the pass under way was not stored";
    TRACE(TRACE_SYSTEM, "%s", text.c_str());
    text::Say(text);
    stopping_ = true;
    result_ = kExitWithoutStore;
}

void Daemon::Act(int signal_number)
{
    switch (signal_number) {
    case SIGHUP:
        for (const auto &event : {events_.table, events_.cycle, events_.customer_file,
                                  events_.file_monitor, events_.settings})
            event->Set();
        deliverer_->Reload();
        break;
    case SIGUSR1:
        events_.scan->Set();
        break;
    default:
        Stop();
        break;
    }
}

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
    if (monitor_)
        monitor_->RequestStop();
    vigil_.Restart();
    next_look_ = Clock::now();
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
    deliverer_.reset();
    console_.reset();
    _exit(0);
}

void Daemon::TakeSignals()
{
    while (const auto number = signals_.Next())
        Act(*number);
}

// A store that cannot be read is read again after a pause; until then the settings are what they were.
void Daemon::TakeSettings()
{
    try {
        ReadSettings();
        read_again_at_.reset();
        read_pause_ = kFirstPause;
    } catch (const host::Error &error) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(read_pause_).count();
        const std::string told = std::string("the settings cannot be read: ") + error.what() +
                                 "; they are read again in " + std::to_string(seconds) + " s";
        TRACE(TRACE_SYSTEM, "%s", told.c_str());
        text::Say(told);
        read_again_at_ = Clock::now() + read_pause_;
        read_pause_ = std::min(read_pause_ * 2, kLongestPause);
    }
}

// The files are read from the registry after the monitor has taken their names, so both follow the
// same ones.
void Daemon::ReadSettings()
{
    AgentSettings settings = ReadAgentSettings(registry_);
    host::SetTraceLevel(settings.trace_level);
    TakeCharset(settings.charset);
    if (settings.fault_tolerant != fault_tolerant_ && monitor_) {
        restart_wanted_ = true; // the module asks only when it starts
        monitor_->RequestStop();
    }
    fault_tolerant_ = settings.fault_tolerant;
    trigger_.Follow(std::move(settings.files), settings.trigger_interval);
}

// The table holds its keywords in the character set of the log: it is loaded again.
void Daemon::TakeCharset(const std::string &charset)
{
    if (charset == charset_)
        return;
    if (!host::SetLogCharset(charset)) {
        TRACE(TRACE_ERROR, "The log's character set %s is not known; the one before is kept.",
              charset.c_str());
        return;
    }
    charset_ = charset;
    if (monitor_)
        events_.table->Set();
}

// A monitor that starts reads everything anyway.
void Daemon::LookNow() const
{
    if (monitor_)
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

// The watchdog is fed here alone, so it hears of a main loop that hangs; and only while the monitor goes
// on, pulse by pulse in its wait and line by line in a pass: a pass over gigabytes is no reason to be
// killed, one that hangs is.
void Daemon::LookAtMonitor()
{
    next_look_ = Clock::now() + (stopping_ ? std::min(kLookAtStop, look_every_) : look_every_);
    const bool has_gone_on = !monitor_ || vigil_.Look(monitor_->SignsOfLife());
    if (stopping_ && monitor_ && vigil_.Still() >= kStopPatience)
        LeaveMonitorBehind();
    const int64_t still_ms = has_gone_on ? 0 : vigil_.Still().count();
    board_.Update([&](status::Status &status) {
        status.alive_ns = status::UpTimeNs();
        status.still_ms = still_ms;
    });
    if (has_watchdog_ && has_gone_on)
        NotifyAlive();
    if (!is_ready_ && monitor_ && has_gone_on)
        NotifyStartTakesLonger(kStartExtensionSeconds);
}

Milliseconds Daemon::TimeToSleep() const
{
    Milliseconds longest = look_every_;
    for (const auto &moment :
         {std::optional(next_look_), start_again_at_, read_again_at_, trigger_.Next()}) {
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
        {stored_.fd(), POLLIN, 0},
        {ended_.fd(), POLLIN, 0},
        {events_.settings->PollFd(), POLLIN, 0},
        // While pausing: a changed table may be what mends the monitor, so it is tried at once.
        {start_again_at_ ? events_.table->PollFd() : -1, POLLIN, 0},
        {trigger_.ChangesFd(), POLLIN, 0},
        {trigger_.MountsFd(), POLLPRI, 0},
    };
    poll(waiting, std::size(waiting), static_cast<int>(TimeToSleep().count()));
    // Taken, so that a change that mends nothing is tried once. The start loads the whole table.
    if ((waiting[4].revents & POLLIN) != 0 && events_.table->TryTake())
        start_again_at_ = Clock::now();
    trigger_.Work((waiting[5].revents & POLLIN) != 0, (waiting[6].revents & POLLPRI) != 0);
}

void Daemon::Loop()
{
    while (!stopping_ || monitor_) {
        WaitForNews();
        TakeSignals();
        const bool read_again = read_again_at_ && Clock::now() >= *read_again_at_;
        const bool changed = events_.settings->TryTake();
        if (files_may_differ_.exchange(false) || changed || read_again)
            TakeSettings();
        if (stored_.Answer()) {
            deliverer_->Wake();
            if (console_)
                console_->Wake();
        }
        if (ended_.Answer())
            MonitorEnded();
        if (start_again_at_ && !stopping_ && Clock::now() >= *start_again_at_)
            StartMonitor();
        if (Clock::now() >= next_look_)
            LookAtMonitor();
    }
}

int Daemon::Run()
{
    try {
        ReadSettings();
        StartMonitor();
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
    host::StartHost(options.layout, host::Role::kDaemon);
    host::HostStore().KeepReserve();
    TraceLogSetThrName("syslogmond");
    int result = 0;
    {
        Daemon daemon(options);
        result = daemon.Run();
    }
    host::StopHost();
    return result;
}

} // namespace syslogmond
