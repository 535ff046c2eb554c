#include "agent/policy/count_text.h"

#include "agent/text/duration.h"
#include "agent/text/plural.h"
#include "agent/text/times.h"

namespace policy {

namespace {

std::string Within(int64_t within_s)
{
    return within_s > 0 ? " within " + text::DurationInWords(within_s) : "";
}

// Empty: a report can come at once.
std::string SilenceInWords(const CountTerms &terms, const ValueCount &count, int64_t now_s)
{
    const int64_t until_s = count.QuietUntil(terms);
    if (until_s <= now_s)
        return {};
    return "; next report not before " + text::LocalTime(until_s * 1000);
}

std::string AbsenceInWords(const CountTerms &terms, const ValueCount &count)
{
    const std::string since = text::LocalTime(count.newest_s() * 1000);
    const std::string newest =
        count.newest().empty() ? "none has come since " + since : "the last one was of " + since;
    return newest +
           (count.reported_s() >= 0
                ? "; that is reported"
                : "; report at " + text::LocalTime((count.newest_s() + terms.absent_s) * 1000) +
                      " unless one comes");
}

} // namespace

std::string TermsInWords(const events::EventRecord &event)
{
    const events::EventPolicy &policy = event.policy;
    std::string text;
    if (!policy.regex.empty())
        text += "takes those that its expression matches; ";
    if (!policy.except.empty())
        text += "leaves out those with one of " +
                text::Plural(static_cast<int64_t>(policy.except.size()), "text") + "; ";
    if (policy.absent_s > 0)
        return text + "a report when none comes for " + text::DurationInWords(policy.absent_s) +
               (policy.per.empty() ? "" : ", for each " + policy.per + " apart");
    text += text::Plural(event.report_count, "hit") + Within(policy.within_s) +
            (event.report_count == 1 ? " makes a report" : " make a report");
    if (!policy.per.empty())
        text += ", for each " + policy.per + " apart";
    if (policy.cooldown_s > 0)
        text += "; then silence for " + text::DurationInWords(policy.cooldown_s);
    return text;
}

std::string ReportTermsInWords(const events::EventRecord &event)
{
    const bool is_always_watched = event.hours == events::kAllHours;
    if (is_always_watched && event.report_count == 1 && !event.policy.Counts())
        return {};
    return TermsInWords(event) +
           (is_always_watched ? ""
                              : "; watched at " + events::FormatHours(event.hours) + " o'clock");
}

std::string ProgressInWords(const CountTerms &terms, const ValueCount &count, int64_t now_s)
{
    if (terms.absent_s > 0)
        return AbsenceInWords(terms, count);
    std::string text = std::to_string(count.hits()) + " of " + std::to_string(terms.hits) +
                       Within(terms.within_s) + SilenceInWords(terms, count, now_s);
    if (const HeldBack &held = count.held_back(); held.reports > 0)
        text += "; " + text::Plural(held.reports, "report") + " of " +
                text::Plural(held.hits, "hit") + " held back so far";
    return text;
}

std::string OutcomeInWords(const CountTerms &terms, const Outcome &outcome, const ValueCount &count,
                           int64_t now_s)
{
    switch (outcome.kind) {
    case Outcome::Kind::kNoHit:
        return "it is no hit";
    case Outcome::Kind::kReported:
        return "it is reported, with " + text::Plural(outcome.hits, "hit") +
               SilenceInWords(terms, count, now_s);
    case Outcome::Kind::kHeldBack:
        return "it would be reported, with " + text::Plural(outcome.hits, "hit") +
               ", and is held back" + SilenceInWords(terms, count, now_s);
    default:
        return "it counts: " + ProgressInWords(terms, count, now_s);
    }
}

} // namespace policy
