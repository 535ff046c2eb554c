#include "agent/rules/policy_text.h"

#include "agent/rules/yaml_text.h"
#include "agent/text/duration.h"

namespace rules {

const std::vector<std::string> kPolicyKeys = {"severity", "labels",   "summary", "runbook_url",
                                              "within",   "cooldown", "per"};

namespace {

// Names in quotes, too: "yes" or "null" is no text to every reader of YAML.
std::string FormatLabels(const events::Labels &labels)
{
    std::string text;
    for (const auto &[name, value] : labels)
        text += (text.empty() ? "{" : ", ") + Quoted(name) + ": " + Quoted(value);
    return text + "}";
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
    if (!policy.per.empty())
        values.push_back({"per", policy.per});
    return values;
}

} // namespace rules
