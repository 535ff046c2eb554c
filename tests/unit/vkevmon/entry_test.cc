// Start-up, shut-down, and whole lives of the monitor between them.

#include <optional>

#include "match/report.h"
#include "match/table_data.h"
#include "tests/unit/vkevmon/frame_fixture.h"
#include "vkevmon/entry.h"
#include "vkevmon/reload.h"
#include "vkevmon/siblings.h"
#include "vkevmon/table.h"
#include "vkevmon/table_lock.h"
#include "vkevmon/version.h"

namespace {

using test::ExpectTraced;
using test::Host;
using test::kProductLibrary;
using test::kReportLibrary;
using test::kStopped;
using test::kTableChanged;
using test::kTimeOut;
using test::MixedTable;
using test::Rows;
using test::Sys;

constexpr char kShutDown[] = "Syslog Monitor shutdown.";

// Taken before any test has put the module back to its first state.
const bool nothing_is_loaded_at_load =
    hDll == nullptr && hvkirtuptDll == nullptr && pVKMonitorCall == nullptr &&
    pReadProductsRegisteried == nullptr && pTARSKPPLX_PPInfoClear == nullptr &&
    hEventlogMutex == nullptr && report_ft == 0;

TEST(EntryAtLoad, NothingIsSet)
{
    EXPECT_TRUE(nothing_is_loaded_at_load);
    EXPECT_STREQ(" 1, 0, 0", version);
    EXPECT_EQ(9U, sizeof version);
}

class Entry : public test::LifeTest {
  protected:
    Entry()
    {
        pVKMonitorCall = nullptr;
        Host().registry.CreateKey(test::kApplicationKey);
    }

