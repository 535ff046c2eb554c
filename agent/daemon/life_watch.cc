#include "agent/daemon/life_watch.h"

#include <algorithm>

#include "agent/daemon/notify.h"

namespace syslogmond {

namespace {

using Milliseconds = LifeWatch::Milliseconds;

// Between two looks at the monitor; a watchdog can make it less. Those who judge the daemon by its
// status count on it.
constexpr Milliseconds kLook{10000};
// And while the daemon stops, since somebody waits for it.
constexpr Milliseconds kLookAtStop{250};
// A monitor that does not go on for so long is left behind. It is far more than any line or commit
// should take, and less than the time after which systemd kills.
constexpr Milliseconds kStopPatience{10000};
// What the first pass asks of systemd at each look, as long as it goes on. Longer than two looks,
// so that one which comes late does no harm.
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
    // At once, so that the next ones come at the shorter distance.
    next_look_ = Clock::now();
}

void LifeWatch::PassIsStored()
{
    // Once: a monitor that is started again makes nothing ready that was not.
    if (!is_ready_.exchange(true))
        NotifyReady();
}

void LifeWatch::Look(const Monitor *monitor)
{
    next_look_ = Clock::now() + (stopping_ ? std::min(kLookAtStop, look_every_) : look_every_);
    // Without a monitor, in a pause, there is nothing that could hang.
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
