// The moment from which on something is shown, as it is typed.
#ifndef AGENT_CLI_SINCE_H
#define AGENT_CLI_SINCE_H

#include <cstdint>
#include <ctime>
#include <string>

namespace cli {

// In milliseconds since 1970, for a command that is typed at `now`, in seconds since 1970:
//   90s, 10m, 2h, 1d, 1h30m       so long ago
//   10:00, 10:00:30               the last time that the clock showed this
//   today, yesterday              the beginning of that day
//   2026-11-21, with 10:00 or 10:00:30 behind it after a blank or a T; local time, unless Z or a
//   shift such as +01:00 follows; parts of a second are left out
// Throws host::Error for anything else. Local is the zone of this process. A time of day that does
// not exist on its day, or exists twice, is what mktime makes of it.
int64_t ParseSince(const std::string &text, time_t now);

} // namespace cli

#endif // AGENT_CLI_SINCE_H
