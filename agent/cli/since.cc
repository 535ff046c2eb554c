#include "agent/cli/since.h"

#include <algorithm>
#include <optional>

#include "agent/host/error.h"
#include "agent/text/duration.h"

namespace cli {

namespace {

// Behind what was read in this form, or null.
const char *Read(const char *text, const char *form, struct tm *time)
{
    return strptime(text, form, time);
}

// "10:00" or "10:00:30", to the end of the text.
bool ReadsClock(const char *text, struct tm *time)
{
    for (const char *form : {"%H:%M:%S", "%H:%M"}) {
        const char *end = Read(text, form, time);
        if (end != nullptr && *end == '\0')
            return true;
        // The form before may have read a part of the text and left it there.
        time->tm_sec = 0;
    }
    return false;
}

// By value: mktime writes into what it is given.
time_t LocalMoment(struct tm time)
{
    // The C library finds out whether summer time holds at that moment.
    time.tm_isdst = -1;
    return mktime(&time);
}

// The last time that the clock of the host showed this.
std::optional<time_t> ParseClock(const std::string &text, time_t now)
{
    struct tm time {};
    localtime_r(&now, &time);
    if (!ReadsClock(text.c_str(), &time))
        return std::nullopt;
    const time_t moment = LocalMoment(time);
    if (moment <= now)
        return moment;
    // By the calendar and not by 24 hours: the day before may have had 23 or 25. mktime makes the
    // first of a month right.
    --time.tm_mday;
    return LocalMoment(time);
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
    return LocalMoment(time);
}

std::optional<time_t> ParseDate(const std::string &text)
{
    struct tm time {};
    const char *rest = Read(text.c_str(), "%Y-%m-%d", &time);
    if (rest == nullptr)
        return std::nullopt;
    if (*rest == '\0')
        return LocalMoment(time);
    if (*rest != ' ' && *rest != 'T')
        return std::nullopt;
    std::string clock = rest + 1;
    // A shift from UTC: %z knows Z, +01:00 and +0100.
    const size_t zone = clock.find_first_of("Z+-");
    struct tm shift {};
    // Read into a time of its own: what strptime leaves there of the shift, mktime and timegm do
    // not look at.
    if (zone != std::string::npos) {
        const char *end = Read(clock.c_str() + zone, "%z", &shift);
        if (end == nullptr || *end != '\0')
            return std::nullopt;
        clock.resize(zone);
    }
    clock.resize(std::min(clock.size(), clock.find_first_of(".,"))); // parts of a second
    if (!ReadsClock(clock.c_str(), &time))
        return std::nullopt;
    return zone != std::string::npos ? timegm(&time) - shift.tm_gmtoff : LocalMoment(time);
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
        moment = ParseDate(text);
    if (!moment)
        throw host::Error("cannot use the time \"" + text + "\"", "its form is not known",
                          "write 10m, 1h30m, 1d, 10:00, yesterday or \"2026-11-21 10:00\"");
    return int64_t{*moment} * 1000;
}

} // namespace cli
