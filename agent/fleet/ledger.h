// The alerts of all hosts in one store, and how far each host was taken.
//
// A host numbers its alerts, and they come in that order, but for those that the servers deliver behind a later one. So
// one number for each host, and the holes before it, tell what is there already. An alert, its host's number and holes, and
// the place in the stream are stored in one transaction: after a crash at any instant they agree, what the servers deliver
// again is known, and what is missing is told.
//
//   the alert's ID             it is
//   up to the host's number    known, and dropped
//   in a hole before it        taken, late
//   behind it                  taken. The message says which alert was sent before it: when that one is not here
//                              either, those up to it are a hole
#ifndef AGENT_FLEET_LEDGER_H
#define AGENT_FLEET_LEDGER_H

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "agent/alerts/alert_store.h"
#include "agent/fleet/flood_watch.h"
#include "agent/fleet/holes.h"
#include "agent/host/store.h"

namespace fleet {

// A message of the stream.
struct Arrived {
    std::string uuid;      // of the store that it came from
    std::string body;      // see wire_alert.h
    int64_t after = 0;     // the ID of the alert that was sent before it
    int64_t dropped = 0;   // how many in between have left that store unsent, at its limit
    int64_t stored_ms = 0; // by the servers, since 1970 by their clock
    int64_t id = 0;        // by its key, whatever is in the body; 0: it has none
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
    int64_t stored_ms = 0; // by the servers: of the last alert; 0: not known
    int64_t late = 0;      // how many came behind later ones
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

    // What the servers are to be asked for at this moment, in milliseconds since 1970; nothing: nothing.
    std::optional<Missing> NextMissing(int64_t now_ms);
    // Stores those of a host's messages that are missing, and returns how many they are. All others are left alone.
    size_t TakeLate(const std::string &uuid, std::span<const Arrived> messages);
    // A look for what is missing of a host has ended: how. What is missing still is told, once it is time.
    enum class Look : uint8_t { kDone, kFailed, kNotOurs };
    void EndLook(const std::string &uuid, Look look, int64_t now_ms);

    // Why nothing is taken; empty: nothing is wrong.
    void SetProblem(const std::string &problem);

  private:
    // A host as it is while messages are taken.
    struct Host {
        HostRow row;
        FloodCount floods;
        std::optional<Holes> holes; // once they are asked for
        int64_t came = 0;           // of those that were told as missing
    };
    Host HostOf(const std::string &uuid);
    Holes &HolesOf(Host *host);
    void WriteBack(Host *host);
    void KeepFloods(const Host &host);
    std::optional<alerts::Alert> AlertIn(const Arrived &message, Host *host);
    bool TakeOne(const Arrived &message, Host *host);
    void MoveOn(const Arrived &message, int64_t id, Host *host);
    bool FillHole(const Arrived &message, int64_t id, Host *host);
    void CountDropped(const Arrived &message, int64_t id, int64_t most, Host *host);
    void TellNow(Host *host, const std::string &message);
    void TellOfHole(Host *host, const Hole &hole);
    void TellOfFlood(const Arrived &message, Host *host);

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
