// The trigger, in a real daemon: how soon a line is reported, and how often the monitor looks.
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <thread>
#include <unistd.h>

#include "agent/status/status_file.h"
#include "tests/agent/support/command_test.h"

namespace {

namespace fs = std::filesystem;

using test::Child;
using test::Helper;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Nothing here waits for the cycle, which is 300 seconds: a line that is reported at all was
// reported because of the trigger.
class TriggerTest : public test::CommandTest {
  protected:
    TriggerTest()
    {
        fs::create_directory_symlink(AGENT_LIBRARIES, File("lib"));
        fs::create_directory(File("var-log"));
        Append(SystemLog(), "first line");
        ExpectDone({"event", "add", "DISK", "1", "-k", "bad"});
        ExpectDone({"set", "trigger-interval", "200"});
    }

    // "/var/log/messages" as the daemon sees it.
    [[nodiscard]] fs::path SystemLog() const { return File("var-log/messages"); }

    // The words that run a daemon with a "/var/log" of its own.
    [[nodiscard]] test::Words Daemon() const
    {
        return Helper(Root(), {"with-folder", File("var-log"), "/var/log", SYSLOGMOND, "--root",
                               Root(), "--print-alerts"});
    }
    // Behind a shell script that runs it as "daemon", and dies with it.
    [[nodiscard]] test::Words DaemonIn(const std::string &script) const
    {
        const std::string run = "setpriv --pdeathsig KILL " + std::string(SYSLOGMOND) +
                                " --root '" + Root().string() + "' --print-alerts";
        return Helper(Root(), {"with-folder", File("var-log"), "/var/log", "/bin/sh", "-c",
                               "daemon() { exec " + run + "; }\n" + script});
    }

