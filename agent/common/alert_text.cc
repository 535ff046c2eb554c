#include "agent/common/alert_text.h"

#include <cstdio>
#include <ctime>

namespace agent {

std::string LocalTime(int64_t time_ms)
{
    const auto seconds = static_cast<time_t>(time_ms / 1000);
    struct tm local {};
    localtime_r(&seconds, &local);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

std::string Printable(const std::string &text)
{
    std::string shown = text;
    for (char &c : shown) {
        if ((static_cast<unsigned char>(c) < ' ' && c != '\t') || c == 0x7F)
            c = '?';
    }
    return shown;
}

std::string AlertLine(const alerts::Alert &alert)
{
    char event[16];
    snprintf(event, sizeof event, "%X", alert.event_id);
    return LocalTime(alert.time_ms) + "  " + Printable(alert.source) + " " + event + "  x" +
           std::to_string(alert.count) + "  " + Printable(alert.message);
}

} // namespace agent
