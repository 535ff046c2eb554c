#include "agent/host/registry_tree.h"

#include <algorithm>

#include "agent/host/error.h"

namespace host {

// Compiled once for the life of the tree: a pass reads and writes a few dozen values, and compiling
// a statement takes longer than running it here. NOCASE, the order and what goes with a key are in
// the tables: see schema.cc.
struct RegistryTree::Statements {
    explicit Statements(Database &db)
        : find_child(db, "SELECT id FROM reg_key WHERE parent = ? AND name = ?"),
          exists(db, "SELECT 1 FROM reg_key WHERE id = ?"),
          insert_key(db, "INSERT INTO reg_key (parent, name) VALUES (?, ?)"),
          // The keys below are found by the statement; the values go with their keys by foreign
          // key, and what sinks have noted goes with theirs.
          delete_keys(db, "WITH RECURSIVE below (id) AS (VALUES (?) UNION ALL"
                          " SELECT reg_key.id FROM reg_key JOIN below ON parent = below.id)"
                          " DELETE FROM reg_key WHERE id IN below"),
          sub_keys(db, "SELECT name FROM reg_key WHERE parent = ? ORDER BY id"),
          get(db, "SELECT name, type, data FROM reg_value WHERE key = ? AND name = ?"),
          set(db, "INSERT INTO reg_value (key, name, type, data) VALUES (?, ?, ?, ?)"
                  " ON CONFLICT (key, name) DO UPDATE SET type = excluded.type,"
                  " data = excluded.data"),
          delete_value(db, "DELETE FROM reg_value WHERE key = ? AND name = ?"),
          values(db, "SELECT name, type, data FROM reg_value WHERE key = ? ORDER BY name")
    {
    }

