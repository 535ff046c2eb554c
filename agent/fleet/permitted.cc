#include "agent/fleet/permitted.h"

#include <algorithm>

#include "agent/host/error.h"

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

} // namespace

std::vector<text::Issue> NotPermitted(const rules::ParsedRules &parsed)
{
    std::vector<text::Issue> issues;
    for (const auto &[section, at] : parsed.sections_at) {
        if (!IsPermittedSection(section))
            issues.push_back(
                {at, host::Error("cannot use \"" + section + "\" in a file of the fleet",
                                 "they run programs, or read or write files, and are "
                                 "each host's own",
                                 "take it out, and set it up on the hosts")
                         .what()});
    }
    if (!parsed.sections.settings)
        return issues;
    for (const rules::SettingEntry &entry : *parsed.sections.settings) {
        if (!IsPermittedSetting(entry.setting->name))
            issues.push_back(
                {entry.at,
                 host::Error(std::string("cannot set ") + entry.setting->name +
                                 " in a file of the fleet",
                             "it is each host's own",
                             "use " + rules::Listed(kFleetSettings) + ", or set it on the hosts")
                     .what()});
    }
    std::stable_sort(issues.begin(), issues.end(),
                     [](const text::Issue &a, const text::Issue &b) { return a.at < b.at; });
    return issues;
}

} // namespace fleet
