// apply, export: the registered events as a file.
//
// `apply` reads and checks the file, compares it with the registry, checks what that comes to on
// this host, and only then writes; any mistake ends it before anything is changed. `export` writes
// a file that `apply` takes back without a change.
#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/event_json.h"
#include "agent/cli/output.h"
#include "agent/cli/rule_tests.h"
#include "agent/cli/text_input.h"
#include "agent/host/agent_values.h"
#include "agent/host/convert.h"
#include "agent/rules/rules_diff.h"
#include "agent/rules/rules_file.h"
#include "agent/settings/settings.h"
#include "agent/text/printable.h"
#include "platform/agent.h"

namespace cli {

namespace {

using events::EventKey;
using events::EventRecord;
using nlohmann::json;
using rules::EventChange;
using rules::RulesDifference;

// Names of events that stay; of more, only the number is told: a host may have hundreds, and the
// line is one.
constexpr size_t kNamedEvents = 10;

// What was typed behind apply.
struct ApplyOptions {
    std::string file;
    bool dry_run = false;
    bool prune = false;
    bool force = false;
};

// ---- what the log's character set makes of keywords ----

// Empty when the text cannot be converted at all.
std::string Convert(const std::string &text, int from, int to)
{
    // No character set makes more than eight bytes of one.
    std::string converted(text.size() * 8 + 64, '\0');
    const int length =
        TarskCodeConvert(text.data(), static_cast<int>(text.size()), converted.data(),
                         static_cast<int>(converted.size()), from, to);
    converted.resize(static_cast<size_t>(std::max(length, 0)));
    return converted;
}

// By the conversion that the module's table goes through, so the answers are the daemon's.
void CheckAgainstLog(const Context &context, const std::vector<rules::Rule> &rules,
                     RulesDifference *difference)
{
    const std::string charset =
        host::AgentText(context.Host().registry(), "LogCharset").value_or(host::kDefaultLogCharset);
    if (!host::SetLogCharset(charset))
        return; // the daemon does not know it either, and goes on with its own
    rules::CheckLogCharset(
        rules, charset,
        [](const std::string &text) { return Convert(text, CODE_REGISTRY, CODE_LOG); },
        [](const std::string &text) { return Convert(text, CODE_LOG, CODE_REGISTRY); }, difference);
}

// ---- showing the difference ----

// NO_COLOR is how people say once, to all programs, that they want none.
bool UseColours()
{
    return IsTerminal() && getenv("NO_COLOR") == nullptr;
}

// A line of a patch; its first character says which colour it has.
void PrintLine(const std::string &line, bool colours)
{
    // The mark is ours, and the escape stands outside of what is made printable.
    const char *colour = line[0] == '+' ? "\033[32m" : line[0] == '-' ? "\033[31m" : "";
    const bool coloured = colours && *colour != '\0';
    printf("%s%s%s\n", coloured ? colour : "", text::Printable(line).c_str(),
           coloured ? "\033[0m" : "");
}

size_t Count(const RulesDifference &difference, EventChange::Kind kind)
{
    return static_cast<size_t>(
        std::count_if(difference.changes.begin(), difference.changes.end(),
                      [&](const EventChange &change) { return change.kind == kind; }));
}

std::string NamesOf(const std::vector<EventKey> &keys)
{
    std::string names;
    for (size_t i = 0; i < std::min(keys.size(), kNamedEvents); ++i)
        names += (i > 0 ? ", " : "") + rules::FormatEventKey(keys[i]);
    if (keys.size() > kNamedEvents)
        names += ", and " + std::to_string(keys.size() - kNamedEvents) + " more";
    return names;
}

void PrintText(const ApplyOptions &options, const RulesDifference &difference)
{
    if (!difference.changes.empty()) {
        const bool colours = UseColours();
        PrintLine("--- registered", colours);
        PrintLine("+++ " + text::ShownName(options.file), colours);
        for (const rules::DifferenceLine &line : rules::FormatDifference(difference))
            PrintLine(std::string(1, line.mark) + " " + line.text, colours);
    }
    printf("%zu added, %zu changed, %zu removed, %zu unchanged.%s\n",
           Count(difference, EventChange::Kind::kAdd),
           Count(difference, EventChange::Kind::kChange),
           Count(difference, EventChange::Kind::kRemove), difference.unchanged.size(),
           options.dry_run ? " This was a dry run: nothing was changed." : "");
    if (!difference.staying.empty()) {
        const size_t staying = difference.staying.size();
        printf("%zu registered %s not in the file and %s (--prune removes %s): %s\n", staying,
               staying == 1 ? "event is" : "events are", staying == 1 ? "stays" : "stay",
               staying == 1 ? "it" : "them", text::Printable(NamesOf(difference.staying)).c_str());
    }
}

json ToJson(const EventChange &change)
{
    const bool added = change.kind == EventChange::Kind::kAdd;
    const bool removed = change.kind == EventChange::Kind::kRemove;
    json object = KeyToJson(removed ? change.before.key : change.after.key);
    object["change"] = added ? "added" : removed ? "removed" : "changed";
    // Both are always there, null for what there is not.
    object["before"] = added ? json(nullptr) : ValuesToJson(change.before);
    object["after"] = removed ? json(nullptr) : ValuesToJson(change.after);
    if (!change.problem.empty())
        object["problem"] = change.problem;
    return object;
}

void PrintAsJson(const ApplyOptions &options, const RulesDifference &difference)
{
    json changes = json::array();
    for (const EventChange &change : difference.changes)
        changes.push_back(ToJson(change));
    json staying = json::array();
    for (const EventKey &key : difference.staying)
        staying.push_back(KeyToJson(key));
    PrintJson({{"file", text::ShownName(options.file)},
               {"dry_run", options.dry_run},
               {"changes", changes},
               {"unchanged", difference.unchanged.size()},
               {"staying", staying},
               {"warnings", difference.warnings}});
}

// ---- the commands ----

// Throws Refused, with all the mistakes shown, when there are some. Warnings stay in the
// difference.
RulesDifference Compare(const Context &context, const ApplyOptions &options,
                        const std::vector<rules::Rule> &rules)
{
    events::EventRegistry events(context.Host().registry());
    RulesDifference difference = rules::CompareRules(events.ReadAll(), rules, options.prune);
    CheckAgainstLog(context, rules, &difference);
    if (settings::IsFaultTolerant(context.Host().registry()))
        rules::CheckExpressions(rules, options.force, &difference);
    // The checks look at the file one after the other; people read its mistakes from top to bottom.
    std::stable_sort(difference.issues.begin(), difference.issues.end(),
                     [](const text::Issue &a, const text::Issue &b) { return a.at < b.at; });
    RefuseIfFaulty(context, "apply", options.file, difference.issues);
    return difference;
}

RulesDifference CompareAndWrite(const Context &context, const ApplyOptions &options,
                                const std::vector<rules::Rule> &rules)
{
    RulesDifference difference;
    events::ChangeUnderTableMutex(
        context.Host(),
        [&] {
            events::EventRegistry events(context.Host().registry());
            // Compared in the transaction that writes: what is shown is what is done.
            difference = Compare(context, options, rules);
            rules::WriteDifference(difference, &events);
            // Nothing has changed: the monitor is not woken for it.
            return !difference.changes.empty();
        },
        [] { fprintf(stderr, "syslogmon: waiting until the table of events is free...\n"); });
    return difference;
}

RulesDifference CompareOnly(const Context &context, const ApplyOptions &options,
                            const std::vector<rules::Rule> &rules)
{
    // No mutex: it writes nothing, and does not keep the monitor from loading its table.
    const host::Snapshot snapshot(context.Host().store());
    return Compare(context, options, rules);
}

int Apply(Context &context, const ApplyOptions &options)
{
    const rules::ParsedRules parsed =
        rules::ParseRules(text::ReadWholeFile(options.file, rules::kMaxRulesFile));
    // Before the store is opened.
    RefuseIfFaulty(context, "apply", options.file, parsed.issues);
    // A dry run makes no store: on a new host it says that there is none.
    if (options.dry_run)
        context.OpenToRead();
    else
        context.Open();
    RefuseIfFaulty(context, "apply", options.file,
                   RunTests(CopyRules(context.Host().registry(), false), parsed.rules));
    const RulesDifference difference = options.dry_run
                                           ? CompareOnly(context, options, parsed.rules)
                                           : CompareAndWrite(context, options, parsed.rules);
    // On standard error, so that the difference can be piped into a file.
    for (const std::string &warning : difference.warnings)
        fprintf(stderr, "syslogmon: warning: %s\n", text::Printable(warning).c_str());
    if (context.json)
        PrintAsJson(options, difference);
    else
        PrintText(options, difference);
    return kExitDone;
}

// Where editors find the schema of rules files; empty when it is not installed.
std::string SchemaPath()
{
    std::error_code ignored;
    return std::filesystem::exists(SYSLOGMON_RULES_SCHEMA, ignored) ? SYSLOGMON_RULES_SCHEMA : "";
}

int Export(Context &context)
{
    context.OpenToRead();
    rules::RulesFileNotes notes;
    std::vector<EventRecord> events;
    {
        // For the reading alone: the store is free while the text is printed.
        const host::Snapshot snapshot(context.Host().store());
        events = rules::EventsForFile(events::EventRegistry(context.Host().registry()).ReadAll(),
                                      &notes.left_out);
    }
    for (const std::string &left_out : notes.left_out)
        // Also in the file itself, as comments; here it is seen when the file is piped somewhere.
        fprintf(stderr, "syslogmon: left out: %s\n", text::Printable(left_out).c_str());
    if (context.json) {
        json list = json::array();
        for (const EventRecord &event : events) {
            json object = ValuesToJson(event);
            object.update(KeyToJson(event.key));
            list.push_back(object);
        }
        PrintJson({{"events", list}, {"left_out", notes.left_out}});
        return kExitDone;
    }
    notes.schema = SchemaPath();
    PrintFile(rules::FormatRules(events, notes));
    return kExitDone;
}

// ---- set-up ----

void SetUpApply(Parser &parser, Context &context)
{
    auto options = std::make_shared<ApplyOptions>();
    parser.Add("file", options->file, "Rules file (YAML); - for standard input")
        .TypeName("FILE")
        .Required();
    parser.AddFlag("--dry-run", options->dry_run, "Show what would change, and change nothing");
    parser.AddFlag("--prune", options->prune, "Remove the events that are not in the file");
    parser.AddFlag("--force", options->force, kForceHelp);
    parser.Runs([&, options] { return Apply(context, *options); });
}

void SetUpExport(Parser &parser, Context &context)
{
    parser.Runs([&] { return Export(context); });
}

} // namespace

const std::vector<Command> kRulesCommands = {
    {"apply", "Make the registered events equal to a rules file", SetUpApply},
    {"export", "Print the registered events as a rules file", SetUpExport},
};

} // namespace cli
