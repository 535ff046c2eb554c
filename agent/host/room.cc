#include "agent/host/room.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "agent/host/waitable.h"

namespace host {

namespace fs = std::filesystem;

namespace {

// Twice of what SQLite lets a journal grow to before it writes it into the store, 1,000 pages.
constexpr int64_t kLargestReserve = int64_t{8} * 1024 * 1024;
// Less than this is no help.
constexpr int64_t kSmallestReserve = int64_t{256} * 1024;

} // namespace

int64_t FreeSpace(const fs::path &file)
{
    struct statvfs disk {};
    // Of the folder: the file itself need not be there yet.
    if (statvfs(file.parent_path().c_str(), &disk) != 0)
        return 0;
    // Without the blocks that are kept for root, also when root asks: they are for getting a system
    // going again.
    return static_cast<int64_t>(disk.f_bavail * disk.f_frsize);
}

int64_t SizeOfDisk(const fs::path &file)
{
    struct statvfs disk {};
    if (statvfs(file.parent_path().c_str(), &disk) != 0)
        return 0;
    return static_cast<int64_t>(disk.f_blocks * disk.f_frsize);
}

int64_t SizeOf(const fs::path &file)
{
    struct stat status {};
    return stat(file.c_str(), &status) == 0 ? int64_t{status.st_size} : 0;
}

int64_t SizeOfStore(const std::filesystem::path &store)
{
    return SizeOf(store) + SizeOf(store.string() + "-wal");
}

int64_t RoomOfAPass(int64_t free, int64_t reserve, int64_t journal)
{
    // A pass of x bytes makes the journal x longer, and emptying it then takes as much as the whole
    // journal in the store: (journal + x) + x must fit into what is free and the reserve.
    const int64_t with_its_copy = (free + reserve - journal) / 2;
    return std::clamp<int64_t>(std::min(free / 4, with_its_copy), 0, kMostOfAPass);
}

Reserve::Reserve(const fs::path &store) : path_(store.parent_path() / "reserve") {}

void Reserve::Keep()
{
    const int64_t size = Size();
    // What it holds already counts as free: else each call would want a smaller one than the last.
    const int64_t wanted = std::min((FreeSpace(path_) + size) / 4, kLargestReserve);
    // Made larger only when that doubles it: not a few blocks more after each pass.
    if (wanted < kSmallestReserve || wanted < 2 * size)
        return;
    const Fd fd(open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    // Real blocks; a file that is merely long would hold none. What it could not get whole it gives
    // up: on such a disk every block is needed.
    if (fd.get() >= 0 && posix_fallocate(fd.get(), 0, wanted) != 0)
        LetGo();
}

bool Reserve::LetGo()
{
    return unlink(path_.c_str()) == 0;
}

} // namespace host
