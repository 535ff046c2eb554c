// Which host sends more than it should: broken or hostile, it ignores the pace of its sink.
//
// Counted is all that the servers have stored under its name, alerts or not, by the servers' clock: so a collector that
// has been away, and takes in seconds what came in hours, takes nobody for one who floods.
#ifndef AGENT_FLEET_FLOOD_WATCH_H
#define AGENT_FLEET_FLOOD_WATCH_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "agent/nats/pace.h"

namespace fleet {

// What is counted of one host.
class FloodCount {
  public:
    // Messages of one host in a span that are too many: twice what the sink sends unless its pace is set otherwise.
    static constexpr int64_t kTooMany = 10000;
    static constexpr int64_t kSpanMs = int64_t{10} * 1000;
    // It is told once in so long, while it goes on.
    static constexpr int64_t kToldForMs = 3600 * int64_t{1000};

    // A message, which the servers stored then, in milliseconds since 1970. Returns whether it is the one by which the
    // host has become one that floods, and is to be told of.
    bool Add(int64_t stored_ms);

    // What a host sends makes the collecting one tell of it: of gaps, of messages that are no alerts. So often at once, and
    // then once in a minute; what comes in between is counted with the host, and not told.
    static constexpr int kTellAtOnce = 10;
    static constexpr std::chrono::minutes kTellEvery{1};
    // Whether something of it is to be told now, which is then taken for done.
    bool MayTell(nats::Pace::Clock::time_point now);

    // A later message, stored then, would be counted as that of a host of which nothing was kept.
    [[nodiscard]] bool IsForgettable(int64_t stored_ms, nats::Pace::Clock::time_point now) const;

  private:
    int64_t span_ = 0; // that is under way: its number since 1970
    int64_t in_span_ = 0;
    std::optional<int64_t> told_ms_; // nothing: it has not flooded
    nats::Pace pace_{kTellAtOnce, kTellEvery};
};

// The counts of all hosts. What is counted of a message counts for good when the message is stored, and not before: so
// it is taken out, and put back then.
class FloodWatch {
  public:
    [[nodiscard]] FloodCount Of(const std::string &uuid) const;
    void Keep(const std::string &uuid, const FloodCount &count);
    // Drops those of hosts that have sent nothing in the span of this moment, and of which nothing was told lately.
    void Forget(int64_t stored_ms, nats::Pace::Clock::time_point now);
    // How many hosts something is kept of.
    [[nodiscard]] size_t size() const { return counts_.size(); }

  private:
    int64_t span_ = 0; // in which it was forgotten last
    std::map<std::string, FloodCount> counts_;
};

} // namespace fleet

#endif // AGENT_FLEET_FLOOD_WATCH_H
