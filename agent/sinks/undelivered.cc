#include "agent/sinks/undelivered.h"

namespace sinks {

std::vector<Undelivered> ReadUndelivered(host::Database &database, int64_t sink)
{
    host::Statement select(database, "SELECT peer, alert, since_ms, reason, again FROM undelivered"
                                     " WHERE sink = ? ORDER BY alert, peer");
    std::vector<Undelivered> rows;
    select.Start(sink);
    while (select.Next())
        rows.push_back({select.Text(0), select.Integer(1), select.Integer(2), select.Text(3),
                        select.Integer(4) != 0});
    return rows;
}

void WriteChanges(host::Store &store, int64_t sink, const std::vector<UndeliveredChange> &changes)
{
    store.Write([&](host::Database &database) {
        // From reg_key and alert: when one of them is gone there is nothing to insert, and no
        // foreign key to break. REPLACE, since an alert that was sent again and refused again is
        // there already; its wish goes with the old row.
        host::Statement put(database, "INSERT OR REPLACE INTO undelivered"
                                      " (sink, peer, alert, since_ms, reason, again)"
                                      " SELECT reg_key.id, ?, alert.id, ?, ?, ? FROM reg_key, alert"
                                      " WHERE reg_key.id = ? AND alert.id = ?");
        host::Statement remove(database,
                               "DELETE FROM undelivered WHERE sink = ? AND peer = ? AND alert = ?");
        for (const auto &[row, was_taken] : changes) {
            if (was_taken)
                remove.Run(sink, row.peer, row.alert_id);
            else
                put.Run(row.peer, row.since_ms, row.reason, row.again ? 1 : 0, sink, row.alert_id);
        }
    });
}

void WantAgain(host::Store &store, int64_t sink, int64_t alert_id)
{
    store.Write([&](host::Database &database) {
        host::Statement(database, "UPDATE undelivered SET again = 1 WHERE sink = ? AND alert = ?")
            .Run(sink, alert_id);
    });
}

void RemoveUndelivered(host::Store &store, int64_t sink, int64_t alert_id)
{
    store.Write([&](host::Database &database) {
        host::Statement(database, "DELETE FROM undelivered WHERE sink = ? AND alert = ?")
            .Run(sink, alert_id);
    });
}

} // namespace sinks
