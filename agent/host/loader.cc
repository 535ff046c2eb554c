// The loading of sibling libraries for the module, over dlopen. A handle is dlopen's own: each load
// counts, and the library goes with the last FreeLibrary.
#include "platform/loader.h"

#include <dlfcn.h>

#include "platform/trace.h"

namespace {

// What failed is traced by the host here, since the module learns only that it failed.
constexpr char kUnit[] = "libtarsk";

} // namespace

extern "C" {

HMODULE LoadLibrary(const char *path)
{
    // Everything is resolved now: a library that does not fit this host must not fail in the middle
    // of a pass.
    void *library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        TRACE(TRACE_SYSTEM, "%s", dlerror());
    return library;
}

void *GetProcAddress(HMODULE module, const char *name)
{
    void *address = module != nullptr ? dlsym(module, name) : nullptr;
    if (address == nullptr)
        TRACE(TRACE_SYSTEM, "%s: not found in the library", name);
    return address;
}

BOOL FreeLibrary(HMODULE module)
{
    return module != nullptr && dlclose(module) == 0 ? TRUE : FALSE;
}

} // extern "C"
