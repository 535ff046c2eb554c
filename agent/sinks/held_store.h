// What a sink holds back of alerts that have left the store: the table `delivery_held`. The deliverer
// writes it in the transaction in which it writes how far the sink has come. The rows go with the sink's
// registry key. Both functions throw host::StoreError.
#ifndef AGENT_SINKS_HELD_STORE_H
#define AGENT_SINKS_HELD_STORE_H

#include "agent/host/store.h"
#include "agent/sinks/digest.h"

namespace sinks {

struct Held {
    Digest of_message; // what the message under way tells of
    Digest behind;     // what is behind it

    bool operator==(const Held &) const = default;
};

// Of a sink, which is the number of its registry key.
Held ReadHeld(host::Database &database, int64_t sink);

// Makes this what the sink holds back. One that was removed from the registry meanwhile gets nothing.
void WriteHeld(host::Store &store, int64_t sink, const Held &held);

} // namespace sinks

#endif // AGENT_SINKS_HELD_STORE_H
