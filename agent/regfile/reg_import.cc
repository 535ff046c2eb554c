#include "agent/regfile/reg_import.h"

#include "agent/host/error.h"
#include "platform/contract.h"

namespace regfile {

namespace {

using host::KeyId;

// Does the steps in their order, because a later one may undo an earlier one, and counts what they
// come to.
class Importer {
  public:
    explicit Importer(host::RegistryTree &registry) : registry_(registry) {}

    void Do(const RegStep &step)
    {
        switch (step.kind) {
        case RegStep::Kind::kCreateKey:
            CreateKey(step.path);
            break;
        case RegStep::Kind::kDeleteKey:
            DeleteKey(step.path);
            break;
        case RegStep::Kind::kSetValue:
            SetValue(step);
            break;
        case RegStep::Kind::kDeleteValue:
            DeleteValue(step);
            break;
        }
    }

    RegImport result;

  private:
    void CreateKey(const std::string &path)
    {
        bool created = false;
        key_ = registry_.Create(host::kRootKey, path, &created);
        // A key that is there already is no change, and is not counted as unchanged either: each
        // key of a file would be.
        result.keys_created += created ? 1 : 0;
        if (created)
            Touch(path);
    }
    void DeleteKey(const std::string &path)
    {
        const auto key = registry_.Find(host::kRootKey, path);
        if (!key) {
            // What is not there need not go: a file can be imported twice.
            ++result.unchanged;
            return;
        }
        registry_.DeleteKey(*key);
        ++result.keys_deleted;
        Touch(path);
        // The table may have gone with a key above it.
        result.touched_table = result.touched_table || IsWithin(kApplicationKey, path);
    }
    // Values follow their key, so it is the one that was created last.
    void SetValue(const RegStep &step)
    {
        const host::RegValue &value = step.value;
        const auto old = registry_.Get(key_, value.name);
        // Nothing is written, so that an import that changes nothing wakes nobody.
        if (old && old->type == value.type && old->data == value.data) {
            ++result.unchanged;
            return;
        }
        registry_.Set(key_, value.name, value.type, value.data);
        ++result.values_set;
        Touch(step.path);
    }
    void DeleteValue(const RegStep &step)
    {
        if (!registry_.DeleteValue(key_, step.value.name)) {
            ++result.unchanged;
            return;
        }
        ++result.values_deleted;
        Touch(step.path);
    }
    // A key or value of the table of events makes the monitor load all of it: nothing smaller can
    // be loaded.
    void Touch(const std::string &path)
    {
        result.touched_table = result.touched_table || IsWithin(path, kApplicationKey);
    }

    host::RegistryTree &registry_;
    // That the values which follow belong to.
    KeyId key_ = host::kRootKey;
};

} // namespace

RegImport ImportRegSteps(const std::vector<RegStep> &steps, host::RegistryTree &registry)
{
    Importer importer(registry);
    for (const RegStep &step : steps)
        importer.Do(step);
    return importer.result;
}

void WalkKeys(host::RegistryTree &registry, KeyId key, const std::string &path,
              const std::function<void(KeyId, const std::string &)> &visit)
{
    // Checked on the way down, as this calls itself once per level.
    const size_t levels = KeyLevels(path);
    if (levels > kMaxKeyLevels)
        throw host::Error("cannot read the registry key " + path.substr(0, 60) + "...",
                          "it lies in more than " + std::to_string(kMaxKeyLevels) + " keys",
                          "take it away with syslogmon reg delete");
    visit(key, path);
    for (const std::string &name : registry.SubKeys(key)) {
        const auto child = registry.Find(key, name);
        // A key that has gone since its name was read is passed over.
        if (child)
            WalkKeys(registry, *child,
                     path.empty() ? name : std::string(path).append("\\").append(name), visit);
    }
}

std::vector<RegKeyContent> ReadRegKeys(host::RegistryTree &registry, KeyId key,
                                       const std::string &path)
{
    std::vector<RegKeyContent> keys;
    WalkKeys(registry, key, path, [&](KeyId visited, const std::string &its_path) {
        keys.push_back({its_path, registry.Values(visited)});
    });
    return keys;
}

} // namespace regfile
