// The fleet's servers, as commands reach them, and what they know of its hosts.
#ifndef AGENT_CLI_FLEET_SERVERS_H
#define AGENT_CLI_FLEET_SERVERS_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/cli/command.h"
#include "agent/fleet/buckets.h"
#include "agent/fleet/group_files.h"
#include "agent/fleet/host_status.h"
#include "agent/nats/connection.h"

namespace cli {

// A connection as the host that collects has it, or else as a member. Opens the store to read. Throws host::Error when
// this host has no part in a fleet, and when the servers do not answer.
std::unique_ptr<nats::Connection> ConnectToFleet(Context &context);

// On how many servers buckets are kept that are made from here, as the host that collects is set up; nothing: this one
// does not collect.
std::optional<int64_t> ReplicasOf(const Context &context);

// What each host has said last. One that has said what cannot be read has that as its error.
std::vector<fleet::HostStatus> ReadHosts(const nats::Connection &servers);

// What a key of the servers' bucket has. The revision stands also for a value that was taken away or is damaged, which
// has no files: whoever puts others in its place has to name it.
struct GroupContent {
    uint64_t revision = 0; // of the key; 0: it was never written
    std::optional<fleet::GroupFiles> files;
    std::string damage; // why there are none; empty: it has them, or was given none

    // As is said of the files; 0: there are none.
    [[nodiscard]] uint64_t RevisionOfFiles() const { return files ? revision : 0; }
};
GroupContent ContentOf(const fleet::KeyValue &value, const std::string &group);

// What all hosts of a group have.
GroupContent ReadGroup(const nats::Connection &servers, const std::string &group);

} // namespace cli

#endif // AGENT_CLI_FLEET_SERVERS_H
