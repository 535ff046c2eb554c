#include "agent/policy/policies.h"

namespace policy {

namespace {

// A value is kept for each of ten thousand.
constexpr size_t kLongestValue = 256;

} // namespace

Policy::Policy(const events::EventRecord &event) : event_(event)
{
    if (!event.policy.summary.empty())
        summary_.emplace(event.policy.summary);
    if (event.policy.Counts())
        count_.emplace(TermsFor(event));
}

CountTerms TermsFor(const events::EventRecord &event)
{
    return {event.report_count, event.policy.within_s, event.policy.cooldown_s};
}

Outcome Policy::Take(const MatchedLine &line)
{
    if (!count_)
        return {Outcome::Kind::kReported, line.times, {}};
    return count_->Take(ValueOf(line), {line.time_s, line.times, line.text});
}

std::string Policy::ValueOf(const MatchedLine &line) const
{
    const std::string &per = event_.policy.per;
    const std::string_view value = per == "host"      ? line.host
                                   : per == "program" ? line.program
                                                      : std::string_view();
    return std::string(value.substr(0, kLongestValue));
}

std::string Policy::SummaryOf(const MatchedLine &line) const
{
    if (!summary_)
        return {};
    return summary_->Render({{"host", std::string(line.host)},
                             {"program", std::string(line.program)},
                             {"message", std::string(line.text)}});
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
            const EventName name = {policy->event().key.source, policy->event().key.id};
            if (by_name_.emplace(name, policy.get()).second)
                policies_.push_back(std::move(policy));
        }
    }
}

} // namespace policy
