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

// Seconds since the last look at all files began, also while the host was suspended; nothing: none has ended yet.
std::optional<int64_t> SecondsSinceLook(const Status &status);

// The same by the times of day, of which a daemon that has ended is known: both in milliseconds since 1970. 0 when the
// clock was put back since.
int64_t SecondsSinceLook(int64_t look_ms, int64_t now_ms);

// Is that longer than it should be? A look begins at least once in a cycle. A pass over gigabytes is late and does its
// work all the same, so this alone is no reason to restart anything.
bool IsLate(const Status &status, int64_t cycle_s);

} // namespace status

#endif // AGENT_STATUS_SIGN_OF_LIFE_H
