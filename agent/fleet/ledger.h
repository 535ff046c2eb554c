// The alerts of all hosts in one store, and how far each host was taken.
//
// A host numbers its alerts without a gap, and they come in that order. So one number for each host tells what is
// there already. An alert, its host's number and the place in the stream are stored in one transaction: after a crash
// at any instant the three agree, what the servers deliver again is known, and nothing is passed over in silence.
//
//   the alert's ID             it is
//   up to the host's number    known, and dropped
//   behind it                  taken. The message says which alert was sent before it: when that one is not here
//                              either, those up to it are missing, and an alert of the monitor's own tells so
#ifndef AGENT_FLEET_LEDGER_H
#define AGENT_FLEET_LEDGER_H

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "agent/fleet/flood_watch.h"
#include "agent/host/store.h"

namespace fleet {

// A message of the stream.
struct Arrived {
    std::string uuid;      // of the store that it came from
    std::string body;      // see wire_alert.h
    int64_t after = 0;     // the ID of the alert that was sent before it
    int64_t dropped = 0;   // how many in between have left that store unsent, at its limit
    int64_t stored_ms = 0; // by the servers, since 1970 by their clock
};

// A row of the table fleet_host.
struct HostRow {
    std::string uuid;
    std::string name;
    int64_t last_id = 0;
    int64_t alerts = 0;
    int64_t dropped = 0;
    int64_t missing = 0;
    int64_t refused = 0;
    int64_t heard_ms = 0;
};

// How far a stream was taken. Another stream of its name, made later, has another beginning of its numbers. And who took
// the alerts of some hosts alone was nowhere with those of the others.
struct StreamPlace {
    std::string stream;  // its name; when a part was taken, also which: "NAME 1/3"
    int64_t created = 0; // nanoseconds since 1970
    uint64_t sequence = 0;
    int64_t stored_ns = 0; // when the servers stored that message, since 1970; 0: not known
};

// All of it throws host::StoreError when the store fails, and has then stored nothing.
class Ledger {
  public:
    // `floods`: who sends too much is told by it; null: nobody is.
    explicit Ledger(host::Store &store, FloodWatch *floods = nullptr)
        : store_(store), floods_(floods)
    {
    }

    // Up to where this stream was taken; of sequence 0: nothing of it was.
    StreamPlace PlaceIn(const std::string &stream, int64_t created);

    // Stores what has arrived, in this order, and that the stream was taken up to this place. Returns how many alerts
    // are new. A message that is no alert is counted and passed over: it will be none the next time either.
    size_t Take(std::span<const Arrived> messages, const StreamPlace &place);

    // Why nothing is taken; empty: nothing is wrong.
    void SetProblem(const std::string &problem);

  private:
    // A host as it is while messages are taken.
    struct Host {
        HostRow row;
        FloodCount floods;
    };
    void TakeOne(const Arrived &message, Host *host, size_t *taken);
    void TellNow(Host *host, const std::string &message);
    void TellOfGap(Host *host, int64_t after);
    void TellOfFlood(const Arrived &message, Host *host);
    void KeepFloods(const std::map<std::string, Host> &hosts, int64_t stored_ms);

    host::Store &store_;
    FloodWatch *floods_;
};

// What is known of all hosts, the one that was heard last first.
std::vector<HostRow> ReadHosts(host::Database &database);

// The place, and what is wrong; empty: nothing was collected yet.
struct CollectState {
    StreamPlace place;
    std::string problem;
    int64_t problem_ms = 0;
};
CollectState ReadCollectState(host::Database &database);

} // namespace fleet

#endif // AGENT_FLEET_LEDGER_H
