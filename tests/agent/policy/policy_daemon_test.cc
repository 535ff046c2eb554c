// Policies in a running daemon, in the commands that show them, and in trials of rules.
#include <csignal>

#include "agent/host/store.h"
#include "tests/agent/support/daemon_test.h"

namespace {

using nlohmann::json;

std::string Stamp(time_t moment)
{
    char text[32];
    struct tm local {};
    strftime(text, sizeof text, "%b %e %H:%M:%S ", localtime_r(&moment, &local));
    return text;
}

class PolicyInADaemon : public test::DaemonTest {
  protected:
    void Apply(const std::string &event) const
    {
        const auto finished = Syslogmon(
            {"apply", Rules("events:\n- {source: A, id: 1, keywords: alpha, " + event + "}\n")});
        ASSERT_EQ(0, finished.status) << finished.err;
    }
    // Lines of one host each, written at these moments before now.
    void LogAt(const std::vector<std::pair<int, std::string>> &lines) const
    {
        std::ofstream log(File("var-log/messages"), std::ios::app);
        for (const auto &[seconds_ago, host] : lines)
            log << Stamp(now_ - seconds_ago) << host << " prog[7]: alpha\n";
        log.close();
        Look();
    }
    [[nodiscard]] std::vector<std::string> Shown() const
    {
        std::vector<std::string> shown;
        for (const json &alert : Alerts()) {
            std::string text = alert.value("value", "") + " x" + alert["count"].dump();
            if (alert.contains("held_back"))
                text += " behind " + alert["held_back"]["reports"].dump() + " of " +
                        alert["held_back"]["hits"].dump();
            shown.push_back(text);
        }
        return shown;
    }
    // A value that event show has.
    [[nodiscard]] json Counted() const
    {
        return Json({"event", "show", "A", "1"})["event"]["counted"];
    }

    // As if the newest line of an event that waits for one were of 1970.
    void WaitSinceLongAgo() const
    {
        host::Store store(Layout().Store());
        store.Write([](host::Database &database) {
            database.Execute("UPDATE policy_value SET held_last_time = 1, reported = -1");
            EXPECT_EQ(1, database.ChangesOfLastStatement());
        });
    }

