#include "agent/host/schema.h"

#include <cstdio>
#include <sys/random.h>

#include "agent/host/error.h"
#include "agent/host/store_file.h"

namespace host {

namespace {

// What takes the tables from version i to i + 1. A step that was released is never changed again.
constexpr const char *kSteps[] = {
    // 1: names are compared without case (of ASCII letters); keys come in the order of their
    // numbers.
    "CREATE TABLE store (uuid TEXT NOT NULL);"
    "CREATE TABLE reg_key ("
    "  id INTEGER PRIMARY KEY AUTOINCREMENT," // never used again, so a stale handle meets nothing
    "  parent INTEGER NOT NULL,"
    "  name TEXT NOT NULL COLLATE NOCASE,"
    "  UNIQUE (parent, name));"
    // The root, so that values can stand in it. It is nobody's child.
    "INSERT INTO reg_key (id, parent, name) VALUES (0, -1, '');"
    "CREATE TABLE reg_value ("
    "  key INTEGER NOT NULL REFERENCES reg_key (id) ON DELETE CASCADE,"
    "  name TEXT NOT NULL COLLATE NOCASE,"
    "  type INTEGER NOT NULL,"
    "  data BLOB NOT NULL,"
    "  PRIMARY KEY (key, name));"
    "CREATE TABLE alert ("
    "  id INTEGER PRIMARY KEY AUTOINCREMENT,"
    "  time_ms INTEGER NOT NULL," // since 1970, UTC
    "  host TEXT NOT NULL,"
    "  log_name TEXT NOT NULL,"
    "  source TEXT NOT NULL,"
    "  event_id INTEGER NOT NULL,"
    "  count INTEGER NOT NULL," // hits that made this report
    "  message TEXT NOT NULL);"
    // The monitoring table as it was when the last pass ended, in table order.
    "CREATE TABLE hit_counter ("
    "  position INTEGER PRIMARY KEY,"
    "  source TEXT NOT NULL,"
    "  event_id INTEGER NOT NULL,"
    "  report_count INTEGER NOT NULL,"
    "  current_count INTEGER NOT NULL);",
    // 2: how far each sink has come. A sink is the registry key that configures it, so its rows go
    // with the key, and a new sink of the same name starts anew.
    "CREATE TABLE delivery ("
    "  sink INTEGER NOT NULL REFERENCES reg_key (id) ON DELETE CASCADE,"
    "  peer TEXT NOT NULL,"            // empty: the sink as a whole
    "  last_id INTEGER NOT NULL,"      // alerts up to this one are done with
    "  delivered INTEGER NOT NULL,"    // how many of them the receiver has taken
    "  dropped INTEGER NOT NULL,"      // how many were given up
    "  delivered_ms INTEGER NOT NULL," // when the receiver took the newest, since 1970, 0: never
    "  last_error TEXT NOT NULL,"      // empty: the last try did it
    "  error_ms INTEGER NOT NULL,"     // when that was, since 1970, 0: never
    "  PRIMARY KEY (sink, peer)) WITHOUT ROWID;",
    // 3: the alerts that a receiver does not take although it takes others. They go with their sink,
    // and with their alert.
    "CREATE TABLE undelivered ("
    "  sink INTEGER NOT NULL REFERENCES reg_key (id) ON DELETE CASCADE,"
    "  peer TEXT NOT NULL," // as in delivery
    "  alert INTEGER NOT NULL REFERENCES alert (id) ON DELETE CASCADE,"
    "  since_ms INTEGER NOT NULL," // when it was put aside, since 1970, UTC
    "  reason TEXT NOT NULL,"      // what the receiver said
    "  again INTEGER NOT NULL,"    // 1: somebody wants it to be sent again
    "  PRIMARY KEY (sink, peer, alert)) WITHOUT ROWID;"
    "CREATE INDEX undelivered_alert ON undelivered (alert);",
    // 4: an alert can stand for many reports; keys of alerts differ even between copies of a store.
    "ALTER TABLE alert ADD COLUMN reports INTEGER NOT NULL DEFAULT 1;"
    "ALTER TABLE alert ADD COLUMN last_time_ms INTEGER NOT NULL DEFAULT 0;" // 0: of a single report
    "ALTER TABLE alert ADD COLUMN last_message TEXT NOT NULL DEFAULT '';"
    // The alerts from this one on, up to the next row's, have this in their keys. Those of the
    // versions before had the store's own.
    "CREATE TABLE key_series (first_alert INTEGER PRIMARY KEY, uuid TEXT NOT NULL);"
    "INSERT INTO key_series (first_alert, uuid) SELECT 0, uuid FROM store;",
    // 5: inputs. How far each was read: a row for each file, one for a journal. They go with the input.
    "CREATE TABLE input_place ("
    "  input INTEGER NOT NULL REFERENCES reg_key (id) ON DELETE CASCADE,"
    "  number INTEGER NOT NULL,"
    "  place TEXT NOT NULL," // a journal's cursor; of a file, see agent/inputs/place.h
    "  PRIMARY KEY (input, number)) WITHOUT ROWID;"
    // What counts of the spool, which lies beside the store.
    "CREATE TABLE spool ("
    "  id INTEGER PRIMARY KEY CHECK (id = 1),"
    "  generation INTEGER NOT NULL,"
    "  length INTEGER NOT NULL,"
    "  last_line INTEGER NOT NULL);"
    // From this offset of the spool on, up to the next row's, the lines are of this log.
    "CREATE TABLE spool_origin (at INTEGER PRIMARY KEY, input TEXT NOT NULL, log TEXT NOT NULL);"
    // The line at this offset had another time stamp.
    "CREATE TABLE spool_stamp (at INTEGER PRIMARY KEY, stamp TEXT NOT NULL);"
    // Of the line of an alert: who wrote it, and when by its own account. Empty: not known.
    "ALTER TABLE alert ADD COLUMN line_host TEXT NOT NULL DEFAULT '';"
    "ALTER TABLE alert ADD COLUMN program TEXT NOT NULL DEFAULT '';"
    "ALTER TABLE alert ADD COLUMN own_time TEXT NOT NULL DEFAULT '';",
    // 6: what the policy of an event makes of an alert. Empty: nothing.
    "ALTER TABLE alert ADD COLUMN severity TEXT NOT NULL DEFAULT '';"
    "ALTER TABLE alert ADD COLUMN labels TEXT NOT NULL DEFAULT '';" // a line each: NAME=VALUE
    "ALTER TABLE alert ADD COLUMN summary TEXT NOT NULL DEFAULT '';"
    "ALTER TABLE alert ADD COLUMN runbook_url TEXT NOT NULL DEFAULT '';",
    // 7: what the policies of events have counted, and what an alert tells of it. A row for each event,
    // and for each value of it.
    "CREATE TABLE policy_event ("
    "  source TEXT NOT NULL,"
    "  event_id INTEGER NOT NULL,"
    "  terms TEXT NOT NULL," // by which it is counted
    "  dropped_values INTEGER NOT NULL,"
    "  dropped_hits INTEGER NOT NULL,"
    "  PRIMARY KEY (source, event_id)) WITHOUT ROWID;"
    "CREATE TABLE policy_value ("
    "  source TEXT NOT NULL,"
    "  event_id INTEGER NOT NULL,"
    "  value TEXT NOT NULL,"       // of what it is counted for; empty: of all lines
    "  use INTEGER NOT NULL,"      // ascends from the least recent value to the most recent one
    "  moments BLOB NOT NULL,"     // pairs of 8 bytes, the lowest first: seconds since 1970, hits
    "  reported INTEGER NOT NULL," // seconds since 1970; -1: never
    "  held_reports INTEGER NOT NULL,"
    "  held_hits INTEGER NOT NULL,"
    "  held_first_time INTEGER NOT NULL,"
    "  held_first TEXT NOT NULL,"
    "  held_last_time INTEGER NOT NULL,"
    "  held_last TEXT NOT NULL,"
    "  PRIMARY KEY (source, event_id, value),"
    "  FOREIGN KEY (source, event_id) REFERENCES policy_event ON DELETE CASCADE) WITHOUT ROWID;"
    "ALTER TABLE alert ADD COLUMN value TEXT NOT NULL DEFAULT '';"
    "ALTER TABLE alert ADD COLUMN held_reports INTEGER NOT NULL DEFAULT 0;"
    "ALTER TABLE alert ADD COLUMN held_hits INTEGER NOT NULL DEFAULT 0;"
    "ALTER TABLE alert ADD COLUMN held_first_ms INTEGER NOT NULL DEFAULT 0;"
    "ALTER TABLE alert ADD COLUMN held_first TEXT NOT NULL DEFAULT '';"
    "ALTER TABLE alert ADD COLUMN held_last_ms INTEGER NOT NULL DEFAULT 0;"
    "ALTER TABLE alert ADD COLUMN held_last TEXT NOT NULL DEFAULT '';",
    // 8: the troubles of the monitor that were told of and are not known to be over. Times since 1970, UTC.
    "CREATE TABLE alarm ("
    "  event_id INTEGER NOT NULL," // of the alerts about it
    "  about TEXT NOT NULL,"
    "  message TEXT NOT NULL,"
    "  since_ms INTEGER NOT NULL,"
    "  told_ms INTEGER NOT NULL," // the last time
    "  over_ms INTEGER NOT NULL," // since when it is not there; 0: it is there
    "  PRIMARY KEY (event_id, about)) WITHOUT ROWID;",
    // 9: what is counted over time: see agent/history/history_writer.h.
    "CREATE TABLE series ("
    "  id INTEGER PRIMARY KEY AUTOINCREMENT," // never used again: the history has it
    "  kind INTEGER NOT NULL,"
    "  name TEXT NOT NULL,"
    "  event_id INTEGER NOT NULL,"
    "  total INTEGER NOT NULL," // without the minute under way
    "  used INTEGER NOT NULL,"  // the last minute with a value, in seconds since 1970
    "  UNIQUE (kind, name, event_id));"
    "CREATE TABLE history ("
    "  length INTEGER NOT NULL,"  // seconds: of a minute, an hour, a day
    "  begin INTEGER NOT NULL,"   // seconds since 1970
    "  \"values\" TEXT NOT NULL," // SERIES=VALUE, with blanks between
    "  PRIMARY KEY (length, begin));",
    // 10: what a sink may still send, what it holds back, and what silences hold back.
    "ALTER TABLE delivery ADD COLUMN full_ms INTEGER NOT NULL DEFAULT 0;" // see agent/sinks/rate.h
    // Up to this alert the next message tells of all at once; 0: no such message is under way.
    "ALTER TABLE delivery ADD COLUMN planned_id INTEGER NOT NULL DEFAULT 0;"
    // Alerts that have left the store before the sink could tell of them, by event.
    "CREATE TABLE delivery_held ("
    "  sink INTEGER NOT NULL REFERENCES reg_key (id) ON DELETE CASCADE,"
    "  part INTEGER NOT NULL," // 0: of the message under way; 1: of a later one
    "  source TEXT NOT NULL,"
    "  event_id INTEGER NOT NULL,"
    "  alerts INTEGER NOT NULL,"
    "  hits INTEGER NOT NULL,"
    "  first_ms INTEGER NOT NULL,"
    "  first TEXT NOT NULL,"
    "  last_ms INTEGER NOT NULL,"
    "  last TEXT NOT NULL,"
    "  PRIMARY KEY (sink, part, source, event_id)) WITHOUT ROWID;"
    // The number of the silence that holds an alert back; 0: none does.
    "ALTER TABLE alert ADD COLUMN silence INTEGER NOT NULL DEFAULT 0;"
    // What each silence has held back, and has not told of in an alert yet.
    "CREATE TABLE silence_held ("
    "  silence INTEGER PRIMARY KEY,"
    "  alerts INTEGER NOT NULL,"
    "  hits INTEGER NOT NULL,"
    "  first_ms INTEGER NOT NULL,"
    "  first TEXT NOT NULL,"
    "  last_ms INTEGER NOT NULL,"
    "  last TEXT NOT NULL);",
    // 11: the files of the logs that the monitor follows by its own rules, as far as it has read them.
    "CREATE TABLE log_file ("
    "  slot INTEGER NOT NULL,"
    "  age INTEGER NOT NULL," // ascends from the oldest to the newest
    "  log TEXT NOT NULL,"    // the name that is followed
    "  path TEXT NOT NULL,"   // that it had last
    "  device INTEGER NOT NULL,"
    "  inode INTEGER NOT NULL,"   // 0: what it held has no file any more
    "  read_to INTEGER NOT NULL," // bytes
    "  checked_to INTEGER NOT NULL,"
    "  size INTEGER NOT NULL,"
    "  written_ms INTEGER NOT NULL," // since 1970, UTC
    "  head BLOB NOT NULL,"          // the first bytes, and those before read_to
    "  tail BLOB NOT NULL,"
    "  is_left INTEGER NOT NULL," // 1: the monitor has gone on to a newer one
    "  PRIMARY KEY (slot, age)) WITHOUT ROWID;",
    // 12: how many alerts of each kind the monitor has made about itself, and of which log or input.
    "CREATE TABLE own_total ("
    "  event_id INTEGER NOT NULL,"
    "  log TEXT NOT NULL,"
    "  alerts INTEGER NOT NULL,"
    "  lines INTEGER NOT NULL," // that were passed over, as far as they were counted
    "  PRIMARY KEY (event_id, log)) WITHOUT ROWID;",
    // 13: alerts of other hosts: see agent/fleet/ledger.h. An alert that was collected has the key of its own store.
    "ALTER TABLE alert ADD COLUMN origin TEXT NOT NULL DEFAULT '';"
    "CREATE TABLE fleet_host ("
    "  uuid TEXT PRIMARY KEY," // of its store
    "  name TEXT NOT NULL,"
    "  last_id INTEGER NOT NULL,"                 // there, of the last alert that was taken
    "  alerts INTEGER NOT NULL,"                  // how many were taken
    "  dropped INTEGER NOT NULL,"                 // how many that host says that it has dropped
    "  missing INTEGER NOT NULL,"                 // how many are missing without a word about them
    "  refused INTEGER NOT NULL,"                 // how many messages were no alerts
    "  heard_ms INTEGER NOT NULL) WITHOUT ROWID;" // when the last one was taken
    // How far the stream was taken.
    "CREATE TABLE fleet_place ("
    "  id INTEGER PRIMARY KEY CHECK (id = 1),"
    "  stream TEXT NOT NULL,"
    "  created INTEGER NOT NULL," // when it was made, in nanoseconds since 1970: of another one the place is nothing
    "  sequence INTEGER NOT NULL,"
    "  problem TEXT NOT NULL," // why nothing is taken; empty: nothing is wrong
    "  problem_ms INTEGER NOT NULL);",
    // 14: what the groups of this host have brought: see agent/fleet/fleet_rules.h.
    "CREATE TABLE fleet_group ("
    "  name TEXT PRIMARY KEY,"
    "  created INTEGER NOT NULL," // when the bucket was made, in nanoseconds since 1970
    "  revision INTEGER NOT NULL,"
    "  is_canary INTEGER NOT NULL,"
    "  value TEXT NOT NULL) WITHOUT ROWID;" // as it stands in the bucket
    "CREATE TABLE fleet_owned ("
    "  kind TEXT NOT NULL," // event, setting
    "  name TEXT NOT NULL," // of an event, its source as it is compared
    "  event_id INTEGER NOT NULL,"
    "  PRIMARY KEY (kind, name, event_id)) WITHOUT ROWID;",
    // 15: by which terms an alert was reported.
    "ALTER TABLE alert ADD COLUMN terms TEXT NOT NULL DEFAULT '';",
    // 16: when the servers stored the message up to which the stream was taken, in nanoseconds since 1970; 0: not known.
    "ALTER TABLE fleet_place ADD COLUMN stored_ns INTEGER NOT NULL DEFAULT 0;",
    // 17: when the servers stored the files of a group, in milliseconds since 1970; 0: not known.
    "ALTER TABLE fleet_group ADD COLUMN stored_ms INTEGER NOT NULL DEFAULT 0;",
    // 18: numbers of a host's alerts that have not come, though a later one has: see agent/fleet/holes.h.
    "CREATE TABLE fleet_hole ("
    "  uuid TEXT NOT NULL,"
    "  first_id INTEGER NOT NULL,"
    "  last_id INTEGER NOT NULL,"
    "  since_ms INTEGER NOT NULL," // since 1970, by the servers' clock: of the alerts on both sides
    "  until_ms INTEGER NOT NULL,"
    "  noticed_ms INTEGER NOT NULL," // by this host's clock
    "  next_ms INTEGER NOT NULL,"    // when the servers are to be asked for them
    "  tries INTEGER NOT NULL,"      // how often that was done
    "  kind INTEGER NOT NULL," // 0 noticed, 1 told as missing, 2 before the first alert that was taken
    "  PRIMARY KEY (uuid, first_id)) WITHOUT ROWID;"
    "ALTER TABLE fleet_host ADD COLUMN stored_ms INTEGER NOT NULL DEFAULT 0;" // by the servers: of the last alert
    "ALTER TABLE fleet_host ADD COLUMN late INTEGER NOT NULL DEFAULT 0;", // how many came behind later ones
    // 19: the servers' word that what a group tried was taken back: its revision, and when they stored it; 0: there is none.
    // In parentheses, since clang takes two lines alone for a forgotten comma.
    ("ALTER TABLE fleet_group ADD COLUMN ended_revision INTEGER NOT NULL DEFAULT 0;"
     "ALTER TABLE fleet_group ADD COLUMN ended_ms INTEGER NOT NULL DEFAULT 0;"),
};
constexpr int kVersion = static_cast<int>(std::size(kSteps));

// Marks the file as ours ("SYSL"), for file(1) and for anyone who finds it.
constexpr int64_t kApplicationId = 1398362956;
constexpr char kSetApplicationId[] = "PRAGMA application_id = 1398362956";

} // namespace

std::string NewUuid(const std::filesystem::path &store)
{
    unsigned char bytes[16] = {};
    // Sixteen bytes come at once or not at all.
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes))
        throw StoreError("cannot create " + store.string(), "the kernel has no random numbers",
                         "try again later");
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0FU) | 0x40U); // version 4: random
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3FU) | 0x80U);
    std::string text;
    for (size_t i = 0; i < sizeof bytes; ++i) {
        char hex[4];
        snprintf(hex, sizeof hex, "%02x", bytes[i]);
        text += hex;
        // In groups of 4, 2, 2, 2 and 6 bytes, as UUIDs are written.
        if (i == 3 || i == 5 || i == 7 || i == 9)
            text += '-';
    }
    return text;
}

