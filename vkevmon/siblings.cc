#include "vkevmon/siblings.h"

#include <cstdio>

#include "match/report.h"
#include "platform/agent.h"
#include "platform/loader.h"
#include "platform/trace.h"

HMODULE hDll = nullptr;
HMODULE hvkirtuptDll = nullptr;
ReadProductsRegisteriedFn pReadProductsRegisteried = nullptr;
TARSKPPLX_PPInfoClearFn pTARSKPPLX_PPInfoClear = nullptr;

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr const char *kInterface = "StartThread";

constexpr char kReportLibrary[] = "vkmncall.dll";
constexpr char kProductLibrary[] = "vkirtupt.dll";

constexpr int kRootPathSize = 4096;
constexpr size_t kLibraryPathSize = kRootPathSize + 32; // "/lib/" and the longest name

HMODULE LoadSibling(const char *root, const char *name)
{
    char path[kLibraryPathSize];
    snprintf(path, sizeof path, "%s/lib/%s", root, name);
    HMODULE library = LoadLibrary(path);
    if (library == nullptr)
        TRACE_HELPER(TRACE_ERROR, "<load %s failed.", path);
    return library;
}

template <typename Function>
bool Find(HMODULE library, const char *name, Function *function)
{
    *function = reinterpret_cast<Function>(GetProcAddress(library, name));
    return *function != nullptr;
}

// The report library. Stays loaded when it lacks the function.
bool LoadReportLibrary(const char *root)
{
    hDll = LoadSibling(root, kReportLibrary);
    if (hDll == nullptr)
        return false;
    if (Find(hDll, "VKMonitorCall", &pVKMonitorCall))
        return true;
    TRACE_HELPER(TRACE_ERROR, "<GetProcAddress(VKMonitorCall) failed.");
    return false;
}

bool FindProductFunctions()
{
    if (!Find(hvkirtuptDll, "ReadProductsRegisteried", &pReadProductsRegisteried)) {
        TRACE_HELPER(TRACE_ERROR, "<GetProcAddress(ReadProductsRegisteried) failed.");
        return false;
    }
    if (!Find(hvkirtuptDll, "TARSKPPLX_PPInfoClear", &pTARSKPPLX_PPInfoClear)) {
        TRACE_HELPER(TRACE_ERROR, "<GetProcAddress(TARSKPPLX_PPInfoClear) failed.");
        return false;
    }
    return true;
}

// The product-registry library. On failure both libraries are unloaded.
bool LoadProductLibrary(const char *root)
{
    hvkirtuptDll = LoadSibling(root, kProductLibrary);
    if (hvkirtuptDll == nullptr) {
        FreeLibrary(hDll);
        return false;
    }
    if (FindProductFunctions())
        return true;
    FreeLibrary(hDll);
    FreeLibrary(hvkirtuptDll);
    return false;
}

} // namespace

bool LoadSiblings()
{
    char root[kRootPathSize] = {};
    GetTarskRootPath(root, kRootPathSize);
    return LoadReportLibrary(root) && LoadProductLibrary(root);
}

void UnloadSiblings()
{
    pReadProductsRegisteried = nullptr;
    pTARSKPPLX_PPInfoClear = nullptr;
    FreeLibrary(hDll);
    FreeLibrary(hvkirtuptDll);
}
