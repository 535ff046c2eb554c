#include "agent/fleet/setup.h"

#include "agent/fleet/collector.h"
#include "agent/host/agent_values.h"
#include "agent/host/error.h"
#include "agent/host/registry_values.h"
#include "agent/sinks/nats_options.h"

namespace fleet {

namespace {

std::string CollectPath()
{
    return std::string(host::kAgentKey) + "\\COLLECT";
}

const sinks::SinkKind &TheCollectKind()
{
    static const sinks::SinkKind kind = CollectKind();
    return kind;
}

} // namespace

sinks::SinkConfig NewCollect(const host::Store &store)
{
    sinks::SinkConfig config;
    config.name = "collect";
    config.kind = &TheCollectKind();
    config.store_uuid = store.uuid();
    return config;
}

std::optional<sinks::SinkConfig> ReadCollect(host::Store &store, host::RegistryTree &registry)
{
    const auto key = registry.Find(host::kRootKey, CollectPath());
    if (!key)
        return std::nullopt;
    sinks::SinkConfig config = NewCollect(store);
    config.key = *key;
    for (const host::RegValue &value : registry.Values(*key))
        config.options[value.name] = TextOf(value);
    return config;
}

void CheckSetup(const sinks::SinkConfig &config)
{
    sinks::CheckOptions(config);
    sinks::Secrets secrets;
    sinks::AccessOf(config, secrets);
}

void WriteCollect(host::Store &store, host::RegistryTree &registry, const sinks::SinkConfig &config)
{
    CheckSetup(config);
    host::Transaction transaction(store);
    RemoveCollect(registry);
    const host::KeyId key = registry.Create(host::kRootKey, CollectPath());
    for (const auto &[name, value] : config.options)
        host::SetText(registry, key, name, value);
    transaction.Commit();
}

bool RemoveCollect(host::RegistryTree &registry)
{
    const auto key = registry.Find(host::kRootKey, CollectPath());
    if (key)
        registry.DeleteKey(*key);
    return key.has_value();
}

} // namespace fleet
