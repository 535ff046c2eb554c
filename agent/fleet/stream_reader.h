// The stream of a fleet's alerts, read in its order from a place on.
#ifndef AGENT_FLEET_STREAM_READER_H
#define AGENT_FLEET_STREAM_READER_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/fleet/ledger.h"
#include "agent/fleet/look_back.h"
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

    // The first message is the one behind this place. When the servers have another message there by now, or none that far,
    // they have lost what was taken and give the numbers anew: then it begins with all that they have stored since, some of
    // which is known. To be called once, before all that follows.
    void BeginBehind(const StreamPlace &place);

    // Waits a moment for messages. Returns the sequence of the last one that has come; 0: none has, or the servers do not say
    // whether the one before is still where it was.
    uint64_t Read();
    // When the servers stored that one, in nanoseconds since 1970.
    [[nodiscard]] int64_t stored_ns() const { return sequence_stored_ns_; }
    // What Read has brought.
    [[nodiscard]] std::vector<Arrived> Arrivals() const;
    // They are stored.
    void Confirm();

    // See look_back.h. What Read brings next is the same with it and without.
    bool LookBack(Missing *missing, const Give &give) const;

  private:
    void FindStream();
    void MakeStream();
    [[nodiscard]] bool IsAt(uint64_t sequence);
    [[nodiscard]] std::optional<bool> HaveOther(uint64_t sequence, int64_t stored_ns);
    [[nodiscard]] bool LookAtPlace();
    void MakeReader(const StreamPlace &place, bool is_known);
    void ForgetReader();
    void Ask();
    void Fetch();
    void CheckOrder(natsMsg *message);
    void LookAfterSilence();

    nats::Connection connection_;
    const sinks::SinkConfig &config_;
    std::string stream_;
    std::string name_;
    int64_t created_ = 0;
    std::string inbox_; // to which the servers answer
    nats::Owned<natsSubscription> subscription_;
    int asked_for_ = 0; // messages that the request under way may still bring; 0: none is
    std::chrono::steady_clock::time_point asked_at_;
    std::vector<nats::Owned<natsMsg>> messages_;
    uint64_t sequence_ = 0;          // in the stream, of the last message that has come
    int64_t sequence_stored_ns_ = 0; // when that one was stored, since 1970; 0: not known
    std::chrono::steady_clock::time_point place_seen_at_;
    uint64_t count_ =
        0; // that the servers give to their deliveries to this reader: of the last one
    std::chrono::steady_clock::time_point heard_at_;
    bool was_withheld_ =
        false; // at the last look after a silence there were messages that have not come
};

} // namespace fleet

#endif // AGENT_FLEET_STREAM_READER_H
