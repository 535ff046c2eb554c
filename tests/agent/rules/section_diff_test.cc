// What the sections of a rules file change in the registry, all of it or nothing.
#include "agent/rules/apply.h"

#include "agent/host/agent_values.h"
#include "agent/inputs/customer_file.h"
#include "agent/policy/silence_registry.h"
#include "agent/sinks/sink_registry.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/issues_test.h"

namespace {

using rules::RulesChange;
using How = rules::EventChange::Kind;

constexpr int64_t kNow = 1795000000;

class SectionDiff : public test::HostTest {
  protected:
    // Compares and writes in one transaction, as apply does.
    RulesChange Apply(const std::string &text, bool prune = false, int64_t now_s = kNow)
    {
        const rules::ParsedRules parsed = rules::ParseRules(text);
        EXPECT_EQ("", test::Text(parsed.issues));
        host::Transaction transaction(test::Store());
        RulesChange change =
            rules::CompareHost(test::Store(), test::Registry(), parsed, {prune, now_s, "me"});
        EXPECT_EQ("", test::Text(change.Issues()));
        rules::WriteHost(change, &test::Registry());
        transaction.Commit();
        return change;
    }
    // What is set up, as a file without events.
    static std::string Host()
    {
        std::vector<std::string> left_out;
        return rules::FormatSections(
            rules::SectionsOfHost(test::Store(), test::Registry(), kNow, &left_out));
    }
    static sinks::SinkRegistry Sinks() { return {test::Store(), test::Registry()}; }
    static inputs::InputRegistry Inputs() { return {test::Store(), test::Registry()}; }
};

TEST_F(SectionDiff, ASectionThatIsNotThereLeavesItsPartAlone)
{
    Apply("sinks: [{name: j, kind: journal}]\n"
          "inputs: [{name: web, kind: files, path: /a}]\n"
          "silences: [{source: A, every: sat}]\n"
          "settings: {cycle: 60}\n");
    const std::string before = Host();
    EXPECT_TRUE(Apply("events: []").IsEmpty());
    EXPECT_EQ(before, Host());
    Apply("sinks: []\n");
    EXPECT_TRUE(Sinks().ReadAll().empty());
    EXPECT_EQ(1U, Inputs().ReadAll().size());
}

TEST_F(SectionDiff, OneThatIsThereMakesItsPartEqual)
{
    Apply("sinks: [{name: j, kind: journal}, {name: f, kind: file, path: /a}]\n"
          "inputs: [{name: one, kind: files, path: /a}, {name: two, kind: files, path: /b}]\n"
          "silences: [{source: A, every: sat}, {source: B, every: sun}]\n"
          "settings: {cycle: 60, silent-after: 3}\n");
    const RulesChange change = Apply("sinks: [{name: f, kind: file, path: /b}]\n"
                                     "inputs: [{name: two, kind: files, path: [/b, /c]}]\n"
                                     "silences: [{source: B, every: sun}]\n"
                                     "settings: {cycle: 60}\n");
    EXPECT_EQ(0U, change.Count(How::kAdd));
    EXPECT_EQ(3U, change.Count(How::kChange)) << "a sink, an input, and a setting";
    EXPECT_EQ(3U, change.Count(How::kRemove)) << "a sink, an input, and a silence";
    EXPECT_EQ(2U, change.Unchanged());
    ASSERT_EQ(1U, Sinks().ReadAll().size());
    EXPECT_EQ("/b", Sinks().Find("f").config.Get("path"));
    EXPECT_EQ((std::vector<std::string>{"/b", "/c"}), Inputs().Find("two").Values("path"));
    EXPECT_EQ("24", settings::GetSetting(test::Registry(), settings::FindSetting("silent-after")));
    EXPECT_EQ((std::set<std::string>{sinks::kSinksEvent, inputs::kInputsEvent,
                                     host::kAgentSettingsEvent}),
              change.Wakes());
}

TEST_F(SectionDiff, ASecondTimeChangesNothingAndWakesNobody)
{
    const std::string file = "sinks: [{name: j, kind: journal, level: err}]\n"
                             "inputs: [{name: web, kind: files, path: [/a, /b]}]\n"
                             "silences: [{source: A, every: sat}, {source: A, until: 2040-01-01}]\n"
                             "settings: {trace-level: 2, customer-file: /x}\n";
    EXPECT_FALSE(Apply(file).IsEmpty());
    const RulesChange again = Apply(file, false, kNow + 3600);
    EXPECT_TRUE(again.IsEmpty()) << again.sections.changes[0].name;
    EXPECT_TRUE(again.Wakes().empty());
    EXPECT_EQ(6U, again.Unchanged());
}

TEST_F(SectionDiff, WhatWasWrittenAndReadAgainIsTheSame)
{
    Apply("sinks:\n"
          "  - {name: j, kind: journal, only: 'severity>=err,source=A\"*'}\n"
          "  - {name: p, kind: program, command: /bin/true, arg.1: \"a: b # c\"}\n"
          "inputs:\n"
          "  - {name: web, kind: files, path: ['/a b/*.log', /b], begins-with: '^\\d{4}'}\n"
          "silences:\n"
          "  - {source: A, host: 'w[12]', event: FF, every: mon-fri 22:00-06:00, summary: true}\n"
          "  - {until: 2040-01-01T00:00:00Z, comment: \"it's: \\\"x\\\"\", author: ops}\n"
          "settings: {cycle: 60, file-monitor: '/a: b', web: '127.0.0.1:1'}\n");
    // As a command adds one.
    policy::Silence of_the_moment;
    of_the_moment.begin_s = kNow;
    of_the_moment.end_s = kNow + 7200;
    policy::AddSilence(test::Store(), test::Registry(), of_the_moment, kNow);
    const std::string file = Host();
    const RulesChange change = Apply(file, true);
    EXPECT_TRUE(change.IsEmpty()) << file;
    EXPECT_EQ(file, Host());
    EXPECT_FALSE(policy::ReadSilences(test::Registry()).back().is_from_file)
        << "it stays what it was";
}

// Places in logs, and what was delivered, are known by the key.
TEST_F(SectionDiff, AChangedSinkOrInputGoesOnWhereItWas)
{
    Apply("sinks: [{name: f, kind: file, path: /a}]\ninputs: [{name: i, kind: files, path: /a}]\n");
    const auto sink = Sinks().Find("f").config.key;
    const auto input = Inputs().Find("i").key;
    Apply("sinks: [{name: F, kind: file, path: /b}]\ninputs: [{name: I, kind: files, path: /b}]\n");
    EXPECT_EQ(sink, Sinks().Find("f").config.key);
    EXPECT_EQ(input, Inputs().Find("i").key);
    Apply("sinks: [{name: f, kind: journal}]\ninputs: [{name: i, kind: journal}]\n");
    EXPECT_NE(sink, Sinks().Find("f").config.key) << "another kind is another sink";
    EXPECT_NE(input, Inputs().Find("i").key);
    EXPECT_STREQ("journal", Sinks().Find("f").config.kind->name);
    EXPECT_EQ("journal", Inputs().Find("i").kind);
}

TEST_F(SectionDiff, ADamagedSinkIsMadeSound)
{
    Apply("sinks: [{name: f, kind: file, path: /a}, {name: g, kind: file, path: /a}]");
    const std::string key = std::string(host::kAgentKey) + "\\SINKS\\";
    test::SetTreeText(key + "f", "path", "not absolute");
    test::SetTreeText(key + "g", "Kind", "of a later version");
    EXPECT_EQ(2U, Apply("sinks: [{name: f, kind: file, path: /a}, {name: g, kind: file, path: /a}]")
                      .Count(How::kChange));
    EXPECT_EQ("", Sinks().Find("f").problem);
    EXPECT_EQ("", Sinks().Find("g").problem);
}

TEST_F(SectionDiff, ASilenceOfACommandStaysUnlessItIsPruned)
{
    policy::Silence of_the_moment;
    of_the_moment.begin_s = kNow;
    of_the_moment.end_s = kNow + 7200;
    const uint32_t number =
        policy::AddSilence(test::Store(), test::Registry(), of_the_moment, kNow);
    const RulesChange change = Apply("silences: [{source: A, every: sat}]");
    EXPECT_EQ(std::vector<std::string>{std::to_string(number)}, change.sections.staying);
    EXPECT_EQ(2U, policy::ReadSilences(test::Registry()).size());
    EXPECT_EQ(1U, Apply("silences: [{source: A, every: sat}]", true).Count(How::kRemove));
    const auto all = policy::ReadSilences(test::Registry());
    EXPECT_TRUE(all[0].IsOver(kNow));
    EXPECT_FALSE(all[1].IsOver(kNow));
}

TEST_F(SectionDiff, ASilenceOfTheFileThatIsOverIsNotAddedAgain)
{
    const std::string file = "silences: [{source: A, until: 2026-12-24T18:00:00Z}]";
    EXPECT_EQ(1U, Apply(file).Count(How::kAdd));
    EXPECT_EQ("me", policy::ReadSilences(test::Registry())[0].author);
    EXPECT_TRUE(Apply(file, false, 1800000000).IsEmpty());
    EXPECT_EQ(1U, policy::ReadSilences(test::Registry()).size());
}

TEST_F(SectionDiff, TheCustomerFileIsASettingAlsoWhileItIsAnInput)
{
    inputs::CustomerFile(test::Store(), test::Registry()).Set("/var/log/app", std::nullopt);
    ASSERT_EQ(1U, Inputs().ReadAll().size());
    EXPECT_EQ(std::string::npos, Host().find("name: \"customer-file\""));
    EXPECT_TRUE(Apply("inputs: []").IsEmpty());
    EXPECT_EQ(1U, Inputs().ReadAll().size());
    const rules::ParsedRules parsed =
        rules::ParseRules("inputs: [{name: customer-FILE, kind: journal}]");
    const RulesChange change =
        rules::CompareHost(test::Store(), test::Registry(), parsed, {false, kNow, "me"});
    EXPECT_EQ("1:10: cannot add an input of the name customer-FILE: it is that of the customer "
              "file; use syslogmon set customer-file PATH, or choose another name\n",
              test::Text(change.Issues()));
}

// One that needs an option, or whose options do not go together.
TEST_F(SectionDiff, ASinkThatCannotBeMadeIsToldAtItsPlace)
{
    const rules::ParsedRules parsed = rules::ParseRules("sinks:\n  - {name: f, kind: file}\n");
    const RulesChange change =
        rules::CompareHost(test::Store(), test::Registry(), parsed, {false, kNow, "me"});
    EXPECT_EQ("2:5: cannot make a sink of kind file: it has no path; add path=FILE\n",
              test::Text(change.Issues()));
}

TEST_F(SectionDiff, WhenOneChangeFailsNothingIsStored)
{
    Apply("settings: {cycle: 60}\n");
    const std::string before = Host();
    const rules::ParsedRules parsed =
        rules::ParseRules("settings: {cycle: 90}\nsinks: [{name: j, kind: journal}]\n");
    const auto try_it = [&] {
        host::Transaction transaction(test::Store());
        RulesChange change =
            rules::CompareHost(test::Store(), test::Registry(), parsed, {false, kNow, "me"});
        // Somebody's sink of that name, which the comparison has not seen.
        sinks::SinkConfig twin;
        twin.name = "J";
        twin.kind = &sinks::FindKind("journal");
        Sinks().Add(twin);
        rules::WriteHost(change, &test::Registry());
        transaction.Commit();
    };
    EXPECT_EQ("cannot add the sink j: there is one of that name already; choose another name, or "
              "change that one with syslogmon sink set",
              test::ErrorOf(try_it));
    EXPECT_EQ(before, Host());
}

TEST_F(SectionDiff, ATransactionWithinOneIsAPartOfIt)
{
    {
        host::Transaction outer(test::Store());
        Sinks().Add({0, "j", &sinks::FindKind("journal"), {}});
    }
    EXPECT_TRUE(Sinks().ReadAll().empty()) << "the outer one was not committed";
    {
        host::Transaction outer(test::Store());
        Sinks().Add({0, "j", &sinks::FindKind("journal"), {}});
        outer.Commit();
    }
    EXPECT_EQ(1U, Sinks().ReadAll().size());
    host::Transaction outer(test::Store());
    Sinks().Add({0, "k", &sinks::FindKind("journal"), {}});
    {
        const host::Transaction inner(test::Store()); // fails
    }
    EXPECT_NE("no error", test::ErrorOf([&] { outer.Commit(); }));
    EXPECT_EQ(1U, Sinks().ReadAll().size());
}

TEST_F(SectionDiff, TheValuesOfTheFileDecideHowItsEventsAreChecked)
{
    settings::StoreSetting(test::Store(), test::Registry(), settings::FindSetting("log-charset"),
                           "GB18030");
    const auto behind = [](const std::string &text) {
        return rules::SettingBehind(rules::ParseRules(text), test::Registry(), "log-charset");
    };
    EXPECT_EQ("GB18030", behind("events: []"));
    EXPECT_EQ("UTF-8", behind("settings: {}"));
    EXPECT_EQ("KOI8-R", behind("settings: {log-charset: KOI8-R}"));
    EXPECT_EQ("UTF-8", behind("settings: {log-charset: default}"));
}

} // namespace
