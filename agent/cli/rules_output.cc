#include "agent/cli/rules_output.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "agent/cli/event_json.h"
#include "agent/cli/output.h"
#include "agent/text/printable.h"

namespace cli {

using events::EventKey;
using nlohmann::json;
using rules::EventChange;

namespace {

// Names of events that stay; of more, only the number is told: a host may have hundreds, and the
// line is one.
constexpr size_t kNamedEvents = 10;

// A line of a patch; its first character says which colour it has.
void PrintLine(const std::string &line, bool colours)
{
    // The mark is ours, and the escape stands outside of what is made printable.
    const char *colour = line[0] == '+' ? "\033[32m" : line[0] == '-' ? "\033[31m" : "";
    const bool coloured = colours && *colour != '\0';
    printf("%s%s%s\n", coloured ? colour : "", text::Printable(line).c_str(),
           coloured ? "\033[0m" : "");
}

std::string NamesOf(const std::vector<EventKey> &keys)
{
    std::string names;
    for (size_t i = 0; i < std::min(keys.size(), kNamedEvents); ++i)
        names += (i > 0 ? ", " : "") + rules::FormatEventKey(keys[i]);
    if (keys.size() > kNamedEvents)
        names += ", and " + std::to_string(keys.size() - kNamedEvents) + " more";
    return names;
}

void PrintStaying(const rules::RulesChange &change)
{
    if (!change.events.staying.empty()) {
        const size_t staying = change.events.staying.size();
        printf("%zu registered %s not in the file and %s (--prune removes %s): %s\n", staying,
               staying == 1 ? "event is" : "events are", staying == 1 ? "stays" : "stay",
               staying == 1 ? "it" : "them",
               text::Printable(NamesOf(change.events.staying)).c_str());
    }
    if (!change.sections.staying.empty()) {
        const bool is_one = change.sections.staying.size() == 1;
        std::string numbers;
        for (const std::string &number : change.sections.staying)
            numbers += (numbers.empty() ? "" : ", ") + number;
        printf("%s that silence add has added %s (--prune ends %s): %s\n",
               is_one ? "A silence" : "Silences", is_one ? "stays" : "stay", is_one ? "it" : "them",
               numbers.c_str());
    }
}

} // namespace

void PrintChange(const ShownChange &shown, const rules::RulesChange &change)
{
    if (!change.IsEmpty()) {
        const bool colours = TakesColour();
        PrintLine("--- " + shown.before, colours);
        PrintLine("+++ " + shown.after, colours);
        for (const auto &lines : {rules::FormatDifference(change.events),
                                  rules::FormatSectionDifference(change.sections)}) {
            for (const rules::DifferenceLine &line : lines)
                PrintLine(std::string(1, line.mark) + " " + line.text, colours);
        }
    }
    printf("%zu added, %zu changed, %zu removed, %zu unchanged.%s\n",
           change.Count(EventChange::Kind::kAdd), change.Count(EventChange::Kind::kChange),
           change.Count(EventChange::Kind::kRemove), change.Unchanged(),
           shown.dry_run ? " This was a dry run: nothing was changed." : "");
    PrintStaying(change);
}

namespace {

const char *WordOf(EventChange::Kind kind)
{
    switch (kind) {
    case EventChange::Kind::kAdd:
        return "added";
    case EventChange::Kind::kRemove:
        return "removed";
    default:
        return "changed";
    }
}

json ToJson(const EventChange &change)
{
    const bool added = change.kind == EventChange::Kind::kAdd;
    const bool removed = change.kind == EventChange::Kind::kRemove;
    json object = KeyToJson(removed ? change.before.key : change.after.key);
    object["change"] = WordOf(change.kind);
    // Both are always there, null for what there is not.
    object["before"] = added ? json(nullptr) : ValuesToJson(change.before);
    object["after"] = removed ? json(nullptr) : ValuesToJson(change.after);
    if (!change.problem.empty())
        object["problem"] = change.problem;
    return object;
}

} // namespace

json EntryToJson(const rules::EntryValue &value)
{
    return value.is_list ? json(value.texts) : json(value.texts.front());
}

json EntryToJson(const rules::EntryValues &values)
{
    json object = json::object();
    for (const rules::EntryValue &value : values)
        object[value.name] = EntryToJson(value);
    return object;
}

namespace {

json ToJson(const rules::SectionChange &change)
{
    // A setting has nothing but its value.
    const auto side = [&](const rules::EntryValues &values) {
        if (values.empty())
            return json(nullptr);
        return change.section == "settings" ? EntryToJson(values.front()) : EntryToJson(values);
    };
    return {{"section", change.section},
            {"name", change.name},
            {"change", WordOf(change.kind)},
            {"before", side(change.before)},
            {"after", side(change.after)}};
}

json ToJson(const rules::SectionDifference &difference)
{
    json changes = json::array();
    for (const rules::SectionChange &change : difference.changes)
        changes.push_back(ToJson(change));
    return {{"changes", changes},
            {"unchanged", difference.unchanged},
            {"staying_silences", difference.staying}};
}

} // namespace

json ChangeToJson(const ShownChange &shown, const rules::RulesChange &change, bool has_sections)
{
    json changes = json::array();
    for (const EventChange &event : change.events.changes)
        changes.push_back(ToJson(event));
    json staying = json::array();
    for (const EventKey &key : change.events.staying)
        staying.push_back(KeyToJson(key));
    json object = {{"file", shown.after}, {"dry_run", shown.dry_run},
                   {"changes", changes},  {"unchanged", change.events.unchanged.size()},
                   {"staying", staying},  {"warnings", change.events.warnings}};
    if (has_sections)
        object["sections"] = ToJson(change.sections);
    return object;
}

} // namespace cli
