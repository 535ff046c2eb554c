#include "agent/rules/policy_reader.h"

#include "agent/host/error.h"
#include "agent/policy/summary.h"
#include "agent/text/duration.h"

namespace rules {

namespace {

using Kind = YamlNode::Kind;

// What `check` throws becomes an issue at the place of the node.
template <typename Check>
bool Passes(const YamlNode &node, NodeReader *nodes, const Check &check)
{
    try {
        check();
    } catch (const host::Error &error) {
        nodes->issues().Add(node.offset, error.what());
        return false;
    }
    return true;
}

// A value that is one text. It is checked also when it is empty: whoever writes its name wants one.
template <typename Check>
bool ReadText(const Values &values, const char *name, const std::string &next_step,
              NodeReader *nodes, std::string *text, const Check &check)
{
    const auto found = values.find(name);
    if (found == values.end())
        return true;
    const YamlNode &node = *found->second;
    const std::string *given =
        nodes->TextOf(node, std::string("the ") + name + " of an event", next_step);
    if (given == nullptr || !Passes(node, nodes, [&] { check(*given); }))
        return false;
    *text = *given;
    return true;
}

bool ReadSpan(const Values &values, const char *name, NodeReader *nodes, int64_t *seconds)
{
    const auto found = values.find(name);
    if (found == values.end())
        return true;
    const YamlNode &node = *found->second;
    const std::string next_step = "use 1s to 31d, such as 90s, 10m or 1h30m";
    const std::string what = std::string("the ") + name + " of an event";
    const std::string *given = nodes->TextOf(node, what, next_step);
    if (given == nullptr)
        return false;
    const auto span = text::ParseDuration(*given);
    if (!span)
        nodes->issues().Add(node.offset,
                            "cannot use the time " + text::Shown(*given) + " of " + name,
                            "it is no span of time", next_step);
    if (!span || !Passes(node, nodes, [&] { events::CheckSpan(name, *span); }))
        return false;
    *seconds = *span;
    return true;
}

bool ReadLabels(const Values &values, NodeReader *nodes, events::Labels *labels)
{
    const auto found = values.find("labels");
    if (found == values.end())
        return true;
    const YamlNode &node = *found->second;
    const std::string next_step = "write a mapping of names and texts, such as {team: storage}";
    if (node.kind != Kind::kMap) {
        if (node.kind != Kind::kFaulty)
            nodes->issues().Add(node.offset, "cannot use the labels of an event",
                                KindText(node.kind), next_step);
        return false;
    }
    bool good = true;
    for (size_t i = 0; i + 1 < node.children.size(); i += 2) {
        const YamlNode &name = node.children[i];
        const std::string *value = nodes->TextOf(node.children[i + 1], "a label", next_step);
        good = value != nullptr && good;
        if (value == nullptr || name.kind == Kind::kFaulty)
            continue;
        const bool is_good = Passes(name, nodes, [&] { events::CheckLabel(name.text, *value); });
        if (is_good && !labels->emplace(name.text, *value).second)
            nodes->issues().Add(name.offset, "cannot use the label " + text::Shown(name.text),
                                "it stands twice in one mapping", "write it once");
        good = is_good && good;
    }
    return Passes(node, nodes, [&] { events::CheckLabels(*labels); }) && good;
}

} // namespace

bool ReadPolicy(const Values &values, NodeReader *nodes, events::EventPolicy *policy)
{
    // All of them are read, so that all their issues are found.
    bool good = ReadText(values, "severity", "use " + Listed(events::kSeverities), nodes,
                         &policy->severity, events::CheckSeverity);
    good = ReadLabels(values, nodes, &policy->labels) && good;
    good = ReadText(values, "summary", "write a text, such as \"disk of {{host}}\"", nodes,
                    &policy->summary,
                    [](const std::string &text) {
                        events::CheckSummary(text);
                        policy::CheckTemplate(text);
                    }) &&
           good;
    good = ReadText(values, "runbook_url", "write an address, such as https://wiki/disk", nodes,
                    &policy->runbook_url, events::CheckRunbookUrl) &&
           good;
    good = ReadSpan(values, "within", nodes, &policy->within_s) && good;
    good = ReadSpan(values, "cooldown", nodes, &policy->cooldown_s) && good;
    good = ReadText(values, "per", "use host or program", nodes, &policy->per, events::CheckPer) &&
           good;
    return good;
}

} // namespace rules
