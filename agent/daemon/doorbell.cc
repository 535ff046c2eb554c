#include "agent/daemon/doorbell.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sys/eventfd.h>
#include <unistd.h>

#include "agent/host/error.h"

namespace syslogmond {

// An eventfd: ringing it never blocks, costs one system call, and any number of rings are one
// answer.
Doorbell::Doorbell() : fd_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
    if (fd_.get() < 0)
        throw host::Error("cannot start the daemon", strerror(errno),
                          "raise the limit of open files");
}

void Doorbell::Ring() const
{
    host::Ring(fd_);
}

bool Doorbell::Answer() const
{
    uint64_t rings = 0;
    return read(fd_.get(), &rings, sizeof rings) > 0;
}

} // namespace syslogmond
