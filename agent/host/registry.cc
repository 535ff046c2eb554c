// The registry calls of the host interface, over the tree in the store.
#include <algorithm>
#include <cstring>
#include <string>

#include "agent/host/c_boundary.h"
#include "agent/host/handle_table.h"
#include "agent/host/host.h"
#include "platform/registry.h"

namespace host {

namespace {

// The result of a call that failed for a reason without a code of its own, such as a full disk.
// Callers only look for success and for "not found".
constexpr LONG kStoreFailed = 1;

constexpr DWORD kCreatedNewKey = 1; // dispositions of RegCreateKeyEx
constexpr DWORD kOpenedExistingKey = 2;

struct OpenKey {
    KeyId id = kRootKey;
    // The store's transaction in which the handle was opened, or 0. When that one is rolled back,
    // the key may never have existed, and its number may become another key's.
    int64_t opened_in = 0;
    // The names below the key, read with the first of them, so that an enumeration costs one look.
    std::vector<std::string> names;
    int64_t names_of = -1; // the store's change count when they were read
};

HandleTable<OpenKey> &Keys()
{
    static HandleTable<OpenKey> table(0x10000000);
    return table;
}

std::shared_ptr<OpenKey> KeyOf(HKEY handle)
{
    if (handle == HKEY_LOCAL_MACHINE)
        return std::make_shared<OpenKey>();
    auto key = Keys().Get(handle);
    return key && !HostStore().WasRolledBack(key->opened_in) ? key : nullptr;
}

const char *OrEmpty(const char *text)
{
    return text != nullptr ? text : "";
}

HKEY NewHandle(KeyId id)
{
    auto key = std::make_shared<OpenKey>();
    key->id = id;
    key->opened_in = HostStore().CurrentTransaction();
    return Keys().Add(std::move(key));
}

LONG CopyOut(const RegValue &value, DWORD *type, void *data, DWORD *size)
{
    if (type != nullptr)
        *type = value.type;
    const auto needed = static_cast<DWORD>(value.data.size());
    const DWORD room = size != nullptr ? *size : 0;
    if (size != nullptr)
        *size = needed;
    if (data == nullptr)
        return ERROR_SUCCESS;
    if (size == nullptr || room < needed)
        return ERROR_MORE_DATA;
    memcpy(data, value.data.data(), needed);
    return ERROR_SUCCESS;
}

LONG Query(KeyId key, const char *name, DWORD *type, void *data, DWORD *size)
{
    const auto value = HostRegistry().Get(key, OrEmpty(name));
    return value ? CopyOut(*value, type, data, size) : ERROR_FILE_NOT_FOUND;
}

LONG Set(KeyId key, const char *name, DWORD type, const void *data, DWORD size)
{
    if (!HostRegistry().Exists(key))
        return ERROR_FILE_NOT_FOUND; // it was deleted meanwhile
    HostRegistry().Set(key, OrEmpty(name), type,
                       std::string_view(static_cast<const char *>(data), size));
    return ERROR_SUCCESS;
}

const std::vector<std::string> &NamesBelow(OpenKey *key)
{
    const int64_t now = HostStore().ChangeCount();
    if (key->names_of != now) {
        key->names = HostRegistry().SubKeys(key->id);
        key->names_of = now;
    }
    return key->names;
}

size_t LongestName(const std::vector<std::string> &names)
{
    size_t longest = 0;
    for (const auto &name : names)
        longest = std::max(longest, name.size());
    return longest;
}

template <typename Number>
void Put(DWORD *target, Number number)
{
    if (target != nullptr)
        *target = static_cast<DWORD>(number);
}

// The key at a path, for the calls that read or write one value.
std::optional<KeyId> FindPath(HKEY root, const std::string &path)
{
    const auto key = KeyOf(root);
    return key ? HostRegistry().Find(key->id, path) : std::nullopt;
}

bool ReadAt(HKEY root, const std::string &path, const char *name, DWORD *type, void *data,
            DWORD *size)
{
    const auto key = FindPath(root, path);
    return key && Query(*key, name, type, data, size) == ERROR_SUCCESS;
}

} // namespace

} // namespace host

using namespace host;

