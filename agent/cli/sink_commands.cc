// sink add, set, remove, list, show, test, limit
//
// The commands write the settings of sinks into the registry and ring the daemon, which starts its
// workers anew. What they show comes from the rows that the daemon writes at most once a second, so
// it may be a moment old. `sink test` alone sends something itself, and past the daemon.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <set>

#include <nlohmann/json.hpp>

#include "agent/alerts/alert_store.h"
#include "agent/cli/command.h"
#include "agent/cli/option_word.h"
#include "agent/cli/output.h"
#include "agent/cli/sink_commands.h"
#include "agent/cli/table.h"
#include "agent/fleet/setup.h"
#include "agent/host/here_and_now.h"
#include "agent/host/waitable.h"
#include "agent/inputs/counted_twice.h"
#include "agent/inputs/input_registry.h"
#include "agent/logs/log_files.h"
#include "agent/sinks/delivery_store.h"
#include "agent/sinks/route.h"
#include "agent/sinks/undelivered.h"
#include "agent/status/status_file.h"
#include "agent/text/printable.h"
#include "agent/text/times.h"

namespace cli {

sinks::SinkRegistry Sinks(const Context &context)
{
    return {context.Host().store(), context.Host().registry()};
}

void TellDaemonOfSinks(const Context &context)
{
    // A member of a fleet may reach its servers as a sink does.
    for (const char *event : {sinks::kSinksEvent, fleet::kFleetEvent})
        host::WakeEvent::Create(context.layout.run, event, false, false)->Set();
}

namespace {

std::vector<std::string> ReadersOf(const std::filesystem::path &path, host::Host &host)
{
    std::vector<std::string> readers;
    for (const auto &watched : logs::WatchedPaths(host.registry())) {
        // A file that is not there yet is compared by its name alone.
        std::error_code ignored;
        if (path == watched || std::filesystem::equivalent(path, watched, ignored))
            readers.emplace_back("the monitor");
    }
    for (const auto &input : inputs::InputRegistry(host.store(), host.registry()).ReadAll()) {
        if (ReadsFile(input, path))
            readers.push_back("the input " + input.name);
    }
    return readers;
}

} // namespace

std::vector<std::string> SinkWarnings(host::Host &host, const sinks::SinkConfig &config)
{
    std::vector<std::string> warnings = sinks::SecretWarnings(config);
    const std::filesystem::path path = config.WrittenFile();
    if (path.empty())
        return warnings;
    for (const std::string &reader : ReadersOf(path, host))
        warnings.push_back("it writes to " + path.string() + ", which " + reader +
                           " reads: " + kReportsItself);
    return warnings;
}

namespace {

using nlohmann::json;
using sinks::Delivery;
using sinks::SinkConfig;
using sinks::StoredSink;

constexpr int64_t kDayMs = int64_t{24} * 60 * 60 * 1000;
constexpr int64_t kAtOnce = 1000; // alerts that are read in one go

// What the words of all of these commands are read into; each sets those that it has.
struct SinkOptions {
    std::string kind;
    std::string name;
    std::vector<std::string> options; // "name=value"
    std::vector<std::string> unset;   // "name"
    std::string limit;
    std::optional<std::string> megabytes; // empty: it is shown
};

// Puts them over those that the sink has. Throws host::Error for a word without =, and for a name
// that the kind does not know; whether the values fit is checked when the sink is stored.
void TakeOptions(const std::vector<std::string> &words, SinkConfig &config)
{
    for (const std::string &word : words) {
        auto [name, value] = SplitOption(word);
        // For its error: an option that the kind does not have.
        sinks::FindOption(*config.kind, name);
        config.options[name] = std::move(value);
    }
}

// On standard error, and no failure: the administrator may have a reason.
void Warn(const Context &context, const SinkConfig &config)
{
    for (const std::string &warning : SinkWarnings(context.Host(), config))
        fprintf(stderr, "syslogmon: warning: %s\n", warning.c_str());
}

int AddSink(Context &context, const SinkOptions &options)
{
    SinkConfig config;
    config.kind = &sinks::FindKind(options.kind);
    config.name = options.name;
    TakeOptions(options.options, config);
    context.Open();
    // It checks the values, and takes no name that is there.
    Sinks(context).Add(config);
    TellDaemonOfSinks(context);
    Warn(context, config);
    if (context.json)
        PrintJson({{"added", config.name}, {"warnings", SinkWarnings(context.Host(), config)}});
    return kExitDone;
}

// The stored sink, which must be sound enough to work with.
SinkConfig SoundSink(const Context &context, const std::string &name)
{
    StoredSink sink = Sinks(context).Find(name);
    if (!sink.problem.empty())
        throw host::Error("cannot use the sink " + sink.config.name, sink.problem,
                          "remove it and add it again");
    return sink.config;
}

// In the transaction of the change: what is not named stays as it is then.
void ChangeOptions(const SinkOptions &options, StoredSink &sink)
{
    SinkConfig &config = sink.config;
    // A kind of a later version, for example: its options cannot be checked.
    if (config.kind == nullptr)
        throw host::Error("cannot use the sink " + config.name, sink.problem,
                          "remove it and add it again");
    TakeOptions(options.options, config);
    // Nothing is the standard value, unless it is a value.
    std::erase_if(config.options, [&](const auto &option) {
        return option.second.empty() &&
               !sinks::FindOption(*config.kind, option.first).check("").empty();
    });
    for (const std::string &name : options.unset) {
        sinks::FindOption(*config.kind, name);
        config.options.erase(name);
    }
}

int ChangeSink(Context &context, const SinkOptions &options)
{
    context.Open();
    const SinkConfig config = Sinks(context).Change(
        options.name, [&](StoredSink &sink) { ChangeOptions(options, sink); });
    TellDaemonOfSinks(context);
    Warn(context, config);
    if (context.json)
        PrintJson({{"changed", config.name}, {"warnings", SinkWarnings(context.Host(), config)}});
    return kExitDone;
}

int RemoveSink(Context &context, const SinkOptions &options)
{
    context.Open();
    const std::string name = Sinks(context).Find(options.name).config.name;
    Sinks(context).Remove(name);
    TellDaemonOfSinks(context);
    if (context.json)
        PrintJson({{"removed", name}});
    return kExitDone;
}

// ---- what is known of a sink ----

std::string UndeliveredText(int64_t count, const std::string &sink)
{
    return std::to_string(count) + (count == 1 ? " alert is" : " alerts are") +
           " not taken, although others are; see syslogmon sink undelivered " + sink;
}

// A sink as it is shown: its settings, and how far each of its receivers has come.
struct View {
    StoredSink sink;
    sinks::Deliveries rows;
    std::vector<sinks::Undelivered> undelivered;
    int64_t newest = 0; // of all alerts
    int64_t oldest = 0;
    uint32_t limit = 0;
    int64_t of_last_day = 0;                  // alerts that it gets, delivered or not
    std::vector<std::string> config_warnings; // see SinkWarnings

