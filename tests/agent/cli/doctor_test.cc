// syslogmon doctor: every check, in a "/var/log" and an "/etc" of the test's own.
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <thread>

#include <nlohmann/json.hpp>

#include "agent/status/status_file.h"
#include "platform/contract.h"
#include "tests/agent/support/command_test.h"

namespace {

namespace fs = std::filesystem;

using nlohmann::json;
using test::Child;
using test::Finished;
using test::Helper;
using test::RunToEnd;
using test::WriteFile;
using namespace std::chrono_literals;

std::string Line(const std::string &text)
{
    char stamp[32];
    const time_t now = time(nullptr);
    struct tm local {};
    strftime(stamp, sizeof stamp, "%b %e %H:%M:%S ", localtime_r(&now, &local));
    return stamp + ("host app: " + text) + "\n";
}

class Doctor : public test::CommandTest {
  protected:
    Doctor()
    {
        fs::create_directory_symlink(AGENT_LIBRARIES, File("lib"));
        fs::create_directory(File("var-log"));
        fs::create_directories(File("etc") / "rsyslog.d");
        WriteFile(Log(), Line("first") + Line("last"));
        ExpectDone({"event", "add", "DISK", "1", "-k", "bad"});
    }

    // A file of "/var/log".
    [[nodiscard]] fs::path Log(const std::string &name = "messages") const
    {
        return File("var-log") / name;
    }
    // A file of "/etc".
    [[nodiscard]] fs::path Etc(const std::string &name) const { return File("etc") / name; }
    [[nodiscard]] Finished RunDoctor(const test::Words &options = {}) const
    {
        test::Words words = {"with-folders", File("var-log"), "/var/log", File("etc"), "/etc",
                             "--",           SYSLOGMON,       "--root",   Root(),      "doctor"};
        words.insert(words.end(), options.begin(), options.end());
        return RunToEnd(Helper(Root(), words));
    }
    [[nodiscard]] test::Words Daemon() const
    {
        return Helper(Root(),
                      {"with-folder", File("var-log"), "/var/log", SYSLOGMOND, "--root", Root()});
    }
    status::Status WaitForPass() const
    {
        status::Status status;
        for (int i = 0; i < 4000 && status.last_pass.number < 1; ++i) {
            status = status::ReadStatus(Layout().run).value_or(status::Status{});
            std::this_thread::sleep_for(5ms);
        }
        return status;
    }

