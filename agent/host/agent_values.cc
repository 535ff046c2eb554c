#include "agent/host/agent_values.h"

#include <cstring>

#include "platform/registry.h"

namespace host {

const char *const kAgentKey = "SOFTWARE\\KORBIN\\TARSKVOSKAR\\AGENT";
const char *const kAgentSettingsEvent = "Agent_Settings_Event";

namespace {

// A value of another type counts as missing: it was written by hand, and the default is better than
// a guess.
std::optional<RegValue> AgentValue(RegistryTree &registry, const std::string &name, uint32_t type)
{
    const auto key = registry.Find(kRootKey, kAgentKey);
    if (!key)
        return std::nullopt;
    auto value = registry.Get(*key, name);
    return value && value->type == type ? value : std::nullopt;
}

} // namespace

std::optional<uint32_t> AgentNumber(RegistryTree &registry, const std::string &name)
{
    const auto value = AgentValue(registry, name, REG_DWORD);
    uint32_t number = 0;
    if (!value || value->data.size() != sizeof number)
        return std::nullopt;
    memcpy(&number, value->data.data(), sizeof number);
    return number;
}

std::optional<std::string> AgentText(RegistryTree &registry, const std::string &name)
{
    const auto value = AgentValue(registry, name, REG_SZ);
    if (!value)
        return std::nullopt;
    return TextOf(*value);
}

} // namespace host