    // A start that ends before it has taken the table's lock: nothing is set up, nothing is said
    // about a shut-down.
    static void ExpectNoTable(const std::string &error)
    {
        EXPECT_EQ(std::vector<std::string>{error}, test::TextsOf("StartThread"));
        ExpectTraced(1, "StartThread", error);
        EXPECT_EQ(0, Host().Calls("CreateMutex"));
        ExpectNotStarted();
        EXPECT_EQ(0, HandlesLeft());
    }
    static void ExpectNotStarted()
    {
        EXPECT_TRUE(Host().set_events.empty());
        EXPECT_EQ(0, Host().Calls("CreateEvent"));
        EXPECT_TRUE(Host().wait_calls.empty());
    }
    static void ExpectFreed(const std::vector<HMODULE> &libraries)
    {
        EXPECT_EQ(libraries, Host().freed_libraries);
    }
    // A shut-down: both libraries are unloaded, the table's slots are null.
    static void ExpectShutDown()
    {
        EXPECT_EQ(1, Host().Traced(kShutDown)) << test::TraceDump();
        ExpectFreed({kReportLibrary, kProductLibrary});
        EXPECT_EQ(nullptr, pReadProductsRegisteried);
        EXPECT_EQ(nullptr, pTARSKPPLX_PPInfoClear);
        EXPECT_NE(nullptr, pVKMonitorCall);
        for (const VKVMon *entry : lpVKVMon)
            EXPECT_EQ(nullptr, entry);
    }
};

// ---- a life ----

TEST_F(Entry, TakesItsStepsInOrder)
{
    OnWait(kStopped);
    Run();
    const auto &calls = Host().calls;
    const std::vector<std::string> start = {"TraceLogSetThrName",
                                            "GetTarskRootPath",
                                            "LoadLibrary",
                                            "GetProcAddress",
                                            "LoadLibrary",
                                            "GetProcAddress",
                                            "GetProcAddress",
                                            "call_tarsk_is_ft",
                                            "CreateMutex",
                                            "WaitForSingleObject",
                                            "ReadProductsRegisteried",
                                            "RegOpenKeyEx",
                                            "RegQueryInfoKey",
                                            "RegCloseKey",
                                            "TARSKPPLX_PPInfoClear",
                                            "ReleaseMutex",
                                            "CloseHandle",
                                            "SetEvent",
                                            "CreateEvent"};
    ASSERT_LT(start.size(), calls.size());
    EXPECT_EQ(start, std::vector<std::string>(
                         calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(start.size())));
    const std::vector<std::string> end = {"WaitForMultipleObjects",
                                          "CloseHandle",
                                          "CloseHandle",
                                          "CloseHandle",
                                          "CloseHandle",
                                          "CloseHandle",
                                          "FreeLibrary",
                                          "FreeLibrary"};
    EXPECT_EQ(end, std::vector<std::string>(calls.end() - static_cast<std::ptrdiff_t>(end.size()),
                                            calls.end()));
    EXPECT_EQ("SyslogMonitor", Host().thread_name);
    ExpectShutDown();
    EXPECT_EQ(0, HandlesLeft());
    EXPECT_EQ(0, Host().registry.OpenHandles());
}

TEST_F(Entry, TracesItsWayInAndOut)
{
    Run();
    EXPECT_EQ((std::vector<std::string>{kShutDown, "<"}), test::TextsOf("StartThread"));
    ExpectTraced(3, "StartThread", kShutDown);
    const auto &first = Host().trace.front();
    EXPECT_EQ(0, first.level);
    EXPECT_EQ("StartThread", first.function);
    EXPECT_EQ('>', first.text[0]);
    const auto &last = Host().trace.back();
    EXPECT_EQ(0, last.level);
    EXPECT_EQ("StartThread", last.function);
    EXPECT_EQ("<", last.text);
}

TEST_F(Entry, LoadsTheLibrariesBelowTheInstallRoot)
{
    Host().root = "/srv/any agent";
    Run();
    EXPECT_EQ((std::vector<std::string>{"/srv/any agent/lib/vkmncall.dll",
                                        "/srv/any agent/lib/vkirtupt.dll"}),
              Host().loaded);
}

TEST_F(Entry, LoadsTheLibrariesBelowAnInstallRootOfAnyLength)
{
    Host().root = "/" + std::string(5000, 'r'); // 4095 bytes of it fit
    const std::string root = Host().root.substr(0, 4095);
    Run();
    EXPECT_EQ((std::vector<std::string>{root + "/lib/vkmncall.dll", root + "/lib/vkirtupt.dll"}),
              Host().loaded);
}

TEST_F(Entry, WithoutAnInstallRootLooksBelowNothing)
{
    Host().FailCall("GetTarskRootPath", 1);
    Run();
    EXPECT_EQ((std::vector<std::string>{"/lib/vkmncall.dll", "/lib/vkirtupt.dll"}), Host().loaded);
}

TEST_F(Entry, SetsTheStartUpEventOnceWhenTheTableIsThere)
{
    Register({.source = "S", .id = "1", .keywords = {"w", "", ""}});
    OnWait(kTableChanged);
    OnWait(kStopped);
    Run();
    EXPECT_EQ(std::vector<HANDLE>{started_}, Host().set_events);
    EXPECT_EQ((Rows{"S|1|w|||1|FFFFFF|0"}), tables_[0]);
    EXPECT_LT(PositionOf("ReleaseMutex"), PositionOf("SetEvent"));
    EXPECT_LT(PositionOf("SetEvent"), PositionOf("CreateEvent"));
}

TEST_F(Entry, GoesOnWhenTheStartUpEventCannotBeSet)
{
    Host().FailCall("SetEvent", 1);
    OnWait(kTimeOut);
    OnWait(kStopped);
    Run();
    EXPECT_EQ(2U, steps_.size());
    ExpectShutDown();
}

TEST_F(Entry, HoldsTheMutexDuringTheLoadOnly)
{
    Register({.source = "S", .id = "1", .keywords = {"w", "", ""}});
    HANDLE held = nullptr;
    Host().convert = [&](const std::string &text, int, int) {
        held = hEventlogMutex;
        EXPECT_TRUE(Host().HandleIsOpen(held));
        return text;
    };
    OnWait(kStopped, [] { EXPECT_EQ(nullptr, hEventlogMutex); });
    Run();
    EXPECT_EQ("EVENTLOG_SEMA", Host().HandleName(held));
    EXPECT_FALSE(Host().HandleIsOpen(held));
}

TEST_F(Entry, FreesTheTableAtShutDownAndKeepsItsCount)
{
    Register({.source = "S", .id = "1", .keywords = {"w", "", ""}});
    Register({.source = "S", .id = "2", .keywords = {"w", "", ""}});
    Run();
    ExpectShutDown();
    EXPECT_EQ(2, nCnt);
}

TEST_F(Entry, KeepsTheReportFunctionAfterShutDown)
{
    VKMonitorCallFn function = nullptr;
    OnWait(kStopped, [&] {
        function = pVKMonitorCall;
        EXPECT_NE(nullptr, pReadProductsRegisteried);
        EXPECT_NE(nullptr, pTARSKPPLX_PPInfoClear);
        EXPECT_EQ(kReportLibrary, hDll);
        EXPECT_EQ(kProductLibrary, hvkirtuptDll);
    });
    Run();
    EXPECT_NE(nullptr, function);
    EXPECT_EQ(function, pVKMonitorCall);
    ExpectShutDown();
}

TEST_F(Entry, TakesTheAnswerAboutFaultToleranceAsItIs)
{
    for (const int answer : {0, 1, 2, 77, -2}) {
        Host().ForgetRecords();
        Host().fault_tolerant = answer;
        Run();
        EXPECT_EQ(answer, IsFTServer);
        EXPECT_EQ(1U, Host().wait_calls.size());
    }
}

TEST_F(Entry, ClearsEverySlotBeforeItLoads)
{
    VKVMon someone_elses{};
    for (VKVMon *&slot : lpVKVMon)
        slot = &someone_elses;
    OnWait(kStopped);
    Run();
    EXPECT_EQ(std::vector<Rows>{Rows{}}, tables_);
    ExpectShutDown();
}

TEST_F(Entry, LivesAgainAfterShutDown)
{
    Register({.source = "S", .id = "1", .keywords = {"w", "", ""}});
    Register({.source = "S", .id = "2", .keywords = {"w", "", ""}});
    OnWait(kStopped, [] { lpVKVMon[0]->CurrentCount = 1; });
    Run();
    ASSERT_EQ(2, nCnt);
    OnWait(kStopped);
    Run();
    EXPECT_EQ((std::vector<Rows>{{"S|1|w|||1|FFFFFF|0", "S|2|w|||1|FFFFFF|0"},
                                 {"S|1|w|||1|FFFFFF|0", "S|2|w|||1|FFFFFF|0"}}),
              tables_);
    EXPECT_EQ((std::vector<HANDLE>{started_, started_}), Host().set_events);
    EXPECT_EQ(0, HandlesLeft());
}

TEST_F(Entry, ShutsDownAgainAfterALifeWhenTheLockCannotBeHad)
{
    Register({.source = "S", .id = "1", .keywords = {"w", "", ""}});
    Run();
    Host().ForgetRecords();
    Host().FailCall("CreateMutex", 1);
    Run(); // the count still speaks of one entry, whose slot is null
    ExpectShutDown();
    EXPECT_EQ(1, nCnt);
}

TEST_F(Entry, WithoutAThreadRecordShutsDownInGoodOrder)
{
    Register({.source = "S", .id = "1", .keywords = {"w", "", ""}});
    StartThread(nullptr);
    ExpectTraced(1, "WatchSyslog", "<Parameter lpThread is NULL");
    ExpectNotStarted();
    ExpectShutDown();
    ExpectTraced(3, "StartThread", kShutDown);
    EXPECT_EQ(0, HandlesLeft());
    EXPECT_EQ(1, Host().Calls("ReleaseMutex"));
}

// ---- starts that fail ----

TEST_F(Entry, EndsWithoutTheReportLibrary)
{
    Host().FailCall("LoadLibrary", 1);
    Run();
    ExpectNoTable("<load /opt/agent/lib/vkmncall.dll failed.");
    ExpectFreed({});
    EXPECT_EQ(0, Host().Calls("GetProcAddress"));
}

TEST_F(Entry, LeavesTheReportLibraryLoadedWhenItLacksItsFunction)
{
    Host().FailCall("GetProcAddress", 1);
    Run();
    ExpectNoTable("<GetProcAddress(VKMonitorCall) failed.");
    ExpectFreed({});
    EXPECT_EQ(1, Host().Calls("LoadLibrary"));
}

TEST_F(Entry, UnloadsTheReportLibraryWithoutTheProductLibrary)
{
    Host().FailCall("LoadLibrary", 2);
    Run();
    ExpectNoTable("<load /opt/agent/lib/vkirtupt.dll failed.");
    ExpectFreed({kReportLibrary});
    EXPECT_EQ(1, Host().Calls("GetProcAddress"));
}

TEST_F(Entry, UnloadsBothLibrariesWithoutTheFirstProductFunction)
{
    Host().FailCall("GetProcAddress", 2);
    Run();
    ExpectNoTable("<GetProcAddress(ReadProductsRegisteried) failed.");
    ExpectFreed({kReportLibrary, kProductLibrary});
    EXPECT_EQ(2, Host().Calls("GetProcAddress"));
}

TEST_F(Entry, UnloadsBothLibrariesWithoutTheSecondProductFunction)
{
    Host().FailCall("GetProcAddress", 3);
    Run();
    ExpectNoTable("<GetProcAddress(TARSKPPLX_PPInfoClear) failed.");
    ExpectFreed({kReportLibrary, kProductLibrary});
    EXPECT_EQ(0, Host().Calls("call_tarsk_is_ft"));
}

TEST_F(Entry, LeavesBothLibrariesLoadedWhenFaultToleranceCannotBeTold)
{
    Host().fault_tolerant = -1;
    Run();
    ExpectNoTable("<load tarsklibft.dll failed!or load tarsk_is_ft() failed or get hwid failed!");
    EXPECT_EQ(-1, IsFTServer);
    ExpectFreed({});
    EXPECT_NE(nullptr, pReadProductsRegisteried);
}

TEST_F(Entry, DoesNotTouchTheTableBeforeItHasEverythingElse)
{
    AddEntry({.source = "Hosts own"});
    Host().fault_tolerant = -1;
    Run();
    EXPECT_EQ((Rows{"Hosts own|1||||1|FFFFFF|0"}), test::TableRows());
}

TEST_F(Entry, ShutsDownWithoutTheMutex)
{
    Host().FailCall("CreateMutex", 1);
    Run();
    ExpectTraced(1, "StartThread", "CreateMutex(EVENTLOG_SEMA) error");
    EXPECT_EQ(0, Host().Calls("WaitForSingleObject"));
    EXPECT_EQ(nullptr, hEventlogMutex);
    EXPECT_EQ(0, HandlesLeft());
    ExpectNotStarted();
    ExpectShutDown();
}

TEST_F(Entry, ShutsDownWithTheMutexOpenWhenItsWaitFails)
{
    Host().mutex_wait_result = WAIT_RESULT_FAILED;
    Run();
    EXPECT_EQ((std::vector<std::string>{"WaitForSingleObject failed.", kShutDown, "<"}),
              test::TextsOf("StartThread"));
    ExpectTraced(1, "StartThread", "WaitForSingleObject failed.");
    EXPECT_EQ(0, Host().Calls("ReleaseMutex"));
    EXPECT_EQ(0, Host().Calls("CloseHandle"));
    EXPECT_EQ(1, HandlesLeft());
    EXPECT_TRUE(Host().HandleIsOpen(hEventlogMutex));
    EXPECT_EQ("", test::FunctionsEntered());
    ExpectNotStarted();
    ExpectShutDown();
}

TEST_F(Entry, ShutsDownWithTheMutexOpenWhenItsWaitTimesOut)
{
    Host().mutex_wait_result = WAIT_RESULT_TIMEOUT;
    Run();
    ExpectTraced(1, "StartThread", "WaitForSingleObject timeout.");
    EXPECT_EQ(0, Host().Calls("ReleaseMutex"));
    EXPECT_EQ(1, HandlesLeft());
    EXPECT_TRUE(Host().HandleIsOpen(hEventlogMutex));
    ExpectNotStarted();
    ExpectShutDown();
}

TEST_F(Entry, ShutsDownWhenTheTableCannotBeLoaded)
{
    Host().registry.DeleteKey(test::kApplicationKey);
    Run();
    EXPECT_EQ((std::vector<std::string>{"VKVMonQueGet() failed", kShutDown, "<"}),
              test::TextsOf("StartThread"));
    ExpectTraced(1, "StartThread", "VKVMonQueGet() failed");
    EXPECT_EQ(1, Host().Calls("ReleaseMutex"));
    EXPECT_EQ(nullptr, hEventlogMutex);
    EXPECT_EQ(0, HandlesLeft());
    EXPECT_EQ(0, nCnt);
    ExpectNotStarted();
    ExpectShutDown();
}

TEST_F(Entry, ShutsDownWhenTheEventsCannotBeCreated)
{
    Host().FailCall("CreateEvent", 3);
    Run();
    EXPECT_EQ(std::vector<HANDLE>{started_}, Host().set_events);
    EXPECT_TRUE(Host().wait_calls.empty());
    ExpectShutDown();
    EXPECT_EQ(0, HandlesLeft());
}

TEST_F(Entry, ShutsDownWhenAReloadFails)
{
    Register({.source = "S", .id = "1", .keywords = {"w", "", ""}});
    OnWait(kTableChanged, [] { Host().registry.DeleteKey(test::kApplicationKey); });
    OnWait(kTimeOut, [] { ADD_FAILURE() << "the loop went on"; });
    Run();
    ExpectTraced(1, "WatchSyslog", "VKVMonQueGet() failed");
    ExpectShutDown();
    EXPECT_EQ(0, nCnt);
    EXPECT_EQ(0, HandlesLeft());
}

TEST_F(Entry, ShutsDownAfterAFailedBackupWithTheOldTableFreed)
{
    Register({.source = "S", .id = "1", .keywords = {"w", "", ""}});
    OnWait(kTableChanged, test::FailBackup);
    Run();
    ExpectShutDown();
    EXPECT_EQ(nullptr, tmp_VKVMon);
    EXPECT_EQ(1, nCnt);
}

// ---- a whole life, each of its calls failing once ----

// A life with a table of everything, files to scan and each event once. The call that fails decides
// what must become of it.
class LifeByCounting : public Entry {
  protected:
    LifeByCounting()
    {
        SetClock(2026, 3, 5, 10, 0, 0);
        WriteLog("messages", Line("head\n"));
        WriteLog("app", Line("head\n"));
        WriteLog("target", "");
    }

