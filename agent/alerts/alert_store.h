// The alerts in the store. An alert is stored in the pass that reported it, so it exists exactly
// when the lines behind it count as read.
//
// The monitor thread adds alerts, within its passes. The deliverer reads and removes them, over a
// connection of its own; commands read them. All functions throw host::StoreError when the store
// fails, and then nothing of their change is stored. What only reads takes the bare connection;
// several reads are of one state only within a host::Snapshot.
#ifndef AGENT_ALERTS_ALERT_STORE_H
#define AGENT_ALERTS_ALERT_STORE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/events/event_policy.h"
#include "agent/host/store.h"

namespace alerts {

// Reports of the event, or of its value, that a cooldown has held back since the alert before this one.
// Times are those of the lines.
struct HeldBack {
    int64_t reports = 0;
    int64_t hits = 0;
    int64_t first_ms = 0;
    int64_t last_ms = 0;
    std::string first; // the lines, cut
    std::string last;
};

// One alert: a row of the table, and the key that it has towards others. Texts are in the
// registry's character set, but a line that could not be converted keeps its bytes: whoever shows
// or sends it sees to what is no UTF-8.
struct Alert {
    int64_t id = 0;      // ascending in the order of the reports; given by the store
    int64_t time_ms = 0; // since 1970, UTC
    std::string host;    // of the monitor that reported it
    std::string log_name;
    std::string source;
    uint32_t event_id = 0;
    int64_t count = 0;     // hits that it stands for
    std::string message;   // the line
    std::string line_host; // that wrote the line; empty: not known
    std::string program;   // the same of the program
    std::string own_time; // the time stamp of the line, when it was replaced by the time of reading
    // What the event's policy says of it; empty: nothing.
    std::string severity;
    events::Labels labels;
    std::string summary;
    std::string runbook_url;
    std::string value; // of the host, program or capture that the hits were counted for
    // By what its event is reported, in words, as it was set at that moment; empty: by each line at any hour, or not known.
    std::string terms;
    HeldBack held_back;
    uint32_t silence = 0; // the number of the silence that holds it back: no sink gets it; 0: none
    // Of a flood, one alert stands for many reports of its event. `time_ms` and `message` are then of
    // the first of them, and these of the last; of a single report they are 0 and empty.
    int64_t reports = 1;
    int64_t last_time_ms = 0;
    std::string last_message;
    // What identifies it towards other systems, for ever: "UUID/ID". Given by the store. No other
    // alert has it, not even one of a copy of the store.
    std::string key;
    bool is_collected =
        false; // it comes from the store of another host, which has given it its key

    [[nodiscard]] bool IsFolded() const { return reports > 1; }
    // A line that does not say its host was found on this one.
    [[nodiscard]] const std::string &HostOfLine() const
    {
        return line_host.empty() ? host : line_host;
    }
};

// Bytes that it takes in the store, about: what the limit on the size of all alerts counts.
int64_t BytesOf(const Alert &alert);

// Adds an alert and returns its id. Of `alert`, the id, the key and what tells of further reports
// do not count. Throws host::StoreError.
int64_t AddAlert(host::Store &store, const Alert &alert);

// The same for a further alert of a pass, at half the cost: AddAlert has seen to the series of the
// keys.
int64_t AddFurtherAlert(host::Store &store, const Alert &alert);

// Adds an alert of the store of another host, as it is there, and returns its id here. Its key stays. Throws
// host::StoreError.
int64_t AddCollectedAlert(host::Store &store, const Alert &alert);

// Makes the alert of this id, which is of the same event, stand for a further report. Throws
// host::StoreError.
void FoldInto(host::Store &store, int64_t id, const Alert &report);

// Alerts with an id above `after`, and stored at or after `since_ms` (0: at any time), oldest
// first, at most `limit`. An id, not a place: alerts that are removed meanwhile change nothing.
std::vector<Alert> ReadAlerts(host::Database &database, int64_t after, int64_t since_ms,
                              int64_t limit);

// Which alerts are wanted: those that meet every condition that is set.
struct AlertFilter {
    int64_t since_ms = 0;             // at or after it
    int64_t until_ms = INT64_MAX;     // before it
    std::string severity{};           // at or above it, an alert without one being a warning
    bool is_silenced = false;         // only those that a silence holds back
    std::string source = "*";         // a pattern with *, ? and [...], in which case counts
    std::string host = "*";           // likewise; the line's or its monitor's
    std::optional<uint32_t> event_id; // this one
    std::string text;                 // in the line, in small or capital letters of ASCII
};

// Of those the ones with an id above `after`, oldest first, at most `limit`.
std::vector<Alert> FindAlerts(host::Database &database, const AlertFilter &filter, int64_t after,
                              int64_t limit);

// Ids between two others: what has an id outside of them is not looked at.
struct IdsBetween {
    int64_t above = 0;
    int64_t below = INT64_MAX;
};

// The same of those with such an id, newest first.
std::vector<Alert> FindNewest(host::Database &database, const AlertFilter &filter, IdsBetween ids,
                              int64_t limit);

// The newest of one event among those with an id above `after`; none: it has none there.
std::optional<Alert> FindNewestOf(host::Database &database, const std::string &source,
                                  uint32_t event_id, int64_t after);

// The id behind which exactly the newest `count` of them stand; 0 when there are no more than that.
int64_t BeforeNewest(host::Database &database, const AlertFilter &filter, int64_t count);

// The id of the newest alert that ever was, 0 when there was none yet; it may be removed by now.
int64_t NewestAlertId(host::Database &database);

// The key of an alert by its id, whether it is kept or not. Of one that left the store very long ago it is "/ID".
std::string KeyOf(host::Database &database, int64_t id);

// The id of the oldest alert that is kept; the one after the newest when none is. So the ids that
// are kept are those from here to NewestAlertId, in both cases.
int64_t OldestAlertId(host::Database &database);

// Of each kind of alert (source, event ID, both hosts, labels) the newest, among those with an id up to `up_to`
// that were stored at or after `since_ms` or have an id from `from` on; oldest first. For receivers
// that are told again and again what is active.
std::vector<Alert> NewestOfEachKind(host::Database &database, int64_t up_to, int64_t since_ms,
                                    int64_t from);

// Removes all alerts up to this id. An id that was removed is never given again.
void RemoveAlerts(host::Store &store, int64_t up_to);

// Bytes of the alerts with an id above `after` and up to `up_to`, as BytesOf counts them.
int64_t BytesBetween(host::Database &database, int64_t after, int64_t up_to);

// The oldest alerts, at most `most` of them, without which there are at least so many alerts and
// bytes less: all up to an id, which is 0 when none has to go. `alerts` and `bytes` are what is too
// many of each; 0 or less: enough room. `most` bounds one removal, which holds the write lock that
// the monitor may be waiting for. None behind `last_id` goes.
struct Surplus {
    int64_t up_to = 0;
    int64_t bytes = 0; // of these alerts
};
Surplus FindSurplus(host::Database &database, int64_t alerts, int64_t bytes, int64_t most,
                    int64_t last_id = INT64_MAX);

} // namespace alerts

#endif // AGENT_ALERTS_ALERT_STORE_H
