// The stream of a fleet's alerts, read in its order from a place on.
#ifndef AGENT_FLEET_STREAM_READER_H
#define AGENT_FLEET_STREAM_READER_H

#include <cstdint>
#include <string>
#include <vector>

#include "agent/fleet/ledger.h"
#include "agent/nats/connection.h"
#include "agent/sinks/sink.h"

namespace fleet {

// One connection's. All of it throws host::Error when the servers fail, or deliver out of order: then another one is
// to be made.
class StreamReader {
  public:
    // Connects, and makes the stream if there is none. `reader` is the name by which the servers remember how far it
    // has come.
    StreamReader(const nats::Access &access, const sinks::SinkConfig &config, std::string reader);

    // When the stream was made, in nanoseconds since 1970.
    [[nodiscard]] int64_t created() const { return created_; }

    // The first message is the one behind this sequence. To be called once, before all that follows.
    void BeginBehind(uint64_t sequence);

    // Waits a moment for messages. Returns the sequence of the last one that has come; 0: none has.
    uint64_t Read();
    // What Read has brought.
    [[nodiscard]] std::vector<Arrived> Arrivals() const;
    // They are stored.
    void Confirm();

  private:
    void FindStream();
    void MakeStream();
    [[nodiscard]] bool IsAt(uint64_t sequence);
    void MakeReader(uint64_t sequence);
    void ForgetReader();
    void Fetch(int most, bool waits);
    void CheckOrder(natsMsg *message);
    void LookAfterSilence();

    nats::Connection connection_;
    const sinks::SinkConfig &config_;
    std::string stream_;
    std::string name_;
    int64_t created_ = 0;
    nats::Owned<natsSubscription> subscription_;
    std::vector<nats::Owned<natsMsg>> messages_;
    uint64_t sequence_ = 0; // in the stream, of the last message that has come
    uint64_t count_ =
        0; // that the servers give to their deliveries to this reader: of the last one
    bool was_full_ = false; // the last time there was more than was taken
    std::chrono::steady_clock::time_point heard_at_;
    bool was_withheld_ =
        false; // at the last look after a silence there were messages that have not come
};

} // namespace fleet

#endif // AGENT_FLEET_STREAM_READER_H
