#include "agent/host/host.h"

#include <memory>

#include "agent/host/error.h"
#include "agent/host/store_file.h"
#include "agent/host/trace_log.h"

namespace host {

namespace {

struct Host {
    Layout layout;
    Store store;
    RegistryTree registry;

    Host(const Layout &where, Role role)
        : layout(where),
          store(where.Store(), role == Role::kDaemon ? StoreUse::kDaemon : StoreUse::kShared),
          registry(store)
    {
    }
};

std::unique_ptr<Host> host;
ModuleTable module_table;

Host &Started()
{
    if (!host)
        throw Error("the host library cannot be used", "it was not started",
                    "this is a fault of the program; report it");
    return *host;
}

} // namespace

void StartHost(const Layout &layout, Role role)
{
    if (role == Role::kReader)
        CheckStoreIsThere(layout.Store());
    else
        layout.CreateFolders();
    auto started = std::make_unique<Host>(layout, role);
    if (role == Role::kDaemon) {
        started->store.CheckIntegrity();
        OpenTraceLog(layout.TraceLog());
        started->store.StartPasses();
    }
    host = std::move(started);
}

void StopHost()
{
    host.reset();
    CloseTraceLog();
}

Layout &HostLayout()
{
    return Started().layout;
}

Store &HostStore()
{
    return Started().store;
}

RegistryTree &HostRegistry()
{
    return Started().registry;
}

void SetModuleTable(const ModuleTable &table)
{
    module_table = table;
}

const ModuleTable &HostTable()
{
    return module_table;
}

bool HostIsStarted()
{
    return host != nullptr;
}

} // namespace host
