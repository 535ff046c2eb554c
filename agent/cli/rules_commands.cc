// apply, export: the registered events as a file.
//
// `apply` reads and checks the file, compares it with the registry, checks what that comes to on
// this host, and only then writes; any mistake ends it before anything is changed. `export` writes
// a file that `apply` takes back without a change.
#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include <nlohmann/json.hpp>

#include "agent/cli/author.h"
#include "agent/cli/command.h"
#include "agent/cli/event_json.h"
#include "agent/cli/output.h"
#include "agent/cli/rule_tests.h"
#include "agent/cli/sink_commands.h"
#include "agent/cli/text_input.h"
#include "agent/host/convert.h"
#include "agent/host/waitable.h"
#include "agent/rules/apply.h"
#include "agent/rules/rules_file.h"
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
    bool detailed_exitcode = false;
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
void CheckAgainstLog(const std::string &charset, const std::vector<rules::Rule> &rules,
                     RulesDifference *difference)
{
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

std::string NamesOf(const std::vector<EventKey> &keys)
{
    std::string names;
    for (size_t i = 0; i < std::min(keys.size(), kNamedEvents); ++i)
        names += (i > 0 ? ", " : "") + rules::FormatEventKey(keys[i]);
    if (keys.size() > kNamedEvents)
        names += ", and " + std::to_string(keys.size() - kNamedEvents) + " more";
    return names;
}

void PrintStaying(const rules::RulesChange &change)
{
    if (!change.events.staying.empty()) {
        const size_t staying = change.events.staying.size();
        printf("%zu registered %s not in the file and %s (--prune removes %s): %s\n", staying,
               staying == 1 ? "event is" : "events are", staying == 1 ? "stays" : "stay",
               staying == 1 ? "it" : "them",
               text::Printable(NamesOf(change.events.staying)).c_str());
    }
    if (!change.sections.staying.empty()) {
        const bool is_one = change.sections.staying.size() == 1;
        std::string numbers;
        for (const std::string &number : change.sections.staying)
            numbers += (numbers.empty() ? "" : ", ") + number;
        printf("%s that silence add has added %s (--prune ends %s): %s\n",
               is_one ? "A silence" : "Silences", is_one ? "stays" : "stay", is_one ? "it" : "them",
               numbers.c_str());
    }
}

void PrintText(const ApplyOptions &options, const rules::RulesChange &change)
{
    if (!change.IsEmpty()) {
        const bool colours = UseColours();
        PrintLine("--- registered", colours);
        PrintLine("+++ " + text::ShownName(options.file), colours);
        for (const auto &lines : {rules::FormatDifference(change.events),
                                  rules::FormatSectionDifference(change.sections)}) {
            for (const rules::DifferenceLine &line : lines)
                PrintLine(std::string(1, line.mark) + " " + line.text, colours);
        }
    }
    printf("%zu added, %zu changed, %zu removed, %zu unchanged.%s\n",
           change.Count(EventChange::Kind::kAdd), change.Count(EventChange::Kind::kChange),
           change.Count(EventChange::Kind::kRemove), change.Unchanged(),
           options.dry_run ? " This was a dry run: nothing was changed." : "");
    PrintStaying(change);
}

const char *WordOf(EventChange::Kind kind)
{
    switch (kind) {
    case EventChange::Kind::kAdd:
        return "added";
    case EventChange::Kind::kRemove:
        return "removed";
    default:
        return "changed";
    }
}

json ToJson(const EventChange &change)
{
    const bool added = change.kind == EventChange::Kind::kAdd;
    const bool removed = change.kind == EventChange::Kind::kRemove;
    json object = KeyToJson(removed ? change.before.key : change.after.key);
    object["change"] = WordOf(change.kind);
    // Both are always there, null for what there is not.
    object["before"] = added ? json(nullptr) : ValuesToJson(change.before);
    object["after"] = removed ? json(nullptr) : ValuesToJson(change.after);
    if (!change.problem.empty())
        object["problem"] = change.problem;
    return object;
}

json ToJson(const rules::EntryValue &value)
{
    return value.is_list ? json(value.texts) : json(value.texts.front());
}

json ToJson(const rules::EntryValues &values)
{
    json object = json::object();
    for (const rules::EntryValue &value : values)
        object[value.name] = ToJson(value);
    return object;
}

json ToJson(const rules::SectionChange &change)
{
    // A setting has nothing but its value.
    const auto side = [&](const rules::EntryValues &values) {
        if (values.empty())
            return json(nullptr);
        return change.section == "settings" ? ToJson(values.front()) : ToJson(values);
    };
    return {{"section", change.section},
            {"name", change.name},
            {"change", WordOf(change.kind)},
            {"before", side(change.before)},
            {"after", side(change.after)}};
}

json ToJson(const rules::SectionDifference &difference)
{
    json changes = json::array();
    for (const rules::SectionChange &change : difference.changes)
        changes.push_back(ToJson(change));
    return {{"changes", changes},
            {"unchanged", difference.unchanged},
            {"staying_silences", difference.staying}};
}

void PrintAsJson(const ApplyOptions &options, const rules::RulesChange &change, bool has_sections)
{
    json changes = json::array();
    for (const EventChange &event : change.events.changes)
        changes.push_back(ToJson(event));
    json staying = json::array();
    for (const EventKey &key : change.events.staying)
        staying.push_back(KeyToJson(key));
    json object = {{"file", text::ShownName(options.file)},
                   {"dry_run", options.dry_run},
                   {"changes", changes},
                   {"unchanged", change.events.unchanged.size()},
                   {"staying", staying},
                   {"warnings", change.events.warnings}};
    if (has_sections)
        object["sections"] = ToJson(change.sections);
    PrintJson(std::move(object));
}

// ---- the commands ----

// What apply works with: the files, and what they say.
struct Applied {
    std::vector<std::string> names; // of the files
    rules::ParsedRules parsed;
};

// Throws Refused, with all the mistakes shown, when there are some. Warnings stay in the
// difference.
rules::RulesChange Compare(const Context &context, const ApplyOptions &options,
                           const Applied &applied)
{
    host::RegistryTree &registry = context.Host().registry();
    const std::vector<rules::Rule> &rules = applied.parsed.rules;
    rules::RulesChange change = rules::CompareHost(context.Host().store(), registry, applied.parsed,
                                                   {options.prune, time(nullptr), Author()});
    CheckAgainstLog(rules::SettingBehind(applied.parsed, registry, "log-charset"), rules,
                    &change.events);
    if (rules::SettingBehind(applied.parsed, registry, "fault-tolerant") == "on")
        rules::CheckExpressions(rules, options.force, &change.events);
    RefuseIfFaulty(context, "apply", options.file, change.Issues(), applied.names);
    return change;
}

rules::RulesChange CompareAndWrite(const Context &context, const ApplyOptions &options,
                                   const Applied &applied)
{
    rules::RulesChange change;
    events::ChangeUnderTableMutex(
        context.Host(),
        [&] {
            // Compared in the transaction that writes: what is shown is what is done.
            change = Compare(context, options, applied);
            rules::WriteHost(change, &context.Host().registry());
            // Nothing has changed: the monitor is not woken for it.
            return !change.events.changes.empty();
        },
        [] { fprintf(stderr, "syslogmon: waiting until the table of events is free...\n"); });
    // Behind the commit, or the daemon would read what was before.
    for (const std::string &event : change.Wakes())
        host::WakeEvent::Create(context.layout.run, event, false, false)->Set();
    return change;
}

rules::RulesChange CompareOnly(const Context &context, const ApplyOptions &options,
                               const Applied &applied)
{
    // No mutex: it writes nothing, and does not keep the monitor from loading its table.
    const host::Snapshot snapshot(context.Host().store());
    return Compare(context, options, applied);
}

// On standard error, so that the difference can be piped into a file.
void PrintWarnings(const Context &context, const rules::RulesChange &change,
                   const rules::ParsedRules &parsed)
{
    std::vector<std::string> warnings = change.events.warnings;
    if (parsed.sections.sinks) {
        for (const rules::SinkEntry &sink : *parsed.sections.sinks) {
            for (const std::string &warning : SinkWarnings(context.Host(), sink.config))
                warnings.push_back("the sink " + sink.config.name + ": " + warning);
        }
    }
    for (const std::string &warning : warnings)
        fprintf(stderr, "syslogmon: warning: %s\n", text::Printable(warning).c_str());
}

int Apply(Context &context, const ApplyOptions &options)
{
    Applied applied;
    const std::vector<rules::SourceText> files = rules::ReadRulesFiles(options.file);
    for (const rules::SourceText &file : files)
        applied.names.push_back(file.name);
    applied.parsed = rules::ParseRulesFiles(files);
    // Before the store is opened.
    RefuseIfFaulty(context, "apply", options.file, applied.parsed.issues, applied.names);
    // A dry run makes no store: on a new host it says that there is none.
    if (options.dry_run)
        context.OpenToRead();
    else
        context.Open();
    RefuseIfFaulty(context, "apply", options.file,
                   RunTests(CopyRules(context.Host().registry(), false), applied.parsed.rules),
                   applied.names);
    const rules::RulesChange change = options.dry_run ? CompareOnly(context, options, applied)
                                                      : CompareAndWrite(context, options, applied);
    PrintWarnings(context, change, applied.parsed);
    const rules::Sections &sections = applied.parsed.sections;
    if (context.json)
        PrintAsJson(options, change,
                    sections.sinks || sections.inputs || sections.silences || sections.settings);
    else
        PrintText(options, change);
    return options.detailed_exitcode && !change.IsEmpty() ? kExitChanges : kExitDone;
}

// Where editors find the schema of rules files; empty when it is not installed.
std::string SchemaPath()
{
    std::error_code ignored;
    return std::filesystem::exists(SYSLOGMON_RULES_SCHEMA, ignored) ? SYSLOGMON_RULES_SCHEMA : "";
}

// What is written, and why the rest is not.
struct Exported {
    std::vector<EventRecord> events;
    std::vector<rules::HostSection> sections; // none unless they are wanted
    rules::RulesFileNotes notes;
};

Exported ReadHost(const Context &context, bool all)
{
    Exported exported;
    host::Store &store = context.Host().store();
    host::RegistryTree &registry = context.Host().registry();
    // For the reading alone: the store is free while the text is printed.
    const host::Snapshot snapshot(store);
    exported.events =
        rules::EventsForFile(events::EventRegistry(registry).ReadAll(), &exported.notes.left_out);
    if (all)
        exported.sections =
            rules::SectionsOfHost(store, registry, time(nullptr), &exported.notes.left_out);
    exported.notes.has_sections = all;
    exported.notes.schema = SchemaPath();
    return exported;
}

json ToJson(const rules::HostSection &section)
{
    if (section.name == "settings")
        return ToJson(section.entries.front());
    json entries = json::array();
    for (const rules::EntryValues &entry : section.entries)
        entries.push_back(ToJson(entry));
    return entries;
}

int Export(Context &context, bool all)
{
    context.OpenToRead();
    const Exported exported = ReadHost(context, all);
    for (const std::string &left_out : exported.notes.left_out)
        // Also in the file itself, as comments; here it is seen when the file is piped somewhere.
        fprintf(stderr, "syslogmon: left out: %s\n", text::Printable(left_out).c_str());
    if (context.json) {
        json list = json::array();
        for (const EventRecord &event : exported.events) {
            json object = ValuesToJson(event);
            object.update(KeyToJson(event.key));
            list.push_back(object);
        }
        json object = {{"events", list}, {"left_out", exported.notes.left_out}};
        for (const rules::HostSection &section : exported.sections)
            object[section.name] = ToJson(section);
        PrintJson(std::move(object));
        return kExitDone;
    }
    PrintFile(rules::FormatRules(exported.events, exported.notes) +
              rules::FormatSections(exported.sections));
    return kExitDone;
}

// ---- set-up ----

void SetUpApply(Parser &parser, Context &context)
{
    auto options = std::make_shared<ApplyOptions>();
    parser
        .Add("file", options->file, "Rules file (YAML), or a folder of them; - for standard input")
        .TypeName("FILE")
        .Required();
    parser.AddFlag("--dry-run", options->dry_run, "Show what would change, and change nothing");
    parser.AddFlag(
        "--prune", options->prune,
        "Remove the events that are not in the file, and end silences that were added by hand");
    parser.AddFlag(
        "--detailed-exitcode", options->detailed_exitcode,
        "End with 2 when something changes, or with --dry-run would, and with 0 otherwise");
    parser.AddFlag("--force", options->force, kForceHelp);
    parser.Runs([&, options] { return Apply(context, *options); });
}

void SetUpExport(Parser &parser, Context &context)
{
    auto all = std::make_shared<bool>(false);
    parser.AddFlag("--all", *all, "With sinks, inputs, silences and settings");
    parser.Runs([&, all] { return Export(context, *all); });
}

} // namespace

const std::vector<Command> kRulesCommands = {
    {"apply", "Make events, and what else is set up, equal to a rules file", SetUpApply},
    {"export", "Print the registered events as a rules file", SetUpExport},
};

} // namespace cli
