// A bell that one thread rings and another polls for. It says that there is something, not what:
// whoever answers looks for himself.
#ifndef AGENT_DAEMON_DOORBELL_H
#define AGENT_DAEMON_DOORBELL_H

#include "agent/host/waitable.h"

namespace syslogmond {

class Doorbell {
  public:
    // Throws host::Error when no descriptor is left.
    Doorbell();
    // From any thread; never waits. Rings before the answer are one.
    void Ring() const;
    // Has it rung since the last answer?
    bool Answer() const;
    [[nodiscard]] int fd() const { return fd_.get(); } // readable when it has

  private:
    host::Fd fd_;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_DOORBELL_H
