#include "fileacc/open_log.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

// Opening a FIFO waits for a writer, and a device can wait for anything; merely opening either can
// have an effect on others.
bool MayWait(const struct stat64 &status)
{
    return S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode);
}

bool IsSameFile(const struct stat64 &a, const struct stat64 &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

FILE *CloseAndFail(int fd, int reason)
{
    close(fd);
    errno = reason;
    return nullptr;
}

} // namespace

FILE *OpenLog(const char *path, struct stat64 *status)
{
    if (MayWait(*status)) {
        errno = EINVAL;
        return nullptr;
    }
    // The name may have changed hands since it was looked at: O_NONBLOCK and the second look are for
    // that case.
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0)
        return nullptr;
    struct stat64 opened {};
    if (fstat64(fd, &opened) != 0)
        return CloseAndFail(fd, errno);
    if (MayWait(opened))
        return CloseAndFail(fd, EINVAL);
    FILE *stream = fdopen(fd, "r");
    if (stream == nullptr)
        return CloseAndFail(fd, errno);
    if (!IsSameFile(*status, opened))
        *status = opened;
    return stream;
}
