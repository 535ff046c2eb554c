#include "tests/support/scripted_host.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/agent.h"
#include "platform/contract.h"
#include "platform/loader.h"
#include "platform/trace.h"
#include "tests/support/trace_formats.h"

namespace test {

std::set<std::string> &TraceFormats()
{
    static std::set<std::string> formats;
    return formats;
}

namespace {

int report_library_object;
int product_library_object;

constexpr uintptr_t kFirstHandle = 0x500000;

} // namespace

HMODULE const kReportLibrary = &report_library_object;
HMODULE const kProductLibrary = &product_library_object;

ScriptedHost &Host()
{
    static ScriptedHost host;
    return host;
}

bool ScriptedHost::Enter(const char *name)
{
    if (calls.size() < 1000000)
        calls.emplace_back(name);
    bool fails = fail_any_ > 0 && ++any_calls_ == fail_any_;
    const auto failure = fail_.find(name);
    if (failure != fail_.end() && ++failure->second.seen == failure->second.n)
        fails = true;
    return fails;
}

void ScriptedHost::Demand(bool is_so, const std::string &what)
{
    if (!is_so)
        wrong_arguments.push_back(what);
}

HANDLE ScriptedHost::NewHandle(const std::string &name)
{
    handles_.push_back({name, true});
    return reinterpret_cast<HANDLE>(kFirstHandle + handles_.size());
}

bool ScriptedHost::DropHandle(HANDLE handle)
{
    if (!HandleIsOpen(handle))
        return false;
    handles_[reinterpret_cast<uintptr_t>(handle) - kFirstHandle - 1].open = false;
    return true;
}

std::string ScriptedHost::HandleName(HANDLE handle) const
{
    const auto number = reinterpret_cast<uintptr_t>(handle) - kFirstHandle - 1;
    return number < handles_.size() ? handles_[number].name : "?";
}

bool ScriptedHost::HandleIsOpen(HANDLE handle) const
{
    const auto number = reinterpret_cast<uintptr_t>(handle) - kFirstHandle - 1;
    return number < handles_.size() && handles_[number].open;
}

int ScriptedHost::OpenHandles() const
{
    return static_cast<int>(
        std::count_if(handles_.begin(), handles_.end(), [](const Handle &h) { return h.open; }));
}

int ScriptedHost::Calls(const std::string &name) const
{
    return static_cast<int>(std::count(calls.begin(), calls.end(), name));
}

int ScriptedHost::Traced(const std::string &text) const
{
    return static_cast<int>(std::count_if(trace.begin(), trace.end(),
                                          [&](const TraceRecord &r) { return r.text == text; }));
}

int ScriptedHost::Traced(int level, const std::string &text) const
{
    return static_cast<int>(std::count_if(trace.begin(), trace.end(), [&](const TraceRecord &r) {
        return r.level == level && r.text == text;
    }));
}

int ScriptedHost::LevelOf(const std::string &text) const
{
    for (const auto &record : trace) {
        if (record.text == text)
            return record.level;
    }
    return -1;
}

std::vector<std::string> ScriptedHost::Texts(int level) const
{
    std::vector<std::string> texts;
    for (const auto &record : trace) {
        if (record.level == level)
            texts.push_back(record.text);
    }
    return texts;
}

void ScriptedHost::ForgetRecords()
{
    trace.clear();
    reports.clear();
    wait_calls.clear();
    calls.clear();
    loaded.clear();
    freed_libraries.clear();
    cleared_products.clear();
    set_events.clear();
}

void ScriptedHost::Reset()
{
    *this = ScriptedHost();
}

} // namespace test

using test::Host;

