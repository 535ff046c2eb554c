// syslogmon: the administrator's command.
#include <cstdio>
#include <exception>
#include <new>
#include <utility>
#include <vector>

#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/text/flush.h"
#include "agent/text/last_words.h"
#include "agent/text/say.h"

namespace cli {

namespace {

// What the first word of commands of several words stands for.
const std::vector<std::pair<std::string, const char *>> kGroups = {
    {"event", "Registered events: what is looked for, and how often it was seen"},
    {"sink", "Sinks: where alerts go"},
    {"silence", "Silences: alerts that nobody needs to be told of for a while"},
    {"input", "Inputs: the journal and files that are read beside the system log"},
    {"fleet", "A fleet: many hosts whose alerts go to one place, and whose rules come from there"},
    {"reg", "The registry, where all settings and states are kept"},
    {"trace", "The trace log of the daemon"},
};

void AddCommands(commandline::CommandLine &line, Context &context)
{
    for (const auto &[word, help] : kGroups)
        line.Group(word, help);
    for (const auto *rows :
         {&kStatusCommands, &kEventCommands,   &kSettingCommands, &kScanCommands,
          &kAlertCommands,  &kCollectCommands, &kFleetCommands,   &kFleetRulesCommands,
          &kSinkCommands,   &kSilenceCommands, &kInputCommands,   &kRegistryCommands,
          &kTraceCommands,  &kRulesCommands,   &kRegFileCommands, &kTestCommands,
          &kDoctorCommands, &kMetricsCommands, &kReportCommands,  &kTopCommands,
          &kBackupCommands}) {
        for (const Command &command : *rows) {
            Parser parser = line.Command(command.words, command.help);
            command.set_up(parser, context);
        }
    }
}

int Run(int argc, char **argv)
{
    // Made anew for this run, with everything in it: no command has state beside it.
    commandline::CommandLine line("syslogmon", "Sets up and asks the syslog monitor.",
                                  SYSLOGMON_VERSION);
    Context context;
    std::string root;
    // Each may stand behind the verb, too.
    line.Program().Add("--root", root, "Install root to work on").TypeName("DIR");
    // One shape for every command, so one flag for all of them.
    line.Program().AddFlag("--json", context.json, "Print JSON");
    AddCommands(line, context);
    if (!line.Parse(argc, argv))
        return kExitDone; // --help, --version
    context.layout = root.empty() ? host::Layout::Find() : host::Layout::Below(root);
    // Behind the parser, since the command has a say in it. A wrong root would be a new, empty
    // host.
    if (!root.empty() && !context.needs_no_root)
        context.layout.CheckRoot();
    return line.Chosen()();
}

[[gnu::constructor(101)]] void BeginWithLastWords()
{
    text::SayAs("syslogmon");
    text::SayWhyItEnds();
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
        text::FlushOutput();
    } catch (const commandline::UsageError &error) {
        cli::PrintError(error.what());
        status = cli::kExitUsage;
    } catch (const cli::NotRunning &error) {
        // Before its base.
        cli::PrintError(error.what());
        status = cli::kExitNotRunning;
    } catch (const std::bad_alloc &) {
        text::SayWhatFailed(std::current_exception());
    } catch (const std::exception &error) {
        cli::PrintError(error.what());
        status = cli::kExitFailed;
    }
    return status;
}
