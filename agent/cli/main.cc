// syslogmon: the administrator's command.
#include <cstdio>
#include <exception>
#include <map>
#include <sstream>

#include <CLI/CLI.hpp>

#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/status/daemon_lock.h"
#include "agent/text/suggestion.h"

namespace cli {

void Context::OpenAs(host::Role role)
{
    host_ = std::make_unique<host::Host>(layout, role);
    // On standard error, so that a script reads nothing else than the result.
    host_->store().OnLongWait(
        [] { fprintf(stderr, "syslogmon: waiting for the monitor to finish its pass...\n"); });
    status::DaemonLock::CheckStore(*host_);
}

void Context::Open()
{
    OpenAs(host::Role::kCommand);
}

void Context::OpenToRead()
{
    OpenAs(host::Role::kReader);
}

namespace {

// What the first word of commands of several words stands for.
const std::map<std::string, const char *> kGroups = {
    {"event", "Registered events: what is looked for, and how often it was seen"},
    {"sink", "Sinks: where alerts go"},
    {"input", "Inputs: the journal and files that are read beside the system log"},
    {"reg", "The registry, where all settings and states are kept"},
    {"trace", "The trace log of the daemon"},
};

// The parser of a word below another, made when it is not there yet.
// Rows of one first word share its parser, whatever file they stand in.
CLI::App *Below(CLI::App *parser, const std::string &word)
{
    for (CLI::App *known : parser->get_subcommands(nullptr)) {
        if (known->get_name() == word)
            return known;
    }
    CLI::App *added = parser->add_subcommand(word);
    const auto group = kGroups.find(word);
    if (group != kGroups.end())
        // A group does nothing by itself: without a second word it is a mistake, and not a silent
        // success.
        added->description(group->second)->require_subcommand(1);
    return added;
}

// The parser of a command, below those of its first words.
CLI::App &ParserFor(CLI::App &app, const Command &command)
{
    CLI::App *parser = &app;
    std::istringstream words(command.words);
    std::string word;
    while (words >> word)
        parser = Below(parser, word);
    parser->description(command.help);
    return *parser;
}

void AddCommands(CLI::App &app, Context &context, Action &action)
{
    for (const auto *rows :
         {&kStatusCommands, &kEventCommands, &kSettingCommands, &kScanCommands, &kAlertCommands,
          &kSinkCommands, &kInputCommands, &kRegistryCommands, &kTraceCommands, &kRulesCommands,
          &kRegFileCommands, &kTestCommands, &kDoctorCommands}) {
        for (const Command &command : *rows)
            command.set_up(ParserFor(app, command), context, action);
    }
}

// ---- a command line that is wrong ----

// The command that was meant, as far as it was understood.
const CLI::App &DeepestParser(const CLI::App &app)
{
    const auto below = app.get_subcommands();
    return below.empty() ? app : DeepestParser(*below.front());
}

// "event add"; "syslogmon" for none.
std::string WordsOf(const CLI::App &parser)
{
    // Without the name of the program, which stands before all of them.
    const CLI::App *parent = parser.get_parent();
    if (parent == nullptr)
        return parser.get_name();
    return (parent->get_parent() == nullptr ? "" : WordsOf(*parent) + " ") + parser.get_name();
}

std::vector<std::string> NamesBelow(const CLI::App &parser)
{
    std::vector<std::string> names;
    for (const CLI::App *below : parser.get_subcommands(nullptr))
        names.push_back(below->get_name());
    return names;
}

// With those of the parsers above: --root and --json may stand anywhere.
std::vector<std::string> OptionsOf(const CLI::App &parser)
{
    std::vector<std::string> names;
    for (const CLI::App *of = &parser; of != nullptr; of = of->get_parent()) {
        for (const CLI::Option *option : of->get_options()) {
            for (const std::string &name : option->get_lnames())
                names.push_back("--" + name);
        }
    }
    return names;
}

// The first word that means nothing where it stands.
std::string WhatIsUnknown(const CLI::App &parser, const std::string &word, const std::string &help)
{
    const std::vector<std::string> commands = NamesBelow(parser);
    // A single - is a file name for the commands that take one.
    if (word.size() > 1 && word[0] == '-')
        return host::Error("cannot use the option " + word,
                           WordsOf(parser) + " has none of that name",
                           text::Suggestion(word, OptionsOf(parser)) + help)
            .what();
    if (!commands.empty())
        return host::Error("cannot find the command \"" + word + "\"", "there is none of that name",
                           text::Suggestion(word, commands) + help)
            .what();
    return host::Error("cannot use the word \"" + word + "\"",
                       WordsOf(parser) + " takes no further word", help)
        .what();
}

std::string UsageError(const CLI::App &app, const CLI::ParseError &error)
{
    const CLI::App &parser = DeepestParser(app);
    const std::string words = WordsOf(parser);
    const std::string help =
        "see syslogmon " + (parser.get_parent() == nullptr ? "" : words + " ") + "--help";
    const bool is_incomplete = dynamic_cast<const CLI::RequiredError *>(&error) != nullptr;
    // What is there and not known says more than what is missing for it.
    const std::vector<std::string> unknown = app.remaining(true);
    if (!unknown.empty() &&
        (is_incomplete || dynamic_cast<const CLI::ExtrasError *>(&error) != nullptr))
        return WhatIsUnknown(parser, unknown.front(), help);
    // The parser would name all the commands, on a line of its own making.
    if (is_incomplete && !NamesBelow(parser).empty())
        return host::Error("cannot run " + words, "it needs a command behind it", help).what();
    return host::Error("cannot run " + words, error.what(), help).what();
}

int Run(int argc, char **argv)
{
    // Made anew for this run, with everything in it: no command has state beside it.
    CLI::App app("Sets up and asks the syslog monitor.", "syslogmon");
    Context context;
    Action action;
    std::string root;
    app.add_option("--root", root, "Install root to work on")->type_name("DIR");
    // One shape for every command, so one flag for all of them.
    app.add_flag("--json", context.json, "Print JSON");
    app.set_version_flag("--version", SYSLOGMON_VERSION);
    app.require_subcommand(1);
    app.fallthrough(); // --root and --json may stand behind the verb, too
    AddCommands(app, context, action);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &asked) { // --help, --version
        app.exit(asked);
        return kExitDone;
    } catch (const CLI::ParseError &error) {
        PrintError(UsageError(app, error));
        return kExitUsage;
    }
    context.layout = root.empty() ? host::Layout::Find() : host::Layout::Below(root);
    // Behind the parser, since the command has a say in it. A wrong root would be a new, empty
    // host.
    if (!root.empty() && !context.needs_no_root)
        context.layout.CheckRoot();
    return action();
}

} // namespace

} // namespace cli

int main(int argc, char **argv)
{
    int status = cli::kExitFailed;
    try {
        // What was printed counts as done only when it is written: a full disk makes a failure of
        // it.
        status = cli::Run(argc, argv);
        cli::FlushOutput();
    } catch (const cli::NotRunning &error) {
        // Before its base.
        cli::PrintError(error.what());
        status = cli::kExitNotRunning;
    } catch (const std::exception &error) {
        cli::PrintError(error.what());
        status = cli::kExitFailed;
    }
    return status;
}
