#include "agent/rules/event_reader.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "agent/host/error.h"
#include "agent/rules/policy_reader.h"
#include "agent/rules/policy_text.h"

namespace rules {

namespace {

using Kind = YamlNode::Kind;

// The names of an event's values, as the schema has them.
constexpr char kSource[] = "source";
constexpr char kId[] = "id";
constexpr char kKeywords[] = "keywords";
constexpr char kReportCount[] = "report_count";
constexpr char kHours[] = "hours";
constexpr char kRegex[] = "regex"; // of its policy

const Names kPlainKeys = {kSource, kId, kKeywords, kReportCount, kHours};

} // namespace

Names EventKeys()
{
    Names names = kPlainKeys;
    names.insert(names.end(), kPolicyKeys.begin(), kPolicyKeys.end());
    names.emplace_back("tests");
    return names;
}

namespace {

// Of blanks and tabs: a text has no line end here.
std::string Trimmed(const std::string &text)
{
    const size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos)
        return "";
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

// Without the blanks around commas and dashes: "8 - 18, 22" becomes "8-18,22".
std::string WithoutBlanks(const std::string &hours)
{
    std::string result;
    std::string item;
    for (const char c : hours) {
        if (c == ',' || c == '-') {
            result += Trimmed(item) + c;
            item.clear();
        } else {
            item += c;
        }
    }
    return result + Trimmed(item);
}

// Reads events and checks all that can be said without a registry. It goes on behind each fault, so
// each is told of once, at its place.
class EventReader {
  public:
    EventReader(NodeReader *nodes, SeenEvents *seen, std::vector<Rule> *rules)
        : nodes_(nodes), issues_(&nodes->issues()), seen_(seen), rules_(rules)
    {
    }

    void ReadEvents(const YamlNode &events);

  private:
    void ReadEvent(const YamlNode &node);
    // False, and an issue, when the expression shows no text for the monitor's table.
    bool DerivesKeyword(const YamlNode &regex, const events::EventPolicy &policy);

    // Each returns false, and notes why, when the value cannot be used.
    bool ReadKey(const YamlNode &event, const Values &values, events::EventKey *key);
    bool ReadKeywords(const YamlNode &event, const Values &values, Rule *rule);
    bool ReadKeyword(const YamlNode &node, size_t index, Rule *rule);
    bool ReadReportCount(const Values &values, events::EventRecord *event);
    bool ReadHours(const Values &values, events::EventRecord *event);
    std::optional<std::string> HoursText(const YamlNode &node);

    // Asks CheckEvent, whose words become the issue. Made-up values stand in for what is not meant.
    bool Check(const events::EventRecord &event, size_t offset);
    // An issue when the event stands in the file already, or its source is written another way
    // there.
    void CheckForTwins(const Rule &rule, size_t offset);

