// Which hour an event must watch for a line to count.
#ifndef AGENT_CLI_HOUR_OF_H
#define AGENT_CLI_HOUR_OF_H

#include <cstdint>

#include "agent/monitor/module.h"

namespace cli {

// That of the moment, as the monitor takes it, or that of the line's own stamp, for a log of another
// time of day.
enum class HourOf { kNow, kLine };

// The hour that counts for the line, 0 to 23, in local time. That of now for a line without a stamp.
int HourFor(const monitor::Module &module, HourOf hour_of, const char *line);

// Is that hour among the watched ones, of which each is a bit?
inline bool WatchesHour(uint32_t hours, int hour)
{
    return (hours >> static_cast<unsigned>(hour) & 1U) != 0;
}

} // namespace cli

#endif // AGENT_CLI_HOUR_OF_H
