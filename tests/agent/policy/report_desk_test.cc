// Reports of the module, from the library that it calls to the alert that is stored.
#include "agent/policy/report_desk.h"

#include "agent/alerts/alert_store.h"
#include "platform/loader.h"
#include "tests/agent/support/report_test.h"

namespace {

using alerts::Alert;

class ReportDesk : public test::ReportTest {
  protected:
    static events::EventRecord Event(const char *source, uint32_t id)
    {
        events::EventRecord event;
        event.key = {source, id};
        event.keywords[0] = "word";
        return event;
    }
    static void Register(const events::EventRecord &event)
    {
        events::EventRegistry(test::Registry()).Write(event);
    }

    // The first word of a line is its host.
    ReportDesk()
    {
        test::TheHost().SetReportSource([](const std::string &line) {
            return host::ReportSource{line, "log", line.substr(0, line.find(' ')), "prog", ""};
        });
    }

    policy::ReportDesk desk_{test::TheHost(), [](const std::string &) { return std::nullopt; }};
};

TEST_F(ReportDesk, AnAlertSaysWhatThePolicyOfItsEventSays)
{
    events::EventRecord event = Event("DISK", 1);
    event.policy.severity = "err";
    event.policy.labels = {{"team", "storage"}, {"site", "berlin=1"}};
    event.policy.summary = "disk of {{host}}, {{program}}: {{message}}";
    event.policy.runbook_url = "https://wiki/disk";
    Register(event);
    Register(Event("DISK", 2));
    desk_.Load();
    EXPECT_EQ(1, Report("DISK", 1, "web1 a line"));
    EXPECT_EQ(1, Report("DISK", 2, "web1 a line"));
    const auto stored = Stored();
    ASSERT_EQ(2U, stored.size());
    EXPECT_EQ("err", stored[0].severity);
    EXPECT_EQ((events::Labels{{"team", "storage"}, {"site", "berlin=1"}}), stored[0].labels);
    EXPECT_EQ("disk of web1, prog: web1 a line", stored[0].summary);
    EXPECT_EQ("https://wiki/disk", stored[0].runbook_url);
    EXPECT_EQ("web1 a line", stored[0].message);
    EXPECT_EQ("", stored[1].severity + stored[1].summary + stored[1].runbook_url);
    EXPECT_TRUE(stored[1].labels.empty());
}

TEST_F(ReportDesk, AnAlertKeepsTheTermsByWhichItWasReported)
{
    events::EventRecord often = Event("LOGIN", 1);
    often.report_count = 2;
    often.hours = events::ParseHours("22-6");
    often.policy.within_s = 600;
    often.policy.cooldown_s = 3600;
    often.policy.per = "host";
    Register(often);
    events::EventRecord by_the_monitor = Event("LOGIN", 2);
    by_the_monitor.report_count = 5;
    Register(by_the_monitor);
    events::EventRecord each_line = Event("LOGIN", 3);
    each_line.policy.severity = "err";
    Register(each_line);
    desk_.Load();
    for (const uint32_t id : {1U, 1U, 2U, 3U})
        Report("LOGIN", id, "web1 a line");
    often.policy = {};
    Register(often);
    desk_.Load();
    std::vector<std::string> terms;
    for (const Alert &alert : Stored())
        terms.push_back(alert.terms);
    EXPECT_EQ((std::vector<std::string>{
                  "2 hits within 10 minutes make a report, for each host apart; then silence for 1 "
                  "hour; watched at 22-6 o'clock",
                  "5 hits make a report", ""}),
              terms);
}

TEST_F(ReportDesk, ALineWithoutAHostIsOfThisOne)
{
    events::EventRecord event = Event("DISK", 1);
    event.policy.summary = "[{{host}}]";
    Register(event);
    desk_.Load();
    Report("DISK", 1, " a line");
    const auto stored = Stored();
    ASSERT_EQ(1U, stored.size());
    EXPECT_EQ("[" + stored[0].host + "]", stored[0].summary);
}

TEST_F(ReportDesk, PoliciesCountFromTheLoadOn)
{
    events::EventRecord event = Event("DISK", 1);
    event.policy.severity = "err";
    Register(event);
    Report("DISK", 1, "before");
    desk_.Load();
    Report("DISK", 1, "behind");
    events::EventRegistry(test::Registry()).Remove(event.key);
    desk_.Load();
    Report("DISK", 1, "a report of an event that is gone");
    const auto stored = Stored();
    ASSERT_EQ(3U, stored.size());
    EXPECT_EQ("", stored[0].severity);
    EXPECT_EQ("err", stored[1].severity);
    EXPECT_EQ("", stored[2].severity);
}

// As by a daemon that is killed before it comes to rest behind the load.
TEST_F(ReportDesk, ALineIsWaitedForAlsoByTheNextDeskWhenNothingWasSavedSinceTheLoad)
{
    events::EventRecord event = Event("BACKUP", 1);
    event.policy.absent_s = 3600;
    Register(event);
    desk_.Load();
    policy::ReportDesk next(test::TheHost(), nullptr);
    next.Load();
    const int64_t now_s = time(nullptr);
    EXPECT_FALSE(next.HasOverdue(now_s + 3000));
    EXPECT_TRUE(next.HasOverdue(now_s + 4000));
}

TEST_F(ReportDesk, WithoutADeskEachReportIsStored)
{
    {
        const policy::ReportDesk other(test::TheHost(), nullptr);
    }
    EXPECT_EQ(1, Report("DISK", 1, "a line"));
    EXPECT_EQ(1U, Stored().size());
}

TEST_F(ReportDesk, OnlyLinesThatTheExpressionMatchesAndNothingLeavesOutAreHits)
{
    events::EventRecord event = Event("DISK", 1);
    event.policy.regex = "error [0-9]+";
    event.policy.except = {{"a.b", false}, {"t[eE]st", true}};
    Register(event);
    desk_.Load();
    for (const char *line : {"h error 12", "h error x", "h error 1 a.b", "h error 1 aXb",
                             "h error 1 tEst", "h ERROR 1", "h error 1 \xFF"})
        EXPECT_EQ(1, Report("DISK", 1, line));
    std::vector<std::string> lines;
    for (const Alert &alert : Stored())
        lines.push_back(alert.message);
    EXPECT_EQ((std::vector<std::string>{"h error 12", "h error 1 aXb", "h error 1 \xFF"}), lines);
}

TEST_F(ReportDesk, CaseIsIgnoredWhereItIsWanted)
{
    events::EventRecord event = Event("DISK", 1);
    event.policy.regex = "error \xC3\xA4";
    event.policy.except = {{"Test", false}};
    event.policy.ignore_case = true;
    Register(event);
    desk_.Load();
    for (const char *line : {"h ERROR \xC3\x84", "h Error \xC3\xA4 tesT", "h error a"})
        EXPECT_EQ(1, Report("DISK", 1, line));
    ASSERT_EQ(1U, Stored().size());
    EXPECT_EQ("h ERROR \xC3\x84", Stored()[0].message);
}

TEST_F(ReportDesk, AGroupIsCountedForAndShown)
{
    events::EventRecord event = Event("LOGIN", 1);
    event.report_count = 2;
    event.policy.regex = "user (?P<user>[a-z]+)( again)?";
    event.policy.per = "user";
    event.policy.summary = "{{user}}, {{1}}{{^2}}, not again{{/2}}";
    Register(event);
    desk_.Load();
    for (const char *line : {"h user ann", "h user bob", "h user eve again", "h user bob"})
        EXPECT_EQ(1, Report("LOGIN", 1, line));
    ASSERT_EQ(1U, Stored().size());
    EXPECT_EQ("bob", Stored()[0].value);
    EXPECT_EQ("bob, bob, not again", Stored()[0].summary);
    EXPECT_EQ(2, Stored()[0].count);
}

TEST_F(ReportDesk, AnExpressionThatCannotBeUsedIsLeftOut)
{
    Register(Event("DISK", 1));
    test::SetTreeText(std::string(kApplicationKey) + "\\DISK\\1\\POLICY", "Regex", "a(b");
    desk_.Load();
    EXPECT_EQ(1, Report("DISK", 1, "h a line"));
    EXPECT_EQ(1U, Stored().size());
}

// ---- lines that do not come ----

// Of lines that say the seconds since 1970 at which they were written.
class AbsentLines : public ReportDesk {
  protected:
    static std::optional<int64_t> TimeOf(const std::string &line)
    {
        const size_t blank = line.rfind(' ');
        return blank == std::string::npos ? std::nullopt
                                          : std::optional(std::stoll(line.substr(blank)));
    }
    static std::string Line(int64_t seconds_ago, const char *host = "h")
    {
        return std::string(host) + " is well " + std::to_string(Now() - seconds_ago);
    }
    static int64_t Now()
    {
        static const int64_t now = time(nullptr);
        return now;
    }
    static void RegisterAbsent(const char *per = "")
    {
        events::EventRecord event = Event("BACKUP", 1);
        event.policy.absent_s = 3600;
        event.policy.per = per;
        event.policy.severity = "crit";
        event.policy.summary = "{{host}}: {{message}}";
        Register(event);
    }
    std::vector<std::string> Told(policy::ReportDesk *desk, int64_t in_s)
    {
        const size_t before = Stored().size();
        desk->NoteTime(Now() + in_s);
        const bool has_overdue = desk->HasOverdue(Now() + in_s);
        desk->TellOfAbsent(Now() + in_s);
        EXPECT_EQ(has_overdue, Stored().size() > before);
        std::vector<std::string> texts;
        const auto stored = Stored();
        for (size_t i = before; i < stored.size(); ++i)
            texts.push_back(stored[i].value + "|" + stored[i].message.substr(0, 33));
        desk->Save();
        return texts;
    }

