// Listing of the subkeys of a registry key.
#ifndef VKEVMON_SUBKEYS_H
#define VKEVMON_SUBKEYS_H

#include <cstddef>

// Bytes of the name of an event ID's key, the zero byte included. An ID is eight hexadecimal digits; a key
// whose name does not fit here is none.
constexpr size_t kIdNameSize = 16;

#pragma GCC visibility push(default)
extern "C" {

// Lists the subkeys of HKEY_LOCAL_MACHINE\lpszKeyName.
//   lplpszSubKey  out: up to kMaxEntries buffers, filled from the first. Of kSourceNameSize bytes each for
//                 the APPLICATION key, of kIdNameSize for any other; longer names are passed over
//   num           out: how many were filled
// Of the APPLICATION key, sources with a value NEWAPPLICATIONTYPE are left out. Names beyond
// kMaxEntries are passed over without a word.
// Returns 0, or -1 after tracing why.
int SearchSubKey(const char *lpszKeyName, char **lplpszSubKey, int *num);

} // extern "C"
#pragma GCC visibility pop

#endif // VKEVMON_SUBKEYS_H
