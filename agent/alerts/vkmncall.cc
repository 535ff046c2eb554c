// lib/vkmncall.dll: the alert component's entry point. It stores the report, or hands it to whoever
// knows the policies of events, and returns; it never waits for a receiver: the deliverer sends it from
// the store, at its own pace. What is stored is a part of the pass that reports it.
#include <exception>

#include "agent/alerts/report_alert.h"
#include "agent/alerts/report_folder.h"
#include "agent/host/c_boundary.h"
#include "agent/host/host.h"
#include "platform/siblings.h"

namespace {

// Outlives the hosts of the process; the numbers of passes, which differ between all of them, keep
// their alerts apart.
alerts::ReportFolder folder; // of the monitor thread

} // namespace

// 0 when the report could not be stored. The module goes on with its pass, which is broken by then
// and fails at its end: its lines are read again.
extern "C" __attribute__((visibility("default"))) int VKMonitorCall(ReportRequest *request)
{
    return host::AtBoundary<int>(__func__, 0, [&] {
        host::Host &host = host::Current();
        try {
            if (host.report_taker())
                host.report_taker()(*request);
            else
                folder.Add(host.store(), alerts::AlertOf(host, *request));
        } catch (const std::exception &error) {
            host.store().FailPass(error);
            throw;
        }
        return 1;
    });
}
