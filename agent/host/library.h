// A loaded library that is unloaded at the end of its life, also when what loads it fails half-way.
// For the module, which the program itself loads; what the module loads goes through
// platform/loader.h. Addresses that were found in it end with it.
#ifndef AGENT_HOST_LIBRARY_H
#define AGENT_HOST_LIBRARY_H

#include <dlfcn.h>
#include <filesystem>
#include <memory>
#include <string>

#include "agent/host/error.h"

namespace host {

class Library {
  public:
    // Throws Error.
    // All of it is resolved at once (RTLD_NOW), so that what is missing fails here and not in a
    // pass; its names stay its own (RTLD_LOCAL).
    explicit Library(const std::filesystem::path &path)
        : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL))
    {
        if (!handle_)
            throw Error("cannot load the monitor module", dlerror(),
                        "name the install root with --root, or install the package again");
    }

    // Throws Error when there is no such symbol.
    template <typename Symbol>
    void Find(const char *name, Symbol *symbol) const
    {
        *symbol = reinterpret_cast<Symbol>(dlsym(handle_.get(), name));
        if (*symbol == nullptr)
            throw Error("cannot use the monitor module", std::string("it has no ") + name,
                        "install the module and the agent of one version");
    }

    [[nodiscard]] void *get() const { return handle_.get(); }

  private:
    struct Unload {
        void operator()(void *library) const { dlclose(library); }
    };
    std::unique_ptr<void, Unload> handle_;
};

} // namespace host

#endif // AGENT_HOST_LIBRARY_H
