// What is set up of this host's part in a fleet, in the registry: each part is a key below
// SOFTWARE\KORBIN\TARSKVOSKAR\AGENT with its options, under the names that are typed. Without the key, the host has no
// such part.
//
//   COLLECT  the alerts of all hosts are collected: see collector.h
//   FLEET    the host belongs to groups, takes their rules and says how it is: see member.h
#ifndef AGENT_FLEET_SETUP_H
#define AGENT_FLEET_SETUP_H

#include <optional>

#include "agent/host/registry_tree.h"
#include "agent/host/store.h"
#include "agent/sinks/sink.h"

namespace fleet {

// Set by a command that has changed it; the daemon reads it again.
inline constexpr char kFleetEvent[] = "Agent_Fleet_Event";

enum class SetupPart { kCollect, kMember };

// Nothing: none is set up. Values that were written by hand may be wrong: CheckSetup says so. Throws host::StoreError.
std::optional<sinks::SinkConfig> ReadSetup(SetupPart part, host::Store &store,
                                           host::RegistryTree &registry);

// Throws host::Error, which says what is allowed, unless it can be used.
void CheckSetup(const sinks::SinkConfig &config);

// In place of what was set up. Throws as CheckSetup, and has then changed nothing.
void WriteSetup(SetupPart part, host::Store &store, host::RegistryTree &registry,
                const sinks::SinkConfig &config);
// False when there was none.
bool RemoveSetup(SetupPart part, host::RegistryTree &registry);

// An empty one.
sinks::SinkConfig NewSetup(SetupPart part, const host::Store &store);

// The same with the servers and the way to them: a member that names none reaches them as this host's sink of the kind
// nats does. Throws host::Error when there is no such sink, or more than one.
sinks::SinkConfig WithServers(const sinks::SinkConfig &config, host::Store &store,
                              host::RegistryTree &registry);

} // namespace fleet

#endif // AGENT_FLEET_SETUP_H
