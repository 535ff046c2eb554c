#include "agent/alerts/alert_json.h"

#include <cstdio>
#include <ctime>

#include <nlohmann/json.hpp>

#include "agent/common/events.h"

namespace alerts {

std::string UtcTime(int64_t time_ms)
{
    const auto seconds = static_cast<time_t>(time_ms / 1000);
    struct tm utc {};
    gmtime_r(&seconds, &utc);
    char day[32];
    strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &utc);
    char text[48];
    snprintf(text, sizeof text, "%s.%03dZ", day, static_cast<int>(time_ms % 1000));
    return text;
}

std::string AlertJson(const Message &message)
{
    const Alert &alert = message.alert;
    nlohmann::ordered_json object = {{"key", message.key},
                                     {"id", alert.id},
                                     {"time", UtcTime(alert.time_ms)},
                                     {"host", alert.host},
                                     {"log", alert.log_name},
                                     {"source", alert.source},
                                     {"event_id", agent::FormatEventId(alert.event_id)},
                                     {"count", alert.count},
                                     {"message", alert.message}};
    if (alert.IsFolded()) {
        object["reports"] = alert.reports;
        object["last_time"] = UtcTime(alert.last_time_ms);
        object["last_message"] = alert.last_message;
    }
    if (message.is_test)
        object["test"] = true;
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string AlertSummary(const Message &message)
{
    const Alert &alert = message.alert;
    std::string text =
        alert.source + " " + agent::FormatEventId(alert.event_id) + ": " + alert.message;
    if (alert.IsFolded())
        text += " (and " + std::to_string(alert.reports - 1) + " more until " +
                UtcTime(alert.last_time_ms) + ", the last: " + alert.last_message + ")";
    for (char &c : text) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7F)
            c = c == '\t' ? ' ' : '?';
    }
    return text;
}

} // namespace alerts
