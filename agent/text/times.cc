#include "agent/text/times.h"

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

} // namespace text