    // What the checks of this name found.
    [[nodiscard]] json Results(const std::string &check) const
    {
        const Finished finished = RunDoctor({"--json"});
        const json all = json::parse(finished.out, nullptr, false);
        EXPECT_TRUE(all.is_object()) << finished.out << finished.err;
        EXPECT_EQ(all.value("well", false) ? 0 : 1, finished.status);
        json found = json::array();
        for (const json &result : all["checks"]) {
            if (result["check"] == check)
                found.push_back(result);
        }
        return found;
    }
    // What is said of the free space where the state lies, on an empty disk of this size.
    [[nodiscard]] json SpaceOnADiskOf(const std::string &size) const
    {
        fs::remove_all(Layout().state);
        fs::create_directory(Layout().state);
        const Finished finished =
            RunToEnd(Helper(Root(), {"with-small-disk", Layout().state, size, SYSLOGMON, "--root",
                                     Root(), "--json", "doctor"}));
        const json all = json::parse(finished.out, nullptr, false);
        EXPECT_TRUE(all.is_object()) << finished.err;
        for (const json &result : all.value("checks", json::array())) {
            if (result["looked_at"] == Layout().state.string())
                return result;
        }
        return json::object();
    }
    // The one finding of this check says this, about that, with an advice.
    void ExpectFinding(const std::string &check, const std::string &looked_at,
                       const std::string &part, const std::string &advice) const
    {
        json findings = json::array();
        for (const json &result : Results(check)) {
            if (result["outcome"] == "finding")
                findings.push_back(result);
        }
        ASSERT_EQ(1U, findings.size()) << findings.dump(2);
        EXPECT_EQ(looked_at, findings[0]["looked_at"]);
        EXPECT_NE(std::string::npos, findings[0]["found"].get<std::string>().find(part))
            << findings[0];
        EXPECT_NE(std::string::npos, findings[0]["advice"].get<std::string>().find(advice))
            << findings[0];
    }
    // Its only result is this one.
    void ExpectOnly(const std::string &check, const std::string &outcome,
                    const std::string &looked_at, const std::string &found) const
    {
        const json results = Results(check);
        ASSERT_EQ(1U, results.size()) << results.dump(2);
        EXPECT_EQ(outcome, results[0]["outcome"]);
        EXPECT_EQ(looked_at, results[0]["looked_at"]);
        EXPECT_EQ(found, results[0]["found"]);
    }
};

constexpr char kMessages[] = "/var/log/messages";

TEST_F(Doctor, FindsNothingOnAHealthyHost)
{
    Child daemon(Daemon());
    WaitForPass();
    const Finished finished = RunDoctor();
    EXPECT_EQ(0, finished.status) << finished.out << finished.err;
    EXPECT_NE(std::string::npos, finished.out.find("\nAll is well.\n")) << finished.out;
    EXPECT_EQ(std::string::npos, finished.out.find("FINDING"));
    EXPECT_EQ(std::string::npos, finished.out.find("skipped"));
}

TEST_F(Doctor, PrintsEachFindingWithWhatToDo)
{
    const Finished finished = RunDoctor();
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ(0U, finished.out.find("FINDING  daemon: syslogmond: it is not running\n"
                                    "         do: start it with systemctl start syslogmond, or run "
                                    "syslogmond\n"))
        << finished.out;
    EXPECT_NE(std::string::npos,
              finished.out.find("well     system log: /var/log/messages: it can be read\n"));
    EXPECT_NE(std::string::npos, finished.out.find("\n1 finding.\n"));
}

// ---- the agent ----

TEST_F(Doctor, ADaemonThatRunsIsNamed)
{
    Child daemon(Daemon());
    const status::Status status = WaitForPass();
    const json results = Results("daemon");
    ASSERT_EQ(1U, results.size());
    EXPECT_EQ("well", results[0]["outcome"]);
    EXPECT_EQ("process " + std::to_string(status.pid), results[0]["looked_at"]);
}

TEST_F(Doctor, AMonitorThatKeepsEndingIsFoundWithItsReason)
{
    ExpectDone(
        {"reg", "delete", std::string(kApplicationKey) + "\\DISK\\1\\WATCHSETTING", "ReportCount"});
    Child daemon(Daemon());
    for (int i = 0; i < 4000; ++i) {
        if (status::ReadStatus(Layout().run).value_or(status::Status{}).restarts > 0)
            break;
        std::this_thread::sleep_for(5ms);
    }
    ExpectFinding("daemon", "process " + std::to_string(daemon.pid()),
                  "its monitor has ended by itself ", "remove the cause");
    ExpectFinding("events", "DISK 1",
                  "it cannot be loaded: it has no ReportCount of 4 bytes, and "
                  "so the monitor loads no event at all",
                  "syslogmon event remove 'DISK' 1, then add it with all its values");
    ExpectFinding("table", "monitor module", "cannot load event DISK 1", "remove it with");
}

TEST_F(Doctor, AHostWithoutAStoreIsFoundAndNoneIsMade)
{
    fs::remove_all(Layout().state);
    ExpectFinding("store", Layout().Store(), "it is missing", "register events");
    EXPECT_EQ(json::array(), Results("events"));
    EXPECT_FALSE(fs::exists(Layout().Store()));
}

TEST_F(Doctor, ADamagedStoreIsFound)
{
    WriteFile(Layout().Store(), "");
    ExpectFinding("store", Layout().Store(), "the file is empty", "put a copy of it back");
}

TEST_F(Doctor, AFullDiskIsFound)
{
    const json disk = SpaceOnADiskOf("1m");
    EXPECT_EQ("finding", disk.value("outcome", "")) << disk;
    EXPECT_EQ("only 1.0 MB are free", disk.value("found", ""));
}

TEST_F(Doctor, MuchFreeSpaceIsToldInGigabytes)
{
    EXPECT_EQ("943.7 MB are free", SpaceOnADiskOf("900m").value("found", ""));
    EXPECT_EQ("10.7 GB are free", SpaceOnADiskOf("10g").value("found", ""));
}

TEST_F(Doctor, ADiskThatIsMountedReadOnlyIsFound)
{
    const Finished finished = RunToEnd(Helper(Root(), {"with-read-only", Layout().state, SYSLOGMON,
                                                       "--root", Root(), "--json", "doctor"}));
    EXPECT_NE(std::string::npos, finished.out.find("its file system is mounted read-only"))
        << finished.out << finished.err;
    EXPECT_EQ(1, finished.status);
}

TEST_F(Doctor, TheTriggerIsToldOf)
{
    ExpectOnly("watching", "skipped", "inotify", "the daemon is not running");
    Child daemon(Daemon());
    WaitForPass();
    ExpectOnly("watching", "well", "inotify", "lines are found within 1000 ms");
    ExpectDone({"set", "trigger-interval", "0"});
    ExpectOnly("watching", "well", "inotify", "it is turned off: lines are found once per cycle");
}

TEST_F(Doctor, AWatchThatCannotBeSetUpIsFound)
{
    Child lock(Helper(Root(), {"hold-daemon-lock"}));
    EXPECT_EQ("held", lock.ReadLine());
    status::Status status;
    status.watch_problem = "cannot watch /var/log for changes: the limit";
    status::WriteStatus(Layout().run, status);
    ExpectFinding("watching", "inotify", "cannot watch /var/log for changes: the limit",
                  "once per cycle");
}

// ---- sinks ----

TEST_F(Doctor, AHostWithoutSinksIsWell)
{
    ExpectOnly("sinks", "well", "all sinks",
               "there are none: alerts are only stored, for syslogmon alerts");
}

TEST_F(Doctor, ASinkThatIsDamagedIsFound)
{
    ExpectDone({"sink", "add", "program", "pager", "command=/bin/true"});
    ExpectOnly("sinks", "well", "pager", "nothing was sent to it yet");
    ExpectDone(
        {"reg", "set", "SOFTWARE\\KORBIN\\TARSKVOSKAR\\AGENT\\SINKS\\pager", "Kind", "nonsense"});
    ExpectFinding("sinks", "pager", "nothing is sent to it: ", "syslogmon sink remove pager");
}

TEST_F(Doctor, ASinkThatFailsIsFoundWithItsReason)
{
    ExpectDone({"sink", "add", "program", "pager", "command=/bin/false"});
    Child daemon(Daemon());
    WaitForPass();
    // Not written anew: the daemon would look at it while it is empty, and tell of that.
    std::ofstream(Log(), std::ios::app) << Line("bad");
    json result = json::object();
    for (int i = 0; i < 200 && result.value("outcome", "") != "finding"; ++i) {
        std::this_thread::sleep_for(100ms);
        result = Results("sinks").at(0);
    }
    EXPECT_EQ("finding", result["outcome"]) << result;
    EXPECT_NE(std::string::npos,
              result["found"].get<std::string>().find("the last try failed at "));
    EXPECT_NE(std::string::npos, result["found"].get<std::string>().find("; 1 alert waits"));
    EXPECT_NE(std::string::npos,
              result["advice"].get<std::string>().find("syslogmon sink test pager"));
}

// ---- events ----

TEST_F(Doctor, AHostWithoutEventsIsFound)
{
    ExpectDone({"event", "remove", "DISK", "1"});
    ExpectFinding("events", "all events", "there are none", "syslogmon apply");
}

TEST_F(Doctor, EventsThatCanNeverBeReportedAreFound)
{
    ExpectOnly("events", "well", "1 event", "each can be reported");
    const std::string settings = std::string(kApplicationKey) + "\\DISK\\1\\WATCHSETTING";
    ExpectDone({"event", "set", "DISK", "1", "--hours", "none"});
    ExpectFinding("events", "DISK 1", "it is watched in no hour of the day",
                  "syslogmon event set 'DISK' 1 --hours all");
    ExpectDone({"event", "set", "DISK", "1", "--hours", "all"});
    ExpectDone({"reg", "set", settings, "ReportCount", "0", "--type", "dword"});
    ExpectFinding("events", "DISK 1", "its report count is 0", "syslogmon event set 'DISK' 1 -n 1");
    ExpectDone({"event", "set", "DISK", "1", "-n", "1", "-k", "a", "-k", "TARSKvkvmain: b"});
    ExpectFinding("events", "DISK 1", "its keyword 2 \"TARSKvkvmain: b\" holds TARSKvkvmain",
                  "-k TEXT");
    ExpectDone({"reg", "set", settings, "KeyWord2", "two\nlines"});
    ExpectFinding("events", "DISK 1", "holds a line end", "-k TEXT");
    ExpectDone({"reg", "set", settings, "KeyWord2", std::string(300, 'x')});
    ExpectFinding("events", "DISK 1", "it cannot be loaded: KeyWord2 is longer than 256 bytes",
                  "event remove");
}

TEST_F(Doctor, ASourceWhoseReportsAreWithheldIsFound)
{
    ExpectDone({"event", "add", "FTREPORT", "1", "-k", "bad"});
    ExpectFinding("events", "FTREPORT 1", "reports of the source FTREPORT are withheld",
                  "under another source");
}

TEST_F(Doctor, ExpressionsThatCannotBeUsedAreFound)
{
    ExpectDone({"event", "set", "DISK", "1", "-k", "bad.*disk"});
    ExpectFinding("events", "DISK 1", "looks like a regular expression", "set fault-tolerant on");
    ExpectDone({"set", "fault-tolerant", "on"});
    ExpectOnly("events", "well", "1 event", "each can be reported");
    ExpectDone({"event", "set", "DISK", "1", "-k", "bad (disk", "--force"});
    ExpectFinding("events", "DISK 1", "it is not a regular expression that can be used", "-k TEXT");
    ExpectDone({"event", "set", "DISK", "1", "-k", "(bad)* \\1", "--force"});
    ExpectFinding("events", "DISK 1", "it refers back to a group of itself", "-k TEXT");
}

TEST_F(Doctor, SourcesThatAProductFiltersAreFound)
{
    ExpectOnly("table", "well", "monitor module", "it loads 1 event");
    const std::string product = std::string(kAlertReportKey) + "\\Mirror";
    ExpectDone({"reg", "set", product, "Setup", "0", "--type", "dword"});
    ExpectDone({"reg", "set", product, "Source", "00000000 74 00 4469736b00", "--type", "binary"});
    ExpectFinding("table", "DISK 1",
                  "it is left out: the product Mirror, which reports under its source, is not set "
                  "up",
                  "set the product up");
    ExpectDone({"reg", "set", product, "Setup", "1", "--type", "dword"});
    ExpectOnly("table", "well", "monitor module", "it loads 1 event");
}

TEST_F(Doctor, AnEventWithoutAKeywordIsFound)
{
    ExpectDone(
        {"reg", "set", std::string(kApplicationKey) + "\\DISK\\1\\WATCHSETTING", "KeyWord", ""});
    ExpectFinding("table", "DISK 1", "it is left out: it has no keyword", "-k TEXT");
}

TEST_F(Doctor, ASourceOfAnotherComponentIsNoFinding)
{
    ExpectDone({"reg", "set", std::string(kApplicationKey) + "\\DISK", "NEWAPPLICATIONTYPE", "1",
                "--type", "dword"});
    for (const json &result : Results("table"))
        EXPECT_EQ("well", result["outcome"]) << result;
}

// ---- logs ----

TEST_F(Doctor, AMissingSystemLogIsFoundWithWhatMakesItWritten)
{
    fs::remove(Log());
    ExpectFinding("system log", kMessages, "it is not there",
                  "install rsyslog: apt install rsyslog; with rsyslog, put these lines into "
                  "/etc/rsyslog.d/syslogmon.conf and restart rsyslog: systemctl restart rsyslog\n"
                  "    *.info;mail.none;cron.none  action(");
    ExpectOnly("time stamps", "skipped", kMessages, "it cannot be read");
    ExpectOnly("resume point", "skipped", kMessages, "it cannot be read");
}

TEST_F(Doctor, FilesThatCannotBeReadAreFound)
{
    ExpectDone({"set", "customer-file", File("customer")});
    ExpectDone({"set", "file-monitor", File("var-log")});
    ExpectFinding("customer file", File("customer"), "it is not there", "syslogmon set");
    ExpectFinding("file monitor", File("var-log"), "it is not a regular file", "put a log");
}

TEST_F(Doctor, APipeInThePlaceOfALogIsFoundAndNotWaitedFor)
{
    fs::remove(Log());
    ASSERT_EQ(0, mkfifo(Log().c_str(), 0600));
    ExpectFinding("system log", kMessages, "it is not a regular file", "put a log");
    ExpectOnly("time stamps", "skipped", kMessages, "it cannot be read");
    ExpectOnly("resume point", "skipped", kMessages, "it cannot be read");
}

TEST_F(Doctor, IsoStampsAreFoundWithTheSettingThatMendsThem)
{
    WriteFile(Log(), Line("good") + "2026-11-21T10:00:01+01:00 host app: bad\n");
    ExpectFinding("time stamps", kMessages,
                  "1 of the newest 2 lines cannot match any event. What is wrong with each: it "
                  "has an ISO time stamp; for example: 2026-11-21T10:00:01+01:00 host app: bad",
                  "RSYSLOG_TraditionalFileFormat");
}

TEST_F(Doctor, OldStampsBehindReadableOnesAreNoFinding)
{
    const std::string old = "Jan  1 00:00:00 host app: old\n";
    const std::string old_in_summer = "Jul  1 00:00:00 host app: old\n";
    const time_t now = time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    const std::string far = local.tm_mon >= 2 && local.tm_mon <= 10 ? old : old_in_summer;
    WriteFile(Log(), far + Line("good"));
    ExpectOnly("time stamps", "well", kMessages,
               "the newest 2 lines have stamps that the monitor reads");
    WriteFile(Log(), Line("good") + far);
    ExpectFinding("time stamps", kMessages, "neither this month nor the last one", "clock");
}

TEST_F(Doctor, ALogWithoutStampsIsFoundButNotAFewContinuedLines)
{
    WriteFile(Log(), Line("good") + "  continued\n" + Line("good"));
    ExpectOnly("time stamps", "well", kMessages,
               "the newest 3 lines have stamps that the monitor reads");
    WriteFile(Log(), "one\ntwo\n" + Line("good"));
    ExpectFinding("time stamps", kMessages, "2 of the newest 3 lines", "file-monitor");
}

TEST_F(Doctor, OnlyTheNewestLinesCount)
{
    std::string text;
    for (int i = 0; i < 2000; ++i)
        text += "2026-11-21T10:00:01+01:00 host app: " + std::to_string(i) + "\n";
    for (int i = 0; i < 50; ++i)
        text += Line("good");
    WriteFile(Log(), text);
    ExpectOnly("time stamps", "well", kMessages,
               "the newest 50 lines have stamps that the monitor reads");
}

TEST_F(Doctor, TheFileMonitorNeedsNoStamps)
{
    WriteFile(File("target"), "no stamp\n");
    ExpectDone({"set", "file-monitor", File("target")});
    ExpectOnly("time stamps", "well", kMessages,
               "the newest 2 lines have stamps that the monitor reads");
}

TEST_F(Doctor, RotatedFilesAreToldOf)
{
    ExpectOnly("rotation", "well", kMessages, "it has no rotated files");
    for (const char *name : {"messages.1", "messages.2", "messages.3.gz"})
        WriteFile(Log(name), Line("old"));
    ExpectOnly("rotation", "well", kMessages, "2 rotated files are recognised");
}

TEST_F(Doctor, AMissingRotationNumberIsFound)
{
    for (const char *name : {"messages.1", "messages.2", "messages.4"})
        WriteFile(Log(name), Line("old"));
    ExpectFinding("rotation", "/var/log/messages.3", "it is missing", "without a gap from 1");
}

TEST_F(Doctor, ANewestRotatedFileThatIsCompressedIsFound)
{
    WriteFile(Log("messages.1.gz"), "");
    WriteFile(Log("messages.2.gz"), "");
    ExpectFinding("rotation", "/var/log/messages.1.gz", "is compressed", "delaycompress");
    fs::remove(Log("messages.1.gz"));
    fs::remove(Log("messages.2.gz"));
    WriteFile(Log("messages-20261101"), "");
    WriteFile(Log("messages-20261108.xz"), "");
    ExpectFinding("rotation", "/var/log/messages-20261108.xz", "is compressed", "delaycompress");
}

TEST_F(Doctor, RotatedFilesOfAnotherNamingAreFound)
{
    WriteFile(Log("messages-2026-11-01"), "");
    ExpectFinding("rotation", "/var/log/messages-2026-11-01", "not recognised",
                  "dateformat -%Y%m%d");
}

TEST_F(Doctor, AResumePointThatFitsNoFileIsFound)
{
    {
        Child daemon(Daemon());
        WaitForPass();
        ExpectOnly("resume point", "well", kMessages, "the monitor goes on in /var/log/messages");
        daemon.Signal(SIGTERM);
        daemon.Wait();
    }
    WriteFile(Log(), Line("quite another log"));
    ExpectFinding("resume point", kMessages, "the resume point is in none of its files",
                  "syslogmon scan");
}

TEST_F(Doctor, ABacklogIsFound)
{
    ExpectOnly("backlog", "skipped", kMessages, "it is not known where the monitor stands");
    {
        Child daemon(Daemon());
        WaitForPass();
        daemon.Signal(SIGTERM);
        daemon.Wait();
    }
    std::string text = test::ReadFile(Log());
    for (int i = 0; i < 30000; ++i)
        text += Line("one of many lines that nobody has read");
    WriteFile(Log(), text);
    ExpectFinding("backlog", kMessages, " bytes are not checked yet", "start the daemon");
}

TEST_F(Doctor, AnEmptyLogIsNoFinding)
{
    WriteFile(Log(), "");
    ExpectOnly("time stamps", "well", kMessages, "it has no lines yet");
    ExpectOnly("resume point", "well", kMessages, "it has no lines yet");
}

// ---- the syslog daemon ----

TEST_F(Doctor, AMissingSystemLogOnAHostWithTheRuleThatWritesItIsAMatterOfTheSyslogDaemon)
{
    fs::remove(Log());
    WriteFile(Etc("rsyslog.d/syslogmon.conf"), "");
    ExpectFinding("system log", kMessages, "it is not there",
                  "install rsyslog: apt install rsyslog; it follows /etc/rsyslog.d/syslogmon.conf");
    WriteFile(Etc("rsyslog.conf"), "");
    ExpectFinding("system log", kMessages, "it is not there",
                  "restart rsyslog: systemctl restart rsyslog; it then follows "
                  "/etc/rsyslog.d/syslogmon.conf");
}

TEST_F(Doctor, AHostWithoutRsyslogIsWell)
{
    ExpectOnly("rsyslog", "well", "/etc/rsyslog.conf",
               "it is not there: rsyslog writes no log of this host");
}

TEST_F(Doctor, WhereInputsAreReadAMissingSystemLogIsWellAndANoteSaysHowRsyslogWritesIt)
{
    fs::remove(Log());
    WriteFile(File("own.log"), "");
    ExpectDone({"input", "add", "files", "own", "path=" + File("own.log").string()});
    ExpectOnly("system log", "well", kMessages, "it is not there; the inputs are read");
    WriteFile(Etc("rsyslog.conf"), "");
    ExpectOnly("system log", "note", kMessages, "it is not there; the inputs are read");
    EXPECT_NE(std::string::npos, Results("system log")[0]["advice"].get<std::string>().find(
                                     "syslogmon input remove journal; then\nwith rsyslog, put"));
}

TEST_F(Doctor, RepeatsThatRsyslogMakesOneLineAreFound)
{
    WriteFile(Etc("rsyslog.conf"), "$IncludeConfig /etc/rsyslog.d/*.conf\n");
    ExpectOnly("rsyslog", "well", "/etc/rsyslog.conf", "it writes every line, and writes it whole");
    WriteFile(Etc("rsyslog.d/own.conf"), "# ours\n$RepeatedMsgReduction on\n");
    ExpectFinding("rsyslog", "/etc/rsyslog.d/own.conf line 2",
                  "\"message repeated 29 times: [ ... ]\", which counts once in the system log",
                  "$RepeatedMsgReduction off");
}

TEST_F(Doctor, BufferedOutputIsFoundForEachLogButTheFileMonitorsWhichWaitsForWholeLines)
{
    ExpectDone({"set", "customer-file", "/var/log/customer"});
    ExpectDone({"set", "file-monitor", "/var/log/target"});
    WriteFile(Etc("rsyslog.conf"), "*.* action(type=\"omfile\" file=\"/var/log/target\"\n"
                                   "           asyncWriting=\"on\")\n");
    ExpectOnly("rsyslog", "well", "/etc/rsyslog.conf", "it writes every line, and writes it whole");
    WriteFile(Etc("rsyslog.conf"), "*.* action(type=\"omfile\" file=\"/var/log/customer\"\n"
                                   "           flushOnTXEnd=\"off\")\n");
    ExpectFinding("rsyslog", "/etc/rsyslog.conf line 1",
                  "flushOnTXEnd=\"off\": /var/log/customer can end in the middle of a line",
                  "remove it there");
}

// ---- what is promised ----

TEST_F(Doctor, TheFilesForWhichLessIsPromisedAreToldOfAndThatIsNoFinding)
{
    EXPECT_EQ(json::array(), Results("promise"));
    for (const char *name : {"customer", "target"})
        WriteFile(Log(name), Line("first"));
    ExpectDone({"set", "customer-file", "/var/log/customer"});
    ExpectDone({"set", "file-monitor", "/var/log/target"});
    const json results = Results("promise");
    ASSERT_EQ(2U, results.size()) << results.dump(2);
    EXPECT_EQ("note", results[0]["outcome"]);
    EXPECT_EQ("/var/log/customer", results[0]["looked_at"]);
    EXPECT_EQ("at its rotation, lines that no pass has checked yet are passed over, and so are new "
              "ones until a pass finds the new file",
              results[0]["found"]);
    EXPECT_EQ("/var/log/target", results[1]["looked_at"]);
    EXPECT_EQ("at its rotation, lines that no pass has checked yet are passed over",
              results[1]["found"]);
    ExpectDone({"set", "customer-file", "/var/log/vmkernel"});
    EXPECT_EQ(1U, Results("promise").size());
}

} // namespace
