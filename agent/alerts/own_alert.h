// Alerts of the monitor about itself, of the source SYSLOGMON. They are stored as all others are, and sent by the same
// sinks, but one that is about a sink is not sent to that sink: it would wait there for its own cause.
//
//   event  kind           about         tells that
//   1      loss           input, log    lines were passed over, or counted again
//   2      monitor-ended                the monitor ended by itself
//   3      table          -             the table of events cannot be loaded, so nothing is watched
//   4      unreadable     file, input   a file that is to be read cannot be read
//   5      silent         file, input   no line has come for long
//   6      backlog        input         what was written is not read for long
//   7      store-full     store         the store's disk is nearly full
//   8      sink-fails     sink          a sink has taken no alert for long
//   9      clock                        the clock was set
//   10     silence-ended  silence       a silence is over that has held back alerts
//   11     fleet          store's UUID  of another host: its alerts are missing in the ledger of all hosts, or it floods them
//   12     heartbeat                    the monitor does its work; sent alone, and never stored
//
// Labels: "alarm" is the kind, "about" the thing, "state" is "begins", "lasts", "ended" or "once".
#ifndef AGENT_ALERTS_OWN_ALERT_H
#define AGENT_ALERTS_OWN_ALERT_H

#include <cstdint>
#include <string>
#include <vector>

#include "agent/alerts/alert_store.h"

namespace alerts {

inline constexpr char kOwnSource[] = "SYSLOGMON";

// The numbers are the event IDs, and stay what they are.
enum class OwnEvent : uint32_t {
    kLoss = 1,
    kMonitorEnded,
    kTable,
    kUnreadable,
    kSilent,
    kBacklog,
    kStoreFull,
    kSinkFails,
    kClock,
    kSilenceEnded,
    kFleet,
    kHeartbeat,
};

// Is it over, or does it go on? What happens at one moment is neither.
enum class OwnState { kOnce, kBegins, kLasts, kEnded };

struct OwnAlert {
    OwnEvent event = OwnEvent::kLoss;
    OwnState state = OwnState::kOnce;
    std::string about;             // which file, input or sink; may be empty
    std::string message;           // a sentence without a full stop
    std::string log;               // what it is told of as; empty: `about`
    HeldBack held_back = {};       // of a silence
    int64_t lines_passed_over = 0; // of a loss, as far as they were counted
};

// How often the monitor has told of something about itself, since the store was made; also what the store has no more.
// Of more than kMostOwnTotals, those of further logs are added up under the empty name.
struct OwnTotal {
    OwnEvent event = OwnEvent::kLoss;
    std::string log; // of a loss: the log, or the input; of all else empty
    int64_t alerts = 0;
    int64_t lines_passed_over = 0;
};
constexpr int64_t kMostOwnTotals = 1000;

// "sink-fails": of a number that is none of them, empty.
std::string OwnKind(OwnEvent event);

// Stores it with the time and the host of this moment. Part of the pass or transaction that is under way; otherwise a
// transaction of its own. Throws host::StoreError.
void AddOwnAlert(host::Store &store, const OwnAlert &own);

// By kind, then by log. Throws host::StoreError.
std::vector<OwnTotal> ReadOwnTotals(host::Database &database);

// The sign of life, without its time.
Alert HeartbeatAlert();

// Is it the monitor's own alert that this sink fails, or fails no longer? What another host tells is of a sink of its own,
// also when that has the same name.
bool IsAboutSink(const Alert &alert, const std::string &sink);

} // namespace alerts

#endif // AGENT_ALERTS_OWN_ALERT_H
