// One daemon per install root. The daemon holds a lock in the run-time folder for its life; anyone can
// ask who holds it. Whoever removes the file of the lock has not removed the daemon: it holds one on
// the store itself, too.
#ifndef AGENT_STATUS_DAEMON_LOCK_H
#define AGENT_STATUS_DAEMON_LOCK_H

#include <filesystem>
#include <optional>
#include <sys/types.h>

#include "agent/host/host.h"
#include "agent/host/waitable.h"

namespace status {

class DaemonLock {
  public:
    // Throws host::Error when another daemon holds the lock.
    explicit DaemonLock(const std::filesystem::path &run_folder);

    // The process that holds it, or nothing.
    static std::optional<pid_t> Holder(const std::filesystem::path &run_folder);
    // The same, or the process that holds the store's.
    static std::optional<pid_t> Holder(const host::Layout &layout);

    // Throws host::Error when the daemon that runs works with another file than this host.
    static void CheckStore(host::Host &host);

  private:
    host::Fd fd_;
};

} // namespace status

#endif // AGENT_STATUS_DAEMON_LOCK_H
