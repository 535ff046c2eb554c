// The file of the store: made whole, never taken for another one, and owned by one daemon.
//
//   agent.db        the store
//   agent.db.lock   taken while the store is made, or its schema changed
//   has-store       says that there is a store here: a missing agent.db is then an error, not a new
//                   host. Its name does not begin as those of the store's own files do, so that what
//                   removes them leaves it.
//   reserve         see room.h
#ifndef AGENT_HOST_STORE_FILE_H
#define AGENT_HOST_STORE_FILE_H

#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>

#include "agent/host/waitable.h"

namespace host {

// What to do about a store that cannot be used.
extern const char *const kReplaceStore;

// Held while the store is made or its schema changed, so that programs that start together take
// turns.
class CreationLock {
  public:
    explicit CreationLock(const std::filesystem::path &store);

  private:
    Fd fd_;
};

// For commands that only read. Throws StoreError when there is no store, or none any more. Makes
// nothing.
void CheckStoreIsThere(const std::filesystem::path &store);

// Makes the store, if there was none yet. The caller holds the CreationLock. Throws StoreError for a
// store that has vanished and for one that is empty.
void MakeStore(const std::filesystem::path &store);

// Gives what is left of the journal of a store that is no longer there, or is about to be replaced, another name
// (agent.db-wal.old): the new store must not take it for its own, and it may hold what the old one lacks.
void SetOldJournalAside(const std::filesystem::path &store);

// Leaves the mark that there is a store. The caller holds the CreationLock.
void MarkStore(const std::filesystem::path &store);

// Which file a path stands for. As long as the file is open, its inode is no other file's.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;

    bool operator==(const FileIdentity &) const = default;
};

// Throws StoreError when there is no file.
FileIdentity IdentityOf(const std::filesystem::path &store);

// Does the path stand for this file, as far as can be known? Not when there is none; when it cannot
// be looked at, it may.
bool MayBe(const std::filesystem::path &store, const FileIdentity &identity);

// The daemon's lock on the file of the store itself, for the life of this object. It stays when the
// run-time folder, or any file beside the store, is removed.
//
// It is made before this process opens the store and goes after it has closed it: closing any
// descriptor of a file takes away the locks that SQLite holds on it.
class OwnerLock {
  public:
    // Throws StoreError when another daemon has it, naming its process if that is known, and when
    // the file cannot be locked.
    explicit OwnerLock(const std::filesystem::path &store);

    // The process that has it, or nothing. Takes no lock, and none away; for any program that may
    // read the store. Each store that was asked about keeps one descriptor open for the life of
    // this process.
    static std::optional<pid_t> Holder(const std::filesystem::path &store);

  private:
    Fd fd_;
};

} // namespace host

#endif // AGENT_HOST_STORE_FILE_H
