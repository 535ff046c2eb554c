// A host's messages that the stream had some time ago, asked for once more.
//
// Servers may differ in what they have: one of them can deliver an alert before it has the one in front of it, or never
// have that. Each look has a reader of its own, which the servers put on one of them: not always the same one.
#ifndef AGENT_FLEET_LOOK_BACK_H
#define AGENT_FLEET_LOOK_BACK_H

#include <functional>
#include <string>

#include "agent/fleet/holes.h"
#include "agent/fleet/ledger.h"
#include "agent/nats/connection.h"

namespace fleet {

// Is given messages, some at a time. Returns whether more are wanted.
using TakeLate = std::function<bool(const std::vector<Arrived> &messages)>;

// Gives all that the stream has of the host, from a while before the span to a while behind it, and 100,000 messages at
// most: as many as a stream keeps of a host, unless it was made otherwise. Throws host::Error when the servers fail.
void LookBack(const nats::Connection &connection, const std::string &stream,
              const LookBackSpan &span, const TakeLate &take);

} // namespace fleet

#endif // AGENT_FLEET_LOOK_BACK_H
