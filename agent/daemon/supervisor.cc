#include "agent/daemon/supervisor.h"

#include <utility>

#include "agent/daemon/trace_unit.h"
#include "agent/text/say.h"

namespace syslogmond {

namespace {

// A monitor that ran this long, as long as the longest pause, was well: the next pause is the first
// again.
constexpr std::chrono::seconds kRanWell{60};

} // namespace

Supervisor::Supervisor(host::Host &host, StatusBoard &board, LifeWatch &life, InputFeed &feed,
                       std::function<void(const status::PassStatus &)> stored,
                       std::function<void(const std::string &, bool)> ended)
    : host_(host), board_(board), life_(life), feed_(feed), stored_(std::move(stored)),
      told_end_(std::move(ended)), module_(host.layout())
{
}

void Supervisor::Start()
{
    start_again_at_.reset();
    started_at_ = Clock::now();
    has_table_ = false;
    board_.Update([](status::Status &status) {
        status.state = status::MonitorState::kStarting;
        status.next_start_ms = 0;
    });
    MonitorNews news;
    news.started = [this](int table_size) {
        has_table_ = true;
        board_.Update([&](status::Status &status) { status.table_size = table_size; });
    };
    news.at_rest = [this](const status::PassStatus &pass, int table_size) {
        Publish(pass, table_size);
    };
    news.pulse_ms = static_cast<DWORD>(life_.Interval().count());
    news.ended = [this] { ended_.Ring(); };
    monitor_ = std::make_unique<Monitor>(host_, module_, feed_, std::move(news));
    life_.Restart();
}

// On the monitor thread.
void Supervisor::Publish(const status::PassStatus &pass, int table_size)
{
    board_.Update([&](status::Status &status) {
        // A monitor that is asked to stop ends its pass, and the status stays at stopping.
        if (status.state == status::MonitorState::kStarting)
            status.state = status::MonitorState::kRunning;
        status.table_size = table_size;
        status.last_pass = pass;
        status.still_ms = 0;
        feed_.TellStatus(&status);
        // Kept apart: somebody may wait for one, and others come behind it.
        if (status::ReadsAllFiles(pass.kind))
            status.last_full_pass = pass;
    });
    life_.PassIsStored();
    // Last: who is woken by it finds the status of this pass.
    stored_(pass);
}

void Supervisor::Restart()
{
    if (!monitor_)
        return; // the next start takes what has changed
    restart_wanted_ = true;
    monitor_->RequestStop();
}

void Supervisor::Stop()
{
    stopping_ = true;
    if (monitor_)
        monitor_->RequestStop();
}

void Supervisor::TryNow()
{
    start_again_at_ = Clock::now();
}

bool Supervisor::Work()
{
    if (ended_.Answer() && !MonitorEnded())
        return false;
    if (start_again_at_ && !stopping_ && Clock::now() >= *start_again_at_)
        Start();
    return true;
}

bool Supervisor::MonitorEnded()
{
    // Read before the monitor goes; its destructor asks, too, and joins a thread that is about to
    // end.
    const bool asked = monitor_->StopWasRequested();
    const std::string reason =
        monitor_->reason().empty() ? "it ended without saying why" : monitor_->reason();
    monitor_.reset();
    if (stopping_)
        return true;
    // Asked at the end of each life: a monitor whose commits fail for this reason ends, and would
    // do so again and again.
    if (!host_.store().IsInPlace())
        return false;
    // Also one that failed while it was asked to: the new one finds out.
    if (std::exchange(restart_wanted_, false) && asked)
        Start();
    else
        Pause(reason);
    return true;
}

void Supervisor::Pause(const std::string &reason)
{
    if (Clock::now() - started_at_ >= kRanWell)
        pause_.Reset();
    const auto pause = pause_.Take();
    start_again_at_ = Clock::now() + pause;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(pause).count();
    TRACE(TRACE_NOTABLE, "The monitor ended: %s. It is started again in %lld s.", reason.c_str(),
          static_cast<long long>(seconds));
    text::Say("the monitor ended: " + reason + "; it is started again in " +
              std::to_string(seconds) + " s");
    board_.Update([&](status::Status &status) {
        status.state = status::MonitorState::kPausing;
        status.last_error = reason;
        // Time of day, since it is for people; the pause itself runs on a clock that nobody sets.
        status.next_start_ms = status::WallTimeMs() + pause.count();
        ++status.restarts;
    });
    told_end_(reason, has_table_);
}

} // namespace syslogmond
