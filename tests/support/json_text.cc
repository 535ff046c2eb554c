#include "tests/support/json_text.h"

#include <nlohmann/json.hpp>

namespace test {

using nlohmann::json;

std::string PlainJson(const std::string &text)
{
    const json value = json::parse(text, nullptr, false);
    return value.is_discarded() ? "(no JSON)" : value.dump();
}

std::string JsonAt(const std::string &text, const std::string &place)
{
    const json value = json::parse(text, nullptr, false);
    const json::json_pointer pointer(place);
    if (value.is_discarded() || !value.contains(pointer))
        return "(none)";
    const json &found = value.at(pointer);
    return found.is_string() ? found.get<std::string>() : found.dump();
}

} // namespace test
