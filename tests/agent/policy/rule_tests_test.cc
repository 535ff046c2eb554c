// Tests in rules files: read, run by syslogmon test, and by apply, which a failing one ends.
#include <nlohmann/json.hpp>

#include "agent/rules/rules_file.h"
#include "tests/agent/support/command_test.h"
#include "tests/agent/support/issues_test.h"

namespace {

class TestsInARulesFile : public test::CommandTest {
  protected:
    [[nodiscard]] test::Finished Try(const std::string &values) const
    {
        test::WriteFile(File("rules.yaml"), Text(values));
        return Syslogmon({"test", "--rules", File("rules.yaml")});
    }
    // An event, and these values of it from line 5 on.
    static std::string Text(const std::string &values)
    {
        return "events:\n- source: A\n  id: 1\n  keywords: alpha\n" + values;
    }
    static std::string Issues(const std::string &values)
    {
        return test::Text(rules::ParseRules(Text(values)).issues);
    }
};

TEST_F(TestsInARulesFile, AreRunInTheirOrder)
{
    const auto finished = Try("  report_count: 2\n"
                              "  within: 10m\n"
                              "  cooldown: 1h\n"
                              "  hours: none\n"
                              "  not: probe\n"
                              "  tests:\n"
                              "  - counted: \"host prog[1]: alpha\"\n"
                              "  - not matched: \"host prog: beta\"\n"
                              "  - not matched: \"host prog: alpha probe\"\n"
                              "  - counted: \"host prog[1]: alpha\"\n"
                              "    after: 11m\n"
                              "  - reported: \"Jan  1 10:00:00 host prog[1]: alpha\"\n"
                              "    after: 10m\n"
                              "  - counted: \"host prog[1]: alpha\"\n"
                              "  - held back: \"2026-01-01T10:00:00Z host prog[1]: alpha\"\n");
    EXPECT_EQ("7 tests in the file, and all have come to what they should.\n", finished.out);
    EXPECT_EQ("", finished.err);
    EXPECT_EQ(0, finished.status);
}

TEST_F(TestsInARulesFile, AnEventThatTheMonitorCountsIsTestedToo)
{
    EXPECT_EQ(0, Try("  report_count: 2\n  tests: [{counted: alpha}, {reported: alpha}, "
                     "{counted: alpha}]\n")
                     .status);
}

TEST_F(TestsInARulesFile, WhatComesToSomethingElseIsToldAtItsPlace)
{
    const auto finished = Try("  report_count: 3\n"
                              "  tests:\n"
                              "  - counted: \"host prog[1]: alpha\"\n"
                              "  - reported: \"host prog[1]: alpha\"\n"
                              "  - counted: \"host prog[1]: beta\"\n");
    const std::string file = File("rules.yaml").string();
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ(
        file +
            ":8:5: the line \"host prog[1]: alpha\" is not reported: it is counted, with 2 of "
            "3 hits; change the event, or its test\n" +
            file +
            ":9:5: the line \"host prog[1]: beta\" is not counted: it is not matched; "
            "change the event, or its test\n" +
            "syslogmon: cannot try " + file +
            ": it has 2 mistakes; correct what is said above; nothing was done\n",
        finished.err);
}

TEST_F(TestsInARulesFile, ApplyRunsThemAndAFailingOneChangesNothing)
{
    const std::string good = "  tests: [{reported: \"alpha\"}]\n";
    test::WriteFile(File("rules.yaml"), Text(good));
    EXPECT_EQ(0, Syslogmon({"apply", File("rules.yaml")}).status);
    test::WriteFile(File("rules.yaml"), Text("  severity: err\n  tests: [{counted: alpha}]\n"));
    for (const test::Words &words : {test::Words{"apply", File("rules.yaml")},
                                     test::Words{"apply", File("rules.yaml"), "--dry-run"}}) {
        const auto finished = Syslogmon(words);
        EXPECT_EQ(1, finished.status);
        EXPECT_NE(std::string::npos,
                  finished.err.find("6:11: the line \"alpha\" is not counted: it "
                                    "is reported"))
            << finished.err;
    }
    const auto shown = Json({"event", "show", "A", "1"})["event"];
    EXPECT_FALSE(shown.contains("severity"));
    EXPECT_FALSE(shown.contains("tests"));
}

TEST_F(TestsInARulesFile, EachSaysOneThingOfOneLine)
{
    const std::string next =
        "; write what must come of the line, and the line: \"- reported: LINE\"\n";
    EXPECT_EQ("", Issues("  tests: []\n"));
    EXPECT_EQ("5:10: cannot use the tests of an event: it is a text" + next,
              Issues("  tests: x\n"));
    EXPECT_EQ("5:11: cannot use a test: it is a text" + next, Issues("  tests: [x]\n"));
    EXPECT_EQ("5:11: cannot use a test: it does not say what must come of it" + next,
              Issues("  tests: [{after: 1m}]\n"));
    EXPECT_EQ("5:11: cannot use a test: it says both reported and counted" + next,
              Issues("  tests: [{counted: a, reported: b}]\n"));
    EXPECT_EQ("5:21: cannot use the line of a test: it is a list" + next,
              Issues("  tests: [{counted: [a]}]\n"));
    EXPECT_EQ("5:31: cannot use the time \"10\" before a test: it is no span of time, or too long; "
              "use 0s to 7d, such as 90s or 10m\n",
              Issues("  tests: [{counted: a, after: 10}]\n"));
    EXPECT_EQ("5:11: cannot use a test: it does not say what must come of it" + next +
                  "5:12: cannot use the key \"report\": a test has none of that name; did you mean "
                  "reported? use reported, counted, held back, or others of syslogmon-rules(5)\n",
              Issues("  tests: [{report: a}]\n"));
    EXPECT_EQ("5:10: cannot use the tests of an event: more than seven days pass in them; make the "
              "times between them shorter\n",
              Issues("  tests: [{counted: a, after: 4d}, {counted: a, after: 4d}]\n"));
}

} // namespace
