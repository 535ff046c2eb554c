// The daemon: how it starts, and how it treats a monitor that does not.
#include <chrono>
#include <csignal>
#include <thread>

#include "agent/status/status_file.h"
#include "platform/contract.h"
#include "tests/agent/support/command_test.h"

namespace {

using status::MonitorState;
using test::Child;
using test::Helper;
using test::RunToEnd;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

class DaemonTest : public test::CommandTest {
  protected:
    DaemonTest()
    {
        std::filesystem::create_directory_symlink(AGENT_LIBRARIES, File("lib"));
        std::filesystem::create_directory(File("var-log"));
    }

    // The words that run it with a "/var/log" of its own.
    [[nodiscard]] test::Words Words() const
    {
        return Helper(Root(), {"with-folder", File("var-log"), "/var/log", SYSLOGMOND, "--root",
                               Root(), "--print-alerts"});
    }
    // The status of that daemon, once it is as wanted; the last one after half a minute.
    template <typename Wanted>
    status::Status WaitForStatus(const Child &daemon, const Wanted &wanted) const
    {
        const auto end = Clock::now() + 30s;
        status::Status status;
        do {
            status = status::ReadStatus(Layout().run).value_or(status::Status{});
            if (status.pid == daemon.pid() && wanted(status))
                break;
            std::this_thread::sleep_for(5ms);
        } while (Clock::now() < end);
        return status;
    }
    status::Status WaitUntilStarted(const Child &daemon) const
    {
        return WaitForStatus(daemon, [](const status::Status &status) {
            return status.state != MonitorState::kStarting;
        });
    }
    void AddDamagedEvent() const
    {
        ExpectDone({"event", "add", "DISK", "1", "-k", "a"});
        ExpectDone({"reg", "delete", std::string(kApplicationKey) + "\\DISK\\1\\WATCHSETTING",
                    "ReportCount"});
    }
};

TEST_F(DaemonTest, RunsUntilItIsToldToStop)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "a"});
    for (const int signal : {SIGTERM, SIGINT}) {
        Child daemon(Words());
        EXPECT_EQ(MonitorState::kRunning, WaitUntilStarted(daemon).state);
        EXPECT_EQ(0,
                  RunToEnd(Helper(Root(), {"with-folder", File("var-log"), "/var/log", SYSLOGMON,
                                           "--root", Root(), "scan", "--wait", "--timeout", "20"}))
                      .status);
        daemon.Signal(signal);
        EXPECT_EQ(0, daemon.Wait());
        EXPECT_EQ(3, Syslogmon({"status"}).status);
    }
}

TEST_F(DaemonTest, RunsWithARegistryInWhichNothingIsRegisteredYet)
{
    Child daemon(Words());
    const status::Status status = WaitUntilStarted(daemon);
    EXPECT_EQ(MonitorState::kRunning, status.state) << status.last_error;
    EXPECT_EQ(0, status.table_size);
}

TEST_F(DaemonTest, TakesANewEventWhileItRuns)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "a"});
    Child daemon(Words());
    EXPECT_EQ(1, WaitUntilStarted(daemon).table_size);
    ExpectDone({"event", "add", "DISK", "2", "-k", "b"});
    EXPECT_EQ(2, WaitForStatus(daemon, [](const auto &status) {
                     return status.table_size == 2;
                 }).table_size);
}

TEST_F(DaemonTest, ASecondOneIsRefused)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "a"});
    Child daemon(Words());
    WaitUntilStarted(daemon);
    const test::Finished second = RunToEnd({SYSLOGMOND, "--root", Root()});
    EXPECT_EQ(1, second.status);
    EXPECT_EQ("syslogmond: cannot start the daemon: it is already running as process " +
                  std::to_string(daemon.pid()) +
                  "; stop that one first, or name another install root with --root\n",
              second.err);
}

