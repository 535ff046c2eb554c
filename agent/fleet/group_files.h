// The files of a group, as they stand in the servers' bucket: one value, in which they are all or not at all.
//
//   {"files": [{"name": "disks.yaml", "text": "..."}], "author": "ops", "made_ms": 1795000000000, "below": 214748364}
//
// A value of a canary is for some hosts of the group: those whose number is below. Each host has a number in each group,
// by its UUID, so it is always the same share that tries a change first.
#ifndef AGENT_FLEET_GROUP_FILES_H
#define AGENT_FLEET_GROUP_FILES_H

#include <cstdint>
#include <string>
#include <vector>

#include "agent/rules/rules_file.h"

namespace fleet {

// Bytes of a value. A server takes messages of a megabyte unless set otherwise, and a host of many groups has all of
// theirs in memory while it compares them.
inline constexpr size_t kMaxGroupValue = 512 * size_t{1024};
inline constexpr uint64_t kAllNumbers = uint64_t{1} << 32U;

struct GroupFiles {
    std::vector<rules::SourceText> files;
    std::string author;
    int64_t made_ms = 0;          // since 1970
    uint64_t below = kAllNumbers; // of a canary: the hosts that have a lower number
};

// Throws host::Error when that is too long for the servers.
std::string FormatGroup(const std::string &group, const GroupFiles &files);
// Throws host::Error when the value is none of these. It comes from the network: names of files in it are shown, and
// never opened.
GroupFiles ParseGroup(const std::string &group, const std::string &value);

// From 0 to kAllNumbers - 1.
uint64_t NumberOf(const std::string &group, const std::string &uuid);
// The bound below which so many of these hosts are, at least one of them.
uint64_t BoundOf(const std::string &group, const std::vector<std::string> &uuids, double percent);

// Names of groups, as they are typed: "web,db". Empty when they are sound, otherwise what is allowed.
std::string CheckGroups(const std::string &value);
std::vector<std::string> GroupsIn(const std::string &list);

} // namespace fleet

#endif // AGENT_FLEET_GROUP_FILES_H
