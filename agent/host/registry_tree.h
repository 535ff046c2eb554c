// The registry as a tree of keys and values in the store. Names compare without regard to the case
// of ASCII letters, and keep the case of their creation. Keys come in the order of their creation.
#ifndef AGENT_HOST_REGISTRY_TREE_H
#define AGENT_HOST_REGISTRY_TREE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/host/store.h"

namespace host {

// Limits of names and values, in bytes.
constexpr size_t kMaxKeyName = 255;
constexpr size_t kMaxValueName = 16383;
constexpr size_t kMaxValueSize = size_t{1024} * 1024;

// The number of a key. Numbers are never used again, so one of a deleted key meets nothing.
using KeyId = int64_t;
constexpr KeyId kRootKey = 0; // HKEY_LOCAL_MACHINE

// A value as it is stored: its name as it was first written, its type, and its bytes.
struct RegValue {
    std::string name;
    uint32_t type = 0;
    std::string data;
};

// The text of a REG_SZ value: its data up to the zero byte that is stored with it.
std::string TextOf(const RegValue &value);

// Every call is one look at the store, or one write; a Snapshot or a Transaction around several
// makes them one. Of any thread, under the store's lock. The store must outlive it.
class RegistryTree {
  public:
    explicit RegistryTree(Store &store);
    ~RegistryTree();
    RegistryTree(const RegistryTree &) = delete;
    RegistryTree &operator=(const RegistryTree &) = delete;

    // Paths have single backslashes between names; an empty path is the key itself. All throw
    // StoreError when the store fails, and Error for a name that is empty or too long.
    std::optional<KeyId> Find(KeyId parent, std::string_view path);
    // With the keys on the way to it. `created`: whether the last one is new; null: nobody asks.
    KeyId Create(KeyId parent, std::string_view path, bool *created = nullptr);
    // For a number that may be stale; the root always does.
    bool Exists(KeyId key);
    bool DeleteKey(KeyId key); // with everything below it; throws Error for the root
    // In the order of their creation. Of a key that is gone: none.
    std::vector<std::string> SubKeys(KeyId key);

    // Nothing when there is no value of this name, or no key any more.
    std::optional<RegValue> Get(KeyId key, std::string_view name);
    // Adds the value or replaces it. The key must be there: see Exists. A value that does not
    // change is not written. Throws Error for one that is too long, with nothing stored.
    void Set(KeyId key, std::string_view name, uint32_t type, std::string_view data);
    // False: there was none.
    bool DeleteValue(KeyId key, std::string_view name);
    std::vector<RegValue> Values(KeyId key); // by name

    // The store that it is in.
    [[nodiscard]] Store &store() { return store_; }

  private:
    struct Statements;
    // As far as the keys of a path are there, and the names behind the last of them. The names are parts of the path.
    struct Way {
        KeyId key = kRootKey;
        std::vector<std::string_view> missing;
    };
    Way Walk(KeyId from, std::string_view path);
    std::optional<KeyId> FindChild(KeyId parent, std::string_view name);

    Store &store_;
    std::unique_ptr<Statements> sql_;
};

} // namespace host

#endif // AGENT_HOST_REGISTRY_TREE_H
