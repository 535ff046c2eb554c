#include "agent/rules/rules_diff.h"

#include <algorithm>
#include <map>
#include <set>

#include "agent/events/expressions.h"
#include "agent/host/error.h"
#include "agent/rules/policy_text.h"
#include "agent/text/utf8.h"
#include "platform/contract.h"

namespace rules {

namespace {

// Source and ID in the form in which two of them are compared: the registry knows no case.
using ComparedKey = std::pair<std::string, uint32_t>;

constexpr size_t kMaxKeyword = kKeywordSize - 1; // bytes, in the registry and in the table

// The registered events, for looking up.
struct Registered {
    std::map<ComparedKey, const events::StoredEvent *> events;
    std::map<std::string, const events::StoredSource *> sources; // by the comparable name
};

// Of a source by itself. The ID does not count for it.
std::string ComparableSource(const std::string &source)
{
    return ComparableKey({source, 0}).first;
}

// One ID can be registered twice, under keys such as 1A and 01A. The monitor loads both; a file can hold
// only one, so that is told of.
Registered Index(const std::vector<events::StoredSource> &sources,
                 std::vector<std::string> *warnings)
{
    Registered registered;
    for (const events::StoredSource &source : sources) {
        registered.sources.emplace(ComparableSource(source.name), &source);
        if (source.is_new_application_type)
            continue;
        for (const events::StoredEvent &stored : source.events) {
            const events::EventKey &key = stored.event.key;
            const auto [first, is_first] = registered.events.emplace(ComparableKey(key), &stored);
            if (!is_first)
                warnings->push_back("event " + FormatEventKey(key) +
                                    " is registered twice, under the keys " +
                                    first->second->id_text + " and " + stored.id_text +
                                    "; only the first one is compared");
        }
    }
    return registered;
}

// Do both mean the same to the monitor? Bits of hours that do not exist do not count.
bool SameEvent(const events::EventRecord &a, const events::EventRecord &b)
{
    return a.keywords == b.keywords && a.report_count == b.report_count &&
           (a.hours & events::kAllHours) == (b.hours & events::kAllHours) && a.policy == b.policy;
}

// Events in the table once the changes were made, as far as the monitor takes them.
size_t TableSize(const RulesDifference &difference)
{
    const auto kept = std::count_if(
        difference.changes.begin(), difference.changes.end(),
        [](const EventChange &change) { return change.kind != EventChange::Kind::kRemove; });
    return static_cast<size_t>(kept) + difference.unchanged.size() + difference.staying.size() +
           difference.others;
}

// Goes through the file once, and then through what is left of the registered events. What was found
// in the file is never looked for again, so a change is in the order of the file, and a removal in
// that of the registry.
class Comparison {
  public:
    Comparison(const std::vector<events::StoredSource> &registered, const EventOwners &owners,
               RulesDifference *difference)
        : registered_(Index(registered, &difference->warnings)), owners_(owners),
          difference_(difference)
    {
    }

    // One event of the file: new, changed, or as it is. One that is registered and damaged counts as
    // changed whatever it says: writing it whole is what makes it sound.
    void Take(const Rule &rule)
    {
        events::EventRecord after = rule.event;
        const auto source = registered_.sources.find(ComparableSource(after.key.source));
        // Before the event is looked up: those of another component are not in the index, so it
        // would count as new.
        if (source != registered_.sources.end() && !UseSource(*source->second, rule, &after))
            return;
        const ComparedKey key = ComparableKey(after.key);
        // Also when it is as registered: what is in the file is neither removed nor said to stay.
        in_file_.insert(key);
        const auto found = registered_.events.find(key);
        if (found == registered_.events.end()) {
            difference_->changes.push_back({EventChange::Kind::kAdd, {}, after, ""});
            added_at_.push_back(rule.at);
            return;
        }
        const events::StoredEvent &stored = *found->second;
        if (owners_.is_fleet && !owners_.fleets.contains(key)) {
            difference_->local.push_back(stored.event.key);
            ++difference_->others;
            return;
        }
        if (stored.problem.empty() && SameEvent(stored.event, after))
            difference_->unchanged.push_back(stored.event);
        else
            difference_->changes.push_back(
                {EventChange::Kind::kChange, stored.event, after, stored.problem});
    }

    // What is registered and was not taken.
    void TakeRest(const std::vector<events::StoredSource> &registered, bool prune)
    {
        for (const events::StoredSource &source : registered) {
            for (const events::StoredEvent &stored : source.events) {
                const ComparedKey key = ComparableKey(stored.event.key);
                // By inserting, an ID that is registered twice is taken once: its removal removes
                // both.
                if (source.is_new_application_type || !in_file_.insert(key).second)
                    continue;
                const bool is_others = owners_.fleets.contains(key) != owners_.is_fleet;
                if (is_others)
                    ++difference_->others;
                else if (prune || owners_.is_fleet)
                    difference_->changes.push_back(
                        {EventChange::Kind::kRemove, stored.event, {}, stored.problem});
                else
                    difference_->staying.push_back(stored.event.key);
            }
        }
    }

