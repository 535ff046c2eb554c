#include "agent/alarms/alarm_watch.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "agent/host/error.h"
#include "agent/host/trace_log.h"
#include "agent/text/duration.h"
#include "agent/text/times.h"
#include "platform/trace.h"

namespace alarms {

namespace {

constexpr char kUnit[] = "alarms";

// Between two looks: short against what has to last before it is told, and never so short that it costs anything.
constexpr std::chrono::seconds kLongestPause{30};
constexpr std::chrono::seconds kShortestPause{1};

} // namespace

AlarmWatch::AlarmWatch(AlarmWatchOptions options)
    : options_(std::move(options)), store_(options_.store), registry_(store_), book_(store_)
{
    host::Patience patience;
    patience.leave = [this] { return stops_.load(); };
    store_.SetWait(std::move(patience));
    thread_ = std::thread([this] { Run(); });
}

AlarmWatch::~AlarmWatch()
{
    {
        const std::lock_guard lock(mutex_);
        stops_ = true;
        news_.notify_one();
    }
    thread_.join();
}

void AlarmWatch::MonitorEnded(MonitorEnd end)
{
    const std::lock_guard lock(mutex_);
    runs_ = false;
    end_ = std::move(end);
    ++ends_;
    woken_ = true;
    news_.notify_one();
}

void AlarmWatch::Run()
{
    TraceLogSetThrName("alarms");
    std::chrono::seconds pause = kShortestPause;
    while (!stops_) {
        try {
            pause = Look();
            store_failed_ = false;
        } catch (const std::exception &error) {
            if (!std::exchange(store_failed_, true))
                TRACE(TRACE_SYSTEM, "What is wrong is told later: %s", error.what());
        }
        Wait(pause);
    }
}

void AlarmWatch::Wait(std::chrono::seconds pause)
{
    std::unique_lock lock(mutex_);
    news_.wait_for(lock, pause, [this] { return woken_ || stops_; });
    woken_ = false;
}

// An end stands until a pass was stored behind it, and is seen by one look at least.
// True: that is the case with this look.
bool AlarmWatch::TakeEnd(Sight *sight)
{
    const std::lock_guard lock(mutex_);
    sight->end = end_;
    end_looked_at_ = ends_;
    return end_ && runs_;
}

// Behind the look that has stored it, unless another one has come since.
void AlarmWatch::ForgetEnd()
{
    const std::lock_guard lock(mutex_);
    if (ends_ == end_looked_at_)
        end_.reset();
}

std::chrono::seconds AlarmWatch::Look()
{
    Sight sight;
    sight.now_ms = options_.now_ms();
    sight.boot_ns = status::BootTimeNs();
    sight.status = options_.status();
    LookAround(store_, registry_, &sight);
    LookAtClock(sight);
    const bool end_is_past = TakeEnd(&sight);
    const auto told = book_.Take(TroublesIn(sight), sight.now_ms);
    if (end_is_past)
        ForgetEnd();
    for (const std::string &message : told)
        TRACE(TRACE_NOTABLE, "%s.", message.c_str());
    if (!told.empty())
        options_.stored();
    return std::clamp(std::chrono::seconds(sight.after_s) / 2, kShortestPause, kLongestPause);
}

// Which lines count depends on the clock: of one that is set back over the end of a month, none of the month to come.
void AlarmWatch::LookAtClock(const Sight &sight)
{
    clock_set_ms_ += clock_.Look(sight.now_ms, sight.boot_ns);
    if (clock_set_ms_ == 0)
        return;
    const std::string message = "the clock was set " +
                                std::string(clock_set_ms_ > 0 ? "forward" : "back") + " by " +
                                text::FormatDuration(std::abs(clock_set_ms_) / 1000) + ", to " +
                                text::UtcTime(sight.now_ms);
    alerts::AddOwnAlert(store_,
                        {alerts::OwnEvent::kClock, alerts::OwnState::kOnce, "", message, {}});
    clock_set_ms_ = 0;
    TRACE(TRACE_NOTABLE, "%s.", message.c_str());
    options_.stored();
}

} // namespace alarms
