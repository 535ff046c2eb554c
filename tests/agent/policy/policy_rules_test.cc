// The policies of events in rules files: each key with what is allowed and what is not.
#include "agent/rules/rules_diff.h"
#include "agent/rules/rules_file.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/issues_test.h"

namespace {

using events::EventPolicy;

std::string File(const std::string &values)
{
    return "events:\n- source: B\n  id: 1\n  keywords: x\n" + values + "\n";
}

std::string Issues(const std::string &values)
{
    return test::Text(rules::ParseRules(File(values)).issues);
}

EventPolicy Policy(const std::string &values)
{
    const auto parsed = rules::ParseRules(File(values));
    EXPECT_EQ("", test::Text(parsed.issues));
    return parsed.rules.empty() ? EventPolicy() : parsed.rules[0].event.policy;
}

TEST(PolicyInARulesFile, AnEventWithoutOneHasNone)
{
    EXPECT_TRUE(Policy("").IsEmpty());
}

TEST(PolicyInARulesFile, SeverityIsOneOfSyslogsNames)
{
    for (const std::string &name : events::kSeverities)
        EXPECT_EQ(name, Policy("  severity: " + name).severity);
    const std::string names = "use emerg, alert, crit, err, warning, notice, info, debug\n";
    EXPECT_EQ("5:13: cannot use the severity \"error\": there is none of that name; " + names,
              Issues("  severity: error"));
    EXPECT_EQ("5:13: cannot use the severity \"\": there is none of that name; " + names,
              Issues("  severity: \"\""));
    EXPECT_EQ("5:13: cannot use the severity of an event: it is a list; " + names,
              Issues("  severity: [err]"));
}

TEST(PolicyInARulesFile, LabelsAreNamesAndTexts)
{
    EXPECT_EQ((events::Labels{{"team", "storage"}, {"tier", "1"}}),
              Policy("  labels: {team: storage, tier: 1}").labels);
    EXPECT_EQ("5:12: cannot use the label \"a-b\": its name is none for a label; use 1 to 64 "
              "letters, digits and _, no digit first\n",
              Issues("  labels: {a-b: c}"));
    EXPECT_EQ("6:5: cannot use the label \"a\": its value is empty, too long, or holds a control "
              "character; use a text of 1 to 256 bytes\n",
              Issues("  labels:\n    a: \"\""));
    EXPECT_EQ("5:11: cannot use the labels of an event: it is a text; write a mapping of names and "
              "texts, such as {team: storage}\n",
              Issues("  labels: team"));
    EXPECT_EQ("5:15: cannot use a label: it is a list; write a mapping of names and texts, such as "
              "{team: storage}\n",
              Issues("  labels: {a: [b]}"));
    EXPECT_EQ("5:18: cannot use the label \"a\": it stands twice in one mapping; write it once\n",
              Issues("  labels: {a: b, a: c}"));
    EXPECT_EQ("5:11: cannot use the label \"a\": there is \"A\" already, and small letters are not "
              "told from capitals; choose another name\n",
              Issues("  labels: {a: b, A: c}"));
    std::string many;
    for (int i = 0; i < 33; ++i)
        many += "\n    l" + std::to_string(i) + ": x";
    EXPECT_EQ("6:5: cannot use the labels of an event: there are 33 of them; give at most 32\n",
              Issues("  labels:" + many));
}

TEST(PolicyInARulesFile, SummaryIsATemplate)
{
    EXPECT_EQ("disk of {{host}}", Policy("  summary: disk of {{host}}").summary);
    EXPECT_EQ("5:12: cannot use the template \"{{hst}}\": there is no {{hst}}; did you mean "
              "host? use {{host}}, {{program}}, {{message}}\n",
              Issues("  summary: \"{{hst}}\""));
    EXPECT_EQ("5:12: cannot use the template \"a {{host\": it has a mistake (Unclosed tag at 2); "
              "write names as {{host}}\n",
              Issues("  summary: \"a {{host\""));
    EXPECT_EQ("5:12: cannot use the summary \"\": it is empty, too long, or holds a control "
              "character; use a text of 1 to 1024 bytes\n",
              Issues("  summary: \"\""));
    EXPECT_NE("", Issues("  summary: " + std::string(1025, 'x')));
    EXPECT_EQ("", Issues("  summary: " + std::string(1024, 'x')));
}

TEST(PolicyInARulesFile, RunbookIsAnAddress)
{
    EXPECT_EQ("https://wiki/a?b=c#d", Policy("  runbook_url: https://wiki/a?b=c#d").runbook_url);
    EXPECT_EQ(
        "5:16: cannot use the address \"wiki/a\": it does not begin with http:// or https://, "
        "is too long, or holds a blank or a control character; use an address of at most "
        "1024 bytes\n",
        Issues("  runbook_url: wiki/a"));
}

TEST(PolicyInARulesFile, WithinAndCooldownAreSpansOfTime)
{
    EXPECT_EQ(600, Policy("  within: 10m").within_s);
    EXPECT_EQ(5400, Policy("  cooldown: 1h30m").cooldown_s);
    EXPECT_EQ(31 * 86400, Policy("  cooldown: 31d").cooldown_s);
    const std::string next = "use 1s to 31d, such as 90s, 10m or 1h30m\n";
    EXPECT_EQ("5:11: cannot use the time \"10\" of within: it is no span of time; " + next,
              Issues("  within: 10"));
    EXPECT_EQ("5:13: cannot use the time \"0s\" of cooldown: it is out of range; " + next,
              Issues("  cooldown: 0s"));
    EXPECT_EQ("5:13: cannot use the time \"31d1s\" of cooldown: it is out of range; " + next,
              Issues("  cooldown: 31d1s"));
    EXPECT_EQ("5:11: cannot use the within of an event: it is a list; " + next,
              Issues("  within: [10m]"));
}

TEST(PolicyInARulesFile, HitsWithinATimeAreAtMostTenThousand)
{
    EXPECT_EQ("", Issues("  within: 10m\n  report_count: 10000"));
    EXPECT_EQ("6:17: cannot use the report count 10001: its hits are to come within a time; use a "
              "number from 1 to 10000, or leave out \"within\"\n",
              Issues("  within: 10m\n  report_count: 10001"));
    EXPECT_EQ("", Issues("  cooldown: 10m\n  report_count: 10001"));
}

TEST(PolicyInARulesFile, PerIsAHostOrAProgram)
{
    EXPECT_EQ("host", Policy("  per: host").per);
    EXPECT_EQ("program", Policy("  per: program").per);
    EXPECT_EQ("5:8: cannot count per \"line\": there is no such thing; use host or program\n",
              Issues("  per: line"));
}

TEST(PolicyInARulesFile, AllMistakesOfAnEventAreFound)
{
    const std::string issues =
        Issues("  severity: x\n  labels: [y]\n  summary: \"{{z}}\"\n  runbook_url: q");
    EXPECT_EQ(4, std::count(issues.begin(), issues.end(), '\n')) << issues;
}

// ---- the difference ----

events::StoredSource Registered(const EventPolicy &policy)
{
    events::StoredEvent stored;
    stored.event.key = {"B", 1};
    stored.event.keywords[0] = "x";
    stored.event.policy = policy;
    return {"B", false, {stored}};
}

std::string Difference(const EventPolicy &before, const std::string &after)
{
    const auto difference =
        rules::CompareRules({Registered(before)}, rules::ParseRules(File(after)).rules, false);
    std::string text;
    for (const auto &line : rules::FormatDifference(difference))
        text += line.mark + line.text + "\n";
    return text;
}

TEST(PolicyInARulesFile, ADifferenceShowsWhatComesGoesAndChanges)
{
    EventPolicy before;
    before.severity = "err";
    before.summary = "old";
    before.labels = {{"team", "storage"}};
    EXPECT_EQ(" B 1\n"
              "-    severity: err\n"
              "+    severity: crit\n"
              "-    labels: {\"team\": \"storage\"}\n"
              "+    runbook_url: \"https://wiki\"\n",
              Difference(before, "  severity: crit\n  summary: old\n  runbook_url: https://wiki"));
    EXPECT_EQ("", Difference(before, "  severity: err\n  summary: old\n  labels: {team: storage}"));
}

} // namespace
