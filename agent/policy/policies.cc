#include "agent/policy/policies.h"

namespace policy {

Policy::Policy(const events::EventRecord &record) : event(record)
{
    if (!event.policy.summary.empty())
        summary.emplace(event.policy.summary);
}

// The table's spelling of a source is that of its registry key, and so is the report's.
Policies::Policies(const std::vector<events::StoredSource> &registered)
{
    for (const events::StoredSource &source : registered) {
        for (const events::StoredEvent &stored : source.events) {
            if (stored.event.policy.IsEmpty())
                continue;
            auto policy = std::make_unique<Policy>(stored.event);
            // The name points into the policy, which stays where it is.
            const EventName name = {policy->event.key.source, policy->event.key.id};
            if (by_name_.emplace(name, policy.get()).second)
                policies_.push_back(std::move(policy));
        }
    }
}

} // namespace policy
