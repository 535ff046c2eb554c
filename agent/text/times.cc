#include "agent/text/times.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace text {

std::string LocalTime(int64_t time_ms)
{
    const auto seconds = static_cast<time_t>(time_ms / 1000);
    // The _r forms: alerts are written by several threads, each of which would share the result of
    // the plain ones. The zone is that of the process, TZ or /etc/localtime.
    struct tm local {};
    localtime_r(&seconds, &local);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

std::string UtcTime(int64_t time_ms)
{
    const auto seconds = static_cast<time_t>(time_ms / 1000);
    struct tm utc {};
    gmtime_r(&seconds, &utc);
    char day[32];
    strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &utc);
    char text[48];
    // strftime knows no milliseconds.
    snprintf(text, sizeof text, "%s.%03dZ", day, static_cast<int>(time_ms % 1000));
    return text;
}

namespace {

// Behind what was read in this form, or null.
const char *Read(const char *text, const char *form, struct tm *time)
{
    return strptime(text, form, time);
}

} // namespace

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

time_t LocalMoment(struct tm time)
{
    // The C library finds out whether summer time holds at that moment.
    time.tm_isdst = -1;
    return mktime(&time);
}

std::optional<int64_t> ParseDate(const std::string &text)
{
    struct tm time {};
    const char *rest = Read(text.c_str(), "%Y-%m-%d", &time);
    if (rest == nullptr)
        return std::nullopt;
    if (*rest == '\0')
        return int64_t{LocalMoment(time)};
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
    return int64_t{zone != std::string::npos ? timegm(&time) - shift.tm_gmtoff : LocalMoment(time)};
}

// By writing it again: what comes out the same was read right, with each of its digits and signs.
std::optional<int64_t> ParseUtcTime(const std::string &text)
{
    struct tm utc {};
    int milliseconds = 0;
    if (sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%3dZ", &utc.tm_year, &utc.tm_mon,
               &utc.tm_mday, &utc.tm_hour, &utc.tm_min, &utc.tm_sec, &milliseconds) != 7)
        return std::nullopt;
    utc.tm_year -= 1900;
    utc.tm_mon -= 1;
    const int64_t time_ms = int64_t{timegm(&utc)} * 1000 + milliseconds;
    return UtcTime(time_ms) == text ? std::optional(time_ms) : std::nullopt;
}

} // namespace text
