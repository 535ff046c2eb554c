#include "agent/fleet/permitted.h"

#include <algorithm>

#include "agent/events/expressions.h"
#include "agent/host/error.h"
#include "agent/rules/rules_diff.h"
#include "agent/text/text_file.h"

namespace fleet {

const std::vector<std::string> kFleetSettings = {"cycle", "trigger-interval", "alarm-after",
                                                 "silent-after"};

namespace {

bool IsPermittedSection(const std::string &name)
{
    return name == "silences" || name == "settings";
}

bool IsPermittedSetting(const std::string &name)
{
    return std::find(kFleetSettings.begin(), kFleetSettings.end(), name) != kFleetSettings.end();
}

// Of what comes over the network, no keyword takes the library's time and memory without a bound: 0.1 s for a line of
// 3,300 characters at this size, where "((a{1,30}){1,30}){1,30}" takes all that there is, just to be compiled. Also where
// keywords are texts: a host may be set up as a fault-tolerant one later, and has the keyword then.
constexpr size_t kMostWrittenOut = 1000;

void FindCostlyExpressions(const rules::Rule &rule, std::vector<text::Issue> *issues)
{
    for (size_t k = 0; k < rule.event.keywords.size(); ++k) {
        const std::string &keyword = rule.event.keywords[k];
        if (events::WrittenOut(keyword) <= kMostWrittenOut)
            continue;
        issues->push_back(
            {rule.keywords_at[k],
             host::Error("cannot use the keyword " + text::Shown(keyword) + " of event " +
                             rules::FormatEventKey(rule.event.key) + " in a file of the fleet",
                         "its repeats stand for more than " + std::to_string(kMostWrittenOut) +
                             " characters, which can take the monitor of a fault-tolerant server "
                             "all its time",
                         "use fewer or smaller repeats")
                 .what()});
    }
}

void FindForeignSettings(const std::vector<rules::SettingEntry> &entries,
                         std::vector<text::Issue> *issues)
{
    for (const rules::SettingEntry &entry : entries) {
        if (!IsPermittedSetting(entry.setting->name))
            issues->push_back(
                {entry.at,
                 host::Error(std::string("cannot set ") + entry.setting->name +
                                 " in a file of the fleet",
                             "it is each host's own",
                             "use " + rules::Listed(kFleetSettings) + ", or set it on the hosts")
                     .what()});
    }
}

} // namespace

std::vector<text::Issue> NotPermitted(const rules::ParsedRules &parsed)
{
    std::vector<text::Issue> issues;
    for (const rules::Rule &rule : parsed.rules)
        FindCostlyExpressions(rule, &issues);
    for (const auto &[section, at] : parsed.sections_at) {
        if (!IsPermittedSection(section))
            issues.push_back(
                {at, host::Error("cannot use \"" + section + "\" in a file of the fleet",
                                 "they run programs, or read or write files, and are "
                                 "each host's own",
                                 "take it out, and set it up on the hosts")
                         .what()});
    }
    if (parsed.sections.settings)
        FindForeignSettings(*parsed.sections.settings, &issues);
    std::stable_sort(issues.begin(), issues.end(),
                     [](const text::Issue &a, const text::Issue &b) { return a.at < b.at; });
    return issues;
}

} // namespace fleet
