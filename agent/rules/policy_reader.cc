#include "agent/rules/policy_reader.h"

#include "agent/host/error.h"
#include "agent/policy/expression.h"
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

// Compiled as the agent compiles it. The place is that of the mistake where the expression stands in the
// file as it is, and that of its value where it is written with escapes.
bool Compiles(const YamlNode &node, NodeReader *nodes)
{
    const policy::Expression expression(node.text, policy::Expression::Kind::kExpression, false);
    const auto mistake = expression.Mistake();
    if (!mistake)
        return true;
    size_t at = node.offset;
    for (const size_t quote : {size_t{0}, size_t{1}}) {
        if (nodes->issues().Reads(node.offset + quote, node.text))
            at = node.offset + quote + mistake->at;
    }
    nodes->issues().Add(at, "cannot use the expression " + text::Shown(node.text), mistake->what,
                        "use an expression as re2 has them");
    return false;
}

bool ReadRegex(const Values &values, NodeReader *nodes, std::string *regex)
{
    if (!ReadText(values, "regex", "write an expression, in quotes", nodes, regex,
                  events::CheckRegex))
        return false;
    return !values.contains("regex") || Compiles(*values.at("regex"), nodes);
}

// A text, or a mapping with an expression.
bool ReadExcludedOne(const YamlNode &node, NodeReader *nodes, events::ExcludedText *excluded)
{
    const std::string next_step = "write a text, or {regex: EXPRESSION}";
    const YamlNode *value = &node;
    if (node.kind == Kind::kMap) {
        const Values values = nodes->ReadMap(node, {"regex"}, "what is left out");
        if (!values.contains("regex"))
            return false; // an issue was noted for its other names
        value = values.at("regex");
        excluded->is_expression = true;
    }
    const std::string *given = nodes->TextOf(*value, "what is left out", next_step);
    if (given == nullptr || !Passes(*value, nodes, [&] { events::CheckExcluded(*given); }))
        return false;
    excluded->text = *given;
    return !excluded->is_expression || Compiles(*value, nodes);
}

bool ReadExcluded(const Values &values, NodeReader *nodes, events::EventPolicy *policy)
{
    const auto found = values.find("not");
    if (found == values.end())
        return true;
    const YamlNode &node = *found->second;
    // A single one stands for a list of one.
    const bool is_list = node.kind == Kind::kList;
    const YamlNode *first = is_list ? node.children.data() : &node;
    bool good = true;
    for (size_t i = 0; i < (is_list ? node.children.size() : 1); ++i) {
        events::ExcludedText excluded;
        if (ReadExcludedOne(first[i], nodes, &excluded))
            policy->except.push_back(excluded);
        else
            good = false;
    }
    return good;
}

bool ReadIgnoreCase(const Values &values, NodeReader *nodes, events::EventPolicy *policy)
{
    const auto found = values.find("ignore_case");
    if (found == values.end())
        return true;
    const std::string *given =
        nodes->TextOf(*found->second, "ignore_case of an event", "use true or false");
    if (given == nullptr)
        return false;
    policy->ignore_case = *given == "true";
    if (policy->ignore_case || *given == "false")
        return true;
    nodes->issues().Add(found->second->offset, "cannot use ignore_case " + text::Shown(*given),
                        "it is neither true nor false", "use true or false");
    return false;
}

// What depends on several of the values: a name in the summary, and what is counted for, on the
// expression. Each has its own place.
bool CheckTogether(const Values &values, NodeReader *nodes, const events::EventPolicy &policy,
                   bool expressions_are_good)
{
    bool good = true;
    const auto check = [&](const char *name, const auto &action) {
        if (values.contains(name))
            good = Passes(*values.at(name), nodes, action) && good;
    };
    // An expression that cannot be read has no groups yet.
    const bool has_groups = expressions_are_good || policy.regex.empty();
    events::EventPolicy alone;
    alone.regex = policy.regex;
    if (!policy.regex.empty() && has_groups)
        check("regex", [&] { policy::CheckGroups(alone); });
    if (!good || !has_groups)
        return good;
    check("per", [&] {
        alone.per = policy.per;
        policy::CheckGroups(alone);
    });
    check("summary", [&] {
        alone.per.clear();
        alone.summary = policy.summary;
        policy::CheckGroups(alone);
    });
    check("absent", [&] { events::CheckPolicy(policy); });
    check("ignore_case", [&] { events::CheckPolicy(policy); });
    check("not", [&] { events::CheckPolicy(policy); });
    return good;
}

} // namespace

bool ReadPolicy(const Values &values, NodeReader *nodes, events::EventPolicy *policy)
{
    // All of them are read, so that all their issues are found.
    bool good = ReadText(values, "severity", "use " + Listed(events::kSeverities), nodes,
                         &policy->severity, events::CheckSeverity);
    good = ReadLabels(values, nodes, &policy->labels) && good;
    good =
        ReadText(values, "summary", "write a text, such as \"disk of {{host}}\"", nodes,
                 &policy->summary, [](const std::string &text) { events::CheckSummary(text); }) &&
        good;
    good = ReadText(values, "runbook_url", "write an address, such as https://wiki/disk", nodes,
                    &policy->runbook_url, events::CheckRunbookUrl) &&
           good;
    good = ReadSpan(values, "within", nodes, &policy->within_s) && good;
    good = ReadSpan(values, "cooldown", nodes, &policy->cooldown_s) && good;
    good = ReadSpan(values, "absent", nodes, &policy->absent_s) && good;
    good = ReadText(values, "per", "use host, program, or a group of the expression", nodes,
                    &policy->per, events::CheckPer) &&
           good;
    good = ReadRegex(values, nodes, &policy->regex) && good;
    good = ReadExcluded(values, nodes, policy) && good;
    good = ReadIgnoreCase(values, nodes, policy) && good;
    return CheckTogether(values, nodes, *policy, good) && good;
}

} // namespace rules
