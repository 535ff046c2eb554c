// silence add, list, end
//
// The commands write the registry only. The daemon reads it with each pass that has something to report,
// so a silence holds for all lines that are checked from then on.
#include <ctime>

#include <nlohmann/json.hpp>

#include "agent/cli/author.h"
#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/cli/table.h"
#include "agent/events/events.h"
#include "agent/policy/silence_desk.h"
#include "agent/policy/silence_registry.h"
#include "agent/text/duration.h"
#include "agent/text/times.h"

namespace cli {

namespace {

using nlohmann::json;
using policy::Silence;
using policy::SilenceHeld;

constexpr int64_t kMsOfSecond = 1000;

struct SilenceOptions {
    std::string source = "*";
    std::string host = "*";
    std::string event;
    std::string labels;
    std::string span;
    std::string every;
    std::string comment;
    bool summary = false;
    bool all = false;
    int64_t number = 0;
};

Silence SilenceOf(const SilenceOptions &options, int64_t now_s)
{
    Silence silence;
    policy::CheckPattern(options.source);
    policy::CheckPattern(options.host);
    policy::CheckComment(options.comment);
    silence.source = options.source;
    silence.host = options.host;
    silence.labels = policy::ParseLabels(options.labels);
    silence.comment = options.comment;
    silence.author = Author();
    silence.wants_summary = options.summary;
    if (!options.event.empty())
        silence.event_id = events::ParseEventId(options.event);
    silence.begin_s = now_s;
    if (!options.span.empty()) {
        const auto span = text::ParseDuration(options.span);
        if (!span || *span == 0)
            throw host::Error("cannot use the time \"" + options.span + "\"",
                              "its form is not known", "write 30m, 2h, 1h30m or 7d");
        silence.end_s = now_s + *span;
        if (silence.end_s > UINT32_MAX) // as it is kept
            throw host::Error("cannot use the time \"" + options.span + "\"",
                              "no silence goes beyond 7 February 2106", "give a shorter one");
    }
    if (!options.every.empty())
        silence.window = policy::ParseWindow(options.every);
    return silence;
}

std::string CheckAdd(const SilenceOptions &options)
{
    return options.span.empty() && options.every.empty()
               ? "say how long with --for, or when with --every"
               : "";
}

int AddSilence(Context &context, const SilenceOptions &options)
{
    const int64_t now_s = time(nullptr);
    const Silence silence = SilenceOf(options, now_s);
    context.Open();
    const uint32_t number =
        policy::AddSilence(context.Host().store(), context.Host().registry(), silence, now_s);
    if (context.json)
        PrintJson({{"added", number}});
    else
        printf("%u\n", number);
    return kExitDone;
}

json ToJson(const Silence &silence, const SilenceHeld &held, int64_t now_s)
{
    return {{"silence", silence.number},
            {"state", silence.StateName(now_s)},
            {"source", silence.source},
            {"event_id",
             silence.event_id ? json(events::FormatEventId(*silence.event_id)) : json(nullptr)},
            {"host", silence.host},
            {"labels", silence.labels},
            {"begin_ms", silence.begin_s * kMsOfSecond},
            {"end_ms", silence.end_s != 0 ? json(silence.end_s * kMsOfSecond) : json(nullptr)},
            {"every", silence.window ? json(policy::WindowText(*silence.window)) : json(nullptr)},
            {"summary", silence.wants_summary},
            {"comment", silence.comment},
            {"author", silence.author},
            {"alerts", held.alerts},
            {"hits", held.lines.hits}};
}

int ListSilences(Context &context, const SilenceOptions &options)
{
    context.OpenToRead();
    const int64_t now_s = time(nullptr);
    const auto held = policy::ReadSilenceHeld(context.Host().store().database());
    json list = json::array();
    Table table({"SILENCE", "STATE", "SOURCE", "EVENT", "HOST", "LABELS", "UNTIL", "EVERY",
                 "HELD BACK", "BY", "COMMENT"});
    for (const Silence &silence : policy::ReadSilences(context.Host().registry())) {
        if (silence.IsOver(now_s) && !options.all)
            continue;
        const auto found = held.find(silence.number);
        const SilenceHeld known = found != held.end() ? found->second : SilenceHeld{};
        list.push_back(ToJson(silence, known, now_s));
        table.Add({std::to_string(silence.number), silence.StateName(now_s), silence.source,
                   silence.event_id ? events::FormatEventId(*silence.event_id) : "-", silence.host,
                   silence.labels.empty() ? "-" : policy::LabelsText(silence.labels),
                   silence.end_s != 0 ? text::LocalTime(silence.end_s * kMsOfSecond) : "-",
                   silence.window ? policy::WindowText(*silence.window) : "-",
                   std::to_string(known.alerts), silence.author,
                   silence.comment.empty() ? "-" : silence.comment});
    }
    if (context.json)
        PrintJson({{"silences", list}});
    else
        table.Print();
    return kExitDone;
}

int EndSilence(Context &context, const SilenceOptions &options)
{
    context.Open();
    policy::EndSilence(context.Host().store(), context.Host().registry(),
                       static_cast<uint32_t>(options.number), time(nullptr));
    if (context.json)
        PrintJson({{"ended", options.number}});
    return kExitDone;
}

void SetUpAddSilence(Parser &parser, Context &context)
{
    auto options = std::make_shared<SilenceOptions>();
    parser.Add("--source", options->source, "Alerts of sources like this: 'DISK', 'NET*'; all")
        .TypeName("PATTERN");
    parser.Add("--host", options->host, "Of lines of hosts like this: 'web*'; all")
        .TypeName("PATTERN");
    parser.Add("--event", options->event, "Of events with this ID; all").TypeName("ID");
    parser
        .Add("--label", options->labels,
             "Of events with labels like these: team=db, or team=db,tier=web*; all")
        .TypeName("NAME=PATTERN");
    parser.Add("--for", options->span, "For so long from now on: 30m, 2h, 7d").TypeName("TIME");
    parser
        .Add("--every", options->every,
             "Only then, again and again: \"mon-fri 22:00-06:00\", \"sat 02:00-03:00 "
             "Europe/Berlin\"")
        .TypeName("HOURS");
    parser.Add("--comment", options->comment, "Why; it is shown in the list").TypeName("TEXT");
    parser.AddFlag("--summary", options->summary,
                   "One alert at its end, when it has held back something");
    parser.Runs([&, options] { return AddSilence(context, *options); },
                [options] { return CheckAdd(*options); });
}

void SetUpListSilences(Parser &parser, Context &context)
{
    auto options = std::make_shared<SilenceOptions>();
    parser.AddFlag("--all", options->all, "Also those that were over in the last 30 days");
    parser.Runs([&, options] { return ListSilences(context, *options); });
}

void SetUpEndSilence(Parser &parser, Context &context)
{
    auto options = std::make_shared<SilenceOptions>();
    parser.Add("number", options->number, "The silence's number").Required().NotNegative();
    parser.Runs([&, options] { return EndSilence(context, *options); });
}

} // namespace

const std::vector<Command> kSilenceCommands = {
    {"silence list", "Show the silences, and how much each has held back", SetUpListSilences},
    {"silence add", "Store alerts like these without telling anybody", SetUpAddSilence},
    {"silence end", "End a silence now", SetUpEndSilence},
};

} // namespace cli