    // The table is full, and the file makes it larger still. An error when the file adds events, at
    // the first one that is too many; a warning when it adds none, because then it does no harm that
    // is not there already.
    void CheckRoom()
    {
        constexpr auto kRoom = static_cast<size_t>(kMaxEntries);
        const size_t size = TableSize(*difference_);
        if (size <= kRoom)
            return;
        const std::string room = std::to_string(kRoom);
        if (added_at_.empty()) {
            difference_->warnings.push_back("there are " + std::to_string(size) +
                                            " events then, and the monitor's table has " +
                                            "room for " + room + "; the others are not watched");
            return;
        }
        // The last ones of those that are new, in the order of the file: without them it would fit.
        const size_t too_many = std::min(size - kRoom, added_at_.size());
        const host::Error error(
            "cannot add " +
                (too_many == 1 ? "this event" : std::to_string(too_many) + " events from here on"),
            "there would be " + std::to_string(size) +
                " events, and the monitor's table has room for " + room,
            "leave out what is not needed, or remove events that are not in the file with --prune");
        difference_->issues.push_back({added_at_[added_at_.size() - too_many], error.what()});
    }

  private:
    // The registry keeps the spelling of a source that it has.
    bool UseSource(const events::StoredSource &source, const Rule &rule, events::EventRecord *after)
    {
        if (source.is_new_application_type) {
            const host::Error error("cannot use the source " + text::Shown(rule.event.key.source),
                                    "it is registered as one that another component watches "
                                    "(NEWAPPLICATIONTYPE)",
                                    "choose another name");
            difference_->issues.push_back({rule.at, error.what()});
            return false;
        }
        if (source.name != after->key.source && spelled_.insert(source.name).second)
            difference_->warnings.push_back("the source " + text::Shown(after->key.source) +
                                            " is registered as " + text::Shown(source.name) +
                                            ", which is the same name, and keeps that spelling");
        after->key.source = source.name;
        return true;
    }

