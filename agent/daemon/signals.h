// The signals that the daemon acts on: blocked in all threads, and read in the main loop.
#ifndef AGENT_DAEMON_SIGNALS_H
#define AGENT_DAEMON_SIGNALS_H

#include <optional>

#include "agent/host/waitable.h"

namespace syslogmond {

class Signals {
  public:
    // Before any other thread is started, so that all of them inherit the mask. Throws host::Error:
    // a daemon that hears no signal must not run.
    Signals();

    // The next signal, or nothing.
    [[nodiscard]] std::optional<int> Next() const;
    [[nodiscard]] int fd() const { return fd_.get(); }

    // For the time behind the main loop: a SIGTERM or SIGINT then ends the process at once with this
    // exit status, also one that has come already.
    void EndAtOnceWith(int exit_status) const;

  private:
    host::Fd fd_;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_SIGNALS_H
