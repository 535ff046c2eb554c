#include "agent/sinks/delivery_store.h"

namespace sinks {

Deliveries ReadDeliveries(host::Database &database, int64_t sink)
{
    host::Statement select(database,
                           "SELECT peer, last_id, delivered, dropped, delivered_ms, last_error,"
                           " error_ms, full_ms, planned_id FROM delivery WHERE sink = ?");
    Deliveries rows;
    select.Start(sink);
    while (select.Next())
        rows[select.Text(0)] = {select.Integer(1), select.Integer(2), select.Integer(3),
                                select.Integer(4), select.Text(5),    select.Integer(6),
                                select.Integer(7), select.Integer(8)};
    return rows;
}

void WriteDeliveries(host::Store &store, int64_t sink, const Deliveries &rows)
{
    store.Write([&](host::Database &database) {
        // All anew: a peer that was taken out of the options goes with its row.
        host::KeptStatement(database, "DELETE FROM delivery WHERE sink = ?")->Run(sink);
        host::KeptStatement insert(
            database, "INSERT INTO delivery (sink, peer, last_id, delivered, dropped,"
                      " delivered_ms, last_error, error_ms, full_ms, planned_id)"
                      // From reg_key: a sink that is gone gives no row to insert. A plain
                      // insert would break its foreign key, and with it the transaction in
                      // which the other sinks are written.
                      " SELECT id, ?, ?, ?, ?, ?, ?, ?, ?, ? FROM reg_key WHERE id = ?");
        for (const auto &[peer, row] : rows)
            insert->Run(peer, row.last_id, row.delivered, row.dropped, row.delivered_ms,
                        row.last_error, row.error_ms, row.full_ms, row.planned_id, sink);
    });
}

} // namespace sinks
