// A counter that one thread raises and another polls for.
#ifndef AGENT_DAEMON_DOORBELL_H
#define AGENT_DAEMON_DOORBELL_H

#include "agent/libtarsk/waitable.h"

namespace agent {

class Doorbell {
  public:
    // Throws tarsk::Error when no descriptor is left.
    Doorbell();
    void Ring() const;
    // Has it rung since the last answer?
    bool Answer() const;
    [[nodiscard]] int fd() const { return fd_.get(); } // readable when it has

  private:
    tarsk::Fd fd_;
};

} // namespace agent

#endif // AGENT_DAEMON_DOORBELL_H
