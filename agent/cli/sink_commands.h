// What the commands of sinks share.
#ifndef AGENT_CLI_SINK_COMMANDS_H
#define AGENT_CLI_SINK_COMMANDS_H

#include <string>
#include <vector>

#include "agent/cli/command.h"
#include "agent/sinks/sink_registry.h"

namespace cli {

// The sinks of the opened store.
sinks::SinkRegistry Sinks(const Context &context);

// Makes a running daemon read the sinks again, and what is wanted of them.
// Behind the commit. Without a daemon it does nothing: one that starts reads them anyway.
void TellDaemonOfSinks(const Context &context);

// "path=FILE  The file (must be given)": a line of help, without its end.
std::string HelpOf(const sinks::SinkOption &option);

// Of all options of a kind, with a head.
std::string HelpOf(const sinks::SinkKind &kind);

// Why no reader is to have the file of a sink, and what to do.
inline constexpr char kReportsItself[] =
    "an alert can report itself, again and again; use another file";

// What is unsafe about a sink: see SecretWarnings; and who of the monitor reads what it writes.
// Sentences; such a sink is used all the same. Looks at the files that are named, so the answer is
// of this moment.
std::vector<std::string> SinkWarnings(host::Host &host, const sinks::SinkConfig &config);

// ---- sink undelivered, retry, drop: undelivered_commands.cc ----

void SetUpUndelivered(Parser &parser, Context &context);
void SetUpRetry(Parser &parser, Context &context);
void SetUpDrop(Parser &parser, Context &context);

} // namespace cli

#endif // AGENT_CLI_SINK_COMMANDS_H
