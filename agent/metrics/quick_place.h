// How much of the monitored files is unread, found out without the module: quickly, on any thread, while a pass may be
// under way.
//
// The place is the one that the last pass has stored. When the line that stands there is no longer in the file of this
// name, the file was rotated since: then all of the new one is unread, and what is left of the one before is not
// counted. The command `status` asks the module instead, which looks through the backups.
#ifndef AGENT_METRICS_QUICK_PLACE_H
#define AGENT_METRICS_QUICK_PLACE_H

#include <cstdint>
#include <filesystem>
#include <optional>

#include "agent/host/registry_tree.h"

namespace metrics {

// Bytes of the file of a slot (0: the system log, 1: the customer file) behind the last line that was checked. Nothing:
// no place is stored, or the file cannot be read. Throws host::StoreError.
std::optional<int64_t> UnreadOfSlot(host::RegistryTree &registry, int slot,
                                    const std::filesystem::path &log);

// The same of the file monitor's target.
std::optional<int64_t> UnreadOfTarget(host::RegistryTree &registry,
                                      const std::filesystem::path &target);

} // namespace metrics

#endif // AGENT_METRICS_QUICK_PLACE_H
