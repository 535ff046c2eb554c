#include "agent/daemon/module.h"

#include <dlfcn.h>

#include "agent/libtarsk/error.h"

namespace agent {

namespace {

// Reasons for which DllMain is called.
constexpr DWORD kProcessAttach = 1;
constexpr DWORD kProcessDetach = 0;

template <typename Symbol>
void Find(HMODULE library, const char *name, Symbol *symbol)
{
    *symbol = reinterpret_cast<Symbol>(dlsym(library, name));
    if (*symbol == nullptr)
        throw tarsk::Error("cannot use the monitor module", std::string("it has no ") + name,
                           "install the module and the daemon of one version");
}

} // namespace

Module::Module(const std::filesystem::path &path)
    : library_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (library_ == nullptr)
        throw tarsk::Error("cannot load the monitor module", dlerror(),
                           "name the install root with --root, or install the package again");
    Find(library_, "StartThread", &start_thread_);
    Find(library_, "DllMain", &dll_main_);
    Find(library_, "lpVKVMon", &table_.entries);
    Find(library_, "nCnt", &table_.count);
    dll_main_(library_, kProcessAttach);
}

Module::~Module()
{
    dll_main_(library_, kProcessDetach);
    dlclose(library_);
}

} // namespace agent
