// The event loop: what it waits for, and what it does when it is woken.
#include <cstdlib>

#include "match/report.h"
#include "match/table_data.h"
#include "tests/unit/vkevmon/frame_fixture.h"
#include "vkevmon/loop.h"
#include "vkevmon/reload.h"
#include "vkevmon/settings.h"
#include "vkevmon/table_lock.h"

namespace {

using test::ExpectTraced;
using test::Host;
using test::kCustomFileChanged;
using test::kCycleChanged;
using test::kFileMonitorChanged;
using test::kMonitorKey;
using test::kScanNow;
using test::kStopped;
using test::kTableChanged;
using test::kTimeOut;
using test::Rows;
using test::SourceKey;
using test::Sys;

constexpr char kInitialPass[] =
    "ChangeCycle ChangeCustFile WatchSyslogMain ChangeFileMonObj WatchFileMonObjMain";
constexpr char kCyclePass[] = "WatchSyslogMain WatchFileMonObjMain";
constexpr char kNewCycle[] = "A new cycle for checking syslog";
constexpr char kNeverHere[] = "FIXME: U should never reach here";
constexpr char kReloaded[] = "Monitor Queue Reloaded.";
constexpr char kReloadFailed[] = "VKVMonQueGet() failed";
constexpr char kServiceStart[] = "Syslog monitor service start";
constexpr char kServiceEnd[] = "Syslog monitor service end !";
constexpr char kNoMoreFtReports[] = "##### not report ft event from now!!!###";

class EventLoop : public test::LifeTest {
  protected:
    EventLoop() { Host().registry.CreateKey(test::kApplicationKey); }

