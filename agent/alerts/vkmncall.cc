// lib/vkmncall.dll: the alert component's entry point. It stores the report and returns; it never
// waits for a receiver.
#include <chrono>
#include <climits>
#include <unistd.h>

#include "agent/alerts/report_folder.h"
#include "agent/host/c_boundary.h"
#include "agent/host/host.h"
#include "platform/siblings.h"

namespace {

alerts::ReportFolder folder; // of the monitor thread

std::string HostName()
{
    char name[HOST_NAME_MAX + 1] = {};
    gethostname(name, HOST_NAME_MAX);
    return name;
}

int64_t NowMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

alerts::Alert AlertOf(host::Host &host, const ReportRequest &request)
{
    alerts::Alert alert;
    alert.time_ms = NowMs();
    alert.host = HostName();
    alert.log_name = request.logName;
    alert.source = request.source;
    alert.event_id = request.eventId;
    alert.count = host.reported_hits().HitsOf(request, host.table());
    alert.message = request.strings[0];
    return alert;
}

} // namespace

extern "C" __attribute__((visibility("default"))) int VKMonitorCall(ReportRequest *request)
{
    return host::AtBoundary<int>(__func__, 0, [&] {
        host::Host &host = host::Current();
        folder.Add(host.store(), AlertOf(host, *request));
        return 1;
    });
}
