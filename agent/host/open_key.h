// What is behind a handle of platform/registry.h. It holds no lock and nothing of the store: a key
// that is deleted meanwhile is noticed with the next call.
#ifndef AGENT_HOST_OPEN_KEY_H
#define AGENT_HOST_OPEN_KEY_H

#include <cstdint>
#include <string>
#include <vector>

#include "agent/host/registry_tree.h"

namespace host {

struct OpenKey {
    KeyId id = kRootKey;
    // The store's transaction in which the handle was opened, or 0. When that one is rolled back,
    // the key may never have existed, and its number may become another key's.
    int64_t opened_in = 0;
    // The names below the key, read with the first of them, so that an enumeration costs one look.
    std::vector<std::string> names;
    int64_t names_of = -1; // the store's change count when they were read
};

} // namespace host

#endif // AGENT_HOST_OPEN_KEY_H
