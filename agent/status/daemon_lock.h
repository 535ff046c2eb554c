// One daemon per install root. The daemon holds a lock in the run-time folder for its life; anyone
// can ask who holds it. Whoever removes the file of the lock has not removed the daemon: it holds
// one on the store itself, too.
//
// The process that holds the lock must not ask for the holder: the kernel takes a lock of this kind
// away when its process closes any descriptor of the file, and asking opens and closes one.
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
    // The folder must be there. Held until this object goes.
    explicit DaemonLock(const std::filesystem::path &run_folder);

    // The process that holds it, or nothing.
    static std::optional<pid_t> Holder(const std::filesystem::path &run_folder);
    // The same, or the process that holds the store's.
    static std::optional<pid_t> Holder(const host::Layout &layout);

    // Throws host::Error when the daemon that runs works with another file than this host.
    // For a command that has opened the store: what it wrote into another file than the daemon's,
    // nobody would see.
    static void CheckStore(host::Host &host);

  private:
    // Open for the life of the lock; closing it is what gives the lock up.
    host::Fd fd_;
};

} // namespace status

#endif // AGENT_STATUS_DAEMON_LOCK_H
