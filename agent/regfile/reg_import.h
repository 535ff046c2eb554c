// Registry keys and values, between the registry and .reg files.
//
// What a file asks for is one list of steps, which was checked as text before. Doing them can fail
// only in the store; the transaction of the caller then takes all of them back.
#ifndef AGENT_REGFILE_REG_IMPORT_H
#define AGENT_REGFILE_REG_IMPORT_H

#include <functional>
#include <string>
#include <vector>

#include "agent/host/registry_tree.h"
#include "agent/regfile/reg_text.h"

namespace regfile {

// What an import has come to.
struct RegImport {
    size_t keys_created = 0; // those that a file names; their missing parents come with them
    size_t keys_deleted = 0; // without counting what was below them
    size_t values_set = 0;
    size_t values_deleted = 0;
    size_t unchanged = 0;       // values that were so already, and deletions of what was not there
    bool touched_table = false; // the registered events: the monitor has to load its table again
};

// Does what a file asks for: inside of a transaction. Throws host::Error when the store fails. It
// tells nobody: the caller wakes the daemon for what was touched.
RegImport ImportRegSteps(const std::vector<RegStep> &steps, host::RegistryTree &registry);

// Calls `visit` for a key and for everything below it, parents first, in the order of the registry.
//   path     of `key`, as `visit` gets it; empty for the root
//   visit    may read the registry; keys that it creates or deletes may be visited or not
// Throws host::Error where keys lie deeper than kMaxKeyLevels, and then has visited a part of them.
// Inside of a snapshot or a transaction, or keys of two moments can come together.
void WalkKeys(host::RegistryTree &registry, host::KeyId key, const std::string &path,
              const std::function<void(host::KeyId, const std::string &)> &visit);

// A key and everything below it, in the order of WalkKeys. Throws as it does.
std::vector<RegKeyContent> ReadRegKeys(host::RegistryTree &registry, host::KeyId key,
                                       const std::string &path);

} // namespace regfile

#endif // AGENT_REGFILE_REG_IMPORT_H
