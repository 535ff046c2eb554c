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
#include "agent/cli/rules_output.h"
#include "agent/cli/sink_commands.h"
#include "agent/cli/text_input.h"
#include "agent/fleet/fleet_rules.h"
#include "agent/host/convert.h"
#include "agent/host/waitable.h"
#include "agent/rules/apply.h"
#include "agent/rules/rules_file.h"
#include "agent/text/printable.h"

namespace cli {

namespace {

using events::EventRecord;
using nlohmann::json;

// What was typed behind apply.
struct ApplyOptions {
    std::string file;
    bool dry_run = false;
    bool prune = false;
    bool force = false;
    bool detailed_exitcode = false;
};

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
    host::Store &store = context.Host().store();
    rules::RulesChange change = rules::CompareHost(
        store, registry, applied.parsed,
        {options.prune, time(nullptr), Author(), fleet::ReadOwners(store), options.dry_run});
    const rules::EventChecks checks{
        rules::SettingBehind(applied.parsed, registry, "log-charset"),
        rules::SettingBehind(applied.parsed, registry, "fault-tolerant") == "on", options.force};
    // One that is not known is not the daemon's either, which goes on with its own.
    host::SetLogCharset(checks.charset);
    rules::CheckEvents(applied.parsed.rules, checks, &change);
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
    if (change.Wakes().contains(sinks::kSinksEvent))
        TellDaemonOfSinks(context);
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
            // What is wrong with a file that could not be read is said already.
            const auto unread = change.sections.unread.find(sink.config.name);
            for (const std::string &warning : unread != change.sections.unread.end()
                                                  ? unread->second
                                                  : SinkWarnings(context.Host(), sink.config))
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
    const ShownChange shown{"registered", text::ShownName(options.file), options.dry_run};
    if (context.json)
        PrintJson(ChangeToJson(shown, change,
                               sections.sinks || sections.inputs || sections.silences ||
                                   sections.settings));
    else
        PrintChange(shown, change);
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
        return EntryToJson(section.entries.front());
    json entries = json::array();
    for (const rules::EntryValues &entry : section.entries)
        entries.push_back(EntryToJson(entry));
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
    parser.AddFlag("--dry-run", options->dry_run,
                   "Show what would change, and change nothing; secrets of sinks may be missing");
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