    // As if none had come for so long.
    void WaitSince(int64_t seconds_ago)
    {
        timed_.Save();
        test::Store().Write([&](host::Database &database) {
            host::Statement(database, "UPDATE policy_value SET held_last_time = ?")
                .Run(Now() - seconds_ago);
        });
        timed_.Load();
    }

    policy::ReportDesk timed_{test::TheHost(), TimeOf};
};

using Texts = std::vector<std::string>;

TEST_F(AbsentLines, AreToldOfOnceUntilOneComesAgain)
{
    RegisterAbsent();
    timed_.Load();
    const std::string told = "|no such line has come for 1 hour";
    EXPECT_EQ(Texts(), Told(&timed_, 3598)) << "it is waited for from now on";
    WaitSince(3000);
    EXPECT_EQ(Texts(), Told(&timed_, 599));
    EXPECT_EQ(Texts{told + ","}, Told(&timed_, 600));
    EXPECT_EQ(Texts(), Told(&timed_, 90000));
    Report("BACKUP", 1, Line(0).c_str());
    EXPECT_EQ(1U, Stored().size()) << "a line that comes is no alert";
    EXPECT_EQ(Texts(), Told(&timed_, 3599));
    EXPECT_EQ(Texts{told + ":"}, Told(&timed_, 3600));
    const Alert alert = Stored().back();
    EXPECT_EQ("crit", alert.severity);
    EXPECT_EQ(0, alert.count);
    EXPECT_EQ(alert.host + ": " + alert.message, alert.summary);
    EXPECT_NE(std::string::npos, alert.message.find(Line(0))) << alert.message;
}

// Behind a restart, what was written meanwhile is read first: the newest line counts, by its own time.
TEST_F(AbsentLines, AreWaitedForSinceTheNewestOneThatWasWritten)
{
    RegisterAbsent();
    timed_.Load();
    WaitSince(10000);
    EXPECT_TRUE(timed_.HasOverdue(Now()));
    Report("BACKUP", 1, Line(3000).c_str());
    EXPECT_FALSE(timed_.HasOverdue(Now() + 599));
    timed_.Save();
    timed_.Load();
    EXPECT_TRUE(timed_.HasOverdue(Now() + 601));
    Report("BACKUP", 1, Line(100).c_str());
    Report("BACKUP", 1, Line(3500).c_str()); // an older one, of another log
    EXPECT_EQ(Texts(), Told(&timed_, 3499));
    EXPECT_EQ(1U, Told(&timed_, 3500).size());
    timed_.Load();
    EXPECT_EQ(Texts(), Told(&timed_, 90000)) << "that it was told is stored, too";
}

TEST_F(AbsentLines, AClockThatWasAheadHidesNothing)
{
    RegisterAbsent();
    timed_.Load();
    Report("BACKUP", 1, Line(-86400).c_str());
    EXPECT_EQ(1U, Told(&timed_, 3660).size());
}

TEST_F(AbsentLines, AClockThatWasSetBackHidesNothing)
{
    RegisterAbsent();
    timed_.Load();
    WaitSince(-365 * 86400); // by the clock of then
    EXPECT_EQ(Texts(), Told(&timed_, 0));
    timed_.Load();
    EXPECT_EQ(Texts(), Told(&timed_, 3599)) << "it is waited for from now on";
    EXPECT_EQ(1U, Told(&timed_, 3600).size());
    WaitSince(-365 * 86400);
    EXPECT_EQ(Texts(), Told(&timed_, 0));
    Report("BACKUP", 1, Line(0).c_str());
    EXPECT_EQ(1U, Told(&timed_, 3600).size()) << "a line has come since it was told";
}

TEST_F(AbsentLines, AreToldOfForEachHostThatHasWrittenOne)
{
    RegisterAbsent("host");
    timed_.Load();
    EXPECT_EQ(Texts(), Told(&timed_, 90000)) << "no host is known";
    Report("BACKUP", 1, Line(3000, "web1").c_str());
    Report("BACKUP", 1, Line(10, "web2").c_str());
    const Texts web1 = Told(&timed_, 700);
    ASSERT_EQ(1U, web1.size());
    EXPECT_EQ("web1|no such line has come for 1 hour,", web1[0]);
    EXPECT_EQ(0U, Stored().back().summary.find("web1: "));
    EXPECT_EQ("web1", Stored().back().HostOfLine())
        << "receivers are told of the host that is silent";
    EXPECT_EQ(1U, Told(&timed_, 4000).size()) << "web2 alone";
}

// ---- the policy in the registry ----

TEST_F(ReportDesk, AKeywordOfTheExpressionIsNobodysOwn)
{
    events::EventRegistry registry(test::Registry());
    events::EventRecord event;
    event.key = {"DISK", 1};
    event.policy.regex = "I/O error [0-9]+";
    event.policy.except = {{"one", false}, {"two", true}};
    event.policy.ignore_case = false;
    registry.Write(event);
    EXPECT_EQ(event, registry.Find(event.key)->event);
    const std::string path = std::string(kApplicationKey) + "\\DISK\\1\\" + kWatchSettingKey;
    EXPECT_EQ(std::string("I/O error \0", 11), test::TreeValue(path, "KeyWord")->data);
    event.keywords[0] = "mine";
    registry.Write(event);
    EXPECT_EQ(event, registry.Find(event.key)->event);
}

TEST_F(ReportDesk, APolicyGoesWithItsEventAndIsReplacedWhole)
{
    events::EventRegistry registry(test::Registry());
    events::EventRecord event = Event("DISK", 1);
    event.policy.severity = "err";
    event.policy.labels = {{"team", "storage"}};
    event.policy.summary = "a summary";
    registry.Write(event);
    EXPECT_EQ(event, registry.Find(event.key)->event);
    event.policy.labels.clear();
    event.policy.summary.clear();
    registry.Write(event);
    EXPECT_EQ(event, registry.Find(event.key)->event);
    event.policy = {};
    registry.Write(event);
    EXPECT_EQ(event, registry.Find(event.key)->event);
    const auto key =
        test::Registry().Find(host::kRootKey, std::string(kApplicationKey) + "\\DISK\\1");
    EXPECT_EQ(std::vector<std::string>{kWatchSettingKey}, test::Registry().SubKeys(*key));
}

TEST_F(ReportDesk, WhatIsNoTextInAPolicyIsLeftOut)
{
    Register(Event("DISK", 1));
    const std::string path = std::string(kApplicationKey) + "\\DISK\\1\\POLICY";
    test::SetTreeNumber(path, "Severity", 7);
    test::SetTreeNumber(path + "\\LABELS", "team", 7);
    test::SetTreeText(path, "Summary", "{{wrong");
    desk_.Load();
    Report("DISK", 1, "a line");
    const auto stored = Stored();
    ASSERT_EQ(1U, stored.size());
    EXPECT_EQ("", stored[0].severity);
    EXPECT_EQ("{{wrong", stored[0].summary);
}

} // namespace
