#include "agent/rules/apply.h"

#include <algorithm>

#include "agent/host/convert.h"
#include "agent/settings/settings.h"
#include "platform/agent.h"

namespace rules {

std::vector<text::Issue> RulesChange::Issues() const
{
    std::vector<text::Issue> issues = events.issues;
    issues.insert(issues.end(), sections.issues.begin(), sections.issues.end());
    // The checks look at the file one after the other; people read its mistakes from top to bottom.
    std::stable_sort(issues.begin(), issues.end(),
                     [](const text::Issue &a, const text::Issue &b) { return a.at < b.at; });
    return issues;
}

size_t RulesChange::Count(EventChange::Kind kind) const
{
    const auto is_such = [&](const auto &change) { return change.kind == kind; };
    return static_cast<size_t>(
        std::count_if(events.changes.begin(), events.changes.end(), is_such) +
        std::count_if(sections.changes.begin(), sections.changes.end(), is_such));
}

size_t RulesChange::Unchanged() const
{
    return events.unchanged.size() + sections.unchanged;
}

RulesChange CompareHost(host::Store &store, host::RegistryTree &registry, const ParsedRules &parsed,
                        const SectionOptions &options)
{
    RulesChange change;
    if (parsed.has_events)
        change.events = CompareRules(events::EventRegistry(registry).ReadAll(), parsed.rules,
                                     options.prune, options.owners.events);
    change.sections = CompareSections(store, registry, parsed.sections, options);
    return change;
}

namespace {

// By the conversion that the module's table goes through, so the answers are the monitor's. Empty when the text cannot
// be converted at all.
std::string Convert(const std::string &text, int from, int to)
{
    // No character set makes more than eight bytes of one.
    std::string converted(text.size() * 8 + 64, '\0');
    const int length =
        host::ConvertText(text.data(), static_cast<int>(text.size()), converted.data(),
                          static_cast<int>(converted.size()), from, to);
    converted.resize(static_cast<size_t>(std::max(length, 0)));
    return converted;
}

} // namespace

void CheckEvents(const std::vector<Rule> &rules, const EventChecks &checks, RulesChange *change)
{
    CheckLogCharset(
        rules, checks.charset,
        [](const std::string &text) { return Convert(text, CODE_REGISTRY, CODE_LOG); },
        [](const std::string &text) { return Convert(text, CODE_LOG, CODE_REGISTRY); },
        &change->events);
    if (checks.is_fault_tolerant)
        CheckExpressions(rules, checks.forced, &change->events);
}

void WriteHost(const RulesChange &change, host::RegistryTree *registry)
{
    events::EventRegistry events(*registry);
    WriteDifference(change.events, &events);
    for (const SectionChange &section : change.sections.changes)
        section.make();
}

std::string SettingBehind(const ParsedRules &parsed, host::RegistryTree &registry,
                          const std::string &name)
{
    const settings::Setting &setting = settings::FindSetting(name);
    if (!parsed.sections.settings)
        return settings::GetSetting(registry, setting);
    for (const SettingEntry &entry : *parsed.sections.settings) {
        if (entry.setting == &setting && entry.value != settings::kDefaultWord)
            return entry.value;
    }
    return setting.shown_default;
}

} // namespace rules
