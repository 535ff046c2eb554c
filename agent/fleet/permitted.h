// What a file may have that comes over the network: whoever can write to the servers runs no program on this host by
// it, and has no file read or written.
//
//   events    all of one; its policy has texts, numbers and expressions alone. What a keyword takes, where it is an
//             expression, is bounded
//   silences  all of one
//   settings  those that are numbers of time: see kFleetSettings
//
// Sinks run programs, write files and read secrets; inputs read files. Both are a host's own.
#ifndef AGENT_FLEET_PERMITTED_H
#define AGENT_FLEET_PERMITTED_H

#include <string>
#include <vector>

#include "agent/rules/rules_file.h"

namespace fleet {

// Each other one is refused, and one that is added to the settings some day is until it stands here.
extern const std::vector<std::string> kFleetSettings;

// An issue for each section, each setting and each keyword that a file of the fleet must not have, at its place, in their
// order.
std::vector<text::Issue> NotPermitted(const rules::ParsedRules &parsed);

} // namespace fleet

#endif // AGENT_FLEET_PERMITTED_H
