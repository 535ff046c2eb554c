// Hours of the day as people write them, and as the monitor keeps them: a mask, bit h for the hour
// from h:00 to h:59.
#ifndef AGENT_EVENTS_HOURS_H
#define AGENT_EVENTS_HOURS_H

#include <cstdint>
#include <string>

namespace events {

inline constexpr uint32_t kAllHours = 0xFFFFFF;

// "all", "none", or a list of hours and spans: "8-18" (from 8:00 until 18:00), "22-6" (over
// midnight), "0-8,12,18-24". Throws host::Error.
uint32_t ParseHours(const std::string &text);

// The shortest text that ParseHours turns into the mask again. Bits above 23 have no meaning.
std::string FormatHours(uint32_t mask);

} // namespace events

#endif // AGENT_EVENTS_HOURS_H
