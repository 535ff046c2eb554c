// Alerts that a receiver does not take although it takes others: the table `undelivered` of the
// store. The deliverer puts them aside there, so that they hold up no other. A command has them sent
// again, or drops them; one that has to leave the store takes its row along.
#ifndef AGENT_SINKS_UNDELIVERED_H
#define AGENT_SINKS_UNDELIVERED_H

#include <cstdint>
#include <string>
#include <vector>

#include "agent/host/store.h"

namespace sinks {

// A row: one alert that one receiver does not take.
struct Undelivered {
    std::string peer; // empty: the sink's only receiver
    int64_t alert_id = 0;
    int64_t since_ms = 0; // when it was put aside, since 1970, UTC
    std::string reason;   // what the receiver said to it
    bool again = false;   // somebody wants it to be sent again
};

// A row that is new, or an alert that the receiver has taken after all.
struct UndeliveredChange {
    Undelivered row;
    bool was_taken = false;
};

// Those of a sink, which is the number of its registry key, by their ids.
std::vector<Undelivered> ReadUndelivered(host::Database &database, int64_t sink);

// Does what these say, in their order. Of a sink or an alert that is gone, nothing is stored.
void WriteChanges(host::Store &store, int64_t sink, const std::vector<UndeliveredChange> &changes);

// Marks the rows of this alert to be sent again, at each peer that did not take it. The wish is the
// daemon's to fulfil, when it runs: set kSinksEvent behind it.
void WantAgain(host::Store &store, int64_t sink, int64_t alert_id);

// Removes the rows of this alert: it is given up for this sink. The alert itself stays.
void RemoveUndelivered(host::Store &store, int64_t sink, int64_t alert_id);

} // namespace sinks

#endif // AGENT_SINKS_UNDELIVERED_H
