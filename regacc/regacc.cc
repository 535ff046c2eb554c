#include "regacc/regacc.h"

#include <cstring>

#include "platform/registry.h"
#include "platform/split64.h"
#include "platform/trace.h"

namespace {

constexpr char kUnit[] = "regacc";

using ll = long long;

// The messages of the helpers carry the name of the function that was called.

bool OpenToRead(const char *function, HKEY *key)
{
    // An access of 0 is what the host accepts for reading.
    if (RegOpenKeyEx(HKEY_LOCAL_MACHINE, kMonitorKey, 0, 0, key) == ERROR_SUCCESS)
        return true;
    TRACE_FOR(function, TRACE_ERROR, "<RegOpenKeyEx %s failed!return -1.", kMonitorKey);
    return false;
}

bool CreateKey(HKEY *key)
{
    DWORD disposition = 0;
    return RegCreateKeyEx(HKEY_LOCAL_MACHINE, kMonitorKey, 0, "", 0, KEY_ALL_ACCESS, nullptr, key,
                          &disposition) == ERROR_SUCCESS;
}

bool OpenToWrite(const char *function, HKEY *key)
{
    if (CreateKey(key))
        return true;
    TRACE_FOR(function, TRACE_ERROR, "<RegCreateKeyEx %s failed!return -1.", kMonitorKey);
    return false;
}

// `size` is that of the buffer, then that of the value.
bool ReadValue(const char *function, HKEY key, const char *name, void *data, DWORD *size)
{
    DWORD type = 0;
    if (RegQueryValueEx(key, name, nullptr, &type, data, size) == ERROR_SUCCESS)
        return true;
    TRACE_FOR(function, TRACE_ERROR, "<RegQueryValueEx %s failed!return -1.", name);
    return false;
}

bool ReadNumber(const char *function, HKEY key, const char *name, uint32_t *number)
{
    DWORD size = sizeof *number;
    return ReadValue(function, key, name, number, &size);
}

// A stored text carries its own zero byte, and nothing is written behind it. One that was stored without
// it and fills the buffer loses its last byte, so that nobody reads on behind the buffer.
bool ReadText(const char *function, HKEY key, const char *name, char *text, int size)
{
    const auto room = static_cast<DWORD>(size);
    DWORD length = room;
    if (!ReadValue(function, key, name, text, &length))
        return false;
    if (length > 0 && length == room)
        text[length - 1] = '\0';
    return true;
}

bool WriteValue(const char *function, HKEY key, const char *name, DWORD type, const void *data,
                DWORD size)
{
    if (RegSetValueEx(key, name, 0, type, data, size) == ERROR_SUCCESS)
        return true;
    TRACE_FOR(function, TRACE_ERROR, "<RegSetValueEx %s failed!return -1.", name);
    return false;
}

bool WriteNumber(const char *function, HKEY key, const char *name, uint32_t number)
{
    return WriteValue(function, key, name, REG_DWORD, &number, sizeof number);
}

bool WriteText(const char *function, HKEY key, const char *name, const char *text)
{
    char stored[kStoredTextSize] = {};
    memcpy(stored, text, strnlen(text, kStoredTextSize - 1));
    return WriteValue(function, key, name, REG_SZ, stored, static_cast<DWORD>(strlen(stored) + 1));
}

bool ReadPosition(const char *function, HKEY key, const SlotValues &names, int64_t *pos)
{
    uint32_t low = 0;
    uint32_t high = 0;
    if (!ReadNumber(function, key, names.pos_low, &low))
        return false;
    *pos = JoinHalves(low, 0);
    if (!ReadNumber(function, key, names.pos_high, &high))
        return false;
    *pos = JoinHalves(low, high);
    return true;
}

bool WriteOrientation(const char *function, HKEY key, const SlotValues &names, int64_t pos,
                      const char *content)
{
    return WriteNumber(function, key, names.pos_low, LowHalf(pos)) &&
           WriteNumber(function, key, names.pos_high, HighHalf(pos)) &&
           WriteText(function, key, names.content, content);
}

// Ends a call that has the key open.
int CloseAndReturn(const char *function, HKEY key, bool done)
{
    RegCloseKey(key);
    if (!done)
        return -1;
    TRACE_FOR(function, TRACE_DETAIL, "<return 0.");
    return 0;
}

} // namespace

