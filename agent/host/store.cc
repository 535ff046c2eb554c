#include "agent/host/store.h"

#include <atomic>
#include <system_error>

#include "agent/host/error.h"
#include "agent/host/private_file.h"
#include "agent/host/schema.h"

namespace host {

namespace fs = std::filesystem;

namespace {

// A pass over gigabytes of log can hold the write lock for minutes; a command waits for it, and can
// be ended by whoever sits in front of it.
constexpr int kPatienceMs = 10 * 60 * 1000;
// How long the emptying of the journal waits for those who read it. There is a next time.
constexpr int kEmptyingMs = 1000;
// A journal of a pass that is longer than this is emptied at once. Shorter ones SQLite uses again.
constexpr int64_t kUsualJournal = int64_t{4} * 1024 * 1024;

// Numbers passes, of all stores of this process, so that what belongs to a pass is known by one
// number alone.
std::atomic<int64_t> newest_pass = 0;

// A full disk alone is a reason to let the reserve go.
bool IsFull(const std::exception &error)
{
    return dynamic_cast<const DiskFullError *>(&error) != nullptr;
}

// FULL, because a pass that was committed must be there after a power cut, too: its lines are not read
// again.
void Configure(Database &database)
{
    database.SetPatience(kPatienceMs, nullptr);
    database.Execute("PRAGMA synchronous = FULL");
    database.Execute("PRAGMA foreign_keys = ON");
    // What a large change needed of the journal is given back afterwards.
    database.Execute(("PRAGMA journal_size_limit = " + std::to_string(kUsualJournal)).c_str());
}

} // namespace

Store::Store(const fs::path &path, StoreUse use) : reserve_(path), pass_(++newest_pass)
{
    try {
        if (use == StoreUse::kReader)
            OpenToRead(path);
        else
            OpenToWrite(path, use);
    } catch (const fs::filesystem_error &error) {
        throw StoreError("cannot open " + path.string(), error.code().message(),
                         "make the file and its folder readable and writable, or run as root");
    }
    // Behind the schema: each opening, also of a copy, has a series of its own.
    data_version_ = std::make_unique<Statement>(*database_, "PRAGMA data_version");
    uuid_ = ReadUuid(*database_);
    series_ = NewUuid(path);
}

// Under the creation lock from the first look to the last word about the schema: programs that start
// together make one store. The owner's lock is taken before SQLite opens the file; see OwnerLock. The
// file is looked at again once it is open, because it could be replaced between two looks.
void Store::OpenToWrite(const fs::path &path, StoreUse use)
{
    const CreationLock lock(path);
    MakeStore(path);
    if (use == StoreUse::kDaemon)
        owner_.emplace(path);
    // Before it is opened: SQLite gives the journal the mode and the group of the file.
    const bool has_readers = MakeReadable(path);
    identity_ = IdentityOf(path);
    database_ = std::make_unique<Database>(path, Database::Mode::kReadWrite);
    CheckIdentity();
    Configure(*database_);
    // Who may not write the folder can read the file only as long as its journal is there.
    if (has_readers)
        database_->KeepJournal();
    UpdateSchema(*database_);
    MarkStore(path);
    // An old journal has what it had, and a new one the group of the file only when root makes it.
    for (const char *suffix : {"-wal", "-shm"})
        MakeReadable(path.string() + suffix);
}

void Store::OpenToRead(const fs::path &path)
{
    identity_ = IdentityOf(path);
    database_ = std::make_unique<Database>(path, Database::Mode::kReadOnly);
    CheckIdentity();
    database_->SetPatience(kPatienceMs, nullptr);
    CheckSchema(*database_);
}

// What a pass has not committed goes. The members go after it, the owner's lock behind the
// database.
Store::~Store()
{
    RollBack();
}

// quick_check reads each page and the order in it, and leaves out whether indexes agree with their
// tables: that would take longer. It ends with the first damage.
void Store::CheckIntegrity()
{
    const std::lock_guard lock(mutex_);
    Statement check(*database_, "PRAGMA quick_check(1)");
    check.Start();
    if (!check.Next() || check.Text(0) != "ok")
        throw StoreError("cannot use " + database_->path().string(),
                         "it is damaged (" + check.Text(0) + ")", kReplaceStore);
}

void Store::CheckIdentity() const
{
    const fs::path &path = database_->path();
    if (IdentityOf(path) != identity_)
        throw StoreError("cannot use " + path.string(),
                         "it was replaced by another file while it was in use",
                         "start the program again");
}

bool Store::IsInPlace()
{
    const std::lock_guard lock(mutex_);
    return MayBe(database_->path(), identity_);
}

void Store::StartPasses()
{
    const std::lock_guard lock(mutex_);
    in_passes_ = true;
}

// Made at once, while there is room for it.
void Store::KeepReserve()
{
    const std::lock_guard lock(mutex_);
    keeps_reserve_ = true;
    reserve_.Keep();
}

fs::path Store::Journal() const
{
    // SQLite's own name for it.
    return database_->path().string() + "-wal";
}

// The room is worked out with the first alert of a pass, so that a pass without one asks no file system.
bool Store::TakeRoom(int64_t bytes)
{
    const std::lock_guard lock(mutex_);
    if (!in_passes_)
        return true;
    if (!pass_room_)
        pass_room_ = RoomOfAPass(FreeSpace(database_->path()), reserve_.Size(), SizeOf(Journal()));
    if (*pass_room_ < bytes)
        return false;
    *pass_room_ -= bytes;
    return true;
}

int64_t Store::PassNumber()
{
    const std::lock_guard lock(mutex_);
    return pass_;
}

// IMMEDIATE: the write lock is taken now, and waited for now. Taken with the first write, it could be
// refused to a transaction that has read an older state.
void Store::Begin()
{
    journal_before_ = in_passes_ ? SizeOf(Journal()) : 0;
    database_->Execute("BEGIN IMMEDIATE");
    ++transaction_;
    is_open_ = true;
}

// The last look at the file before it: what is committed into a file that was removed is stored nowhere.
void Store::Commit()
{
    try {
        CheckStillOpen();
        CheckIdentity();
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

// A pass that is broken ends here, not where it broke: the module goes on to its rest and hears of it
// there. A pass without a write still looks whether the file is in place, since a command may be
// talking to another one by now.
void Store::CommitPass()
{
    const std::lock_guard lock(mutex_);
    if (!pass_failure_.empty()) {
        const StoreError failure(pass_failure_);
        AbandonPass();
        throw failure;
    }
    const bool has_written = is_open_;
    try {
        if (is_open_)
            Commit();
        else
            CheckIdentity();
    } catch (const StoreError &error) {
        EndPass();
        GiveSpaceBack(IsFull(error));
        throw;
    }
    EndPass();
    if (has_written)
        TidyUp();
}

void Store::AbandonPass()
{
    const std::lock_guard lock(mutex_);
    const bool has_written = is_open_;
    RollBack();
    pass_failure_.clear();
    EndPass();
    if (has_written)
        GiveSpaceBack(false);
}

// Numbers of passes are never used again, also not after one that was rolled back.
void Store::EndPass()
{
    pass_ = ++newest_pass;
    pass_room_.reset();
}

// Behind a pass that was stored.
void Store::TidyUp()
{
    if (SizeOf(Journal()) > kUsualJournal)
        EmptyJournal();
    if (keeps_reserve_)
        reserve_.Keep();
}

// Behind a pass that was rolled back. What it wrote is in the journal, and of no use; but only a
// journal that was written into the store can be cut. On a full disk, the reserve is the room for it.
void Store::GiveSpaceBack(bool disk_is_full) noexcept
{
    if (!in_passes_)
        return;
    if (disk_is_full && keeps_reserve_)
        reserve_.LetGo();
    if (disk_is_full || SizeOf(Journal()) > journal_before_)
        EmptyJournal();
}

void Store::EmptyJournal() noexcept
{
    try {
        database_->EmptyJournal(kEmptyingMs);
    } catch (const StoreError &) {
        // Somebody reads it, or the disk is full all the same. The next pass tries again.
    }
}

void Store::FailPass(const std::exception &error)
{
    const std::lock_guard lock(mutex_);
    if (in_passes_)
        BreakPass(error);
}

// The pass has failed: nothing more of it is stored.
void Store::BreakPass(const std::exception &error)
{
    RollBack();
    if (!in_passes_ || !pass_failure_.empty())
        return;
    pass_failure_ = error.what();
    GiveSpaceBack(IsFull(error));
}

// Three ways in which a write ends, by who asked for it:
//
//   within a Transaction   with it
//   in passes              with the pass; the first write of a pass begins its transaction
//   otherwise              at once
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
        BreakPass(error);
        throw;
    }
}

// SQLite's number tells of the changes of others, and not of those that go through this connection.
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
    Patience patience;
    patience.began = std::move(tell);
    SetWait(std::move(patience));
}

void Store::SetWait(Patience patience)
{
    const std::lock_guard lock(mutex_);
    patience.milliseconds = kPatienceMs;
    database_->SetPatience(std::move(patience));
}

// One within another has no lock of its own, by which it is known; the outer one's holds for both. What
// it does is committed with the outer one; when it fails, nothing of the outer one is left to commit.
Transaction::Transaction(Store &store) : store_(store), lock_(store.mutex())
{
    open_ = true;
    if (store_.is_open_ && !store_.in_passes_)
        lock_.unlock();
    else
        store_.Begin();
}

Transaction::~Transaction()
{
    if (open_)
        store_.RollBack();
}

void Transaction::Commit()
{
    open_ = false;
    if (!lock_.owns_lock())
        return;
    store_.Commit();
    ++store_.own_changes_;
}

// SQLite fixes the state that is seen with the first read behind BEGIN.
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

} // namespace host
