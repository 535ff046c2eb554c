// Loading of sibling libraries.
#ifndef PLATFORM_LOADER_H
#define PLATFORM_LOADER_H

#include "platform/types.h"

extern "C" {

// Loads the library at an absolute path. Returns null on failure.
HMODULE LoadLibrary(const char *path);

// The address of a function in a loaded library, or null when the library has none of that name.
void *GetProcAddress(HMODULE module, const char *name);

// Unloads a library. Returns zero on failure.
BOOL FreeLibrary(HMODULE module);

} // extern "C"

#endif // PLATFORM_LOADER_H
