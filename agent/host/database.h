// SQLite, as the agent uses it: one connection, prepared statements, errors with a next step.
//
// A connection belongs to whoever made it; one thread at a time uses it and its statements. Nothing
// here takes locks of its own beyond SQLite's: the store does that. What fails throws StoreError
// (DiskFullError when there is no room), which names the file, the cause and what to do; whether a
// transaction is still open then is asked with InTransaction, because SQLite ends some by itself.
#ifndef AGENT_HOST_DATABASE_H
#define AGENT_HOST_DATABASE_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace host {

class Database;

// Bytes that are stored as they are, in an argument of Statement::Start. A string there would be
// stored as text.
struct Blob {
    std::string_view bytes;
};

// One prepared statement, kept for the life of its connection. Use it through Run, Next and the
// getters; every Run starts anew. Between a Start and the end of its rows it holds a read lock,
// which keeps the journal from being emptied: step to the end, or Reset.
class Statement {
  public:
    // Compiles the statement. Throws StoreError, also when a table or a column in it is missing.
    Statement(Database &database, const char *sql);
    ~Statement();
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    // Binds the arguments, in order, and gets ready to deliver rows.
    template <typename... Arguments>
    Statement &Start(const Arguments &...arguments)
    {
        Reset();
        int index = 0;
        (Bind(++index, arguments), ...);
        return *this;
    }
    // Delivers the next row; false at the end. Throws StoreError.
    bool Next();
    // Start, and step to the end.
    template <typename... Arguments>
    void Run(const Arguments &...arguments)
    {
        Start(arguments...);
        while (Next())
            continue;
        Reset();
    }

    // Columns of the current row, from 0. Bytes and text stay valid until the next call. A null is
    // 0, or empty; ask IsNull where that matters.
    [[nodiscard]] int64_t Integer(int column) const;
    [[nodiscard]] std::string Text(int column) const;
    [[nodiscard]] std::string_view Bytes(int column) const;
    [[nodiscard]] bool IsNull(int column) const;

    // Gives up the rows that are left, and with them the read lock.
    void Reset();

  private:
    void Bind(int index, int64_t value);
    void Bind(int index, int value) { Bind(index, int64_t{value}); }
    void Bind(int index, uint32_t value) { Bind(index, int64_t{value}); }
    void Bind(int index, std::string_view text);
    void Bind(int index, const std::string &text) { Bind(index, std::string_view(text)); }
    void Bind(int index, const char *text) { Bind(index, std::string_view(text)); }
    void Bind(int index, const Blob &blob);
    void Check(int result) const;

    Database &database_;
    sqlite3_stmt *statement_ = nullptr;
};

// A statement that its connection keeps: compiled when it is used for the first time, which takes ten times as long as
// to run it, and lent for the life of this object. Two at a time of one text are two statements.
class KeptStatement {
  public:
    // Throws StoreError when it cannot be compiled.
    KeptStatement(Database &database, std::string_view sql);
    ~KeptStatement();
    KeptStatement(const KeptStatement &) = delete;
    KeptStatement &operator=(const KeptStatement &) = delete;

    Statement *operator->() { return statement_.get(); }
    Statement &operator*() { return *statement_; }

  private:
    std::unique_ptr<Statement> &place_; // where the connection keeps it
    std::unique_ptr<Statement> statement_;
};

// What a connection does while another one holds the lock that it needs. The functions are called
// on the thread that waits, in the middle of a statement: they must not use this connection.
struct Patience {
    int milliseconds = 0;        // after this long the statement fails
    int tell_after_ms = 1000;    // after this long a wait is told of
    std::function<void()> began; // called then, once per wait
    std::function<void()> over;  // called when a wait that was told of has ended, however
    std::function<bool()> leave; // asked all the time: true ends the wait, and the statement fails
};

class Database {
  public:
    enum class Mode { kReadWrite, kReadOnly };

    // Opens an existing database. Throws StoreError, also for a file that cannot be written as
    // wanted. It waits for no lock until SetPatience.
    Database(const std::filesystem::path &path, Mode mode);
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    // Runs statements whose rows do not matter, several with semicolons between them. Throws
    // StoreError; those before the one that failed have been done.
    void Execute(const char *sql);
    // Of the last INSERT of this connection, by whichever statement.
    [[nodiscard]] int64_t LastInsertId() const;
    [[nodiscard]] int64_t ChangesOfLastStatement() const;
    [[nodiscard]] bool InTransaction() const;

    // How long a statement waits for another process's lock before it fails, and who hears of it.
    void SetPatience(Patience patience) { patience_ = std::move(patience); }
    void SetPatience(int milliseconds, std::function<void()> began);

    // Writes the journal into the file and cuts it to nothing, if that can be done within so many
    // milliseconds. Throws StoreError.
    void EmptyJournal(int milliseconds);

    // From now on the journal and its index stay, empty, when the last connection is closed. Throws StoreError.
    void KeepJournal();

    // How many statements were compiled for this connection. For tests.
    [[nodiscard]] int64_t CompiledStatements() const { return compiled_; }

    [[nodiscard]] const std::filesystem::path &path() const { return path_; }
    [[nodiscard]] sqlite3 *handle() const { return database_; }

    // Throws StoreError for the last failure of this connection.
    [[noreturn]] void Fail(const std::string &doing) const;

  private:
    friend class Statement;
    friend class KeptStatement;
    // `self` is the connection; see sqlite3_busy_handler.
    static int OnBusy(void *self, int calls);
    void EndWait(); // a statement is done with, and so with its wait

    std::filesystem::path path_;
    sqlite3 *database_ = nullptr;
    // By their text; null: it is lent.
    std::map<std::string, std::unique_ptr<Statement>, std::less<>> kept_;
    int64_t compiled_ = 0;
    Patience patience_;
    // On the steady clock, in milliseconds; of the wait that is under way, if one is.
    int64_t waiting_since_ms_ = 0;
    bool long_wait_told_ = false;
};

} // namespace host

#endif // AGENT_HOST_DATABASE_H
