#include "agent/host/store_copy.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

#include <sqlite3.h>

#include "agent/host/error.h"
#include "agent/host/private_file.h"
#include "agent/host/schema.h"
#include "agent/host/store_file.h"

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr int kKind = 0xff; // of an extended code of SQLite

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

// Is it in use, or is there no room? Then the store is as good as its journal, which must stay.
bool CanBeMended(const Database &database)
{
    const int code = sqlite3_errcode(database.handle()) & kKind;
    return code == SQLITE_BUSY || code == SQLITE_LOCKED || code == SQLITE_FULL ||
           code == SQLITE_NOMEM;
}

// What the store has in its journal alone comes into the store: it must be whole for the case that nothing comes into its
// place after all. False of a damaged one, for which a copy is put back mostly.
bool MakeWhole(const fs::path &store, int busy_ms)
{
    std::optional<Database> old;
    try {
        old.emplace(store, Database::Mode::kReadWrite);
        CheckIsStore(*old); // SQLite finds the journal with the first read only
        old->EmptyJournal(busy_ms);
        return true;
    } catch (const StoreError &) {
        if (old && CanBeMended(*old))
            throw;
        return false;
    }
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

namespace {

// What SQLite says of a file that is no database is about a store.
void CheckIsCopy(Database &copy)
{
    try {
        CheckIsStore(copy);
    } catch (const StoreError &) {
        if ((sqlite3_errcode(copy.handle()) & kKind) != SQLITE_NOTADB)
            throw;
        throw StoreError("cannot use " + copy.path().string(), "it is not a store of the agent",
                         "use a file that syslogmon backup has made");
    }
    CheckIsWhole(copy);
}

void Replace(const fs::path &store, const fs::path &file, int busy_ms)
{
    Database copy(file, Database::Mode::kReadOnly);
    CheckIsCopy(copy);
    const CreationLock lock(store);
    std::optional<OwnerLock> owner;
    if (fs::exists(store))
        owner.emplace(store);
    const fs::path unfinished = store.string() + ".new";
    RemoveDatabase(unfinished);
    MakeEmptyFile(unfinished);
    bool is_whole = true;
    try {
        {
            Database made(unfinished, Database::Mode::kReadWrite);
            CopyPages(copy, made);
            made.Execute("PRAGMA journal_mode = WAL");
            made.Execute("PRAGMA wal_checkpoint(TRUNCATE)");
        }
        if (owner)
            is_whole = MakeWhole(store, busy_ms);
        // Also where the store is gone: SQLite would take the journal that it has left for the copy's.
        SetOldJournalAside(store);
        fs::rename(unfinished, store);
    } catch (const fs::filesystem_error &error) {
        RemoveDatabase(unfinished);
        throw StoreError("cannot replace " + store.string(), error.code().message(),
                         is_whole ? "mend that, and restore again; the store is as it was"
                                  : "mend that, and restore again; the store is as damaged as it "
                                    "was, and its journal is called agent.db-wal.old now");
    } catch (...) {
        RemoveDatabase(unfinished);
        throw;
    }
    SyncName(store);
    MarkStore(store);
}

} // namespace

void RestoreStore(const fs::path &file, const fs::path &store, int busy_ms)
{
    Replace(store, file, busy_ms);
    // Those who may read it and not write need a journal beside it, which comes with the first opening.
    if (MakeReadable(store))
        const Store opened(store);
}

} // namespace host
