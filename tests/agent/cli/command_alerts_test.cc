// syslogmon alerts.
#include <cstdlib>
#include <ctime>
#include <sstream>

#include <nlohmann/json.hpp>

#include "agent/alerts/alert_store.h"
#include "agent/status/status_file.h"
#include "tests/agent/support/command_test.h"

namespace {

using alerts::Alert;
using nlohmann::json;
using test::Child;

class AlertsCommand : public test::CommandTest {
  protected:
    AlertsCommand()
    {
        setenv("TZ", "UTC-9", 1); // nine hours east, for the command too
        tzset();
    }
    ~AlertsCommand() override
    {
        unsetenv("TZ");
        tzset();
    }

    void Add(int64_t time_ms, const std::string &message) const
    {
        Alert alert;
        alert.time_ms = time_ms;
        alert.host = "host";
        alert.log_name = "Application";
        alert.source = "DISK";
        alert.event_id = 0x1A2B;
        alert.count = 3;
        alert.message = message;
        StartHere();
        alerts::AddAlert(test::Store(), alert);
        test::StopHost();
    }
    void AddOf(const std::string &source, uint32_t event_id, const std::string &host,
               const std::string &message) const
    {
        Alert alert;
        alert.time_ms = 1;
        alert.host = host;
        alert.source = source;
        alert.event_id = event_id;
        alert.message = message;
        StartHere();
        alerts::AddAlert(test::Store(), alert);
        test::StopHost();
    }
    // The messages that are shown with these words.
    [[nodiscard]] std::vector<std::string> Messages(const test::Words &words) const
    {
        test::Words all = {"--json", "alerts"};
        all.insert(all.end(), words.begin(), words.end());
        const test::Finished finished = Syslogmon(all);
        EXPECT_EQ(0, finished.status) << finished.err;
        std::vector<std::string> messages;
        std::istringstream lines(finished.out);
        for (std::string line; std::getline(lines, line);)
            messages.push_back(json::parse(line)["message"]);
        return messages;
    }
};

using Strings = std::vector<std::string>;
constexpr int64_t kMoment = 1795222801000; // 2026-11-21 10:00:01, nine hours east

TEST_F(AlertsCommand, WithoutAlertsPrintsNothing)
{
    ExpectOutput({"alerts"}, "");
    ExpectOutput({"--json", "alerts"}, "");
}

TEST_F(AlertsCommand, AreChosenByTheirSeverityTimeAndSilence)
{
    const auto add = [](int64_t time_ms, const std::string &severity, uint32_t silence) {
        Alert alert;
        alert.time_ms = time_ms;
        alert.severity = severity;
        alert.silence = silence;
        alert.message = severity.empty() ? "none" : severity;
        alerts::AddAlert(test::Store(), alert);
    };
    StartHere();
    add(kMoment, "crit", 0);
    add(kMoment + 60000, "", 7);
    add(kMoment + 120000, "notice", 0);
    test::StopHost();
    EXPECT_EQ((Strings{"crit"}), Messages({"--severity", "err"}));
    EXPECT_EQ((Strings{"crit", "none"}), Messages({"--severity", "warning"}));
    EXPECT_EQ((Strings{"crit", "none", "notice"}), Messages({"--severity", "debug"}));
    EXPECT_EQ((Strings{"none"}), Messages({"--silenced"}));
    EXPECT_EQ((Strings{"crit", "none"}), Messages({"--until", "2026-11-21 10:02"}));
    EXPECT_EQ((Strings{"none"}),
              Messages({"--since", "2026-11-21 10:01", "--until", "2026-11-21 10:02"}));
    EXPECT_EQ((Strings{"crit"}), Messages({"--severity", "err", "-n", "2"}));
    EXPECT_NE(std::string::npos,
              Syslogmon({"alerts", "--silenced"}).out.find("(held back by the silence 7)"));
    ExpectFailed({"alerts", "--severity", "bad"},
                 "cannot use the severity \"bad\": there is none of that name; use emerg, alert, "
                 "crit, err, warning, notice, info, debug");
}

TEST_F(AlertsCommand, SayWhyTheyCameWhenThatIsWanted)
{
    Alert alert;
    alert.time_ms = kMoment;
    alert.source = "DISK";
    alert.event_id = 1;
    alert.count = 3;
    alert.message = "one";
    alert.terms = "3 hits make\x1B[2J a report";
    alert.held_back = {2, 5, 0, 0, "", ""};
    alert.silence = 4;
    StartHere();
    alerts::AddAlert(test::Store(), alert);
    test::StopHost();
    const std::string why = "3 hits: 3 hits make?[2J a report; 2 reports of 5 hits were held back "
                            "before it; no receiver is told: silence 4 holds it back";
    const std::string line = test::Finished(Syslogmon({"alerts"})).out;
    ExpectOutput({"alerts", "--why"}, line + "    why: " + why + "\n");
    EXPECT_EQ(std::string::npos, line.find("why"));
    EXPECT_EQ(why, json::parse(Syslogmon({"--json", "alerts", "--why"}).out)["why"]);
    EXPECT_FALSE(json::parse(Syslogmon({"--json", "alerts"}).out).contains("why"));
}

TEST_F(AlertsCommand, AreShownOldestFirst)
{
    Add(kMoment, "one");
    Add(kMoment + 1000, "two\x1B[2J");
    ExpectOutput({"alerts"}, "2026-11-21 10:00:01  DISK 1A2B  x3  one\n"
                             "2026-11-21 10:00:02  DISK 1A2B  x3  two?[2J\n");
}

TEST_F(AlertsCommand, AsJsonAreOneObjectALine)
{
    Add(kMoment, "line \xFF");
    StartHere();
    const std::string key = alerts::ReadAlerts(test::Store().database(), 0, 0, 1).at(0).key;
    test::StopHost();
    const test::Finished finished = Syslogmon({"--json", "alerts"});
    EXPECT_EQ((json{{"id", 1},
                    {"key", key},
                    {"time", "2026-11-21T01:00:01.000Z"},
                    {"time_ms", kMoment},
                    {"host", "host"},
                    {"source", "DISK"},
                    {"event_id", "1A2B"},
                    {"count", 3},
                    {"message", "line \uFFFD"}}),
              json::parse(finished.out));
    EXPECT_EQ('\n', finished.out.back());
}

TEST_F(AlertsCommand, AsJsonOneOfManyReportsHasTheirNumberAndTheLast)
{
    Add(kMoment, "first");
    StartHere();
    Alert report;
    report.count = 4;
    report.time_ms = kMoment + 7;
    report.message = "last";
    alerts::FoldInto(test::Store(), 1, report);
    test::StopHost();
    const json shown = json::parse(Syslogmon({"--json", "alerts"}).out);
    EXPECT_EQ(7, shown["count"]);
    EXPECT_EQ(2, shown["reports"]);
    EXPECT_EQ(kMoment, shown["time_ms"]);
    EXPECT_EQ(kMoment + 7, shown["last_time_ms"]);
    EXPECT_EQ("first", shown["message"]);
    EXPECT_EQ("last", shown["last_message"]);
}

TEST_F(AlertsCommand, SinceATimeOrAWhileAgo)
{
    const int64_t now = status::WallTimeMs();
    Add(kMoment - 1000, "before");
    Add(kMoment, "at");
    Add(now - 3600 * 1000, "an hour ago");
    Add(now, "now");
    EXPECT_EQ((Strings{"at", "an hour ago", "now"}), Messages({"--since", "2026-11-21 10:00:01"}));
    EXPECT_EQ((Strings{"before", "at", "an hour ago", "now"}),
              Messages({"--since", "2026-11-21 10:00"}));
    EXPECT_EQ((Strings{"before", "at", "an hour ago", "now"}), Messages({"--since", "2026-11-21"}));
    EXPECT_EQ(Strings{"now"}, Messages({"--since", "50m"}));
    EXPECT_EQ(Strings{"now"}, Messages({"--since", "3000s"}));
    EXPECT_EQ((Strings{"an hour ago", "now"}), Messages({"--since", "1h0m30s"}));
    EXPECT_EQ((Strings{"at", "an hour ago", "now"}), Messages({"--since", "2026-11-21T10:00:01"}));
    EXPECT_EQ((Strings{"at", "an hour ago", "now"}),
              Messages({"--since", "2026-11-21T01:00:01.000Z"}));
    EXPECT_EQ((Strings{"at", "an hour ago", "now"}),
              Messages({"--since", "2026-11-21T02:00:01+01:00"}));
    EXPECT_EQ("now", Messages({"--since", "1d"}).back());
}

TEST_F(AlertsCommand, OfASourceAHostAnEventOrAText)
{
    AddOf("DISK", 1, "web01", "Disk sda FAILED");
    AddOf("DISK", 2, "db01", "disk sdb is slow");
    AddOf("NETWORK", 1, "web02", "link is down");
    EXPECT_EQ((Strings{"Disk sda FAILED", "disk sdb is slow"}), Messages({"--source", "DISK"}));
    EXPECT_EQ(Strings{"link is down"}, Messages({"--source", "NET*"}));
    EXPECT_TRUE(Messages({"--source", "disk"}).empty());
    EXPECT_EQ((Strings{"Disk sda FAILED", "link is down"}), Messages({"--host", "web*"}));
    EXPECT_EQ((Strings{"Disk sda FAILED", "link is down"}), Messages({"--event", "1"}));
    EXPECT_EQ((Strings{"Disk sda FAILED", "disk sdb is slow"}), Messages({"--text", "disk"}));
    EXPECT_EQ(Strings{"Disk sda FAILED"}, Messages({"--text", "failed", "--event", "1"}));
    EXPECT_TRUE(Messages({"--text", "failed", "--event", "2"}).empty());
    EXPECT_TRUE(Messages({"--text", "%"}).empty());
}

TEST_F(AlertsCommand, OfAHostAreThoseOfItsLinesAndThoseOfItsMonitor)
{
    alerts::Alert alert;
    alert.time_ms = kMoment;
    alert.host = "centre";
    alert.source = "DISK";
    StartHere();
    for (const char *line_host : {"web07", "web08", ""}) {
        alert.line_host = line_host;
        alert.message = "of " + std::string(line_host);
        alerts::AddAlert(test::Store(), alert);
    }
    test::StopHost();
    EXPECT_EQ(Strings{"of web07"}, Messages({"--host", "web07"}));
    EXPECT_EQ((Strings{"of web07", "of web08"}), Messages({"--host", "web*"}));
    EXPECT_EQ((Strings{"of web07", "of web08", "of "}), Messages({"--host", "centre"}));
    EXPECT_TRUE(Messages({"--host", "web09"}).empty());
}

TEST_F(AlertsCommand, TheLastOnesAreOfThoseThatAreAskedFor)
{
    for (int i = 1; i <= 12; ++i)
        AddOf(i % 2 == 0 ? "EVEN" : "ODD", 1, "host", std::to_string(i));
    EXPECT_EQ((Strings{"11", "12"}), Messages({"-n", "2"}));
    EXPECT_EQ((Strings{"10", "12"}), Messages({"-n", "2", "--source", "EVEN"}));
    EXPECT_TRUE(Messages({"-n", "0"}).empty());
    EXPECT_EQ(12U, Messages({"-n", "100"}).size());
    EXPECT_EQ(2, Syslogmon({"alerts", "-n", "-1"}).status);
}

TEST_F(AlertsCommand, ATimeOfAnotherFormIsRefused)
{
    for (const char *time :
         {"tomorrow", "10", "10x", "30m1h", "1h1h", "25:00", "2026-11-21T", "2026-11-21T10:00+x",
          "-5m", "10m later", "2026-13-01", "21.11.2026", "m"})
        ExpectFailed({"alerts", "--since", time},
                     std::string("cannot use the time \"") + time +
                         "\": its form is not known; write 10m, 1h30m, 1d, 10:00, yesterday "
                         "or \"2026-11-21 10:00\"");
}

TEST_F(AlertsCommand, AWhileThatIsNoNumberOfIntsSizeIsRefused)
{
    ExpectFailed({"alerts", "--since", "99999999999s"},
                 "cannot use the time \"99999999999s\": its form is not known; write 10m, 1h30m, "
                 "1d, 10:00, yesterday or \"2026-11-21 10:00\"");
}

TEST_F(AlertsCommand, MoreThanAreReadAtOnceAreAllShown)
{
    StartHere();
    {
        host::Transaction transaction(test::Store());
        for (int i = 0; i < 2500; ++i) {
            Alert alert;
            alert.message = std::to_string(i);
            alerts::AddAlert(test::Store(), alert);
        }
        transaction.Commit();
    }
    test::StopHost();
    const auto messages = Messages({});
    ASSERT_EQ(2500U, messages.size());
    EXPECT_EQ("0", messages.front());
    EXPECT_EQ("2499", messages.back());
}

TEST_F(AlertsCommand, FollowShowsNewOnesAsTheyAreStored)
{
    Add(kMoment, "before");
    Child command(test::Command(Root(), {"alerts", "--follow"}));
    EXPECT_EQ("2026-11-21 10:00:01  DISK 1A2B  x3  before", command.ReadLine());
    for (const char *message : {"one", "two"}) {
        Add(kMoment, message);
        EXPECT_EQ(std::string("2026-11-21 10:00:01  DISK 1A2B  x3  ") + message,
                  command.ReadLine());
    }
}

TEST_F(AlertsCommand, FollowBeginsWithTheLastTenOrAsManyAsAreAskedFor)
{
    for (int i = 1; i <= 12; ++i)
        Add(kMoment, std::to_string(i));
    Child last_ten(test::Command(Root(), {"alerts", "--follow"}));
    EXPECT_EQ("2026-11-21 10:00:01  DISK 1A2B  x3  3", last_ten.ReadLine());
    Child last(test::Command(Root(), {"alerts", "--follow", "-n", "1"}));
    EXPECT_EQ("2026-11-21 10:00:01  DISK 1A2B  x3  12", last.ReadLine());
    Child since(test::Command(Root(), {"alerts", "--follow", "--since", "2026-11-21"}));
    EXPECT_EQ("2026-11-21 10:00:01  DISK 1A2B  x3  1", since.ReadLine());
}

// U+009B is what ESC [ is in one character; a terminal in UTF-8 acts on it.
TEST_F(AlertsCommand, WritesNothingInJsonThatATerminalObeys)
{
    const std::string message = "disk \u009B31m \u202E";
    Add(0, message);
    const std::string out = Syslogmon({"--json", "alerts"}).out;
    EXPECT_NE(std::string::npos, out.find("disk \\u009b31m \\u202e")) << out;
    EXPECT_EQ(message, json::parse(out)["message"]);
}

} // namespace
