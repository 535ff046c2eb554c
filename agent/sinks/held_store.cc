#include "agent/sinks/held_store.h"

namespace sinks {

namespace {

constexpr int kOfMessage = 0; // values of the column `part`
constexpr int kBehind = 1;

void Write(host::Database &database, int64_t sink, int part, const Digest &digest)
{
    // From reg_key, as in WriteDeliveries: a sink that is gone gives no row to insert.
    host::KeptStatement insert(
        database, "INSERT INTO delivery_held (sink, part, source, event_id, alerts, hits, first_ms,"
                  " first, last_ms, last)"
                  " SELECT id, ?, ?, ?, ?, ?, ?, ?, ?, ? FROM reg_key WHERE id = ?");
    for (const DigestEvent &event : digest.Events())
        insert->Run(part, event.source, event.event_id, event.alerts, event.hits, event.first_ms,
                    event.first, event.last_ms, event.last, sink);
}

} // namespace

Held ReadHeld(host::Database &database, int64_t sink)
{
    host::Statement select(database, "SELECT part, source, event_id, alerts, hits, first_ms, first,"
                                     " last_ms, last FROM delivery_held WHERE sink = ?");
    Held held;
    select.Start(sink);
    while (select.Next()) {
        Digest &part = select.Integer(0) == kOfMessage ? held.of_message : held.behind;
        part.Add(DigestEvent{select.Text(1), static_cast<uint32_t>(select.Integer(2)),
                             select.Integer(3), select.Integer(4), select.Integer(5),
                             select.Text(6), select.Integer(7), select.Text(8)});
    }
    return held;
}

void WriteHeld(host::Store &store, int64_t sink, const Held &held)
{
    store.Write([&](host::Database &database) {
        host::KeptStatement(database, "DELETE FROM delivery_held WHERE sink = ?")->Run(sink);
        Write(database, sink, kOfMessage, held.of_message);
        Write(database, sink, kBehind, held.behind);
    });
}

} // namespace sinks
