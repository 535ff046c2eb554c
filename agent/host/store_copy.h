// Copies of the store: made while the daemon works, and put back while it does not.
#ifndef AGENT_HOST_STORE_COPY_H
#define AGENT_HOST_STORE_COPY_H

#include <filesystem>

#include "agent/host/store.h"

namespace host {

// Writes the store as it is at one moment into a new file, for this user alone; nobody who writes meanwhile is held up. It is
// one file, without a journal. Throws StoreError, with nothing left behind; also when there is such a file.
void BackUpStore(Store &store, const std::filesystem::path &file);

// Puts such a copy into the place of the store, or makes it the store where there is none. The file is read whole and
// checked before anything is changed, and stays as it is. One of an older version is brought up to date by the next opening. The
// folder must be there. Somebody who reads or writes the store is waited for, for `busy_ms` at most. Throws StoreError, with the
// store as it was; also when a daemon has it.
inline constexpr int kBusyMs = 10000; // commands that read the store are done with it in less
void RestoreStore(const std::filesystem::path &file, const std::filesystem::path &store,
                  int busy_ms = kBusyMs);

} // namespace host

#endif // AGENT_HOST_STORE_COPY_H
