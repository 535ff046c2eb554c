#include "agent/text/whole_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/host/error.h"
#include "agent/host/waitable.h"

namespace text {

namespace {

constexpr mode_t kForEverybody = 0644;

bool WriteAll(int file, const std::string &content)
{
    size_t written = 0;
    while (written < content.size()) {
        const ssize_t count = write(file, content.data() + written, content.size() - written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        written += static_cast<size_t>(count);
    }
    return true;
}

[[noreturn]] void Fail(const std::filesystem::path &path, const std::string &why)
{
    throw host::Error("cannot write " + path.string(), why,
                      "make its folder writable, make room, or name another file");
}

// A file of the other name would take the place of what is there. Of a device that would be the end for everybody, and
// where a link leads, somebody else may have chosen.
enum class Place { kToReplace, kToWriteInto, kToLeaveAlone };

Place PlaceOf(const std::filesystem::path &path)
{
    struct stat itself {};
    struct stat behind {};
    if (lstat(path.c_str(), &itself) != 0 || S_ISREG(itself.st_mode) || S_ISDIR(itself.st_mode))
        return Place::kToReplace;
    const bool is_stream =
        stat(path.c_str(), &behind) == 0 && (S_ISCHR(behind.st_mode) || S_ISFIFO(behind.st_mode));
    return is_stream ? Place::kToWriteInto : Place::kToLeaveAlone;
}

void WriteInto(const std::filesystem::path &path, const std::string &content)
{
    const host::Fd stream(open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
    if (stream.get() < 0 || !WriteAll(stream.get(), content))
        Fail(path, strerror(errno));
}

void Replace(const std::filesystem::path &path, const std::string &content)
{
    // Of this process alone, so that two that write one file do not meet. It does not end like the file: who takes all
    // files of a name's ending must not take this one.
    const std::string unfinished = path.string() + "." + std::to_string(getpid()) + ".tmp";
    const host::Fd file(open(unfinished.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (file.get() < 0)
        Fail(path, strerror(errno));
    if (WriteAll(file.get(), content) && fchmod(file.get(), kForEverybody) == 0 &&
        fsync(file.get()) == 0 && rename(unfinished.c_str(), path.c_str()) == 0)
        return;
    const int why = errno;
    unlink(unfinished.c_str());
    Fail(path, strerror(why));
}

} // namespace

void WriteWhole(const std::filesystem::path &path, const std::string &content)
{
    switch (PlaceOf(path)) {
    case Place::kToReplace:
        return Replace(path, content);
    case Place::kToWriteInto:
        return WriteInto(path, content);
    case Place::kToLeaveAlone:
        break;
    }
    throw host::Error("cannot write " + path.string(), "it is a link, or no file",
                      "name the file itself");
}

} // namespace text
