#include "agent/cli/since.h"

#include <algorithm>
#include <optional>

#include "agent/host/error.h"
#include "agent/text/duration.h"
#include "agent/text/times.h"

namespace cli {

namespace {

// The last time that the clock of the host showed this.
std::optional<time_t> ParseClock(const std::string &text, time_t now)
{
    struct tm time {};
    localtime_r(&now, &time);
    if (!text::ReadsClock(text.c_str(), &time))
        return std::nullopt;
    const time_t moment = text::LocalMoment(time);
    if (moment <= now)
        return moment;
    // By the calendar and not by 24 hours: the day before may have had 23 or 25. mktime makes the
    // first of a month right.
    --time.tm_mday;
    return text::LocalMoment(time);
}

std::optional<time_t> ParseDay(const std::string &text, time_t now)
{
    if (text != "today" && text != "yesterday")
        return std::nullopt;
    struct tm time {};
    localtime_r(&now, &time);
    time.tm_hour = time.tm_min = time.tm_sec = 0;
    // Day 0 is the last one of the month before.
    time.tm_mday -= text == "yesterday" ? 1 : 0;
    return text::LocalMoment(time);
}

} // namespace

int64_t ParseSince(const std::string &text, time_t now)
{
    if (const auto seconds = text::ParseDuration(text))
        return (int64_t{now} - *seconds) * 1000;
    // The forms exclude each other, so their order does not matter to any text.
    auto moment = ParseClock(text, now);
    if (!moment)
        moment = ParseDay(text, now);
    if (!moment)
        moment = text::ParseDate(text);
    if (!moment)
        throw host::Error("cannot use the time \"" + text + "\"", "its form is not known",
                          "write 10m, 1h30m, 1d, 10:00, yesterday or \"2026-11-21 10:00\"");
    return int64_t{*moment} * 1000;
}

} // namespace cli
