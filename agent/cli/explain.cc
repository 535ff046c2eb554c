#include "agent/cli/explain.h"

#include <algorithm>
#include <cstring>

#include "agent/cli/matched_line.h"
#include "agent/cli/trial.h"
#include "agent/events/events.h"
#include "agent/events/expressions.h"
#include "agent/policy/count_store.h"
#include "agent/policy/count_text.h"
#include "agent/policy/policies.h"
#include "platform/contract.h"

namespace cli {

namespace {

using Indexes = std::vector<size_t>;

bool Holds(const Indexes &indexes, size_t index)
{
    return std::find(indexes.begin(), indexes.end(), index) != indexes.end();
}

// What keeps all events from matching the line; empty: nothing does.
std::string WhyNoEvent(const LineTrial &trial, const std::string &line)
{
    if (const auto problem = trial.StampProblem(line))
        return std::string("the monitor cannot read its time stamp: ") +
               logs::StampProblemText(*problem);
    if (line.find(kSyslogIdentifier) != std::string::npos)
        return std::string("it is the agent's own: it holds ") + kSyslogIdentifier;
    return {};
}

// On a fault-tolerant server a keyword may be both, so both have failed.
std::string WhyKeywordIsMissing(const monitor::Module &module, int number, const char *keyword)
{
    std::string reason = "keyword " + std::to_string(number) + " \"" + keyword + "\" is missing";
    if (*module.IsFTServer >= 1) {
        const std::string why = events::WhyNoExpression(keyword);
        reason += why.empty() ? ", as text and as a regular expression"
                              : ", and it is not a regular expression: " + why;
    }
    return reason;
}

// Each keyword is tried by itself, by the module; the hour and the count are looked up.
std::string WhyNoMatch(LineTrial &trial, const monitor::Module &module, size_t index,
                       const std::string &line)
{
    const VKVMon &entry = trial.entry(index);
    int number = 0;
    for (const char *keyword : {entry.Keyword1, entry.Keyword2, entry.Keyword3}) {
        ++number;
        if (*keyword != '\0' && !trial.FindsKeyword(line, keyword))
            return WhyKeywordIsMissing(module, number, keyword);
    }
    const int hour = trial.HourOfLine(line);
    if (!trial.IsWatched(index, hour))
        return "the hour from " + std::to_string(hour) + ":00 is not watched";
    if (entry.ReportCount < 1)
        return "its report count is " + std::to_string(entry.ReportCount);
    // No cause that is known here. The module has the last word.
    return "the monitor has not counted it";
}

// By the policy of the event, as far as it has counted.
std::string WhatThePolicyDoes(const policy::MatchedLine &matched, policy::Policy *policy)
{
    const policy::Outcome outcome = policy->Take(matched);
    const auto *entry = policy->count()->Find(policy->ValueOf(matched));
    std::string reason =
        "all its keywords are there, and " +
        policy::OutcomeInWords(policy->count()->terms(), outcome, entry->count, matched.time_s);
    if (!entry->value.empty())
        reason += " (" + policy->event().policy.per + " " + entry->value + ")";
    return reason;
}

void JudgeByPolicy(const policy::MatchedLine &matched, policy::Policy *policy, Verdict *verdict)
{
    const std::string why_not = policy->WhyNoHit(matched);
    verdict->matches = why_not.empty();
    verdict->reason = verdict->matches ? WhatThePolicyDoes(matched, policy)
                                       : "all its keywords are there, but " + why_not;
}

std::string WhatAMatchDoes(const VKVMon &entry, bool has_reported)
{
    if (has_reported && strcmp(entry.Source, kWithheldSource) == 0)
        return "all its keywords are there, but reports of this source are withheld";
    if (entry.ReportCount == 1)
        return "it is reported";
    return "it counts; every " + std::to_string(entry.ReportCount) + " hits are reported";
}

} // namespace

std::vector<Verdict> Explain(LineTrial &trial, const monitor::Module &module,
                             host::RegistryTree &registry, const std::string &text,
                             host::Database *counted)
{
    const Indexes matched = trial.Check(text, 1);
    // A copy: looking for the causes checks further lines.
    const Indexes reported = trial.reported();
    const std::string why_none = WhyNoEvent(trial, text);
    policy::Policies policies(events::EventRegistry(registry).ReadAll());
    std::vector<Verdict> verdicts;
    for (size_t i = 0; i < trial.entries(); ++i) {
        Verdict verdict;
        verdict.source = trial.entry(i).Source;
        verdict.id = events::FormatEventId(trial.entry(i).EventID);
        verdict.matches = Holds(matched, i);
        policy::Policy *policy = policies.Find({trial.entry(i).Source, trial.entry(i).EventID});
        const bool counts = verdict.matches && policy != nullptr && policy->count() != nullptr;
        if (counts && counted != nullptr)
            policy::LoadCount(*counted, policy->event(), policy->count());
        if (counts)
            JudgeByPolicy(MatchedLineOf(module, text.c_str(), 1), policy, &verdict);
        else if (verdict.matches)
            verdict.reason = WhatAMatchDoes(trial.entry(i), Holds(reported, i));
        else
            verdict.reason = why_none.empty() ? WhyNoMatch(trial, module, i, text) : why_none;
        verdicts.push_back(std::move(verdict));
    }
    for (const auto &[source, stored, doubt] : LeftOutEvents(registry, module))
        verdicts.push_back({source.name, stored.id_text, false, "not loaded: " + doubt.cause});
    return verdicts;
}

} // namespace cli
