#include "fileacc/open_log.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool IsRegular(const struct stat &status)
{
    if (S_ISREG(status.st_mode))
        return true;
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return false;
}

FILE *CloseAndFail(int fd)
{
    const int reason = errno;
    close(fd);
    errno = reason;
    return nullptr;
}

} // namespace

FILE *OpenLog(const char *path)
{
    // Looked at before it is opened, because merely opening a device can have an effect, and again
    // afterwards, because the name may have changed hands in between. O_NONBLOCK is for that case.
    struct stat status {};
    if (stat(path, &status) != 0 || !IsRegular(status))
        return nullptr;
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0)
        return nullptr;
    if (fstat(fd, &status) != 0 || !IsRegular(status))
        return CloseAndFail(fd);

    FILE *stream = fdopen(fd, "r");
    if (stream == nullptr)
        return CloseAndFail(fd);
    setvbuf(stream, nullptr, _IONBF, 0);
    return stream;
}
