#include "agent/alerts/alert_text.h"
#include "agent/alerts/own_alert.h"
#include "agent/text/plural.h"
#include "agent/text/printable.h"
#include "agent/text/times.h"

#include <cstdio>

namespace alerts {

// Source and message come from outside, so both are made printable: an escape sequence in a log
// line must not reach the terminal of whoever lists alerts. The event ID is in capitals, as the
// registry and the commands write it.
std::string AlertLine(const Alert &alert)
{
    char event[16];
    snprintf(event, sizeof event, "%X", alert.event_id);
    std::string line = text::LocalTime(alert.time_ms) + "  " + text::Printable(alert.source) + " " +
                       event + "  x" + std::to_string(alert.count) + "  ";
    if (!alert.severity.empty())
        line += text::Printable(alert.severity) + "  ";
    if (!alert.summary.empty())
        line += text::Printable(alert.summary) + ": ";
    line += text::Printable(alert.message);
    if (alert.IsFolded())
        // The first report is in the line itself.
        line += " (and " + std::to_string(alert.reports - 1) + " more until " +
                text::LocalTime(alert.last_time_ms) +
                ", the last: " + text::Printable(alert.last_message) + ")";
    if (const HeldBack &held = alert.held_back; held.reports > 0)
        line += " (" + std::to_string(held.reports) + " reports of " + std::to_string(held.hits) +
                " hits were held back from " + text::LocalTime(held.first_ms) + " to " +
                text::LocalTime(held.last_ms) + ", the first: " + text::Printable(held.first) +
                ", the last: " + text::Printable(held.last) + ")";
    if (alert.silence != 0)
        line += " (held back by the silence " + std::to_string(alert.silence) + ")";
    return line;
}

namespace {

// An absence has no hits.
std::string HitsInWords(const Alert &alert)
{
    return (alert.count == 0 ? "no line came" : text::Plural(alert.count, "hit")) +
           (alert.value.empty() ? "" : " of " + text::Printable(alert.value));
}

} // namespace

std::string WhyInWords(const Alert &alert)
{
    const bool is_own = alert.source == kOwnSource && alert.labels.contains("alarm");
    std::string text = is_own ? "the monitor tells this of itself" : HitsInWords(alert);
    if (!alert.terms.empty())
        text += ": " + text::Printable(alert.terms);
    if (alert.IsFolded())
        text += "; it stands for " + text::Plural(alert.reports, "report") + " of a flood";
    if (alert.held_back.reports > 0)
        text += "; " + text::Plural(alert.held_back.reports, "report") + " of " +
                text::Plural(alert.held_back.hits, "hit") +
                (alert.held_back.reports == 1 ? " was" : " were") + " held back before it";
    if (alert.silence != 0)
        text +=
            "; no receiver is told: silence " + std::to_string(alert.silence) + " holds it back";
    return text;
}

} // namespace alerts
