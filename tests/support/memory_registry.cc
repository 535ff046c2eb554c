#include "tests/support/memory_registry.h"

#include <algorithm>
#include <cstring>
#include <strings.h>

namespace test {

namespace {

bool SameName(const std::string &a, const std::string &b)
{
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

std::vector<std::string> Split(const std::string &path)
{
    std::vector<std::string> parts;
    parts.reserve(static_cast<size_t>(std::count(path.begin(), path.end(), '\\')) + 1);
    size_t begin = 0;
    while (begin <= path.size()) {
        const size_t end = std::min(path.find('\\', begin), path.size());
        if (end > begin)
            parts.push_back(path.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

MemoryRegistry::Key *Child(MemoryRegistry::Key *key, const std::string &name)
{
    for (const auto &child : key->children) {
        if (SameName(child->name, name) && !child->deleted)
            return child.get();
    }
    return nullptr;
}

std::vector<MemoryRegistry::Key *> Children(MemoryRegistry::Key *key)
{
    std::vector<MemoryRegistry::Key *> list;
    for (const auto &child : key->children) {
        if (!child->deleted)
            list.push_back(child.get());
    }
    return list;
}

HKEY ToHandle(size_t number)
{
    return reinterpret_cast<HKEY>(0x1000 + number); // far from HKEY_LOCAL_MACHINE and from null
}

void DumpKey(const MemoryRegistry::Key &key, const std::string &path, std::string *out)
{
    for (const auto &value : key.values) {
        *out += path + " : " + value.name + " (" + std::to_string(value.type) + ") =";
        for (const char c : value.data) {
            static constexpr char kHex[] = "0123456789abcdef";
            *out += ' ';
            *out += kHex[(static_cast<unsigned char>(c) >> 4U) & 15U];
            *out += kHex[static_cast<unsigned char>(c) & 15U];
        }
        *out += '\n';
    }
    for (const auto &child : key.children) {
        if (!child->deleted)
            DumpKey(*child, path.empty() ? child->name : path + "\\" + child->name, out);
    }
}

} // namespace

MemoryRegistry::Key *MemoryRegistry::Find(const std::string &path) const
{
    Key *key = root_.get();
    for (const auto &part : Split(path)) {
        key = Child(key, part);
        if (key == nullptr)
            return nullptr;
    }
    return key;
}

MemoryRegistry::Key *MemoryRegistry::Make(const std::string &path)
{
    Key *key = root_.get();
    for (const auto &part : Split(path)) {
        Key *child = Child(key, part);
        if (child == nullptr) {
            key->children.push_back(std::make_unique<Key>());
            child = key->children.back().get();
            child->name = part;
        }
        key = child;
    }
    return key;
}

MemoryRegistry::Value *MemoryRegistry::FindValue(Key *key, const std::string &name)
{
    for (auto &value : key->values) {
        if (SameName(value.name, name))
            return &value;
    }
    return nullptr;
}

void MemoryRegistry::SetBytes(const std::string &path, const std::string &name, DWORD type,
                              const std::string &bytes)
{
    Key *key = Make(path);
    Value *value = FindValue(key, name);
    if (value == nullptr) {
        key->values.push_back({name, 0, {}});
        value = &key->values.back();
    }
    value->type = type;
    value->data = bytes;
}

void MemoryRegistry::SetText(const std::string &path, const std::string &name,
                             const std::string &text)
{
    SetBytes(path, name, REG_SZ, text + '\0');
}

void MemoryRegistry::SetNumber(const std::string &path, const std::string &name, uint32_t number)
{
    SetBytes(path, name, REG_DWORD,
             std::string(reinterpret_cast<const char *>(&number), sizeof number));
}

void MemoryRegistry::CreateKey(const std::string &path)
{
    Make(path);
}

void MemoryRegistry::DeleteKey(const std::string &path)
{
    Key *key = Find(path);
    if (key != nullptr)
        key->deleted = true; // kept for the handles that are open on it
}

void MemoryRegistry::DeleteValue(const std::string &path, const std::string &name)
{
    Key *key = Find(path);
    if (key != nullptr)
        std::erase_if(key->values, [&](const Value &v) { return SameName(v.name, name); });
}

bool MemoryRegistry::HasKey(const std::string &path) const
{
    return Find(path) != nullptr;
}

std::optional<MemoryRegistry::Value> MemoryRegistry::Get(const std::string &path,
                                                         const std::string &name) const
{
    Key *key = Find(path);
    const Value *value = key != nullptr ? FindValue(key, name) : nullptr;
    return value != nullptr ? std::optional<Value>(*value) : std::nullopt;
}

std::optional<uint32_t> MemoryRegistry::Number(const std::string &path,
                                               const std::string &name) const
{
    const auto value = Get(path, name);
    uint32_t number = 0;
    if (!value || value->data.size() != sizeof number)
        return std::nullopt;
    memcpy(&number, value->data.data(), sizeof number);
    return number;
}

std::optional<std::string> MemoryRegistry::Text(const std::string &path,
                                                const std::string &name) const
{
    const auto value = Get(path, name);
    return value ? std::optional<std::string>(value->data.c_str()) : std::nullopt;
}

std::string MemoryRegistry::Dump() const
{
    std::string out;
    DumpKey(*root_, "", &out);
    return out;
}

MemoryRegistry::Key *MemoryRegistry::FromHandle(HKEY key)
{
    if (key == HKEY_LOCAL_MACHINE)
        return root_.get();
    const auto number = reinterpret_cast<uintptr_t>(key) - 0x1000;
    return number < handles_.size() ? handles_[number] : nullptr;
}

LONG MemoryRegistry::Open(HKEY key, const char *sub_key, HKEY *result, bool create)
{
    if (key != HKEY_LOCAL_MACHINE)
        return ERROR_INVALID_HANDLE;
    Key *found = create ? Make(sub_key) : Find(sub_key);
    if (found == nullptr)
        return ERROR_FILE_NOT_FOUND;
    handles_.push_back(found);
    *result = ToHandle(handles_.size() - 1);
    ++open_handles_;
    return ERROR_SUCCESS;
}

LONG MemoryRegistry::Close(HKEY key)
{
    if (key == HKEY_LOCAL_MACHINE || FromHandle(key) == nullptr)
        return ERROR_INVALID_HANDLE;
    handles_[reinterpret_cast<uintptr_t>(key) - 0x1000] = nullptr;
    --open_handles_;
    return ERROR_SUCCESS;
}

LONG MemoryRegistry::Query(HKEY key, const char *name, DWORD *type, void *data, DWORD *size)
{
    Key *found = FromHandle(key);
    if (found == nullptr)
        return ERROR_INVALID_HANDLE;
    const Value *value = FindValue(found, name);
    if (value == nullptr)
        return ERROR_FILE_NOT_FOUND;
    if (type != nullptr)
        *type = value->type;
    const DWORD room = *size;
    *size = static_cast<DWORD>(value->data.size());
    if (data == nullptr)
        return ERROR_SUCCESS;
    if (value->data.size() > room)
        return ERROR_MORE_DATA;
    memcpy(data, value->data.data(), value->data.size());
    return ERROR_SUCCESS;
}

LONG MemoryRegistry::Set(HKEY key, const char *name, DWORD type, const void *data, DWORD size)
{
    Key *found = FromHandle(key);
    if (found == nullptr)
        return ERROR_INVALID_HANDLE;
    Value *value = FindValue(found, name);
    if (value == nullptr) {
        found->values.push_back({name, 0, {}});
        value = &found->values.back();
    }
    value->type = type;
    value->data.assign(static_cast<const char *>(data), size);
    return ERROR_SUCCESS;
}

LONG MemoryRegistry::Info(HKEY key, DWORD *sub_keys)
{
    Key *found = FromHandle(key);
    if (found == nullptr)
        return ERROR_INVALID_HANDLE;
    if (sub_keys != nullptr)
        *sub_keys = static_cast<DWORD>(Children(found).size());
    return ERROR_SUCCESS;
}

LONG MemoryRegistry::Enum(HKEY key, DWORD index, char *name, DWORD *name_size)
{
    Key *found = FromHandle(key);
    if (found == nullptr)
        return ERROR_INVALID_HANDLE;
    const auto children = Children(found);
    if (index >= children.size())
        return ERROR_NO_MORE_ITEMS;
    const std::string &child = children[index]->name;
    if (child.size() + 1 > *name_size)
        return ERROR_MORE_DATA;
    memcpy(name, child.c_str(), child.size() + 1);
    *name_size = static_cast<DWORD>(child.size());
    return ERROR_SUCCESS;
}

} // namespace test
