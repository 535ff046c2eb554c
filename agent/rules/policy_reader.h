// What an event of a rules file has beside the values of the monitor's table.
#ifndef AGENT_RULES_POLICY_READER_H
#define AGENT_RULES_POLICY_READER_H

#include "agent/events/event_policy.h"
#include "agent/rules/node_reader.h"

namespace rules {

// Reads the keys of kPolicyKeys among the values of an event. False, and an issue for each value that
// cannot be used, at its place.
bool ReadPolicy(const Values &values, NodeReader *nodes, events::EventPolicy *policy);

} // namespace rules

#endif // AGENT_RULES_POLICY_READER_H
