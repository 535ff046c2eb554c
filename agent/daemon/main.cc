// syslogmond: the syslog monitor as a daemon.
#include <cstdio>
#include <exception>
#include <new>
#include <unistd.h>

#include "agent/commandline/parser.h"
#include "agent/daemon/daemon.h"
#include "agent/host/error.h"
#include "agent/host/layout.h"
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
    if (!line.Parse(argc, argv))
        return 0; // --help, --version
    options.layout = root.empty() ? host::Layout::Find() : host::Layout::Below(root);
    options.adds_first_input = root.empty();
    if (!root.empty())
        options.layout.CheckRoot();
    return syslogmond::RunDaemon(options);
}

// Memory first: its text needs none that is not there. Says it on standard error, which systemd
// hands to the journal.
void SayWhatFailed(const std::exception_ptr &failure) noexcept
{
    try {
        std::rethrow_exception(failure);
    } catch (const std::bad_alloc &) {
        text::Say("cannot go on: there is no memory left; raise the limit of the process's memory, "
                  "or end something else");
    } catch (const host::Error &error) {
        text::Say(error.what());
    } catch (const std::exception &error) {
        // No string: the failure can be the lack of threads or memory.
        char text[512];
        snprintf(text, sizeof text, "cannot go on: %s; raise the limits of the process",
                 error.what());
        text::Say(text);
    } catch (...) {
        text::Say("cannot go on: unknown failure; this is a fault of the program, report it");
    }
}

// For a failure that nothing on its thread can deal with: memory has run out in the middle of a pass,
// for one. What the pass has written was not committed.
[[noreturn]] void EndWithAMessage()
{
    if (const std::exception_ptr failure = std::current_exception())
        SayWhatFailed(failure);
    else
        text::Say("cannot go on; this is a fault of the program, report it");
    // No destructor: other threads run on, and use what they would take down.
    _exit(kExitFailed);
}

// Before anything else, also before the constants of the program are made, for which there may be no memory: what ends
// by an exception ends the process, and should say why.
[[gnu::constructor(101)]] void SayWhyItEnds()
{
    std::set_terminate(EndWithAMessage);
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
        SayWhatFailed(std::current_exception());
        return kExitFailed;
    }
}
