#include "bench/quiet_host.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>

#include "match/report.h"
#include "match/table_data.h"
#include "platform/agent.h"
#include "platform/loader.h"
#include "platform/registry.h"
#include "platform/siblings.h"
#include "platform/sync.h"
#include "platform/trace.h"
#include "vkevmon/settings.h"

namespace bench {

int64_t reports = 0;

namespace {

int threshold = 4; // above every level; a variable, as in a real host

std::map<std::string, std::string> values; // of the monitor's registry key

int CountReport(ReportRequest * /*request*/)
{
    ++reports;
    return 1;
}

void CopyKeyword(const std::string &text, char *keyword)
{
    snprintf(keyword, kKeywordSize, "%s", text.c_str());
}

} // namespace

void FillTable(const std::vector<Rule> &rules, bool fault_tolerant)
{
    for (int i = 0; i < nCnt; ++i)
        free(lpVKVMon[i]);
    nCnt = 0;
    for (const Rule &rule : rules) {
        auto *entry = static_cast<VKVMon *>(calloc(1, sizeof(VKVMon)));
        CopyKeyword(rule.keywords[0], entry->Keyword1);
        CopyKeyword(rule.keywords[1], entry->Keyword2);
        CopyKeyword(rule.keywords[2], entry->Keyword3);
        snprintf(entry->Source, sizeof entry->Source, "BENCH");
        entry->EventID = static_cast<uint32_t>(nCnt);
        entry->WatchTime = 0xFFFFFF;
        entry->ReportCount = 1;
        lpVKVMon[nCnt++] = entry;
    }
    IsFTServer = fault_tolerant ? 1 : 0;
    pVKMonitorCall = CountReport;
    reports = 0;
}

void WatchFromStart(const std::string &path)
{
    snprintf(syslogpath[0], sizeof syslogpath[0], "%s", path.c_str());
    std::ifstream log(path);
    std::string head;
    std::getline(log, head);
    const uint32_t none = 0xFFFFFFFF;
    const std::string half(reinterpret_cast<const char *>(&none), sizeof none);
    values["HEADLINE"] = head.substr(0, 499) + '\0';
    values["POS"] = half;
    values["H_POS"] = half;
    values["CONTENT"] = std::string(1, '\0');
}

} // namespace bench

using bench::threshold;
using bench::values;

extern "C" {

HANDLE CreateEvent(void *, BOOL, BOOL, const char *)
{
    return nullptr;
}

BOOL SetEvent(HANDLE)
{
    return FALSE;
}

HANDLE CreateMutex(void *, BOOL, const char *)
{
    return nullptr;
}

BOOL ReleaseMutex(HANDLE)
{
    return FALSE;
}

DWORD WaitForSingleObject(HANDLE, DWORD)
{
    return WAIT_RESULT_FAILED;
}

DWORD WaitForMultipleObjects(DWORD, const HANDLE *, BOOL, DWORD)
{
    return WAIT_RESULT_FIRST;
}

BOOL CloseHandle(HANDLE)
{
    return FALSE;
}

HMODULE LoadLibrary(const char *)
{
    return nullptr;
}

void *GetProcAddress(HMODULE, const char *)
{
    return nullptr;
}

BOOL FreeLibrary(HMODULE)
{
    return FALSE;
}

LONG RegOpenKeyEx(HKEY, const char *, DWORD, REGSAM, HKEY *result)
{
    *result = &values;
    return ERROR_SUCCESS;
}

LONG RegCreateKeyEx(HKEY, const char *, DWORD, const char *, DWORD, REGSAM, void *, HKEY *result,
                    DWORD *)
{
    *result = &values;
    return ERROR_SUCCESS;
}

LONG RegQueryValueEx(HKEY, const char *name, DWORD *, DWORD *, void *data, DWORD *size)
{
    const auto found = values.find(name);
    if (found == values.end())
        return ERROR_FILE_NOT_FOUND;
    if (found->second.size() > *size)
        return ERROR_MORE_DATA;
    *size = static_cast<DWORD>(found->second.size());
    memcpy(data, found->second.data(), found->second.size());
    return ERROR_SUCCESS;
}

LONG RegSetValueEx(HKEY, const char *name, DWORD, DWORD, const void *data, DWORD size)
{
    values[name].assign(static_cast<const char *>(data), size);
    return ERROR_SUCCESS;
}

LONG RegQueryInfoKey(HKEY, char *, DWORD *, DWORD *, DWORD *, DWORD *, DWORD *, DWORD *, DWORD *,
                     DWORD *, DWORD *, void *)
{
    return ERROR_INVALID_HANDLE;
}

LONG RegEnumKeyEx(HKEY, DWORD, char *, DWORD *, DWORD *, char *, DWORD *, void *)
{
    return ERROR_NO_MORE_ITEMS;
}

LONG RegCloseKey(HKEY)
{
    return ERROR_SUCCESS;
}

BOOL RegRead(HKEY, const char *, const char *, DWORD *, void *, DWORD *)
{
    return FALSE;
}

BOOL RegWrite(HKEY, const char *, const char *, DWORD, const void *, DWORD)
{
    return TRUE;
}

int VKACRERegReadEx(HKEY, const char *, const char *, void *, DWORD)
{
    return 0;
}

int VKACREGetSubkeyValue(HKEY, const char *, const char *, const char *, void *, DWORD *)
{
    return 0;
}

int TraceLog(int level, const char *, const char *, int, const char *, ...)
{
    return level < threshold ? 0 : 1;
}

int TraceLogIsOn(int level)
{
    return level < threshold ? 0 : 1;
}

int ReportsKeepTable()
{
    return 1;
}

int TraceLogSetThrName(const char *)
{
    return 0;
}

int GetTarskRootPath(char *, int)
{
    return 0;
}

int call_tarsk_is_ft(void)
{
    return 0;
}

int TarskCodeConvert(const char *source, int, char *destination, int destinationSize, int, int)
{
    return snprintf(destination, static_cast<size_t>(destinationSize), "%s", source);
}

} // extern "C"
