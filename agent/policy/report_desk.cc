#include "agent/policy/report_desk.h"

#include "agent/alerts/report_alert.h"

namespace policy {

ReportDesk::ReportDesk(host::Host &host) : host_(host)
{
    host_.SetReportTaker([this](const ReportRequest &request) { Take(request); });
}

ReportDesk::~ReportDesk()
{
    host_.SetReportTaker(nullptr);
}

void ReportDesk::Load()
{
    policies_ = Policies(events::EventRegistry(host_.registry()).ReadAll());
}

void ReportDesk::Take(const ReportRequest &request)
{
    alerts::Alert alert = alerts::AlertOf(host_, request);
    if (const Policy *policy = policies_.Find({request.source, request.eventId}))
        Dress(*policy, &alert);
    folder_.Add(host_.store(), alert);
}

// What the alert says by the policy of its event.
void ReportDesk::Dress(const Policy &policy, alerts::Alert *alert)
{
    const events::EventPolicy &terms = policy.event.policy;
    alert->severity = terms.severity;
    alert->labels = terms.labels;
    alert->runbook_url = terms.runbook_url;
    if (!policy.summary)
        return;
    const std::string &host = alert->line_host.empty() ? alert->host : alert->line_host;
    alert->summary = policy.summary->Render(
        {{"host", host}, {"program", alert->program}, {"message", alert->message}});
}

} // namespace policy
