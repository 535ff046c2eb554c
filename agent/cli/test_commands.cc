// test: what the rules come to over logs, or over one line.
//
// A trial in this process (trial.h): passes of the module over the logs, of which a tally is kept (tally.h), or its
// check of the one line (explain.h). It needs no daemon, stores nothing, and with --rules not even a store. The exit status is 0
// whatever is found.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>

#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/explain.h"
#include "agent/cli/matched_line.h"
#include "agent/cli/output.h"
#include "agent/cli/progress_bar.h"
#include "agent/cli/rendered_log.h"
#include "agent/cli/rule_tests.h"
#include "agent/cli/since.h"
#include "agent/cli/table.h"
#include "agent/cli/tally.h"
#include "agent/cli/text_input.h"
#include "agent/cli/trial.h"
#include "agent/cli/trial_clock.h"
#include "agent/cli/trial_input.h"
#include "agent/events/event_checks.h"
#include "agent/inputs/protected_words.h"
#include "agent/report/trial_report.h"
#include "agent/rules/rules_file.h"
#include "agent/text/printable.h"
#include "agent/text/whole_file.h"
#include "platform/contract.h"

namespace cli {

namespace {

using logs::StampProblem;
using nlohmann::json;

using Clock = std::chrono::steady_clock;
using LeftOut = std::vector<LeftOutEvent>;

// Bytes of a line that are shown on a terminal. In a pipe it is whole.
constexpr size_t kShownOfALine = 72;

// Lines after which the progress bar is told how far the trial has come.
constexpr int64_t kLinesBetweenLooks = 256;

// Either files or a line to be explained; the parser sees to it.
struct TestOptions {
    std::vector<std::string> files;
    std::optional<std::string> explain;
    std::string rules;
    bool line_hours = false;
    bool as_input = false;
    std::vector<std::string> input_options; // "NAME=VALUE"
    std::string as_of;                      // as it was typed; empty: now
    std::string report;                     // the file; empty: none is wanted
    std::string svg_folder;                 // likewise

