// alerts
#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "agent/alerts/alert_store.h"
#include "agent/alerts/alert_text.h"
#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/cli/since.h"
#include "agent/events/events.h"
#include "agent/text/times.h"

namespace cli {

namespace {

using alerts::Alert;
using nlohmann::json;

constexpr int64_t kAtOnce = 1000;               // alerts read in one go
constexpr std::chrono::milliseconds kLook{200}; // between two looks for new ones

struct AlertOptions {
    bool follow = false;
    std::string since;
};

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
    if (alert.IsFolded()) {
        object["reports"] = alert.reports;
        object["last_time_ms"] = alert.last_time_ms;
        object["last_message"] = alert.last_message;
    }
    return object;
}

// One object a line: a list that goes on has no closing bracket.
void Print(const Context &context, const Alert &alert)
{
    if (context.json) {
        const std::string text = ToJson(alert).dump(-1, ' ', false, json::error_handler_t::replace);
        printf("%s\n", text.c_str());
    } else {
        printf("%s\n", alerts::AlertLine(alert).c_str());
    }
}

int ShowAlerts(Context &context, const AlertOptions &options)
{
    const int64_t since = options.since.empty() ? 0 : ParseSince(options.since, time(nullptr));
    context.OpenToRead();
    host::Database &database = context.Host().store().database();
    int64_t shown = 0;
    for (;;) {
        const auto found = alerts::ReadAlerts(database, shown, since, kAtOnce);
        for (const Alert &alert : found)
            Print(context, alert);
        if (!found.empty()) {
            shown = found.back().id;
            continue;
        }
        FlushOutput();
        if (!options.follow)
            return kExitDone;
        std::this_thread::sleep_for(kLook);
    }
}

void SetUpAlerts(CLI::App &app, Context &context, Action &action)
{
    auto options = std::make_shared<AlertOptions>();
    app.add_flag("-f,--follow", options->follow, "Go on with new ones until interrupted");
    app.add_option("--since", options->since,
                   "Only from this time on: 10m, 1h30m or 1d ago, 10:00, yesterday, or "
                   "\"2026-11-21 10:00\"")
        ->type_name("TIME");
    app.callback([&, options] { action = [&, options] { return ShowAlerts(context, *options); }; });
}

} // namespace

const std::vector<Command> kAlertCommands = {
    {"alerts", "Show what was reported, oldest first", SetUpAlerts},
};

} // namespace cli
