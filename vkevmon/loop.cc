// The event loop of the monitor thread.
//
//   wait result  meaning                    action
//   1            a cycle has passed         syslog pass, file-monitor pass
//   2            stop handle                leave
//   3            Eventlog_Mod_Event         reload the table; leave when that fails
//   4            Eventlog_Cycle_Event       read the cycle
//   5            Driving_Syslog_Event       as a cycle that has passed
//   6            Eventlog_Custom_Event      read the customer file's name, syslog pass
//   7            Eventlog_File_Event        read the file-monitor target, file-monitor pass
//   0, above 7   the wait failed            trace, wait again
//
// A wait reports one handle. The events are auto-reset and keep their signal, so the following
// waits take the others. Each wait starts a full new cycle, whatever woke the one before.
#include "vkevmon/loop.h"

#include <cstdlib>
#include <cstring>

#include "filemonitor/filemonitor.h"
#include "match/report.h"
#include "platform/contract.h"
#include "platform/sync.h"
#include "platform/thread_record.h"
#include "platform/trace.h"
#include "vkevmon/pass.h"
#include "vkevmon/reload.h"
#include "vkevmon/settings.h"
#include "vkevmon/table.h"
#include "vkevmon/table_lock.h"

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr const char *kInterface = "WatchSyslog";

// The handles of the loop. Their order gives the wait results their meaning.
enum HandleIndex { kStop, kTable, kCycle, kScan, kCustomFile, kFileMonitor, kHandles };
struct Handles {
    HANDLE at[kHandles]; // null: not created
};

// The stop handle is the host's.
constexpr const char *kEvents[kHandles] = {nullptr,    kTableEvent,        kCycleEvent,
                                           kScanEvent, kCustomerFileEvent, kFileMonitorEvent};

void TraceNotCreated(int event)
{
    switch (event) {
    case kTable:
        TRACE_HELPER(TRACE_ERROR, "CreateEvent EVENTLOG_MOD_EVENT failed.");
        break;
    case kCycle:
        TRACE_HELPER(TRACE_ERROR, "CreateEvent EVENTLOG_CYCLE_EVENT failed.");
        break;
    case kScan:
        TRACE_HELPER(TRACE_ERROR, "CreateEvent DRIVING_SYSLOG_EVENT failed.");
        break;
    case kCustomFile:
        TRACE_HELPER(TRACE_ERROR, "CreateEvent EVENTLOG_CUSTOM_EVENT failed.");
        break;
    default:
        TRACE_HELPER(TRACE_ERROR, "CreateEvent EVENTLOG_FILE_EVENT failed.");
        break;
    }
}

constexpr DWORD kMillisecondsPerSecond = 1000;

bool CreateEvents(Handles *handles)
{
    for (int i = kTable; i < kHandles; ++i) {
        handles->at[i] = CreateEvent(nullptr, FALSE, FALSE, kEvents[i]);
        if (handles->at[i] == nullptr) {
            TraceNotCreated(i);
            return false;
        }
    }
    return true;
}

void CloseEvents(Handles *handles)
{
    for (int i = kTable; i < kHandles; ++i) {
        if (handles->at[i] != nullptr)
            CloseHandle(handles->at[i]);
        handles->at[i] = nullptr;
    }
}

void InitialPass()
{
    ChangeCycle();
    ChangeCustFile();
    WatchSyslogMain();
    ChangeFileMonObj();
    WatchFileMonObjMain();
    TRACE_HELPER(TRACE_DETAIL, "##### not report ft event from now!!!###");
    report_ft = 0;
}

void CyclePass()
{
    TRACE_HELPER(TRACE_NOTABLE, "A new cycle for checking syslog");
    WatchSyslogMain();
    WatchFileMonObjMain();
}

// Rebuilds the table with its hit counts kept. After a failed load the table is empty, so a failure
// ends the loop, by design: a monitor that watches nothing must not look alive.
bool ReloadTable()
{
    if (!TakeTableLock(kInterface))
        return false;
    if (VKVMonQueBackUp() != 0 || VKVMonQueGet() != 0) {
        TRACE_HELPER(TRACE_ERROR, "VKVMonQueGet() failed");
        free(tmp_VKVMon);
        tmp_VKVMon = nullptr;
        GiveTableLock();
        return false;
    }
    VKVMonQueCpy();
    TRACE_HELPER(TRACE_NOTABLE, "Monitor Queue Reloaded.");
    GiveTableLock();
    return true;
}

// Acts on a wait result. Returns false when the loop ends.
bool Act(DWORD result)
{
    switch (result) {
    case WAIT_RESULT_FIRST + kStop:
        return false;
    case WAIT_RESULT_FIRST + kTable:
        return ReloadTable();
    case WAIT_RESULT_FIRST + kCycle:
        ChangeCycle();
        return true;
    case WAIT_RESULT_TIMEOUT:
    case WAIT_RESULT_FIRST + kScan:
        CyclePass();
        return true;
    case WAIT_RESULT_FIRST + kCustomFile:
        IsCustFileChanged = 1;
        ChangeCustFile();
        WatchSyslogMain();
        return true;
    case WAIT_RESULT_FIRST + kFileMonitor:
        ChangeFileMonObj();
        WatchFileMonObjMain();
        return true;
    default:
        TRACE_HELPER(TRACE_ERROR, "FIXME: U should never reach here");
        return true;
    }
}

// The cycle is read afresh before each wait.
DWORD WaitForNews(const Handles &handles)
{
    return WaitForMultipleObjects(kHandles, handles.at, FALSE,
                                  static_cast<DWORD>(cycle) * kMillisecondsPerSecond);
}

} // namespace

void WatchSyslog(void *lpThread)
{
    TRACE(TRACE_DETAIL, ">lpThread=%p", lpThread);
    if (lpThread == nullptr) {
        TRACE(TRACE_ERROR, "<Parameter lpThread is NULL");
        return;
    }
    TRACE(TRACE_NOTABLE, "Syslog monitor service start");
    Handles handles{};
    memcpy(&handles.at[kStop], static_cast<char *>(lpThread) + kThreadStopHandleOffset,
           sizeof handles.at[kStop]);
    if (CreateEvents(&handles)) {
        InitialPass();
        while (Act(WaitForNews(handles)))
            continue;
    }
    CloseEvents(&handles);
    TRACE(TRACE_NOTABLE, "Syslog monitor service end !");
    TRACE(TRACE_DETAIL, "<");
}
