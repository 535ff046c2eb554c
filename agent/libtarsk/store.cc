#include "agent/libtarsk/store.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <system_error>

#include "agent/libtarsk/error.h"
#include "agent/libtarsk/schema.h"
#include "agent/libtarsk/waitable.h"

namespace tarsk {

namespace fs = std::filesystem;

namespace {

// A pass over gigabytes of log can hold the write lock for minutes; a command waits for it.
constexpr int kPatienceMs = 10 * 60 * 1000;

// Held while the store is created or its schema changed, so that programs that start together take
// turns.
class CreationLock {
  public:
    explicit CreationLock(const fs::path &store)
    {
        const fs::path path = store.string() + ".lock";
        fd_ = Fd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        if (fd_.get() < 0)
            throw StoreError("cannot open " + path.string(), strerror(errno),
                             "make its folder writable, or run as root");
        while (flock(fd_.get(), LOCK_EX) != 0) {
            if (errno != EINTR)
                throw StoreError("cannot lock " + path.string(), strerror(errno),
                                 "keep the store on a file system that has locks");
        }
    }

  private:
    Fd fd_;
};

void CreateEmptyFile(const fs::path &path)
{
    const Fd fd(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (fd.get() < 0)
        throw StoreError("cannot create " + path.string(), strerror(errno),
                         "make its folder writable, or run as root");
}

// Puts the names in a folder on its disk.
void SyncFolder(const fs::path &path)
{
    const Fd fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.get() < 0 || fsync(fd.get()) != 0)
        throw StoreError("cannot write to the folder " + path.string(), strerror(errno),
                         "check the disk and the kernel log");
}

// A store that was moved away can have left its journal. The new store must not take it for its
// own; and it may hold what the moved one lacks, so it is kept.
void SetOldJournalAside(const fs::path &path)
{
    for (const char *suffix : {"-wal", "-shm"}) {
        const fs::path left = path.string() + suffix;
        if (fs::exists(left))
            fs::rename(left, left.string() + ".old");
    }
}

// Makes a complete store under another name first: a program that dies half-way leaves nothing that
// looks like a store.
void Create(const fs::path &path)
{
    const fs::path unfinished = path.string() + ".new";
    for (const char *suffix : {"", "-wal", "-shm"})
        fs::remove(unfinished.string() + suffix);
    CreateEmptyFile(unfinished);
    {
        Database database(unfinished, Database::Mode::kReadWrite);
        // Kept in the file, so every later connection has it.
        database.Execute("PRAGMA journal_mode = WAL");
        database.Execute("PRAGMA synchronous = FULL");
        CreateSchema(database);
        database.Execute("PRAGMA wal_checkpoint(TRUNCATE)");
    }
    SetOldJournalAside(path);
    fs::rename(unfinished, path);
    SyncFolder(path.parent_path());
}

void CheckFile(const fs::path &path)
{
    if (fs::file_size(path) == 0)
        throw StoreError("cannot use " + path.string(), "the file is empty",
                         "put a copy of it back, or move it away to start with nothing");
}

void Configure(Database &database)
{
    database.SetPatience(kPatienceMs, nullptr);
    database.Execute("PRAGMA synchronous = FULL");
    database.Execute("PRAGMA foreign_keys = ON");
    // What a long pass needed of the journal is given back afterwards.
    database.Execute("PRAGMA journal_size_limit = 16777216");
}

} // namespace

Store::Store(const fs::path &path)
{
    try {
        const CreationLock lock(path);
        if (!fs::exists(path))
            Create(path);
        CheckFile(path);
        database_ = std::make_unique<Database>(path, Database::Mode::kReadWrite);
        Configure(*database_);
        UpdateSchema(*database_);
    } catch (const fs::filesystem_error &error) {
        throw StoreError("cannot open " + path.string(), error.code().message(),
                         "make the file and its folder readable and writable, or run as root");
    }
    data_version_ = std::make_unique<Statement>(*database_, "PRAGMA data_version");
    uuid_ = ReadUuid(*database_);
}

Store::~Store()
{
    RollBack();
}

void Store::CheckIntegrity()
{
    const std::lock_guard lock(mutex_);
    Statement check(*database_, "PRAGMA quick_check(1)");
    check.Start();
    if (!check.Next() || check.Text(0) != "ok")
        throw StoreError("cannot use " + database_->path().string(),
                         "it is damaged (" + check.Text(0) + ")",
                         "put a copy of it back, or move it away to start with nothing");
}

void Store::StartPasses()
{
    const std::lock_guard lock(mutex_);
    in_passes_ = true;
}

void Store::Begin()
{
    database_->Execute("BEGIN IMMEDIATE");
    ++transaction_;
    is_open_ = true;
}

void Store::Commit()
{
    try {
        CheckStillOpen();
        database_->Execute("COMMIT");
        is_open_ = false;
    } catch (...) {
        RollBack();
        throw;
    }
}

// SQLite ends a transaction by itself after some failures. What would follow is then no longer the
// rest of it, and must not be stored alone.
void Store::CheckStillOpen() const
{
    if (is_open_ && !database_->InTransaction())
        throw StoreError("cannot store a change in " + database_->path().string(),
                         "an earlier part of it failed", "see the messages before this one");
}

void Store::RollBack() noexcept
{
    try {
        if (database_ && database_->InTransaction())
            database_->Execute("ROLLBACK");
    } catch (const StoreError &) {
        // SQLite has already rolled back by itself.
    }
    if (is_open_)
        rolled_back_.insert(transaction_);
    is_open_ = false;
    ++own_changes_; // what was seen in the transaction is gone
}

void Store::CommitPass()
{
    const std::lock_guard lock(mutex_);
    if (!pass_failure_.empty()) {
        const StoreError failure(pass_failure_);
        AbandonPass();
        throw failure;
    }
    if (is_open_)
        Commit();
}

void Store::AbandonPass()
{
    const std::lock_guard lock(mutex_);
    RollBack();
    pass_failure_.clear();
}

// A read failed: see S3.
void Store::BreakPass(const StoreError &error)
{
    if (!in_passes_)
        return;
    RollBack();
    if (pass_failure_.empty())
        pass_failure_ = error.what();
}

void Store::Write(const std::function<void(Database &)> &action)
{
    const std::lock_guard lock(mutex_);
    ++own_changes_;
    if (is_open_ && !in_passes_) {
        CheckStillOpen();
        action(*database_); // part of a Transaction, which ends it
        return;
    }
    if (!pass_failure_.empty())
        throw StoreError(pass_failure_);
    try {
        if (!is_open_)
            Begin();
        CheckStillOpen();
        action(*database_);
        if (!in_passes_)
            Commit();
    } catch (const std::exception &error) {
        RollBack();
        if (in_passes_)
            pass_failure_ = error.what();
        throw;
    }
}

int64_t Store::ChangeCount()
{
    return Read([&](Database &) {
        data_version_->Start();
        data_version_->Next();
        const int64_t others = data_version_->Integer(0);
        data_version_->Reset();
        return (others << 32) + own_changes_;
    });
}

int64_t Store::CurrentTransaction()
{
    const std::lock_guard lock(mutex_);
    return is_open_ ? transaction_ : 0;
}

bool Store::WasRolledBack(int64_t transaction)
{
    const std::lock_guard lock(mutex_);
    return transaction != 0 && rolled_back_.contains(transaction);
}

void Store::OnLongWait(std::function<void()> tell)
{
    const std::lock_guard lock(mutex_);
    database_->SetPatience(kPatienceMs, std::move(tell));
}

Transaction::Transaction(Store &store) : store_(store), lock_(store.mutex())
{
    store_.Begin();
    open_ = true;
}

Transaction::~Transaction()
{
    if (open_)
        store_.RollBack();
}

void Transaction::Commit()
{
    open_ = false;
    store_.Commit();
    ++store_.own_changes_;
}

Snapshot::Snapshot(Store &store) : store_(store), lock_(store.mutex())
{
    if (store_.database().InTransaction())
        return;
    store_.database().Execute("BEGIN");
    open_ = true;
}

Snapshot::~Snapshot()
{
    if (!open_)
        return;
    try {
        store_.database().Execute("COMMIT"); // of reads alone: gives up the state that was seen
    } catch (const StoreError &) {
        store_.RollBack();
    }
}

} // namespace tarsk