    [[nodiscard]] bool AsInput() const { return as_input || !input_options.empty(); }
    [[nodiscard]] bool HasReport() const { return !report.empty() || !svg_folder.empty(); }
};

// ---- interruption: the temporary folder must not stay behind ----

// Set by a signal, asked after each block of a log or of a pipe, at least.
std::atomic<bool> interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free, "it is set by a signal");

// Does no more than a handler may.
void Interrupt(int /*number*/)
{
    interrupted = true;
}

// From here on a signal ends the trial in order, and not the process at once.
void TakeInterruptions()
{
    struct sigaction action {};
    action.sa_handler = Interrupt; // without SA_RESTART: a pipe that is silent is left, too
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaction(number, &action, nullptr);
}

// By an exception, so that everything on the way is taken down, the folder as well.
void EndIfInterrupted()
{
    if (interrupted)
        throw host::Error("the trial was interrupted", "nothing is shown",
                          "let it come to its end, or try a part of the log");
}

// ---- the rules ----

// Without a store there is nothing to try: that is an error, with its next step.
RulesCopy HostRules(Context &context)
{
    context.OpenToRead();
    return CopyRules(context.Host().registry(), true);
}

// The settings and products of the host. Without a store there are none; for somebody who may not
// read it, it is said that they are not known.
RulesCopy HostSettings(Context &context)
{
    std::error_code failed;
    if (!std::filesystem::exists(context.layout.Store(), failed) && !failed)
        return {};
    try {
        context.OpenToRead();
        return CopyRules(context.Host().registry(), false);
    } catch (const host::Error &error) {
        PrintError(std::string("warning: the settings of this host are not used: ") + error.what());
        return {};
    }
}

// The events of a rules file, and nothing else, with the settings of this host. The tests in it have
// come to what they should.
RulesCopy FileRules(Context &context, const std::string &file, size_t *tests)
{
    const std::vector<rules::SourceText> files = rules::ReadRulesFiles(file);
    std::vector<std::string> names;
    for (const rules::SourceText &one : files)
        names.push_back(one.name);
    const auto parsed = rules::ParseRulesFiles(files);
    RefuseIfFaulty(context, "try", file, parsed.issues, names);
    RulesCopy rules = HostSettings(context);
    RefuseIfFaulty(context, "try", file, RunTests(rules, parsed.rules), names);
    *tests = CountTests(parsed.rules);
    for (const rules::Rule &rule : parsed.rules)
        rules.events.push_back(rule.event);
    return rules;
}

// ---- a log ----

std::string Shown(const std::string &line)
{
    if (!IsTerminal() || line.size() <= kShownOfALine)
        return line;
    return line.substr(0, kShownOfALine - 3) + "...";
}

// "messages:12", as compilers and editors name a place.
std::string Place(const Tally &tally, const Sighting &line)
{
    return tally.files()[line.file].name + ":" + std::to_string(line.number);
}

// A dash for no line.
std::string Shown(const Tally &tally, const std::optional<Sighting> &line)
{
    return line ? Place(tally, *line) + ": " + Shown(inputs::WithWholeWords(line->text)) : "-";
}

// All events that were loaded, also those without a line: that they match nothing is what one may
// want to know.
void PrintEvents(const Tally &tally)
{
    Table table({"SOURCE", "ID", "LINES", "HITS", "REPORTS", "FIRST", "LAST"});
    for (size_t i = 0; i < tally.events().size(); ++i) {
        const EventTally &event = tally.events()[i];
        // Either or: reports of a source are withheld all or not at all.
        std::string reports = event.withheld > 0 ? std::to_string(event.withheld) + " withheld"
                                                 : std::to_string(event.reports);
        if (event.held_back > 0)
            reports += " (" + std::to_string(event.held_back) + " held back)";
        table.Add({tally.entry(i).Source, events::FormatEventId(tally.entry(i).EventID),
                   std::to_string(event.lines), std::to_string(event.hits), reports,
                   Shown(tally, event.first), Shown(tally, event.last)});
    }
    table.Print();
}

void PrintLeftOut(const LeftOut &left_out)
{
    if (left_out.empty())
        return;
    printf("\n");
    Table table({"NOT LOADED", "ID", "CAUSE"});
    for (const auto &[source, stored, doubt] : left_out)
        table.Add({source.name, stored.id_text, doubt.cause});
    table.Print();
}

// A group for each reason, with the first line of it, and what to do where something can be done.
void PrintUnseen(const Tally &tally, bool is_now)
{
    for (int p = 0; p < logs::kStampProblems; ++p) {
        const auto problem = static_cast<StampProblem>(p);
        const UnseenTally &unseen = tally.unseen(problem);
        if (unseen.lines == 0)
            continue;
        printf("\nno event can match %lld %s: %s\n  first: %s\n",
               static_cast<long long>(unseen.lines), unseen.lines == 1 ? "line" : "lines",
               logs::StampProblemText(problem),
               text::Printable(Shown(tally, unseen.first)).c_str());
        if (*logs::StampProblemAdvice(problem) != '\0')
            printf("  %s\n", logs::StampProblemAdvice(problem));
        if (problem == StampProblem::kOtherMonth && is_now)
            printf("  --as-of TIME tries them as at a moment of then\n");
    }
}

// The repeats are counted as lines, too, so that the sum is the one that other programs count.
void PrintTotals(const Tally &tally, double seconds)
{
    printf("\n%lld lines in %zu %s, %.2f s; %lld of them repeat another line, %lld are the agent's "
           "own\n",
           static_cast<long long>(tally.lines()), tally.files().size(),
           tally.files().size() == 1 ? "file" : "files", seconds,
           static_cast<long long>(tally.repeats()), static_cast<long long>(tally.own_lines()));
}

json ToJson(const Tally &tally, const std::optional<Sighting> &line)
{
    if (!line)
        return nullptr;
    return {{"file", tally.files()[line->file].name},
            {"line", line->number},
            {"text", inputs::WithWholeWords(line->text)}};
}

// "first" and "last" are null for an event without a line.
json EventsAsJson(const Tally &tally)
{
    json events = json::array();
    for (size_t i = 0; i < tally.events().size(); ++i) {
        const EventTally &event = tally.events()[i];
        events.push_back({{"source", tally.entry(i).Source},
                          {"id", events::FormatEventId(tally.entry(i).EventID)},
                          {"lines", event.lines},
                          {"hits", event.hits},
                          {"reports", event.reports},
                          {"withheld", event.withheld},
                          {"held_back", event.held_back},
                          {"first", ToJson(tally, event.first)},
                          {"last", ToJson(tally, event.last)}});
    }
    return events;
}

// The ID as its key is named, which may be another writing of the number.
json LeftOutAsJson(const LeftOut &left_out)
{
    json events = json::array();
    for (const auto &[source, stored, doubt] : left_out)
        events.push_back({{"source", source.name}, {"id", stored.id_text}, {"cause", doubt.cause}});
    return events;
}

json UnseenAsJson(const Tally &tally)
{
    json groups = json::array();
    for (int p = 0; p < logs::kStampProblems; ++p) {
        const auto problem = static_cast<StampProblem>(p);
        const UnseenTally &unseen = tally.unseen(problem);
        if (unseen.lines > 0)
            groups.push_back({{"reason", logs::StampProblemName(problem)},
                              {"text", logs::StampProblemText(problem)},
                              {"advice", logs::StampProblemAdvice(problem)},
                              {"lines", unseen.lines},
                              {"first", ToJson(tally, unseen.first)}});
    }
    return groups;
}

void PrintAsJson(const Tally &tally, const LeftOut &left_out)
{
    json files = json::array();
    for (const FileTally &file : tally.files())
        files.push_back({{"file", file.name}, {"lines", file.lines}});
    PrintJson({{"files", files},
               {"lines", tally.lines()},
               {"repeats", tally.repeats()},
               {"own_lines", tally.own_lines()},
               {"events", EventsAsJson(tally)},
               {"not_loaded", LeftOutAsJson(left_out)},
               {"unseen", UnseenAsJson(tally)}});
}

// Throws host::Error for a log that cannot be read, and when it is interrupted: half a result would
// be taken for a whole one.
void ReadFiles(const TestOptions &options, Tally *tally)
{
    const TrialInput input(options.files, options.AsInput(), RenderOptionsOf(options.input_options),
                           [] { return !interrupted; });
    EndIfInterrupted();
    ProgressBar progress(input.bytes());
    int64_t bytes = 0;
    int64_t shown = 0;
    for (const TrialLog &log : input.logs()) {
        const int64_t before = tally->lines();
        tally->ReadLog(log, [&](int64_t done, int64_t lines) {
            // The bar asks for the time, which is not needed with each line.
            if (before + lines >= shown + kLinesBetweenLooks) {
                shown = before + lines;
                progress.Show(bytes + done, shown);
            }
            return !interrupted;
        });
        EndIfInterrupted();
        bytes += tally->files().back().bytes;
    }
}

// ---- the page ----

void FollowForReport(monitor::Module &module, Tally *tally, report::TrialReport *report)
{
    using Kind = policy::Outcome::Kind;
    tally->SetFollower([&module, report](const VKVMon &entry, const PassPlace &place, Kind kind) {
        const policy::MatchedLine line = MatchedLineOf(module, place.text, place.times);
        report->Add({entry.Source, entry.EventID, line.time_s, std::string(line.host),
                     inputs::WithWholeWords(place.text), place.times, kind == Kind::kReported,
                     kind == Kind::kHeldBack});
    });
}

void WriteReport(const TestOptions &options, const Tally &tally, const report::TrialReport &report)
{
    std::string title = "Trial of " + tally.files().front().name;
    if (tally.files().size() > 1)
        title += " and " + std::to_string(tally.files().size() - 1) + " more";
    const report::Report made = report.Make(title, tally.lines());
    if (!options.svg_folder.empty())
        WritePlots(made, options.svg_folder);
    if (!options.report.empty())
        text::WriteWhole(options.report, ToHtml(made));
}

// Nothing is printed before the last line is read.
void TryFiles(const Context &context, const TestOptions &options, monitor::Module &module,
              host::Host &host)
{
    Tally tally(module, host, options.line_hours ? HourOf::kLine : HourOf::kNow);
    report::TrialReport report;
    if (options.HasReport())
        FollowForReport(module, &tally, &report);
    const auto begin = Clock::now();
    ReadFiles(options, &tally);
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    if (options.HasReport())
        WriteReport(options, tally, report);
    const LeftOut left_out = LeftOutEvents(host.registry(), module);
    if (context.json) {
        PrintAsJson(tally, left_out);
        return;
    }
    PrintEvents(tally);
    PrintLeftOut(left_out);
    PrintUnseen(tally, options.as_of.empty());
    PrintTotals(tally, seconds);
}

// ---- one line, explained ----

// As the monitor gets to see it.
std::string AsALine(const std::string &text)
{
    const std::string line = text.substr(0, text.find('\n'));
    return line.substr(0, kLineBufferSize - 1);
}

// What is asked of the line is asked at this moment, as the monitor would: with another hour, the
// answer may be another. The rules of this host go on from what it has counted; nothing of that is changed.
void ExplainLine(Context &context, const TestOptions &options, monitor::Module &module,
                 host::RegistryTree &registry)
{
    LineTrial trial(module, options.line_hours ? HourOf::kLine : HourOf::kNow);
    const std::string line =
        options.AsInput() ? RenderLine(*options.explain, RenderOptionsOf(options.input_options))
                          : *options.explain;
    host::Database *counted = options.rules.empty() ? &context.Host().store().database() : nullptr;
    const auto verdicts = Explain(trial, module, registry, AsALine(line), counted);
    Table table({"SOURCE", "ID", "MATCHES", "REASON"});
    json events = json::array();
    for (const Verdict &verdict : verdicts) {
        table.Add({verdict.source, verdict.id, verdict.matches ? "yes" : "no", verdict.reason});
        events.push_back({{"source", verdict.source},
                          {"id", verdict.id},
                          {"matches", verdict.matches},
                          {"reason", verdict.reason}});
    }
    if (context.json)
        PrintJson({{"text", inputs::WithWholeWords(AsALine(line))}, {"events", events}});
    else
        table.Print();
}

// ---- the command ----

void StopClock(const std::string &as_of)
{
    if (as_of.empty())
        return;
    const int64_t moment = ParseSince(as_of, time(nullptr)) / 1000;
    if (moment < 0)
        throw host::Error("cannot try logs as of " + as_of, "the monitor knows no time before 1970",
                          "name a later moment");
    StopClockAt(moment);
}

void PrintTests(const Context &context, size_t tests)
{
    if (context.json)
        PrintJson({{"tests", tests}});
    else
        printf("%zu tests in the file, and all have come to what they should.\n", tests);
}

// The registry of the host is read before the trial's host is made, and not again.
int Test(Context &context, const TestOptions &options)
{
    // Before anything is made that would stay behind.
    TakeInterruptions();
    StopClock(options.as_of);
    const bool has_file = !options.rules.empty();
    size_t tests = 0;
    const RulesCopy rules =
        has_file ? FileRules(context, options.rules, &tests) : HostRules(context);
    if (options.files.empty() && !options.explain) {
        PrintTests(context, tests);
        return kExitDone;
    }
    // The rules of a file need nothing of an installation but the module of this program.
    const host::Layout libraries = has_file ? host::Layout::Find() : context.layout;
    RunTrial(libraries, rules, [&](monitor::Module &module, host::Host &host) {
        if (options.explain)
            ExplainLine(context, options, module, host.registry());
        else
            TryFiles(context, options, module, host);
    });
    return kExitDone;
}

void SetUpTest(Parser &parser, Context &context)
{
    auto options = std::make_shared<TestOptions>();
    parser.Add("file", options->files,
               "Logs to be read, each from its first line to its last, compressed or not; - reads "
               "standard input, and journal the journal");
    parser
        .Add("--explain", options->explain,
             "Say for this one line, and for every event, why it matches or does not")
        .TypeName("LINE");
    parser
        .Add("--rules", options->rules,
             "Try the events of this rules file, instead of those of this host, without "
             "its store and as any user; - reads standard input. The tests in it are run first")
        .TypeName("FILE");
    parser.AddFlag(
        "--line-hours", options->line_hours,
        "Count a line in the hour of its own time stamp. The monitor, and a trial without "
        "this, takes the hour in which the line is looked at: now");
    parser
        .Add("--as-of", options->as_of,
             "Try them as at this moment, for logs of any age; forms of the moment as with alerts "
             "--since, or a moment to come")
        .TypeName("TIME");
    parser.AddFlag(
        "--as-input", options->as_input,
        "Read the logs, or the line, as an input does: with stamps of any usual form, and "
        "of any age");
    parser
        .Add("--input-option", options->input_options,
             "Read them as an input with this option does, as begins-with=EXPRESSION or, of the "
             "journal, priority=warning; can be given several times, and implies --as-input")
        .OneWordEach()
        .TypeName("NAME=VALUE");
    parser
        .Add(
            "--report", options->report,
            "Also write a page of it into this file: hits over time, events, hosts, hours, reports")
        .TypeName("FILE");
    parser
        .Add("--svg", options->svg_folder,
             "Also write the plots of that page into this folder, each as an SVG file of its own")
        .TypeName("DIR");
    parser.Footer(
        "The monitor's own code applies the rules. Over logs all hit counts begin at 0; a line "
        "that is explained goes on from what the policies of this host's events have counted "
        "by now, and with --rules from 0. Nothing is stored, and no daemon is needed.");
    const auto run = [&, options] { return Test(context, *options); };
    parser.Runs(run, [&, options]() -> std::string {
        context.needs_no_root = !options->rules.empty();
        // Exactly one of both.
        const bool has_files = !options->files.empty();
        // The tests of a rules file need nothing more.
        const bool has_none = !has_files && !options->explain && options->rules.empty();
        if (has_none || (has_files && options->explain))
            return "name logs to be tried, or one line with --explain";
        if (options->HasReport() && !has_files)
            return std::string(options->report.empty() ? "--svg" : "--report") +
                   " is of logs: name those";
        const auto inputs = std::count(options->files.begin(), options->files.end(), "-") +
                            (options->rules == "-" ? 1 : 0);
        return inputs > 1 ? "standard input (-) can be read only once" : "";
    });
}

} // namespace

const std::vector<Command> kTestCommands = {
    {"test", "Show what the rules would report over logs, without doing it", SetUpTest},
};

} // namespace cli
