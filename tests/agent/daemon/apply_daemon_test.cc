// A running daemon takes what was applied or imported, and goes on counting.
#include <csignal>

#include <nlohmann/json.hpp>

#include "platform/contract.h"
#include "tests/agent/support/daemon_test.h"

namespace {

using status::MonitorState;

class ApplyToADaemon : public test::DaemonTest {};

TEST_F(ApplyToADaemon, TakesItWhenToldAndKeepsTheCountersOfWhatStays)
{
    ASSERT_EQ(
        0, Syslogmon({"apply", Rules("events:\n"
                                     "- {source: A, id: 1, keywords: alpha, report_count: 9}\n"
                                     "- {source: B, id: 1, keywords: alpha, report_count: 9}\n"
                                     "- {source: C, id: 1, keywords: alpha, report_count: 9}\n"
                                     "- {source: D, id: 1, keywords: alpha, report_count: 9}\n")})
               .status);
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    Log("alpha one");
    Log("alpha two");
    ASSERT_EQ("A 1: 2\nB 1: 2\nC 1: 2\nD 1: 2\n", Hits());

    // A stays, B gets another keyword, C another report count, D goes, and two are new.
    const std::string file = Rules("events:\n"
                                   "- {source: A, id: 1, keywords: alpha, report_count: 9}\n"
                                   "- {source: B, id: 1, keywords: beta, report_count: 9}\n"
                                   "- {source: C, id: 1, keywords: alpha, report_count: 8}\n"
                                   "- {source: E, id: 1, keywords: alpha, report_count: 9}\n"
                                   "- {source: E, id: 2, keywords: alpha, report_count: 9}\n");
    ASSERT_EQ(0, Syslogmon({"apply", "--prune", file}).status);
    ExpectTable(daemon, 5);

    Log("alpha three");
    EXPECT_EQ("A 1: 3\nB 1: 2\nC 1: 1\nE 1: 1\nE 2: 1\n", Hits());
    daemon.Signal(SIGTERM);
    EXPECT_EQ(0, daemon.Wait());
}

// Bytes of a file that somebody else writes, once this stands in it.
std::string FileWith(const std::filesystem::path &file, const std::string &text)
{
    for (const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
         std::chrono::steady_clock::now() < end;
         std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
        if (std::filesystem::exists(file) && test::ReadFile(file).find(text) != std::string::npos)
            return test::ReadFile(file);
    }
    return "never";
}

TEST_F(ApplyToADaemon, ItTakesSinksInputsSilencesAndSettingsOfOneFileAtOnce)
{
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    test::WriteFile(File("app.log"), "");
    const std::string sinks =
        "sinks: [{name: out, kind: file, path: " + File("out").string() + "}]\n";
    ASSERT_EQ(0,
              Syslogmon({"apply", Rules("events:\n"
                                        "- {source: A, id: 1, keywords: alpha}\n"
                                        "- {source: QUIET, id: 1, keywords: alpha}\n"
                                        "silences: [{source: QUIET, until: 2100-01-01}]\n"
                                        "inputs: [{name: app, kind: files, format: none, path: " +
                                        File("app.log").string() + "}]\n" +
                                        "settings: {cycle: 3600, trigger-interval: 50}\n" + sinks)})
                  .status);
    EXPECT_TRUE(WaitForStatus(daemon, [](const status::Status &status) {
        return status.table_size == 2 && !status.inputs.empty();
    }));
    std::ofstream(File("app.log"), std::ios::app) << "alpha one\n";
    const std::string told = FileWith(File("out"), "alpha one");
    EXPECT_NE(std::string::npos, told.find("\"source\":\"A\"")) << told;
    Log("alpha two");
    EXPECT_EQ(std::string::npos, FileWith(File("out"), "alpha two").find("QUIET"));
    // All of it goes again, and the log is read on.
    ASSERT_EQ(
        0, Syslogmon({"apply", Rules("inputs: []\nsilences: []\nsettings: {}\n" + sinks)}).status);
    EXPECT_TRUE(
        WaitForStatus(daemon, [](const status::Status &status) { return status.inputs.empty(); }));
    Log("alpha three");
    const std::string last = FileWith(File("out"), "\"source\":\"QUIET\"");
    EXPECT_NE(std::string::npos, last.find("alpha three")) << last;
    daemon.Signal(SIGTERM);
    EXPECT_EQ(0, daemon.Wait());
}

TEST_F(ApplyToADaemon, AnAlertSaysWhatThePolicySaysThatWasAppliedLast)
{
    ASSERT_EQ(0, Syslogmon({"apply", Rules("events:\n"
                                           "- {source: A, id: 1, keywords: alpha}\n")})
                     .status);
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    Log("alpha one");
    ASSERT_EQ(0, Syslogmon({"apply",
                            Rules("events:\n"
                                  "- {source: A, id: 1, keywords: alpha, severity: crit,\n"
                                  "   labels: {team: disks}, summary: \"{{program}}@{{host}}\"}\n"
                                  "- {source: B, id: 1, keywords: beta}\n")})
                     .status);
    ExpectTable(daemon, 2);
    Log("alpha two");
    const auto alerts = Alerts();
    ASSERT_EQ(2U, alerts.size());
    EXPECT_FALSE(alerts[0].contains("severity"));
    EXPECT_EQ("crit", alerts[1]["severity"]);
    EXPECT_EQ("disks", alerts[1]["labels"]["team"]);
    EXPECT_EQ("kernel@host", alerts[1]["summary"]);
}

TEST_F(ApplyToADaemon, AFileThatIsRefusedLeavesItAlone)
{
    ASSERT_EQ(0, Syslogmon({"apply", Rules("events: [{source: A, id: 1, keywords: alpha, "
                                           "report_count: 9}]")})
                     .status);
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    Log("alpha one");
    EXPECT_EQ(1, Syslogmon({"apply", "--prune", Rules("events: [{source: B, id: 1}]")}).status);
    Log("alpha two");
    EXPECT_EQ("A 1: 2\n", Hits());
}

TEST_F(ApplyToADaemon, TakesWhatWasImported)
{
    ExpectDone({"event", "add", "A", "1", "-k", "alpha", "-n", "9"});
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    Log("alpha one");
    const std::string application = std::string("[HKLM\\") + kApplicationKey;
    test::WriteFile(File("b.reg"),
                    "REGEDIT4\n" + application + "\\B\\1\\WATCHSETTING]\n" +
                        "\"KeyWord\"=\"alpha\"\n\"KeyWord2\"=\"\"\n\"KeyWord3\"=\"\"\n"
                        "\"ReportCount\"=dword:9\n\"WatchTime\"=dword:ffffff\n");
    ASSERT_EQ(0, Syslogmon({"reg", "import", File("b.reg").string()}).status);
    ExpectTable(daemon, 2);
    Log("alpha two");
    EXPECT_EQ("A 1: 2\nB 1: 1\n", Hits());
}

} // namespace
