#include "agent/daemon/signals.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <initializer_list>
#include <sys/signalfd.h>
#include <unistd.h>

#include "agent/host/error.h"

namespace syslogmond {

namespace {

// The exit status of EndAtOnce: set before the handler is, and read by it alone.
volatile sig_atomic_t status_at_once = 0;

// _exit is one of the few calls that a handler may make.
void EndAtOnce(int /*number*/)
{
    _exit(status_at_once);
}

sigset_t SetOf(std::initializer_list<int> numbers)
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : numbers)
        sigaddset(&set, number);
    return set;
}

[[noreturn]] void Refuse(int error_number)
{
    throw host::Error("cannot start the daemon",
                      std::string("it would hear no signals: ") + strerror(error_number),
                      "raise the limit of open files");
}

} // namespace

Signals::Signals()
{
    // A reader of the alerts, or a receiver, that hangs up is an error of the write and no end of
    // the daemon.
    signal(SIGPIPE, SIG_IGN);
    const sigset_t set = SetOf({SIGTERM, SIGINT, SIGHUP, SIGUSR1});
    const int failed = pthread_sigmask(SIG_BLOCK, &set, nullptr);
    if (failed != 0)
        Refuse(failed);
    fd_ = host::Fd(signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC));
    if (fd_.get() < 0)
        Refuse(errno);
}

std::optional<int> Signals::Next() const
{
    signalfd_siginfo info{};
    // It does not block: none is there.
    if (read(fd_.get(), &info, sizeof info) != static_cast<ssize_t>(sizeof info))
        return std::nullopt;
    return static_cast<int>(info.ssi_signo);
}

void Signals::EndAtOnceWith(int exit_status) const
{
    // The order: status, handler, mask. A signal that waits comes with the last step.
    status_at_once = exit_status;
    signal(SIGTERM, EndAtOnce);
    signal(SIGINT, EndAtOnce);
    const sigset_t set = SetOf({SIGTERM, SIGINT});
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

} // namespace syslogmond
