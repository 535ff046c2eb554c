// Time zones by name, such as Europe/Berlin, from the system's zone files. The only place that knows the
// library for them: the C library knows one zone a process, which belongs to the stamps of the logs.
//
// A zone is read once; a newer zone file holds from the next start on.
#ifndef AGENT_POLICY_ZONE_H
#define AGENT_POLICY_ZONE_H

#include <cstdint>
#include <optional>
#include <string>

namespace policy {

// Could the text be the name of a zone, whether or not this host has one of that name?
bool IsZoneName(const std::string &text);

// Throws host::Error, which names a zone that may be meant, when this host has no zone of that name.
void CheckZone(const std::string &name);

// A moment as the clock and the calendar of a zone show it.
struct ZoneClock {
    int weekday = 0; // 0: Sunday
    int minute = 0;  // of the day
};

// time_s   seconds since 1970
// zone     its name; "UTC" is known without any zone file
// Nothing when this host has no such zone.
std::optional<ZoneClock> ClockOf(int64_t time_s, const std::string &zone);

} // namespace policy

#endif // AGENT_POLICY_ZONE_H
