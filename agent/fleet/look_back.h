// A host's messages that the stream had some time ago, asked for once more.
//
// Servers may differ in what they have: one of them can deliver an alert before it has the one in front of it, or never
// have that. Each look has a reader of its own, which the servers put on one of them: not always the same one.
#ifndef AGENT_FLEET_LOOK_BACK_H
#define AGENT_FLEET_LOOK_BACK_H

#include <functional>
#include <string>
#include <vector>

#include "agent/fleet/holes.h"
#include "agent/fleet/ledger.h"
#include "agent/nats/connection.h"

namespace fleet {

using Give = std::function<void(const std::vector<Arrived> &some)>;

// Gives what the stream has of the missing host's messages, some at a time, for a second at most once the servers have made a
// reader, and then what it has read.
// Returns whether that was all. If not, `missing` begins behind it, to go on with. Throws host::Error when the servers fail,
// and has given what came before that.
bool LookBack(const nats::Connection &connection, const std::string &stream, Missing *missing,
              const Give &give);

} // namespace fleet

#endif // AGENT_FLEET_LOOK_BACK_H
