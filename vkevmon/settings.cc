#include "vkevmon/settings.h"

#include <cstring>

#include "platform/registry.h"
#include "platform/trace.h"

int32_t cycle = kCycleDefault;
char syslogpath[MAX_MON_FILES][kSyslogPathSize];
int32_t IsCustFileChanged = 0;

namespace {

constexpr char kUnit[] = "vkevmon";

static_assert(kFileNameMax < kSyslogPathSize, "the path must stay terminated");

bool OpenSettings(const char *function, HKEY *key)
{
    if (RegOpenKeyEx(HKEY_LOCAL_MACHINE, kMonitorKey, 0, 0, key) == ERROR_SUCCESS)
        return true;
    TRACE_FOR(function, TRACE_ERROR, "<RegOpenKeyEx() failed.");
    return false;
}

} // namespace

int ChangeCycle(void)
{
    TRACE(TRACE_DETAIL, ">");
    HKEY key = nullptr;
    if (!OpenSettings(__func__, &key))
        return 0;
    uint32_t seconds = 0;
    DWORD type = 0;
    DWORD size = sizeof seconds;
    const LONG result = RegQueryValueEx(key, kCycleValue, nullptr, &type, &seconds, &size);
    RegCloseKey(key);
    if (result != ERROR_SUCCESS) {
        // The text names the default even when the cycle has another value by now, which it keeps.
        TRACE(TRACE_ERROR, "<Try to read cycle from registry not success, use 300 second as the "
                           "default cycle value.");
        return 0;
    }
    // Unsigned, so that a negative value is out of range too.
    if (seconds - kCycleMin > kCycleMax - kCycleMin) {
        TRACE(TRACE_ERROR, "<value not in range[10,3600]");
        return 0;
    }
    cycle = static_cast<int32_t>(seconds);
    TRACE(TRACE_NOTABLE, "<cycle changed to %d", cycle);
    return 0;
}

int ChangeCustFile(void)
{
    TRACE(TRACE_DETAIL, ">");
    memset(syslogpath, 0, sizeof syslogpath);
    memcpy(syslogpath[0], kSystemLog, sizeof kSystemLog);
    HKEY key = nullptr;
    if (!OpenSettings(__func__, &key))
        return 0;
    char name[kFileNameMax + 1] = {};
    DWORD type = 0;
    DWORD size = kFileNameMax;
    const LONG result = RegQueryValueEx(key, kFileNameValue, nullptr, &type, name, &size);
    RegCloseKey(key);
    if (result != ERROR_SUCCESS) {
        if (result != ERROR_FILE_NOT_FOUND)
            TRACE(TRACE_ERROR, "<Try to read %s from registry not success.", kFileNameValue);
        return 0;
    }
    if (name[0] == '\0') {
        TRACE(TRACE_NOTABLE, "<no customer monitoring file");
        return 0;
    }
    const size_t length = strnlen(name, sizeof name);
    if (length > kFileNameMax) {
        TRACE(TRACE_ERROR, "<customer monitoring lenth of filename is too long");
        return 0;
    }
    memcpy(syslogpath[1], name, length);
    TRACE(TRACE_NOTABLE, "<customer monitoring file changed to %s", syslogpath[1]);
    return 0;
}
