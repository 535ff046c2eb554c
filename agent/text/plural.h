// A number of things, as people write it.
#ifndef AGENT_TEXT_PLURAL_H
#define AGENT_TEXT_PLURAL_H

#include <cstdint>
#include <string>

namespace text {

// "1 hit", "2 hits": of a name that takes an s.
inline std::string Plural(int64_t count, const std::string &name)
{
    return std::to_string(count) + " " + name + (count == 1 ? "" : "s");
}

} // namespace text

#endif // AGENT_TEXT_PLURAL_H
