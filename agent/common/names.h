// The names that the agent shares with the module, as the agent's own code says them.
#ifndef AGENT_COMMON_NAMES_H
#define AGENT_COMMON_NAMES_H

#include "platform/contract.h"

namespace agent {

using ::kAlertReportKey;
using ::kApplicationKey;
using ::kFileMonitorKey;
using ::kMonitorKey;

using ::kCustomerFileEvent;
using ::kCycleEvent;
using ::kFileMonitorEvent;
using ::kScanEvent;
using ::kTableEvent;
using ::kTableMutex;

using ::kSyslogIdentifier;
using ::kSystemLog;

} // namespace agent

#endif // AGENT_COMMON_NAMES_H
