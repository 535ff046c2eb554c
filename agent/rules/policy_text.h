// What an event has beside the values of the monitor's table, as a rules file writes it.
#ifndef AGENT_RULES_POLICY_TEXT_H
#define AGENT_RULES_POLICY_TEXT_H

#include <string>
#include <vector>

#include "agent/events/event_policy.h"

namespace rules {

// A value in the words of a rules file, in one line.
struct ShownValue {
    std::string name;
    std::string text;

    bool operator==(const ShownValue &) const = default;
};

// The keys of a policy in an event of a rules file, in the order in which they are written.
extern const std::vector<std::string> kPolicyKeys;

// What is set, in that order.
std::vector<ShownValue> ShownPolicy(const events::EventPolicy &policy);

} // namespace rules

#endif // AGENT_RULES_POLICY_TEXT_H
