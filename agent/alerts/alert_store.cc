#include "agent/alerts/alert_store.h"

namespace alerts {

namespace {

// What a row takes beside its texts, in bytes, about: six numbers of up to eight bytes, and
// SQLite's own header of the row. The limit on the bytes of all alerts needs no more than an
// estimate, but the same one on both sides: in BytesOf and in the sums of SQL.
constexpr int64_t kBytesOfARow = 64;
// The same in SQL. As BLOB, because length() of a text counts characters, and ends at a zero byte.
const std::string kBytesOfRow =
    "(" + std::to_string(kBytesOfARow) +
    " + length(CAST(host AS BLOB)) + length(CAST(log_name AS BLOB)) + length(CAST(source AS BLOB))"
    " + length(CAST(message AS BLOB)) + length(CAST(last_message AS BLOB))"
    " + length(CAST(line_host AS BLOB)) + length(CAST(program AS BLOB))"
    " + length(CAST(own_time AS BLOB))"
    " + length(CAST(labels AS BLOB)) + length(CAST(summary AS BLOB))"
    " + length(CAST(runbook_url AS BLOB)) + length(CAST(value AS BLOB))"
    " + length(CAST(held_first AS BLOB)) + length(CAST(held_last AS BLOB)) + length(origin)"
    " + length(CAST(terms AS BLOB)))";

// What AlertsOf reads, behind the ID. The series of the key is the newest that began before the
// alert.
const std::string kColumns =
    " time_ms, host, log_name, source, event_id, count, message, reports, last_time_ms,"
    " last_message, line_host, program, own_time, severity, labels, summary, runbook_url,"
    " value, held_reports, held_hits, held_first_ms, held_first, held_last_ms, held_last, silence, "
    "origin, terms,"
    " (SELECT uuid FROM key_series WHERE first_alert "
    "<= alert.id"
    " ORDER BY first_alert DESC LIMIT 1) ";

} // namespace

int64_t BytesOf(const Alert &alert)
{
    return kBytesOfARow + static_cast<int64_t>(
                              alert.host.size() + alert.log_name.size() + alert.source.size() +
                              alert.message.size() + alert.last_message.size() +
                              alert.line_host.size() + alert.program.size() +
                              alert.own_time.size() + events::JoinLabels(alert.labels).size() +
                              alert.summary.size() + alert.runbook_url.size() + alert.value.size() +
                              alert.held_back.first.size() + alert.held_back.last.size() +
                              alert.terms.size() + (alert.is_collected ? alert.key.size() : 0));
}

namespace {

// The ID is SQLite's, with AUTOINCREMENT: once committed it is never given again, not even when all
// alerts are gone. The keys of alerts, and the places of the sinks, need that.
int64_t InsertAlert(host::Database &database, const Alert &alert)
{
    host::KeptStatement insert(database,
                               "INSERT INTO alert (time_ms, host, log_name, source, event_id,"
                               " count, message, line_host, program, own_time, severity, labels,"
                               " summary, runbook_url, value, held_reports, held_hits,"
                               " held_first_ms, held_first, held_last_ms, held_last, silence,"
                               " terms)"
                               " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?,"
                               " ?, ?, ?, ?)");
    const HeldBack &held = alert.held_back;
    insert->Run(alert.time_ms, alert.host, alert.log_name, alert.source, alert.event_id,
                alert.count, alert.message, alert.line_host, alert.program, alert.own_time,
                alert.severity, events::JoinLabels(alert.labels), alert.summary, alert.runbook_url,
                alert.value, held.reports, held.hits, held.first_ms, held.first, held.last_ms,
                held.last, alert.silence, alert.terms);
    return database.LastInsertId();
}

// The keys from this alert on are of the series of this opening of the store, if they are not yet.
// The comparison is with IS NOT, for which no series at all is another one, too.
void BeginSeries(host::Database &database, int64_t id, const std::string &series)
{
    host::KeptStatement begin(
        database, "INSERT INTO key_series (first_alert, uuid) SELECT ?1, ?2 WHERE ?2 IS NOT"
                  " (SELECT uuid FROM key_series ORDER BY first_alert DESC LIMIT 1)");
    begin->Run(id, series);
}

} // namespace

int64_t AddAlert(host::Store &store, const Alert &alert)
{
    int64_t id = 0;
    store.Write([&](host::Database &database) {
        id = InsertAlert(database, alert);
        BeginSeries(database, id, store.series());
    });
    return id;
}

int64_t AddFurtherAlert(host::Store &store, const Alert &alert)
{
    int64_t id = 0;
    store.Write([&](host::Database &database) { id = InsertAlert(database, alert); });
    return id;
}

int64_t AddCollectedAlert(host::Store &store, const Alert &alert)
{
    int64_t id = 0;
    store.Write([&](host::Database &database) {
        id = InsertAlert(database, alert);
        host::KeptStatement rest(database, "UPDATE alert SET reports = ?, last_time_ms = ?,"
                                           " last_message = ?, origin = ? WHERE id = ?");
        rest->Run(alert.reports, alert.last_time_ms, alert.last_message, alert.key, id);
    });
    return id;
}

// The first time and message stay; only what tells of the last report moves on.
void FoldInto(host::Store &store, int64_t id, const Alert &report)
{
    store.Write([&](host::Database &database) {
        host::KeptStatement fold(database,
                                 "UPDATE alert SET count = count + ?1, reports = reports + 1,"
                                 " last_time_ms = ?2, last_message = ?3,"
                                 // The first of all that were held back, and the last.
                                 " held_first_ms = iif(held_reports = 0, ?6, held_first_ms),"
                                 " held_first = iif(held_reports = 0, ?7, held_first),"
                                 " held_last_ms = iif(?4 = 0, held_last_ms, ?8),"
                                 " held_last = iif(?4 = 0, held_last, ?9),"
                                 " held_reports = held_reports + ?4, held_hits = held_hits + ?5"
                                 " WHERE id = ?10");
        const HeldBack &held = report.held_back;
        fold->Run(report.count, report.time_ms, report.message, held.reports, held.hits,
                  held.first_ms, held.first, held.last_ms, held.last, id);
    });
}

namespace {

// The rows of a started statement whose columns are those of an alert: the ID, then kColumns, in
// the order of the numbers below.
std::vector<Alert> AlertsOf(host::Statement &select)
{
    std::vector<Alert> found;
    while (select.Next()) {
        Alert alert;
        alert.id = select.Integer(0);
        alert.time_ms = select.Integer(1);
        alert.host = select.Text(2);
        alert.log_name = select.Text(3);
        alert.source = select.Text(4);
        alert.event_id = static_cast<uint32_t>(select.Integer(5));
        alert.count = select.Integer(6);
        alert.message = select.Text(7);
        alert.reports = select.Integer(8);
        alert.last_time_ms = select.Integer(9);
        alert.last_message = select.Text(10);
        alert.line_host = select.Text(11);
        alert.program = select.Text(12);
        alert.own_time = select.Text(13);
        alert.severity = select.Text(14);
        alert.labels = events::SplitLabels(select.Text(15));
        alert.summary = select.Text(16);
        alert.runbook_url = select.Text(17);
        alert.value = select.Text(18);
        alert.held_back = {select.Integer(19), select.Integer(20), select.Integer(21),
                           select.Integer(23), select.Text(22),    select.Text(24)};
        alert.silence = static_cast<uint32_t>(select.Integer(25));
        alert.key = select.Text(26);
        alert.terms = select.Text(27);
        alert.is_collected = !alert.key.empty();
        if (!alert.is_collected)
            alert.key = select.Text(28) + "/" + std::to_string(alert.id);
        found.push_back(std::move(alert));
    }
    return found;
}

} // namespace

std::vector<Alert> ReadAlerts(host::Database &database, int64_t after, int64_t since_ms,
                              int64_t limit)
{
    host::Statement select(database, ("SELECT id," + kColumns +
                                      "FROM alert WHERE id > ? AND time_ms >= ?"
                                      " ORDER BY id LIMIT ?")
                                         .c_str());
    select.Start(after, since_ms, limit);
    return AlertsOf(select);
}

namespace {

// What a filter asks for, with parameters 1 to 8.
const std::string kMeetsFilter =
    " time_ms >= ?1 AND source GLOB ?2 AND (host GLOB ?3 OR line_host GLOB ?3)"
    " AND (?4 < 0 OR event_id = ?4)"
    " AND time_ms < ?6 AND (?7 = 0 OR silence <> 0)"
    // At or above: earlier in the list of all severities, from which a milder one is not looked for.
    " AND instr(?8, ' ' || iif(severity = '', 'warning', severity) || ' ') > 0"
    " AND (instr(lower(message), lower(?5)) > 0 OR instr(lower(last_message), lower(?5)) > 0) ";

// Parameter 8: those at or above the filter's, with a blank around each.
std::string SeveritiesOf(const AlertFilter &filter)
{
    std::string names = " ";
    for (const std::string &severity : events::kSeverities) {
        names += severity + " ";
        if (severity == filter.severity)
            break;
    }
    return names;
}

// Parameter 4: no event ID is negative.
int64_t EventOf(const AlertFilter &filter)
{
    return filter.event_id ? int64_t{*filter.event_id} : -1;
}

// With the parameters of the filter, and those that follow.
template <typename... Others>
void StartSearch(host::Statement *select, const AlertFilter &filter, const Others &...others)
{
    select->Start(filter.since_ms, filter.source, filter.host, EventOf(filter), filter.text,
                  filter.until_ms, filter.is_silenced ? 1 : 0, SeveritiesOf(filter), others...);
}

} // namespace

std::vector<Alert> FindAlerts(host::Database &database, const AlertFilter &filter, int64_t after,
                              int64_t limit)
{
    host::Statement select(database, ("SELECT id," + kColumns + "FROM alert WHERE" + kMeetsFilter +
                                      "AND id > ?9 ORDER BY id LIMIT ?10")
                                         .c_str());
    StartSearch(&select, filter, after, limit);
    return AlertsOf(select);
}

std::vector<Alert> FindNewest(host::Database &database, const AlertFilter &filter, IdsBetween ids,
                              int64_t limit)
{
    host::Statement select(database, ("SELECT id," + kColumns + "FROM alert WHERE" + kMeetsFilter +
                                      "AND id > ?9 AND id < ?10 ORDER BY id DESC LIMIT ?11")
                                         .c_str());
    StartSearch(&select, filter, ids.above, ids.below, limit);
    return AlertsOf(select);
}

std::optional<Alert> FindNewestOf(host::Database &database, const std::string &source,
                                  uint32_t event_id, int64_t after)
{
    host::Statement select(database, ("SELECT id," + kColumns +
                                      "FROM alert WHERE event_id = ? AND source = ? AND id > ?"
                                      " ORDER BY id DESC LIMIT 1")
                                         .c_str());
    select.Start(event_id, source, after);
    auto found = AlertsOf(select);
    if (found.empty())
        return std::nullopt;
    return std::move(found.front());
}

int64_t BeforeNewest(host::Database &database, const AlertFilter &filter, int64_t count)
{
    host::Statement select(database, ("SELECT id FROM alert WHERE" + kMeetsFilter +
                                      "ORDER BY id DESC LIMIT 1 OFFSET ?9")
                                         .c_str());
    StartSearch(&select, filter, count);
    return select.Next() ? select.Integer(0) : 0;
}

int64_t NewestAlertId(host::Database &database)
{
    // Of the sequence, not of the rows: old alerts may have been removed.
    host::Statement newest(database, "SELECT seq FROM sqlite_sequence WHERE name = 'alert'");
    newest.Start();
    return newest.Next() ? newest.Integer(0) : 0;
}

std::string KeyOf(host::Database &database, int64_t id)
{
    host::Statement collected(database, "SELECT origin FROM alert WHERE id = ? AND origin <> ''");
    collected.Start(id);
    if (collected.Next())
        return collected.Text(0);
    host::Statement series(database, "SELECT uuid FROM key_series WHERE first_alert <= ?"
                                     " ORDER BY first_alert DESC LIMIT 1");
    series.Start(id);
    return (series.Next() ? series.Text(0) : "") + "/" + std::to_string(id);
}

int64_t OldestAlertId(host::Database &database)
{
    host::Statement oldest(database, "SELECT min(id) FROM alert");
    oldest.Start();
    return oldest.Next() && !oldest.IsNull(0) ? oldest.Integer(0) : NewestAlertId(database) + 1;
}

// What stands beside max() without being grouped is of the row that has the maximum. SQLite
// promises that; it is no rule of SQL.
std::vector<Alert> NewestOfEachKind(host::Database &database, int64_t up_to, int64_t since_ms,
                                    int64_t from)
{
    host::Statement select(database,
                           ("SELECT max(id)," + kColumns +
                            "FROM alert WHERE silence = 0 AND id <= ? AND (time_ms >= ? OR id >= ?)"
                            " GROUP BY source, event_id, host, line_host, labels ORDER BY 1")
                               .c_str());
    select.Start(up_to, since_ms, from);
    return AlertsOf(select);
}

namespace {

// Series of which no alert is left are kept as well, the newest: whether an alert that a receiver had last was this store's
// own is known by its key alone. A life of the daemon makes one of them, and each alert of the monitor about itself two at
// most. They take half a megabyte.
constexpr int64_t kSeriesKept = 10000;

} // namespace

// What is noted of them as undelivered goes with them by its foreign key.
void RemoveAlerts(host::Store &store, int64_t up_to)
{
    store.Write([&](host::Database &database) {
        host::Statement(database, "DELETE FROM alert WHERE id <= ?").Run(up_to);
        // Series of which none is left. The one in which the oldest kept alert lies began before
        // that alert, maybe, so all but the newest of those that began in time are dropped. So it is with the alert up to
        // which a message tells that is under way: its key stays that of the first try.
        host::Statement(database, "DELETE FROM key_series WHERE first_alert < (SELECT"
                                  " max(first_alert) FROM key_series WHERE first_alert <= min(?1,"
                                  " (SELECT ifnull(min(planned_id), ?1) FROM delivery"
                                  " WHERE planned_id > 0)))"
                                  " AND first_alert < (SELECT first_alert FROM key_series"
                                  " ORDER BY first_alert DESC LIMIT 1 OFFSET ?2)")
            .Run(up_to + 1, kSeriesKept - 1);
    });
}

int64_t BytesBetween(host::Database &database, int64_t after, int64_t up_to)
{
    host::Statement sum(
        database,
        ("SELECT total(" + kBytesOfRow + ") FROM alert WHERE id > ? AND id <= ?").c_str());
    sum.Start(after, up_to);
    return sum.Next() ? sum.Integer(0) : 0;
}

// Row by row from the oldest, and no further than must be: the statement ends with the first alert
// that may stay. Never the whole table, however large it is.
Surplus FindSurplus(host::Database &database, int64_t alerts, int64_t bytes, int64_t most,
                    int64_t last_id)
{
    host::Statement oldest(
        database,
        ("SELECT id, " + kBytesOfRow + " FROM alert WHERE id <= ? ORDER BY id LIMIT ?").c_str());
    oldest.Start(last_id, most);
    Surplus surplus;
    for (int64_t count = 0; (count < alerts || surplus.bytes < bytes) && oldest.Next(); ++count) {
        surplus.up_to = oldest.Integer(0);
        surplus.bytes += oldest.Integer(1);
    }
    return surplus;
}

} // namespace alerts
