#include "vkevmon/table_lock.h"

#include "platform/contract.h"
#include "platform/sync.h"
#include "platform/trace.h"

HANDLE hEventlogMutex = nullptr;

namespace {

constexpr char kUnit[] = "vkevmon";

} // namespace

bool TakeTableLock(const char *function)
{
    hEventlogMutex = CreateMutex(nullptr, FALSE, kTableMutex);
    if (hEventlogMutex == nullptr) {
        TRACE_FOR(function, TRACE_ERROR, "CreateMutex(%s) error", kTableMutex);
        return false;
    }
    switch (WaitForSingleObject(hEventlogMutex, INFINITE)) {
    case WAIT_RESULT_FAILED:
        TRACE_FOR(function, TRACE_ERROR, "WaitForSingleObject failed.");
        return false;
    case WAIT_RESULT_TIMEOUT:
        TRACE_FOR(function, TRACE_ERROR, "WaitForSingleObject timeout.");
        return false;
    default:
        return true;
    }
}

void GiveTableLock()
{
    ReleaseMutex(hEventlogMutex);
    CloseHandle(hEventlogMutex);
    hEventlogMutex = nullptr;
}
