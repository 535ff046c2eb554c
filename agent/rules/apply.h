// A rules file, brought onto this host: compared as a whole, and written as a whole.
//
// Whoever has the text of one, from a file or from elsewhere, goes these steps:
//
//   ParsedRules parsed = ParseRulesFiles({{name, bytes}});  issues: refuse it
//   host::Transaction transaction(store);                   or for showing alone, a snapshot
//   RulesChange change = CompareHost(store, registry, parsed, options);
//   what it says in Issues() is a reason to refuse it, too; there is nothing to do when it is empty
//   WriteHost(change, &registry);
//   transaction.Commit();
//   then sets the named events of change.Wakes()
//
// On the thread of the store and nobody else's; no other transaction of it may be open. Events are changed under the
// mutex of the table as well (events::ChangeUnderTableMutex, which has the transaction), so that the monitor does not
// load a half of them; a store of its own process does, beside the daemon's.
#ifndef AGENT_RULES_APPLY_H
#define AGENT_RULES_APPLY_H

#include <set>
#include <string>
#include <vector>

#include "agent/rules/rules_diff.h"
#include "agent/rules/rules_file.h"
#include "agent/rules/section_diff.h"

namespace rules {

struct RulesChange {
    RulesDifference events; // without changes when the file has no events
    SectionDifference sections;

    [[nodiscard]] bool IsEmpty() const
    {
        return events.changes.empty() && sections.changes.empty();
    }
    // What stands against it, in the order of the files.
    [[nodiscard]] std::vector<text::Issue> Issues() const;
    // How many are of this kind, and how many are as the file says.
    [[nodiscard]] size_t Count(EventChange::Kind kind) const;
    [[nodiscard]] size_t Unchanged() const;
    // Named events of the daemon, to be set behind the commit; that of the table is left to
    // ChangeUnderTableMutex.
    [[nodiscard]] const std::set<std::string> &Wakes() const { return sections.wakes; }
};

// Throws host::StoreError.
RulesChange CompareHost(host::Store &store, host::RegistryTree &registry, const ParsedRules &parsed,
                        const SectionOptions &options);

// What this host makes of the events: in the character set of its logs, and as expressions where it is a fault-tolerant
// server. Adds issues and warnings to `change`.
//   charset  of the logs; it is the one that the process converts by
//   forced   keywords that cannot be used as expressions are warned of only
struct EventChecks {
    std::string charset;
    bool is_fault_tolerant = false;
    bool forced = false;
};
void CheckEvents(const std::vector<Rule> &rules, const EventChecks &checks, RulesChange *change);

// Not with issues. Throws host::Error, with a part of it written: the transaction is to be rolled back then.
void WriteHost(const RulesChange &change, host::RegistryTree *registry);

// What a setting will be: of the file, or what is in force.
std::string SettingBehind(const ParsedRules &parsed, host::RegistryTree &registry,
                          const std::string &name);

} // namespace rules

#endif // AGENT_RULES_APPLY_H
