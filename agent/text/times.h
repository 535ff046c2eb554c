// Moments, as they are shown. They are given in milliseconds since 1970, UTC.
#ifndef AGENT_TEXT_TIMES_H
#define AGENT_TEXT_TIMES_H

#include <cstdint>
#include <string>

namespace text {

// "2026-11-21 10:00:01", local time: for people. In the hour that a clock is put back, two moments
// look alike; what must tell them apart takes UtcTime.
std::string LocalTime(int64_t time_ms);

// "2026-11-21T10:00:01.000Z": for programs. Sorts as text in the order of time.
std::string UtcTime(int64_t time_ms);

} // namespace text

#endif // AGENT_TEXT_TIMES_H
