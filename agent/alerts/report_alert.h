// A report of the module as an alert that can be stored.
#ifndef AGENT_ALERTS_REPORT_ALERT_H
#define AGENT_ALERTS_REPORT_ALERT_H

#include "agent/alerts/alert_store.h"
#include "agent/host/host.h"
#include "platform/siblings.h"

namespace alerts {

// Of a report that has just arrived, on the monitor thread: with the hits behind it, this moment, this
// host, and where its line came from. Everything is copied, since the request is the module's again when
// its call returns. Once for each report: the hits are used up by it.
Alert AlertOf(host::Host &host, const ReportRequest &request);

} // namespace alerts

#endif // AGENT_ALERTS_REPORT_ALERT_H
