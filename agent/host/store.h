// The agent's store: registry, alerts, deliveries and hit counters in one SQLite file.
//
// The daemon's monitor thread works in passes. What it writes between two waits is one transaction,
// opened by the first write and committed when the module waits again. So after a crash at any
// instant the resume points, the alerts and the hit counters agree: a broken pass was never stored,
// and its lines are read again. When any write of a pass fails, the pass is broken: it is rolled
// back as a whole.
//
// Rules:
//   S1  A write outside a pass and outside a Transaction is a transaction of its own.
//   S2  In a pass, the first write opens the transaction; CommitPass or AbandonPass ends it.
//   S3  After a failed write or read in a pass nothing more of the pass is stored: each later write,
//       and CommitPass, fails with the words of the first failure, which name the cause. A read
//       counts, because SQLite ends the transaction after some failures of it, and because what the
//       monitor takes for a missing value would be stored.
//   S4  The file is created whole, under another name, and then renamed. So an empty or half-made
//       file is damage, and never taken for an empty registry. Nor is a missing one, where there was
//       a store before.
//   S5  All calls hold the store's lock; a Transaction and a Snapshot hold it for their life.
//   S6  Before each commit, the path must still stand for the file that was opened: what is stored
//       in one that was removed or replaced, nobody would see.
//   S7  What a pass may store is bounded (TakeRoom). A pass that was rolled back gives the room that
//       it took back at once.
#ifndef AGENT_HOST_STORE_H
#define AGENT_HOST_STORE_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <set>
#include <string>

#include "agent/host/database.h"
#include "agent/host/error.h"
#include "agent/host/room.h"
#include "agent/host/store_file.h"

namespace host {

enum class StoreUse {
    kShared, // beside others
    kDaemon, // as the one daemon of the store; fails when there is another
    kReader, // may not write it: nothing is created, nothing is brought up to date
};

class Store {
  public:
    // Opens the store, creating it (once, even when several programs start together) or bringing an
    // older schema up to date. Throws StoreError.
    explicit Store(const std::filesystem::path &path, StoreUse use = StoreUse::kShared);
    ~Store();
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    // Reads the whole file for damage. Throws StoreError when there is some.
    void CheckIntegrity();

    // From now on, writes of this process belong to passes.
    void StartPasses();

    // Ends a pass. Throws StoreError when it could not be stored; it is then rolled back. A pass
    // that wrote nothing costs nothing.
    void CommitPass();

    // Rolls back what the pass has written.
    void AbandonPass();

    // From now on, keeps a reserve of disk space beside the store, with which passes get out of a
    // full disk.
    void KeepReserve();

    // Takes so many bytes out of what the pass may store. False: it has not so many left, and should
    // store no more than it must. Outside passes there is always room.
    bool TakeRoom(int64_t bytes);

    // A number that no other pass of this process has.
    int64_t PassNumber();

    // Does something with the database, under the lock, and returns what it returns. `Write` sees to
    // the transaction.
    template <typename Action>
    auto Read(const Action &action)
    {
        const std::lock_guard lock(mutex_);
        try {
            return action(*database_);
        } catch (const StoreError &error) {
            FailPass(error);
            throw;
        } catch (const std::bad_alloc &error) {
            FailPass(error);
            throw;
        }
    }
    // A call of the module has failed, so the module knows or has stored less than there is: in passes, the one that is
    // under way is not stored.
    void FailPass(const std::exception &error);
    void Write(const std::function<void(Database &)> &action);

    [[nodiscard]] Database &database() { return *database_; }
    [[nodiscard]] std::recursive_mutex &mutex() { return mutex_; }

    // A number that is another one after any change by this or another process.
    int64_t ChangeCount();

    // The number of the transaction that is open, or 0; and whether the one of that number was rolled
    // back. Numbers are those of this object alone.
    int64_t CurrentTransaction();
    bool WasRolledBack(int64_t transaction);

    // Tells this store from others. A copy has the same.
    [[nodiscard]] const std::string &uuid() const { return uuid_; }
    // Of this opening of the store, and of no other one, of no copy either: alerts that are added
    // through this object have it in their keys.
    [[nodiscard]] const std::string &series() const { return series_; }
    // The file that was opened; and does the path still stand for it?
    [[nodiscard]] const FileIdentity &identity() const { return identity_; }
    bool IsInPlace();

    // What a command says when it waits for more than a second. The default says nothing.
    void OnLongWait(std::function<void()> tell);
    // All that is done about a wait; its length is the store's.
    void SetWait(Patience patience);

  private:
    void OpenToWrite(const std::filesystem::path &path, StoreUse use);
    void OpenToRead(const std::filesystem::path &path);
    friend class Transaction;
    friend class Snapshot;
    void Begin();
    void Commit();
    void RollBack() noexcept;
    void CheckStillOpen() const;
    void CheckIdentity() const;
    void EndPass();
    void BreakPass(const std::exception &error);
    void TidyUp();
    void GiveSpaceBack(bool disk_is_full) noexcept;
    void EmptyJournal() noexcept;
    [[nodiscard]] std::filesystem::path Journal() const;

    // Recursive, because a Transaction holds it while its owner calls on.
    std::recursive_mutex mutex_;
    std::optional<OwnerLock> owner_; // goes after the database
    std::unique_ptr<Database> database_;
    // Asks SQLite for the number that moves when another connection has written.
    std::unique_ptr<Statement> data_version_;
    // Set once: of the file that was opened, and the two names that its alerts have.
    FileIdentity identity_;
    std::string uuid_;
    std::string series_;
    Reserve reserve_;
    bool keeps_reserve_ = false;
    // Of this connection: raised by each write, also by one that fails, and by each roll-back.
    int64_t own_changes_ = 0;
    int64_t transaction_ = 0; // the number of the newest one
    bool is_open_ = false;    // that one was begun and not ended here; SQLite may have ended it
    // Numbers of transactions; one is added for each pass that fails, and none is ever removed.
    std::set<int64_t> rolled_back_;
    // Never goes back: a process is the daemon, or it is not.
    bool in_passes_ = false;
    std::string pass_failure_; // why the pass is broken; empty while it is not
    int64_t pass_;             // its number
    std::optional<int64_t>
        pass_room_;              // what it may still store, in bytes; known with the first alert
    int64_t journal_before_ = 0; // bytes of the journal when its transaction began
};

// Several writes as one; within another one, a part of it. Without Commit, all is rolled back.
class Transaction {
  public:
    explicit Transaction(Store &store);
    ~Transaction();
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;
    void Commit();

  private:
    Store &store_;
    std::unique_lock<std::recursive_mutex> lock_;
    bool open_ = false;
};

// Several reads of one state of the store, while other processes write. Nothing is written in its
// life.
class Snapshot {
  public:
    explicit Snapshot(Store &store);
    ~Snapshot();
    Snapshot(const Snapshot &) = delete;
    Snapshot &operator=(const Snapshot &) = delete;

  private:
    Store &store_;
    std::unique_lock<std::recursive_mutex> lock_;
    bool open_ = false; // in a transaction already, it has nothing to do
};

} // namespace host

#endif // AGENT_HOST_STORE_H
