// A registry in memory that keeps the host's contract: names compare without case, subkeys come in
// the order of their creation, closed handles are refused.
#ifndef TESTS_SUPPORT_MEMORY_REGISTRY_H
#define TESTS_SUPPORT_MEMORY_REGISTRY_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/registry.h"

namespace test {

class MemoryRegistry {
  public:
    struct Value {
        std::string name;
        DWORD type = 0;
        std::string data; // bytes as stored; a text has its zero byte
    };
    struct Key {
        std::string name;
        std::vector<Value> values;
        std::vector<std::unique_ptr<Key>> children;
        bool deleted = false;
    };

    // Paths are below HKEY_LOCAL_MACHINE, with single backslashes.
    void SetText(const std::string &path, const std::string &name, const std::string &text);
    void SetNumber(const std::string &path, const std::string &name, uint32_t number);
    void SetBytes(const std::string &path, const std::string &name, DWORD type,
                  const std::string &bytes);
    void CreateKey(const std::string &path);
    void DeleteKey(const std::string &path);
    void DeleteValue(const std::string &path, const std::string &name);

    [[nodiscard]] bool HasKey(const std::string &path) const;
    [[nodiscard]] std::optional<Value> Get(const std::string &path, const std::string &name) const;
    [[nodiscard]] std::optional<uint32_t> Number(const std::string &path,
                                                 const std::string &name) const;
    [[nodiscard]] std::optional<std::string> Text(const std::string &path,
                                                  const std::string &name) const;

    // Every value of the tree, one line each, for comparing whole states.
    [[nodiscard]] std::string Dump() const;

    [[nodiscard]] int OpenHandles() const { return open_handles_; }

    // The calls of the host interface.
    LONG Open(HKEY key, const char *sub_key, HKEY *result, bool create);
    LONG Close(HKEY key);
    LONG Query(HKEY key, const char *name, DWORD *type, void *data, DWORD *size);
    LONG Set(HKEY key, const char *name, DWORD type, const void *data, DWORD size);
    LONG Info(HKEY key, DWORD *sub_keys);
    LONG Enum(HKEY key, DWORD index, char *name, DWORD *name_size);

  private:
    Key *Find(const std::string &path) const;
    Key *Make(const std::string &path);
    Key *FromHandle(HKEY key);
    static Value *FindValue(Key *key, const std::string &name);

    std::unique_ptr<Key> root_ = std::make_unique<Key>();
    std::vector<Key *> handles_; // index + 1 is the handle; null: closed
    int open_handles_ = 0;
};

} // namespace test

#endif // TESTS_SUPPORT_MEMORY_REGISTRY_H
