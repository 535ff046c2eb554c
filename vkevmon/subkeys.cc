#include "vkevmon/subkeys.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <strings.h>

#include "platform/contract.h"
#include "platform/registry.h"
#include "platform/trace.h"

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr const char *kInterface = "SearchSubKey";

// A name as RegEnumKeyEx delivers it, and the class that nobody looks at.
constexpr DWORD kKeyNameSize = 256;
constexpr DWORD kKeyClassSize = 4096;

// Why a walk over subkeys ended.
enum class Listing { kDone, kInfoFailed, kEnumFailed };

// Does the source report under a type of its own? Then it is not for this module.
bool IsNewApplicationType(const char *source)
{
    char path[sizeof kApplicationKey + kKeyNameSize + 1];
    snprintf(path, sizeof path, "%s\\%s", kApplicationKey, source);
    int32_t type = 0;
    if (VKACRERegReadEx(HKEY_LOCAL_MACHINE, path, kNewApplicationTypeValue, &type, sizeof type) ==
        0)
        return false;
    TRACE_HELPER(TRACE_DETAIL, "The Type of Source: %s is %d.", source, type);
    return true;
}

// Copies the subkey names of an open key into buffers: of kSourceNameSize bytes for the sources, of
// kIdNameSize for the IDs below one. A name that does not fit is refused, since half a name would open
// another key.
Listing ListSubKeys(HKEY key, bool of_applications, char **names, int *num)
{
    const size_t room = of_applications ? kSourceNameSize : kIdNameSize;
    DWORD count = 0;
    if (RegQueryInfoKey(key, nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr,
                        nullptr, nullptr, nullptr) != ERROR_SUCCESS)
        return Listing::kInfoFailed;
    int stored = 0;
    for (DWORD index = 0; index < count && stored < kMaxEntries; ++index) {
        char name[kKeyNameSize] = {};
        char key_class[kKeyClassSize];
        DWORD name_size = kKeyNameSize;
        DWORD class_size = kKeyClassSize;
        if (RegEnumKeyEx(key, index, name, &name_size, nullptr, key_class, &class_size, nullptr) !=
            ERROR_SUCCESS)
            return Listing::kEnumFailed;
        name[kKeyNameSize - 1] = '\0';
        if (of_applications && IsNewApplicationType(name))
            continue;
        const size_t size = strlen(name) + 1;
        if (size > room) {
            TRACE_HELPER(TRACE_ERROR, "The name of subkey %s is too long, skip it.", name);
            continue;
        }
        memcpy(names[stored++], name, size);
    }
    *num = stored;
    return Listing::kDone;
}

} // namespace

int SearchSubKey(const char *lpszKeyName, char **lplpszSubKey, int *num)
{
    TRACE(TRACE_DETAIL, ">lpszKeyName=%s", lpszKeyName);
    HKEY key = nullptr;
    if (RegOpenKeyEx(HKEY_LOCAL_MACHINE, lpszKeyName, 0, KEY_ALL_ACCESS, &key) != ERROR_SUCCESS) {
        TRACE(TRACE_ERROR, "<RegOpenKeyEx() failed. return -1.");
        return -1;
    }
    const bool of_applications = strcasecmp(lpszKeyName, kApplicationKey) == 0;
    const Listing listing = ListSubKeys(key, of_applications, lplpszSubKey, num);
    RegCloseKey(key);
    switch (listing) {
    case Listing::kInfoFailed:
        TRACE(TRACE_ERROR, "<RegQueryInfoKey failed.return -1.");
        return -1;
    case Listing::kEnumFailed:
        TRACE(TRACE_ERROR, "<RegEnumKeyEx failed.return -1.");
        return -1;
    case Listing::kDone:
        break;
    }
    TRACE(TRACE_DETAIL, "<return 0.*num=%d", *num);
    return 0;
}
