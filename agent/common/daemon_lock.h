// One daemon per store. The daemon holds a lock for its life; anyone can ask who holds it.
#ifndef AGENT_COMMON_DAEMON_LOCK_H
#define AGENT_COMMON_DAEMON_LOCK_H

#include <filesystem>
#include <optional>
#include <sys/types.h>

#include "agent/libtarsk/waitable.h"

namespace agent {

class DaemonLock {
  public:
    // Throws tarsk::Error when another daemon holds the lock.
    explicit DaemonLock(const std::filesystem::path &run_folder);

    // The process that holds it, or nothing.
    static std::optional<pid_t> Holder(const std::filesystem::path &run_folder);

  private:
    tarsk::Fd fd_;
};

} // namespace agent

#endif // AGENT_COMMON_DAEMON_LOCK_H