namespace {

int RecordReport(ReportRequest *request)
{
    if (Host().Enter("VKMonitorCall"))
        return 0; // the module ignores the result
    test::SentReport report;
    report.log_name = request->logName;
    report.source = request->source;
    report.event_id = request->eventId;
    report.message = request->strings[0];
    report.other_fields_are_zero =
        request->reserved0 == 0 && request->reserved28 == 0 && request->reserved30 == 0 &&
        request->reserved32 == 0 && request->stringCount == 0 && request->reserved44 == 0 &&
        request->reserved56 == 0 && request->reserved64 == 0 && request->reserved72 == 0;
    Host().reports.push_back(report);
    if (Host().on_report)
        Host().on_report(*request);
    return 1;
}

int ReadProducts(int request_code, void **list)
{
    if (Host().Enter("ReadProductsRegisteried") || request_code != kReadProductsList)
        return 0;
    *list = Host().products;
    return Host().products_result;
}

int ClearProducts(void *list)
{
    Host().Enter("TARSKPPLX_PPInfoClear");
    Host().cleared_products.push_back(list);
    return 0;
}

bool IsOpenMutex(HANDLE handle)
{
    return Host().HandleIsOpen(handle) && Host().HandleName(handle) == kTableMutex;
}

// How a key is opened: its settings with no right in particular, a list of keys with all, those of an event for reading.
REGSAM AccessTo(const std::string &path)
{
    constexpr REGSAM kAll = 0xF003F;
    constexpr REGSAM kRead = 0x20019;
    if (path == kMonitorKey)
        return 0;
    return path.ends_with("\\" + std::string(kWatchSettingKey)) ? kRead : kAll;
}

} // namespace

