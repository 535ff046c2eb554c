#include "agent/daemon/life_watch.h"

#include <algorithm>

#include "agent/daemon/notify.h"

namespace syslogmond {

namespace {

using Milliseconds = LifeWatch::Milliseconds;

// Between two looks at the monitor; a watchdog can make it less.
constexpr Milliseconds kLook{10000};
// And while the daemon stops. A monitor that does not go on for so long is left behind.
constexpr Milliseconds kLookAtStop{250};
constexpr Milliseconds kStopPatience{10000};
// What the first pass asks of systemd at each look, as long as it goes on.
constexpr unsigned kStartExtensionSeconds = 60;
static_assert(Milliseconds(kStartExtensionSeconds * 1000) > 2 * kLook);

} // namespace

LifeWatch::LifeWatch(StatusBoard &board)
    : board_(board), has_watchdog_(WatchdogPulseMs() > 0),
      look_every_(has_watchdog_ ? std::min(Milliseconds(WatchdogPulseMs()), kLook) : kLook)
{
}

void LifeWatch::StopBegins()
{
    stopping_ = true;
    vigil_.Restart();
    next_look_ = Clock::now();
}

void LifeWatch::PassIsStored()
{
    if (!is_ready_.exchange(true))
        NotifyReady();
}

void LifeWatch::Look(const Monitor *monitor)
{
    next_look_ = Clock::now() + (stopping_ ? std::min(kLookAtStop, look_every_) : look_every_);
    const bool has_gone_on = monitor == nullptr || vigil_.Look(monitor->SignsOfLife());
    const int64_t still_ms = has_gone_on ? 0 : vigil_.Still().count();
    board_.Update([&](status::Status &status) {
        status.alive_ns = status::UpTimeNs();
        status.still_ms = still_ms;
    });
    if (has_watchdog_ && has_gone_on)
        NotifyAlive();
    if (!is_ready_ && monitor != nullptr && has_gone_on)
        NotifyStartTakesLonger(kStartExtensionSeconds);
}

bool LifeWatch::IsHopeless() const
{
    return stopping_ && vigil_.Still() >= kStopPatience;
}

} // namespace syslogmond
