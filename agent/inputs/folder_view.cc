#include "agent/inputs/folder_view.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fnmatch.h>
#include <glob.h>
#include <memory>
#include <sys/stat.h>

#include "agent/inputs/rotated_names.h"

namespace inputs {

namespace {

struct CloseFolder {
    void operator()(DIR *folder) const { closedir(folder); }
};

void ViewFolder(const std::string &path, FolderView *view)
{
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(path.c_str()));
    if (!folder) {
        view->problems.push_back("cannot list the folder " + path + ": " + strerror(errno));
        return;
    }
    while (const dirent *entry = readdir(folder.get())) {
        if (entry->d_type == DT_DIR)
            continue;
        const std::string file = (path == "/" ? "" : path) + "/" + entry->d_name;
        const auto look = LookAt(file);
        if (look && look->is_regular)
            view->files.emplace(file, *look);
        else if (look && entry->d_type != DT_LNK)
            view->others.push_back(file);
    }
}

// Or is it written as one: a backslash stands for no character of the name.
bool IsPattern(const std::string &text)
{
    return text.find_first_of("*?[\\") != std::string::npos;
}

} // namespace

FolderView ViewFolders(const std::set<std::string> &folders)
{
    FolderView view;
    for (const std::string &folder : folders)
        ViewFolder(folder, &view);
    return view;
}

std::set<std::string> PathRules::Folders() const
{
    std::set<std::string> folders;
    for (const std::string &path : paths) {
        const std::string folder = FolderOf(path);
        if (!IsPattern(folder)) {
            folders.insert(folder);
            continue;
        }
        glob_t found{};
        if (glob(folder.c_str(), GLOB_ONLYDIR, nullptr, &found) == 0) {
            for (size_t i = 0; i < found.gl_pathc; ++i) {
                struct stat status {};
                if (stat(found.gl_pathv[i], &status) == 0 && S_ISDIR(status.st_mode))
                    folders.insert(found.gl_pathv[i]);
            }
        }
        globfree(&found);
    }
    return folders;
}

bool PathRules::Match(const std::string &path) const
{
    return !Exclude(path) && std::any_of(paths.begin(), paths.end(), [&](const auto &pattern) {
        return fnmatch(pattern.c_str(), path.c_str(), FNM_PATHNAME | FNM_PERIOD) == 0;
    });
}

bool PathRules::Exclude(const std::string &path) const
{
    return std::any_of(excluded.begin(), excluded.end(), [&](const std::string &pattern) {
        const bool is_name = pattern.find('/') == std::string::npos;
        const std::string text = is_name ? NameOf(path) : path;
        return fnmatch(pattern.c_str(), text.c_str(), FNM_PATHNAME) == 0;
    });
}

bool PathRules::ExcludeLogOf(const std::string &path) const
{
    if (excluded.empty())
        return false;
    const std::string name = NameOf(path);
    const std::string folder = path.substr(0, path.size() - name.size());
    for (size_t length = name.size() - 1; length > 0; --length) {
        const std::string log = name.substr(0, length);
        if (RotatedNameOf(name, log) == NameKind::kRotated && Exclude(folder + log))
            return true;
    }
    return false;
}

std::string FolderOf(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

std::string NameOf(const std::string &path)
{
    return path.substr(path.rfind('/') + 1);
}

std::string PatternOf(const std::string &path)
{
    std::string pattern;
    for (const char c : path) {
        if (std::string_view("*?[]\\").find(c) != std::string_view::npos)
            pattern += '\\';
        pattern += c == '\n' ? '?' : c;
    }
    return pattern;
}

std::string IdentifierOf(const std::string &path)
{
    const std::string name = NameOf(path);
    return name.substr(0, name.find('.', 1));
}

} // namespace inputs
