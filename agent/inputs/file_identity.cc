#include "agent/inputs/file_identity.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace inputs {

namespace {

constexpr int64_t kNanoseconds = 1000000000;

std::optional<FileLook> Look(int folder, const char *path, int flags)
{
    struct statx status {};
    constexpr unsigned kWanted = STATX_BASIC_STATS | STATX_BTIME;
    if (statx(folder, path, flags | AT_NO_AUTOMOUNT, kWanted, &status) != 0)
        return std::nullopt;
    FileLook look;
    look.identity.inode = status.stx_ino;
    if ((status.stx_mask & STATX_BTIME) != 0)
        look.identity.birth_ns = status.stx_btime.tv_sec * kNanoseconds + status.stx_btime.tv_nsec;
    else
        look.identity.device = makedev(status.stx_dev_major, status.stx_dev_minor);
    look.is_regular = S_ISREG(status.stx_mode);
    look.size = status.stx_size;
    look.changed_ns = status.stx_mtime.tv_sec * kNanoseconds + status.stx_mtime.tv_nsec;
    look.has_name = status.stx_nlink > 0;
    return look;
}

} // namespace

std::optional<FileLook> LookAt(const std::string &path)
{
    return Look(AT_FDCWD, path.c_str(), 0);
}

std::optional<FileLook> LookAt(int fd)
{
    return Look(fd, "", AT_EMPTY_PATH);
}

} // namespace inputs
