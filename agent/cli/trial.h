// The monitor module in the process of the command, on a registry of its own: the rules and settings
// of the host, or other rules, without a daemon and without a trace.
//
// A trial is the module's own start (libraries, products, table), with a pause at the moment at which
// its table is loaded. In this pause the caller drives the module's functions; when it is over, the
// module comes to its end by itself.
#ifndef AGENT_CLI_TRIAL_H
#define AGENT_CLI_TRIAL_H

#include <filesystem>
#include <functional>
#include <utility>
#include <vector>

#include "agent/events/events.h"
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

// Products and the agent's settings of the started host, and its events if they are wanted.
RulesCopy CopyRules(host::RegistryTree &registry, bool with_events);

// Runs a trial: `action` is called in the pause, with the registry of the trial as the host's.
// Ends the host that is started; none is started afterwards. Rethrows what the action throws. Throws
// host::Error when the module cannot load the rules.
void RunTrial(const host::Layout &layout, const RulesCopy &rules,
              const std::function<void(monitor::Module &)> &action);

// The events of the started host that the module has not loaded, each with its source.
std::vector<std::pair<events::StoredSource, events::StoredEvent>>
LeftOutEvents(host::RegistryTree &registry, const monitor::Module &module);

} // namespace cli

#endif // AGENT_CLI_TRIAL_H
