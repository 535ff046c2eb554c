// The alerts in the store. An alert is stored in the pass that reported it, so it exists exactly
// when the lines behind it count as read.
#ifndef AGENT_ALERTS_ALERT_STORE_H
#define AGENT_ALERTS_ALERT_STORE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/libtarsk/store.h"

namespace alerts {

struct Alert {
    int64_t id = 0;      // ascending in the order of the reports; given by the store
    int64_t time_ms = 0; // since 1970, UTC
    std::string host;
    std::string log_name;
    std::string source;
    uint32_t event_id = 0;
    int32_t count = 0; // hits that made this report
    std::string message;
};

// Adds an alert and returns its id. Throws tarsk::StoreError.
int64_t AddAlert(tarsk::Store &store, const Alert &alert);

// Alerts with an id above `after`, and at or after `since_ms`, oldest first, at most `limit`.
std::vector<Alert> ReadAlerts(tarsk::Database &database, int64_t after, int64_t since_ms,
                              int64_t limit);

// The id of the newest alert that ever was, 0 when there was none yet; it may be removed by now.
int64_t NewestAlertId(tarsk::Database &database);

// The id of the oldest alert that is kept; the one after the newest when none is.
int64_t OldestAlertId(tarsk::Database &database);

// Of each kind of alert (source, event ID, host) the newest, among those with an id up to `up_to`
// that were stored at or after `since_ms` or have an id from `from` on; oldest first.
std::vector<Alert> NewestOfEachKind(tarsk::Database &database, int64_t up_to, int64_t since_ms,
                                    int64_t from);

// Removes all alerts up to this id.
void RemoveAlerts(tarsk::Store &store, int64_t up_to);

// What identifies an alert towards other systems, for ever: "STORE-UUID/ID".
std::string IdempotencyKey(const std::string &store_uuid, int64_t id);

} // namespace alerts

#endif // AGENT_ALERTS_ALERT_STORE_H
