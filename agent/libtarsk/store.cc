#include "agent/libtarsk/store.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

#include "agent/libtarsk/error.h"
#include "agent/libtarsk/schema.h"

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
        fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (fd_ < 0)
            throw StoreError("cannot open " + path.string(), strerror(errno),
                             "make its folder writable, or run as root");
        while (flock(fd_, LOCK_EX) != 0 && errno == EINTR)
            continue;
    }
    ~CreationLock() { close(fd_); }
    CreationLock(const CreationLock &) = delete;
    CreationLock &operator=(const CreationLock &) = delete;

  private:
    int fd_;
};

void CreateEmptyFile(const fs::path &path)
{
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0)
        throw StoreError("cannot create " + path.string(), strerror(errno),
                         "make its folder writable, or run as root");
    close(fd);
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
    fs::rename(unfinished, path);
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
}

void Store::Commit()
{
    try {
        database_->Execute("COMMIT");
    } catch (...) {
        RollBack();
        throw;
    }
}

void Store::RollBack() noexcept
{
    try {
        if (database_ && database_->InTransaction())
            database_->Execute("ROLLBACK");
    } catch (const StoreError &) {
        // SQLite has already rolled back by itself.
    }
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
    if (database_->InTransaction())
        Commit();
}

void Store::AbandonPass()
{
    const std::lock_guard lock(mutex_);
    RollBack();
    pass_failure_.clear();
}

void Store::Read(const std::function<void(Database &)> &action)
{
    const std::lock_guard lock(mutex_);
    action(*database_);
}

void Store::Write(const std::function<void(Database &)> &action)
{
    const std::lock_guard lock(mutex_);
    ++own_changes_;
    if (database_->InTransaction() && !in_passes_) {
        action(*database_); // part of a Transaction, which ends it
        return;
    }
    if (!pass_failure_.empty())
        throw StoreError(pass_failure_);
    try {
        if (!database_->InTransaction())
            Begin();
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
    const std::lock_guard lock(mutex_);
    data_version_->Start();
    data_version_->Next();
    const int64_t others = data_version_->Integer(0);
    data_version_->Reset();
    return (others << 32) + own_changes_;
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

} // namespace tarsk