    // The registry and the script as they stand before each life.
    void Prepare()
    {
        Host().registry = test::MemoryRegistry();
        mixed_.emplace();
        test::MemoryRegistry &registry = Host().registry;
        registry.SetNumber(test::kMonitorKey, "CYCLE", 60);
        registry.SetText(test::kMonitorKey, "FILENAME", "/var/log/app");
        registry.SetText(test::kFileMonitorKey, "FILENAME", "/var/log/target");
        for (const char *name : {"INODE_L", "INODE_H", "OFFSET_L", "OFFSET_H"})
            registry.SetNumber(test::kFileMonitorKey, name, 0);
        Host().waits.clear();
        steps_.clear();
        tables_.clear();
        OnWait(test::kTimeOut, [this] { AppendLog("messages", Line("one\n")); });
        for (const DWORD result : kScript)
            OnWait(result);
        Host().ForgetRecords();
        handles_before_ = Host().OpenHandles();
    }

    // The name of the call that failed.
    static const std::string &FailedCall(int n) { return Host().calls[static_cast<size_t>(n) - 1]; }
    static bool IsOneOf(const std::string &call, const std::vector<std::string> &calls)
    {
        return std::find(calls.begin(), calls.end(), call) != calls.end();
    }
    static long CallsBefore(int n, const std::string &call)
    {
        return std::count(Host().calls.begin(), Host().calls.begin() + n - 1, call);
    }
    // Did call n fall into a load of the table? That is what the mutex is held for.
    static bool IsInALoad(int n)
    {
        return CallsBefore(n, "WaitForSingleObject") > CallsBefore(n, "ReleaseMutex");
    }

