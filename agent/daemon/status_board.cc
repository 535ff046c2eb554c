#include "agent/daemon/status_board.h"

#include <unistd.h>
#include <utility>

#include "agent/libtarsk/host.h"
#include "platform/trace.h"

namespace agent {

namespace {

constexpr char kUnit[] = "syslogmond";

} // namespace

StatusBoard::StatusBoard(std::filesystem::path run) : run_(std::move(run))
{
    status_.pid = getpid();
    status_.version = SYSLOGMON_VERSION;
    status_.started_ms = WallTimeMs();
    status_.store = StoreName(tarsk::HostStore());
    status_.alive_ns = UpTimeNs();
}

void StatusBoard::Update(const std::function<void(Status &)> &change)
{
    const std::lock_guard lock(mutex_);
    change(status_);
    try {
        WriteStatus(run_, status_);
    } catch (const std::exception &error) {
        TRACE(TRACE_SYSTEM, "%s", error.what());
    }
}

} // namespace agent
