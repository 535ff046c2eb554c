// fleet identity: the name of this host in a fleet.
#include <cstdio>

#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/fleet/identity.h"
#include "agent/status/daemon_lock.h"

namespace cli {

namespace {

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
    {"fleet identity", "Show the UUID by which this host is known in a fleet", SetUpIdentity},
};

} // namespace cli
