// Which alerts a sink gets: "severity>=warning,source=DISK*,label.team=db,host=web*".
//
// Conditions stand behind commas. Of those with one name, one must hold; of different names, each. Values
// are patterns with *, ? and [...], in which case counts. The host is the one that wrote the line, or
// where the line was found when it does not say. An event without a severity is a warning here, as in the
// sinks that send one. What a silence holds back is for no sink.
#ifndef AGENT_SINKS_ROUTE_H
#define AGENT_SINKS_ROUTE_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "agent/alerts/alert_store.h"

namespace sinks {

class Route {
  public:
    Route() = default; // takes all alerts
    // Of a text that CheckRoute accepts; the empty one takes all. Never what tells that the sink of this
    // name fails on this host. Throws host::Error, which names the mistake and what is allowed.
    explicit Route(const std::string &conditions, std::string sink = "");

    [[nodiscard]] bool Takes(const alerts::Alert &alert) const;

  private:
    void Read(const std::string &condition);

    std::string sink_;
    size_t mildest_ = SIZE_MAX; // that it takes: a place in events::kSeverities
    std::map<std::string, std::vector<std::string>> patterns_; // by the name of the condition
};

// Empty when it is a route; otherwise what is allowed, with the place of the mistake.
std::string CheckRoute(const std::string &conditions);

} // namespace sinks

#endif // AGENT_SINKS_ROUTE_H
