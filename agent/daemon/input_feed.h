// The inputs of the daemon: their thread, and the spool by which the module gets what it reads. Without inputs there
// is neither.
//
// What the monitor thread calls is marked; the rest is of the main thread.
#ifndef AGENT_DAEMON_INPUT_FEED_H
#define AGENT_DAEMON_INPUT_FEED_H

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
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
    // `look_now` makes the module look, on any thread; `status_changed` is called on any thread, too. Throws
    // host::Error.
    InputFeed(host::Host &host, std::function<void()> look_now,
              std::function<void()> status_changed);
    ~InputFeed();
    InputFeed(const InputFeed &) = delete;
    InputFeed &operator=(const InputFeed &) = delete;

    // To be polled: an input was added, changed or removed, or the customer file. Then TakeChanges: true when the
    // monitor has to start again, because it is to follow another customer file than now. Throws host::Error; the
    // changes are there still then.
    [[nodiscard]] int ChangedFd() const { return changed_->PollFd(); }
    bool TakeChanges();
    // To be polled: what is in the inputs is to be read now. Then TakeCatchUp.
    [[nodiscard]] int CatchUpFd() const { return catch_up_->PollFd(); }
    void TakeCatchUp();
    void SetInterval(std::chrono::milliseconds interval);

    // On any thread, and the feed's own calls.
    void TellStatus(status::Status *status) const;

    // On the monitor thread: before the module starts; before its pass is committed, and behind that.
    void Prepare();
    void BeforeCommit();
    // Was all read that the inputs had a moment ago, by the module as well? The first question has them looked at; the
    // answer is yes to a later one. `is_asked`: false forgets the question.
    bool HasReadAll(bool is_asked);
    // What of the inputs becomes part of the pass, behind BeforeCommit; null: nothing does.
    const inputs::Batch *BatchOfPass() { return batch_is_stored_ ? ReadyBatch() : nullptr; }
    void Committed();
    void Abandoned();
    // May the module take this event? Told of another customer file it would go to the end of it, and pass over what is
    // unread in the spool. So it is started again instead.
    bool MayTake(const std::string &event);

  private:
    void StartThread();
    void StopThread();
    bool Ends();
    const inputs::Batch *ReadyBatch();

    host::Host &host_;
    std::function<void()> look_now_;
    std::function<void()> status_changed_;
    std::shared_ptr<host::WakeEvent> changed_;
    std::shared_ptr<host::WakeEvent> catch_up_;
    std::chrono::milliseconds interval_{1000};
    std::optional<inputs::SpoolKeeper> keeper_; // of the monitor thread
    std::atomic<bool> is_in_force_ = false;     // the module follows the spool
    std::atomic<bool> is_ending_ = false; // there are no more inputs, and the spool is to be read
    std::atomic<bool> has_ended_ = false; // that is done
    bool has_changes_ = false;            // of the main thread: not taken yet
    // Of the monitor thread: in the pass that is about to be committed.
    bool batch_is_stored_ = false;
    int64_t asked_ns_ =
        0; // when HasReadAll has asked, in CLOCK_BOOTTIME; 0: it waits for no answer

    mutable std::mutex mutex_; // guards what follows
    std::unique_ptr<inputs::InputThread> thread_;
    std::vector<inputs::InputStatus> before_; // of the daemon before this one, for the first thread
    bool wants_catch_up_ = false;             // asked for before there was a thread
    std::string problem_;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_INPUT_FEED_H
