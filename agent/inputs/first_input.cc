#include "agent/inputs/first_input.h"

#include <sys/stat.h>

#include "agent/host/agent_values.h"
#include "agent/host/registry_values.h"
#include "agent/inputs/input_registry.h"
#include "agent/inputs/journal_reader.h"
#include "agent/logs/log_files.h"
#include "platform/contract.h"
#include "platform/registry.h"

namespace inputs {

namespace {

// It was decided; of the agent's key.
constexpr char kDecided[] = "FirstInput";
constexpr char kName[] = "journal";

bool HasSystemLog()
{
    struct stat status {};
    return stat(kSystemLog, &status) == 0;
}

// Anything that was set up, and a place in a system log that has gone since.
bool IsWatched(host::Store &store, host::RegistryTree &registry)
{
    const auto key = registry.Find(host::kRootKey, kMonitorKey);
    return HasSystemLog() || !InputRegistry(store, registry).ReadAll().empty() ||
           !logs::NameOfFile(registry, kMonitorKey).empty() ||
           !logs::NameOfFile(registry, kFileMonitorKey).empty() ||
           (key && registry.Get(*key, kSlotValues[0].headline));
}

} // namespace

bool AddFirstInput(host::Store &store, host::RegistryTree &registry)
{
    if (host::AgentNumber(registry, kDecided))
        return false;
    const bool is_wanted = !IsWatched(store, registry);
    if (is_wanted && !JournalReader::HostsIsReadable())
        return false;
    // Before it is noted: ended in between, the next start finds the input and only notes it.
    if (is_wanted)
        InputRegistry(store, registry).Add({0, kName, kJournalKind, {}}, host::kDefaultLogCharset);
    host::Transaction transaction(store);
    host::SetNumber(registry, registry.Create(host::kRootKey, host::kAgentKey), kDecided, 1);
    transaction.Commit();
    return is_wanted;
}

} // namespace inputs
