// The host library, as the agent's programs see it: start it before anything of platform/ is
// called.
#ifndef AGENT_HOST_HOST_H
#define AGENT_HOST_HOST_H

#include "agent/host/hit_counters.h"
#include "agent/host/layout.h"
#include "agent/host/registry_tree.h"
#include "agent/host/store.h"

namespace host {

enum class Role {
    kDaemon,  // runs the module: writes belong to passes, the trace log is written
    kCommand, // a command beside it: each write stands for itself, no trace log
    kReader,  // a command that only reads: it makes no folder and no store
};

// Opens the store, creates the folders, starts the trace log. Throws StoreError; the host is then
// not started. One host per process.
void StartHost(const Layout &layout, Role role);

// Closes everything. What a pass has written and not committed is rolled back.
void StopHost();

// Of the started host. Throw Error when there is none.
Layout &HostLayout();
Store &HostStore();
RegistryTree &HostRegistry();

// The monitoring table of the module that this process runs. Without one, its size is 0.
void SetModuleTable(const ModuleTable &table);
const ModuleTable &HostTable();

// Is a host started?
bool HostIsStarted();

} // namespace host

#endif // AGENT_HOST_HOST_H
