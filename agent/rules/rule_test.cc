#include "agent/rules/rule_test.h"

#include "agent/text/duration.h"

namespace rules {

namespace {

using Kind = YamlNode::Kind;

constexpr char kAfter[] = "after";
// Of all lines of an event together: the first of them must have a stamp that the monitor takes.
constexpr int64_t kLongest = int64_t{7} * 86400;

const std::string kNextStep =
    "write what must come of the line, and the line: \"- reported: LINE\"";

bool ReadAfter(const YamlNode &node, NodeReader *nodes, RuleTest *test)
{
    const std::string next_step = "use 0s to 7d, such as 90s or 10m";
    const std::string *given = nodes->TextOf(node, "the time before a test", next_step);
    if (given == nullptr)
        return false;
    const auto span = text::ParseDuration(*given);
    if (span && *span <= kLongest) {
        test->after_s = *span;
        return true;
    }
    nodes->issues().Add(node.offset,
                        "cannot use the time " + text::Shown(*given) + " before a test",
                        "it is no span of time, or too long", next_step);
    return false;
}

bool ReadTest(const YamlNode &node, NodeReader *nodes, RuleTest *test)
{
    if (node.kind != Kind::kMap) {
        if (node.kind != Kind::kFaulty)
            nodes->issues().Add(node.offset, "cannot use a test", KindText(node.kind), kNextStep);
        return false;
    }
    Names known = kTestOutcomes;
    known.emplace_back(kAfter);
    const Values values = nodes->ReadMap(node, known, "a test");
    test->at = nodes->issues().At(node.offset);
    bool good = !values.contains(kAfter) || ReadAfter(*values.at(kAfter), nodes, test);
    for (const std::string &outcome : kTestOutcomes) {
        if (!values.contains(outcome))
            continue;
        if (!test->outcome.empty()) {
            nodes->issues().Add(node.offset, "cannot use a test",
                                "it says both " + test->outcome + " and " + outcome, kNextStep);
            return false;
        }
        const std::string *line =
            nodes->TextOf(*values.at(outcome), "the line of a test", kNextStep);
        good = line != nullptr && good;
        test->outcome = outcome;
        test->line = line != nullptr ? *line : "";
    }
    if (test->outcome.empty())
        nodes->issues().Add(node.offset, "cannot use a test",
                            "it does not say what must come of it", kNextStep);
    return good && !test->outcome.empty();
}

} // namespace

bool ReadTests(const Values &values, NodeReader *nodes, std::vector<RuleTest> *tests)
{
    const auto found = values.find("tests");
    if (found == values.end())
        return true;
    const YamlNode &list = *found->second;
    if (list.kind != Kind::kList) {
        if (list.kind != Kind::kFaulty)
            nodes->issues().Add(list.offset, "cannot use the tests of an event",
                                KindText(list.kind), kNextStep);
        return false;
    }
    bool good = true;
    int64_t sum = 0;
    for (const YamlNode &node : list.children) {
        RuleTest test;
        good = ReadTest(node, nodes, &test) && good;
        sum += test.after_s;
        tests->push_back(std::move(test));
    }
    if (sum <= kLongest)
        return good;
    nodes->issues().Add(list.offset, "cannot use the tests of an event",
                        "more than seven days pass in them", "make the times between them shorter");
    return false;
}

} // namespace rules
