// A member of groups: takes the rules that the fleet has for them, and says how this host is.
//
// The files of a group are a value in the servers' bucket (see buckets.h). The member subscribes to the subjects of its
// groups, and so hears of a change at the moment in which somebody writes it; then it reads the value, which counts. It
// also reads it at each connection and with each status, in case it has heard nothing. Servers that are away, or have
// lost the value, change nothing: what was taken last stays.
//
// However often somebody writes there, it looks for its rules, takes them and says how it is only so often as its pace
// allows: what came in between is passed over, since the newest is all that counts.
//
// It has a thread, a connection to the servers and one to the store of its own.
#ifndef AGENT_FLEET_MEMBER_H
#define AGENT_FLEET_MEMBER_H

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "agent/fleet/buckets.h"
#include "agent/fleet/fleet_rules.h"
#include "agent/fleet/host_status.h"
#include "agent/fleet/offers.h"
#include "agent/host/layout.h"
#include "agent/nats/connection.h"
#include "agent/nats/pace.h"
#include "agent/sinks/backoff.h"
#include "agent/sinks/sink.h"

namespace fleet {

// What can be set up of a member, as a row of options.
sinks::SinkKind MemberKind();

struct MemberOptions {
    host::Layout layout;
    sinks::SinkConfig config; // of MemberKind, with the servers
    // Fills in how the monitor is. On the member's thread; null: not known.
    std::function<void(HostStatus *status)> look = nullptr;
    // A change waits for a member that is away, so the pauses are short.
    sinks::PauseLimits pauses = {std::chrono::seconds(1), std::chrono::seconds(30)};
};

// The newest alert of a store, looked at now and then: how many come in a minute.
class AlertRate {
  public:
    // Those of the last whole minute, or of the one under way if they are more already.
    int64_t Take(int64_t newest_id, std::chrono::steady_clock::time_point now);

  private:
    std::optional<std::chrono::steady_clock::time_point> since_;
    int64_t id_ = 0; // then
    int64_t rate_ = 0;
};

// Takes away what a host has said of itself, as itself: `config` is its own, with the servers. Throws host::Error when
// these cannot be reached, or refuse.
void SayGoodbye(const sinks::SinkConfig &config);

class Member {
  public:
    // Starts the thread. What fails then is tried again. Throws host::Error when the options do not go together.
    explicit Member(MemberOptions options);
    // Waits for what is under way, which takes at most the time limit of a request.
    ~Member();
    // To be called before its end, when the host leaves the fleet: it says goodbye as the last thing.
    void Leave();
    Member(const Member &) = delete;
    Member &operator=(const Member &) = delete;

  private:
    using Clock = std::chrono::steady_clock;
    class Bell;

    void Run();
    void Live();
    void OpenStore();
    void Connect();
    void Subscribe();
    bool WaitForNews();
    bool LookForNews();
    void AskForBucket();
    bool ReadKeys();
    void TakeIfNew();
    void Refuse(const std::string &why);
    void TellStatus();
    void SayGoodbye();
    [[nodiscard]] HostStatus StatusNow();
    void Fail(const std::string &what, const std::string &why);

    MemberOptions options_;
    std::vector<std::string> groups_;
    std::shared_ptr<Bell> bell_; // shared with the threads of the library, which may ring once more
    // of the thread
    std::optional<host::Store> store_;
    std::optional<host::RegistryTree> registry_;
    sinks::Secrets secrets_;
    sinks::Backoff backoff_;
    std::optional<nats::Connection> connection_;
    std::vector<nats::Owned<natsSubscription>> subscriptions_;
    Offers offers_;
    nats::Pace looks_;
    std::vector<GroupState> taken_; // what this host has
    std::optional<std::vector<GroupState>>
        tried_;           // what was tried last; not the same when it was refused
    std::string refusal_; // why
    std::vector<std::string> local_;
    std::string told_;                // the failure of the connection that was told last
    std::atomic<bool> leaves_{false}; // of the thread that ends this one
    AlertRate rate_;
    Clock::time_point status_due_;

    std::thread thread_;
};

} // namespace fleet

#endif // AGENT_FLEET_MEMBER_H
