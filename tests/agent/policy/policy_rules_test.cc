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
    EXPECT_EQ(
        "5:13: cannot use the severity \"error\": there is none of that name; did you mean err? " +
            names,
        Issues("  severity: error"));
    for (const auto &[typed, meant] :
         {std::pair("critical", "crit"), std::pair("warn", "warning"),
          std::pair("emergncy", "emerg"), std::pair("notcie", "notice")})
        EXPECT_NE(std::string::npos,
                  Issues(std::string("  severity: ") + typed)
                      .find(std::string("did you mean ") + meant + "? use emerg"))
            << typed;
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

TEST(PolicyInARulesFile, AbsentIsASpanOfTimeAndGoesWithNoCount)
{
    EXPECT_EQ(3600, Policy("  absent: 1h").absent_s);
    EXPECT_EQ("host", Policy("  absent: 1h\n  per: host").per);
    EXPECT_EQ("5:11: cannot use the time \"soon\" of absent: it is no span of time; use 1s to 31d, "
              "such as 90s, 10m or 1h30m\n",
              Issues("  absent: soon"));
    EXPECT_EQ("5:11: cannot use \"within\" or \"cooldown\" with \"absent\": an event that tells of "
              "lines that do not come tells of no line; leave them out, or register a second "
              "event\n",
              Issues("  absent: 1h\n  cooldown: 1h"));
    EXPECT_EQ(
        "5:11: cannot use a report count or hours with \"absent\": each of its lines counts as "
        "a sign, at any time of the day; leave them out, or register a second event\n",
        Issues("  absent: 1h\n  report_count: 2"));
    EXPECT_NE("", Issues("  absent: 1h\n  hours: 8-18"));
}

TEST(PolicyInARulesFile, HitsWithinATimeAreAtMostTenThousand)
{
    EXPECT_EQ("", Issues("  within: 10m\n  report_count: 10000"));
    EXPECT_EQ("6:17: cannot use the report count 10001: its hits are to come within a time; use a "
              "number from 1 to 10000, or leave out \"within\"\n",
              Issues("  within: 10m\n  report_count: 10001"));
    EXPECT_EQ("", Issues("  cooldown: 10m\n  report_count: 10001"));
}

TEST(PolicyInARulesFile, RegexIsAnExpressionOfRe2)
{
    EXPECT_EQ("a +b", Policy("  regex: a +b").regex);
    const std::string next = "; use an expression as re2 has them\n";
    // The place of the mistake, where the expression stands in the file as it is.
    EXPECT_EQ("5:10: cannot use the expression \"abc(d\": missing ): abc(d" + next,
              Issues("  regex: abc(d"));
    EXPECT_EQ("5:13: cannot use the expression \"abc**\": bad repetition operator: **" + next,
              Issues("  regex: abc**"));
    EXPECT_EQ("5:15: cannot use the expression \"abc[z-a]\": invalid character class range: z-a" +
                  next,
              Issues("  regex: \"abc[z-a]\""));
    EXPECT_EQ("5:10: cannot use the expression \"\": it is empty, too long, or holds a control "
              "character; use an expression of 1 to 1024 bytes, with \\t for a tab\n",
              Issues("  regex: \"\""));
    // A reference back cannot be linear.
    EXPECT_NE("", Issues("  regex: (a)\\1"));
}

TEST(PolicyInARulesFile, WithoutKeywordsTheExpressionMustShowOne)
{
    const std::string event = "events:\n- source: B\n  id: 1\n";
    EXPECT_EQ("", test::Text(rules::ParseRules(event + "  regex: error [0-9]+\n").issues));
    EXPECT_EQ("4:10: cannot search for the expression \"a|b\": there is no text that each of its "
              "matches is seen to hold; add keywords that are in each of its lines\n",
              test::Text(rules::ParseRules(event + "  regex: a|b\n").issues));
    EXPECT_EQ("", test::Text(rules::ParseRules(event + "  regex: a|b\n  keywords: x\n").issues));
}

TEST(PolicyInARulesFile, NotIsTextsAndExpressions)
{
    using ExceptTexts = std::vector<events::ExcludedText>;
    EXPECT_EQ((ExceptTexts{{"test", false}}), Policy("  not: test").except);
    EXPECT_EQ((ExceptTexts{{"a.b", false}, {"a.b", true}}),
              Policy("  not: [a.b, {regex: a.b}]").except);
    EXPECT_EQ(
        "5:17: cannot use the expression \"*\": no argument for repetition operator: *; use an "
        "expression as re2 has them\n",
        Issues("  not: {regex: \"*\"}"));
    EXPECT_EQ("5:9: cannot use the key \"expr\": what is left out has none of that name; use "
              "regex\n",
              Issues("  not: {expr: a}"));
    EXPECT_EQ("5:9: cannot use what is left out: it is a list; write a text, or {regex: "
              "EXPRESSION}\n",
              Issues("  not: [[a]]"));
    std::string many;
    for (int i = 0; i < 33; ++i)
        many += "\n  - t" + std::to_string(i);
    EXPECT_EQ("6:3: cannot use what is left out: there are 33 texts; give at most 32\n",
              Issues("  not:" + many));
}

TEST(PolicyInARulesFile, IgnoreCaseIsForExpressions)
{
    EXPECT_TRUE(Policy("  regex: \"12345: x\"\n  ignore_case: true").ignore_case);
    EXPECT_FALSE(Policy("  ignore_case: false").ignore_case);
    EXPECT_EQ("5:16: cannot use ignore_case \"yes\": it is neither true nor false; use true or "
              "false\n",
              Issues("  ignore_case: yes"));
    EXPECT_EQ("5:16: cannot ignore the case: there is neither \"regex\" nor \"not\"; add one of "
              "them; keywords are searched as they are written\n",
              Issues("  ignore_case: true"));
}

TEST(PolicyInARulesFile, GroupsCanBeCountedForAndShown)
{
    const std::string regex = "  regex: 'user (?P<user>\\w+) from (\\w+)'\n";
    EXPECT_EQ("user", Policy(regex + "  per: user").per);
    EXPECT_EQ("2", Policy(regex + "  per: 2").per);
    EXPECT_EQ("", Issues(regex + "  summary: \"{{user}} {{1}} {{2}} {{host}}\""));
    EXPECT_EQ("6:8: cannot count per \"usr\": there is no such thing; did you mean user? use host, "
              "program, 1, 2, user\n",
              Issues(regex + "  per: usr"));
    EXPECT_EQ(
        "6:12: cannot use the template \"{{3}}\": there is no {{3}}; did you mean 1? use {{host}}, "
        "{{program}}, {{message}}, {{1}}, {{2}}, {{user}}\n",
        Issues(regex + "  summary: \"{{3}}\""));
    EXPECT_EQ("5:10: cannot use the group \"host\" of the expression: the name stands for that of "
              "the line; choose another name\n",
              Issues("  regex: (?P<host>a)bcd"));
}

TEST(PolicyInARulesFile, PerIsAHostOrAProgram)
{
    EXPECT_EQ("host", Policy("  per: host").per);
    EXPECT_EQ("program", Policy("  per: program").per);
    EXPECT_EQ("5:8: cannot count per \"line\": there is no such thing; use host, program, or "
              "a group of an expression\n",
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