    const time_t now_ = time(nullptr) - 1;
};

using Texts = std::vector<std::string>;

// A daemon that was down for longer does not tell of what it has not looked for.
TEST_F(PolicyInADaemon, TellsOfLinesThatDoNotComeWhenItHasReadWhatIsThere)
{
    Apply("absent: 1h");
    {
        test::Child daemon(Daemon());
        WaitUntilRunning(daemon);
        daemon.Kill();
    }
    EXPECT_EQ(0U, Alerts().size()) << "it is waited for from its registration on";
    WaitSinceLongAgo();
    {
        test::Child daemon(Daemon());
        WaitUntilRunning(daemon);
        ASSERT_EQ(1U, Alerts().size());
        EXPECT_EQ(0U, Alerts()[0]["message"].get<std::string>().find("no such line has come"));
        EXPECT_EQ(0, Alerts()[0]["count"]);
        LogAt({{30, "web1"}});
        EXPECT_EQ(1U, Alerts().size());
        daemon.Kill();
    }
    WaitSinceLongAgo();
    {
        std::ofstream log(File("var-log/messages"), std::ios::app);
        log << Stamp(now_ - 20) << "web1 prog[7]: alpha\n";
    }
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    EXPECT_EQ(1U, Alerts().size()) << "one was written while no daemon ran";
    const auto shown = Syslogmon({"event", "show", "A", "1"});
    EXPECT_NE(std::string::npos, shown.out.find("a report when none comes for 1 hour"))
        << shown.out;
    EXPECT_NE(std::string::npos, shown.out.find(" unless one comes")) << shown.out;
}

// The inputs' entries come to the monitor pass by pass: all that they have is read first.
TEST_F(PolicyInADaemon, WaitsForTheInputsBeforeItTellsOfLinesThatDoNotCome)
{
    test::WriteFile(File("app.log"), "");
    ASSERT_EQ(
        0, Syslogmon({"input", "add", "files", "app", "path=" + File("app.log").string()}).status);
    Apply("absent: 1h");
    {
        test::Child daemon(Daemon());
        WaitUntilRunning(daemon);
        daemon.Kill();
    }
    WaitSinceLongAgo();
    {
        std::ofstream log(File("app.log"), std::ios::app);
        for (int i = 0; i < 20000; ++i)
            log << Stamp(now_ - 3400) << "web1 p: something else\n";
        log << Stamp(now_) << "web1 p: alpha\n";
    }
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    Look();
    EXPECT_EQ(0U, Alerts().size());
}

TEST_F(PolicyInADaemon, CountsWithinATimePerHostAndKeepsItOverAKill)
{
    Apply("report_count: 3, within: 10m, per: host, cooldown: 1h");
    {
        test::Child daemon(Daemon());
        WaitUntilRunning(daemon);
        // An old hit of web1 that does not count, and two that do; one of web2.
        LogAt({{7200, "web1"}, {5000, "web1"}, {4900, "web1"}, {4800, "web2"}});
        EXPECT_EQ(Texts(), Shown());
        daemon.Kill();
    }
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    LogAt({{4700, "web1"}});
    EXPECT_EQ(Texts{"web1 x3"}, Shown());
    // In the silence, over another kill.
    LogAt({{4600, "web1"}, {4600, "web1"}, {4600, "web1"}});
    daemon.Kill();
    test::Child again(Daemon());
    WaitUntilRunning(again);
    LogAt({{900, "web1"}, {900, "web1"}, {900, "web1"}});
    EXPECT_EQ((Texts{"web1 x3", "web1 x3 behind 1 of 3"}), Shown());
}

TEST_F(PolicyInADaemon, RepeatsOfALineAreHits)
{
    Apply("report_count: 5, within: 10m");
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    std::ofstream(File("var-log/messages"), std::ios::app)
        << Stamp(now_) << "host prog: alpha\n"
        << Stamp(now_) << "host last message repeated 4 times\n";
    Look();
    EXPECT_EQ(Texts{" x5"}, Shown());
}

TEST_F(PolicyInADaemon, EventsShowBothHalves)
{
    Apply("report_count: 3, within: 10m, per: host, cooldown: 1h");
    const json shown = Json({"event", "show", "A", "1"})["event"];
    EXPECT_EQ(3, shown["report_count"]);
    EXPECT_EQ("10m", shown["within"]);
    // What the monitor's table has.
    EXPECT_EQ("1\n",
              Syslogmon({"reg", "get",
                         "SOFTWARE\\KORBIN\\TARSKVOSKAR\\REPORTTABLE\\EVENTLOG\\APPLICATION\\A\\1\\"
                         "WATCHSETTING",
                         "ReportCount"})
                  .out);
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    LogAt({{100, "web1"}, {90, "web1"}, {80, "web2"}, {70, "web1"}, {60, "web1"}});
    const json counted = Counted();
    ASSERT_EQ(2U, counted["values"].size());
    EXPECT_EQ("web1", counted["values"][0]["value"]);
    EXPECT_EQ(1, counted["values"][0]["hits"]);
    EXPECT_EQ((static_cast<int64_t>(now_) - 70 + 3600) * 1000,
              counted["values"][0]["not_before_ms"]);
    EXPECT_TRUE(counted["values"][1]["not_before_ms"].is_null());
    const std::string text = Syslogmon({"event", "show", "A", "1"}).out;
    EXPECT_NE(std::string::npos, text.find("3 hits within 10 minutes make a report, for each host "
                                           "apart; then silence for 1 hour"))
        << text;
    EXPECT_NE(std::string::npos, text.find("1 of 3 within 10 minutes; next report not before 20"))
        << text;
}

TEST_F(PolicyInADaemon, EventSetChangesTheUsersNumberAndKeepsThePolicy)
{
    Apply("report_count: 3, within: 10m, severity: err");
    ASSERT_EQ(0, Syslogmon({"event", "set", "A", "1", "-n", "7"}).status);
    const json shown = Json({"event", "show", "A", "1"})["event"];
    EXPECT_EQ(7, shown["report_count"]);
    EXPECT_EQ("10m", shown["within"]);
    EXPECT_EQ("err", shown["severity"]);
    const std::string exported = Syslogmon({"export"}).out;
    EXPECT_NE(std::string::npos, exported.find("report_count: 7")) << exported;
    test::WriteFile(File("again.yaml"), exported);
    EXPECT_EQ("0 added, 0 changed, 0 removed, 1 unchanged.\n",
              Syslogmon({"apply", File("again.yaml")}).out);
}

TEST_F(PolicyInADaemon, OneLineIsExplainedFromWhatWasCountedByNow)
{
    Apply("report_count: 3, within: 10m, per: host");
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    LogAt({{5, "web1"}, {4, "web1"}, {3, "db1"}});
    const auto explained = [&](const std::string &host) {
        return Json(
            {"test", "--explain", Stamp(now_) + host + " prog[7]: alpha"})["events"][0]["reason"];
    };
    for (int i = 0; i < 2; ++i) { // the question itself counts nothing
        EXPECT_EQ("all its keywords are there, and it is reported, with 3 hits (host web1)",
                  explained("web1"));
        EXPECT_EQ("all its keywords are there, and it counts: 2 of 3 within 10 minutes (host db1)",
                  explained("db1"));
        EXPECT_EQ("all its keywords are there, and it counts: 1 of 3 within 10 minutes (host app1)",
                  explained("app1"));
    }
}

TEST_F(PolicyInADaemon, ASilenceHoldsByTheLabelsOfTheEvent)
{
    Apply("labels: {team: db}");
    ASSERT_EQ(0, Syslogmon({"silence", "add", "--label", "team=web", "--for", "1h"}).status);
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    LogAt({{5, "web1"}});
    ASSERT_EQ(0, Syslogmon({"silence", "add", "--label", "team=d*", "--for", "1h"}).status);
    Log("alpha");
    const auto alerts = Alerts();
    ASSERT_EQ(2U, alerts.size());
    EXPECT_FALSE(alerts[0].contains("silence"));
    EXPECT_EQ(2, alerts[1]["silence"]);
}

// The monitor searches for the text that the expression needs, and the agent decides.
TEST_F(PolicyInADaemon, AnExpressionAloneFindsItsLines)
{
    ASSERT_EQ(0, Syslogmon({"apply",
                            Rules("events:\n"
                                  "- {source: A, id: 1, regex: 'alpha (?P<what>[a-z]+) [0-9]+$', "
                                  "not: [probe], per: what}\n")})
                     .status);
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    for (const char *line : {"alpha disk 12", "alpha disk x", "alpha probe 1", "ALPHA disk 1"})
        Log(line);
    EXPECT_EQ(Texts{"disk x1"}, Shown());
    const std::string text = Syslogmon({"event", "show", "A", "1"}).out;
    EXPECT_NE(std::string::npos,
              text.find("hands over each line with \"alpha \", which its expression needs"))
        << text;
    const std::string line = Stamp(now_) + "web1 prog: alpha ";
    EXPECT_EQ("all its keywords are there, but \"probe\" leaves it out",
              Json({"test", "--explain", line + "probe 1"})["events"][0]["reason"]);
    const json verdict = Json({"test", "--explain", line + "disk"})["events"][0];
    EXPECT_EQ("all its keywords are there, but its expression does not match", verdict["reason"]);
    EXPECT_EQ(false, verdict["matches"]);
    // What was exported is the same, without the keyword that nobody has written.
    const std::string exported = Syslogmon({"export"}).out;
    EXPECT_EQ(std::string::npos, exported.find("keywords:")) << exported;
    test::WriteFile(File("again.yaml"), exported);
    EXPECT_EQ("0 added, 0 changed, 0 removed, 1 unchanged.\n",
              Syslogmon({"apply", File("again.yaml")}).out);
}

TEST_F(PolicyInADaemon, ATrialReportsWhatTheDaemonWould)
{
    const std::string rules =
        Rules("events:\n- {source: A, id: 1, keywords: alpha, report_count: 2, within: 1m, "
              "cooldown: 10m, per: host}\n");
    std::string log;
    for (const auto &[seconds_ago, host] : std::vector<std::pair<int, std::string>>{
             {3000, "a"}, {2990, "b"}, {2980, "a"}, {2900, "b"}, {2890, "a"}, {2880, "a"}})
        log += Stamp(now_ - seconds_ago) + host + " prog: alpha\n";
    test::WriteFile(File("the.log"), log);
    const json event = Json({"test", "--rules", rules, File("the.log")})["events"][0];
    EXPECT_EQ(6, event["hits"]);
    EXPECT_EQ(1, event["reports"]);
    EXPECT_EQ(1, event["held_back"]);
    const std::string line = Stamp(now_) + "web1 prog: alpha";
    EXPECT_EQ("all its keywords are there, and it counts: 1 of 2 within 1 minute (host web1)",
              Json({"test", "--rules", rules, "--explain", line})["events"][0]["reason"]);
}

} // namespace
