#include "agent/daemon/daemon.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "agent/alerts/deliverer.h"
#include "agent/common/daemon_lock.h"
#include "agent/common/log_files.h"
#include "agent/common/names.h"
#include "agent/common/status_file.h"
#include "agent/daemon/console.h"
#include "agent/daemon/module.h"
#include "agent/daemon/monitor.h"
#include "agent/daemon/notify.h"
#include "agent/daemon/trigger.h"
#include "agent/libtarsk/convert.h"
#include "agent/libtarsk/error.h"
#include "agent/libtarsk/host.h"
#include "agent/libtarsk/settings.h"
#include "agent/libtarsk/trace_log.h"
#include "agent/libtarsk/waitable.h"
#include "platform/trace.h"

namespace agent {

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

// A counter that one thread raises and another polls for.
class Doorbell {
  public:
    Doorbell() : fd_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
    {
        if (fd_.get() < 0)
            throw tarsk::Error("cannot start the daemon", strerror(errno),
                               "raise the limit of open files");
    }
    void Ring() const
    {
        const uint64_t one = 1;
        if (write(fd_.get(), &one, sizeof one) < 0)
            return; // it is ringing already
    }
    [[nodiscard]] bool Answer() const
    {
        uint64_t rings = 0;
        return read(fd_.get(), &rings, sizeof rings) > 0;
    }
    [[nodiscard]] int fd() const { return fd_.get(); }

  private:
    tarsk::Fd fd_;
};

// The signals the daemon acts on, blocked in all threads and read here.
class Signals {
  public:
    Signals()
    {
        signal(SIGPIPE, SIG_IGN);
        sigset_t set;
        sigemptyset(&set);
        for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGUSR1})
            sigaddset(&set, number);
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
        fd_ = tarsk::Fd(signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC));
    }
    // The next signal, or nothing.
    [[nodiscard]] std::optional<int> Next() const
    {
        signalfd_siginfo info{};
        if (read(fd_.get(), &info, sizeof info) != static_cast<ssize_t>(sizeof info))
            return std::nullopt;
        return static_cast<int>(info.ssi_signo);
    }
    [[nodiscard]] int fd() const { return fd_.get(); }

  private:
    tarsk::Fd fd_;
};

// The named events, held open for the life of the daemon: a signal that comes while the monitor is
// down is there when it starts again.
class NamedEvents {
  public:
    explicit NamedEvents(const std::filesystem::path &run)
        : table(Open(run, kTableEvent)), cycle(Open(run, kCycleEvent)), scan(Open(run, kScanEvent)),
          customer_file(Open(run, kCustomerFileEvent)), file_monitor(Open(run, kFileMonitorEvent)),
          settings(Open(run, tarsk::kAgentSettingsEvent))
    {
    }
    std::shared_ptr<tarsk::Event> table;
    std::shared_ptr<tarsk::Event> cycle;
    std::shared_ptr<tarsk::Event> scan;
    std::shared_ptr<tarsk::Event> customer_file;
    std::shared_ptr<tarsk::Event> file_monitor;
    std::shared_ptr<tarsk::Event> settings;

  private:
    static std::shared_ptr<tarsk::Event> Open(const std::filesystem::path &run, const char *name)
    {
        return tarsk::Event::Create(run, name, false, false);
    }
};

// The status, written by both threads.
class StatusBoard {
  public:
    explicit StatusBoard(std::filesystem::path run) : run_(std::move(run))
    {
        status_.pid = getpid();
        status_.version = SYSLOGMON_VERSION;
        status_.started_ms = WallTimeMs();
    }
    template <typename Change>
    void Update(const Change &change)
    {
        const std::lock_guard lock(mutex_);
        change(status_);
        try {
            WriteStatus(run_, status_);
        } catch (const std::exception &error) {
            TRACE(TRACE_SYSTEM, "%s", error.what()); // the monitor's work is not touched by it
        }
    }

  private:
    std::mutex mutex_;
    std::filesystem::path run_;
    Status status_;
};

