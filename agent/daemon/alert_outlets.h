// Where stored alerts go: the deliverer of the sinks, and standard output when it is wanted. Each has a thread of
// its own and reads the store; here they are told that there is something to read.
#ifndef AGENT_DAEMON_ALERT_OUTLETS_H
#define AGENT_DAEMON_ALERT_OUTLETS_H

#include <mutex>
#include <optional>

#include "agent/daemon/console.h"
#include "agent/host/layout.h"
#include "agent/sinks/deliverer.h"

namespace syslogmond {

class AlertOutlets {
  public:
    // Throws host::Error when the store cannot be opened.
    AlertOutlets(const host::Layout &layout, bool print_alerts)
    {
        // First: it begins at the newest alert that is stored now, and whoever starts a daemon by
        // hand misses none of its own.
        if (print_alerts)
            console_.emplace(layout.Store());
        deliverer_.emplace(sinks::DelivererOptions{layout, {}});
    }

    // Alerts may have been stored. The monitor's thread rings here itself, at each rest, so no alert waits for the
    // main loop. From any thread; returns at once.
    void Wake()
    {
        const std::lock_guard lock(mutex_);
        if (deliverer_)
            deliverer_->Wake();
        if (console_)
            console_->Wake();
    }

    // Settings of sinks may have changed.
    void Reload()
    {
        const std::lock_guard lock(mutex_);
        if (deliverer_)
            deliverer_->Reload();
    }

    // Ends them, each within its own limit of time. A monitor that is left behind may still ring.
    void Close()
    {
        const std::lock_guard lock(mutex_);
        deliverer_.reset();
        console_.reset();
    }

  private:
    std::mutex mutex_; // for a monitor that is left behind: else nobody rings while they end
    std::optional<Console> console_;
    std::optional<sinks::Deliverer> deliverer_;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_ALERT_OUTLETS_H
