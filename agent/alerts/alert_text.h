// An alert as a line for people.
#ifndef AGENT_ALERTS_ALERT_TEXT_H
#define AGENT_ALERTS_ALERT_TEXT_H

#include <string>

#include "agent/alerts/alert_store.h"

namespace alerts {

// "2026-11-21 10:00:01  DISK 1A2B  x3  Nov 21 10:00:00 host kernel: ...". Local time; control
// characters of the message are shown as "?". With what its event's policy says of it: "... x3  err
// disk of host: Nov 21 10:00:00 host kernel: ...". Of many reports: "... (and 12 more until 2026-11-21
// 10:00:09, the last: Nov 21 10:00:09 host kernel: ...)".
std::string AlertLine(const Alert &alert);

} // namespace alerts

#endif // AGENT_ALERTS_ALERT_TEXT_H
