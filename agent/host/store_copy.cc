#include "agent/host/store_copy.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include <sqlite3.h>

#include "agent/host/error.h"
#include "agent/host/private_file.h"
#include "agent/host/schema.h"
#include "agent/host/store_file.h"

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr const char *kJournals[] = {"-wal", "-shm", "-journal"};

// Closed again at once: a descriptor that is closed later takes SQLite's locks away.
void MakeEmptyFile(const fs::path &file)
{
    const Fd fd = OpenPrivateFile(file, O_RDWR | O_CREAT | O_EXCL);
    if (fd.get() < 0)
        throw StoreError("cannot create " + file.string(), strerror(errno),
                         errno == EEXIST ? "name another file, or remove this one"
                                         : "name a file in a folder that you may write");
}

void RemoveDatabase(const fs::path &file)
{
    std::error_code ignored;
    fs::remove(file, ignored);
    for (const char *suffix : kJournals)
        fs::remove(file.string() + suffix, ignored);
}

// All pages in one step: as they are at one moment.
void CopyPages(Database &from, Database &to)
{
    sqlite3_backup *backup = sqlite3_backup_init(to.handle(), "main", from.handle(), "main");
    if (backup == nullptr)
        to.Fail("cannot write");
    sqlite3_backup_step(backup, -1);
    if (sqlite3_backup_finish(backup) != SQLITE_OK)
        to.Fail("cannot write");
}

void CheckIsWhole(Database &copy)
{
    Statement check(copy, "PRAGMA integrity_check(1)");
    check.Start();
    if (!check.Next() || check.Text(0) != "ok")
        throw StoreError("cannot use " + copy.path().string(),
                         "it is damaged (" + check.Text(0) + ")", "use another copy");
}

void SyncName(const fs::path &file)
{
    const Fd fd(open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.get() < 0 || fsync(fd.get()) != 0)
        throw StoreError("cannot write to the folder " + file.parent_path().string(),
                         strerror(errno), "check the disk and the kernel log");
}

} // namespace

void BackUpStore(Store &store, const fs::path &file)
{
    MakeEmptyFile(file);
    try {
        Database copy(file, Database::Mode::kReadWrite);
        store.Read([&](Database &database) { CopyPages(database, copy); });
        // Its pages say that it has a journal beside it.
        copy.Execute("PRAGMA journal_mode = DELETE");
        CheckIsWhole(copy);
        SyncName(fs::absolute(file));
    } catch (...) {
        RemoveDatabase(file);
        throw;
    }
}

void RestoreStore(const fs::path &file, const fs::path &store)
{
    Database copy(file, Database::Mode::kReadOnly);
    CheckIsStore(copy);
    CheckIsWhole(copy);
    const CreationLock lock(store);
    std::optional<OwnerLock> owner;
    if (fs::exists(store))
        owner.emplace(store);
    const fs::path unfinished = store.string() + ".new";
    RemoveDatabase(unfinished);
    MakeEmptyFile(unfinished);
    try {
        Database made(unfinished, Database::Mode::kReadWrite);
        CopyPages(copy, made);
        made.Execute("PRAGMA journal_mode = WAL");
        made.Execute("PRAGMA wal_checkpoint(TRUNCATE)");
    } catch (...) {
        RemoveDatabase(unfinished);
        throw;
    }
    // SQLite would take the journal of the one for that of the other.
    for (const char *suffix : kJournals)
        fs::remove(store.string() + suffix);
    fs::rename(unfinished, store);
    SyncName(store);
    MarkStore(store);
}

} // namespace host
