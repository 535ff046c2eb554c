#include "agent/regfile/reg_path.h"

#include <algorithm>
#include <strings.h>

namespace regfile {

bool EqualsWithoutCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::optional<std::string> PathBelowRoot(std::string_view path)
{
    const std::string_view root = path.substr(0, path.find('\\'));
    if (!EqualsWithoutCase(root, kRegRootName) && !EqualsWithoutCase(root, "HKLM"))
        return std::nullopt;
    // For the root alone, there is no backslash to step over.
    return std::string(path.substr(std::min(root.size() + 1, path.size())));
}

// A key that is itself called like the root must be typed with the root before it.
std::string TypedPath(const std::string &path)
{
    return PathBelowRoot(path).value_or(path);
}

size_t KeyLevels(std::string_view path)
{
    return path.empty() ? 0 : static_cast<size_t>(std::count(path.begin(), path.end(), '\\')) + 1;
}

bool IsWithin(std::string_view path, std::string_view top)
{
    return EqualsWithoutCase(path.substr(0, top.size()), top) &&
           (path.size() == top.size() || path[top.size()] == '\\' || top.empty());
}

} // namespace regfile
