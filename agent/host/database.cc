#include "agent/host/database.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <sys/stat.h>
#include <utility>

#include <sqlite3.h>

#include "agent/host/error.h"
#include "agent/host/waitable.h"

namespace host {

namespace {

// Between two tries for a lock: 1 ms, doubled up to this. Most holders are done in less than that.
constexpr int kRetryMs = 20;

int64_t SteadyMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

// The error number of the system call that made SQLite fail, or 0 when there is none. SQLite keeps
// the number of an earlier failure, so it counts only behind a result that comes from a system
// call.
int SystemError(sqlite3 *database)
{
    const int code = sqlite3_errcode(database) & 0xFF;
    return code == SQLITE_IOERR || code == SQLITE_CANTOPEN ? sqlite3_system_errno(database) : 0;
}

// SQLite's words, and the system's where they say more: "disk I/O error" alone leaves open what is
// wrong with the disk.
std::string Cause(sqlite3 *database)
{
    const int error_number = SystemError(database);
    const std::string cause = sqlite3_errmsg(database);
    return error_number != 0 ? cause + " (" + strerror(error_number) + ")" : cause;
}

// A quota that is used up is a full disk to whoever runs the agent; to SQLite it is a failed write.
bool IsFull(int code, int error_number)
{
    return (code & 0xFF) == SQLITE_FULL || error_number == ENOSPC || error_number == EDQUOT;
}

// What an administrator can do about a failure of SQLite. Where the system said why, that counts: a
// read-only mount shows itself as a failed write, too.
const char *NextStep(int code, int error_number)
{
    if (error_number == EROFS || error_number == EACCES || error_number == EPERM)
        code = SQLITE_PERM;
    switch (code & 0xFF) {
    case SQLITE_FULL:
        return "free some space on its disk";
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
        return "make the file and its folder writable, or run as root";
    case SQLITE_CANTOPEN:
        return "check that the file exists and can be read, and run as root";
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return "another program holds its lock; find it with fuser and try again";
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return "the file is damaged; put a copy of it back, or move it away with has-store beside "
               "it"
               " to start with nothing";
    case SQLITE_IOERR:
        return "check the disk and the kernel log";
    case SQLITE_PROTOCOL:
        return "keep the store on a file system that has locks";
    case SQLITE_NOMEM:
        return "free some memory";
    default:
        return "this is a fault of the agent; keep the trace log";
    }
}

// SQLite's locks belong to the process, and go with any of its descriptors of the file that is closed. SQLite keeps those
// that it knows; but when it cannot find out which file it has opened, it closes it at once. All connections of this
// process have lost the lock then that keeps others from taking the journal away from them, and what they go on to write
// damages the store. So that lock is taken again, at a descriptor that stays open: the bytes that SQLite's file format
// has for readers.
constexpr off_t kReadersBegin = 0x40000002;
constexpr off_t kReadersBytes = 510;

void TakeLockAgain(const std::string &path)
{
    static std::mutex guard;
    static std::map<std::pair<dev_t, ino_t>, Fd> kept;
    struct stat file = {};
    if (stat(path.c_str(), &file) != 0)
        return;
    const std::lock_guard holding(guard);
    Fd &fd = kept[{file.st_dev, file.st_ino}];
    if (fd.get() < 0)
        fd = Fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = kReadersBegin;
    lock.l_len = kReadersBytes;
    (void)fcntl(fd.get(), F_SETLK, &lock);
}

// Never null: SQLite takes a null pointer for no value, not for an empty one.
const char *Data(std::string_view bytes)
{
    return bytes.empty() ? "" : bytes.data();
}

} // namespace

Statement::Statement(Database &database, const char *sql) : database_(database)
{
    ++database.compiled_;
    // PERSISTENT: most statements live as long as their connection. SQLite then takes their memory
    // from elsewhere than its small reserve for short ones.
    if (sqlite3_prepare_v3(database.handle(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement_,
                           nullptr) != SQLITE_OK)
        database.Fail("cannot use");
}

Statement::~Statement()
{
    sqlite3_finalize(statement_);
}

// The result of sqlite3_reset is the failure of the last step again, which was told then.
void Statement::Reset()
{
    sqlite3_reset(statement_);
}

bool Statement::Next()
{
    const int result = sqlite3_step(statement_);
    database_.EndWait();
    if (result == SQLITE_ROW)
        return true;
    if (result == SQLITE_DONE) {
        sqlite3_reset(statement_);
        return false;
    }
    // The failure stays readable behind the reset.
    sqlite3_reset(statement_);
    database_.Fail(sqlite3_stmt_readonly(statement_) != 0 ? "cannot read" : "cannot write to");
}

void Statement::Check(int result) const
{
    if (result != SQLITE_OK)
        database_.Fail("cannot use");
}

void Statement::Bind(int index, int64_t value)
{
    Check(sqlite3_bind_int64(statement_, index, value));
}

void Statement::Bind(int index, std::string_view text)
{
    // TRANSIENT: SQLite copies. The text may be a temporary of the caller's, and the row is written
    // later, in Next.
    Check(sqlite3_bind_text64(statement_, index, Data(text), text.size(), SQLITE_TRANSIENT,
                              SQLITE_UTF8));
}

void Statement::Bind(int index, const Blob &blob)
{
    Check(sqlite3_bind_blob64(statement_, index, Data(blob.bytes), blob.bytes.size(),
                              SQLITE_TRANSIENT));
}

int64_t Statement::Integer(int column) const
{
    return sqlite3_column_int64(statement_, column);
}

// With zero bytes within it, if there are some: the registry stores texts with theirs.
std::string Statement::Text(int column) const
{
    return std::string(Bytes(column));
}

std::string_view Statement::Bytes(int column) const
{
    // The length behind the pointer: asked for the other way round, SQLite may convert in between.
    // Of an empty value the pointer is null, and its length 0.
    const auto *data = static_cast<const char *>(sqlite3_column_blob(statement_, column));
    return {data, static_cast<size_t>(sqlite3_column_bytes(statement_, column))};
}

bool Statement::IsNull(int column) const
{
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

KeptStatement::KeptStatement(Database &database, std::string_view sql)
    : place_([&]() -> std::unique_ptr<Statement> & {
          const auto found = database.kept_.find(sql);
          return found != database.kept_.end() ? found->second : database.kept_[std::string(sql)];
      }()),
      statement_(std::move(place_))
{
    if (!statement_)
        statement_ = std::make_unique<Statement>(database, std::string(sql).c_str());
}

// Of two that were lent at a time, one is kept.
KeptStatement::~KeptStatement()
{
    statement_->Reset();
    if (!place_)
        place_ = std::move(statement_);
}

Database::Database(const std::filesystem::path &path, Mode mode) : path_(path)
{
    const int flags = mode == Mode::kReadOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
    // FULLMUTEX: a connection is used by one thread at a time, under the store's lock, but not
    // always by the same one. Without CREATE: a missing file is an error; stores are made in one
    // place alone.
    const int result =
        sqlite3_open_v2(path.c_str(), &database_, flags | SQLITE_OPEN_FULLMUTEX, nullptr);
    try {
        if (result != SQLITE_OK)
            Fail("cannot open");
        // SQLite opens a file that it may not write for reading, and would fail at the first write.
        if (mode == Mode::kReadWrite && sqlite3_db_readonly(database_, "main") == 1)
            throw StoreError("cannot write to " + path.string(), "it can only be read",
                             NextStep(SQLITE_READONLY, 0));
    } catch (...) {
        // Also after a failed open: SQLite gives an object, for its message.
        sqlite3_close_v2(database_);
        if (result == SQLITE_IOERR)
            TakeLockAgain(path);
        throw;
    }
    // From here on the failures of system calls differ by the call.
    sqlite3_extended_result_codes(database_, 1);
    sqlite3_busy_handler(database_, OnBusy, this);
}

Database::~Database()
{
    kept_.clear();
    // The form for which statements may still be there.
    sqlite3_close_v2(database_);
}

void Database::Execute(const char *sql)
{
    const int result = sqlite3_exec(database_, sql, nullptr, nullptr, nullptr);
    EndWait();
    if (result != SQLITE_OK)
        Fail("cannot use");
}

int64_t Database::LastInsertId() const
{
    return sqlite3_last_insert_rowid(database_);
}

int64_t Database::ChangesOfLastStatement() const
{
    return sqlite3_changes64(database_);
}

bool Database::InTransaction() const
{
    return sqlite3_get_autocommit(database_) == 0;
}

void Database::SetPatience(int milliseconds, std::function<void()> began)
{
    Patience patience;
    patience.milliseconds = milliseconds;
    patience.began = std::move(began);
    SetPatience(std::move(patience));
}

// Its own, shorter patience, and no word to anybody: nobody waits for this, and it is tried again.
void Database::EmptyJournal(int milliseconds)
{
    const Patience usual = std::exchange(patience_, Patience{});
    patience_.milliseconds = milliseconds;
    const int result =
        sqlite3_wal_checkpoint_v2(database_, "main", SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    patience_ = usual;
    if (result != SQLITE_OK)
        Fail("cannot write to");
}

void Database::KeepJournal()
{
    int keep = 1;
    if (sqlite3_file_control(database_, "main", SQLITE_FCNTL_PERSIST_WAL, &keep) != SQLITE_OK)
        Fail("cannot use");
}

// Behind every statement, since it is the only sign that a wait has ended: SQLite does not tell
// when it has got the lock.
void Database::EndWait()
{
    if (std::exchange(long_wait_told_, false) && patience_.over)
        patience_.over();
}

// SQLite calls this when a lock is taken, with the number of its calls for this wait. 0 gives up:
// the statement fails with SQLITE_BUSY. Its own time-out would do the same, but it could neither be
// told of nor be left.
int Database::OnBusy(void *self, int calls)
{
    auto *database = static_cast<Database *>(self);
    const int64_t now = SteadyMs();
    if (calls == 0)
        database->waiting_since_ms_ = now;
    const int64_t waited = now - database->waiting_since_ms_;
    const Patience &patience = database->patience_;
    if (waited >= patience.milliseconds || (patience.leave && patience.leave()))
        return 0;
    if (waited >= patience.tell_after_ms && !database->long_wait_told_) {
        database->long_wait_told_ = true;
        if (patience.began)
            patience.began();
    }
    const int pause_ms = calls < 5 ? std::min(kRetryMs, 1 << calls) : kRetryMs;
    const timespec pause{0, pause_ms * 1000L * 1000L};
    nanosleep(&pause, nullptr);
    return 1;
}

void Database::Fail(const std::string &doing) const
{
    const int code = sqlite3_errcode(database_);
    const int error_number = SystemError(database_);
    // A read can need room, too: for the index of the journal.
    if (IsFull(code, error_number))
        throw DiskFullError("cannot write to " + path_.string(), Cause(database_),
                            NextStep(SQLITE_FULL, 0));
    throw StoreError(doing + " " + path_.string(), Cause(database_), NextStep(code, error_number));
}

} // namespace host
