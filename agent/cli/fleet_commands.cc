// fleet status, forget, join, leave, identity: the hosts of a fleet, and this one among them.
#include <cstdio>

#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/fleet_servers.h"
#include "agent/cli/option_word.h"
#include "agent/cli/output.h"
#include "agent/cli/sink_commands.h"
#include "agent/cli/table.h"
#include "agent/fleet/fleet_rules.h"
#include "agent/fleet/identity.h"
#include "agent/fleet/member.h"
#include "agent/fleet/setup.h"
#include "agent/host/waitable.h"
#include "agent/status/daemon_lock.h"
#include "agent/text/duration.h"
#include "agent/text/text_file.h"

namespace cli {

namespace {

using fleet::SetupPart;
using nlohmann::json;

// ---- status ----

// "web 7, db 3 (canary)"
std::string GroupsText(const fleet::HostStatus &host)
{
    std::string text;
    for (const fleet::GroupStatus &group : host.groups)
        text += (text.empty() ? "" : ", ") + group.name + " " + std::to_string(group.revision) +
                (group.is_canary ? " (canary)" : "");
    return text;
}

json ToJson(const fleet::HostStatus &host, int64_t now_ms)
{
    json groups = json::object();
    for (const fleet::GroupStatus &group : host.groups)
        groups[group.name] = {
            {"revision", group.revision}, {"newest", group.newest}, {"canary", group.is_canary}};
    const auto or_null = [](const std::string &text) {
        return text.empty() ? json(nullptr) : json(text);
    };
    const int64_t silent_ms = fleet::SilentFor(host, now_ms);
    return {{"host", host.host},
            {"uuid", host.uuid},
            {"version", host.version},
            {"groups", groups},
            {"trouble", or_null(fleet::TroubleOf(host, now_ms))},
            {"error", or_null(host.error)},
            {"monitor", or_null(host.monitor)},
            {"local", host.local},
            {"heard_ms", host.sent_ms},
            {"silent_seconds", silent_ms > 0 ? json(silent_ms / 1000) : json(nullptr)},
            {"last_pass_ms", host.last_pass_ms},
            {"behind_bytes", host.behind_bytes},
            {"alerts_a_minute", host.alerts_a_minute}};
}

int ShowStatus(Context &context, const std::string &group)
{
    const auto servers = ConnectToFleet(context);
    fleet::MakeBuckets(*servers, ReplicasOf(context));
    std::vector<fleet::HostStatus> hosts = ReadHosts(*servers);
    if (!group.empty())
        std::erase_if(hosts, [&](const auto &host) { return !fleet::GroupOf(host, group); });
    const int64_t now_ms = fleet::ServersClock(*servers).NowMs();
    fleet::SortByTrouble(&hosts, now_ms);
    if (context.json) {
        json list = json::array();
        for (const fleet::HostStatus &host : hosts)
            list.push_back(ToJson(host, now_ms));
        PrintJson({{"hosts", list}});
        return kExitDone;
    }
    Table table({"HOST", "TROUBLE", "GROUPS", "BEHIND", "ALERTS/MIN", "HEARD", "VERSION", "UUID"});
    for (const fleet::HostStatus &host : hosts) {
        const std::string trouble = fleet::TroubleOf(host, now_ms);
        const int64_t heard_s = std::max<int64_t>((now_ms - host.sent_ms) / 1000, 0);
        table.Add({host.host, trouble.empty() ? "-" : trouble, GroupsText(host),
                   std::to_string(host.behind_bytes) + " bytes",
                   std::to_string(host.alerts_a_minute), text::FormatDuration(heard_s) + " ago",
                   host.version, host.uuid});
    }
    table.Print();
    return kExitDone;
}

void SetUpStatus(Parser &parser, Context &context)
{
    auto group = std::make_shared<std::string>();
    parser.Add("--group", *group, "Only the hosts of this group").TypeName("GROUP");
    parser.Runs([&, group] { return ShowStatus(context, *group); });
}

// ---- forget ----

// By the name that it gives itself, which others may have as well, or by its UUID.
fleet::HostStatus FindHost(const nats::Connection &servers, const std::string &word)
{
    std::vector<fleet::HostStatus> hosts = ReadHosts(servers);
    // A name is what a host says of itself: it may be the UUID of another one.
    const auto exact = std::ranges::find(hosts, word, &fleet::HostStatus::uuid);
    if (exact != hosts.end())
        return *exact;
    std::erase_if(hosts, [&](const auto &host) { return host.host != word; });
    if (hosts.empty())
        throw host::Error("cannot forget the host " + text::Shown(word),
                          "no host of that name or UUID has said how it is",
                          "see syslogmon fleet status");
    if (hosts.size() > 1)
        throw host::Error("cannot forget the host " + text::Shown(word),
                          std::to_string(hosts.size()) + " hosts have that name",
                          "name it by its UUID, which syslogmon fleet status shows");
    return hosts[0];
}

int Forget(Context &context, const std::string &word)
{
    const auto servers = ConnectToFleet(context);
    const fleet::HostStatus host = FindHost(*servers, word);
    const bool is_silent = fleet::SilentFor(host, fleet::ServersClock(*servers).NowMs()) > 0;
    fleet::PurgeKey(*servers, fleet::kStatusBucket, host.uuid);
    if (!is_silent)
        fprintf(stderr, "syslogmon: warning: it was heard a moment ago, and is known again with "
                        "what it says next; run syslogmon fleet leave there\n");
    if (context.json)
        PrintJson({{"forgotten", {{"host", host.host}, {"uuid", host.uuid}}}});
    return kExitDone;
}

void SetUpForget(Parser &parser, Context &context)
{
    auto word = std::make_shared<std::string>();
    parser.Add("host", *word, "The host, by its name or its UUID").TypeName("HOST").Required();
    parser.Runs([&, word] { return Forget(context, *word); });
}

// ---- join, leave ----

void TellDaemon(const Context &context)
{
    host::WakeEvent::Create(context.layout.run, fleet::kFleetEvent, false, false)->Set();
}

int Join(Context &context, const std::vector<std::string> &words)
{
    context.Open();
    host::Store &store = context.Host().store();
    host::RegistryTree &registry = context.Host().registry();
    sinks::SinkConfig config = fleet::NewSetup(SetupPart::kMember, store);
    for (const std::string &word : words) {
        auto [name, value] = SplitOption(word);
        sinks::FindOption(*config.kind, name); // for its error
        config.options[name] = std::move(value);
    }
    fleet::WriteSetup(SetupPart::kMember, store, registry, config);
    TellDaemon(context);
    const auto warnings = sinks::SecretWarnings(fleet::WithServers(config, store, registry));
    for (const std::string &warning : warnings)
        fprintf(stderr, "syslogmon: warning: %s\n", warning.c_str());
    if (context.json)
        PrintJson({{"member", config.options}, {"warnings", warnings}});
    return kExitDone;
}

// What it belongs to, and what it has taken of that.
int ShowMembership(Context &context)
{
    context.OpenToRead();
    host::Store &store = context.Host().store();
    const auto config = fleet::ReadSetup(SetupPart::kMember, store, context.Host().registry());
    const std::vector<fleet::GroupState> groups = fleet::ReadGroups(store);
    if (context.json) {
        json taken = json::object();
        for (const fleet::GroupState &group : groups)
            taken[group.name] = {{"revision", group.revision}, {"canary", group.is_canary}};
        PrintJson({{"member", config ? json(config->options) : json(nullptr)}, {"taken", taken}});
        return kExitDone;
    }
    if (!config) {
        printf("This host belongs to no group; join one with syslogmon fleet join groups=NAME\n");
        return kExitDone;
    }
    printf("This host belongs to the groups %s.\n", config->Get("groups").c_str());
    Table table({"GROUP", "REVISION", "CANARY"});
    for (const fleet::GroupState &group : groups)
        table.Add({group.name, std::to_string(group.revision), group.is_canary ? "yes" : "no"});
    table.Print();
    return kExitDone;
}

void SetUpJoin(Parser &parser, Context &context)
{
    auto words = std::make_shared<std::vector<std::string>>();
    parser.Add("options", *words, "NAME=VALUE, see below; none: show what was joined")
        .TypeName("OPTION ...");
    parser.Footer([] { return HelpOf(fleet::MemberKind()); });
    parser.Runs(
        [&, words] { return words->empty() ? ShowMembership(context) : Join(context, *words); });
}

// It has left whatever the servers say to it.
void SayGoodbye(const sinks::SinkConfig &config, host::Store &store, host::RegistryTree &registry)
{
    try {
        fleet::SayGoodbye(fleet::WithServers(config, store, registry));
    } catch (const host::Error &error) {
        fprintf(stderr,
                "syslogmon: warning: the fleet was not told that this host has left: %s; run "
                "syslogmon fleet forget on the host that collects\n",
                error.what());
    }
}

int Leave(Context &context)
{
    context.Open();
    host::Store &store = context.Host().store();
    host::RegistryTree &registry = context.Host().registry();
    const auto config = fleet::ReadSetup(SetupPart::kMember, store, registry);
    const bool was_member = fleet::RemoveSetup(SetupPart::kMember, registry);
    // The daemon says goodbye, and takes away what the fleet has brought once its member has ended.
    if (status::DaemonLock::Holder(context.layout)) {
        TellDaemon(context);
    } else {
        fleet::TakeGroups(context.layout, store, registry, {}, [] { return false; });
        if (config)
            SayGoodbye(*config, store, registry);
    }
    if (context.json)
        PrintJson({{"member", nullptr}, {"was_member", was_member}});
    return kExitDone;
}

void SetUpLeave(Parser &parser, Context &context)
{
    parser.Runs([&] { return Leave(context); });
}

// ---- identity ----

int NewIdentity(Context &context)
{
    context.Open();
    if (status::DaemonLock::Holder(context.layout))
        throw host::Error("cannot give this host another name in the fleet",
                          "its daemon runs, and sends under the one that it has",
                          "stop it first, with systemctl stop syslogmond, and start it afterwards");
    const std::string before = context.Host().store().uuid();
    const std::string uuid =
        fleet::GiveNewIdentity(context.Host().store(), context.Host().registry());
    if (context.json)
        PrintJson({{"uuid", uuid}, {"before", before}});
    else
        printf("%s\n", uuid.c_str());
    return kExitDone;
}

int ShowIdentity(Context &context)
{
    context.OpenToRead();
    const std::string &uuid = context.Host().store().uuid();
    if (context.json)
        PrintJson({{"uuid", uuid}, {"before", nullptr}});
    else
        printf("%s\n", uuid.c_str());
    return kExitDone;
}

void SetUpIdentity(Parser &parser, Context &context)
{
    auto is_new = std::make_shared<bool>(false);
    parser.AddFlag("--new", *is_new, "Give this host another one, because it is a copy");
    parser.Runs([&, is_new] { return *is_new ? NewIdentity(context) : ShowIdentity(context); });
}

} // namespace

const std::vector<Command> kFleetCommands = {
    {"fleet status", "Show all hosts, those first that need to be looked at", SetUpStatus},
    {"fleet forget", "Take a host that is gone for good out of the status of the fleet",
     SetUpForget},
    {"fleet join", "Have this host take the rules of groups, or show what it has of them",
     SetUpJoin},
    {"fleet leave", "Leave all groups; what they have brought goes", SetUpLeave},
    {"fleet identity", "Show the UUID by which this host is known in a fleet", SetUpIdentity},
};

} // namespace cli
