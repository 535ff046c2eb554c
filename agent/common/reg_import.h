// Registry keys and values, between the registry and .reg files.
#ifndef AGENT_COMMON_REG_IMPORT_H
#define AGENT_COMMON_REG_IMPORT_H

#include <functional>
#include <string>
#include <vector>

#include "agent/common/reg_text.h"
#include "agent/libtarsk/registry_tree.h"

namespace agent {

// What an import has come to.
struct RegImport {
    size_t keys_created = 0; // those that a file names; their missing parents come with them
    size_t keys_deleted = 0; // without counting what was below them
    size_t values_set = 0;
    size_t values_deleted = 0;
    size_t unchanged = 0;       // values that were so already, and deletions of what was not there
    bool touched_table = false; // the registered events: the monitor has to load its table again
};

// Does what a file asks for: inside of a transaction.
RegImport ImportRegSteps(const std::vector<RegStep> &steps, tarsk::RegistryTree &registry);

// Calls `visit` for a key and for everything below it, parents first, in the order of the registry.
// Throws tarsk::Error where keys lie deeper than kMaxKeyLevels.
void WalkKeys(tarsk::RegistryTree &registry, tarsk::KeyId key, const std::string &path,
              const std::function<void(tarsk::KeyId, const std::string &)> &visit);

// A key and everything below it, in the order of WalkKeys. Throws as it does.
std::vector<RegKeyContent> ReadRegKeys(tarsk::RegistryTree &registry, tarsk::KeyId key,
                                       const std::string &path);

} // namespace agent

#endif // AGENT_COMMON_REG_IMPORT_H
