// SQLite, as the agent uses it: one connection, prepared statements, errors with a next step.
#ifndef AGENT_HOST_DATABASE_H
#define AGENT_HOST_DATABASE_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace host {

class Database;

// Bytes that are stored as they are, in an argument of Statement::Start.
struct Blob {
    std::string_view bytes;
};

// One prepared statement, kept for the life of its connection. Use it through Run, Next and the
// getters; every Run starts anew.
class Statement {
  public:
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

    // Columns of the current row, from 0. Bytes and text stay valid until the next call.
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

// What a connection does while another one holds the lock that it needs.
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
    // wanted.
    Database(const std::filesystem::path &path, Mode mode);
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    void Execute(const char *sql);
    [[nodiscard]] int64_t LastInsertId() const;
    [[nodiscard]] int64_t ChangesOfLastStatement() const;
    [[nodiscard]] bool InTransaction() const;

    // How long a statement waits for another process's lock before it fails, and who hears of it.
    void SetPatience(Patience patience) { patience_ = std::move(patience); }
    void SetPatience(int milliseconds, std::function<void()> began);

    // Writes the journal into the file and cuts it to nothing, if that can be done within so many
    // milliseconds. Throws StoreError.
    void EmptyJournal(int milliseconds);

    [[nodiscard]] const std::filesystem::path &path() const { return path_; }
    [[nodiscard]] sqlite3 *handle() const { return database_; }

    // Throws StoreError for the last failure of this connection.
    [[noreturn]] void Fail(const std::string &doing) const;

  private:
    friend class Statement;
    static int OnBusy(void *self, int calls);
    void EndWait(); // a statement is done with, and so with its wait

    std::filesystem::path path_;
    sqlite3 *database_ = nullptr;
    Patience patience_;
    int64_t waiting_since_ms_ = 0;
    bool long_wait_told_ = false;
};

} // namespace host

#endif // AGENT_HOST_DATABASE_H
