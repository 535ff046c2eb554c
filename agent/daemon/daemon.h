// The daemon: starts the monitor, starts it again when it ended unasked, and acts on signals.
//
//   SIGTERM, SIGINT  stop within the pass that is under way; a second one ends at once, and the pass
//                    that was under way is read again at the next start
//   SIGHUP           read table, cycle, customer file, file-monitor target and sinks again
//   SIGUSR1          scan now
#ifndef AGENT_DAEMON_DAEMON_H
#define AGENT_DAEMON_DAEMON_H

#include <filesystem>

#include "agent/host/layout.h"

namespace syslogmond {

struct DaemonOptions {
    host::Layout layout;
    bool print_alerts = false; // on standard output, as they are stored
    // A host that was never set up gets its first input. A root that was named is for trials.
    bool adds_first_input = false;
};

// Runs until it is told to stop. Returns the exit status: 0, or 1 when its store was removed or
// replaced while it ran. Throws host::Error when it cannot start. May end the process itself, by
// _exit: on a second SIGTERM or SIGINT, and when a monitor that does not go on is left behind at
// the stop. Once per process, on its first thread and before any other.
int RunDaemon(const DaemonOptions &options);

} // namespace syslogmond

#endif // AGENT_DAEMON_DAEMON_H
