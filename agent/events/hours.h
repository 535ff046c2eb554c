// Hours of the day as people write them, and as the monitor keeps them: a mask, bit h for the hour
// from h:00 to h:59 of local time. The same text is used by rules files, by the commands and in
// lists of events, so each mask has one text, and each text that is shown can be typed in again.
#ifndef AGENT_EVENTS_HOURS_H
#define AGENT_EVENTS_HOURS_H

#include <cstdint>
#include <string>

namespace events {

// The bits of the hours 0 to 23. The monitor looks at no other ones.
inline constexpr uint32_t kAllHours = 0xFFFFFF;

// "all", "none", or a list of hours and spans: "8-18" (from 8:00 until 18:00), "22-6" (over
// midnight), "0-8,12,18-24". Hours may stand twice. Throws host::Error, which shows the forms that
// are known.
uint32_t ParseHours(const std::string &text);

// The shortest text that ParseHours turns into the mask again. Bits above 23 have no meaning.
std::string FormatHours(uint32_t mask);

} // namespace events

#endif // AGENT_EVENTS_HOURS_H
