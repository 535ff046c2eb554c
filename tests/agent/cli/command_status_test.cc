// syslogmon status, scan.
#include <chrono>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "agent/events/events.h"
#include "agent/status/status_file.h"
#include "platform/contract.h"
#include "platform/sync.h"
#include "tests/agent/support/command_test.h"

namespace {

using nlohmann::json;
using test::Child;
using test::Helper;
using test::RunToEnd;

constexpr char kNotRunningError[] =
    "cannot reach the monitor: syslogmond is not running; start it with systemctl start "
    "syslogmond, or run syslogmond";

class StatusCommand : public test::CommandTest {
  protected:
    // The module is asked where it stands.
    StatusCommand()
    {
        std::filesystem::create_directories(LogFolder());
        std::filesystem::create_directory_symlink(AGENT_LIBRARIES, File("lib"));
    }

    [[nodiscard]] std::filesystem::path LogFolder() const { return File("var-log"); }
    void WriteLog(const std::string &name, const std::string &content, int age_seconds = 0) const
    {
        const auto path = LogFolder() / name;
        test::WriteFile(path, content);
        std::filesystem::last_write_time(path, std::filesystem::file_time_type::clock::now() -
                                                   std::chrono::seconds(age_seconds));
    }
    // The command with the test's folder as its "/var/log".
    [[nodiscard]] test::Finished InPrivateVarLog(const test::Words &words) const
    {
        test::Words all = {"with-folder", LogFolder().string(), "/var/log"};
        for (const std::string &word : test::Command(Root(), words))
            all.push_back(word);
        return RunToEnd(Helper(Root(), all));
    }
    // The entry of a file in the JSON status.
    [[nodiscard]] json FileInStatus(const std::string &role) const
    {
        const test::Finished finished = InPrivateVarLog({"--json", "status"});
        EXPECT_NE(test::kNotPermitted, finished.status) << finished.err;
        const json status = json::parse(finished.out, nullptr, false);
        if (status.is_discarded())
            return {};
        for (const json &file : status["files"]) {
            if (file["role"] == role)
                return file;
        }
        return {};
    }
    // A resume point as the monitor stores it; the suffix is "" or "_C". `content` is the line at the position.
    void StoreResumePoint(const std::string &suffix, const std::string &head_line, int64_t position,
                          const std::string &content = "") const
    {
        StartHere();
        test::SetTreeText(kMonitorKey, "HEADLINE" + suffix, head_line);
        test::SetTreeText(kMonitorKey, "CONTENT" + suffix, content);
        test::SetTreeNumber(kMonitorKey, "POS" + suffix, static_cast<uint32_t>(position));
        test::SetTreeNumber(kMonitorKey, "H_POS" + suffix, static_cast<uint32_t>(position >> 32));
        test::StopHost();
    }
};

json FileEntry(const std::string &role, const std::string &path, const json &resume_file,
               const json &position, const json &behind, const json &problem)
{
    return {{"role", role},         {"path", path},     {"resume_file", resume_file},
            {"position", position}, {"behind", behind}, {"problem", problem}};
}

// ---- without a daemon ----

TEST_F(StatusCommand, WithoutADaemonSaysSoAndExitsWithThree)
{
    const test::Finished finished = InPrivateVarLog({"status"});
    ASSERT_NE(test::kNotPermitted, finished.status) << finished.err;
    EXPECT_EQ(3, finished.status);
    EXPECT_EQ("state\tnot running\ncycle\t300 seconds\nstore\t" +
                  std::to_string(std::filesystem::file_size(Layout().Store())) +
                  " bytes\n\n"
                  "/var/log/messages\tsystem log\t-\t-\t-\tNo such file or directory\n",
              finished.out);
    const json status = Json({"status"}, 3);
    EXPECT_EQ(false, status["running"]);
    EXPECT_EQ(1, status["version"]);
    EXPECT_EQ(json::array(), status["damaged"]);
    EXPECT_FALSE(status.contains("state"));
}

TEST_F(StatusCommand, ADaemonThatWasKilledIsNotRunning)
{
    Child daemon(Helper(Root(), {"answer-scans"}));
    ASSERT_EQ("running", daemon.ReadLine());
    EXPECT_EQ(0, Syslogmon({"status"}).status);
    daemon.Kill();
    EXPECT_EQ(3, Syslogmon({"status"}).status);
}

// ---- with one ----

TEST_F(StatusCommand, ShowsWhatTheDaemonTells)
{
    Child daemon(Helper(Root(), {"answer-scans"}));
    ASSERT_EQ("running", daemon.ReadLine());
    status::Status told;
    told.pid = daemon.pid();
    told.state = status::MonitorState::kPausing;
    told.restarts = 2;
    told.last_error = "VKVMonQueGet() failed";
    told.table_size = 17;
    told.last_pass = {5, status::PassKind::kScan, 1000, 1, 1500};
    status::WriteStatus(Layout().run, told);

    const json status = Json({"status"});
    EXPECT_EQ(true, status["running"]);
    EXPECT_EQ("pausing", status["state"]);
    EXPECT_EQ(daemon.pid(), status["pid"]);
    EXPECT_EQ(17, status["events"]);
    EXPECT_EQ(2, status["restarts"]);
    EXPECT_EQ("VKVMonQueGet() failed", status["last_error"]);
    EXPECT_EQ((json{{"number", 5}, {"kind", "scan"}, {"began_ms", 1000}, {"took_us", 1500}}),
              status["last_pass"]);
    const std::string text = Syslogmon({"status"}).out;
    EXPECT_EQ(0U, text.find("state\tpausing, starts again at ")) << text;
    for (const char *line :
         {"\nevents\t17\n", "\nlast pass\tnumber 5 (scan) at ", ", took 0.002 s\n",
          "\nended by itself\t2 times, last: VKVMonQueGet() failed\n"})
        EXPECT_NE(std::string::npos, text.find(line)) << line << text;
}

TEST_F(StatusCommand, SaysThatALookIsLateAsTheDoctorDoes)
{
    Child daemon(Helper(Root(), {"answer-scans"}));
    ASSERT_EQ("running", daemon.ReadLine());
    status::Status told;
    told.pid = daemon.pid();
    told.state = status::MonitorState::kRunning;
    const auto looked = [&](int64_t seconds) {
        told.last_full_pass = {1, status::PassKind::kCycle, 1000,
                               status::BootTimeNs() - (seconds * 1'000'000'000), 1500};
        status::WriteStatus(Layout().run, told);
    };
    const std::string late = "s ago, which is late: one begins at least every 300 s\n";
    looked(200);
    EXPECT_EQ(false, Json({"status"})["is_late"]);
    EXPECT_EQ(std::string::npos, Syslogmon({"status"}).out.find(late));
    EXPECT_NE(std::string::npos, Syslogmon({"doctor"}).out.find("well     last look: "));
    looked(3600);
    EXPECT_EQ(true, Json({"status"})["is_late"]);
    EXPECT_LE(3600, Json({"status"})["seconds_since_look"]);
    EXPECT_NE(std::string::npos, Syslogmon({"status"}).out.find(late));
    EXPECT_NE(std::string::npos, Syslogmon({"doctor"}).out.find("note     last look: "));
}

TEST_F(StatusCommand, TheStoresSizeIsThatOfItsFileWithItsJournal)
{
    const auto journal = Layout().Store().string() + "-wal";
    StartHere();
    {
        host::Transaction transaction(test::Store());
        events::EventRegistry(test::Registry())
            .Write({{"DISK", 1}, {"error", "", ""}, 1, events::kAllHours});
        transaction.Commit();
    }
    const auto bytes =
        std::filesystem::file_size(Layout().Store()) + std::filesystem::file_size(journal);
    EXPECT_LT(std::filesystem::file_size(Layout().Store()), bytes) << "the journal is empty";
    EXPECT_EQ(bytes, Json({"status"}, 3)["store_bytes"]);
    EXPECT_NE(
        std::string::npos,
        Syslogmon({"metrics"}).out.find("\nsyslogmon_store_bytes " + std::to_string(bytes) + "\n"));
    test::StopHost();
}

TEST_F(StatusCommand, SaysWhyFilesAreNotWatched)
{
    Child daemon(Helper(Root(), {"answer-scans"}));
    ASSERT_EQ("running", daemon.ReadLine());
    EXPECT_EQ(json(nullptr), Json({"status"})["watch_problem"]);
    status::Status told;
    told.pid = daemon.pid();
    told.watch_problem = "no inotify instance is left";
    status::WriteStatus(Layout().run, told);
    EXPECT_EQ(told.watch_problem, Json({"status"})["watch_problem"]);
    EXPECT_NE(std::string::npos,
              Syslogmon({"status"})
                  .out.find("\nwatching\tno inotify instance is left; changes are "
                            "found once in a cycle\n"));
}

TEST_F(StatusCommand, ADaemonThatGivesNoSignOfLifeIsNotCalledRunning)
{
    Child daemon(Helper(Root(), {"answer-scans"}));
    ASSERT_EQ("running", daemon.ReadLine());
    constexpr int64_t kSecond = 1'000'000'000;
    status::Status told;
    told.pid = daemon.pid();
    told.state = status::MonitorState::kRunning;
    const auto publish = [&](int64_t silent_s, int64_t still_s) {
        told.alive_ns = status::UpTimeNs() - (silent_s * kSecond);
        told.still_ms = still_s * 1000;
        status::WriteStatus(Layout().run, told);
        return Syslogmon({"status"});
    };
    EXPECT_EQ(0U, publish(15, 15).out.find("state\trunning\n"));
    const test::Finished silent = publish(3600, 0);
    EXPECT_EQ(3, silent.status);
    EXPECT_EQ(0U, silent.out.find("state\tnot working: it has given no sign of life for 36"))
        << silent.out;
    const test::Finished still = publish(0, 70);
    EXPECT_EQ(3, still.status);
    EXPECT_EQ(0U, still.out.find("state\tnot working: its pass has read nothing for 7"))
        << still.out;
    told.pid = 1; // what an earlier daemon left
    EXPECT_EQ(0, publish(3600, 0).status);
}

TEST_F(StatusCommand, ADaemonThatHasToldNothingYetIsStarting)
{
    Child daemon(Helper(Root(), {"hold-daemon-lock"}));
    ASSERT_EQ("held", daemon.ReadLine());
    const test::Finished finished = Syslogmon({"status"});
    EXPECT_EQ(0, finished.status);
    EXPECT_EQ(0U, finished.out.find("state\tstarting\n")) << finished.out;
    EXPECT_EQ(true, Json({"status"})["running"]);
}

// ---- damaged events ----

TEST_F(StatusCommand, NamesADamagedEventAndTheCommandThatMendsIt)
{
    ExpectDone({"event", "add", "GOOD", "1", "-k", "a"});
    ExpectDone({"event", "add", "DISK", "1A", "-k", "a"});
    ExpectDone({"reg", "delete", std::string(kApplicationKey) + "\\DISK\\1A\\WATCHSETTING",
                "ReportCount"});
    EXPECT_EQ((json::array({{{"source", "DISK"},
                             {"id", "1A"},
                             {"problem", "it has no ReportCount of 4 bytes"},
                             {"mend", "syslogmon event remove 'DISK' 1A, then syslogmon event add "
                                      "with all its values"}}})),
              Json({"status"}, 3)["damaged"]);
    EXPECT_NE(std::string::npos,
              Syslogmon({"status"})
                  .out.find("\nevent DISK 1A cannot be loaded: it has no ReportCount of 4 bytes\n"
                            "  repair it with: syslogmon event remove 'DISK' 1A, then syslogmon "
                            "event add with all its values\n"));
    ExpectDone({"event", "remove", "DISK", "1A"});
    ExpectDone({"event", "add", "DISK", "1A", "-k", "a"});
    EXPECT_EQ(json::array(), Json({"status"}, 3)["damaged"]);
}

// ---- files ----

TEST_F(StatusCommand, ALogThatWasNeverLookedAtSaysSo)
{
    WriteLog("messages", "line\n");
    EXPECT_EQ(FileEntry("system log", "/var/log/messages", nullptr, nullptr, nullptr,
                        "not looked at yet"),
              FileInStatus("system log"));
}

TEST_F(StatusCommand, ALogIsBehindByTheBytesAfterItsLastCheckedLine)
{
    WriteLog("messages", "head\nchecked\nnew one\nnew two\n");
    StoreResumePoint("", "head", 5, "checked");
    EXPECT_EQ(FileEntry("system log", "/var/log/messages", "/var/log/messages", 5, 16, nullptr),
              FileInStatus("system log"));
    StoreResumePoint("", "head", -1);
    EXPECT_EQ(29, FileInStatus("system log")["behind"]);
}

TEST_F(StatusCommand, AFileOfZeroBytesIsReadAsTheMonitorReadsItAndNotWhole)
{
    WriteLog("messages", "head\n");
    const auto log = LogFolder() / "messages";
    constexpr int64_t kHuge = int64_t{1} << 40; // with holes: nobody could read it whole
    std::filesystem::resize_file(log, kHuge);
    StoreResumePoint("", "head", 5);
    // A zero byte ends a line, so the one at the position is empty.
    EXPECT_EQ(
        FileEntry("system log", "/var/log/messages", "/var/log/messages", 5, kHuge - 6, nullptr),
        FileInStatus("system log"));
    std::filesystem::remove(log);
    test::WriteFile(log, "");
    std::filesystem::resize_file(log, kHuge); // its first line is empty, too
    EXPECT_EQ(nullptr, FileInStatus("system log")["resume_file"]);
}

TEST_F(StatusCommand, ALineWithoutAnEndIsTakenInPiecesAsTheMonitorTakesIt)
{
    WriteLog("messages", "head\n" + std::string(40000, 'x'));
    StoreResumePoint("", "head", 5, "xxx");
    EXPECT_EQ(FileEntry("system log", "/var/log/messages", "/var/log/messages", 5, 40000 - 16384,
                        nullptr),
              FileInStatus("system log"));
}

TEST_F(StatusCommand, APipeInThePlaceOfALogIsNotWaitedFor)
{
    ASSERT_EQ(0, mkfifo((LogFolder() / "messages").c_str(), 0600));
    StoreResumePoint("", "head", 5);
    EXPECT_EQ(FileEntry("system log", "/var/log/messages", nullptr, nullptr, nullptr,
                        "it is not a regular file"),
              FileInStatus("system log"));
}

TEST_F(StatusCommand, ARotatedLogIsBehindByItsRestAndEverythingNewer)
{
    WriteLog("messages", "new\n");              // 4
    WriteLog("messages.1", "middle\n", 10);     // 7
    WriteLog("messages.2", "head\nrest\n", 20); // 5 of them unchecked
    StoreResumePoint("", "head", 0, "head");
    EXPECT_EQ(FileEntry("system log", "/var/log/messages", "/var/log/messages.2", 0, 16, nullptr),
              FileInStatus("system log"));
}

TEST_F(StatusCommand, ADatedLogIsFoundLikeANumberedOne)
{
    WriteLog("messages", "new\n");
    WriteLog("messages-20261120", "middle\n", 10);
    WriteLog("messages-20261113", "head\nrest\n", 20);
    StoreResumePoint("", "head", 0, "head");
    EXPECT_EQ(
        FileEntry("system log", "/var/log/messages", "/var/log/messages-20261113", 0, 16, nullptr),
        FileInStatus("system log"));
}

TEST_F(StatusCommand, AResumePointThatIsNowhereSaysWhatTheMonitorWillDo)
{
    WriteLog("messages", "new\n");
    StoreResumePoint("", "head", 0, "head");
    EXPECT_EQ("the resume point is in none of its files; the monitor will go on from its end",
              FileInStatus("system log")["problem"]);
}

TEST_F(StatusCommand, ALogThatIsNoFileSaysSo)
{
    std::filesystem::create_directory(LogFolder() / "messages");
    EXPECT_EQ("it is not a regular file", FileInStatus("system log")["problem"]);
}

TEST_F(StatusCommand, CustomerFileAndFileMonitorAreShownWhenTheyAreSet)
{
    test::WriteFile(File("customer.log"), "head\nnew\n");
    test::WriteFile(File("target.log"), "0123456789");
    ExpectDone({"set", "customer-file", File("customer.log")});
    ExpectDone({"set", "file-monitor", File("target.log")});
    EXPECT_EQ("not looked at yet", FileInStatus("customer file")["problem"]);
    EXPECT_EQ("not looked at yet", FileInStatus("file monitor")["problem"]);
    StoreResumePoint("_C", "head", 0, "head");
    ExpectDone({"reg", "set", kFileMonitorKey, "OFFSET_L", "4", "--type", "dword"});
    ExpectDone({"reg", "set", kFileMonitorKey, "OFFSET_H", "0", "--type", "dword"});
    EXPECT_EQ(FileEntry("customer file", File("customer.log"), File("customer.log").string(), 0, 4,
                        nullptr),
              FileInStatus("customer file"));
    EXPECT_EQ(
        FileEntry("file monitor", File("target.log"), File("target.log").string(), 4, 6, nullptr),
        FileInStatus("file monitor"));
}

TEST_F(StatusCommand, AFileOfTheMonitorThatIsNotThereIsNamed)
{
    ExpectDone({"set", "customer-file", File("none.log")});
    ExpectDone({"set", "file-monitor", File("none.log")});
    EXPECT_EQ("No such file or directory", FileInStatus("customer file")["problem"]);
    EXPECT_EQ("No such file or directory", FileInStatus("file monitor")["problem"]);
}

// ---- scan ----

TEST_F(StatusCommand, ScanWithoutADaemonExitsWithThree)
{
    ExpectFailed({"scan"}, kNotRunningError, 3);
    ExpectFailed({"scan", "--wait"}, kNotRunningError, 3);
}

TEST_F(StatusCommand, ScanSetsTheScanEvent)
{
    Child daemon(Helper(Root(), {"hold-daemon-lock"}));
    ASSERT_EQ("held", daemon.ReadLine());
    StartHere();
    HANDLE scan = CreateEvent(nullptr, FALSE, FALSE, kScanEvent);
    ExpectDone({"scan"});
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(scan, 0));
    EXPECT_EQ((json{{"version", 1}, {"scan", "asked"}}), Json({"scan"}));
    CloseHandle(scan);
}

TEST_F(StatusCommand, ScanWithWaitReturnsBehindAPassThatBeganAfterTheCall)
{
    Child daemon(Helper(Root(), {"answer-scans"}));
    ASSERT_EQ("running", daemon.ReadLine());
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(0, InPrivateVarLog({"scan", "--wait", "--timeout", "20"}).status);
        EXPECT_EQ(i, status::ReadStatus(Layout().run)->last_full_pass.number);
    }
    EXPECT_EQ((json{{"version", 1}, {"scan", "done"}}),
              json::parse(InPrivateVarLog({"--json", "scan", "--wait"}).out));
}

// The helper ends its passes without reading anything.
TEST_F(StatusCommand, ScanWithWaitFailsAndNamesEachFileWhoseLinesAreUnread)
{
    Child daemon(Helper(Root(), {"answer-scans"}));
    ASSERT_EQ("running", daemon.ReadLine());
    WriteLog("messages.1", "first line\nsecond line\n");
    WriteLog("messages", "");
    StoreResumePoint("", "first line", 0);
    test::Finished finished = InPrivateVarLog({"scan", "--wait"});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ("syslogmon: not everything is checked: 12 bytes of /var/log/messages.1 are unread; "
              "see syslogmon status and syslogmon doctor, then scan again\n",
              finished.err);

    WriteLog("messages", "new line\n");
    EXPECT_NE(std::string::npos,
              InPrivateVarLog({"scan", "--wait"}).err.find("9 bytes of /var/log/messages are"));

    StoreResumePoint("", "new line", 0);
    EXPECT_EQ(0, InPrivateVarLog({"scan", "--wait"}).status);
}

TEST_F(StatusCommand, ScanWithWaitDoesNotTakeAnEarlierPassForItsOwn)
{
    Child daemon(Helper(Root(), {"hold-daemon-lock"}));
    ASSERT_EQ("held", daemon.ReadLine());
    status::Status status;
    status.last_full_pass = {1, status::PassKind::kScan, status::WallTimeMs(), status::BootTimeNs(),
                             1};
    status::WriteStatus(Layout().run, status);
    ExpectFailed({"scan", "--wait", "--timeout", "0.3"},
                 "cannot wait for the scan any longer: it has not ended after 0.3 seconds; see "
                 "syslogmon status, or give a longer --timeout");
}

TEST_F(StatusCommand, ScanWithWaitEndsWithThreeWhenTheDaemonGoesAway)
{
    Child daemon(Helper(Root(), {"hold-daemon-lock"}));
    ASSERT_EQ("held", daemon.ReadLine());
    StartHere();
    HANDLE scan = CreateEvent(nullptr, FALSE, FALSE, kScanEvent);
    Child command(
        {"/bin/sh", "-c",
         "exec " + std::string(SYSLOGMON) + " --root '" + Root().string() + "' scan --wait 2>&1"});
    ASSERT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(scan, 20000));
    daemon.Kill();
    EXPECT_EQ(std::string("syslogmon: ") + kNotRunningError, command.ReadLine());
    EXPECT_EQ(3, command.Wait());
    CloseHandle(scan);
}

TEST_F(StatusCommand, ScanWithAWrongTimeoutIsWrongUsage)
{
    for (const char *seconds : {"0", "-1", "soon"})
        ExpectUsage({"scan", "--wait", "--timeout", seconds},
                    "cannot run scan: --timeout: " + std::string(seconds) +
                        " is no number of seconds above 0; see syslogmon scan --help");
}

} // namespace
