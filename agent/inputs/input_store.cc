#include "agent/inputs/input_store.h"

namespace inputs {

std::vector<StoredPlace> ReadPlaces(host::Database &database, InputId input)
{
    host::Statement select(database,
                           "SELECT number, place FROM input_place WHERE input = ? ORDER BY number");
    select.Start(input);
    std::vector<StoredPlace> places;
    while (select.Next())
        places.push_back({select.Integer(0), select.Text(1)});
    return places;
}

void WritePlaces(host::Store &store, const Batch &batch)
{
    if (batch.places.empty())
        return;
    store.Write([&](host::Database &database) {
        host::Statement put(database, "INSERT OR REPLACE INTO input_place (input, number, place)"
                                      " SELECT ?1, ?2, ?3 WHERE EXISTS"
                                      " (SELECT 1 FROM reg_key WHERE id = ?1)");
        host::Statement forget(database, "DELETE FROM input_place WHERE input = ? AND number = ?");
        for (const auto &[key, place] : batch.places) {
            if (place)
                put.Run(key.first, key.second, *place);
            else
                forget.Run(key.first, key.second);
        }
    });
}

SpoolState ReadSpoolState(host::Database &database)
{
    host::Statement select(database, "SELECT generation, length, last_line FROM spool");
    select.Start();
    if (!select.Next())
        return {};
    return {select.Integer(0), select.Integer(1), select.Integer(2)};
}

void WriteSpoolState(host::Store &store, const SpoolState &state)
{
    store.Write([&](host::Database &database) {
        host::Statement put(database, "INSERT OR REPLACE INTO spool (id, generation, length,"
                                      " last_line) VALUES (1, ?, ?, ?)");
        put.Run(state.generation, state.length, state.last_line);
    });
}

void WriteOrigins(host::Store &store, const Batch &batch, int64_t at)
{
    store.Write([&](host::Database &database) {
        host::Statement origin(database, "INSERT OR REPLACE INTO spool_origin (at, input, log)"
                                         " VALUES (?, ?, ?)");
        for (const Batch::Origin &row : batch.origins) {
            if (row.at < batch.text.size())
                origin.Run(at + static_cast<int64_t>(row.at), row.input, row.log);
        }
        host::Statement stamp(database,
                              "INSERT OR REPLACE INTO spool_stamp (at, stamp) VALUES (?, ?)");
        for (const Batch::OwnStamp &row : batch.own_stamps)
            stamp.Run(at + static_cast<int64_t>(row.at), row.stamp);
    });
}

void ForgetOrigins(host::Store &store)
{
    store.Write([](host::Database &database) {
        host::Statement(database, "DELETE FROM spool_origin").Run();
        host::Statement(database, "DELETE FROM spool_stamp").Run();
    });
}

std::optional<SpoolOrigin> ReadOrigin(host::Database &database, int64_t at)
{
    host::Statement origin(database, "SELECT input, log FROM spool_origin WHERE at <= ?"
                                     " ORDER BY at DESC LIMIT 1");
    origin.Start(at);
    if (!origin.Next())
        return std::nullopt;
    SpoolOrigin found{origin.Text(0), origin.Text(1), ""};
    host::Statement stamp(database, "SELECT stamp FROM spool_stamp WHERE at = ?");
    stamp.Start(at);
    if (stamp.Next())
        found.own_stamp = stamp.Text(0);
    return found;
}

} // namespace inputs
