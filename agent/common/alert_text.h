// An alert as a line for people.
#ifndef AGENT_COMMON_ALERT_TEXT_H
#define AGENT_COMMON_ALERT_TEXT_H

#include <string>

#include "agent/alerts/alert_store.h"

namespace agent {

// "2026-11-21 10:00:01  DISK 1A2B  x3  Nov 21 10:00:00 host kernel: ...". Local time; control
// characters of the message are shown as "?". Of many reports: "... (and 12 more until 2026-11-21
// 10:00:09, the last: Nov 21 10:00:09 host kernel: ...)".
std::string AlertLine(const alerts::Alert &alert);

// "2026-11-21 10:00:01", local time.
std::string LocalTime(int64_t time_ms);

// Text from a log, made harmless for a terminal: "?" for each control character, for what turns the
// direction of writing, and for each byte that is not UTF-8.
std::string Printable(const std::string &text);

} // namespace agent

#endif // AGENT_COMMON_ALERT_TEXT_H
