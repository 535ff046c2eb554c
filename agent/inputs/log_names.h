// The logs of an input, and which files in their folders are rotated ones of them, by their names.
#ifndef AGENT_INPUTS_LOG_NAMES_H
#define AGENT_INPUTS_LOG_NAMES_H

#include <map>
#include <optional>
#include <string>

#include "agent/inputs/folder_view.h"
#include "agent/inputs/rotated_names.h"

namespace inputs {

class LogNamesByFolder {
  public:
    explicit LogNamesByFolder(PathRules rules) : rules_(std::move(rules)) {}

    [[nodiscard]] const PathRules &rules() const { return rules_; }

    // Programs write under this path.
    void Add(const std::string &log);
    // Takes the logs among these files.
    void Learn(const FolderView &view);

    // Is it a path that is written to: one that is matched, and is not that of a rotated file of another log, be that one
    // of the input or one that it leaves out?
    [[nodiscard]] bool IsLive(const std::string &path) const;
    // Is it one of the input's: a path that is written to, or that of a rotated file of one?
    [[nodiscard]] bool Covers(const std::string &path) const;
    // The log of which this is a rotated file by its name.
    [[nodiscard]] std::optional<std::string> LogOfRotated(const std::string &path) const;
    // The same; of any other path, that path.
    [[nodiscard]] std::string LogOf(const std::string &path) const
    {
        return LogOfRotated(path).value_or(path);
    }

  private:
    struct RotatedOf {
        NameKind kind = NameKind::kOther;
        std::string log; // its path
    };
    [[nodiscard]] RotatedOf Rotated(const std::string &path) const;

    PathRules rules_;
    std::map<std::string, LogNames> logs_; // by folder: the names that are written to
};

} // namespace inputs

#endif // AGENT_INPUTS_LOG_NAMES_H
