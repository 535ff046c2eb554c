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

} // namespace

void WriteWhole(const std::filesystem::path &path, const std::string &content)
{
    // Of this process alone, so that two that write one file do not meet. It does not end like the file: who takes all
    // files of a name's ending must not take this one.
    const std::string unfinished = path.string() + "." + std::to_string(getpid()) + ".tmp";
    const host::Fd file(open(unfinished.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    bool is_done = file.get() >= 0;
    if (is_done) {
        is_done = WriteAll(file.get(), content) && fchmod(file.get(), kForEverybody) == 0 &&
                  fsync(file.get()) == 0 && rename(unfinished.c_str(), path.c_str()) == 0;
        const int why = errno;
        if (!is_done)
            unlink(unfinished.c_str());
        errno = why;
    }
    if (!is_done)
        throw host::Error("cannot write " + path.string(), strerror(errno),
                          "make its folder writable, make room, or name another file");
}

} // namespace text