    // How the life must go when call n fails.
    enum class Fate { kNoTable, kNoLoop, kLoopEnds, kGoesOn };
    static Fate FateOf(int n)
    {
        const std::string &call = FailedCall(n);
        const bool looping = CallsBefore(n, "SetEvent") > 0;
        if (IsOneOf(call, {"LoadLibrary", "GetProcAddress", "call_tarsk_is_ft"}))
            return Fate::kNoTable;
        if (call == "CreateEvent")
            return Fate::kLoopEnds;
        const bool breaks_load =
            IsOneOf(call, {"CreateMutex", "WaitForSingleObject"}) ||
            (IsInALoad(n) &&
             IsOneOf(call, {"RegOpenKeyEx", "RegQueryInfoKey", "RegEnumKeyEx", "RegQueryValueEx"}));
        if (!breaks_load)
            return Fate::kGoesOn;
        return looping ? Fate::kLoopEnds : Fate::kNoLoop;
    }

    void ExpectNothingLeftBut(int n) const
    {
        const std::string &call = FailedCall(n);
        const int mutexes = call == "WaitForSingleObject" ? 1 : 0;
        const int unclosed = call == "CloseHandle" ? 1 : 0;
        EXPECT_EQ(handles_before_ + mutexes + unclosed, Host().OpenHandles());
        const int blank_events = Host().Traced("Three keywords are all empty .");
        EXPECT_EQ(blank_events + (call == "RegCloseKey" ? 1 : 0), Host().registry.OpenHandles());
        EXPECT_EQ(nullptr, tmp_VKVMon);
    }

