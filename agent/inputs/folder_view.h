// The files of some folders at a moment.
//
// While a rotation renames files, one look can miss a file or see it twice. What is concluded from the absence
// of a file needs two equal looks with a pause between them.
#ifndef AGENT_INPUTS_FOLDER_VIEW_H
#define AGENT_INPUTS_FOLDER_VIEW_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "agent/inputs/file_identity.h"

namespace inputs {

struct FolderView {
    std::map<std::string, FileLook> files; // regular ones, by their paths
    std::vector<std::string> others;       // paths of what is neither a regular file nor a folder
    std::vector<std::string> problems;     // folders that cannot be listed, with the reason
};

FolderView ViewFolders(const std::set<std::string> &folders);

// Which files an input wants.
struct PathRules {
    std::vector<std::string> paths;    // patterns of whole paths, as of a shell
    std::vector<std::string> excluded; // the same; one without "/" is for names in any folder

    // The folders in which files of such paths can be at this moment.
    [[nodiscard]] std::set<std::string> Folders() const;
    bool operator==(const PathRules &) const = default;
    [[nodiscard]] bool Match(const std::string &path) const;
    [[nodiscard]] bool Exclude(const std::string &path) const;
    // Is it, by its name, a rotated file of a log of its folder that is excluded, whether that log is there or not? A name
    // with the number before the ending, as app.1.log, says too little: app.log and it may be two logs.
    [[nodiscard]] bool ExcludeLogOf(const std::string &path) const;
};

// "/var/log" and "messages" of "/var/log/messages".
std::string FolderOf(const std::string &path);
std::string NameOf(const std::string &path);

// The path as a pattern that matches it, and nothing else; but for a line end in it, which no option can hold, and which is
// matched by any character.
std::string PatternOf(const std::string &path);

// The program of entries that name none: "app" of "/var/log/app.log".
std::string IdentifierOf(const std::string &path);

} // namespace inputs

#endif // AGENT_INPUTS_FOLDER_VIEW_H
