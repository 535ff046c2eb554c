// The host's registry: a tree of keys with typed values.
//
//   - Key and value names compare without regard to case and keep the case of their creation. Paths
//     below a key are separated by single backslashes.
//   - Subkeys are enumerated in the order in which they were created.
//   - A read into a buffer that is too small fails with ERROR_MORE_DATA and sets the size to what
//     is needed. A null data pointer asks for the size alone.
//   - A key handle that was closed, or never opened, gives ERROR_INVALID_HANDLE from every call. The
//     loading of the monitoring table relies on that.
#ifndef PLATFORM_REGISTRY_H
#define PLATFORM_REGISTRY_H

#include <cstdint>

#include "platform/types.h"

using HKEY = void *;
using REGSAM = DWORD;

#define HKEY_LOCAL_MACHINE ((HKEY)(uintptr_t)0x80000002U)

constexpr REGSAM KEY_READ = 0x20019;
constexpr REGSAM KEY_ALL_ACCESS = 0xF003F;

constexpr DWORD REG_SZ = 1;     // text with its zero byte
constexpr DWORD REG_BINARY = 3; // any bytes
constexpr DWORD REG_DWORD = 4;  // 32-bit integer, host byte order

constexpr LONG ERROR_SUCCESS = 0;
constexpr LONG ERROR_FILE_NOT_FOUND = 2;  // no such key or value
constexpr LONG ERROR_INVALID_HANDLE = 6;  // closed or unknown key handle
constexpr LONG ERROR_MORE_DATA = 234;     // the buffer is too small
constexpr LONG ERROR_NO_MORE_ITEMS = 259; // the index is past the last subkey

extern "C" {

// Opens an existing key. An access of 0 is accepted for reading.
LONG RegOpenKeyEx(HKEY key, const char *subKey, DWORD options, REGSAM access, HKEY *result);

// Opens a key, creating it and its missing parents first.
LONG RegCreateKeyEx(HKEY key, const char *subKey, DWORD reserved, const char *keyClass,
                    DWORD options, REGSAM access, void *security, HKEY *result, DWORD *disposition);

LONG RegQueryValueEx(HKEY key, const char *name, DWORD *reserved, DWORD *type, void *data,
                     DWORD *size);
LONG RegSetValueEx(HKEY key, const char *name, DWORD reserved, DWORD type, const void *data,
                   DWORD size);

// Counts and longest lengths of what is below a key. Every out pointer may be null.
LONG RegQueryInfoKey(HKEY key, char *keyClass, DWORD *classSize, DWORD *reserved, DWORD *subKeys,
                     DWORD *maxSubKeyLength, DWORD *maxClassLength, DWORD *values,
                     DWORD *maxValueNameLength, DWORD *maxValueLength, DWORD *securityLength,
                     void *lastWriteTime);

// The name of subkey number `index`. `nameSize` counts characters: in with the zero byte, out
// without.
LONG RegEnumKeyEx(HKEY key, DWORD index, char *name, DWORD *nameSize, DWORD *reserved,
                  char *keyClass, DWORD *classSize, void *lastWriteTime);

LONG RegCloseKey(HKEY key);

// One value in one call; non-zero is success. RegWrite creates the key when it is missing.
BOOL RegRead(HKEY root, const char *subKey, const char *name, DWORD *type, void *data, DWORD *size);
BOOL RegWrite(HKEY root, const char *subKey, const char *name, DWORD type, const void *data,
              DWORD size);

// The alert component's readers. VKACRERegReadEx: non-zero when the value could be read.
// VKACREGetSubkeyValue: 1 when the value of keyPath\subKey could be read; the size is then its
// length.
int VKACRERegReadEx(HKEY root, const char *keyPath, const char *name, void *data, DWORD size);
int VKACREGetSubkeyValue(HKEY root, const char *keyPath, const char *subKey, const char *name,
                         void *data, DWORD *size);

} // extern "C"

#endif // PLATFORM_REGISTRY_H
