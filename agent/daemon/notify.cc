#include "agent/daemon/notify.h"

#include <cstdint>

#include <systemd/sd-daemon.h>

namespace syslogmond {

void NotifyReady()
{
    // 0 everywhere: the variables of systemd stay, for all these calls. What they return is not
    // looked at: without systemd they do nothing, and a failure could not be mended here.
    sd_notify(0, "READY=1");
}

void NotifyStopping()
{
    sd_notify(0, "STOPPING=1");
}

void NotifyStartTakesLonger(unsigned seconds)
{
    sd_notifyf(0, "EXTEND_TIMEOUT_USEC=%u000000", seconds);
}

void NotifyAlive()
{
    sd_notify(0, "WATCHDOG=1");
}

unsigned WatchdogPulseMs()
{
    uint64_t limit_us = 0;
    if (sd_watchdog_enabled(0, &limit_us) <= 0)
        return 0;
    // A third: two may be late before systemd acts.
    return static_cast<unsigned>(limit_us / 3 / 1000);
}

} // namespace syslogmond
