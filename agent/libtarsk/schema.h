// The tables of the store, and their versions.
//
//   version  tables
//   1        store (its identity), reg_key, reg_value, alert, hit_counter
//   2        delivery
//   3        undelivered
//
// The version is SQLite's user_version. A store of a newer version is refused: an older program
// would write what the newer one does not understand.
#ifndef AGENT_LIBTARSK_SCHEMA_H
#define AGENT_LIBTARSK_SCHEMA_H

#include <string>

#include "agent/libtarsk/database.h"

namespace tarsk {

// Fills an empty database. Throws StoreError.
void CreateSchema(Database &database);

// Brings the tables of an older version up to date. Throws StoreError.
void UpdateSchema(Database &database);

// The identity that CreateSchema gave to the store.
std::string ReadUuid(Database &database);

} // namespace tarsk

#endif // AGENT_LIBTARSK_SCHEMA_H