extern "C" {

HANDLE CreateEvent(void *attributes, BOOL manualReset, BOOL initialState, const char *name)
{
    Host().Demand(attributes == nullptr && manualReset == FALSE && initialState == FALSE,
                  std::string("CreateEvent ") + name);
    return Host().Enter("CreateEvent") ? nullptr : Host().NewHandle(name);
}

BOOL SetEvent(HANDLE event)
{
    if (Host().Enter("SetEvent"))
        return FALSE;
    Host().set_events.push_back(event);
    return TRUE;
}

HANDLE CreateMutex(void *attributes, BOOL initialOwner, const char *name)
{
    Host().Demand(attributes == nullptr && initialOwner == FALSE,
                  std::string("CreateMutex ") + name);
    return Host().Enter("CreateMutex") ? nullptr : Host().NewHandle(name);
}

BOOL ReleaseMutex(HANDLE mutex)
{
    Host().Demand(IsOpenMutex(mutex), "ReleaseMutex of what is none");
    return Host().Enter("ReleaseMutex") ? FALSE : TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    Host().Demand(IsOpenMutex(handle), "WaitForSingleObject for what is no mutex");
    Host().Demand(milliseconds == INFINITE, "WaitForSingleObject with a time");
    return Host().Enter("WaitForSingleObject") ? WAIT_RESULT_FAILED : Host().mutex_wait_result;
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE *handles, BOOL waitAll, DWORD milliseconds)
{
    Host().wait_calls.push_back(
        {std::vector<HANDLE>(handles, handles + count), waitAll != FALSE, milliseconds});
    if (Host().Enter("WaitForMultipleObjects"))
        return WAIT_RESULT_FAILED;
    if (Host().waits.empty())
        return WAIT_RESULT_FIRST;
    const auto wait = Host().waits.front();
    Host().waits.erase(Host().waits.begin());
    if (wait.action)
        wait.action();
    return wait.result;
}

BOOL CloseHandle(HANDLE handle)
{
    if (Host().Enter("CloseHandle"))
        return FALSE;
    return Host().DropHandle(handle) ? TRUE : FALSE;
}

HMODULE LoadLibrary(const char *path)
{
    if (Host().Enter("LoadLibrary"))
        return nullptr;
    Host().loaded.emplace_back(path);
    return strstr(path, "vkmncall") != nullptr ? test::kReportLibrary : test::kProductLibrary;
}

void *GetProcAddress(HMODULE /*module*/, const char *name)
{
    if (Host().Enter("GetProcAddress"))
        return nullptr;
    if (strcmp(name, "VKMonitorCall") == 0)
        return reinterpret_cast<void *>(RecordReport);
    if (strcmp(name, "ReadProductsRegisteried") == 0)
        return reinterpret_cast<void *>(ReadProducts);
    if (strcmp(name, "TARSKPPLX_PPInfoClear") == 0)
        return reinterpret_cast<void *>(ClearProducts);
    return nullptr;
}

BOOL FreeLibrary(HMODULE module)
{
    if (Host().Enter("FreeLibrary"))
        return FALSE;
    Host().freed_libraries.push_back(module);
    return TRUE;
}

// The code of a scripted registry failure: any but "not found", which has a meaning of its own.
constexpr LONG kScriptedFailure = 5;

LONG RegOpenKeyEx(HKEY key, const char *subKey, DWORD options, REGSAM access, HKEY *result)
{
    Host().Demand(key == HKEY_LOCAL_MACHINE && options == 0 && access == AccessTo(subKey),
                  std::string("RegOpenKeyEx ") + subKey);
    return Host().Enter("RegOpenKeyEx") ? kScriptedFailure
                                        : Host().registry.Open(key, subKey, result, false);
}

LONG RegCreateKeyEx(HKEY key, const char *subKey, DWORD reserved, const char *keyClass,
                    DWORD options, REGSAM access, void *security, HKEY *result, DWORD *disposition)
{
    Host().Demand(key == HKEY_LOCAL_MACHINE && reserved == 0 && strcmp(keyClass, "") == 0 &&
                      options == 0 && access == 0xF003F && security == nullptr &&
                      disposition != nullptr,
                  std::string("RegCreateKeyEx ") + subKey);
    return Host().Enter("RegCreateKeyEx") ? kScriptedFailure
                                          : Host().registry.Open(key, subKey, result, true);
}

LONG RegQueryValueEx(HKEY key, const char *name, DWORD * /*reserved*/, DWORD *type, void *data,
                     DWORD *size)
{
    return Host().Enter("RegQueryValueEx") ? kScriptedFailure
                                           : Host().registry.Query(key, name, type, data, size);
}

LONG RegSetValueEx(HKEY key, const char *name, DWORD /*reserved*/, DWORD type, const void *data,
                   DWORD size)
{
    return Host().Enter("RegSetValueEx") ? kScriptedFailure
                                         : Host().registry.Set(key, name, type, data, size);
}

LONG RegQueryInfoKey(HKEY key, char * /*keyClass*/, DWORD * /*classSize*/, DWORD * /*reserved*/,
                     DWORD *subKeys, DWORD * /*maxSubKeyLength*/, DWORD * /*maxClassLength*/,
                     DWORD * /*values*/, DWORD * /*maxValueNameLength*/, DWORD * /*maxValueLength*/,
                     DWORD * /*securityLength*/, void * /*lastWriteTime*/)
{
    return Host().Enter("RegQueryInfoKey") ? kScriptedFailure : Host().registry.Info(key, subKeys);
}

LONG RegEnumKeyEx(HKEY key, DWORD index, char *name, DWORD *nameSize, DWORD *reserved,
                  char *keyClass, DWORD *classSize, void * /*lastWriteTime*/)
{
    Host().Demand(reserved == nullptr && keyClass != nullptr && classSize != nullptr &&
                      *classSize == 4096 && *nameSize == 256,
                  "RegEnumKeyEx");
    return Host().Enter("RegEnumKeyEx") ? kScriptedFailure
                                        : Host().registry.Enum(key, index, name, nameSize);
}

LONG RegCloseKey(HKEY key)
{
    return Host().Enter("RegCloseKey") ? kScriptedFailure : Host().registry.Close(key);
}

BOOL RegRead(HKEY root, const char *subKey, const char *name, DWORD *type, void *data, DWORD *size)
{
    Host().Demand((type != nullptr) == (strcmp(name, kFileNameValue) == 0),
                  std::string("RegRead ") + name);
    if (Host().Enter("RegRead"))
        return FALSE;
    HKEY key = nullptr;
    if (Host().registry.Open(root, subKey, &key, false) != ERROR_SUCCESS)
        return FALSE;
    const LONG result = Host().registry.Query(key, name, type, data, size);
    Host().registry.Close(key);
    return result == ERROR_SUCCESS ? TRUE : FALSE;
}

BOOL RegWrite(HKEY root, const char *subKey, const char *name, DWORD type, const void *data,
              DWORD size)
{
    if (Host().Enter("RegWrite"))
        return FALSE;
    HKEY key = nullptr;
    Host().registry.Open(root, subKey, &key, true);
    const LONG result = Host().registry.Set(key, name, type, data, size);
    Host().registry.Close(key);
    return result == ERROR_SUCCESS ? TRUE : FALSE;
}

int VKACRERegReadEx(HKEY root, const char *keyPath, const char *name, void *data, DWORD size)
{
    if (Host().Enter("VKACRERegReadEx"))
        return 0;
    HKEY key = nullptr;
    if (Host().registry.Open(root, keyPath, &key, false) != ERROR_SUCCESS)
        return 0;
    const LONG result = Host().registry.Query(key, name, nullptr, data, &size);
    Host().registry.Close(key);
    return result == ERROR_SUCCESS ? 1 : 0;
}

int VKACREGetSubkeyValue(HKEY root, const char *keyPath, const char *subKey, const char *name,
                         void *data, DWORD *size)
{
    if (Host().Enter("VKACREGetSubkeyValue"))
        return 0;
    HKEY key = nullptr;
    const std::string path = std::string(keyPath) + "\\" + subKey;
    if (Host().registry.Open(root, path.c_str(), &key, false) != ERROR_SUCCESS)
        return 0;
    const LONG result = Host().registry.Query(key, name, nullptr, data, size);
    Host().registry.Close(key);
    return result == ERROR_SUCCESS ? 1 : 0;
}

int TraceLog(int level, const char *unit, const char *function, int /*line*/, const char *format,
             ...)
{
    ++Host().traced;
    if (!Host().record_trace || TraceLogIsOn(level) == 0)
        return 0;
    test::TraceFormats().insert(format);
    char text[8192];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    Host().trace.push_back({level, unit, function, text});
    return 0;
}

int TraceLogIsOn(int level)
{
    return level > 0 || Host().detail_is_on ? 1 : 0;
}

int ReportsKeepTable()
{
    return Host().reports_keep_table ? 1 : 0;
}

void LogPartIsRead(const LogPart *part)
{
    LogPart kept = *part;
    kept.log = Host().logs_of_parts.emplace(part->log).first->c_str();
    Host().parts.push_back(kept);
}

FollowPassFn PassFollower()
{
    return Host().pass_follower;
}

int TraceLogSetThrName(const char *name)
{
    Host().Enter("TraceLogSetThrName");
    Host().thread_name = name;
    return 0;
}

int GetTarskRootPath(char *buffer, int size)
{
    if (Host().Enter("GetTarskRootPath"))
        return 0;
    snprintf(buffer, static_cast<size_t>(size), "%s", Host().root.c_str());
    return 1;
}

int call_tarsk_is_ft(void)
{
    return Host().Enter("call_tarsk_is_ft") ? -1 : Host().fault_tolerant;
}

int TarskCodeConvert(const char *source, int sourceLength, char *destination, int destinationSize,
                     int sourceCode, int destinationCode)
{
    Host().Enter("TarskCodeConvert");
    std::string text = sourceLength < 0 ? source : std::string(source, source + sourceLength);
    if (Host().convert)
        text = Host().convert(text, sourceCode, destinationCode);
    snprintf(destination, static_cast<size_t>(destinationSize), "%s", text.c_str());
    return static_cast<int>(strlen(destination));
}

} // extern "C"
