// The registry calls of the host interface, over the tree in the store.
//
// No exception leaves a call. Rights, classes and times of keys are no part of this registry:
// arguments for them are taken and not looked at, results for them are 0 or empty.
#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "agent/host/c_boundary.h"
#include "agent/host/host.h"
#include "platform/registry.h"

namespace host {

namespace {

// The result of a call that failed for a reason without a code of its own, such as a full disk.
// Callers only look for success and for "not found".
constexpr LONG kStoreFailed = 1;

constexpr DWORD kCreatedNewKey = 1; // dispositions of RegCreateKeyEx
constexpr DWORD kOpenedExistingKey = 2;

// What a handle stands for; null for one that is not open, and for one whose key was opened in a
// transaction that was rolled back. The root is open for ever, and has a fixed number.
std::shared_ptr<OpenKey> KeyOf(HKEY handle)
{
    if (handle == HKEY_LOCAL_MACHINE)
        return std::make_shared<OpenKey>();
    Host &host = Current();
    auto key = host.keys().Get(handle);
    return key && !host.store().WasRolledBack(key->opened_in) ? key : nullptr;
}

const char *OrEmpty(const char *text)
{
    return text != nullptr ? text : "";
}

HKEY NewHandle(KeyId id)
{
    Host &host = Current();
    auto key = std::make_shared<OpenKey>();
    key->id = id;
    key->opened_in = host.store().CurrentTransaction();
    return host.keys().Add(std::move(key));
}

LONG CopyOut(const RegValue &value, DWORD *type, void *data, DWORD *size)
{
    if (type != nullptr)
        *type = value.type;
    const auto needed = static_cast<DWORD>(value.data.size());
    const DWORD room = size != nullptr ? *size : 0;
    if (size != nullptr)
        // What is needed is told in each case: with success, with a buffer that is too small, and
        // without one.
        *size = needed;
    if (data == nullptr)
        return ERROR_SUCCESS;
    if (size == nullptr || room < needed)
        return ERROR_MORE_DATA;
    memcpy(data, value.data.data(), needed);
    return ERROR_SUCCESS;
}

// The boundary. A value that could not be read for want of memory must not count as one that is not there, nor one that could
// not be written as written: the module goes on either way.
template <typename Result, typename Body>
Result AtRegistry(const char *function, Result failed, const Body &body) noexcept
{
    return AtBoundary<Result>(function, failed, [&] {
        try {
            return body();
        } catch (const std::bad_alloc &error) {
            Current().store().FailPass(error);
            throw;
        }
    });
}

LONG Query(KeyId key, const char *name, DWORD *type, void *data, DWORD *size)
{
    const auto value = Current().registry().Get(key, OrEmpty(name));
    return value ? CopyOut(*value, type, data, size) : ERROR_FILE_NOT_FOUND;
}

// Looked at first, because a write below a key that is gone would break its foreign key, and with
// it the pass.
LONG Set(KeyId key, const char *name, DWORD type, const void *data, DWORD size)
{
    if (!Current().registry().Exists(key))
        return ERROR_FILE_NOT_FOUND; // it was deleted meanwhile
    Current().registry().Set(key, OrEmpty(name), type,
                             std::string_view(static_cast<const char *>(data), size));
    return ERROR_SUCCESS;
}

// An enumeration asks for one name after the other. The names are read once, and again only when
// anything in the store has changed since: so keys that are added meanwhile are seen.
const std::vector<std::string> &NamesBelow(OpenKey *key)
{
    const int64_t now = Current().store().ChangeCount();
    if (key->names_of != now) {
        key->names = Current().registry().SubKeys(key->id);
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
    return key ? Current().registry().Find(key->id, path) : std::nullopt;
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
    return AtRegistry<LONG>(__func__, kStoreFailed, [&] {
        const auto parent = KeyOf(key);
        if (!parent || result == nullptr)
            return ERROR_INVALID_HANDLE;
        const auto found = Current().registry().Find(parent->id, OrEmpty(subKey));
        // An empty path is the key itself, which can have been deleted since its handle was made.
        if (!found || (*found == parent->id && !Current().registry().Exists(*found)))
            return ERROR_FILE_NOT_FOUND;
        *result = NewHandle(*found);
        return ERROR_SUCCESS;
    });
}

LONG RegCreateKeyEx(HKEY key, const char *subKey, DWORD /*reserved*/, const char * /*keyClass*/,
                    DWORD /*options*/, REGSAM /*access*/, void * /*security*/, HKEY *result,
                    DWORD *disposition)
{
    return AtRegistry<LONG>(__func__, kStoreFailed, [&] {
        const auto parent = KeyOf(key);
        if (!parent || result == nullptr)
            return ERROR_INVALID_HANDLE;
        // Or the new key would hang below one that is gone, where nobody finds it.
        if (!Current().registry().Exists(parent->id))
            return ERROR_FILE_NOT_FOUND;
        bool created = false;
        *result = NewHandle(Current().registry().Create(parent->id, OrEmpty(subKey), &created));
        Put(disposition, created ? kCreatedNewKey : kOpenedExistingKey);
        return ERROR_SUCCESS;
    });
}

LONG RegQueryValueEx(HKEY key, const char *name, DWORD * /*reserved*/, DWORD *type, void *data,
                     DWORD *size)
{
    return AtRegistry<LONG>(__func__, kStoreFailed, [&] {
        const auto open = KeyOf(key);
        return open ? Query(open->id, name, type, data, size) : ERROR_INVALID_HANDLE;
    });
}

LONG RegSetValueEx(HKEY key, const char *name, DWORD /*reserved*/, DWORD type, const void *data,
                   DWORD size)
{
    return AtRegistry<LONG>(__func__, kStoreFailed, [&] {
        const auto open = KeyOf(key);
        return open ? Set(open->id, name, type, data, size) : ERROR_INVALID_HANDLE;
    });
}

LONG RegQueryInfoKey(HKEY key, char * /*keyClass*/, DWORD *classSize, DWORD * /*reserved*/,
                     DWORD *subKeys, DWORD *maxSubKeyLength, DWORD *maxClassLength, DWORD *values,
                     DWORD *maxValueNameLength, DWORD *maxValueLength, DWORD *securityLength,
                     void * /*lastWriteTime*/)
{
    return AtRegistry<LONG>(__func__, kStoreFailed, [&] {
        const auto open = KeyOf(key);
        if (!open)
            return ERROR_INVALID_HANDLE;
        const auto &names = NamesBelow(open.get());
        const auto stored = Current().registry().Values(open->id);
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
    return AtRegistry<LONG>(__func__, kStoreFailed, [&] {
        const auto open = KeyOf(key);
        if (!open || name == nullptr || nameSize == nullptr)
            return ERROR_INVALID_HANDLE;
        const auto &names = NamesBelow(open.get());
        if (index >= names.size())
            return ERROR_NO_MORE_ITEMS;
        const std::string &found = names[index];
        const DWORD room = *nameSize;
        *nameSize = static_cast<DWORD>(found.size());
        // Nothing is written then but the size that is needed, without its zero byte.
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
    Host *host = CurrentIfAny(); // without one, all keys are closed
    return host != nullptr && host->keys().Close(key) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

BOOL RegRead(HKEY root, const char *subKey, const char *name, DWORD *type, void *data, DWORD *size)
{
    return AtRegistry<BOOL>(__func__, FALSE, [&] {
        return ReadAt(root, OrEmpty(subKey), name, type, data, size) ? TRUE : FALSE;
    });
}

BOOL RegWrite(HKEY root, const char *subKey, const char *name, DWORD type, const void *data,
              DWORD size)
{
    return AtRegistry<BOOL>(__func__, FALSE, [&] {
        const auto parent = KeyOf(root);
        if (!parent || !Current().registry().Exists(parent->id))
            return FALSE;
        const KeyId key = Current().registry().Create(parent->id, OrEmpty(subKey));
        return Set(key, name, type, data, size) == ERROR_SUCCESS ? TRUE : FALSE;
    });
}

int VKACRERegReadEx(HKEY root, const char *keyPath, const char *name, void *data, DWORD size)
{
    return AtRegistry<int>(__func__, 0, [&] {
        return ReadAt(root, OrEmpty(keyPath), name, nullptr, data, &size) ? 1 : 0;
    });
}

int VKACREGetSubkeyValue(HKEY root, const char *keyPath, const char *subKey, const char *name,
                         void *data, DWORD *size)
{
    return AtRegistry<int>(__func__, 0, [&] {
        const std::string path = std::string(OrEmpty(keyPath)) + "\\" + OrEmpty(subKey);
        return ReadAt(root, path, name, nullptr, data, size) ? 1 : 0;
    });
}

} // extern "C"
