// The monitor module in the process of the command, on a registry of its own: the rules and settings
// of the host, or other rules, without a daemon and without a trace.
//
// A trial is the module's own start (libraries, products, table), with a pause at the moment at which
// its table is loaded. In this pause the caller drives the module's functions, or has it make passes over logs; when it
// is over, the module comes to its end by itself.
#ifndef AGENT_CLI_TRIAL_H
#define AGENT_CLI_TRIAL_H

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "agent/cli/trial_input.h"
#include "agent/events/event_checks.h"
#include "agent/events/events.h"
#include "agent/host/host.h"
#include "agent/host/layout.h"
#include "agent/host/registry_tree.h"
#include "agent/monitor/module.h"
#include "agent/regfile/reg_text.h"

namespace cli {

// The keys of the registry that a trial needs, with all that is below them.
struct RulesCopy {
    std::vector<regfile::RegKeyContent> keys; // parents first, in the order of their creation
    std::vector<events::EventRecord> events;  // in addition
};

// Products and the agent's settings of a registry, and its events if they are wanted.
RulesCopy CopyRules(host::RegistryTree &registry, bool with_events);

// What is done in the pause, with the module and its host.
using TrialAction = std::function<void(monitor::Module &, host::Host &)>;

// Runs a trial in a host of its own. A host that is started is left alone. Rethrows what the action
// throws. Throws host::Error when the module cannot load the rules, or no temporary folder can be
// made.
//   layout   where the libraries are; nothing else of it is used
// One at a time: the module's state is one for the process. Afterwards the trace of the process is
// off, and its character set of logs is that of the trial.
void RunTrial(const host::Layout &layout, const RulesCopy &rules, const TrialAction &action);

// In the pause: has the module make a pass over a log, from its first line to its last one, as over a customer file of
// which no line was read yet. A log of which the module reads no line is passed over in silence. Throws host::Error
// when it cannot be opened, or the folder of the trial has too long a name.
//   log  a file that is not empty
void PassOver(host::Host &host, const monitor::Module &module, const TrialLog &log);

// An event that the module has not loaded, and why. Copies, good for longer than the trial.
struct LeftOutEvent {
    events::StoredSource source;
    events::StoredEvent stored;
    events::EventDoubt doubt;
};

// Of a trial, those of its registry.
std::vector<LeftOutEvent> LeftOutEvents(host::RegistryTree &registry,
                                        const monitor::Module &module);

} // namespace cli

#endif // AGENT_CLI_TRIAL_H
