// lib/vkmncall.dll: the alert component's entry point. It stores the report and returns; it never
// waits for a receiver: the deliverer sends it from the store, at its own pace. What is stored is a
// part of the pass that reports it.
#include "agent/alerts/report_folder.h"
#include "agent/host/c_boundary.h"
#include "agent/host/here_and_now.h"
#include "agent/host/host.h"
#include "agent/host/report_source.h"
#include "platform/siblings.h"

namespace {

// Outlives the hosts of the process; the numbers of passes, which differ between all of them, keep
// their alerts apart.
alerts::ReportFolder folder; // of the monitor thread

alerts::Alert AlertOf(host::Host &host, const ReportRequest &request)
{
    alerts::Alert alert;
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

} // namespace

// 0 when the report could not be stored. The module goes on with its pass, which is broken by then
// and fails at its end: its lines are read again.
extern "C" __attribute__((visibility("default"))) int VKMonitorCall(ReportRequest *request)
{
    return host::AtBoundary<int>(__func__, 0, [&] {
        host::Host &host = host::Current();
        folder.Add(host.store(), AlertOf(host, *request));
        return 1;
    });
}