    void Loop() { WatchSyslog(record_.data()); }
    static void StoreCycle(uint32_t seconds)
    {
        Host().registry.SetNumber(kMonitorKey, "CYCLE", seconds);
    }
    static std::vector<DWORD> WaitTimes()
    {
        std::vector<DWORD> times;
        for (const auto &wait : Host().wait_calls)
            times.push_back(wait.milliseconds);
        return times;
    }
    // What the loop calls on this result, between two waits.
    std::string CallsOn(DWORD result)
    {
        steps_.clear();
        OnWait(result);
        OnWait(kStopped);
        Loop();
        return steps_.back();
    }
    static void RegisterA(const std::string &id, uint32_t report_count = 9)
    {
        Register(
            {.source = "A", .id = id, .keywords = {"word", "", ""}, .report_count = report_count});
    }
};

// ---- the record and the handles ----

TEST_F(EventLoop, WithoutAThreadRecordReturnsAtOnce)
{
    WatchSyslog(nullptr);
    ExpectTraced(1, "WatchSyslog", "<Parameter lpThread is NULL");
    EXPECT_TRUE(Host().calls.empty());
    ExpectTraced(3, "WatchSyslog", kServiceStart, 0);
    ExpectTraced(3, "WatchSyslog", kServiceEnd, 0);
}

TEST_F(EventLoop, WaitsForTheStopHandleAndFiveEventsInThisOrder)
{
    OnWait(kTimeOut);
    OnWait(kScanNow);
    Loop();
    ASSERT_EQ(3U, Host().wait_calls.size());
    for (const auto &wait : Host().wait_calls) {
        ASSERT_EQ(6U, wait.handles.size());
        EXPECT_EQ(stop_, wait.handles[0]);
        std::vector<std::string> names;
        for (HANDLE handle : wait.handles)
            names.push_back(Host().HandleName(handle));
        EXPECT_EQ((std::vector<std::string>{"stop", "Eventlog_Mod_Event", "Eventlog_Cycle_Event",
                                            "Driving_Syslog_Event", "Eventlog_Custom_Event",
                                            "Eventlog_File_Event"}),
                  names);
        EXPECT_FALSE(wait.wait_all);
        EXPECT_EQ(300000U, wait.milliseconds);
    }
    EXPECT_EQ(5, Host().Calls("CreateEvent"));
}

TEST_F(EventLoop, ClosesItsEventsAtTheEndAndNotTheStopHandle)
{
    OnWait(kStopped, [] { EXPECT_EQ(5, HandlesLeft()); });
    Loop();
    EXPECT_EQ(0, HandlesLeft());
    EXPECT_TRUE(Host().HandleIsOpen(stop_));
    EXPECT_TRUE(Host().HandleIsOpen(started_));
    EXPECT_EQ(5, Host().Calls("CloseHandle"));
    EXPECT_TRUE(Host().set_events.empty()) << "the start-up event is not the loop's";
}

TEST_F(EventLoop, TracesItsStartAndItsEnd)
{
    Loop();
    ExpectTraced(3, "WatchSyslog", kServiceStart);
    ExpectTraced(3, "WatchSyslog", kServiceEnd);
    EXPECT_EQ((std::vector<std::string>{kServiceStart, kNoMoreFtReports, kServiceEnd, "<"}),
              test::TextsOf("WatchSyslog"));
}

TEST_F(EventLoop, EndsWithoutAPassWhenAnEventCannotBeCreated)
{
    const std::vector<std::string> failures = {
        "CreateEvent EVENTLOG_MOD_EVENT failed.", "CreateEvent EVENTLOG_CYCLE_EVENT failed.",
        "CreateEvent DRIVING_SYSLOG_EVENT failed.", "CreateEvent EVENTLOG_CUSTOM_EVENT failed.",
        "CreateEvent EVENTLOG_FILE_EVENT failed."};
    for (int n = 1; n <= 5; ++n) {
        Host().ForgetRecords();
        Host().FailCall("CreateEvent", n);
        Loop();
        const std::string &failure = failures[static_cast<size_t>(n) - 1];
        EXPECT_EQ((std::vector<std::string>{kServiceStart, failure, kServiceEnd, "<"}),
                  test::TextsOf("WatchSyslog"));
        ExpectTraced(1, "WatchSyslog", failure);
        ExpectTraced(3, "WatchSyslog", kServiceEnd);
        EXPECT_EQ(n, Host().Calls("CreateEvent"));
        EXPECT_EQ(n - 1, Host().Calls("CloseHandle"));
        EXPECT_EQ(0, HandlesLeft());
        EXPECT_TRUE(Host().wait_calls.empty());
        EXPECT_EQ("", test::FunctionsEntered());
    }
}

TEST_F(EventLoop, GoesOnToItsEndWhenAHandleCannotBeClosed)
{
    for (int n = 1; n <= 5; ++n) {
        Host().ForgetRecords();
        Host().FailCall("CloseHandle", n);
        Loop();
        EXPECT_EQ(5, Host().Calls("CloseHandle"));
        ExpectTraced(3, "WatchSyslog", kServiceEnd);
    }
}

// ---- the passes ----

TEST_F(EventLoop, RunsTheWholeInitialPassEvenWhenItIsToStopAtOnce)
{
    OnWait(kStopped);
    Loop();
    EXPECT_EQ(std::vector<std::string>{kInitialPass}, steps_);
    ExpectTraced(0, "WatchSyslog", kNoMoreFtReports);
    ExpectTraced(3, "WatchSyslog", kNewCycle, 0);
    EXPECT_EQ(1U, Host().wait_calls.size());
}

TEST_F(EventLoop, DoesNothingMoreWhenItIsStopped)
{
    EXPECT_EQ(kInitialPass, CallsOn(kStopped));
    EXPECT_EQ(1U, Host().wait_calls.size());
}

TEST_F(EventLoop, RunsBothPassesAfterACycle)
{
    EXPECT_EQ(kCyclePass, CallsOn(kTimeOut));
    ExpectTraced(3, "WatchSyslog", kNewCycle);
}

TEST_F(EventLoop, RunsBothPassesWhenAScanIsWantedNowInTheSameWords)
{
    EXPECT_EQ(kCyclePass, CallsOn(kScanNow));
    ExpectTraced(3, "WatchSyslog", kNewCycle);
}

TEST_F(EventLoop, OnlyReadsTheCycleWhenThatWasChanged)
{
    EXPECT_EQ("ChangeCycle", CallsOn(kCycleChanged));
    ExpectTraced(3, "WatchSyslog", kNewCycle, 0);
}

TEST_F(EventLoop, RunsOnlyTheSyslogPassWhenTheCustomerFileWasChanged)
{
    EXPECT_EQ("ChangeCustFile WatchSyslogMain", CallsOn(kCustomFileChanged));
    ExpectTraced(3, "WatchSyslog", kNewCycle, 0);
}

TEST_F(EventLoop, RunsOnlyTheFileMonitorPassWhenItsTargetWasChanged)
{
    EXPECT_EQ("ChangeFileMonObj WatchFileMonObjMain", CallsOn(kFileMonitorChanged));
    ExpectTraced(3, "WatchSyslog", kNewCycle, 0);
}

TEST_F(EventLoop, ReloadsTheTableWithoutAPassWhenItWasChanged)
{
    EXPECT_EQ("VKVMonQueBackUp VKVMonQueGet VKVMonQueCpy", CallsOn(kTableChanged));
    ExpectTraced(3, "WatchSyslog", kReloaded);
}

TEST_F(EventLoop, OnlyTracesAWaitThatFailedAndWaitsAgain)
{
    for (const DWORD result : {0U, 8U, 9U, 100U, 0x80000000U, 0xFFFFFFFFU}) {
        Host().ForgetRecords();
        steps_.clear();
        OnWait(kTimeOut);
        OnWait(result);
        OnWait(kScanNow);
        Loop();
        ExpectTraced(1, "WatchSyslog", kNeverHere);
        EXPECT_EQ((std::vector<std::string>{kServiceStart, kNoMoreFtReports, kNewCycle, kNeverHere,
                                            kNewCycle, kServiceEnd, "<"}),
                  test::TextsOf("WatchSyslog"))
            << result;
        EXPECT_EQ(4U, Host().wait_calls.size());
        EXPECT_EQ(std::string(kInitialPass) + " " + kCyclePass + " " + kCyclePass,
                  test::FunctionsEntered())
            << result;
    }
}

TEST_F(EventLoop, TakesEventsThatArePendingOneByOne)
{
    const std::vector<DWORD> pending = {kTableChanged,      kCycleChanged,       kScanNow,
                                        kCustomFileChanged, kFileMonitorChanged, kTimeOut};
    for (const DWORD result : pending)
        OnWait(result);
    OnWait(kStopped);
    Loop();
    EXPECT_EQ((std::vector<std::string>{kInitialPass, "VKVMonQueBackUp VKVMonQueGet VKVMonQueCpy",
                                        "ChangeCycle", kCyclePass, "ChangeCustFile WatchSyslogMain",
                                        "ChangeFileMonObj WatchFileMonObjMain", kCyclePass}),
              steps_);
    EXPECT_EQ(7U, Host().wait_calls.size());
}

TEST_F(EventLoop, GoesOnForManyCycles)
{
    for (int i = 0; i < 1000; ++i)
        OnWait(kTimeOut);
    Loop();
    ExpectTraced(3, "WatchSyslog", kNewCycle, 1000);
    EXPECT_EQ(1001U, Host().wait_calls.size());
    EXPECT_EQ(0, HandlesLeft());
}

// ---- the cycle ----

TEST_F(EventLoop, WaitsForTheCycleOfTheRegistry)
{
    StoreCycle(10);
    Loop();
    EXPECT_EQ(std::vector<DWORD>{10000}, WaitTimes());
}

TEST_F(EventLoop, WaitsForALongCycleWithoutOverflow)
{
    StoreCycle(3600);
    Loop();
    EXPECT_EQ(std::vector<DWORD>{3600000}, WaitTimes());
}

TEST_F(EventLoop, TakesAChangedCycleFromTheVeryNextWaitAndOnlyWhenToldTo)
{
    StoreCycle(10);
    OnWait(kTimeOut, [] { StoreCycle(20); });
    OnWait(kCycleChanged);
    OnWait(kTimeOut);
    OnWait(kCycleChanged, [] { StoreCycle(9); }); // refused
    OnWait(kCycleChanged, [] { StoreCycle(3600); });
    OnWait(kStopped);
    Loop();
    EXPECT_EQ((std::vector<DWORD>{10000, 10000, 20000, 20000, 20000, 3600000}), WaitTimes());
}

TEST_F(EventLoop, GoesOnWithTheOldCycleWhenTheNewOneCannotBeRead)
{
    StoreCycle(10);
    OnWait(kCycleChanged, [] { Host().FailCall("RegQueryValueEx", 1); });
    OnWait(kCycleChanged, [] { Host().FailCall("RegOpenKeyEx", 1); });
    OnWait(kStopped);
    Loop();
    EXPECT_EQ((std::vector<DWORD>{10000, 10000, 10000}), WaitTimes());
}

TEST_F(EventLoop, StartsAFullCycleWhateverWokeIt)
{
    StoreCycle(10);
    for (const DWORD result :
         {kScanNow, kTableChanged, kCustomFileChanged, kFileMonitorChanged, 0U, kTimeOut})
        OnWait(result);
    Loop();
    EXPECT_EQ(std::vector<DWORD>(7, 10000), WaitTimes());
}

// ---- the customer file ----

TEST_F(EventLoop, MarksTheCustomerFileAsChangedForThePass)
{
    WriteLog("messages", Line("first\n"));
    WriteLog("app", Line("first\n"));
    // A resume point that the pass would follow if the file were not marked as changed.
    Host().registry.SetText(kMonitorKey, "HEADLINE_C", Line("first"));
    Host().registry.SetNumber(kMonitorKey, "POS_C", 0xFFFFFFFF);
    Host().registry.SetNumber(kMonitorKey, "H_POS_C", 0xFFFFFFFF);
    Host().registry.SetText(kMonitorKey, "CONTENT_C", "");
    OnWait(kCustomFileChanged, [] {
        EXPECT_EQ(0, IsCustFileChanged);
        Host().registry.SetText(kMonitorKey, "FILENAME", "/var/log/app");
    });
    OnWait(kStopped, [] { EXPECT_EQ(0, IsCustFileChanged) << "the pass has met the new file"; });
    Loop();
    EXPECT_STREQ("/var/log/app", syslogpath[1]);
    EXPECT_EQ(1, Host().Traced("custom monitor file changed:[/var/log/app]"));
}

TEST_F(EventLoop, MarksTheCustomerFileAsChangedWhateverComesOfReadingItsName)
{
    const auto mark_stays = [] {
        EXPECT_EQ(1, IsCustFileChanged);
        IsCustFileChanged = 0;
    };
    OnWait(kCustomFileChanged); // no name at all
    OnWait(kCustomFileChanged, [&] {
        mark_stays();
        Host().registry.SetText(kMonitorKey, "FILENAME", "/var/log/app");
        Host().FailCall("RegOpenKeyEx", 1);
    });
    OnWait(kCustomFileChanged, [&] {
        mark_stays();
        Host().FailCall("RegQueryValueEx", 1);
    });
    OnWait(kCustomFileChanged, mark_stays); // a file that does not exist
    OnWait(kStopped, mark_stays);
    Loop();
    EXPECT_STREQ("/var/log/app", syslogpath[1]);
}

TEST_F(EventLoop, DoesNotMarkTheCustomerFileOnAnyOtherEvent)
{
    for (const DWORD result : {kTimeOut, kTableChanged, kCycleChanged, kScanNow,
                               kFileMonitorChanged, DWORD{0}, DWORD{8}})
        OnWait(result);
    OnWait(kStopped, [] { EXPECT_EQ(0, IsCustFileChanged); });
    Loop();
}

TEST_F(EventLoop, ForgetsTheCustomerFileWhenItsNameIsGone)
{
    Host().registry.SetText(kMonitorKey, "FILENAME", "/var/log/app");
    OnWait(kCustomFileChanged, [] {
        EXPECT_STREQ("/var/log/app", syslogpath[1]);
        Host().registry.DeleteValue(kMonitorKey, "FILENAME");
    });
    OnWait(kStopped, [] { EXPECT_STREQ("", syslogpath[1]); });
    Loop();
}

// ---- what a pass reports ----

// The source "FTREPORT" is withheld from the moment at which the initial pass is over.
TEST_F(EventLoop, WithholdsFaultToleranceReportsOnlyAfterTheInitialPass)
{
    SetClock(2026, 3, 5, 10, 0, 0);
    WriteLog("messages", Line("head\n"));
    Loop(); // finds no resume point and stores one
    AddEntry({.source = "FTREPORT", .id = "1", .keywords = {"failed", "", ""}});
    AddEntry({.source = "OTHER", .id = "2", .keywords = {"failed", "", ""}});
    AppendLog("messages", Line("disk failed\n"));

    report_ft = 1;
    OnWait(kScanNow, [this] {
        EXPECT_EQ(0, report_ft);
        ASSERT_EQ(2U, Host().reports.size());
        EXPECT_EQ("FTREPORT", Host().reports[0].source);
        EXPECT_EQ("OTHER", Host().reports[1].source);
        AppendLog("messages", Line("fan failed\n"));
    });
    OnWait(kScanNow, [] {
        ASSERT_EQ(3U, Host().reports.size());
        EXPECT_EQ("OTHER", Host().reports[2].source);
        report_ft = 1; // someone outside
    });
    OnWait(kStopped, [] { EXPECT_EQ(1, report_ft) << "later passes leave it alone"; });
    Loop();
}

TEST_F(EventLoop, ReadsTheLogWhenACycleHasPassedAndWhenAScanIsWanted)
{
    SetClock(2026, 3, 5, 10, 0, 0);
    WriteLog("messages", Line("head\n"));
    AddEntry({.source = "S", .id = "1", .keywords = {"failed", "", ""}});
    OnWait(kTimeOut, [this] { AppendLog("messages", Line("one failed\n")); });
    OnWait(kScanNow, [this] {
        EXPECT_EQ(1U, Host().reports.size());
        AppendLog("messages", Line("two failed\n"));
    });
    OnWait(kFileMonitorChanged, [this] {
        EXPECT_EQ(2U, Host().reports.size());
        AppendLog("messages", Line("three failed\n"));
    });
    OnWait(kCustomFileChanged, [] { EXPECT_EQ(2U, Host().reports.size()); });
    OnWait(kStopped, [] { EXPECT_EQ(3U, Host().reports.size()); });
    Loop();
}

TEST_F(EventLoop, ReadsTheFileMonitorsTargetOnItsOwnEventsOnly)
{
    WriteLog("target", "");
    Host().registry.SetText(test::kFileMonitorKey, "FILENAME", "/var/log/target");
    for (const char *name : {"INODE_L", "INODE_H", "OFFSET_L", "OFFSET_H"})
        Host().registry.SetNumber(test::kFileMonitorKey, name, 0);
    AddEntry({.source = "S", .id = "1", .keywords = {"failed", "", ""}});
    OnWait(kTimeOut, [this] { AppendLog("target", "one failed\n"); });
    OnWait(kCustomFileChanged, [this] {
        EXPECT_EQ(1U, Host().reports.size());
        AppendLog("target", "two failed\n");
    });
    OnWait(kFileMonitorChanged, [] { EXPECT_EQ(1U, Host().reports.size()); });
    OnWait(kStopped, [] { EXPECT_EQ(2U, Host().reports.size()); });
    Loop();
}

// ---- reload ----

TEST_F(EventLoop, ReloadsUnderTheMutexAndGivesItBack)
{
    RegisterA("1");
    HANDLE held = nullptr;
    Host().convert = [&](const std::string &text, int, int) {
        held = hEventlogMutex; // in the middle of the load
        EXPECT_NE(nullptr, tmp_VKVMon);
        return text;
    };
    OnWait(kTableChanged, [] { Host().ForgetRecords(); });
    OnWait(kStopped, [] {
        EXPECT_EQ(nullptr, hEventlogMutex);
        EXPECT_EQ(nullptr, tmp_VKVMon);
        EXPECT_EQ(5, HandlesLeft()) << "the events";
        const auto &calls = Host().calls;
        EXPECT_EQ((std::vector<std::string>{"CreateMutex", "WaitForSingleObject", "RegOpenKeyEx"}),
                  std::vector<std::string>(calls.begin(), calls.begin() + 3));
        EXPECT_EQ((std::vector<std::string>{"RegCloseKey", "ReleaseMutex", "CloseHandle",
                                            "WaitForMultipleObjects"}),
                  std::vector<std::string>(calls.end() - 4, calls.end()));
    });
    Loop();
    EXPECT_EQ("EVENTLOG_SEMA", Host().HandleName(held));
    EXPECT_FALSE(Host().HandleIsOpen(held));
}

TEST_F(EventLoop, KeepsTheHitsAcrossAReload)
{
    RegisterA("1");
    RegisterA("2");
    RegisterA("3");
    OnWait(kTableChanged);
    OnWait(kTableChanged, [] {
        lpVKVMon[0]->CurrentCount = 4;
        lpVKVMon[1]->CurrentCount = 5;
        lpVKVMon[2]->CurrentCount = 6;
        RegisterA("2", 8);
        Host().registry.DeleteKey(SourceKey("A") + "\\1");
        RegisterA("4");
    });
    OnWait(kTableChanged);
    OnWait(kStopped);
    Loop();
    const Rows want = {"A|2|word|||8|FFFFFF|0", "A|3|word|||9|FFFFFF|6", "A|4|word|||9|FFFFFF|0"};
    ASSERT_EQ(4U, tables_.size());
    EXPECT_EQ(want, tables_[2]);
    EXPECT_EQ(want, tables_[3]);
    ExpectTraced(3, "WatchSyslog", kReloaded, 3);
}

TEST_F(EventLoop, GoesOnAfterAReloadOfAnEmptyTable)
{
    AddEntry({.source = "Old"});
    OnWait(kTableChanged);
    OnWait(kTableChanged, [] { EXPECT_EQ(0, nCnt); });
    OnWait(kTimeOut);
    Loop();
    ExpectTraced(3, "WatchSyslog", kReloaded, 2);
    ExpectTraced(3, "WatchSyslog", kNewCycle);
    EXPECT_EQ(0, nCnt);
}

TEST_F(EventLoop, TakesTheMutexAfreshForEachReload)
{
    for (int i = 0; i < 3; ++i)
        OnWait(kTableChanged);
    Loop();
    for (const char *call : {"CreateMutex", "WaitForSingleObject", "ReleaseMutex"})
        EXPECT_EQ(3, Host().Calls(call));
    EXPECT_EQ(0, HandlesLeft());
}

TEST_F(EventLoop, AcceptsAnyWaitResultAboveTheTimeOutAsTheMutex)
{
    for (const DWORD result : {2U, 3U, 0x80U, 0xFFFFFFFFU}) {
        Host().ForgetRecords();
        Host().mutex_wait_result = result;
        OnWait(kTableChanged);
        Loop();
        ExpectTraced(3, "WatchSyslog", kReloaded);
        EXPECT_EQ(1, Host().Calls("ReleaseMutex"));
        EXPECT_EQ(0, HandlesLeft());
    }
}

TEST_F(EventLoop, GoesOnWhenTheMutexCannotBeGivenBack)
{
    OnWait(kTableChanged, [] { Host().FailCall("ReleaseMutex", 1); });
    OnWait(kTableChanged, [] {
        EXPECT_EQ(nullptr, hEventlogMutex);
        EXPECT_EQ(5, HandlesLeft());
        Host().FailCall("CloseHandle", 1);
    });
    OnWait(kTimeOut, [] { EXPECT_EQ(nullptr, hEventlogMutex); });
    Loop();
    ExpectTraced(3, "WatchSyslog", kReloaded, 2);
    ExpectTraced(3, "WatchSyslog", kNewCycle);
}

// A reload that fails ends the loop.
class FailingReload : public EventLoop {
  protected:
    FailingReload()
    {
        RegisterA("1");
        RegisterA("2");
        AddEntry({.source = "Old"})->CurrentCount = 4;
    }

