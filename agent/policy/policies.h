// The policies of the registered events, ready for use: found by what a report says of its event.
#ifndef AGENT_POLICY_POLICIES_H
#define AGENT_POLICY_POLICIES_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "agent/events/events.h"
#include "agent/policy/event_count.h"
#include "agent/policy/expression.h"
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

// A line that has matched an event, as the module reports it.
struct MatchedLine {
    std::string_view text;
    std::string_view host; // that wrote it, or on which it was found
    std::string_view program;
    int64_t time_s = 0; // its own
    int64_t times = 1;  // that it occurred
};

// One event with a policy, with what is made of it once, and what it has counted.
class Policy {
  public:
    explicit Policy(const events::EventRecord &event);

    // What becomes of the line.
    Outcome Take(const MatchedLine &line);

    // Why a line with the keywords is no hit; empty: it is one.
    [[nodiscard]] std::string WhyNoHit(const MatchedLine &line) const;
    // Of what the line is counted for: its host, its program, a group of the expression, or nothing.
    [[nodiscard]] std::string ValueOf(const MatchedLine &line) const;
    // What an alert of the line says in one line; empty: the event has no summary.
    [[nodiscard]] std::string SummaryOf(const MatchedLine &line) const;
    // What cannot be used of the policy, and is left out; empty: nothing.
    [[nodiscard]] const std::string &problem() const { return problem_; }

    [[nodiscard]] const events::EventRecord &event() const { return event_; }
    // Null: the monitor counts, and each of its reports is one.
    [[nodiscard]] EventCount *count() { return count_ ? &*count_ : nullptr; }

  private:
    struct Excluded {
        std::string text;
        Expression expression;
    };
    void Compile();
    // Of a line that is no hit, or without an expression: none.
    [[nodiscard]] std::vector<std::string_view> GroupsOf(const MatchedLine &line) const;

    events::EventRecord event_;
    std::string problem_;
    std::optional<Expression> expression_;
    std::vector<Expression::GroupName> groups_;
    std::vector<Excluded> excluded_;
    std::optional<Template> summary_;
    std::optional<EventCount> count_;
};

// By what an event is counted.
CountTerms TermsFor(const events::EventRecord &event);

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
    [[nodiscard]] const std::vector<std::unique_ptr<Policy>> &all() const { return policies_; }

    // By what the event is reported, as ReportTermsInWords has it, also of one without a policy. Empty of an event that
    // is not known.
    [[nodiscard]] std::string TermsOf(const EventName &name) const;

  private:
    struct Terms {
        events::EventKey key;
        std::string words;
    };
    void AddTerms(const events::EventRecord &event);

    std::vector<std::unique_ptr<Policy>> policies_; // what the map points to
    std::unordered_map<EventName, Policy *, EventNameHash> by_name_;
    std::vector<std::unique_ptr<Terms>>
        terms_; // of the events that have some; the map points to them
    std::unordered_map<EventName, const Terms *, EventNameHash> terms_by_name_;
};

} // namespace policy

#endif // AGENT_POLICY_POLICIES_H
