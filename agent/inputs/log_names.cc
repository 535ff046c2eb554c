#include "agent/inputs/log_names.h"

#include <algorithm>
#include <vector>

namespace inputs {

void LogNamesByFolder::Add(const std::string &log)
{
    logs_[FolderOf(log)].insert(NameOf(log));
}

void LogNamesByFolder::Learn(const FolderView &view)
{
    // A shorter name is that of the log when a longer one could be that of a rotated file of it.
    std::vector<std::string> matched;
    for (const auto &[path, look] : view.files) {
        if (rules_.Match(path))
            matched.push_back(path);
    }
    std::sort(matched.begin(), matched.end(),
              [](const auto &a, const auto &b) { return a.size() < b.size(); });
    for (const std::string &path : matched) {
        if (IsLive(path))
            Add(path);
    }
}

bool LogNamesByFolder::IsLive(const std::string &path) const
{
    return rules_.Match(path) && Rotated(path).kind != NameKind::kRotated &&
           !rules_.ExcludeLogOf(path);
}

bool LogNamesByFolder::Covers(const std::string &path) const
{
    return IsLive(path) || (LogOfRotated(path) && !rules_.Exclude(path));
}

// By the logs of its own folder. Where rotated files have a folder of their own, which has no logs, by the only other
// one that has such a log.
LogNamesByFolder::RotatedOf LogNamesByFolder::Rotated(const std::string &path) const
{
    const std::string own = FolderOf(path);
    const auto here = logs_.find(own);
    auto begin = here == logs_.end() ? logs_.begin() : here;
    const auto end = here == logs_.end() ? logs_.end() : std::next(here);
    RotatedOf found;
    for (; begin != end; ++begin) {
        const auto &[folder, names] = *begin;
        const RotatedName rotated = FindLogOf(NameOf(path), names);
        if (rotated.kind == NameKind::kOther)
            continue;
        if (found.kind != NameKind::kOther)
            return {};
        found = {rotated.kind, (folder == "/" ? "" : folder) + "/" + rotated.log};
    }
    return found;
}

std::optional<std::string> LogNamesByFolder::LogOfRotated(const std::string &path) const
{
    const RotatedOf rotated = Rotated(path);
    return rotated.kind == NameKind::kOther ? std::nullopt : std::optional(rotated.log);
}

} // namespace inputs
