// Does the daemon whose process is there do its work? A process can be stopped, or wait without end.
#ifndef AGENT_STATUS_SIGN_OF_LIFE_H
#define AGENT_STATUS_SIGN_OF_LIFE_H

#include <optional>
#include <string>
#include <sys/types.h>

#include "agent/status/status_file.h"

namespace status {

// What keeps the daemon from its work, as far as it shows: its process is stopped, it has not told
// anything for far longer than it should, or its pass gets on no further. Empty: nothing.
//   daemon   the process that holds the lock
//   status   the status that was read; one of another process, or none, counts as not told yet
// The sentence begins with "it" or "its", to stand behind the name of the daemon. Looks at nothing
// but /proc and the clock, so it can be asked for as often as one likes.
std::string WhyItStands(pid_t daemon, const std::optional<Status> &status);

} // namespace status

#endif // AGENT_STATUS_SIGN_OF_LIFE_H
