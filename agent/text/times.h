// Moments, as they are shown. They are given in milliseconds since 1970, UTC.
#ifndef AGENT_TEXT_TIMES_H
#define AGENT_TEXT_TIMES_H

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

namespace text {

// "2026-11-21 10:00:01", local time: for people. In the hour that a clock is put back, two moments
// look alike; what must tell them apart takes UtcTime.
std::string LocalTime(int64_t time_ms);

// "2026-11-21T10:00:01.000Z": for programs. Sorts as text in the order of time.
std::string UtcTime(int64_t time_ms);

// The reverse, for times that people write: "2026-11-21", "2026-11-21 10:00", "2026-11-21T10:00:01Z", also with parts of a
// second, which are passed over, and with a shift such as +01:00; without one, of the host's zone. In seconds since
// 1970; nothing for anything else.
std::optional<int64_t> ParseDate(const std::string &text);

// "10:00" or "10:00:30", to the end of the text, into hours, minutes and seconds.
bool ReadsClock(const char *text, struct tm *time);

// The moment of a time of the host's zone. By value: mktime writes into what it is given.
time_t LocalMoment(struct tm time);

// The moment that UtcTime has written so; nothing for any other text.
std::optional<int64_t> ParseUtcTime(const std::string &text);

} // namespace text

#endif // AGENT_TEXT_TIMES_H
