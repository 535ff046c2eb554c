// Which host sends more than it should: broken or hostile, it ignores the pace of its sink.
//
// Counted is all that the servers have stored under its name, alerts or not, by the servers' clock: so a collector that
// has been away, and takes in seconds what came in hours, takes nobody for one who floods.
#ifndef AGENT_FLEET_FLOOD_WATCH_H
#define AGENT_FLEET_FLOOD_WATCH_H

#include <cstdint>
#include <map>
#include <string>

#include "agent/nats/pace.h"

namespace fleet {

class FloodWatch {
  public:
    // Messages of one host in a span that are too many: twice what the sink sends unless its pace is set otherwise.
    static constexpr int64_t kTooMany = 10000;
    static constexpr int64_t kSpanMs = 10 * 1000;
    // It is told once in so long, while it goes on.
    static constexpr int64_t kToldForMs = 3600 * int64_t{1000};

    // A message of this host, which the servers stored then, in milliseconds since 1970. Returns whether it is the one by
    // which the host has become one that floods, and is to be told of.
    bool Count(const std::string &uuid, int64_t stored_ms);

    // What a host sends makes the collecting one tell of it: of gaps, of messages that are no alerts. So often at once, and
    // then once in a minute; what comes in between is counted with the host, and not told.
    static constexpr int kTellAtOnce = 10;
    static constexpr std::chrono::minutes kTellEvery{1};
    // Whether something of this host is to be told now, which is then taken for done.
    bool MayTell(const std::string &uuid, nats::Pace::Clock::time_point now);

  private:
    int64_t span_ = 0;                        // that is under way: its number since 1970
    std::map<std::string, int64_t> counted_;  // in it, by UUID
    std::map<std::string, int64_t> told_ms_;  // by UUID; as many as have flooded
    std::map<std::string, nats::Pace> paces_; // by UUID; as many as there was something to tell of
};

} // namespace fleet

#endif // AGENT_FLEET_FLOOD_WATCH_H
