#include "agent/alerts/own_alert.h"

#include "agent/host/here_and_now.h"

namespace alerts {

namespace {

constexpr char kAbout[] = "about";

struct Kind {
    OwnEvent event;
    const char *name;
    const char *severity;
};

constexpr Kind kKinds[] = {
    {OwnEvent::kLoss, "loss", "err"},
    {OwnEvent::kMonitorEnded, "monitor-ended", "crit"},
    {OwnEvent::kTable, "table", "crit"},
    {OwnEvent::kUnreadable, "unreadable", "err"},
    {OwnEvent::kSilent, "silent", "warning"},
    {OwnEvent::kBacklog, "backlog", "warning"},
    {OwnEvent::kStoreFull, "store-full", "err"},
    {OwnEvent::kSinkFails, "sink-fails", "err"},
    {OwnEvent::kClock, "clock", "notice"},
    {OwnEvent::kSilenceEnded, "silence-ended", "notice"},
    {OwnEvent::kFleet, "fleet", "err"},
    {OwnEvent::kHeartbeat, "heartbeat", "info"},
};

const Kind *FindKind(OwnEvent event)
{
    for (const Kind &kind : kKinds) {
        if (kind.event == event)
            return &kind;
    }
    return nullptr;
}

const char *StateName(OwnState state)
{
    switch (state) {
    case OwnState::kOnce:
        return "once";
    case OwnState::kBegins:
        return "begins";
    case OwnState::kLasts:
        return "lasts";
    default:
        return "ended";
    }
}

// The end of something bad is good news.
const char *SeverityOf(const OwnAlert &own)
{
    const Kind *kind = FindKind(own.event);
    return own.state == OwnState::kEnded || kind == nullptr ? "notice" : kind->severity;
}

// Of what happens to a log or an input over and over it is of interest to which.
void AddToTotals(host::Database &database, const OwnAlert &own, const std::string &log)
{
    const bool is_loss = own.event == OwnEvent::kLoss;
    host::Statement add(
        database,
        "INSERT INTO own_total (event_id, log, alerts, lines) VALUES (?1,"
        " iif((SELECT count(*) FROM own_total) < ?2"
        "  OR EXISTS (SELECT 1 FROM own_total WHERE event_id = ?1 AND log = ?3), ?3, ''), 1, ?4)"
        " ON CONFLICT DO UPDATE SET alerts = alerts + 1, lines = lines + excluded.lines");
    add.Run(static_cast<int64_t>(own.event), kMostOwnTotals, is_loss ? log : "",
            own.lines_passed_over);
}

} // namespace

std::string OwnKind(OwnEvent event)
{
    const Kind *kind = FindKind(event);
    return kind == nullptr ? "" : kind->name;
}

namespace {

Alert AlertOf(const OwnAlert &own)
{
    Alert alert;
    alert.time_ms = host::NowMs();
    alert.host = host::HostName();
    alert.log_name = own.log.empty() ? own.about : own.log;
    alert.source = kOwnSource;
    alert.event_id = static_cast<uint32_t>(own.event);
    alert.count = 1;
    alert.message = own.message;
    alert.severity = SeverityOf(own);
    alert.held_back = own.held_back;
    alert.labels = {{"alarm", OwnKind(own.event)}, {"state", StateName(own.state)}};
    if (!own.about.empty())
        alert.labels[kAbout] = own.about;
    return alert;
}

} // namespace

void AddOwnAlert(host::Store &store, const OwnAlert &own)
{
    const Alert alert = AlertOf(own);
    store.Write([&](host::Database &database) {
        AddAlert(store, alert);
        AddToTotals(database, own, alert.log_name);
    });
}

std::vector<OwnTotal> ReadOwnTotals(host::Database &database)
{
    host::Statement select(database, "SELECT event_id, log, alerts, lines FROM own_total");
    std::vector<OwnTotal> totals;
    select.Start();
    while (select.Next())
        totals.push_back({static_cast<OwnEvent>(select.Integer(0)), std::string(select.Text(1)),
                          select.Integer(2), select.Integer(3)});
    return totals;
}

Alert HeartbeatAlert()
{
    OwnAlert own;
    own.event = OwnEvent::kHeartbeat;
    own.message = "the syslog monitor does its work: its last look at the logs is fresh";
    return AlertOf(own);
}

bool IsAboutSink(const Alert &alert, const std::string &sink)
{
    if (alert.is_collected || alert.source != kOwnSource ||
        alert.event_id != static_cast<uint32_t>(OwnEvent::kSinkFails))
        return false;
    const auto about = alert.labels.find(kAbout);
    return about != alert.labels.end() && about->second == sink;
}

} // namespace alerts
