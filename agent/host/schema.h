// The tables of the store, and their versions.
//
//   version  tables
//   1        store (its identity), reg_key, reg_value, alert, hit_counter
//   2        delivery
//   3        undelivered
//   4        key_series; alert: reports, last_time_ms, last_message
//   5        input_place, spool, spool_origin, spool_stamp; alert: line_host, program, own_time
//   6        alert: severity, labels, summary, runbook_url
//   7        policy_event, policy_value; alert: value, held_reports and the like
//   8        alarm
//   9        series, history
//   10       delivery_held, silence_held; delivery: full_ms, planned_id; alert: silence
//   11       log_file
//   12       own_total
//   13       fleet_host, fleet_place; alert: origin
//   14       fleet_group, fleet_owned
//   15       alert: terms
//   16       fleet_place: stored_ns
//   17       fleet_group: stored_ms
//   18       fleet_hole; fleet_host: stored_ms, late
//   19       fleet_group: ended_revision, ended_ms
//
// The version is SQLite's user_version. A store of a newer version is refused: an older program
// would write what the newer one does not understand.
#ifndef AGENT_HOST_SCHEMA_H
#define AGENT_HOST_SCHEMA_H

#include <string>

#include "agent/host/database.h"

namespace host {

// Fills an empty database, in one transaction, and gives it its identity. Throws StoreError.
void CreateSchema(Database &database);

// Brings the tables of an older version up to date, in one transaction; nothing is lost. Throws
// StoreError, with the file as it was. The caller holds the CreationLock.
void UpdateSchema(Database &database);

// Throws StoreError unless the tables are of this version. For who may not write the file.
void CheckSchema(Database &database);

// Throws StoreError unless the file is a store of this version or an older one.
void CheckIsStore(Database &database);

// A new identity, as random as 122 bits can be. The path is named when there is none.
std::string NewUuid(const std::filesystem::path &store);

// The identity that CreateSchema gave to the store. A copy of the file has the same.
std::string ReadUuid(Database &database);

} // namespace host

#endif // AGENT_HOST_SCHEMA_H
