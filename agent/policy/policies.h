// The policies of the registered events, ready for use: found by what a report says of its event.
#ifndef AGENT_POLICY_POLICIES_H
#define AGENT_POLICY_POLICIES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "agent/events/events.h"
#include "agent/policy/summary.h"

namespace policy {

// Source and ID, as a report has them: not copied for a search.
struct EventName {
    std::string_view source;
    uint32_t id;

    bool operator==(const EventName &) const = default;
};

struct EventNameHash {
    size_t operator()(const EventName &name) const
    {
        return std::hash<std::string_view>()(name.source) * 31 + name.id;
    }
};

// One event with a policy, with what is made of it once.
struct Policy {
    explicit Policy(const events::EventRecord &event);

    events::EventRecord event;
    std::optional<Template> summary; // none: it has no summary
};

class Policies {
  public:
    // Those of the registered events that have one. An ID that is registered twice has that of the
    // first.
    explicit Policies(const std::vector<events::StoredSource> &registered);
    Policies() = default;

    // Null: none. Costs no more than this call when there are none at all.
    [[nodiscard]] Policy *Find(const EventName &name)
    {
        if (by_name_.empty())
            return nullptr;
        const auto found = by_name_.find(name);
        return found != by_name_.end() ? found->second : nullptr;
    }
    [[nodiscard]] size_t size() const { return by_name_.size(); }

  private:
    std::vector<std::unique_ptr<Policy>> policies_; // what the map points to
    std::unordered_map<EventName, Policy *, EventNameHash> by_name_;
};

} // namespace policy

#endif // AGENT_POLICY_POLICIES_H