    static void ExpectWholeTables(const std::string &failed_call, const std::vector<Rows> &tables)
    {
        for (const Rows &table : tables) {
            const bool whole =
                table == MixedTable::Complete() ||
                (failed_call == "VKACRERegReadEx" && table == MixedTable::WithTyped()) ||
                (IsOneOf(failed_call, {"VKACREGetSubkeyValue", "ReadProductsRegisteried"}) &&
                 table == MixedTable::WithProduct());
            EXPECT_TRUE(whole) << testing::PrintToString(table);
        }
    }

    void ExpectFate(Fate fate, int n) const
    {
        const std::string &call = FailedCall(n);
        const bool shuts_down = fate != Fate::kNoTable;
        EXPECT_EQ(shuts_down ? 1 : 0, Host().Traced(kShutDown));
        const bool started = fate == Fate::kLoopEnds || fate == Fate::kGoesOn;
        EXPECT_EQ(started ? 1 : 0, Host().Calls("SetEvent"));
        EXPECT_EQ(started && call != "SetEvent", !Host().set_events.empty());
        EXPECT_EQ(started ? 1 : 0, Host().Traced("Syslog monitor service end !"));
        EXPECT_EQ(fate == Fate::kGoesOn, Host().waits.empty());
        EXPECT_EQ(call == "WaitForMultipleObjects" ? 1 : 0,
                  Host().Traced("FIXME: U should never reach here"));
        if (fate == Fate::kGoesOn) {
            EXPECT_EQ(1, Host().Traced("Monitor Queue Reloaded."));
        }
        for (const VKVMon *entry : lpVKVMon)
            EXPECT_EQ(nullptr, entry);
    }