    Statement find_child;
    Statement exists;
    Statement insert_key;
    Statement delete_keys;
    Statement sub_keys;
    Statement get;
    Statement set;
    Statement delete_value;
    Statement values;
};

namespace {

// Calls `use` for each name of a path until it returns false. Empty names, as of a doubled or a
// trailing backslash, are skipped.
template <typename Use>
void ForEachName(std::string_view path, const Use &use)
{
    while (!path.empty()) {
        const size_t end = std::min(path.find('\\'), path.size());
        const std::string_view name = path.substr(0, end);
        path.remove_prefix(std::min(end + 1, path.size()));
        if (!name.empty() && !use(name))
            return;
    }
}

void CheckKeyName(std::string_view name)
{
    if (name.size() > kMaxKeyName)
        throw Error("cannot create the registry key " + std::string(name.substr(0, 40)) + "...",
                    "its name has more than 255 bytes", "choose a shorter name");
}

void CheckValue(std::string_view name, std::string_view data)
{
    if (name.size() > kMaxValueName || data.size() > kMaxValueSize)
        throw Error("cannot store the registry value " + std::string(name.substr(0, 40)),
                    "its name or its data is too long",
                    "a name has at most 16383 bytes, a value at most 1 MiB");
}

// The name as it was created, which can differ in case from the one that was asked for.
RegValue ValueOf(const Statement &row)
{
    return {row.Text(0), static_cast<uint32_t>(row.Integer(1)), row.Text(2)};
}

} // namespace

std::string TextOf(const RegValue &value)
{
    return value.data.substr(0, value.data.find('\0'));
}

RegistryTree::RegistryTree(Store &store)
    : store_(store), sql_(std::make_unique<Statements>(store.database()))
{
}

RegistryTree::~RegistryTree() = default;

std::optional<KeyId> RegistryTree::FindChild(KeyId parent, std::string_view name)
{
    sql_->find_child.Start(parent, name);
    if (!sql_->find_child.Next())
        return std::nullopt;
    const KeyId found = sql_->find_child.Integer(0);
    // At once: a statement that stands on a row holds the read lock.
    sql_->find_child.Reset();
    return found;
}

RegistryTree::Way RegistryTree::Walk(KeyId from, std::string_view path)
{
    return store_.Read([&](Database &) {
        const Snapshot one_look(store_);
        Way way{from, {}};
        ForEachName(path, [&](std::string_view name) {
            const auto child = way.missing.empty() ? FindChild(way.key, name) : std::nullopt;
            if (child)
                way.key = *child;
            else
                way.missing.push_back(name);
            return true;
        });
        return way;
    });
}

std::optional<KeyId> RegistryTree::Find(KeyId parent, std::string_view path)
{
    const Way way = Walk(parent, path);
    return way.missing.empty() ? std::optional(way.key) : std::nullopt;
}

KeyId RegistryTree::Create(KeyId parent, std::string_view path, bool *created)
{
    const std::lock_guard lock(store_.mutex());
    // Without the write lock first: mostly the key is there, and a command must not wait for a
    // pass to learn that.
    const Way way = Walk(parent, path);
    KeyId key = way.key;
    bool made = false;
    for (const std::string_view name : way.missing) {
        // Only of a key that would be made. One that is looked for with a longer name is not there.
        CheckKeyName(name);
        store_.Write([&](Database &database) {
            // Again, under the write lock: another process may have been faster.
            const std::optional<KeyId> theirs = FindChild(key, name);
            if (theirs) {
                key = *theirs;
                return;
            }
            sql_->insert_key.Run(key, name);
            key = database.LastInsertId();
            made = true;
        });
    }
    if (created != nullptr)
        *created = made;
    return key;
}

bool RegistryTree::Exists(KeyId key)
{
    return store_.Read([&](Database &) {
        sql_->exists.Start(key);
        const bool exists = sql_->exists.Next();
        sql_->exists.Reset();
        return exists;
    });
}

bool RegistryTree::DeleteKey(KeyId key)
{
    if (key == kRootKey)
        throw Error("cannot delete the root of the registry", "everything is below it",
                    "delete the keys below it");
    bool deleted = false;
    store_.Write([&](Database &database) {
        sql_->delete_keys.Run(key);
        // Values that went with a key are not counted in it.
        deleted = database.ChangesOfLastStatement() > 0;
    });
    return deleted;
}

std::vector<std::string> RegistryTree::SubKeys(KeyId key)
{
    return store_.Read([&](Database &) {
        std::vector<std::string> names;
        sql_->sub_keys.Start(key);
        while (sql_->sub_keys.Next())
            names.push_back(sql_->sub_keys.Text(0));
        return names;
    });
}

std::optional<RegValue> RegistryTree::Get(KeyId key, std::string_view name)
{
    return store_.Read([&](Database &) -> std::optional<RegValue> {
        sql_->get.Start(key, name);
        if (!sql_->get.Next())
            return std::nullopt;
        RegValue value = ValueOf(sql_->get);
        sql_->get.Reset();
        return value;
    });
}

void RegistryTree::Set(KeyId key, std::string_view name, uint32_t type, std::string_view data)
{
    CheckValue(name, data);
    const std::lock_guard lock(store_.mutex());
    // A value that is what it was costs no write: a pass without news then opens no transaction for
    // it. The lock is held from the look to the write, so no other thread of this process can
    // change it in between; another process is as if it had come later.
    const std::optional<RegValue> old = Get(key, name);
    if (old && old->type == type && old->data == data)
        return;
    store_.Write([&](Database &) { sql_->set.Run(key, name, type, Blob{data}); });
}

bool RegistryTree::DeleteValue(KeyId key, std::string_view name)
{
    bool deleted = false;
    store_.Write([&](Database &database) {
        sql_->delete_value.Run(key, name);
        deleted = database.ChangesOfLastStatement() > 0;
    });
    return deleted;
}

std::vector<RegValue> RegistryTree::Values(KeyId key)
{
    return store_.Read([&](Database &) {
        std::vector<RegValue> values;
        sql_->values.Start(key);
        while (sql_->values.Next())
            values.push_back(ValueOf(sql_->values));
        return values;
    });
}

} // namespace host
