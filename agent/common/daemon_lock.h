// One daemon per install root. The daemon holds a lock in the run-time folder for its life; anyone can
// ask who holds it. Whoever removes the file of the lock has not removed the daemon: it holds one on
// the store itself, too.
#ifndef AGENT_COMMON_DAEMON_LOCK_H
#define AGENT_COMMON_DAEMON_LOCK_H

#include <filesystem>
#include <optional>
#include <sys/types.h>

#include "agent/libtarsk/layout.h"
#include "agent/libtarsk/waitable.h"

namespace agent {

class DaemonLock {
  public:
    // Throws tarsk::Error when another daemon holds the lock.
    explicit DaemonLock(const std::filesystem::path &run_folder);

    // The process that holds it, or nothing.
    static std::optional<pid_t> Holder(const std::filesystem::path &run_folder);
    // The same, or the process that holds the store's.
    static std::optional<pid_t> Holder(const tarsk::Layout &layout);

    // Throws tarsk::Error when the daemon that runs works with another file than the started host.
    static void CheckStore(const tarsk::Layout &layout);

  private:
    tarsk::Fd fd_;
};

} // namespace agent

#endif // AGENT_COMMON_DAEMON_LOCK_H
