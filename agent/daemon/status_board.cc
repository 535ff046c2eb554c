#include "agent/daemon/status_board.h"

#include <unistd.h>

#include "agent/daemon/trace_unit.h"
#include "agent/host/host.h"

namespace syslogmond {

StatusBoard::StatusBoard(host::Host &host) : run_(host.layout().run)
{
    status_.pid = getpid();
    status_.version = SYSLOGMON_VERSION;
    status_.started_ms = status::WallTimeMs();
    status_.store = status::StoreName(host.store());
    status_.alive_ns = status::UpTimeNs();
}

void StatusBoard::Update(const std::function<void(status::Status &)> &change)
{
    const std::lock_guard lock(mutex_);
    // The status keeps the change also when it cannot be written: the next one writes both.
    change(status_);
    try {
        status::WriteStatus(run_, status_);
    } catch (const std::exception &error) {
        TRACE(TRACE_SYSTEM, "%s", error.what());
    }
}

status::Status StatusBoard::Copy()
{
    const std::lock_guard lock(mutex_);
    return status_;
}

} // namespace syslogmond