    [[nodiscard]] Delivery Whole() const
    {
        // The row of the sink as a whole.
        const auto whole = rows.find("");
        if (whole != rows.end())
            return whole->second;
        Delivery none; // it gets the alerts from now on, once the daemon has seen it
        none.last_id = newest;
        return none;
    }
    [[nodiscard]] int64_t Waiting(const Delivery &row) const
    {
        return sinks::Waiting(row, oldest, newest);
    }
    [[nodiscard]] int64_t Undelivered(const std::string &peer) const
    {
        return std::count_if(undelivered.begin(), undelivered.end(),
                             [&](const auto &row) { return row.peer == peer; });
    }
    // Of all its receivers: alerts, each of which one at least does not take.
    [[nodiscard]] int64_t Undelivered() const
    {
        std::set<int64_t> ids;
        for (const auto &row : undelivered)
            ids.insert(row.alert_id);
        return static_cast<int64_t>(ids.size());
    }
    [[nodiscard]] std::string Error() const
    {
        return sink.problem.empty() ? Whole().last_error : sink.problem;
    }
    [[nodiscard]] std::vector<std::string> Warnings() const
    {
        std::vector<std::string> warnings = config_warnings;
        if (!undelivered.empty())
            warnings.push_back(UndeliveredText(Undelivered(), sink.config.name));
        const int64_t waiting = Waiting(Whole());
        // 80 %, as the daemon warns.
        if (waiting * 10 >= int64_t{limit} * 8)
            warnings.push_back(std::to_string(waiting) + " alerts wait, of at most " +
                               std::to_string(limit) +
                               (waiting >= limit ? "; the oldest are dropped" : ""));
        return warnings;
    }
};

// How many of the last day's alerts each sink gets, by the order of the sinks. Those that have left the
// store are not counted.
std::vector<int64_t> CountLastDay(host::Database &database, const std::vector<StoredSink> &sinks)
{
    std::vector<sinks::Route> routes;
    for (const StoredSink &sink : sinks)
        routes.emplace_back(sink.problem.empty() ? sink.config.Get(sinks::kOnlyOption) : "",
                            sink.config.name);
    std::vector<int64_t> counts(sinks.size());
    const int64_t since_ms = status::WallTimeMs() - kDayMs;
    for (int64_t after = 0;;) {
        const auto alerts = alerts::ReadAlerts(database, after, since_ms, kAtOnce);
        if (alerts.empty() || sinks.empty())
            return counts;
        after = alerts.back().id;
        for (const alerts::Alert &alert : alerts) {
            for (size_t i = 0; i < routes.size(); ++i)
                counts[i] += routes[i].Takes(alert) ? 1 : 0;
        }
    }
}

View ViewOf(const Context &context, StoredSink sink)
{
    host::Database &database = context.Host().store().database();
    View view;
    view.rows = sinks::ReadDeliveries(database, sink.config.key);
    view.undelivered = sinks::ReadUndelivered(database, sink.config.key);
    view.newest = alerts::NewestAlertId(database);
    view.oldest = alerts::OldestAlertId(database);
    view.limit = Sinks(context).AlertLimit();
    if (sink.config.kind != nullptr && sink.problem.empty())
        view.config_warnings = SinkWarnings(context.Host(), sink.config);
    view.sink = std::move(sink);
    return view;
}

// "?" for a kind that this version does not know.
std::string KindName(const StoredSink &sink)
{
    return sink.config.kind != nullptr ? sink.config.kind->name : "?";
}

// Null for a time that there is none of: 0 would be the year 1970.
json TimeOrNull(int64_t time_ms)
{
    return time_ms == 0 ? json(nullptr) : json(time_ms);
}

// The fields of the sink as a whole and of each peer are the same.
json ToJson(const View &view, const Delivery &row, int64_t undelivered, const std::string &error)
{
    return {{"delivered", row.delivered},
            {"waiting", view.Waiting(row)},
            {"undelivered", undelivered},
            {"dropped", row.dropped},
            {"last_delivered_ms", TimeOrNull(row.delivered_ms)},
            {"last_error", error.empty() ? json(nullptr) : json(error)},
            {"last_error_ms", TimeOrNull(row.error_ms)}};
}

json ToJson(const View &view)
{
    json object = ToJson(view, view.Whole(), view.Undelivered(), view.Error());
    object["name"] = view.sink.config.name;
    object["kind"] = KindName(view.sink);
    object["options"] = view.sink.config.options;
    object["last_day"] = view.of_last_day;
    object["warnings"] = view.Warnings();
    object["peers"] = json::object();
    for (const auto &[peer, row] : view.rows) {
        if (!peer.empty())
            object["peers"][peer] = ToJson(view, row, view.Undelivered(peer), row.last_error);
    }
    return object;
}

// With its time, when it has one: a problem of the settings has none.
std::string ErrorText(const Delivery &row, const std::string &error)
{
    if (error.empty())
        return "-";
    return (row.error_ms != 0 ? text::LocalTime(row.error_ms) + " " : "") + error;
}

int ListSinks(Context &context, const SinkOptions &)
{
    context.OpenToRead();
    json list = json::array();
    Table table({"SINK", "KIND", "DELIVERED", "WAITING", "UNDELIVERED", "DROPPED", "LAST DAY",
                 "LAST ERROR"});
    std::vector<StoredSink> all = Sinks(context).ReadAll();
    const auto of_last_day = CountLastDay(context.Host().store().database(), all);
    for (size_t i = 0; i < all.size(); ++i) {
        View view = ViewOf(context, std::move(all[i]));
        view.of_last_day = of_last_day[i];
        const Delivery whole = view.Whole();
        list.push_back(ToJson(view));
        table.Add({view.sink.config.name, KindName(view.sink), std::to_string(whole.delivered),
                   std::to_string(view.Waiting(whole)), std::to_string(view.Undelivered()),
                   std::to_string(whole.dropped), std::to_string(view.of_last_day),
                   ErrorText(whole, view.Error())});
        if (!context.json) {
            for (const std::string &warning : view.Warnings())
                fprintf(stderr, "syslogmon: warning: %s: %s\n", view.sink.config.name.c_str(),
                        warning.c_str());
        }
    }
    if (context.json)
        PrintJson({{"sinks", list}, {"limit", Sinks(context).AlertLimit()}});
    else
        table.Print();
    return kExitDone;
}

// The same rows for the sink as a whole and for each of its peers.
void AddRows(Table &table, const View &view, const Delivery &row, int64_t undelivered,
             const std::string &error)
{
    table.Add({"delivered", std::to_string(row.delivered)});
    table.Add({"waiting", std::to_string(view.Waiting(row))});
    table.Add({"undelivered", std::to_string(undelivered)});
    table.Add({"dropped", std::to_string(row.dropped)});
    table.Add(
        {"last delivery", row.delivered_ms != 0 ? text::LocalTime(row.delivered_ms) : "none yet"});
    table.Add({"last error", ErrorText(row, error)});
}

int ShowSink(Context &context, const SinkOptions &options)
{
    context.OpenToRead();
    const StoredSink sink = Sinks(context).Find(options.name);
    View view = ViewOf(context, sink);
    view.of_last_day = CountLastDay(context.Host().store().database(), {sink})[0];
    if (context.json) {
        PrintJson({{"sink", ToJson(view)}});
        return kExitDone;
    }
    Table table({"SINK", ""});
    table.Add({"name", view.sink.config.name});
    table.Add({"kind", KindName(view.sink)});
    for (const auto &[name, value] : view.sink.config.options)
        table.Add({name, value});
    table.Add({"alerts of the last day", std::to_string(view.of_last_day)});
    AddRows(table, view, view.Whole(), view.Undelivered(), view.Error());
    for (const auto &[peer, row] : view.rows) {
        if (peer.empty())
            continue;
        table.Add({"peer", peer});
        AddRows(table, view, row, view.Undelivered(peer), row.last_error);
    }
    for (const std::string &warning : view.Warnings())
        table.Add({"warning", warning});
    table.Print();
    return kExitDone;
}

// ---- sink test ----

// Marked in three ways: by the field, the source and the text, for receivers that look at any one
// of them. Its key is like no alert's, so a receiver that leaves out what it has already got does
// not leave out a real one.
sinks::Message TestMessage(host::Store &store, const SinkConfig &config)
{
    sinks::Message message;
    message.is_test = true;
    message.alert.time_ms = status::WallTimeMs();
    message.alert.host = host::HostName();
    message.alert.log_name = "Application";
    message.alert.source = "SYSLOGMON-TEST";
    message.alert.count = 1;
    message.alert.message = "This is a test of the sink " + config.name + ". Nothing has happened.";
    message.key = store.series() + "/test-" + std::to_string(message.alert.time_ms);
    if (config.kind->active != nullptr)
        // For receivers that keep an alert until it is over: this one is over as soon as others.
        message.ends_ms = message.alert.time_ms + config.kind->active(config).count();
    return message;
}

// In this process, with the rights of whoever runs the command: what it may read, the daemon may
// not, and the other way round.
sinks::Outcome TestPeer(host::Store &store, const SinkConfig &config, const std::string &peer)
{
    sinks::Secrets secrets;
    sinks::Outcome outcome;
    try {
        const auto sink = config.kind->open(config, peer, secrets);
        const sinks::Message message = TestMessage(store, config);
        outcome = sink->Send(std::span(&message, 1), sinks::Interrupt());
    } catch (const std::exception &error) {
        outcome = sinks::Failed(error.what());
    }
    // A receiver may send back what it was sent.
    outcome.answer = secrets.Hide(outcome.answer);
    return outcome;
}

int TestSink(Context &context, const SinkOptions &options)
{
    signal(SIGPIPE, SIG_IGN); // a receiver that hangs up is an answer, too
    context.OpenToRead();
    const SinkConfig config = SoundSink(context, options.name);
    Warn(context, config);
    json answers = json::array();
    bool all_taken = true;
    // All of them, also behind one that fails.
    for (const std::string &peer : config.Peers()) {
        const sinks::Outcome outcome = TestPeer(context.Host().store(), config, peer);
        const bool taken = outcome.result == sinks::Outcome::Result::kTaken;
        all_taken = all_taken && taken;
        answers.push_back({{"peer", peer}, {"taken", taken}, {"answer", outcome.answer}});
        const std::string text =
            (peer.empty() ? config.name : config.name + " (" + peer + ")") +
            (taken ? " has taken the test alert: " : " has not taken the test alert: ") +
            text::Printable(outcome.answer);
        if (!context.json)
            fprintf(taken ? stdout : stderr, "%s%s\n", taken ? "" : "syslogmon: ", text.c_str());
    }
    if (context.json)
        PrintJson({{"sink", config.name}, {"taken", all_taken}, {"answers", answers}});
    return all_taken ? kExitDone : kExitFailed;
}

int Limit(Context &context, const SinkOptions &options)
{
    // A word makes it a change; the limits are shown otherwise, and no store is made for that.
    const bool sets_megabytes = options.megabytes && !options.megabytes->empty();
    const bool is_set = !options.limit.empty() || sets_megabytes;
    if (is_set)
        context.Open();
    else
        context.OpenToRead();
    if (!options.limit.empty())
        Sinks(context).SetAlertLimit(options.limit);
    if (sets_megabytes)
        Sinks(context).SetAlertMegabytes(*options.megabytes);
    if (is_set) {
        TellDaemonOfSinks(context);
        return kExitDone;
    }
    if (context.json)
        PrintJson({{"limit", Sinks(context).AlertLimit()},
                   {"megabytes", Sinks(context).AlertMegabytes()}});
    else
        printf("%u\n",
               options.megabytes ? Sinks(context).AlertMegabytes() : Sinks(context).AlertLimit());
    return kExitDone;
}

} // namespace

std::string HelpOf(const sinks::SinkOption &option)
{
    const std::string name = option.name;
    std::string text =
        name + (name.back() == '.' ? "NAME=" : "=") + option.form + "  " + option.help;
    if (option.standard == nullptr)
        text += " (must be given)";
    else if (option.standard[0] != '\0')
        text += std::string(" (") + option.standard + ")";
    return text;
}

std::string HelpOf(const sinks::SinkKind &kind)
{
    std::string text = "What can be set:\n";
    for (const sinks::SinkOption &option : kind.options)
        text += "  " + HelpOf(option) + "\n";
    return text;
}

namespace {

// ---- the rows ----

// From the table of kinds, so help names what there is, with the values that hold otherwise.
std::string KindsHelp()
{
    std::string text = "Kinds and their options:\n";
    for (const sinks::SinkKind &kind : sinks::AllKinds()) {
        text += "  " + std::string(kind.name) + ": " + kind.help + "\n";
        for (const sinks::SinkOption &option : kind.options)
            text += "    " + HelpOf(option) + "\n";
    }
    return text;
}

using Function = int (*)(Context &, const SinkOptions &);

template <Function function>
void SetUp(Parser &parser, Context &context, const std::function<void(SinkOptions &)> &add_options)
{
    auto options = std::make_shared<SinkOptions>();
    add_options(*options);
    parser.Runs([&, options] { return function(context, *options); });
}

void AddName(Parser &parser, SinkOptions &options)
{
    parser.Add("name", options.name, "The sink's name").Required();
}

void AddWords(Parser &parser, SinkOptions &options)
{
    parser.Add("options", options.options, "NAME=VALUE, see below").TypeName("OPTION ...");
    // A function: it is written when help is asked for, not at each start.
    parser.Footer(KindsHelp);
}

void AddUnset(Parser &parser, SinkOptions &options)
{
    parser.Add("--unset", options.unset, "Take this option away: its standard value holds")
        .OneWordEach() // what follows are options of the sink
        .TypeName("NAME");
}

void SetUpAdd(Parser &parser, Context &context)
{
    SetUp<AddSink>(parser, context, [&](SinkOptions &options) {
        parser.Add("kind", options.kind, "What it is; see below").Required();
        AddName(parser, options);
        AddWords(parser, options);
    });
}

void SetUpSetSink(Parser &parser, Context &context)
{
    SetUp<ChangeSink>(parser, context, [&](SinkOptions &options) {
        AddName(parser, options);
        AddWords(parser, options);
        AddUnset(parser, options);
    });
}

template <Function function>
void SetUpNamed(Parser &parser, Context &context)
{
    SetUp<function>(parser, context, [&](SinkOptions &options) { AddName(parser, options); });
}

void SetUpList(Parser &parser, Context &context)
{
    SetUp<ListSinks>(parser, context, [](SinkOptions &) {});
}

void SetUpLimit(Parser &parser, Context &context)
{
    SetUp<Limit>(parser, context, [&](SinkOptions &options) {
        parser.Add("number", options.limit, "The new limit; without it, show the one in force");
        parser
            .Add("--megabytes", options.megabytes,
                 "The same for how many megabytes of alerts are kept")
            .TypeName("N")
            // With a number it is set, without one it is shown.
            .MayLackItsValue();
    });
}

} // namespace

const std::vector<Command> kSinkCommands = {
    {"sink list", "Show where alerts go, and how far each sink has come", SetUpList},
    {"sink show", "Show one sink with its options and peers", SetUpNamed<ShowSink>},
    {"sink add", "Add a sink; it gets the alerts from now on", SetUpAdd},
    {"sink set", "Change options of a sink; it goes on where it was", SetUpSetSink},
    {"sink test", "Send a marked test alert and show the answer", SetUpNamed<TestSink>},
    {"sink remove", "Remove a sink", SetUpNamed<RemoveSink>},
    {"sink undelivered", "Show the alerts that a sink does not take although it takes others",
     SetUpUndelivered},
    {"sink retry", "Send undelivered alerts again", SetUpRetry},
    {"sink drop", "Drop undelivered alerts: they are not sent again", SetUpDrop},
    {"sink limit", "Show or set how many alerts are kept, and how many megabytes of them",
     SetUpLimit},
};

} // namespace cli
