#include "agent/fleet/identity.h"

#include "agent/host/schema.h"
#include "agent/sinks/sink_registry.h"

namespace fleet {

// Under the new name the servers have nothing of this host. A sink that has never delivered anything takes that for its
// beginning; another one would send again all that it has sent under the old name.
std::string GiveNewIdentity(host::Store &store, host::RegistryTree &registry)
{
    std::string uuid = host::NewUuid(store.database().path());
    host::Transaction transaction(store);
    host::Statement(store.database(), "UPDATE store SET uuid = ?").Run(uuid);
    for (const sinks::StoredSink &sink : sinks::SinkRegistry(store, registry).ReadAll()) {
        if (sink.config.kind != nullptr && sink.config.kind->look != nullptr)
            host::Statement(store.database(), "UPDATE delivery SET delivered = 0 WHERE sink = ?")
                .Run(sink.config.key);
    }
    transaction.Commit();
    return uuid;
}

} // namespace fleet
