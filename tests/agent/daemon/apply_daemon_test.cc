// A running daemon takes what was applied or imported, and goes on counting.
#include <chrono>
#include <csignal>
#include <ctime>
#include <fstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "agent/status/status_file.h"
#include "platform/contract.h"
#include "tests/agent/support/command_test.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kPatience = std::chrono::seconds(60); // no step of a test takes this long
using namespace std::chrono_literals;
using status::MonitorState;

class ApplyToADaemon : public test::CommandTest {
  protected:
    ApplyToADaemon()
    {
        std::filesystem::create_directory_symlink(AGENT_LIBRARIES, File("lib"));
        std::filesystem::create_directory(File("var-log"));
        // The monitor begins behind what is there when it starts first.
        WriteLine("the log begins");
    }

    // The words that run it with a "/var/log" of its own.
    [[nodiscard]] test::Words Daemon() const
    {
        return test::Helper(Root(), {"with-folder", File("var-log"), "/var/log", SYSLOGMOND,
                                     "--root", Root(), "--print-alerts"});
    }
    // How long it takes until the status is as wanted, at most half a minute.
    template <typename Wanted>
    bool WaitForStatus(const test::Child &daemon, const Wanted &wanted) const
    {
        for (const auto end = Clock::now() + kPatience; Clock::now() < end;
             std::this_thread::sleep_for(2ms)) {
            const auto status = status::ReadStatus(Layout().run).value_or(status::Status{});
            if (status.pid == daemon.pid() && wanted(status))
                return true;
        }
        return false;
    }
    // Nothing but being told makes a monitor load its table again.
    void ExpectTable(const test::Child &daemon, int size) const
    {
        EXPECT_TRUE(WaitForStatus(
            daemon, [&](const status::Status &status) { return status.table_size == size; }));
    }
    void WaitUntilRunning(const test::Child &daemon) const
    {
        EXPECT_TRUE(WaitForStatus(daemon, [](const status::Status &status) {
            return status.state == MonitorState::kRunning;
        }));
        Look(); // the first pass begins behind what it finds in the log
    }
    [[nodiscard]] std::string Rules(const std::string &text) const
    {
        test::WriteFile(File("rules.yaml"), text);
        return File("rules.yaml").string();
    }
    // Writes a line as a syslog daemon does.
    void WriteLine(const std::string &message) const
    {
        const time_t now = time(nullptr);
        tm local{};
        char stamp[32];
        strftime(stamp, sizeof stamp, "%b %e %H:%M:%S", localtime_r(&now, &local));
        std::ofstream(File("var-log/messages"), std::ios::app)
            << stamp << " host kernel: " << message << "\n";
    }
    void Look() const { EXPECT_EQ(0, Syslogmon({"scan", "--wait", "--timeout", "20"}).status); }
    // Writes a line, and has it looked at.
    void Log(const std::string &message) const
    {
        WriteLine(message);
        Look();
    }
    // The hits of all events: "DISK 1: 2", one line each.
    [[nodiscard]] std::string Hits() const
    {
        std::string text;
        const nlohmann::json list = Json({"event", "list"});
        for (const auto &event : list["events"])
            text += event["source"].get<std::string>() + " " + event["id"].get<std::string>() +
                    ": " + event["hits"].dump() + "\n";
        return text;
    }
};

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
