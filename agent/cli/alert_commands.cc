// alerts: what is stored of them. Reads the store only: neither the daemon nor a sink has to do
// with it, so it shows what was reported whether it was delivered or not.
#include <chrono>
#include <cstdio>
#include <ctime>
#include <optional>
#include <thread>

#include <nlohmann/json.hpp>

#include "agent/alerts/alert_store.h"
#include "agent/alerts/alert_text.h"
#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/cli/since.h"
#include "agent/events/events.h"
#include "agent/text/flush.h"
#include "agent/text/times.h"

namespace cli {

namespace {

using alerts::Alert;
using nlohmann::json;

// Alerts read in one go: a full store has too many for the memory.
constexpr int64_t kAtOnce = 1000;
// Between two looks for new ones. Short to a person, and a small read each.
constexpr std::chrono::milliseconds kLook{200};

// What is shown of the past before new ones are followed.
constexpr int64_t kLastOnes = 10;

struct AlertOptions {
    bool follow = false;
    std::string since;
    std::string until;
    std::string severity;
    bool silenced = false;
    std::string source;
    std::string event;
    std::string host;
    std::string text;
    std::optional<int64_t> last; // so many of them
    bool why = false;
};

alerts::AlertFilter FilterOf(const AlertOptions &options)
{
    alerts::AlertFilter filter;
    if (!options.since.empty())
        filter.since_ms = ParseSince(options.since, time(nullptr));
    if (!options.until.empty())
        filter.until_ms = ParseSince(options.until, time(nullptr));
    if (!options.severity.empty())
        events::CheckSeverity(options.severity);
    filter.severity = options.severity;
    filter.is_silenced = options.silenced;
    if (!options.source.empty())
        filter.source = options.source;
    if (!options.host.empty())
        filter.host = options.host;
    if (!options.event.empty())
        filter.event_id = events::ParseEventId(options.event);
    filter.text = options.text;
    return filter;
}

// How many of those that are there are wanted; nothing: all of them.
std::optional<int64_t> LastOf(const AlertOptions &options)
{
    const bool begins_with_the_last = options.follow && options.since.empty() && !options.last;
    return begins_with_the_last ? std::optional(kLastOnes) : options.last;
}

json ToJson(const Alert &alert)
{
    json object = {{"id", alert.id},
                   {"key", alert.key},
                   {"time", text::UtcTime(alert.time_ms)},
                   {"time_ms", alert.time_ms},
                   {"host", alert.host},
                   {"source", alert.source},
                   {"event_id", events::FormatEventId(alert.event_id)},
                   {"count", alert.count},
                   {"message", alert.message}};
    // The module names every log like this; its own name is not known of alerts of earlier versions.
    if (alert.log_name != "Application")
        object["log"] = alert.log_name;
    for (const auto &[name, value] :
         {std::pair("line_host", &alert.line_host), std::pair("program", &alert.program),
          std::pair("own_time", &alert.own_time), std::pair("severity", &alert.severity),
          std::pair("summary", &alert.summary), std::pair("runbook_url", &alert.runbook_url),
          std::pair("value", &alert.value), std::pair("terms", &alert.terms)}) {
        if (!value->empty())
            object[name] = *value;
    }
    if (!alert.labels.empty())
        object["labels"] = alert.labels;
    if (const alerts::HeldBack &held = alert.held_back; held.reports > 0)
        object["held_back"] = {{"reports", held.reports},        {"hits", held.hits},
                               {"first_time_ms", held.first_ms}, {"first", held.first},
                               {"last_time_ms", held.last_ms},   {"last", held.last}};
    if (alert.silence != 0)
        object["silence"] = alert.silence;
    // Only of one that stands for several reports: the others have nothing to say here.
    if (alert.IsFolded()) {
        object["reports"] = alert.reports;
        object["last_time_ms"] = alert.last_time_ms;
        object["last_message"] = alert.last_message;
    }
    return object;
}

// One object a line: a list that goes on has no closing bracket.
void Print(const Context &context, const Alert &alert, bool says_why)
{
    if (context.json) {
        json object = ToJson(alert);
        if (says_why)
            object["why"] = alerts::WhyInWords(alert);
        PrintJsonLine(object);
    } else {
        printf("%s\n", alerts::AlertLine(alert).c_str());
        if (says_why)
            printf("    why: %s\n", alerts::WhyInWords(alert).c_str());
    }
}

int ShowAlerts(Context &context, const AlertOptions &options)
{
    const alerts::AlertFilter filter = FilterOf(options);
    context.OpenToRead();
    host::Database &database = context.Host().store().database();
    const auto last = LastOf(options);
    // The newest that was shown, or is passed over. Each read goes on behind it, so none is shown twice, and one that
    // is removed meanwhile is no reason to stop.
    int64_t shown = last ? alerts::BeforeNewest(database, filter, *last) : 0;
    for (;;) {
        const auto found = alerts::FindAlerts(database, filter, shown, kAtOnce);
        for (const Alert &alert : found)
            Print(context, alert, options.why);
        if (!found.empty()) {
            shown = found.back().id;
            continue;
        }
        // Before it sleeps: a reader of a pipe gets the alerts at once, and one that has gone ends
        // the command.
        text::FlushOutput();
        if (!options.follow)
            return kExitDone;
        std::this_thread::sleep_for(kLook);
    }
}

void SetUpAlerts(Parser &parser, Context &context)
{
    auto options = std::make_shared<AlertOptions>();
    parser.AddFlag("-f,--follow", options->follow,
                   "Begin with the last ten, and go on with new ones until interrupted");
    parser.Add("-n,--lines", options->last, "Only so many, the last of them")
        .TypeName("NUMBER")
        .NotNegative();
    parser.Add("--source", options->source, "Only of sources like this: 'DISK', 'NET*'")
        .TypeName("PATTERN");
    parser.Add("--event", options->event, "Only of events with this ID").TypeName("ID");
    parser
        .Add("--host", options->host,
             "Only of hosts like this, of the line or of its monitor: 'web*'")
        .TypeName("PATTERN");
    parser.Add("--text", options->text, "Only with this in the line, whatever its case")
        .TypeName("TEXT");
    parser
        .Add("--since", options->since,
             "Only from this time on: 10m, 1h30m or 1d ago, 10:00, yesterday, or "
             "\"2026-11-21 10:00\"")
        .TypeName("TIME");
    parser.Add("--until", options->until, "Only before this time, which is written likewise")
        .TypeName("TIME");
    parser
        .Add(
            "--severity", options->severity,
            "Only at or above this severity: emerg, alert, crit, err, warning (also those that say "
            "none), notice, info, debug")
        .TypeName("NAME");
    parser.AddFlag(
        "--why", options->why,
        "Say below each why it was reported: hits, and the terms of its event at that moment");
    parser.AddFlag("--silenced", options->silenced, "Only those that a silence has held back");
    parser.Runs([&, options] { return ShowAlerts(context, *options); });
}

} // namespace

const std::vector<Command> kAlertCommands = {
    {"alerts", "Show what was reported, oldest first", SetUpAlerts},
};

} // namespace cli
