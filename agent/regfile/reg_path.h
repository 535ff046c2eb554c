// Paths of registry keys, as people write them: names with backslashes between them, which the name
// of the root may begin.
#ifndef AGENT_REGFILE_REG_PATH_H
#define AGENT_REGFILE_REG_PATH_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace regfile {

// The one root that there is here. Stored paths do not have it; files and the messages do.
inline constexpr char kRegRootName[] = "HKEY_LOCAL_MACHINE";

// Keys in each other that a path may have. What goes through a registry key by key calls itself for
// each level, so it needs an end; the deepest key of the monitor and its agent lies in eight
// others.
inline constexpr size_t kMaxKeyLevels = 512;

// As the registry compares names: the case of ASCII letters does not count.
bool EqualsWithoutCase(std::string_view a, std::string_view b);

// The part of a path below its root, whose name comes first: HKEY_LOCAL_MACHINE, or HKLM for short,
// in any case. Nothing for a path with another root, or with none. The names themselves are not
// looked at.
std::optional<std::string> PathBelowRoot(std::string_view path);

// The path below the root of a key that was typed: the name of the root may be left out.
std::string TypedPath(const std::string &path);

// Names in a path below the root.
size_t KeyLevels(std::string_view path);

// Is `path` the key `top`, or below it? Both are paths below the root; the case of ASCII letters
// does not count, as in the registry. Everything is within the root, which is the empty path.
bool IsWithin(std::string_view path, std::string_view top);

} // namespace regfile

#endif // AGENT_REGFILE_REG_PATH_H
