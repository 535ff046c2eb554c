#include "agent/rules/policy_text.h"

#include "agent/rules/yaml_text.h"
#include "agent/text/duration.h"

namespace rules {

const std::vector<std::string> kPolicyKeys = {"severity", "labels",   "summary",    "runbook_url",
                                              "within",   "cooldown", "absent",     "per",
                                              "regex",    "not",      "ignore_case"};

namespace {

// Names in quotes, too: "yes" or "null" is no text to every reader of YAML.
std::string FormatLabels(const events::Labels &labels)
{
    std::string text;
    for (const auto &[name, value] : labels)
        text += (text.empty() ? "{" : ", ") + Quoted(name) + ": " + Quoted(value);
    return text + "}";
}

std::string FormatExcluded(const std::vector<events::ExcludedText> &except)
{
    std::string text;
    for (const events::ExcludedText &excluded : except)
        text += (text.empty() ? "[" : ", ") + (excluded.is_expression
                                                   ? "{regex: " + Quoted(excluded.text) + "}"
                                                   : Quoted(excluded.text));
    return text + "]";
}

// A group by its number: text to other readers of YAML, too.
bool IsNumber(const std::string &text)
{
    return text.find_first_not_of("0123456789") == std::string::npos;
}

} // namespace

std::vector<ShownValue> ShownPolicy(const events::EventPolicy &policy)
{
    std::vector<ShownValue> values;
    if (!policy.severity.empty())
        values.push_back({"severity", policy.severity});
    if (!policy.labels.empty())
        values.push_back({"labels", FormatLabels(policy.labels)});
    if (!policy.summary.empty())
        values.push_back({"summary", Quoted(policy.summary)});
    if (!policy.runbook_url.empty())
        values.push_back({"runbook_url", Quoted(policy.runbook_url)});
    if (policy.within_s > 0)
        values.push_back({"within", text::FormatDuration(policy.within_s)});
    if (policy.cooldown_s > 0)
        values.push_back({"cooldown", text::FormatDuration(policy.cooldown_s)});
    if (policy.absent_s > 0)
        values.push_back({"absent", text::FormatDuration(policy.absent_s)});
    if (!policy.per.empty())
        values.push_back({"per", IsNumber(policy.per) ? Quoted(policy.per) : policy.per});
    if (!policy.regex.empty())
        values.push_back({"regex", Quoted(policy.regex)});
    if (!policy.except.empty())
        values.push_back({"not", FormatExcluded(policy.except)});
    if (policy.ignore_case)
        values.push_back({"ignore_case", "true"});
    return values;
}

} // namespace rules
