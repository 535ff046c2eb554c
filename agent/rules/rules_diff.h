// What a rules file would change in the registered events.
//
// CompareRules finds it out, the Check functions add what stands against it, FormatDifference shows
// it and WriteDifference does it. Between reading and writing the registry must stay as it is: the
// caller holds the mutex of the table and a transaction, or for showing alone a snapshot.
#ifndef AGENT_RULES_RULES_DIFF_H
#define AGENT_RULES_RULES_DIFF_H

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/events/events.h"
#include "agent/rules/rules_file.h"
#include "platform/monitor_entry.h"

namespace rules {

struct EventChange {
    enum class Kind { kAdd, kChange, kRemove };

    Kind kind = Kind::kAdd;
    events::EventRecord before; // not for kAdd
    events::EventRecord after;  // not for kRemove
    std::string problem;        // why the monitor cannot load what is registered; empty: it can
};

// Whose the registered events are, when the fleet has brought some. Each owner changes and removes his own alone.
struct EventOwners {
    bool is_fleet = false;                             // of the file that is compared
    std::set<std::pair<std::string, uint32_t>> fleets; // by ComparableKey
};

struct RulesDifference {
    std::vector<EventChange> changes; // in the order of the file, then those that are removed
    std::vector<events::EventRecord> unchanged;
    std::vector<events::EventKey> staying; // registered, not in the file, and not removed
    size_t others = 0;                     // registered, and of the other owner
    // Of the fleet's file, and registered as this host's own: those stay as they are.
    std::vector<events::EventKey> local;
    std::vector<std::string> warnings;
    std::vector<text::Issue> issues; // why the file cannot be applied to this registry
};

// Compares a file with what is registered. With `prune`, events that are not in the file are
// removed; a file of the fleet always says all of its own. Sources that are not the monitor's are left alone.
RulesDifference CompareRules(const std::vector<events::StoredSource> &registered,
                             const std::vector<Rule> &rules, bool prune,
                             const EventOwners &owners = {});

// A keyword as the monitor gets it: in the character set of the log, and not cut.
using ToLogCharset = std::function<std::string(const std::string &)>;

// Adds what the log's character set makes of the keywords: a keyword that is cut is an issue where
// the event is new or changed, and a warning where it is not; a character that the set does not
// have is a warning. `from_log` is the way back.
void CheckLogCharset(const std::vector<Rule> &rules, const std::string &charset,
                     const ToLogCharset &to_log, const ToLogCharset &from_log,
                     RulesDifference *difference);

// Adds what a fault-tolerant server cannot do with the keywords as regular expressions: an issue
// where the event is new or changed, a warning where it is not, or where `forced`.
void CheckExpressions(const std::vector<Rule> &rules, bool forced, RulesDifference *difference);

// A line of the difference: '+', '-' or ' ', and the text behind it.
struct DifferenceLine {
    char mark = ' ';
    std::string text;

    bool operator==(const DifferenceLine &) const = default;
};

// The changes, event by event and value by value.
std::vector<DifferenceLine> FormatDifference(const RulesDifference &difference);

// "DISK 1A2B"
std::string FormatEventKey(const events::EventKey &key);

// Writes the changes into the registry: inside of a transaction. Not with issues. Throws
// StoreError.
void WriteDifference(const RulesDifference &difference, events::EventRegistry *events);

// The registered events that a rules file can hold; `left_out` gets the others, and why.
std::vector<events::EventRecord> EventsForFile(const std::vector<events::StoredSource> &registered,
                                               std::vector<std::string> *left_out);

} // namespace rules

#endif // AGENT_RULES_RULES_DIFF_H
