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

} // namespace

std::string OwnKind(OwnEvent event)
{
    const Kind *kind = FindKind(event);
    return kind == nullptr ? "" : kind->name;
}

void AddOwnAlert(host::Store &store, const OwnAlert &own)
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
    AddAlert(store, alert);
}

bool IsAboutSink(const Alert &alert, const std::string &sink)
{
    if (alert.source != kOwnSource || alert.event_id != static_cast<uint32_t>(OwnEvent::kSinkFails))
        return false;
    const auto about = alert.labels.find(kAbout);
    return about != alert.labels.end() && about->second == sink;
}

} // namespace alerts
