// Start-up and shut-down of the monitor.
//
//   start-up                       shut-down
//   report library                 report library
//   product-registry library       product-registry library
//   fault-tolerant server?         -
//   monitoring table (mutex)       monitoring table
//   start-up event, event loop     -
//
// A start that fails takes down what it has set up, with two exceptions that are intended: a report
// library without VKMonitorCall stays loaded, and both libraries stay loaded when it cannot be told
// whether the machine is a fault-tolerant server. A next start opens them once more; nothing is lost
// but the count of openings.
#include "vkevmon/entry.h"

#include <cstring>

#include "match/report.h"
#include "match/table_data.h"
#include "platform/agent.h"
#include "platform/sync.h"
#include "platform/thread_record.h"
#include "platform/trace.h"
#include "vkevmon/loop.h"
#include "vkevmon/siblings.h"
#include "vkevmon/table.h"
#include "vkevmon/table_lock.h"

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr const char *kInterface = "StartThread";

bool AskForFaultTolerance()
{
    IsFTServer = call_tarsk_is_ft();
    if (IsFTServer != -1)
        return true;
    TRACE_HELPER(TRACE_ERROR,
                 "<load tarsklibft.dll failed!or load tarsk_is_ft() failed or get hwid failed!");
    return false;
}

bool LoadTableUnderLock()
{
    if (!TakeTableLock(kInterface))
        return false;
    const int result = VKVMonQueGet();
    GiveTableLock();
    if (result == 0)
        return true;
    TRACE_HELPER(TRACE_ERROR, "VKVMonQueGet() failed");
    return false;
}

void SignalStartUp(void *lpThread)
{
    if (lpThread == nullptr)
        return; // the event loop says so
    HANDLE started = nullptr;
    memcpy(&started, static_cast<char *>(lpThread) + kThreadStartupEventOffset, sizeof started);
    SetEvent(started);
}

void ShutDown()
{
    TRACE_HELPER(TRACE_NOTABLE, "Syslog Monitor shutdown.");
    UnloadSiblings();
    FreeTableEntries();
    TRACE_HELPER(TRACE_DETAIL, "<");
}

} // namespace

void StartThread(void *lpThread)
{
    TraceLogSetThrName("SyslogMonitor");
    TRACE(TRACE_DETAIL, ">lpThread=%p", lpThread);
    if (!LoadSiblings() || !AskForFaultTolerance())
        return;

    ForgetTableEntries();
    if (LoadTableUnderLock()) {
        SignalStartUp(lpThread);
        WatchSyslog(lpThread);
    }
    ShutDown();
}
