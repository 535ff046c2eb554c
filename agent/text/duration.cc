#include "agent/text/duration.h"

#include <charconv>
#include <iterator>

#include "agent/text/plural.h"

namespace text {

namespace {

struct Unit {
    char letter;
    int64_t seconds;
    const char *name;
};
constexpr Unit kUnits[] = {
    {'d', 86400, "day"}, {'h', 3600, "hour"}, {'m', 60, "minute"}, {'s', 1, "second"}};

// It keeps the sum from running over, and is further back than any alert.
constexpr int64_t kLongest = int64_t{100} * 366 * 86400;

} // namespace

std::optional<int64_t> ParseDuration(const std::string &text)
{
    const char *at = text.data();
    const char *end = at + text.size();
    int64_t sum = 0;
    size_t next = 0; // of the units
    while (at < end) {
        int32_t amount = 0;
        // 32 bits, so that amount times day fits into 64.
        const auto [unit, failed] = std::from_chars(at, end, amount);
        if (failed != std::errc() || amount < 0 || unit == end)
            return std::nullopt;
        while (next < std::size(kUnits) && kUnits[next].letter != *unit)
            ++next;
        if (next == std::size(kUnits))
            return std::nullopt;
        sum += amount * kUnits[next++].seconds;
        at = unit + 1;
    }
    return !text.empty() && sum <= kLongest ? std::optional(sum) : std::nullopt;
}

std::string FormatDuration(int64_t seconds)
{
    std::string text;
    for (const Unit &unit : kUnits) {
        if (seconds >= unit.seconds)
            text += std::to_string(seconds / unit.seconds) + unit.letter;
        seconds %= unit.seconds;
    }
    return text.empty() ? "0s" : text;
}

std::string DurationInWords(int64_t seconds)
{
    for (const Unit &unit : kUnits) {
        if (seconds % unit.seconds == 0 && seconds >= unit.seconds)
            return Plural(seconds / unit.seconds, unit.name);
    }
    return "0 seconds";
}

} // namespace text