    NodeReader *nodes_;
    text::IssueList *issues_;
    SeenEvents *seen_;
    std::vector<Rule> *rules_;
};

void EventReader::ReadEvents(const YamlNode &events)
{
    if (events.kind == Kind::kFaulty)
        return;
    if (events.kind != Kind::kList) {
        issues_->Add(events.offset, "cannot use \"events\"", KindText(events.kind),
                     "begin each event with \"- source: NAME\", or write \"events: []\" for none");
        return;
    }
    for (const YamlNode &event : events.children)
        ReadEvent(event);
}

void EventReader::ReadEvent(const YamlNode &node)
{
    if (node.kind == Kind::kFaulty)
        return;
    if (node.kind != Kind::kMap) {
        issues_->Add(node.offset, "cannot use an event", KindText(node.kind),
                     "write source, id and keywords, each as \"name: value\"");
        return;
    }
    const Values values = nodes_->ReadMap(node, EventKeys(), "an event");
    Rule rule;
    rule.at = issues_->At(node.offset);
    // All of them are read, so that all their issues are found.
    const bool has_key = ReadKey(node, values, &rule.event.key);
    const bool has_keywords = ReadKeywords(node, values, &rule);
    const bool has_count = ReadReportCount(values, &rule.event);
    const bool has_hours = ReadHours(values, &rule.event);
    const bool has_tests = ReadTests(values, nodes_, &rule.tests);
    const bool has_policy = ReadPolicy(values, nodes_, &rule.event.policy);
    if (has_keywords && has_policy && !rule.event.HasKeywords() &&
        !DerivesKeyword(*values.at(kRegex), rule.event.policy))
        return;
    if (has_count && has_policy && rule.event.policy.within_s > 0 &&
        rule.event.report_count > events::kMostWithin) {
        issues_->Add(values.at(kReportCount)->offset,
                     "cannot use the report count " + std::to_string(rule.event.report_count),
                     "its hits are to come within a time",
                     "use a number from 1 to 10000, or leave out \"within\"");
        return;
    }
    // Also of an event that is faulty otherwise: its twin is a mistake of its own.
    if (has_key)
        CheckForTwins(rule, node.offset);
    const bool is_whole = has_key && has_keywords && has_count && has_hours && has_policy;
    if (is_whole && values.contains("absent") && !Check(rule.event, values.at("absent")->offset))
        return; // what goes with it, and what does not
    if (is_whole && has_tests)
        rules_->push_back(std::move(rule));
}

bool EventReader::DerivesKeyword(const YamlNode &regex, const events::EventPolicy &policy)
{
    try {
        events::CheckDerivedKeyword(policy);
    } catch (const host::Error &error) {
        issues_->Add(regex.offset, error.what());
        return false;
    }
    return true;
}

bool EventReader::Check(const events::EventRecord &event, size_t offset)
{
    try {
        events::CheckEvent(event);
    } catch (const host::Error &error) {
        issues_->Add(offset, error.what());
        return false;
    }
    return true;
}

// Both values are looked at, whatever is wrong with the first.
bool EventReader::ReadKey(const YamlNode &event, const Values &values, events::EventKey *key)
{
    bool good = true;
    for (const char *name : {kSource, kId}) {
        if (!values.contains(name)) {
            issues_->Add(event.offset, "cannot use an event",
                         std::string("it has no \"") + name + ":\"",
                         "write its source, its id and its keywords");
            good = false;
        }
    }
    if (values.contains(kSource)) {
        const YamlNode &node = *values.at(kSource);
        const std::string *text = nodes_->TextOf(node, "the source of an event",
                                                 "write the name of the source, in quotes");
        // The rules for names are those of every event; the rest of this one is harmless.
        if (text != nullptr && Check({{*text, 0}, {"any", "", ""}}, node.offset))
            key->source = *text;
        good = good && !key->source.empty();
    }
    if (values.contains(kId)) {
        const YamlNode &node = *values.at(kId);
        const std::string *text =
            nodes_->TextOf(node, "the ID of an event", "write one to eight hexadecimal digits");
        try {
            key->id = text != nullptr ? events::ParseEventId(*text) : 0;
            good = text != nullptr && good;
        } catch (const host::Error &error) {
            issues_->Add(node.offset, error.what());
            good = false;
        }
    }
    return good;
}

void EventReader::CheckForTwins(const Rule &rule, size_t offset)
{
    const events::EventKey &key = rule.event.key;
    const auto comparable = ComparableKey(key);
    const auto [twin, is_first] = seen_->place_of_event.emplace(comparable, rule.at);
    if (!is_first) {
        issues_->Add(offset,
                     "cannot use event " + text::Shown(key.source) + " " +
                         events::FormatEventId(key.id),
                     "it stands already in " + nodes_->PlaceOf(twin->second),
                     "write each pair of source and ID once");
        return;
    }
    const auto [source, is_new] =
        seen_->spelling_of_source.emplace(comparable.first, std::pair{key.source, rule.at});
    const auto &[spelling, at] = source->second;
    if (!is_new && spelling != key.source)
        issues_->Add(offset, "cannot use the source " + text::Shown(key.source),
                     nodes_->PlaceOf(at) + " writes it " + text::Shown(spelling) +
                         ", and the registry does not tell small letters from capitals",
                     "write it the same way everywhere");
}

// Each keyword is checked at its own place, so its issue stands where it does.
bool EventReader::ReadKeywords(const YamlNode &event, const Values &values, Rule *rule)
{
    const std::string next_step = "write one to three texts that a line must contain, such as "
                                  "[\"kernel:\", \"I/O error\"]";
    // The text that its expression needs is as good, if there is one: see below.
    if (!values.contains(kKeywords) && values.contains(kRegex))
        return true;
    if (!values.contains(kKeywords)) {
        issues_->Add(event.offset, "cannot use an event", "it has no \"keywords:\"", next_step);
        return false;
    }
    const YamlNode &node = *values.at(kKeywords);
    if (node.kind != Kind::kText && node.kind != Kind::kList) {
        nodes_->TextOf(node, "the keywords of an event", next_step);
        return false;
    }
    // A single text stands for a list of one.
    const YamlNode *first = node.kind == Kind::kText ? &node : node.children.data();
    const size_t count = node.kind == Kind::kText ? 1 : node.children.size();
    // At the first that is too many.
    if (count > rule->event.keywords.size()) {
        issues_->Add(first[rule->event.keywords.size()].offset,
                     "cannot use the keywords of an event",
                     "there are " + std::to_string(count) + " of them", "give at most three");
        return false;
    }
    bool good = true;
    for (size_t k = 0; k < count; ++k)
        // In this order, so that each of them is read.
        good = ReadKeyword(first[k], k, rule) && good;
    // The places count: an empty keyword may stand before others, as it may in the registry.
    const bool all_empty = std::all_of(rule->event.keywords.begin(), rule->event.keywords.end(),
                                       [](const std::string &keyword) { return keyword.empty(); });
    if (all_empty && values.contains(kRegex))
        return good;
    if (good && all_empty)
        issues_->Add(node.offset, "cannot use the keywords of an event",
                     count == 0 ? "there are none" : "they are all empty", next_step);
    return good && !all_empty;
}

bool EventReader::ReadKeyword(const YamlNode &node, size_t index, Rule *rule)
{
    const std::string *text = nodes_->TextOf(
        node, "a keyword", "write a text; one with \": \" or \" #\" in it needs quotes");
    rule->keywords_at[index] = issues_->At(node.offset);
    if (text == nullptr)
        return false;
    rule->event.keywords[index] = *text;
    if (text->empty())
        return true; // no condition; the caller sees to it that there is another one
    events::EventRecord alone = rule->event;
    if (alone.key.source.empty())
        alone.key.source = "?"; // noted elsewhere
    alone.keywords = {*text, "", ""};
    return Check(alone, node.offset);
}

// Left out, it stays at its default. So do the hours.
bool EventReader::ReadReportCount(const Values &values, events::EventRecord *event)
{
    if (!values.contains(kReportCount))
        return true;
    const YamlNode &node = *values.at(kReportCount);
    const std::string next_step = "use a number from 1 to 2147483647, or leave it out for 1";
    const std::string *text = nodes_->TextOf(node, "the report count of an event", next_step);
    if (text == nullptr)
        return false;
    const char *end = text->data() + text->size();
    // No blank, no sign, nothing behind it: 1e3 and 0x10 are other numbers elsewhere.
    const auto [stopped, failed] = std::from_chars(text->data(), end, event->report_count);
    if (failed == std::errc() && stopped == end && event->report_count >= 1)
        return true;
    issues_->Add(node.offset, "cannot use the report count " + text::Shown(*text),
                 "it is not a whole number in that range", next_step);
    return false;
}

// A list is the same as a text with commas: the rules for hours stand in one place, ParseHours.
std::optional<std::string> EventReader::HoursText(const YamlNode &node)
{
    const std::string what = "the hours of an event";
    const std::string next_step = "write all, none, or hours and spans from 0 to 24, such as 8-18 "
                                  "or [22-6, 12]";
    if (node.kind != Kind::kList) {
        const std::string *text = nodes_->TextOf(node, what, next_step);
        return text != nullptr ? std::optional(WithoutBlanks(*text)) : std::nullopt;
    }
    std::string joined;
    for (const YamlNode &item : node.children) {
        const std::string *text = nodes_->TextOf(item, what, next_step);
        if (text == nullptr)
            return std::nullopt;
        joined += (&item == &node.children.front() ? "" : ",") + WithoutBlanks(*text);
    }
    return joined;
}

bool EventReader::ReadHours(const Values &values, events::EventRecord *event)
{
    if (!values.contains(kHours))
        return true;
    const YamlNode &node = *values.at(kHours);
    const auto text = HoursText(node);
    if (!text)
        return false;
    try {
        event->hours = events::ParseHours(*text);
    } catch (const host::Error &error) {
        issues_->Add(node.offset, error.what());
        return false;
    }
    return true;
}

} // namespace

std::pair<std::string, uint32_t> ComparableKey(const events::EventKey &key)
{
    std::string source = key.source;
    for (char &c : source) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return {source, key.id};
}

void ReadEvents(const YamlNode &events, NodeReader *nodes, SeenEvents *seen,
                std::vector<Rule> *rules)
{
    EventReader(nodes, seen, rules).ReadEvents(events);
}

} // namespace rules
