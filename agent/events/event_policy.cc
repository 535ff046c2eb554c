#include "agent/events/event_policy.h"

#include <algorithm>
#include <cstdio>
#include <optional>

#include "agent/host/error.h"
#include "agent/host/registry_values.h"
#include "agent/text/duration.h"
#include "agent/text/suggestion.h"
#include "platform/registry.h"

namespace events {

namespace {

constexpr char kPolicyKey[] = "POLICY";
constexpr char kLabelsKey[] = "LABELS"; // below it; a value for each label

// Texts of a policy, by their names in the registry.
struct TextValue {
    const char *name;
    std::string EventPolicy::*text;
};
constexpr TextValue kTextValues[] = {{"Severity", &EventPolicy::severity},
                                     {"Summary", &EventPolicy::summary},
                                     {"RunbookUrl", &EventPolicy::runbook_url},
                                     {"Per", &EventPolicy::per},
                                     {"Regex", &EventPolicy::regex}};

// The numbers, likewise.
struct NumberValue {
    const char *name;
    int64_t EventPolicy::*number;
};
constexpr NumberValue kNumberValues[] = {{"Within", &EventPolicy::within_s},
                                         {"Cooldown", &EventPolicy::cooldown_s},
                                         {"Absent", &EventPolicy::absent_s}};
constexpr char kCountValue[] = "ReportCount"; // when the policy counts
constexpr char kIgnoreCaseValue[] = "IgnoreCase";
constexpr char kDerivedValue[] = "KeywordIsDerived";

// Below it, values in the order of their names: 001, 002. The first letter of each tells its kind.
constexpr char kExceptKey[] = "NOT";
constexpr char kTextLetter = 't';
constexpr char kExpressionLetter = 'e';

// Times of lines reach back to the beginning of the month before this one.
constexpr int64_t kLongestSpan = int64_t{31} * 86400;

// An alert is stored with all of it, so none of it is long.
constexpr size_t kMaxLabels = 32;
constexpr size_t kMaxLabelName = 64;
constexpr size_t kMaxLabelValue = 256;
constexpr size_t kMaxSummary = 1024;
constexpr size_t kMaxUrl = 1024;
constexpr size_t kMaxExpression = 1024;
constexpr size_t kMaxExcluded = 32;

bool IsControl(char c)
{
    return static_cast<unsigned char>(c) < ' ' || c == 0x7F;
}

// A text of 1 to `most` bytes that stands in one line.
bool IsLineOfText(const std::string &text, size_t most)
{
    return !text.empty() && text.size() <= most &&
           std::none_of(text.begin(), text.end(), IsControl);
}

std::string Shortened(const std::string &text)
{
    return "\"" + text.substr(0, 60) + "\"";
}

bool IsOfNames(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

std::string InSmallLetters(std::string name)
{
    for (char &c : name)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return name;
}

// "critical", "error" and "warn" are what other programs call them.
std::string SeverityMeant(const std::string &name)
{
    constexpr size_t kShortest = 3; // of a part that says which one is meant
    for (const std::string &known : kSeverities) {
        if (name.size() >= kShortest && (name.starts_with(known) || known.starts_with(name)))
            return "did you mean " + known + "? ";
    }
    return text::Suggestion(name, kSeverities);
}

} // namespace

void CheckSeverity(const std::string &severity)
{
    if (std::find(kSeverities.begin(), kSeverities.end(), severity) != kSeverities.end())
        return;
    std::string known;
    for (const std::string &name : kSeverities)
        known += (known.empty() ? "" : ", ") + name;
    throw host::Error("cannot use the severity " + Shortened(severity),
                      "there is none of that name", SeverityMeant(severity) + "use " + known);
}

bool IsLabelName(const std::string &name)
{
    return !name.empty() && name.size() <= kMaxLabelName && (name[0] < '0' || name[0] > '9') &&
           std::all_of(name.begin(), name.end(), IsOfNames);
}

void CheckLabel(const std::string &name, const std::string &value)
{
    if (!IsLabelName(name))
        throw host::Error("cannot use the label " + Shortened(name), "its name is none for a label",
                          "use 1 to 64 letters, digits and _, no digit first");
    if (!IsLineOfText(value, kMaxLabelValue))
        throw host::Error("cannot use the label " + Shortened(name),
                          "its value is empty, too long, or holds a control character",
                          "use a text of 1 to 256 bytes");
}

// The registry tells no small letters from capitals, so two such labels would be one.
void CheckLabels(const Labels &labels)
{
    if (labels.size() > kMaxLabels)
        throw host::Error("cannot use the labels of an event",
                          "there are " + std::to_string(labels.size()) + " of them",
                          "give at most 32");
    std::map<std::string, std::string> spelled;
    for (const auto &[name, value] : labels) {
        const auto [twin, is_new] = spelled.emplace(InSmallLetters(name), name);
        if (!is_new)
            throw host::Error("cannot use the label " + Shortened(name),
                              "there is " + Shortened(twin->second) +
                                  " already, and small letters are not told from capitals",
                              "choose another name");
    }
}

void CheckSummary(const std::string &summary)
{
    if (!IsLineOfText(summary, kMaxSummary))
        throw host::Error("cannot use the summary " + Shortened(summary),
                          "it is empty, too long, or holds a control character",
                          "use a text of 1 to 1024 bytes");
}

void CheckRunbookUrl(const std::string &url)
{
    const bool is_url = url.starts_with("http://") || url.starts_with("https://");
    if (!is_url || !IsLineOfText(url, kMaxUrl) || url.find(' ') != std::string::npos)
        throw host::Error("cannot use the address " + Shortened(url),
                          "it does not begin with http:// or https://, is too long, or holds a "
                          "blank or a control character",
                          "use an address of at most 1024 bytes");
}

void CheckSpan(const char *name, int64_t seconds)
{
    if (seconds < 1 || seconds > kLongestSpan)
        throw host::Error("cannot use the time \"" + text::FormatDuration(seconds) + "\" of " +
                              name,
                          "it is out of range", "use 1s to 31d, such as 90s, 10m or 1h30m");
}

void CheckPer(const std::string &per)
{
    const bool is_name = std::all_of(per.begin(), per.end(), IsOfNames);
    if (!is_name || !IsLineOfText(per, kMaxLabelName))
        throw host::Error("cannot count per " + Shortened(per), "there is no such thing",
                          "use host, program, or a group of the expression");
}

void CheckRegex(const std::string &regex)
{
    if (!IsLineOfText(regex, kMaxExpression))
        throw host::Error("cannot use the expression " + Shortened(regex),
                          "it is empty, too long, or holds a control character",
                          "use an expression of 1 to 1024 bytes, with \\t for a tab");
}

void CheckExcluded(const std::string &text)
{
    if (!IsLineOfText(text, kMaxExpression))
        throw host::Error("cannot leave out lines with " + Shortened(text),
                          "the text is empty, too long, or holds a control character",
                          "use a text of 1 to 1024 bytes");
}

void CheckPolicy(const EventPolicy &policy)
{
    if (!policy.regex.empty())
        CheckRegex(policy.regex);
    for (const ExcludedText &excluded : policy.except)
        CheckExcluded(excluded.text);
    if (policy.except.size() > kMaxExcluded)
        throw host::Error("cannot use what is left out",
                          "there are " + std::to_string(policy.except.size()) + " texts",
                          "give at most 32");
    if (policy.ignore_case && policy.regex.empty() && policy.except.empty())
        throw host::Error("cannot ignore the case", "there is neither \"regex\" nor \"not\"",
                          "add one of them; keywords are searched as they are written");
    if (policy.within_s != 0)
        CheckSpan("within", policy.within_s);
    if (policy.cooldown_s != 0)
        CheckSpan("cooldown", policy.cooldown_s);
    if (policy.absent_s != 0)
        CheckSpan("absent", policy.absent_s);
    if (policy.absent_s != 0 && (policy.within_s != 0 || policy.cooldown_s != 0))
        throw host::Error("cannot use \"within\" or \"cooldown\" with \"absent\"",
                          "an event that tells of lines that do not come tells of no line",
                          "leave them out, or register a second event");
    if (!policy.per.empty())
        CheckPer(policy.per);
    if (!policy.severity.empty())
        CheckSeverity(policy.severity);
    for (const auto &[name, value] : policy.labels)
        CheckLabel(name, value);
    CheckLabels(policy.labels);
    if (!policy.summary.empty())
        CheckSummary(policy.summary);
    if (!policy.runbook_url.empty())
        CheckRunbookUrl(policy.runbook_url);
}

std::string JoinLabels(const Labels &labels)
{
    std::string text;
    for (const auto &[name, value] : labels) {
        text += name;
        text += '=';
        text += value;
        text += '\n';
    }
    return text;
}

Labels SplitLabels(const std::string &text)
{
    Labels labels;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        // Within the line alone: what others have sent may be many lines without a sign.
        const std::string line = text.substr(at, end - at);
        const size_t sign = line.find('=');
        if (sign != std::string::npos)
            labels[line.substr(0, sign)] = line.substr(sign + 1);
        at = end + 1;
    }
    return labels;
}

EventPolicy ReadPolicy(host::RegistryTree &registry, host::KeyId event_key, int32_t *report_count,
                       bool *keyword_is_derived)
{
    EventPolicy policy;
    const auto key = registry.Find(event_key, kPolicyKey);
    if (!key)
        return policy;
    for (const TextValue &value : kTextValues) {
        const auto stored = registry.Get(*key, value.name);
        if (stored && stored->type == REG_SZ)
            policy.*value.text = host::TextOf(*stored);
    }
    for (const NumberValue &value : kNumberValues)
        policy.*value.number = host::NumberOf(registry.Get(*key, value.name)).value_or(0);
    policy.ignore_case = host::NumberOf(registry.Get(*key, kIgnoreCaseValue)).value_or(0) != 0;
    *keyword_is_derived = host::NumberOf(registry.Get(*key, kDerivedValue)).value_or(0) != 0;
    if (const auto except = registry.Find(*key, kExceptKey)) {
        for (const host::RegValue &excluded : registry.Values(*except)) {
            const std::string text = excluded.type == REG_SZ ? host::TextOf(excluded) : "";
            if (!text.empty())
                policy.except.push_back({text.substr(1), text[0] == kExpressionLetter});
        }
    }
    if (policy.Counts())
        *report_count =
            static_cast<int32_t>(host::NumberOf(registry.Get(*key, kCountValue)).value_or(1));
    if (const auto labels = registry.Find(*key, kLabelsKey)) {
        for (const host::RegValue &label : registry.Values(*labels)) {
            if (label.type == REG_SZ)
                policy.labels[label.name] = host::TextOf(label);
        }
    }
    return policy;
}

// All anew: what is not set must not stay from before.
void WritePolicy(host::RegistryTree &registry, host::KeyId event_key, const EventPolicy &policy,
                 int32_t report_count, bool keyword_is_derived)
{
    if (const auto old = registry.Find(event_key, kPolicyKey))
        registry.DeleteKey(*old);
    if (policy.IsEmpty())
        return;
    const host::KeyId key = registry.Create(event_key, kPolicyKey);
    for (const TextValue &value : kTextValues) {
        if (!(policy.*value.text).empty())
            host::SetText(registry, key, value.name, policy.*value.text);
    }
    for (const NumberValue &value : kNumberValues) {
        if (policy.*value.number != 0)
            host::SetNumber(registry, key, value.name, static_cast<uint32_t>(policy.*value.number));
    }
    if (policy.Counts())
        host::SetNumber(registry, key, kCountValue, static_cast<uint32_t>(report_count));
    if (policy.ignore_case)
        host::SetNumber(registry, key, kIgnoreCaseValue, 1);
    if (keyword_is_derived)
        host::SetNumber(registry, key, kDerivedValue, 1);
    if (!policy.except.empty()) {
        const host::KeyId except = registry.Create(key, kExceptKey);
        for (size_t i = 0; i < policy.except.size(); ++i) {
            char name[24];
            snprintf(name, sizeof name, "%03zu", i + 1);
            const ExcludedText &excluded = policy.except[i];
            host::SetText(registry, except, name,
                          (excluded.is_expression ? kExpressionLetter : kTextLetter) +
                              excluded.text);
        }
    }
    if (policy.labels.empty())
        return;
    const host::KeyId labels = registry.Create(key, kLabelsKey);
    for (const auto &[name, text] : policy.labels)
        host::SetText(registry, labels, name, text);
}

} // namespace events
