#include "agent/fleet/fleet_rules.h"

#include <algorithm>
#include <ctime>

#include "agent/fleet/group_files.h"
#include "agent/fleet/permitted.h"
#include "agent/host/error.h"
#include "agent/host/waitable.h"
#include "agent/text/text_file.h"

namespace fleet {

namespace {

constexpr char kEvent[] = "event";
constexpr char kSetting[] = "setting";
constexpr char kAuthor[] = "fleet"; // of silences that name none

// The files of all groups, and what they say.
struct Offered {
    std::vector<rules::SourceText> files;
    rules::ParsedRules parsed;
};

[[noreturn]] void Refuse(const Offered &offered, const std::vector<text::Issue> &issues)
{
    const text::Issue &first = issues.front();
    const size_t more = text::CountMistakes(issues) - 1;
    throw host::Error(offered.files[first.at.file].name + ":" + std::to_string(first.at.line) +
                      ":" + std::to_string(first.at.column) + ": " + first.what +
                      (more == 0 ? "" : " (and " + std::to_string(more) + " more)"));
}

// No group leaves empty sections rather than none: what the fleet has brought goes.
Offered Read(const std::vector<GroupState> &groups)
{
    Offered offered;
    for (const GroupState &group : groups) {
        for (rules::SourceText &file : ParseGroup(group.name, group.value).files)
            offered.files.push_back({group.name + "/" + file.name, std::move(file.bytes)});
    }
    offered.parsed = rules::ParseRulesFiles(offered.files);
    if (!offered.parsed.issues.empty())
        Refuse(offered, offered.parsed.issues);
    if (const auto issues = NotPermitted(offered.parsed); !issues.empty())
        Refuse(offered, issues);
    // A section that no file has is one without entries: the files are all that the fleet says.
    offered.parsed.has_events = true;
    if (!offered.parsed.sections.silences)
        offered.parsed.sections.silences.emplace();
    if (!offered.parsed.sections.settings)
        offered.parsed.sections.settings.emplace();
    return offered;
}

void WriteOwner(host::Database &database, const char *kind, const std::string &name, uint32_t id)
{
    host::Statement(database, "INSERT INTO fleet_owned (kind, name, event_id) VALUES (?, ?, ?)")
        .Run(kind, name, static_cast<int64_t>(id));
}

// Of the files' events and settings all but those that are the host's own.
void WriteOwners(host::Database &database, const rules::ParsedRules &parsed,
                 const rules::RulesChange &change)
{
    host::Statement(database, "DELETE FROM fleet_owned").Run();
    std::set<std::pair<std::string, uint32_t>> local;
    for (const events::EventKey &key : change.events.local)
        local.insert(rules::ComparableKey(key));
    for (const rules::Rule &rule : parsed.rules) {
        const auto key = rules::ComparableKey(rule.event.key);
        if (!local.contains(key))
            WriteOwner(database, kEvent, key.first, key.second);
    }
    const auto &own = change.sections.local;
    for (const rules::SettingEntry &entry : *parsed.sections.settings) {
        if (std::find(own.begin(), own.end(), entry.setting->name) == own.end())
            WriteOwner(database, kSetting, entry.setting->name, 0);
    }
}

void WriteGroups(host::Database &database, const std::vector<GroupState> &groups)
{
    host::Statement(database, "DELETE FROM fleet_group").Run();
    for (const GroupState &group : groups)
        host::Statement(database,
                        "INSERT INTO fleet_group (name, created, revision, is_canary, value,"
                        " stored_ms, ended_revision, ended_ms) VALUES (?, ?, ?, ?, ?, ?, ?, ?)")
            .Run(group.name, group.created, static_cast<int64_t>(group.revision),
                 static_cast<int64_t>(group.is_canary), group.value, group.stored_ms,
                 static_cast<int64_t>(group.ended_revision), group.ended_ms);
}

rules::RulesChange Compare(host::Store &store, host::RegistryTree &registry, const Offered &offered)
{
    rules::SectionOptions options{false, time(nullptr), kAuthor, ReadOwners(store)};
    options.owners.events.is_fleet = true;
    rules::RulesChange change = rules::CompareHost(store, registry, offered.parsed, options);
    const rules::EventChecks checks{rules::SettingBehind({}, registry, "log-charset"),
                                    settings::IsFaultTolerant(registry)};
    rules::CheckEvents(offered.parsed.rules, checks, &change);
    if (const auto issues = change.Issues(); !issues.empty())
        Refuse(offered, issues);
    return change;
}

std::vector<std::string> LocalNames(const rules::RulesChange &change)
{
    std::vector<std::string> names;
    for (const events::EventKey &key : change.events.local)
        names.push_back(rules::FormatEventKey(key));
    names.insert(names.end(), change.sections.local.begin(), change.sections.local.end());
    return names;
}

} // namespace

std::vector<GroupState> ReadGroups(host::Store &store)
{
    return store.Read([](host::Database &database) {
        host::Statement read(database,
                             "SELECT name, created, revision, is_canary, value, stored_ms,"
                             " ended_revision, ended_ms FROM fleet_group ORDER BY name");
        read.Start();
        std::vector<GroupState> groups;
        while (read.Next())
            groups.push_back({read.Text(0), read.Integer(1), static_cast<uint64_t>(read.Integer(2)),
                              read.Integer(3) != 0, read.Text(4), read.Integer(5),
                              static_cast<uint64_t>(read.Integer(6)), read.Integer(7)});
        return groups;
    });
}

rules::Owners ReadOwners(host::Store &store)
{
    return store.Read([](host::Database &database) {
        host::Statement read(database, "SELECT kind, name, event_id FROM fleet_owned");
        read.Start();
        rules::Owners owners;
        while (read.Next()) {
            if (read.Text(0) == kEvent)
                owners.events.fleets.emplace(read.Text(1), static_cast<uint32_t>(read.Integer(2)));
            else
                owners.fleets_settings.insert(read.Text(1));
        }
        return owners;
    });
}

rules::RulesChange CompareGroups(host::Store &store, host::RegistryTree &registry,
                                 const std::vector<GroupState> &groups)
{
    return Compare(store, registry, Read(groups));
}

Taken TakeGroups(const host::Layout &layout, host::Store &store, host::RegistryTree &registry,
                 const std::vector<GroupState> &groups, const std::function<bool()> &leaves)
{
    const Offered offered = Read(groups);
    rules::RulesChange change;
    const bool is_made = events::ChangeBesideMonitor(
        layout, store,
        [&] {
            change = Compare(store, registry, offered);
            rules::WriteHost(change, &registry);
            WriteOwners(store.database(), offered.parsed, change);
            WriteGroups(store.database(), groups);
            return !change.events.changes.empty();
        },
        leaves);
    if (!is_made)
        return {0, {}, false};
    // Behind the commit, or the daemon would read what was before.
    for (const std::string &event : change.Wakes())
        host::WakeEvent::Create(layout.run, event, false, false)->Set();
    return {change.events.changes.size() + change.sections.changes.size(), LocalNames(change),
            true};
}

} // namespace fleet
