// How far each sink has come: the table `delivery` of the store. The deliverer writes it; commands
// read it. The rows go with the sink's registry key. What reads or writes them throws host::StoreError.
#ifndef AGENT_SINKS_DELIVERY_STORE_H
#define AGENT_SINKS_DELIVERY_STORE_H

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>

#include "agent/host/store.h"

namespace sinks {

// How far one receiver has come. Times are those of this host's clock when the answer came.
struct Delivery {
    int64_t last_id = 0;      // alerts up to this one are done with
    int64_t delivered = 0;    // how many of them the receiver has taken
    int64_t dropped = 0;      // how many were given up: too many were waiting, or it refused them
    int64_t delivered_ms = 0; // when it took the newest, since 1970, UTC; 0: never
    std::string last_error;   // empty: the last try did it
    int64_t error_ms = 0;     // when that was; 0: never
    int64_t full_ms = 0;      // when its bucket would be full again: see rate.h
    int64_t planned_id = 0; // a message that tells of all up to this alert is under way; 0: none is

    bool operator==(const Delivery &) const = default;
};

// How many of the alerts that the store keeps wait for it. What has left the store does not wait any longer, so the oldest
// one limits it.
inline int64_t Waiting(const Delivery &row, int64_t oldest, int64_t newest)
{
    return std::max<int64_t>(newest - std::max(row.last_id, oldest - 1), 0);
}

// By peer. The empty name is the sink as a whole: what at least one of its peers has.
using Deliveries = std::map<std::string, Delivery>;

// The rows of a sink, which is the number of its registry key. None: nothing was ever written of
// it.
Deliveries ReadDeliveries(host::Database &database, int64_t sink);

// Makes these the rows of a sink. One that was removed from the registry meanwhile gets none.
void WriteDeliveries(host::Store &store, int64_t sink, const Deliveries &rows);

} // namespace sinks

#endif // AGENT_SINKS_DELIVERY_STORE_H
