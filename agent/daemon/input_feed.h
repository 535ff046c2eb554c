// The inputs of the daemon: their thread, and the spool by which the module gets what it reads. Without inputs there
// is neither.
//
// What the monitor thread calls is marked; the rest is of the main thread.
#ifndef AGENT_DAEMON_INPUT_FEED_H
#define AGENT_DAEMON_INPUT_FEED_H

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "agent/host/host.h"
#include "agent/host/waitable.h"
#include "agent/inputs/input_thread.h"
#include "agent/inputs/spool_keeper.h"

namespace syslogmond {

class InputFeed {
  public:
    // `look_now` makes the module look, on any thread. Throws host::Error.
    InputFeed(host::Host &host, std::function<void()> look_now);
    ~InputFeed();
    InputFeed(const InputFeed &) = delete;
    InputFeed &operator=(const InputFeed &) = delete;

    // To be polled: an input was added, changed or removed. Then TakeChanges: true when the monitor has to start
    // again, because there are inputs now and there were none, or the reverse.
    [[nodiscard]] int ChangedFd() const { return changed_->PollFd(); }
    bool TakeChanges();
    void SetInterval(std::chrono::milliseconds interval);

    [[nodiscard]] std::vector<inputs::InputStatus> Status() const;
    // Why the inputs wait; empty: they do not.
    [[nodiscard]] std::string Problem() const;

    // On the monitor thread: before the module starts; before its pass is committed, and behind that.
    void Prepare();
    void BeforeCommit();
    void Committed();
    void Abandoned();
    // May the module take this event? It would go to the end of the spool when it is told of another customer file,
    // and pass over what is unread; so it is made to look instead.
    bool MayTake(const std::string &event);

  private:
    void StartThread();
    [[nodiscard]] bool HasInputs() const;

    host::Host &host_;
    std::function<void()> look_now_;
    std::shared_ptr<host::WakeEvent> changed_;
    std::chrono::milliseconds interval_{1000};
    std::optional<inputs::SpoolKeeper> keeper_; // of the monitor thread
    std::atomic<bool> is_in_force_ = false;
    bool batch_is_stored_ =
        false; // of the monitor thread: in the pass that is about to be committed

    mutable std::mutex mutex_; // guards what follows
    std::optional<inputs::InputThread> thread_;
    std::string problem_;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_INPUT_FEED_H
