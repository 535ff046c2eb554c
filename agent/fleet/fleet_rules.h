// What the fleet has brought to this host: files of its groups, in the registry beside what is this host's own.
//
// The files of all groups of a host are taken together, as if they lay in one folder: compared as a whole and written
// as a whole, in one transaction with the note of what is whose. A file that is wrong changes nothing, and what was
// taken last stays. An event, a silence or a setting that the fleet has brought goes when no file has it any more; one
// that this host had before, or has set itself, stays as it is.
#ifndef AGENT_FLEET_FLEET_RULES_H
#define AGENT_FLEET_FLEET_RULES_H

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "agent/host/layout.h"
#include "agent/host/registry_tree.h"
#include "agent/host/store.h"
#include "agent/rules/apply.h"

namespace fleet {

// A row of the table fleet_group: what is taken of a group, or what is offered.
struct GroupState {
    std::string name;
    int64_t created = 0;   // when the bucket was made, in nanoseconds since 1970
    uint64_t revision = 0; // of the bucket
    bool is_canary = false;
    std::string value; // see group_files.h
    int64_t stored_ms =
        0; // since 1970, by the servers' clock; 0: not known, as of files that an older version has taken
    // Of the word that what was tried before these files was taken back, likewise; 0: there is none.
    uint64_t ended_revision = 0;
    int64_t ended_ms = 0;

    // Also by its value: servers that came back with an older disk number other files the same.
    [[nodiscard]] bool IsSameAs(const GroupState &other) const
    {
        return name == other.name && created == other.created && revision == other.revision &&
               is_canary == other.is_canary && value == other.value;
    }
};

// The groups whose files this host has, by name.
std::vector<GroupState> ReadGroups(host::Store &store);
// Whose things are, for whoever compares a file of this host's own.
rules::Owners ReadOwners(host::Store &store);

// What came of it.
struct Taken {
    size_t changes = 0;
    std::vector<std::string> local; // of the files, but this host's own: "DISK 1", "cycle"
    bool is_made = true;            // false: the wait for it was ended, and nothing is taken
};

// Makes what the fleet has brought equal to these groups; none: all of it goes. Wakes the daemon. Throws host::Error when
// a file is refused, which names the first mistake with its place, and host::StoreError; nothing has changed then.
// `leaves`: see events::ChangeBesideMonitor; when it ends the wait, nothing is taken.
Taken TakeGroups(const host::Layout &layout, host::Store &store, host::RegistryTree &registry,
                 const std::vector<GroupState> &groups, const std::function<bool()> &leaves);

// What TakeGroups would change, in a snapshot or a transaction. Throws likewise.
rules::RulesChange CompareGroups(host::Store &store, host::RegistryTree &registry,
                                 const std::vector<GroupState> &groups);

} // namespace fleet

#endif // AGENT_FLEET_FLEET_RULES_H
