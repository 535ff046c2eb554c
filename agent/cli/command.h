// The commands of syslogmon: each is a row with its words, its help line and the function that sets
// up its options and what it does.
//
// A command line goes through three steps: every row sets up its options and what it does; the parser
// understands the words; what the row that they name does is run. So a mistake in the
// words is found before anything is opened, and what a command does may throw.
#ifndef AGENT_CLI_COMMAND_H
#define AGENT_CLI_COMMAND_H

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/commandline/parser.h"
#include "agent/host/error.h"
#include "agent/host/host.h"
#include "agent/host/layout.h"

namespace cli {

using commandline::Parser;

// Exit statuses.
// The manual page lists them; scripts tell by them what has happened.
constexpr int kExitDone = 0;
constexpr int kExitFailed = 1;     // it failed and said why on standard error
constexpr int kExitUsage = 2;      // the words on the command line were wrong
constexpr int kExitNotRunning = 3; // the daemon is not running
// Of apply --detailed-exitcode, as others have it: something changes. Words that are wrong end with the same, and say so.
constexpr int kExitChanges = 2;

// The daemon is needed and is not running.
// Has its own exit status, by its type: whoever asks for a scan may go on without a daemon.
class NotRunning : public host::Error {
  public:
    NotRunning()
        : host::Error("cannot reach the monitor", "syslogmond is not running",
                      "start it with systemctl start syslogmond, or run syslogmond")
    {
    }
};

// Of the option --force.
constexpr char kForceHelp[] = "Take keywords that a fault-tolerant server cannot use as regular "
                              "expressions, or only slowly";

// What every command can use. One per process, made before the command line is read: its members
// have their values when an action runs, and not while options are set up.
class Context {
  public:
    // Of the root that was named, or of the installation of this program.
    host::Layout layout;
    bool json = false;          // print JSON instead of text
    bool needs_no_root = false; // the command works whatever --root names

    // Starts the host: opens the store, creating it when there is none. For a command that writes.
    // Throws host::StoreError.
    void Open();
    // For a command that only reads: a store that is not there is an error, and none is made.
    void OpenToRead();
    // The host that one of them has started.
    [[nodiscard]] host::Host &Host() const { return *host_; }

  private:
    // Throws as well when the running daemon works with another store: see DaemonLock::CheckStore.
    void OpenAs(host::Role role);

    // Null until one of the Open functions was called: a command that needs no store opens none.
    std::unique_ptr<host::Host> host_;
};

struct Command {
    const char *words; // "event add"
    const char *help;
    // Called for every row at each start. It must do nothing but describe the options; what they
    // are read into is owned by the function that it leaves with the parser.
    void (*set_up)(Parser &parser, Context &context);
};

// The rows of each file.
// Each is defined in the file of the command, below all of its functions.
extern const std::vector<Command> kStatusCommands;
extern const std::vector<Command> kEventCommands;
extern const std::vector<Command> kSettingCommands;
extern const std::vector<Command> kScanCommands;
extern const std::vector<Command> kAlertCommands;
extern const std::vector<Command> kCollectCommands;
extern const std::vector<Command> kFleetCommands;
extern const std::vector<Command> kFleetRulesCommands;
extern const std::vector<Command> kSinkCommands;
extern const std::vector<Command> kSilenceCommands;
extern const std::vector<Command> kInputCommands;
extern const std::vector<Command> kRegistryCommands;
extern const std::vector<Command> kTraceCommands;
extern const std::vector<Command> kMetricsCommands;
extern const std::vector<Command> kReportCommands;
extern const std::vector<Command> kTopCommands;
extern const std::vector<Command> kRulesCommands;
extern const std::vector<Command> kRegFileCommands;
extern const std::vector<Command> kBackupCommands;
extern const std::vector<Command> kTestCommands;
extern const std::vector<Command> kDoctorCommands;

} // namespace cli

#endif // AGENT_CLI_COMMAND_H