class Daemon {
  public:
    explicit Daemon(const DaemonOptions &options)
        : events_(options.layout.run), board_(options.layout.run),
          module_(options.layout.Library("vkevmon.dll")),
          trigger_([this] { LookNow(); },
                   [this](const std::string &problem) { WatchingChanged(problem); }),
          deliverer_({options.layout, {}})
    {
        if (options.print_alerts)
            console_.emplace(options.layout.Store());
    }

    int Run();

  private:
    void StartMonitor();
    void MonitorEnded();
    void WaitForNews();
    void TakeSignals();
    void Act(int signal_number);
    void ReadSettings();
    void FollowFiles();
    void LookNow() const;
    void WatchingChanged(const std::string &problem);
    void FeedWatchdog();
    [[nodiscard]] Milliseconds TimeToSleep() const;

    Signals signals_;
    NamedEvents events_;
    StatusBoard board_;
    Module module_;
    Trigger trigger_;
    std::optional<Console> console_;
    alerts::Deliverer deliverer_;

    Doorbell stored_;                            // a pass was committed
    Doorbell ended_;                             // the monitor thread is about to end
    std::atomic<bool> files_may_differ_ = false; // a pass took another file's name
    std::unique_ptr<Monitor> monitor_;
    Clock::time_point started_at_;
    std::optional<Clock::time_point> start_again_at_; // set while pausing
    Milliseconds pause_ = kFirstPause;
    bool stopping_ = false;
    bool restart_wanted_ = false; // to take a setting that is read at a start only

    unsigned watchdog_ms_ = WatchdogPulseMs();
    int64_t processor_time_ns_ = 0;
    uint32_t fault_tolerant_ = 0;
};

// The monitor does not start without the key of its table. On a new host nothing is registered yet.
void CreateTableKey()
{
    try {
        tarsk::HostRegistry().Create(tarsk::kRootKey, kApplicationKey);
        tarsk::HostStore().CommitPass();
    } catch (const tarsk::Error &error) {
        TRACE(TRACE_SYSTEM, "%s", error.what()); // the monitor will say that it cannot start
        tarsk::HostStore().AbandonPass();
    }
}

void Daemon::StartMonitor()
{
    CreateTableKey();
    start_again_at_.reset();
    started_at_ = Clock::now();
    processor_time_ns_ = 0;
    board_.Update([](Status &status) {
        status.state = MonitorState::kStarting;
        status.next_start_ms = 0;
    });
    MonitorEvents events;
    events.started = [this] {
        board_.Update([this](Status &status) {
            status.state = MonitorState::kRunning;
            status.table_size = module_.table().Size();
        });
        NotifyReady();
    };
    events.at_rest = [this](const PassStatus &pass, int table_size) {
        board_.Update([&](Status &status) {
            status.table_size = table_size;
            status.last_pass = pass;
            if (ReadsAllFiles(pass.kind))
                status.last_full_pass = pass;
        });
        NotifyAlive();
        if (pass.kind == PassKind::kStart || pass.kind == PassKind::kCustomerFile ||
            pass.kind == PassKind::kFileMonitor)
            files_may_differ_ = true;
        stored_.Ring();
    };
    events.pulse = NotifyAlive;
    events.pulse_ms = watchdog_ms_;
    events.ended = [this] { ended_.Ring(); };
    monitor_ = std::make_unique<Monitor>(module_, std::move(events));
}

void Daemon::MonitorEnded()
{
    const bool asked = monitor_->StopWasRequested();
    const std::string reason =
        monitor_->reason().empty() ? "it ended without saying why" : monitor_->reason();
    monitor_.reset();
    if (stopping_)
        return;
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
    fprintf(stderr, "syslogmond: the monitor ended: %s; it is started again in %lld s\n",
            reason.c_str(), static_cast<long long>(seconds));
    board_.Update([&](Status &status) {
        status.state = MonitorState::kPausing;
        status.last_error = reason;
        status.next_start_ms = WallTimeMs() + pause_.count();
        ++status.restarts;
    });
    pause_ = std::min(pause_ * 2, kLongestPause);
}

