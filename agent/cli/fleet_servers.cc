#include "agent/cli/fleet_servers.h"

#include "agent/fleet/setup.h"
#include "agent/host/error.h"
#include "agent/sinks/nats_options.h"

namespace cli {

using fleet::SetupPart;

std::unique_ptr<nats::Connection> ConnectToFleet(Context &context)
{
    context.OpenToRead();
    host::Store &store = context.Host().store();
    host::RegistryTree &registry = context.Host().registry();
    auto config = fleet::ReadSetup(SetupPart::kCollect, store, registry);
    if (!config)
        config = fleet::ReadSetup(SetupPart::kMember, store, registry);
    if (!config)
        throw host::Error("cannot reach the servers of the fleet", "this host has no part in it",
                          "run the command on the host that collects the alerts, or set that up "
                          "with syslogmon collect servers=nats://HOST:4222");
    sinks::Secrets secrets;
    return std::make_unique<nats::Connection>(
        sinks::AccessOf(fleet::WithServers(*config, store, registry), secrets));
}

std::optional<int64_t> ReplicasOf(const Context &context)
{
    const auto config =
        fleet::ReadSetup(SetupPart::kCollect, context.Host().store(), context.Host().registry());
    return config ? std::optional(config->Number("replicas")) : std::nullopt;
}

std::vector<fleet::HostStatus> ReadHosts(const nats::Connection &servers)
{
    std::vector<fleet::HostStatus> hosts;
    for (const fleet::KeyValue &value : fleet::ReadBucket(servers, fleet::kStatusBucket)) {
        if (value.is_deleted)
            continue;
        try {
            fleet::HostStatus host = fleet::ParseStatus(value.value);
            host.uuid = value.key;
            host.sent_ms = value.stored_ms;
            hosts.push_back(std::move(host));
        } catch (const host::Error &error) {
            // Of a later version, perhaps: it is there all the same.
            fleet::HostStatus host;
            host.host = host.uuid = value.key;
            host.error = error.what();
            host.sent_ms = value.stored_ms;
            hosts.push_back(std::move(host));
        }
    }
    return hosts;
}

GroupContent ContentOf(const fleet::KeyValue &value, const std::string &group)
{
    GroupContent content{value.revision, std::nullopt, ""};
    if (value.is_deleted)
        return content;
    try {
        content.files = fleet::ParseGroup(group, value.value);
    } catch (const host::Error &error) {
        content.damage = error.what();
    }
    return content;
}

GroupContent ReadGroup(const nats::Connection &servers, const std::string &group)
{
    const auto value = fleet::ReadKey(servers, fleet::kRulesBucket, fleet::AllKey(group));
    return value ? ContentOf(*value, group) : GroupContent();
}

} // namespace cli
