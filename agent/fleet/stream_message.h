// What a message of the stream is, beside its text.
#ifndef AGENT_FLEET_STREAM_MESSAGE_H
#define AGENT_FLEET_STREAM_MESSAGE_H

#include <cstdint>

#include "agent/fleet/ledger.h"
#include "agent/nats/connection.h"

namespace fleet {

inline constexpr int64_t kNanosecondsInMs = int64_t{1000} * 1000;

// What is no message of the stream tells how a request has ended.
bool IsMessage(natsMsg *message);
// So does this one: its time was over, and the next request may follow at once.
bool HasEnded(natsMsg *answer);

// What the servers say of a message with it; 0: nothing.
struct Delivery {
    uint64_t times = 0;    // this one was delivered
    uint64_t sequence = 0; // of the stream
    uint64_t number = 0;   // of the deliveries to this reader
    int64_t stored_ns = 0; // since 1970
    uint64_t pending = 0;  // messages that are still to come
};
Delivery DeliveryOf(natsMsg *message);

// As the ledger takes it.
Arrived ArrivedOf(natsMsg *message);

} // namespace fleet

#endif // AGENT_FLEET_STREAM_MESSAGE_H