    static constexpr DWORD kScript[] = {
        test::kTimeOut,           test::kTableChanged,       test::kCycleChanged, test::kScanNow,
        test::kCustomFileChanged, test::kFileMonitorChanged, test::kStopped};
    std::optional<MixedTable> mixed_;
    int handles_before_ = 0;
};

TEST_F(LifeByCounting, EndsInGoodOrderWhicheverCallFails)
{
    int n = 0;
    for (;; ++n) {
        Prepare();
        Host().FailAnyCall(n + 1);
        Run();
        if (!Host().AnyFailureWasUsed())
            break;
        SCOPED_TRACE("call " + std::to_string(n + 1) + ": " + FailedCall(n + 1));
        ExpectFate(FateOf(n + 1), n + 1);
        ExpectWholeTables(FailedCall(n + 1), tables_);
        ExpectNothingLeftBut(n + 1);
        if (HasFailure())
            break;
    }
    EXPECT_GT(n, 200) << "a life has become surprisingly short";
    EXPECT_EQ(8U, steps_.size()) << "the last life has gone through the whole script";
    EXPECT_EQ(std::vector<Rows>(8, MixedTable::Complete()), tables_);
}

TEST_F(LifeByCounting, EndsInGoodOrderWhicheverAllocationOfTheStartFails)
{
    int failures = 0;
    for (const int skipped : {0, 1, 2 * kMaxEntries - 1}) {
        for (int n = 1; n <= 8; ++n) {
            Prepare();
            Sys().FailCall("calloc", skipped + n);
            Run();
            if (Host().Texts(2).empty())
                continue;
            ++failures;
            const bool of_the_filter =
                skipped + n > 2 * kMaxEntries && skipped + n <= 2 * kMaxEntries + 3;
            EXPECT_EQ(of_the_filter ? 1U : 0U, Host().set_events.size()) << skipped + n;
            EXPECT_EQ(of_the_filter ? 0 : 1, Host().Traced("VKVMonQueGet() failed"));
            EXPECT_EQ(1, Host().Traced(kShutDown));
            EXPECT_EQ(handles_before_, Host().OpenHandles());
            EXPECT_EQ(Host().Traced("Three keywords are all empty ."),
                      Host().registry.OpenHandles());
            EXPECT_EQ(of_the_filter, nCnt > 0);
        }
    }
    EXPECT_EQ(24, failures);
}

} // namespace
