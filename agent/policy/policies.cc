#include "agent/policy/policies.h"

#include "agent/policy/count_text.h"

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
    Compile();
}

// One that cannot be compiled, out of a registry that was edited by hand, is left out: better an alert too
// many.
void Policy::Compile()
{
    using Kind = Expression::Kind;
    const events::EventPolicy &terms = event_.policy;
    const auto take = [&](const std::string &text, Kind kind) -> std::optional<Expression> {
        Expression expression(text, kind, terms.ignore_case);
        if (const auto mistake = expression.Mistake()) {
            problem_ = "cannot use the expression \"" + text + "\": " + mistake->what;
            return std::nullopt;
        }
        return expression;
    };
    if (!terms.regex.empty())
        expression_ = take(terms.regex, Kind::kExpression);
    if (expression_)
        groups_ = expression_->GroupNames();
    for (const events::ExcludedText &excluded : terms.except) {
        auto taken = take(excluded.text, excluded.is_expression ? Kind::kExpression : Kind::kText);
        if (taken)
            excluded_.push_back({excluded.text, std::move(*taken)});
    }
}

std::string Policy::WhyNoHit(const MatchedLine &line) const
{
    if (expression_ && !expression_->Matches(line.text))
        return "its expression does not match";
    for (const Excluded &excluded : excluded_) {
        if (excluded.expression.Matches(line.text))
            return "\"" + excluded.text + "\" leaves it out";
    }
    return {};
}

std::vector<std::string_view> Policy::GroupsOf(const MatchedLine &line) const
{
    if (!expression_ || groups_.empty())
        return {};
    return expression_->Groups(line.text).value_or(std::vector<std::string_view>());
}

CountTerms TermsFor(const events::EventRecord &event)
{
    return {event.report_count, event.policy.within_s, event.policy.cooldown_s,
            event.policy.absent_s};
}

Outcome Policy::Take(const MatchedLine &line)
{
    if (!count_)
        return {Outcome::Kind::kReported, line.times, {}};
    if (!WhyNoHit(line).empty())
        return {Outcome::Kind::kNoHit, 0, {}};
    return count_->Take(ValueOf(line), {line.time_s, line.times, line.text});
}

std::string Policy::ValueOf(const MatchedLine &line) const
{
    const std::string &per = event_.policy.per;
    if (per.empty())
        return {};
    std::string_view value;
    if (per == "host")
        value = line.host;
    else if (per == "program")
        value = line.program;
    else if (const auto groups = GroupsOf(line); !groups.empty()) {
        for (const Expression::GroupName &group : groups_)
            value = group.name == per ? groups[group.number] : value;
    }
    return std::string(value.substr(0, kLongestValue));
}

std::string Policy::SummaryOf(const MatchedLine &line) const
{
    if (!summary_)
        return {};
    TemplateValues values = {{"host", std::string(line.host)},
                             {"program", std::string(line.program)},
                             {"message", std::string(line.text)}};
    if (const auto groups = GroupsOf(line); !groups.empty()) {
        for (const Expression::GroupName &group : groups_)
            values.emplace(group.name, groups[group.number]);
    }
    return summary_->Render(values);
}

// The table's spelling of a source is that of its registry key, and so is the report's.
Policies::Policies(const std::vector<events::StoredSource> &registered)
{
    for (const events::StoredSource &source : registered) {
        for (const events::StoredEvent &stored : source.events) {
            AddTerms(stored.event);
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

// Of an ID that is registered twice, the first one that has terms.
void Policies::AddTerms(const events::EventRecord &event)
{
    std::string words = ReportTermsInWords(event);
    if (words.empty())
        return;
    auto terms = std::make_unique<Terms>(Terms{event.key, std::move(words)});
    if (terms_by_name_.emplace(EventName{terms->key.source, terms->key.id}, terms.get()).second)
        terms_.push_back(std::move(terms));
}

std::string Policies::TermsOf(const EventName &name) const
{
    if (terms_by_name_.empty())
        return {};
    const auto found = terms_by_name_.find(name);
    return found != terms_by_name_.end() ? found->second->words : "";
}

} // namespace policy
