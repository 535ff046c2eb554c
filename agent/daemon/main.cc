// syslogmond: the syslog monitor as a daemon.
#include <exception>

#include "agent/commandline/parser.h"
#include "agent/daemon/daemon.h"
#include "agent/host/layout.h"
#include "agent/text/flush.h"
#include "agent/text/last_words.h"
#include "agent/text/say.h"

namespace {

// As those of the command: it failed and said why, or the words on the command line were wrong.
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

int Run(int argc, char **argv)
{
    commandline::CommandLine line(
        "syslogmond",
        "Watches the system log and reports registered events. Runs in the foreground until it is "
        "stopped with SIGTERM or SIGINT; SIGHUP reads all settings again, SIGUSR1 scans now.",
        SYSLOGMON_VERSION);
    std::string root;
    syslogmond::DaemonOptions options;
    line.Program()
        .Add("--root", root, "Install root whose libraries and state are used")
        .TypeName("DIR");
    line.Program().AddFlag("-p,--print-alerts", options.print_alerts,
                           "Print each alert on standard output as it is stored");
    if (!line.Parse(argc, argv)) {
        text::FlushOutput();
        return 0; // --help, --version
    }
    options.layout = root.empty() ? host::Layout::Find() : host::Layout::Below(root);
    options.adds_first_input = root.empty();
    if (!root.empty())
        options.layout.CheckRoot();
    return syslogmond::RunDaemon(options);
}

[[gnu::constructor(101)]] void BeginWithLastWords()
{
    text::SayWhyItEnds();
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return Run(argc, argv);
    } catch (const commandline::UsageError &error) {
        text::Say(error.what());
        return kExitUsage;
    } catch (const std::exception &) {
        text::SayWhatFailed(std::current_exception());
        return kExitFailed;
    }
}