extern "C" {

LONG RegOpenKeyEx(HKEY key, const char *subKey, DWORD /*options*/, REGSAM /*access*/, HKEY *result)
{
    return AtBoundary<LONG>(__func__, kStoreFailed, [&] {
        const auto parent = KeyOf(key);
        if (!parent || result == nullptr)
            return ERROR_INVALID_HANDLE;
        const auto found = HostRegistry().Find(parent->id, OrEmpty(subKey));
        if (!found || !HostRegistry().Exists(*found))
            return ERROR_FILE_NOT_FOUND;
        *result = NewHandle(*found);
        return ERROR_SUCCESS;
    });
}

LONG RegCreateKeyEx(HKEY key, const char *subKey, DWORD /*reserved*/, const char * /*keyClass*/,
                    DWORD /*options*/, REGSAM /*access*/, void * /*security*/, HKEY *result,
                    DWORD *disposition)
{
    return AtBoundary<LONG>(__func__, kStoreFailed, [&] {
        const auto parent = KeyOf(key);
        if (!parent || result == nullptr)
            return ERROR_INVALID_HANDLE;
        if (!HostRegistry().Exists(parent->id))
            return ERROR_FILE_NOT_FOUND;
        bool created = false;
        *result = NewHandle(HostRegistry().Create(parent->id, OrEmpty(subKey), &created));
        Put(disposition, created ? kCreatedNewKey : kOpenedExistingKey);
        return ERROR_SUCCESS;
    });
}

LONG RegQueryValueEx(HKEY key, const char *name, DWORD * /*reserved*/, DWORD *type, void *data,
                     DWORD *size)
{
    return AtBoundary<LONG>(__func__, kStoreFailed, [&] {
        const auto open = KeyOf(key);
        return open ? Query(open->id, name, type, data, size) : ERROR_INVALID_HANDLE;
    });
}

LONG RegSetValueEx(HKEY key, const char *name, DWORD /*reserved*/, DWORD type, const void *data,
                   DWORD size)
{
    return AtBoundary<LONG>(__func__, kStoreFailed, [&] {
        const auto open = KeyOf(key);
        return open ? Set(open->id, name, type, data, size) : ERROR_INVALID_HANDLE;
    });
}

LONG RegQueryInfoKey(HKEY key, char * /*keyClass*/, DWORD *classSize, DWORD * /*reserved*/,
                     DWORD *subKeys, DWORD *maxSubKeyLength, DWORD *maxClassLength, DWORD *values,
                     DWORD *maxValueNameLength, DWORD *maxValueLength, DWORD *securityLength,
                     void * /*lastWriteTime*/)
{
    return AtBoundary<LONG>(__func__, kStoreFailed, [&] {
        const auto open = KeyOf(key);
        if (!open)
            return ERROR_INVALID_HANDLE;
        const auto &names = NamesBelow(open.get());
        const auto stored = HostRegistry().Values(open->id);
        size_t longest_name = 0;
        size_t longest_data = 0;
        for (const auto &value : stored) {
            longest_name = std::max(longest_name, value.name.size());
            longest_data = std::max(longest_data, value.data.size());
        }
        Put(classSize, 0);
        Put(subKeys, names.size());
        Put(maxSubKeyLength, LongestName(names));
        Put(maxClassLength, 0);
        Put(values, stored.size());
        Put(maxValueNameLength, longest_name);
        Put(maxValueLength, longest_data);
        Put(securityLength, 0);
        return ERROR_SUCCESS;
    });
}

LONG RegEnumKeyEx(HKEY key, DWORD index, char *name, DWORD *nameSize, DWORD * /*reserved*/,
                  char *keyClass, DWORD *classSize, void * /*lastWriteTime*/)
{
    return AtBoundary<LONG>(__func__, kStoreFailed, [&] {
        const auto open = KeyOf(key);
        if (!open || name == nullptr || nameSize == nullptr)
            return ERROR_INVALID_HANDLE;
        const auto &names = NamesBelow(open.get());
        if (index >= names.size())
            return ERROR_NO_MORE_ITEMS;
        const std::string &found = names[index];
        const DWORD room = *nameSize;
        *nameSize = static_cast<DWORD>(found.size());
        if (found.size() + 1 > room)
            return ERROR_MORE_DATA;
        memcpy(name, found.c_str(), found.size() + 1);
        if (keyClass != nullptr && classSize != nullptr && *classSize > 0)
            keyClass[0] = '\0';
        Put(classSize, 0);
        return ERROR_SUCCESS;
    });
}

LONG RegCloseKey(HKEY key)
{
    if (key == HKEY_LOCAL_MACHINE)
        return ERROR_SUCCESS;
    return Keys().Close(key) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

BOOL RegRead(HKEY root, const char *subKey, const char *name, DWORD *type, void *data, DWORD *size)
{
    return AtBoundary<BOOL>(__func__, FALSE, [&] {
        return ReadAt(root, OrEmpty(subKey), name, type, data, size) ? TRUE : FALSE;
    });
}

BOOL RegWrite(HKEY root, const char *subKey, const char *name, DWORD type, const void *data,
              DWORD size)
{
    return AtBoundary<BOOL>(__func__, FALSE, [&] {
        const auto parent = KeyOf(root);
        if (!parent || !HostRegistry().Exists(parent->id))
            return FALSE;
        const KeyId key = HostRegistry().Create(parent->id, OrEmpty(subKey));
        return Set(key, name, type, data, size) == ERROR_SUCCESS ? TRUE : FALSE;
    });
}

int VKACRERegReadEx(HKEY root, const char *keyPath, const char *name, void *data, DWORD size)
{
    return AtBoundary<int>(__func__, 0, [&] {
        return ReadAt(root, OrEmpty(keyPath), name, nullptr, data, &size) ? 1 : 0;
    });
}

int VKACREGetSubkeyValue(HKEY root, const char *keyPath, const char *subKey, const char *name,
                         void *data, DWORD *size)
{
    return AtBoundary<int>(__func__, 0, [&] {
        const std::string path = std::string(OrEmpty(keyPath)) + "\\" + OrEmpty(subKey);
        return ReadAt(root, path, name, nullptr, data, size) ? 1 : 0;
    });
}

} // extern "C"