void Daemon::Act(int signal_number)
{
    switch (signal_number) {
    case SIGHUP:
        events_.table->Set();
        events_.cycle->Set();
        events_.customer_file->Set();
        events_.file_monitor->Set();
        deliverer_.Reload();
        break;
    case SIGUSR1:
        events_.scan->Set();
        break;
    default:
        if (stopping_) {
            // The second time: whoever sends it does not want to wait. The store loses nothing.
            _exit(kExitAtOnce);
        }
        stopping_ = true;
        NotifyStopping();
        board_.Update([](Status &status) { status.state = MonitorState::kStopping; });
        if (monitor_)
            monitor_->RequestStop();
        break;
    }
}

void Daemon::TakeSignals()
{
    while (const auto number = signals_.Next())
        Act(*number);
}

void Daemon::ReadSettings()
{
    tarsk::SetTraceLevel(static_cast<int>(std::min<uint32_t>(
        tarsk::AgentNumber("TraceLevel").value_or(tarsk::kDefaultTraceLevel), tarsk::kTraceOff)));
    const std::string charset = tarsk::AgentText("LogCharset").value_or(tarsk::kDefaultLogCharset);
    if (!tarsk::SetLogCharset(charset))
        TRACE(TRACE_ERROR, "The log's character set %s is not known; the one before is kept.",
              charset.c_str());
    const uint32_t fault_tolerant = tarsk::AgentNumber("FaultTolerant").value_or(0);
    if (fault_tolerant != fault_tolerant_ && monitor_) {
        restart_wanted_ = true; // the module asks only when it starts
        monitor_->RequestStop();
    }
    fault_tolerant_ = fault_tolerant;
    FollowFiles();
}

// The files are read from the registry after the monitor has taken their names, so both follow the
// same ones.
void Daemon::FollowFiles()
{
    const uint32_t interval =
        tarsk::AgentNumber("TriggerInterval").value_or(tarsk::kDefaultTriggerInterval);
    trigger_.Follow(WatchedPaths(tarsk::HostRegistry()),
                    Milliseconds(std::min(interval, tarsk::kMaxTriggerInterval)));
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
        fprintf(stderr, "syslogmond: %s\n", text.c_str());
    }
    board_.Update([&](Status &status) { status.watch_problem = problem; });
}

// While the monitor waits, it feeds the watchdog itself. In a pass, it is alive as long as it uses
// the processor: a pass over gigabytes is no reason to be killed, one that hangs is.
void Daemon::FeedWatchdog()
{
    if (!monitor_) {
        NotifyAlive(); // pausing
        return;
    }
    const int64_t used = monitor_->ProcessorTimeNs();
    if (used != processor_time_ns_)
        NotifyAlive();
    processor_time_ns_ = used;
}

Milliseconds Daemon::TimeToSleep() const
{
    Milliseconds longest = std::chrono::hours(1);
    if (watchdog_ms_ > 0)
        longest = Milliseconds(watchdog_ms_);
    for (const auto &moment : {start_again_at_, trigger_.Next()}) {
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

int Daemon::Run()
{
    ReadSettings();
    StartMonitor();
    while (!stopping_ || monitor_) {
        WaitForNews();
        TakeSignals();
        if (events_.settings->TryTake())
            ReadSettings();
        if (stored_.Answer()) {
            deliverer_.Wake();
            if (console_)
                console_->PrintNews();
        }
        if (files_may_differ_.exchange(false))
            FollowFiles();
        if (ended_.Answer())
            MonitorEnded();
        if (start_again_at_ && !stopping_ && Clock::now() >= *start_again_at_)
            StartMonitor();
        if (watchdog_ms_ > 0)
            FeedWatchdog();
    }
    if (console_)
        console_->PrintNews();
    return 0;
}

// Without TZ, the C library looks at /etc/localtime again for every line it converts a time of.
void FixTimeZone()
{
    setenv("TZ", ":/etc/localtime", 0);
    tzset();
}

} // namespace

int RunDaemon(const DaemonOptions &options)
{
    FixTimeZone();
    options.layout.CreateFolders();
    const DaemonLock only_one(options.layout.run);
    tarsk::StartHost(options.layout, tarsk::Role::kDaemon);
    TraceLogSetThrName("syslogmond");
    int result = 0;
    {
        Daemon daemon(options);
        result = daemon.Run();
    }
    tarsk::StopHost();
    return result;
}

} // namespace agent
