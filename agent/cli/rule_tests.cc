#include "agent/cli/rule_tests.h"

#include <algorithm>
#include <ctime>

#include "agent/cli/line_trial.h"
#include "agent/cli/matched_line.h"
#include "agent/host/error.h"
#include "agent/inputs/stamp_formats.h"
#include "agent/policy/count_text.h"
#include "agent/policy/policies.h"

namespace cli {

namespace {

using Kind = policy::Outcome::Kind;

const char *NameOf(Kind kind)
{
    switch (kind) {
    case Kind::kNoHit:
        return "not matched";
    case Kind::kHeldBack:
        return "held back";
    case Kind::kReported:
        return "reported";
    default:
        return "counted";
    }
}

// The line at this moment, whatever stamp it has in the file: that would be too old one day.
std::string LineAt(const std::string &line, time_t moment)
{
    const inputs::FoundStamp stamp = inputs::FindStamp(line, inputs::StampFormat::kAuto);
    size_t begin = stamp.format == inputs::StampFormat::kNone ? 0 : stamp.end;
    begin = std::min(line.find_first_not_of(' ', begin), line.size());
    char text[32];
    struct tm local {};
    strftime(text, sizeof text, "%b %e %H:%M:%S ", localtime_r(&moment, &local));
    return text + line.substr(begin);
}

// What becomes of the lines of one event.
class EventTests {
  public:
    EventTests(monitor::Module &module, LineTrial &trial, const events::EventRecord &event)
        : module_(module), trial_(trial), policy_(event)
    {
    }

    policy::Outcome Take(const std::string &line)
    {
        if (!Matches(line))
            return {Kind::kNoHit, 0, {}};
        if (policy_.count() != nullptr)
            return policy_.Take(MatchedLineOf(module_, line.c_str(), 1));
        // As the monitor itself counts.
        if (++hits_ < policy_.event().report_count)
            return {Kind::kCounted, hits_, {}};
        return {Kind::kReported, std::exchange(hits_, 0), {}};
    }

  private:
    // By the module: for no other event, and for each line anew.
    bool Matches(const std::string &line)
    {
        const events::EventKey &key = policy_.event().key;
        const auto matched = trial_.Check(line, 1);
        return std::any_of(matched.begin(), matched.end(), [&](size_t index) {
            return trial_.entry(index).Source == key.source &&
                   trial_.entry(index).EventID == key.id;
        });
    }

    monitor::Module &module_;
    LineTrial &trial_;
    policy::Policy policy_;
    int64_t hits_ = 0;
};

void RunTestsOf(monitor::Module &module, LineTrial &trial, const rules::Rule &rule,
                std::vector<text::Issue> *issues)
{
    EventTests event(module, trial, rule.event);
    // The last line is of now.
    time_t moment = time(nullptr);
    for (const rules::RuleTest &test : rule.tests)
        moment -= test.after_s;
    for (const rules::RuleTest &test : rule.tests) {
        moment += test.after_s;
        const policy::Outcome outcome = event.Take(LineAt(test.line, moment));
        if (NameOf(outcome.kind) == test.outcome)
            continue;
        std::string cause = std::string("it is ") + NameOf(outcome.kind);
        if (outcome.kind != Kind::kNoHit)
            cause += ", with " + std::to_string(outcome.hits) + " of " +
                     std::to_string(rule.event.report_count) + " hits";
        issues->push_back(
            {test.at, host::Error("the line " + text::Shown(test.line) + " is not " + test.outcome,
                                  cause, "change the event, or its test")
                          .what()});
    }
}

} // namespace

size_t CountTests(const std::vector<rules::Rule> &rules)
{
    size_t count = 0;
    for (const rules::Rule &rule : rules)
        count += rule.tests.size();
    return count;
}

std::vector<text::Issue> RunTests(const RulesCopy &settings, const std::vector<rules::Rule> &rules)
{
    std::vector<text::Issue> issues;
    if (CountTests(rules) == 0)
        return issues;
    RulesCopy copy = settings;
    for (const rules::Rule &rule : rules) {
        copy.events.push_back(rule.event);
        copy.events.back().hours = events::kAllHours;
    }
    RunTrial(host::Layout::Find(), copy, [&](monitor::Module &module, host::Host &) {
        LineTrial trial(module, HourOf::kNow);
        for (const rules::Rule &rule : rules)
            RunTestsOf(module, trial, rule, &issues);
    });
    return issues;
}

} // namespace cli
