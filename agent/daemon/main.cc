// syslogmond: the syslog monitor as a daemon.
#include <cstdio>
#include <exception>

#include <CLI/CLI.hpp>

#include "agent/daemon/daemon.h"
#include "agent/libtarsk/layout.h"

namespace {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

int Run(int argc, char **argv)
{
    CLI::App app(
        "Watches the system log and reports registered events. Runs in the foreground until it is "
        "stopped with SIGTERM or SIGINT; SIGHUP reads all settings again, SIGUSR1 scans now.",
        "syslogmond");
    std::string root;
    agent::DaemonOptions options;
    app.add_option("--root", root, "Install root whose libraries and state are used")
        ->type_name("DIR");
    app.add_flag("-p,--print-alerts", options.print_alerts,
                 "Print each alert on standard output as it is stored");
    app.set_version_flag("--version", SYSLOGMON_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : kExitUsage;
    }
    options.layout = root.empty() ? tarsk::Layout::Find() : tarsk::Layout::Below(root);
    return agent::RunDaemon(options);
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return Run(argc, argv);
    } catch (const std::exception &error) {
        fprintf(stderr, "syslogmond: %s\n", error.what());
        return kExitFailed;
    }
}
