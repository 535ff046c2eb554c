// collect: the alerts of all hosts of a fleet, in this host's store. The daemon collects them; the command sets it up
// and shows how far it is.
#include <cstdio>

#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/option_word.h"
#include "agent/cli/output.h"
#include "agent/cli/sink_commands.h"
#include "agent/cli/table.h"
#include "agent/fleet/collector.h"
#include "agent/fleet/ledger.h"
#include "agent/fleet/setup.h"
#include "agent/host/waitable.h"
#include "agent/text/printable.h"
#include "agent/text/times.h"

namespace cli {

namespace {

using nlohmann::json;

struct CollectOptions {
    std::vector<std::string> words; // "name=value"
    bool off = false;
};

void TellDaemon(const Context &context)
{
    host::WakeEvent::Create(context.layout.run, fleet::kFleetEvent, false, false)->Set();
}

int SetUpCollecting(Context &context, const CollectOptions &options)
{
    context.Open();
    host::Store &store = context.Host().store();
    sinks::SinkConfig config = fleet::NewSetup(fleet::SetupPart::kCollect, store);
    for (const std::string &word : options.words) {
        auto [name, value] = SplitOption(word);
        sinks::FindOption(*config.kind, name); // for its error
        config.options[name] = std::move(value);
    }
    fleet::WriteSetup(fleet::SetupPart::kCollect, store, context.Host().registry(), config);
    TellDaemon(context);
    for (const std::string &warning : sinks::SecretWarnings(config))
        fprintf(stderr, "syslogmon: warning: %s\n", warning.c_str());
    if (context.json)
        PrintJson({{"collects", config.options}, {"warnings", sinks::SecretWarnings(config)}});
    return kExitDone;
}

int EndCollecting(Context &context)
{
    context.Open();
    const bool was_set = fleet::RemoveSetup(fleet::SetupPart::kCollect, context.Host().registry());
    TellDaemon(context);
    if (context.json)
        PrintJson({{"collects", nullptr}, {"was_set", was_set}});
    return kExitDone;
}

// Without the part.
std::string NameIn(const fleet::StreamPlace &place)
{
    return place.stream.substr(0, place.stream.find(' '));
}

json ToJson(const fleet::HostRow &host)
{
    return {{"host", host.name},       {"uuid", host.uuid},         {"alerts", host.alerts},
            {"last_id", host.last_id}, {"dropped", host.dropped},   {"missing", host.missing},
            {"refused", host.refused}, {"heard_ms", host.heard_ms}, {"late", host.late}};
}

void PrintHosts(const std::vector<fleet::HostRow> &hosts)
{
    Table table({"HOST", "ALERTS", "LAST ALERT", "DROPPED", "MISSING", "REFUSED", "UUID"});
    for (const fleet::HostRow &host : hosts)
        table.Add({host.name, std::to_string(host.alerts), text::LocalTime(host.heard_ms),
                   std::to_string(host.dropped), std::to_string(host.missing),
                   std::to_string(host.refused), host.uuid});
    table.Print();
}

int ShowCollecting(Context &context)
{
    context.OpenToRead();
    host::Store &store = context.Host().store();
    const auto config =
        fleet::ReadSetup(fleet::SetupPart::kCollect, store, context.Host().registry());
    const host::Snapshot snapshot(store);
    const fleet::CollectState state = fleet::ReadCollectState(store.database());
    const std::vector<fleet::HostRow> hosts = fleet::ReadHosts(store.database());
    if (context.json) {
        json list = json::array();
        for (const fleet::HostRow &host : hosts)
            list.push_back(ToJson(host));
        PrintJson({{"collects", config ? json(config->options) : json(nullptr)},
                   {"stream", NameIn(state.place)},
                   {"sequence", state.place.sequence},
                   {"problem", state.problem.empty() ? json(nullptr) : json(state.problem)},
                   {"hosts", list}});
        return kExitDone;
    }
    if (!config)
        printf("No alerts of other hosts are collected; begin with syslogmon collect "
               "servers=nats://HOST:4222\n");
    else
        printf("The stream %s of %s, up to its message %llu.\n", config->Get("stream").c_str(),
               config->Get("servers").c_str(),
               static_cast<unsigned long long>(state.place.sequence));
    if (!state.problem.empty())
        printf("Since %s: %s\n", text::LocalTime(state.problem_ms).c_str(),
               text::Printable(state.problem).c_str());
    if (!hosts.empty())
        PrintHosts(hosts);
    return kExitDone;
}

void SetUpCollect(Parser &parser, Context &context)
{
    auto options = std::make_shared<CollectOptions>();
    parser.Add("options", options->words, "NAME=VALUE, see below; none: show how far it is")
        .TypeName("OPTION ...");
    parser.AddFlag("--off", options->off, "Collect no longer; what was collected stays");
    parser.Footer([] { return HelpOf(fleet::CollectKind()); });
    parser.Runs(
        [&, options] {
            if (options->off)
                return EndCollecting(context);
            return options->words.empty() ? ShowCollecting(context)
                                          : SetUpCollecting(context, *options);
        },
        [options]() -> std::string {
            return options->off && !options->words.empty() ? "--off takes no options" : "";
        });
}

} // namespace

const std::vector<Command> kCollectCommands = {
    {"collect", "Collect the alerts of all hosts of a fleet, or show how far that is",
     SetUpCollect},
};

} // namespace cli
