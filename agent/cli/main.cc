// syslogmon: the administrator's command.
#include <cstdio>
#include <exception>
#include <map>
#include <sstream>

#include "agent/cli/command.h"
#include "agent/common/daemon_lock.h"

namespace cli {

void Context::Open() const
{
    tarsk::StartHost(layout, tarsk::Role::kCommand);
    tarsk::HostStore().OnLongWait(
        [] { fprintf(stderr, "syslogmon: waiting for the monitor to finish its pass...\n"); });
    agent::DaemonLock::CheckStore(layout);
}

namespace {

// What the first word of commands of several words stands for.
const std::map<std::string, const char *> kGroups = {
    {"event", "Registered events: what is looked for, and how often it was seen"},
    {"sink", "Sinks: where alerts go"},
    {"reg", "The registry, where all settings and states are kept"},
    {"trace", "The trace log of the daemon"},
};

// The parser of a word below another, made when it is not there yet.
CLI::App *Below(CLI::App *parser, const std::string &word)
{
    for (CLI::App *known : parser->get_subcommands(nullptr)) {
        if (known->get_name() == word)
            return known;
    }
    CLI::App *added = parser->add_subcommand(word);
    const auto group = kGroups.find(word);
    if (group != kGroups.end())
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
          &kSinkCommands, &kRegistryCommands, &kTraceCommands, &kRulesCommands, &kRegFileCommands,
          &kTestCommands, &kDoctorCommands}) {
        for (const Command &command : *rows)
            command.set_up(ParserFor(app, command), context, action);
    }
}

int Run(int argc, char **argv)
{
    CLI::App app("Sets up and asks the syslog monitor.", "syslogmon");
    Context context;
    Action action;
    std::string root;
    app.add_option("--root", root, "Install root to work on")->type_name("DIR");
    app.add_flag("--json", context.json, "Print JSON");
    app.set_version_flag("--version", SYSLOGMON_VERSION);
    app.require_subcommand(1);
    app.fallthrough(); // --root and --json may stand behind the verb, too
    AddCommands(app, context, action);
    try {
        app.parse(argc, argv);
    } catch (const CLI::RequiredError &error) {
        // What is there and not known says more than what is missing for it.
        const std::vector<std::string> unknown = app.remaining(true);
        app.exit(unknown.empty() ? static_cast<const CLI::Error &>(error)
                                 : CLI::ExtrasError(unknown));
        return kExitUsage;
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? kExitDone : kExitUsage;
    }
    context.layout = root.empty() ? tarsk::Layout::Find() : tarsk::Layout::Below(root);
    return action();
}

} // namespace

} // namespace cli

int main(int argc, char **argv)
{
    int status = cli::kExitFailed;
    try {
        status = cli::Run(argc, argv);
    } catch (const cli::NotRunning &error) {
        fprintf(stderr, "syslogmon: %s\n", error.what());
        status = cli::kExitNotRunning;
    } catch (const std::exception &error) {
        fprintf(stderr, "syslogmon: %s\n", error.what());
    }
    tarsk::StopHost();
    return status;
}
