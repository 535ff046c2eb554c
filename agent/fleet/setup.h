// What is set up of this host's part in a fleet, in the registry.
//
// Key SOFTWARE\KORBIN\TARSKVOSKAR\AGENT\COLLECT: the options of the collector (CollectKind), under the names that are
// typed. Without the key, nothing is collected.
#ifndef AGENT_FLEET_SETUP_H
#define AGENT_FLEET_SETUP_H

#include <optional>

#include "agent/host/registry_tree.h"
#include "agent/host/store.h"
#include "agent/sinks/sink.h"

namespace fleet {

// Set by a command that has changed it; the daemon reads it again.
inline constexpr char kFleetEvent[] = "Agent_Fleet_Event";

// Nothing: none is set up. Values that were written by hand may be wrong: CheckSetup says so. Throws host::StoreError.
std::optional<sinks::SinkConfig> ReadCollect(host::Store &store, host::RegistryTree &registry);

// Throws host::Error, which says what is allowed, unless it can be used.
void CheckSetup(const sinks::SinkConfig &config);

// In place of what was set up. Throws as CheckSetup, and has then changed nothing.
void WriteCollect(host::Store &store, host::RegistryTree &registry,
                  const sinks::SinkConfig &config);
// False when there was none.
bool RemoveCollect(host::RegistryTree &registry);

// An empty one.
sinks::SinkConfig NewCollect(const host::Store &store);

} // namespace fleet

#endif // AGENT_FLEET_SETUP_H
