#include "agent/host/private_file.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "agent/host/error.h"

namespace host {

namespace fs = std::filesystem;

namespace {

// Permissions and the bits for set-user-ID and the like: all that chmod can set.
constexpr mode_t kAllRights = 07777;

// Files of others are never changed, also not by root, which could.
bool IsOurs(const struct stat &status)
{
    return status.st_uid == geteuid();
}

// Through a descriptor, so that what was looked at is what is changed. Only takes away: a file that
// its owner may not write stays so.
void TakeRightsAway(int fd, mode_t wanted)
{
    struct stat status {};
    if (fstat(fd, &status) != 0 || !IsOurs(status) || (status.st_mode & kAllRights & ~wanted) == 0)
        return;
    if (fchmod(fd, status.st_mode & wanted) != 0)
        return; // a file system without modes; who mounted it chose who may read it
}

// The group that may read what is in the folder; nothing for a private one, and for one of which that was
// never said.
std::optional<gid_t> ReadersOf(const fs::path &folder)
{
    struct stat status {};
    // In another one's folder, any file can be put into the place of the one that was looked at.
    const bool has_readers = stat(folder.c_str(), &status) == 0 && IsOurs(status) &&
                             (status.st_mode & kAllRights) == kReadableFolder;
    return has_readers ? std::optional(status.st_gid) : std::nullopt;
}

// By its path and not through a descriptor: closing one of the store would take SQLite's locks away. Nobody but
// this user can put another file there. The group comes before the right: no other one must have it in between. A
// daemon whose own group this is makes its files with it, and one that may not change it leaves them private.
bool Share(const fs::path &file)
{
    const auto readers = ReadersOf(file.parent_path());
    struct stat status {};
    if (!readers || lstat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
        !IsOurs(status))
        return false;
    if (status.st_gid != *readers && lchown(file.c_str(), static_cast<uid_t>(-1), *readers) != 0)
        return false;
    return chmod(file.c_str(), kReadableFile) == 0;
}

// An empty folder does. One that cannot be read does not, so it is left alone.
bool HoldsOnly(const fs::path &folder, std::span<const std::string_view> own_names)
{
    std::error_code failed;
    for (const auto &entry : fs::directory_iterator(folder, failed)) {
        const std::string name = entry.path().filename().string();
        if (std::none_of(own_names.begin(), own_names.end(),
                         [&](std::string_view own) { return name.starts_with(own); }))
            return false;
    }
    return !failed;
}

[[noreturn]] void FailToCreate(const fs::path &folder, const std::string &why)
{
    throw StoreError("cannot create the folder " + folder.string(), why,
                     "run as root, or name a folder of your own with --root");
}

} // namespace

Fd OpenPrivateFile(const fs::path &path, int flags)
{
    // The mode holds for a new file, whatever the umask takes away of it; an old one has its own
    // mode, which is put right below. NOFOLLOW: a link in the place of a lock or a log must not
    // make the agent write somewhere else.
    Fd fd(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, kPrivateFile));
    if (fd.get() >= 0)
        TakeRightsAway(fd.get(), kPrivateFile);
    return fd;
}

Fd OpenReadableFile(const fs::path &path, int flags)
{
    Fd fd(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, kPrivateFile));
    if (fd.get() >= 0 && !Share(path))
        TakeRightsAway(fd.get(), kPrivateFile);
    return fd;
}

bool MakeReadable(const fs::path &file)
{
    return Share(file);
}

void MakePrivate(const fs::path &file)
{
    // NONBLOCK, because a FIFO of that name would be waited for.
    const Fd fd(open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (fd.get() >= 0)
        TakeRightsAway(fd.get(), kPrivateFile);
}

void CreatePrivateFolder(const fs::path &folder, std::span<const std::string_view> own_names)
{
    std::error_code failed;
    fs::create_directories(folder.parent_path(), failed);
    // Made with its mode, not changed to it afterwards: there is no moment at which others could
    // open it.
    if (!failed && mkdir(folder.c_str(), kPrivateFolder) == 0)
        return;
    if (failed)
        FailToCreate(folder, failed.message());
    const int why = errno;
    // A link to a folder counts as one: an administrator may have put it on another disk.
    if (why != EEXIST || !fs::is_directory(folder, failed))
        FailToCreate(folder, std::generic_category().message(why));
    if (ReadersOf(folder) || !HoldsOnly(folder, own_names))
        return;
    const Fd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.get() >= 0)
        TakeRightsAway(fd.get(), kPrivateFolder);
}

} // namespace host
