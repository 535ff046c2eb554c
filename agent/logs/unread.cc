#include "agent/logs/unread.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/host/waitable.h"
#include "agent/logs/log_files.h"
#include "agent/logs/places.h"

namespace logs {

namespace fs = std::filesystem;

namespace {

// By the name, through symbolic links, as the monitor opens it.
std::optional<FileMark> MarkOf(const fs::path &path)
{
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    return FileMark{status.st_dev, status.st_ino, status.st_size};
}

// How large a file was at that moment; 0: it was not there. A file that was cut since then has no
// more than it has now: what is gone cannot be checked any longer.
int64_t SizeThen(const fs::path &path, const FileMarks &marks)
{
    const auto now = MarkOf(path);
    const auto then = std::find_if(marks.begin(), marks.end(), [&](const FileMark &mark) {
        return now && mark.device == now->device && mark.inode == now->inode;
    });
    return then == marks.end() ? 0 : std::min(then->size, now->size);
}

// Does a line end between two offsets? When that cannot be read, there may be one.
bool HoldsALine(const fs::path &path, int64_t from, int64_t to)
{
    // Not opened, it is read from descriptor -1, which fails as a bad disk does: there may be a
    // line.
    const host::Fd file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    std::array<char, 65536> block{};
    while (from < to) {
        const auto wanted = static_cast<size_t>(std::min<int64_t>(to - from, block.size()));
        const ssize_t got = pread(file.get(), block.data(), wanted, from);
        if (got <= 0)
            // At the end: the file has become shorter meanwhile.
            return got < 0;
        if (memchr(block.data(), '\n', static_cast<size_t>(got)) != nullptr)
            return true;
        from += got;
    }
    return false;
}

int64_t UnreadBytes(const fs::path &path, int64_t from, const FileMarks &marks)
{
    const int64_t end = SizeThen(path, marks);
    return HoldsALine(path, from, end) ? end - from : 0;
}

// A file that is not there holds no line; what else is in the way is told.
std::string WhyInTheWay(const fs::path &path)
{
    struct stat status {};
    return stat(path.c_str(), &status) != 0 && errno == ENOENT ? "" : WhyUnreadable(path);
}

// Newer files than the one with the place in it, and the rest of that one. Without a place, all of
// them.
std::string Unread(const WatchedFile &file, const FileMarks &marks)
{
    for (const fs::path &part : RotationSet(file)) {
        const bool holds_place = part == file.resume_file;
        const int64_t bytes = UnreadBytes(part, holds_place ? file.done.value_or(0) : 0, marks);
        if (bytes > 0)
            return std::to_string(bytes) + " bytes of " + part.string() + " are unread" +
                   (file.resume_file.empty() ? ": " + file.problem : "");
        if (holds_place)
            break;
    }
    return {};
}

} // namespace

FileMarks MarkWatchedFiles(monitor::Module &module, host::RegistryTree &registry)
{
    FileMarks marks;
    for (const WatchedFile &file : ReadWatchedFiles(module, registry)) {
        for (const fs::path &part : RotationSet(file)) {
            if (const auto mark = MarkOf(part))
                marks.push_back(*mark);
        }
    }
    return marks;
}

std::vector<std::string> WhatIsUnread(monitor::Module &module, host::RegistryTree &registry,
                                      const FileMarks &marks)
{
    std::vector<std::string> told;
    for (const WatchedFile &file : ReadWatchedFiles(module, registry)) {
        const std::string problem = WhyInTheWay(file.path);
        if (!problem.empty())
            told.push_back(file.path.string() + " cannot be read: " + problem);
        else if (const std::string unread = Unread(file, marks); !unread.empty())
            told.push_back(unread);
    }
    return told;
}

} // namespace logs
