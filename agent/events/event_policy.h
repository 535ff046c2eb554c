// What an event may have beside the values that the monitor's table takes: how grave it is, and what
// an alert of it says. The agent's alone; the module never sees it.
//
// It is kept in the registry in the key POLICY below the event's own key. So it goes with its event,
// whoever removes that, it is exported and imported with it, and there is none without one.
#ifndef AGENT_EVENTS_EVENT_POLICY_H
#define AGENT_EVENTS_EVENT_POLICY_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "agent/host/registry_tree.h"

namespace events {

// Sorted by name, so that equal ones are written equally.
using Labels = std::map<std::string, std::string>;

// The names that syslog has for them, the gravest first.
inline const std::vector<std::string> kSeverities = {"emerg",   "alert",  "crit", "err",
                                                     "warning", "notice", "info", "debug"};

// A text, or an expression, that makes a line no hit.
struct ExcludedText {
    std::string text;
    bool is_expression = false;

    bool operator==(const ExcludedText &) const = default;
};

// All that is not set is empty.
struct EventPolicy {
    std::string severity; // one of kSeverities
    Labels labels;
    std::string summary; // a template: see agent/policy/summary.h
    std::string runbook_url;
    // How hits are counted; see agent/policy/value_count.h.
    int64_t within_s = 0;   // of each other; 0: whenever they come
    int64_t cooldown_s = 0; // of silence behind a report; 0: none
    int64_t absent_s = 0; // a report is made when no line has come for so long, and of none; 0: no
    // "host", "program", or a group of the expression by name or number; empty: all lines together.
    std::string per;
    // Which of the lines with the keywords are hits: see agent/policy/expression.h.
    std::string regex;                // that must match; empty: none
    std::vector<ExcludedText> except; // none of which may be in the line
    bool ignore_case = false;         // in these two

    // Does the agent count the hits? Then the monitor's table has the event with a report count of 1.
    [[nodiscard]] bool Counts() const
    {
        return within_s > 0 || cooldown_s > 0 || absent_s > 0 || !per.empty() || !regex.empty() ||
               !except.empty();
    }
    [[nodiscard]] bool IsEmpty() const { return *this == EventPolicy(); }
    bool operator==(const EventPolicy &) const = default;
};

// Each throws host::Error, naming the value and what is allowed. An empty one is refused: whoever
// wants none leaves it out.
void CheckSeverity(const std::string &severity);
void CheckLabel(const std::string &name, const std::string &value);
bool IsLabelName(const std::string &name); // does not throw
void CheckLabels(const Labels &labels);    // how many there are, and their names together
void CheckSummary(const std::string &summary);
void CheckRunbookUrl(const std::string &url);

void CheckSpan(const char *name, int64_t seconds);
void CheckPer(const std::string &per); // as far as can be said without the expression
void CheckRegex(const std::string &regex);
void CheckExcluded(const std::string &text);

// The largest report count of an event with a window: each of the hits has a time that is kept.
constexpr int32_t kMostWithin = 10000;

// All of them, for what is set.
void CheckPolicy(const EventPolicy &policy);

// "team=storage\nsite=berlin\n", and back. Names have no "=", values no line end.
std::string JoinLabels(const Labels &labels);
Labels SplitLabels(const std::string &text);

// The policy below an event's key; an empty one when there is none. What is of another type there is
// left out. Throws host::StoreError.
//   report_count        the hits that make a report, when the policy counts; otherwise left as it is
//   keyword_is_derived  whether the table's keyword is one of the expression, and nobody's own
EventPolicy ReadPolicy(host::RegistryTree &registry, host::KeyId event_key, int32_t *report_count,
                       bool *keyword_is_derived);
// Replaces it. An empty one leaves no key.
void WritePolicy(host::RegistryTree &registry, host::KeyId event_key, const EventPolicy &policy,
                 int32_t report_count, bool keyword_is_derived);

} // namespace events

#endif // AGENT_EVENTS_EVENT_POLICY_H