    static void Append(const fs::path &path, const std::string &text)
    {
        char stamp[32];
        const time_t now = time(nullptr);
        struct tm local {};
        strftime(stamp, sizeof stamp, "%b %e %H:%M:%S", localtime_r(&now, &local));
        const std::string line = std::string(stamp) + " host app: " + text + "\n";
        const host::Fd file(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
        ASSERT_EQ(static_cast<ssize_t>(line.size()), write(file.get(), line.data(), line.size()));
    }

    [[nodiscard]] status::Status DaemonStatus() const
    {
        return status::ReadStatus(Layout().run).value_or(status::Status{});
    }
    // Until the first pass is done: what is written from now on is new.
    void WaitForFirstPass() const
    {
        const auto end = Clock::now() + 20s;
        while (DaemonStatus().last_pass.number < 1 && Clock::now() < end)
            std::this_thread::sleep_for(5ms);
        ASSERT_LE(1, DaemonStatus().last_pass.number);
    }
    // The daemon rests: its passes are done.
    int64_t PassesWhenAtRest() const
    {
        int64_t seen = -1;
        while (seen != DaemonStatus().last_pass.number) {
            seen = DaemonStatus().last_pass.number;
            std::this_thread::sleep_for(500ms); // more than the interval
        }
        return seen;
    }
    // The daemon prints an alert of a line with this text.
    static void ExpectAlert(Child &daemon, const std::string &text)
    {
        const std::string line = daemon.ReadLine();
        EXPECT_NE(std::string::npos, line.find("app: " + text)) << line;
    }
};

TEST_F(TriggerTest, ALineIsReportedAsSoonAsItIsWritten)
{
    Child daemon(Daemon());
    WaitForFirstPass();
    // The cycle is ten times longer than a child is waited for.
    for (const char *text : {"bad one", "bad two", "bad three"}) {
        Append(SystemLog(), text);
        ExpectAlert(daemon, text);
    }
}

TEST_F(TriggerTest, FilesThatAreWrittenAllTheTimeAreLookedAtOncePerInterval)
{
    Child daemon(Daemon());
    WaitForFirstPass();
    const int64_t before = DaemonStatus().last_pass.number;
    const auto begin = Clock::now();
    int64_t passes = 0;
    for (; passes < 8; passes = DaemonStatus().last_pass.number - before) {
        Append(SystemLog(), "well");
        std::this_thread::sleep_for(2ms);
    }
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
    EXPECT_GE((took.count() / 200) + 1, passes);
}

TEST_F(TriggerTest, AChangeWithinTheIntervalIsNotLost)
{
    Child daemon(Daemon());
    WaitForFirstPass();
    for (const char *text : {"bad one", "bad two"}) {
        Append(SystemLog(), text);
        ExpectAlert(daemon, text);
        Append(SystemLog(), "bad, a moment later");
        ExpectAlert(daemon, "bad, a moment later");
    }
}

TEST_F(TriggerTest, IntervalZeroTurnsItOffAndOnAgain)
{
    ExpectDone({"set", "trigger-interval", "0"});
    Child daemon(Daemon());
    WaitForFirstPass();
    Append(SystemLog(), "bad one");
    std::this_thread::sleep_for(600ms);
    EXPECT_EQ(1, DaemonStatus().last_pass.number);
    ExpectDone({"set", "trigger-interval", "default"});
    ExpectAlert(daemon, "bad one");
    Append(SystemLog(), "bad two");
    ExpectAlert(daemon, "bad two");
}

TEST_F(TriggerTest, WhereNothingIsWrittenTheMonitorSleeps)
{
    Child daemon(Daemon());
    WaitForFirstPass();
    EXPECT_EQ(1, PassesWhenAtRest());
    const auto switches = [&] {
        std::string all;
        for (const auto &task :
             fs::directory_iterator("/proc/" + std::to_string(daemon.pid()) + "/task"))
            for (const std::string &line : test::ReadLines(task.path() / "status"))
                all += line.find("ctxt_switches") != std::string::npos ? line + "\n" : "";
        return all;
    };
    const std::string before = switches();
    EXPECT_NE("", before);
    std::this_thread::sleep_for(2s);
    EXPECT_EQ(before, switches()) << "the daemon has run";
}

TEST_F(TriggerTest, OtherLogsOfTheDirectoryWakeNobody)
{
    Append(File("var-log/other"), "first line");
    Child daemon(Daemon());
    WaitForFirstPass();
    const int64_t before = PassesWhenAtRest();
    for (int i = 0; i < 100; ++i) {
        Append(File("var-log/other"), "bad");
        Append(File("var-log/new." + std::to_string(i)), "bad");
    }
    EXPECT_EQ(before, PassesWhenAtRest());
    Append(SystemLog(), "bad after all");
    ExpectAlert(daemon, "bad after all");
}

TEST_F(TriggerTest, GoesOnWithTheNewFileAfterARotation)
{
    Child daemon(Daemon());
    WaitForFirstPass();
    for (int round = 0; round < 3; ++round) {
        fs::rename(SystemLog(), File("var-log/messages.1"));
        std::this_thread::sleep_for(20ms);
        for (const char *text : {"bad at first", "bad again"}) {
            Append(SystemLog(), text + std::to_string(round));
            ExpectAlert(daemon, text + std::to_string(round));
        }
    }
}

TEST_F(TriggerTest, FollowsTheSettingsOfTheOtherFiles)
{
    Append(File("customer"), "first line");
    Append(File("target"), "first line");
    Append(File("customer2"), "first line");
    Child daemon(Daemon());
    WaitForFirstPass();
    ExpectDone({"set", "customer-file", File("customer")});
    ExpectDone({"set", "file-monitor", File("target")});
    PassesWhenAtRest();
    for (const char *name : {"customer", "target", "var-log/messages"}) {
        Append(File(name), std::string("bad in ") + name);
        ExpectAlert(daemon, std::string("bad in ") + name);
    }
    ExpectDone({"set", "customer-file", File("customer2")});
    const int64_t before = PassesWhenAtRest();
    Append(File("customer"), "bad in a file that is no longer monitored");
    EXPECT_EQ(before, PassesWhenAtRest());
    Append(File("customer2"), "bad in customer2");
    ExpectAlert(daemon, "bad in customer2");
}

TEST_F(TriggerTest, ADirectoryThatAppearsLaterIsWatchedThen)
{
    ExpectDone({"set", "file-monitor", File("later/logs/target")});
    Child daemon(Daemon());
    WaitForFirstPass();
    const int64_t before = PassesWhenAtRest();
    fs::create_directories(File("later/logs"));
    EXPECT_GE(before + 3, PassesWhenAtRest()); // no busy loop
    Append(File("later/logs/target"), "bad at first");
    ExpectAlert(daemon, "bad at first");
    fs::rename(File("later"), File("away"));
    PassesWhenAtRest();
    fs::rename(File("away"), File("later"));
    Append(File("later/logs/target"), "bad again");
    ExpectAlert(daemon, "bad again");
}

TEST_F(TriggerTest, AFileSystemThatComesAndGoesIsWatchedWhenItIsThere)
{
    fs::create_directory(File("disk"));
    fs::create_directory(File("place"));
    ExpectDone({"set", "file-monitor", File("place/target")});
    Child daemon(DaemonIn("cd '" + Root().string() +
                          "'; daemon </dev/null & d=$!; trap 'kill $d' EXIT; "
                          "while read word; do case $word in up) mount --bind disk place;; down) "
                          "umount place;; esac; echo $word; done"));
    WaitForFirstPass();
    for (int round = 0; round < 2; ++round) {
        daemon.Say("up");
        EXPECT_EQ("up", daemon.ReadLine());
        PassesWhenAtRest();
        const std::string text = "bad " + std::to_string(round);
        Append(File("disk/target"), text);
        ExpectAlert(daemon, text);
        daemon.Say("down");
        EXPECT_EQ("down", daemon.ReadLine());
        const int64_t before = PassesWhenAtRest();
        Append(File("disk/target"), "nobody sees this yet");
        EXPECT_EQ(before, PassesWhenAtRest());
    }
}

TEST_F(TriggerTest, WhenTheLimitOfWatchesIsReachedItSaysSoAndTheCycleGoesOn)
{
    // A user namespace has limits of its own.
    Child daemon(DaemonIn("exec 2>&1; unshare --user --map-root-user sh -c '"
                          "echo 1 >/proc/sys/user/max_inotify_watches || "
                          "echo needs root or a user namespace: cannot set a limit; "
                          "exec setpriv --pdeathsig KILL " +
                          std::string(SYSLOGMOND) + " --print-alerts --root " + Root().string() +
                          "'"));
    const std::string told = daemon.ReadLine();
    EXPECT_EQ(0U, told.find("syslogmond: cannot watch /")) << told;
    EXPECT_NE(std::string::npos,
              told.find(" for changes: the limit of inotify watches is reached; raise "
                        "fs.inotify.max_user_watches with sysctl; until then, changes are found "
                        "once in a cycle"))
        << told;
    WaitForFirstPass();
    EXPECT_NE("", DaemonStatus().watch_problem);
    Append(SystemLog(), "bad one");
    std::this_thread::sleep_for(600ms);
    EXPECT_EQ(0, Syslogmon({"scan"}).status); // as a cycle would
    ExpectAlert(daemon, "bad one");
}

} // namespace
