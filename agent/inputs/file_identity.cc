#include "agent/inputs/file_identity.h"

#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include "agent/host/waitable.h"

namespace inputs {

namespace {

constexpr int64_t kNanoseconds = 1000000000;
// The form of a handle that is an inode's number and its generation, of 32 bits each.
constexpr int kInodeAndGeneration = 1;

std::optional<FileLook> Look(int folder, const char *path, int flags)
{
    struct statx status {};
    constexpr unsigned kWanted = STATX_BASIC_STATS | STATX_BTIME;
    if (statx(folder, path, flags | AT_NO_AUTOMOUNT, kWanted, &status) != 0)
        return std::nullopt;
    FileLook look;
    look.identity.inode = status.stx_ino;
    look.device = makedev(status.stx_dev_major, status.stx_dev_minor);
    if ((status.stx_mask & STATX_BTIME) != 0)
        look.identity.birth_ns = status.stx_btime.tv_sec * kNanoseconds + status.stx_btime.tv_nsec;
    look.is_regular = S_ISREG(status.stx_mode);
    look.size = status.stx_size;
    look.changed_ns = status.stx_mtime.tv_sec * kNanoseconds + status.stx_mtime.tv_nsec;
    look.has_name = status.stx_nlink > 0;
    return look;
}

// How often the number of the open file was given out, in a file system that keeps that on the disk: ext2, and its
// successors in that form. What others have in a handle can be gone when the host starts anew. 0: it is not known.
uint32_t GenerationOf(int fd)
{
    struct statfs system {};
    if (fstatfs(fd, &system) != 0 || system.f_type != EXT2_SUPER_MAGIC)
        return 0;
    alignas(file_handle) char space[sizeof(file_handle) + MAX_HANDLE_SZ] = {};
    auto *handle = reinterpret_cast<file_handle *>(space);
    handle->handle_bytes = MAX_HANDLE_SZ;
    int mount = 0;
    if (name_to_handle_at(fd, "", handle, &mount, AT_EMPTY_PATH) != 0 ||
        handle->handle_type != kInodeAndGeneration)
        return 0;
    uint32_t generation = 0;
    memcpy(&generation, handle->f_handle + sizeof generation, sizeof generation);
    return generation;
}

void AddWhatIsKnown(int fd, FileLook *look)
{
    look->identity.generation = GenerationOf(fd);
    if (!look->identity.IsUnique())
        look->identity.device = look->device;
}

} // namespace

std::optional<FileLook> LookAt(const std::string &path)
{
    const auto look = Look(AT_FDCWD, path.c_str(), 0);
    if (!look || look->identity.IsUnique())
        return look;
    // By its name, another file could be looked at the second time.
    const host::Fd file(open(path.c_str(), O_PATH | O_CLOEXEC));
    return file.get() < 0 ? std::nullopt : LookAt(file.get());
}

std::optional<FileLook> LookAt(int fd)
{
    auto look = Look(fd, "", AT_EMPTY_PATH);
    if (look && !look->identity.IsUnique())
        AddWhatIsKnown(fd, &*look);
    return look;
}

} // namespace inputs
