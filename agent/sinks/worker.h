// Sends the alerts of the store to one receiver, in order, on a thread of its own.
//
//   state      it does                                        and leaves it when
//   sending    reads the alerts after the last one that was   there is none, or one was not taken
//              taken and sends them
//   waiting    nothing                                        an alert may have been stored, or
//                                                             active ones are to be sent again, or
//                                                             the receiver is to be asked what it has
//   pausing    nothing, for a time that grows                 the time is over, or somebody changed
//                                                             a setting
//
// A sink may have a bound on what it sends (rate.h). Each message takes a token, but for signs of life and what
// somebody has sent again. The last one tells of all that wait, and the next ones, a token each, of what has
// come since: the newest alert as any other, and those before it summed up (digest.h). Which alerts that are is
// written down before it is sent. So a message that is sent again, whatever happens in between, is the same
// one, and each alert is in one message.
//
// A receiver that keeps what it gets may know better than we how far it is (SinkKind::look). Then it is asked, and the
// worker goes on behind that alert, forward or back.
//
// An alert that was not taken stays in front, and none overtakes it: so a receiver that is down gets
// everything later, in order. But one that the receiver refuses, or over which it fails, must not hold
// up the others for ever. After some tries of it, others behind it are tried; when the receiver takes
// one of them and still not this one, the fault is with the alert, and not with the receiver or its
// settings. It is then put aside, for somebody to look at: see undelivered.h.
#ifndef AGENT_SINKS_WORKER_H
#define AGENT_SINKS_WORKER_H

#include <condition_variable>
#include <deque>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "agent/sinks/backoff.h"
#include "agent/sinks/progress.h"
#include "agent/sinks/rate.h"
#include "agent/sinks/route.h"
#include "agent/sinks/sink.h"

namespace sinks {

// What all workers of a deliverer have in common. `progressed` is called on the worker's thread and
// returns at once.
struct WorkerContext {
    std::filesystem::path store;
    PauseLimits pauses;
    std::function<void()> progressed; // called when there is news for the store
    std::chrono::milliseconds second; // of a heartbeat
    std::function<bool()> is_fresh; // does the monitor do its work? On any thread; may take a while
};

// The functions that are public are for the deliverer's thread and never wait, but for the
// destructor. The worker reads the store over a connection of its own, which cannot write: what it
// has done it tells its Progress.
class Worker {
  public:
    // Starts the thread. Nothing is opened yet: what fails then is a failure of the sink, which is
    // tried again, and not of the constructor.
    Worker(WorkerContext context, SinkConfig config, std::string peer,
           std::shared_ptr<Progress> progress);
    ~Worker(); // waits for its end
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    void RequestStop(); // it ends soon; what it is sending may still arrive
    void Wake();        // an alert may have been stored
    void TryNow();      // as Wake, and a pause ends
    // Sends these, which were put aside, before all others. Known ones are not sent twice.
    void SendAgain(const std::vector<int64_t> &ids);

    [[nodiscard]] const std::string &peer() const { return peer_; }

  private:
    using Clock = std::chrono::steady_clock;

    void Run();
    void Step();
    bool Refresh();
    void TakePlace();
    bool SendHeartbeat();
    [[nodiscard]] bool SendAll(std::vector<Message> messages);
    [[nodiscard]] std::vector<Message> NextBatch(size_t limit);
    [[nodiscard]] bool IsWanted(const Message &message) const;
    void TellWhatIsBetween(std::vector<Message> &batch);
    [[nodiscard]] std::vector<Message> NextMessages();
    [[nodiscard]] size_t MostAtOnce() const;
    [[nodiscard]] std::vector<Message> PlannedMessage();
    [[nodiscard]] Message SummedUp(const Progress::Beginning &beginning, int64_t planned);
    static void DropLines(Message *message);
    [[nodiscard]] Outcome Send(std::span<const Message> messages);
    [[nodiscard]] std::vector<Message> MessagesOf(std::vector<alerts::Alert> alerts) const;
    void Handle(const std::vector<Message> &batch, const Outcome &outcome);
    [[nodiscard]] bool IsTriedEnough(const Message &refused);
    bool Settle(const Message &refused);
    bool TakesAnother(int64_t id);
    [[nodiscard]] std::optional<Message> FirstAfter(int64_t id);
    bool SendOneAgain();
    void ForgetAgain(int64_t id);
    void Succeeded();
    void Fail(const std::string &why, std::chrono::milliseconds retry_after = {});
    void StoreFailed(const std::string &why);
    void Pause(std::chrono::milliseconds at_least = {});
    void WaitForAlerts();
    [[nodiscard]] bool StopRequested();
    [[nodiscard]] std::string Name() const;

    WorkerContext context_;
    SinkConfig config_;
    Route route_;
    Rate rate_;
    std::string peer_;
    std::shared_ptr<Progress> progress_;
    Interrupt interrupt_;

    // of the thread
    std::optional<host::Database> database_;
    Secrets secrets_;
    std::unique_ptr<Sink> sink_; // opened anew after each failure: secrets may have changed
    Backoff backoff_;
    // The receiver or the store has failed, and that was told; no word more until it is well.
    bool failing_ = false;
    bool store_failing_ = false;
    size_t batch_limit_ = SIZE_MAX; // 1 after a refusal, to find the one that is refused
    // The alert in front that was refused last; 0: none yet.
    int64_t refused_id_ = 0;
    int refusals_ = 0;                             // of that one
    int64_t ahead_by_ = 0;                         // so far behind it is the next one that is tried
    int refusals_wanted_ = 0;                      // so many of one alert, before others are tried
    std::optional<Clock::time_point> refresh_at_;  // when active alerts are to be sent again
    std::optional<Clock::time_point> token_at_;    // when a bucket that is empty has a token again
    std::optional<Clock::time_point> look_at_;     // when the receiver is to be asked what it has
    std::optional<int64_t> place_;                 // the last alert that it has, as far as is known
    int summary_refusals_ = 0;                     // of the message with a digest, in a row
    std::chrono::milliseconds heartbeat_every_{0}; // 0: no sign of life is wanted
    std::optional<Clock::time_point> heartbeat_at_; // when the next one is to be sent
    bool heartbeat_failed_ = false;                 // the last one

    std::mutex mutex_; // guards what follows
    std::condition_variable news_;
    bool stop_ = false;
    bool woken_ = false;
    bool try_now_ = false;
    std::deque<int64_t> again_; // put aside, and to be sent again

    std::thread thread_;
};

} // namespace sinks

#endif // AGENT_SINKS_WORKER_H
