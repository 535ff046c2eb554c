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

namespace {

// Does a control character from U+0080 to U+009F, which has two bytes in UTF-8, stand here?
bool IsLongControl(const std::string &text, size_t at)
{
    return text[at] == '\xC2' && at + 1 < text.size() &&
           (static_cast<unsigned char>(text[at + 1]) & 0xE0U) == 0x80U;
}

} // namespace

std::string Printable(const std::string &text)
{
    std::string shown;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool is_control = (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == 0x7F;
        const bool is_long_control = IsLongControl(text, i);
        shown += is_control || is_long_control ? '?' : c;
        i += is_long_control ? 1 : 0;
    }
    return shown;
}

std::string AlertLine(const alerts::Alert &alert)
{
    char event[16];
    snprintf(event, sizeof event, "%X", alert.event_id);
    std::string line = LocalTime(alert.time_ms) + "  " + Printable(alert.source) + " " + event +
                       "  x" + std::to_string(alert.count) + "  " + Printable(alert.message);
    if (alert.IsFolded())
        line += " (and " + std::to_string(alert.reports - 1) + " more until " +
                LocalTime(alert.last_time_ms) + ", the last: " + Printable(alert.last_message) +
                ")";
    return line;
}

} // namespace agent
