#include "agent/alerts/alert_store.h"

namespace alerts {

int64_t AddAlert(tarsk::Store &store, const Alert &alert)
{
    int64_t id = 0;
    store.Write([&](tarsk::Database &database) {
        tarsk::Statement insert(database,
                                "INSERT INTO alert (time_ms, host, log_name, source, event_id,"
                                " count, message) VALUES (?, ?, ?, ?, ?, ?, ?)");
        insert.Run(alert.time_ms, alert.host, alert.log_name, alert.source, alert.event_id,
                   alert.count, alert.message);
        id = database.LastInsertId();
    });
    return id;
}

namespace {

// The rows of a started statement whose columns are those of an alert.
std::vector<Alert> AlertsOf(tarsk::Statement &select)
{
    std::vector<Alert> found;
    while (select.Next())
        found.push_back({select.Integer(0), select.Integer(1), select.Text(2), select.Text(3),
                         select.Text(4), static_cast<uint32_t>(select.Integer(5)),
                         static_cast<int32_t>(select.Integer(6)), select.Text(7)});
    return found;
}

} // namespace

std::vector<Alert> ReadAlerts(tarsk::Database &database, int64_t after, int64_t since_ms,
                              int64_t limit)
{
    tarsk::Statement select(database,
                            "SELECT id, time_ms, host, log_name, source, event_id, count, message"
                            " FROM alert WHERE id > ? AND time_ms >= ? ORDER BY id LIMIT ?");
    select.Start(after, since_ms, limit);
    return AlertsOf(select);
}

int64_t NewestAlertId(tarsk::Database &database)
{
    // Of the sequence, not of the rows: old alerts may have been removed.
    tarsk::Statement newest(database, "SELECT seq FROM sqlite_sequence WHERE name = 'alert'");
    newest.Start();
    return newest.Next() ? newest.Integer(0) : 0;
}

int64_t OldestAlertId(tarsk::Database &database)
{
    tarsk::Statement oldest(database, "SELECT min(id) FROM alert");
    oldest.Start();
    return oldest.Next() && !oldest.IsNull(0) ? oldest.Integer(0) : NewestAlertId(database) + 1;
}

std::vector<Alert> NewestOfEachKind(tarsk::Database &database, int64_t up_to, int64_t since_ms,
                                    int64_t from)
{
    tarsk::Statement select(database,
                            "SELECT max(id), time_ms, host, log_name, source, event_id, count,"
                            " message FROM alert WHERE id <= ? AND (time_ms >= ? OR id >= ?)"
                            " GROUP BY source, event_id, host ORDER BY 1");
    select.Start(up_to, since_ms, from);
    return AlertsOf(select);
}

void RemoveAlerts(tarsk::Store &store, int64_t up_to)
{
    store.Write([&](tarsk::Database &database) {
        tarsk::Statement(database, "DELETE FROM alert WHERE id <= ?").Run(up_to);
    });
}

std::string IdempotencyKey(const std::string &store_uuid, int64_t id)
{
    return store_uuid + "/" + std::to_string(id);
}

} // namespace alerts
