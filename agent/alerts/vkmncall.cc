// lib/vkmncall.dll: the alert component's entry point. It stores the report and returns; it never
// waits for a receiver.
#include <chrono>
#include <climits>
#include <unistd.h>

#include "agent/alerts/alert_store.h"
#include "agent/libtarsk/c_boundary.h"
#include "agent/libtarsk/host.h"
#include "platform/monitor_entry.h"
#include "platform/siblings.h"

namespace {

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

// The hits behind a report: the report count of the entry that made it. The report's source is the
// entry's own field, so its address tells which entry that is.
int32_t HitsOf(const ReportRequest &request)
{
    const tarsk::ModuleTable &table = tarsk::HostTable();
    const int size = table.Size();
    for (int i = 0; i < size; ++i) {
        if (table.entries[i]->Source == request.source)
            return table.entries[i]->ReportCount;
    }
    return 1;
}

alerts::Alert AlertOf(const ReportRequest &request)
{
    alerts::Alert alert;
    alert.time_ms = NowMs();
    alert.host = HostName();
    alert.log_name = request.logName;
    alert.source = request.source;
    alert.event_id = request.eventId;
    alert.count = HitsOf(request);
    alert.message = request.strings[0];
    return alert;
}

} // namespace

extern "C" __attribute__((visibility("default"))) int VKMonitorCall(ReportRequest *request)
{
    return tarsk::AtBoundary<int>(__func__, 0, [&] {
        alerts::AddAlert(tarsk::HostStore(), AlertOf(*request));
        return 1;
    });
}
