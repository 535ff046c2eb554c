#include "agent/fleet/setup.h"

#include "agent/fleet/collector.h"
#include "agent/fleet/member.h"
#include "agent/host/agent_values.h"
#include "agent/host/error.h"
#include "agent/host/registry_values.h"
#include "agent/sinks/nats_options.h"
#include "agent/sinks/sink_registry.h"

namespace fleet {

namespace {

constexpr char kServers[] = "servers";

std::string PathOf(SetupPart part)
{
    return std::string(host::kAgentKey) + (part == SetupPart::kCollect ? "\\COLLECT" : "\\FLEET");
}

const sinks::SinkKind &KindOf(SetupPart part)
{
    static const sinks::SinkKind collect = CollectKind();
    static const sinks::SinkKind member = MemberKind();
    return part == SetupPart::kCollect ? collect : member;
}

} // namespace

sinks::SinkConfig NewSetup(SetupPart part, const host::Store &store)
{
    sinks::SinkConfig config;
    config.kind = &KindOf(part);
    config.name = config.kind->name;
    config.store_uuid = store.uuid();
    return config;
}

std::optional<sinks::SinkConfig> ReadSetup(SetupPart part, host::Store &store,
                                           host::RegistryTree &registry)
{
    const auto key = registry.Find(host::kRootKey, PathOf(part));
    if (!key)
        return std::nullopt;
    sinks::SinkConfig config = NewSetup(part, store);
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

void WriteSetup(SetupPart part, host::Store &store, host::RegistryTree &registry,
                const sinks::SinkConfig &config)
{
    CheckSetup(WithServers(config, store, registry));
    host::Transaction transaction(store);
    RemoveSetup(part, registry);
    const host::KeyId key = registry.Create(host::kRootKey, PathOf(part));
    for (const auto &[name, value] : config.options)
        host::SetText(registry, key, name, value);
    transaction.Commit();
}

bool RemoveSetup(SetupPart part, host::RegistryTree &registry)
{
    const auto key = registry.Find(host::kRootKey, PathOf(part));
    if (key)
        registry.DeleteKey(*key);
    return key.has_value();
}

sinks::SinkConfig WithServers(const sinks::SinkConfig &config, host::Store &store,
                              host::RegistryTree &registry)
{
    const bool must_be_named = sinks::FindOption(*config.kind, kServers).standard == nullptr;
    if (must_be_named || config.Has(kServers))
        return config;
    sinks::SinkConfig whole = config;
    int found = 0;
    for (const sinks::StoredSink &sink : sinks::SinkRegistry(store, registry).ReadAll()) {
        if (sink.config.kind == nullptr || std::string(sink.config.kind->name) != "nats")
            continue;
        ++found;
        for (const sinks::SinkOption &option : sinks::NatsOptions()) {
            const auto value = sink.config.options.find(option.name);
            if (value != sink.config.options.end())
                whole.options.insert(*value);
        }
    }
    if (found != 1)
        throw host::Error("cannot reach the servers of the fleet",
                          found == 0
                              ? "none are named, and there is no sink of the kind nats"
                              : "none are named, and there is more than one sink of the kind "
                                "nats",
                          "name them with servers=nats://HOST:4222");
    return whole;
}

} // namespace fleet
