#include "agent/host/store_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/host/database.h"
#include "agent/host/error.h"
#include "agent/host/schema.h"

namespace host {

namespace fs = std::filesystem;

const char *const kReplaceStore =
    "put a copy of it back, or move it away with has-store beside it to start with nothing";

namespace {

constexpr char kMakeWritable[] = "make its folder writable, or run as root";

// Bytes of the file that only the owner locks. They lie far behind those that SQLite locks, and
// behind any store. The first is the owner's; which of the others is locked, too, tells its process
// ID to those who ask. A lock needs no byte to be there: the file does not grow.
constexpr off_t kOwnerByte = off_t{1} << 61;
constexpr off_t kMaxPid = off_t{1} << 32;

// Descriptors by which this process has asked for the owner. They stay open: see OwnerLock.
std::mutex asking_guard;
std::map<std::pair<dev_t, ino_t>, Fd> asking;

fs::path MarkOf(const fs::path &store)
{
    return store.parent_path() / "has-store";
}

// With its mode from the beginning. SQLite gives the journal the mode of the file.
Fd OpenFor(const fs::path &path, int flags)
{
    Fd fd(open(path.c_str(), flags | O_CLOEXEC, 0600));
    if (fd.get() < 0)
        throw StoreError("cannot create " + path.string(), strerror(errno), kMakeWritable);
    return fd;
}

// Puts the names in a folder on its disk.
void SyncFolder(const fs::path &path)
{
    const Fd fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.get() < 0 || fsync(fd.get()) != 0)
        throw StoreError("cannot write to the folder " + path.string(), strerror(errno),
                         "check the disk and the kernel log");
}

// Makes a complete store under another name first: a program that dies half-way leaves nothing that
// looks like a store. What such a program left is removed. The name is the store's only when all of
// it is on the disk: the checkpoint writes it there, the rename is the last step, and the folder is
// synchronised behind it.
void Create(const fs::path &path)
{
    const fs::path unfinished = path.string() + ".new";
    for (const char *suffix : {"", "-wal", "-shm"})
        fs::remove(unfinished.string() + suffix);
    // SQLite would make the file with the mode of the umask.
    OpenFor(unfinished, O_RDWR | O_CREAT | O_TRUNC);
    {
        Database database(unfinished, Database::Mode::kReadWrite);
        // Kept in the file, so every later connection has it.
        database.Execute("PRAGMA journal_mode = WAL");
        database.Execute("PRAGMA synchronous = FULL");
        CreateSchema(database);
        database.Execute("PRAGMA wal_checkpoint(TRUNCATE)");
    }
    // As late as can be: should anything before it fail, the journal is still where its store was.
    SetOldJournalAside(path);
    fs::rename(unfinished, path);
    SyncFolder(path.parent_path());
}

struct flock Range(short type, off_t start, off_t length)
{
    struct flock range {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = start;
    range.l_len = length;
    return range;
}

} // namespace

CreationLock::CreationLock(const fs::path &store)
{
    const fs::path path = store.string() + ".lock";
    // A file of its own, never removed: the store's comes by a rename, and a lock on what was there
    // before would keep out nobody. The kernel gives it back when its holder dies.
    fd_ = Fd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (fd_.get() < 0)
        throw StoreError("cannot open " + path.string(), strerror(errno), kMakeWritable);
    // Waits: whoever has it makes or updates a store, and is done soon.
    while (flock(fd_.get(), LOCK_EX) != 0) {
        if (errno != EINTR)
            throw StoreError("cannot lock " + path.string(), strerror(errno),
                             "keep the store on a file system that has locks");
    }
}

namespace {

// Is there one? Throws StoreError when there was, and is none any more.
bool IsThere(const fs::path &store)
{
    const bool exists = fs::exists(store);
    if (!exists && fs::exists(MarkOf(store)))
        throw StoreError("cannot open " + store.string(), "it is gone, and there was one",
                         "put it or a copy of it back, mount what it lies on, or remove " +
                             MarkOf(store).string() + " to start with nothing");
    return exists;
}

} // namespace

void CheckStoreIsThere(const fs::path &store)
{
    try {
        if (!IsThere(store))
            throw StoreError("cannot open " + store.string(), "it is not there",
                             "start the daemon, or register events with syslogmon apply or "
                             "syslogmon event add");
    } catch (const fs::filesystem_error &error) {
        throw StoreError("cannot open " + store.string(), error.code().message(),
                         "run as root, or as a member of the group that may read it");
    }
}

void MakeStore(const fs::path &store)
{
    if (!IsThere(store))
        Create(store);
    // SQLite would take it for a new database, and so all that was registered for nothing.
    if (fs::file_size(store) == 0)
        throw StoreError("cannot use " + store.string(), "the file is empty", kReplaceStore);
}

void SetOldJournalAside(const fs::path &store)
{
    for (const char *suffix : {"-wal", "-shm"}) {
        const fs::path left = store.string() + suffix;
        if (fs::exists(left))
            // One that was set aside before is overwritten: the newest is the one that may be
            // missed.
            fs::rename(left, left.string() + ".old");
    }
}

void MarkStore(const fs::path &store)
{
    const fs::path mark = MarkOf(store);
    if (fs::exists(mark))
        return;
    OpenFor(mark, O_WRONLY | O_CREAT);
    SyncFolder(mark.parent_path());
}

FileIdentity IdentityOf(const fs::path &store)
{
    struct stat status {};
    if (stat(store.c_str(), &status) == 0)
        return {status.st_dev, status.st_ino};
    if (errno != ENOENT)
        throw StoreError("cannot look at " + store.string(), strerror(errno),
                         "check the disk and the kernel log");
    throw StoreError("cannot use " + store.string(), "it was removed while it was in use",
                     "put it or a copy of it back and start the program again");
}

// A disk that does not answer is no sign that the file was replaced.
bool MayBe(const fs::path &store, const FileIdentity &identity)
{
    struct stat status {};
    if (stat(store.c_str(), &status) != 0)
        return errno != ENOENT;
    return FileIdentity{status.st_dev, status.st_ino} == identity;
}

OwnerLock::OwnerLock(const fs::path &store) : fd_(open(store.c_str(), O_RDWR | O_CLOEXEC))
{
    if (fd_.get() < 0)
        throw StoreError("cannot open " + store.string(), strerror(errno),
                         "make the file and its folder writable, or run as root");
    struct flock owner = Range(F_WRLCK, kOwnerByte, 1);
    // Of the open file, not of the process (OFD): SQLite opens and closes the same file in this
    // process, and a lock of the process's would go with the first close. It is never waited for:
    // two daemons are a mistake, and the second one says so.
    if (fcntl(fd_.get(), F_OFD_SETLK, &owner) != 0) {
        const bool is_taken = errno == EAGAIN || errno == EACCES;
        if (!is_taken)
            throw StoreError("cannot lock " + store.string(), strerror(errno),
                             "keep the store on a file system that has locks");
        // The other one may not have locked its second byte yet, or be gone by now: then no process
        // is named.
        const auto holder = Holder(store);
        throw StoreError("cannot start the daemon with " + store.string(),
                         "another one works with it" +
                             (holder ? ", process " + std::to_string(*holder) : std::string()),
                         "stop that one first, or name another install root with --root");
    }
    struct flock pid = Range(F_WRLCK, kOwnerByte + 1 + getpid(), 1);
    // Nobody else locks it. Should it fail all the same, the owner is merely without a name.
    fcntl(fd_.get(), F_OFD_SETLK, &pid);
}

std::optional<pid_t> OwnerLock::Holder(const fs::path &store)
{
    struct stat status {};
    if (stat(store.c_str(), &status) != 0)
        return std::nullopt;
    const std::lock_guard lock(asking_guard);
    // By the file, not by its path: a store that was replaced is asked anew. An open file of its
    // own, so that a daemon that asks is told of itself, too.
    Fd &fd = asking[{status.st_dev, status.st_ino}];
    if (fd.get() < 0)
        fd = Fd(open(store.c_str(), O_RDONLY | O_CLOEXEC));
    struct flock pid = Range(F_WRLCK, kOwnerByte + 1, kMaxPid);
    if (fd.get() < 0 || fcntl(fd.get(), F_OFD_GETLK, &pid) != 0 || pid.l_type == F_UNLCK)
        return std::nullopt;
    return static_cast<pid_t>(pid.l_start - kOwnerByte - 1);
}

} // namespace host
