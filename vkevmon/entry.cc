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

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/agent.h"
#include "platform/loader.h"
#include "platform/sync.h"
#include "platform/thread_record.h"
#include "platform/trace.h"
#include "vkevmon/table.h"
#include "vkevmon/table_lock.h"

HMODULE hDll = nullptr;
VKMonitorCallFn pVKMonitorCall = nullptr;
HMODULE hvkirtuptDll = nullptr;
ReadProductsRegisteriedFn pReadProductsRegisteried = nullptr;
TARSKPPLX_PPInfoClearFn pTARSKPPLX_PPInfoClear = nullptr;
int32_t IsFTServer = 0;
int32_t report_ft = 0;

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr char kStart[] = "StartThread";

constexpr char kReportLibrary[] = "vkmncall.dll";
constexpr char kProductLibrary[] = "vkirtupt.dll";

constexpr int kRootPathSize = 4096;
constexpr size_t kLibraryPathSize = kRootPathSize + 32; // "/lib/" and the longest name

HMODULE LoadSibling(const char *root, const char *name)
{
    char path[kLibraryPathSize];
    snprintf(path, sizeof path, "%s/lib/%s", root, name);
    HMODULE library = LoadLibrary(path);
    if (library == nullptr)
        TRACE_FOR(kStart, TRACE_ERROR, "<load %s failed.", path);
    return library;
}

template <typename Function>
bool Find(HMODULE library, const char *name, Function *function)
{
    *function = reinterpret_cast<Function>(GetProcAddress(library, name));
    return *function != nullptr;
}

// The report library. Stays loaded when it lacks the function.
bool LoadReportLibrary(const char *root)
{
    hDll = LoadSibling(root, kReportLibrary);
    if (hDll == nullptr)
        return false;
    if (Find(hDll, "VKMonitorCall", &pVKMonitorCall))
        return true;
    TRACE_FOR(kStart, TRACE_ERROR, "<GetProcAddress(VKMonitorCall) failed.");
    return false;
}

bool FindProductFunctions()
{
    if (!Find(hvkirtuptDll, "ReadProductsRegisteried", &pReadProductsRegisteried)) {
        TRACE_FOR(kStart, TRACE_ERROR, "<GetProcAddress(ReadProductsRegisteried) failed.");
        return false;
    }
    if (!Find(hvkirtuptDll, "TARSKPPLX_PPInfoClear", &pTARSKPPLX_PPInfoClear)) {
        TRACE_FOR(kStart, TRACE_ERROR, "<GetProcAddress(TARSKPPLX_PPInfoClear) failed.");
        return false;
    }
    return true;
}

// The product-registry library. On failure both libraries are unloaded.
bool LoadProductLibrary(const char *root)
{
    hvkirtuptDll = LoadSibling(root, kProductLibrary);
    if (hvkirtuptDll == nullptr) {
        FreeLibrary(hDll);
        return false;
    }
    if (FindProductFunctions())
        return true;
    FreeLibrary(hDll);
    FreeLibrary(hvkirtuptDll);
    return false;
}

bool AskForFaultTolerance()
{
    IsFTServer = call_tarsk_is_ft();
    if (IsFTServer != -1)
        return true;
    TRACE_FOR(kStart, TRACE_ERROR,
              "<load tarsklibft.dll failed!or load tarsk_is_ft() failed or get hwid failed!");
    return false;
}

bool LoadTableUnderLock()
{
    if (!TakeTableLock(kStart))
        return false;
    const int result = VKVMonQueGet();
    GiveTableLock();
    if (result == 0)
        return true;
    TRACE_FOR(kStart, TRACE_ERROR, "VKVMonQueGet() failed");
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
    TRACE_FOR(kStart, TRACE_NOTABLE, "Syslog Monitor shutdown.");
    pReadProductsRegisteried = nullptr;
    pTARSKPPLX_PPInfoClear = nullptr;
    FreeLibrary(hDll);
    FreeLibrary(hvkirtuptDll);
    FreeTableEntries();
    TRACE_FOR(kStart, TRACE_DETAIL, "<");
}

} // namespace

void StartThread(void *lpThread)
{
    TraceLogSetThrName("SyslogMonitor");
    TRACE(TRACE_DETAIL, ">lpThread=%p", lpThread);
    char root[kRootPathSize] = {};
    GetTarskRootPath(root, kRootPathSize);
    if (!LoadReportLibrary(root) || !LoadProductLibrary(root) || !AskForFaultTolerance())
        return;

    std::fill_n(lpVKVMon, kMaxEntries, nullptr);
    if (LoadTableUnderLock()) {
        SignalStartUp(lpThread);
        WatchSyslog(lpThread);
    }
    ShutDown();
}