    // Lets the reload fail; nothing may happen after it.
    void FailReload(const std::function<void()> &failure)
    {
        OnWait(kTableChanged, failure);
        OnWait(kTimeOut, [] { ADD_FAILURE() << "the loop went on"; });
        Loop();
        ExpectTraced(3, "WatchSyslog", kReloaded, 0);
        ExpectTraced(3, "WatchSyslog", kServiceEnd);
        EXPECT_EQ(1U, Host().wait_calls.size());
        EXPECT_EQ(nullptr, tmp_VKVMon);
        EXPECT_EQ(0, Host().registry.OpenHandles());
        Host().waits.clear();
    }
    // What the loop has traced between its start and its end.
    static std::vector<std::string> Said()
    {
        auto texts = test::TextsOf("WatchSyslog");
        EXPECT_EQ(kServiceStart, texts.front());
        EXPECT_EQ(kNoMoreFtReports, texts.at(1));
        EXPECT_EQ("<", texts.back());
        return {texts.begin() + 2, texts.end() - 2};
    }
    // The backup's own allocation may come as a calloc, see FailBackup.
    static int CallocsOfABackup()
    {
        Sys().count_memory = true;
        Sys().ForgetCalls();
        EXPECT_EQ(0, VKVMonQueBackUp());
        free(tmp_VKVMon);
        tmp_VKVMon = nullptr;
        return Sys().Calls("calloc");
    }
    static void ExpectMutexGivenBack()
    {
        EXPECT_EQ(1, Host().Calls("ReleaseMutex"));
        EXPECT_EQ(nullptr, hEventlogMutex);
        EXPECT_EQ(0, HandlesLeft());
    }
};

TEST_F(FailingReload, WithoutAMutexLeavesTheTableAlone)
{
    FailReload([] { Host().FailCall("CreateMutex", 1); });
    EXPECT_EQ(std::vector<std::string>{"CreateMutex(EVENTLOG_SEMA) error"}, Said());
    ExpectTraced(1, "WatchSyslog", "CreateMutex(EVENTLOG_SEMA) error");
    EXPECT_EQ(0, Host().Calls("WaitForSingleObject"));
    EXPECT_EQ(0, Host().Calls("ReleaseMutex"));
    EXPECT_EQ(0, HandlesLeft());
    EXPECT_EQ(nullptr, hEventlogMutex);
    EXPECT_EQ(1, nCnt);
    EXPECT_EQ(4, lpVKVMon[0]->CurrentCount);
}

TEST_F(FailingReload, WhoseWaitFailsLeavesTheMutexOpen)
{
    FailReload([] { Host().mutex_wait_result = WAIT_RESULT_FAILED; });
    EXPECT_EQ(std::vector<std::string>{"WaitForSingleObject failed."}, Said());
    ExpectTraced(1, "WatchSyslog", "WaitForSingleObject failed.");
    EXPECT_EQ(0, Host().Calls("ReleaseMutex"));
    EXPECT_EQ(1, HandlesLeft());
    EXPECT_EQ("EVENTLOG_SEMA", Host().HandleName(hEventlogMutex));
    EXPECT_TRUE(Host().HandleIsOpen(hEventlogMutex));
    EXPECT_EQ(1, nCnt);
}

TEST_F(FailingReload, WhoseWaitTimesOutLeavesTheMutexOpen)
{
    FailReload([] { Host().mutex_wait_result = WAIT_RESULT_TIMEOUT; });
    EXPECT_EQ(std::vector<std::string>{"WaitForSingleObject timeout."}, Said());
    ExpectTraced(1, "WatchSyslog", "WaitForSingleObject timeout.");
    EXPECT_EQ(0, Host().Calls("ReleaseMutex"));
    EXPECT_EQ(1, HandlesLeft());
    EXPECT_TRUE(Host().HandleIsOpen(hEventlogMutex));
    EXPECT_EQ(1, nCnt);
}

TEST_F(FailingReload, WithoutMemoryForTheBackupLoadsNothing)
{
    FailReload(test::FailBackup);
    EXPECT_EQ(std::vector<std::string>{kReloadFailed}, Said());
    ExpectTraced(1, "WatchSyslog", kReloadFailed);
    ExpectTraced(1, "VKVMonQueBackUp", "<tmp_VKVMon malloc failed.return -1");
    ExpectMutexGivenBack();
    EXPECT_EQ(std::string(kInitialPass) + " VKVMonQueBackUp", test::FunctionsEntered());
    EXPECT_EQ(1, nCnt) << "the old table was not touched";
}

TEST_F(FailingReload, WithoutMemoryForTheTableLeavesItEmpty)
{
    const int of_backup = CallocsOfABackup();
    for (const int n : {1, 2, 4096, 4097, 4098}) {
        Host().ForgetRecords();
        FailReload([&] { Sys().FailCall("calloc", of_backup + n); });
        EXPECT_EQ(std::vector<std::string>{kReloadFailed}, Said());
        ExpectTraced(1, "WatchSyslog", kReloadFailed);
        ExpectMutexGivenBack();
        EXPECT_EQ(Rows{}, test::TableRows());
        EXPECT_EQ(std::string(kInitialPass) + " VKVMonQueBackUp VKVMonQueGet",
                  test::FunctionsEntered());
    }
}

TEST_F(FailingReload, WhoseRegistryCannotBeReadLeavesTheTableEmpty)
{
    struct Vital {
        const char *call;
        int times;
    };
    // The calls of a load of one source with two events.
    for (const auto &[call, times] : std::vector<Vital>{{"RegOpenKeyEx", 4},
                                                        {"RegQueryInfoKey", 2},
                                                        {"RegEnumKeyEx", 3},
                                                        {"RegQueryValueEx", 10}}) {
        for (int n = 1; n <= times; ++n) {
            SCOPED_TRACE(std::string(call) + " number " + std::to_string(n));
            Host().ForgetRecords();
            FailReload([call = call, n] { Host().FailCall(call, n); });
            EXPECT_EQ(std::vector<std::string>{kReloadFailed}, Said());
            ExpectMutexGivenBack();
            EXPECT_EQ(0, nCnt);
            EXPECT_EQ(Rows{}, test::TableRows());
        }
    }
}

TEST_F(FailingReload, OfAnEmptyTableWhoseBackupIsNullEndsTheLoop)
{
    FreeTableEntries();
    nCnt = 0;
    FailReload(test::FailBackup);
    EXPECT_EQ(std::vector<std::string>{kReloadFailed}, Said());
    ExpectMutexGivenBack();
}

TEST_F(FailingReload, GivesTheMutexBackBeforeItClosesTheEvents)
{
    OnWait(kTableChanged, [] {
        Host().ForgetRecords();
        Host().FailCall("RegQueryInfoKey", 1);
    });
    Loop();
    EXPECT_EQ((std::vector<std::string>{"CreateMutex", "WaitForSingleObject", "RegOpenKeyEx",
                                        "RegQueryInfoKey", "RegCloseKey", "ReleaseMutex",
                                        "CloseHandle", "CloseHandle", "CloseHandle", "CloseHandle",
                                        "CloseHandle", "CloseHandle"}),
              Host().calls);
    ExpectMutexGivenBack();
}

} // namespace