TEST_F(DaemonTest, ARootThatIsNoneIsNamedAndLeftAlone)
{
    const std::filesystem::path other = File("other");
    std::filesystem::create_directory(other);
    const test::Finished finished = RunToEnd({SYSLOGMOND, "--root", other});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ("syslogmond: cannot use the install root " + other.string() +
                  ": there is neither lib/vkevmon.dll nor state/agent.db in it; name an install "
                  "root with --root\n",
              finished.err);
    EXPECT_TRUE(std::filesystem::is_empty(other));
}

TEST_F(DaemonTest, WithoutItsModuleItEndsAndNamesIt)
{
    std::filesystem::remove(File("lib"));
    const test::Finished finished = RunToEnd({SYSLOGMOND, "--root", Root()});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ(0U, finished.err.find("syslogmond: cannot load the monitor module: " +
                                    File("lib/vkevmon.dll").string()))
        << finished.err;
}

TEST_F(DaemonTest, WithADamagedStoreItEndsAndNamesIt)
{
    Layout().CreateFolders();
    test::WriteFile(Layout().Store(), "");
    const test::Finished finished = RunToEnd({SYSLOGMOND, "--root", Root()});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ("syslogmond: cannot use " + Layout().Store().string() + ": the file is empty; " +
                  host::kReplaceStore + "\n",
              finished.err);
}

TEST_F(DaemonTest, WrongWordsAreWrongUsage)
{
    EXPECT_EQ(2, RunToEnd({SYSLOGMOND, "--nonsense"}).status);
    EXPECT_EQ(2, RunToEnd({SYSLOGMOND, "word"}).status);
    EXPECT_EQ(0, RunToEnd({SYSLOGMOND, "--help"}).status);
    EXPECT_EQ("syslogmond " SYSLOGMON_VERSION "\n", RunToEnd({SYSLOGMOND, "--version"}).out);
}

TEST_F(DaemonTest, WordsThatCannotBeWrittenAreAFailure)
{
    for (const std::string word : {"--version", "--help"}) {
        const auto finished = RunToEnd({"/bin/sh", "-c", SYSLOGMOND " " + word + " >/dev/full"});
        EXPECT_EQ(1, finished.status) << word;
        EXPECT_EQ(0U, finished.err.find("syslogmond: cannot write on standard output: "))
            << finished.err;
    }
}

// ---- a monitor that ends by itself ----

TEST_F(DaemonTest, AMonitorThatCannotLoadItsTableIsStartedAgainAfterAPause)
{
    AddDamagedEvent();
    Child daemon(Words());
    EXPECT_EQ(MonitorState::kPausing, WaitUntilStarted(daemon).state);
    const status::Status second =
        WaitForStatus(daemon, [](const auto &status) { return status.restarts == 2; });
    EXPECT_EQ(2, second.restarts);
    EXPECT_EQ("VKVMonQueGet() failed", second.last_error);
}

TEST_F(DaemonTest, AMendedEventIsTriedAtOnce)
{
    AddDamagedEvent();
    Child daemon(Words());
    EXPECT_EQ(MonitorState::kPausing, WaitUntilStarted(daemon).state);
    ExpectDone({"event", "set", "DISK", "1", "-n", "1"});
    EXPECT_EQ(MonitorState::kRunning, WaitForStatus(daemon, [](const auto &status) {
                                          return status.state == MonitorState::kRunning;
                                      }).state);
}

TEST_F(DaemonTest, AChangeThatMendsNothingIsTriedOnceAndNotForEver)
{
    AddDamagedEvent();
    Child daemon(Words());
    const auto restarts = [&](int64_t count) {
        return WaitForStatus(daemon, [&](const auto &status) { return status.restarts >= count; })
            .restarts;
    };
    ASSERT_EQ(2, restarts(2)); // the next pause is the longer one, of two seconds
    ExpectDone({"event", "add", "OTHER", "1", "-k", "b"});
    ASSERT_LE(3, restarts(3));
    std::this_thread::sleep_for(1s);
    EXPECT_GE(4, restarts(3)) << "the pauses are not kept";
}

} // namespace
