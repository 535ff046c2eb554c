// The name by which a store is known in a fleet: its UUID, which a copy of it has as well.
#ifndef AGENT_FLEET_IDENTITY_H
#define AGENT_FLEET_IDENTITY_H

#include <string>

#include "agent/host/registry_tree.h"
#include "agent/host/store.h"

namespace fleet {

// Gives the store another UUID and returns it, for the copy of a machine. What was sent under the one before stays
// sent: the sinks go on with the alerts behind it. Not while a daemon works with the store, which keeps the name that
// it found. Throws host::StoreError.
std::string GiveNewIdentity(host::Store &store, host::RegistryTree &registry);

} // namespace fleet

#endif // AGENT_FLEET_IDENTITY_H
