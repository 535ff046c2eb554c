// How the agent says that something went wrong. What is thrown travels up to whoever can tell
// somebody: the command prints it, the daemon says and traces it, a C function of the host traces
// it. Nobody in between adds words, so the text must do by itself.
#ifndef AGENT_HOST_ERROR_H
#define AGENT_HOST_ERROR_H

#include <stdexcept>
#include <string>

namespace host {

// A failure that an administrator has to know of. The text names the thing, the cause and the next
// step: "cannot open /var/lib/syslogmon/agent.db: permission denied; run the command as root".
class Error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
    Error(const std::string &thing, const std::string &cause, const std::string &next_step)
        : std::runtime_error(thing + ": " + cause + "; " + next_step)
    {
    }
};

// The store failed: a full disk, a read-only file, damage, a lock that was held for too long. A
// kind of its own, because it is what breaks a pass.
class StoreError : public Error {
  public:
    using Error::Error;
};

// There is no room on its disk. Apart from the others, because here the reserve helps; see room.h.
class DiskFullError : public StoreError {
  public:
    using StoreError::StoreError;
};

} // namespace host

#endif // AGENT_HOST_ERROR_H
