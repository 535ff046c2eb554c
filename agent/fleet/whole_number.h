// Numbers in JSON that comes over the network, where a number may be anything: 1e300 has no place in an integer.
#ifndef AGENT_FLEET_WHOLE_NUMBER_H
#define AGENT_FLEET_WHOLE_NUMBER_H

#include <cstdint>
#include <limits>
#include <optional>

#include <nlohmann/json.hpp>

namespace fleet {

// The member of an object, or `otherwise` when it has none of that name. Nothing: it is no whole number, or of more than
// 63 bits.
inline std::optional<int64_t> WholeNumberIn(const nlohmann::json &object, const char *name,
                                            int64_t otherwise)
{
    const auto found = object.find(name);
    if (found == object.end())
        return otherwise;
    const bool is_sound =
        found->is_number_unsigned()
            ? found->get<uint64_t>() <= uint64_t{std::numeric_limits<int64_t>::max()}
            : found->is_number_integer();
    return is_sound ? std::optional(found->get<int64_t>()) : std::nullopt;
}

} // namespace fleet

#endif // AGENT_FLEET_WHOLE_NUMBER_H
