// Takes the alerts of all hosts from the servers' stream into this host's store.
//
// The store's place in the stream is what counts, and not what the servers remember of this reader: their memory of it
// is made anew when the two differ, as after a crash between a commit and its confirmation, or when the store is an
// older one that was put back. Messages come in the order of the stream. One that does not, because the servers
// deliver again what was not confirmed in time, ends the connection, and the next one begins behind the place.
//
// It has a thread and a connection to the store of its own.
#ifndef AGENT_FLEET_COLLECTOR_H
#define AGENT_FLEET_COLLECTOR_H

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "agent/fleet/flood_watch.h"
#include "agent/fleet/ledger.h"
#include "agent/host/layout.h"
#include "agent/nats/connection.h"
#include "agent/sinks/backoff.h"
#include "agent/sinks/sink.h"

namespace fleet {

class StreamReader;

// What can be set up of a collector, as a row of options: see agent/sinks/sink.h.
sinks::SinkKind CollectKind();

struct CollectorOptions {
    host::Layout layout;
    sinks::SinkConfig config; // of CollectKind
    std::function<void()>
        stored; // alerts were; called on the collector's thread, and returns at once
    // It is what pages of all hosts: it comes back soon after the servers do.
    sinks::PauseLimits pauses = {std::chrono::seconds(1), std::chrono::seconds(30)};
};

// Which hosts are one collector's, when several share them.
class Part {
  public:
    // "1/3", or empty: all of them.
    explicit Part(const std::string &text);
    [[nodiscard]] bool Has(const std::string &uuid) const;
    // What the place is kept under: see StreamPlace.
    [[nodiscard]] std::string PlaceIn(const std::string &stream) const;

  private:
    uint32_t number_ = 1;
    uint32_t of_ = 1;
};

class Collector {
  public:
    // Starts the thread. What fails then is tried again. Throws host::Error when the options do not go together.
    explicit Collector(CollectorOptions options);
    // Waits for what is under way, which takes at most the time limit of a request.
    ~Collector();
    Collector(const Collector &) = delete;
    Collector &operator=(const Collector &) = delete;

  private:
    void Run();
    void Collect();
    void TakeSome(StreamReader &reader, Ledger &ledger, StreamPlace *place);
    void AskForMissing(const StreamReader &reader, Ledger &ledger);
    std::optional<Ledger::Look> LookForIt(const StreamReader &reader, Ledger &ledger);
    void Fail(const std::string &why);
    void Pause();
    [[nodiscard]] bool StopRequested();

    CollectorOptions options_;
    Part part_;
    // of the thread
    std::optional<host::Store> store_;
    sinks::Secrets secrets_;
    sinks::Backoff backoff_;
    FloodWatch floods_;
    std::string problem_;            // that was written into the store last
    std::optional<Missing> missing_; // that is asked for, over several looks
    std::chrono::steady_clock::time_point ask_at_;

    std::mutex mutex_; // guards what follows
    std::condition_variable news_;
    bool stop_ = false;

    std::thread thread_;
};

} // namespace fleet

#endif // AGENT_FLEET_COLLECTOR_H
