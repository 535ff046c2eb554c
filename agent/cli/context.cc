// The store, as commands open it.
#include <cstdio>
#include <memory>

#include "agent/cli/command.h"
#include "agent/status/daemon_lock.h"

namespace cli {

void Context::OpenAs(host::Role role)
{
    host_ = std::make_unique<host::Host>(layout, role);
    // On standard error, so that a script reads nothing else than the result.
    host_->store().OnLongWait(
        [] { fprintf(stderr, "syslogmon: waiting for the monitor to finish its pass...\n"); });
    status::DaemonLock::CheckStore(*host_);
}

void Context::Open()
{
    OpenAs(host::Role::kCommand);
}

void Context::OpenToRead()
{
    OpenAs(host::Role::kReader);
}

} // namespace cli
