#include "agent/sinks/file_trust.h"

#include <filesystem>
#include <unistd.h>

namespace sinks {

namespace {

// The group counts as others: who is in it changes without anybody looking here.
bool OthersMayWrite(const struct stat &status)
{
    return (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

} // namespace

std::string WhyNotTrusted(const struct stat &status)
{
    if (S_ISLNK(status.st_mode))
        return "it is a symbolic link, and those are not followed";
    return OthersMayWrite(status) ? "others than its owner may write to it" : "";
}

std::string WhyProgramNotTrusted(const std::string &path)
{
    struct stat status {};
    // What is not there fails when it is to be run, with words that say so.
    if (lstat(path.c_str(), &status) != 0)
        return {};
    std::string why = WhyNotTrusted(status);
    if (why.empty() && status.st_uid != 0 && status.st_uid != geteuid())
        why = "it belongs to another user";
    const std::string folder = std::filesystem::path(path).parent_path();
    // In a folder such as /tmp, only the owner of a file can take it away.
    if (why.empty() && stat(folder.c_str(), &status) == 0 && OthersMayWrite(status) &&
        (status.st_mode & S_ISVTX) == 0)
        why = "others than the owner of its folder may put another file in its place";
    return why;
}

} // namespace sinks
