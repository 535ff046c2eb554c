#include "agent/sinks/alert_json.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "agent/events/events.h"
#include "agent/text/times.h"

namespace sinks {

namespace {

// Events that a message tells of one by one. More of them make no message that anybody reads; their
// alerts and hits are in the sums.
constexpr size_t kEventsInJson = 100;
constexpr size_t kEventsInALine = 5;

nlohmann::ordered_json ToJson(const Digest &digest)
{
    const DigestEvent whole = digest.Whole();
    nlohmann::ordered_json events = nlohmann::ordered_json::array();
    for (const DigestEvent &event : digest.Events()) {
        if (events.size() == kEventsInJson)
            break;
        events.push_back({{"source", event.source},
                          {"event_id", events::FormatEventId(event.event_id)},
                          {"alerts", event.alerts},
                          {"hits", event.hits},
                          {"first_time", text::UtcTime(event.first_ms)},
                          {"first", event.first},
                          {"last_time", text::UtcTime(event.last_ms)},
                          {"last", event.last}});
    }
    return {{"alerts", whole.alerts},
            {"hits", whole.hits},
            {"first_time", text::UtcTime(whole.first_ms)},
            {"last_time", text::UtcTime(whole.last_ms)},
            {"events", events}};
}

// Bytes of other characters stay.
std::string WithoutControls(std::string text)
{
    for (char &c : text) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7F)
            c = c == '\t' ? ' ' : '?';
    }
    return text;
}

} // namespace

std::string DigestInWords(const Digest &digest)
{
    const DigestEvent whole = digest.Whole();
    std::string text = std::to_string(whole.alerts) + " alerts of " + std::to_string(whole.hits) +
                       " hits were held back from " + text::UtcTime(whole.first_ms) + " to " +
                       text::UtcTime(whole.last_ms) + ": ";
    const std::vector<DigestEvent> events = digest.Events();
    for (size_t i = 0; i < std::min(events.size(), kEventsInALine); ++i)
        text += (i == 0 ? "" : ", ") + std::to_string(events[i].alerts) + " of " +
                events[i].source + " " + events::FormatEventId(events[i].event_id);
    if (events.size() > kEventsInALine)
        text += " and of " + std::to_string(events.size() - kEventsInALine) + " more events";
    return text;
}

std::string AlertJson(const Message &message, const std::string &why)
{
    const alerts::Alert &alert = message.alert;
    // In the order of the header's example: lines of different alerts can be read side by side.
    nlohmann::ordered_json object = {{"key", message.key},
                                     {"id", alert.id},
                                     {"time", text::UtcTime(alert.time_ms)},
                                     {"host", alert.host},
                                     {"log", alert.log_name},
                                     {"source", alert.source},
                                     {"event_id", events::FormatEventId(alert.event_id)},
                                     {"count", alert.count},
                                     {"message", alert.message}};
    if (!alert.line_host.empty())
        object["line_host"] = alert.line_host;
    if (!alert.program.empty())
        object["program"] = alert.program;
    if (!alert.own_time.empty())
        object["own_time"] = alert.own_time;
    if (!alert.severity.empty())
        object["severity"] = alert.severity;
    if (!alert.summary.empty())
        object["summary"] = alert.summary;
    if (!alert.labels.empty())
        object["labels"] = alert.labels;
    if (!alert.runbook_url.empty())
        object["runbook_url"] = alert.runbook_url;
    if (!alert.value.empty())
        object["value"] = alert.value;
    if (!alert.terms.empty())
        object["terms"] = alert.terms;
    if (const alerts::HeldBack &held = alert.held_back; held.reports > 0)
        object["held_back"] = {{"reports", held.reports},
                               {"hits", held.hits},
                               {"first_time", text::UtcTime(held.first_ms)},
                               {"first", held.first},
                               {"last_time", text::UtcTime(held.last_ms)},
                               {"last", held.last}};
    // For readers of the store: no sink gets one that is held back.
    if (alert.silence != 0)
        object["silence"] = alert.silence;
    // Only then: most alerts are of a single report, and their lines stay short.
    if (alert.IsFolded()) {
        object["reports"] = alert.reports;
        object["last_time"] = text::UtcTime(alert.last_time_ms);
        object["last_message"] = alert.last_message;
    }
    if (!message.digest.IsEmpty())
        object["digest"] = ToJson(message.digest);
    if (message.is_test)
        object["test"] = true;
    if (!why.empty())
        object["why"] = why;
    // A line of the log may be in any character set; an alert that cannot be written as JSON must
    // not be lost for that.
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string AlertSummary(const Message &message)
{
    const alerts::Alert &alert = message.alert;
    std::string text = alert.source + " " + events::FormatEventId(alert.event_id) + ": " +
                       (alert.summary.empty() ? "" : alert.summary + ": ") + alert.message;
    if (alert.IsFolded())
        text += " (and " + std::to_string(alert.reports - 1) + " more until " +
                text::UtcTime(alert.last_time_ms) + ", the last: " + alert.last_message + ")";
    if (alert.held_back.reports > 0)
        text += " (" + std::to_string(alert.held_back.reports) + " reports of " +
                std::to_string(alert.held_back.hits) +
                " hits were held back before it, the first: " + alert.held_back.first +
                ", the last: " + alert.held_back.last + ")";
    if (!message.digest.IsEmpty())
        text += " (" + DigestInWords(message.digest) + ")";
    // A summary becomes a header, a field or a line of another protocol.
    return WithoutControls(std::move(text));
}

std::string HostInFront(const Message &message)
{
    return (message.is_test ? "TEST " : "") + WithoutControls(message.alert.HostOfLine()) + ": ";
}

std::string AlertLine(const Message &message)
{
    return HostInFront(message) + AlertSummary(message);
}

} // namespace sinks
