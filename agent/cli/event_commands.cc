// event list, show, add, set, remove
//
// An event is always written whole, under the mutex of the table and in one transaction, and the
// monitor is woken behind it. What is shown of hits is what the last pass has stored: the daemon is
// not asked.
#include <algorithm>
#include <ctime>
#include <map>
#include <optional>

#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/event_json.h"
#include "agent/cli/output.h"
#include "agent/cli/table.h"
#include "agent/events/events.h"
#include "agent/events/expressions.h"
#include "agent/host/hit_counters.h"
#include "agent/policy/count_store.h"
#include "agent/policy/count_text.h"
#include "agent/policy/policies.h"
#include "agent/rules/policy_text.h"
#include "agent/settings/settings.h"
#include "platform/contract.h"

namespace cli {

namespace {

using events::EventKey;
using events::EventRecord;
using events::EventRegistry;
using events::StoredEvent;
using nlohmann::json;

// Values of an event that is counted for each host or program that are shown: the most recent ones.
constexpr size_t kShownValues = 10;

// The values of an event as they are typed. What is not given stays as it is, or gets its default.
// One of each for every command: it is filled when the words are read, and kept for the action.
struct EventOptions {
    std::string source;
    std::string id;
    std::vector<std::string> keywords; // empty: not given; one that is to be empty is an empty word
    std::optional<std::string> hours;
    std::optional<int64_t> report_count;
    bool force = false;
};

void AddKeyOptions(Parser &parser, EventOptions &options)
{
    parser.Add("source", options.source, "Name of the event's source").Required();
    parser.Add("id", options.id, "Event ID, one to eight hexadecimal digits").Required();
}

void AddValueOptions(Parser &parser, EventOptions &options)
{
    parser
        .Add("-k,--keyword", options.keywords,
             "Text that a line must contain; give it up to three times")
        .TypeName("TEXT")
        // One word each time: the words behind it are the source and the ID.
        .OneWordEach();
    parser.Add("-n,--report-count", options.report_count, "Hits that make one report")
        .TypeName("N")
        // The parser itself takes an empty word for 0.
        .Check([](const std::string &word) { return word.empty() ? "it has no number" : ""; });
    parser
        .Add("--hours", options.hours,
             "Hours of the day in which it counts: all, none, 8-18, 22-6,12")
        .TypeName("HOURS");
    parser.AddFlag("--force", options.force, kForceHelp);
}

EventKey KeyOf(const EventOptions &options)
{
    return {options.source, events::ParseEventId(options.id)};
}

// As it is typed behind the command.
std::string Quoted(const EventKey &key)
{
    return key.source + " " + events::FormatEventId(key.id);
}

// Puts what was typed into an event, which is new and has its defaults, or is the stored one.
// Throws host::Error for a value out of its range; the event may have some of the values then, and
// is not written.
void ApplyOptions(const EventOptions &options, EventRecord *event)
{
    const auto &keywords = options.keywords;
    if (!keywords.empty()) {
        if (keywords.size() > event->keywords.size())
            throw host::Error("cannot use event " + Quoted(event->key),
                              "it has more than three keywords", "give at most three");
        // All three are replaced: those that are not given are empty from now on.
        event->keywords = {};
        std::copy(keywords.begin(), keywords.end(), event->keywords.begin());
    }
    if (options.hours)
        event->hours = events::ParseHours(*options.hours);
    // Read as 64 bits, so that a number that is too large is refused and not cut.
    if (options.report_count) {
        const int64_t count = *options.report_count;
        if (count < 1 || count > INT32_MAX)
            throw host::Error("cannot use the report count " + std::to_string(count) +
                                  " of event " + Quoted(event->key),
                              "it is out of range", "use a number from 1 to 2147483647");
        event->report_count = static_cast<int32_t>(count);
    }
}

// Only keywords that are typed now: an event with an old one can still be changed.
void CheckExpressions(const Context &context, const EventOptions &options, const EventRecord &event)
{
    if (options.keywords.empty() || options.force ||
        !settings::IsFaultTolerant(context.Host().registry()))
        return;
    for (const std::string &keyword : event.keywords) {
        if (const auto fault = events::FaultOfExpression(keyword))
            throw host::Error("cannot use the keyword \"" + keyword + "\" of event " +
                                  Quoted(event.key),
                              fault->cause, fault->advice + ", or add --force");
    }
}

void CheckRoom(EventRegistry &events, const EventKey &key)
{
    // What has no room would not be watched.
    const size_t count = events::CountTableEvents(events.ReadAll());
    if (count >= static_cast<size_t>(kMaxEntries))
        throw host::Error("cannot add event " + Quoted(key),
                          "there are " + std::to_string(count) +
                              " events, and the monitor's table has room for " +
                              std::to_string(kMaxEntries),
                          "remove events that are not needed");
}

// Every change goes this way. The mutex keeps the monitor from loading a table of which one half is
// new.
void Change(const Context &context, const std::function<void(EventRegistry &)> &change)
{
    events::ChangeEvents(
        context.Host(),
        [&] {
            EventRegistry events(context.Host().registry());
            change(events);
        },
        [] { fprintf(stderr, "syslogmon: waiting until the table of events is free...\n"); });
}

// ---- adding and changing ----

int AddEvent(Context &context, const EventOptions &options)
{
    context.Open();
    EventRecord event;
    event.key = KeyOf(options);
    ApplyOptions(options, &event);
    CheckExpressions(context, options, event);
    Change(context, [&](EventRegistry &events) {
        // In the transaction, or two commands at once could both find none.
        if (events.Find(event.key))
            throw host::Error("cannot add event " + Quoted(event.key), "it is registered already",
                              "change it with syslogmon event set");
        CheckRoom(events, event.key);
        events.Write(event);
    });
    return kExitDone;
}

StoredEvent FindOrFail(EventRegistry &events, const EventKey &key)
{
    auto stored = events.Find(key);
    if (!stored)
        throw host::Error("cannot find event " + Quoted(key), "it is not registered",
                          "see syslogmon event list");
    return *stored;
}

// What is stored is read in the transaction, so two commands that change different values of one
// event both count.
int SetEvent(Context &context, const EventOptions &options)
{
    context.Open();
    const EventKey key = KeyOf(options);
    Change(context, [&](EventRegistry &events) {
        EventRecord event = FindOrFail(events, key).event;
        ApplyOptions(options, &event);
        CheckExpressions(context, options, event);
        events.Write(event);
    });
    return kExitDone;
}

int RemoveEvent(Context &context, const EventOptions &options)
{
    context.Open();
    const EventKey key = KeyOf(options);
    Change(context, [&](EventRegistry &events) {
        FindOrFail(events, key);
        events.Remove(key);
    });
    return kExitDone;
}

// ---- showing ----

// The hits of an event so far, as of the last pass.
using Hits = std::map<std::pair<std::string, uint32_t>, int64_t>;

Hits ReadHits(const Context &context)
{
    Hits hits;
    for (const auto &counter : host::HitCounters::Load(context.Host().store()))
        // The first of equal ones, as the monitor takes it at a start.
        hits.try_emplace({counter.source, counter.event_id}, counter.current_count);
    return hits;
}

// Nothing for an event that no pass has counted yet: it is newer than the last one.
std::optional<int64_t> HitsOf(const Hits &hits, const EventKey &key)
{
    const auto found = hits.find({key.source, key.id});
    return found != hits.end() ? std::optional<int64_t>(found->second) : std::nullopt;
}

// What the agent has counted of an event; nothing when it does not count it, or no pass has yet.
std::optional<policy::EventCount> ReadCount(const Context &context, const EventRecord &event)
{
    if (!event.policy.Counts())
        return std::nullopt;
    policy::EventCount count(policy::TermsFor(event));
    if (!policy::LoadCount(context.Host().store().database(), event, &count))
        return std::nullopt;
    return count;
}

// Of the value that is nearest to a report.
std::optional<int64_t> MostHits(const std::optional<policy::EventCount> &count)
{
    if (!count || count->terms().absent_s > 0)
        return std::nullopt;
    int64_t most = 0;
    for (const auto &entry : count->entries())
        most = std::max(most, entry.count.hits());
    return most;
}

std::string KeywordText(const std::array<std::string, 3> &keywords)
{
    std::string text;
    for (const std::string &keyword : keywords) {
        if (!keyword.empty())
            text += (text.empty() ? "\"" : " + \"") + keyword + "\"";
    }
    return text;
}

// "3/5"; a line instead of the hits, when they are not known.
std::string HitText(const std::optional<int64_t> &hits, const EventRecord &event)
{
    return (hits ? std::to_string(*hits) : "-") + "/" + std::to_string(event.report_count);
}

// "hits" is always there, and null when nothing is known; "problem" only where there is one.
json ToJson(const StoredEvent &stored, const std::optional<int64_t> &hits)
{
    const EventRecord &event = stored.event;
    json object = KeyToJson(event.key);
    object.update(ValuesToJson(event));
    object["hits"] = nullptr;
    if (hits)
        object["hits"] = *hits;
    if (!stored.problem.empty())
        object["problem"] = stored.problem;
    return object;
}

int ListEvents(Context &context)
{
    context.OpenToRead();
    const auto sources = EventRegistry(context.Host().registry()).ReadAll();
    const Hits hits = ReadHits(context);
    json list = json::array();
    Table table({"SOURCE", "ID", "HITS", "HOURS", "KEYWORDS"});
    for (const auto &source : sources) {
        if (source.is_new_application_type)
            continue; // not the monitor's
        for (const StoredEvent &stored : source.events) {
            const auto count = stored.event.policy.Counts()
                                   ? MostHits(ReadCount(context, stored.event))
                                   : HitsOf(hits, stored.event.key);
            list.push_back(ToJson(stored, count));
            // The problem stands in place of what could not be read.
            const std::string keywords = stored.problem.empty()
                                             ? KeywordText(events::TableKeywords(stored.event))
                                             : "(" + stored.problem + ")";
            table.Add({source.name, events::FormatEventId(stored.event.key.id),
                       HitText(count, stored.event), events::FormatHours(stored.event.hours),
                       keywords});
        }
    }
    if (context.json)
        PrintJson({{"events", list}});
    else
        table.Print();
    return kExitDone;
}

// The most recent first.
json CountedToJson(const policy::EventCount &count)
{
    json values = json::array();
    for (auto entry = count.entries().rbegin(); entry != count.entries().rend(); ++entry) {
        json value = {{"value", entry->value},
                      {"hits", entry->count.hits()},
                      {"held_back_reports", entry->count.held_back().reports},
                      {"held_back_hits", entry->count.held_back().hits},
                      {"not_before_ms", nullptr}};
        if (const int64_t until_s = entry->count.QuietUntil(count.terms()); until_s > 0)
            value["not_before_ms"] = until_s * 1000;
        values.push_back(value);
    }
    return {{"values", values},
            {"dropped_values", count.dropped().values},
            {"dropped_hits", count.dropped().hits}};
}

// What the monitor does, what the agent does, and how far that is.
void AddBothHalves(const EventRecord &event, const std::optional<policy::EventCount> &count,
                   Table *table)
{
    std::string words = "hands over each line with ";
    words += events::TableKeywords(event) == event.keywords
                 ? "the keywords"
                 : "\"" + events::TableKeywords(event)[0] + "\", which its expression needs";
    table->Add({"monitor", words});
    table->Add({"agent", policy::TermsInWords(event)});
    if (!count) {
        table->Add({"hits", "-"});
        return;
    }
    size_t shown = 0;
    for (auto entry = count->entries().rbegin();
         entry != count->entries().rend() && shown < kShownValues; ++entry, ++shown) {
        table->Add({event.policy.per.empty() ? "hits" : "hits of " + entry->value,
                    policy::ProgressInWords(count->terms(), entry->count, time(nullptr))});
    }
    if (count->entries().empty())
        table->Add({"hits", "none yet"});
    if (count->entries().size() > shown)
        table->Add({"", "and " + std::to_string(count->entries().size() - shown) +
                            " others before these; --json has all"});
    if (count->dropped().values > 0)
        table->Add({"forgotten", std::to_string(count->dropped().values) + " values with " +
                                     std::to_string(count->dropped().hits) +
                                     " hits, for want of room"});
}

int ShowEvent(Context &context, const EventOptions &options)
{
    context.OpenToRead();
    EventRegistry events(context.Host().registry());
    const StoredEvent stored = FindOrFail(events, KeyOf(options));
    const EventRecord &event = stored.event;
    const bool counts = event.policy.Counts();
    const auto count = ReadCount(context, event);
    const auto hits = counts ? MostHits(count) : HitsOf(ReadHits(context), event.key);
    if (context.json) {
        json object = ToJson(stored, hits);
        if (count)
            object["counted"] = CountedToJson(*count);
        PrintJson({{"event", object}});
        return kExitDone;
    }
    Table table({"VALUE", ""});
    table.Add({"source", event.key.source});
    table.Add({"id", events::FormatEventId(event.key.id)});
    for (const std::string &keyword : event.keywords) {
        if (!keyword.empty())
            table.Add({"keyword", keyword});
    }
    table.Add({"report-count", std::to_string(event.report_count)});
    table.Add({"hours", events::FormatHours(event.hours)});
    for (const rules::ShownValue &value : rules::ShownPolicy(event.policy))
        table.Add({value.name, value.text});
    if (counts)
        AddBothHalves(event, count, &table);
    else
        table.Add({"hits", hits ? std::to_string(*hits) : "-"});
    if (!stored.problem.empty())
        table.Add({"problem", stored.problem});
    table.Print();
    return kExitDone;
}

// Sets up a command that takes the given options.
using Function = int (*)(Context &, const EventOptions &);

template <Function Run>
void SetUpKey(Parser &parser, Context &context)
{
    auto options = std::make_shared<EventOptions>();
    AddKeyOptions(parser, *options);
    parser.Runs([&, options] { return Run(context, *options); });
}

template <Function Run>
void SetUpValues(Parser &parser, Context &context)
{
    auto options = std::make_shared<EventOptions>();
    AddKeyOptions(parser, *options);
    AddValueOptions(parser, *options);
    parser.Runs([&, options] { return Run(context, *options); });
}

void SetUpList(Parser &parser, Context &context)
{
    parser.Runs([&] { return ListEvents(context); });
}

} // namespace

const std::vector<Command> kEventCommands = {
    {"event list", "List the registered events with their hits so far", SetUpList},
    {"event show", "Show one event", SetUpKey<ShowEvent>},
    {"event add", "Register an event", SetUpValues<AddEvent>},
    {"event set", "Change values of an event; what is not given stays", SetUpValues<SetEvent>},
    {"event remove", "Remove an event", SetUpKey<RemoveEvent>},
};

} // namespace cli
