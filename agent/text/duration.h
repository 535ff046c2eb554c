// Spans of time as people write them: "90s", "10m", "1h30m", "2d".
#ifndef AGENT_TEXT_DURATION_H
#define AGENT_TEXT_DURATION_H

#include <cstdint>
#include <optional>
#include <string>

namespace text {

// Seconds of numbers with units behind them (d, h, m, s), each unit once and the longest first; nothing
// for anything else, and for more than a hundred years.
std::optional<int64_t> ParseDuration(const std::string &text);

// The shortest such text: "1h30m"; "0s" for none.
std::string FormatDuration(int64_t seconds);

// "10 minutes", "1 hour", "90 minutes", "1 day": in the longest unit of which it is a whole number.
std::string DurationInWords(int64_t seconds);

} // namespace text

#endif // AGENT_TEXT_DURATION_H
