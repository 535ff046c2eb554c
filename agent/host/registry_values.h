// Values of the two usual types: written as the monitor expects them, and read back.
#ifndef AGENT_HOST_REGISTRY_VALUES_H
#define AGENT_HOST_REGISTRY_VALUES_H

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "agent/host/registry_tree.h"
#include "platform/registry.h"

namespace host {

// With its zero byte, which is a part of a REG_SZ value.
inline void SetText(RegistryTree &registry, KeyId key, const std::string &name,
                    const std::string &text)
{
    registry.Set(key, name, REG_SZ, std::string_view(text.c_str(), text.size() + 1));
}

inline void SetNumber(RegistryTree &registry, KeyId key, const std::string &name, uint32_t number)
{
    registry.Set(key, name, REG_DWORD,
                 std::string_view(reinterpret_cast<const char *>(&number), sizeof number));
}

// Nothing for a value of another type or size: its bytes would be read as a number that nobody has set.
inline std::optional<uint32_t> NumberOf(const std::optional<RegValue> &value)
{
    uint32_t number = 0;
    if (!value || value->type != REG_DWORD || value->data.size() != sizeof number)
        return std::nullopt;
    memcpy(&number, value->data.data(), sizeof number);
    return number;
}

} // namespace host

#endif // AGENT_HOST_REGISTRY_VALUES_H
