#include "agent/alerts/report_alert.h"

#include "agent/host/here_and_now.h"
#include "agent/host/report_source.h"

namespace alerts {

Alert AlertOf(host::Host &host, const ReportRequest &request)
{
    Alert alert;
    // When it was reported, not the time stamp of the line, which has no year and can be of another
    // zone.
    alert.time_ms = host::NowMs();
    alert.host = host::HostName();
    alert.log_name = request.logName;
    alert.source = request.source;
    alert.event_id = request.eventId;
    alert.count = host.reported_hits().HitsOf(request, host.table());
    // There is always one line, although stringCount says 0. Everything in the request is copied:
    // it is the module's again when this call returns.
    alert.message = request.strings[0];
    if (host.report_source()) {
        host::ReportSource source = host.report_source()(alert.message);
        alert.message = std::move(source.text);
        if (!source.log.empty())
            alert.log_name = std::move(source.log);
        alert.line_host = std::move(source.host);
        alert.program = std::move(source.program);
        alert.own_time = std::move(source.own_time);
    }
    return alert;
}

} // namespace alerts
