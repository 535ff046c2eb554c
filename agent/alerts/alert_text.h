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

// Why there is this alert, as it was when it was stored: how many hits made it and of what, the terms by which its event
// was reported, how many reports it stands for, how many were held back before it, and the silence that keeps receivers
// from being told. "5 hits of web1: 5 hits within 10 minutes make a report, for each host apart; 3 reports of 15 hits
// were held back before it". One line of printable text, without a full stop; what is not known is not in it. One of the
// monitor's own says so.
std::string WhyInWords(const Alert &alert);

} // namespace alerts

#endif // AGENT_ALERTS_ALERT_TEXT_H
