// What the daemon does while another process holds the lock of its store: it says so, it does not
// count as alive, and a stop ends the wait.
#ifndef AGENT_DAEMON_STORE_WAIT_H
#define AGENT_DAEMON_STORE_WAIT_H

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>

#include "agent/host/database.h"

namespace syslogmond {

class StoreWait {
  public:
    // `show` is told when a wait has gone on for some seconds, with the time of its beginning (since
    // 1970), and with 0 when it is over. On the thread that waits.
    StoreWait(std::filesystem::path store, std::function<void(int64_t since_ms)> show)
        : store_(std::move(store)), show_(std::move(show))
    {
    }

    // How the store is to wait. This object must outlive it.
    host::Patience Patience();

    // Ends a wait that is under way, and all further ones.
    void RequestStop() { stop_requested_ = true; }
    // Has a wait gone on for some seconds?
    [[nodiscard]] bool IsUnderWay() const { return since_ms_ != 0; }

  private:
    void Began();
    void Over();
    [[nodiscard]] bool IsToEnd() const;

    std::filesystem::path store_; // for what is said
    std::function<void(int64_t since_ms)> show_;
    // Milliseconds since 1970; 0: none is told of. Written on the thread that waits.
    std::atomic<int64_t> since_ms_ = 0;
    std::atomic<bool> stop_requested_ = false;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_STORE_WAIT_H