    Registered registered_;
    const EventOwners &owners_;
    RulesDifference *difference_;
    std::set<ComparedKey> in_file_;
    std::set<std::string> spelled_;        // sources with a warning about their spelling
    std::vector<text::Position> added_at_; // of the events that are new
};

} // namespace

RulesDifference CompareRules(const std::vector<events::StoredSource> &registered,
                             const std::vector<Rule> &rules, bool prune, const EventOwners &owners)
{
    RulesDifference difference;
    Comparison comparison(registered, owners, &difference);
    for (const Rule &rule : rules)
        comparison.Take(rule);
    comparison.TakeRest(registered, prune);
    comparison.CheckRoom();
    return difference;
}

namespace {

// Whatever is wrong with an event that stays as it is, is a warning and no error: a file that was
// exported must always be accepted again.
std::set<ComparedKey> UnchangedKeys(const RulesDifference &difference)
{
    std::set<ComparedKey> unchanged;
    for (const events::EventRecord &event : difference.unchanged)
        unchanged.insert(ComparableKey(event.key));
    return unchanged;
}

} // namespace

void CheckExpressions(const std::vector<Rule> &rules, bool forced, RulesDifference *difference)
{
    const std::set<ComparedKey> unchanged = UnchangedKeys(*difference);
    for (const Rule &rule : rules) {
        const bool is_kept = forced || unchanged.contains(ComparableKey(rule.event.key));
        for (size_t k = 0; k < rule.event.keywords.size(); ++k) {
            const std::string &keyword = rule.event.keywords[k];
            const auto fault = events::FaultOfExpression(keyword);
            if (!fault)
                continue;
            const std::string thing = "cannot use the keyword " + text::Shown(keyword) +
                                      " of event " + FormatEventKey(rule.event.key);
            if (is_kept)
                difference->warnings.emplace_back(
                    host::Error(thing + " as an expression", fault->cause, fault->advice).what());
            else
                difference->issues.push_back(
                    {rule.keywords_at[k],
                     host::Error(thing, fault->cause, fault->advice + ", or add --force").what()});
        }
    }
}

void CheckLogCharset(const std::vector<Rule> &rules, const std::string &charset,
                     const ToLogCharset &to_log, const ToLogCharset &from_log,
                     RulesDifference *difference)
{
    const std::set<ComparedKey> unchanged = UnchangedKeys(*difference);
    for (const Rule &rule : rules) {
        for (size_t k = 0; k < rule.event.keywords.size(); ++k) {
            const std::string &keyword = rule.event.keywords[k];
            // What counts is the room in the table, which holds it in the character set of the log.
            const std::string converted = to_log(keyword);
            const std::string event = "event " + FormatEventKey(rule.event.key);
            if (converted.size() > kMaxKeyword) {
                const host::Error error("cannot use a keyword of " + event,
                                        "it has " + std::to_string(converted.size()) +
                                            " bytes in the character set of the log (" + charset +
                                            ")",
                                        "a keyword has at most 256 bytes there, too");
                if (unchanged.contains(ComparableKey(rule.event.key)))
                    difference->warnings.emplace_back(error.what());
                else
                    difference->issues.push_back({rule.keywords_at[k], error.what()});
            } else if (text::IsUtf8(keyword) && from_log(converted) != keyword) {
                difference->warnings.push_back(
                    std::string("the keyword ")
                        .append(text::Shown(keyword))
                        .append(" of ")
                        .append(event)
                        .append(" has characters that the character set of the log (")
                        .append(charset)
                        .append(") does not have"));
            }
        }
    }
}

std::string FormatEventKey(const events::EventKey &key)
{
    return key.source + " " + events::FormatEventId(key.id);
}

namespace {

// In one order for all.
std::vector<ShownValue> ShownValues(const events::EventRecord &event)
{
    std::vector<ShownValue> values;
    // Those that are derived from an expression are not the user's.
    if (event.HasKeywords())
        values.push_back({"keywords", FormatKeywords(event.keywords)});
    values.push_back({"report_count", std::to_string(event.report_count)});
    values.push_back({"hours", events::FormatHours(event.hours)});
    for (ShownValue &value : ShownPolicy(event.policy))
        values.push_back(std::move(value));
    return values;
}

std::vector<std::string> ValueNames()
{
    std::vector<std::string> names = {"keywords", "report_count", "hours"};
    names.insert(names.end(), kPolicyKeys.begin(), kPolicyKeys.end());
    return names;
}

std::string LineOf(const ShownValue &value)
{
    return "    " + value.name + ": " + value.text;
}

bool Holds(const std::vector<ShownValue> &values, const ShownValue &value)
{
    return std::find(values.begin(), values.end(), value) != values.end();
}

// Everything of an event that comes or goes.
void FormatWhole(char mark, const events::EventRecord &event, std::vector<DifferenceLine> *lines)
{
    for (const ShownValue &value : ShownValues(event))
        lines->push_back({mark, LineOf(value)});
}

// What differs, and nothing else: as it was, and below it as it will be.
void FormatChanged(const EventChange &change, std::vector<DifferenceLine> *lines)
{
    if (!change.problem.empty()) {
        // What is there is not sound, so all of it is written.
        lines->push_back({'-', "    (" + change.problem + ")"});
        FormatWhole('+', change.after, lines);
        return;
    }
    const auto before = ShownValues(change.before);
    const auto after = ShownValues(change.after);
    // Both sides of one value stand together, and in the order of the file; one may be missing.
    for (const std::string &name : ValueNames()) {
        for (const ShownValue &value : before) {
            if (value.name == name && !Holds(after, value))
                lines->push_back({'-', LineOf(value)});
        }
        for (const ShownValue &value : after) {
            if (value.name == name && !Holds(before, value))
                lines->push_back({'+', LineOf(value)});
        }
    }
}

} // namespace

std::vector<DifferenceLine> FormatDifference(const RulesDifference &difference)
{
    std::vector<DifferenceLine> lines;
    for (const EventChange &change : difference.changes) {
        switch (change.kind) {
        case EventChange::Kind::kAdd:
            lines.push_back({'+', FormatEventKey(change.after.key)});
            FormatWhole('+', change.after, &lines);
            break;
        case EventChange::Kind::kChange:
            lines.push_back({' ', FormatEventKey(change.before.key)});
            FormatChanged(change, &lines);
            break;
        case EventChange::Kind::kRemove:
            lines.push_back({'-', FormatEventKey(change.before.key)});
            if (!change.problem.empty())
                lines.push_back({'-', "    (" + change.problem + ")"});
            else
                FormatWhole('-', change.before, &lines);
            break;
        }
    }
    return lines;
}

void WriteDifference(const RulesDifference &difference, events::EventRegistry *events)
{
    for (const EventChange &change : difference.changes) {
        if (change.kind != EventChange::Kind::kRemove) {
            events->Write(change.after);
            continue;
        }
        while (events->Remove(change.before.key))
            continue; // the ID may be there twice, as 1A and 01A
    }
}

// Only what CheckEvent lets pass, or the file could not be applied again.
std::vector<events::EventRecord> EventsForFile(const std::vector<events::StoredSource> &registered,
                                               std::vector<std::string> *left_out)
{
    std::vector<events::EventRecord> events;
    std::set<ComparedKey> known;
    for (const events::StoredSource &source : registered) {
        if (source.is_new_application_type)
            continue;
        for (const events::StoredEvent &stored : source.events) {
            const std::string name = FormatEventKey(stored.event.key);
            if (!stored.problem.empty()) {
                left_out->push_back(name + ": " + stored.problem);
                continue;
            }
            try {
                events::CheckEvent(stored.event);
            } catch (const host::Error &error) {
                left_out->push_back(error.what());
                continue;
            }
            if (known.insert(ComparableKey(stored.event.key)).second)
                events.push_back(stored.event);
            else
                left_out->push_back(name + ": it is registered twice, here under the key " +
                                    stored.id_text);
        }
    }
    return events;
}

} // namespace rules