bool MonIndexIsValid(const char *unit, const char *function, int monindex)
{
    if (monindex < 0) {
        TraceLog(TRACE_ERROR, unit, function, __LINE__, "<monindex[%d] is invalided, return -1.",
                 monindex);
        return false;
    }
    if (monindex >= MAX_MON_FILES) {
        TraceLog(TRACE_ERROR, unit, function, __LINE__,
                 "<monindex[%d] must less than MAX_MON_FILES[%d], return -1.", monindex,
                 MAX_MON_FILES);
        return false;
    }
    return true;
}

int RegSetRecTime(time_t time)
{
    TRACE(TRACE_DETAIL, ">time=%ld", static_cast<long>(time));
    HKEY key = nullptr;
    if (!OpenToWrite(__func__, &key))
        return -1;
    const bool done = WriteNumber(__func__, key, kRecordTimeValue, static_cast<uint32_t>(time));
    return CloseAndReturn(__func__, key, done);
}

int RegGetRecTime(time_t *time)
{
    TRACE(TRACE_DETAIL, ">time=%p", static_cast<void *>(time));
    if (time == nullptr) {
        TRACE(TRACE_ERROR, "<time==NULL,return -1.");
        return -1;
    }
    HKEY key = nullptr;
    if (!OpenToRead(__func__, &key))
        return -1;
    uint32_t seconds = 0;
    const bool done = ReadNumber(__func__, key, kRecordTimeValue, &seconds);
    if (done)
        *time = static_cast<time_t>(seconds);
    return CloseAndReturn(__func__, key, done);
}

int RegGetHeadLine(char *line, int size, int monindex)
{
    TRACE(TRACE_DETAIL, ">line=%p,size=%d,monindex=%d", static_cast<void *>(line), size, monindex);
    if (line == nullptr) {
        TRACE(TRACE_ERROR, "<line==NULL,return -1.");
        return -1;
    }
    HKEY key = nullptr;
    if (!MonIndexIsValid(kUnit, __func__, monindex) || !OpenToRead(__func__, &key))
        return -1;
    const bool done = ReadText(__func__, key, kSlotValues[monindex].headline, line, size);
    return CloseAndReturn(__func__, key, done);
}

int RegSetHeadLine(const char *line, int monindex)
{
    TRACE(TRACE_DETAIL, ">line=%s,monindex=%d", line != nullptr ? line : "NULL", monindex);
    if (line == nullptr) {
        TRACE(TRACE_ERROR, "<[in]line==NULL.return -1.");
        return -1;
    }
    HKEY key = nullptr;
    if (!MonIndexIsValid(kUnit, __func__, monindex) || !OpenToWrite(__func__, &key))
        return -1;
    const bool done = WriteText(__func__, key, kSlotValues[monindex].headline, line);
    return CloseAndReturn(__func__, key, done);
}

int RegGetOrientation(int64_t *pos, char *content, int size, int monindex)
{
    TRACE(TRACE_DETAIL, ">pos=%p,content=%p,size=%d,monindex=%d", static_cast<void *>(pos),
          static_cast<void *>(content), size, monindex);
    HKEY key = nullptr;
    if (!MonIndexIsValid(kUnit, __func__, monindex) || !OpenToRead(__func__, &key))
        return -1;
    const SlotValues &names = kSlotValues[monindex];
    bool done = pos == nullptr || ReadPosition(__func__, key, names, pos);
    if (done && content != nullptr) {
        memset(content, 0, static_cast<size_t>(size));
        done = ReadText(__func__, key, names.content, content, size);
    }
    RegCloseKey(key);
    if (!done)
        return -1;
    // A buffer of no bytes holds no text, not even an empty one.
    const char *const shown = content == nullptr ? "NULL" : size > 0 ? content : "";
    TRACE(TRACE_DETAIL, "<return 0.*pos=%lld,content=%s", pos != nullptr ? ll{*pos} : -1LL, shown);
    return 0;
}

int RegSetOrientation(int64_t pos, const char *content, int monindex)
{
    TRACE(TRACE_DETAIL, ">pos=%lld,content=%s,monindex=%d", ll{pos},
          content != nullptr ? content : "NULL", monindex);
    if (content == nullptr) {
        TRACE(TRACE_ERROR, "<content= null!return -1.");
        return -1;
    }
    HKEY key = nullptr;
    if (!MonIndexIsValid(kUnit, __func__, monindex))
        return -1;
    if (!CreateKey(&key)) {
        // The message of this one names the constant, not the path: it is fixed by the interface.
        TRACE(TRACE_ERROR, "<RegCreateKeyEx TARSK_REG_SYSLOG_SUB_KEY failed!return -1.");
        return -1;
    }
    const bool done = WriteOrientation(__func__, key, kSlotValues[monindex], pos, content);
    return CloseAndReturn(__func__, key, done);
}