namespace {

int ReadVersion(Database &database)
{
    Statement version(database, "PRAGMA user_version");
    version.Start();
    version.Next();
    return static_cast<int>(version.Integer(0));
}

// The version goes with the tables in one transaction, so a crash leaves the old ones with the old
// number.
void RunSteps(Database &database, int from)
{
    for (int step = from; step < kVersion; ++step)
        database.Execute(kSteps[step]);
    database.Execute(("PRAGMA user_version = " + std::to_string(kVersion)).c_str());
}

} // namespace

void CreateSchema(Database &database)
{
    database.Execute(kSetApplicationId);
    database.Execute("BEGIN IMMEDIATE");
    RunSteps(database, 0);
    Statement(database, "INSERT INTO store (uuid) VALUES (?)").Run(NewUuid(database.path()));
    database.Execute("COMMIT");
}

void UpdateSchema(Database &database)
{
    const int version = ReadVersion(database);
    if (version == kVersion)
        return;
    if (version > kVersion)
        throw StoreError("cannot use " + database.path().string(),
                         "it was written by a newer version of this program",
                         "install that version again");
    // A file of another program: the agent's has its version before it has its name.
    if (version == 0)
        throw StoreError("cannot use " + database.path().string(), "it is not a store of the agent",
                         kReplaceStore);
    // Under the store's creation lock: no other program of this version updates at the same time.
    database.Execute("BEGIN IMMEDIATE");
    RunSteps(database, version);
    database.Execute("COMMIT");
}

void CheckSchema(Database &database)
{
    CheckIsStore(database);
    if (ReadVersion(database) != kVersion)
        throw StoreError("cannot use " + database.path().string(),
                         "it was written by an older version of this program",
                         "start the daemon, which brings it up to date, or run this as root");
}

void CheckIsStore(Database &database)
{
    Statement application(database, "PRAGMA application_id");
    application.Start();
    const int version = ReadVersion(database);
    if (!application.Next() || application.Integer(0) != kApplicationId || version == 0)
        throw StoreError("cannot use " + database.path().string(), "it is not a store of the agent",
                         "use a file that syslogmon backup has made");
    if (version > kVersion)
        throw StoreError("cannot use " + database.path().string(),
                         "it was written by a newer version of this program",
                         "install that version");
}

std::string ReadUuid(Database &database)
{
    Statement read(database, "SELECT uuid FROM store");
    read.Start();
    return read.Next() ? read.Text(0) : std::string{};
}

} // namespace host
