#include "agent/common/alert_text.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "agent/common/utf8.h"

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
    std::string shown;
    for (std::string_view rest = text; !rest.empty();) {
        const Character character = FirstCharacter(rest);
        const bool is_shown = character.bytes > 0 && !IsInvisible(character.code);
        shown += is_shown ? rest.substr(0, character.bytes) : "?";
        rest.remove_prefix(std::max<size_t>(character.bytes, 1));
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
